#include "SongInfoCover.h"

#include "player/PlayerArt.h"

#include <QPainter>
#include <QPainterPath>

SongInfoCover::SongInfoCover(QWidget *parent) : QWidget(parent)
{
    setAttribute(Qt::WA_OpaquePaintEvent, false);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void SongInfoCover::setImage(const QImage &image)
{
    if (image.cacheKey() == m_image.cacheKey())
        return;
    m_image = image;
    update();
}

QRectF SongInfoCover::imageRect(const QRectF &bounds, const QSizeF &imageSize)
{
    const float ratio = float(imageSize.width() / imageSize.height());
    QRectF r;
    if (ratio >= 1.0f) {
        const qreal height = bounds.height() / ratio;
        r = QRectF(0, bounds.y() + bounds.height() * 0.5 - height * 0.5, bounds.width(), height);
    } else {
        const qreal width = ratio * bounds.width();
        r = QRectF(bounds.x() + bounds.width() * 0.5 - width * 0.5, 0, width, bounds.height());
    }
    return QRectF(r.toAlignedRect()).adjusted(0.5, 0.5, -0.5, -0.5);
}

void SongInfoCover::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF bounds = rect();
    if (m_image.isNull() || m_image.height() == 0) {
        // No cover: a recessed square with a faint note, so the sheet keeps its shape.
        QPainterPath square;
        square.addRoundedRect(bounds.adjusted(0.5, 0.5, -0.5, -0.5), 6, 6);
        painter.fillPath(square, PlayerArt::panel());
        QColor line = PlayerArt::accent();
        line.setAlphaF(0.18f);
        painter.setPen(QPen(line, 1));
        painter.drawPath(square);
        const qreal side = bounds.width() * 0.4;
        const QRectF note(bounds.center().x() - side / 2, bounds.center().y() - side / 2, side, side);
        painter.setOpacity(0.3);
        painter.drawPixmap(note.toRect(), PlayerArt::pixmap(QStringLiteral("SongInfo_noCover"), note.size(),
                                                            devicePixelRatioF()));
        return;
    }
    const QRectF r = imageRect(bounds, QSizeF(m_image.size()));
    painter.drawImage(r, m_image);
    painter.setRenderHint(QPainter::Antialiasing, false);
    painter.setPen(QPen(QColor(0, 0, 0), 1));
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(r);
}
