#include "SerialTaskQueue.h"

#include <pthread.h>

SerialTaskQueue::SerialTaskQueue(const char *threadName)
{
    m_thread = std::thread([this, threadName] {
        pthread_setname_np(pthread_self(), threadName);
        run();
    });
}

SerialTaskQueue::~SerialTaskQueue()
{
    {
        std::lock_guard lock(m_mutex);
        m_quit = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

void SerialTaskQueue::async(std::function<void()> task)
{
    {
        std::lock_guard lock(m_mutex);
        m_tasks.push_back(std::move(task));
    }
    m_wake.notify_one();
}

void SerialTaskQueue::flush()
{
    std::unique_lock lock(m_mutex);
    m_idle.wait(lock, [this] { return m_tasks.empty() && !m_busy; });
}

bool SerialTaskQueue::isIdle() const
{
    std::lock_guard lock(m_mutex);
    return m_tasks.empty() && !m_busy;
}

void SerialTaskQueue::run()
{
    std::unique_lock lock(m_mutex);
    while (true) {
        m_wake.wait(lock, [this] { return m_quit || !m_tasks.empty(); });
        if (m_tasks.empty()) {
            if (m_quit)
                return;
            continue;
        }
        auto task = std::move(m_tasks.front());
        m_tasks.pop_front();
        m_busy = true;
        lock.unlock();
        task();
        lock.lock();
        m_busy = false;
        if (m_tasks.empty())
            m_idle.notify_all();
    }
}
