#pragma once

#include "Song.h"
#include "iTunesLibraryParser.h"

// A song of the user's iTunes library. It is read from the library's XML file at each start
// and held in memory only: nothing of it is written to the own library's song table. Its
// songID is the file's positive "Track ID", which keeps it apart from the own songs (0 and
// below). The format stays unset: the file itself is not opened.
class iTunesSong : public Song {
public:
    // The song of one track entry, or null when the entry is refused. Refused are, in this
    // order: no "Location"; a "Location" that is not a file URL; a movie ("Movie" true) or a
    // video ("Has Video" true); a "Kind" that is absent or contains "Protected"; a "Kind" that
    // names none of AIFF, WAV, MPEG, AAC, Apple Lossless (searched in that order); and, since
    // the ID is what playlists and the library refer to, a "Track ID" that is absent or not
    // above 0.
    //
    // `libraryLocation` is the iTunesLibraryLocation setting as stored. When the file is not
    // where the entry says and that setting begins with "/Volumes/", the library has moved to
    // another volume with its files: the path is carried over (see movedPath). The song keeps
    // isMissing when the file is not found either way. One stat per track, two when moved.
    // Any thread: the read-in calls it on its worker.
    static SongPtr initWithLibraryEntry(const iTunesTrackEntry &entry,
                                        const QString &libraryLocation);

    // The path of a file URL ("file://localhost/Users/a%20b/x.mp3" gives "/Users/a b/x.mp3"),
    // or a null string when the text is not a file URL or its escapes are broken.
    static QString pathForLocation(const QString &location);

    // The path of a track carried over to the volume the library file now lies on. The
    // components before "iTunes" are counted in each (all of them where there is none): the
    // path keeps its components from that count on, and the location gives those before its
    // own count. "/Users/a/Music/iTunes/Media/x.mp3" with "/Volumes/Disk/Music/iTunes/iTunes
    // Music Library.xml" gives "/Volumes/Disk/Music/iTunes/Media/x.mp3".
    static QString movedPath(const QString &path, const QString &libraryLocation);

    // The program's kind for an iTunes "Kind", or a null string for one it does not take.
    static QString kindForITunesKind(const QString &iTunesKind);
};
