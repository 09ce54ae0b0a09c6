#include "iTunesLibraryPlaylist.h"

iTunesLibraryPlaylist::iTunesLibraryPlaylist(QObject *parent) : LibraryPlaylist(parent)
{
    setLocked(true);
}
