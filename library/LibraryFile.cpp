#include "LibraryFile.h"

#include "core/VEKLocalizedString.h"
#include "db/VEKDatabase.h"
#include "db/VEKDatabaseQuery.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kSqliteCorrupt = 11;
constexpr int kSqliteNotADatabase = 26;

const char *const kJournals[] = {"-wal", "-journal"};

VEKError fileError(int code, const char *description, const QString &reason)
{
    return VEKError(QString::fromLatin1(LibraryFile::errorDomain), code,
                    VEKLocalizedString(description), reason);
}

QString systemReason(const QString &path, int error)
{
    return path + QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(error));
}

// A rename that never replaces what is at `to`: false with errno EEXIST if something is there.
bool renameNoReplace(const QString &from, const QString &to)
{
    const QByteArray a = QFile::encodeName(from), b = QFile::encodeName(to);
    if (::renameat2(AT_FDCWD, a.constData(), AT_FDCWD, b.constData(), RENAME_NOREPLACE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS)
        return false;
    // A file system without the flag: a hard link refuses an existing name as well.
    if (::link(a.constData(), b.constData()) != 0)
        return false;
    ::unlink(a.constData());
    return true;
}

bool syncPath(const QString &path, int flags)
{
    const int fd = ::open(QFile::encodeName(path).constData(), flags | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool ok = ::fsync(fd) == 0;
    ::close(fd);
    return ok;
}

} // namespace

LibraryFile::State LibraryFile::examine(const QString &path, VEKError *error)
{
    struct stat st;
    if (::stat(QFile::encodeName(path).constData(), &st) != 0) {
        if (errno == ENOENT)
            return State::Missing;
        VEKError::set(error, fileError(UnreadableFile, "Error_databaseOpen", systemReason(path, errno)));
        return State::Unreadable;
    }
    // SQLite would wait forever on a pipe, and a folder is nothing to build over.
    if (!S_ISREG(st.st_mode)) {
        VEKError::set(error, fileError(UnreadableFile, "Error_databaseOpen",
                                       path + QStringLiteral(": not a regular file")));
        return State::Unreadable;
    }
    if (st.st_size == 0)
        return State::Missing;
    if (::access(QFile::encodeName(path).constData(), R_OK | W_OK) != 0) {
        VEKError::set(error, fileError(UnreadableFile, "Error_databaseOpen", systemReason(path, errno)));
        return State::Unreadable;
    }

    VEKDatabase db;
    VEKError found;
    if (!db.initReadOnlyWithURL(path, &found)) {
        VEKError::set(error, fileError(UnreadableFile, "Error_databaseOpen", found.failureReason()));
        return State::Unreadable;
    }
    const auto failed = [&](const VEKError &e) {
        const int primary = int(e.code() & 0xff);
        const QString reason = path + QStringLiteral(": ") + e.failureReason();
        if (primary == kSqliteNotADatabase) {
            VEKError::set(error, fileError(SetAside, "Error_libraryFileSetAside", reason));
            return State::NotALibrary;
        }
        if (primary == kSqliteCorrupt) {
            VEKError::set(error, fileError(DamagedFile, "Error_libraryFileDamaged", reason));
            return State::Damaged;
        }
        VEKError::set(error, fileError(UnreadableFile, "Error_databaseOpen", reason));
        return State::Unreadable;
    };

    QSet<QString> tables;
    auto schema = db.queryWithStatement(
        QStringLiteral("SELECT name FROM sqlite_master WHERE type = 'table'"), &found);
    while (schema && schema->evaluateNextRow(&found))
        tables.insert(schema->stringValueAtColumn(0));
    if (!found.isNull())
        return failed(found);
    for (const char *table : {"t_global", "t_song", "t_playlist", "t_playlistSong"}) {
        if (!tables.contains(QLatin1String(table))) {
            VEKError::set(error, fileError(SetAside, "Error_libraryFileSetAside",
                                           path + QStringLiteral(": the table %1 is missing")
                                                      .arg(QLatin1String(table))));
            return State::NotALibrary;
        }
    }

    // The quick check reads every page of every table: a page overwritten by something else
    // shows here, before the library looks complete and is written to.
    QStringList problems;
    auto check = db.queryWithStatement(QStringLiteral("PRAGMA quick_check(3)"), &found);
    while (check && check->evaluateNextRow(&found)) {
        const QString line = check->stringValueAtColumn(0);
        if (line != QLatin1String("ok"))
            problems.append(line);
    }
    if (!found.isNull() && problems.isEmpty())
        return failed(found);
    if (!problems.isEmpty()) {
        VEKError::set(error, fileError(DamagedFile, "Error_libraryFileDamaged",
                                       path + QStringLiteral(": ") + problems.join(QStringLiteral("; "))));
        return State::Damaged;
    }
    return State::Good;
}

QString LibraryFile::setAside(const QString &path, VEKError *error)
{
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH.mm.ss"));
    for (int n = 1; n < 1000; ++n) {
        const QString target = path + QStringLiteral(" (set aside %1%2)")
                                          .arg(stamp, n > 1 ? QStringLiteral(" %1").arg(n) : QString());
        if (!renameNoReplace(path, target)) {
            if (errno == EEXIST)
                continue;
            VEKError::set(error, fileError(UnreadableFile, "Error_libraryFileSetAsideFailed",
                                           systemReason(path, errno)));
            return {};
        }
        // The log may hold the file's last changes: it goes with it. The shared-memory index
        // is rebuilt from the two.
        for (const char *journal : kJournals)
            if (QFileInfo::exists(path + QLatin1String(journal)))
                renameNoReplace(path + QLatin1String(journal), target + QLatin1String(journal));
        QFile::remove(path + QStringLiteral("-shm"));
        syncPath(QFileInfo(path).absolutePath(), O_RDONLY | O_DIRECTORY);
        return target;
    }
    VEKError::set(error, fileError(UnreadableFile, "Error_libraryFileSetAsideFailed",
                                   path + QStringLiteral(": no free name to move it to")));
    return {};
}

QString LibraryFile::temporaryPathFor(const QString &path)
{
    const QFileInfo info(path);
    const QString prefix = info.fileName() + QStringLiteral(".building-");
    const QDir folder = info.absoluteDir();
    for (const QString &name : folder.entryList({prefix + u'*'}, QDir::Files | QDir::Hidden)) {
        bool isNumber = false;
        const qint64 pid = name.mid(prefix.size()).section(u'-', 0, 0).toLongLong(&isNumber);
        // A build whose process is gone was killed half-way: nothing in it is needed.
        if (isNumber && pid > 0 && ::kill(pid_t(pid), 0) != 0 && errno == ESRCH)
            QFile::remove(folder.filePath(name));
    }
    return path + QStringLiteral(".building-%1").arg(::getpid());
}

void LibraryFile::discard(const QString &temporaryPath)
{
    QFile::remove(temporaryPath);
    for (const char *suffix : {"-wal", "-journal", "-shm"})
        QFile::remove(temporaryPath + QLatin1String(suffix));
}

bool LibraryFile::install(std::unique_ptr<VEKDatabase> build, const QString &path, VEKError *error)
{
    const QString temporary = build->path();
    // One file, with no log beside it, so that a rename moves the whole library.
    VEKError found;
    auto mode = build->queryWithStatement(QStringLiteral("PRAGMA journal_mode=DELETE;"), &found);
    const bool folded = mode && mode->evaluateNextRow(&found)
                        && mode->stringValueAtColumn(0) == QLatin1String("delete");
    mode.reset();
    build.reset();
    if (!folded || QFileInfo::exists(temporary + QStringLiteral("-wal"))
        || !syncPath(temporary, O_RDONLY)) {
        VEKError::set(error, fileError(BuildFailed, "Error_libraryFileBuild",
                                       temporary + QStringLiteral(": ") + found.failureReason()));
        discard(temporary);
        return false;
    }
    if (!renameNoReplace(temporary, path)) {
        const int reason = errno;
        discard(temporary);
        if (reason == EEXIST)
            return true; // another process put its new library in place first
        VEKError::set(error, fileError(BuildFailed, "Error_libraryFileBuild", systemReason(path, reason)));
        return false;
    }
    syncPath(QFileInfo(path).absolutePath(), O_RDONLY | O_DIRECTORY);
    return true;
}
