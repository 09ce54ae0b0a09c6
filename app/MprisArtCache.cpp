#include "MprisArtCache.h"

#include "core/VEKLog.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <QUrl>

QString MprisArtCache::defaultDirectory()
{
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty() && QFileInfo(runtime).isDir())
        return runtime + QStringLiteral("/quivera");
    QString cache = qEnvironmentVariable("XDG_CACHE_HOME");
    if (cache.isEmpty())
        cache = QDir::homePath() + QStringLiteral("/.cache");
    return cache + QStringLiteral("/Quivera");
}

MprisArtCache::MprisArtCache(const QString &directory) : m_directory(directory) {}

MprisArtCache::~MprisArtCache() { removeWrittenFile(); }

void MprisArtCache::removeWrittenFile()
{
    if (!m_written.isEmpty())
        QFile::remove(m_written);
    m_written.clear();
}

QString MprisArtCache::artUrlForSong(const Song &song)
{
    QString source;
    const QByteArray data = song.imageData(&source);
    if (data.isEmpty())
        return {};
    if (source != song.URL())
        return QUrl::fromLocalFile(source).toString();

    const bool png = data.startsWith("\x89PNG");
    const QByteArray digest = QCryptographicHash::hash(data, QCryptographicHash::Sha1).toHex().left(12);
    const QString path = QStringLiteral("%1/art-%2-%3.%4")
                             .arg(m_directory, QString::number(quint64(song.songID())),
                                  QString::fromLatin1(digest),
                                  png ? QStringLiteral("png") : QStringLiteral("jpg"));
    if (path != m_written) {
        if (!QDir().mkpath(m_directory)) {
            VEKLog(QStringLiteral("MPRIS: can't make the folder %1 for cover art").arg(m_directory));
            return {};
        }
        QSaveFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size() || !file.commit()) {
            VEKLog(QStringLiteral("MPRIS: can't write cover art to %1: %2").arg(path, file.errorString()));
            return {};
        }
        removeWrittenFile();
        m_written = path;
    }
    return QUrl::fromLocalFile(path).toString();
}
