#include "PlayerSeekGesture.h"

#include "PlayerTransport.h"

#include <QKeyEvent>
#include <QMouseEvent>

#include <cmath>

std::optional<float> PlayerSeekGesture::press(const QMouseEvent *event, PlayerTransport *transport,
                                              const QRectF &knob, float travel)
{
    if (event->button() != Qt::LeftButton)
        return std::nullopt;
    const QPointF p = event->position();
    m_wasPlaying = transport && transport->isPlaying();
    if (m_wasPlaying)
        transport->pause();
    std::optional<float> jumped;
    float left = float(knob.x());
    if (!knob.contains(p) && travel > 0.0f) {
        const float location = qMin(float(p.x()) / travel, 1.0f);
        m_seek(location);
        left = std::round(location * travel);
        jumped = left;
    }
    m_grab = float(p.x()) - left;
    m_tracking = true;
    return jumped;
}

void PlayerSeekGesture::move(const QMouseEvent *event, float travel)
{
    if (m_tracking && travel > 0.0f)
        m_seek(qBound(0.0f, (float(event->position().x()) - m_grab) / travel, 1.0f));
}

void PlayerSeekGesture::release(const QMouseEvent *event, PlayerTransport *transport)
{
    if (event->button() != Qt::LeftButton || !m_tracking)
        return;
    m_tracking = false;
    if (m_wasPlaying && transport)
        transport->play();
    m_wasPlaying = false;
}

bool PlayerSeekGesture::key(const QKeyEvent *event, PlayerTransport *transport, float location)
{
    const SongPtr song = transport ? transport->currentSong() : SongPtr();
    const float step = song && song->length() > 0.0 ? float(5.0 / song->length()) : 0.01f;
    switch (event->key()) {
    case Qt::Key_Left: m_seek(qMax(0.0f, location - step)); return true;
    case Qt::Key_Right: m_seek(qMin(1.0f, location + step)); return true;
    case Qt::Key_Home: m_seek(0.0f); return true;
    case Qt::Key_End: m_seek(1.0f); return true;
    default: return false;
    }
}
