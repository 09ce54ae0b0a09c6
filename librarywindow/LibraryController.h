#pragma once

#include "library/Playlist.h"
#include "library/SongPredicate.h"

#include <QObject>
#include <QPointer>
#include <QTimer>
#include <memory>

class ApplicationDelegate;
class ArtworkViewController;
class LibraryWindow;
class MainMenu;
class PlaylistTableController;
class Operation;
class QMenu;
class QPropertyAnimation;
class SongTableController;

// The library window: the playlist sidebar and the artwork panel on the left, the song table
// with the search field, the shuffle, repeat and artwork buttons and the progress strip of
// background work on the right. It owns the layout rules and the search; the table, the sidebar
// and the artwork are controllers of their own that it holds and tells what to do.
//
// The controller lives for the whole run, whether the window is ever shown or not: it follows
// the delegate (through its SignalFrontEnd) and the background queue from the start. Settings:
// `libraryOpen` (the window opens at launch; set by open(), cleared when the window closes),
// `librarySplitPosition` (the left column's width, 150 to 320, written only when it changes),
// `libraryShowArtwork`. Main thread only.
class LibraryController : public QObject {
    Q_OBJECT
public:
    // `menu` (may be null) becomes the window's menu bar and gives the table's context menu.
    // Opens the window when `libraryOpen` says so.
    explicit LibraryController(ApplicationDelegate &delegate, MainMenu *menu = nullptr,
                               QObject *parent = nullptr);
    ~LibraryController() override;

    LibraryWindow *window() const { return m_window; }
    SongTableController *songTableController() const { return m_songTable; }
    PlaylistTableController *playlistTableController() const { return m_playlistTable; }

    // Brings the window to the front and remembers it open.
    void open();
    // Puts the keyboard in the search field, its text selected.
    void focusSearch();

    float splitPosition() const { return m_splitPosition; }
    // Clamped to 150..320; the same value again lays out and stores nothing.
    void setSplitPosition(float position);
    bool showArtwork() const { return m_showArtwork; }
    // Shows or hides the artwork panel under the sidebar, sliding for 0.25 s when animated.
    void setShowArtwork(bool show, bool animated);

    // 0 every field, 1 name, 2 artist, 3 album, 4 composer; not kept between runs.
    quint64 searchScope() const { return m_searchScope; }
    void setSearchScope(quint64 scope);
    // Runs the search of the field's text in the scope on the selected playlist: every word
    // must be found within one and the same field. Blank text clears it.
    void search();

    // The delegate's notices.
    void refreshSongs();
    void refreshPlaylists();
    void updateControls();
    void revealCurrentSong();
    // The sidebar's choice: the search is cleared and the table's selection stays with each
    // playlist.
    void setSelectedPlaylist(const PlaylistPtr &playlist);

    bool isHiddenForColumn(const QString &identifier) const;
    void setIsHiddenForColumn(bool hidden, const QString &identifier);

    // The operation the progress strip shows (null: the strip is hidden).
    const std::shared_ptr<Operation> &currentOperation() const { return m_currentOperation; }
    void setCurrentOperation(const std::shared_ptr<Operation> &operation);
    // The strip's words for an operation: importing, loading the iTunes library, converting a
    // song; nothing for any other kind.
    static QString progressTextFor(const Operation *operation);

private:
    void build(MainMenu *menu);
    void updateProgress();
    void updateSearchPlaceholder();
    void clearSearchField();

    ApplicationDelegate &m_delegate;
    LibraryWindow *m_window = nullptr;
    SongTableController *m_songTable = nullptr;
    PlaylistTableController *m_playlistTable = nullptr; // child of the window's left column
    ArtworkViewController *m_artwork = nullptr;         // child of the artwork panel
    QMenu *m_scopeMenu = nullptr;
    QMenu *m_tableMenu = nullptr;
    QPointer<MainMenu> m_menu;
    QPropertyAnimation *m_artworkAnimation = nullptr;
    float m_splitPosition = 0;
    bool m_showArtwork = false;
    quint64 m_searchScope = 0;
    // The search last run and its predicate, to narrow the hits as the text grows; and the
    // searches on the way to it with their hits, to go back to as Backspace shortens the text.
    // Any other new list of songs (an import, a sort, another playlist) forgets them.
    struct Search {
        QString text;
        std::shared_ptr<const SongPredicate> predicate;
        QList<SongPtr> hits;
    };
    QString m_lastSearch;
    std::shared_ptr<const SongPredicate> m_lastPredicate;
    QList<Search> m_searches;
    bool m_searching = false;
    std::shared_ptr<Operation> m_currentOperation;
    QTimer m_progressTimer;
};
