#include "VEKAudioFileReaderAudioProcessor.h"

#include <algorithm>
#include <cmath>
#include <cstring>

VEKAudioFileReaderAudioProcessor::~VEKAudioFileReaderAudioProcessor() = default;

void VEKAudioFileReaderAudioProcessor::setAudioFile(std::shared_ptr<VEKAudioFileReader> file)
{
    m_file = std::move(file);
    rewind();
}

void VEKAudioFileReaderAudioProcessor::setStartFrame(quint64 frame)
{
    m_startFrame = frame;
    rewind();
}

void VEKAudioFileReaderAudioProcessor::setStartLocation(double seconds)
{
    const double rate = m_file ? m_file->sampleRate() : 0.0;
    setStartFrame(seconds > 0.0 && rate > 0.0 ? quint64(std::llround(seconds * rate)) : 0);
}

void VEKAudioFileReaderAudioProcessor::rewind()
{
    m_position = m_startFrame;
    m_bufferStart = m_startFrame;
    m_buffer.setFrames(0);
    m_atEnd = false;
    m_failed = false;
}

bool VEKAudioFileReaderAudioProcessor::initializeForRender(VEKError *)
{
    const VEKAudioConnection *out = outputConnection();
    const quint32 channels = out ? out->numberOfChannels() : (m_file ? m_file->numberOfChannels() : 2);
    m_buffer.allocate(std::max<quint32>(1, channels), std::max<quint32>(maximumFramesToRender(), 4096));
    rewind();
    return true;
}

bool VEKAudioFileReaderAudioProcessor::reset(VEKError *)
{
    rewind();
    return true;
}

bool VEKAudioFileReaderAudioProcessor::uninitialize(VEKError *)
{
    m_buffer = VEKAudioBufferList();
    return true;
}

void VEKAudioFileReaderAudioProcessor::render(VEKAudioBufferList &list, quint32, const VEKAudioRenderInfo &info)
{
    list.setFrames(info.frames);
    list.clear();
    if (!m_file || !info.offline || m_buffer.capacity() == 0)
        return;
    const quint32 channels = std::min(list.numberOfChannels(), m_buffer.numberOfChannels());
    quint32 done = 0;
    while (done < info.frames) {
        const quint64 bufferEnd = m_bufferStart + m_buffer.frames();
        if (m_position >= bufferEnd) {
            if (m_atEnd)
                break;
            m_bufferStart = m_position;
            m_buffer.setFrames(m_buffer.capacity());
            if (!m_file->getAudio(m_buffer, m_position)) {
                // What did arrive is kept; the rest stays silent.
                m_failed = true;
                m_atEnd = true;
            }
            if (m_buffer.frames() == 0) {
                m_atEnd = true;
                break;
            }
            continue;
        }
        const quint32 offset = quint32(m_position - m_bufferStart);
        const quint32 n = std::min<quint32>(info.frames - done, quint32(bufferEnd - m_position));
        for (quint32 c = 0; c < channels; ++c)
            std::memcpy(list.channel(c) + done, m_buffer.channel(c) + offset, sizeof(float) * n);
        done += n;
        m_position += n;
    }
}
