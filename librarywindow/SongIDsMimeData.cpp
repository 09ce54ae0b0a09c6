#include "SongIDsMimeData.h"
#include "core/VEKPaths.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QMimeData>
#include <QUrl>

const QString SongIDsMimeData::mimeType = QStringLiteral("application/x-quivera-songids");

QMimeData *SongIDsMimeData::create(const QList<SongPtr> &songs)
{
    QList<qint64> ids;
    QList<QUrl> urls;
    ids.reserve(songs.size());
    for (const SongPtr &song : songs) {
        ids.append(song->songID());
        urls.append(VEKPaths::toURL(song->URL()));
    }
    auto *data = new QMimeData;
    data->setData(mimeType, encode(ids));
    data->setUrls(urls);
    return data;
}

QByteArray SongIDsMimeData::encode(const QList<qint64> &songIDs)
{
    QJsonArray array;
    for (qint64 id : songIDs)
        array.append(id);
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

QList<qint64> SongIDsMimeData::songIDs(const QMimeData *data)
{
    QList<qint64> ids;
    if (!data || !data->hasFormat(mimeType))
        return ids;
    const QJsonArray array = QJsonDocument::fromJson(data->data(mimeType)).array();
    ids.reserve(array.size());
    for (const QJsonValue &value : array)
        if (value.isDouble())
            ids.append(value.toInteger());
    return ids;
}
