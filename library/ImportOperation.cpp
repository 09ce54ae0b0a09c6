#include "ImportOperation.h"

#include "Database.h"
#include "core/VEKLocalizedString.h"
#include "core/VEKLog.h"
#include "db/VEKDatabase.h"
#include "db/VEKDatabaseQuery.h"
#include "settings/UserDefaults.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QUrl>

#include <sys/stat.h>
#include <vector>

namespace {

using FileIdentity = QPair<quint64, quint64>; // device, inode

bool statPath(const QString &path, struct stat &st)
{
    const QByteArray local = QFile::encodeName(path);
    return !local.isEmpty() && ::stat(local.constData(), &st) == 0;
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
        path = url.isLocalFile() ? url.toLocalFile() : QString();
    }
    if (path.isEmpty())
        return {};
    return QDir::cleanPath(QFileInfo(path).absoluteFilePath());
}

// Dates are stored to the second: keep the song in memory as it will read back.
QDateTime nowToTheSecond()
{
    const qint64 ms = QDateTime::currentMSecsSinceEpoch();
    return QDateTime::fromMSecsSinceEpoch(ms - ms % 1000, Qt::UTC);
}

} // namespace

struct ImportOperation::Run {
    explicit Run(ImportOperation &operation) : op(operation) { sinceCommit.start(); }

    void walk(const QString &root);
    void consider(const QString &path, bool preferredOnAdd);
    void writeBatch();

    ImportOperation &op;
    VEKDatabase db;
    std::unique_ptr<VEKDatabaseQuery> insert;
    QSet<FileIdentity> knownFiles; // the library's files, however their paths name them
    QSet<FileIdentity> seenFiles;  // this run's
    QSet<FileIdentity> seenFolders;
    QSet<qint64> runIDs;
    QList<SongPtr> pending;
    QElapsedTimer sinceCommit;
    // One error variable for the whole run, as the log of failures has always been built: a
    // file that fails without an error of its own logs the one met before it again.
    VEKError runError;
};

void ImportOperation::Run::walk(const QString &root)
{
    // Depth first, children in name order; a stack instead of recursion, as trees can be deep.
    std::vector<QString> stack{root};
    while (!stack.empty() && !op.isCancelled()) {
        const QString path = std::move(stack.back());
        stack.pop_back();
        struct stat st;
        if (!statPath(path, st))
            continue; // nothing there, or a link to nothing
        if (S_ISDIR(st.st_mode)) {
            const FileIdentity folder = identityOf(st);
            if (seenFolders.contains(folder))
                continue; // a link back up the tree, or a folder named twice
            seenFolders.insert(folder);
            const QStringList children =
                QDir(path).entryList(QDir::AllEntries | QDir::Hidden | QDir::System
                                         | QDir::NoDotAndDotDot,
                                     QDir::Name);
            const QString prefix = path.endsWith(u'/') ? path : path + u'/';
            for (auto it = children.crbegin(); it != children.crend(); ++it)
                if (!it->startsWith(u'.'))
                    stack.push_back(prefix + *it);
        } else if (S_ISREG(st.st_mode)) {
            op.m_urls.append(path);
        }
        // Devices, pipes and sockets are not files to read: opening a pipe would wait forever.
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
    if (!song) {
        if (!fileError.isNull())
            runError = fileError;
        if (!runError.isNull())
            op.m_errors.append(runError);
        else
            VEKLog(QStringLiteral("import failed without error: %1")
                       .arg(QUrl::fromLocalFile(path).toString()));
        if (fileError.isNull())
            fileError = VEKError(QStringLiteral("ImportOperation"), 1,
                                 VEKLocalizedString("Error_audioFileOpen"),
                                 path + QStringLiteral(": ")
                                     + VEKLocalizedString("Error_audioFileMissing"));
        op.m_failures.append({path, fileError});
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

void ImportOperation::Run::writeBatch()
{
    sinceCommit.restart();
    if (pending.isEmpty())
        return;
    VEKError error;
    bool ok = db.beginTransaction(&error);
    for (const SongPtr &song : std::as_const(pending)) {
        if (!ok)
            break;
        insert->reset();
        ok = Database::bindSongForInsert(*insert, *song, &error) && insert->execute(&error);
    }
    ok = ok && db.commitTransaction(&error);
    if (ok) {
        for (const SongPtr &song : std::as_const(pending)) {
            op.m_songs.insert(song->songID(), song);
            op.m_order.append(song);
        }
    } else {
        if (db.inTransaction())
            db.rollbackTransaction();
        op.m_errors.append(error);
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
        return;
    }
    run.insert = run.db.queryWithStatement(Database::insertSongStatement, &error);
    if (!run.insert) {
        m_errors.append(error);
        return;
    }
    // Rows the snapshot cannot know: an import queued behind another one runs after the first
    // has written its rows but maybe before its merge, and another process may share the file.
    if (auto rows = run.db.queryWithStatement(QStringLiteral("SELECT songID, path FROM t_song"))) {
        while (rows->evaluateNextRow()) {
            m_known.songIDs.insert(rows->intValueAtColumn(0));
            const QString path = rows->stringValueAtColumn(1);
            if (!path.isEmpty())
                m_known.paths.insert(path);
        }
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
        if (!path.isEmpty())
            run.walk(path);
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
