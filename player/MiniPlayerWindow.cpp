#include "MiniPlayerWindow.h"

#include <QGuiApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QScreen>
#include <QWindow>

#include <cmath>

namespace {
constexpr qreal panelRadius = 12.0;
}

MiniPlayerWindow::MiniPlayerWindow(QWidget *parent)
    : QWidget(parent, Qt::Window | Qt::FramelessWindowHint | Qt::NoDropShadowWindowHint)
{
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_NoSystemBackground);
    setAttribute(Qt::WA_DeleteOnClose, false);
    setWindowTitle(QStringLiteral("Quivera"));
    setAccessibleName(QStringLiteral("Quivera"));
    // A click on the bare panel takes the focus back from a control.
    setFocusPolicy(Qt::ClickFocus);
    setFixedSize(windowWidth, windowHeight);
}

void MiniPlayerWindow::setFrameCenter(QPointF center)
{
    move(int(std::lround(center.x() - width() * 0.5)), int(std::lround(center.y() - height() * 0.5)));
}

QPointF MiniPlayerWindow::frameCenter() const
{
    const QRect g = geometry();
    return QPointF(g.x() + g.width() * 0.5, g.y() + g.height() * 0.5);
}

QPoint MiniPlayerWindow::dragOrigin(QPoint mouse, QPoint grab, const QRect &available, int height)
{
    const QPoint wanted = mouse - grab;
    const int highest = available.top() - int(std::lround(height * (1.0 - 0.91)));
    return QPoint(wanted.x(), std::max(wanted.y(), highest));
}

void MiniPlayerWindow::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setCompositionMode(QPainter::CompositionMode_Source);
    p.fillRect(rect(), Qt::transparent);
    p.setCompositionMode(QPainter::CompositionMode_SourceOver);
    const QRectF panel = panelRect();

    // A soft shadow, darker below than above: rings out to the margin, each over the ones inside.
    const int rings = shadowMargin;
    const double step = 1.0 - std::pow(0.55, 1.0 / rings);
    p.setPen(Qt::NoPen);
    p.setBrush(QColor::fromRgbF(0, 0, 0, float(step)));
    for (int i = rings; i >= 1; --i) {
        const qreal grow = shadowMargin * qreal(i) / rings;
        QPainterPath ring;
        ring.addRoundedRect(panel.adjusted(-grow, -grow * 0.6, grow, grow).translated(0, shadowMargin * 0.2),
                            panelRadius + grow, panelRadius + grow);
        p.drawPath(ring);
    }

    // The face of the player window's panel, in small.
    QLinearGradient face(panel.topLeft(), panel.bottomLeft());
    face.setColorAt(0.0, QColor(0x20, 0x25, 0x2c));
    face.setColorAt(0.5, QColor(0x15, 0x19, 0x1e));
    face.setColorAt(1.0, QColor(0x0c, 0x0e, 0x11));
    p.setBrush(face);
    p.drawRoundedRect(panel, panelRadius, panelRadius);
    QLinearGradient rim(panel.topLeft(), panel.bottomLeft());
    rim.setColorAt(0.0, QColor::fromRgbF(1, 1, 1, 0.16f));
    rim.setColorAt(0.2, QColor::fromRgbF(1, 1, 1, 0.03f));
    rim.setColorAt(1.0, QColor::fromRgbF(1, 1, 1, 0.0f));
    p.setBrush(Qt::NoBrush);
    p.setPen(QPen(QBrush(rim), 1.0));
    p.drawRoundedRect(panel.adjusted(0.5, 0.5, -0.5, -0.5), panelRadius - 0.5, panelRadius - 0.5);
}

void MiniPlayerWindow::moveEvent(QMoveEvent *event)
{
    QWidget::moveEvent(event);
    emit moved();
}

void MiniPlayerWindow::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    // By hand rather than by the window system's move, which knows nothing of the limit; only
    // where a window can't place itself (Wayland) the window system moves it.
    if (QGuiApplication::platformName().startsWith(QLatin1String("wayland"))) {
        if (QWindow *handle = windowHandle(); handle && handle->startSystemMove()) {
            event->accept();
            return;
        }
    }
    const QScreen *s = screen();
    m_available = s ? s->availableGeometry() : QRect();
    m_grab = event->globalPosition().toPoint() - frameGeometry().topLeft();
    m_dragging = true;
    event->accept();
}

void MiniPlayerWindow::mouseMoveEvent(QMouseEvent *event)
{
    if (!m_dragging || !(event->buttons() & Qt::LeftButton)) {
        QWidget::mouseMoveEvent(event);
        return;
    }
    move(dragOrigin(event->globalPosition().toPoint(), m_grab, m_available, height()));
    event->accept();
}

void MiniPlayerWindow::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton)
        m_dragging = false;
    QWidget::mouseReleaseEvent(event);
}
