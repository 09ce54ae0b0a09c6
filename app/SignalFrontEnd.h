#pragma once

#include "FrontEnd.h"

#include <QObject>
#include <functional>
#include <optional>

// A front end made of Qt signals: each call of the application core comes out as one signal, so
// every window connects to what it draws and nothing else. Hand it to ApplicationDelegate as
// its front end; the library window, the player and the mini player share it.
//
// All signals are emitted on the main thread, synchronously inside the delegate's call: a
// directly connected slot runs before the delegate goes on. The core's other notices are
// signals of ApplicationDelegate (selectedPlaylistChanged, operationStarted, playModeChanged)
// and of Stream (currentSongChanged, playingChanged, playlistChanged, ...).
class SignalFrontEnd : public QObject, public FrontEnd {
    Q_OBJECT
public:
    using AccessITunesLibraryHandler = std::function<std::optional<bool>()>;

    explicit SignalFrontEnd(QObject *parent = nullptr);
    ~SignalFrontEnd() override;

    // The one question that needs an answer, asked once per user at launch: whether the iTunes
    // library may be read. The handler shows the question and returns the answer; with none
    // set (or a handler that returns nothing) the question stays open for a later launch.
    void setAskAccessITunesLibraryHandler(AccessITunesLibraryHandler handler);

    void refreshSongs() override;
    void refreshPlaylists() override;
    void updateControls() override;
    void revealCurrentSong() override;
    void open() override;
    void beginEditingPlaylist(const PlaylistPtr &playlist) override;
    std::optional<bool> askAccessITunesLibrary() override;
    void releaseWindows() override;
    void beginProgress(const QString &title, double progress) override;
    void setProgress(double progress) override;
    void endProgress() override;

signals:
    // ApplicationDelegate::songs() holds new contents (another playlist, a sort, a search, an
    // import): redraw the song table.
    void refreshSongsRequested();
    // The lists of playlists changed (one added, deleted, the iTunes read-in arrived, a
    // rescan): redraw the sidebar.
    void refreshPlaylistsRequested();
    // Something the buttons and labels show may have changed (shuffle, repeat, the library's
    // contents): redraw them.
    void updateControlsRequested();
    // The current song's facts were rewritten: scroll the song table to it.
    void revealCurrentSongRequested();
    // A new playlist was made from songs: show the library window.
    void openRequested();
    // That new playlist is selected: start editing its name in the sidebar.
    void beginEditingPlaylistRequested(const PlaylistPtr &playlist);
    // The shutdown has closed the library file: the windows close and let go of the stream now
    // (connect directly: the stream is torn down right after).
    void releaseWindowsRequested();
    // Long work on the main thread starts (the migration, a rescan): show a panel with a bar.
    // `progress` is 0..1, below 0 for an indeterminate bar. The main thread stays busy until
    // endProgressRequested: a slot that wants the panel seen must paint it itself.
    void beginProgressRequested(const QString &title, double progress);
    void setProgressRequested(double progress);
    void endProgressRequested();

private:
    AccessITunesLibraryHandler m_askAccessITunesLibrary;
};
