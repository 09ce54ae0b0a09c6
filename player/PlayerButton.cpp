#include "PlayerButton.h"

#include "PlayerAccessibility.h"
#include "PlayerArt.h"

#include <QKeyEvent>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>

PlayerButton::PlayerButton(QWidget *parent) : QWidget(parent)
{
    PlayerAccessibility::install();
    setFocusPolicy(Qt::TabFocus);
    setAttribute(Qt::WA_OpaquePaintEvent, false);
}

void PlayerButton::setImageName(const QString &name, quint32 states)
{
    m_imageName = name;
    m_states = qBound(1u, states, 3u);
    update();
}

void PlayerButton::setState(bool state)
{
    if (m_state == state)
        return;
    m_state = state;
    update();
}

void PlayerButton::setSelected(bool selected)
{
    if (m_selected == selected)
        return;
    m_selected = selected;
    update();
}

void PlayerButton::setTitle(const QString &title)
{
    if (m_title == title)
        return;
    m_title = title;
    update();
}

int PlayerButton::row() const
{
    if (m_states < 2)
        return 0;
    if (m_state)
        return 1;
    if (m_selected)
        return m_states == 3 ? 2 : 1;
    return 0;
}

void PlayerButton::press()
{
    if (m_latching)
        m_previousState = m_state;
    setState(true);
}

void PlayerButton::release()
{
    setState(m_latching && !m_previousState);
    emit triggered(this);
}

void PlayerButton::openMenu(const QPoint &globalPosition)
{
    emit willTrackMenu(this);
    if (m_menu)
        m_menu->popup(globalPosition);
}

void PlayerButton::click()
{
    if (!isEnabled())
        return;
    if (m_menu) {
        openMenu(mapToGlobal(QPoint(0, height())));
        return;
    }
    press();
    release();
}

void PlayerButton::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    if (m_menu) {
        openMenu(event->globalPosition().toPoint());
        return;
    }
    m_pressed = true;
    press();
}

void PlayerButton::mouseReleaseEvent(QMouseEvent *event)
{
    // Like the press, a release outside the button still acts: the gesture began here.
    if (event->button() != Qt::LeftButton || !m_pressed)
        return;
    m_pressed = false;
    release();
}

void PlayerButton::keyPressEvent(QKeyEvent *event)
{
    switch (event->key()) {
    case Qt::Key_Space:
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (!event->isAutoRepeat())
            click();
        break;
    default:
        QWidget::keyPressEvent(event);
    }
}

void PlayerButton::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setRenderHint(QPainter::TextAntialiasing);
    const QRectF bounds = rect();
    // Below this many pixels a title is a smudge, not text: the smallest window leaves it out.
    constexpr qreal smallestLegibleText = 8;
    if (!m_title.isEmpty()) {
        if (bounds.height() * 0.8 < smallestLegibleText)
            return;
        QColor colour = PlayerArt::accent();
        if (!isEnabled())
            colour.setAlphaF(0.3f);
        // The height of the text is the height of the button, so the title follows the size.
        const QFont font = PlayerArt::font(PlayerArt::Weight::Medium, bounds.height() * 0.8);
        p.setFont(font);
        p.setPen(colour);
        const QString text = QFontMetrics(font).elidedText(m_title, Qt::ElideRight, width());
        p.drawText(bounds, Qt::AlignLeft | Qt::AlignVCenter, text);
    } else if (!m_imageName.isEmpty()) {
        const QPixmap strip = PlayerArt::pixmap(
            m_imageName, QSizeF(bounds.width(), bounds.height() * m_states), devicePixelRatioF());
        if (!strip.isNull()) {
            const qreal rowHeight = strip.height() / qreal(m_states);
            p.setOpacity(isEnabled() ? 1.0 : 0.3);
            p.drawPixmap(bounds, strip, QRectF(0, rowHeight * row(), strip.width(), rowHeight));
            p.setOpacity(1.0);
        }
    }
    if (m_focusVisible && hasFocus())
        PlayerArt::drawFocusRing(p, bounds, m_title.isEmpty());
}

void PlayerButton::focusInEvent(QFocusEvent *event)
{
    // Shown when the keyboard brought the focus, and kept as it was when the window returns.
    if (event->reason() != Qt::ActiveWindowFocusReason && event->reason() != Qt::PopupFocusReason)
        m_focusVisible = event->reason() == Qt::TabFocusReason || event->reason() == Qt::BacktabFocusReason
            || event->reason() == Qt::ShortcutFocusReason;
    update();
    QWidget::focusInEvent(event);
}

void PlayerButton::focusOutEvent(QFocusEvent *event)
{
    if (event->reason() != Qt::ActiveWindowFocusReason && event->reason() != Qt::PopupFocusReason)
        m_focusVisible = false;
    update();
    QWidget::focusOutEvent(event);
}

void PlayerButton::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::EnabledChange)
        update();
    QWidget::changeEvent(event);
}
