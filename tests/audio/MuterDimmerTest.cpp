// Mute and dim: the ramps buffer by buffer as the settings change, the final level at a
// (re)start, and the untouched signal at rest.

#include "audio/AudioProcessorClasses.h"
#include "audio/Dimmer.h"
#include "audio/Muter.h"
#include "settings/UserDefaults.h"
#include "support/graph/GraphTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace GraphTest;

namespace {

// A chain of the playback layer's processors between the graph's test source and sink.
std::unique_ptr<VEKAudioStream> build(const QStringList &classes, double rate = 48000.0, quint32 channels = 2)
{
    registerAudioProcessorClasses();
    return chainOf(classes, rate, channels);
}

constexpr quint32 N = 64; // frames per buffer

// What a buffer of ones becomes under a linear ramp of the buffer list.
Channel ramp(float start, float end, quint32 frames = N)
{
    VEKAudioBufferList ones(1, frames);
    std::fill(ones.channel(0), ones.channel(0) + frames, 1.0f);
    ones.scaleWithRamp(start, end);
    return Channel(ones.channel(0), ones.channel(0) + frames);
}

Channel constant(float value, quint32 frames = N) { return Channel(frames, value); }

// What the dimmer's tenth becomes under a ramp of the muter.
Channel tenthOf(Channel ramp)
{
    for (float &v : ramp)
        v *= 0.1f;
    return ramp;
}

bool bitEqual(const Channel &a, const Channel &b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

// Both channels of the next buffer, which must agree, as one.
Channel next(VEKAudioStream &stream)
{
    const std::vector<Channel> out = render(stream, N, N);
    EXPECT_TRUE(bitEqual(out[0], out[1]));
    return out[0];
}

// The level the dimmer reaches after each of its ramps, as listeners would count it.
const double DownLevels[] = {1.0, 0.8875, 0.775, 0.6625, 0.55, 0.4375, 0.325, 0.2125, 0.1};

void expectNear(const Channel &actual, const Channel &expected, const char *what, int buffer)
{
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < actual.size(); ++i)
        ASSERT_NEAR(actual[i], expected[i], 1e-6f) << what << " buffer " << buffer << " frame " << i;
}

class MuteDim : public ::testing::Test {
protected:
    void SetUp() override
    {
        UserDefaults::standard().removeValue("mute");
        UserDefaults::standard().removeValue("dim");
    }
    void TearDown() override { SetUp(); }

    // A chain of ones through `classes`, initialised; null on failure.
    std::unique_ptr<VEKAudioStream> start(const QStringList &classes)
    {
        auto stream = build(classes);
        if (stream)
            stream->processorWithIdentifier<SequenceSource>("source")->setSamples({1.0f});
        if (stream && !stream->initialize()) {
            ADD_FAILURE() << "the chain does not initialise";
            return nullptr;
        }
        return stream;
    }
    static void set(const char *key, bool value) { UserDefaults::standard().setValue(QLatin1String(key), value); }
};

} // namespace

TEST_F(MuteDim, MuteFadesOutAndUnmuteFadesInEachInOneBufferTheNewestChangeFromItsOwnStart)
{
    auto stream = start({"Muter"});
    ASSERT_TRUE(stream);
    EXPECT_TRUE(bitEqual(next(*stream), constant(1.0f)));
    set("mute", true);
    EXPECT_TRUE(bitEqual(next(*stream), ramp(1.0f, 0.0f)));
    for (int i = 0; i < 5; ++i)
        EXPECT_TRUE(bitEqual(next(*stream), constant(0.0f))) << i;
    set("mute", false);
    EXPECT_TRUE(bitEqual(next(*stream), ramp(0.0f, 1.0f)));
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(bitEqual(next(*stream), constant(1.0f))) << i;
    // A mute undone before the next buffer still fades in from silence.
    set("mute", true);
    set("mute", false);
    EXPECT_TRUE(bitEqual(next(*stream), ramp(0.0f, 1.0f)));
    EXPECT_TRUE(bitEqual(next(*stream), constant(1.0f)));
    // Started muted: silent from the first buffer, no fade.
    set("mute", true);
    auto muted = start({"Muter"});
    ASSERT_TRUE(muted);
    EXPECT_TRUE(bitEqual(next(*muted), constant(0.0f)));
}

TEST_F(MuteDim, DimRampsDownToATenthAndUndimUpToExactlyOneEachInEightBuffers)
{
    auto stream = start({"Dimmer"});
    ASSERT_TRUE(stream);
    set("dim", true);
    for (int b = 0; b < 8; ++b)
        expectNear(next(*stream), ramp(float(DownLevels[b]), float(DownLevels[b + 1])), "down", b);
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(bitEqual(next(*stream), constant(0.1f))) << i; // the single-precision 0.1
    set("dim", false);
    for (int b = 0; b < 8; ++b)
        expectNear(next(*stream), ramp(float(DownLevels[8 - b]), float(DownLevels[7 - b])), "up", b);
    // The last ramp aims at 8 * 0.1125 + 0.1, which rounds to exactly 1.0f.
    EXPECT_EQ(float(Dimmer::rampEnd(Dimmer::LastUp)), 1.0f);
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(bitEqual(next(*stream), constant(1.0f))) << i;
    // Started dimmed: a tenth from the first buffer.
    set("dim", true);
    auto dimmed = start({"Dimmer"});
    ASSERT_TRUE(dimmed);
    EXPECT_TRUE(bitEqual(next(*dimmed), constant(0.1f)));
}

TEST_F(MuteDim, DimInTheMiddleOfTheRampUpJumpsToFullAndRampsDownFromThere)
{
    set("dim", true);
    auto stream = start({"Dimmer"});
    ASSERT_TRUE(stream);
    set("dim", false);
    for (int b = 0; b < 3; ++b)
        next(*stream);
    set("dim", true);
    const Channel first = next(*stream);
    EXPECT_EQ(first[0], 1.0f);
    expectNear(first, ramp(1.0f, float(DownLevels[1])), "restart", 0);
    for (int b = 1; b < 8; ++b)
        expectNear(next(*stream), ramp(float(DownLevels[b]), float(DownLevels[b + 1])), "down", b);
    EXPECT_TRUE(bitEqual(next(*stream), constant(0.1f)));
}

TEST_F(MuteDim, AtRestBothPassEverySampleBitForBit)
{
    auto stream = build({"Muter", "Dimmer"});
    ASSERT_TRUE(stream);
    // Awkward values: a denormal, a negative zero, values that any gain would round.
    Channel left{0.1f, -0.0f, 1e-40f, -0.999999f, 0.333333f, 1.0f, 3.0e-8f};
    Channel right{-0.7f, 0.123456789f, 0.0f, 1e-38f, -1.0f};
    stream->processorWithIdentifier<SequenceSource>("source")->setChannels({left, right});
    ASSERT_TRUE(stream->initialize());
    // Back at rest after a full dim and undim as well as from the start.
    const auto expectPassed = [&](size_t offset) {
        const std::vector<Channel> out = render(*stream, 1000, 100);
        for (size_t i = 0; i < 1000; ++i) {
            ASSERT_EQ(std::memcmp(&out[0][i], &left[(i + offset) % left.size()], sizeof(float)), 0) << i;
            ASSERT_EQ(std::memcmp(&out[1][i], &right[(i + offset) % right.size()], sizeof(float)), 0) << i;
        }
    };
    expectPassed(0);
    set("dim", true);
    set("mute", true);
    render(*stream, 20 * 100, 100);
    set("dim", false);
    set("mute", false);
    render(*stream, 20 * 100, 100);
    expectPassed(1000 + 2000 + 2000);
}

TEST_F(MuteDim, BothSetActEachByItself)
{
    auto stream = start({"Dimmer", "Muter"});
    ASSERT_TRUE(stream);
    set("dim", true);
    for (int b = 0; b < 8; ++b)
        next(*stream);
    set("mute", true);
    // A tenth, faded out by the muter in the same buffer, and in again.
    EXPECT_TRUE(bitEqual(next(*stream), tenthOf(ramp(1.0f, 0.0f))));
    EXPECT_TRUE(bitEqual(next(*stream), constant(0.0f)));
    set("mute", false);
    EXPECT_TRUE(bitEqual(next(*stream), tenthOf(ramp(0.0f, 1.0f))));
}

TEST_F(MuteDim, ARestartComesUpAtTheFinalLevelAndCutsARampShort)
{
    auto stream = start({"Dimmer", "Muter"});
    ASSERT_TRUE(stream);
    set("dim", true);
    set("mute", true);
    next(*stream); // both in the middle of their ramps
    ASSERT_TRUE(stream->uninitialize());
    ASSERT_TRUE(stream->initialize());
    auto *dimmer = stream->processorWithIdentifier<Dimmer>("p0");
    auto *muter = stream->processorWithIdentifier<Muter>("p1");
    ASSERT_TRUE(dimmer && muter);
    EXPECT_EQ(dimmer->state(), Dimmer::Dimmed);
    EXPECT_EQ(muter->state(), quint32(Muter::Silent));
    set("mute", false);
    // No ramp of the dimmer left: a tenth under the muter's fade-in.
    EXPECT_TRUE(bitEqual(next(*stream), tenthOf(ramp(0.0f, 1.0f))));
}
