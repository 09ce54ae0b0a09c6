#include "OperationQueue.h"

#include <QCoreApplication>
#include <pthread.h>

OperationQueue::OperationQueue(const char *threadName, QObject *parent) : QObject(parent)
{
    m_worker = std::thread([this, threadName] {
        pthread_setname_np(pthread_self(), threadName);
        run();
    });
}

OperationQueue::~OperationQueue()
{
    {
        std::lock_guard lock(m_mutex);
        m_quit = true;
        for (auto &op : m_pending)
            op->cancel();
        m_pending.clear();
        if (m_running)
            m_running->cancel();
    }
    m_wake.notify_all();
    m_worker.join();
}

void OperationQueue::addOperation(std::shared_ptr<Operation> operation)
{
    if (!operation)
        return;
    int count = 0;
    {
        std::lock_guard lock(m_mutex);
        m_pending.push_back(std::move(operation));
        count = int(m_pending.size()) + (m_running ? 1 : 0);
    }
    m_wake.notify_one();
    emit operationsChanged();
    emit operationCountChanged(count);
}

QList<std::shared_ptr<Operation>> OperationQueue::operations() const
{
    std::lock_guard lock(m_mutex);
    QList<std::shared_ptr<Operation>> list;
    if (m_running)
        list.append(m_running);
    for (const auto &op : m_pending)
        list.append(op);
    return list;
}

int OperationQueue::operationCount() const
{
    std::lock_guard lock(m_mutex);
    return int(m_pending.size()) + (m_running ? 1 : 0);
}

void OperationQueue::cancelAllOperations()
{
    std::deque<std::shared_ptr<Operation>> dropped;
    {
        std::lock_guard lock(m_mutex);
        if (m_running)
            m_running->cancel();
        dropped.swap(m_pending);
    }
    for (auto &op : dropped) {
        op->cancel();
        op->start(); // cancelled: only marks it finished
        reportFinished(op);
    }
    m_idle.notify_all();
}

void OperationQueue::waitUntilAllOperationsAreFinished()
{
    {
        std::unique_lock lock(m_mutex);
        m_idle.wait(lock, [this] { return m_pending.empty() && !m_running; });
    }
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
}

void OperationQueue::run()
{
    std::unique_lock lock(m_mutex);
    while (true) {
        m_wake.wait(lock, [this] { return m_quit || !m_pending.empty(); });
        if (m_quit)
            return;
        m_running = std::move(m_pending.front());
        m_pending.pop_front();
        auto op = m_running;
        lock.unlock();
        // Posted before the finish report, so the main thread hears of them in that order.
        QMetaObject::invokeMethod(
            this, [this, op] { emit operationStarted(op); }, Qt::QueuedConnection);
        op->start();
        reportFinished(op);
        lock.lock();
        m_running.reset();
        if (m_pending.empty())
            m_idle.notify_all();
    }
}

void OperationQueue::reportFinished(std::shared_ptr<Operation> operation)
{
    // Delivered on the queue's own (main) thread, where the merge of results happens.
    QMetaObject::invokeMethod(
        this,
        [this, operation] {
            emit operationFinished(operation);
            emit operationsChanged();
            emit operationCountChanged(operationCount());
        },
        Qt::QueuedConnection);
}
