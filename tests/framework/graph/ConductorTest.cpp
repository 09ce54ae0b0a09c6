// The conductor's time line: landmarks fire in the buffer that reaches them, jumps and stops land
// on the exact frame, and location changes take effect at the next buffer.

#include "support/Processes.h"
#include "support/graph/GraphTestSupport.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

using namespace GraphTest;

namespace {

constexpr double kRate = 44100.0;

const char *kRampGraph = R"({
  "format": {"sampleRate": 44100, "numberOfChannels": 2},
  "processors": [
    {"identifier": "source", "class": "TestRampSource"},
    {"identifier": "conductor", "class": "VEKConductorAudioProcessor"},
    {"identifier": "sink", "class": "TestCaptureSink"}
  ],
  "chains": [["source", "conductor", "sink"]]
})";

// The same, rendered buffer by buffer by the test.
const std::initializer_list<const char *> kManualRamp{
    R"({"identifier": "source", "class": "TestRampSource"})",
    R"({"identifier": "conductor", "class": "VEKConductorAudioProcessor"})",
    R"({"identifier": "sink", "class": "TestManualSink"})"};

// What the time line should give: each output frame is the conductor frame it renders, plus one;
// on reaching `landmark` the line continues at `jump`, or is silent from there with `stop`.
std::vector<float> expectedLine(quint64 frames, qint64 landmark, qint64 jump, bool stop)
{
    std::vector<float> out;
    qint64 pos = 0;
    bool stopped = false;
    while (out.size() < frames) {
        if (!stopped && pos == landmark) {
            if (stop)
                stopped = true;
            else
                pos = jump;
        }
        out.push_back(stopped ? 0.0f : float(pos + 1));
        if (!stopped)
            ++pos;
    }
    return out;
}

// Processes events until `spy` holds `count` signals (or two seconds pass).
void waitForSignals(QSignalSpy &spy, int count)
{
    TestEnvironment::waitUntil([&] { return spy.count() >= count; }, 2000);
}

struct RampRun {
    std::unique_ptr<VEKAudioStream> stream;
    CaptureSink *sink = nullptr;
    VEKConductorAudioProcessor *conductor = nullptr;
};

RampRun makeRampRun(quint32 bufferFrames, quint64 wanted)
{
    RampRun run;
    run.stream = build(kRampGraph);
    run.sink = run.stream->processorWithIdentifier<CaptureSink>("sink");
    run.conductor = run.stream->processorWithIdentifier<VEKConductorAudioProcessor>("conductor");
    run.sink->setFramesPerBuffer(bufferFrames);
    run.sink->setWanted(wanted);
    return run;
}

} // namespace

class LandmarkPlacement : public ::testing::TestWithParam<quint32> {};

// A jump back to frame 7, or a stop, on the first, second, middle or last frame of a buffer.
TEST_P(LandmarkPlacement, JumpsAndStopsLandOnTheExactFrameWhereverTheLandmarkFallsInTheBuffer)
{
    const quint32 n = GetParam();
    for (const bool stop : {false, true}) {
        for (const quint32 offset : {0u, 1u, n / 2, n - 1}) {
            SCOPED_TRACE(testing::Message()
                         << (stop ? "stop" : "jump") << ", buffer " << n << ", offset " << offset);
            const qint64 landmark = 3 * qint64(n) + offset;
            const qint64 jump = 7;
            const quint64 total =
                stop ? 5 * quint64(n) : quint64(landmark) + quint64(landmark - jump) + 2 * n;
            RampRun run = makeRampRun(n, total);
            QSignalSpy passed(run.conductor, &VEKConductorAudioProcessor::landmarkPassed);
            QSignalSpy stopped(run.conductor, &VEKConductorAudioProcessor::transportStopped);
            auto mark = VEKConductorLandmark::landmark();
            mark->setLocation(double(landmark) / kRate);
            mark->setJump(!stop);
            mark->setJumpLocation(double(jump) / kRate);
            mark->setStop(stop);
            run.conductor->insertLandmark(mark, 0);
            run.conductor->start();
            ASSERT_TRUE(run.stream->initialize());
            ASSERT_TRUE(run.stream->start());
            ASSERT_EQ(run.sink->channel(0), expectedLine(total, landmark, jump, stop));
            ASSERT_EQ(run.sink->channel(1), run.sink->channel(0));
            if (stop) {
                EXPECT_FALSE(run.conductor->isRunning());
                EXPECT_DOUBLE_EQ(run.conductor->location(), double(landmark) / kRate);
                waitForSignals(stopped, 1);
                EXPECT_EQ(stopped.count(), 1);
            } else {
                // Reached, jumped back, and reached once more before the end.
                waitForSignals(passed, 2);
                EXPECT_EQ(passed.count(), 2);
                EXPECT_EQ(passed.first().first().value<VEKConductorLandmarkPtr>(), mark);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(BufferSizes, LandmarkPlacement, ::testing::Values(64u, 100u, 441u, 1024u, 1500u, 4096u));

TEST(Conductor, ALandmarkThatJumpsOntoItselfFiresOnceAndPlaysOn)
{
    RampRun run = makeRampRun(256, 1024);
    auto mark = VEKConductorLandmark::landmark();
    mark->setLocation(300.0 / kRate);
    mark->setJump(true);
    mark->setJumpLocation(300.0 / kRate);
    run.conductor->insertLandmark(mark, 0);
    run.conductor->start();
    ASSERT_TRUE(run.stream->initialize());
    ASSERT_TRUE(run.stream->start()); // returns: no endless loop on the render thread
    const auto &out = run.sink->channel(0);
    for (quint64 i = 0; i < out.size(); ++i)
        ASSERT_EQ(out[i], float(i + 1));
}

TEST(Conductor, ALocationSetIsReportedAtOnceAndRenderedFromTheNextBuffer)
{
    auto stream = buildChain(kManualRamp);
    auto *conductor = stream->processorWithIdentifier<VEKConductorAudioProcessor>("conductor");
    ASSERT_TRUE(stream->initialize());
    conductor->start();
    std::vector<float> first = renderManually(*stream, 300, 100, false);
    EXPECT_EQ(first[299], 300.0f);
    EXPECT_DOUBLE_EQ(conductor->location(), 300.0 / kRate);

    conductor->setLocation(1.0);
    EXPECT_DOUBLE_EQ(conductor->location(), 1.0);
    std::vector<float> next = renderManually(*stream, 100, 100, false);
    EXPECT_EQ(next[0], 44101.0f);
    EXPECT_EQ(next[99], 44200.0f);
    EXPECT_DOUBLE_EQ(conductor->location(), 44200.0 / kRate);
}

TEST(Conductor, AStoppedTransportHoldsItsLocationAndResumesThere)
{
    auto stream = buildChain(kManualRamp);
    auto *conductor = stream->processorWithIdentifier<VEKConductorAudioProcessor>("conductor");
    ASSERT_TRUE(stream->initialize());
    EXPECT_EQ(renderManually(*stream, 64, 64, false), std::vector<float>(64, 0.0f)) << "not started yet";
    conductor->start();
    EXPECT_TRUE(conductor->isRunning());
    renderManually(*stream, 640, 64, false);
    conductor->stop();
    EXPECT_FALSE(conductor->isRunning());
    // The buffer after the stop plays on for its fade; then silence, and the time line stands.
    const std::vector<float> fade = renderManually(*stream, 64, 64, false);
    EXPECT_EQ(fade[0], 641.0f);
    EXPECT_EQ(renderManually(*stream, 640, 64, false), std::vector<float>(640, 0.0f));
    EXPECT_DOUBLE_EQ(conductor->location(), 640.0 / kRate);
    conductor->start();
    EXPECT_EQ(renderManually(*stream, 1, 64, false)[0], 641.0f);
}
