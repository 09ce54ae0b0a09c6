#include "VEKMeterAudioProcessor.h"

#include <algorithm>
#include <cmath>
#if defined(__SSE2__)
#include <immintrin.h>
#endif

namespace {

// The largest magnitude of `n` samples; four lanes at a time where the machine has them, since
// three meters look at every sample of the stream.
float peakOf(const float *p, quint32 n)
{
    quint32 f = 0;
    float peak = 0.0f;
#if defined(__SSE2__)
    const __m128 signBit = _mm_set1_ps(-0.0f);
    __m128 m0 = _mm_setzero_ps(), m1 = _mm_setzero_ps();
    for (; f + 8 <= n; f += 8) {
        m0 = _mm_max_ps(m0, _mm_andnot_ps(signBit, _mm_loadu_ps(p + f)));
        m1 = _mm_max_ps(m1, _mm_andnot_ps(signBit, _mm_loadu_ps(p + f + 4)));
    }
    alignas(16) float lanes[4];
    _mm_store_ps(lanes, _mm_max_ps(m0, m1));
    peak = std::max(std::max(lanes[0], lanes[1]), std::max(lanes[2], lanes[3]));
#endif
    for (; f < n; ++f)
        peak = std::max(peak, std::fabs(p[f]));
    return peak;
}

} // namespace

float VEKMeterAudioProcessor::levelOfChannel(quint32 c) const
{
    return c < maxChannels ? m_levels[c].load(std::memory_order_relaxed) : 0.0f;
}

bool VEKMeterAudioProcessor::initializeForRender(VEKError *error) { return reset(error); }

bool VEKMeterAudioProcessor::reset(VEKError *)
{
    for (auto &level : m_levels)
        level.store(0.0f, std::memory_order_relaxed);
    return true;
}

bool VEKMeterAudioProcessor::uninitialize(VEKError *error) { return reset(error); }

void VEKMeterAudioProcessor::render(VEKAudioBufferList &list, quint32, const VEKAudioRenderInfo &info)
{
    inputBus().render(list, info);
    const quint32 channels = std::min(list.numberOfChannels(), maxChannels);
    const double rate = info.sampleRate > 0 ? info.sampleRate : 44100.0;
    const float decay = std::pow(10.0f, -decayDecibelsPerSecond / 20.0f * float(list.frames() / rate));
    for (quint32 c = 0; c < channels; ++c) {
        const float peak = peakOf(list.channel(c), list.frames());
        const float fallen = m_levels[c].load(std::memory_order_relaxed) * decay;
        m_levels[c].store(std::max(peak, fallen), std::memory_order_relaxed);
    }
    m_channels.store(channels, std::memory_order_relaxed);
}
