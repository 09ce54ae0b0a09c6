#pragma once

#include <QImage>
#include <QString>
#include <QWidget>

// The artwork panel's view: a header strip with its title over a square that shows a cover,
// whole and centred, or a line of text when there is none. It keeps the square of its width
// under the header (heightForWidth), so a layout gives it the height it needs.
class ArtworkView : public QWidget {
    Q_OBJECT
public:
    static constexpr int headerHeight = 24;

    explicit ArtworkView(QWidget *parent = nullptr);

    void setTitle(const QString &title);
    const QString &title() const { return m_title; }
    // The cover; a null image shows the placeholder text instead.
    void setImage(const QImage &image);
    const QImage &image() const { return m_image; }
    void setPlaceholder(const QString &text);
    const QString &placeholder() const { return m_placeholder; }
    // Whether the placeholder text shows (exactly when there is no image).
    bool isPlaceholderShown() const { return m_image.isNull(); }

    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override { return width + headerHeight; }
    QSize sizeHint() const override { return {200, 200 + headerHeight}; }

protected:
    void paintEvent(QPaintEvent *event) override;
    // Not every layout asks for the height for a width: the view fixes its own.
    void resizeEvent(QResizeEvent *event) override;

private:
    QString m_title;
    QString m_placeholder;
    QImage m_image;
};
