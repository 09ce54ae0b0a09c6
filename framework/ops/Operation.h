#pragma once

#include <QObject>
#include <atomic>

// A unit of background work for an OperationQueue. Subclasses implement main(), which runs on
// the queue's worker thread, check isCancelled() at sensible points and publish progress().
// The queue drives the states: executing while main() runs; finished is raised before executing
// is cleared, so an observer never sees an operation that is neither.
class Operation : public QObject {
    Q_OBJECT
public:
    explicit Operation(QObject *parent = nullptr);
    ~Operation() override;

    // Runs main() with the state changes around it. Called by the queue on its worker; may be
    // called directly (tests, or a command that wants the work on its own thread).
    void start();

    // Asks the operation to stop at its next check. Any thread.
    void cancel() { m_cancelled.store(true); }
    bool isCancelled() const { return m_cancelled.load(); }
    bool isExecuting() const { return m_executing.load(); }
    bool isFinished() const { return m_finished.load(); }

    // 0 to 1, polled by views; no change notice. Any thread.
    float progress() const { return m_progress.load(std::memory_order_relaxed); }

protected:
    virtual void main() = 0;
    void setProgress(float value) { m_progress.store(value, std::memory_order_relaxed); }

private:
    std::atomic<bool> m_cancelled{false};
    std::atomic<bool> m_executing{false};
    std::atomic<bool> m_finished{false};
    std::atomic<float> m_progress{0.0f};
};
