#pragma once

#include "remote/RemoteHost.h"

#include <QPointer>

class ApplicationDelegate;
class Stream;

// The remote service's view of the running program: the delegate's library and playlists and
// its stream. Without a stream (a launch that made none, or one that failed) the transport
// answers as a stopped player and does nothing. Main thread only; the delegate outlives it.
class ApplicationRemoteHost : public RemoteHost {
    Q_OBJECT
public:
    explicit ApplicationRemoteHost(ApplicationDelegate &delegate, QObject *parent = nullptr);

    const QHash<qint64, SongPtr> &library() const override;
    const QList<PlaylistPtr> &localPlaylists() const override;
    const QList<PlaylistPtr> &iTunesPlaylists() const override;
    double lastLibraryModification() const override;
    double lastPlaylistModification() const override;
    PlaylistPtr playlistForID(qint64 playlistID) const override;
    void setSelectedPlaylist(const PlaylistPtr &playlist) override;

    SongPtr currentSong() const override;
    bool isPlaying() const override;
    float normalizedLocation() const override;
    void setNormalizedLocation(float fraction) override;
    PlaylistPtr playlist() const override;
    void setPlaylist(const PlaylistPtr &playlist) override;
    void setCurrentSong(const SongPtr &song) override;
    void play() override;
    void pause() override;
    void next() override;
    void previous() override;

private:
    Stream *stream() const;

    ApplicationDelegate &m_delegate;
};
