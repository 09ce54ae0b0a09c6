// The library operations: every change of songs and playlists that comes from the user keeps
// the objects in memory, the library file, the stream and the windows in step.

#include "ApplicationDelegate.h"

#include "audio/Stream.h"

#include "core/VEKDate.h"
#include "core/VEKLocalizedString.h"
#include "db/VEKDatabaseQuery.h"

#include <QSet>
#include <cstdlib>

void ApplicationDelegate::refreshCurrentSongs()
{
    m_songs = m_selectedPlaylist ? m_selectedPlaylist->songs() : QList<SongPtr>();
    m_frontEnd->refreshSongs();
}

void ApplicationDelegate::setSelectedPlaylist(const PlaylistPtr &playlist)
{
    const bool changed = playlist != m_selectedPlaylist;
    m_selectedPlaylist = playlist;
    if (playlist)
        playlist->setPredicate(nullptr);
    refreshCurrentSongs();
    if (changed)
        emit selectedPlaylistChanged(m_selectedPlaylist);
}

void ApplicationDelegate::selectPlaylistWithID(qint64 playlistID)
{
    m_selectionAfterITunesRead.reset();
    PlaylistPtr playlist = playlistForID(playlistID);
    if (!playlist && !m_iTunesRead.expired() && !m_iTunesPlaylists.isEmpty()) {
        playlist = m_iTunesPlaylists.first();
        m_selectionAfterITunesRead = playlistID;
    }
    setSelectedPlaylist(playlist);
}

bool ApplicationDelegate::shuffle() const
{
    return m_selectedPlaylist && m_selectedPlaylist->shuffle();
}

void ApplicationDelegate::setShuffle(bool shuffle)
{
    if (m_selectedPlaylist)
        m_selectedPlaylist->setShuffle(shuffle, streamCurrentSong());
    refreshCurrentSongs();
    updateAllControls();
}

quint64 ApplicationDelegate::repeatMode() const
{
    return m_selectedPlaylist ? m_selectedPlaylist->repeatMode() : 0;
}

void ApplicationDelegate::setRepeatMode(quint64 mode)
{
    if (m_selectedPlaylist)
        m_selectedPlaylist->setRepeatMode(mode);
    updateAllControls();
}

QString ApplicationDelegate::sortKey() const
{
    return m_selectedPlaylist ? m_selectedPlaylist->sortKey() : QString();
}

void ApplicationDelegate::setSortKey(const QString &key)
{
    if (m_selectedPlaylist)
        m_selectedPlaylist->setSortKey(key);
    refreshCurrentSongs();
}

bool ApplicationDelegate::sortAscending() const
{
    return m_selectedPlaylist && m_selectedPlaylist->sortAscending();
}

void ApplicationDelegate::setSortAscending(bool ascending)
{
    if (m_selectedPlaylist)
        m_selectedPlaylist->setSortAscending(ascending);
    refreshCurrentSongs();
}

qint64 ApplicationDelegate::uniqueSongID(const std::function<bool(qint64)> &isTaken)
{
    // IDs of the own library are 0 or below. The generator is seeded at start, so another
    // process draws other numbers; the writers still check the file before they insert.
    qint64 id;
    do {
        id = qint64(-qint32(quint32(::random())));
    } while (isTaken(id));
    return id;
}

qint64 ApplicationDelegate::uniqueSongID() const
{
    return uniqueSongID([this](qint64 id) { return m_library.contains(id); });
}

qint64 ApplicationDelegate::uniquePlaylistID() const
{
    while (true) {
        const qint64 id = qint32(quint32(::random()));
        if (!playlistForID(id))
            return id;
    }
}

void ApplicationDelegate::songFieldsDidChange()
{
    // A searched playlist keeps its filtered view until told that what it filtered changed.
    for (const QList<PlaylistPtr> *lists : {&m_localPlaylists, &m_iTunesPlaylists})
        for (const PlaylistPtr &playlist : *lists)
            playlist->songFieldsDidChange();
}

void ApplicationDelegate::setMetadataForSong(const QVariantMap &metadata, const SongPtr &song)
{
    if (!song)
        return;
    // The file is about to be rewritten: the playing song pauses meanwhile.
    const SongPtr current = streamCurrentSong();
    const bool paused = current && current->songID() == song->songID() && streamIsPlaying();
    if (paused)
        streamPause();

    VEKError error;
    bool ok = song->setMetadata(metadata, &error) && storeSongFacts(*song, &error);
    if (ok) {
        songFieldsDidChange();
        refreshCurrentSongs();
        if (paused)
            streamPlay();
        m_frontEnd->revealCurrentSong();
        updateAllControls();
    }
    error.alert();
}

void ApplicationDelegate::setMetadataForSongInBackground(const QVariantMap &metadata, const SongPtr &song,
                                                         std::function<void(bool)> done)
{
    if (!song) {
        if (done)
            done(false);
        return;
    }
    const SongPtr current = streamCurrentSong();
    const bool paused = current && current->songID() == song->songID() && streamIsPlaying();
    if (paused)
        streamPause();
    if (!m_tagWriter)
        m_tagWriter = std::make_unique<SerialTaskQueue>("quivera-tags");
    // The worker writes through a copy: the library's song changes on the main thread only.
    auto copy = std::make_shared<Song>(*song);
    m_tagWriter->async([this, copy, song, metadata, paused, done = std::move(done)] {
        auto error = std::make_shared<VEKError>();
        const bool written = copy->setMetadata(metadata, error.get());
        QMetaObject::invokeMethod(
            this,
            [this, copy, song, paused, done, error, written] {
                bool ok = written;
                if (ok) {
                    *song = *copy;
                    ok = storeSongFacts(*song, error.get());
                }
                if (ok) {
                    songFieldsDidChange();
                    refreshCurrentSongs();
                }
                // The file is whole either way (it is replaced only when complete): play on.
                if (paused)
                    streamPlay();
                if (ok) {
                    m_frontEnd->revealCurrentSong();
                    updateAllControls();
                }
                error->alert();
                if (done)
                    done(ok);
            },
            Qt::QueuedConnection);
    });
}

bool ApplicationDelegate::storeSongFacts(const Song &s, VEKError *error)
{
    std::unique_ptr<VEKDatabaseQuery> update;
    return m_database && (update = m_database->queryWithStatement(Database::updateSongStatement, error))
           && update->setStringValue(s.name(), 0, error) && update->setStringValue(s.artist(), 1, error)
           && update->setStringValue(s.album(), 2, error) && update->setStringValue(s.albumArtist(), 3, error)
           && update->setStringValue(s.composer(), 4, error) && update->setStringValue(s.genre(), 5, error)
           && update->setStringValue(s.track(), 6, error) && update->setStringValue(s.disc(), 7, error)
           && update->setIntValue(qint64(s.size()), 8, error)
           && update->setIntValue(qint64(s.track_sortable()), 9, error)
           && update->setIntValue(qint64(s.disc_sortable()), 10, error)
           && update->setIntValue(s.songID(), 11, error) && update->execute(error);
}

void ApplicationDelegate::deleteSelectedPlaylist()
{
    const PlaylistPtr playlist = m_selectedPlaylist;
    if (!playlist || playlist->isLibraryPlaylist() || playlist->locked())
        return;
    streamStopIfPlaying(playlist);
    if (!m_database)
        return;

    // Queued rewrites of this playlist must land before its rows go, or they would bring them
    // back.
    m_database->flushWrites();
    VEKError error;
    bool ok = false;
    {
        VEKDatabaseTransaction transaction(m_database.get(), &error);
        auto songs = m_database->queryWithStatement(
            QStringLiteral("DELETE FROM t_playlistSong WHERE playlistID = ?"), &error);
        auto row = m_database->queryWithStatement(
            QStringLiteral("DELETE FROM t_playlist WHERE playlistID = ?"), &error);
        ok = transaction.isActive() && songs && row
             && songs->setIntValue(playlist->playlistID(), 0, &error) && songs->execute(&error)
             && row->setIntValue(playlist->playlistID(), 0, &error) && row->execute(&error)
             && transaction.commit(&error);
    }
    if (ok) {
        m_localPlaylists.removeAll(playlist);
        m_lastPlaylistModification = VEKDate::now();
        setSelectedPlaylist(nullptr);
        m_frontEnd->refreshPlaylists();
        refreshCurrentSongs();
    }
    error.alert();
}

void ApplicationDelegate::newPlaylistWithSongs(const QList<SongPtr> &songs)
{
    auto playlist = std::make_shared<Playlist>();
    playlist->setPlaylistID(uniquePlaylistID());
    playlist->setSortKey(QStringLiteral("ordinal"));
    playlist->setSortAscending(true); // refused for "ordinal": the flag stays false

    VEKError error;
    bool ok = false;
    if (m_database) {
        // Another process (the player beside the CLI) may have made a playlist since this one
        // loaded the file: the ID is checked against the file while the write lock is held.
        VEKDatabaseTransaction transaction(m_database.get(), &error);
        auto taken = m_database->queryWithStatement(
            QStringLiteral("SELECT COUNT(*) FROM t_playlist WHERE playlistID = ?"), &error);
        auto insert = m_database->queryWithStatement(
            QStringLiteral("INSERT INTO t_playlist (playlistID, iTunes, name) VALUES (?, 0, ?);"), &error);
        ok = transaction.isActive() && taken && insert;
        while (ok) {
            taken->reset();
            ok = taken->setIntValue(playlist->playlistID(), 0, &error) && taken->evaluateNextRow(&error);
            if (!ok || taken->intValueAtColumn(0) == 0)
                break;
            qint64 id;
            do
                id = uniquePlaylistID();
            while (id == playlist->playlistID());
            playlist->setPlaylistID(id);
        }
        ok = ok && insert->setIntValue(playlist->playlistID(), 0, &error)
             && insert->setStringValue(VEKLocalizedString("Playlist_defaultName"), 1, &error)
             && insert->execute(&error) && transaction.commit(&error);
    }
    if (ok) {
        // The settings made above reached no row; store them now that it exists, so the
        // playlist comes back exactly as it is.
        playlist->updateRow();
        if (!songs.isEmpty())
            playlist->appendSongs(songs);
        m_localPlaylists.append(playlist);
        watchPlaylist(playlist);
        m_lastPlaylistModification = VEKDate::now();
        setSelectedPlaylist(playlist);
        m_frontEnd->open();
        m_frontEnd->refreshPlaylists();
        refreshCurrentSongs();
        m_frontEnd->beginEditingPlaylist(playlist);
    }
    error.alert();
}

void ApplicationDelegate::setNameOfPlaylist(const QString &name, const PlaylistPtr &playlist)
{
    if (playlist)
        playlist->setName(name);
    m_lastPlaylistModification = VEKDate::now();
}

void ApplicationDelegate::removeSongsAtIndexes(const Playlist::Rows &rows)
{
    const PlaylistPtr playlist = m_selectedPlaylist;
    if (!playlist || playlist->locked())
        return;
    QList<SongPtr> removed;
    for (qsizetype row : rows)
        if (row >= 0 && row < m_songs.size())
            removed.append(m_songs.at(row));
    const SongPtr current = streamCurrentSong();
    if (current && removed.contains(current)) {
        streamPause();
        if (m_stream)
            m_stream->setCurrentSong(nullptr);
    }

    VEKError error;
    if (!playlist->isLibraryPlaylist()) {
        playlist->removeSongs(removed);
    } else {
        // The songs leave the library altogether: every own playlist lets them go, whatever its
        // search shows.
        for (const PlaylistPtr &p : std::as_const(m_localPlaylists))
            p->removeSongs(removed);
        bool ok = m_database != nullptr;
        if (ok) {
            m_database->flushWrites();
            VEKDatabaseTransaction transaction(m_database.get(), &error);
            auto del = m_database->queryWithStatement(Database::deleteSongStatement, &error);
            ok = transaction.isActive() && del;
            for (const SongPtr &song : std::as_const(removed)) {
                if (!ok)
                    break;
                del->reset();
                ok = del->setIntValue(song->songID(), 0, &error) && del->execute(&error);
            }
            ok = ok && transaction.commit(&error);
        }
        if (ok) {
            const PlaylistPtr iTunesLibrary = playlistForID(Playlist::ITunesLibraryPlaylistID);
            for (const SongPtr &song : std::as_const(removed))
                if (!iTunesLibrary || iTunesLibrary->indexOfObjectInSongs(song) == Playlist::NotFound)
                    m_library.remove(song->songID());
            m_lastLibraryModification = VEKDate::now();
        } else {
            error.alert();
            return;
        }
    }
    updateAllControls();
    refreshCurrentSongs();
    error.alert();
}

void ApplicationDelegate::moveSongsToIndex(const QList<SongPtr> &songs, qsizetype index)
{
    const PlaylistPtr playlist = m_selectedPlaylist;
    if (!playlist || playlist->locked() || songs.isEmpty())
        return;
    // Each song above the target moves it up by one, measured against the target as it has
    // become so far.
    qsizetype target = index;
    for (const SongPtr &song : songs) {
        const qsizetype row = playlist->indexOfObjectInSongs(song);
        if (row != Playlist::NotFound && row < target)
            --target;
    }
    playlist->removeSongsAtIndexes(playlist->indexesOfSongs(songs));
    Playlist::Rows indexes;
    for (qsizetype i = 0; i < songs.size(); ++i)
        indexes.append(target + i);
    playlist->insertSongs(songs, indexes);
    refreshCurrentSongs();
}

void ApplicationDelegate::rescan()
{
    if (m_queue && m_queue->operationCount() > 0)
        return;
    ++m_libraryGeneration;
    m_frontEnd->beginProgress(QString(), -1);
    streamStopIfPlaying(nullptr);
    const qint64 selectedID = m_selectedPlaylist ? m_selectedPlaylist->playlistID() : 0;
    if (m_database)
        m_database->flushWrites();
    m_localPlaylists.clear();
    m_iTunesPlaylists.clear();
    m_library.clear();
    buildLibraries();
    loadiTunesLibrary();
    loadDatabase();
    m_lastLibraryModification = VEKDate::now();
    m_lastPlaylistModification = VEKDate::now();
    selectPlaylistWithID(selectedID);
    m_frontEnd->refreshPlaylists();
    updateAllControls();
    m_frontEnd->endProgress();
}
