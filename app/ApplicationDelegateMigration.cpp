// Carries a library kept in the old property lists ("library.plist", "playlists.plist") over
// into a newly built library file. Runs at most once per library file: only right after a new
// file was built.

#include "ApplicationDelegate.h"

#include "core/VEKDate.h"
#include "core/VEKLocalizedString.h"
#include "core/VEKLog.h"
#include "core/VEKPaths.h"
#include "db/VEKDatabaseQuery.h"
#include "io/VEKAudioFileReader.h"
#include "settings/UserDefaults.h"
#include "settings/VEKPropertyList.h"

#include <QElapsedTimer>

void ApplicationDelegate::migrate(const std::function<void()> &operation)
{
    m_frontEnd->beginProgress(VEKLocalizedString("Controller_updating"), 0.0);
    operation();
    m_frontEnd->endProgress();
}

namespace {
QString dateText(const QVariant &value)
{
    return value.typeId() == QMetaType::QDateTime ? VEKDate::description(value.toDateTime())
                                                  : QString();
}

QString text(const QVariantMap &entry, const char *key)
{
    const QVariant v = entry.value(QLatin1String(key));
    return v.isValid() ? v.toString() : QString();
}
}

void ApplicationDelegate::migrateFromPropertyListsToVersion1()
{
    Database *db = m_database.get();
    if (!db)
        return;
    const QString support = VEKPaths::supportDirectory();
    VEKError error;
    // One transaction for the whole run: the library file is new, and a migration that dies
    // half-way is better redone than kept half done.
    VEKDatabaseTransaction transaction(db, &error);
    if (!transaction.isActive()) {
        VEKLog(error.text());
        return;
    }

    // Unreadable lists count as empty; the problem is logged.
    const QVariantList songs =
        VEKPropertyList::readFile(support + QStringLiteral("/library.plist"), &error).toList();
    if (!error.isNull()) {
        VEKLog(error.text());
        error = {};
    }
    auto insertSong = db->queryWithStatement(Database::insertSongStatement);
    QElapsedTimer sinceProgress;
    sinceProgress.start();
    qsizetype i = 0;
    for (const QVariant &item : songs) {
        ++i;
        const QVariantMap entry = item.toMap();
        if (!insertSong)
            break;
        // The old lists had no bit rate; the file itself knows it.
        const QString path = text(entry, "path");
        auto reader = VEKAudioFileReader::open(path);
        insertSong->reset();
        insertSong->setIntValue(entry.value(QStringLiteral("songID")).toLongLong(), 0);
        insertSong->setStringValue(path, 1);
        int column = 2;
        for (const char *key : {"name", "artist", "album", "albumArtist", "composer", "genre",
                                "kind", "track", "disc"})
            insertSong->setStringValue(text(entry, key), column++);
        insertSong->setDoubleValue(entry.value(QStringLiteral("length")).toDouble(), 11);
        insertSong->setIntValue(entry.value(QStringLiteral("size")).toLongLong(), 12);
        insertSong->setIntValue(entry.value(QStringLiteral("sampleRate")).toLongLong(), 13);
        insertSong->setIntValue(reader ? qint64(reader->bitrate()) : 0, 14);
        insertSong->setStringValue(dateText(entry.value(QStringLiteral("dateAdded"))), 15);
        insertSong->setIntValue(entry.value(QStringLiteral("trackNumber")).toLongLong(), 16);
        insertSong->setIntValue(entry.value(QStringLiteral("discNumber")).toLongLong(), 17);
        // A row that fails is lost and the next one is tried.
        if (!insertSong->execute(&error)) {
            VEKLog(error.text());
            error = {};
        }
        if (sinceProgress.elapsed() > 270) {
            m_frontEnd->setProgress(double(i) / double(songs.size()));
            sinceProgress.restart();
        }
    }

    const QString playlistsPath = support + QStringLiteral("/playlists.plist");
    if (VEKPaths::existsAsFile(playlistsPath)) {
        const QVariantList playlists = VEKPropertyList::readFile(playlistsPath, &error).toList();
        if (!error.isNull()) {
            VEKLog(error.text());
            error = {};
        }
        auto insertPlaylist = db->queryWithStatement(QStringLiteral(
            "INSERT INTO t_playlist (playlistID, iTunes, name, shuffle, repeatMode, sortKey, "
            "sortAscending) VALUES (?, 0, ?, ?, ?, ?, ?)"));
        auto insertEntry = db->queryWithStatement(QStringLiteral(
            "INSERT INTO t_playlistSong (playlistID, songID, ordinal) VALUES (?, ?, ?)"));
        for (const QVariant &item : playlists) {
            if (!insertPlaylist || !insertEntry)
                break;
            const QVariantMap entry = item.toMap();
            const qint64 id = entry.value(QStringLiteral("playlistID")).toLongLong();
            insertPlaylist->reset();
            insertPlaylist->setIntValue(id, 0);
            insertPlaylist->setStringValue(text(entry, "name"), 1);
            insertPlaylist->setIntValue(entry.value(QStringLiteral("shuffle")).toBool() ? 1 : 0, 2);
            insertPlaylist->setIntValue(entry.value(QStringLiteral("repeatMode")).toLongLong(), 3);
            insertPlaylist->setStringValue(text(entry, "sortKey"), 4);
            insertPlaylist->setIntValue(entry.value(QStringLiteral("sortAscending")).toLongLong(), 5);
            insertPlaylist->execute();
            qint64 ordinal = 0;
            for (const QVariant &songID : entry.value(QStringLiteral("songIDs")).toList()) {
                insertEntry->reset();
                insertEntry->setIntValue(id, 0);
                insertEntry->setIntValue(songID.toLongLong(), 1);
                insertEntry->setIntValue(ordinal++, 2);
                insertEntry->execute();
            }
        }
    }

    // Sort settings of iTunes playlists were kept in the settings store.
    UserDefaults &defaults = UserDefaults::standard();
    const QString prefix = QStringLiteral("iTunesPlaylistSortKey_");
    for (const QString &key : defaults.allKeys()) {
        if (!key.startsWith(prefix))
            continue;
        const qint64 id = key.section(u'_', 1, 1).toLongLong();
        const QString sortKey = defaults.stringForKey(key);
        const bool ascending =
            defaults.boolForKey(QStringLiteral("iTunesPlaylistSortAscending_%1").arg(id));
        auto statement = db->queryWithStatement(
            id == Playlist::ITunesLibraryPlaylistID
                ? QStringLiteral("UPDATE t_playlist SET sortKey = ?, sortAscending = ? WHERE playlistID = ?")
                : QStringLiteral("INSERT INTO t_playlist (sortKey, sortAscending, playlistID, "
                                 "iTunes) VALUES (?, ?, ?, 1)"));
        if (statement) {
            statement->setStringValue(sortKey, 0);
            statement->setIntValue(ascending ? 1 : 0, 1);
            statement->setIntValue(id, 2);
            statement->execute();
        }
    }
    if (!transaction.commit(&error))
        VEKLog(error.text());
    m_frontEnd->setProgress(1.0);
}
