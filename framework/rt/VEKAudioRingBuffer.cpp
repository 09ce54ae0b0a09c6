#include "VEKAudioRingBuffer.h"

#include <algorithm>
#include <cstring>

void VEKAudioRingBuffer::allocate(quint32 channels, quint32 capacityFrames)
{
    m_data.assign(size_t(channels) * capacityFrames, 0.0f);
    m_channels = channels;
    m_capacity = capacityFrames;
    m_written.store(0);
    m_read.store(0);
}

quint32 VEKAudioRingBuffer::availableToRead() const
{
    return quint32(m_written.load(std::memory_order_acquire) - m_read.load(std::memory_order_acquire));
}

quint32 VEKAudioRingBuffer::availableToWrite() const { return m_capacity - availableToRead(); }

quint32 VEKAudioRingBuffer::write(const VEKAudioBufferList &source, quint32 offset, quint32 frames)
{
    const quint64 w = m_written.load(std::memory_order_relaxed);
    const quint64 r = m_read.load(std::memory_order_acquire);
    const quint32 room = m_capacity - quint32(w - r);
    const quint32 n = std::min(frames, room);
    if (n == 0)
        return 0;
    const quint32 start = quint32(w % m_capacity);
    const quint32 first = std::min(n, m_capacity - start);
    for (quint32 c = 0; c < m_channels; ++c) {
        float *ring = m_data.data() + size_t(c) * m_capacity;
        if (c < source.numberOfChannels()) {
            const float *src = source.channel(c) + offset;
            std::memcpy(ring + start, src, sizeof(float) * first);
            std::memcpy(ring, src + first, sizeof(float) * (n - first));
        } else {
            std::memset(ring + start, 0, sizeof(float) * first);
            std::memset(ring, 0, sizeof(float) * (n - first));
        }
    }
    m_written.store(w + n, std::memory_order_release);
    return n;
}

void VEKAudioRingBuffer::resetFromProducer()
{
    m_read.store(m_written.load(std::memory_order_relaxed), std::memory_order_release);
}

quint32 VEKAudioRingBuffer::read(VEKAudioBufferList &dest, quint32 offset, quint32 frames)
{
    const quint32 n = peek(dest, offset, frames);
    m_read.store(m_read.load(std::memory_order_relaxed) + n, std::memory_order_release);
    return n;
}

quint32 VEKAudioRingBuffer::peek(VEKAudioBufferList &dest, quint32 offset, quint32 frames) const
{
    const quint64 r = m_read.load(std::memory_order_relaxed);
    const quint64 w = m_written.load(std::memory_order_acquire);
    const quint32 n = std::min({frames, quint32(w - r), dest.capacity() - std::min(offset, dest.capacity())});
    if (n == 0)
        return 0;
    const quint32 start = quint32(r % m_capacity);
    const quint32 first = std::min(n, m_capacity - start);
    for (quint32 c = 0; c < dest.numberOfChannels(); ++c) {
        float *out = dest.channel(c) + offset;
        if (c < m_channels) {
            const float *ring = m_data.data() + size_t(c) * m_capacity;
            std::memcpy(out, ring + start, sizeof(float) * first);
            std::memcpy(out + first, ring, sizeof(float) * (n - first));
        } else {
            std::memset(out, 0, sizeof(float) * n);
        }
    }
    return n;
}

quint32 VEKAudioRingBuffer::discard(quint32 frames)
{
    const quint64 r = m_read.load(std::memory_order_relaxed);
    const quint64 w = m_written.load(std::memory_order_acquire);
    const quint32 n = std::min(frames, quint32(w - r));
    m_read.store(r + n, std::memory_order_release);
    return n;
}
