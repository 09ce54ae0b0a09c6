// Importing through the command line, as a user or a script does it: the summary, a second
// import, the target playlist, and a kill in the middle of a large import.

#include "support/CliHarness.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSet>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>
#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <signal.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <vector>

namespace {

// Rows in t_song, read without touching the file (-1 while it has no table yet).
qint64 committedRows(const QString &file)
{
    sqlite3 *db = nullptr;
    qint64 count = -1;
    if (sqlite3_open_v2(QFile::encodeName(file).constData(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_stmt *q = nullptr;
        if (sqlite3_prepare_v2(db, "SELECT COUNT(*) FROM t_song", -1, &q, nullptr) == SQLITE_OK
            && sqlite3_step(q) == SQLITE_ROW)
            count = sqlite3_column_int64(q, 0);
        sqlite3_finalize(q);
    }
    sqlite3_close_v2(db);
    return count;
}

class CliImportTest : public ::testing::Test {
protected:
    // Three songs, a text file, a cut FLAC and a link to one of the songs.
    void makeMusic()
    {
        const QString m = cli.musicDir();
        const QString sine = TestEnvironment::makeSine(m + "/../src.wav", 0.3);
        TestEnvironment::ffmpeg(
            sine, m + "/a.flac",
            {"-metadata", "title=First", "-metadata", "artist=Someone", "-metadata", "track=3/12"});
        TestEnvironment::ffmpeg(sine, m + "/b.mp3", {"-c:a", "libmp3lame"});
        TestEnvironment::ffmpeg(sine, m + "/c.ogg", {"-c:a", "libvorbis"});
        ASSERT_TRUE(TestEnvironment::writeFile(m + "/notes.txt", "hello\n"));
        QFile a(m + "/a.flac"), cut(m + "/cut.flac");
        ASSERT_TRUE(a.open(QIODevice::ReadOnly) && cut.open(QIODevice::WriteOnly));
        cut.write(a.readAll().left(int(a.size() / 2)));
        cut.close();
        ASSERT_TRUE(QFile::link(m + "/a.flac", m + "/link.flac"));
    }
    CliHarness cli;
};

} // namespace

TEST_F(CliImportTest, PrintsWhatWasAddedSkippedAndWhyFilesFailed)
{
    makeMusic();
    const QString m = cli.musicDir();
    ASSERT_TRUE(TestEnvironment::writeFile(m + "/Album.cue", "FILE \"a.flac\" WAVE\n  TRACK 01 AUDIO\n"));
    ASSERT_EQ(TestEnvironment::run("ffmpeg", {"-v", "error", "-f", "lavfi", "-i", "testsrc=size=32x32",
                                              "-frames:v", "1", m + "/cover.jpg"}),
              0);
    CliHarness::Result r = cli.run({"import", m, m + "/b.mp3", m + "/nowhere.flac"});
    EXPECT_EQ(r.status, 1); // a path named on the command line is not there
    const QStringList lines = QString::fromUtf8(r.out).split(u'\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 3) << r.out.constData();
    EXPECT_EQ(lines.at(0), "3 added, 2 skipped as duplicates, 3 not audio, 2 failed");
    EXPECT_EQ(lines.at(1), QString("failed: %1/nowhere.flac: no such file or folder").arg(m));
    EXPECT_TRUE(lines.at(2).startsWith(QString("failed: %1/cut.flac: ").arg(m))) << lines.at(2).toStdString();
    EXPECT_FALSE(r.err.contains("Importing")); // no bar into a pipe
    EXPECT_TRUE(r.err.isEmpty()) << r.err.constData(); // each failure said once, on its line

    EXPECT_EQ(cli.songs().size(), 3); // their tags: ImportTest; their listing: CliLibraryTest

    // A folder with a damaged song in it is a completed run.
    r = cli.run({"import", m});
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(r.out.startsWith("0 added, 4 skipped as duplicates, 3 not audio, 1 failed")) << r.out.constData();

    // What cannot be read at all is named with its reason; a pipe is never opened.
    const QString fifo = m + "/../pipe";
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    const QString tooLong = m + u'/' + QString(300, u'x') + ".flac";
    r = cli.run({"import", fifo, tooLong});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(r.out.contains("passed over: " + QDir::cleanPath(fifo).toUtf8() + ": not a file to read")) << r.out.constData();
    EXPECT_TRUE(r.out.contains(": File name too long")) << r.out.constData();
    EXPECT_EQ(cli.sql("SELECT COUNT(*) FROM t_song;"), "3");
}

// File names are bytes: one in Latin-1 from an old archive is imported, read back from the
// library to the same bytes (so it plays and takes tags) and shown readably.
TEST_F(CliImportTest, NamesThatAreNotUtf8AreKeptByteForByte)
{
    const QString m = cli.musicDir() + "/old";
    ASSERT_TRUE(QDir().mkpath(m));
    TestEnvironment::ffmpeg(TestEnvironment::makeSine(m + "/../src.wav", 0.3), m + "/tmp.flac");
    const QByteArray latin1 = QFile::encodeName(m) + "/caf\xe9.flac";
    ASSERT_EQ(::rename(QFile::encodeName(m + "/tmp.flac").constData(), latin1.constData()), 0);

    auto r = cli.run({"import", m});
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(r.out.startsWith("1 added")) << r.out.constData();
    EXPECT_EQ(cli.sql("SELECT hex(path) FROM t_song;"), QString::fromLatin1(latin1.toHex().toUpper()));
    r = cli.run({"songs"});
    EXPECT_TRUE(r.out.contains("caf\xc3\xa9")) << r.out.constData();
    const QString id = QString::fromUtf8(r.out.trimmed().split(' ').first());

    r = cli.run({"render", "--song", id, "--out", m + "/../x.wav"});
    EXPECT_EQ(r.status, 0) << r.err.constData();
    r = cli.run({"tag", id, "album=Zed"});
    EXPECT_EQ(r.status, 0) << r.err.constData();
    r = cli.run({"rescan"});
    EXPECT_TRUE(r.out.startsWith("1 songs, 0 missing")) << r.out.constData();
    // Still there under its own name and under no mangled one (Qt lists only names it can decode).
    struct stat st;
    EXPECT_EQ(::stat(latin1.constData(), &st), 0);
    EXPECT_TRUE(QDir(m).entryList(QDir::Files | QDir::Hidden).isEmpty());
    ::unlink(latin1.constData()); // which the temporary folder's removal would not find
}

// A folder the user may not read is named with the reason, not counted as empty, and fails the
// run when it was named (here after its parent). Root reads everything, so the import runs as
// nobody.
TEST_F(CliImportTest, AFolderThatMayNotBeReadIsNamedWithItsReason)
{
    if (::geteuid() != 0 || QStandardPaths::findExecutable("setpriv").isEmpty())
        GTEST_SKIP() << "needs root and setpriv to run an import as another user";
    QTemporaryDir root("/tmp/quivera-nobody-XXXXXX");
    const QString locked = root.path() + "/music/locked";
    for (const char *dir : {"/data", "/config", "/music/locked"})
        ASSERT_TRUE(QDir().mkpath(root.path() + QLatin1String(dir)));
    for (const char *dir : {"", "/data", "/config", "/music"})
        ASSERT_EQ(::chmod(QFile::encodeName(root.path() + QLatin1String(dir)).constData(), 0777), 0);
    ASSERT_EQ(::chmod(QFile::encodeName(locked).constData(), 0700), 0);
    TestEnvironment::makeSine(locked + "/a.wav", 0.1);

    QProcess p;
    QProcessEnvironment env = cli.environment();
    env.insert("XDG_DATA_HOME", root.path() + "/data");
    env.insert("XDG_CONFIG_HOME", root.path() + "/config");
    env.insert("HOME", root.path());
    p.setProcessEnvironment(env);
    p.start("setpriv",
            {"--reuid=65534", "--regid=65534", "--clear-groups",
             QStringLiteral(QUIVERA_BIN_DIR "/quivera-cli"), "import", root.path() + "/music", locked});
    ASSERT_TRUE(p.waitForFinished(60000));
    const QByteArray out = p.readAllStandardOutput();
    EXPECT_EQ(p.exitCode(), 1) << p.readAllStandardError().constData();
    EXPECT_TRUE(out.contains("passed over: " + QFile::encodeName(locked) + ": Permission denied"))
        << out.constData();
}

// Each batch lands in the chosen playlist too, which may not be an iTunes one.
TEST_F(CliImportTest, AKillInTheMiddleLeavesAConsistentLibrary)
{
    constexpr int total = 3000;
    const QString one = TestEnvironment::makeSine(cli.musicDir() + "/0000.flac", 0.1);
    for (int i = 1; i < total; ++i)
        ASSERT_TRUE(QFile::copy(one, cli.musicDir() + QString("/%1.flac").arg(i, 4, 10, QLatin1Char('0'))));

    cli.run({"playlists"}); // makes the library file
    cli.sql("INSERT INTO t_playlist VALUES (100, 0, 'Mix', 0, 0, 'ordinal', 0);");
    EXPECT_EQ(cli.run({"import", "--playlist", "1", one}).status, 1);
    const QStringList import = {"import", "--playlist", "100", cli.musicDir()};
    QProcess p;
    p.setProcessEnvironment(cli.environment());
    p.start(QStringLiteral(QUIVERA_BIN_DIR "/quivera-cli"), import);
    ASSERT_TRUE(p.waitForStarted());
    QElapsedTimer t;
    t.start();
    while (p.state() == QProcess::Running && committedRows(cli.libraryFile()) <= 0 && t.elapsed() < 60000)
        QThread::usleep(500);
    ASSERT_EQ(p.state(), QProcess::Running) << "the import ended before a batch was seen";
    ::kill(pid_t(p.processId()), SIGKILL);
    p.waitForFinished();

    EXPECT_EQ(cli.sql("PRAGMA integrity_check;"), "ok");
    const qint64 kept = cli.sql("SELECT COUNT(*) FROM t_song;").toLongLong();
    EXPECT_GT(kept, 0);
    EXPECT_LT(kept, total);
    // Every row whole: a batch is there entirely or not at all.
    EXPECT_EQ(cli.sql(QStringLiteral(
                  "SELECT COUNT(*) FROM t_song WHERE path IS NULL OR name IS NULL "
                  "OR kind IS NULL OR dateAdded IS NULL OR length <= 0 OR sampleRate != 44100;")),
              "0");
    EXPECT_EQ(cli.sql("SELECT COUNT(DISTINCT path) FROM t_song;").toLongLong(), kept);
    EXPECT_EQ(cli.songs().size(), kept);
    // Every committed song is in the playlist too.
    EXPECT_EQ(
        cli.sql("SELECT COUNT(DISTINCT songID) FROM t_playlistSong WHERE playlistID = 100;").toLongLong(),
        kept);

    // The next import brings the rest, and nothing twice.
    const CliHarness::Result r = cli.run(import);
    EXPECT_EQ(r.status, 0) << r.out.constData();
    EXPECT_TRUE(r.out.startsWith(QString("%1 added, %2 skipped").arg(total - kept).arg(kept).toUtf8()))
        << r.out.constData();
    EXPECT_EQ(cli.sql("SELECT COUNT(DISTINCT path) FROM t_song;"), QString::number(total));
    EXPECT_EQ(cli.sql("SELECT COUNT(*) FROM t_song;"), QString::number(total));
    EXPECT_EQ(cli.songs({"--playlist", "100"}).size(), total);
}

// Several processes on one library at once (the CLI beside the player): every file once, every
// ID its own, and each process's first draw its own.
TEST_F(CliImportTest, ProcessesAtOnceNeverShareAnIDOrAFile)
{
    constexpr int files = 300, processes = 3;
    const QString one = TestEnvironment::makeSine(cli.musicDir() + "/000.flac", 0.05);
    for (int i = 1; i < files; ++i)
        ASSERT_TRUE(QFile::copy(one, cli.musicDir() + QString("/%1.flac").arg(i, 3, 10, QLatin1Char('0'))));
    cli.run({"playlists"}); // makes the library file
    std::vector<std::unique_ptr<QProcess>> running;
    for (int i = 0; i < processes * 2; ++i) {
        auto p = std::make_unique<QProcess>();
        p->setProcessEnvironment(cli.environment());
        p->start(QStringLiteral(QUIVERA_BIN_DIR "/quivera-cli"),
                 i < processes ? QStringList{"import", cli.musicDir()} : QStringList{"playlist", "new"});
        running.push_back(std::move(p));
    }
    QSet<QString> playlistIDs;
    for (auto &p : running) {
        ASSERT_TRUE(p->waitForFinished(120000));
        EXPECT_EQ(p->exitCode(), 0) << p->readAllStandardError().constData();
        if (p->arguments().first() == QLatin1String("playlist"))
            playlistIDs.insert(QString::fromUtf8(p->readAllStandardOutput()).trimmed());
    }
    EXPECT_EQ(playlistIDs.size(), processes);
    EXPECT_EQ(cli.sql("SELECT COUNT(*), COUNT(DISTINCT songID), COUNT(DISTINCT path) FROM t_song;"),
              QString("%1|%1|%1").arg(files));
    EXPECT_EQ(cli.sql("SELECT COUNT(*) FROM t_playlist WHERE iTunes = 0;"), QString::number(processes + 1));

    // The first draw of a process is not the unseeded generator's first number.
    CliHarness fresh;
    EXPECT_NE(fresh.run({"playlist", "new"}).out.trimmed(), QByteArray("1804289383"));
}
