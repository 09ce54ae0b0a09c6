#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

// Waiting and running programs while this thread's event loop keeps serving: a test's own
// server, bus object or socket lives on that loop, and a client program talks back to it.
// Everything here is called from the test's thread, the one of the QCoreApplication.
namespace TestEnvironment {

// Runs the event loop until `done` holds or `timeoutMs` passes; returns `done()`.
bool waitUntil(const std::function<bool()> &done, int timeoutMs = 10000);

// Runs a program to its end while the event loop runs. Exit code, or -1 if it did not start
// or finish in time. Standard output and error go to `output`.
int runServing(const QString &program, const QStringList &args, QByteArray *output = nullptr,
               int timeoutMs = 60000, const QStringList &extraEnvironment = {});

// A whole file's bytes; fails the test if it cannot be read.
QByteArray readFile(const QString &path);
// Writes `bytes` as the whole file; false (and a failure) if it cannot be written.
bool writeFile(const QString &path, const QByteArray &bytes);
// SHA-256 of readFile(path): to tell that a file was left alone.
QByteArray fileDigest(const QString &path);

// The system bus of this test process: a socket in its temporary folder, set once into
// DBUS_SYSTEM_BUS_ADDRESS before anything asks for a bus (libdbus reads the address once per
// process), so that no test reaches the machine's own daemon. Returns the socket's path.
QString systemBusSocket();

// A D-Bus system bus at systemBusSocket() and an Avahi daemon of our own, restricted to
// loopback and IPv4. Only one may run at a time: avahi-daemon keeps its pid file at a fixed
// place.
class PrivateAvahi {
public:
    PrivateAvahi();
    ~PrivateAvahi();
    // Each returns empty on success, else why not.
    QString startBus();
    QString startDaemon();
    QString start();
    void stopDaemon();
    // "name port" of each service of `type` avahi-browse finds and resolves.
    QStringList browse(const QString &type);

private:
    QString m_dir;
    QProcess m_bus;
    std::unique_ptr<QProcess> m_daemon;
    QByteArray m_daemonOutput;
};

} // namespace TestEnvironment
