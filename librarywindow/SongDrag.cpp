#include "SongDrag.h"
#include "core/VEKPaths.h"

#include "SongIDsMimeData.h"

#include <QUrl>

SongDrag::SongDrag(QList<SongPtr> songs) : m_songs(std::move(songs))
{
    QList<qint64> ids;
    ids.reserve(m_songs.size());
    for (const SongPtr &song : std::as_const(m_songs))
        ids.append(song->songID());
    setData(SongIDsMimeData::mimeType, SongIDsMimeData::encode(ids));
}

QStringList SongDrag::formats() const
{
    return {SongIDsMimeData::mimeType, QStringLiteral("text/uri-list")};
}

bool SongDrag::hasFormat(const QString &mimeType) const
{
    return formats().contains(mimeType);
}

QVariant SongDrag::retrieveData(const QString &mimeType, QMetaType type) const
{
    if (mimeType == QLatin1String("text/uri-list")) {
        QList<QVariant> urls;
        urls.reserve(m_songs.size());
        for (const SongPtr &song : m_songs)
            urls.append(VEKPaths::toURL(song->URL()));
        return urls;
    }
    return QMimeData::retrieveData(mimeType, type);
}
