#include "PlayerImage.h"

#include <QPainter>
#include <QSvgRenderer>

PlayerImage::PlayerImage(const QString &resource, QWidget *parent)
    : QWidget(parent)
    , m_resource(resource)
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

void PlayerImage::paintEvent(QPaintEvent *)
{
    const qreal dpr = devicePixelRatioF();
    const QSize pixels = (QSizeF(size()) * dpr).toSize();
    if (m_pixmap.size() != pixels || m_pixmap.devicePixelRatio() != dpr) {
        QImage image(pixels, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter p(&image);
        QSvgRenderer(m_resource).render(&p);
        p.end();
        m_pixmap = QPixmap::fromImage(image);
        m_pixmap.setDevicePixelRatio(dpr);
    }
    QPainter(this).drawPixmap(0, 0, m_pixmap);
}
