// The converter as the graph uses it: exact frame counts per pull, no drift over a long run,
// rate changes, resets and quality changes while the stream runs.

#include "DspTestSupport.h"
#include "dsp/VEKPlatformConverter.h"
#include "dsp/VEKTunableConverter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <random>
#include <thread>

using namespace DspTest;

namespace {
constexpr double Pi = 3.14159265358979323846;

// Renders `frames` frames in requests of the given sizes, appending channel 0 to `y`.
template <typename Source>
void renderInto(VEKSampleRateConverter &c, Source &source, size_t frames, std::vector<float> &y,
                const std::vector<quint32> &sizes = {512}, quint32 capacity = 8192)
{
    VEKAudioBufferList out(c.numberOfChannels(), capacity);
    for (size_t k = 0; frames > 0; ++k) {
        const quint32 n = quint32(std::min<size_t>(sizes[k % sizes.size()], frames));
        out.setFrames(n);
        std::memset(out.channel(0), 0x7f, sizeof(float) * n); // garbage that must be overwritten
        c.render(out, source);
        ASSERT_EQ(out.frames(), n);
        y.insert(y.end(), out.channel(0), out.channel(0) + n);
        frames -= n;
    }
}

double worstErrorAgainstSine(const std::vector<float> &y, size_t from, double amplitude, double f, double rate)
{
    double worst = 0.0;
    for (size_t m = from; m < y.size(); ++m)
        worst = std::max(worst, std::fabs(y[m] - amplitude * std::sin(2 * Pi * f * double(m) / rate)));
    return worst;
}
} // namespace

TEST(ConverterStream, DeliversExactlyWhatIsAskedAndDoesNotDrift)
{
    // Clicks once a second of input; each must come out at exactly in * out / in, also after
    // three minutes of requests of awkward sizes, some larger than the configured maximum.
    for (double outRate : {48000.0, 96000.0}) {
        VEKTunableConverter c;
        c.setInSampleRate(44100);
        ASSERT_TRUE(c.configure(outRate, 1, 1024));
        long long pulled = 0;
        auto clicks = [&](VEKAudioBufferList &in) {
            for (quint32 i = 0; i < in.frames(); ++i, ++pulled)
                in.channel(0)[i] = pulled > 0 && pulled % 44100 == 0 ? 1.0f : 0.0f;
        };
        std::vector<float> y;
        renderInto(c, clicks, size_t(180 * outRate), y, {1, 7, 333, 1024, 4000, 511});
        for (int second = 1; second < 180; ++second) {
            const size_t expected = size_t(second * outRate);
            size_t peak = expected - 50;
            for (size_t m = expected - 50; m <= expected + 50; ++m)
                if (y[m] > y[peak])
                    peak = m;
            ASSERT_EQ(peak, expected) << "second " << second << " to " << outRate;
        }
        // The input read ahead of the output stays a filter's length, not a growing amount.
        const double ahead = double(pulled) - double(y.size()) * 44100.0 / outRate;
        EXPECT_GE(ahead, 0.0);
        EXPECT_LT(ahead, 20000.0);
    }
}

TEST(ConverterStream, EqualRatesPassTheSourceThroughBitForBit)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
    std::vector<float> x(20000);
    for (float &v : x)
        v = dist(rng);
    VEKPlatformConverter platform;
    VEKTunableConverter tunable;
    for (VEKSampleRateConverter *c : {static_cast<VEKSampleRateConverter *>(&platform), static_cast<VEKSampleRateConverter *>(&tunable)}) {
        c->setInSampleRate(88200);
        ASSERT_TRUE(c->configure(88200, 1, 512));
        EXPECT_TRUE(c->isPassThrough());
        size_t pos = 0;
        auto source = [&](VEKAudioBufferList &in) {
            std::memcpy(in.channel(0), x.data() + pos, sizeof(float) * in.frames());
            pos += in.frames();
        };
        std::vector<float> y;
        renderInto(*c, source, 19000, y, {512, 100, 333});
        EXPECT_EQ(std::memcmp(y.data(), x.data(), sizeof(float) * y.size()), 0);
    }
}

TEST(ConverterStream, ANewInputRateTakesOverMidStream)
{
    VEKPlatformConverter c;
    c.setInSampleRate(44100);
    ASSERT_TRUE(c.configure(96000, 1, 512));
    double inRate = 44100;
    long long n = 0;
    auto tone = [&](VEKAudioBufferList &in) {
        for (quint32 i = 0; i < in.frames(); ++i, ++n)
            in.channel(0)[i] = float(0.5 * std::sin(2 * Pi * 1000.0 * double(n) / inRate));
    };
    std::vector<float> y;
    renderInto(c, tone, 96000, y);

    // The next song is at 48 kHz: the same 1 kHz must come out at 1 kHz.
    ASSERT_TRUE(c.setInSampleRate(48000));
    inRate = 48000;
    n = 0;
    y.clear();
    renderInto(c, tone, 3 * 96000, y);
    EXPECT_NEAR(toDb(amplitude(y.data() + 96000, 96000, 96000, 1000) / 0.5), 0.0, 0.01);
    EXPECT_LT(worstErrorAgainstSine(y, 4800, 0.5, 1000, 96000), 1e-4);

    // And one at the output rate passes untouched.
    ASSERT_TRUE(c.setInSampleRate(96000));
    inRate = 96000;
    n = 0;
    y.clear();
    renderInto(c, tone, 9600, y);
    for (size_t m = 0; m < y.size(); ++m)
        ASSERT_EQ(y[m], float(0.5 * std::sin(2 * Pi * 1000.0 * double(m) / 96000)));
}

TEST(ConverterStream, ResetStartsExactlyLikeANewConverter)
{
    // After a reset the output is that of a fresh converter given the new signal: nothing of
    // the old signal rings on, and the new one is neither late nor early.
    auto make = [](int kind) -> std::unique_ptr<VEKSampleRateConverter> {
        if (kind == 0)
            return std::make_unique<VEKPlatformConverter>();
        auto t = std::make_unique<VEKTunableConverter>();
        t->setParameters(200, 1.0f, kind == 1 ? 1.0f : 0.0f); // steep, linear or minimum phase
        return t;
    };
    for (int kind = 0; kind < 3; ++kind) {
        auto used = make(kind), fresh = make(kind);
        for (auto *c : {used.get(), fresh.get()}) {
            c->setInSampleRate(44100);
            ASSERT_TRUE(c->configure(96000, 2, 512));
        }
        MultiTone old{{3000, 17000}, 0.4, 44100}, next{{440, 5000, 12000}, 0.2, 44100};
        auto oldSource = [&](VEKAudioBufferList &in) { old.fill(in); };
        std::vector<float> ignored, a, b;
        renderInto(*used, oldSource, 130000, ignored);
        used->reset();
        auto nextSource = [&](VEKAudioBufferList &in) { next.fill(in); };
        renderInto(*used, nextSource, 60000, a, {300, 512});
        next.position = 0;
        renderInto(*fresh, nextSource, 60000, b, {512});
        double worst = 0;
        for (size_t m = 0; m < a.size(); ++m)
            worst = std::max(worst, double(std::fabs(a[m] - b[m])));
        EXPECT_LT(worst, 1e-5) << "converter kind " << kind;
    }
}

TEST(ConverterStream, QualityChangesWhilePlayingNeitherClickNorSlip)
{
    // A sine through converters whose settings change every 40 ms must stay on the ideal
    // sine: a step, a gap or a shift of even one sample would be far above this bound.
    VEKPlatformConverter platform;
    platform.setInSampleRate(44100);
    ASSERT_TRUE(platform.configure(96000, 1, 512));
    VEKTunableConverter tunable;
    tunable.setInSampleRate(44100);
    ASSERT_TRUE(tunable.configure(96000, 1, 512));
    for (int which = 0; which < 2; ++which) {
        VEKSampleRateConverter &c = which == 0 ? static_cast<VEKSampleRateConverter &>(platform) : tunable;
        long long n = 0;
        auto tone = [&](VEKAudioBufferList &in) {
            for (quint32 i = 0; i < in.frames(); ++i, ++n)
                in.channel(0)[i] = float(0.5 * std::sin(2 * Pi * 1000.0 * double(n) / 44100));
        };
        std::vector<float> y;
        renderInto(c, tone, 9600, y);
        for (int change = 0; change < 24; ++change) {
            if (which == 0) {
                platform.setComplexity(change % 2 ? VEKPlatformConverter::Mastering : VEKPlatformConverter::Normal);
                platform.setQuality(change % 3 == 0 ? 0.3f : 1.0f);
            } else {
                tunable.setParameters(change % 2 ? 80 : 220, change % 3 ? 0.95f : 1.0f, 1.0f);
            }
            renderInto(c, tone, 3840, y, {512, 200});
        }
        EXPECT_LT(worstErrorAgainstSine(y, 4800, 0.5, 1000, 96000), 2e-4) << "converter " << which;
    }
}

TEST(ConverterStream, APhaseResponseChangeGlidesWithoutAStep)
{
    // Less pre-ringing changes the phase at 1 kHz, so the sine may shift, but only smoothly:
    // its second difference, 0.0021 for this sine, would jump at a step.
    VEKTunableConverter c;
    c.setInSampleRate(44100);
    ASSERT_TRUE(c.configure(96000, 1, 512));
    MultiTone tone{{1000}, 0.5, 44100};
    auto source = [&](VEKAudioBufferList &in) { tone.fill(in); };
    std::vector<float> y;
    renderInto(c, source, 9600, y);
    for (int change = 0; change < 12; ++change) {
        c.setFilterPreRinging(change % 2 ? 0.0f : 1.0f);
        renderInto(c, source, 3840, y);
    }
    double worst = 0.0;
    for (size_t m = 4801; m + 1 < y.size(); ++m)
        worst = std::max(worst, std::fabs(double(y[m + 1]) - 2.0 * y[m] + y[m - 1]));
    EXPECT_LT(worst, 0.0025);
}

TEST(ConverterStream, SurvivesChangesFromAnotherThreadWhileRendering)
{
    VEKTunableConverter c;
    c.setInSampleRate(44100);
    ASSERT_TRUE(c.configure(48000, 2, 256));
    std::atomic<bool> done{false};
    std::atomic<bool> finite{true};
    std::thread render([&] {
        MultiTone tone{{1000}, 0.5, 44100};
        VEKAudioBufferList out(2, 256);
        auto source = [&](VEKAudioBufferList &in) { tone.fill(in); };
        for (int i = 0; i < 3000; ++i) {
            out.setFrames(256);
            c.render(out, source);
            for (quint32 k = 0; k < 256; ++k)
                if (!std::isfinite(out.channel(1)[k]) || std::fabs(out.channel(1)[k]) > 0.6f)
                    finite = false;
        }
        done = true;
    });
    for (int i = 0; !done; ++i) {
        c.setFilterSteepness(quint32(60 + (i * 37) % 180));
        if (i % 5 == 0)
            c.reset();
        std::this_thread::sleep_for(std::chrono::microseconds(300));
    }
    render.join();
    EXPECT_TRUE(finite);
}

TEST(ConverterStream, RefusedSettingsLeaveTheConverterAsItWas)
{
    VEKPlatformConverter c;
    QString error;
    EXPECT_FALSE(c.configure(0.0, 2, 512, &error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_FALSE(c.setInSampleRate(-1.0));
    EXPECT_FALSE(c.isConfigured());
    VEKAudioBufferList out(2, 64);
    c.render(out, [](VEKAudioBufferList &) { FAIL() << "nothing to pull before configure()"; });
    EXPECT_EQ(out.maximum(), 0.0f);
}
