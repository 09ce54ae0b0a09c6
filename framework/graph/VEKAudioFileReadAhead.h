#pragma once

#include "io/VEKAudioFileReader.h"
#include "rt/VEKAudioRingBuffer.h"

#include <atomic>
#include <memory>
#include <semaphore>
#include <thread>

// A file's frames decoded ahead of the render thread: one decoder thread ("quivera-decode")
// reads with VEKAudioFileReader::getAudio into a lock-free ring that the render thread drains.
//
// Seeking is a request, not a wait: whoever wants frames from elsewhere (the render thread after
// a jump it could not serve from the ring, or the main thread preparing) stores a target and bumps
// a request number. The decoder empties the ring, decodes from the target, and publishes the
// request number as the ring's new "epoch". The render thread reads nothing until the epoch it
// asked for is there, so the decoder may empty the ring under it.
//
// Threads: start(), stop(), prepare() on the main thread, while the render thread does not read
// this read-ahead (its branch is inactive or not yet in a plan). read(), prefetch(),
// takePreparedFrame() on the render thread.
class VEKAudioFileReadAhead {
public:
    VEKAudioFileReadAhead() = default;
    ~VEKAudioFileReadAhead();
    VEKAudioFileReadAhead(const VEKAudioFileReadAhead &) = delete;
    VEKAudioFileReadAhead &operator=(const VEKAudioFileReadAhead &) = delete;

    // Starts decoding `reader` from `startFrame` into a ring of `ringFrames` frames. The reader
    // belongs to the decoder thread until stop().
    void start(std::shared_ptr<VEKAudioFileReader> reader, quint32 ringFrames, quint64 startFrame);
    // Ends the decoder thread and returns when it has ended. Harmless when not started.
    void stop();
    bool isStarted() const { return m_thread.joinable(); }

    // Asks for the frames from `frame` on and waits until `frames` of them are decoded (fewer at
    // the end of the file), the decoder fails, or `timeoutMs` passes. True when they are there.
    bool prepare(quint64 frame, quint32 frames, int timeoutMs);

    // Render thread. Once after a prepare(): the frame it prepared, which the caller continues
    // from. False otherwise.
    bool takePreparedFrame(quint64 *frame);
    // Render thread. Asks for `frame` to be decoded if the ring cannot serve it, without reading.
    void prefetch(quint64 frame);
    // Render thread. Puts file frames [frame, frame + frames) into `list` at `offset`, zeroing
    // what is not decoded yet or lies past the end; returns the frames delivered. With `wait`
    // (offline streams) it waits for the decoder instead of giving silence.
    quint32 read(VEKAudioBufferList &list, quint32 offset, quint32 frames, quint64 frame, bool wait);
    // Render thread. Like read() without waiting, but the frames stay in the ring, so the next
    // read from `frame` gets them again (a fade-out after a stop, heard again when playing on).
    quint32 peek(VEKAudioBufferList &list, quint32 frames, quint64 frame);

    quint64 totalFrames() const { return m_total; }

private:
    void run();
    void wake();
    void request(quint64 frame);
    // Render thread: adopts a request made elsewhere and the epoch once it is published. False
    // while the ring does not yet hold the epoch asked for.
    bool syncEpoch();

    std::shared_ptr<VEKAudioFileReader> m_reader;
    VEKAudioRingBuffer m_ring;
    std::thread m_thread;
    quint64 m_total = 0;
    quint32 m_chunk = 4096;

    std::atomic<bool> m_quit{false};
    std::counting_semaphore<> m_wakeup{0};
    std::atomic<bool> m_wakePending{false};
    std::atomic<quint64> m_requestTarget{0};
    std::atomic<quint64> m_requestSequence{0};
    // Published by the decoder: the request the ring now serves, its first frame, and the last
    // request whose decoding reached the end of the file (or failed).
    std::atomic<quint64> m_epoch{~quint64(0)};
    std::atomic<quint64> m_epochStart{0};
    std::atomic<quint64> m_endedEpoch{~quint64(0)};

    // Render thread state.
    quint64 m_rtSequence = 0;
    quint64 m_rtTarget = 0;
    bool m_rtHaveEpoch = false;
    quint64 m_ringFrame = 0;
    bool m_rtPreparedPending = false;
    quint64 m_rtPreparedFrame = 0;
    std::atomic<bool> m_started{false};
};
