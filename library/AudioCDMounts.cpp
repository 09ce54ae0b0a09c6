#include "AudioCDMounts.h"

#include <QFile>

#include <fcntl.h>
#include <linux/cdrom.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

// The mount table escapes blanks, tabs, line feeds and backslashes as three octal digits.
QString unescape(const QByteArray &field)
{
    QByteArray out;
    out.reserve(field.size());
    for (qsizetype i = 0; i < field.size(); ++i) {
        const char c = field.at(i);
        if (c == '\\' && i + 3 < field.size()) {
            const char a = field.at(i + 1), b = field.at(i + 2), d = field.at(i + 3);
            if (a >= '0' && a <= '3' && b >= '0' && b <= '7' && d >= '0' && d <= '7') {
                out.append(char((a - '0') * 64 + (b - '0') * 8 + (d - '0')));
                i += 3;
                continue;
            }
        }
        out.append(c);
    }
    return QFile::decodeName(out);
}

bool isOpticalDrive(const QString &device)
{
    return device.startsWith(QLatin1String("/dev/sr")) || device.startsWith(QLatin1String("/dev/scd"))
           || device.startsWith(QLatin1String("/dev/cdrom"));
}

bool isBelow(const QString &path, const QString &root)
{
    if (root == QLatin1String("/"))
        return path.startsWith(u'/');
    return path.size() > root.size() ? path.startsWith(root) && path.at(root.size()) == u'/'
                                     : path == root;
}

} // namespace

AudioCDMounts AudioCDMounts::fromMountTable(
    const QByteArray &table, const std::function<bool(const QString &device)> &hasAudioTracks)
{
    AudioCDMounts mounts;
    for (const QByteArray &line : table.split('\n')) {
        const QList<QByteArray> fields = line.simplified().split(' ');
        if (fields.size() < 3)
            continue;
        const QString device = unescape(fields.at(0));
        QString mountPoint = unescape(fields.at(1));
        const QByteArray type = fields.at(2);
        if (mountPoint.size() > 1 && mountPoint.endsWith(u'/'))
            mountPoint.chop(1);
        if (type == "cdfs" || type.contains("cdda")) {
            mounts.m_roots.append(mountPoint);
        } else if (type == "fuse.gvfsd-fuse" || type == "fuse.gvfs-fuse-daemon") {
            mounts.m_gvfsRoots.append(mountPoint);
        } else if ((type == "iso9660" || type == "udf") && isOpticalDrive(device) && hasAudioTracks
                   && hasAudioTracks(device)) {
            mounts.m_roots.append(mountPoint);
        }
    }
    return mounts;
}

AudioCDMounts AudioCDMounts::current()
{
    QFile file(QStringLiteral("/proc/self/mounts"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    // The file reports a size of 0: read it to its end.
    return fromMountTable(file.readAll(), &AudioCDMounts::deviceHasAudioTracks);
}

bool AudioCDMounts::contains(const QString &path) const
{
    for (const QString &root : m_roots)
        if (isBelow(path, root))
            return true;
    for (const QString &root : m_gvfsRoots) {
        if (!isBelow(path, root) || path.size() <= root.size())
            continue;
        const qsizetype start = root == QLatin1String("/") ? 1 : root.size() + 1;
        if (QStringView(path).mid(start).startsWith(QLatin1String("cdda:")))
            return true;
    }
    return false;
}

bool AudioCDMounts::deviceHasAudioTracks(const QString &device)
{
    const int fd = ::open(QFile::encodeName(device).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return false;
    bool audio = false;
    cdrom_tochdr header{};
    if (::ioctl(fd, CDROMREADTOCHDR, &header) == 0) {
        for (int track = header.cdth_trk0; track <= header.cdth_trk1 && !audio; ++track) {
            cdrom_tocentry entry{};
            entry.cdte_track = quint8(track);
            entry.cdte_format = CDROM_LBA;
            if (::ioctl(fd, CDROMREADTOCENTRY, &entry) == 0)
                audio = (entry.cdte_ctrl & CDROM_DATA_TRACK) == 0;
        }
    }
    ::close(fd);
    return audio;
}
