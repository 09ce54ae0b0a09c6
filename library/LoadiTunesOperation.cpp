#include "LoadiTunesOperation.h"

#include "core/VEKLog.h"
#include "db/VEKDatabase.h"
#include "db/VEKDatabaseQuery.h"
#include "iTunesPlaylist.h"
#include "iTunesSong.h"

#include <QDir>

#include <algorithm>

LoadiTunesOperation::LoadiTunesOperation(const QString &location, const QString &libraryFile,
                                         QObject *parent)
    : Operation(parent), m_location(location), m_libraryFile(libraryFile)
{
}

LoadiTunesOperation::~LoadiTunesOperation() = default;

QString LoadiTunesOperation::expandedPath(const QString &location)
{
    if (location == QLatin1String("~"))
        return QDir::homePath();
    if (location.startsWith(QLatin1String("~/")))
        return QDir::homePath() + location.mid(1);
    return location;
}

void LoadiTunesOperation::main()
{
    VEKDatabase database;
    if (!database.initWithURL(m_libraryFile, &m_error)) {
        VEKLog(QStringLiteral("The iTunes library was not read: %1").arg(m_error.text()));
        return;
    }

    QHash<qint64, qsizetype> position; // where each ID stands in m_order
    iTunesLibraryParser::Handler handler;
    handler.track = [this, &position](const iTunesTrackEntry &entry) {
        SongPtr song = iTunesSong::initWithLibraryEntry(entry, m_location);
        if (!song)
            return;
        const auto at = position.constFind(song->songID());
        if (at != position.cend()) {
            m_order[at.value()] = song;
        } else {
            position.insert(song->songID(), m_order.size());
            m_order.append(song);
        }
        m_songs.insert(song->songID(), song);
    };
    handler.playlist = [this](iTunesPlaylistEntry &&entry) {
        if (iTunesPlaylist::acceptsEntry(entry))
            m_playlists.append(std::move(entry));
    };
    handler.progress = [this](double share) {
        // Never 1 before the end: the rows are still to come.
        setProgress(float(std::min(share, 0.99)));
    };

    bool missing = false;
    const QString path = expandedPath(m_location);
    if (!iTunesLibraryParser::parseFile(path, handler, &m_error, &missing)) {
        // Half a library would be wrong in silence: a damaged file gives nothing at all.
        m_songs.clear();
        m_order.clear();
        m_playlists.clear();
        if (missing)
            m_error = VEKError();
        else
            VEKLog(QStringLiteral("The iTunes library was not read: %1").arg(m_error.text()));
        return;
    }
    writePlaylistRows(database);
}

void LoadiTunesOperation::writePlaylistRows(VEKDatabase &database)
{
    VEKError error;
    // One transaction for all the rows; a failure leaves out that playlist and all after it.
    VEKDatabaseTransaction transaction(&database, &error);
    auto count = database.queryWithStatement(
        QStringLiteral("SELECT COUNT() FROM t_playlist WHERE playlistID = ?"), &error);
    auto insert = database.queryWithStatement(
        QStringLiteral("INSERT INTO t_playlist (playlistID, iTunes, sortAscending) VALUES (?, 1, 1)"),
        &error);
    if (!transaction.isActive() || !count || !insert) {
        VEKLog(QStringLiteral("The iTunes playlists were left out: %1").arg(error.text()));
        m_playlists.clear();
        return;
    }
    qsizetype kept = 0;
    QList<bool> inserted;
    for (const iTunesPlaylistEntry &entry : std::as_const(m_playlists)) {
        count->reset();
        if (!count->setIntValue(entry.playlistID, 0, &error) || !count->evaluateNextRow(&error))
            break;
        const bool exists = count->intValueAtColumn(0) != 0;
        if (!exists) {
            insert->reset();
            if (!insert->setIntValue(entry.playlistID, 0, &error) || !insert->execute(&error))
                break;
        }
        inserted.append(!exists);
        ++kept;
    }
    count.reset();
    insert.reset();
    if (!transaction.commit(&error)) {
        // Without their rows the new playlists could not keep their settings: leave them out.
        QList<iTunesPlaylistEntry> stored;
        for (qsizetype i = 0; i < kept; ++i)
            if (!inserted.at(i))
                stored.append(m_playlists.at(i));
        m_playlists = stored;
    } else {
        m_playlists.resize(kept);
    }
    if (!error.isNull())
        VEKLog(QStringLiteral("Some iTunes playlists were left out: %1").arg(error.text()));
}
