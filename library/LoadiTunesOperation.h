#pragma once

#include "Song.h"
#include "iTunesLibraryParser.h"
#include "ops/Operation.h"

#include <QHash>
#include <QList>
#include <QString>

class VEKDatabase;

// Reads the user's iTunes library in the background: the XML file at the iTunesLibraryLocation
// setting gives iTunesSongs and playlist entries, and each new iTunes playlist gets its row in
// t_playlist (the row keeps its view settings). Nothing else of the iTunes library is written.
//
// A missing file gives an empty result in silence; a damaged one gives an empty result and a
// line in the log. Either way the program goes on with an empty iTunes section. Once started
// the run goes to its end (a large library takes well under a second).
//
// Threads: construct and read the results on the main thread; start() (the queue calls it) on the
// worker. The main thread turns the entries into iTunesPlaylists when it merges: playlists are
// objects the views watch, and the worker never makes them.
class LoadiTunesOperation : public Operation {
    Q_OBJECT
public:
    // `location`: the iTunesLibraryLocation setting as stored; a leading "~" stands for the
    // home folder. `libraryFile`: the own library file, for the t_playlist rows.
    LoadiTunesOperation(const QString &location, const QString &libraryFile,
                        QObject *parent = nullptr);
    ~LoadiTunesOperation() override;

    const QString &location() const { return m_location; }
    // The location with the tilde expanded: the file that is read.
    static QString expandedPath(const QString &location);

    // The songs the filter took, by songID ("Track ID"; a later entry of an ID replaces an
    // earlier one), and the same in the order of the file.
    const QHash<qint64, SongPtr> &songs() const { return m_songs; }
    const QList<SongPtr> &songsInFileOrder() const { return m_order; }
    // The playlist entries that become playlists, in the order of the file, each with its row
    // in t_playlist. Build them with iTunesPlaylist::initWithITunesLibraryEntry and songs().
    const QList<iTunesPlaylistEntry> &playlists() const { return m_playlists; }
    // Why the file gave nothing, if it did not (absent when all went well or it is missing).
    const VEKError &error() const { return m_error; }

protected:
    void main() override;

private:
    void writePlaylistRows(VEKDatabase &database);

    const QString m_location;
    const QString m_libraryFile;
    QHash<qint64, SongPtr> m_songs;
    QList<SongPtr> m_order;
    QList<iTunesPlaylistEntry> m_playlists;
    VEKError m_error;
};
