#include "iTunesPlaylist.h"

iTunesPlaylist::iTunesPlaylist(QObject *parent) : Playlist(parent) { setLocked(true); }
