// What the delegate does with conversions: which songs it queues, and where a result goes on
// the main thread.

#include "app/ApplicationDelegate.h"
#include "library/ConvertOperation.h"
#include "library/ImportOperation.h"
#include "settings/UserDefaults.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

namespace {

class ConversionMergeTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        TestEnvironment::resetUserFolders();
        UserDefaults::standard().removeValue(QStringLiteral("selectedPlaylistID"));
        UserDefaults::standard().removeValue(QStringLiteral("accessiTunesLibrary"));
        ApplicationDelegate::registerDefaults(UserDefaults::standard());
        UserDefaults::standard().setValue(QStringLiteral("preferredFormat"),
                                          QVariantMap{{QStringLiteral("format"), 1}, {QStringLiteral("sampleRate"), 44100}});
        delegate = std::make_unique<ApplicationDelegate>();
        delegate->applicationWillFinishLaunching();
        delegate->queue()->waitUntilAllOperationsAreFinished();
        dir = TestEnvironment::makeTempDir();
    }
    void TearDown() override
    {
        delegate->applicationWillTerminate();
        UserDefaults::standard().removeValue(QStringLiteral("preferredFormat"));
    }
    SongPtr imported(const QString &name)
    {
        const QString path = TestEnvironment::makeSine(dir + QLatin1Char('/') + name, 0.2);
        const auto op = delegate->addFilesToLibrary({path});
        delegate->queue()->waitUntilAllOperationsAreFinished();
        return op->songsInImportOrder().value(0);
    }
    const PlaylistPtr &library() const { return delegate->localPlaylists().first(); }

    std::unique_ptr<ApplicationDelegate> delegate;
    QString dir;
};

} // namespace

TEST_F(ConversionMergeTest, QueuesOnlySongsThatArePresentAndInAnotherFormat)
{
    const SongPtr flac = imported(QStringLiteral("a.flac"));
    const SongPtr wav = imported(QStringLiteral("b.wav")); // WAVE at 44100: preferred already
    const SongPtr gone = imported(QStringLiteral("c.flac"));
    ASSERT_TRUE(flac && wav && gone);
    gone->setIsMissing(true);
    const auto queued = delegate->createPreferredVersionOfSongs({flac, wav, gone}, nullptr);
    ASSERT_EQ(queued.size(), 1);
    EXPECT_EQ(queued.first()->song(), flac);
    delegate->queue()->waitUntilAllOperationsAreFinished();
}

TEST_F(ConversionMergeTest, TheResultJoinsTheLibraryAndAnUnlockedDestinationOnly)
{
    const SongPtr flac = imported(QStringLiteral("a.flac"));
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
