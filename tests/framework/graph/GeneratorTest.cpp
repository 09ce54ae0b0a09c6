// A file played through the graph: at the conductor's location, from a read-ahead that never
// makes the render thread wait. The hand-over from one player to the other is proven through the
// whole program by the gapless tests.

#include "support/graph/GraphTestSupport.h"

#include "graph/VEKAudioFileAudioGenerator.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>

using namespace GraphTest;

namespace {

constexpr double kRate = 44100.0;

// The value frame i of a ramp wave holds.
float rampValue(quint64 frame, quint64 offset = 0) { return float(double(frame + offset + 1) / 16777216.0); }

std::shared_ptr<VEKAudioFileReader> openReader(const QString &path)
{
    auto reader = std::make_shared<VEKAudioFileReader>();
    VEKError error;
    EXPECT_TRUE(reader->initWithURL(path, &error)) << error.text().toStdString();
    return reader;
}

const QString &rampFile()
{
    static const QString path =
        makeRampWave(TestEnvironment::makeTempDir("ramp") + QStringLiteral("/ramp.wav"), 400000);
    return path;
}

struct Player {
    std::unique_ptr<VEKAudioStream> stream;
    VEKAudioFileAudioGenerator *generator = nullptr;
    VEKConductorAudioProcessor *conductor = nullptr;
};

Player makePlayer(const char *sinkClass)
{
    const QString json = QStringLiteral(R"({
      "processors": [
        {"identifier": "generator", "class": "VEKAudioFileAudioGenerator"},
        {"identifier": "conductor", "class": "VEKConductorAudioProcessor"},
        {"identifier": "sink", "class": "%1"}
      ],
      "chains": [["generator", "conductor", "sink"]]
    })").arg(QLatin1String(sinkClass));
    Player p;
    p.stream = build(json.toUtf8().constData());
    p.generator = p.stream->processorWithIdentifier<VEKAudioFileAudioGenerator>("generator");
    p.conductor = p.stream->processorWithIdentifier<VEKConductorAudioProcessor>("conductor");
    return p;
}

// Renders in real time (no waiting) until the generator delivers, at most two seconds.
std::vector<float> renderUntilHeard(VEKAudioStream &stream, quint32 n)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    for (;;) {
        std::vector<float> out = renderManually(stream, n, n, false);
        if (out[0] != 0.0f || std::chrono::steady_clock::now() > deadline)
            return out;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

} // namespace

TEST(Generator, ALandmarkJumpInTheFileIsSampleExact)
{
    for (const quint32 n : {64u, 1000u, 4096u}) {
        for (const quint32 offset : {0u, 1u, n / 2, n - 1}) {
            Player p = makePlayer("TestCaptureSink");
            auto *sink = p.stream->processorWithIdentifier<CaptureSink>("sink");
            const qint64 landmark = 5 * qint64(n) + offset;
            const qint64 jump = 200000; // far outside what was read ahead: the decoder must seek
            sink->setFramesPerBuffer(n);
            sink->setWanted(quint64(landmark) + 3 * n);
            p.generator->setAudioFile(openReader(rampFile()));
            auto mark = VEKConductorLandmark::landmark();
            mark->setLocation(double(landmark) / kRate);
            mark->setJump(true);
            mark->setJumpLocation(double(jump) / kRate);
            p.conductor->insertLandmark(mark, 0);
            p.conductor->start();
            ASSERT_TRUE(p.stream->initialize());
            ASSERT_TRUE(p.stream->start());
            const auto &out = sink->channel(0);
            for (qint64 i = 0; i < qint64(out.size()); ++i) {
                const qint64 frame = i < landmark ? i : jump + (i - landmark);
                ASSERT_EQ(out[size_t(i)], rampValue(quint64(frame))) << "buffer " << n << ", offset " << offset << ", frame " << i;
            }
        }
    }
}

TEST(Generator, APreparedLocationIsThereForTheVeryFirstRender)
{
    Player p = makePlayer("TestManualSink");
    p.generator->setAudioFile(openReader(rampFile()));
    ASSERT_TRUE(p.stream->initialize());
    p.generator->prepareForPlaybackFromLocation(300000.0 / kRate);
    p.conductor->setLocation(300000.0 / kRate);
    p.conductor->start();
    // Real time: nothing waits, so only what was prepared can be heard.
    const std::vector<float> out = renderManually(*p.stream, 4096, 1024, false);
    for (quint64 i = 0; i < out.size(); ++i)
        ASSERT_EQ(out[i], rampValue(300000 + i)) << i;
}

TEST(Generator, ARingThatRunsDryGivesSilenceAndThenPlaysInStep)
{
    Player p = makePlayer("TestManualSink");
    p.generator->setAudioFile(openReader(rampFile()));
    ASSERT_TRUE(p.stream->initialize());
    p.conductor->start();
    renderManually(*p.stream, 1024, 1024, false);
    // A seek nobody prepared: the buffer that asks for it cannot have it, and does not wait.
    p.conductor->setLocation(350000.0 / kRate);
    EXPECT_EQ(renderManually(*p.stream, 1024, 1024, false), std::vector<float>(1024, 0.0f));
    // Once the decoder catches up, the file is heard exactly where the conductor is.
    ASSERT_NE(renderUntilHeard(*p.stream, 1024)[0], 0.0f) << "the decoder never delivered";
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const std::vector<float> heard = renderManually(*p.stream, 1024, 1024, false);
    const double at = p.conductor->location() * kRate - 1024;
    for (quint64 i = 0; i < heard.size(); ++i)
        ASSERT_EQ(heard[i], rampValue(quint64(std::llround(at)) + i)) << i;
}

TEST(Generator, WithoutAFileOrPastItsEndItIsSilent)
{
    Player p = makePlayer("TestManualSink");
    ASSERT_TRUE(p.stream->initialize());
    p.conductor->start();
    EXPECT_EQ(renderManually(*p.stream, 2048, 512, true), std::vector<float>(2048, 0.0f));

    ASSERT_TRUE(p.stream->uninitialize());
    p.generator->setAudioFile(openReader(rampFile()));
    ASSERT_TRUE(p.stream->initialize());
    p.conductor->setLocation(399000.0 / kRate); // 1000 frames before the end
    const std::vector<float> out = renderManually(*p.stream, 2048, 512, true);
    EXPECT_EQ(out[999], rampValue(399999));
    EXPECT_EQ(std::vector<float>(out.begin() + 1000, out.end()), std::vector<float>(1048, 0.0f));
}

TEST(Generator, AntiClickRampsFadeInAtStartAndOutAtStopAndPlayingOnResumesAtTheStop)
{
    Player p = makePlayer("TestManualSink");
    p.generator->setAudioFile(openReader(rampFile()));
    p.generator->setAntiClickOnStart(true);
    p.generator->setAntiClickOnStop(true);
    ASSERT_TRUE(p.stream->initialize());
    p.generator->prepareForPlaybackFromLocation(0.0);
    const quint32 n = 256;
    p.conductor->start();
    const std::vector<float> in = renderManually(*p.stream, n, n, false);
    for (quint32 i = 0; i < n; ++i)
        ASSERT_FLOAT_EQ(in[i], rampValue(i) * float(i) / float(n)) << i;
    EXPECT_EQ(renderManually(*p.stream, n, n, false)[0], rampValue(n)) << "full level after one buffer";
    p.conductor->stop();
    const std::vector<float> out = renderManually(*p.stream, n, n, false);
    for (quint32 i = 0; i < n; ++i)
        ASSERT_FLOAT_EQ(out[i], rampValue(2 * n + i) * (1.0f - float(i) / float(n))) << i;
    EXPECT_EQ(renderManually(*p.stream, n, n, false), std::vector<float>(n, 0.0f));

    // Playing on resumes at the stop, fading in what faded out, with nothing to wait for.
    p.conductor->start();
    const std::vector<float> again = renderManually(*p.stream, n, n, false);
    for (quint32 i = 0; i < n; ++i)
        ASSERT_FLOAT_EQ(again[i], rampValue(2 * n + i) * float(i) / float(n)) << i;

    // Without the ramp a stop is immediate.
    p.generator->setAntiClickOnStop(false);
    p.conductor->start();
    renderManually(*p.stream, n, n, false);
    p.conductor->stop();
    EXPECT_EQ(renderManually(*p.stream, n, n, false), std::vector<float>(n, 0.0f));
}
