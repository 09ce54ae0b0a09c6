#pragma once

#include "Playlist.h"
#include "iTunesLibraryParser.h"

#include <QHash>

// A playlist of the user's iTunes library, shown read-only. Its songs come from the iTunes
// library file at each start and are never written to the library file; only its row in
// t_playlist (made by the read-in) keeps its view settings.
class iTunesPlaylist : public Playlist {
    Q_OBJECT
public:
    explicit iTunesPlaylist(QObject *parent = nullptr);
    Kind kind() const override { return Kind::ITunes; }

    // Whether a playlist entry of the file becomes a playlist: the library's all-songs list
    // ("Master") and the built-in special lists ("Distinguished Kind") do not, whatever the
    // value of the key. Folders and smart playlists do, as flat lists of what the file names.
    static bool acceptsEntry(const iTunesPlaylistEntry &entry);

    // The playlist of an entry, or null when acceptsEntry refuses it. Its songs are those of
    // the entry's items found in `library`, in the file's order; an item whose track was
    // refused or is unknown is left out. Main thread (it is a QObject the views watch).
    static std::shared_ptr<iTunesPlaylist> initWithITunesLibraryEntry(
        const iTunesPlaylistEntry &entry, const QHash<qint64, SongPtr> &library);
};
