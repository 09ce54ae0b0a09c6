#include "MiniPlayerPosition.h"

#include "PlayerAccessibility.h"
#include "PlayerArt.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>

#include <cmath>

MiniPlayerPosition::MiniPlayerPosition(QWidget *parent)
    : QWidget(parent), m_gesture([this](float location) { seek(location); })
{
    PlayerAccessibility::install();
    setFocusPolicy(Qt::TabFocus);
    m_timer.setInterval(100);
    connect(&m_timer, &QTimer::timeout, this, qOverload<>(&QWidget::update));
}

void MiniPlayerPosition::setTransport(PlayerTransport *transport)
{
    if (m_transport)
        disconnect(m_transport, nullptr, this, nullptr);
    m_transport = transport;
    if (transport) {
        connect(transport, &PlayerTransport::playingChanged, this, &MiniPlayerPosition::playingChanged);
        connect(transport, &PlayerTransport::currentSongChanged, this, qOverload<>(&QWidget::update));
        connect(transport, &PlayerTransport::locationChanged, this, qOverload<>(&QWidget::update));
    }
    playingChanged(transport && transport->isPlaying());
}

void MiniPlayerPosition::playingChanged(bool playing)
{
    // The gesture's own pause keeps the knob under the mouse; it moves on after it.
    if (playing)
        m_timer.start();
    else
        m_timer.stop();
    update();
}

float MiniPlayerPosition::location() const
{
    return m_transport && m_transport->currentSong() ? qBound(0.0f, m_transport->normalizedLocation(), 1.0f) : 0.0f;
}

void MiniPlayerPosition::seek(float location)
{
    if (m_transport)
        m_transport->setNormalizedLocation(location);
    update();
}

QRect MiniPlayerPosition::knobRect() const
{
    return QRect(int(std::lround(location() * travel())), 0, knobWidth, height());
}

void MiniPlayerPosition::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const bool hasSong = m_transport && m_transport->currentSong();
    const QRectF knob = knobRect();
    const qreal trackHeight = 2.0;
    const QRectF track(knobWidth * 0.5, (height() - trackHeight) * 0.5, width() - knobWidth, trackHeight);
    QColor colour = PlayerArt::accent();
    colour.setAlphaF(0.18f);
    p.setPen(Qt::NoPen);
    p.setBrush(colour);
    p.drawRoundedRect(track, 1.0, 1.0);
    if (hasSong) {
        colour.setAlphaF(0.7f);
        p.setBrush(colour);
        p.drawRoundedRect(QRectF(track.topLeft(), QPointF(knob.center().x(), track.bottom())), 1.0, 1.0);
        p.setBrush(PlayerArt::accent());
        p.drawEllipse(knob.center(), knobWidth * 0.5, knobWidth * 0.5);
    }
    if (hasFocus())
        PlayerArt::drawFocusRing(p, rect(), false);
}

void MiniPlayerPosition::mousePressEvent(QMouseEvent *event)
{
    m_gesture.press(event, m_transport, knobRect(), travel());
}

void MiniPlayerPosition::mouseMoveEvent(QMouseEvent *event)
{
    m_gesture.move(event, travel());
}

void MiniPlayerPosition::mouseReleaseEvent(QMouseEvent *event)
{
    m_gesture.release(event, m_transport);
}

void MiniPlayerPosition::keyPressEvent(QKeyEvent *event)
{
    if (!m_gesture.key(event, m_transport, location()))
        QWidget::keyPressEvent(event);
}
