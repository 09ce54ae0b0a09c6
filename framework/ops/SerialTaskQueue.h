#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

// Runs tasks one after another on a thread of its own, in the order they were added. The
// library file's background writes go through one of these, so the writes of a playlist reach
// the file in the order the user made them.
class SerialTaskQueue {
public:
    // threadName names the thread for gdb and top: at most 15 characters (the kernel's limit), and
    // a literal, since the thread keeps the pointer.
    explicit SerialTaskQueue(const char *threadName = "quivera-serial");
    // Runs what is still queued, then joins the thread: nothing queued is lost.
    ~SerialTaskQueue();
    SerialTaskQueue(const SerialTaskQueue &) = delete;
    SerialTaskQueue &operator=(const SerialTaskQueue &) = delete;

    void async(std::function<void()> task);

    // Blocks until every task added so far has run.
    void flush();

    bool isIdle() const;

private:
    void run();

    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::condition_variable m_idle;
    std::deque<std::function<void()>> m_tasks;
    bool m_busy = false;
    bool m_quit = false;
    std::thread m_thread;
};
