#pragma once

#include "library/Playlist.h"

#include <optional>

// What the application core asks of a front end. The windows take a SignalFrontEnd (one Qt
// signal per call); the CLI gives a silent one. All calls come on the main thread.
class FrontEnd {
public:
    virtual ~FrontEnd() = default;

    // The contents of `songs` are new: redraw the song table.
    virtual void refreshSongs() {}
    // The playlist arrays have changed: redraw the sidebar.
    virtual void refreshPlaylists() {}
    // Redraw buttons and labels.
    virtual void updateControls() {}
    // Scroll to the current song.
    virtual void revealCurrentSong() {}
    // Show the library window.
    virtual void open() {}
    // Start editing the playlist's name.
    virtual void beginEditingPlaylist(const PlaylistPtr &) {}

    // The one-time question whether the iTunes library may be read. An empty answer means this
    // front end cannot ask (the CLI); the question then stays open for a front end that can.
    virtual std::optional<bool> askAccessITunesLibrary() { return std::nullopt; }

    // The shutdown has closed the library file: close and release the windows now, while the
    // stream they show is still there to let go of.
    virtual void releaseWindows() {}

    // Long work on the main thread (the migration, a rescan): a panel with a bar.
    // progress < 0 is an indeterminate bar.
    virtual void beginProgress(const QString & /*title*/, double /*progress*/) {}
    virtual void setProgress(double /*progress*/) {}
    virtual void endProgress() {}
};
