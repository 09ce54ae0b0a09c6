#include "ApplicationRemoteHost.h"

#include "ApplicationDelegate.h"
#include "audio/Stream.h"

ApplicationRemoteHost::ApplicationRemoteHost(ApplicationDelegate &delegate, QObject *parent)
    : RemoteHost(parent), m_delegate(delegate)
{
    if (Stream *s = stream()) {
        connect(s, &Stream::currentSongChanged, this, &RemoteHost::currentSongChanged);
        connect(s, &Stream::playingChanged, this, &RemoteHost::playingChanged);
    }
}

Stream *ApplicationRemoteHost::stream() const { return m_delegate.stream(); }

const QHash<qint64, SongPtr> &ApplicationRemoteHost::library() const { return m_delegate.library(); }

const QList<PlaylistPtr> &ApplicationRemoteHost::localPlaylists() const
{
    return m_delegate.localPlaylists();
}

const QList<PlaylistPtr> &ApplicationRemoteHost::iTunesPlaylists() const
{
    return m_delegate.iTunesPlaylists();
}

double ApplicationRemoteHost::lastLibraryModification() const
{
    return m_delegate.lastLibraryModification();
}

double ApplicationRemoteHost::lastPlaylistModification() const
{
    return m_delegate.lastPlaylistModification();
}

PlaylistPtr ApplicationRemoteHost::playlistForID(qint64 playlistID) const
{
    return m_delegate.playlistForID(playlistID);
}

void ApplicationRemoteHost::setSelectedPlaylist(const PlaylistPtr &playlist)
{
    m_delegate.setSelectedPlaylist(playlist);
}

SongPtr ApplicationRemoteHost::currentSong() const
{
    return stream() ? stream()->currentSong() : SongPtr();
}

bool ApplicationRemoteHost::isPlaying() const { return stream() && stream()->isPlaying(); }

float ApplicationRemoteHost::normalizedLocation() const
{
    return stream() ? stream()->normalizedLocation() : 0.0f;
}

void ApplicationRemoteHost::setNormalizedLocation(float fraction)
{
    if (Stream *s = stream())
        s->setNormalizedLocation(fraction);
}

PlaylistPtr ApplicationRemoteHost::playlist() const
{
    return stream() ? stream()->playlist() : PlaylistPtr();
}

void ApplicationRemoteHost::setPlaylist(const PlaylistPtr &playlist)
{
    if (Stream *s = stream())
        s->setPlaylist(playlist);
}

void ApplicationRemoteHost::setCurrentSong(const SongPtr &song)
{
    if (Stream *s = stream())
        s->setCurrentSong(song);
}

void ApplicationRemoteHost::play()
{
    if (Stream *s = stream())
        s->play();
}

void ApplicationRemoteHost::pause()
{
    if (Stream *s = stream())
        s->pause();
}

void ApplicationRemoteHost::next()
{
    if (Stream *s = stream())
        s->next();
}

void ApplicationRemoteHost::previous()
{
    if (Stream *s = stream())
        s->previous();
}
