// The library file: where it is, how it comes to be, and how it is read at launch.

#include "ApplicationDelegate.h"

#include "core/VEKPaths.h"
#include "library/LibraryFile.h"
#include "db/VEKDatabaseQuery.h"

#include <QFile>

QString ApplicationDelegate::libraryFilePath()
{
    return VEKPaths::supportDirectory() + QStringLiteral("/Quivera Library");
}

void ApplicationDelegate::constructDatabase()
{
    const QString path = libraryFilePath();
    VEKError error;
    switch (LibraryFile::examine(path, &error)) {
    case LibraryFile::State::Good:
        break;
    case LibraryFile::State::Missing:
        // A file of no bytes never held anything.
        QFile::remove(path);
        if (!buildLibraryFile(path))
            return;
        break;
    case LibraryFile::State::NotALibrary: {
        // Kept under another name for the user to look at; a new library takes its place.
        VEKError moveError;
        const QString aside = LibraryFile::setAside(path, &moveError);
        if (aside.isEmpty()) {
            moveError.alert();
            return;
        }
        VEKError(error.domain(), error.code(), error.localizedDescription(),
                 error.failureReason() + QStringLiteral(". It was moved to ") + aside)
            .alert();
        if (!buildLibraryFile(path))
            return;
        break;
    }
    case LibraryFile::State::Damaged:
    case LibraryFile::State::Unreadable:
        // Left exactly as it is, and nothing writes to it: there is no connection.
        error.alert();
        return;
    }

    auto database = std::make_unique<Database>();
    if (!database->initWithURL(path, &error)) {
        error.alert();
        return;
    }
    m_database = std::move(database);
    Database::setShared(m_database.get());
}

bool ApplicationDelegate::buildLibraryFile(const QString &path)
{
    // Built and migrated beside the library, and moved into place complete: a start that dies
    // on the way leaves no half-made library, and the next one starts over.
    const QString temporary = LibraryFile::temporaryPathFor(path);
    LibraryFile::discard(temporary);
    VEKError error;
    auto build = std::make_unique<Database>();
    if (!build->initWithURL(temporary, &error)) {
        error.alert();
        return false;
    }
    m_database = std::move(build);
    bool ok = buildDatabase();
    if (ok && VEKPaths::existsAsFile(VEKPaths::supportDirectory() + QStringLiteral("/library.plist")))
        migrate([this] { migrateFromPropertyListsToVersion1(); });
    if (ok)
        ok = LibraryFile::install(std::move(m_database), path, &error);
    else
        LibraryFile::discard(temporary);
    m_database.reset();
    error.alert();
    return ok;
}

bool ApplicationDelegate::buildDatabase()
{
    if (!m_database)
        return false;
    VEKError error;
    VEKDatabaseTransaction transaction(m_database.get(), &error);
    bool ok = transaction.isActive();
    for (const QString &statement : Database::buildStatements()) {
        if (!ok || !(ok = m_database->executeStatement(statement, &error)))
            break;
    }
    if (ok)
        ok = transaction.commit(&error);
    error.alert();
    return ok;
}

void ApplicationDelegate::loadDatabase()
{
    Database *db = m_database.get();
    if (!db)
        return;
    db->setIsLoading(true);
    VEKError error;
    QList<SongPtr> list;

    if (auto songs = db->queryWithStatement(Database::selectSongsStatement, &error)) {
        m_library.reserve(m_library.size() + 1024);
        while (songs->evaluateNextRow()) {
            SongPtr song = Database::songFromRow(*songs);
            if (!song)
                continue; // a row without a path stays in the file but not in the library
            m_library.insert(song->songID(), song);
            list.append(song);
        }
    } else {
        error.alert();
        error = {};
    }

    // The library playlist holds every song, in the order of the rows.
    m_localPlaylists.first()->appendSongs(list);

    auto playlists = db->queryWithStatement(
        QStringLiteral("SELECT playlistID, name, shuffle, repeatMode FROM t_playlist "
                       "WHERE iTunes = 0 AND playlistID != -1"),
        &error);
    error.alert();
    error = {};
    auto playlistSongs = db->queryWithStatement(
        QStringLiteral("SELECT songID FROM t_playlistSong WHERE playlistID=? ORDER BY ordinal"),
        &error);
    error.alert();
    error = {};

    while (playlists && playlistSongs && playlists->evaluateNextRow(&error)) {
        auto playlist = std::make_shared<Playlist>();
        playlist->setPlaylistID(playlists->intValueAtColumn(0));
        playlist->setName(playlists->stringValueAtColumn(1));
        playlistSongs->reset();
        playlistSongs->setIntValue(playlist->playlistID(), 0);
        list.clear();
        error = {};
        while (playlistSongs->evaluateNextRow(&error)) {
            // A row whose song is not in the library is left out without a word.
            if (SongPtr song = m_library.value(playlistSongs->intValueAtColumn(0)))
                list.append(song);
        }
        playlist->appendSongs(list);
        error.alert();
        error = {};
        m_localPlaylists.append(playlist);
        watchPlaylist(playlist);
    }
    error.alert();
    error = {};

    // The settings of every row, the two all-songs playlists and iTunes rows included. The sort
    // key comes before the direction, which is refused for the key "ordinal".
    if (auto settings = db->queryWithStatement(
            QStringLiteral("SELECT playlistID, sortKey, sortAscending, shuffle, repeatMode "
                           "FROM t_playlist"),
            &error)) {
        while (settings->evaluateNextRow(&error)) {
            const PlaylistPtr playlist = playlistForID(settings->intValueAtColumn(0));
            if (!playlist)
                continue;
            QString sortKey = settings->stringValueAtColumn(1);
            if (sortKey == QLatin1String("(null)"))
                sortKey = QString();
            playlist->setSortKey(sortKey);
            playlist->setSortAscending((settings->intValueAtColumn(2) & 0xff) != 0);
            playlist->setShuffle((settings->intValueAtColumn(3) & 0xff) != 0, nullptr);
            playlist->setRepeatMode(quint64(settings->intValueAtColumn(4)));
        }
    }
    error.alert();
    db->setIsLoading(false);
    for (const PlaylistPtr &playlist : std::as_const(m_localPlaylists))
        playlist->finishLoading();
    for (const PlaylistPtr &playlist : std::as_const(m_iTunesPlaylists))
        playlist->finishLoading();
}
