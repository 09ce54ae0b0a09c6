#include "TestEnvironment.h"

#include "settings/UserDefaults.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {
QTemporaryDir *g_root = nullptr;
int g_counter = 0;
}

namespace TestEnvironment {

void setUpProcess()
{
    g_root = new QTemporaryDir(QDir::tempPath() + QStringLiteral("/quivera-test-XXXXXX"));
    const QString base = g_root->path();
    for (const char *dir : {"config", "data", "run"})
        QDir().mkpath(base + QLatin1Char('/') + QLatin1String(dir));
    QFile::setPermissions(base + QStringLiteral("/run"),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(base + QStringLiteral("/config")));
    qputenv("XDG_DATA_HOME", QFile::encodeName(base + QStringLiteral("/data")));
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(base + QStringLiteral("/run")));
    qputenv("HOME", QFile::encodeName(base));
    // The player started by a test (and its children) must not reach the machine's buses or
    // announce itself on a real network: no session or system bus unless a test starts its own,
    // and the remote service on a free port so parallel tests never fight over 8383.
    const QByteArray nowhere = "unix:path=" + QFile::encodeName(base + QStringLiteral("/run/no-bus"));
    qputenv("DBUS_SESSION_BUS_ADDRESS", nowhere);
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", nowhere);
    qputenv("QUIVERA_REMOTE_PORT", "0");
}

void tearDownProcess()
{
    delete g_root;
    g_root = nullptr;
}

QString root() { return g_root->path(); }

QString makeTempDir(const QString &hint)
{
    const QString dir = QStringLiteral("%1/%2-%3").arg(root(), hint).arg(++g_counter);
    QDir().mkpath(dir);
    return dir;
}

void resetUserFolders()
{
    for (const char *dir : {"config", "data"}) {
        QDir d(root() + QLatin1Char('/') + QLatin1String(dir));
        d.removeRecursively();
        QDir().mkpath(d.path());
    }
    // The process's settings store holds its values in memory: it starts empty too.
    UserDefaults::standard().reload();
}

int run(const QString &program, const QStringList &args, QByteArray *output, int timeoutMs)
{
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(program, args);
    if (!p.waitForStarted())
        return -1;
    p.waitForFinished(timeoutMs);
    if (output)
        *output = p.readAll();
    return p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
}

QString makeSine(const QString &path, double seconds, int rate, int channels,
                 const QStringList &formatArgs, double frequency)
{
    QStringList args{QStringLiteral("-n"), QStringLiteral("-r"), QString::number(rate),
                     QStringLiteral("-c"), QString::number(channels)};
    args += formatArgs;
    args += {path, QStringLiteral("synth"), QString::number(seconds), QStringLiteral("sine"),
             QString::number(frequency), QStringLiteral("vol"), QStringLiteral("0.5")};
    QByteArray out;
    const int rc = run(QStringLiteral("sox"), args, &out);
    EXPECT_EQ(rc, 0) << "sox failed: " << out.constData();
    return path;
}

QString ffmpeg(const QString &input, const QString &output, const QStringList &args)
{
    QStringList all{QStringLiteral("-y"), QStringLiteral("-v"), QStringLiteral("error"),
                    QStringLiteral("-i"), input};
    all += args;
    all += output;
    QByteArray out;
    const int rc = run(QStringLiteral("ffmpeg"), all, &out);
    EXPECT_EQ(rc, 0) << "ffmpeg failed: " << out.constData();
    return output;
}

void expectSame(const QVariant &expected, const QVariant &actual, const QString &at)
{
    ASSERT_EQ(expected.metaType(), actual.metaType())
        << at.toStdString() << ": " << expected.metaType().name() << " vs "
        << actual.metaType().name();
    if (expected.typeId() == QMetaType::QVariantMap) {
        const QVariantMap e = expected.toMap(), a = actual.toMap();
        ASSERT_EQ(e.keys(), a.keys()) << at.toStdString();
        for (auto it = e.cbegin(); it != e.cend(); ++it)
            expectSame(it.value(), a.value(it.key()), at + "/" + it.key());
    } else if (expected.typeId() == QMetaType::QVariantList) {
        const QVariantList e = expected.toList(), a = actual.toList();
        ASSERT_EQ(e.size(), a.size()) << at.toStdString();
        for (qsizetype i = 0; i < e.size(); ++i)
            expectSame(e.at(i), a.at(i), at + "/" + QString::number(i));
    } else {
        EXPECT_TRUE(expected == actual) << at.toStdString() << ": "
                                        << expected.toString().toStdString() << " vs "
                                        << actual.toString().toStdString();
    }
}

} // namespace TestEnvironment
