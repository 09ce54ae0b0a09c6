#pragma once

// Test signals and measurements for the playback layer's DSP.

#include "audio/CrossfeedEngine.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace Signals {

using Channel = std::vector<float>;

inline Channel sine(size_t frames, double hz, double rate, double amplitude = 0.5)
{
    Channel x(frames);
    for (size_t i = 0; i < frames; ++i)
        x[i] = float(amplitude * std::sin(2.0 * std::numbers::pi * hz * double(i) / rate));
    return x;
}

// Uniform white noise in [-amplitude, amplitude], the same for the same seed.
inline Channel noise(size_t frames, unsigned seed, double amplitude = 0.5)
{
    Channel x(frames);
    unsigned s = seed * 2654435761u + 1u;
    for (float &v : x) {
        s = s * 1664525u + 1013904223u;
        v = float(amplitude * (double(s >> 8) / double(1u << 23) - 1.0));
    }
    return x;
}

inline double toDb(double ratio) { return 20.0 * std::log10(ratio); }

// Amplitude of the `hz` component over frames [from, from + count), count holding whole cycles.
inline double amplitude(const Channel &x, double hz, double rate, size_t from, size_t count)
{
    double re = 0.0, im = 0.0;
    for (size_t i = from; i < from + count; ++i) {
        re += x[i] * std::cos(2.0 * std::numbers::pi * hz * double(i) / rate);
        im += x[i] * std::sin(2.0 * std::numbers::pi * hz * double(i) / rate);
    }
    return 2.0 * std::hypot(re, im) / double(count);
}

inline double peak(const Channel &x)
{
    double p = 0.0;
    for (float v : x)
        p = std::max(p, double(std::fabs(v)));
    return p;
}

// Runs both channels through the engine in place, in blocks of `block` frames.
inline void process(CrossfeedEngine &engine, Channel &left, Channel &right, size_t block = 512)
{
    for (size_t at = 0; at < left.size(); at += block)
        engine.processStereo(left.data() + at, right.data() + at, quint32(std::min(block, left.size() - at)));
}

// The engine at `rate` with `p`, switched on, in force from the start.
inline void start(CrossfeedEngine &engine, CrossfeedEngine::Parameters p, double rate = 44100.0)
{
    p.enabled = true;
    engine.setParameters(p);
    engine.initialize(rate);
}

} // namespace Signals
