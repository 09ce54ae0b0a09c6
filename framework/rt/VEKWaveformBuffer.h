#pragma once

#include <QtGlobal>

#include <atomic>
#include <memory>

// Columns of a waveform (the largest and smallest sample of each stretch of audio) that one
// thread appends while another draws them, without a lock.
//
// Writer: for each column, setPositiveValue() then setNegativeValue(); setting the negative value
// of the last channel publishes the column. Columns at and past maxFrames() are dropped without
// harm, since the reading that fills them may run on a little past the width it asked for.
// Reader (any one other thread): frames(), then the values of columns below it, which are
// complete and never change afterwards.
class VEKWaveformBuffer {
public:
    VEKWaveformBuffer(quint32 channels, quint64 maxFrames);

    VEKWaveformBuffer(const VEKWaveformBuffer &) = delete;
    VEKWaveformBuffer &operator=(const VEKWaveformBuffer &) = delete;

    quint32 numberOfChannels() const { return m_channels; }
    quint64 maxFrames() const { return m_maxFrames; }

    // Writer only.
    void setPositiveValue(float value, quint64 frame, quint32 channel = 0);
    void setNegativeValue(float value, quint64 frame, quint32 channel = 0);

    // Reader. Published columns, at most maxFrames().
    quint64 frames() const { return m_frames.load(std::memory_order_acquire); }
    // 0 for a column or channel outside the buffer.
    float positiveValueAtFrame(quint64 frame, quint32 channel = 0) const;
    float negativeValueAtFrame(quint64 frame, quint32 channel = 0) const;

private:
    // Index of (frame, channel, sign) in m_values, or -1 outside.
    qint64 slot(quint64 frame, quint32 channel, int sign) const;

    const quint32 m_channels;
    const quint64 m_maxFrames;
    // Relaxed atomics: the values are ordered by the release of m_frames, and a reader that
    // looks at an unpublished column still reads a defined (if meaningless) number.
    std::unique_ptr<std::atomic<float>[]> m_values;
    std::atomic<quint64> m_frames{0};
};
