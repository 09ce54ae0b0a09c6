// Volume and meters: what reaches the listener's level.

#include "support/graph/GraphTestSupport.h"

#include "graph/VEKMeterAudioProcessor.h"
#include "graph/VEKVolumeAudioProcessor.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using namespace GraphTest;

namespace {

const char *kVolumeGraph = R"({
  "processors": [
    {"identifier": "source", "class": "TestSequenceSource"},
    {"identifier": "volume", "class": "VEKVolumeAudioProcessor"},
    {"identifier": "meter", "class": "VEKMeterAudioProcessor"},
    {"identifier": "sink", "class": "TestManualSink"}
  ],
  "chains": [["source", "volume", "meter", "sink"]]
})";

} // namespace

TEST(Volume, AScalarOfOneLeavesEverySampleBitIdentical)
{
    auto stream = build(kVolumeGraph);
    std::mt19937 random(7);
    std::uniform_real_distribution<float> any(-1.0f, 1.0f);
    std::vector<float> samples(4999);
    for (float &s : samples)
        s = any(random);
    samples[3] = 1e-38f; // a denormal-adjacent value survives too
    stream->processorWithIdentifier<SequenceSource>("source")->setSamples(samples);
    auto *volume = stream->processorWithIdentifier<VEKVolumeAudioProcessor>("volume");
    ASSERT_TRUE(stream->initialize());
    // Set back to exactly one after another value: the ramp ends on one and then leaves the bits.
    volume->setScalar(0.5f);
    renderManually(*stream, 256, 256, false);
    volume->setScalar(1.0f);
    renderManually(*stream, 256, 256, false);
    const std::vector<float> out = renderManually(*stream, samples.size(), 333, false);
    for (size_t i = 0; i < out.size(); ++i)
        ASSERT_EQ(out[i], samples[(i + 512) % samples.size()]) << i;
}

TEST(Volume, AChangeRampsOverOneBufferWithoutAStep)
{
    auto stream = build(kVolumeGraph);
    stream->processorWithIdentifier<SequenceSource>("source")->setSamples({1.0f});
    auto *volume = stream->processorWithIdentifier<VEKVolumeAudioProcessor>("volume");
    ASSERT_TRUE(stream->initialize());
    renderManually(*stream, 512, 512, false);
    volume->setScalar(0.25f);
    const quint32 n = 512;
    const std::vector<float> out = renderManually(*stream, 3 * n, n, false);
    // The largest step between neighbours is one ramp step, from the last sample at 1.0 onwards.
    float previous = 1.0f;
    const float step = 0.75f / float(n);
    for (quint32 i = 0; i < n; ++i) {
        ASSERT_LE(std::fabs(out[i] - previous), step * 1.001f) << i;
        ASSERT_LE(out[i], previous) << i;
        previous = out[i];
    }
    EXPECT_NEAR(out[n - 1], 0.25f + step, 1e-6f);
    for (quint32 i = n; i < 3 * n; ++i)
        ASSERT_EQ(out[i], 0.25f) << i;
}

TEST(Meter, ShowsThePeakAndFallsAtItsDecayRate)
{
    auto stream = build(kVolumeGraph);
    auto *source = stream->processorWithIdentifier<SequenceSource>("source");
    std::vector<float> burst(441, 0.0f);
    burst[100] = -0.5f; // a single negative peak counts by its magnitude
    source->setSamples(burst);
    auto *meter = stream->processorWithIdentifier<VEKMeterAudioProcessor>("meter");
    ASSERT_TRUE(stream->initialize());
    EXPECT_EQ(meter->levelOfChannel(0), 0.0f);
    renderManually(*stream, 441, 441, false);
    EXPECT_FLOAT_EQ(meter->levelOfChannel(0), 0.5f);
    EXPECT_FLOAT_EQ(meter->levelOfChannel(1), 0.5f);
    EXPECT_EQ(meter->levelOfChannel(40), 0.0f);

    source->setSamples({0.0f});
    renderManually(*stream, 44100, 441, false); // one second of silence
    const float expected = 0.5f * std::pow(10.0f, -VEKMeterAudioProcessor::decayDecibelsPerSecond / 20.0f);
    EXPECT_NEAR(meter->levelOfChannel(0), expected, expected * 1e-3f);

    ASSERT_TRUE(stream->uninitialize());
    EXPECT_EQ(meter->levelOfChannel(0), 0.0f) << "a stopped meter shows nothing";
}
