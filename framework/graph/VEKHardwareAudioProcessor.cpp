#include "VEKHardwareAudioProcessor.h"

#include "VEKAudioGraphError.h"
#include "VEKAudioStream.h"

VEKHardwareAudioProcessor::~VEKHardwareAudioProcessor() { closeSink(); }

bool VEKHardwareAudioProcessor::setDevice(VEKAudioDevicePtr device, VEKError *error)
{
    if (isInitialized() || m_output) {
        VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::StreamNotStopped,
                                                      "Error_graphDeviceInUse"));
        return false;
    }
    m_device = std::move(device);
    return true;
}

bool VEKHardwareAudioProcessor::deviceRateChanged() const
{
    return m_output && m_device && m_device->sampleRate(nullptr) > 0.0
        && m_device->sampleRate(nullptr) != m_openedRate;
}

bool VEKHardwareAudioProcessor::openSink(const VEKAudioStreamFormat &requested, VEKError *error)
{
    closeSink();
    if (!m_device || !m_device->isValid()) {
        VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::NoDevice, "Error_graphNoDevice"));
        return false;
    }
    VEKAudioFormat format;
    const double deviceRate = m_device->sampleRate(nullptr);
    format.sampleRate = deviceRate > 0.0 ? deviceRate : requested.sampleRate;
    format.numberOfChannels = requested.numberOfChannels;
    // The deepest integer word the device takes; it settles on what it has.
    format.bitDepth = 32;
    format.isFloat = false;
    std::unique_ptr<VEKAudioOutput> output = m_device->createOutput();
    VEKError openError;
    if (!output || !output->open(format, m_requestedFrames, &openError)) {
        VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::OutputFailed, "Error_graphOutputOpen",
                                                      QString(), openError.text()));
        return false;
    }
    m_openedRate = format.sampleRate;
    m_outputFormat = output->format();
    m_deviceFormat = output->deviceFormat();
    m_output = std::move(output);
    return true;
}

void VEKHardwareAudioProcessor::closeSink()
{
    if (!m_output)
        return;
    m_output->stop();
    m_output->close();
    m_output.reset();
    m_deviceFormat = {};
}

VEKAudioStreamFormat VEKHardwareAudioProcessor::sinkFormat() const
{
    return {m_outputFormat.sampleRate, m_outputFormat.numberOfChannels};
}

quint32 VEKHardwareAudioProcessor::framesPerBuffer() const
{
    return m_output ? m_output->framesPerBuffer() : m_requestedFrames;
}

quint64 VEKHardwareAudioProcessor::framesPlayed() const
{
    return m_output ? m_output->framesPlayed() : 0;
}

bool VEKHardwareAudioProcessor::startSink(VEKAudioStream *stream, VEKError *error)
{
    if (!m_output) {
        VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::NotInitialized, "Error_graphNotInitialized"));
        return false;
    }
    if (m_output->isRunning())
        return true;
    VEKError startError;
    // A device that nobody hears in real time lets the render wait for the disk.
    const bool offline = m_device && !m_device->rendersInRealTime();
    const bool ok = m_output->start(
        [stream, offline](VEKAudioBufferList &buffer, quint64 sampleTime) {
            stream->renderCycle(buffer, sampleTime, offline);
        },
        &startError);
    if (!ok)
        VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::OutputFailed, "Error_graphOutputStart",
                                                      QString(), startError.text()));
    return ok;
}

void VEKHardwareAudioProcessor::stopSink()
{
    if (m_output)
        m_output->stop();
}

QVariantMap VEKHardwareAudioProcessor::settings() const
{
    QVariantMap s = VEKAudioSinkProcessor::settings();
    s.insert(QStringLiteral("framesPerBuffer"), m_requestedFrames);
    return s;
}

bool VEKHardwareAudioProcessor::setSettings(const QVariantMap &settings, VEKError *error)
{
    if (!VEKAudioSinkProcessor::setSettings(settings, error))
        return false;
    const auto it = settings.constFind(QStringLiteral("framesPerBuffer"));
    if (it != settings.constEnd()) {
        const quint32 frames = it->toUInt();
        if (frames < 16 || frames > 65536) {
            VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::InvalidArgument,
                                                          "Error_graphFramesPerBuffer", QString::number(frames)));
            return false;
        }
        m_requestedFrames = frames;
    }
    return true;
}
