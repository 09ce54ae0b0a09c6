#include "VEKAudioBufferList.h"

#include <algorithm>
#include <cmath>
#include <cstring>

void VEKAudioBufferList::allocate(quint32 channels, quint32 capacityFrames)
{
    m_data.assign(size_t(channels) * capacityFrames, 0.0f);
    m_channels = channels;
    m_capacity = capacityFrames;
    m_frames = capacityFrames;
}

void VEKAudioBufferList::clear()
{
    for (quint32 c = 0; c < m_channels; ++c)
        std::memset(channel(c), 0, sizeof(float) * m_frames);
}

void VEKAudioBufferList::fadeIn() { scaleWithRamp(0.0f, 1.0f); }

void VEKAudioBufferList::fadeOut() { scaleWithRamp(1.0f, 0.0f); }

void VEKAudioBufferList::scale(float gain)
{
    if (gain == 1.0f)
        return; // exactly nothing to do: keeps a bit-perfect path bit-perfect
    for (quint32 c = 0; c < m_channels; ++c) {
        float *p = channel(c);
        for (quint32 i = 0; i < m_frames; ++i)
            p[i] *= gain;
    }
}

void VEKAudioBufferList::scaleWithRamp(float start, float end)
{
    if (start == end) {
        scale(start);
        return;
    }
    if (m_frames == 0)
        return;
    const float step = (end - start) / float(m_frames);
    for (quint32 c = 0; c < m_channels; ++c) {
        float *p = channel(c);
        for (quint32 i = 0; i < m_frames; ++i)
            p[i] *= start + step * float(i);
    }
}

quint64 VEKAudioBufferList::frameGreaterThanOrEqualToMagnitude(float magnitude, bool backwards) const
{
    for (quint32 k = 0; k < m_frames; ++k) {
        const quint32 i = backwards ? m_frames - 1 - k : k;
        for (quint32 c = 0; c < m_channels; ++c)
            if (std::fabs(channel(c)[i]) >= magnitude)
                return i;
    }
    return NotFound;
}

float VEKAudioBufferList::maximum() const
{
    float m = 0.0f;
    bool any = false;
    for (quint32 c = 0; c < m_channels; ++c)
        for (quint32 i = 0; i < m_frames; ++i) {
            const float v = channel(c)[i];
            m = any ? std::max(m, v) : v;
            any = true;
        }
    return m;
}

float VEKAudioBufferList::minimum() const
{
    float m = 0.0f;
    bool any = false;
    for (quint32 c = 0; c < m_channels; ++c)
        for (quint32 i = 0; i < m_frames; ++i) {
            const float v = channel(c)[i];
            m = any ? std::min(m, v) : v;
            any = true;
        }
    return m;
}

void VEKAudioBufferList::copyFrom(const VEKAudioBufferList &other)
{
    const quint32 frames = std::min(m_capacity, other.m_frames);
    const quint32 channels = std::min(m_channels, other.m_channels);
    for (quint32 c = 0; c < channels; ++c)
        std::memcpy(channel(c), other.channel(c), sizeof(float) * frames);
    m_frames = frames;
}
