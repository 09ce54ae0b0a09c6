#pragma once

#include "VEKAudioBufferList.h"

#include <QtGlobal>
#include <atomic>
#include <vector>

// Non-interleaved float frames passed from one producer thread (a decoder) to one consumer thread
// (the render thread), without locks. Memory is taken by allocate() only.
//
// Threads: allocate() while neither side runs; write() and resetFromProducer() on the producer;
// read(), peek() and discard() on the consumer; the counts on either side.
class VEKAudioRingBuffer {
public:
    VEKAudioRingBuffer() = default;
    VEKAudioRingBuffer(const VEKAudioRingBuffer &) = delete;
    VEKAudioRingBuffer &operator=(const VEKAudioRingBuffer &) = delete;

    // Empties the ring and gives it room for `capacityFrames` frames of `channels` channels.
    void allocate(quint32 channels, quint32 capacityFrames);

    quint32 numberOfChannels() const { return m_channels; }
    quint32 capacity() const { return m_capacity; }
    quint32 availableToRead() const;
    quint32 availableToWrite() const;

    // Producer. Appends up to `frames` frames from `source` starting at frame `offset`, as many as
    // fit; channels the source lacks are written as silence. Returns the count appended.
    quint32 write(const VEKAudioBufferList &source, quint32 offset, quint32 frames);
    // Producer. Drops everything unread. Only when the consumer has promised not to read until
    // told otherwise (the read-ahead's seek protocol guarantees that).
    void resetFromProducer();

    // Consumer. Moves up to `frames` frames into `dest` at frame `offset` (dest's frames() is not
    // changed); channels the ring lacks are zeroed. Returns the count moved.
    quint32 read(VEKAudioBufferList &dest, quint32 offset, quint32 frames);
    // Consumer. The same as read() but leaves the frames in the ring.
    quint32 peek(VEKAudioBufferList &dest, quint32 offset, quint32 frames) const;
    // Consumer. Drops up to `frames` frames; returns the count dropped.
    quint32 discard(quint32 frames);

private:
    std::vector<float> m_data;
    quint32 m_channels = 0;
    quint32 m_capacity = 0;
    // Running totals; their difference is the fill. 64 bits never wrap in practice.
    alignas(64) std::atomic<quint64> m_written{0};
    alignas(64) std::atomic<quint64> m_read{0};
};
