#include "support/CliHarness.h"

#include "support/TestEnvironment.h"

#include <QDir>
#include <QJsonDocument>
#include <QProcess>
#include <gtest/gtest.h>

CliHarness::CliHarness() : m_root(TestEnvironment::makeTempDir(QStringLiteral("cli")))
{
    QDir().mkpath(dataDir());
    QDir().mkpath(configDir());
    QDir().mkpath(musicDir());
}

QProcessEnvironment CliHarness::environment() const
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_DATA_HOME"), m_root + QStringLiteral("/data"));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), m_root + QStringLiteral("/config"));
    env.insert(QStringLiteral("HOME"), m_root);
    return env;
}

QByteArray CliHarness::runOnTerminal(const QString &arguments) const
{
    QProcess p;
    p.setProcessEnvironment(environment());
    p.start(QStringLiteral("script"), {QStringLiteral("-qec"),
                                       QStringLiteral("'%1' %2").arg(QStringLiteral(QUIVERA_BIN_DIR "/quivera-cli"), arguments),
                                       QStringLiteral("/dev/null")});
    EXPECT_TRUE(p.waitForFinished(60000));
    return p.readAllStandardOutput();
}

CliHarness::Result CliHarness::run(const QStringList &args) const
{
    QProcess p;
    p.setProcessEnvironment(environment());
    p.start(QStringLiteral(QUIVERA_BIN_DIR "/quivera-cli"), args);
    Result r;
    if (!p.waitForStarted() || !p.waitForFinished(120000))
        return r;
    r.out = p.readAllStandardOutput();
    r.err = p.readAllStandardError();
    r.status = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    return r;
}

QJsonArray CliHarness::json(const QStringList &args) const
{
    const Result r = run(args);
    EXPECT_EQ(r.status, 0) << args.join(u' ').toStdString() << ": " << r.err.constData();
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(r.out, &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << r.out.constData();
    return doc.array();
}

QJsonArray CliHarness::songs(const QStringList &more) const
{
    return json(QStringList{QStringLiteral("songs"), QStringLiteral("--json")} + more);
}

void CliHarness::set(const QString &key, const QString &json) const
{
    const Result r = run({QStringLiteral("settings"), QStringLiteral("set"), key, json});
    EXPECT_EQ(r.status, 0) << key.toStdString() << " = " << json.toStdString() << ": " << r.err.constData();
}

QString CliHarness::sql(const QString &statements) const
{
    QProcess p;
    p.start(QStringLiteral("sqlite3"), {libraryFile()});
    p.waitForStarted();
    p.write(statements.toUtf8());
    p.closeWriteChannel();
    p.waitForFinished(60000);
    const QByteArray err = p.readAllStandardError();
    EXPECT_TRUE(err.isEmpty()) << err.constData();
    return QString::fromUtf8(p.readAllStandardOutput()).trimmed();
}
