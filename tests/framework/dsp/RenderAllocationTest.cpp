// The render thread never allocates: counted across the first render after configure, resets,
// quality swaps with their crossfade, rate changes and dither settings changes, with the steady
// buffer size an output asks for.

#include "DspTestSupport.h"
#include "dsp/VEKDither.h"
#include "dsp/VEKPlatformConverter.h"
#include "dsp/VEKTunableConverter.h"

#include <gtest/gtest.h>

using namespace DspTest;

TEST(RenderAllocation, ConvertersRenderWithoutTouchingTheHeap)
{
    if (!AllocationCounter::available())
        GTEST_SKIP() << "the sanitizer owns the allocator";
    struct Case {
        double in, out;
        quint32 maxFrames, request; // the graph asks for the same count each time
        bool tunable;
    } cases[] = {{44100, 96000, 1024, 1024, true},  {44100, 96000, 1024, 1024, false}, {96000, 44100, 512, 300, true},
                 {48000, 44100, 4096, 4096, false}, {44100, 192000, 256, 640, true},  {192000, 48000, 2048, 2048, false},
                 {44100, 48000, 4096, 4096, false}, {88200, 48000, 512, 512, true}};
    for (const Case &k : cases) {
        VEKTunableConverter tunable;
        VEKPlatformConverter platform;
        VEKSampleRateConverter *c = k.tunable ? static_cast<VEKSampleRateConverter *>(&tunable) : &platform;
        c->setInSampleRate(k.in);
        ASSERT_TRUE(c->configure(k.out, 2, k.maxFrames));
        MultiTone tone{{1000, 9000}, 0.3, k.in};
        auto source = [&](VEKAudioBufferList &in) { tone.fill(in); };
        VEKAudioBufferList out(2, k.request);
        auto renderSome = [&](int buffers) {
            AllocationCounter::start();
            for (int i = 0; i < buffers; ++i) {
                out.setFrames(k.request);
                c->render(out, source);
            }
            return AllocationCounter::stop();
        };
        const std::string what = std::to_string(int(k.in)) + " to " + std::to_string(int(k.out));
        EXPECT_EQ(renderSome(400), 0) << "first renders, " << what;
        c->reset();
        EXPECT_EQ(renderSome(50), 0) << "after a reset, " << what;
        if (k.tunable)
            tunable.setParameters(250, 0.97f, 0.0f);
        else
            platform.setComplexity(VEKPlatformConverter::Mastering);
        EXPECT_EQ(renderSome(100), 0) << "taking over a new filter and crossfading, " << what;
        c->setInSampleRate(k.in == 44100 ? 48000 : 44100);
        EXPECT_EQ(renderSome(100), 0) << "after a rate change, " << what;
        c->setInSampleRate(k.out);
        EXPECT_EQ(renderSome(20), 0) << "passing through, " << what;
    }
}

TEST(RenderAllocation, DitherProcessesWithoutTouchingTheHeap)
{
    if (!AllocationCounter::available())
        GTEST_SKIP() << "the sanitizer owns the allocator";
    VEKDither dither;
    QVariantMap p = VEKDither::defaultProperties();
    p.insert("autoBlanking", true);
    MultiTone tone{{440}, 0.3, 44100};
    VEKAudioBufferList buffer(2, 512);
    for (int round = 0; round < 4; ++round) {
        p.insert("mbitShape", round);
        ASSERT_TRUE(dither.setProperties(p));
        AllocationCounter::start();
        for (int i = 0; i < 50; ++i) {
            tone.fill(buffer);
            if (i % 7 == 0)
                buffer.clear();
            dither.process(buffer);
        }
        EXPECT_EQ(AllocationCounter::stop(), 0);
    }
}
