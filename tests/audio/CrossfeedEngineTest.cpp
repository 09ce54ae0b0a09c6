// The headphone engine measured by what it does to signals: how much of one channel reaches the
// other ear, how late and how dull; the tone shelves; clip protection; the channel tricks; and
// that a disabled engine leaves the audio alone.

#include "Signals.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

using namespace Signals;
using Params = CrossfeedEngine::Parameters;

namespace {

constexpr double Rate = 44100.0;

Params crossfeed(float amount, quint32 type = 1, float angle = 30.0f)
{
    Params p;
    p.crossfeedAmount = amount;
    p.crossfeedType = type;
    p.speakerAngle = angle;
    p.crossfeedClipProtectionEnabled = false;
    return p;
}

// Level in dB of a tone at `hz` after the engine: in the other ear when only the first channel
// plays, else in the first channel with both playing it.
double levelDb(const Params &p, double hz, bool otherEar = true)
{
    CrossfeedEngine engine;
    start(engine, p);
    Channel left = sine(size_t(1.5 * Rate), hz, Rate), right = otherEar ? Channel(left.size()) : left;
    process(engine, left, right);
    return toDb(amplitude(otherEar ? right : left, hz, Rate, size_t(0.5 * Rate), size_t(Rate)) / 0.5);
}

} // namespace

TEST(Crossfeed, OtherEarGetsMoreAsTheAmountGrows)
{
    double previous = -std::numeric_limits<double>::infinity();
    for (float amount : {0.25f, 0.5f, 1.0f, 1.5f}) {
        const double level = levelDb(crossfeed(amount), 100.0);
        EXPECT_GT(level, previous + 2.0) << amount;
        previous = level;
    }
    // At 100 % each type crosses at its stated level (100 Hz lies far below every shadow).
    for (quint32 type : {1u, 2u, 3u})
        EXPECT_NEAR(levelDb(crossfeed(1.0f, type), 100.0), CrossfeedEngine::crossfeedType(type).levelDb, 0.5);
    // Nothing crosses at amount 0; without clip protection the own ear stays as it was.
    CrossfeedEngine engine;
    for (float amount : {0.0f, 1.0f}) {
        start(engine, crossfeed(amount));
        Channel left = noise(8192, 1), right(left.size());
        process(engine, left, right);
        EXPECT_EQ(left, noise(8192, 1));
        EXPECT_EQ(peak(right) > 0.05, amount > 0.0f);
    }
}

TEST(Crossfeed, ComesLateByTheInterauralDelayAndDulled)
{
    // Noise in one channel. The other ear at an angle against the other ear at 0 degrees (the
    // same shadow): the lag of the correlation peak is the delay the angle adds. An impulse tells
    // the delay absolutely: it cannot arrive before it.
    const double rate = 96000.0;
    const Channel input = noise(size_t(rate), 7);
    auto otherEar = [&](float angle, const Channel &in) {
        CrossfeedEngine engine;
        start(engine, crossfeed(1.0f, 1, angle), rate);
        Channel left = in, right(in.size());
        process(engine, left, right);
        return right;
    };
    Channel impulse(64);
    impulse[0] = 1.0f;
    const Channel atCentre = otherEar(0.0f, input);
    for (float angle : {0.0f, 15.0f, 30.0f, 60.0f}) {
        // Woodworth's spherical head, r = 8.75 cm, c = 343 m/s.
        const double theta = angle * std::numbers::pi / 180.0;
        const double expected = 0.0875 / 343.0 * (theta + std::sin(theta)) * rate;
        if (angle > 0.0f) {
            const Channel late = otherEar(angle, input);
            std::vector<double> corr(64);
            for (size_t lag = 0; lag < corr.size(); ++lag)
                for (size_t i = 1000; i + 64 < late.size(); ++i)
                    corr[lag] += double(late[i + lag]) * atCentre[i];
            const size_t k = size_t(std::max_element(corr.begin() + 1, corr.end() - 1) - corr.begin());
            const double lag = k + 0.5 * (corr[k - 1] - corr[k + 1]) / (corr[k - 1] - 2 * corr[k] + corr[k + 1]);
            EXPECT_NEAR(lag, expected, 0.15) << angle;
        }
        const Channel response = otherEar(angle, impulse);
        EXPECT_EQ(std::find_if(response.begin(), response.end(), [](float v) { return v != 0; }) - response.begin(),
                  ptrdiff_t(expected)) << angle;
    }
    // The head's shadow: highs cross far less than lows, for every type.
    for (quint32 type : {1u, 2u, 3u})
        EXPECT_LT(levelDb(crossfeed(1.0f, type), 5000.0), levelDb(crossfeed(1.0f, type), 500.0) - 10.0) << type;
}

TEST(Tone, ShelvesReachTheirGainsInsideTheShelf)
{
    for (float gain : {6.0f, -6.0f, 3.5f}) {
        Params p;
        p.eqClipProtectionEnabled = false;
        p.trebleGain = gain;
        EXPECT_NEAR(levelDb(p, 15000.0, false), gain, 0.5);
        EXPECT_NEAR(levelDb(p, 100.0, false), 0.0, 0.5) << "the treble leaves the bass";
        p.trebleGain = 0.0f;
        p.bassGain = gain;
        EXPECT_NEAR(levelDb(p, 40.0, false), gain, 0.5);
        EXPECT_NEAR(levelDb(p, 10000.0, false), 0.0, 0.5) << "the bass leaves the treble";
    }
    // Each shelf sits at its frequency: at 4 kHz a 2 kHz shelf is nearly there, an 8 kHz one
    // has hardly begun.
    Params p;
    p.eqClipProtectionEnabled = false;
    p.trebleGain = 6.0f;
    p.trebleFrequency = 2000.0f;
    EXPECT_GT(levelDb(p, 4000.0, false), 5.0);
    p.trebleFrequency = 8000.0f;
    EXPECT_LT(levelDb(p, 4000.0, false), 1.0);
    p.bassGain = 6.0f;
    p.bassFrequency = 1000.0f;
    EXPECT_GT(levelDb(p, 500.0, false), 4.0);
}

TEST(ClipProtection, FullScaleStaysWithinFullScale)
{
    // The worst case for the sum: identical full-scale channels, the loudest crossfeed, both
    // shelves up. A slow sweep over the band, faded in over 10 ms.
    const size_t frames = size_t(3 * Rate);
    Channel sweep(frames);
    double phase = 0.0;
    for (size_t i = 0; i < frames; ++i) {
        phase += 2.0 * std::numbers::pi * 20.0 * std::pow(1000.0, double(i) / double(frames)) / Rate;
        sweep[i] = float(std::sin(phase) * std::min(1.0, double(i) / (0.01 * Rate)));
    }
    Params p = crossfeed(1.5f, 2);
    p.trebleGain = p.bassGain = 6.0f;
    for (bool protect : {false, true}) {
        p.crossfeedClipProtectionEnabled = p.eqClipProtectionEnabled = protect;
        CrossfeedEngine engine;
        start(engine, p);
        Channel left = sweep, right = sweep;
        process(engine, left, right);
        if (protect)
            EXPECT_LE(std::max(peak(left), peak(right)), 1.0);
        else
            EXPECT_GT(peak(left), 1.5) << "the case must clip without protection";
    }
    // The crossfeed's protection holds for any input, here independent full-scale noise.
    p.trebleGain = p.bassGain = 0.0f;
    CrossfeedEngine engine;
    start(engine, p);
    Channel left = noise(frames, 3, 1.0), right = noise(frames, 4, 1.0);
    process(engine, left, right);
    EXPECT_LE(std::max(peak(left), peak(right)), 1.0);
}

TEST(Channels, MonoSwapPhaseAndSolo)
{
    const Channel l = sine(4096, 300.0, Rate), r = noise(4096, 5), silent(4096);
    auto run = [&](Params p) {
        CrossfeedEngine engine;
        start(engine, p);
        std::pair<Channel, Channel> out{l, r};
        process(engine, out.first, out.second, 300);
        return out;
    };
    Params p;
    p.mono = true;
    auto out = run(p);
    for (size_t i = 0; i < l.size(); ++i)
        ASSERT_EQ(out.first[i], float((double(l[i]) + r[i]) / 2.0)) << i;
    EXPECT_EQ(out.first, out.second);
    p = crossfeed(1.2f, 2, 45.0f);
    p.mono = true;
    p.trebleGain = 4.0f;
    out = run(p);
    EXPECT_EQ(out.first, out.second) << "still equal through crossfeed and tone";

    p = Params();
    p.swapped = true;
    EXPECT_EQ(run(p), std::make_pair(r, l));
    p = Params();
    p.outOfPhase = true;
    Channel inverted = r;
    for (float &v : inverted)
        v = -v;
    EXPECT_EQ(run(p), std::make_pair(l, inverted));
    p = Params();
    p.solo = 1;
    EXPECT_EQ(run(p), std::make_pair(l, silent));
    p.solo = 2;
    EXPECT_EQ(run(p), std::make_pair(silent, r));
}

TEST(Disabled, PassesBitForBit)
{
    Channel l = noise(2048, 9), r = noise(2048, 10);
    l[3] = std::numeric_limits<float>::denorm_min();
    l[4] = -0.0f;
    r[5] = 1.0f;
    Params p = crossfeed(1.5f, 2, 60.0f);
    p.mono = p.swapped = p.outOfPhase = true;
    p.trebleGain = -6.0f;
    p.bassGain = 6.0f;
    auto untouched = [&](CrossfeedEngine &engine) {
        Channel a = l, b = r;
        process(engine, a, b, 256);
        return std::memcmp(a.data(), l.data(), l.size() * sizeof(float)) == 0
               && std::memcmp(b.data(), r.data(), r.size() * sizeof(float)) == 0;
    };
    CrossfeedEngine engine;
    engine.setParameters(p); // enabled is false
    EXPECT_TRUE(untouched(engine)) << "before initialize";
    engine.initialize(Rate);
    EXPECT_TRUE(untouched(engine));
    p.enabled = true; // on, then off again mid-stream: bit for bit from the next block on
    engine.setParameters(p);
    EXPECT_FALSE(untouched(engine));
    p.enabled = false;
    engine.setParameters(p);
    EXPECT_TRUE(untouched(engine));
}

TEST(Reset, ClearsWhatRingsOn)
{
    Params p = crossfeed(1.5f, 2, 60.0f);
    p.bassGain = 6.0f;
    p.bassFrequency = 40.0f;
    for (bool reset : {false, true}) {
        CrossfeedEngine engine;
        start(engine, p);
        Channel l = noise(4096, 11, 1.0), r = noise(4096, 12, 1.0), tailL(512), tailR(512);
        process(engine, l, r);
        if (reset)
            engine.reset();
        process(engine, tailL, tailR);
        EXPECT_EQ(std::max(peak(tailL), peak(tailR)) > 1e-3, !reset);
        EXPECT_EQ(peak(tailL) == 0.0, reset);
    }
}

TEST(Parameters, LimitsOfTheRecord)
{
    const Params high = Params{true, 90.0f, 1.6f, 0, true, 123456.0f, -1.0f, 9.0f, -7.0f, true, false, false, false, 7}.limited();
    EXPECT_EQ(high, (Params{true, 60.0f, 1.5f, 1, true, 123456.0f, -1.0f, 6.0f, -6.0f, true, false, false, false, 2}));
    const Params low = Params{false, -5.0f, -1.0f, 9, true, 0, 0, NAN, 0, true, false, false, false, 0}.limited();
    EXPECT_EQ(low, (Params{false, 0.0f, 0.0f, 3, true, 0, 0, 0.0f, 0, true, false, false, false, 0}));
    // The frequencies above, far out of reach of any filter, still give sound.
    CrossfeedEngine engine;
    start(engine, high);
    Channel l = noise(4096, 13), r = noise(4096, 14);
    process(engine, l, r);
    EXPECT_TRUE(peak(r) > 0.1 && peak(r) <= 1.0) << peak(r); // solo 2: the second channel
    EXPECT_FALSE(engine.initialize(0.0));
}
