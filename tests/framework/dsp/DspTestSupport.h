#pragma once

#include "rt/VEKAudioBufferList.h"

#include <vector>

// Measuring tools for the DSP tests: exact single-frequency DFTs, band powers, test signals and
// a count of heap allocations on the calling thread.
namespace DspTest {

// Amplitude of the component at `frequency` in `count` samples from `samples` taken at `rate`,
// by an exact DFT at that one frequency. Exact for whole cycles in the window.
double amplitude(const float *samples, size_t count, double rate, double frequency);
double toDb(double ratio);

// Power of `samples` between two frequencies, from averaged Hann-windowed FFTs of 4096 points.
double bandPower(const std::vector<double> &samples, double rate, double from, double to);

// A sum of sines, sample-exact at any position, pulled frame by frame into every channel.
struct MultiTone {
    std::vector<double> frequencies;
    double amplitude = 0.1;
    double rate = 44100.0;
    long long position = 0;
    double at(long long index) const;
    void fill(VEKAudioBufferList &list);
};

// Counts malloc, calloc, realloc, free and the aligned forms made on this thread between
// start() and stop(). available() is false in sanitizer builds, which own the allocator.
struct AllocationCounter {
    static bool available();
    static void start();
    static long stop();
};

} // namespace DspTest
