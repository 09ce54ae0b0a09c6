#include "VEKAudioFileWriterAudioProcessor.h"

#include "VEKAudioGraphError.h"
#include "ops/Operation.h"

#include <algorithm>
#include <cmath>

VEKAudioFileWriterAudioProcessor::~VEKAudioFileWriterAudioProcessor() = default;

void VEKAudioFileWriterAudioProcessor::setRange(double location, double length)
{
    m_location = location;
    m_length = length;
}

void VEKAudioFileWriterAudioProcessor::setSampleRate(double rate)
{
    VEKOfflineSinkAudioProcessor::setSampleRate(rate);
    m_writer.setSampleRate(rate);
}

void VEKAudioFileWriterAudioProcessor::setNumberOfChannels(quint32 channels)
{
    VEKOfflineSinkAudioProcessor::setNumberOfChannels(channels);
    m_writer.setNumberOfChannels(channels);
}

bool VEKAudioFileWriterAudioProcessor::openSink(const VEKAudioStreamFormat &requested, VEKError *error)
{
    if (!VEKOfflineSinkAudioProcessor::openSink(requested, error))
        return false;
    const VEKAudioStreamFormat format = sinkFormat();
    const double frames = m_length * format.sampleRate;
    if (!(frames >= 0.5)) {
        VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::InvalidArgument, "Error_graphWriterRange"));
        VEKOfflineSinkAudioProcessor::closeSink();
        return false;
    }
    m_total = quint64(std::llround(frames));
    m_written = 0;
    m_cancelled = false;
    m_writer.setSampleRate(format.sampleRate);
    m_writer.setNumberOfChannels(format.numberOfChannels);
    m_writer.setExpectedFrames(m_total);
    if (!m_writer.open(error)) {
        VEKOfflineSinkAudioProcessor::closeSink();
        return false;
    }
    return true;
}

void VEKAudioFileWriterAudioProcessor::closeSink()
{
    if (m_writer.isOpen())
        m_writer.cancel();
    VEKOfflineSinkAudioProcessor::closeSink();
}

bool VEKAudioFileWriterAudioProcessor::cancellationRequested() const
{
    return m_operation && m_operation->isCancelled();
}

bool VEKAudioFileWriterAudioProcessor::startSink(VEKAudioStream *stream, VEKError *error)
{
    if (!m_writer.isOpen()) {
        VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::NotInitialized, "Error_graphNotInitialized"));
        return false;
    }
    if (!VEKOfflineSinkAudioProcessor::startSink(stream, error)) {
        m_writer.cancel();
        return false;
    }
    if (cancellationRequested()) {
        m_cancelled = true;
        m_writer.cancel();
        return true;
    }
    if (m_written < m_total)
        return true; // stopped from outside: the file stays open for another start
    return m_writer.finish(error);
}

quint32 VEKAudioFileWriterAudioProcessor::framesToRenderNext() const
{
    const quint64 left = m_total > m_written ? m_total - m_written : 0;
    return quint32(std::min<quint64>(framesPerBuffer(), left));
}

bool VEKAudioFileWriterAudioProcessor::consumeRenderedAudio(const VEKAudioBufferList &audio, VEKError *error)
{
    if (!m_writer.write(audio, error))
        return false;
    m_written += audio.frames();
    return true;
}

bool VEKAudioFileWriterAudioProcessor::isFinished() const
{
    return m_written >= m_total || cancellationRequested();
}

QVariantMap VEKAudioFileWriterAudioProcessor::settings() const
{
    QVariantMap s = VEKOfflineSinkAudioProcessor::settings();
    s.insert(QStringLiteral("format"), m_writer.format());
    s.insert(QStringLiteral("bitDepth"), m_writer.bitDepth());
    s.insert(QStringLiteral("bitrate"), m_writer.bitrate());
    s.insert(QStringLiteral("quality"), double(m_writer.quality()));
    s.insert(QStringLiteral("existsAction"), m_writer.existsAction());
    s.insert(QStringLiteral("baseFilename"), m_writer.baseFilename());
    s.insert(QStringLiteral("baseDirectory"), m_writer.baseDirectory());
    return s;
}

bool VEKAudioFileWriterAudioProcessor::setSettings(const QVariantMap &settings, VEKError *error)
{
    if (!VEKOfflineSinkAudioProcessor::setSettings(settings, error))
        return false;
    // The offline sink took the rate and channels; the writer follows them.
    m_writer.setSampleRate(sampleRate());
    m_writer.setNumberOfChannels(numberOfChannels());
    if (settings.contains(QStringLiteral("format")))
        setFormat(settings.value(QStringLiteral("format")).toString());
    if (settings.contains(QStringLiteral("bitDepth")))
        setBitDepth(settings.value(QStringLiteral("bitDepth")).toUInt());
    if (settings.contains(QStringLiteral("bitrate")))
        setBitrate(settings.value(QStringLiteral("bitrate")).toUInt());
    if (settings.contains(QStringLiteral("quality")))
        setQuality(settings.value(QStringLiteral("quality")).toFloat());
    if (settings.contains(QStringLiteral("existsAction")))
        setExistsAction(settings.value(QStringLiteral("existsAction")).toString());
    if (settings.contains(QStringLiteral("baseFilename")))
        setBaseFilename(settings.value(QStringLiteral("baseFilename")).toString());
    if (settings.contains(QStringLiteral("baseDirectory")))
        setBaseDirectory(settings.value(QStringLiteral("baseDirectory")).toString());
    return true;
}
