#include "VEKAudioFileAudioGenerator.h"

#include "VEKConductorAudioProcessor.h"

#include <algorithm>
#include <cmath>

VEKAudioFileAudioGenerator::~VEKAudioFileAudioGenerator() { m_readAhead.stop(); }

void VEKAudioFileAudioGenerator::setAudioFile(std::shared_ptr<VEKAudioFileReader> file)
{
    m_playable.store(false, std::memory_order_release);
    m_readAhead.stop();
    m_file = std::move(file);
    m_fileRate.store(m_file ? m_file->sampleRate() : 0.0);
    m_startFrame = 0;
    if (m_file && isInitialized())
        startReadAhead();
}

void VEKAudioFileAudioGenerator::startReadAhead()
{
    const quint32 ring = std::max<quint32>(quint32(std::ceil(m_fileRate.load() * readAheadSeconds)),
                                           16 * maximumFramesToRender());
    m_readAhead.start(m_file, ring, m_startFrame);
    m_seenGeneration = ~quint64(0);
    m_next = m_startFrame;
    m_playable.store(true, std::memory_order_release);
}

void VEKAudioFileAudioGenerator::prepareForPlaybackFromLocation(double seconds)
{
    if (!m_file)
        return;
    m_startFrame = std::min<quint64>(quint64(std::llround(std::max(0.0, seconds) * m_fileRate.load())), m_file->frames());
    if (m_readAhead.isStarted())
        m_readAhead.prepare(m_startFrame, quint32(std::ceil(m_fileRate.load() * preparedSeconds)), 5000);
}

bool VEKAudioFileAudioGenerator::initializeForRender(VEKError *)
{
    m_playable.store(false, std::memory_order_release);
    m_readAhead.stop();
    if (m_file)
        startReadAhead();
    return true;
}

bool VEKAudioFileAudioGenerator::reset(VEKError *)
{
    m_seenGeneration = ~quint64(0);
    return true;
}

bool VEKAudioFileAudioGenerator::uninitialize(VEKError *)
{
    m_playable.store(false, std::memory_order_release);
    m_readAhead.stop();
    return true;
}

void VEKAudioFileAudioGenerator::render(VEKAudioBufferList &list, quint32, const VEKAudioRenderInfo &info)
{
    list.setFrames(info.frames);
    if (!m_playable.load(std::memory_order_acquire)) {
        list.clear();
        return;
    }
    quint64 prepared = 0;
    if (m_readAhead.takePreparedFrame(&prepared))
        m_next = prepared;
    const quint32 n = list.frames();
    const VEKConductorAudioProcessor *timing = conductor();
    if (!timing) {
        m_readAhead.read(list, 0, n, m_next, info.offline);
        m_next += n;
        return;
    }
    const VEKConductorSegment &segment = timing->currentSegment();
    if (segment.generation != m_seenGeneration) {
        m_seenGeneration = segment.generation;
        const double fileRate = m_fileRate.load(std::memory_order_relaxed);
        const qint64 frame = segment.sampleRate == fileRate ? segment.frame
                                                            : std::llround(segment.seconds() * fileRate);
        m_next = quint64(std::max<qint64>(0, frame));
    }
    if (!segment.running) {
        // Stopped: nothing is consumed, but a location set meanwhile starts decoding now.
        m_readAhead.prefetch(m_next);
        list.clear();
        return;
    }
    if (segment.ramp == VEKConductorSegment::Ramp::Out) {
        // The buffer after a stop: its frames are heard again when the transport starts from
        // where it stopped, so they are looked at, not taken.
        if (m_antiClickOnStop.load(std::memory_order_relaxed)) {
            m_readAhead.peek(list, n, m_next);
            list.scaleWithRamp(segment.gainStart, segment.gainEnd);
        } else {
            list.clear();
        }
        return;
    }
    m_readAhead.read(list, 0, n, m_next, info.offline);
    m_next += n;
    if (segment.ramp == VEKConductorSegment::Ramp::In && m_antiClickOnStart.load(std::memory_order_relaxed))
        list.scaleWithRamp(segment.gainStart, segment.gainEnd);
}
