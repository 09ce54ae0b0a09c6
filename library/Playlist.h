#pragma once

#include "Song.h"
#include "SongPredicate.h"

#include <QList>
#include <QObject>
#include <QString>
#include <limits>
#include <memory>
#include <string>
#include <vector>

class SortDescriptor;

// An ordered list of songs with its own way of being looked at. It holds the same songs in three
// orders at once (the user's, sorted, shuffled); `shuffle` and `sortKey` choose which is in
// force, and a search predicate can narrow it. Every change of the settings or the songs goes to
// the library file at once. Main thread only, except while the iTunes read-in builds a playlist
// nobody else sees yet.
class Playlist : public QObject {
    Q_OBJECT
public:
    enum class Kind { Plain, Library, ITunes, ITunesLibrary };
    using Rows = QList<qsizetype>; // ascending, without repeats

    static constexpr qsizetype NotFound = std::numeric_limits<qint64>::max();
    static constexpr qint64 LibraryPlaylistID = -1;
    static constexpr qint64 ITunesLibraryPlaylistID = 1;

    // Named "Playlist_defaultName"; nothing is written, as the playlist has no row yet.
    explicit Playlist(QObject *parent = nullptr);
    ~Playlist() override;

    virtual Kind kind() const { return Kind::Plain; }
    // The library playlist or the iTunes library playlist.
    bool isLibraryPlaylist() const { return kind() == Kind::Library || kind() == Kind::ITunesLibrary; }
    bool isITunesPlaylist() const { return kind() == Kind::ITunes; }
    // Of the iTunes library, its all-songs list included: read-only, and read after the launch.
    bool isFromITunes() const { return kind() == Kind::ITunes || kind() == Kind::ITunesLibrary; }

    qint64 playlistID() const { return m_playlistID; }
    void setPlaylistID(qint64 id);
    const QString &name() const { return m_name; }
    void setName(const QString &name);
    bool shuffle() const { return m_shuffle; }
    void setShuffle(bool shuffle, const SongPtr &currentSong);
    quint64 repeatMode() const { return m_repeatMode; }
    void setRepeatMode(quint64 mode);
    const QString &sortKey() const { return m_sortKey; }
    void setSortKey(const QString &key);
    bool sortAscending() const { return m_sortAscending; }
    void setSortAscending(bool ascending);
    const std::shared_ptr<const SongPredicate> &predicate() const { return m_predicate; }
    void setPredicate(std::shared_ptr<const SongPredicate> predicate);
    // A predicate that can only let through songs the present one lets through (the search
    // text grew by a letter): the view is filtered from the present view, not the whole list.
    void narrowPredicate(std::shared_ptr<const SongPredicate> predicate);
    // A predicate whose view the caller kept from before (the search text shortened back to what
    // it was): taken as it is, valid until the next change like any view.
    void restorePredicate(std::shared_ptr<const SongPredicate> predicate, const QList<SongPtr> &view);
    const Rows &selectedRows() const { return m_selectedRows; }
    void setSelectedRows(const Rows &rows);
    bool locked() const { return m_locked; }
    void setLocked(bool locked);
    double lastModification() const { return m_lastModification; }

    // The view: the order in force, filtered by the predicate. The filtered list is kept until
    // the order, the songs or the predicate change; a change of the songs' own fields (a tag
    // edit) takes effect at the next songFieldsDidChange(), which the delegate calls after one.
    QList<SongPtr> songs() const;
    void invalidateView() const;
    // The songs' own fields changed (a tag edit): the view and what the sorts and searches kept go.
    void songFieldsDidChange() const;
    // A long playlist about to be searched: its songs' searched fields are folded in steps while
    // the event loop is idle, so that each key of a search reads them in one piece rather than
    // every field of every song where it lies.
    void prepareSearch();
    qsizetype countOfSongs() const;
    SongPtr objectInSongsAtIndex(qsizetype index) const;
    QList<SongPtr> songsAtIndexes(const Rows &rows) const;
    // First row of the song in the view, or NotFound.
    qsizetype indexOfObjectInSongs(const SongPtr &song) const;
    // Every row of the view whose song is one of `songs`.
    Rows indexesOfSongs(const QList<SongPtr> &songs) const;
    const QList<SongPtr> &songsInManualOrder() const { return m_manualOrder; }
    const QList<SongPtr> &sortedOrder() const { return m_sortedOrder; }
    const QList<SongPtr> &shuffledOrder() const { return m_shuffledOrder; }

    // The song one row up in the view; null at the top or for a song not in it.
    SongPtr songPrecedingSong(const SongPtr &song) const;
    // The song one row down; the first for null; null after the last or for a song not in it.
    SongPtr songFollowingSong(const SongPtr &song) const;

    // Inserts at positions of the user's order (each index is the position in the result,
    // taken in ascending order). Re-sorts, deals a new shuffle and rewrites the playlist's rows.
    void insertSongs(const QList<SongPtr> &songs, const Rows &indexes);
    // Appends, as the load and the library operations do.
    void appendSongs(const QList<SongPtr> &songs);
    // Removes every occurrence of the songs at these rows of the view from all three orders.
    void removeSongsAtIndexes(const Rows &rows);
    // Removes every occurrence of these songs, whether the search shows them or not.
    void removeSongs(const QList<SongPtr> &songs);

    // Writes shuffle, repeat mode, sort key and direction to the playlist's row.
    void updateRow();
    // While the library file loads, the sort is only marked due: the load sets the key and then
    // the direction, and one sort at the end (finishLoading) serves both.
    void updateSortedOrder();
    void finishLoading();
    void updateShuffledOrderWithCurrentSong(const SongPtr &currentSong);

    // One dealing of the shuffle from `source`, with `current` first if it is there. Draws from
    // random() as the program always has, so a given seed gives the same order.
    static QList<SongPtr> shuffledOrder(QList<SongPtr> source, const SongPtr &current);

protected:
    // Takes `songs` as the user's order and deals the other two from it, writing nothing to the
    // library file: for playlists whose songs are not the file's to keep (the iTunes ones).
    void setSongsWithoutStoring(const QList<SongPtr> &songs);

signals:
    // Key-value style change report, after the change: "songs", "name", "shuffle", "sortKey",
    // "sortAscending", "repeatMode", "predicate", "selectedRows", "playlistID", "locked".
    void valueChanged(const QString &key);

private:
    const QList<SongPtr> &orderInForce() const;
    const std::vector<int> &ranksFor(const SortDescriptor &descriptor) const;
    void foldMoreTexts(qsizetype count) const;
    void dropSearchTexts() const;
    bool filterFolded(const QList<SongPtr> &order) const;
    void touch();

    qint64 m_playlistID = 0;
    QString m_name;
    QList<SongPtr> m_manualOrder;
    QList<SongPtr> m_sortedOrder;
    QList<SongPtr> m_shuffledOrder;
    bool m_shuffle = false;
    quint64 m_repeatMode = 0;
    QString m_sortKey;
    bool m_sortAscending = false;
    std::shared_ptr<const SongPredicate> m_predicate;
    Rows m_selectedRows;
    bool m_locked = false;
    double m_lastModification = 0;
    bool m_sortDue = false;
    // Ranks of the user's order by each field sorted by so far, until the songs or their fields
    // change: clicking a column again, or another that shares a field, ranks no texts again.
    struct FieldRanks {
        QString key;
        std::vector<int> ranks;
    };
    mutable std::vector<FieldRanks> m_ranks;
    // The searched fields of the user's order, folded (SongPredicate::appendFoldedTexts), one
    // song after another; the start of each song's, then the end.
    mutable std::string m_foldedTexts;
    mutable std::vector<quint32> m_foldedStarts;
    bool m_folding = false;
    // Where each song of the view stands in the user's order, when the view came from them.
    mutable std::vector<quint32> m_viewIndexes;
    // Where each song of the sorted order stands in the user's order.
    mutable std::vector<quint32> m_sortedIndexes;
    mutable QList<SongPtr> m_view;
    mutable bool m_viewValid = false;
};

using PlaylistPtr = std::shared_ptr<Playlist>;
