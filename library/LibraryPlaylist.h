#pragma once

#include "Playlist.h"

// The list of every song of the program's own library (ID -1). Its songs come from the library
// file's song table, not from its playlist rows.
class LibraryPlaylist : public Playlist {
    Q_OBJECT
public:
    explicit LibraryPlaylist(QObject *parent = nullptr);
    Kind kind() const override { return Kind::Library; }
};
