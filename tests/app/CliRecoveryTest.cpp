// Old property lists carried into a new library file, damaged files met at launch, and full disks.

#include "support/CliHarness.h"
#include "support/Processes.h"
#include "support/SmallFilesystem.h"
#include "support/TestEnvironment.h"

#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QThread>
#include <QFile>
#include <QJsonObject>
#include <functional>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

namespace {

// Writes the old lists with Python's plistlib, an implementation independent of ours.
void writeOldLists(const CliHarness &cli, const QString &songFile, const char *format)
{
    const QString script = QStringLiteral(R"(
import plistlib, sys, datetime
data, config, song, name = sys.argv[1:5]
fmt = {'xml': plistlib.FMT_XML, 'binary': plistlib.FMT_BINARY}[name]
songs = [
  dict(songID=-5, path=song, name='Kept', artist='The Old', album='Days', kind='FLAC Audio File',
       track='2 of 9', length=0.25, size=1234, sampleRate=44100,
       dateAdded=datetime.datetime(2011, 5, 6, 7, 8, 9), trackNumber=2, discNumber=0),
  dict(songID=-6, path='/nowhere/gone.mp3', name="It's gone", artist='Ghost', album='Void',
       kind='MP3 Audio File', length=100.0, size=99, sampleRate=48000,
       dateAdded=datetime.datetime(2010, 1, 1), trackNumber=0, discNumber=0),
]
with open(data + '/library.plist', 'wb') as f:
  plistlib.dump(songs, f, fmt=fmt)
lists = [dict(playlistID=42, name='Old favourites', shuffle=False, repeatMode=1, sortKey='ordinal',
              sortAscending=0, songIDs=[-6, -5, -5])]
with open(data + '/playlists.plist', 'wb') as f:
  plistlib.dump(lists, f, fmt=fmt)
prefs = {'iTunesPlaylistSortKey_1': 'artist', 'iTunesPlaylistSortAscending_1': False,
         'iTunesPlaylistSortKey_77': 'name', 'iTunesPlaylistSortAscending_77': True}
with open(config + '/Preferences.plist', 'wb') as f:
  plistlib.dump(prefs, f)
)");
    QByteArray out;
    ASSERT_EQ(
        TestEnvironment::run(
            "python3", {"-c", script, cli.dataDir(), cli.configDir(), songFile, QLatin1String(format)}, &out),
        0)
        << out.constData();
}

void expectMigrated(const CliHarness &cli, const QString &songFile)
{
    const QJsonArray songs = cli.songs({"--playlist", "42"});
    ASSERT_EQ(songs.size(), 3);
    const QJsonObject gone = songs.at(0).toObject();
    EXPECT_EQ(gone.value("name").toString(), "It's gone");
    EXPECT_TRUE(gone.value("isMissing").toBool());
    EXPECT_EQ(gone.value("bitrate").toInt(), 0); // no file to ask
    const QJsonObject kept = songs.at(1).toObject();
    EXPECT_EQ(kept.value("path").toString(), songFile);
    EXPECT_EQ(kept.value("track").toString(), "2 of 9");
    EXPECT_EQ(kept.value("dateAdded").toString(), "2011-05-06T07:08:09Z");
    EXPECT_GT(kept.value("bitrate").toInt(), 0); // fetched from the file itself

    const QJsonArray playlists = cli.json({"playlists", "--json"});
    ASSERT_EQ(playlists.size(), 3);
    const QJsonObject old = playlists.at(1).toObject();
    EXPECT_EQ(old.value("name").toString(), "Old favourites");
    EXPECT_EQ(old.value("repeatMode").toInt(), 1);
    const QJsonObject iTunes = playlists.at(2).toObject();
    EXPECT_EQ(iTunes.value("sortKey").toString(), "artist");
    EXPECT_FALSE(iTunes.value("sortAscending").toBool());
    EXPECT_EQ(
        cli.sql("SELECT iTunes, sortKey, sortAscending, name IS NULL FROM t_playlist WHERE playlistID = 77;"),
        "1|name|1|1");
}

} // namespace

TEST(CliMigration, XmlAndBinaryListsAreCarriedOverOnceIntoANewLibraryFile)
{
    for (const char *format : {"xml", "binary"}) {
        SCOPED_TRACE(format);
        CliHarness cli;
        const QString song = TestEnvironment::makeSine(cli.musicDir() + "/kept.flac", 0.25);
        writeOldLists(cli, song, format);
        expectMigrated(cli, song);

        // The lists stay; a second start does not read them again.
        ASSERT_TRUE(QFile::exists(cli.dataDir() + "/library.plist"));
        ASSERT_EQ(cli.run({"remove", "-5"}).status, 0);
        EXPECT_EQ(cli.songs().size(), 1);
    }
}

// A migration killed half-way leaves no library at all, so the next start migrates again, whole.
TEST(CliMigration, AMigrationKilledHalfWayIsDoneAgainInFull)
{
    constexpr int total = 20000;
    CliHarness cli;
    QByteArray out;
    ASSERT_EQ(
        TestEnvironment::run("python3",
                             {"-c",
                              QStringLiteral("import plistlib, sys\n"
                                             "songs = [dict(songID=-i, path='/gone/%d.flac' % i, name='n%d' "
                                             "% i) for i in range(1, int(sys.argv[2]) + 1)]\n"
                                             "plistlib.dump(songs, open(sys.argv[1] + '/library.plist', "
                                             "'wb'), fmt=plistlib.FMT_BINARY)\n"),
                              cli.dataDir(), QString::number(total)},
                             &out),
        0)
        << out.constData();
    QProcess p;
    p.setProcessEnvironment(cli.environment());
    p.start(QStringLiteral(QUIVERA_BIN_DIR "/quivera-cli"), {"songs"});
    ASSERT_TRUE(p.waitForStarted());
    const QDir data(cli.dataDir());
    QElapsedTimer t;
    t.start();
    while (p.state() == QProcess::Running && data.entryList({"Quivera Library.building-*"}).isEmpty()
           && t.elapsed() < 30000)
        QThread::usleep(200);
    ::kill(pid_t(p.processId()), SIGKILL);
    p.waitForFinished();
    ASSERT_FALSE(QFile::exists(cli.libraryFile())) << "the migration ended before the kill";

    EXPECT_EQ(cli.run({"songs"}).status, 0);
    EXPECT_EQ(cli.sql("SELECT COUNT(*), COUNT(DISTINCT songID) FROM t_song;"), QString("%1|%1").arg(total));
    EXPECT_TRUE(data.entryList({"Quivera Library.building-*"}).isEmpty());
}

// Files that are no library: not a database at all, or the header alone that a start killed
// before the schema used to leave. Each is kept under a dated name and a new library is built.
TEST(CliRecovery, AFileThatIsNoLibraryIsSetAsideOnceAndReplaced)
{
    const struct {
        const char *name;
        std::function<void(const CliHarness &)> make;
    } cases[] = {
        {"not a database",
         [](const CliHarness &cli) {
             TestEnvironment::writeFile(cli.libraryFile(), QByteArray("SQLite format 3") + QByteArray(8000, '\x55'));
         }},
        {"no tables", [](const CliHarness &cli) { cli.sql("PRAGMA journal_mode=WAL;"); }},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        CliHarness cli;
        c.make(cli);
        const QByteArray before = TestEnvironment::fileDigest(cli.libraryFile());
        // What a build killed in another process left: removed, as that process is gone.
        const QString stale = cli.libraryFile() + ".building-99999999";
        TestEnvironment::writeFile(stale, "half");

        const auto first = cli.run({"songs"});
        EXPECT_EQ(first.status, 0) << first.err.constData();
        EXPECT_EQ(first.err.count("warning:"), 1) << first.err.constData();
        const QStringList aside = QDir(cli.dataDir()).entryList({"Quivera Library (set aside *)"});
        ASSERT_EQ(aside.size(), 1);
        EXPECT_TRUE(first.err.contains(aside.first().toUtf8())) << first.err.constData();
        EXPECT_EQ(TestEnvironment::fileDigest(cli.dataDir() + u'/' + aside.first()), before);
        EXPECT_FALSE(QFile::exists(stale));
        EXPECT_EQ(cli.sql("SELECT version FROM t_global;"), "1");

        const auto second = cli.run({"songs"});
        EXPECT_EQ(second.status, 0);
        EXPECT_TRUE(second.err.isEmpty()) << second.err.constData();
    }
}

// A library whose song table has a page overwritten: reported, and neither a listing nor an
// import changes a byte of it.
TEST(CliRecovery, ADamagedLibraryIsReportedAndNothingWritesToIt)
{
    CliHarness cli;
    ASSERT_EQ(cli.run({"songs"}).status, 0);
    cli.sql(QStringLiteral("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2000) "
                           "INSERT INTO t_song (songID, path, name) SELECT -i, '/music/' || i || '.flac', "
                           "'song number ' || i FROM n;"));
    const qint64 page = cli.sql("PRAGMA page_size;").toLongLong();
    const qint64 root = cli.sql("SELECT rootpage FROM sqlite_master WHERE name = 't_song';").toLongLong();
    QFile file(cli.libraryFile());
    ASSERT_TRUE(file.open(QIODevice::ReadWrite) && file.seek((root - 1) * page));
    file.write(QByteArray(int(page), '\x55'));
    file.close();
    const QByteArray before = TestEnvironment::fileDigest(cli.libraryFile());

    const QString song = TestEnvironment::makeSine(cli.musicDir() + "/x.flac", 0.1);
    for (const QStringList &args : {QStringList{"songs"}, QStringList{"import", song}}) {
        const auto r = cli.run(args);
        EXPECT_EQ(r.status, 1) << args.first().toStdString();
        EXPECT_TRUE(r.err.contains("damaged")) << r.err.constData();
        EXPECT_EQ(r.err.count("quivera-cli:"), 1) << r.err.constData();
        EXPECT_EQ(TestEnvironment::fileDigest(cli.libraryFile()), before);
    }
}

TEST(CliRecovery, AnEmptyLibraryFileIsBuiltAnew)
{
    CliHarness cli;
    QFile library(cli.libraryFile());
    ASSERT_TRUE(library.open(QIODevice::WriteOnly));
    library.close();
    EXPECT_EQ(cli.run({"songs"}).status, 0);
    EXPECT_EQ(cli.sql("SELECT version FROM t_global;"), "1");
    EXPECT_EQ(cli.sql("SELECT playlistID, sortKey FROM t_playlist ORDER BY playlistID;"),
              "-1|album\n1|album");
}

TEST(CliRecovery, ADamagedSettingsFileIsReportedOnceAndReplacedByDefaults)
{
    CliHarness cli;
    ASSERT_TRUE(
        TestEnvironment::writeFile(cli.configDir() + "/Preferences.plist",
                                   "<?xml version=\"1.0\"?><plist><dict><key>volumeKnob</key><integ"));
    const auto first = cli.run({"settings", "get", "volumeKnob"});
    EXPECT_TRUE(first.err.contains("settings")) << first.err.constData();
    EXPECT_EQ(QString::fromUtf8(first.out).trimmed(), "1");
    const auto second = cli.run({"settings", "get", "volumeKnob"});
    EXPECT_EQ(second.status, 0);
    EXPECT_TRUE(second.err.isEmpty()) << second.err.constData();
}

TEST(CliRecovery, ASettingThatCannotBeWrittenFailsTheCommand)
{
    CliHarness cli;
    SmallFilesystem fs(cli.configDir(), 64 * 1024);
    if (!fs.available())
        GTEST_SKIP() << fs.reason().toStdString();
    // The file kept whole, and no temporary one left: UserDefaultsTest's full disk; here the command fails.
    fs.fill();
    const auto r = cli.run({"settings", "set", "shuffle", "true"});
    EXPECT_NE(r.status, 0);
    EXPECT_TRUE(r.err.contains("settings could not be saved")) << r.err.constData();
}

TEST(CliRecovery, AnITunesPathNamingAFifoHangsNoCommand)
{
    CliHarness cli;
    const QString fifo = cli.musicDir() + "/library.xml";
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    // Each fails the test if it does not end with success (CliHarness::set included).
    cli.set("iTunesLibraryLocation", QString("\"%1\"").arg(fifo));
    cli.set("accessiTunesLibrary", "true");
    const auto r = cli.run({"playlists"});
    EXPECT_EQ(r.status, 0) << r.err.constData();
}

// A write that fills the disk half-way: the tagged file is as it was, the render leaves nothing.
TEST(CliFullDisk, TagWritingAndRenderingFailAndLeaveTheDiskAsItWas)
{
    CliHarness cli;
    const QString disk = TestEnvironment::makeTempDir("disk");
    SmallFilesystem fs(disk, 1024 * 1024);
    if (!fs.available())
        GTEST_SKIP() << fs.reason().toStdString();
    const QString song =
        TestEnvironment::ffmpeg(TestEnvironment::makeSine(cli.musicDir() + "/a.wav", 1.0), disk + "/a.mp3");
    ASSERT_EQ(cli.run({"import", song}).status, 0);
    const QString id = QString::number(cli.songs().last().toObject().value("songID").toInteger());
    const QByteArray before = TestEnvironment::fileDigest(song);
    fs.fill(8 * 1024);
    const auto tag = cli.run({"tag", id, QString("album=") + QString(100000, u'x')});
    EXPECT_NE(tag.status, 0);
    EXPECT_FALSE(tag.err.isEmpty());
    EXPECT_EQ(TestEnvironment::fileDigest(song), before);

    const auto render = cli.run({"render", "--out", disk + "/out.wav"});
    EXPECT_NE(render.status, 0);
    EXPECT_TRUE(render.err.contains("render failed")) << render.err.constData();
    EXPECT_EQ(QDir(disk).entryList(QDir::Files | QDir::Hidden), (QStringList{".filler", "a.mp3"}))
        << "a file was left";
}
