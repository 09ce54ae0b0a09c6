// The playlist sidebar on a real library: its groups, the selection that follows the selected
// playlist, drops of songs, renaming and deleting.

#include "LibraryWindowTestSupport.h"
#include "db/VEKDatabaseQuery.h"
#include "library/iTunesFixture.h"
#include "librarywindow/PlaylistTableController.h"
#include "librarywindow/PlaylistTableModel.h"
#include "librarywindow/SongIDsMimeData.h"
#include "player/MainMenu.h"
#include "support/frontend/QuietLaunch.h"

#include <QApplication>
#include <QMimeData>
#include <QTest>
#include <QTreeView>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

class PlaylistTableTest : public QuietLaunchTest {
protected:
    // The library with two songs of its own and, when asked, the iTunes library of the fixture.
    void launchWithSidebar(bool iTunes)
    {
        if (iTunes) {
            const QString dir = TestEnvironment::makeTempDir(u"itunes"_s);
            const QString xml = dir + u"/iTunes Library.xml"_s;
            iTunesFixture::write(xml, dir + u"/music"_s);
            settings.setValue(u"iTunesLibraryLocation"_s, xml);
            settings.setValue(u"accessiTunesLibrary"_s, true);
        }
        launch(false);
        QuietLaunch::addSongs(*delegate, {u"a.flac"_s, u"b.flac"_s});
        window = std::make_unique<QWidget>();
        controller = std::make_unique<PlaylistTableController>(delegate.get(), window.get());
        controller->view()->resize(240, 500);
        window->show();
    }

    PlaylistTableModel *model() const { return controller->model(); }
    QTreeView *view() const { return controller->view(); }
    PlaylistPtr library() const { return delegate->localPlaylists().first(); }
    PlaylistPtr iTunesList(int i) const { return delegate->iTunesPlaylists().at(i); }
    PlaylistPtr newPlaylist(const QList<SongPtr> &songs = {})
    {
        delegate->newPlaylistWithSongs(songs);
        return delegate->selectedPlaylist();
    }
    PlaylistPtr selectedRow() const
    {
        const QModelIndexList rows = view()->selectionModel()->selectedRows();
        return rows.size() == 1 ? model()->playlistAt(rows.first()) : nullptr;
    }
    // A drag of one song of the library onto `at` (between rows when `row` is set).
    bool canDrop(const QModelIndex &at, int row = -1, const QString &type = SongIDsMimeData::mimeType) const
    {
        QMimeData data;
        data.setData(type, SongIDsMimeData::encode({library()->songsInManualOrder().first()->songID()}));
        return model()->canDropMimeData(&data, Qt::CopyAction, row, 0, at);
    }
    qint64 rowsInSongTable(qint64 songID) const
    {
        auto q = delegate->database()->queryWithStatement(u"SELECT COUNT() FROM t_song WHERE songID = ?"_s);
        q->setIntValue(songID, 0);
        return q->evaluateNextRow() ? q->intValueAtColumn(0) : -1;
    }

    std::unique_ptr<QWidget> window;
    std::unique_ptr<PlaylistTableController> controller;
};

} // namespace

TEST_F(PlaylistTableTest, TheITunesGroupShowsOnlyWithAccessAndHeadersSelectNothing)
{
    launchWithSidebar(false);
    ASSERT_EQ(model()->rowCount(), 1);
    EXPECT_EQ(model()->index(0, 0).data().toString(), u"QUIVERA"_s);
    EXPECT_EQ(view()->objectName(), u"Playlists"_s);
    controller.reset();
    window.reset();

    launchWithSidebar(true);
    ASSERT_EQ(model()->rowCount(), 2);
    const QModelIndex iTunes = model()->index(1, 0);
    EXPECT_EQ(iTunes.data().toString(), u"ITUNES"_s);
    EXPECT_EQ(model()->rowCount(iTunes), 1 + iTunesFixture::playlistIDs.size());
    EXPECT_TRUE(view()->isExpanded(iTunes));

    // A click on a header leaves the selected playlist as it was.
    const PlaylistPtr before = delegate->selectedPlaylist();
    QTest::mouseClick(view()->viewport(), Qt::LeftButton, {}, view()->visualRect(iTunes).center());
    EXPECT_EQ(delegate->selectedPlaylist(), before);
    EXPECT_EQ(selectedRow(), before);
}

TEST_F(PlaylistTableTest, TheSelectedRowFollowsTheSelectedPlaylistWhoeverChoseIt)
{
    launchWithSidebar(true);
    const PlaylistPtr mine = newPlaylist();
    EXPECT_EQ(selectedRow(), mine);

    // The arrow keys pass over the header to the next group's first playlist.
    view()->setFocus();
    QTest::keyClick(view(), Qt::Key_Down);
    EXPECT_EQ(delegate->selectedPlaylist(), iTunesList(0));
    QTest::keyClick(view(), Qt::Key_Up);
    EXPECT_EQ(delegate->selectedPlaylist(), mine);

    // Another part of the program (the remote) chooses: the row follows.
    delegate->setSelectedPlaylist(iTunesList(2));
    EXPECT_EQ(selectedRow(), iTunesList(2));

    // A click chooses through the handler, which the library window takes over.
    PlaylistPtr handled;
    controller->setSelectionHandler([&](const PlaylistPtr &p) {
        handled = p;
        delegate->setSelectedPlaylist(p);
    });
    QTest::mouseClick(view()->viewport(), Qt::LeftButton, {},
                      view()->visualRect(model()->indexOfPlaylist(mine)).center());
    EXPECT_EQ(handled, mine);

    // Deleting it leaves no playlist selected and no row either.
    settings.setValue(u"suppressConfirmDeletePlaylistAlert"_s, true);
    controller->deleteSelection();
    EXPECT_FALSE(delegate->selectedPlaylist());
    EXPECT_FALSE(model()->indexOfPlaylist(mine).isValid());
    EXPECT_TRUE(view()->selectionModel()->selectedRows().isEmpty());
}

TEST_F(PlaylistTableTest, DropsAreRefusedAndTakenByTheirRules)
{
    launchWithSidebar(true);
    const PlaylistPtr locked = newPlaylist();
    locked->setLocked(true);
    const PlaylistPtr other = newPlaylist();
    const PlaylistPtr mine = newPlaylist(); // selected: the songs come from here

    struct Case {
        const char *what;
        PlaylistPtr selected;
        PlaylistPtr target;
        bool taken;
    };
    const Case cases[] = {
        {"onto the playlist they come from", mine, mine, false},
        {"onto an own locked playlist", mine, locked, false},
        {"onto an iTunes playlist", mine, iTunesList(2), false},
        {"onto the iTunes library", mine, iTunesList(0), false},
        {"from an own playlist onto the own library", mine, library(), false},
        {"from an iTunes playlist onto the own library", iTunesList(2), library(), true},
        {"from the iTunes library onto the own library", iTunesList(0), library(), true},
        {"onto another playlist", mine, other, true},
        {"from iTunes onto an own playlist", iTunesList(0), other, true},
    };
    for (const Case &c : cases) {
        delegate->setSelectedPlaylist(c.selected);
        EXPECT_EQ(canDrop(model()->indexOfPlaylist(c.target)), c.taken) << c.what;
    }
    delegate->setSelectedPlaylist(mine);
    EXPECT_FALSE(canDrop(QModelIndex())) << "on no row";
    EXPECT_FALSE(canDrop(model()->index(0, 0))) << "on a header";
    EXPECT_FALSE(canDrop(model()->indexOfPlaylist(other), 0)) << "between rows";
    EXPECT_FALSE(canDrop(model()->indexOfPlaylist(other), -1, u"text/uri-list"_s)) << "files";
}

TEST_F(PlaylistTableTest, ADropAddsEachNewSongOnceAtTheEndAndITunesSongsJoinTheSongTable)
{
    launchWithSidebar(true);
    const QList<SongPtr> own = library()->songsInManualOrder();
    ASSERT_EQ(own.size(), 2);
    const PlaylistPtr target = newPlaylist({own.at(1)});
    newPlaylist(); // the source

    // A song the playlist holds is not doubled; a repeat in the drag neither.
    EXPECT_TRUE(model()->dropSongs({own.at(0)->songID(), own.at(1)->songID(), own.at(0)->songID()}, target));
    EXPECT_EQ(target->songsInManualOrder(), (QList<SongPtr>{own.at(1), own.at(0)}));
    EXPECT_TRUE(model()->dropSongs({own.at(0)->songID()}, target));
    EXPECT_EQ(target->countOfSongs(), 2);

    // iTunes songs dropped on the own library are stored in the library file's song table.
    delegate->setSelectedPlaylist(iTunesList(0));
    const qint64 iTunesSong = 101;
    ASSERT_EQ(rowsInSongTable(iTunesSong), 0);
    QMimeData data;
    data.setData(SongIDsMimeData::mimeType, SongIDsMimeData::encode({iTunesSong}));
    EXPECT_TRUE(model()->dropMimeData(&data, Qt::CopyAction, -1, 0, model()->indexOfPlaylist(library())));
    EXPECT_EQ(rowsInSongTable(iTunesSong), 1);
    EXPECT_EQ(library()->songsInManualOrder().last(), delegate->library().value(iTunesSong));
    EXPECT_EQ(library()->countOfSongs(), 3);
}

TEST_F(PlaylistTableTest, RenamingInPlaceKeepsANameAndOnlyWherePossible)
{
    launchWithSidebar(true);
    const PlaylistPtr mine = newPlaylist();
    const QModelIndex row = model()->indexOfPlaylist(mine);
    // A new playlist opens its name for editing at once.
    EXPECT_TRUE(view()->indexWidget(row));
    view()->closePersistentEditor(row);

    EXPECT_TRUE(model()->setData(row, u"Evening"_s));
    EXPECT_EQ(mine->name(), u"Evening"_s);
    EXPECT_FALSE(model()->setData(row, QString()));
    EXPECT_EQ(mine->name(), u"Evening"_s);
    EXPECT_FALSE(model()->flags(model()->indexOfPlaylist(library())) & Qt::ItemIsEditable);
    EXPECT_FALSE(model()->flags(model()->indexOfPlaylist(iTunesList(1))) & Qt::ItemIsEditable);

    // Return on a locked playlist starts no edit; on a plain one it does.
    delegate->setSelectedPlaylist(iTunesList(1));
    view()->setFocus();
    QTest::keyClick(view(), Qt::Key_Return);
    EXPECT_FALSE(view()->indexWidget(model()->indexOfPlaylist(iTunesList(1))));
    delegate->setSelectedPlaylist(mine);
    QTest::keyClick(view(), Qt::Key_F2);
    EXPECT_TRUE(view()->indexWidget(row));
}

TEST_F(PlaylistTableTest, DeleteAsksUnlessToldNotToAndSparesLibraries)
{
    launchWithSidebar(false);
    // The library: nothing, and no question either (a box would wait for an answer).
    view()->setFocus();
    QTest::keyClick(view(), Qt::Key_Delete);
    EXPECT_EQ(delegate->localPlaylists().size(), 1);
    EXPECT_FALSE(controller->validateCommand(u"deleteSelection"_s, nullptr));

    const PlaylistPtr mine = newPlaylist();
    view()->closePersistentEditor(model()->indexOfPlaylist(mine));
    EXPECT_TRUE(controller->validateCommand(u"deleteSelection"_s, nullptr));
    // The menus' commands reach the controller while the sidebar has the focus.
    QApplication::setActiveWindow(window.get());
    view()->setFocus();
    EXPECT_EQ(MainMenu::commandTarget("deleteSelection"), controller.get());
    EXPECT_EQ(MainMenu::commandTarget("rename"), controller.get());
    // "No" with the box ticked: the playlist stays, the question is not asked again.
    LibraryWindowTest::answerNextBox(u"Cancel"_s, true);
    controller->deleteSelection();
    EXPECT_TRUE(model()->indexOfPlaylist(mine).isValid());
    EXPECT_TRUE(settings.boolForKey(u"suppressConfirmDeletePlaylistAlert"_s));
    view()->setFocus();
    QTest::keyClick(view(), Qt::Key_Delete);
    EXPECT_FALSE(model()->indexOfPlaylist(mine).isValid());
    EXPECT_EQ(delegate->localPlaylists().size(), 1);
}

TEST_F(PlaylistTableTest, ThePreferredVersionOfAWholePlaylistLandsInIt)
{
    launchWithSidebar(false);
    EXPECT_TRUE(controller->validateCommand(u"createPreferredVersion"_s, nullptr));
    newPlaylist();
    EXPECT_FALSE(controller->validateCommand(u"createPreferredVersion"_s, nullptr));
    EXPECT_FALSE(controller->validateCommand(u"somethingElse"_s, nullptr));

    // Every song of the playlist, also those its search hides, gets a version in it.
    const PlaylistPtr mine = newPlaylist(library()->songsInManualOrder());
    mine->setPredicate(std::make_shared<SongPredicate>(SongPredicate::forSearch(u"a"_s, 1)));
    ASSERT_EQ(mine->countOfSongs(), 1);
    settings.setValue(u"preferredFormat"_s, QVariantMap{{u"format"_s, 1}, {u"sampleRate"_s, 44100}});
    controller->createPreferredVersion();
    delegate->queue()->waitUntilAllOperationsAreFinished();
    EXPECT_EQ(mine->songsInManualOrder().size(), 4);
    EXPECT_EQ(delegate->library().size(), 4);
}
