#include "VEKAudioFileReadAhead.h"

#include "core/VEKLog.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <pthread.h>

namespace {

// An offline render waits this long in all for a decoder that does not deliver, then gives
// silence rather than hang a conversion forever.
constexpr int maxOfflineWaits = 20000;
constexpr auto offlineWaitStep = std::chrono::microseconds(500);

} // namespace

VEKAudioFileReadAhead::~VEKAudioFileReadAhead() { stop(); }

void VEKAudioFileReadAhead::start(std::shared_ptr<VEKAudioFileReader> reader, quint32 ringFrames, quint64 startFrame)
{
    stop();
    if (!reader)
        return;
    m_reader = std::move(reader);
    m_total = m_reader->frames();
    m_ring.allocate(m_reader->numberOfChannels(), ringFrames);
    m_chunk = std::clamp<quint32>(ringFrames / 4, 256, 4096);
    m_epoch.store(~quint64(0));
    m_endedEpoch.store(~quint64(0));
    m_requestTarget.store(std::min(startFrame, m_total));
    m_requestSequence.fetch_add(1);
    // The render thread does not read now: its state starts afresh, and it adopts the request
    // above as a prepared position.
    m_rtHaveEpoch = false;
    m_rtPreparedPending = false;
    m_quit.store(false);
    m_started.store(true);
    m_thread = std::thread(&VEKAudioFileReadAhead::run, this);
}

void VEKAudioFileReadAhead::stop()
{
    m_started.store(false);
    if (!m_thread.joinable())
        return;
    m_quit.store(true);
    m_wakeup.release();
    m_thread.join();
    m_reader.reset();
}

void VEKAudioFileReadAhead::wake()
{
    if (!m_wakePending.exchange(true))
        m_wakeup.release();
}

void VEKAudioFileReadAhead::run()
{
    pthread_setname_np(pthread_self(), "quivera-decode");
    VEKAudioBufferList chunk(m_reader->numberOfChannels(), m_chunk);
    quint64 handled = ~quint64(0);
    quint64 position = 0;
    bool ended = true;
    while (!m_quit.load()) {
        const quint64 sequence = m_requestSequence.load(std::memory_order_acquire);
        if (sequence != handled) {
            handled = sequence;
            position = m_requestTarget.load();
            m_ring.resetFromProducer();
            ended = position >= m_total;
            m_epochStart.store(position);
            m_epoch.store(sequence, std::memory_order_release);
            if (ended)
                m_endedEpoch.store(sequence, std::memory_order_release);
        }
        if (!ended && m_ring.availableToWrite() >= m_chunk) {
            chunk.setFrames(m_chunk);
            VEKError error;
            const bool ok = m_reader->getAudio(chunk, position, &error);
            if (m_requestSequence.load(std::memory_order_acquire) != handled)
                continue; // a seek came while decoding: this chunk is for nobody
            if (!ok || chunk.frames() == 0) {
                if (!ok)
                    VEKLog(QStringLiteral("Decoding %1 failed at frame %2: %3")
                               .arg(m_reader->URL())
                               .arg(position)
                               .arg(error.text()));
                ended = true;
                m_endedEpoch.store(handled, std::memory_order_release);
                continue;
            }
            m_ring.write(chunk, 0, chunk.frames());
            position += chunk.frames();
            if (position >= m_total) {
                ended = true;
                m_endedEpoch.store(handled, std::memory_order_release);
            }
            continue;
        }
        (void)m_wakeup.try_acquire_for(std::chrono::milliseconds(50));
        m_wakePending.store(false);
    }
}

bool VEKAudioFileReadAhead::prepare(quint64 frame, quint32 frames, int timeoutMs)
{
    if (!m_thread.joinable())
        return false;
    frame = std::min(frame, m_total);
    m_requestTarget.store(frame);
    const quint64 sequence = m_requestSequence.fetch_add(1) + 1;
    wake();
    const quint64 wanted = std::min<quint64>({frames, m_total - frame, m_ring.capacity() - m_chunk});
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (std::chrono::steady_clock::now() < deadline) {
        if (m_epoch.load(std::memory_order_acquire) == sequence
            && (m_ring.availableToRead() >= wanted || m_endedEpoch.load(std::memory_order_acquire) == sequence))
            return true;
        if (m_requestSequence.load() != sequence)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

bool VEKAudioFileReadAhead::syncEpoch()
{
    const quint64 sequence = m_requestSequence.load(std::memory_order_acquire);
    if (sequence != m_rtSequence) {
        // Not ours: the main thread prepared (or the decoder was started) from this frame.
        m_rtSequence = sequence;
        m_rtTarget = m_requestTarget.load();
        m_rtHaveEpoch = false;
        m_rtPreparedPending = true;
        m_rtPreparedFrame = m_rtTarget;
    }
    if (!m_rtHaveEpoch && m_epoch.load(std::memory_order_acquire) == m_rtSequence) {
        m_ringFrame = m_epochStart.load();
        m_rtHaveEpoch = true;
    }
    return m_rtHaveEpoch;
}

void VEKAudioFileReadAhead::request(quint64 frame)
{
    m_requestTarget.store(frame);
    m_rtSequence = m_requestSequence.fetch_add(1, std::memory_order_acq_rel) + 1;
    m_rtTarget = frame;
    m_rtHaveEpoch = false;
    wake();
}

bool VEKAudioFileReadAhead::takePreparedFrame(quint64 *frame)
{
    if (!m_started.load(std::memory_order_acquire))
        return false;
    syncEpoch();
    if (!m_rtPreparedPending)
        return false;
    m_rtPreparedPending = false;
    *frame = m_rtPreparedFrame;
    return true;
}

void VEKAudioFileReadAhead::prefetch(quint64 frame)
{
    if (!m_started.load(std::memory_order_acquire) || frame >= m_total)
        return;
    const quint64 base = syncEpoch() ? m_ringFrame : m_rtTarget;
    if (frame < base || frame - base > m_ring.capacity())
        request(frame);
}

quint32 VEKAudioFileReadAhead::peek(VEKAudioBufferList &list, quint32 frames, quint64 frame)
{
    quint32 got = 0;
    if (m_started.load(std::memory_order_acquire) && frame < m_total && syncEpoch() && frame >= m_ringFrame
        && frame - m_ringFrame <= m_ring.capacity()) {
        m_ringFrame += m_ring.discard(quint32(frame - m_ringFrame));
        if (m_ringFrame == frame)
            got = m_ring.peek(list, 0, frames);
    }
    for (quint32 c = 0; c < list.numberOfChannels(); ++c)
        std::memset(list.channel(c) + got, 0, sizeof(float) * (std::min(frames, list.capacity()) - got));
    return got;
}

quint32 VEKAudioFileReadAhead::read(VEKAudioBufferList &list, quint32 offset, quint32 frames, quint64 frame, bool wait)
{
    quint32 delivered = 0;
    int waits = 0;
    const auto mayWait = [&] {
        if (!wait || waits >= maxOfflineWaits)
            return false;
        ++waits;
        wake();
        std::this_thread::sleep_for(offlineWaitStep);
        return true;
    };
    while (frames > 0 && m_started.load(std::memory_order_acquire) && frame < m_total) {
        if (!syncEpoch()) {
            // Wait for the epoch asked for unless it can never serve this frame.
            if (frame < m_rtTarget || frame - m_rtTarget > m_ring.capacity())
                request(frame);
            if (mayWait())
                continue;
            break;
        }
        if (frame < m_ringFrame || frame - m_ringFrame > m_ring.capacity()) {
            request(frame);
            continue;
        }
        // Frames the render thread missed while the ring ran dry are dropped as they arrive, so
        // the file stays in step with the conductor.
        m_ringFrame += m_ring.discard(quint32(frame - m_ringFrame));
        quint32 got = 0;
        if (m_ringFrame == frame) {
            got = m_ring.read(list, offset, frames);
            m_ringFrame += got;
            frame += got;
            offset += got;
            frames -= got;
            delivered += got;
        }
        if (frames == 0)
            break;
        const bool ended = m_endedEpoch.load(std::memory_order_acquire) == m_rtSequence && m_ring.availableToRead() == 0;
        if (ended)
            break;
        if (got == 0 && !mayWait())
            break;
        if (got > 0 && !wait)
            break;
    }
    if (frames > 0) {
        for (quint32 c = 0; c < list.numberOfChannels(); ++c)
            std::memset(list.channel(c) + offset, 0, sizeof(float) * std::min(frames, list.capacity() - std::min(offset, list.capacity())));
    }
    if (m_ring.availableToWrite() >= m_chunk)
        wake();
    return delivered;
}
