// Pulling through the graph: connections, mixers, routers, docks and the plan swapped under a
// running stream.

#include "support/graph/GraphTestSupport.h"

#include "graph/VEKAudioDock.h"
#include "graph/VEKHardwareAudioProcessor.h"
#include "graph/VEKRouterAudioProcessor.h"
#include "graph/VEKVolumeAudioProcessor.h"

#include <QCoreApplication>

#include <cmath>
#include <functional>

#include <gtest/gtest.h>

using namespace GraphTest;

namespace {

const char *kTwoBranches = R"({
  "processors": [
    {"identifier": "a", "class": "TestCountingSource", "settings": {"value": 0.25}},
    {"identifier": "b", "class": "TestCountingSource", "settings": {"value": 0.5}},
    {"identifier": "mixer", "class": "VEKMixerAudioProcessor"},
    {"identifier": "sink", "class": "TestManualSink"}
  ],
  "chains": [["mixer", "sink"]],
  "connections": [
    {"identifier": "aToMixer", "from": "a", "to": "mixer", "active": false},
    {"identifier": "bToMixer", "from": "b", "to": "mixer"}
  ]
})";

} // namespace

TEST(Connections, AnInactiveConnectionIsSilentAndNotPulledAndAMixerSumsTheActiveOnes)
{
    auto stream = build(kTwoBranches);
    auto *a = stream->processorWithIdentifier<CountingSource>("a");
    auto *b = stream->processorWithIdentifier<CountingSource>("b");
    ASSERT_TRUE(stream->initialize());
    EXPECT_FALSE(stream->connectionWithIdentifier("aToMixer")->isActive());

    EXPECT_EQ(renderManually(*stream, 1024, 256, false), std::vector<float>(1024, 0.5f));
    EXPECT_EQ(a->pulls(), 0u);
    EXPECT_EQ(b->pulls(), 4u);

    // Switching over is exact from the next buffer on.
    stream->connectionWithIdentifier("aToMixer")->setActive(true);
    stream->connectionWithIdentifier("bToMixer")->setActive(false);
    EXPECT_EQ(renderManually(*stream, 256, 256, false), std::vector<float>(256, 0.25f));
    EXPECT_EQ(a->pulls(), 1u);
    EXPECT_EQ(b->pulls(), 4u);

    stream->connectionWithIdentifier("aToMixer")->setActive(false);
    EXPECT_EQ(renderManually(*stream, 256, 256, false), std::vector<float>(256, 0.0f));

    // The mixer sums what is active.
    stream->connectionWithIdentifier("aToMixer")->setActive(true);
    stream->connectionWithIdentifier("bToMixer")->setActive(true);
    EXPECT_EQ(renderManually(*stream, 300, 128, false), std::vector<float>(300, 0.75f));
}

TEST(Router, EachOutputTakesTheInputsTiedToItBitExact)
{
    // A three-channel source whose channels differ, routed 0->0, 1->1, 2 nowhere.
    auto stream = build(R"({
      "processors": [
        {"identifier": "source", "class": "TestSequenceSource"},
        {"identifier": "router", "class": "VEKRouterAudioProcessor",
         "settings": {"numberOfInputChannels": 3, "ties": [[0, 0], [2, 0], [1, 1]]}},
        {"identifier": "sink", "class": "TestManualSink"}
      ],
      "chains": [["source", "router", "sink"]]
    })");
    std::vector<Channel> in(3, Channel(64));
    for (quint32 c = 0; c < 3; ++c)
        for (quint32 f = 0; f < 64; ++f)
            in[c][f] = 0.1f * float(c + 1) + 1e-7f * float(f);
    stream->processorWithIdentifier<SequenceSource>("source")->setChannels(in);
    ASSERT_TRUE(stream->initialize());
    VEKAudioBufferList out(2, 64);
    stream->renderCycle(out, 0, false);
    for (quint32 f = 0; f < 64; ++f) {
        ASSERT_EQ(out.channel(0)[f], in[0][f] + in[2][f]);
        ASSERT_EQ(out.channel(1)[f], in[1][f]); // a single tie is a copy
    }
}

TEST(Router, AMonoInputTiedToBothOutputsIsHeardOnBothSides)
{
    auto stream = build(R"({
      "processors": [
        {"identifier": "source", "class": "TestRampSource"},
        {"identifier": "router", "class": "VEKRouterAudioProcessor",
         "settings": {"numberOfInputChannels": 1, "ties": [[0, 0], [0, 1]]}},
        {"identifier": "sink", "class": "TestManualSink"}
      ],
      "chains": [["source", "router", "sink"]]
    })");
    auto *router = stream->processorWithIdentifier<VEKRouterAudioProcessor>("router");
    ASSERT_TRUE(stream->initialize());
    EXPECT_EQ(router->inputConnection()->numberOfChannels(), 1u);
    VEKAudioBufferList out(2, 32);
    stream->renderCycle(out, 0, false);
    for (quint32 f = 0; f < 32; ++f) {
        ASSERT_EQ(out.channel(0)[f], float(f + 1));
        ASSERT_EQ(out.channel(1)[f], float(f + 1));
    }
    // Ties past the input width count for nothing: input 1 does not exist here.
    router->router().tie(1, 1);
    stream->renderCycle(out, 32, false);
    EXPECT_EQ(out.channel(1)[0], 33.0f);
}

TEST(Processors, ADisabledProcessorPassesItsInputUnchanged)
{
    auto stream = buildChain({R"({"identifier": "source", "class": "TestCountingSource", "settings": {"value": 0.3}})",
                              R"({"identifier": "volume", "class": "VEKVolumeAudioProcessor", "settings": {"scalar": 0.5}})",
                              R"({"identifier": "sink", "class": "TestManualSink"})"});
    auto *volume = stream->processorWithIdentifier("volume");
    ASSERT_TRUE(stream->initialize());
    EXPECT_EQ(renderManually(*stream, 64, 64, false), std::vector<float>(64, 0.15f));
    // By key, as the menus and the remote do it.
    volume->setProperty("enabled", false);
    EXPECT_FALSE(volume->isEnabled());
    EXPECT_EQ(renderManually(*stream, 64, 64, false), std::vector<float>(64, 0.3f));
}

TEST(Docks, AnEmptyDockPassesAudioAndAFilledOneRendersItsProcessor)
{
    auto stream = buildChain({R"({"identifier": "source", "class": "TestCountingSource", "settings": {"value": 0.8}})",
                              R"({"identifier": "effectDock", "class": "VEKAudioDock"})",
                              R"({"identifier": "sink", "class": "TestManualSink"})"});
    auto *dock = stream->processorWithIdentifier<VEKAudioDock>("effectDock");
    ASSERT_TRUE(stream->initialize());
    EXPECT_EQ(renderManually(*stream, 32, 32, false), std::vector<float>(32, 0.8f));

    auto volume = std::make_shared<VEKVolumeAudioProcessor>();
    volume->setScalar(0.5f);
    dock->setProcessor(volume);
    EXPECT_TRUE(volume->isInitialized()) << "a processor joining an initialised stream is made ready first";
    EXPECT_EQ(volume->inputConnection(), dock->inputConnection());
    EXPECT_EQ(renderManually(*stream, 32, 32, false), std::vector<float>(32, 0.4f));

    dock->setProcessor(nullptr);
    EXPECT_EQ(renderManually(*stream, 32, 32, false), std::vector<float>(32, 0.8f));
    QCoreApplication::processEvents();
    EXPECT_FALSE(volume->isInitialized()) << "the processor taken out is uninitialised once no plan holds it";
}

// Many swaps under a running output: each takes effect without a broken buffer, the last one
// swapped in is what is heard, and every processor swapped out is let go.
TEST(Docks, ProcessorsSwappedWhileTheOutputRendersTakeEffectAndAreLetGo)
{
    auto stream = buildChain({R"({"identifier": "source", "class": "TestCountingSource", "settings": {"value": 1.0}})",
                              R"({"identifier": "effectDock", "class": "VEKAudioDock"})",
                              R"({"identifier": "hardware", "class": "VEKHardwareAudioProcessor", "settings": {"framesPerBuffer": 64}})"});
    auto device = std::make_shared<FakeDevice>(44100.0, 1.0, 1 << 22);
    ASSERT_TRUE(stream->processorWithIdentifier<VEKHardwareAudioProcessor>("hardware")->setDevice(device));
    auto *dock = stream->processorWithIdentifier<VEKAudioDock>("effectDock");
    ASSERT_TRUE(stream->initialize());
    ASSERT_TRUE(stream->start());
    FakeOutput *output = device->lastOutput();
    ASSERT_NE(output, nullptr);
    ASSERT_TRUE(output->waitForCycles(2));

    std::vector<std::weak_ptr<VEKAudioProcessor>> retired;
    for (int i = 0; i < 300; ++i) {
        auto volume = std::make_shared<VEKVolumeAudioProcessor>();
        volume->setScalar(float(i % 7 + 1) / 8.0f); // the last one: 6/8
        retired.push_back(volume);
        dock->setProcessor(std::move(volume));
        if (i % 50 == 0) {
            ASSERT_TRUE(output->waitForCycles(2));
        }
        QCoreApplication::processEvents();
    }
    ASSERT_TRUE(output->waitForCycles(4));
    ASSERT_TRUE(stream->stop());
    const std::vector<float> heard = output->captured(0);
    ASSERT_FALSE(heard.empty());
    // A volume starts from its own scalar, so no ramp: only whole steps of an eighth are heard.
    EXPECT_EQ(heard.front(), 1.0f);
    EXPECT_EQ(heard.back(), 0.75f);
    for (float v : heard)
        ASSERT_EQ(v * 8.0f, std::round(v * 8.0f)) << v;
    dock->setProcessor(nullptr);
    QCoreApplication::processEvents();
    ASSERT_TRUE(stream->uninitialize()); // closes and frees the output
    for (size_t i = 0; i + 1 < retired.size(); ++i)
        ASSERT_TRUE(retired[i].expired()) << i;
}

TEST(Docks, ACrossfadingDockChangesWithoutAGapOrAStep)
{
    // Putting a processor in, turning it off and on, taking it out: each change is a ramp from
    // the old sound to the new one, never a step and never a silence.
    auto stream = buildChain({R"({"identifier": "source", "class": "TestCountingSource", "settings": {"value": 1.0}})",
                              R"({"identifier": "effectDock", "class": "VEKAudioDock"})",
                              R"({"identifier": "hardware", "class": "VEKHardwareAudioProcessor", "settings": {"framesPerBuffer": 128}})"});
    auto device = std::make_shared<FakeDevice>(44100.0, 1.0, 1 << 20);
    stream->processorWithIdentifier<VEKHardwareAudioProcessor>("hardware")->setDevice(device);
    auto *dock = stream->processorWithIdentifier<VEKAudioDock>("effectDock");
    dock->setCrossfadeDuration(0.005);
    ASSERT_TRUE(stream->initialize());
    ASSERT_TRUE(stream->start());
    FakeOutput *output = device->lastOutput();
    ASSERT_TRUE(output->waitForCycles(2));
    auto volume = std::make_shared<VEKVolumeAudioProcessor>();
    volume->setScalar(0.25f);
    const std::function<void()> changes[] = {[&] { dock->setProcessor(volume); }, [&] { volume->setEnabled(false); },
                                             [&] { volume->setEnabled(true); }, [&] { dock->setProcessor(nullptr); }};
    for (const auto &change : changes) {
        change();
        ASSERT_TRUE(output->waitForCycles(6));
        QCoreApplication::processEvents();
    }
    stream->stop();
    const std::vector<float> heard = output->captured(0);
    const float fadeFrames = 0.005f * 44100.0f;
    const float largestStep = 0.75f / fadeFrames * 1.01f;
    int ramps = 0;
    for (size_t i = 1; i < heard.size(); ++i) {
        ASSERT_GE(heard[i], 0.25f - 1e-6f) << i;
        ASSERT_LE(std::abs(heard[i] - heard[i - 1]), largestStep) << i;
        ramps += heard[i] != heard[i - 1] && (heard[i - 1] == 1.0f || heard[i - 1] == 0.25f);
    }
    EXPECT_EQ(ramps, 4) << "every change was heard";
    EXPECT_EQ(heard.back(), 1.0f);

    // A stopped stream starts with the processor it holds, at once.
    const size_t before = output->captured(0).size();
    dock->setProcessor(volume);
    ASSERT_TRUE(stream->start());
    ASSERT_TRUE(output->waitForCycles(2));
    stream->stop();
    const std::vector<float> resumed = output->captured(0);
    ASSERT_GT(resumed.size(), before);
    EXPECT_EQ(resumed[before], 0.25f);
}
