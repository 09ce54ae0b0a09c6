#pragma once

#include "VEKAudioSinkProcessor.h"

#include <atomic>

// A sink pulled to completion on the thread that starts its stream, as fast as the graph renders:
// the base of file writers. Rendering in such a stream may wait for the disk
// (VEKAudioRenderInfo::offline), so nothing is lost to a slow decoder.
//
// A subclass says what it wants (the format, how many frames next), takes each rendered buffer
// and says when it is done.
//
// Settings: "sampleRate" (number, 0 = the stream's), "numberOfChannels" (integer, 0 = the
// stream's), "framesPerBuffer" (integer, default 4096).
class VEKOfflineSinkAudioProcessor : public VEKAudioSinkProcessor {
    Q_OBJECT
public:
    using VEKAudioSinkProcessor::VEKAudioSinkProcessor;

    void setSampleRate(double rate) { m_rate = rate; }
    double sampleRate() const { return m_rate; }
    void setNumberOfChannels(quint32 channels) { m_channels = channels; }
    quint32 numberOfChannels() const { return m_channels; }
    void setFramesPerBuffer(quint32 frames) { m_frames = frames; }

    bool openSink(const VEKAudioStreamFormat &requested, VEKError *error) override;
    void closeSink() override;
    VEKAudioStreamFormat sinkFormat() const override { return m_format; }
    quint32 framesPerBuffer() const override { return m_frames; }
    // Renders buffer after buffer into consumeRenderedAudio() until isFinished(), a failure, or
    // stopSink(). Frames rendered so far count from 0 at each start.
    bool startSink(VEKAudioStream *stream, VEKError *error) override;
    // Any thread.
    void stopSink() override { m_stopRequested.store(true); }
    bool pullsOnCallingThread() const override { return true; }

    QVariantMap settings() const override;
    bool setSettings(const QVariantMap &settings, VEKError *error) override;

protected:
    // How many frames to render next (at most framesPerBuffer()); the base asks for full buffers.
    // A writer with a fixed range asks for just what is left, so it never renders past it.
    virtual quint32 framesToRenderNext() const { return m_frames; }
    // Takes one rendered buffer. False with `error` ends the stream's start with failure.
    virtual bool consumeRenderedAudio(const VEKAudioBufferList &audio, VEKError *error) = 0;
    // True when the sink has all it wants; checked after each buffer and before the first.
    virtual bool isFinished() const = 0;

private:
    double m_rate = 0.0;
    quint32 m_channels = 0;
    quint32 m_frames = 4096;
    VEKAudioStreamFormat m_format;
    VEKAudioBufferList m_buffer;
    std::atomic<bool> m_stopRequested{false};
};
