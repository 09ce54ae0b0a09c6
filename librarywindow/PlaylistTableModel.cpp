#include "PlaylistTableModel.h"

#include "SongIDsMimeData.h"

#include "app/ApplicationDelegate.h"
#include "db/VEKDatabase.h"
#include "db/VEKDatabaseQuery.h"
#include "settings/UserDefaults.h"

#include <QMimeData>
#include <QSet>

namespace {
// An index's internal id: 0 for a group header, else the number of its group + 1.
constexpr quintptr kGroupRow = 0;
} // namespace

PlaylistTableModel::PlaylistTableModel(ApplicationDelegate *delegate, QObject *parent)
    : QAbstractItemModel(parent), m_delegate(delegate)
{
    update();
}

PlaylistTableModel::~PlaylistTableModel()
{
    for (const auto &watch : std::as_const(m_watches))
        disconnect(watch);
}

void PlaylistTableModel::update()
{
    beginResetModel();
    for (const auto &watch : std::as_const(m_watches))
        disconnect(watch);
    m_watches.clear();
    m_groups.clear();
    // The titles are the same in every language.
    m_groups.append({QStringLiteral("QUIVERA"), m_delegate->localPlaylists()});
    if (UserDefaults::standard().boolForKey(QStringLiteral("accessiTunesLibrary")))
        m_groups.append({QStringLiteral("ITUNES"), m_delegate->iTunesPlaylists()});
    for (const Group &group : std::as_const(m_groups)) {
        for (const PlaylistPtr &playlist : group.playlists) {
            Playlist *p = playlist.get();
            m_watches.append(connect(p, &Playlist::valueChanged, this, [this, p](const QString &key) {
                if (key != QLatin1String("name") && key != QLatin1String("locked"))
                    return;
                for (int g = 0; g < m_groups.size(); ++g)
                    for (int i = 0; i < m_groups[g].playlists.size(); ++i)
                        if (m_groups[g].playlists[i].get() == p) {
                            const QModelIndex at = createIndex(i, 0, quintptr(g + 1));
                            emit dataChanged(at, at);
                        }
            }));
        }
    }
    endResetModel();
}

PlaylistPtr PlaylistTableModel::playlistAt(const QModelIndex &index) const
{
    if (!index.isValid() || index.model() != this || index.internalId() == kGroupRow)
        return nullptr;
    const Group &group = m_groups.value(int(index.internalId() - 1));
    return group.playlists.value(index.row());
}

QModelIndex PlaylistTableModel::indexOfPlaylist(const PlaylistPtr &playlist) const
{
    if (!playlist)
        return {};
    for (int g = 0; g < m_groups.size(); ++g) {
        const qsizetype row = m_groups[g].playlists.indexOf(playlist);
        if (row >= 0)
            return createIndex(int(row), 0, quintptr(g + 1));
    }
    return {};
}

bool PlaylistTableModel::isGroup(const QModelIndex &index) const
{
    return index.isValid() && index.internalId() == kGroupRow;
}

QModelIndex PlaylistTableModel::index(int row, int column, const QModelIndex &parent) const
{
    if (column != 0 || row < 0)
        return {};
    if (!parent.isValid())
        return row < m_groups.size() ? createIndex(row, 0, kGroupRow) : QModelIndex();
    if (!isGroup(parent) || parent.row() >= m_groups.size() || row >= m_groups[parent.row()].playlists.size())
        return {};
    return createIndex(row, 0, quintptr(parent.row() + 1));
}

QModelIndex PlaylistTableModel::parent(const QModelIndex &child) const
{
    if (!child.isValid() || child.internalId() == kGroupRow)
        return {};
    return createIndex(int(child.internalId() - 1), 0, kGroupRow);
}

int PlaylistTableModel::rowCount(const QModelIndex &parent) const
{
    if (!parent.isValid())
        return int(m_groups.size());
    if (isGroup(parent) && parent.column() == 0)
        return int(m_groups.value(parent.row()).playlists.size());
    return 0;
}

int PlaylistTableModel::columnCount(const QModelIndex &) const
{
    return 1;
}

QVariant PlaylistTableModel::data(const QModelIndex &index, int role) const
{
    if (isGroup(index)) {
        if (role == Qt::DisplayRole || role == Qt::AccessibleTextRole)
            return m_groups.value(index.row()).title;
        return {};
    }
    const PlaylistPtr playlist = playlistAt(index);
    if (!playlist)
        return {};
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
    case Qt::AccessibleTextRole: return playlist->name();
    case Qt::ToolTipRole: return playlist->name();
    default: return {};
    }
}

bool PlaylistTableModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    const PlaylistPtr playlist = playlistAt(index);
    const QString name = value.toString();
    if (role != Qt::EditRole || !playlist || !(flags(index) & Qt::ItemIsEditable))
        return false;
    // An empty name is ignored: the old one stays.
    if (name.isEmpty())
        return false;
    m_delegate->setNameOfPlaylist(name, playlist);
    emit dataChanged(index, index);
    return true;
}

Qt::ItemFlags PlaylistTableModel::flags(const QModelIndex &index) const
{
    // Headers count as disabled, so the arrow keys pass over them to the next playlist.
    if (isGroup(index))
        return Qt::NoItemFlags;
    const PlaylistPtr playlist = playlistAt(index);
    if (!playlist)
        return Qt::NoItemFlags;
    Qt::ItemFlags f = Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDropEnabled;
    if (!playlist->isLibraryPlaylist() && !playlist->locked())
        f |= Qt::ItemIsEditable;
    return f;
}

QStringList PlaylistTableModel::mimeTypes() const
{
    return {SongIDsMimeData::mimeType};
}

Qt::DropActions PlaylistTableModel::supportedDropActions() const
{
    return Qt::CopyAction | Qt::MoveAction | Qt::LinkAction;
}

PlaylistPtr PlaylistTableModel::dropTarget(int row, const QModelIndex &parent) const
{
    // Drops land on rows (the view shows them so): a position between rows names no playlist.
    return row < 0 ? playlistAt(parent) : nullptr;
}

bool PlaylistTableModel::acceptsDropOn(const PlaylistPtr &target) const
{
    const PlaylistPtr &selected = m_delegate->selectedPlaylist();
    if (!target || target == selected || target->locked())
        return false;
    // The own library takes songs only out of iTunes.
    if (target->isLibraryPlaylist())
        return selected && selected->isFromITunes();
    return true;
}

bool PlaylistTableModel::canDropMimeData(const QMimeData *data, Qt::DropAction, int row, int,
                                         const QModelIndex &parent) const
{
    return data && data->hasFormat(SongIDsMimeData::mimeType) && acceptsDropOn(dropTarget(row, parent));
}

bool PlaylistTableModel::dropMimeData(const QMimeData *data, Qt::DropAction action, int row, int column,
                                      const QModelIndex &parent)
{
    if (!canDropMimeData(data, action, row, column, parent))
        return false;
    return dropSongs(SongIDsMimeData::songIDs(data), dropTarget(row, parent));
}

bool PlaylistTableModel::dropSongs(const QList<qint64> &songIDs, const PlaylistPtr &target)
{
    if (!acceptsDropOn(target))
        return false;
    // A number the library does not know (the library changed under the drag) is left out
    // rather than reaching the playlist as a hole.
    // A song the playlist holds already is not added twice; its search plays no part.
    QSet<const Song *> seen;
    for (const SongPtr &song : target->songsInManualOrder())
        seen.insert(song.get());
    QList<SongPtr> songs;
    for (qint64 id : songIDs) {
        const SongPtr song = m_delegate->library().value(id);
        if (song && !seen.contains(song.get())) {
            seen.insert(song.get());
            songs.append(song);
        }
    }
    if (songs.isEmpty())
        return true;
    if (target->isLibraryPlaylist() && !storeInLibraryFile(songs))
        return false;
    Playlist::Rows indexes;
    const qsizetype end = target->songsInManualOrder().size();
    for (qsizetype i = 0; i < songs.size(); ++i)
        indexes.append(end + i);
    target->insertSongs(songs, indexes);
    if (target == m_delegate->selectedPlaylist())
        m_delegate->refreshCurrentSongs();
    return true;
}

bool PlaylistTableModel::storeInLibraryFile(const QList<SongPtr> &songs)
{
    Database *db = m_delegate->database();
    VEKError error;
    bool ok = db != nullptr;
    if (ok) {
        // One transaction for the batch: a failure leaves the song table as it was.
        db->flushWrites();
        VEKDatabaseTransaction transaction(db, &error);
        auto insert = db->queryWithStatement(Database::insertSongStatement, &error);
        ok = transaction.isActive() && insert;
        for (const SongPtr &song : songs) {
            if (!ok)
                break;
            insert->reset();
            ok = Database::bindSongForInsert(*insert, *song, &error) && insert->execute(&error);
        }
        ok = ok && transaction.commit(&error);
    }
    error.alert();
    return ok;
}
