#include "app/ApplicationDelegate.h"
#include "app/ApplicationRemoteHost.h"
#include "app/SignalFrontEnd.h"
#include "db/VEKDatabaseQuery.h"
#include "library/ImportOperation.h"
#include "library/SongPredicate.h"
#include "settings/UserDefaults.h"
#include "support/TestEnvironment.h"

#include <QSet>
#include <QSignalSpy>
#include <gtest/gtest.h>

using Action = ApplicationDelegate::MediaKeyAction;
using namespace Qt::StringLiterals;

TEST(MediaKeys, PressesActReleasesAreSwallowedOtherKeysPass)
{
    const auto press = [](int key) { return (qint64(key) << 16) | 0x0a00; };
    const auto release = [](int key) { return (qint64(key) << 16) | 0x0b00; };
    EXPECT_EQ(ApplicationDelegate::mediaKeyAction(14, 8, press(16)), Action::Play);
    EXPECT_EQ(ApplicationDelegate::mediaKeyAction(14, 8, press(17)), Action::Next);
    EXPECT_EQ(ApplicationDelegate::mediaKeyAction(14, 8, press(19)), Action::Next);     // fast
    EXPECT_EQ(ApplicationDelegate::mediaKeyAction(14, 8, press(18)), Action::Previous);
    EXPECT_EQ(ApplicationDelegate::mediaKeyAction(14, 8, press(20)), Action::Previous); // rewind
    EXPECT_EQ(ApplicationDelegate::mediaKeyAction(14, 8, press(16) | 0x01), Action::Play); // a held key repeats
    EXPECT_EQ(ApplicationDelegate::mediaKeyAction(14, 8, release(16)), Action::Swallow);
    EXPECT_EQ(ApplicationDelegate::mediaKeyAction(14, 8, press(0)), Action::PassOn);  // volume
    EXPECT_EQ(ApplicationDelegate::mediaKeyAction(14, 8, press(21)), Action::PassOn);
    EXPECT_EQ(ApplicationDelegate::mediaKeyAction(13, 8, press(16)), Action::PassOn);
    EXPECT_EQ(ApplicationDelegate::mediaKeyAction(14, 7, press(16)), Action::PassOn);
    EXPECT_EQ(ApplicationDelegate::mediaKeyAction(14, 0x10008, press(16)), Action::Play); // 16-bit subtype
}

TEST(Defaults, RegisteredBeforeAnyWindowWithTheScreenFormula)
{
    UserDefaults defaults(TestEnvironment::makeTempDir() + QStringLiteral("/p.plist"));
    ApplicationDelegate::registerDefaults(defaults, QRectF(100, 50, 1000, 800));
    EXPECT_EQ(defaults.integerForKey(QStringLiteral("selectedPlaylistID")), -1);
    EXPECT_EQ(defaults.integerForKey(QStringLiteral("playerSize")), 3); // narrower than 1200
    EXPECT_EQ(defaults.stringForKey(QStringLiteral("playerCenter")), QStringLiteral("{600, 316.667}"));
    EXPECT_EQ(defaults.dictionaryForKey(QStringLiteral("preferredFormat")).value(QStringLiteral("quality")).toInt(), 1);
    EXPECT_FALSE(defaults.boolForKey(QStringLiteral("accessiTunesLibrary")));
    EXPECT_EQ(ApplicationDelegate::playerSizeForScreen(QRectF(0, 0, 1200, 900)), 2u);
}

namespace {
SongPtr song(qint64 id, const char *artist = "x")
{
    auto s = std::make_shared<Song>();
    s->setSongID(id);
    s->setName(QStringLiteral("s%1").arg(id));
    s->setArtist(QString::fromUtf8(artist));
    s->setURL(QStringLiteral("/nowhere/%1.flac").arg(id));
    return s;
}

// A delegate launched on a fresh library file.
class DelegateTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        TestEnvironment::resetUserFolders();
        UserDefaults::standard().removeValue(QStringLiteral("selectedPlaylistID"));
        ApplicationDelegate::registerDefaults(UserDefaults::standard());
        delegate = std::make_unique<ApplicationDelegate>(&frontEnd);
        delegate->applicationWillFinishLaunching();
        ASSERT_TRUE(delegate->database());
    }
    void TearDown() override
    {
        if (delegate)
            delegate->applicationWillTerminate();
    }
    // Puts songs into the library the way a merge does: rows, then the library playlist.
    void addToLibrary(const QList<SongPtr> &songs)
    {
        auto insert = delegate->database()->queryWithStatement(Database::insertSongStatement);
        for (const auto &s : songs) {
            insert->reset();
            Database::bindSongForInsert(*insert, *s);
            insert->execute();
        }
        delegate->rescan();
    }
    SongPtr libSong(qint64 id) const { return delegate->library().value(id); }
    SignalFrontEnd frontEnd;
    std::unique_ptr<ApplicationDelegate> delegate;
};
}

TEST_F(DelegateTest, UniqueIDsSkipWhatIsTakenAndStayInTheirRanges)
{
    QSet<qint64> taken;
    for (int i = 0; i < 200; ++i) {
        const qint64 id = ApplicationDelegate::uniqueSongID([&taken](qint64 v) { return taken.contains(v); });
        EXPECT_LE(id, 0);
        EXPECT_GE(id, -2147483647);
        EXPECT_FALSE(taken.contains(id));
        taken.insert(id);
    }
    const qint64 playlistID = delegate->uniquePlaylistID();
    EXPECT_GE(playlistID, 0);
    EXPECT_NE(playlistID, 1);
}

TEST_F(DelegateTest, RemovingFromTheLibraryEmptiesEveryPlaylistEvenASearchedOne)
{
    addToLibrary({song(-1), song(-2, "findme"), song(-3)});
    delegate->newPlaylistWithSongs({libSong(-1), libSong(-2)});
    const PlaylistPtr mine = delegate->selectedPlaylist();
    delegate->newPlaylistWithSongs({libSong(-2), libSong(-3)});
    const PlaylistPtr other = delegate->selectedPlaylist();
    // A search that hides the song must not keep it.
    other->setPredicate(std::make_shared<SongPredicate>(SongPredicate::forSearch(QStringLiteral("s-3"), 1)));

    delegate->setSelectedPlaylist(delegate->playlistForID(Playlist::LibraryPlaylistID));
    const qsizetype row = delegate->songs().indexOf(libSong(-2));
    ASSERT_GE(row, 0);
    delegate->removeSongsAtIndexes({row});
    EXPECT_FALSE(delegate->library().contains(-2));
    EXPECT_EQ(mine->songsInManualOrder().size(), 1);
    EXPECT_EQ(other->songsInManualOrder().size(), 1);
}

TEST_F(DelegateTest, ANewPlaylistIsShownSelectedAndItsNameEdited)
{
    addToLibrary({song(-1)});
    QStringList calls;
    QObject::connect(&frontEnd, &SignalFrontEnd::openRequested, [&] { calls << u"open"_s; });
    QObject::connect(&frontEnd, &SignalFrontEnd::refreshPlaylistsRequested,
                     [&] { calls << u"refreshPlaylists"_s; });
    QObject::connect(&frontEnd, &SignalFrontEnd::beginEditingPlaylistRequested, [&](const PlaylistPtr &p) {
        calls << u"beginEditingPlaylist %1"_s.arg(p->playlistID());
    });
    QSignalSpy selected(delegate.get(), &ApplicationDelegate::selectedPlaylistChanged);
    delegate->newPlaylistWithSongs({libSong(-1)});
    const PlaylistPtr made = delegate->selectedPlaylist();
    ASSERT_EQ(selected.size(), 1);
    EXPECT_EQ(selected.at(0).at(0).value<PlaylistPtr>(), made);
    EXPECT_TRUE(calls.contains(u"open"_s));
    EXPECT_TRUE(calls.contains(u"refreshPlaylists"_s));
    // Editing starts once the sidebar shows the playlist.
    EXPECT_EQ(calls.last(), u"beginEditingPlaylist %1"_s.arg(made->playlistID()));
}

TEST_F(DelegateTest, NoticesOfTheSelectionThePlayModesAndTheQueue)
{
    QSignalSpy selected(delegate.get(), &ApplicationDelegate::selectedPlaylistChanged);
    QSignalSpy modes(delegate.get(), &ApplicationDelegate::playModeChanged);
    const PlaylistPtr library = delegate->selectedPlaylist();
    const PlaylistPtr iTunes = delegate->playlistForID(Playlist::ITunesLibraryPlaylistID);

    // The remote client selects through the same path; choosing the selected one is no change.
    ApplicationRemoteHost remote(*delegate);
    remote.setSelectedPlaylist(iTunes);
    delegate->setSelectedPlaylist(iTunes);
    ASSERT_EQ(selected.size(), 1);
    EXPECT_EQ(selected.at(0).at(0).value<PlaylistPtr>(), iTunes);

    // Shuffle through the delegate, repeat of a playlist that is not selected, straight on it.
    delegate->setShuffle(true);
    library->setRepeatMode(1);
    library->setSortKey(u"name"_s); // no play mode
    ASSERT_EQ(modes.size(), 2);
    EXPECT_EQ(modes.at(0).at(0).value<PlaylistPtr>(), iTunes);
    EXPECT_EQ(modes.at(1).at(0).value<PlaylistPtr>(), library);

    QStringList reports;
    QObject::connect(delegate.get(), &ApplicationDelegate::operationStarted, delegate.get(),
                     [&](const std::shared_ptr<Operation> &) { reports << u"started"_s; });
    QObject::connect(delegate->queue(), &OperationQueue::operationFinished, delegate.get(),
                     [&] { reports << u"finished"_s; });
    ASSERT_NE(delegate->addFilesToLibrary({TestEnvironment::makeTempDir(u"empty"_s)}), nullptr);
    delegate->queue()->waitUntilAllOperationsAreFinished();
    EXPECT_EQ(reports, (QStringList{u"started"_s, u"finished"_s}));
}

TEST(SignalFrontEnd, EachCallIsOneSignalAndTheQuestionGoesToItsHandler)
{
    SignalFrontEnd front;
    FrontEnd &frontEnd = front;
    QStringList heard;
    const auto note = [&heard](const QString &what) { return [&heard, what] { heard << what; }; };
    QObject::connect(&front, &SignalFrontEnd::refreshSongsRequested, note(u"songs"_s));
    QObject::connect(&front, &SignalFrontEnd::refreshPlaylistsRequested, note(u"playlists"_s));
    QObject::connect(&front, &SignalFrontEnd::updateControlsRequested, note(u"controls"_s));
    QObject::connect(&front, &SignalFrontEnd::revealCurrentSongRequested, note(u"reveal"_s));
    QObject::connect(&front, &SignalFrontEnd::openRequested, note(u"open"_s));
    QObject::connect(&front, &SignalFrontEnd::beginEditingPlaylistRequested,
                     [&heard](const PlaylistPtr &p) { heard << u"edit %1"_s.arg(p->playlistID()); });
    QObject::connect(&front, &SignalFrontEnd::beginProgressRequested,
                     [&heard](const QString &title, double progress) { heard << u"begin %1 %2"_s.arg(title).arg(progress); });
    QObject::connect(&front, &SignalFrontEnd::setProgressRequested,
                     [&heard](double progress) { heard << u"progress %1"_s.arg(progress); });
    QObject::connect(&front, &SignalFrontEnd::endProgressRequested, note(u"end"_s));

    auto playlist = std::make_shared<Playlist>();
    playlist->setPlaylistID(7);
    frontEnd.refreshSongs();
    frontEnd.refreshPlaylists();
    frontEnd.updateControls();
    frontEnd.revealCurrentSong();
    frontEnd.open();
    frontEnd.beginEditingPlaylist(playlist);
    frontEnd.beginProgress(u"Updating"_s, -1);
    frontEnd.setProgress(0.5);
    frontEnd.endProgress();
    EXPECT_EQ(heard, (QStringList{u"songs"_s, u"playlists"_s, u"controls"_s, u"reveal"_s, u"open"_s, u"edit 7"_s,
                                  u"begin Updating -1"_s, u"progress 0.5"_s, u"end"_s}));

    EXPECT_EQ(frontEnd.askAccessITunesLibrary(), std::nullopt); // no handler: the question stays open
    front.setAskAccessITunesLibraryHandler([] { return std::optional<bool>(false); });
    EXPECT_EQ(frontEnd.askAccessITunesLibrary(), std::optional<bool>(false));
}

TEST_F(DelegateTest, MoveFollowsTheSettledTargetRule)
{
    addToLibrary({song(-1), song(-2), song(-3), song(-4)});
    delegate->newPlaylistWithSongs({libSong(-1), libSong(-2), libSong(-3), libSong(-4)});
    const auto order = [this] {
        QList<qint64> ids;
        for (const auto &s : delegate->songs())
            ids << s->songID();
        return ids;
    };
    // Rows 0 and 1 to 2: the block lands one row lower than it was.
    delegate->moveSongsToIndex({libSong(-1), libSong(-2)}, 2);
    EXPECT_EQ(order(), (QList<qint64>{-3, -1, -2, -4}));
    // One song up: the target stays.
    delegate->moveSongsToIndex({libSong(-4)}, 0);
    EXPECT_EQ(order(), (QList<qint64>{-4, -3, -1, -2}));
}

TEST_F(DelegateTest, AFirstStartSelectsTheLibraryAndNeitherAllSongsPlaylistCanBeDeleted)
{
    ASSERT_TRUE(delegate->selectedPlaylist());
    EXPECT_EQ(delegate->selectedPlaylist()->playlistID(), Playlist::LibraryPlaylistID);
    delegate->deleteSelectedPlaylist();
    EXPECT_EQ(delegate->localPlaylists().size(), 1);
    delegate->setSelectedPlaylist(delegate->playlistForID(Playlist::ITunesLibraryPlaylistID));
    delegate->deleteSelectedPlaylist();
    EXPECT_EQ(delegate->iTunesPlaylists().size(), 1);
}

TEST_F(DelegateTest, QuittingWithoutASelectionSelectsNothingNextTime)
{
    delegate->setSelectedPlaylist(nullptr);
    delegate->applicationWillTerminate();
    EXPECT_EQ(UserDefaults::standard().integerForKey(QStringLiteral("selectedPlaylistID")), 0);
    delegate = std::make_unique<ApplicationDelegate>();
    delegate->applicationWillFinishLaunching();
    EXPECT_FALSE(delegate->selectedPlaylist());
    EXPECT_TRUE(delegate->songs().isEmpty());
}
