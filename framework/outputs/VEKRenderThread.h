#pragma once

#include <atomic>
#include <functional>
#include <thread>

// The thread an output renders on: named (so it shows in top and debuggers) and raised to
// realtime priority when the system allows it, silently left at normal priority when not.
//
// start(), requestStop() and join() belong to the thread that owns the output; the body polls
// stopRequested() between blocks.
class VEKRenderThread {
public:
    VEKRenderThread() = default;
    ~VEKRenderThread() { join(); }
    VEKRenderThread(const VEKRenderThread &) = delete;
    VEKRenderThread &operator=(const VEKRenderThread &) = delete;

    // Runs `body` on a new thread called `name` (a literal of at most 15 characters), joining
    // any earlier one first.
    void start(const char *name, std::function<void()> body);
    void requestStop() { m_stop.store(true, std::memory_order_release); }
    bool stopRequested() const { return m_stop.load(std::memory_order_acquire); }
    // Waits for the body to return; harmless when nothing runs.
    void join();
    // Started and the body has not returned yet.
    bool isRunning() const { return m_running.load(std::memory_order_acquire); }

private:
    std::thread m_thread;
    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_running{false};
};
