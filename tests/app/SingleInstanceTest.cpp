// One player per session: later starts of the real `quivera` hand their files and transport
// commands to the running one over its socket, and a socket left by a player that died does not
// stop the next one, which imports the files it was started with.

#include "MprisTestSupport.h"
#include "support/CliHarness.h"

#include "support/TestEnvironment.h"

#include <QFile>
#include <QProcess>
#include <csignal>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

class PlayerSession : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_FALSE(bus.address().isEmpty());
        // A user who answered the iTunes question and plays to no sound card.
        cli.set(u"seenAccessiTunesLibraryQuery"_s, u"true"_s);
        cli.set(u"outputDevice"_s, uR"({"UID": "null"})"_s);
        env = cli.environment();
        env.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, bus.address());
        const QString runtime = TestEnvironment::makeTempDir(u"runtime"_s);
        QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        env.insert(u"XDG_RUNTIME_DIR"_s, runtime);
        env.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
        env.insert(u"QUIVERA_REMOTE_PORT"_s, u"0"_s);
        music = TestEnvironment::makeTempDir(u"handoff-music"_s);
        song = TestEnvironment::makeSine(music + u"/tone.wav"_s, 30.0);
    }

    void TearDown() override
    {
        if (primary.state() != QProcess::NotRunning) {
            primary.terminate();
            primary.waitForFinished(30000);
        }
    }

    void startPrimary(const QStringList &files = {})
    {
        primary.setProcessEnvironment(env);
        primary.start(QStringLiteral(QUIVERA_BIN_DIR "/quivera"), files);
        ASSERT_TRUE(primary.waitForStarted());
        ASSERT_TRUE(waitUntil([&] { return status() == u"Stopped"_s; }, 30000))
            << primary.readAllStandardError().constData();
    }

    // A later start: it must hand over and end at once, with success.
    SpinningRun start(const QStringList &args) { return runSpinning(QStringLiteral(QUIVERA_BIN_DIR "/quivera"), args, env, 15000); }

    QString status()
    {
        return QString::fromUtf8(runSpinning(u"playerctl"_s, {u"-p"_s, u"quivera"_s, u"status"_s}, env).out).trimmed();
    }

    PrivateSessionBus bus;
    CliHarness cli;
    QProcessEnvironment env;
    QString music, song;
    QProcess primary;
};

} // namespace

// The first player is killed, leaving its socket: the next start becomes the player with the file
// it was started with, and a later start hands over its file and commands and ends.
TEST_F(PlayerSession, ALaterStartHandsOverItsFilesAndCommandsAndEndsAndADeadPlayersSocketStopsNone)
{
    startPrimary();
    ::kill(pid_t(primary.processId()), SIGKILL);
    primary.waitForFinished(10000);
    ASSERT_TRUE(QFile::exists(env.value(u"XDG_RUNTIME_DIR"_s) + u"/quivera.socket"_s));
    ASSERT_TRUE(waitUntil([&] { return status().isEmpty(); }, 15000)); // its bus name went with it
    startPrimary({song}); // becomes the player rather than talk to the dead socket
    EXPECT_TRUE(waitUntil([&] { return cli.songs().size() == 1; }, 30000)) << "the file it was started with";

    // A relative path: the running player is in another folder.
    TestEnvironment::makeSine(music + u"/second.wav"_s, 30.0);
    QProcess relative;
    relative.setProcessEnvironment(env);
    relative.setWorkingDirectory(music);
    relative.start(QStringLiteral(QUIVERA_BIN_DIR "/quivera"), {u"second.wav"_s});
    ASSERT_TRUE(relative.waitForFinished(15000));
    EXPECT_EQ(relative.exitCode(), 0);
    ASSERT_TRUE(waitUntil([&] { return cli.songs().size() == 2; }, 30000))
        << "the running player did not import the file";

    EXPECT_EQ(start({u"--play-pause"_s}).status, 0);
    EXPECT_TRUE(waitUntil([&] { return status() == u"Playing"_s; }, 15000));
    EXPECT_EQ(start({u"--play-pause"_s}).status, 0);
    EXPECT_TRUE(waitUntil([&] { return status() == u"Paused"_s; }, 15000));
    EXPECT_EQ(primary.state(), QProcess::Running) << "only one player runs";
    // SIGTERM, as the session ends: the orderly quit.
    primary.terminate();
    ASSERT_TRUE(primary.waitForFinished(30000));
    EXPECT_EQ(primary.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(primary.exitCode(), 0);
}
