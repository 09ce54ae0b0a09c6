// The background operations: what queues them, and the one place where their results enter the
// library and the playlists, on the main thread.

#include "ApplicationDelegate.h"

#include "NowPlayingNotifier.h"
#include "core/VEKDate.h"
#include "core/VEKLog.h"
#include "library/ConvertOperation.h"
#include "library/ImportOperation.h"
#include "library/LoadiTunesOperation.h"
#include "library/iTunesPlaylist.h"
#include "settings/UserDefaults.h"

#include <utility>

void ApplicationDelegate::queueOperation(const std::shared_ptr<Operation> &operation)
{
    m_operationGenerations.insert(operation.get(), m_libraryGeneration);
    m_queue->addOperation(operation);
}

std::shared_ptr<ImportOperation> ApplicationDelegate::addFilesToLibrary(const QStringList &files)
{
    // Without a connection the library file is damaged or unreadable: nothing may write to it.
    if (!m_queue || !m_database)
        return nullptr;
    // The worker never reads the library while this thread may change it: it gets a copy of
    // what it needs to know.
    ImportOperation::Snapshot known;
    known.songIDs.reserve(m_library.size());
    known.paths.reserve(m_library.size());
    for (auto it = m_library.cbegin(); it != m_library.cend(); ++it) {
        known.songIDs.insert(it.key());
        known.paths.insert(it.value()->URL());
    }
    auto operation = std::make_shared<ImportOperation>(
        files, m_selectedPlaylist, libraryFilePath(), std::move(known),
        [](const std::function<bool(qint64)> &isTaken) { return uniqueSongID(isTaken); });
    queueOperation(operation);
    return operation;
}

bool ApplicationDelegate::applicationOpenFiles(const QStringList &paths)
{
    addFilesToLibrary(paths);
    return true;
}

std::shared_ptr<LoadiTunesOperation> ApplicationDelegate::loadiTunesLibrary()
{
    const UserDefaults &defaults = UserDefaults::standard();
    if (!m_queue || !m_database || !defaults.boolForKey(QStringLiteral("accessiTunesLibrary")))
        return nullptr;
    auto operation = std::make_shared<LoadiTunesOperation>(
        defaults.stringForKey(QStringLiteral("iTunesLibraryLocation")), libraryFilePath());
    m_iTunesRead = operation;
    queueOperation(operation);
    return operation;
}

void ApplicationDelegate::operationDidFinish(const std::shared_ptr<Operation> &operation)
{
    if (!operation)
        return;
    const auto generation = m_operationGenerations.constFind(operation.get());
    const bool stale = generation != m_operationGenerations.cend()
                       && generation.value() != m_libraryGeneration;
    m_operationGenerations.remove(operation.get());
    // Before the merge, whose redraw then shows the iTunes playlists as they are.
    if (operation == m_iTunesRead.lock())
        m_iTunesRead.reset();
    if (stale)
        return;
    if (const auto *import = dynamic_cast<const ImportOperation *>(operation.get()))
        mergeImport(*import);
    else if (const auto *conversion = dynamic_cast<const ConvertOperation *>(operation.get()))
        mergeConversion(*conversion);
    else if (const auto *load = dynamic_cast<const LoadiTunesOperation *>(operation.get()))
        mergeITunesLibrary(*load);
}

void ApplicationDelegate::mergeImport(const ImportOperation &import)
{
    const QList<SongPtr> &songs = import.songsInImportOrder();
    for (const SongPtr &song : songs)
        m_library.insert(song->songID(), song);
    m_lastLibraryModification = VEKDate::now();

    // Songs never go into a library or an iTunes playlist directly, nor into a playlist that
    // was deleted while the import ran.
    PlaylistPtr target = import.playlist();
    if (target && (target->isLibraryPlaylist() || target->isITunesPlaylist()
                   || !m_localPlaylists.contains(target)))
        target.reset();
    // An import that found nothing new changes no playlist: an empty insert would still
    // re-sort the playlist and rewrite its rows.
    if (!songs.isEmpty()) {
        m_localPlaylists.first()->appendSongs(songs);
        if (target)
            target->appendSongs(songs);
    }

    m_frontEnd->refreshPlaylists();
    updateAllControls();
    refreshCurrentSongs();

    if (!import.songsToConvert().isEmpty())
        createPreferredVersionOfSongs(import.songsToConvert(), target);
    // Errors of an import go to the log, never to an alert: the user did not wait for them.
    // A caller that lists them itself (the CLI) has said so.
    if (!import.errors().isEmpty() && !import.failuresShownByCaller()) {
        QStringList lines;
        for (const VEKError &error : import.errors())
            lines.append(QStringLiteral("    ") + error.text());
        VEKLog(QStringLiteral("(\n") + lines.join(QStringLiteral(",\n")) + QStringLiteral("\n)"));
    }
}

void ApplicationDelegate::mergeITunesLibrary(const LoadiTunesOperation &load)
{
    const QList<SongPtr> &songs = load.songsInFileOrder();
    for (const SongPtr &song : songs)
        m_library.insert(song->songID(), song);
    if (!songs.isEmpty())
        m_iTunesPlaylists.first()->appendSongs(songs);
    for (const iTunesPlaylistEntry &entry : load.playlists())
        if (auto playlist = iTunesPlaylist::initWithITunesLibraryEntry(entry, load.songs())) {
            m_iTunesPlaylists.append(playlist);
            watchPlaylist(playlist);
        }
    // The playlist chosen before the read-in, unless the user has chosen another meanwhile.
    if (const std::optional<qint64> wanted = std::exchange(m_selectionAfterITunesRead, std::nullopt);
        wanted && m_selectedPlaylist == m_iTunesPlaylists.first())
        setSelectedPlaylist(playlistForID(*wanted));
    m_frontEnd->refreshPlaylists();
    refreshCurrentSongs();
}

QList<std::shared_ptr<ConvertOperation>>
ApplicationDelegate::createPreferredVersionOfSongs(const QList<SongPtr> &songs,
                                                  const PlaylistPtr &playlist)
{
    QList<std::shared_ptr<ConvertOperation>> queued;
    if (!m_queue || !m_database)
        return queued;
    QSet<qint64> knownIDs;
    knownIDs.reserve(m_library.size());
    for (auto it = m_library.cbegin(); it != m_library.cend(); ++it)
        knownIDs.insert(it.key());
    for (const SongPtr &song : songs) {
        if (!song || song->isMissing() || song->isInPreferredFormat())
            continue;
        auto operation = std::make_shared<ConvertOperation>(
            song, playlist, libraryFilePath(), knownIDs,
            [](const std::function<bool(qint64)> &isTaken) { return uniqueSongID(isTaken); });
        queueOperation(operation);
        queued.append(operation);
    }
    return queued;
}

void ApplicationDelegate::mergeConversion(const ConvertOperation &conversion)
{
    // A failed conversion has written no row and added no song; the source stays as it was.
    if (!conversion.success()) {
        if (!conversion.failureShownByCaller())
            conversion.error().alert();
        return;
    }
    const SongPtr &song = conversion.resultSong();
    m_library.insert(song->songID(), song);
    m_lastLibraryModification = VEKDate::now();
    m_localPlaylists.first()->appendSongs({song});
    const PlaylistPtr &target = conversion.destinationPlaylist();
    // Never a library or iTunes playlist, nor one deleted while the conversion ran.
    if (target && !target->locked() && !target->isLibraryPlaylist() && !target->isITunesPlaylist()
        && m_localPlaylists.contains(target))
        target->appendSongs({song});
    m_frontEnd->refreshPlaylists();
    refreshCurrentSongs();
}

void ApplicationDelegate::currentSongDidChange(const SongPtr &song)
{
    m_nowPlaying->currentSongChanged(song);
}
