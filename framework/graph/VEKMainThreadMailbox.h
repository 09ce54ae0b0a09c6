#pragma once

#include <QObject>

#include <atomic>

class QSocketNotifier;

// Wakes the main thread from the render thread. post() costs one atomic exchange and, when no
// wake-up is pending yet, one write to an eventfd: no allocation, no lock, no wait. The main
// thread's event loop then emits delivered(), and the owner drains whatever lock-free queue it
// filled before posting.
//
// Threads: made and destroyed on the thread whose event loop delivers (the main thread);
// post() from any thread. Made on a thread without an event loop, it delivers nothing.
class VEKMainThreadMailbox : public QObject {
    Q_OBJECT
public:
    explicit VEKMainThreadMailbox(QObject *parent = nullptr);
    ~VEKMainThreadMailbox() override;

    void post();

signals:
    // On the owning thread, once for one or more posts. Items pushed before a post are visible.
    void delivered();

private:
    void onActivated();

    int m_fd = -1;
    QSocketNotifier *m_notifier = nullptr;
    std::atomic<bool> m_pending{false};
};
