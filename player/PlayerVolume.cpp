#include "PlayerVolume.h"

#include "PlayerAccessibility.h"
#include "PlayerArt.h"
#include "settings/UserDefaults.h"

#include <QAccessible>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QWheelEvent>

namespace {
const QString volumeKey = QStringLiteral("volume");
const QString knobKey = QStringLiteral("volumeKnob");
// The knob's travel: from 225 degrees (seven-thirty) clockwise through 270.
constexpr qreal sweepDegrees = 270.0;
} // namespace

PlayerVolume::PlayerVolume(QWidget *parent) : QWidget(parent)
{
    PlayerAccessibility::install();
    setFocusPolicy(Qt::StrongFocus);
    setDefaults(nullptr);
}

void PlayerVolume::setDefaults(UserDefaults *defaults)
{
    disconnect(m_watch);
    m_defaults = defaults;
    m_watch = connect(&this->defaults(), &UserDefaults::valueChanged, this, [this](const QString &key) {
        if (key != volumeKey)
            return;
        update();
        QAccessibleValueChangeEvent event(this, volume());
        QAccessible::updateAccessibility(&event);
    });
    update();
}

UserDefaults &PlayerVolume::defaults() const
{
    return m_defaults ? *m_defaults : UserDefaults::standard();
}

float PlayerVolume::volume() const
{
    return qBound(0.0f, float(defaults().doubleForKey(volumeKey)), 1.0f);
}

void PlayerVolume::setVolume(float volume)
{
    defaults().setValue(volumeKey, double(qBound(0.0f, volume, 1.0f)));
}

void PlayerVolume::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    const QPointF p = event->position();
    const qreal rx = width() * 0.5, ry = height() * 0.5;
    const qreal dx = (p.x() - rx) / rx, dy = (p.y() - ry) / ry;
    // The corners outside the round knob are dead; the press is taken all the same, so it
    // doesn't fall through and move the window either.
    if (dx * dx + dy * dy > 1.0)
        return;
    m_tracking = true;
    m_pressPoint = p;
    m_startVolume = volume();
    m_knobMode = defaults().integerForKey(knobKey);
}

void PlayerVolume::mouseMoveEvent(QMouseEvent *event)
{
    if (!m_tracking)
        return;
    const QPointF q = event->position();
    if (m_knobMode != 0 && m_knobMode != 1) {
        setVolume(0.0f);
        return;
    }
    // Upward is louder; the view's y grows downward.
    const float d = m_knobMode == 0 ? float((q.x() - m_pressPoint.x()) / (width() * 2.0))
                                    : float((m_pressPoint.y() - q.y()) / (height() * 2.0));
    setVolume(m_startVolume + d);
}

void PlayerVolume::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton)
        m_tracking = false;
}

void PlayerVolume::wheelEvent(QWheelEvent *event)
{
    const int delta = event->angleDelta().y();
    if (delta == 0) {
        event->ignore();
        return;
    }
    setVolume(volume() + (delta > 0 ? 0.01f : -0.01f));
}

void PlayerVolume::keyPressEvent(QKeyEvent *event)
{
    float step = 0.0f;
    switch (event->key()) {
    case Qt::Key_Up:
    case Qt::Key_Right: step = 0.01f; break;
    case Qt::Key_Down:
    case Qt::Key_Left: step = -0.01f; break;
    case Qt::Key_PageUp: step = 0.1f; break;
    case Qt::Key_PageDown: step = -0.1f; break;
    default: QWidget::keyPressEvent(event); return;
    }
    setVolume(volume() + step);
}

void PlayerVolume::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setRenderHint(QPainter::SmoothPixmapTransform);
    const QRectF bounds = rect();
    const float v = volume();

    // The scale round the knob: a faint track of the whole travel and the lit part up to the
    // volume, both measured against the knob's own size.
    const qreal side = qMin(bounds.width(), bounds.height());
    const qreal stroke = side * 0.035;
    const QRectF ring = QRectF(0, 0, side, side).adjusted(stroke, stroke, -stroke, -stroke);
    QColor faint = PlayerArt::accent();
    faint.setAlphaF(0.14f);
    p.setPen(QPen(faint, stroke, Qt::SolidLine, Qt::RoundCap));
    // Qt's angles run counter-clockwise from three o'clock, in sixteenths of a degree.
    p.drawArc(ring, int(225 * 16), int(-sweepDegrees * 16));
    if (v > 0.0f) {
        p.setPen(QPen(PlayerArt::accent(), stroke, Qt::SolidLine, Qt::RoundCap));
        p.drawArc(ring, int(225 * 16), int(-sweepDegrees * v * 16));
    }

    const float c = float(bounds.x() + bounds.width() * 0.5);
    const QPixmap knob = PlayerArt::pixmap(QStringLiteral("Player_volume"), bounds.size(), devicePixelRatioF());
    p.save();
    p.translate(c, c);
    p.rotate(v * sweepDegrees); // clockwise on screen, as the y axis points down
    p.translate(-c, -c);
    p.drawPixmap(bounds, knob, QRectF(knob.rect()));
    p.restore();
    if (m_focusVisible && hasFocus())
        PlayerArt::drawFocusRing(p, bounds, true);
}

void PlayerVolume::focusInEvent(QFocusEvent *event)
{
    // Shown when the keyboard brought the focus, and kept as it was when the window returns.
    if (event->reason() != Qt::ActiveWindowFocusReason && event->reason() != Qt::PopupFocusReason)
        m_focusVisible = event->reason() == Qt::TabFocusReason || event->reason() == Qt::BacktabFocusReason
            || event->reason() == Qt::ShortcutFocusReason;
    update();
    QWidget::focusInEvent(event);
}

void PlayerVolume::focusOutEvent(QFocusEvent *event)
{
    if (event->reason() != Qt::ActiveWindowFocusReason && event->reason() != Qt::PopupFocusReason)
        m_focusVisible = false;
    update();
    QWidget::focusOutEvent(event);
}
