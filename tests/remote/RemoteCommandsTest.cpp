#include "FakeRemoteHost.h"
#include "core/VEKLog.h"
#include "remote/Remote.h"
#include "settings/UserDefaults.h"
#include "support/TestEnvironment.h"
#include "text/VEKText.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

namespace {

class RemoteCommands : public ::testing::Test {
protected:
    void SetUp() override
    {
        defaults = std::make_unique<UserDefaults>(TestEnvironment::makeTempDir() + "/Preferences.plist");
        remote = std::make_unique<Remote>(Remote::Configuration{
            .host = &host, .defaults = defaults.get(), .port = 0, .name = QStringLiteral("Testhost")});
        VEKSetLogSink([this](const QString &line) { log << line; });
    }
    void TearDown() override { VEKSetLogSink({}); }

    std::optional<QVariantMap> ask(const QString &command, QVariantMap args = {})
    {
        args.insert(QStringLiteral("command"), command);
        return remote->handleRequest(args);
    }
    QVariantMap reply(const QString &command, const QVariantMap &args = {})
    {
        const auto r = ask(command, args);
        EXPECT_TRUE(r.has_value()) << command.toStdString();
        return r.value_or(QVariantMap());
    }

    FakeRemoteHost host;
    std::unique_ptr<UserDefaults> defaults;
    std::unique_ptr<Remote> remote;
    QStringList log;
};

QStringList keysOf(const QVariant &entry) { return entry.toMap().keys(); }

QList<qint64> songIDs(const QVariant &songs)
{
    QList<qint64> ids;
    for (const QVariant &e : songs.toList())
        ids.append(e.toMap().value("songID").toLongLong());
    return ids;
}

QStringList sorted(QStringList l)
{
    l.sort();
    return l;
}

} // namespace

// --- Entry shapes ----------------------------------------------------------------------------

TEST_F(RemoteCommands, FullSongEntriesEndAtTheFirstAbsentValue)
{
    host.add(FakeRemoteHost::song(1, "One", "Artist", "Album"));
    host.add(FakeRemoteHost::song(2, "Two", nullptr, "Album"));
    host.add(FakeRemoteHost::song(3, nullptr, "Artist", "Album"));
    host.add(FakeRemoteHost::song(4, "Four", "Artist", nullptr), true);

    QHash<qint64, QStringList> keys;
    for (const QVariant &e : reply("getSongs").value("songs").toList())
        keys.insert(e.toMap().value("songID").toLongLong(), sorted(keysOf(e)));
    ASSERT_EQ(keys.size(), 4) << "songs of both libraries";
    EXPECT_EQ(keys[1], QStringList({"album", "artist", "name", "songID"}));
    EXPECT_EQ(keys[2], QStringList({"name", "songID"})) << "no artist: the album goes too";
    EXPECT_EQ(keys[3], QStringList({"songID"}));
    EXPECT_EQ(keys[4], QStringList({"artist", "name", "songID"}));
    const QVariant id = reply("getSongs").value("songs").toList().first().toMap().value("songID");
    EXPECT_EQ(id.typeId(), QMetaType::LongLong);
}

TEST_F(RemoteCommands, PlaylistSongEntriesLeaveOutEachAbsentValueAloneInManualOrder)
{
    const SongPtr a = host.add(FakeRemoteHost::song(1, "Zed", nullptr, "Album", 7, 2));
    const SongPtr b = host.add(FakeRemoteHost::song(2, "Alpha", "Artist", nullptr));
    const SongPtr c = host.add(FakeRemoteHost::song(3, "Middle", "Artist", "Album", 1, 1));
    const PlaylistPtr p = host.addPlaylist(500, "Mix", {a, b, c});
    p->setSortKey(QStringLiteral("name"));
    p->setSortAscending(true);
    ASSERT_NE(p->songs().first(), a) << "the playlist shows another order locally";

    const QVariantList songs = reply("getSongsForPlaylist", {{"playlistID", 500}}).value("songs").toList();
    EXPECT_EQ(songIDs(songs), QList<qint64>({1, 2, 3}));
    const QVariantMap first = songs.at(0).toMap();
    EXPECT_EQ(sorted(first.keys()),
              QStringList({"album", "discNumber", "name", "songID", "trackNumber"}));
    EXPECT_EQ(first.value("trackNumber").toULongLong(), 7u);
    EXPECT_EQ(first.value("trackNumber").typeId(), QMetaType::ULongLong);
    EXPECT_EQ(first.value("discNumber").toULongLong(), 2u);
    const QVariantMap second = songs.at(1).toMap();
    EXPECT_EQ(sorted(second.keys()),
              QStringList({"artist", "discNumber", "name", "songID", "trackNumber"}));
    EXPECT_EQ(second.value("trackNumber").toULongLong(), 0u);

    EXPECT_EQ(reply("getSongsForPlaylist", {{"playlistID", 999}}).value("songs"), QVariantList());
}

TEST_F(RemoteCommands, PlaylistsListBothKindsAndNamelessOnesAsEmptyEntries)
{
    host.addPlaylist(77, "Mine", {});
    host.addPlaylist(78, QString(), {});
    const QVariantMap lists = reply("getPlaylists").value("playlists").toMap();
    const QVariantList local = lists.value("Quivera").toList();
    ASSERT_EQ(local.size(), 3);
    EXPECT_EQ(local.at(0).toMap(), QVariantMap({{"name", "Library"}, {"playlistID", qint64(-1)}}));
    EXPECT_EQ(local.at(1).toMap().value("playlistID"), QVariant(qint64(77)));
    EXPECT_EQ(local.at(2).toMap(), QVariantMap());
    EXPECT_EQ(lists.value("iTunes").toList().size(), 1) << "the iTunes all-songs playlist is always there";

    host.iTunesLists.clear();
    EXPECT_FALSE(reply("getPlaylists").value("playlists").toMap().contains("iTunes"));
}

// --- Selections and sorts ----------------------------------------------------------------------

TEST_F(RemoteCommands, ArtistAndAlbumSelectionsAreExactAndSortedByTrackAlone)
{
    host.add(FakeRemoteHost::song(1, "A3", "Band", "First", 3, 1));
    host.add(FakeRemoteHost::song(2, "A1", "Band", "First", 1, 1));
    host.add(FakeRemoteHost::song(3, "B2", "Band", "Second", 2, 2));
    host.add(FakeRemoteHost::song(4, "X", "band", "Third", 1));
    host.add(FakeRemoteHost::song(5, "Y", nullptr, "Loose", 1));

    EXPECT_EQ(songIDs(reply("getSongsForArtist", {{"artist", "Band"}}).value("songs")),
              QList<qint64>({2, 3, 1}));
    EXPECT_EQ(sorted(keysOf(reply("getSongsForArtist", {{"artist", "Band"}}).value("songs").toList().first())),
              QStringList({"name", "songID"}));
    EXPECT_EQ(songIDs(reply("getSongsForAlbum", {{"album", "First"}}).value("songs")),
              QList<qint64>({2, 1}));
    EXPECT_EQ(sorted(reply("getAlbumsForArtist", {{"artist", "Band"}}).value("albums").toStringList()),
              QStringList({"First", "Second"}));
    EXPECT_EQ(reply("getArtistHasMultipleAlbums", {{"artist", "Band"}}),
              QVariantMap({{"artist", "Band"}, {"hasMultipleAlbums", true}}));
    EXPECT_EQ(reply("getArtistHasMultipleAlbums", {{"artist", "band"}}),
              QVariantMap({{"artist", "band"}, {"hasMultipleAlbums", false}}));
    EXPECT_EQ(reply("getArtistHasMultipleAlbums", {{"artist", "Nobody"}}).value("hasMultipleAlbums"),
              QVariant(false));
    EXPECT_EQ(reply("getArtistHasMultipleAlbums"), QVariantMap()) << "no artist: only the echo";
    EXPECT_EQ(reply("getSongsForArtist", {{"artist", "Nobody"}}).value("songs"), QVariantList());
    EXPECT_EQ(reply("getAlbumsForArtist", {{"artist", "Nobody"}}).value("albums"), QVariant(QStringList()));

    EXPECT_EQ(sorted(reply("getArtists").value("artists").toStringList()),
              QStringList({"Band", "band"}));
    EXPECT_EQ(sorted(reply("getAlbums").value("albums").toStringList()),
              QStringList({"First", "Loose", "Second", "Third"}));
}

TEST_F(RemoteCommands, SearchFoldsCaseAndDiacriticsAndSortsEachList)
{
    host.add(FakeRemoteHost::song(1, "Jóga", "BJÖRK", "Homogenic"));
    host.add(FakeRemoteHost::song(2, "Hunter", "Björk", "Homogenic"));
    host.add(FakeRemoteHost::song(3, "bjork's song", "Other", "Post"));
    host.add(FakeRemoteHost::song(4, "Army of Me", "Someone", "Björk Covers"));
    host.add(FakeRemoteHost::song(5, "Björk Interview", nullptr, nullptr));

    const QVariantMap r = reply("getResultsOfSearch", {{"searchString", "bjork"}});
    EXPECT_EQ(r.value("artists").toStringList(), QStringList({"BJÖRK", "Björk"}));
    EXPECT_EQ(r.value("albums").toStringList(), QStringList({"Björk Covers"}));
    const QVariantList songs = r.value("songs").toList();
    EXPECT_EQ(songIDs(songs), QList<qint64>({5, 3})) << "by name, binary order";
    EXPECT_EQ(sorted(keysOf(songs.at(1))), QStringList({"artist", "name", "songID"}));
    EXPECT_EQ(sorted(keysOf(songs.at(0))), QStringList({"name", "songID"}));

    EXPECT_EQ(reply("getResultsOfSearch", {{"searchString", "HOMO"}}).keys(), QStringList({"albums"}));
    EXPECT_EQ(reply("getResultsOfSearch", {{"searchString", "nothing like it"}}), QVariantMap());
    EXPECT_EQ(reply("getResultsOfSearch", {{"searchString", ""}}), QVariantMap());
    EXPECT_EQ(reply("getResultsOfSearch", {{"searchString", 42}}), QVariantMap());
    EXPECT_EQ(reply("getResultsOfSearch", {{"searchString", "JÓGA"}}).keys(), QStringList({"songs"}))
        << "an accented, upper-case needle finds the same";
}

TEST_F(RemoteCommands, SearchFindsEveryAccentedLetterByItsFoldedForm)
{
    // Latin letters with their marks, precomposed and decomposed, in one library.
    QList<QString> names;
    for (char16_t u = 0xC0; u < 0x250; ++u) {
        if (u == 0xD7 || u == 0xF7)
            continue;
        names << QStringLiteral("x%1y").arg(QChar(u));
    }
    names << QString::fromUtf8("e\u0301te\u0301") << QString::fromUtf8("\u01D6ber") << QStringLiteral("STRASSE");
    qint64 id = 1;
    for (const QString &n : names)
        host.add(FakeRemoteHost::song(id++, n.toUtf8().constData(), nullptr, nullptr));
    for (const QString &n : names) {
        const QString folded = VEKText::foldCaseAndDiacritics(n);
        const QVariantList songs = reply("getResultsOfSearch", {{"searchString", folded}}).value("songs").toList();
        QStringList found;
        for (const QVariant &e : songs)
            found << e.toMap().value("name").toString();
        EXPECT_TRUE(found.contains(n)) << n.toStdString() << " by " << folded.toStdString();
    }
}

// --- Settings ----------------------------------------------------------------------------------

TEST_F(RemoteCommands, VolumeStepsFollowTheirSinglePrecisionRules)
{
    EXPECT_EQ(double(Remote::volumeStepUp(0.0f)), 0.0010000000474974513);
    EXPECT_EQ(Remote::volumeStepUp(0.001f), 0.001f * 1.2589254f);
    EXPECT_EQ(Remote::volumeStepUp(0.9f), 1.0f);
    EXPECT_EQ(Remote::volumeStepUp(1.0f), 1.0f);
    EXPECT_EQ(Remote::volumeStepDown(0.0009f), 0.0f);
    EXPECT_EQ(Remote::volumeStepDown(0.001f), 0.001f * 0.7943282f)
        << "the float nearest 0.001 lies above the bound";
    EXPECT_EQ(Remote::volumeStepDown(0.001f * 0.7943282f), 0.0f);
    EXPECT_EQ(Remote::volumeStepDown(0.0f), 0.0f);

    // Through the setting: up from silence, never beyond 1, and down to 0 again.
    EXPECT_FALSE(ask("volumeUp").has_value());
    EXPECT_EQ(defaults->doubleForKey("volume"), 0.0010000000474974513);
    for (int i = 0; i < 40; ++i)
        ask("volumeUp");
    EXPECT_EQ(defaults->doubleForKey("volume"), 1.0);
    for (int i = 0; i < 40; ++i)
        ask("volumeDown");
    EXPECT_EQ(defaults->doubleForKey("volume"), 0.0);
}

TEST_F(RemoteCommands, DimAndMuteStoreNumbersRemoveOnAbsenceAndIgnoreOtherTypes)
{
    EXPECT_FALSE(ask("dim", {{"value", true}}).has_value());
    EXPECT_TRUE(defaults->boolForKey("dim"));
    ask("dim", {{"value", "no"}});
    EXPECT_TRUE(defaults->boolForKey("dim")) << "text is no switch value";
    ask("dim", {{"value", QVariantMap{{"a", 1}}}});
    EXPECT_TRUE(defaults->boolForKey("dim"));
    ask("dim");
    EXPECT_FALSE(defaults->value("dim").isValid()) << "absent: the default comes back";
    ask("mute", {{"value", 1}});
    EXPECT_TRUE(defaults->boolForKey("mute"));
}

// --- Transport -----------------------------------------------------------------------------------

TEST_F(RemoteCommands, StatusWithoutASongHasOnlyTheFixedKeys)
{
    host.playing = true;
    host.location = 0.7f;
    const QVariantMap s = reply("getCurrentStatus");
    EXPECT_EQ(sorted(s.keys()), QStringList({"dim", "hostname", "isPlaying", "mute", "position"}));
    EXPECT_EQ(s.value("position"), QVariant(0.0f));
    EXPECT_EQ(s.value("position").typeId(), QMetaType::Float);
    EXPECT_EQ(s.value("hostname"), QVariant("Testhost"));
    EXPECT_EQ(s.value("isPlaying"), QVariant(true));

    host.current = FakeRemoteHost::song(9, "Name", nullptr, "Album");
    const QVariantMap t = reply("getCurrentStatus");
    EXPECT_EQ(t.value("position"), QVariant(0.7f));
    EXPECT_EQ(t.value("name"), QVariant("Name"));
    EXPECT_FALSE(t.contains("artist"));
    EXPECT_EQ(t.value("length"), QVariant(109.0));
}

TEST_F(RemoteCommands, PositionSeeksInsideTheSongAndRepliesWithTheNewStatus)
{
    host.current = FakeRemoteHost::song(9, "Name", "A", "B");
    const QVariantMap r = reply("position", {{"value", 0.5}, {"target", 3}});
    EXPECT_EQ(host.calls, QStringList({"seek 0.5"}));
    EXPECT_EQ(r.value("position"), QVariant(0.5f));
    EXPECT_EQ(r.value("target"), QVariant(3));
    EXPECT_FALSE(ask("position", {{"value", std::nan("")}}).has_value()) << "NaN is no position";
    reply("position", {{"value", 7.0}});
    reply("position");
    EXPECT_EQ(host.calls, QStringList({"seek 0.5", "seek 1", "seek 0"})) << "7 is clamped, absent is 0";
}

TEST_F(RemoteCommands, PlayTogglesAndTransportCommandsReplyNothing)
{
    EXPECT_FALSE(ask("play").has_value());
    EXPECT_FALSE(ask("play").has_value());
    EXPECT_FALSE(ask("next", {{"target", 1}}).has_value()) << "nothing to echo onto";
    EXPECT_FALSE(ask("previous").has_value());
    EXPECT_EQ(host.calls, QStringList({"play", "pause", "next", "previous"}));
}

TEST_F(RemoteCommands, PlaySongFindsTheAllSongsPlaylistAndKeepsTheSameOne)
{
    const SongPtr local = host.add(FakeRemoteHost::song(1, "L", "A", "B"));
    const SongPtr iTunes = host.add(FakeRemoteHost::song(2, "I", "A", "B"), true);
    const SongPtr stray = FakeRemoteHost::song(3, "S", "A", "B");
    host.songs.insert(3, stray);

    ask("playSong", {{"songID", 2}, {"playlistID", 0}});
    EXPECT_EQ(host.calls, QStringList({"setPlaylist 1", "select 1", "setCurrentSong 2", "play"}));
    host.calls.clear();
    ask("playSong", {{"songID", 2}});
    EXPECT_EQ(host.calls, QStringList({"select 1", "setCurrentSong 2", "play"}))
        << "the same playlist keeps its sequencing state";
    host.calls.clear();
    ask("playSong", {{"songID", 1}, {"playlistID", -1}});
    EXPECT_EQ(host.calls.first(), "setPlaylist -1");
    host.calls.clear();
    ask("playSong", {{"songID", 3}});
    EXPECT_EQ(host.calls, QStringList({"setPlaylist 0", "select 0", "setCurrentSong 3", "play"}))
        << "a song in neither all-songs playlist gets no playlist";
    host.calls.clear();
    ask("playSong", {{"songID", 3}});
    EXPECT_EQ(host.calls.first(), "select 0") << "no playlist, and none before either";
    host.calls.clear();
    ask("playSong");
    EXPECT_EQ(host.calls, QStringList({"select 0", "setCurrentSong 0", "play"}))
        << "absent arguments: no song, no playlist, and the stream's rules apply";
    host.current = local;
    host.calls.clear();
    for (const QVariantMap &odd : {QVariantMap{{"songID", "1"}}, QVariantMap{{"songID", 1}, {"playlistID", "x"}},
                                   QVariantMap{{"songID", 1}, {"playlistID", 1e300}}})
        EXPECT_FALSE(ask("playSong", odd).has_value());
    EXPECT_TRUE(host.calls.isEmpty()) << "a request with arguments of the wrong type touches nothing: "
                                      << host.calls.join(", ").toStdString();
    EXPECT_EQ(host.current, local);
}

TEST_F(RemoteCommands, TimeStampsComeFromTheHostAndThePlaylist)
{
    host.libraryStamp = 12.5;
    host.playlistStamp = 99.25;
    const PlaylistPtr p = host.addPlaylist(5, "P", {host.add(FakeRemoteHost::song(1, "One", "A", "B"))});
    EXPECT_EQ(reply("getSongsLastModification"), QVariantMap({{"lastModification", 12.5}}));
    EXPECT_EQ(reply("getPlaylistsLastModification"), QVariantMap({{"lastModification", 99.25}}));
    EXPECT_EQ(reply("getPlaylistLastModification", {{"playlistID", 5}}).value("lastModification"),
              QVariant(p->lastModification()));
    EXPECT_GT(p->lastModification(), 0.0);
    EXPECT_EQ(reply("getPlaylistLastModification", {{"playlistID", 6}}).value("lastModification"),
              QVariant(0.0));
    // The song listing reads a playlist ID as a 32-bit integer; the time stamp takes it whole.
    const qint64 wide = (qint64(1) << 32) + 5;
    EXPECT_EQ(songIDs(reply("getSongsForPlaylist", {{"playlistID", wide}}).value("songs")),
              QList<qint64>({1}));
    EXPECT_EQ(reply("getPlaylistLastModification", {{"playlistID", wide}}).value("lastModification"),
              QVariant(0.0));
}

// --- Dispatch ------------------------------------------------------------------------------------

TEST_F(RemoteCommands, TargetAndActionAreEchoedOnlyWhenSent)
{
    const QVariantMap echoed = reply("getCurrentStatus", {{"target", 7}, {"action", "x"}});
    EXPECT_EQ(echoed.value("target"), QVariant(7));
    EXPECT_EQ(echoed.value("action"), QVariant("x"));
    const QVariantMap plain = reply("getCurrentStatus");
    EXPECT_FALSE(plain.contains("target"));
    EXPECT_FALSE(plain.contains("action"));
    const QVariantMap nested = reply("getSongs", {{"target", QVariantList{1, "two"}}});
    EXPECT_EQ(nested.value("target"), QVariant(QVariantList{1, "two"}));
    // Arrays sharing their elements decode from a few hundred bytes into a tree of 2^18 values;
    // echoing that would send megabytes back for every request. The reply goes without it.
    QVariant huge = 1;
    for (int level = 0; level < 18; ++level)
        huge = QVariantList{huge, huge};
    const QVariantMap amplified = reply("getCurrentStatus", {{"target", huge}, {"action", "x"}});
    EXPECT_FALSE(amplified.contains("target"));
    EXPECT_EQ(amplified.value("action"), QVariant("x"));
    EXPECT_TRUE(amplified.contains("isPlaying"));
}

TEST_F(RemoteCommands, OnlyCommandsOfTheTableAreReached)
{
    EXPECT_EQ(Remote::commandTable().size(), 23);
    const QStringList refused = {"stop", "remote_play", "sharedInstance", "shutdownPipe",
                                 "getcurrentstatus", ""};
    for (const QString &c : refused) {
        EXPECT_FALSE(ask(c, {{"target", 1}}).has_value()) << c.toStdString();
        EXPECT_EQ(log.takeLast(), "received illegal command: " + c);
    }
    EXPECT_FALSE(remote->handleRequest({{"target", 1}}).has_value());
    EXPECT_EQ(log.takeLast(), "received illegal command: (null)");
    EXPECT_FALSE(remote->handleRequest({{"command", 5}}).has_value()) << "a number names nothing";
    EXPECT_FALSE(remote->handleRequest({{"command", QVariantList{"play"}}}).has_value());
    EXPECT_TRUE(host.calls.isEmpty()) << "nothing was touched";
}

TEST_F(RemoteCommands, ArgumentsOfTheWrongTypeTouchNothingElse)
{
    host.add(FakeRemoteHost::song(1, "One", "Band", "Album"));
    host.add(FakeRemoteHost::song(2, "Two", nullptr, "Album"));
    EXPECT_EQ(reply("getSongsForArtist", {{"artist", 1}}).value("songs"), QVariantList());
    EXPECT_EQ(reply("getAlbumsForArtist", {{"artist", QVariantMap()}}).value("albums"),
              QVariant(QStringList()));
    EXPECT_EQ(reply("getArtistHasMultipleAlbums", {{"artist", 3.5}}).value("hasMultipleAlbums"),
              QVariant(false));
    // Absent is not wrong: "artist == nil" selects the songs without one.
    EXPECT_EQ(songIDs(reply("getSongsForArtist").value("songs")), QList<qint64>({2}));
    EXPECT_EQ(reply("getSongsForPlaylist", {{"playlistID", "-1"}}).value("songs"), QVariantList());
    EXPECT_EQ(reply("getPlaylistLastModification", {{"playlistID", QVariantList{-1}}}),
              QVariantMap({{"lastModification", 0.0}}));
    EXPECT_FALSE(ask("position", {{"value", "0.5"}}).has_value());
    EXPECT_TRUE(host.calls.isEmpty()) << "no seek on a position of the wrong type";
}
