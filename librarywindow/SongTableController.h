#pragma once

#include "library/Playlist.h"

#include <QAction>
#include <QObject>
#include <QPointer>
#include <memory>

class ApplicationDelegate;
class QFont;
class QLabel;
class QMimeData;
class SongTable;
class SongTableModel;

// The song table of the library window: the songs of the selected playlist as the delegate
// lists them (after sort and search), the footer line that sums them up, the column sort, double
// click and Return to play, deletion, and dragging songs out, in (files) and about (a manual
// order). It keeps no song data: a row is an element of ApplicationDelegate::songs().
//
// The selection belongs to the playlist: leaving a playlist stores its selected rows in it
// (Playlist::setSelectedRows), coming back restores them; within one playlist a new list (a
// sort, a search, an import) keeps the selected songs selected wherever they land.
//
// The view's column layout (order, widths, hidden columns) is kept under the setting
// `songTableColumns`; `ordinal` stays first and `name` second.
//
// Its commands answer the main menu's responder chain (see MainMenu): the view names this
// controller as its "commandTarget". Main thread only.
class SongTableController : public QObject {
    Q_OBJECT
public:
    // What a drop on the table does.
    enum class DropKind { Refuse, Files, Move };

    explicit SongTableController(ApplicationDelegate *delegate, QObject *parent = nullptr);
    ~SongTableController() override;

    SongTable *view() const { return m_view; }
    // The footer line ("Summary"): count, total time and size of the list.
    QLabel *footer() const { return m_footer; }
    SongTableModel *model() const { return m_model; }

    // The delegate's list is new: rows, sort mark, status column width, footer, selection.
    void update();
    // Scrolls the current song into view when the table shows the stream's playlist.
    void revealCurrentSong();
    void deselectAll();
    // The first selected row, or -1.
    qsizetype firstSelectedSongIndex() const;
    Playlist::Rows selectedSongIndexes() const;
    // An empty list deselects all; otherwise exactly these rows are selected.
    void setSelectedSongIndexes(const Playlist::Rows &rows);
    bool isHiddenForColumn(const QString &identifier) const;
    void setIsHiddenForColumn(bool hidden, const QString &identifier);

    // A click on a column's header: sorts by it, or turns the direction of the present sort.
    void columnClicked(const QString &identifier);
    // Plays the song of the row, or restarts it when it is the one playing from this list.
    void didDoubleClick(int row);
    // The drag of the selected rows: their songs, as SongDrag.
    QMimeData *dragData() const;
    // Drops: what the data would do here, and doing it at the row boundary `row` (-1: the end).
    DropKind dropKind(const QMimeData *data) const;
    bool acceptDrop(const QMimeData *data, int row);

    // "M:SS"-style total of a list: whole hours, then minutes and rounded seconds ("01:00" for
    // 119.7 s; "1:00:00" for an hour; "00:00" for nothing).
    static QString totalTimeText(double seconds);
    static QString footerText(qsizetype count, double seconds, quint64 bytes);
    // The status column's width: 18 for the library (the mark alone), else the text of the
    // count less one in `font` plus 4 + 4 + 18.
    static int ordinalColumnWidth(const Playlist *playlist, qsizetype count, const QFont &font);
    // Files are taken by any playlist not locked; songs move only within a playlist in its own
    // order (not a library, not sorted by another key, not shuffled, not locked). A drag of our
    // own songs also carries their files, and is a move, never an import.
    static DropKind dropKind(const QMimeData *data, const Playlist *playlist);

public slots:
    // Commands of the main menu's responder chain.
    void newPlaylistFromSelection();
    // The song info sheet of the first selected song, on the table's window.
    void getInfo();
    void showInFileManager();
    void createPreferredVersion();
    // Asks first (unless told never to ask again), then removes the selected songs.
    void deleteSelection();
    void selectAll();
    void selectNone();
    // Plays the first selected song (Return).
    void playSelection();

public:
    Q_INVOKABLE bool validateCommand(const QString &command, QAction *item);

private:
    QList<SongPtr> selectedSongs() const;
    qsizetype selectedRowCount() const;
    void selectSongs(const QList<SongPtr> &songs);
    void updateSortIndicator();
    void restoreColumns();
    void saveColumns();
    void sectionMoved(int logical, int oldVisual, int newVisual);

    ApplicationDelegate *m_delegate;
    SongTableModel *m_model;
    SongTable *m_view;
    QLabel *m_footer;
    // The playlist whose songs the table shows, to know when it changes.
    std::weak_ptr<Playlist> m_shown;
    bool m_restoringColumns = false;
};
