#pragma once

#include "VEKAudioSinkProcessor.h"
#include "outputs/VEKAudioDevice.h"

#include <memory>

// The sink of a playing stream (identifier "hardware"): renders to an output device. The stream
// runs at the device's current rate, so a rate policy is applied by setting the device's rate.
//
// Threads: main thread. The render thread is the output's own thread.
//
// Settings: "framesPerBuffer" (integer, default 1024).
class VEKHardwareAudioProcessor : public VEKAudioSinkProcessor {
    Q_OBJECT
public:
    using VEKAudioSinkProcessor::VEKAudioSinkProcessor;
    ~VEKHardwareAudioProcessor() override;

    VEKAudioDevicePtr device() const { return m_device; }
    // Only on a stopped, uninitialised stream: false with StreamNotStopped otherwise.
    bool setDevice(VEKAudioDevicePtr device, VEKError *error = nullptr);

    // What the device settled on while open (its word length is what the dither works towards);
    // a default format when closed.
    VEKAudioFormat outputFormat() const { return m_outputFormat; }
    // The device's own record of that format, read back when it opened; invalid when closed.
    const VEKAudioDeviceFormat &deviceFormat() const { return m_deviceFormat; }
    quint32 requestedFramesPerBuffer() const { return m_requestedFrames; }
    // Frames the device has played since the output started (what it still holds excluded); 0
    // when closed.
    quint64 framesPlayed() const;
    void setRequestedFramesPerBuffer(quint32 frames) { m_requestedFrames = frames; }
    // True when the device's rate is no longer the one the output was opened for (someone set
    // the device's rate under a running stream): the stream reopens the output.
    bool deviceRateChanged() const;

    bool openSink(const VEKAudioStreamFormat &requested, VEKError *error) override;
    void closeSink() override;
    VEKAudioStreamFormat sinkFormat() const override;
    quint32 framesPerBuffer() const override;
    bool startSink(VEKAudioStream *stream, VEKError *error) override;
    void stopSink() override;
    bool pullsOnCallingThread() const override { return false; }

    QVariantMap settings() const override;
    bool setSettings(const QVariantMap &settings, VEKError *error) override;

private:
    VEKAudioDevicePtr m_device;
    std::unique_ptr<VEKAudioOutput> m_output;
    VEKAudioFormat m_outputFormat;
    VEKAudioDeviceFormat m_deviceFormat;
    double m_openedRate = 0.0;
    quint32 m_requestedFrames = 1024;
};
