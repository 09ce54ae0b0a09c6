#pragma once

#include "LibraryPlaylist.h"

// The list of every song of the user's iTunes library (ID 1), read-only.
class iTunesLibraryPlaylist : public LibraryPlaylist {
    Q_OBJECT
public:
    explicit iTunesLibraryPlaylist(QObject *parent = nullptr);
    Kind kind() const override { return Kind::ITunesLibrary; }
};
