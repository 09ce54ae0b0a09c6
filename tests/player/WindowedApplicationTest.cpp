// The windowed launch with its menu: the player window comes up carrying the main menu, whose
// shortcuts follow the validation without a menu being opened, and the user guide is typeset
// into a PDF and packed as an EPUB.

#include "audio/Stream.h"
#include "player/AddToLibraryDialog.h"
#include "player/MainMenu.h"
#include "player/MiniPlayerController.h"
#include "player/MiniPlayerWindow.h"
#include "player/UserGuide.h"
#include "support/frontend/QuietLaunch.h"

#include <QAbstractItemView>
#include <QAction>
#include <QDir>
#include <QMenu>
#include <QRegularExpression>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using A = MenuItem::Action;
using TestEnvironment::waitUntil;

namespace {

class WindowedLaunch : public QuietWindowedTest {
protected:
    void SetUp() override
    {
        ASSERT_NO_FATAL_FAILURE(QuietWindowedTest::SetUp());
        QuietLaunch::addSongs(*delegate(), {u"0.wav"_s, u"1.wav"_s, u"2.wav"_s}, 5.0);
        ASSERT_EQ(delegate()->library().size(), 3);
        library = delegate()->localPlaylists().value(0);
        library->setSortKey(u"ordinal"_s);
    }

    Stream *stream() const { return delegate()->stream(); }
    void key(Qt::Key k, Qt::KeyboardModifiers modifiers = Qt::ControlModifier)
    {
        QTest::keyClick(player, k, modifiers);
    }

    PlaylistPtr library;
};

} // namespace

TEST_F(WindowedLaunch, TheMenusKeysFollowTheModelWithoutAMenuBeingOpened)
{
    stream()->setPlaylist(library);
    stream()->setCurrentSong(library->objectInSongsAtIndex(2));

    // The last song without repeat: next is disabled, and so is its key.
    key(Qt::Key_Right);
    EXPECT_EQ(stream()->currentSong(), library->objectInSongsAtIndex(2));

    // Repeat turned on elsewhere; no menu opens, yet the key now wraps to the top.
    library->setRepeatMode(1);
    key(Qt::Key_Right);
    EXPECT_EQ(stream()->currentSong(), library->objectInSongsAtIndex(0));

    key(Qt::Key_Space, Qt::NoModifier);
    EXPECT_TRUE(stream()->isPlaying());
    QMenu *controls = app.mainMenu()->menus().at(3);
    emit controls->aboutToShow();
    EXPECT_EQ(app.mainMenu()->action(A::Play)->text(), u"Pause"_s);
    EXPECT_LT(controls->palette().color(QPalette::Window).lightness(), 60) << "menus are as dark as the panel";

    // The library window and the preferences exist: their items are on (the sizes' are used below).
    EXPECT_TRUE(app.mainMenu()->action(A::OpenLibrary)->isEnabled());
    EXPECT_TRUE(app.mainMenu()->action(A::OpenPreferences)->isEnabled());
}

TEST_F(WindowedLaunch, AViewSizeResizesThePlayerAndIsKept)
{
    app.mainMenu()->action(A::ViewSizeChanged, 3)->trigger();
    EXPECT_EQ(player->size(), QSize(600, 150));
    EXPECT_EQ(UserDefaults::standard().integerForKey(u"playerSize"_s), 3);
    EXPECT_TRUE(app.mainMenu()->action(A::ViewSizeChanged, 3)->isChecked());

    // The mini player's size reaches both players (where they stand is the controllers' test).
    app.mainMenu()->action(A::ViewSizeChanged, 4)->trigger();
    EXPECT_FALSE(player->isVisible());
    EXPECT_TRUE(app.miniPlayerController()->window()->isVisible());
    EXPECT_TRUE(app.mainMenu()->action(A::ViewSizeChanged, 4)->isChecked());
}

TEST(UserGuide, TheGuideIsTypesetIntoAPdfWithAPagePerChapterAndPackedAsAnEpub)
{
    const QString html = UserGuide::html();
    const qsizetype chapters = html.count(QRegularExpression(u"<h2 id="_s));
    ASSERT_GE(chapters, 10) << "the guide is in the resources";

    const QString pdf = TestEnvironment::makeTempDir(u"guide"_s) + u"/guide/QuiveraUserGuide.pdf"_s;
    QString problem;
    ASSERT_TRUE(UserGuide::writePdf(pdf, &problem)) << problem.toStdString();
    const QByteArray bytes = TestEnvironment::readFile(pdf);
    EXPECT_TRUE(bytes.startsWith("%PDF-"));
    EXPECT_TRUE(bytes.trimmed().endsWith("%%EOF"));
    // Each chapter starts a page.
    const qsizetype pages = QString::fromLatin1(bytes).count(QRegularExpression(u"/Type\\s*/Page[^s]"_s));
    EXPECT_GT(pages, chapters);

    EXPECT_FALSE(UserGuide::writePdf(u"/proc/no/such/QuiveraUserGuide.pdf"_s, &problem));
    EXPECT_FALSE(problem.isEmpty());

    // The book: a zip whose first entry is the uncompressed media type, as readers require.
    const QString epub = UserGuide::epubPath();
    ASSERT_FALSE(epub.isEmpty()) << "the build made no EPUB beside the program";
    const QByteArray book = TestEnvironment::readFile(epub);
    EXPECT_EQ(book.mid(0, 4), QByteArray("PK\x03\x04", 4));
    EXPECT_EQ(book.mid(30, 28), QByteArray("mimetypeapplication/epub+zip"));
}

TEST(AddToLibraryDialog, FilesAndFoldersAreChosenTogether)
{
    const QString dir = TestEnvironment::makeTempDir(u"add"_s);
    QDir(dir).mkdir(u"Album"_s);
    TestEnvironment::writeFile(dir + u"/single.wav"_s, "x");
    AddToLibraryDialog dialog;
    dialog.setDirectory(dir);
    dialog.show();
    QAbstractItemView *view = nullptr;
    for (QAbstractItemView *v : dialog.findChildren<QAbstractItemView *>())
        if (v->isVisible() && v->model() && v->objectName() != u"sidebar"_s)
            view = v;
    ASSERT_TRUE(view);
    ASSERT_TRUE(waitUntil([&] { return view->model()->rowCount(view->rootIndex()) == 2; }, 5000));
    view->selectAll();
    dialog.accept();
    QStringList chosen = dialog.chosenPaths();
    chosen.sort();
    EXPECT_EQ(chosen, (QStringList{dir + u"/Album"_s, dir + u"/single.wav"_s}));
}
