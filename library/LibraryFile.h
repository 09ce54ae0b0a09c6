#pragma once

#include "core/VEKError.h"

#include <QString>
#include <memory>

class VEKDatabase;

// The library file as a file: what is on disk at a launch, and how a new one comes into place.
// A new library is built (and migrated) in a temporary file beside it and renamed into place
// complete, so a start that dies half-way leaves either no library or a whole one. A file that
// is not a library is moved aside under a dated name, never deleted or overwritten; a library
// that is damaged is left exactly as it is.
class LibraryFile {
public:
    enum class State {
        Missing,     // nothing there (or a file of no bytes, which never held anything)
        Good,        // a library file that passed SQLite's quick check
        NotALibrary, // not a database at all, or a database without the library's tables
        Damaged,     // a library whose pages do not pass the quick check
        Unreadable,  // the system refuses it (rights, a folder or pipe in its place, I/O)
    };

    static constexpr const char *errorDomain = "LibraryFile";
    enum ErrorCode { SetAside = 1, DamagedFile = 2, UnreadableFile = 3, BuildFailed = 4 };

    // Looks at the file through a read-only connection: nothing is written to it. For every state
    // but Missing and Good, `error` says what was found.
    static State examine(const QString &path, VEKError *error = nullptr);

    // Moves the file, with its write-ahead log, to "<name> (set aside YYYY-MM-DD HH.MM.SS)"
    // beside it, numbered if that name is taken. Returns the new path, or an empty string with
    // `error` filled.
    static QString setAside(const QString &path, VEKError *error = nullptr);

    // A temporary file beside `path` for a build by this process. Leftovers of builds by
    // processes that are gone are removed first.
    static QString temporaryPathFor(const QString &path);

    // Moves a finished build into place: its log is folded in, it is synced and renamed to
    // `path`, never over a file that is there by now (another process was quicker; the build is
    // then thrown away and theirs kept). The connection is closed by this call.
    static bool install(std::unique_ptr<VEKDatabase> build, const QString &path,
                        VEKError *error = nullptr);

    // Removes a temporary build with its journal files.
    static void discard(const QString &temporaryPath);
};
