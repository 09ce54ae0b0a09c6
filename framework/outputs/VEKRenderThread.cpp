#include "VEKRenderThread.h"

#include <pthread.h>
#include <sched.h>

namespace {
void raisePriority()
{
    // Below the kernel's own interrupt threads (50) and in the range rtkit and the audio group's
    // limits usually grant; without the right to it the call fails and nothing changes.
    sched_param param{};
    param.sched_priority = 40;
    const int lo = sched_get_priority_min(SCHED_FIFO);
    const int hi = sched_get_priority_max(SCHED_FIFO);
    if (param.sched_priority < lo)
        param.sched_priority = lo;
    if (param.sched_priority > hi)
        param.sched_priority = hi;
    pthread_setschedparam(pthread_self(), SCHED_FIFO, &param);
}
}

void VEKRenderThread::start(const char *name, std::function<void()> body)
{
    join();
    m_stop.store(false, std::memory_order_release);
    m_running.store(true, std::memory_order_release);
    m_thread = std::thread([this, name, body = std::move(body)] {
        pthread_setname_np(pthread_self(), name);
        raisePriority();
        body();
        m_running.store(false, std::memory_order_release);
    });
}

void VEKRenderThread::join()
{
    if (m_thread.joinable()) {
        requestStop();
        m_thread.join();
    }
    m_running.store(false, std::memory_order_release);
}
