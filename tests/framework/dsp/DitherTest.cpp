// The dither by its properties: bit-transparency for signals that fit, the error's statistics,
// where noise shaping puts the noise, and the options.

#include "DspTestSupport.h"
#include "dsp/VEKDither.h"
#include "dsp/VEKNoiseShaping.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

using namespace DspTest;

namespace {

QVariantMap props(std::initializer_list<std::pair<const char *, QVariant>> changes)
{
    QVariantMap p = VEKDither::defaultProperties();
    for (const auto &c : changes)
        p.insert(QLatin1String(c.first), c.second);
    return p;
}

// Runs `x` through the dither in buffers of 512 frames, as `channels` channels carrying the
// same input, and returns the last channel. Two channels go through the paired (SIMD) path,
// one or the third of three through the single one.
std::vector<float> run(VEKDither &d, const std::vector<float> &x, quint32 channels = 2)
{
    std::vector<std::vector<float>> y(channels, x);
    for (size_t i = 0; i < x.size(); i += 512) {
        float *ch[3];
        for (quint32 c = 0; c < channels; ++c)
            ch[c] = y[c].data() + i;
        d.process(ch, channels, quint32(std::min<size_t>(512, x.size() - i)));
    }
    return y.back();
}

std::vector<float> offGridNoise(size_t n, float level, unsigned seed = 3)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> dist(-level, level);
    std::vector<float> x(n);
    for (float &v : x)
        v = dist(rng);
    return x;
}

bool onGrid(const std::vector<float> &y, int depth)
{
    const float scale = std::ldexp(1.0f, depth - 1);
    for (float v : y)
        if (v * scale != std::nearbyint(v * scale) || v < -1.0f || v > 1.0f - 1.0f / scale)
            return false;
    return true;
}

// The requantisation error in LSB.
std::vector<double> errorOf(const std::vector<float> &x, const std::vector<float> &y, int depth)
{
    std::vector<double> e(x.size());
    for (size_t i = 0; i < x.size(); ++i)
        e[i] = (double(y[i]) - x[i]) * std::ldexp(1.0, depth - 1);
    return e;
}

} // namespace

TEST(Dither, SignalsThatFitTheWordLengthPassBitIdentical)
{
    std::mt19937 rng(11);
    std::uniform_int_distribution<int> sample(-32768, 32767);
    std::vector<float> x(44100);
    for (float &v : x)
        v = float(sample(rng)) / 32768.0f;
    x[100] = -1.0f;
    std::fill(x.begin() + 2000, x.begin() + 3000, 0.0f);
    for (int depth : {16, 24}) {
        for (int type : {1, 2}) {
            for (int shape = 0; shape <= 4; ++shape) {
                for (bool flags : {false, true}) {
                    VEKDither d;
                    ASSERT_TRUE(d.setProperties(props({{"depth", depth}, {"type", type}, {"basicShape", shape},
                                                       {"mbitShape", shape}, {"basicNumberOfBits", 4}, {"mbitAmount", 4},
                                                       {"autoBlanking", flags}, {"minimizePeaks", flags},
                                                       {"silenceHarmonics", flags}})));
                    for (quint32 channels : {1u, 2u, 3u}) {
                        const std::vector<float> y = run(d, x, channels);
                        ASSERT_EQ(std::memcmp(x.data(), y.data(), sizeof(float) * x.size()), 0)
                            << "depth " << depth << " type " << type << " shape " << shape;
                    }
                }
            }
        }
    }
}

TEST(Dither, FinerSignalsAreCutToTheGrid)
{
    const std::vector<float> x = offGridNoise(20000, 0.99f);
    for (int depth : {8, 16, 20, 24}) {
        VEKDither d;
        ASSERT_TRUE(d.setProperties(props({{"depth", depth}})));
        const std::vector<float> y = run(d, x);
        EXPECT_TRUE(onGrid(y, depth)) << depth;
        EXPECT_NE(std::memcmp(x.data(), y.data(), sizeof(float) * x.size()), 0);
    }
    // Past 24 bits a float has nothing to cut.
    VEKDither wide;
    ASSERT_TRUE(wide.setProperties(props({{"depth", 32}})));
    const std::vector<float> y = run(wide, x);
    EXPECT_EQ(std::memcmp(x.data(), y.data(), sizeof(float) * x.size()), 0);
}

TEST(Dither, PlainTpdfErrorHasZeroMeanAndAQuarterLsbSquared)
{
    const std::vector<float> x = offGridNoise(1 << 20, 0.5f);
    struct Case {
        QVariantMap p;
        double variance; // dither peak a: a^2/6 + 1/12
    } cases[] = {
        {props({{"type", 1}, {"basicShape", 0}, {"basicNumberOfBits", 1}}), 0.25},
        {props({{"type", 1}, {"basicShape", 0}, {"basicNumberOfBits", 2}}), 0.75},
        {props({{"type", 2}, {"mbitShape", 0}, {"mbitAmount", 2}}), 0.25},
        {props({{"type", 2}, {"mbitShape", 0}, {"mbitAmount", 0}}), 0.125},
    };
    for (const Case &c : cases) {
      for (quint32 channels : {1u, 2u}) {
        VEKDither d;
        ASSERT_TRUE(d.setProperties(c.p));
        const std::vector<double> e = errorOf(x, run(d, x, channels), 16);
        double mean = 0, var = 0;
        for (double v : e)
            mean += v;
        mean /= double(e.size());
        for (double v : e)
            var += (v - mean) * (v - mean);
        var /= double(e.size());
        EXPECT_NEAR(mean, 0.0, 0.005);
        EXPECT_NEAR(var, c.variance, 0.02 * c.variance) << channels << " channels";
      }
    }
}

TEST(Dither, NoiseShapingMovesTheNoiseAboveTheMidrange)
{
    // Noise power of the error below 8 kHz and above 15 kHz, against plain TPDF.
    const std::vector<float> x = offGridNoise(1 << 18, 0.25f);
    auto bands = [&](const QVariantMap &p) {
        VEKDither d;
        EXPECT_TRUE(d.setProperties(p));
        const std::vector<double> e = errorOf(x, run(d, x), 16);
        return std::make_pair(bandPower(e, 44100, 0, 8000), bandPower(e, 44100, 15000, 22050));
    };
    const auto flat = bands(props({{"type", 2}, {"mbitShape", 0}}));
    double previousLow = flat.first;
    for (int shape = 1; shape <= 4; ++shape) {
        const auto shaped = bands(props({{"type", 2}, {"mbitShape", shape}}));
        EXPECT_LT(toDb(std::sqrt(shaped.first / flat.first)), -3.0) << "mbit shape " << shape;
        EXPECT_GT(shaped.second, flat.second) << "mbit shape " << shape;
        EXPECT_LT(shaped.first, previousLow) << "each step pushes harder, shape " << shape;
        previousLow = shaped.first;
    }
    // The single-channel path shapes alike.
    const std::vector<float> mono = run(*std::make_unique<VEKDither>(), x, 1);
    const std::vector<double> monoError = errorOf(x, mono, 16);
    EXPECT_LT(bandPower(monoError, 44100, 0, 8000), flat.first / 2);
    for (int shape = 1; shape <= 4; ++shape) {
        const auto shaped = bands(props({{"type", 1}, {"basicShape", shape}, {"basicNumberOfBits", 1}}));
        EXPECT_LT(shaped.first, flat.first) << "basic shape " << shape;
        EXPECT_GT(shaped.second, flat.second) << "basic shape " << shape;
    }
}

TEST(Dither, ShapingCurvesFollowTheSampleRate)
{
    // At 96 kHz the ear-weighted curve has the whole band above 20 kHz to put noise in, and
    // keeps the audible band far quieter than at 44.1 kHz.
    const auto at44 = VEKNoiseShaping::psychoacoustic(44100, 9, 30);
    const auto at96 = VEKNoiseShaping::psychoacoustic(96000, 9, 30);
    EXPECT_LT(VEKNoiseShaping::responseDb(at96, 4000, 96000), VEKNoiseShaping::responseDb(at44, 4000, 44100) - 5);
    EXPECT_GT(VEKNoiseShaping::responseDb(at96, 30000, 96000), VEKNoiseShaping::responseDb(at96, 4000, 96000) + 25);
    VEKDither d;
    const auto before = d.noiseShaping();
    d.setSampleRate(96000);
    EXPECT_NE(before, d.noiseShaping());
}

TEST(Dither, AutoBlankingKeepsDigitalSilenceExact)
{
    // Music off the grid, 4000 frames of digital silence, music again; in one stream of buffers.
    std::vector<float> x = offGridNoise(12000, 0.3f);
    std::fill(x.begin() + 4000, x.begin() + 8000, 0.0f);
    auto silenceOut = [&](bool blanking) {
        VEKDither d;
        EXPECT_TRUE(d.setProperties(props({{"autoBlanking", blanking}})));
        const std::vector<float> y = run(d, x);
        double power = 0;
        for (size_t i = 4000; i < 8000; ++i)
            power += double(y[i]) * y[i];
        return power;
    };
    EXPECT_GT(silenceOut(false), 0.0) << "without blanking the dither goes on in the silence";
    EXPECT_EQ(silenceOut(true), 0.0);
}

TEST(Dither, MinimizePeaksBoundsTheShapedError)
{
    const std::vector<float> x = offGridNoise(1 << 17, 0.5f);
    auto worst = [&](bool minimize) {
        VEKDither d;
        EXPECT_TRUE(d.setProperties(props({{"mbitShape", 4}, {"minimizePeaks", minimize}})));
        double w = 0;
        for (double e : errorOf(x, run(d, x), 16))
            w = std::max(w, std::fabs(e));
        return w;
    };
    EXPECT_GT(worst(false), 4.0);
    EXPECT_LE(worst(true), 3.5);
}

TEST(Dither, SilenceHarmonicsRemovesDistortionOfReducedDither)
{
    // A 1 kHz tone of 1.3 LSB at 16 bits with half-strength dither keeps harmonics of the
    // quantiser's steps; full TPDF leaves only noise at those frequencies.
    const size_t n = 4 * 44100;
    std::vector<float> x(n);
    for (size_t i = 0; i < n; ++i)
        x[i] = float(1.3 / 32768.0 * std::sin(2 * 3.14159265358979323846 * 1000.0 * double(i) / 44100));
    auto harmonics = [&](bool silence) {
        VEKDither d;
        EXPECT_TRUE(d.setProperties(props({{"mbitShape", 0}, {"mbitAmount", 0}, {"silenceHarmonics", silence}})));
        const std::vector<float> y = run(d, x);
        double power = 0;
        for (int k = 2; k <= 10; ++k)
            power += std::pow(amplitude(y.data(), n, 44100, 1000.0 * k) * 32768.0, 2);
        return std::sqrt(power);
    };
    EXPECT_GT(toDb(harmonics(false) / harmonics(true)), 10.0);
}

TEST(Dither, SettingsChangeAtTheNextBufferAndRefusalsKeepTheOld)
{
    VEKDither d;
    const std::vector<float> x = offGridNoise(512, 0.5f);
    std::vector<float> y = run(d, x);
    EXPECT_TRUE(onGrid(y, 16));
    EXPECT_FALSE(onGrid(y, 12));

    // The change is heard from the next buffer, and a refused one leaves it. (A depth of 40
    // refused with its reason: DitherProcessor.CutsToTheWordLength... in the graph.)
    ASSERT_TRUE(d.setProperties(props({{"depth", 8}})));
    EXPECT_FALSE(d.setProperties(props({{"mbitShape", "loud"}})));
    EXPECT_EQ(d.depth(), 8u);
    EXPECT_TRUE(onGrid(run(d, x), 8));
    EXPECT_EQ(d.properties().value("depth").toInt(), 8);
}
