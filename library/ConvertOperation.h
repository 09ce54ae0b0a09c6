#pragma once

#include "Playlist.h"
#include "Song.h"
#include "core/VEKError.h"
#include "ops/Operation.h"

#include <QMutex>
#include <QSet>
#include <QString>
#include <QVariantMap>
#include <functional>

class VEKAudioFileWriterAudioProcessor;

// Makes a copy of one song in the preferred format (the `preferredFormat` setting) beside the
// source file, and turns the result into a new song with its row in t_song. The source file
// and its song are never touched.
//
// The run builds a private offline stream from the resource ":/ConvertOperationStream.plist"
// (reader -> converter -> dither -> writer); the converter's class follows `convertorType` (1:
// the tunable converter with the resampler settings; otherwise the platform converter with the
// complexity of the type and `convertorQuality`). The writer gets the whole file, the source's
// tags and cover, and the exists-action "rename", so an existing file of the name is kept.
//
// Threads: construct, queue and read the results on the main thread; start() (the queue calls
// it) on the worker, which owns the stream for the length of the run. progress() from any
// thread. The results are complete once isFinished() is true; the main thread merges the new
// song (ApplicationDelegate::operationDidFinish).
class ConvertOperation : public Operation {
    Q_OBJECT
public:
    // Draws a new song ID that `isTaken` does not refuse (ApplicationDelegate::uniqueSongID).
    using IDSource = std::function<qint64(const std::function<bool(qint64)> &isTaken)>;

    // `song`: the song to convert. `destination`: where the result is to be listed besides the
    // library (may be null). `libraryFile`: the library file the result's row goes into.
    // `knownIDs`: the library's song IDs when the conversion was asked for; the run adds those
    // of t_song as it finds them.
    ConvertOperation(const SongPtr &song, const PlaylistPtr &destination,
                     const QString &libraryFile, QSet<qint64> knownIDs, IDSource ids,
                     QObject *parent = nullptr);
    ~ConvertOperation() override;

    const SongPtr &song() const { return m_song; }
    const PlaylistPtr &destinationPlaylist() const { return m_destination; }

    // The writer's progress while the file is written, 0 to 1; 1 once the run has written it.
    // Hides Operation::progress(), which only moves at the end of the run.
    float progress() const;

    // True once the file is written and its song has a row.
    bool success() const { return m_success; }
    // What went wrong, when success() is false; null for a conversion cancelled before it ran.
    const VEKError &error() const { return m_error; }
    // Set on the main thread before the merge when the caller reports the outcome itself (the
    // CLI's summary): the merge then shows no alert for a failure, so it is said once.
    void setFailureShownByCaller(bool shown) { m_failureShownByCaller = shown; }
    bool failureShownByCaller() const { return m_failureShownByCaller; }
    // The file written; empty unless success() (and after a cancellation, which leaves nothing).
    const QString &resultURL() const { return m_resultURL; }
    // The new song: read from the result, with a new songID and dateAdded, its row written.
    // Null unless success().
    const SongPtr &resultSong() const { return m_result; }

    // The writer's format name for `format` of the preferredFormat record ("AIFF File" ...
    // "FLAC Audio File"); empty for an index out of range.
    static QString writerFormatForIndex(quint64 format);
    // The stream's description, the resource's with the converter `convertorType` asks for.
    // Empty with `error` when the resource can't be read.
    static QVariantMap streamDescription(VEKError *error = nullptr);

protected:
    void main() override;

private:
    bool convert();
    bool addResultToLibrary();

    const SongPtr m_song;
    const PlaylistPtr m_destination;
    const QString m_libraryFile;
    QSet<qint64> m_knownIDs;
    const IDSource m_ids;

    mutable QMutex m_writerLock; // guards m_writer against the end of the run
    VEKAudioFileWriterAudioProcessor *m_writer = nullptr;

    bool m_success = false;
    VEKError m_error;
    bool m_failureShownByCaller = false;
    QString m_resultURL;
    SongPtr m_result;
};
