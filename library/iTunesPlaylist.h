#pragma once

#include "Playlist.h"

// A playlist of the user's iTunes library, shown read-only.
class iTunesPlaylist : public Playlist {
    Q_OBJECT
public:
    explicit iTunesPlaylist(QObject *parent = nullptr);
    Kind kind() const override { return Kind::ITunes; }
};
