#pragma once

#include <QObject>
#include <QSocketNotifier>
#include <memory>

// Turns SIGINT and SIGTERM into a quit of the main event loop, so the shutdown runs in order on
// the main thread. One per process, alive while the loop runs.
class SignalQuitter : public QObject {
    Q_OBJECT
public:
    explicit SignalQuitter(QObject *parent = nullptr);
    ~SignalQuitter() override;

signals:
    // A signal arrived; QCoreApplication::quit() follows.
    void quitRequested(int signalNumber);

private:
    std::unique_ptr<QSocketNotifier> m_notifier;
};
