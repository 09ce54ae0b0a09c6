#include "SmallFilesystem.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

SmallFilesystem::SmallFilesystem(const QString &folder, qint64 bytes) : m_folder(folder)
{
    QDir().mkpath(folder);
    const QByteArray options = "size=" + QByteArray::number(bytes) + ",mode=0755";
    if (::mount("tmpfs", QFile::encodeName(folder).constData(), "tmpfs", MS_NOSUID | MS_NODEV,
                options.constData())
        == 0)
        m_mounted = true;
    else
        m_reason = QStringLiteral("cannot mount a small filesystem (%1); needs root")
                       .arg(QString::fromLocal8Bit(std::strerror(errno)));
}

SmallFilesystem::~SmallFilesystem()
{
    if (m_mounted)
        ::umount2(QFile::encodeName(m_folder).constData(), MNT_DETACH);
}

void SmallFilesystem::fill(qint64 leaveFree) const
{
    const QByteArray path = QFile::encodeName(m_folder + QStringLiteral("/.filler"));
    const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0)
        return;
    const QByteArray block(4096, '\0');
    const auto freeBytes = [this] {
        struct statvfs st {};
        return ::statvfs(QFile::encodeName(m_folder).constData(), &st) == 0 ? qint64(st.f_bavail) * qint64(st.f_frsize) : 0;
    };
    if (leaveFree > 0) {
        while (freeBytes() > leaveFree && ::write(fd, block.constData(), size_t(block.size())) == block.size()) {
        }
        ::close(fd);
        return;
    }
    for (qsizetype size = block.size(); size > 0; size /= 2)
        while (::write(fd, block.constData(), size_t(size)) == ssize_t(size)) {
        }
    ::close(fd);
}
