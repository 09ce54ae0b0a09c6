// The headphone engine as the render thread sees it: changes glide without a click, and
// processing never touches the heap.

#include "Signals.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

using namespace Signals;
using Params = CrossfeedEngine::Parameters;

// Counts this program's heap allocations while `g_counting` is set. The address sanitizer
// brings its own allocator, so there is no count under it.
static std::atomic<bool> g_counting{false};
static std::atomic<long> g_allocations{0};
#if defined(__SANITIZE_ADDRESS__)
constexpr bool CountingAllocations = false;
#else
constexpr bool CountingAllocations = true;

void *operator new(std::size_t size)
{
    if (g_counting.load(std::memory_order_relaxed))
        g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void *p = std::malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}
void *operator new[](std::size_t size) { return operator new(size); }
void operator delete(void *p) noexcept { std::free(p); }
void operator delete[](void *p) noexcept { std::free(p); }
void operator delete(void *p, std::size_t) noexcept { std::free(p); }
void operator delete[](void *p, std::size_t) noexcept { std::free(p); }
#endif

namespace {

double largestStep(const Channel &x, size_t from, size_t to)
{
    double step = 0.0;
    for (size_t i = from + 1; i < to; ++i)
        step = std::max(step, double(std::fabs(x[i] - x[i - 1])));
    return step;
}

} // namespace

TEST(Glide, ChangesMidStreamDoNotClick)
{
    // Two low tones, so that every trick moves the waveform and a jump stands out against the
    // tones' own small steps. The change lands 0.3 s in, where neither tone is near zero.
    // Protection is off so that no glide passes through a setting louder than both its ends
    // (bass +6 to -6 with protection is loudest halfway), which would raise the steps for a
    // good reason.
    const double rate = 44100.0;
    const size_t frames = size_t(0.8 * rate), change = 52 * 256;
    const Channel l = sine(frames, 150.0, rate, 0.5), r = sine(frames, 220.0, rate, 0.4);
    Params base;
    base.enabled = true;
    base.crossfeedAmount = 1.0f;
    base.speakerAngle = 10.0f;
    base.trebleGain = -3.0f;
    base.bassGain = 3.0f;
    base.crossfeedClipProtectionEnabled = base.eqClipProtectionEnabled = false;
    const std::pair<const char *, void (*)(Params &)> cases[] = {
        {"mono", [](Params &p) { p.mono = true; }},
        {"swap", [](Params &p) { p.swapped = true; }},
        {"out of phase", [](Params &p) { p.outOfPhase = true; }},
        {"solo first", [](Params &p) { p.solo = 1; }},
        {"solo second", [](Params &p) { p.solo = 2; }},
        {"type", [](Params &p) { p.crossfeedType = 2; }},
        {"angle", [](Params &p) { p.speakerAngle = 60.0f; }},
        {"amount", [](Params &p) { p.crossfeedAmount = 1.5f; }},
        {"crossfeed off", [](Params &p) { p.crossfeedAmount = 0.0f; }},
        {"crossfeed protection", [](Params &p) { p.crossfeedClipProtectionEnabled = true; }},
        {"tone protection", [](Params &p) { p.eqClipProtectionEnabled = true; }},
        {"tone", [](Params &p) { p.trebleGain = 6.0f, p.bassGain = -6.0f, p.bassFrequency = 500.0f; }},
        {"all at once", [](Params &p) { p = {true, 45.0f, 1.5f, 3, true, 5000, 250, 6.0f, 0, true, false, true, true, 0}; }},
        {"switched on", nullptr},
    };
    for (const auto &[what, change_] : cases) {
        SCOPED_TRACE(what);
        Params before = base, after = base;
        if (change_)
            change_(after);
        else
            before.enabled = false;
        CrossfeedEngine engine;
        engine.setParameters(before);
        engine.initialize(rate);
        Channel a = l, b = r;
        for (size_t at = 0; at < frames; at += 256) {
            if (at == change)
                engine.setParameters(after);
            engine.processStereo(a.data() + at, b.data() + at, quint32(std::min<size_t>(256, frames - at)));
        }
        // The steps across the glide against the signal's own, settled before and after.
        const size_t settled = change + size_t(0.1 * rate);
        for (const Channel *x : {&a, &b})
            EXPECT_LE(largestStep(*x, change - 1, settled),
                      1.2 * std::max(largestStep(*x, 4096, change), largestStep(*x, settled, frames)))
                << (x == &a ? "first" : "second") << " channel";
    }
}

TEST(Realtime, ProcessingNeverTouchesTheHeap)
{
    if constexpr (!CountingAllocations) {
        GTEST_SKIP() << "the sanitizer owns the allocator";
    } else {
        // Every kind of block: glides, switching on and off, resets, odd block sizes.
        CrossfeedEngine engine;
        Params p;
        p.enabled = true;
        engine.setParameters(p);
        engine.initialize(96000.0);
        Channel l = noise(4096, 1), r = noise(4096, 2);
        long allocations = 0;
        for (int round = 0; round < 24; ++round) {
            p = {round % 7 != 3, float(round * 5 % 61), float(round % 4) * 0.5f, quint32(round % 3) + 1, true,
                 5000, 250, float(round % 13) - 6.0f, 2.0f, round % 2 == 0, round % 5 == 0, false, false, 0};
            engine.setParameters(p);
            if (round % 6 == 5)
                engine.reset();
            g_counting = true;
            for (quint32 at = 0, n = 1; at < l.size(); at += n, n = n * 3 % 1021 + 1)
                engine.processStereo(l.data() + at, r.data() + at, std::min<quint32>(n, quint32(l.size()) - at));
            g_counting = false;
            allocations += g_allocations.exchange(0);
        }
        EXPECT_EQ(allocations, 0);
    }
}
