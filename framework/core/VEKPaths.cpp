#include "VEKPaths.h"

#include "VEKLocalizedString.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUrl>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
QString xdgDirectory(const char *variable, const char *fallback, VEKError *error)
{
    QString base = qEnvironmentVariable(variable);
    if (base.isEmpty() || !QDir::isAbsolutePath(base))
        base = QDir::homePath() + QLatin1String(fallback);
    const QString dir = base + QStringLiteral("/Quivera");
    if (!QDir().mkpath(dir)) {
        VEKError::set(error, VEKError(QStringLiteral("VEKPaths"), 1,
                                      VEKLocalizedString("Error_supportFolder"), dir));
        return {};
    }
    return dir;
}
}

QString VEKPaths::supportDirectory(VEKError *error)
{
    return xdgDirectory("XDG_DATA_HOME", "/.local/share", error);
}

QString VEKPaths::configDirectory(VEKError *error)
{
    return xdgDirectory("XDG_CONFIG_HOME", "/.config", error);
}

bool VEKPaths::existsAsFile(const QString &path)
{
    // stat() directly: this runs once per song at every launch.
    struct stat st;
    const QByteArray local = native(path);
    return !local.isEmpty() && ::stat(local.constData(), &st) == 0 && S_ISREG(st.st_mode);
}

QString VEKPaths::filename(const QString &path)
{
    return readable(QFileInfo(path).completeBaseName());
}

namespace {
constexpr char16_t kEscape = 0xDC00;

// The length of the valid UTF-8 sequence at `i`, or 0 (bad lead, bad continuation, overlong,
// surrogate or beyond U+10FFFF).
qsizetype utf8Length(const QByteArray &b, qsizetype i)
{
    const auto at = [&](qsizetype k) { return k < b.size() ? uchar(b.at(k)) : 0; };
    const uchar c = at(i);
    if (c < 0x80)
        return 1;
    qsizetype n = 0;
    uchar low = 0x80, high = 0xBF; // allowed range of the second byte
    if (c >= 0xC2 && c <= 0xDF)
        n = 2;
    else if (c >= 0xE0 && c <= 0xEF) {
        n = 3;
        low = c == 0xE0 ? 0xA0 : 0x80;
        high = c == 0xED ? 0x9F : 0xBF;
    } else if (c >= 0xF0 && c <= 0xF4) {
        n = 4;
        low = c == 0xF0 ? 0x90 : 0x80;
        high = c == 0xF4 ? 0x8F : 0xBF;
    } else
        return 0;
    if (at(i + 1) < low || at(i + 1) > high)
        return 0;
    for (qsizetype k = 2; k < n; ++k)
        if (at(i + k) < 0x80 || at(i + k) > 0xBF)
            return 0;
    return n;
}
} // namespace

QString VEKPaths::fromNative(const QByteArray &bytes)
{
    QString out;
    out.reserve(bytes.size());
    qsizetype i = 0;
    while (i < bytes.size()) {
        const qsizetype n = utf8Length(bytes, i);
        if (n == 0) {
            out += QChar(char16_t(kEscape + uchar(bytes.at(i))));
            ++i;
        } else {
            out += QString::fromUtf8(bytes.constData() + i, n);
            i += n;
        }
    }
    return out;
}

QByteArray VEKPaths::native(const QString &path)
{
    QByteArray out;
    out.reserve(path.size());
    qsizetype start = 0;
    for (qsizetype i = 0; i < path.size(); ++i) {
        const char16_t u = path.at(i).unicode();
        const bool lone =
            u >= kEscape + 0x80 && u <= kEscape + 0xFF && (i == 0 || !path.at(i - 1).isHighSurrogate());
        if (lone) {
            out += QStringView(path).mid(start, i - start).toUtf8();
            out += char(u - kEscape);
            start = i + 1;
        }
    }
    out += QStringView(path).mid(start).toUtf8();
    return out;
}

QString VEKPaths::readable(const QString &path)
{
    // Windows-1252 where it differs from Latin-1; its five holes stay U+FFFD.
    static const char16_t cp1252[32] = {0x20AC, 0xFFFD, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                        0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0xFFFD, 0x017D, 0xFFFD,
                                        0xFFFD, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                        0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0xFFFD, 0x017E, 0x0178};
    QString out = path;
    for (qsizetype i = 0; i < out.size(); ++i) {
        const char16_t u = out.at(i).unicode();
        if (u >= kEscape + 0x80 && u <= kEscape + 0xFF && (i == 0 || !out.at(i - 1).isHighSurrogate())) {
            const char16_t byte = u - kEscape;
            out[i] = QChar(byte < 0xA0 ? cp1252[byte - 0x80] : byte);
        }
    }
    return out;
}

bool VEKPaths::open(QFile &file, const QString &path, QIODevice::OpenMode mode)
{
    int flags = O_CLOEXEC;
    if ((mode & QIODevice::ReadWrite) == QIODevice::ReadWrite)
        flags |= O_RDWR | O_CREAT;
    else if (mode & QIODevice::WriteOnly)
        flags |= O_WRONLY | O_CREAT | ((mode & QIODevice::Append) ? O_APPEND : O_TRUNC);
    else
        flags |= O_RDONLY;
    const int fd = ::open(native(path).constData(), flags, 0666);
    if (fd < 0)
        return false;
    if (!file.open(fd, mode, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        return false;
    }
    return true;
}

bool VEKPaths::stat(const QString &path, struct stat *st)
{
    const QByteArray local = native(path);
    if (local.isEmpty()) {
        errno = ENOENT;
        return false;
    }
    return ::stat(local.constData(), st) == 0;
}

bool VEKPaths::canReplace(const QString &path)
{
    return ::access(native(path).constData(), W_OK) == 0
           && ::access(native(QFileInfo(path).absolutePath()).constData(), W_OK) == 0;
}

QString VEKPaths::fromURL(const QUrl &url)
{
    return fromNative(QByteArray::fromPercentEncoding(url.path(QUrl::FullyEncoded).toLatin1()));
}

QString VEKPaths::absolute(const QString &path)
{
    if (path.isEmpty() || path.startsWith(u'/'))
        return QDir::cleanPath(path);
    char *cwd = ::getcwd(nullptr, 0);
    const QString base = cwd ? fromNative(cwd) : QString();
    std::free(cwd);
    return QDir::cleanPath(base + u'/' + path);
}

QUrl VEKPaths::toURL(const QString &path)
{
    return QUrl::fromEncoded("file://" + native(path).toPercentEncoding("/"), QUrl::StrictMode);
}
