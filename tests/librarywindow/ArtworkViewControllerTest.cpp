// The artwork panel follows the song now playing, whatever the table shows.

#include "librarywindow/ArtworkViewController.h"
#include "audio/Stream.h"
#include "librarywindow/ArtworkView.h"
#include "support/frontend/QuietLaunch.h"

#include <QSignalSpy>
#include <QWidget>
#include <gtest/gtest.h>

using ArtworkViewControllerTest = QuietLaunchTest;

TEST_F(ArtworkViewControllerTest, ShowsTheCoverOfTheCurrentSongOrSaysWhyThereIsNone)
{
    launch();
    ASSERT_TRUE(delegate->stream());

    const QString dir = TestEnvironment::makeTempDir(QStringLiteral("art"));
    const QString bare = TestEnvironment::makeSine(dir + QStringLiteral("/bare.flac"), 0.2);
    ASSERT_EQ(TestEnvironment::run(QStringLiteral("convert"),
                                   {QStringLiteral("-size"), QStringLiteral("40x20"),
                                    QStringLiteral("xc:red"), dir + QStringLiteral("/c.png")}),
              0);
    const QString covered = TestEnvironment::ffmpeg(
        bare, dir + QStringLiteral("/covered.flac"),
        {QStringLiteral("-i"), dir + QStringLiteral("/c.png"), QStringLiteral("-map"), QStringLiteral("0"),
         QStringLiteral("-map"), QStringLiteral("1"), QStringLiteral("-c:v"), QStringLiteral("png"),
         QStringLiteral("-disposition:v"), QStringLiteral("attached_pic")});
    delegate->addFilesToLibrary({bare, covered});
    delegate->queue()->waitUntilAllOperationsAreFinished();
    SongPtr withCover, without;
    for (const SongPtr &song : delegate->library())
        (song->URL() == covered ? withCover : without) = song;
    ASSERT_TRUE(withCover && without);

    QWidget column;
    ArtworkViewController controller(delegate.get(), &column);
    ArtworkView *view = controller.view();
    EXPECT_TRUE(view->isPlaceholderShown());
    EXPECT_EQ(view->placeholder(), QStringLiteral("Nothing Playing"));
    EXPECT_EQ(view->heightForWidth(200), 224);

    QSignalSpy changed(&controller, &ArtworkViewController::artworkChanged);
    delegate->stream()->setPlaylist(delegate->localPlaylists().first());
    delegate->stream()->setCurrentSong(withCover);
    ASSERT_TRUE(changed.wait(5000));
    EXPECT_EQ(view->image().size(), QSize(40, 20));

    // Selecting another song in the table is no concern of the panel; the next song is.
    delegate->stream()->setCurrentSong(without);
    ASSERT_TRUE(changed.wait(5000));
    EXPECT_TRUE(view->isPlaceholderShown());
    EXPECT_EQ(view->placeholder(), QStringLiteral("No Artwork"));
    delegate->stream()->setCurrentSong(nullptr);
    EXPECT_EQ(view->placeholder(), QStringLiteral("Nothing Playing"));
}
