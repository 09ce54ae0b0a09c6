#pragma once

#include <QImage>
#include <QWidget>

// The cover in the song info sheet: the whole image, as large as the view allows, centred on
// the short side (a landscape cover spans the width, a portrait one the height), framed by a
// dark hairline. Without an image it shows a quiet placeholder: a note on a recessed square.
class SongInfoCover : public QWidget {
    Q_OBJECT
public:
    explicit SongInfoCover(QWidget *parent = nullptr);

    const QImage &image() const { return m_image; }
    // Redraws only when the image is another one.
    void setImage(const QImage &image);

    // Where an image of `imageSize` is drawn within `bounds`: the full width for a ratio of 1
    // or more, else the full height, centred the other way, made integral and inset by half a
    // point so that the frame's line falls on whole pixels.
    static QRectF imageRect(const QRectF &bounds, const QSizeF &imageSize);

    QSize sizeHint() const override { return {200, 200}; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QImage m_image;
};
