// The converters against what their settings promise, measured on the output spectrum of a
// multi-tone at 44.1 kHz (and 96 kHz for the anti-alias side): flatness at every tone below
// the passband end, and rejection of every image or alias the conversion could make.

#include "DspTestSupport.h"
#include "dsp/VEKPlatformConverter.h"
#include "dsp/VEKTunableConverter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>

using namespace DspTest;

namespace {

struct Measurement {
    double passbandDeviationDb = 0.0; // largest |gain| in dB over the tones below the passband end
    double rejectionDb = 1e9;         // smallest rejection over all images and aliases
    std::map<double, double> gainDb;  // by tone
};

// Converts tones (whole Hz, so one second holds whole cycles at both rates) and analyses the
// third second of output.
Measurement measure(VEKSampleRateConverter &converter, double inRate, double outRate,
                    const std::vector<double> &tones, double passbandEndHz)
{
    EXPECT_TRUE(converter.setInSampleRate(inRate));
    EXPECT_TRUE(converter.configure(outRate, 1, 1024));
    MultiTone source{tones, 0.1, inRate};
    VEKAudioBufferList out(1, 1024);
    std::vector<float> y;
    while (y.size() < size_t(3 * outRate)) {
        out.setFrames(1024);
        converter.render(out, [&](VEKAudioBufferList &in) { source.fill(in); });
        y.insert(y.end(), out.channel(0), out.channel(0) + out.frames());
    }
    const float *window = y.data() + size_t(2 * outRate);
    const size_t n = size_t(outRate);

    Measurement m;
    for (double f : tones) {
        if (f >= outRate / 2)
            continue;
        const double g = toDb(amplitude(window, n, outRate, f) / source.amplitude);
        m.gainDb[f] = g;
        if (f <= passbandEndHz)
            m.passbandDeviationDb = std::max(m.passbandDeviationDb, std::fabs(g));
    }
    // Images of every tone around multiples of the input rate, folded at the output rate;
    // for converting down, the tones above the output's Nyquist frequency fold as aliases.
    for (double f : tones) {
        for (int k = 0; k <= 3; ++k) {
            for (double image : {k * inRate - f, k * inRate + f}) {
                if (image <= 0 || (k == 0 && f < outRate / 2) || (k > 0 && f >= inRate / 2))
                    continue;
                double g = std::fmod(image, outRate);
                if (g > outRate / 2)
                    g = outRate - g;
                bool clash = g < 1.0 || g > outRate / 2 - 1.0;
                for (double t : tones)
                    clash = clash || std::fabs(t - g) < 1.0;
                if (clash)
                    continue;
                const double level = toDb(amplitude(window, n, outRate, g) / source.amplitude);
                m.rejectionDb = std::min(m.rejectionDb, -level);
            }
        }
    }
    std::printf("[ measured ] %.0f -> %.0f Hz: passband within %.5f dB, rejection %.1f dB\n", inRate, outRate,
                m.passbandDeviationDb, m.rejectionDb);
    return m;
}

const std::vector<double> AudibleTones = {100, 1000, 5000, 10000, 15000, 18000, 20000, 21500};

} // namespace

// Normal complexity keeps the high-quality promise, Mastering rejects far more (28 bits would
// give 174 dB; float samples in and out show no more than about 150), and the tunable
// converter's defaults are flat to 98% of the band.
TEST(ConverterSpectrum, EachRecipeKeepsItsPromiseConvertingUpAndDown)
{
    struct Case {
        const char *what;
        std::function<std::unique_ptr<VEKSampleRateConverter>()> make;
        double passbandEnd, rejection;
    };
    const Case cases[] = {
        {"normal", [] { return std::make_unique<VEKPlatformConverter>(); }, 0.913, 130.0},
        {"mastering",
         [] {
             auto c = std::make_unique<VEKPlatformConverter>();
             EXPECT_TRUE(c->setComplexity(VEKPlatformConverter::Mastering));
             return c;
         },
         0.91, 145.0},
        {"tunable", [] { return std::make_unique<VEKTunableConverter>(); }, 0.98, 130.0},
    };
    // Up from 44.1 kHz, and down from 96 kHz, where tones above 22.05 kHz must not fold back
    // into the audible band.
    const std::vector<double> aliasing = {1000, 10000, 19000, 25000, 30000, 40000};
    const struct {
        double in, out;
        const std::vector<double> &tones;
    } conversions[] = {{44100, 48000, AudibleTones}, {44100, 96000, AudibleTones}, {96000, 44100, aliasing}};
    for (const Case &c : cases) {
        for (const auto &k : conversions) {
            const auto converter = c.make();
            const Measurement m = measure(*converter, k.in, k.out, k.tones, c.passbandEnd * 22050);
            EXPECT_LT(m.passbandDeviationDb, 0.01) << c.what << " " << k.in << " to " << k.out;
            EXPECT_GT(m.rejectionDb, c.rejection) << c.what << " " << k.in << " to " << k.out;
        }
    }
}

TEST(ConverterSpectrum, QualityTradesRejectionWithinTheRecipe)
{
    VEKPlatformConverter low, high;
    low.setQuality(0.0f);
    const Measurement a = measure(low, 44100, 96000, AudibleTones, 0.913 * 22050);
    const Measurement b = measure(high, 44100, 96000, AudibleTones, 0.913 * 22050);
    EXPECT_GT(a.rejectionDb, 105.0); // 16 bits
    EXPECT_LT(a.rejectionDb, b.rejectionDb - 12.0);
    EXPECT_LT(a.passbandDeviationDb, 0.01);
}

TEST(ConverterSpectrum, LinearComplexityIsTheQuickCubic)
{
    VEKPlatformConverter c;
    ASSERT_TRUE(c.setComplexity(VEKPlatformConverter::Linear));
    EXPECT_EQ(c.currentFilter().precision, 0.0);
    const Measurement m = measure(c, 44100, 48000, {100, 1000, 5000}, 5000);
    EXPECT_LT(m.passbandDeviationDb, 0.1);
    EXPECT_GT(m.rejectionDb, 50.0);
    EXPECT_FALSE(c.setComplexity(0x61626364)); // 'abcd'
}

TEST(ConverterSpectrum, SteepnessAndCutoffMoveTheBandEdge)
{
    // The pane's slider at 0.5 writes 53: the transition band widens to 16% and 20 kHz falls
    // into it, while 10 kHz stays flat.
    VEKTunableConverter gentle;
    ASSERT_TRUE(gentle.setFilterSteepness(53));
    const Measurement g = measure(gentle, 44100, 96000, AudibleTones, 0.83 * 22050);
    EXPECT_LT(g.passbandDeviationDb, 0.01);
    EXPECT_LT(g.gainDb.at(20000), -1.0);

    // A cutoff scaling of 0.85 puts the stopband from 18.7 kHz: 20 kHz is gone.
    VEKTunableConverter low;
    ASSERT_TRUE(low.setFilterCutoffScaling(0.85f));
    const Measurement l = measure(low, 44100, 96000, AudibleTones, 0.83 * 22050);
    EXPECT_LT(l.passbandDeviationDb, 0.01);
    EXPECT_LT(l.gainDb.at(20000), -130.0);
}

TEST(ConverterSpectrum, PreRingingSetsTheRingingBeforeATransient)
{
    // Energy of the impulse response's ringing before its main lobe, against the ringing
    // after it (the tails beyond 12 output samples, 0.125 ms, either side of the peak).
    auto ringingBeforeAgainstAfter = [](float preRinging) {
        VEKTunableConverter c;
        c.setFilterPreRinging(preRinging);
        c.setInSampleRate(44100);
        c.configure(96000, 1, 512);
        long long n = 0;
        std::vector<float> y;
        VEKAudioBufferList out(1, 512);
        for (int i = 0; i < 200; ++i) {
            out.setFrames(512);
            c.render(out, [&](VEKAudioBufferList &in) {
                for (quint32 k = 0; k < in.frames(); ++k, ++n)
                    in.channel(0)[k] = n == 20000 ? 1.0f : 0.0f;
            });
            y.insert(y.end(), out.channel(0), out.channel(0) + 512);
        }
        size_t peak = 0;
        for (size_t i = 0; i < y.size(); ++i)
            if (std::fabs(y[i]) > std::fabs(y[peak]))
                peak = i;
        double before = 0, after = 0;
        for (size_t i = 0; i < y.size(); ++i) {
            if (i + 12 < peak)
                before += double(y[i]) * y[i];
            if (i > peak + 12)
                after += double(y[i]) * y[i];
        }
        return before / after;
    };
    const double linear = ringingBeforeAgainstAfter(1.0f);
    const double minimum = ringingBeforeAgainstAfter(0.0f);
    const double middle = ringingBeforeAgainstAfter(0.5f);
    EXPECT_NEAR(linear, 1.0, 0.25) << "linear phase rings as much before as after";
    EXPECT_LT(minimum, 1e-6) << "minimum phase does not ring before";
    EXPECT_LT(middle, 0.5 * linear);
    EXPECT_GT(middle, 100 * minimum);
}
