#include "VEKOfflineSinkAudioProcessor.h"

#include "VEKAudioGraphError.h"
#include "VEKAudioStream.h"

#include <algorithm>

bool VEKOfflineSinkAudioProcessor::openSink(const VEKAudioStreamFormat &requested, VEKError *)
{
    m_format.sampleRate = m_rate > 0.0 ? m_rate : requested.sampleRate;
    m_format.numberOfChannels = m_channels > 0 ? m_channels : requested.numberOfChannels;
    m_buffer.allocate(m_format.numberOfChannels, m_frames);
    return true;
}

void VEKOfflineSinkAudioProcessor::closeSink() { m_buffer = VEKAudioBufferList(); }

bool VEKOfflineSinkAudioProcessor::startSink(VEKAudioStream *stream, VEKError *error)
{
    if (m_buffer.capacity() == 0) {
        VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::NotInitialized, "Error_graphNotInitialized"));
        return false;
    }
    m_stopRequested.store(false);
    quint64 sampleTime = 0;
    while (!m_stopRequested.load() && !isFinished()) {
        const quint32 frames = std::min(framesToRenderNext(), m_buffer.capacity());
        if (frames == 0)
            break;
        m_buffer.setFrames(frames);
        stream->renderCycle(m_buffer, sampleTime, true);
        if (!consumeRenderedAudio(m_buffer, error))
            return false;
        sampleTime += frames;
    }
    return true;
}

QVariantMap VEKOfflineSinkAudioProcessor::settings() const
{
    QVariantMap s = VEKAudioSinkProcessor::settings();
    s.insert(QStringLiteral("sampleRate"), m_rate);
    s.insert(QStringLiteral("numberOfChannels"), m_channels);
    s.insert(QStringLiteral("framesPerBuffer"), m_frames);
    return s;
}

bool VEKOfflineSinkAudioProcessor::setSettings(const QVariantMap &settings, VEKError *error)
{
    if (!VEKAudioSinkProcessor::setSettings(settings, error))
        return false;
    if (settings.contains(QStringLiteral("sampleRate")))
        m_rate = settings.value(QStringLiteral("sampleRate")).toDouble();
    if (settings.contains(QStringLiteral("numberOfChannels")))
        m_channels = settings.value(QStringLiteral("numberOfChannels")).toUInt();
    if (settings.contains(QStringLiteral("framesPerBuffer"))) {
        const quint32 frames = settings.value(QStringLiteral("framesPerBuffer")).toUInt();
        if (frames < 16 || frames > 65536) {
            VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::InvalidArgument,
                                                          "Error_graphFramesPerBuffer", QString::number(frames)));
            return false;
        }
        m_frames = frames;
    }
    return true;
}
