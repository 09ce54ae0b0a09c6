#pragma once

#include "support/CliHarness.h"
#include "support/Processes.h"

#include <QByteArray>
#include <QDBusConnection>
#include <QObject>
#include <QProcess>
#include <QStringList>
#include <QVariantMap>

// A session bus of the test's own: dbus-daemon --session, killed at the end.
class PrivateSessionBus {
public:
    PrivateSessionBus();
    ~PrivateSessionBus();
    // Empty if the daemon did not start.
    const QString &address() const { return m_address; }
    // The environment of a child process that should use this bus.
    QProcessEnvironment environment() const;

private:
    QProcess m_daemon;
    QString m_address;
};

using TestEnvironment::waitUntil;

using SpinningRun = CliHarness::Result;
// Runs a program to its end while this thread keeps serving the bus: a client such as playerctl
// calls back into the objects of this process.
SpinningRun runSpinning(const QString &program, const QStringList &args,
                        const QProcessEnvironment &environment, int timeoutMs = 30000);

// Records the MPRIS signals of one bus name: PropertiesChanged of the player interface and
// Seeked.
class MprisSignalRecorder : public QObject {
    Q_OBJECT
public:
    bool listen(QDBusConnection connection, const QString &service);

    QList<QVariantMap> changes;
    QList<qlonglong> seeks;
    // Every property named in `changes` since the start, with its last value.
    QVariantMap latest() const;

public slots:
    void propertiesChanged(const QString &interface, const QVariantMap &changed,
                           const QStringList &invalidated);
    void seeked(qlonglong position);
};
