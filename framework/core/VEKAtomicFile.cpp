#include "VEKAtomicFile.h"

#include "VEKPaths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QRegularExpression>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QString errnoText(int code) { return QString::fromLocal8Bit(std::strerror(code)); }

bool fail(QString *why, const QString &text)
{
    if (why)
        *why = text;
    return false;
}

} // namespace

bool VEKAtomicFile::syncFile(int fd, QString *why)
{
    if (::fsync(fd) != 0)
        return fail(why, errnoText(errno));
    return true;
}

bool VEKAtomicFile::syncFolderOf(const QString &path, QString *why)
{
    const QByteArray folder = VEKPaths::native(QFileInfo(path).absolutePath());
    const int fd = ::open(folder.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return fail(why, errnoText(errno));
    const bool ok = syncFile(fd, why);
    ::close(fd);
    return ok;
}

void VEKAtomicFile::removeStale(const QString &folder, const QRegularExpression &ours)
{
    const QByteArray base = VEKPaths::native(folder);
    DIR *dir = ::opendir(base.constData());
    if (!dir)
        return;
    while (const dirent *entry = ::readdir(dir)) {
        const QByteArray name(entry->d_name);
        if (!name.startsWith('.') || !ours.match(QString::fromLatin1(name)).hasMatch())
            continue;
        const QByteArray path = base + '/' + name;
        const int fd = ::open(path.constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
        if (fd < 0)
            continue;
        // Still the same file once the lock is ours: a writer that finished meanwhile has renamed
        // it to the user's name, which must stay.
        struct stat held {
        }, there{};
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0 && ::fstat(fd, &held) == 0 && S_ISREG(held.st_mode)
            && ::lstat(path.constData(), &there) == 0 && held.st_ino == there.st_ino
            && held.st_dev == there.st_dev)
            ::unlink(path.constData());
        ::close(fd);
    }
    ::closedir(dir);
}

bool VEKAtomicFile::replace(const QString &path, const QByteArray &contents, QString *why)
{
    const QString absolute = VEKPaths::absolute(path);
    QString target = absolute;
    struct stat link {};
    if (::lstat(VEKPaths::native(absolute).constData(), &link) == 0 && S_ISLNK(link.st_mode)) {
        char *real = ::realpath(VEKPaths::native(absolute).constData(), nullptr);
        target = real ? VEKPaths::fromNative(real) : QString();
        std::free(real);
    }
    if (target.isEmpty())
        return fail(why, errnoText(ENOENT));
    const QFileInfo targetInfo(target);
    static const QRegularExpression ours(QStringLiteral("^\\..+\\.[0-9a-f]{8}\\.tmp$"));
    removeStale(targetInfo.absolutePath(), ours);
    // Kept short so that a file whose name is near the system's limit still has a sibling.
    const QString temp = targetInfo.absoluteDir().filePath(
        QStringLiteral(".%1.%2.tmp")
            .arg(targetInfo.fileName().left(40))
            .arg(QRandomGenerator::global()->generate(), 8, 16, QLatin1Char('0')));
    const QByteArray tempName = VEKPaths::native(temp);
    const QByteArray targetName = VEKPaths::native(target);

    struct stat st {};
    const bool existed = ::stat(targetName.constData(), &st) == 0;
    const int fd = ::open(tempName.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, existed ? (st.st_mode & 07777) : 0666);
    if (fd < 0)
        return fail(why, errnoText(errno));
    const auto abandon = [&](int code) {
        ::close(fd);
        ::unlink(tempName.constData());
        return fail(why, errnoText(code));
    };
    // Held until the rename, so another process's removeStale() leaves the file alone.
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0)
        return abandon(errno);
    if (existed) {
        // The umask must not narrow what the file allowed; ownership stays as it may.
        ::fchmod(fd, st.st_mode & 07777);
        if (::geteuid() == 0)
            (void)!::fchown(fd, st.st_uid, st.st_gid);
    }
    const char *p = contents.constData();
    qint64 left = contents.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, p, size_t(left));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return abandon(n < 0 ? errno : ENOSPC);
        p += n;
        left -= n;
    }
    if (::fsync(fd) != 0)
        return abandon(errno);
    if (::rename(tempName.constData(), targetName.constData()) != 0)
        return abandon(errno);
    // Synced before the rename, so the contents are in place whatever close() says.
    ::close(fd);
    // The contents are safe either way; a folder that cannot be synced is no reason to fail.
    syncFolderOf(target);
    return true;
}
