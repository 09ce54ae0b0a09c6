#pragma once

#include "VEKAudioOutput.h"
#include "VEKRenderThread.h"

#include <atomic>

// An output whose device is software: it keeps time with the monotonic clock (paced), or runs
// as fast as the graph renders (unpaced), and hands each rendered block to consume(). The base
// of the null and capture outputs.
//
// Paced, the block for [t, t + n) is asked for at start + t and the next one not before
// start + t + n: a render of 0.5 s takes 0.5 s, as on a card.
class VEKClockedOutput : public VEKAudioOutput {
public:
    ~VEKClockedOutput() override;

    bool open(const VEKAudioFormat &requested, quint32 framesPerBuffer, VEKError *error) override;
    VEKAudioFormat format() const override { return m_format; }
    quint32 framesPerBuffer() const override { return m_framesPerBuffer; }
    bool start(RenderCallback callback, VEKError *error) override;
    void stop() override;
    bool isRunning() const override { return m_thread.isRunning(); }
    void close() override;
    quint64 framesPlayed() const override { return m_played.load(std::memory_order_relaxed); }

protected:
    VEKClockedOutput(bool paced, const char *threadName, double deviceRate);

    // Main thread. The format this output plays `requested` at (rate already resolved); may
    // prepare what consume() needs. False with `error` to refuse.
    virtual bool prepare(const VEKAudioFormat &requested, quint32 framesPerBuffer, VEKError *error) = 0;
    // Render thread, after each block: must not allocate or lock.
    virtual void consume(const VEKAudioBufferList &block) = 0;
    // Main thread, once the render thread has stopped and when the output closes.
    virtual void didStop() {}
    virtual void didClose() {}

    VEKAudioFormat m_format;

private:
    void run();

    const bool m_paced;
    const char *const m_threadName;
    const double m_deviceRate;
    bool m_open = false;
    quint32 m_framesPerBuffer = 0;
    VEKAudioBufferList m_buffer;
    RenderCallback m_callback;
    VEKRenderThread m_thread;
    std::atomic<quint64> m_played{0};
};
