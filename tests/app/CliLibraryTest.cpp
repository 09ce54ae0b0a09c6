// The library through the command line, as a user keeps it: files made by hand with the sqlite3
// command line load as they should, and every change survives restarts.

#include "support/CliHarness.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <QFile>
#include <QJsonObject>
#include <algorithm>
#include <gtest/gtest.h>

namespace {

// The schema of a library file, written out here so that a change of the program's own
// statements can't hide from this test.
const char *kSchema = R"(
CREATE TABLE [t_global] (version integer);
INSERT INTO t_global (version) VALUES (1);
CREATE TABLE [t_song] (songID integer, path text, name text, artist text, album text, albumArtist text, composer text, genre text, kind text, track text, disc text, length real, size integer, sampleRate integer, bitrate integer, dateAdded date, trackNumber integer, discNumber integer);
CREATE INDEX t_song_songID_index ON t_song(songID);
CREATE TABLE [t_playlist] (playlistID integer, iTunes binary, name text, shuffle binary, repeatMode integer, sortKey text, sortAscending binary);
CREATE INDEX t_playlist_playlistID_index ON t_playlist(playlistID);
CREATE INDEX t_playlist_iTunes_index ON t_playlist(iTunes);
INSERT INTO t_playlist (playlistID, iTunes, sortKey, sortAscending) VALUES (-1, 0, 'album', 1);
INSERT INTO t_playlist (playlistID, iTunes, sortKey, sortAscending) VALUES (1, 1, 'album', 1);
CREATE TABLE [t_playlistSong] (playlistID integer, songID integer, ordinal integer);
CREATE INDEX t_playlistSong_playlistID_index ON t_playlistSong(playlistID);
CREATE INDEX t_playlistSong_ordinal_index ON t_playlistSong(ordinal);
)";

// A playlist's lastModification is the time of the last change in this run; it is not kept.
QJsonArray withoutStamps(QJsonArray playlists)
{
    for (auto it = playlists.begin(); it != playlists.end(); ++it) {
        QJsonObject o = it->toObject();
        o.remove(QStringLiteral("lastModification"));
        *it = o;
    }
    return playlists;
}

QList<qint64> ids(const QJsonArray &songs)
{
    QList<qint64> out;
    for (const auto &v : songs)
        out.append(v.toObject().value(QStringLiteral("songID")).toInteger());
    return out;
}

class CliLibraryTest : public ::testing::Test {
protected:
    CliHarness cli;

    // Four songs with files, one whose file is gone, one row without a path; three playlists.
    void buildLibrary()
    {
        QString rows = QString::fromUtf8(kSchema);
        struct Row { qint64 id; const char *file; const char *name; const char *artist; const char *album; int track; };
        const Row songs[] = {
            {-10, "a.flac", "Track 10", "The Zeds", "Alpha", 2},
            {-11, "b.flac", "Track 9", "Abba", "Beta", 1},
            {-12, "c.flac", "Intro", "The Zeds", "Alpha", 1},
            {-13, "d.flac", "Outro", nullptr, "Gamma", 1},
            {-14, "gone.flac", "Lost", "Abba", "Arrival", 3},
        };
        for (const Row &r : songs) {
            const QString path = cli.musicDir() + QLatin1Char('/') + QLatin1String(r.file);
            if (r.id != -14)
                TestEnvironment::makeSine(path, 0.1);
            rows += QStringLiteral(
                        "INSERT INTO t_song VALUES (%1, '%2', '%3', %4, '%5', NULL, NULL, 'Rock', "
                        "'FLAC Audio File', '%6', NULL, 0.1, 1234, 44100, 900000, "
                        "'2012-03-04 12:34:56 +0000', %6, 0);\n")
                        .arg(r.id)
                        .arg(path, QLatin1String(r.name),
                             r.artist ? QStringLiteral("'%1'").arg(QLatin1String(r.artist)) : QStringLiteral("NULL"),
                             QLatin1String(r.album))
                        .arg(r.track);
        }
        rows += QStringLiteral("INSERT INTO t_song (songID, path, name) VALUES (-15, '', 'No path');\n");
        rows += QStringLiteral(
            "UPDATE t_playlist SET sortKey = 'artist', sortAscending = 0 WHERE playlistID = -1;\n"
            "INSERT INTO t_playlist VALUES (100, 0, 'Mix', 0, 1, 'ordinal', 0);\n"
            "INSERT INTO t_playlist VALUES (200, 0, 'By name', 0, 0, 'name', 1);\n"
            "INSERT INTO t_playlist VALUES (300, 0, 'Never touched', NULL, NULL, NULL, NULL);\n"
            "INSERT INTO t_playlist VALUES (400, 0, 'Null key', 0, 0, '(null)', 0);\n"
            "INSERT INTO t_playlistSong VALUES (100, -12, 5);\n"
            "INSERT INTO t_playlistSong VALUES (100, -10, 1);\n"
            "INSERT INTO t_playlistSong VALUES (100, 999, 2);\n"
            "INSERT INTO t_playlistSong VALUES (100, -14, 3);\n"
            "INSERT INTO t_playlistSong VALUES (200, -10, 0);\n"
            "INSERT INTO t_playlistSong VALUES (200, -11, 1);\n"
            "INSERT INTO t_playlistSong VALUES (300, -13, 0);\n"
            "INSERT INTO t_playlistSong VALUES (300, -11, 1);\n");
        cli.sql(rows);
    }
};

} // namespace

TEST_F(CliLibraryTest, AHandBuiltLibraryFileLoadsAsWritten)
{
    buildLibrary();
    const QJsonArray library = cli.songs();
    // Artist descending: "zeds" then "abba"; albums inside run with it, tracks up; no artist last.
    EXPECT_EQ(ids(library), (QList<qint64>{-12, -10, -11, -14, -13}));
    for (const auto &v : library) {
        const QJsonObject song = v.toObject();
        EXPECT_EQ(song.value(QStringLiteral("isMissing")).toBool(),
                  song.value(QStringLiteral("songID")).toInteger() == -14);
        EXPECT_EQ(song.value(QStringLiteral("dateAdded")).toString(), QStringLiteral("2012-03-04T12:34:56Z"));
        EXPECT_FALSE(song.contains(QStringLiteral("albumArtist"))); // absent values are left out
    }
    const QJsonObject first = library.first().toObject();
    EXPECT_EQ(first.value(QStringLiteral("name")).toString(), QStringLiteral("Intro"));
    EXPECT_EQ(first.value(QStringLiteral("kind")).toString(), QStringLiteral("FLAC Audio File"));
    EXPECT_EQ(first.value(QStringLiteral("sampleRate")).toDouble(), 44100.0);
    EXPECT_EQ(first.value(QStringLiteral("path")).toString(), cli.musicDir() + QStringLiteral("/c.flac"));
    // The row without a path is not in the library but stays in the file.
    EXPECT_EQ(cli.sql(QStringLiteral("SELECT COUNT(*) FROM t_song WHERE songID = -15;")), QStringLiteral("1"));

    EXPECT_EQ(ids(cli.songs({QStringLiteral("--playlist"), QStringLiteral("100")})),
              (QList<qint64>{-10, -14, -12}));
    EXPECT_EQ(ids(cli.songs({QStringLiteral("--playlist"), QStringLiteral("200")})),
              (QList<qint64>{-11, -10})); // "Track 9" before "Track 10"

    const QJsonArray playlists = cli.json({QStringLiteral("playlists"), QStringLiteral("--json")});
    ASSERT_EQ(playlists.size(), 6);
    const QJsonObject lib = playlists.at(0).toObject();
    EXPECT_EQ(lib.value(QStringLiteral("kind")).toString(), QStringLiteral("library"));
    EXPECT_EQ(lib.value(QStringLiteral("sortKey")).toString(), QStringLiteral("artist"));
    EXPECT_FALSE(lib.value(QStringLiteral("sortAscending")).toBool());
    EXPECT_EQ(lib.value(QStringLiteral("count")).toInt(), 5);
    const QJsonObject mix = playlists.at(1).toObject();
    EXPECT_EQ(mix.value(QStringLiteral("name")).toString(), QStringLiteral("Mix"));
    EXPECT_EQ(mix.value(QStringLiteral("repeatMode")).toInt(), 1);
    EXPECT_EQ(mix.value(QStringLiteral("count")).toInt(), 3);
    EXPECT_FALSE(playlists.at(3).toObject().contains(QStringLiteral("sortKey"))); // NULL
    EXPECT_FALSE(playlists.at(4).toObject().contains(QStringLiteral("sortKey"))); // '(null)'
    EXPECT_EQ(playlists.at(5).toObject().value(QStringLiteral("kind")).toString(), QStringLiteral("iTunesLibrary"));
    EXPECT_TRUE(playlists.at(5).toObject().value(QStringLiteral("locked")).toBool());
}

TEST_F(CliLibraryTest, ChangesSurviveEveryRestartAndReachTheRows)
{
    buildLibrary();
    const auto ok = [this](const QStringList &args) {
        const auto r = cli.run(args);
        EXPECT_EQ(r.status, 0) << args.join(u' ').toStdString() << ": " << r.err.constData();
        return QString::fromUtf8(r.out).trimmed();
    };
    const QString id = ok({QStringLiteral("playlist"), QStringLiteral("new"), QStringLiteral("-10"), QStringLiteral("-11")});
    ASSERT_FALSE(id.isEmpty());
    ok({QStringLiteral("playlist"), QStringLiteral("rename"), id, QStringLiteral("Rock 'n' Roll")});
    ok({QStringLiteral("playlist"), QStringLiteral("add"), id, QStringLiteral("-12"), QStringLiteral("-13")});
    ok({QStringLiteral("playlist"), QStringLiteral("move"), id, QStringLiteral("2"), QStringLiteral("3"), QStringLiteral("--to"), QStringLiteral("0")});
    EXPECT_EQ(ids(cli.songs({QStringLiteral("--playlist"), id})), (QList<qint64>{-12, -13, -10, -11}));
    ok({QStringLiteral("playlist"), QStringLiteral("remove"), id, QStringLiteral("1")});
    ok({QStringLiteral("playlist"), QStringLiteral("set"), QStringLiteral("200"), QStringLiteral("--sort"), QStringLiteral("name"), QStringLiteral("--descending"), QStringLiteral("--repeat"), QStringLiteral("2")});
    ok({QStringLiteral("playlist"), QStringLiteral("set"), QStringLiteral("100"), QStringLiteral("--shuffle"), QStringLiteral("on")});
    ok({QStringLiteral("playlist"), QStringLiteral("delete"), QStringLiteral("300")});
    ok({QStringLiteral("remove"), QStringLiteral("-11")});
    ok({QStringLiteral("tag"), QStringLiteral("-10"), QStringLiteral("title=Renamed"), QStringLiteral("track=4 of 9")});

    const QStringList songsOfNew = {QStringLiteral("songs"), QStringLiteral("--playlist"), id, QStringLiteral("--json")};
    const QJsonArray playlists = withoutStamps(cli.json({QStringLiteral("playlists"), QStringLiteral("--json")}));
    const QJsonArray newSongs = cli.json(songsOfNew);
    const QJsonArray shuffled = cli.songs({QStringLiteral("--playlist"), QStringLiteral("100")});
    EXPECT_EQ(ids(newSongs), (QList<qint64>{-12, -10}));
    for (int restart = 0; restart < 3; ++restart) {
        EXPECT_EQ(withoutStamps(cli.json({QStringLiteral("playlists"), QStringLiteral("--json")})), playlists);
        EXPECT_EQ(cli.json(songsOfNew), newSongs);
        // Shuffle stays on; each start deals its own order of the same songs.
        QList<qint64> dealt = ids(cli.songs({QStringLiteral("--playlist"), QStringLiteral("100")}));
        QList<qint64> before = ids(shuffled);
        std::sort(dealt.begin(), dealt.end());
        std::sort(before.begin(), before.end());
        EXPECT_EQ(dealt, before);
    }
    QStringList names;
    for (const auto &p : playlists)
        names << p.toObject().value(QStringLiteral("name")).toString();
    EXPECT_TRUE(names.contains(QStringLiteral("Rock 'n' Roll")));
    EXPECT_FALSE(names.contains(QStringLiteral("Never touched")));

    // What the sqlite3 command line sees.
    EXPECT_EQ(cli.sql(QStringLiteral(
                          "SELECT group_concat(songID) FROM (SELECT songID FROM t_playlistSong WHERE "
                          "playlistID = %1 ORDER BY ordinal);"
                          "SELECT name, sortKey, sortAscending FROM t_playlist WHERE playlistID = %1;"
                          "SELECT sortKey, sortAscending, repeatMode FROM t_playlist WHERE playlistID = 200;"
                          "SELECT shuffle FROM t_playlist WHERE playlistID = 100;"
                          "SELECT COUNT(*) FROM t_playlist WHERE playlistID = 300;"
                          "SELECT COUNT(*) FROM t_playlistSong WHERE playlistID = 300 OR songID = -11;"
                          "SELECT COUNT(*) FROM t_song WHERE songID = -11;"
                          "SELECT name, track, trackNumber FROM t_song WHERE songID = -10;")
                          .arg(id)),
              QStringLiteral("-12,-10\nRock 'n' Roll|ordinal|0\nname|0|2\n1\n0\n0\n0\nRenamed|4 of 9|4"));
    // The audio file itself carries the new tag.
    QByteArray probe;
    TestEnvironment::run(QStringLiteral("ffprobe"), {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-show_entries"),
                                                    QStringLiteral("format_tags=title"), QStringLiteral("-of"), QStringLiteral("csv=p=0"),
                                                    cli.musicDir() + QStringLiteral("/a.flac")},
                         &probe);
    EXPECT_EQ(QString::fromUtf8(probe).trimmed(), QStringLiteral("Renamed"));
}

// The options only: folding, words and scopes are SongPredicateTest's and PlaylistTest's.
TEST_F(CliLibraryTest, SearchNarrowsTheListing)
{
    buildLibrary();
    EXPECT_EQ(ids(cli.songs({QStringLiteral("--search"), QStringLiteral("zed")})), (QList<qint64>{-12, -10}));
    EXPECT_EQ(ids(cli.songs({QStringLiteral("--search"), QStringLiteral("track 9"), QStringLiteral("--scope"),
                             QStringLiteral("1")})),
              (QList<qint64>{-11}));
}

TEST_F(CliLibraryTest, BadInputGivesClearMessagesAndFailingStatus)
{
    buildLibrary();
    const auto expectFailure = [this](const QStringList &args, int status, const char *words) {
        const auto r = cli.run(args);
        EXPECT_EQ(r.status, status) << args.join(u' ').toStdString();
        EXPECT_TRUE(QString::fromUtf8(r.err).contains(QLatin1String(words)))
            << args.join(u' ').toStdString() << " said: " << r.err.constData();
    };
    expectFailure({QStringLiteral("frobnicate")}, 2, "unknown command");
    expectFailure({QStringLiteral("songs"), QStringLiteral("--playlist"), QStringLiteral("12345")}, 1, "no playlist has the ID 12345");
    expectFailure({QStringLiteral("songs"), QStringLiteral("--scope"), QStringLiteral("9")}, 2, "--scope");
    expectFailure({QStringLiteral("playlist"), QStringLiteral("add"), QStringLiteral("100"), QStringLiteral("777")}, 1, "no song has the ID 777");
    expectFailure({QStringLiteral("playlist"), QStringLiteral("delete"), QStringLiteral("-1")}, 1, "can't be changed");
    expectFailure({QStringLiteral("playlist"), QStringLiteral("remove"), QStringLiteral("100"), QStringLiteral("9")}, 1, "outside the playlist");
    expectFailure({QStringLiteral("playlist"), QStringLiteral("move"), QStringLiteral("200"), QStringLiteral("0"), QStringLiteral("--to"), QStringLiteral("1")}, 1, "sorted or shuffled");
    expectFailure({QStringLiteral("playlist"), QStringLiteral("set"), QStringLiteral("100"), QStringLiteral("--shuffle"), QStringLiteral("maybe")}, 2, "on or off");
    expectFailure({QStringLiteral("tag"), QStringLiteral("-10"), QStringLiteral("mood=happy")}, 2, "KEY=VALUE");
    expectFailure({QStringLiteral("tag"), QStringLiteral("-14"), QStringLiteral("title=x")}, 1, "missing");
    expectFailure({QStringLiteral("tag"), QStringLiteral("-10"), QStringLiteral("track=abc")}, 2, "a number or \"N of M\"");
    expectFailure({QStringLiteral("tag"), QStringLiteral("-10"), QStringLiteral("disc=1 of x")}, 2, "a number or \"N of M\"");
    const QString lost = QString::fromUtf8(cli.run({QStringLiteral("playlist"), QStringLiteral("new"), QStringLiteral("-14")}).out).trimmed();
    expectFailure({QStringLiteral("render"), QStringLiteral("--playlist"), lost, QStringLiteral("--out"), cli.musicDir() + QStringLiteral("/x.wav")},
                  1, "every song of the playlist");
    expectFailure({QStringLiteral("settings"), QStringLiteral("set"), QStringLiteral("volumeKnob"), QStringLiteral("loud")}, 2, "JSON");
    const QString mp3 = cli.musicDir() + QStringLiteral("/x.mp3");
    expectFailure({QStringLiteral("render"), QStringLiteral("--out"), mp3}, 2, ".wav");
    EXPECT_FALSE(QFile::exists(mp3)) << "no WAV under another name";

    // A line break in a tag stays on the song's one line of the listing.
    ASSERT_EQ(cli.run({QStringLiteral("tag"), QStringLiteral("-13"), QStringLiteral("title=two\nlines")}).status, 0);
    const QByteArray listing = cli.run({QStringLiteral("songs")}).out;
    EXPECT_EQ(listing.count('\n'), 5) << listing.constData();
    EXPECT_TRUE(listing.contains("two\\nlines")) << listing.constData();

    // An audio file that became garbage: the tag write says why.
    ASSERT_TRUE(TestEnvironment::writeFile(cli.musicDir() + QStringLiteral("/b.flac"), QByteArray(2048, '\x7f')));
    const auto r = cli.run({QStringLiteral("tag"), QStringLiteral("-11"), QStringLiteral("title=x")});
    EXPECT_EQ(r.status, 1);
    EXPECT_FALSE(r.err.isEmpty());

    const auto help = cli.run({QStringLiteral("playlist"), QStringLiteral("--help")});
    EXPECT_EQ(help.status, 0);
    EXPECT_TRUE(help.out.contains("move ID ROW"));
}

TEST_F(CliLibraryTest, SettingsRoundTripAsJson)
{
    EXPECT_EQ(QString::fromUtf8(cli.run({QStringLiteral("settings"), QStringLiteral("get"), QStringLiteral("librarySplitPosition")}).out).trimmed(),
              QStringLiteral("167"));
    cli.set(QStringLiteral("preferredFormat"),
            QStringLiteral("{\"format\": 6, \"sampleRate\": 96000, \"bitDepth\": 24}"));
    EXPECT_EQ(QString::fromUtf8(cli.run({QStringLiteral("settings"), QStringLiteral("get"), QStringLiteral("preferredFormat")}).out).trimmed(),
              QStringLiteral("{\"bitDepth\":24,\"format\":6,\"sampleRate\":96000}"));
    EXPECT_EQ(QString::fromUtf8(cli.run({QStringLiteral("settings"), QStringLiteral("get"), QStringLiteral("noSuchKey")}).out).trimmed(),
              QStringLiteral("null"));
    // Stored as an integer in the property list, as the program's own integer settings are.
    QFile prefs(cli.configDir() + QStringLiteral("/Preferences.plist"));
    ASSERT_TRUE(prefs.open(QIODevice::ReadOnly));
    EXPECT_TRUE(prefs.readAll().contains("<integer>96000</integer>"));
}

TEST_F(CliLibraryTest, PlayShowsTheSongItsTimesAndTheDeviceFormatOnATerminalOnly)
{
    TestEnvironment::makeSine(cli.musicDir() + QStringLiteral("/tone.wav"), 1.2, 44100, 2, {QStringLiteral("-b"), QStringLiteral("16")});
    ASSERT_EQ(cli.run({QStringLiteral("import"), cli.musicDir()}).status, 0);
    const QString device = QStringLiteral("capture:%1/out.wav?bits=24").arg(cli.dataDir());
    const QByteArray shown = cli.runOnTerminal(QStringLiteral("play --device '%1'").arg(device));
    EXPECT_TRUE(shown.contains("\rtone  0:00 / 0:01  44.1 kHz 24-bit, bit-perfect")) << shown.constData();
    const CliHarness::Result piped = cli.run({QStringLiteral("play"), QStringLiteral("--device"), device});
    EXPECT_EQ(piped.status, 0) << piped.err.constData();
    EXPECT_TRUE(piped.out.isEmpty()) << piped.out.constData();
}
