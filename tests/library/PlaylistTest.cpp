#include "library/Playlist.h"
#include "LibraryFile.h"
#include "library/Database.h"
#include "library/LibraryPlaylist.h"
#include "library/SongPredicate.h"
#include "library/iTunesPlaylist.h"

#include <QSignalSpy>
#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>

namespace {
SongPtr makeSong(qint64 id, const char *artist, const char *album, int disc, int track,
                 const char *name = nullptr)
{
    auto s = std::make_shared<Song>();
    s->setSongID(id);
    s->setArtist(artist ? QString::fromUtf8(artist) : QString());
    s->setAlbum(album ? QString::fromUtf8(album) : QString());
    s->setDisc_sortable(quint64(disc));
    s->setTrack_sortable(quint64(track));
    s->setName(name ? QString::fromUtf8(name) : QString("song %1").arg(id));
    return s;
}

QList<qint64> ids(const QList<SongPtr> &songs)
{
    QList<qint64> out;
    for (const auto &s : songs)
        out.append(s->songID());
    return out;
}

// The dealing written the plain way: removal from the middle of an array.
QList<SongPtr> referenceShuffle(QList<SongPtr> copy, const SongPtr &current)
{
    QList<SongPtr> out;
    if (current && copy.contains(current)) {
        out.append(current);
        copy.removeOne(current);
    }
    while (!copy.isEmpty()) {
        const float x = float(::random()) * 4.656613e-10f;
        const float y = x * float(copy.size() - 1);
        const qsizetype i = qsizetype(std::roundf(y));
        out.append(copy.takeAt(i));
    }
    return out;
}

class PlaylistTest : public ::testing::Test {
protected:
    Playlist playlist;
    QList<SongPtr> songs = {
        makeSong(-1, "The Beatles", "Abbey Road", 1, 2),
        makeSong(-2, "ABBA", "Arrival", 1, 1),
        makeSong(-3, "The Beatles", "Abbey Road", 1, 1),
        makeSong(-4, nullptr, "Untitled", 1, 1),
        makeSong(-5, "abba", "Voulez-Vous", 2, 1),
        makeSong(-6, "abba", "Voulez-Vous", 1, 3),
    };
    void SetUp() override { playlist.appendSongs(songs); }
};
}

TEST_F(PlaylistTest, SortByArtistDescendingReversesArtistsButNotTracksAndKeepsEmptyLast)
{
    playlist.setSortKey("artist");
    playlist.setSortAscending(true);
    EXPECT_EQ(ids(playlist.songs()), (QList<qint64>{-2, -6, -5, -3, -1, -4}));
    playlist.setSortAscending(false);
    EXPECT_EQ(ids(playlist.songs()), (QList<qint64>{-3, -1, -6, -5, -2, -4}));
    // A tag edit counts at the next sort, though the sorts keep what they ranked.
    songs.at(3)->setArtist(QStringLiteral("AAA"));
    playlist.songFieldsDidChange();
    playlist.setSortAscending(true);
    EXPECT_EQ(ids(playlist.songs()), (QList<qint64>{-4, -2, -6, -5, -3, -1}));
}

TEST_F(PlaylistTest, TrackSortFollowsTheDirectionForDiscAndTrack)
{
    playlist.setSortKey("track");
    playlist.setSortAscending(false);
    // disc 2 first, then disc 1 from the highest track; ties keep the user's order.
    EXPECT_EQ(ids(playlist.songs()), (QList<qint64>{-5, -6, -1, -2, -3, -4}));
}

TEST_F(PlaylistTest, NameSortIsNumericAndOrdinalIgnoresDirection)
{
    Playlist p;
    p.appendSongs({makeSong(-1, "x", "y", 1, 1, "Track 10"), makeSong(-2, "x", "y", 1, 1, "track 9")});
    p.setSortKey("name");
    p.setSortAscending(true);
    EXPECT_EQ(ids(p.songs()), (QList<qint64>{-2, -1}));

    p.setSortKey("ordinal");
    const bool before = p.sortAscending();
    p.setSortAscending(!before);
    EXPECT_EQ(p.sortAscending(), before);
    EXPECT_EQ(ids(p.songs()), (QList<qint64>{-1, -2}));

    p.setSortKey(QString());
    EXPECT_TRUE(p.sortAscending());
    EXPECT_EQ(ids(p.songs()), (QList<qint64>{-1, -2}));
}

TEST_F(PlaylistTest, AGenreSortComparesCodeUnitsAndKeepsTiesInTheUsersOrder)
{
    Playlist p;
    QList<SongPtr> songs;
    for (const auto &[id, genre] :
         {std::pair{-1, "rock"}, {-2, "Rock"}, {-3, "rock"}, {-4, ""}, {-5, "Pop"}}) {
        songs.append(makeSong(id, "x", "y", 1, 1));
        songs.last()->setGenre(QString::fromUtf8(genre));
    }
    p.appendSongs(songs);
    p.setSortKey("genre");
    p.setSortAscending(true);
    EXPECT_EQ(ids(p.songs()), (QList<qint64>{-4, -5, -2, -1, -3}));
    p.setSortAscending(false);
    EXPECT_EQ(ids(p.songs()), (QList<qint64>{-1, -3, -2, -5, -4}));
    for (qsizetype i = 0; i < songs.size(); ++i)
        songs.at(i)->setLength(i % 2 ? 60.5 : 200.0);
    p.setSortKey(QStringLiteral("length"));
    EXPECT_EQ(ids(p.songs()), (QList<qint64>{-1, -3, -5, -2, -4}));
}

TEST_F(PlaylistTest, ShuffleDealsExactlyTheSettledSelectionByRounding)
{
    QList<SongPtr> many;
    for (int i = 0; i < 500; ++i)
        many.append(makeSong(-i, "a", "b", 1, i));
    ::srandom(42);
    const QList<SongPtr> expected = referenceShuffle(many, many.at(17));
    ::srandom(42);
    EXPECT_EQ(Playlist::shuffledOrder(many, many.at(17)), expected);
    ::srandom(7);
    const QList<SongPtr> expectedNoCurrent = referenceShuffle(many, nullptr);
    ::srandom(7);
    EXPECT_EQ(Playlist::shuffledOrder(many, nullptr), expectedNoCurrent);
}

TEST_F(PlaylistTest, ShuffleOnKeepsTheCurrentSongFirstAndHasPriorityOverSort)
{
    playlist.setSortKey("artist");
    playlist.setSortAscending(true);
    playlist.setShuffle(true, songs.at(3));
    const QList<SongPtr> view = playlist.songs();
    ASSERT_EQ(view.size(), songs.size());
    EXPECT_EQ(view.first(), songs.at(3));
    playlist.setShuffle(false, nullptr);
    EXPECT_EQ(playlist.songs().first()->songID(), -2); // back to the sort, which was kept
}

TEST_F(PlaylistTest, FollowingAndPrecedingWalkTheViewWithoutWrapping)
{
    playlist.setSortKey("ordinal");
    EXPECT_EQ(playlist.songFollowingSong(nullptr), songs.first());
    EXPECT_EQ(playlist.songFollowingSong(songs.at(0)), songs.at(1));
    EXPECT_EQ(playlist.songFollowingSong(songs.last()), nullptr);
    EXPECT_EQ(playlist.songPrecedingSong(songs.first()), nullptr);
    EXPECT_EQ(playlist.songPrecedingSong(songs.at(2)), songs.at(1));
    playlist.setRepeatMode(1);
    EXPECT_EQ(playlist.songFollowingSong(songs.last()), nullptr);

    Playlist empty;
    EXPECT_EQ(empty.songFollowingSong(nullptr), nullptr);
}

TEST_F(PlaylistTest, ASongHeldTwiceContinuesAfterItsFirstRowAndLeavesWhole)
{
    playlist.setSortKey("ordinal");
    playlist.insertSongs({songs.at(0)}, {4});
    EXPECT_EQ(playlist.songFollowingSong(songs.at(0)), songs.at(1));
    EXPECT_EQ(playlist.countOfSongs(), 7);
    playlist.removeSongsAtIndexes({4});
    EXPECT_EQ(playlist.countOfSongs(), 5);
    EXPECT_EQ(playlist.indexOfObjectInSongs(songs.at(0)), Playlist::NotFound);
}

TEST_F(PlaylistTest, SearchFiltersTheViewAndRowsCountInIt)
{
    playlist.setSortKey("ordinal");
    playlist.setPredicate(std::make_shared<SongPredicate>(SongPredicate::forSearch("  ABBA ", 2)));
    EXPECT_EQ(ids(playlist.songs()), (QList<qint64>{-2, -5, -6}));
    EXPECT_EQ(playlist.songFollowingSong(songs.at(0)), nullptr); // filtered out
    playlist.removeSongsAtIndexes({1});
    EXPECT_EQ(ids(playlist.songs()), (QList<qint64>{-2, -6}));
    playlist.setPredicate(nullptr);
    EXPECT_EQ(playlist.countOfSongs(), 5);
}

TEST_F(PlaylistTest, ASearchNarrowedByALetterAndTheSongsAddedSinceStayInTheView)
{
    // The filtered view is kept between changes and narrowed from itself: what it shows must
    // still follow every change of the songs and of the order.
    playlist.setSortKey("ordinal");
    const auto search = [](const char *text) {
        return std::make_shared<SongPredicate>(SongPredicate::forSearch(QString::fromUtf8(text), 3));
    };
    playlist.setPredicate(search("a"));
    EXPECT_EQ(ids(playlist.songs()), (QList<qint64>{-1, -2, -3}));
    playlist.narrowPredicate(search("ab"));
    EXPECT_EQ(ids(playlist.songs()), (QList<qint64>{-1, -3}));
    playlist.appendSongs({makeSong(-7, "X", "Abba Gold", 1, 1)});
    EXPECT_EQ(ids(playlist.songs()), (QList<qint64>{-1, -3, -7}));
    playlist.setSortKey("artist");
    EXPECT_EQ(ids(playlist.songs()), (QList<qint64>{-7, -3, -1})); // artists descending
    // A field changed under it counts once the view is told.
    songs.at(0)->setAlbum("Let It Be");
    playlist.songFieldsDidChange();
    EXPECT_EQ(ids(playlist.songs()), (QList<qint64>{-7, -3}));
}

TEST(PlaylistSearch, ALongListSearchedThroughItsFoldedTextsFindsWhatTheSongsFieldsDo)
{
    // A long list is searched through texts folded once for it: the hits must be those of the
    // songs' own fields, in the order in force, through narrowing and edits.
    Playlist big;
    QList<SongPtr> many;
    const char *const names[] = {"Café Über", "THE night", "straße", "Ǆemal", "plain"};
    for (int i = 0; i < 6000; ++i)
        many.append(makeSong(-i - 1, i % 3 ? "The Ärtist" : "Artist", i % 5 ? "Album 7" : nullptr, 1, i,
                             names[i % 5]));
    big.appendSongs(many);
    big.setSortKey("artist");
    big.setSortAscending(false);
    const auto expect = [&big](const std::shared_ptr<SongPredicate> &predicate, const char *search) {
        QList<SongPtr> expected;
        for (const SongPtr &song : big.sortedOrder())
            if (predicate->evaluate(*song))
                expected.append(song);
        EXPECT_EQ(ids(big.songs()), ids(expected)) << search;
    };
    for (const int scope : {0, 1, 2})
        for (const char *search :
             {"cafe", "uber the", "artist", "ÄRT", "strasse", "dž", "the night", "7", "x"}) {
            auto predicate = std::make_shared<SongPredicate>(SongPredicate::forSearch(search, scope));
            big.setPredicate(predicate);
            expect(predicate, search);
        }
    auto wide = std::make_shared<SongPredicate>(SongPredicate::forSearch("t", 0));
    big.setPredicate(wide);
    expect(wide, "t");
    auto narrow = std::make_shared<SongPredicate>(SongPredicate::forSearch("th", 0));
    big.narrowPredicate(narrow);
    expect(narrow, "th");
    many.at(1)->setName("Tha");
    many.at(4)->setArtist("nobody");
    big.songFieldsDidChange();
    auto narrower = std::make_shared<SongPredicate>(SongPredicate::forSearch("th", 0));
    big.setPredicate(narrower);
    big.narrowPredicate(std::make_shared<SongPredicate>(SongPredicate::forSearch("tha", 0)));
    expect(std::make_shared<SongPredicate>(SongPredicate::forSearch("tha", 0)), "tha");
}

TEST(SongPredicateTest, AllWordsMustMatchWithinOneField)
{
    auto song = makeSong(-1, "Sigur Rós", "Ágætis byrjun", 1, 1, "Starálfur");
    EXPECT_TRUE(SongPredicate::forSearch("sigur ros", 0).evaluate(*song));
    EXPECT_FALSE(SongPredicate::forSearch("sigur agætis", 0).evaluate(*song));
    EXPECT_TRUE(SongPredicate::forSearch("AGÆTIS", 3).evaluate(*song));
    EXPECT_FALSE(SongPredicate::forSearch("agætis", 2).evaluate(*song));
    EXPECT_EQ(SongPredicate::forSearch("a b", 0).groups().size(), 7);
    EXPECT_TRUE(SongPredicate::forSearch(" \t ", 0).isEmpty());
}

TEST(PlaylistReports, ChangesAreReportedByKeyShuffleIncluded)
{
    Playlist p;
    QSignalSpy spy(&p, &Playlist::valueChanged);
    p.setSortKey("album");
    p.setShuffle(true, nullptr);
    p.appendSongs({makeSong(-1, "a", "b", 1, 1)});
    p.setRepeatMode(2);
    QStringList keys;
    for (const auto &args : spy)
        keys << args.at(0).toString();
    EXPECT_EQ(keys, (QStringList{"sortKey", "shuffle", "songs", "repeatMode"}));
}

TEST(LibraryPlaylistTest, HasItsNameAndIsNotLocked)
{
    LibraryPlaylist p;
    EXPECT_TRUE(p.isLibraryPlaylist());
    EXPECT_FALSE(p.locked());
    EXPECT_FALSE(p.name().isEmpty());
}

TEST(PlaylistRows, MakingAPlaylistWritesNoRow)
{
    // A playlist whose ID is 0 (a migrated one, or a draw of 0) keeps its name whatever else is
    // made.
    const LibraryFile file;
    Database db;
    ASSERT_TRUE(db.initWithURL(file.path));
    ASSERT_TRUE(
        db.executeStatement("INSERT INTO t_playlist (playlistID, iTunes, name) VALUES (0, 0, 'Mine');"));
    Database::setShared(&db);
    { Playlist plain; iTunesPlaylist fromITunes; LibraryPlaylist library; }
    Database::setShared(nullptr);
    auto name = db.queryWithStatement("SELECT name FROM t_playlist WHERE playlistID = 0");
    ASSERT_TRUE(name && name->evaluateNextRow());
    EXPECT_EQ(name->stringValueAtColumn(0), "Mine");
}
