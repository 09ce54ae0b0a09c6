#pragma once

#include "graph/VEKAudioStream.h"
#include "graph/VEKConductorAudioProcessor.h"
#include "graph/VEKOfflineSinkAudioProcessor.h"
#include "outputs/VEKAudioDevice.h"

#include <QVariantMap>

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

// Seams for driving the graph in tests (the graph's own and the playback layer's): a fake output
// device whose thread pulls like a sound card would, sinks that capture what the graph renders,
// and sources whose samples say which frame of the time line they are.
namespace GraphTest {

// Registers the test classes below by name (idempotent).
void registerTestClasses();

// A description from JSON text (terser than property lists for small graphs).
QVariantMap description(const char *json);

// Builds a stream from `json`; fails the test and returns null on error.
std::unique_ptr<VEKAudioStream> build(const char *json);
// Builds a stream of one chain through `processors` in order, each the JSON object of one
// processor with its identifier.
std::unique_ptr<VEKAudioStream> buildChain(std::initializer_list<const char *> processors);

// An output whose own thread pulls buffer after buffer, as fast as it can or paced at `speed`
// times real time, and keeps the first `captureFrames` frames it got.
class FakeOutput : public VEKAudioOutput {
public:
    FakeOutput(double speed, quint64 captureFrames) : m_speed(speed), m_captureFrames(captureFrames) {}
    ~FakeOutput() override { close(); }

    bool open(const VEKAudioFormat &requested, quint32 framesPerBuffer, VEKError *error) override;
    VEKAudioFormat format() const override { return m_format; }
    quint32 framesPerBuffer() const override { return m_frames; }
    bool start(RenderCallback callback, VEKError *error) override;
    void stop() override;
    bool isRunning() const override { return m_running.load(); }
    void close() override { stop(); }
    quint64 framesPlayed() const override { return m_played.load(); }

    quint64 cycles() const { return m_cycles.load(); }
    // Waits (up to `timeoutMs`) until `n` more cycles have run; false on timeout.
    bool waitForCycles(quint64 n, int timeoutMs = 10000) const;
    // Channel `c` of what was captured so far.
    std::vector<float> captured(quint32 c) const;

private:
    double m_speed;
    quint64 m_captureFrames;
    VEKAudioFormat m_format;
    quint32 m_frames = 0;
    std::thread m_thread;
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_quit{false};
    std::atomic<quint64> m_cycles{0};
    std::atomic<quint64> m_played{0};
    mutable std::mutex m_captureLock;
    std::vector<std::vector<float>> m_capture;
};

// A device of fake outputs offering `rates`; it remembers every rate it was set to and tells the
// device monitor, as a card does. The last output made stays reachable for inspection.
class FakeDevice : public VEKAudioDevice {
public:
    explicit FakeDevice(double rate = 44100.0, double speed = 0.0, quint64 captureFrames = 0,
                        QList<double> rates = {44100.0, 48000.0, 96000.0})
        : m_rate(rate), m_speed(speed), m_captureFrames(captureFrames), m_rates(std::move(rates))
    {
    }
    bool isValid() const override { return true; }
    bool hasPhysicalOutputs() const override { return true; }
    QString UID(VEKError * = nullptr) const override { return QStringLiteral("fake"); }
    qint64 deviceID() const override { return 4242; }
    QString title(VEKError * = nullptr) const override { return QStringLiteral("Fake"); }
    double sampleRate(VEKError * = nullptr) const override { return m_rate; }
    QList<double> availableSampleRates(VEKError * = nullptr) const override { return m_rates; }
    bool setSampleRate(double rate, VEKError * = nullptr) override;
    bool setIsExclusive(bool exclusive, VEKError *error = nullptr) override;
    bool isExclusive() const override { return m_exclusive; }
    bool supportsExclusive() const override { return exclusiveSupported; }
    QList<VEKAudioDeviceSource> outputSources(VEKError * = nullptr) const override { return {}; }
    bool setSourceEnabled(quint32, bool, VEKError * = nullptr) override { return false; }
    std::unique_ptr<VEKAudioOutput> createOutput() override;

    FakeOutput *lastOutput() const { return m_last; }

    QList<double> changes;
    int outputsMade = 0;
    // Without it, exclusive use is refused as by a device that has no such thing.
    bool exclusiveSupported = false;

private:
    bool m_exclusive = false;
    double m_rate;
    double m_speed;
    quint64 m_captureFrames;
    QList<double> m_rates;
    FakeOutput *m_last = nullptr;
};

// An offline sink keeping `wanted` frames of everything it is given ("TestCaptureSink").
class CaptureSink : public VEKOfflineSinkAudioProcessor {
    Q_OBJECT
public:
    using VEKOfflineSinkAudioProcessor::VEKOfflineSinkAudioProcessor;
    void setWanted(quint64 frames) { m_wanted = frames; }
    const std::vector<float> &channel(quint32 c) const { return m_data[c]; }

protected:
    quint32 framesToRenderNext() const override;
    bool consumeRenderedAudio(const VEKAudioBufferList &audio, VEKError *error) override;
    bool isFinished() const override { return !m_data.empty() && m_data[0].size() >= m_wanted; }

private:
    quint64 m_wanted = 0;
    std::vector<std::vector<float>> m_data{2};
};

// A sink that never pulls by itself ("TestManualSink"): a test renders buffer by buffer with
// VEKAudioStream::renderCycle, choosing the buffer size and whether the cycle is offline.
class ManualSink : public VEKOfflineSinkAudioProcessor {
    Q_OBJECT
public:
    using VEKOfflineSinkAudioProcessor::VEKOfflineSinkAudioProcessor;

protected:
    bool consumeRenderedAudio(const VEKAudioBufferList &, VEKError *) override { return true; }
    bool isFinished() const override { return true; }
};

// Renders, on every channel, the conductor's location of each frame plus one while the transport
// runs, and 0 while it is stopped ("TestRampSource"). Without a conductor it counts on by itself.
// Its samples name frames exactly up to 2^24.
class RampSource : public VEKAudioProcessor {
    Q_OBJECT
public:
    using VEKAudioProcessor::VEKAudioProcessor;
    void render(VEKAudioBufferList &list, quint32 bus, const VEKAudioRenderInfo &info) override;

private:
    qint64 m_free = 0;
};

// Renders a constant and counts how often it is pulled ("TestCountingSource").
// Settings: "value".
class CountingSource : public VEKAudioProcessor {
    Q_OBJECT
public:
    using VEKAudioProcessor::VEKAudioProcessor;
    void render(VEKAudioBufferList &list, quint32 bus, const VEKAudioRenderInfo &info) override;
    bool setSettings(const QVariantMap &settings, VEKError *error) override;
    quint64 pulls() const { return m_pulls.load(); }

private:
    std::atomic<quint64> m_pulls{0};
    float m_value = 1.0f;
};

using Channel = std::vector<float>;

// Renders fixed sequences of values, each repeating on its own ("TestSequenceSource"). A channel
// without a sequence of its own repeats the first one.
class SequenceSource : public VEKAudioProcessor {
    Q_OBJECT
public:
    using VEKAudioProcessor::VEKAudioProcessor;
    void setSamples(Channel samples) { setChannels({std::move(samples)}); }
    void setChannels(std::vector<Channel> channels)
    {
        m_channels = std::move(channels);
        m_frame = 0;
    }
    void render(VEKAudioBufferList &list, quint32 bus, const VEKAudioRenderInfo &info) override;

private:
    std::vector<Channel> m_channels{Channel{0.0f}};
    quint64 m_frame = 0;
};

// A stream "source" (a SequenceSource) -> each of `classes` (identifiers "p0", "p1", ...) ->
// "sink" (a ManualSink), at `rate` with `channels` channels, not yet initialised. Fails the test
// and returns null on error.
std::unique_ptr<VEKAudioStream> chainOf(const QStringList &classes, double rate = 48000.0,
                                        quint32 channels = 2);

// Renders `frames` frames through `stream` with buffers of `bufferFrames`, offline or not;
// returns every channel, or channel 0 alone.
std::vector<Channel> render(VEKAudioStream &stream, quint64 frames, quint32 bufferFrames,
                            bool offline = false);
inline Channel renderManually(VEKAudioStream &stream, quint64 frames, quint32 bufferFrames, bool offline)
{
    return render(stream, frames, bufferFrames, offline).at(0);
}

// A mono or stereo 32-bit float WAV at `rate` whose frame i holds (i + 1) / 2^24 in every channel
// (so a decoded sample names its frame exactly), made with sox from raw samples.
QString makeRampWave(const QString &path, quint64 frames, int rate = 44100, int channels = 2, quint64 offset = 0);

} // namespace GraphTest
