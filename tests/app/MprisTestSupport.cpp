#include "MprisTestSupport.h"


PrivateSessionBus::PrivateSessionBus()
{
    m_daemon.start(QStringLiteral("dbus-daemon"), {QStringLiteral("--session"), QStringLiteral("--nofork"),
                                                   QStringLiteral("--print-address")});
    if (m_daemon.waitForStarted() && m_daemon.waitForReadyRead(10000))
        m_address = QString::fromUtf8(m_daemon.readLine()).trimmed();
}

PrivateSessionBus::~PrivateSessionBus()
{
    m_daemon.kill();
    m_daemon.waitForFinished();
}

QProcessEnvironment PrivateSessionBus::environment() const
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), m_address);
    return env;
}

SpinningRun runSpinning(const QString &program, const QStringList &args,
                        const QProcessEnvironment &environment, int timeoutMs)
{
    QProcess p;
    p.setProcessEnvironment(environment);
    p.start(program, args);
    SpinningRun r;
    if (!p.waitForStarted())
        return r;
    if (!waitUntil([&] { return p.state() == QProcess::NotRunning; }, timeoutMs)) {
        p.kill();
        p.waitForFinished();
        return r;
    }
    r.out = p.readAllStandardOutput();
    r.err = p.readAllStandardError();
    r.status = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    return r;
}

bool MprisSignalRecorder::listen(QDBusConnection connection, const QString &service)
{
    const QString path = QStringLiteral("/org/mpris/MediaPlayer2");
    return connection.connect(service, path, QStringLiteral("org.freedesktop.DBus.Properties"),
                              QStringLiteral("PropertiesChanged"), this,
                              SLOT(propertiesChanged(QString, QVariantMap, QStringList)))
           && connection.connect(service, path, QStringLiteral("org.mpris.MediaPlayer2.Player"),
                                 QStringLiteral("Seeked"), this, SLOT(seeked(qlonglong)));
}

QVariantMap MprisSignalRecorder::latest() const
{
    QVariantMap all;
    for (const QVariantMap &change : changes)
        all.insert(change);
    return all;
}

void MprisSignalRecorder::propertiesChanged(const QString &interface, const QVariantMap &changed,
                                            const QStringList &)
{
    if (interface == QLatin1String("org.mpris.MediaPlayer2.Player"))
        changes.append(changed);
}

void MprisSignalRecorder::seeked(qlonglong position) { seeks.append(position); }
