#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

// Helpers of the remote's tests: the Python client, processes run while our event loop keeps
// serving, and a private Avahi daemon on loopback.
namespace RemoteTestSupport {

// tests/remote/remote_client.py of the source tree.
QString clientScript();

// Runs the event loop until `done` holds or `timeoutMs` passes; returns `done()`.
bool waitUntil(const std::function<bool()> &done, int timeoutMs = 10000);

// Runs a program to its end while this thread's event loop runs. Exit code, or -1 if it did not
// start or finish in time. Standard output and error go to `output`.
int runServing(const QString &program, const QStringList &args, QByteArray *output = nullptr,
               int timeoutMs = 60000, const QStringList &extraEnvironment = {});

// The Python client with `args`, as runServing runs it.
int runClient(const QStringList &args, QByteArray *output = nullptr, int timeoutMs = 60000);

// The system bus of this test process: a socket in its temporary folder, set once into
// DBUS_SYSTEM_BUS_ADDRESS before anything asks for a bus, so that no test reaches the machine's
// own daemon. Returns the socket's path.
QString systemBusSocket();

// A D-Bus system bus and an Avahi daemon of our own, restricted to loopback and IPv4.
class PrivateAvahi {
public:
    PrivateAvahi();
    ~PrivateAvahi();
    // Empty on success, else why not.
    QString start();
    // "name port" of each service of `type` avahi-browse finds and resolves.
    QStringList browse(const QString &type);

private:
    QString m_dir;
    QProcess m_bus;
    QProcess m_daemon;
    QByteArray m_daemonOutput;
};

} // namespace RemoteTestSupport
