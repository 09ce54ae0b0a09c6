// Where the results of background operations go: the merge on the main thread into the library
// and its playlists, and conversions. The iTunes read-in at launch: CliITunesTest, whose commands
// launch the same delegate; files handed to the player: PlayerSession.

#include "app/ApplicationDelegate.h"
#include "db/VEKDatabaseQuery.h"
#include "library/ConvertOperation.h"
#include "library/ImportOperation.h"
#include "settings/UserDefaults.h"
#include "support/TestEnvironment.h"

#include <QElapsedTimer>
#include <QThread>
#include <gtest/gtest.h>

namespace {

class MergeTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        TestEnvironment::resetUserFolders();
        UserDefaults::standard().removeValue("selectedPlaylistID");
        UserDefaults::standard().removeValue("accessiTunesLibrary");
        ApplicationDelegate::registerDefaults(UserDefaults::standard());
        beforeLaunch();
        launch();
        song = TestEnvironment::makeSine(TestEnvironment::makeTempDir() + "/s.flac", 0.1);
    }
    void TearDown() override
    {
        if (delegate)
            delegate->applicationWillTerminate();
    }
    void launch()
    {
        if (delegate)
            delegate->applicationWillTerminate();
        delegate = std::make_unique<ApplicationDelegate>();
        delegate->applicationWillFinishLaunching();
        delegate->queue()->waitUntilAllOperationsAreFinished();
    }
    virtual void beforeLaunch() {}
    const PlaylistPtr &library() const { return delegate->localPlaylists().first(); }

    std::unique_ptr<ApplicationDelegate> delegate;
    QString song;
};

// Conversions: which songs the delegate queues, and where a result goes on the main thread.
class ConversionMergeTest : public MergeTest {
protected:
    void beforeLaunch() override
    {
        UserDefaults::standard().setValue("preferredFormat",
                                          QVariantMap{{"format", 1}, {"sampleRate", 44100}});
    }
    void TearDown() override
    {
        MergeTest::TearDown();
        UserDefaults::standard().removeValue("preferredFormat");
    }
    SongPtr imported(const QString &name)
    {
        const QString path = TestEnvironment::makeSine(dir + QLatin1Char('/') + name, 0.2);
        const auto op = delegate->addFilesToLibrary({path});
        delegate->queue()->waitUntilAllOperationsAreFinished();
        return op->songsInImportOrder().value(0);
    }

    QString dir = TestEnvironment::makeTempDir();
};

} // namespace

TEST_F(MergeTest, NewSongsGoToTheLibraryAndTheSelectedPlaylistOnly)
{
    delegate->newPlaylistWithSongs({});
    const PlaylistPtr mine = delegate->selectedPlaylist();
    const auto op = delegate->addFilesToLibrary({song});
    delegate->queue()->waitUntilAllOperationsAreFinished();
    ASSERT_EQ(op->songs().size(), 1);
    const SongPtr added = op->songsInImportOrder().first();
    EXPECT_EQ(delegate->library().value(added->songID()), added);
    EXPECT_EQ(library()->songsInManualOrder(), QList<SongPtr>{added});
    EXPECT_EQ(mine->songsInManualOrder(), QList<SongPtr>{added});

    // With an iTunes playlist selected, or the target deleted meanwhile: the library alone.
    const QString other = TestEnvironment::makeSine(TestEnvironment::makeTempDir() + "/t.flac", 0.1);
    delegate->setSelectedPlaylist(delegate->playlistForID(Playlist::ITunesLibraryPlaylistID));
    delegate->addFilesToLibrary({other});
    delegate->setSelectedPlaylist(mine);
    const QString third = TestEnvironment::makeSine(TestEnvironment::makeTempDir() + "/u.flac", 0.1);
    delegate->addFilesToLibrary({third});
    delegate->deleteSelectedPlaylist();
    delegate->queue()->waitUntilAllOperationsAreFinished();
    EXPECT_EQ(library()->countOfSongs(), 3);
    EXPECT_EQ(mine->countOfSongs(), 1);
    EXPECT_TRUE(delegate->iTunesPlaylists().first()->songsInManualOrder().isEmpty());
    delegate->database()->flushWrites();
    auto q =
        delegate->database()->queryWithStatement("SELECT COUNT() FROM t_playlistSong WHERE playlistID = ?");
    q->setIntValue(mine->playlistID(), 0);
    ASSERT_TRUE(q->evaluateNextRow());
    EXPECT_EQ(q->intValueAtColumn(0), 0); // no rows for a playlist that is gone
}

TEST_F(MergeTest, AMergeThatARescanOvertookAddsNothingTwice)
{
    const auto op = delegate->addFilesToLibrary({song});
    // Finished on the worker, merge not yet delivered: the rescan reads the rows itself.
    QElapsedTimer t;
    t.start();
    while ((!op->isFinished() || delegate->queue()->operationCount() > 0) && t.elapsed() < 30000)
        QThread::msleep(1);
    delegate->rescan();
    delegate->queue()->waitUntilAllOperationsAreFinished();
    EXPECT_EQ(delegate->library().size(), 1);
    EXPECT_EQ(library()->countOfSongs(), 1);
}

TEST_F(ConversionMergeTest, QueuesOnlySongsThatArePresentAndInAnotherFormat)
{
    const SongPtr flac = imported("a.flac");
    const SongPtr wav = imported("b.wav"); // WAVE at 44100: preferred already
    const SongPtr gone = imported("c.flac");
    ASSERT_TRUE(flac && wav && gone);
    gone->setIsMissing(true);
    const auto queued = delegate->createPreferredVersionOfSongs({flac, wav, gone}, nullptr);
    ASSERT_EQ(queued.size(), 1);
    EXPECT_EQ(queued.first()->song(), flac);
    delegate->queue()->waitUntilAllOperationsAreFinished();
}

TEST_F(ConversionMergeTest, TheResultJoinsTheLibraryAndAnUnlockedDestinationOnly)
{
    const SongPtr flac = imported("a.flac");
    ASSERT_TRUE(flac);
    delegate->newPlaylistWithSongs({});
    const PlaylistPtr open = delegate->selectedPlaylist();
    delegate->newPlaylistWithSongs({});
    const PlaylistPtr locked = delegate->selectedPlaylist();
    locked->setLocked(true);
    const double before = delegate->lastLibraryModification();

    const auto toOpen = delegate->createPreferredVersionOfSongs({flac}, open);
    const auto toLocked = delegate->createPreferredVersionOfSongs({flac}, locked);
    delegate->queue()->waitUntilAllOperationsAreFinished();
    ASSERT_EQ(toOpen.size(), 1);
    ASSERT_TRUE(toOpen.first()->success()) << toOpen.first()->error().text().toStdString();
    ASSERT_TRUE(toLocked.first()->success());
    const SongPtr first = toOpen.first()->resultSong();
    const SongPtr second = toLocked.first()->resultSong();
    EXPECT_NE(first->songID(), second->songID());
    EXPECT_EQ(delegate->library().value(first->songID()), first);
    EXPECT_EQ(delegate->library().value(second->songID()), second);
    EXPECT_EQ(library()->songsInManualOrder(), (QList<SongPtr>{flac, first, second}));
    EXPECT_EQ(open->songsInManualOrder(), QList<SongPtr>{first});
    EXPECT_TRUE(locked->songsInManualOrder().isEmpty());
    EXPECT_GT(delegate->lastLibraryModification(), before);
    EXPECT_TRUE(first->dateAdded().isValid());
}
