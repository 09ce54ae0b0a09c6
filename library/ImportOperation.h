#pragma once

#include "AudioCDMounts.h"
#include "Playlist.h"
#include "Song.h"
#include "core/VEKError.h"
#include "ops/Operation.h"

#include <QHash>
#include <QList>
#include <QSet>
#include <QStringList>
#include <functional>
#include <optional>

// Brings audio files into the library in the background. It walks the files and folders it was
// given, turns each new audio file into a Song and writes its row into t_song through a
// connection of its own. It never touches the library in memory: the main thread merges its
// songs when it has finished (ApplicationDelegate::operationDidFinish).
//
// The rows are written in batches, one transaction each, committed at least every
// `batchSize` songs or `batchInterval` milliseconds, whichever comes first. Reading the files
// happens outside the transactions, so the library file stays free for the main thread. A run
// that is cancelled, or a process that is killed, keeps every batch committed before; the file
// holds no part of a batch. A batch that fails to commit is left out altogether: its songs are
// reported as failures and not merged. Each batch also appends its songs to the rows of the
// target playlist, and checks its paths and IDs against rows another process wrote meanwhile.
//
// Threads: construct and read the results on the main thread; start() (the queue calls it) on the
// worker. The results are complete once isFinished() is true.
class ImportOperation : public Operation {
    Q_OBJECT
public:
    // What the library knew when the import was asked for, taken on the main thread.
    struct Snapshot {
        QSet<QString> paths; // the paths of every song, iTunes songs included
        QSet<qint64> songIDs;
    };
    // Draws a new song ID that `isTaken` does not refuse (ApplicationDelegate::uniqueSongID).
    using IDSource = std::function<qint64(const std::function<bool(qint64)> &isTaken)>;

    struct Failure {
        QString path;
        VEKError error;
        bool named = false; // the path was given in `files` itself, not found in a folder
    };

    static constexpr int batchSize = 200;
    static constexpr int batchInterval = 250; // milliseconds

    // `files`: paths of files or folders, or file URLs ("file:///..."); a relative path counts
    // from the working folder. `playlist`: the playlist selected when the import was asked for
    // (may be null); only the merge looks at it. `libraryFile`: the library file to write to.
    ImportOperation(const QStringList &files, const PlaylistPtr &playlist,
                    const QString &libraryFile, Snapshot known, IDSource ids,
                    QObject *parent = nullptr);
    ~ImportOperation() override;

    // The audio CD mounts to skip; by default those of /proc/self/mounts at the start of the run.
    // Before the operation is queued.
    void setAudioCDMounts(const AudioCDMounts &mounts);

    const QStringList &files() const { return m_files; }
    const PlaylistPtr &playlist() const { return m_playlist; }

    // The files the walk found, in its order: a folder's children sorted by name, children whose
    // names start with "." left out (a hidden item named in `files` itself is walked), symbolic
    // links followed, each folder entered once.
    const QStringList &URLs() const { return m_urls; }

    // The imported songs, each with its row written, by songID, and in the order of the walk.
    const QHash<qint64, SongPtr> &songs() const { return m_songs; }
    const QList<SongPtr> &songsInImportOrder() const { return m_order; }
    // Songs not in the preferred format, met while createPreferredOnAdd was on: they get no ID
    // and no row; the conversion is to add its result instead.
    const QList<SongPtr> &songsToConvert() const { return m_songsToConvert; }
    // Files skipped because the library had them (by path, or the same file by another path:
    // a link, a hard link, a linked folder), or because this run had met the same file already.
    // Costs one look at each of the library's files when the run starts.
    const QStringList &duplicates() const { return m_duplicates; }
    // Files that are not audio the reader can open, or whose rows could not be written, each
    // with its own reason.
    const QList<Failure> &failures() const { return m_failures; }
    // Files in which FFmpeg finds no audio stream and whose names do not say audio (a cover
    // picture, a cue sheet, a rip log): skipped without an error. A file named like audio that
    // cannot be read stays a failure.
    const QStringList &notAudio() const { return m_notAudio; }
    // Paths the walk could not go into or that are no files to read, each with its reason: a
    // folder it may not list, a name too long for the system, a pipe or device named in `files`.
    const QList<Failure> &passedOver() const { return m_passedOver; }
    // Every error of the run, in the order met, as the merge writes them to the log.
    const QList<VEKError> &errors() const { return m_errors; }
    // The rows could not be written (no connection, or a batch that failed to commit).
    bool libraryWriteFailed() const { return m_libraryWriteFailed; }
    // Set on the main thread before the merge when the caller shows the failures itself (the
    // CLI): the merge then does not log them a second time.
    void setFailuresShownByCaller(bool shown) { m_failuresShownByCaller = shown; }
    bool failuresShownByCaller() const { return m_failuresShownByCaller; }

protected:
    void main() override;

private:
    struct Run;

    const QStringList m_files;
    const PlaylistPtr m_playlist;
    // Where each batch's songs also go, in the batch's transaction: the playlist, unless it is a
    // library or iTunes one.
    std::optional<qint64> m_targetPlaylistID;
    const QString m_libraryFile;
    Snapshot m_known;
    const IDSource m_ids;
    AudioCDMounts m_cdMounts;
    bool m_cdMountsSet = false;

    QSet<QString> m_roots; // the paths of `files`, as the walk starts from them
    QStringList m_urls;
    QHash<qint64, SongPtr> m_songs;
    QList<SongPtr> m_order;
    QList<SongPtr> m_songsToConvert;
    QStringList m_duplicates;
    QList<Failure> m_failures;
    QStringList m_notAudio;
    QList<Failure> m_passedOver;
    QList<VEKError> m_errors;
    bool m_libraryWriteFailed = false;
    bool m_failuresShownByCaller = false;
};
