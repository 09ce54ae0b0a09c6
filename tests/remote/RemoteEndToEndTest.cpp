// The whole service as a user meets it: songs imported with quivera-cli, `quivera-cli serve`
// running on a paced test sound card, and the independent Python client reaching the real library,
// playlists, settings and transport through it (each command's own rules are checked on a fake host).

#include "RemoteTestSupport.h"
#include "support/AlsaWorld.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTcpServer>
#include <gtest/gtest.h>

using RemoteTestSupport::waitUntil;

namespace {

const QString cli = QStringLiteral(QUIVERA_BIN_DIR "/quivera-cli");

struct Fixture {
    const char *name;
    const char *artist; // null: no tag
    const char *album;
    int track;          // 0: no tag
};

const Fixture fixtures[] = {
    {"Alpha Song", "Björk", "Homogenic", 2},
    {"Gamma Song", "Björk", "Post", 3},
    {"Delta", nullptr, "Loose", 4},
    {"Epsilon", "Solo", nullptr, 0},
};

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

int runCli(const QStringList &args, QByteArray *out)
{
    return TestEnvironment::run(cli, args, out);
}

quint16 freePort()
{
    QTcpServer s;
    s.listen(QHostAddress::LocalHost, 0);
    return s.serverPort();
}

QHash<QString, qint64> songIDsByName()
{
    QByteArray out;
    QProcess p;
    p.start(cli, {"songs", "--json"});
    p.waitForFinished(60000);
    QHash<QString, qint64> ids;
    for (const QJsonValue &v : QJsonDocument::fromJson(p.readAllStandardOutput()).array())
        ids.insert(v.toObject().value("name").toString(), v.toObject().value("songID").toInteger());
    return ids;
}

class Server {
public:
    Server(quint16 port, const QString &alsaConfig)
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("QUIVERA_REMOTE_PORT", QString::number(port));
        env.insert("ALSA_CONFIG_PATH", alsaConfig);
        m_process.setProcessEnvironment(env);
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        QObject::connect(&m_process, &QProcess::readyRead, [this] { output += m_process.readAll(); });
        m_process.start(cli, {"serve"});
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
    TestEnvironment::resetUserFolders();
    // The server inherits a system bus address where no bus runs: it must never announce
    // itself on the machine's own network.
    RemoteTestSupport::systemBusSocket();
    const QString alsa = writeALSAConfiguration();
    ASSERT_FALSE(alsa.isEmpty());

    // The library: tagged FLAC files, imported as a user would.
    const QString music = TestEnvironment::makeTempDir(QStringLiteral("music"));
    for (const Fixture &f : fixtures) {
        // Long enough that no song ends on its own while the client works.
        const QString wav = TestEnvironment::makeSine(music + "/" + f.name + ".wav", 8.0);
        QStringList args = {"-metadata", QStringLiteral("title=%1").arg(QString::fromUtf8(f.name))};
        if (f.artist)
            args << "-metadata" << QStringLiteral("artist=%1").arg(QString::fromUtf8(f.artist));
        if (f.album)
            args << "-metadata" << QStringLiteral("album=%1").arg(QString::fromUtf8(f.album));
        if (f.track)
            args << "-metadata" << QStringLiteral("track=%1").arg(f.track);
        TestEnvironment::ffmpeg(wav, music + "/" + f.name + ".flac", args);
        QFile::remove(wav);
    }
    QByteArray out;
    ASSERT_EQ(runCli({"import", music}, &out), 0) << out.constData();
    const QHash<QString, qint64> ids = songIDsByName();
    ASSERT_EQ(ids.size(), qsizetype(std::size(fixtures))) << out.constData();

    // A playlist in an order of our own, named.
    const QStringList order = {"Gamma Song", "Delta", "Alpha Song", "Epsilon"};
    QStringList newArgs = {"playlist", "new"};
    for (const QString &n : order)
        newArgs << QString::number(ids.value(n));
    ASSERT_EQ(runCli(newArgs, &out), 0) << out.constData();
    const QString playlistID = QString::fromUtf8(out).trimmed().split('\n').last().trimmed();
    ASSERT_EQ(runCli({"playlist", "rename", playlistID, "Road Trip"}, &out), 0) << out.constData();

    // What the client is to find.
    QJsonArray songs;
    for (const Fixture &f : fixtures) {
        QJsonObject o{{"name", QString::fromUtf8(f.name)}};
        if (f.artist)
            o.insert("artist", QString::fromUtf8(f.artist));
        if (f.album)
            o.insert("album", QString::fromUtf8(f.album));
        songs.append(o);
    }
    const QJsonObject library{
        {"songs", songs},
        {"playlist", "Road Trip"},
        {"playlistOrder", QJsonArray::fromStringList(order)},
    };
    const QString libraryFile = music + "/expect.json";
    ASSERT_TRUE(TestEnvironment::writeFile(libraryFile, QJsonDocument(library).toJson()));

    // A private Avahi daemon on loopback, when this machine can run one: the service must
    // vanish from browsing while a client is connected. The rest runs without it.
    RemoteTestSupport::PrivateAvahi avahi;
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

    Server server(port, alsa);
    ASSERT_TRUE(server.waitServing()) << server.output.constData();
    if (avahiProblem.isEmpty()) {
        EXPECT_TRUE(waitUntil(browsed, 20000)) << "published under the computer's name";
    }

    const int rc = RemoteTestSupport::runClient({"session", QString::number(port), libraryFile}, &out, 120000);
    EXPECT_EQ(rc, 0) << out.constData() << "\n--- server:\n" << server.output.constData();
    EXPECT_TRUE(out.contains("session ok")) << out.constData();
    // The client stepped the volume up (from 1: it stays 1) and down once: one -2 dB step.
    ASSERT_EQ(runCli({"settings", "get", "volume"}, &out), 0) << out.constData();
    EXPECT_FLOAT_EQ(QString::fromUtf8(out).trimmed().split('\n').last().toFloat(), 0.7943282f) << out.constData();

    EXPECT_EQ(server.terminate(), 0) << server.output.constData();
    EXPECT_FALSE(server.output.contains("received illegal command: getSongs"));
    if (::testing::Test::HasFailure() || qEnvironmentVariableIsSet("QUIVERA_TEST_VERBOSE"))
        std::printf("--- server output:\n%s\n", server.output.constData());
}
