#include "ImportOperation.h"

#include "Database.h"
#include "core/VEKLocalizedString.h"
#include "core/VEKLog.h"
#include "core/VEKPaths.h"
#include "db/VEKDatabase.h"
#include "db/VEKDatabaseQuery.h"
#include "io/VEKAudioFileReader.h"
#include "settings/UserDefaults.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QUrl>

#include <algorithm>
#include <dirent.h>
#include <cerrno>
#include <cstring>
#include <unistd.h>
#include <sys/stat.h>
#include <vector>

namespace {

using FileIdentity = QPair<quint64, quint64>; // device, inode

bool statPath(const QString &path, struct stat &st)
{
    return VEKPaths::stat(path, &st);
}

FileIdentity identityOf(const struct stat &st)
{
    return {quint64(st.st_dev), quint64(st.st_ino)};
}

// A file URL or a path, as an absolute, cleaned path.
QString pathOfArgument(const QString &file)
{
    QString path = file;
    if (file.startsWith(QLatin1String("file:"), Qt::CaseInsensitive)) {
        const QUrl url(file);
        path = url.isLocalFile() ? VEKPaths::fromURL(url) : QString();
    }
    if (path.isEmpty())
        return {};
    return VEKPaths::absolute(path);
}

// Dates are stored to the second: keep the song in memory as it will read back.
QDateTime nowToTheSecond()
{
    const qint64 ms = QDateTime::currentMSecsSinceEpoch();
    return QDateTime::fromMSecsSinceEpoch(ms - ms % 1000, Qt::UTC);
}

// Names that promise audio: such a file that FFmpeg cannot make sense of is a damaged song, not
// a cover or a cue sheet lying beside the songs.
bool looksLikeAudio(const QString &path)
{
    static const QSet<QString> extensions = {
        QStringLiteral("flac"), QStringLiteral("mp3"),  QStringLiteral("mp2"),  QStringLiteral("ogg"),
        QStringLiteral("oga"),  QStringLiteral("opus"), QStringLiteral("spx"),  QStringLiteral("wav"),
        QStringLiteral("wave"), QStringLiteral("aif"),  QStringLiteral("aiff"), QStringLiteral("aifc"),
        QStringLiteral("caf"),  QStringLiteral("m4a"),  QStringLiteral("m4b"),  QStringLiteral("mp4"),
        QStringLiteral("aac"),  QStringLiteral("alac"), QStringLiteral("wv"),   QStringLiteral("ape"),
        QStringLiteral("mpc"),  QStringLiteral("wma"),  QStringLiteral("tta"),  QStringLiteral("ac3"),
        QStringLiteral("mka"),  QStringLiteral("dsf"),  QStringLiteral("dff"),  QStringLiteral("au"),
    };
    return extensions.contains(QFileInfo(path).suffix().toLower());
}

} // namespace

struct ImportOperation::Run {
    explicit Run(ImportOperation &operation) : op(operation) { sinceCommit.start(); }

    void walk(const QString &root);
    void passOver(const QString &path, const QString &reason, bool named);
    void consider(const QString &path, bool preferredOnAdd);
    void writeBatch();
    // Reads the rows written since the last look, by another process sharing the file.
    bool catchUp(VEKError *error);
    bool songIDIsInFile(qint64 id, bool *taken, VEKError *error);
    bool appendToTarget(const QList<SongPtr> &songs, VEKError *error);

    ImportOperation &op;
    VEKDatabase db;
    std::unique_ptr<VEKDatabaseQuery> insert;
    QSet<FileIdentity> knownFiles; // the library's files, however their paths name them
    QSet<FileIdentity> seenFiles;  // this run's
    QSet<FileIdentity> seenFolders;
    QSet<qint64> runIDs;
    qint64 lastRowSeen = 0;
    QList<SongPtr> pending;
    QElapsedTimer sinceCommit;
    // One error variable for the whole run, as the log of failures has always been built: a
    // file that fails without an error of its own logs the one met before it again.
    VEKError runError;
};

void ImportOperation::Run::passOver(const QString &path, const QString &reason, bool named)
{
    op.m_passedOver.append(
        {path,
         VEKError(QStringLiteral("ImportOperation"), 2, VEKLocalizedString("Error_importPassedOver"),
                  VEKPaths::readable(path) + QStringLiteral(": ") + reason),
         named});
}

void ImportOperation::Run::walk(const QString &root)
{
    // Depth first, children in name order; a stack instead of recursion, as trees can be deep.
    std::vector<QString> stack{root};
    while (!stack.empty() && !op.isCancelled()) {
        const QString path = std::move(stack.back());
        stack.pop_back();
        const bool named = path == root;
        struct stat st;
        if (!statPath(path, st)) {
            // Nothing there (the CLI names a missing argument itself), or a link to nothing; but
            // a name too long or a folder on the way that may not be entered is said.
            if (errno != ENOENT)
                passOver(path, QString::fromLocal8Bit(std::strerror(errno)), named);
            continue;
        }
        if (S_ISDIR(st.st_mode)) {
            const FileIdentity folder = identityOf(st);
            if (seenFolders.contains(folder)) {
                // A link back up the tree, or a folder named twice. Named after it was passed
                // over inside another, it still counts as a named path that failed.
                if (named)
                    for (Failure &item : op.m_passedOver)
                        item.named = item.named || item.path == path;
                continue;
            }
            seenFolders.insert(folder);
            if (::access(VEKPaths::native(path).constData(), R_OK | X_OK) != 0) {
                passOver(path, QString::fromLocal8Bit(std::strerror(errno)), named);
                continue;
            }
            const QString prefix = path.endsWith(u'/') ? path : path + u'/';
            QStringList children;
            if (DIR *dir = ::opendir(VEKPaths::native(path).constData())) {
                while (const dirent *entry = ::readdir(dir)) {
                    const QByteArray name(entry->d_name);
                    // Names that are not UTF-8 (an old archive's Latin-1) are kept byte for byte.
                    if (!name.startsWith('.'))
                        children.append(VEKPaths::fromNative(name));
                }
                ::closedir(dir);
            }
            std::sort(children.begin(), children.end());
            for (auto it = children.crbegin(); it != children.crend(); ++it)
                stack.push_back(prefix + *it);
        } else if (S_ISREG(st.st_mode)) {
            op.m_urls.append(path);
        } else if (named) {
            // Devices, pipes and sockets are not files to read: opening a pipe would wait forever.
            passOver(path, QStringLiteral("not a file to read (a pipe, device or socket)"), true);
        }
    }
}

void ImportOperation::Run::consider(const QString &path, bool preferredOnAdd)
{
    if (op.m_cdMounts.contains(path))
        return;

    struct stat st;
    const bool exists = statPath(path, st);
    const bool duplicate =
        op.m_known.paths.contains(path)
        || (exists && (knownFiles.contains(identityOf(st)) || seenFiles.contains(identityOf(st))));
    if (duplicate) {
        op.m_duplicates.append(path);
        return;
    }
    if (exists)
        seenFiles.insert(identityOf(st));

    VEKError fileError;
    SongPtr song = Song::initWithURL(path, &fileError);
    if (!song && fileError.code() == VEKAudioFileReader::NoAudioStreamErrorCode
        && !looksLikeAudio(path)) {
        op.m_notAudio.append(path);
        return;
    }
    if (!song) {
        if (!fileError.isNull())
            runError = fileError;
        if (!runError.isNull())
            op.m_errors.append(runError);
        else
            VEKLog(QStringLiteral("import failed without error: %1")
                       .arg(QUrl::fromLocalFile(path).toString()));
        if (fileError.isNull())
            fileError =
                VEKError(QStringLiteral("ImportOperation"), 1, VEKLocalizedString("Error_audioFileOpen"),
                         VEKPaths::readable(path) + QStringLiteral(": ")
                             + VEKLocalizedString("Error_audioFileMissing"));
        op.m_failures.append({path, fileError, op.m_roots.contains(path)});
        return;
    }
    if (preferredOnAdd && !song->isInPreferredFormat()) {
        op.m_songsToConvert.append(song);
        return;
    }
    const qint64 id = op.m_ids([this](qint64 candidate) {
        return op.m_known.songIDs.contains(candidate) || runIDs.contains(candidate);
    });
    runIDs.insert(id);
    song->setSongID(id);
    song->setDateAdded(nowToTheSecond());
    pending.append(song);
}

bool ImportOperation::Run::catchUp(VEKError *error)
{
    auto rows = db.queryWithStatement(
        QStringLiteral("SELECT rowid, songID, path FROM t_song WHERE rowid > ?"), error);
    if (!rows || !rows->setIntValue(lastRowSeen, 0, error))
        return false;
    while (rows->evaluateNextRow(error)) {
        lastRowSeen = std::max(lastRowSeen, rows->intValueAtColumn(0));
        op.m_known.songIDs.insert(rows->intValueAtColumn(1));
        const QString path = rows->stringValueAtColumn(2);
        if (!path.isEmpty())
            op.m_known.paths.insert(path);
    }
    return error->isNull();
}

bool ImportOperation::Run::songIDIsInFile(qint64 id, bool *taken, VEKError *error)
{
    auto row = db.queryWithStatement(QStringLiteral("SELECT 1 FROM t_song WHERE songID = ? LIMIT 1"), error);
    if (!row || !row->setIntValue(id, 0, error))
        return false;
    *taken = row->evaluateNextRow(error);
    return error->isNull();
}

bool ImportOperation::Run::appendToTarget(const QList<SongPtr> &songs, VEKError *error)
{
    if (!op.m_targetPlaylistID || songs.isEmpty())
        return true;
    const qint64 playlistID = *op.m_targetPlaylistID;
    // A playlist deleted meanwhile gets no rows.
    auto exists = db.queryWithStatement(
        QStringLiteral("SELECT COALESCE(MAX(ordinal) + 1, 0), (SELECT COUNT(*) FROM t_playlist "
                       "WHERE playlistID = ?1 AND iTunes = 0) FROM t_playlistSong WHERE playlistID = ?1"),
        error);
    if (!exists || !exists->setIntValue(playlistID, 0, error) || !exists->evaluateNextRow(error))
        return false;
    qint64 ordinal = exists->intValueAtColumn(0);
    if (exists->intValueAtColumn(1) == 0)
        return true;
    auto insert = db.queryWithStatement(
        QStringLiteral("INSERT INTO t_playlistSong (songID, playlistID, ordinal) VALUES (?, ?, ?);"), error);
    if (!insert)
        return false;
    for (const SongPtr &song : songs) {
        insert->reset();
        if (!insert->setIntValue(song->songID(), 0, error) || !insert->setIntValue(playlistID, 1, error)
            || !insert->setIntValue(ordinal++, 2, error) || !insert->execute(error))
            return false;
    }
    return true;
}

void ImportOperation::Run::writeBatch()
{
    sinceCommit.restart();
    if (pending.isEmpty())
        return;
    VEKError error;
    // IMMEDIATE: from here until the commit no other process writes, so what the file holds
    // now is what the batch must not collide with.
    bool ok = db.beginTransaction(&error) && catchUp(&error);
    QList<SongPtr> written;
    for (const SongPtr &song : std::as_const(pending)) {
        if (!ok)
            break;
        // Another process imported the same file while this run read it.
        if (op.m_known.paths.contains(song->URL())) {
            op.m_duplicates.append(song->URL());
            continue;
        }
        // Or drew the same ID: draw again, against the file itself.
        bool taken = false;
        while ((ok = songIDIsInFile(song->songID(), &taken, &error)) && taken) {
            const qint64 id = op.m_ids([this](qint64 candidate) {
                return op.m_known.songIDs.contains(candidate) || runIDs.contains(candidate);
            });
            runIDs.insert(id);
            song->setSongID(id);
        }
        if (!ok)
            break;
        insert->reset();
        ok = Database::bindSongForInsert(*insert, *song, &error) && insert->execute(&error);
        written.append(song);
    }
    // The target playlist's rows go in the same transaction: a kill after the commit loses
    // neither the songs nor their place in the playlist.
    ok = ok && appendToTarget(written, &error) && db.commitTransaction(&error);
    if (ok) {
        for (const SongPtr &song : std::as_const(written)) {
            op.m_songs.insert(song->songID(), song);
            op.m_order.append(song);
            op.m_known.paths.insert(song->URL());
        }
    } else {
        if (db.inTransaction())
            db.rollbackTransaction();
        op.m_errors.append(error);
        op.m_libraryWriteFailed = true;
        for (const SongPtr &song : std::as_const(pending))
            op.m_failures.append({song->URL(), error});
    }
    pending.clear();
}

ImportOperation::ImportOperation(const QStringList &files, const PlaylistPtr &playlist,
                                 const QString &libraryFile, Snapshot known, IDSource ids,
                                 QObject *parent)
    : Operation(parent), m_files(files), m_playlist(playlist), m_libraryFile(libraryFile),
      m_known(std::move(known)), m_ids(std::move(ids))
{
    if (playlist && !playlist->isLibraryPlaylist() && !playlist->isITunesPlaylist())
        m_targetPlaylistID = playlist->playlistID();
}

ImportOperation::~ImportOperation() = default;

void ImportOperation::setAudioCDMounts(const AudioCDMounts &mounts)
{
    m_cdMounts = mounts;
    m_cdMountsSet = true;
}

void ImportOperation::main()
{
    Run run(*this);
    VEKError error;
    if (!run.db.initWithURL(m_libraryFile, &error)) {
        m_errors.append(error);
        m_libraryWriteFailed = true;
        return;
    }
    run.insert = run.db.queryWithStatement(Database::insertSongStatement, &error);
    if (!run.insert) {
        m_errors.append(error);
        m_libraryWriteFailed = true;
        return;
    }
    // Rows the snapshot cannot know: an import queued behind another one runs after the first
    // has written its rows but maybe before its merge, and another process may share the file.
    if (!run.catchUp(&error)) {
        m_errors.append(error);
        m_libraryWriteFailed = true;
        return;
    }
    // The same file may be known by another path (a link, a linked folder): compare files.
    for (const QString &path : std::as_const(m_known.paths)) {
        struct stat st;
        if (statPath(path, st))
            run.knownFiles.insert(identityOf(st));
    }
    if (!m_cdMountsSet)
        m_cdMounts = AudioCDMounts::current();
    const bool preferredOnAdd =
        UserDefaults::standard().boolForKey(QStringLiteral("createPreferredOnAdd"));

    for (const QString &file : m_files) {
        const QString path = pathOfArgument(file);
        if (!path.isEmpty()) {
            m_roots.insert(path);
            run.walk(path);
        }
    }

    const double step = m_urls.isEmpty() ? 0.0 : 1.0 / double(m_urls.size());
    for (const QString &path : std::as_const(m_urls)) {
        if (isCancelled())
            break;
        run.consider(path, preferredOnAdd);
        setProgress(float(double(progress()) + step));
        if (run.pending.size() >= batchSize || run.sinceCommit.elapsed() >= batchInterval)
            run.writeBatch();
    }
    run.writeBatch();
}
