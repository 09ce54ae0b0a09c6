#include "LibraryPlaylist.h"

#include "core/VEKLocalizedString.h"

LibraryPlaylist::LibraryPlaylist(QObject *parent) : Playlist(parent)
{
    setName(VEKLocalizedString("LibraryPlaylist_name"));
}
