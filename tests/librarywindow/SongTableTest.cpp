// The library window's song table and search on a real library of three songs: the search's
// groups, the footer's total time, the status column's width, the drop rules, the selection
// each playlist keeps, and the menu commands reaching the table.

#include "librarywindow/SongTable.h"
#include "core/VEKPaths.h"
#include "library/LibraryPlaylist.h"
#include "library/iTunesFixture.h"
#include "librarywindow/LibraryController.h"
#include "librarywindow/LibraryWindow.h"
#include "librarywindow/SongIDsMimeData.h"
#include "librarywindow/SongTableController.h"
#include "librarywindow/SongTableModel.h"
#include "player/MainMenu.h"
#include "support/frontend/QuietLaunch.h"

#include <QApplication>
#include <QFont>
#include <QFontMetricsF>
#include <QHeaderView>
#include <QLineEdit>
#include <QMimeData>
#include <QScrollBar>
#include <QTest>
#include <QUrl>
#include <cmath>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

using Drop = SongTableController::DropKind;

class SongTableTest : public QuietLaunchTest {
protected:
    void SetUp() override
    {
        settings.setValue(u"suppressConfirmDeleteSongAlert"_s, true);
        launch(false);
        QuietLaunch::addSongs(*delegate, {u"c.flac"_s, u"a.flac"_s, u"b.flac"_s});
        library = delegate->localPlaylists().first();
        delegate->setSelectedPlaylist(library);
        controller = std::make_unique<LibraryController>(*delegate);
    }

    SongTableController *table() const { return controller->songTableController(); }
    QStringList names() const
    {
        QStringList out;
        for (const SongPtr &s : delegate->songs())
            out << s->name();
        return out;
    }

    std::unique_ptr<LibraryController> controller;
    PlaylistPtr library;
};

TEST_F(SongTableTest, EveryWordOfASearchMustBeFoundWithinOneField)
{
    QLineEdit *field = controller->window()->searchField();
    field->setText(u"  harbour  lights "_s);
    // The field's text reaches the selected playlist's search in the scope of every field.
    ASSERT_TRUE(library->predicate());
    EXPECT_EQ(library->predicate()->groups().size(), 7);
    // A change of scope runs the search again at once.
    controller->setSearchScope(2);
    ASSERT_EQ(library->predicate()->groups().size(), 1);
    EXPECT_EQ(library->predicate()->groups().at(0).at(0).key, u"artist"_s);

    field->setText(u"a"_s);
    controller->setSearchScope(1);
    EXPECT_EQ(names(), QStringList{u"a"_s});
    // Typing on narrows the hits, Backspace brings back those of the shorter text.
    field->setText(u"a x"_s);
    EXPECT_TRUE(names().isEmpty());
    EXPECT_EQ(table()->view()->emptyTitle(), u"No songs match your search"_s);
    field->setText(u"a "_s);
    EXPECT_EQ(names(), QStringList{u"a"_s});
    library->setSortKey(u"name"_s);
    delegate->refreshCurrentSongs();
    field->setText(u""_s);
    field->setText(u"b"_s);
    EXPECT_EQ(names(), QStringList{u"b"_s});
    field->setText(u" \t "_s);
    EXPECT_FALSE(library->predicate());
    EXPECT_EQ(names().size(), 3);
}

TEST(SongTableFooter, TheTotalTimeCutsMinutesAndRoundsSeconds)
{
    EXPECT_EQ(SongTableController::totalTimeText(119.7), u"01:00"_s);
    EXPECT_EQ(SongTableController::totalTimeText(59.6), u"00:00"_s);
    EXPECT_EQ(SongTableController::totalTimeText(3600), u"1:00:00"_s);
    EXPECT_EQ(SongTableController::totalTimeText(7322.4), u"2:02:02"_s);
    EXPECT_EQ(SongTableController::totalTimeText(0), u"00:00"_s);
    EXPECT_EQ(SongTableController::footerText(1, 61, 1500), u"1 song, 01:01 total time, 1.50 KB"_s);
    EXPECT_EQ(SongTableController::footerText(0, 0, 0), u"0 songs, 00:00 total time, 0 bytes"_s);
}

TEST(SongTableStatusColumn, IsSizedForTheNumberBelowTheLastRow)
{
    QFont font;
    font.setPixelSize(14);
    const auto width = [&](const QString &text) {
        return int(std::ceil(float(QFontMetricsF(font).horizontalAdvance(text)) + 4 + 4 + 18));
    };
    Playlist plain;
    EXPECT_EQ(SongTableController::ordinalColumnWidth(&plain, 10, font), width(u"9"_s));
    EXPECT_EQ(SongTableController::ordinalColumnWidth(&plain, 101, font), width(u"100"_s));
    EXPECT_EQ(SongTableController::ordinalColumnWidth(&plain, 0, font), width(u"-1"_s));
    LibraryPlaylist library;
    EXPECT_EQ(SongTableController::ordinalColumnWidth(&library, 100000, font), 18);
}

// A song whose file name is not UTF-8 leaves in a drag as the URL of those very bytes.
TEST(SongTableDrops, FileNamesThatAreNotUtf8LeaveAsTheirBytes)
{
    const QString path = VEKPaths::fromNative("/music/caf\xe9.flac");
    auto song = std::make_shared<Song>();
    song->setURL(path);
    std::unique_ptr<QMimeData> data(SongIDsMimeData::create({song}));
    ASSERT_EQ(data->urls().size(), 1);
    EXPECT_EQ(data->urls().first().toEncoded(), QByteArray("file:///music/caf%E9.flac"));
    EXPECT_EQ(VEKPaths::fromURL(data->urls().first()), path);
}

TEST(SongTableDrops, FilesGoToAnyOpenListAndSongsMoveOnlyInAManualOrder)
{
    QMimeData files;
    files.setUrls({QUrl::fromLocalFile(u"/music/x.flac"_s)});
    QMimeData songs;
    songs.setData(SongIDsMimeData::mimeType, SongIDsMimeData::encode({-1, -2}));
    // Our own drag carries the files too: it is a move, not an import.
    QMimeData ours;
    ours.setData(SongIDsMimeData::mimeType, SongIDsMimeData::encode({-1}));
    ours.setUrls(files.urls());
    QMimeData text;
    text.setText(u"hello"_s);

    Playlist manual;
    manual.setSortKey(u"ordinal"_s);
    EXPECT_EQ(SongTableController::dropKind(&files, &manual), Drop::Files);
    EXPECT_EQ(SongTableController::dropKind(&songs, &manual), Drop::Move);
    EXPECT_EQ(SongTableController::dropKind(&ours, &manual), Drop::Move);
    EXPECT_EQ(SongTableController::dropKind(&text, &manual), Drop::Refuse);
    EXPECT_EQ(SongTableController::dropKind(&files, nullptr), Drop::Refuse);

    Playlist sorted;
    sorted.setSortKey(u"artist"_s);
    EXPECT_EQ(SongTableController::dropKind(&songs, &sorted), Drop::Refuse);
    EXPECT_EQ(SongTableController::dropKind(&files, &sorted), Drop::Files);
    Playlist shuffled;
    shuffled.setSortKey(u"ordinal"_s);
    shuffled.setShuffle(true, nullptr);
    EXPECT_EQ(SongTableController::dropKind(&songs, &shuffled), Drop::Refuse);
    Playlist locked;
    locked.setSortKey(u"ordinal"_s);
    locked.setLocked(true);
    EXPECT_EQ(SongTableController::dropKind(&songs, &locked), Drop::Refuse);
    EXPECT_EQ(SongTableController::dropKind(&files, &locked), Drop::Refuse);
    LibraryPlaylist library;
    library.setSortKey(u"ordinal"_s);
    EXPECT_EQ(SongTableController::dropKind(&files, &library), Drop::Files);
    EXPECT_EQ(SongTableController::dropKind(&songs, &library), Drop::Refuse);
}

TEST_F(SongTableTest, AnITunesPlaylistChosenAtTheQuitIsSelectedOnceReadAndSaysSoMeanwhile)
{
    const QString xml = TestEnvironment::makeTempDir(u"itunes"_s) + u"/iTunes Library.xml"_s;
    iTunesFixture::write(xml, TestEnvironment::makeTempDir(u"music"_s));
    settings.setValue(u"iTunesLibraryLocation"_s, xml);
    settings.setValue(u"accessiTunesLibrary"_s, true);
    controller.reset();
    launch(false);
    ASSERT_TRUE(TestEnvironment::waitUntil([&] { return delegate->iTunesPlaylists().size() > 1; }));
    const PlaylistPtr chosen = delegate->iTunesPlaylists().at(1);
    delegate->setSelectedPlaylist(chosen);

    launch(false); // a quit, then a start
    // No turn of the event loop yet: the read-in's result still waits there.
    controller = std::make_unique<LibraryController>(*delegate);
    EXPECT_EQ(delegate->selectedPlaylist(), delegate->iTunesPlaylists().first());
    EXPECT_EQ(table()->view()->emptyTitle(), u"Reading your iTunes library\u2026"_s);
    ASSERT_TRUE(TestEnvironment::waitUntil(
        [&] { return delegate->selectedPlaylist()->playlistID() == chosen->playlistID(); }));
    EXPECT_FALSE(delegate->isReadingITunesLibrary());
}

TEST_F(SongTableTest, EachPlaylistKeepsItsSelectionAndASortKeepsTheSelectedSongs)
{
    library->setSortKey(u"name"_s);
    delegate->refreshCurrentSongs();
    ASSERT_EQ(names(), (QStringList{u"a"_s, u"b"_s, u"c"_s}));
    table()->setSelectedSongIndexes({0});
    // Sorting the other way round: "a" is still the one selected, now at the bottom.
    table()->columnClicked(u"name"_s);
    ASSERT_EQ(names().first(), u"c"_s);
    EXPECT_EQ(table()->selectedSongIndexes(), Playlist::Rows{2});

    delegate->newPlaylistWithSongs(delegate->songs());
    const PlaylistPtr other = delegate->selectedPlaylist();
    ASSERT_NE(other, library);
    table()->setSelectedSongIndexes({0, 1});
    controller->setSelectedPlaylist(library);
    EXPECT_EQ(table()->selectedSongIndexes(), Playlist::Rows{2});
    controller->setSelectedPlaylist(other);
    EXPECT_EQ(table()->selectedSongIndexes(), (Playlist::Rows{0, 1}));

    // The drag of the selection: the songs' IDs in row order, and their files.
    std::unique_ptr<QMimeData> drag(table()->dragData());
    EXPECT_EQ(SongIDsMimeData::songIDs(drag.get()),
              (QList<qint64>{delegate->songs().at(0)->songID(), delegate->songs().at(1)->songID()}));
    ASSERT_EQ(drag->urls().size(), 2);
    EXPECT_EQ(drag->urls().at(1).toLocalFile(), delegate->songs().at(1)->URL());
}

TEST_F(SongTableTest, TheMenusCommandsReachTheFocusedTable)
{
    controller->window()->show();
    SongTable *view = table()->view();
    view->setFocus();
    ASSERT_TRUE(QTest::qWaitFor([&] { return QApplication::focusWidget() == view; }, 2000));
    EXPECT_EQ(MainMenu::commandTarget("deleteSelection"), table());
    EXPECT_EQ(MainMenu::commandTarget("cut"), nullptr) << "the table has nothing to cut";
    EXPECT_FALSE(table()->validateCommand(u"deleteSelection"_s, nullptr)) << "nothing selected";
    table()->setSelectedSongIndexes({1});
    EXPECT_TRUE(table()->validateCommand(u"getInfo"_s, nullptr));
    EXPECT_TRUE(table()->validateCommand(u"deleteSelection"_s, nullptr));
    QMetaObject::invokeMethod(MainMenu::commandTarget("deleteSelection"), "deleteSelection");
    EXPECT_EQ(names().size(), 2);

    QLineEdit *search = controller->window()->searchField();
    search->setFocus();
    ASSERT_TRUE(QTest::qWaitFor([&] { return QApplication::focusWidget() == search; }, 2000));
    EXPECT_EQ(MainMenu::commandTarget("selectAll"), search);
    EXPECT_EQ(MainMenu::commandTarget("deleteSelection"), nullptr);

    settings.setValue(u"preferredFormat"_s, QVariantMap{{u"format"_s, 6}});
    EXPECT_EQ(MainMenu::createVersionTitle(), u"Create FLAC Version"_s);
    settings.setValue(u"preferredFormat"_s, QVariantMap{{u"format"_s, 9}});
    EXPECT_EQ(MainMenu::createVersionTitle(), u"Create Unknown Version"_s);
}

TEST_F(SongTableTest, TheColumnLayoutIsKeptWithStatusAndNameInFront)
{
    QHeaderView *header = table()->view()->horizontalHeader();
    const int artist = SongTableModel::columnOf(u"artist"_s);
    const int name = SongTableModel::columnOf(u"name"_s);
    // Nothing goes before the name, and the name does not move.
    header->moveSection(header->visualIndex(artist), 0);
    EXPECT_EQ(header->visualIndex(artist), 2);
    header->moveSection(header->visualIndex(name), 4);
    EXPECT_EQ(header->visualIndex(name), 1);
    header->moveSection(header->visualIndex(artist), 4);
    table()->setIsHiddenForColumn(false, u"composer"_s);
    table()->setIsHiddenForColumn(true, u"genre"_s);

    controller.reset();
    controller = std::make_unique<LibraryController>(*delegate);
    header = table()->view()->horizontalHeader();
    EXPECT_EQ(header->visualIndex(artist), 4);
    EXPECT_EQ(header->visualIndex(name), 1);
    EXPECT_FALSE(table()->isHiddenForColumn(u"composer"_s));
    EXPECT_TRUE(table()->isHiddenForColumn(u"genre"_s));

    // The columns fill the table's width, narrow or wide, without scrolling sideways, the name
    // keeping its share.
    SongTable *view = table()->view();
    controller->window()->show();
    for (int width : {800, 1900}) {
        controller->window()->resize(width, 500);
        QTest::qWait(50);
        EXPECT_EQ(header->length(), view->viewport()->width()) << width;
        EXPECT_EQ(view->horizontalScrollBar()->maximum(), 0) << width;
        EXPECT_NEAR(double(header->sectionSize(name)) / header->sectionSize(artist), 260.0 / 170, 0.05)
            << width;
    }
}

} // namespace
