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
        o.remove("lastModification");
        *it = o;
    }
    return playlists;
}

QList<qint64> ids(const QJsonArray &songs)
{
    QList<qint64> out;
    for (const auto &v : songs)
        out.append(v.toObject().value("songID").toInteger());
    return out;
}

class CliLibraryTest : public ::testing::Test {
protected:
    CliHarness cli;

    // Four songs with files, one whose file is gone, one row without a path; three playlists.
    void buildLibrary()
    {
        QString rows = kSchema;
        struct Row {
            qint64 id;
            const char *file, *name, *artist, *album;
            int track;
        };
        const Row songs[] = {
            {-10, "a.flac", "Track 10", "'The Zeds'", "Alpha", 2},
            {-11, "b.flac", "Track 9", "'Abba'", "Beta", 1},
            {-12, "c.flac", "Intro", "'The Zeds'", "Alpha", 1},
            {-13, "d.flac", "Outro", "NULL", "Gamma", 1},
            {-14, "gone.flac", "Lost", "'Abba'", "Arrival", 3},
        };
        for (const Row &r : songs) {
            const QString path = cli.musicDir() + '/' + r.file;
            if (r.id != -14)
                TestEnvironment::makeSine(path, 0.1);
            rows += QString("INSERT INTO t_song VALUES (%1, '%2', '%3', %4, '%5', NULL, NULL, 'Rock', "
                            "'FLAC Audio File', '%6', NULL, 0.1, 1234, 44100, 900000, "
                            "'2012-03-04 12:34:56 +0000', %6, 0);\n")
                        .arg(r.id)
                        .arg(path, r.name, r.artist, r.album)
                        .arg(r.track);
        }
        rows +=
            "INSERT INTO t_song (songID, path, name) VALUES (-15, '', 'No path');\n"
            "UPDATE t_playlist SET sortKey = 'artist', sortAscending = 0 WHERE playlistID = -1;\n"
            "INSERT INTO t_playlist VALUES (100, 0, 'Mix', 0, 1, 'ordinal', 0);\n"
            "INSERT INTO t_playlist VALUES (200, 0, 'By name', 0, 0, 'name', 1);\n"
            "INSERT INTO t_playlist VALUES (300, 0, 'Never touched', NULL, NULL, NULL, NULL);\n"
            "INSERT INTO t_playlist VALUES (400, 0, 'Null key', 0, 0, '(null)', 0);\n"
            "INSERT INTO t_playlistSong VALUES (100, -12, 5), (100, -10, 1), (100, 999, 2), (100, -14, 3),"
            " (200, -10, 0), (200, -11, 1), (300, -13, 0), (300, -11, 1);\n";
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
        EXPECT_EQ(song.value("isMissing").toBool(), song.value("songID").toInteger() == -14);
        EXPECT_EQ(song.value("dateAdded").toString(), "2012-03-04T12:34:56Z");
        EXPECT_FALSE(song.contains("albumArtist")); // absent values are left out
    }
    const QJsonObject first = library.first().toObject();
    EXPECT_EQ(first.value("name").toString(), "Intro");
    EXPECT_EQ(first.value("kind").toString(), "FLAC Audio File");
    EXPECT_EQ(first.value("sampleRate").toDouble(), 44100.0);
    EXPECT_EQ(first.value("path").toString(), cli.musicDir() + "/c.flac");
    // The row without a path is not in the library but stays in the file.
    EXPECT_EQ(cli.sql("SELECT COUNT(*) FROM t_song WHERE songID = -15;"), "1");

    EXPECT_EQ(ids(cli.songs({"--playlist", "100"})), (QList<qint64>{-10, -14, -12}));
    EXPECT_EQ(ids(cli.songs({"--playlist", "200"})), (QList<qint64>{-11, -10})); // "Track 9" first
    // The search options only: folding, words and scopes are SongPredicateTest's and PlaylistTest's.
    EXPECT_EQ(ids(cli.songs({"--search", "zed"})), (QList<qint64>{-12, -10}));
    EXPECT_EQ(ids(cli.songs({"--search", "track 9", "--scope", "1"})), (QList<qint64>{-11}));

    const QJsonArray playlists = cli.json({"playlists", "--json"});
    ASSERT_EQ(playlists.size(), 6);
    const QJsonObject lib = playlists.at(0).toObject();
    EXPECT_EQ(lib.value("kind").toString(), "library");
    EXPECT_EQ(lib.value("sortKey").toString(), "artist");
    EXPECT_FALSE(lib.value("sortAscending").toBool());
    EXPECT_EQ(lib.value("count").toInt(), 5);
    const QJsonObject mix = playlists.at(1).toObject();
    EXPECT_EQ(mix.value("name").toString(), "Mix");
    EXPECT_EQ(mix.value("repeatMode").toInt(), 1);
    EXPECT_EQ(mix.value("count").toInt(), 3);
    EXPECT_FALSE(playlists.at(3).toObject().contains("sortKey")); // NULL
    EXPECT_FALSE(playlists.at(4).toObject().contains("sortKey")); // '(null)'
    EXPECT_EQ(playlists.at(5).toObject().value("kind").toString(), "iTunesLibrary");
    EXPECT_TRUE(playlists.at(5).toObject().value("locked").toBool());
}

TEST_F(CliLibraryTest, ChangesSurviveEveryRestartAndReachTheRows)
{
    buildLibrary();
    const auto ok = [this](const QStringList &args) {
        const auto r = cli.run(args);
        EXPECT_EQ(r.status, 0) << args.join(u' ').toStdString() << ": " << r.err.constData();
        return QString::fromUtf8(r.out).trimmed();
    };
    const QString id = ok({"playlist", "new", "-10", "-11"});
    ASSERT_FALSE(id.isEmpty());
    ok({"playlist", "rename", id, "Rock 'n' Roll"});
    ok({"playlist", "add", id, "-12", "-13"});
    ok({"playlist", "move", id, "2", "3", "--to", "0"});
    EXPECT_EQ(ids(cli.songs({"--playlist", id})), (QList<qint64>{-12, -13, -10, -11}));
    ok({"playlist", "remove", id, "1"});
    ok({"playlist", "set", "200", "--sort", "name", "--descending", "--repeat", "2"});
    ok({"playlist", "set", "100", "--shuffle", "on"});
    ok({"playlist", "delete", "300"});
    ok({"remove", "-11"});
    ok({"tag", "-10", "title=Renamed", "track=4 of 9"});

    const QJsonArray playlists = withoutStamps(cli.json({"playlists", "--json"}));
    const QJsonArray newSongs = cli.songs({"--playlist", id});
    QList<qint64> dealt = ids(cli.songs({"--playlist", "100"}));
    EXPECT_EQ(ids(newSongs), (QList<qint64>{-12, -10}));
    // The next start reads the same; shuffle stays on, and it deals its own order of the same songs.
    EXPECT_EQ(withoutStamps(cli.json({"playlists", "--json"})), playlists);
    EXPECT_EQ(cli.songs({"--playlist", id}), newSongs);
    QList<qint64> again = ids(cli.songs({"--playlist", "100"}));
    std::sort(dealt.begin(), dealt.end());
    std::sort(again.begin(), again.end());
    EXPECT_EQ(again, dealt);

    // What the sqlite3 command line sees: -11 left the library and every list, -13 only the new one.
    EXPECT_EQ(
        cli.sql(QString("SELECT group_concat(songID) FROM (SELECT songID FROM t_playlistSong WHERE "
                        "playlistID = %1 ORDER BY ordinal);"
                        "SELECT name, sortKey, sortAscending FROM t_playlist WHERE playlistID = %1;"
                        "SELECT sortKey, sortAscending, repeatMode FROM t_playlist WHERE playlistID = 200;"
                        "SELECT shuffle FROM t_playlist WHERE playlistID = 100;"
                        "SELECT COUNT(*) FROM t_playlist WHERE playlistID = 300;"
                        "SELECT COUNT(*) FROM t_playlistSong WHERE playlistID = 300 OR songID = -11;"
                        "SELECT group_concat(songID) FROM t_song WHERE songID IN (-11, -13);"
                        "SELECT name, track, trackNumber FROM t_song WHERE songID = -10;")
                    .arg(id)),
        "-12,-10\nRock 'n' Roll|ordinal|0\nname|0|2\n1\n0\n0\n-13\nRenamed|4 of 9|4");
}

TEST_F(CliLibraryTest, BadInputGivesClearMessagesAndFailingStatus)
{
    buildLibrary();
    const QString lost = QString::fromUtf8(cli.run({"playlist", "new", "-14"}).out).trimmed();
    const QString mp3 = cli.musicDir() + "/x.mp3";
    const struct {
        QStringList args;
        int status;
        const char *words;
    } cases[] = {
        {{"frobnicate"}, 2, "unknown command"},
        {{"songs", "--playlist", "12345"}, 1, "no playlist has the ID 12345"},
        {{"songs", "--scope", "9"}, 2, "--scope"},
        {{"playlist", "add", "100", "777"}, 1, "no song has the ID 777"},
        {{"playlist", "delete", "-1"}, 1, "can't be changed"},
        {{"playlist", "remove", "100", "9"}, 1, "outside the playlist"},
        {{"playlist", "move", "200", "0", "--to", "1"}, 1, "sorted or shuffled"},
        {{"playlist", "set", "100", "--shuffle", "maybe"}, 2, "on or off"},
        {{"tag", "-10", "mood=happy"}, 2, "KEY=VALUE"},
        {{"tag", "-14", "title=x"}, 1, "missing"},
        {{"tag", "-10", "track=abc"}, 2, "a number or \"N of M\""},
        {{"tag", "-10", "disc=1 of x"}, 2, "a number or \"N of M\""},
        {{"render", "--playlist", lost, "--out", cli.musicDir() + "/x.wav"}, 1, "every song of the playlist"},
        {{"settings", "set", "volumeKnob", "loud"}, 2, "JSON"},
        {{"render", "--out", mp3}, 2, ".wav"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.args.join(u' ').toStdString());
        const auto r = cli.run(c.args);
        EXPECT_EQ(r.status, c.status);
        EXPECT_TRUE(r.err.contains(c.words)) << r.err.constData();
    }
    EXPECT_FALSE(QFile::exists(mp3)) << "no WAV under another name";

    // A line break in a tag stays on the song's one line of the listing.
    ASSERT_EQ(cli.run({"tag", "-13", "title=two\nlines"}).status, 0);
    const QByteArray listing = cli.run({"songs"}).out;
    EXPECT_EQ(listing.count('\n'), 5) << listing.constData();
    EXPECT_TRUE(listing.contains("two\\nlines")) << listing.constData();

    // An audio file that became garbage: the tag write says why.
    ASSERT_TRUE(TestEnvironment::writeFile(cli.musicDir() + "/b.flac", QByteArray(2048, '\x7f')));
    const auto r = cli.run({"tag", "-11", "title=x"});
    EXPECT_EQ(r.status, 1);
    EXPECT_FALSE(r.err.isEmpty());

    const auto help = cli.run({"playlist", "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_TRUE(help.out.contains("move ID ROW"));
}

TEST_F(CliLibraryTest, SettingsRoundTripAsJson)
{
    const auto get = [this](const char *key) { return cli.run({"settings", "get", key}).out.trimmed(); };
    EXPECT_EQ(get("librarySplitPosition"), "167");
    cli.set("preferredFormat", "{\"format\": 6, \"sampleRate\": 96000, \"bitDepth\": 24}");
    EXPECT_EQ(get("preferredFormat"), "{\"bitDepth\":24,\"format\":6,\"sampleRate\":96000}");
    EXPECT_EQ(get("noSuchKey"), "null");
    // Stored as an integer in the property list, as the program's own integer settings are.
    EXPECT_TRUE(TestEnvironment::readFile(cli.configDir() + "/Preferences.plist")
                    .contains("<integer>96000</integer>"));
}

TEST_F(CliLibraryTest, PlayShowsTheSongItsTimesAndTheDeviceFormatOnATerminalOnly)
{
    TestEnvironment::makeSine(cli.musicDir() + "/tone.wav", 1.2, 44100, 2, {"-b", "16"});
    ASSERT_EQ(cli.run({"import", cli.musicDir()}).status, 0);
    const QString device = QString("capture:%1/out.wav?bits=24").arg(cli.dataDir());
    const QByteArray shown = cli.runOnTerminal(QString("play --device '%1'").arg(device));
    EXPECT_TRUE(shown.contains("\rtone  0:00 / 0:01  44.1 kHz 24-bit, bit-perfect")) << shown.constData();
    const CliHarness::Result piped = cli.run({"play", "--device", device});
    EXPECT_EQ(piped.status, 0) << piped.err.constData();
    EXPECT_TRUE(piped.out.isEmpty()) << piped.out.constData();
}
