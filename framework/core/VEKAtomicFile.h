#pragma once

#include <QByteArray>
#include <QString>

class QRegularExpression;

// Replaces a file the user keeps in one step: the new contents go to a hidden file beside it,
// every write is checked, the file is synced and only then renamed over the target, and the
// folder is synced so the rename survives a crash. On any failure the target is left exactly
// as it was, the hidden file is removed, and `why` tells what failed ("No space left on
// device"). A link is followed: its target is replaced, the link stays. Hidden files that a
// killed process left in the folder are removed first (removeStale()).
class VEKAtomicFile {
public:
    static bool replace(const QString &path, const QByteArray &contents, QString *why = nullptr);

    // fsync() of an open descriptor and of the folder of `path`; false with `why` on failure.
    static bool syncFile(int fd, QString *why = nullptr);
    static bool syncFolderOf(const QString &path, QString *why = nullptr);

    // Removes the hidden files in `folder` whose names (bytes read as Latin-1) match `ours` and
    // that no process holds a lock on: the leftovers of a writer that was killed. A live writer
    // keeps flock() on its hidden file until it has been renamed into place.
    static void removeStale(const QString &folder, const QRegularExpression &ours);
};
