#include "SongDrag.h"

#include <QUrl>

const QString SongDrag::songIDsType = QStringLiteral("application/x-quivera-songids");

SongDrag::SongDrag(QList<SongPtr> songs) : m_songs(std::move(songs))
{
    QByteArray ids;
    ids.reserve(m_songs.size() * 8);
    for (const SongPtr &song : std::as_const(m_songs)) {
        ids += QByteArray::number(song->songID());
        ids += '\n';
    }
    setData(songIDsType, ids);
}

bool SongDrag::hasSongIDs(const QMimeData *data)
{
    return data && data->hasFormat(songIDsType);
}

QList<qint64> SongDrag::songIDs(const QMimeData *data)
{
    QList<qint64> ids;
    if (!hasSongIDs(data))
        return ids;
    const QByteArray bytes = data->data(songIDsType);
    for (const QByteArray &line : bytes.split('\n')) {
        bool ok = false;
        const qint64 id = line.trimmed().toLongLong(&ok);
        if (ok)
            ids.append(id);
    }
    return ids;
}

QStringList SongDrag::formats() const
{
    return {songIDsType, QStringLiteral("text/uri-list")};
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
            urls.append(QUrl::fromLocalFile(song->URL()));
        return urls;
    }
    return QMimeData::retrieveData(mimeType, type);
}
