#include "MiniPlayerPosition.h"

#include "PlayerAccessibility.h"
#include "PlayerArt.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>

#include <cmath>

MiniPlayerPosition::MiniPlayerPosition(QWidget *parent) : QWidget(parent)
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
    if (event->button() != Qt::LeftButton)
        return;
    const float x = float(event->position().x());
    m_wasPlaying = m_transport && m_transport->isPlaying();
    if (m_wasPlaying)
        m_transport->pause();
    QRect knob = knobRect();
    if (!knob.contains(event->position().toPoint()) && travel() > 0.0f) {
        const float loc = qMin(x / travel(), 1.0f);
        seek(loc);
        knob.moveLeft(int(std::lround(loc * travel())));
    }
    m_grab = x - float(knob.x());
    m_tracking = true;
}

void MiniPlayerPosition::mouseMoveEvent(QMouseEvent *event)
{
    if (m_tracking && travel() > 0.0f)
        seek(qBound(0.0f, (float(event->position().x()) - m_grab) / travel(), 1.0f));
}

void MiniPlayerPosition::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton || !m_tracking)
        return;
    m_tracking = false;
    if (m_wasPlaying && m_transport)
        m_transport->play();
    m_wasPlaying = false;
}

void MiniPlayerPosition::keyPressEvent(QKeyEvent *event)
{
    const SongPtr song = m_transport ? m_transport->currentSong() : SongPtr();
    const float step = song && song->length() > 0.0 ? float(5.0 / song->length()) : 0.01f;
    const float loc = location();
    switch (event->key()) {
    case Qt::Key_Left: seek(qMax(0.0f, loc - step)); break;
    case Qt::Key_Right: seek(qMin(1.0f, loc + step)); break;
    case Qt::Key_Home: seek(0.0f); break;
    case Qt::Key_End: seek(1.0f); break;
    default: QWidget::keyPressEvent(event);
    }
}
