#pragma once

#include "library/Playlist.h"

#include <QAbstractItemModel>
#include <QList>
#include <QMetaObject>
#include <QString>

class ApplicationDelegate;

// The sidebar's outline: the group "QUIVERA" with the delegate's own playlists and, while the
// iTunes library may be read (accessiTunesLibrary), the group "ITUNES" with its playlists. Group
// rows are headers: not selectable, not editable, no drop target. The model holds the lists as
// they were at the last update() (the delegate calls for one at each change of its lists), and
// names follow each playlist's own change notice. Main thread only.
//
// Drops take songs by their IDs (application/x-quivera-songids) and never files:
//   - no target, a group, the selected playlist (the songs come from there) or a locked one
//     (every iTunes list, the iTunes library, the program's own locked lists) refuses;
//   - the own library takes songs only from an iTunes list or the iTunes library, and writes
//     each new one to the library file's song table first;
//   - any other playlist takes them at its end, each song it does not hold yet, in the order
//     given. A drop lands on a row, never between rows.
class PlaylistTableModel : public QAbstractItemModel {
    Q_OBJECT
public:
    explicit PlaylistTableModel(ApplicationDelegate *delegate, QObject *parent = nullptr);
    ~PlaylistTableModel() override;

    // Rebuilds the groups from the delegate's lists and the setting.
    void update();

    PlaylistPtr playlistAt(const QModelIndex &index) const;
    QModelIndex indexOfPlaylist(const PlaylistPtr &playlist) const;
    bool isGroup(const QModelIndex &index) const;

    // Whether a drop on `target` of songs dragged out of the selected playlist is taken.
    bool acceptsDropOn(const PlaylistPtr &target) const;
    // Adds the songs of `songIDs` to `target` by the rules above. False when the drop is
    // refused or the write to the library file failed (after an alert; nothing changed then).
    bool dropSongs(const QList<qint64> &songIDs, const PlaylistPtr &target);

    QModelIndex index(int row, int column, const QModelIndex &parent = QModelIndex()) const override;
    QModelIndex parent(const QModelIndex &child) const override;
    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    // Renames through the delegate; an empty name is ignored, so a name can't be removed.
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    QStringList mimeTypes() const override;
    Qt::DropActions supportedDropActions() const override;
    bool canDropMimeData(const QMimeData *data, Qt::DropAction action, int row, int column,
                         const QModelIndex &parent) const override;
    bool dropMimeData(const QMimeData *data, Qt::DropAction action, int row, int column,
                      const QModelIndex &parent) override;

private:
    struct Group {
        QString title;
        QList<PlaylistPtr> playlists;
    };

    // The playlist a drop at (row, parent) aims at: the row itself, since drops land on rows.
    PlaylistPtr dropTarget(int row, const QModelIndex &parent) const;
    bool storeInLibraryFile(const QList<SongPtr> &songs);

    ApplicationDelegate *m_delegate;
    QList<Group> m_groups;
    QList<QMetaObject::Connection> m_watches;
};
