#pragma once

// A small stream around the playback layer's processors for tests: a source of chosen samples,
// the processors under test, and a sink that the test drives buffer by buffer.

#include "graph/VEKAudioStream.h"
#include "graph/VEKOfflineSinkAudioProcessor.h"

#include <QStringList>

#include <memory>
#include <vector>

namespace AudioChain {

using Channel = std::vector<float>;

// Renders per-channel sample sequences, each repeating on its own ("AudioChainSource"). A
// channel without a sequence of its own repeats the first one.
class Source : public VEKAudioProcessor {
    Q_OBJECT
public:
    using VEKAudioProcessor::VEKAudioProcessor;
    void setChannels(std::vector<Channel> channels);
    void render(VEKAudioBufferList &list, quint32 bus, const VEKAudioRenderInfo &info) override;

private:
    std::vector<Channel> m_channels{Channel{1.0f}};
    quint64 m_frame = 0;
};

// A sink that never pulls by itself ("AudioChainSink").
class Sink : public VEKOfflineSinkAudioProcessor {
    Q_OBJECT
public:
    using VEKOfflineSinkAudioProcessor::VEKOfflineSinkAudioProcessor;

protected:
    bool consumeRenderedAudio(const VEKAudioBufferList &, VEKError *) override { return true; }
    bool isFinished() const override { return true; }
};

// A stream "source" -> each of `classes` (identifiers "p0", "p1", ...) -> "sink", at `rate`
// with `channels` channels, not yet initialised. Fails the test and returns null on error.
std::unique_ptr<VEKAudioStream> build(const QStringList &classes, double rate = 48000.0, quint32 channels = 2);

// Renders one cycle of `frames` frames; returns every channel.
std::vector<Channel> renderBuffer(VEKAudioStream &stream, quint32 frames);
// Renders `frames` frames in buffers of `bufferFrames`; returns every channel.
std::vector<Channel> render(VEKAudioStream &stream, size_t frames, quint32 bufferFrames);

} // namespace AudioChain
