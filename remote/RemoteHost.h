#pragma once

#include "library/Playlist.h"
#include "library/Song.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QString>

// What the remote service needs of the program: the library and its playlists, and the
// transport of the playing stream. The application implements it over its delegate and stream;
// tests implement it in memory. A program without a stream answers as a stopped one (no song,
// not playing, position 0) and ignores the transport calls.
//
// Main thread only, like everything it reads.
class RemoteHost : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    ~RemoteHost() override = default;

    // --- Library ---------------------------------------------------------------------------

    // Every song, of the own library and of the iTunes library, by songID.
    virtual const QHash<qint64, SongPtr> &library() const = 0;
    // The own playlists and the iTunes ones; element 0 of each is its all-songs playlist.
    virtual const QList<PlaylistPtr> &localPlaylists() const = 0;
    virtual const QList<PlaylistPtr> &iTunesPlaylists() const = 0;
    // Seconds since 2001-01-01, moved whenever the song list or the playlist list changes.
    virtual double lastLibraryModification() const = 0;
    virtual double lastPlaylistModification() const = 0;
    // The local playlists first, then the iTunes ones; null when no playlist has the ID.
    virtual PlaylistPtr playlistForID(qint64 playlistID) const = 0;
    // The library window follows what the remote plays.
    virtual void setSelectedPlaylist(const PlaylistPtr &playlist) = 0;

    // --- Transport ---------------------------------------------------------------------------

    virtual SongPtr currentSong() const = 0;
    virtual bool isPlaying() const = 0;
    // The played part of the current song, 0 to 1.
    virtual float normalizedLocation() const = 0;
    virtual void setNormalizedLocation(float fraction) = 0;
    virtual PlaylistPtr playlist() const = 0;
    virtual void setPlaylist(const PlaylistPtr &playlist) = 0;
    virtual void setCurrentSong(const SongPtr &song) = 0;
    virtual void play() = 0;
    virtual void pause() = 0;
    virtual void next() = 0;
    virtual void previous() = 0;

signals:
    // The stream's current song or playing state changed; the remote pushes its status.
    void currentSongChanged();
    void playingChanged();
};
