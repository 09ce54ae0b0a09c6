#pragma once

#include "Operation.h"

#include <QList>
#include <QObject>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

// The one background queue: a worker thread that runs one Operation at a time, in the order
// they were added. Lives on the main thread; its signals are delivered there.
class OperationQueue : public QObject {
    Q_OBJECT
public:
    // threadName names the worker for gdb and top: at most 15 characters (the kernel's limit), and
    // a literal, since the worker keeps the pointer.
    explicit OperationQueue(const char *threadName = "quivera-ops", QObject *parent = nullptr);
    // Cancels what is queued, asks the running operation to stop and joins the worker.
    ~OperationQueue() override;

    void addOperation(std::shared_ptr<Operation> operation);

    // Queued and running operations, in order. Any thread.
    QList<std::shared_ptr<Operation>> operations() const;
    int operationCount() const;

    // Cancels every operation; those not yet started are dropped (and reported as finished).
    // Does not wait.
    void cancelAllOperations();

    // Blocks until the queue is empty, then delivers the pending finish reports on the calling
    // (main) thread. For the CLI and tests, which must drain before they quit.
    void waitUntilAllOperationsAreFinished();

signals:
    void operationsChanged();
    void operationCountChanged(int count);
    // On the main thread, when the worker has taken the operation up (before its finish report).
    // An operation cancelled before it ran reports only its finish.
    void operationStarted(std::shared_ptr<Operation> operation);
    // On the main thread, after the operation has finished (cancelled or not).
    void operationFinished(std::shared_ptr<Operation> operation);

private:
    void run();
    void reportFinished(std::shared_ptr<Operation> operation);

    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::condition_variable m_idle;
    std::deque<std::shared_ptr<Operation>> m_pending;
    std::shared_ptr<Operation> m_running;
    bool m_quit = false;
    std::thread m_worker;
};
