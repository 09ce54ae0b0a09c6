#include "iTunesPlaylist.h"

iTunesPlaylist::iTunesPlaylist(QObject *parent) : Playlist(parent) { setLocked(true); }

bool iTunesPlaylist::acceptsEntry(const iTunesPlaylistEntry &entry)
{
    return !entry.isMaster && !entry.isDistinguished;
}

std::shared_ptr<iTunesPlaylist> iTunesPlaylist::initWithITunesLibraryEntry(
    const iTunesPlaylistEntry &entry, const QHash<qint64, SongPtr> &library)
{
    if (!acceptsEntry(entry))
        return nullptr;
    auto playlist = std::make_shared<iTunesPlaylist>();
    playlist->setPlaylistID(entry.playlistID);
    playlist->setName(entry.name);
    QList<SongPtr> songs;
    songs.reserve(entry.trackIDs.size());
    for (qint64 id : entry.trackIDs)
        if (SongPtr song = library.value(id))
            songs.append(song);
    playlist->setSongsWithoutStoring(songs);
    return playlist;
}
