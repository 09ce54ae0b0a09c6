#include "VEKAtomicFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
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
    const QByteArray folder = QFile::encodeName(QFileInfo(path).absolutePath());
    const int fd = ::open(folder.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return fail(why, errnoText(errno));
    const bool ok = syncFile(fd, why);
    ::close(fd);
    return ok;
}

bool VEKAtomicFile::replace(const QString &path, const QByteArray &contents, QString *why)
{
    QFileInfo info(path);
    const QString target = info.isSymLink() ? info.canonicalFilePath() : info.absoluteFilePath();
    if (target.isEmpty())
        return fail(why, errnoText(ENOENT));
    const QFileInfo targetInfo(target);
    // Kept short so that a file whose name is near the system's limit still has a sibling.
    const QString temp = targetInfo.absoluteDir().filePath(
        QStringLiteral(".%1.%2.tmp")
            .arg(targetInfo.fileName().left(40))
            .arg(QRandomGenerator::global()->generate(), 8, 16, QLatin1Char('0')));
    const QByteArray tempName = QFile::encodeName(temp);
    const QByteArray targetName = QFile::encodeName(target);

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
    if (::close(fd) != 0) {
        const int code = errno;
        ::unlink(tempName.constData());
        return fail(why, errnoText(code));
    }
    if (::rename(tempName.constData(), targetName.constData()) != 0) {
        const int code = errno;
        ::unlink(tempName.constData());
        return fail(why, errnoText(code));
    }
    // The contents are safe either way; a folder that cannot be synced is no reason to fail.
    syncFolderOf(target);
    return true;
}
