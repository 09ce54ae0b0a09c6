#include "ops/OperationQueue.h"
#include "ops/SerialTaskQueue.h"

#include <QCoreApplication>
#include <QThread>
#include <atomic>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>
#include <vector>

namespace {
std::string currentThreadName()
{
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof name);
    return name;
}

// What the probes of one test saw: the order they ran in and whether two ever overlapped.
struct Runs {
    std::vector<int> log;
    std::atomic<int> running{0};
    std::atomic<bool> overlap{false};
};

class Probe : public Operation {
public:
    Probe(int id, Runs *runs, int sleepMs = 5) : m_id(id), m_runs(runs), m_sleepMs(sleepMs) {}
    QThread *thread = nullptr;
    std::string threadName;

protected:
    void main() override
    {
        thread = QThread::currentThread();
        threadName = currentThreadName();
        if (m_runs->running.fetch_add(1) != 0)
            m_runs->overlap.store(true);
        for (int i = 0; i < m_sleepMs && !isCancelled(); ++i)
            QThread::msleep(1);
        m_runs->log.push_back(m_id);
        setProgress(1.0f);
        m_runs->running.fetch_sub(1);
    }

private:
    int m_id;
    Runs *m_runs;
    int m_sleepMs;
};
}

TEST(OperationQueue, RunsOneOperationAtATimeInOrderOffTheMainThreadOnTheNamedWorker)
{
    OperationQueue queue("quivera-wave");
    Runs runs;
    std::vector<std::shared_ptr<Probe>> probes;
    std::vector<int> finishedOnMain;
    // Each operation's start and finish, as the main thread hears of them.
    std::vector<std::string> reports;
    const auto idOf = [&probes](const std::shared_ptr<Operation> &op) {
        for (size_t i = 0; i < probes.size(); ++i)
            if (probes[i] == op)
                return std::to_string(i);
        return std::string("?");
    };
    QObject::connect(&queue, &OperationQueue::operationStarted, [&](std::shared_ptr<Operation> op) {
        EXPECT_EQ(QThread::currentThread(), QCoreApplication::instance()->thread());
        reports.push_back("s" + idOf(op));
    });
    QObject::connect(&queue, &OperationQueue::operationFinished, [&](std::shared_ptr<Operation> op) {
        EXPECT_EQ(QThread::currentThread(), QCoreApplication::instance()->thread());
        EXPECT_TRUE(op->isFinished());
        EXPECT_FALSE(op->isExecuting());
        finishedOnMain.push_back(int(finishedOnMain.size()));
        reports.push_back("f" + idOf(op));
    });
    for (int i = 0; i < 5; ++i) {
        probes.push_back(std::make_shared<Probe>(i, &runs));
        queue.addOperation(probes.back());
    }
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(runs.log, (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_FALSE(runs.overlap.load());
    EXPECT_EQ(finishedOnMain.size(), 5u);
    EXPECT_EQ(reports, (std::vector<std::string>{"s0", "f0", "s1", "f1", "s2", "f2", "s3", "f3", "s4", "f4"}));
    EXPECT_EQ(queue.operationCount(), 0);
    EXPECT_NE(probes[0]->thread, QThread::currentThread());
    EXPECT_EQ(probes[0]->threadName, "quivera-wave");
    EXPECT_FLOAT_EQ(probes[4]->progress(), 1.0f);
}

TEST(OperationQueue, CancelAllStopsTheRunningOneAndDropsThePending)
{
    OperationQueue queue;
    Runs runs;
    auto slow = std::make_shared<Probe>(0, &runs, 5000);
    auto later = std::make_shared<Probe>(1, &runs);
    int finished = 0;
    QObject::connect(&queue, &OperationQueue::operationFinished, [&] { ++finished; });
    queue.addOperation(slow);
    queue.addOperation(later);
    EXPECT_EQ(queue.operationCount(), 2);
    while (!slow->isExecuting())
        QThread::msleep(1);
    queue.cancelAllOperations();
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_TRUE(slow->isCancelled());
    EXPECT_TRUE(later->isFinished());
    EXPECT_EQ(runs.log, (std::vector<int>{0})); // the pending one never ran its work
    EXPECT_EQ(finished, 2);
}

TEST(SerialTaskQueue, KeepsOrderAndLosesNothingAtDestructionOnTheNamedWorker)
{
    std::vector<int> seen;
    std::string workerName;
    {
        SerialTaskQueue q("quivera-db");
        q.async([&workerName] { workerName = currentThreadName(); });
        for (int i = 0; i < 100; ++i)
            q.async([&seen, i] {
                if (i % 10 == 0)
                    QThread::usleep(200);
                seen.push_back(i);
            });
        q.flush();
        EXPECT_EQ(seen.size(), 100u);
        EXPECT_TRUE(q.isIdle());
        for (int i = 100; i < 150; ++i)
            q.async([&seen, i] { seen.push_back(i); });
    }
    EXPECT_EQ(workerName, "quivera-db");
    ASSERT_EQ(seen.size(), 150u);
    for (int i = 0; i < 150; ++i)
        EXPECT_EQ(seen[size_t(i)], i);
}
