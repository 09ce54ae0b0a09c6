#include "VEKMeterAudioProcessor.h"

#include <algorithm>
#include <cmath>

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
        const float *p = list.channel(c);
        float peak = 0.0f;
        for (quint32 f = 0; f < list.frames(); ++f)
            peak = std::max(peak, std::fabs(p[f]));
        const float fallen = m_levels[c].load(std::memory_order_relaxed) * decay;
        m_levels[c].store(std::max(peak, fallen), std::memory_order_relaxed);
    }
    m_channels.store(channels, std::memory_order_relaxed);
}
