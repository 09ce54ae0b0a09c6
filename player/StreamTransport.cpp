#include "StreamTransport.h"

#include "audio/Stream.h"
#include "graph/VEKMeterAudioProcessor.h"

StreamTransport::StreamTransport(Stream *stream, QObject *parent)
    : PlayerTransport(parent), m_stream(stream)
{
    if (!stream)
        return;
    connect(stream, &Stream::currentSongChanged, this, &PlayerTransport::currentSongChanged);
    connect(stream, &Stream::playingChanged, this, &PlayerTransport::playingChanged);
    connect(stream, &Stream::locationChanged, this, &PlayerTransport::locationChanged);
}

SongPtr StreamTransport::currentSong() const
{
    return m_stream ? m_stream->currentSong() : SongPtr();
}

bool StreamTransport::isPlaying() const
{
    return m_stream && m_stream->isPlaying();
}

void StreamTransport::play()
{
    if (m_stream)
        m_stream->play();
}

void StreamTransport::pause()
{
    if (m_stream)
        m_stream->pause();
}

float StreamTransport::normalizedLocation() const
{
    return m_stream ? m_stream->normalizedLocation() : 0.0f;
}

void StreamTransport::setNormalizedLocation(float fraction)
{
    if (m_stream)
        m_stream->setNormalizedLocation(fraction);
}

float StreamTransport::levelOfChannel(quint32 channel) const
{
    VEKMeterAudioProcessor *meter = m_stream ? m_stream->meter() : nullptr;
    return meter ? meter->levelOfChannel(channel) : 0.0f;
}
