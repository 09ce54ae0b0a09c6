#include "MiniPlayerScrollingText.h"

#include "PlayerAccessibility.h"
#include "PlayerArt.h"
#include "PlayerTitle.h"

#include <QAccessible>
#include <QPainter>

#include <algorithm>

namespace {
constexpr qreal fadeWidth = 12.0;
}

MiniPlayerScrollingText::MiniPlayerScrollingText(QWidget *parent) : QWidget(parent)
{
    PlayerAccessibility::install();
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &MiniPlayerScrollingText::tick);
}

void MiniPlayerScrollingText::setFont(const QFont &font)
{
    m_font = font;
    measure();
}

void MiniPlayerScrollingText::setText(const QString &text, bool restart)
{
    if (text == m_text && !restart)
        return;
    m_text = text;
    measure();
    QAccessibleEvent event(this, QAccessible::NameChanged);
    QAccessible::updateAccessibility(&event);
}

void MiniPlayerScrollingText::measure()
{
    m_textWidth = m_text.isEmpty() ? 0.0 : QFontMetricsF(m_font).horizontalAdvance(m_text);
    m_scrolls = m_textWidth > width();
    m_clock.start();
    m_timer.stop();
    if (m_scrolls)
        tick();
    update();
}

qreal MiniPlayerScrollingText::x() const
{
    if (!m_scrolls)
        return (width() - m_textWidth) * 0.5;
    return -PlayerTitle::scrollStateAt(seconds(), m_textWidth - width()).offset;
}

qreal MiniPlayerScrollingText::opacity() const
{
    return m_scrolls ? PlayerTitle::scrollStateAt(seconds(), m_textWidth - width()).opacity : 1.0;
}

void MiniPlayerScrollingText::tick()
{
    if (!m_scrolls)
        return;
    update();
    m_timer.start(PlayerTitle::nextFrameDelayAt(seconds()));
}

void MiniPlayerScrollingText::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    measure();
}

void MiniPlayerScrollingText::setIdleText(const QString &text)
{
    if (text == m_idleText)
        return;
    m_idleText = text;
    update();
}

void MiniPlayerScrollingText::paintEvent(QPaintEvent *)
{
    if (m_text.isEmpty()) {
        if (m_idleText.isEmpty())
            return;
        QPainter p(this);
        p.setRenderHint(QPainter::TextAntialiasing);
        QColor faint = PlayerArt::accent();
        faint.setAlphaF(0.3f);
        p.setPen(faint);
        p.setFont(m_font);
        p.drawText(rect(), Qt::AlignCenter, m_idleText);
        return;
    }
    const qreal dpr = devicePixelRatioF();
    QPixmap layer((QSizeF(size()) * dpr).toSize());
    layer.setDevicePixelRatio(dpr);
    layer.fill(Qt::transparent);
    const qreal left = x();
    {
        QPainter p(&layer);
        p.setRenderHint(QPainter::TextAntialiasing);
        p.setFont(m_font);
        p.setPen(PlayerArt::accent());
        const QFontMetricsF metrics(m_font);
        const qreal baseline = (height() + metrics.ascent() - metrics.descent()) * 0.5;
        p.drawText(QPointF(left, baseline), m_text);
        // An edge where the line is cut off fades out over a few pixels, rather than slicing a
        // letter; an edge where it ends stays sharp.
        const qreal fadeLeft = std::clamp(-left, 0.0, fadeWidth);
        const qreal fadeRight = std::clamp(left + m_textWidth - width(), 0.0, fadeWidth);
        if (fadeLeft > 0.0 || fadeRight > 0.0) {
            QLinearGradient mask(0, 0, width(), 0);
            mask.setColorAt(0.0, QColor(0, 0, 0, fadeLeft > 0.0 ? 0 : 255));
            mask.setColorAt(fadeLeft / width(), Qt::black);
            mask.setColorAt(1.0 - fadeRight / width(), Qt::black);
            mask.setColorAt(1.0, QColor(0, 0, 0, fadeRight > 0.0 ? 0 : 255));
            p.setCompositionMode(QPainter::CompositionMode_DestinationIn);
            p.fillRect(rect(), mask);
        }
    }
    QPainter p(this);
    p.setOpacity(opacity());
    p.drawPixmap(0, 0, layer);
}
