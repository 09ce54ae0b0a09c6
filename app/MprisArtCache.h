#pragma once

#include "library/Song.h"

#include <QString>

// Gives a song's picture a file:// URL that MPRIS clients can load. A cover file beside the
// song is named as it is; an embedded picture is written to a file of its own in `directory`,
// named after the song and the picture's bytes, so a client that caches by URL never shows a
// stale picture. One such file is kept at a time: the one before is removed when the next is
// written, and the last when the cache goes away.
//
// Main thread only (it reads the song's file).
class MprisArtCache {
public:
    // $XDG_RUNTIME_DIR/quivera (a tmpfs that ends with the session), else
    // $XDG_CACHE_HOME/Quivera, else ~/.cache/Quivera.
    static QString defaultDirectory();

    explicit MprisArtCache(const QString &directory = defaultDirectory());
    ~MprisArtCache();
    MprisArtCache(const MprisArtCache &) = delete;
    MprisArtCache &operator=(const MprisArtCache &) = delete;

    // The URL, or an empty string when the song has no picture or the file can't be written
    // (logged).
    QString artUrlForSong(const Song &song);

    const QString &directory() const { return m_directory; }

private:
    void removeWrittenFile();

    QString m_directory;
    QString m_written; // the embedded picture written last
};
