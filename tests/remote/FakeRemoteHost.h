#pragma once

#include "library/LibraryPlaylist.h"
#include "library/iTunesLibraryPlaylist.h"
#include "remote/RemoteHost.h"

#include <QStringList>

// A program in memory for the remote's tests: a library, the two all-songs playlists (IDs -1
// and 1) and a stream that records what it is told and reports its changes as the real one does.
// No Q_OBJECT: it only emits the signals of its base.
class FakeRemoteHost : public RemoteHost {
public:
    FakeRemoteHost()
    {
        auto local = std::make_shared<LibraryPlaylist>();
        local->setPlaylistID(Playlist::LibraryPlaylistID);
        local->setName(QStringLiteral("Library"));
        auto iTunes = std::make_shared<iTunesLibraryPlaylist>();
        iTunes->setPlaylistID(Playlist::ITunesLibraryPlaylistID);
        iTunes->setName(QStringLiteral("iTunes"));
        locals = {local};
        iTunesLists = {iTunes};
    }

    static SongPtr song(qint64 id, const char *name, const char *artist, const char *album,
                        quint64 track = 0, quint64 disc = 0)
    {
        auto s = std::make_shared<Song>();
        s->setSongID(id);
        s->setName(name ? QString::fromUtf8(name) : QString());
        s->setArtist(artist ? QString::fromUtf8(artist) : QString());
        s->setAlbum(album ? QString::fromUtf8(album) : QString());
        s->setTrack_sortable(track);
        s->setDisc_sortable(disc);
        s->setLength(100.0 + double(id));
        return s;
    }

    // Into the library and the own (or the iTunes) all-songs playlist.
    SongPtr add(const SongPtr &s, bool iTunes = false)
    {
        songs.insert(s->songID(), s);
        (iTunes ? iTunesLists : locals).first()->appendSongs({s});
        return s;
    }

    PlaylistPtr addPlaylist(qint64 id, const QString &name, const QList<SongPtr> &content)
    {
        auto p = std::make_shared<Playlist>();
        p->setPlaylistID(id);
        p->setName(name);
        p->appendSongs(content);
        locals.append(p);
        return p;
    }

    const QHash<qint64, SongPtr> &library() const override { return songs; }
    const QList<PlaylistPtr> &localPlaylists() const override { return locals; }
    const QList<PlaylistPtr> &iTunesPlaylists() const override { return iTunesLists; }
    double lastLibraryModification() const override { return libraryStamp; }
    double lastPlaylistModification() const override { return playlistStamp; }
    PlaylistPtr playlistForID(qint64 id) const override
    {
        for (const auto *list : {&locals, &iTunesLists})
            for (const PlaylistPtr &p : *list)
                if (p->playlistID() == id)
                    return p;
        return nullptr;
    }
    void setSelectedPlaylist(const PlaylistPtr &p) override
    {
        calls << QStringLiteral("select %1").arg(p ? p->playlistID() : 0);
    }

    SongPtr currentSong() const override { return current; }
    bool isPlaying() const override { return playing; }
    float normalizedLocation() const override { return location; }
    void setNormalizedLocation(float f) override
    {
        location = f;
        calls << QStringLiteral("seek %1").arg(double(f));
    }
    PlaylistPtr playlist() const override { return streamPlaylist; }
    void setPlaylist(const PlaylistPtr &p) override
    {
        streamPlaylist = p;
        calls << QStringLiteral("setPlaylist %1").arg(p ? p->playlistID() : 0);
    }
    void setCurrentSong(const SongPtr &s) override
    {
        calls << QStringLiteral("setCurrentSong %1").arg(s ? s->songID() : 0);
        current = s;
        emit currentSongChanged();
    }
    void play() override { setPlaying(true, QStringLiteral("play")); }
    void pause() override { setPlaying(false, QStringLiteral("pause")); }
    void next() override { calls << QStringLiteral("next"); }
    void previous() override { calls << QStringLiteral("previous"); }

    void setPlaying(bool p, const QString &call)
    {
        calls << call;
        if (p == playing)
            return;
        playing = p;
        emit playingChanged();
    }

    QHash<qint64, SongPtr> songs;
    QList<PlaylistPtr> locals;
    QList<PlaylistPtr> iTunesLists;
    double libraryStamp = 0;
    double playlistStamp = 0;
    SongPtr current;
    bool playing = false;
    float location = 0;
    PlaylistPtr streamPlaylist;
    QStringList calls;
};
