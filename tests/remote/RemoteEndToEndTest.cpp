// The whole service as a user meets it: songs imported with quivera-cli, `quivera-cli serve`
// running on a paced test sound card, and the independent Python client reaching the real library,
// playlists, settings and transport through it (each command's own rules are checked on a fake host).

#include "support/AlsaWorld.h"
#include "support/CliHarness.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTcpServer>
#include <gtest/gtest.h>

using TestEnvironment::waitUntil;

namespace {

const QStringList names = {"Alpha Song", "Gamma Song", "Delta", "Epsilon"};

// A sound card that takes its samples in real time, so that a song lasts as long as it plays.
QString writeALSAConfiguration()
{
    return AlsaWorld::install(TestEnvironment::makeTempDir(QStringLiteral("alsa")),
                              QStringLiteral(QUIVERA_TEST_ALSA_PLUGIN),
                              QStringLiteral("pcm.null { type null }\n")
                                  + AlsaWorld::card(QStringLiteral("default"), QStringLiteral("44100 48000"),
                                                    QStringLiteral("\"S16_LE\""), QStringLiteral("  paced true\n"),
                                                    QStringLiteral("Paced test card")));
}

quint16 freePort()
{
    QTcpServer s;
    s.listen(QHostAddress::LocalHost, 0);
    return s.serverPort();
}

class Server {
public:
    Server(const CliHarness &cli, quint16 port, const QString &alsaConfig)
    {
        QProcessEnvironment env = cli.environment();
        env.insert("QUIVERA_REMOTE_PORT", QString::number(port));
        env.insert("ALSA_CONFIG_PATH", alsaConfig);
        m_process.setProcessEnvironment(env);
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        QObject::connect(&m_process, &QProcess::readyRead, [this] { output += m_process.readAll(); });
        m_process.start(QStringLiteral(QUIVERA_BIN_DIR "/quivera-cli"), {"serve"});
    }
    ~Server()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.kill();
            m_process.waitForFinished(5000);
        }
    }
    bool waitServing()
    {
        return waitUntil([&] { return output.contains("serving") || m_process.state() == QProcess::NotRunning; },
                         30000)
               && m_process.state() == QProcess::Running;
    }
    // SIGTERM and the orderly shutdown; the exit code.
    int terminate()
    {
        m_process.terminate();
        waitUntil([&] { return m_process.state() == QProcess::NotRunning; }, 15000);
        return m_process.state() == QProcess::NotRunning && m_process.exitStatus() == QProcess::NormalExit
                   ? m_process.exitCode()
                   : -1;
    }

    QByteArray output;

private:
    QProcess m_process;
};

} // namespace

TEST(RemoteEndToEnd, ThePythonClientDrivesTheRunningPlayer)
{
    CliHarness cli;
    // The server inherits a system bus address where no bus runs: it must never announce
    // itself on the machine's own network.
    TestEnvironment::systemBusSocket();
    const QString alsa = writeALSAConfiguration();
    ASSERT_FALSE(alsa.isEmpty());

    // The library: titled FLAC files, long enough that no song ends on its own while the client
    // works, imported as a user would.
    const QString music = cli.musicDir();
    for (const QString &name : names) {
        const QString wav = TestEnvironment::makeSine(music + "/" + name + ".wav", 8.0);
        TestEnvironment::ffmpeg(wav, music + "/" + name + ".flac", {"-metadata", "title=" + name});
        QFile::remove(wav);
    }
    ASSERT_EQ(cli.run({"import", music}).status, 0);
    QHash<QString, qint64> ids;
    for (const QJsonValue &v : cli.songs())
        ids.insert(v["name"].toString(), v["songID"].toInteger());
    ASSERT_EQ(ids.size(), names.size());

    // A playlist in an order of our own, named.
    const QStringList order = {"Gamma Song", "Delta", "Alpha Song", "Epsilon"};
    QStringList newArgs = {"playlist", "new"};
    for (const QString &n : order)
        newArgs << QString::number(ids.value(n));
    const CliHarness::Result made = cli.run(newArgs);
    ASSERT_EQ(made.status, 0) << made.err.constData();
    const QString playlistID = QString::fromUtf8(made.out).trimmed().split('\n').last().trimmed();
    ASSERT_EQ(cli.run({"playlist", "rename", playlistID, "Road Trip"}).status, 0);

    // What the client is to find.
    const QJsonObject library{
        {"names", QJsonArray::fromStringList(names)},
        {"playlist", "Road Trip"},
        {"playlistOrder", QJsonArray::fromStringList(order)},
    };
    const QString libraryFile = music + "/expect.json";
    ASSERT_TRUE(TestEnvironment::writeFile(libraryFile, QJsonDocument(library).toJson()));

    // A private Avahi daemon on loopback, when this machine can run one: the service must
    // vanish from browsing while a client is connected. The rest runs without it.
    TestEnvironment::PrivateAvahi avahi;
    const QString avahiProblem = avahi.start();
    if (!avahiProblem.isEmpty())
        std::printf("no private Avahi, browsing not checked: %s\n", qPrintable(avahiProblem));
    const quint16 port = freePort();
    const auto browsed = [&] {
        for (const QString &found : avahi.browse(QStringLiteral("_quivera1._tcp")))
            if (found.endsWith(' ' + QString::number(port)))
                return true;
        return false;
    };

    Server server(cli, port, alsa);
    ASSERT_TRUE(server.waitServing()) << server.output.constData();
    if (avahiProblem.isEmpty()) {
        EXPECT_TRUE(waitUntil(browsed, 20000)) << "published under the computer's name";
    }

    QByteArray out;
    const int rc = TestEnvironment::runServing(
        "python3",
        {QUIVERA_SOURCE_DIR "/tests/remote/remote_client.py", "session", QString::number(port), libraryFile},
        &out, 120000);
    EXPECT_EQ(rc, 0) << out.constData() << "\n--- server:\n" << server.output.constData();
    EXPECT_TRUE(out.contains("session ok")) << out.constData();
    EXPECT_EQ(server.terminate(), 0) << server.output.constData();
    // The client stepped the volume up (from 1: it stays 1) and down once: one -2 dB step.
    const CliHarness::Result volume = cli.run({"settings", "get", "volume"});
    EXPECT_FLOAT_EQ(QString::fromUtf8(volume.out).trimmed().split('\n').last().toFloat(), 0.7943282f)
        << volume.out.constData();
    EXPECT_FALSE(server.output.contains("received illegal command: getSongs"));
    if (::testing::Test::HasFailure() || qEnvironmentVariableIsSet("QUIVERA_TEST_VERBOSE"))
        std::printf("--- server output:\n%s\n", server.output.constData());
}
