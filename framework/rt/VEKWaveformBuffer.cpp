#include "VEKWaveformBuffer.h"

VEKWaveformBuffer::VEKWaveformBuffer(quint32 channels, quint64 maxFrames)
    : m_channels(channels), m_maxFrames(maxFrames),
      m_values(new std::atomic<float>[size_t(channels) * size_t(maxFrames) * 2]())
{
}

qint64 VEKWaveformBuffer::slot(quint64 frame, quint32 channel, int sign) const
{
    if (frame >= m_maxFrames || channel >= m_channels)
        return -1;
    return qint64((frame * m_channels + channel) * 2 + quint64(sign));
}

void VEKWaveformBuffer::setPositiveValue(float value, quint64 frame, quint32 channel)
{
    const qint64 i = slot(frame, channel, 0);
    if (i >= 0)
        m_values[i].store(value, std::memory_order_relaxed);
}

void VEKWaveformBuffer::setNegativeValue(float value, quint64 frame, quint32 channel)
{
    const qint64 i = slot(frame, channel, 1);
    if (i < 0)
        return;
    m_values[i].store(value, std::memory_order_relaxed);
    if (channel + 1 == m_channels && frame + 1 > m_frames.load(std::memory_order_relaxed))
        m_frames.store(frame + 1, std::memory_order_release);
}

float VEKWaveformBuffer::positiveValueAtFrame(quint64 frame, quint32 channel) const
{
    const qint64 i = slot(frame, channel, 0);
    return i < 0 ? 0.0f : m_values[i].load(std::memory_order_relaxed);
}

float VEKWaveformBuffer::negativeValueAtFrame(quint64 frame, quint32 channel) const
{
    const qint64 i = slot(frame, channel, 1);
    return i < 0 ? 0.0f : m_values[i].load(std::memory_order_relaxed);
}
