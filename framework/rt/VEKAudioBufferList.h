#pragma once

#include <QtGlobal>
#include <limits>
#include <vector>

// Non-interleaved 32-bit float audio: one contiguous block of `capacity` frames per channel,
// with `frames` of them valid. Memory is allocated only by the constructor and allocate(), never
// by the operations, so a list made ahead of time can be used on the render thread.
class VEKAudioBufferList {
public:
    static constexpr quint64 NotFound = quint64(std::numeric_limits<qint64>::max());

    VEKAudioBufferList() = default;
    VEKAudioBufferList(quint32 channels, quint32 capacityFrames) { allocate(channels, capacityFrames); }

    // Not on the render thread. Sets frames() to the capacity and zeroes the samples.
    void allocate(quint32 channels, quint32 capacityFrames);

    quint32 numberOfChannels() const { return m_channels; }
    quint32 capacity() const { return m_capacity; }
    quint32 frames() const { return m_frames; }
    // Clamped to the capacity.
    void setFrames(quint32 frames) { m_frames = frames < m_capacity ? frames : m_capacity; }

    float *channel(quint32 c) { return m_data.data() + size_t(c) * m_capacity; }
    const float *channel(quint32 c) const { return m_data.data() + size_t(c) * m_capacity; }

    // Zeroes the valid frames.
    void clear();
    // Linear ramps over the valid frames, from 0 to 1 and from 1 to 0.
    void fadeIn();
    void fadeOut();
    void scale(float gain);
    // Gain ramped linearly from `start` at the first frame towards `end` (reached after the
    // last frame), so consecutive buffers with matching ends join without a step.
    void scaleWithRamp(float start, float end);

    // The first frame (or with `backwards`, the last) where any channel reaches `magnitude` in
    // absolute value; NotFound if none does.
    quint64 frameGreaterThanOrEqualToMagnitude(float magnitude, bool backwards) const;
    // Largest and smallest sample over all channels of the valid frames; 0 for no frames.
    float maximum() const;
    float minimum() const;

    // Copies min(frames) frames of the channels both have; sets frames() to that count.
    void copyFrom(const VEKAudioBufferList &other);

private:
    std::vector<float> m_data;
    quint32 m_channels = 0;
    quint32 m_capacity = 0;
    quint32 m_frames = 0;
};
