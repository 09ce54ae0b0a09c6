#include "Processes.h"

#include "TestEnvironment.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QFile>
#include <QThread>
#include <gtest/gtest.h>

namespace TestEnvironment {

bool waitUntil(const std::function<bool()> &done, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!done()) {
        if (deadline.hasExpired())
            return done();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        // Not a busy loop: the machine is shared with the programs the test waits for.
        QThread::msleep(2);
    }
    return true;
}

int runServing(const QString &program, const QStringList &args, QByteArray *output, int timeoutMs,
               const QStringList &extraEnvironment)
{
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    if (!extraEnvironment.isEmpty())
        p.setEnvironment(QProcess::systemEnvironment() + extraEnvironment);
    QByteArray collected;
    QObject::connect(&p, &QProcess::readyRead, [&] { collected += p.readAll(); });
    p.start(program, args);
    if (!p.waitForStarted(10000))
        return -1;
    const bool finished = waitUntil([&] { return p.state() == QProcess::NotRunning; }, timeoutMs);
    collected += p.readAll();
    if (output)
        *output = collected;
    if (!finished) {
        p.kill();
        p.waitForFinished(2000);
        return -1;
    }
    return p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
}

QByteArray readFile(const QString &path)
{
    QFile f(path);
    EXPECT_TRUE(f.open(QIODevice::ReadOnly)) << path.toStdString();
    return f.readAll();
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    const bool ok = f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size();
    EXPECT_TRUE(ok) << path.toStdString();
    return ok;
}

QByteArray fileDigest(const QString &path)
{
    return QCryptographicHash::hash(readFile(path), QCryptographicHash::Sha256);
}

QString systemBusSocket()
{
    static const QString path = [] {
        const QString socket = root() + QStringLiteral("/system_bus_socket");
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + QFile::encodeName(socket));
        return socket;
    }();
    return path;
}

namespace {
void stopProcess(QProcess &p)
{
    if (p.state() == QProcess::NotRunning)
        return;
    p.terminate();
    if (!p.waitForFinished(5000)) {
        p.kill();
        p.waitForFinished(2000);
    }
}
} // namespace

PrivateAvahi::PrivateAvahi()
{
    m_dir = makeTempDir(QStringLiteral("avahi"));
    writeFile(m_dir + "/bus.conf",
              "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
              " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
              "<busconfig>\n  <type>system</type>\n"
              "  <listen>unix:path=" + QFile::encodeName(systemBusSocket()) + "</listen>\n"
              "  <auth>EXTERNAL</auth>\n"
              "  <policy context=\"default\">\n"
              "    <allow user=\"*\"/>\n    <allow own=\"*\"/>\n"
              "    <allow send_type=\"method_call\"/>\n    <allow send_destination=\"*\"/>\n"
              "    <allow receive_sender=\"*\"/>\n"
              "  </policy>\n</busconfig>\n");
    // Loopback only, IPv4 only, no wide area: nothing reaches the machine's real network.
    writeFile(m_dir + "/avahi.conf",
              "[server]\nuse-ipv4=yes\nuse-ipv6=no\nallow-interfaces=lo\nenable-dbus=yes\n"
              "ratelimit-interval-usec=1000000\nratelimit-burst=1000\n"
              "[wide-area]\nenable-wide-area=no\n"
              "[publish]\npublish-hinfo=no\npublish-workstation=no\npublish-domain=no\n");
}

PrivateAvahi::~PrivateAvahi()
{
    stopDaemon();
    stopProcess(m_bus);
    QFile::remove(systemBusSocket());
}

QString PrivateAvahi::startBus()
{
    const QString socket = systemBusSocket();
    m_bus.setProcessChannelMode(QProcess::MergedChannels);
    m_bus.start("dbus-daemon", {"--config-file=" + m_dir + "/bus.conf", "--nofork", "--nopidfile"});
    if (!m_bus.waitForStarted())
        return "dbus-daemon does not start: " + m_bus.errorString();
    if (!waitUntil([&] { return QFile::exists(socket) || m_bus.state() != QProcess::Running; })
        || m_bus.state() != QProcess::Running)
        return "dbus-daemon made no socket: " + QString::fromLocal8Bit(m_bus.readAll());
    return {};
}

QString PrivateAvahi::startDaemon()
{
    m_daemonOutput.clear();
    m_daemon = std::make_unique<QProcess>();
    m_daemon->setProcessChannelMode(QProcess::MergedChannels);
    QObject::connect(m_daemon.get(), &QProcess::readyRead,
                     [this] { m_daemonOutput += m_daemon->readAll(); });
    m_daemon->start("avahi-daemon", {"-f", m_dir + "/avahi.conf", "--no-drop-root", "--no-chroot",
                                     "--no-rlimits"});
    if (!m_daemon->waitForStarted())
        return "avahi-daemon does not start: " + m_daemon->errorString();
    const bool up = waitUntil([&] {
        return m_daemonOutput.contains("Server startup complete")
               || m_daemon->state() != QProcess::Running;
    }, 15000);
    if (!up || m_daemon->state() != QProcess::Running)
        return "avahi-daemon did not come up: " + QString::fromLocal8Bit(m_daemonOutput);
    return {};
}

QString PrivateAvahi::start()
{
    const QString busProblem = startBus();
    return busProblem.isEmpty() ? startDaemon() : busProblem;
}

void PrivateAvahi::stopDaemon()
{
    if (m_daemon)
        stopProcess(*m_daemon);
    m_daemon.reset();
}

QStringList PrivateAvahi::browse(const QString &type)
{
    QByteArray out;
    runServing("avahi-browse", {"-rtp", type}, &out, 20000);
    QStringList found;
    for (const QByteArray &line : out.split('\n')) {
        const QList<QByteArray> f = line.split(';');
        if (f.size() >= 9 && f.at(0) == "=")
            found.append(QString::fromUtf8(f.at(3)) + ' ' + QString::fromUtf8(f.at(8)));
    }
    found.removeDuplicates();
    return found;
}

} // namespace TestEnvironment
