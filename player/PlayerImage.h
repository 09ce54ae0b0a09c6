#pragma once

#include <QPixmap>
#include <QString>
#include <QWidget>

// A picture of the player's art (an SVG resource) drawn to fill the view, rendered once per size
// and device pixel ratio so it stays sharp. Takes no clicks. Main thread.
class PlayerImage : public QWidget {
    Q_OBJECT
public:
    explicit PlayerImage(const QString &resource, QWidget *parent = nullptr);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QString m_resource;
    QPixmap m_pixmap;
};
