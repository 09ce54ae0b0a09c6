// The artwork panel follows the song now playing, whatever the table shows.

#include "librarywindow/ArtworkViewController.h"
#include "audio/Stream.h"
#include "librarywindow/ArtworkView.h"
#include "support/frontend/QuietLaunch.h"

#include <QImage>
#include <QSignalSpy>
#include <QWidget>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

using ArtworkViewControllerTest = QuietLaunchTest;

TEST_F(ArtworkViewControllerTest, ShowsTheCoverOfTheCurrentSongOrSaysWhyThereIsNone)
{
    launch();
    ASSERT_TRUE(delegate->stream());

    const QString dir = TestEnvironment::makeTempDir(u"art"_s);
    const QString bare = TestEnvironment::makeSine(dir + u"/bare.flac"_s, 0.2);
    QImage cover(40, 20, QImage::Format_RGB32);
    cover.fill(Qt::red);
    ASSERT_TRUE(cover.save(dir + u"/c.png"_s));
    const QString covered =
        TestEnvironment::ffmpeg(bare, dir + u"/covered.flac"_s,
                                {u"-i"_s, dir + u"/c.png"_s, u"-map"_s, u"0"_s, u"-map"_s, u"1"_s, u"-c:v"_s,
                                 u"png"_s, u"-disposition:v"_s, u"attached_pic"_s});
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
    EXPECT_EQ(view->placeholder(), u"Nothing Playing"_s);
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
    EXPECT_EQ(view->placeholder(), u"No Artwork"_s);
    delegate->stream()->setCurrentSong(nullptr);
    EXPECT_EQ(view->placeholder(), u"Nothing Playing"_s);
}
