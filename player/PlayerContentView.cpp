#include "PlayerContentView.h"

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QSvgRenderer>
#include <QWindow>

#include <cmath>

PlayerContentView::PlayerContentView(QWidget *parent)
    : QWidget(parent)
{
    setAttribute(Qt::WA_TranslucentBackground);
    setAccessibleName(QStringLiteral("Quivera"));
    // The panel itself holds the focus when the window becomes active, so no control shows a
    // focus ring until the keyboard moves to it; a click on the bare panel takes it back.
    setFocusPolicy(Qt::ClickFocus);
}

void PlayerContentView::place(QWidget *control, PlayerLayout::Item item)
{
    m_items.append({control, item});
    control->setGeometry(PlayerLayout::rect(item, size()));
}

void PlayerContentView::layOut()
{
    for (const auto &[control, item] : std::as_const(m_items))
        if (control)
            control->setGeometry(PlayerLayout::rect(item, size()));
}

void PlayerContentView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    m_background = QPixmap();
    layOut();
}

const QPixmap &PlayerContentView::background()
{
    const qreal dpr = devicePixelRatioF();
    if (!m_background.isNull() && m_background.devicePixelRatio() == dpr)
        return m_background;
    const QSize pixels = (QSizeF(size()) * dpr).toSize();
    QImage image(pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    image.setDevicePixelRatio(dpr);

    const double s = width() / PlayerLayout::designWidth;
    const QRectF panel = QRectF(PlayerLayout::rect(PlayerLayout::Panel, size()));
    const double radius = PlayerLayout::panelRadius * s;
    const double margin = PlayerLayout::shadowMargin * s;
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);

    // A soft shadow, darker below the panel than above it: rings out to the margin, each
    // covering the ones inside it, so the darkness falls from one half at the panel's edge to
    // nothing at the window's, whatever the size. Drawn once per size.
    const int rings = std::max(4, int(margin * dpr));
    const double step = 1.0 - std::pow(0.5, 1.0 / rings);
    p.setPen(Qt::NoPen);
    p.setBrush(QColor::fromRgbF(0, 0, 0, float(step)));
    for (int i = rings; i >= 1; --i) {
        const double grow = margin * i / rings;
        QPainterPath ring;
        ring.addRoundedRect(panel.adjusted(-grow, -grow * 0.6, grow, grow).translated(0, margin * 0.2),
                            radius + grow, radius + grow);
        p.drawPath(ring);
    }

    QPainterPath shape;
    shape.addRoundedRect(panel, radius, radius);
    p.setClipPath(shape);
    QSvgRenderer art(QStringLiteral(":/player/Player_background.svg"));
    if (art.isValid()) {
        art.render(&p, panel);
    } else {
        QLinearGradient fill(panel.topLeft(), panel.bottomLeft());
        fill.setColorAt(0, QColor(0x1d, 0x21, 0x27));
        fill.setColorAt(1, QColor(0x0b, 0x0d, 0x10));
        p.fillPath(shape, fill);
    }
    p.end();
    m_background = QPixmap::fromImage(image);
    return m_background;
}

void PlayerContentView::paintEvent(QPaintEvent *event)
{
    QPainter p(this);
    p.setCompositionMode(QPainter::CompositionMode_Source);
    const QRect r = event->rect();
    const QPixmap &bg = background();
    const qreal dpr = bg.devicePixelRatio();
    p.drawPixmap(r, bg, QRectF(QPointF(r.topLeft()) * dpr, QSizeF(r.size()) * dpr).toRect());
}

void PlayerContentView::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    QWidget *top = window();
    // The window system's move lets a compositor snap and tile the window; without one (a bare
    // X server, some Wayland shells) the window follows the mouse by hand.
    if (QWindow *handle = top->windowHandle(); handle && handle->startSystemMove()) {
        event->accept();
        return;
    }
    m_dragging = true;
    m_grabOffset = event->globalPosition().toPoint() - top->frameGeometry().topLeft();
    event->accept();
}

void PlayerContentView::mouseMoveEvent(QMouseEvent *event)
{
    if (!m_dragging || !(event->buttons() & Qt::LeftButton)) {
        QWidget::mouseMoveEvent(event);
        return;
    }
    window()->move(event->globalPosition().toPoint() - m_grabOffset);
    event->accept();
}

void PlayerContentView::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton)
        m_dragging = false;
    QWidget::mouseReleaseEvent(event);
}
