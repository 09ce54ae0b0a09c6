#pragma once

#include "core/VEKError.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <functional>

// One track dictionary of an iTunes library file, reduced to the keys the read-in uses. A key
// the file lacks, or gives with a value of another type, reads as absent (false, 0, null).
struct iTunesTrackEntry {
    bool hasLocation = false;
    QString location; // the "Location" URL as written, e.g. "file://localhost/Users/a/x.mp3"
    bool hasKind = false;
    QString kind;
    bool movie = false;    // "Movie" present and true
    bool hasVideo = false; // "Has Video" present and true
    bool hasTrackID = false;
    qint64 trackID = 0;
    QString name, artist, album, albumArtist, composer, genre;
    double totalTime = 0; // milliseconds
    quint64 size = 0;
    double sampleRate = 0;
    quint64 bitRate = 0; // kilobits per second
    QDateTime dateAdded;
    quint64 trackNumber = 0, trackCount = 0, discNumber = 0, discCount = 0;
};

// One playlist dictionary of the file.
struct iTunesPlaylistEntry {
    bool isMaster = false;        // has the key "Master", whatever its value
    bool isDistinguished = false; // has the key "Distinguished Kind"
    qint64 playlistID = 0;
    QString name;
    QList<qint64> trackIDs; // "Track ID" of each element of "Playlist Items", in order
};

// A streaming reader of the iTunes library's XML property list. It walks the file once and
// builds only the two kinds of entries above; everything else is checked for well-formedness
// and skipped. Much faster and smaller than building the whole property-list tree: the file is
// mapped, and the pages already read are given back as it goes, so the memory a run costs is
// what the caller keeps of the entries.
//
// Safe on hostile input: malformed XML, truncation, bad numbers or dates, nesting deeper than
// maxDepth all end the parse with an error, never a crash or a hang. Any thread; one parse
// per object at a time.
class iTunesLibraryParser {
public:
    static constexpr int maxDepth = 256;

    struct Handler {
        // Each value of the root's "Tracks" dictionary that is itself a dictionary, in the
        // order of the file. The entry is reused for the next track: take what is needed.
        std::function<void(const iTunesTrackEntry &)> track;
        // Each dictionary element of the root's "Playlists" array, in order.
        std::function<void(iTunesPlaylistEntry &&)> playlist;
        // From time to time: the share of the file read so far, 0 to 1.
        std::function<void(double)> progress;
    };

    // Parses the file at `path`. False with `error` filled when it cannot be read or is not a
    // well-formed property list with a dictionary at its root; the handler may have been
    // called for entries before the fault, and the caller should drop what it got. `missing`
    // tells a file that does not exist from one that is damaged.
    static bool parseFile(const QString &path, const Handler &handler, VEKError *error = nullptr,
                          bool *missing = nullptr);
    // The same over bytes in memory.
    static bool parseData(const char *data, qsizetype size, const Handler &handler,
                          VEKError *error = nullptr);
};
