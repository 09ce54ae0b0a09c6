#include "Playlist.h"

#include "Database.h"
#include "SortDescriptor.h"
#include "core/VEKDate.h"
#include "core/VEKLocalizedString.h"
#include "db/VEKDatabaseQuery.h"
#include "text/VEKText.h"

#include <QHash>
#include <QSet>
#include <QTimer>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string_view>
#include <vector>

Playlist::Playlist(QObject *parent) : QObject(parent)
{
    m_lastModification = VEKDate::now();
    // Not through setName(): in a constructor it would act as a plain playlist's and write the
    // name into whichever row has this playlist's ID before it has one (0).
    m_name = VEKLocalizedString("Playlist_defaultName");
}

Playlist::~Playlist() = default;

void Playlist::touch() { m_lastModification = VEKDate::now(); }

void Playlist::setPlaylistID(qint64 id)
{
    m_playlistID = id;
    emit valueChanged(QStringLiteral("playlistID"));
}

void Playlist::setName(const QString &name)
{
    if (name.isNull() == m_name.isNull() && name == m_name)
        return;
    m_name = name;
    Database *db = Database::shared();
    if (!db || db->isLoading() || isFromITunes() || kind() == Kind::Library) {
        touch();
        emit valueChanged(QStringLiteral("name"));
        return;
    }
    VEKError error;
    auto query = db->queryWithStatement(
        QStringLiteral("UPDATE t_playlist SET name = ? WHERE playlistID = ?"), &error);
    if (query && query->setStringValue(m_name, 0, &error)
        && query->setIntValue(m_playlistID, 1, &error) && query->execute(&error))
        touch();
    emit valueChanged(QStringLiteral("name"));
    error.alert();
}

void Playlist::setShuffle(bool shuffle, const SongPtr &currentSong)
{
    invalidateView();
    if (shuffle == m_shuffle)
        return;
    m_shuffle = shuffle;
    updateRow();
    updateShuffledOrderWithCurrentSong(currentSong);
    // Another order is in force: whoever plays from it must prepare its next song anew.
    emit valueChanged(QStringLiteral("shuffle"));
}

void Playlist::setRepeatMode(quint64 mode)
{
    if (mode == m_repeatMode)
        return;
    m_repeatMode = mode;
    updateRow();
    emit valueChanged(QStringLiteral("repeatMode"));
}

void Playlist::setSortKey(const QString &key)
{
    invalidateView();
    if (key.isNull() == m_sortKey.isNull() && key == m_sortKey)
        return;
    m_sortKey = key;
    if (key.isEmpty())
        m_sortAscending = true;
    updateRow();
    updateSortedOrder();
    emit valueChanged(QStringLiteral("sortKey"));
}

void Playlist::setSortAscending(bool ascending)
{
    invalidateView();
    if (ascending == m_sortAscending)
        return;
    // The user's order has no direction.
    if (m_sortKey == QLatin1String("ordinal"))
        return;
    m_sortAscending = ascending;
    updateRow();
    updateSortedOrder();
    emit valueChanged(QStringLiteral("sortAscending"));
}

void Playlist::setPredicate(std::shared_ptr<const SongPredicate> predicate)
{
    invalidateView();
    if (predicate && predicate->isEmpty())
        predicate.reset();
    m_predicate = std::move(predicate);
    emit valueChanged(QStringLiteral("predicate"));
}

void Playlist::narrowPredicate(std::shared_ptr<const SongPredicate> predicate)
{
    if (!predicate || predicate->isEmpty() || !m_predicate || !m_viewValid) {
        setPredicate(std::move(predicate));
        return;
    }
    if (m_foldedStarts.size() == size_t(m_manualOrder.size()) + 1 && predicate->evaluatesFoldedTexts()) {
        // The view's songs by their folded texts, which lie scattered in the view's order: for a
        // view of more than a quarter of the list, or without their places, the whole list read
        // in one sweep is faster.
        if (m_viewIndexes.size() != size_t(m_view.size()) || m_view.size() > m_manualOrder.size() / 4) {
            setPredicate(std::move(predicate));
            return;
        }
        const std::string_view texts = m_foldedTexts;
        qsizetype kept = 0;
        for (qsizetype i = 0; i < m_view.size(); ++i) {
            const quint32 index = m_viewIndexes[size_t(i)];
            if (predicate->evaluateFolded(
                    texts.substr(m_foldedStarts[index], m_foldedStarts[index + 1] - m_foldedStarts[index]))) {
                if (kept != i)
                    m_view[kept] = std::move(m_view[i]);
                m_viewIndexes[size_t(kept)] = index;
                ++kept;
            }
        }
        m_view.resize(kept);
        m_viewIndexes.resize(size_t(kept));
        m_predicate = std::move(predicate);
        emit valueChanged(QStringLiteral("predicate"));
        return;
    }
    m_viewIndexes.clear();
    m_view.removeIf([&predicate](const SongPtr &song) { return !predicate->evaluate(*song); });
    m_predicate = std::move(predicate);
    emit valueChanged(QStringLiteral("predicate"));
}

void Playlist::restorePredicate(std::shared_ptr<const SongPredicate> predicate, const QList<SongPtr> &view)
{
    setPredicate(std::move(predicate));
    if (m_predicate) {
        m_view = view;
        m_viewValid = true;
    }
    m_viewIndexes.clear();
}

void Playlist::setSelectedRows(const Rows &rows)
{
    m_selectedRows = rows;
    emit valueChanged(QStringLiteral("selectedRows"));
}

void Playlist::setLocked(bool locked)
{
    m_locked = locked;
    emit valueChanged(QStringLiteral("locked"));
}

const QList<SongPtr> &Playlist::orderInForce() const
{
    if (m_shuffle)
        return m_shuffledOrder;
    if (m_sortKey == QLatin1String("ordinal"))
        return m_manualOrder;
    return m_sortedOrder;
}

QList<SongPtr> Playlist::songs() const
{
    const QList<SongPtr> &order = orderInForce();
    if (!m_predicate)
        return order;
    // Filtered once per change: the menus' validation and the transport ask for the view on
    // every key press, and a search of 100,000 songs must not run each time.
    if (!m_viewValid) {
        m_view.clear();
        if (!filterFolded(order))
            for (const SongPtr &song : order)
                if (m_predicate->evaluate(*song))
                    m_view.append(song);
        m_viewValid = true;
    }
    return m_view;
}

void Playlist::invalidateView() const
{
    m_viewValid = false;
    m_view = {};
    m_viewIndexes.clear();
}

qsizetype Playlist::countOfSongs() const
{
    return m_predicate ? songs().size() : orderInForce().size();
}

SongPtr Playlist::objectInSongsAtIndex(qsizetype index) const
{
    const QList<SongPtr> view = songs();
    return index >= 0 && index < view.size() ? view.at(index) : nullptr;
}

QList<SongPtr> Playlist::songsAtIndexes(const Rows &rows) const
{
    const QList<SongPtr> view = songs();
    QList<SongPtr> out;
    out.reserve(rows.size());
    for (qsizetype row : rows)
        if (row >= 0 && row < view.size())
            out.append(view.at(row));
    return out;
}

qsizetype Playlist::indexOfObjectInSongs(const SongPtr &song) const
{
    if (!song)
        return NotFound;
    const qsizetype i = songs().indexOf(song);
    return i < 0 ? NotFound : i;
}

Playlist::Rows Playlist::indexesOfSongs(const QList<SongPtr> &wanted) const
{
    QSet<const Song *> set;
    for (const SongPtr &s : wanted)
        set.insert(s.get());
    const QList<SongPtr> view = songs();
    Rows rows;
    for (qsizetype i = 0; i < view.size(); ++i)
        if (set.contains(view.at(i).get()))
            rows.append(i);
    return rows;
}

SongPtr Playlist::songPrecedingSong(const SongPtr &song) const
{
    const QList<SongPtr> view = songs();
    const qsizetype i = song ? view.indexOf(song) : -1;
    return i > 0 ? view.at(i - 1) : nullptr;
}

SongPtr Playlist::songFollowingSong(const SongPtr &song) const
{
    const QList<SongPtr> view = songs();
    if (view.isEmpty())
        return nullptr;
    if (!song)
        return view.first();
    const qsizetype i = view.indexOf(song);
    if (i < 0 || i + 1 >= view.size())
        return nullptr;
    return view.at(i + 1);
}

void Playlist::insertSongs(const QList<SongPtr> &songs, const Rows &indexes)
{
    invalidateView();
    m_ranks.clear();
    dropSearchTexts();
    m_sortedIndexes.clear();
    const qsizetype n = std::min(songs.size(), indexes.size());
    for (qsizetype i = 0; i < n; ++i) {
        const qsizetype at = std::clamp<qsizetype>(indexes.at(i), 0, m_manualOrder.size());
        m_manualOrder.insert(at, songs.at(i));
    }
    touch();
    updateSortedOrder();
    updateShuffledOrderWithCurrentSong(nullptr);

    Database *db = Database::shared();
    if (db && !db->isLoading()) {
        // A snapshot of the order: the writer must never see it in the middle of a change.
        QList<qint64> ids;
        ids.reserve(m_manualOrder.size());
        for (const SongPtr &s : std::as_const(m_manualOrder))
            ids.append(s->songID());
        const qint64 playlistID = m_playlistID;
        db->writeAsync([playlistID, ids](VEKDatabase &conn, VEKError *error) {
            VEKDatabaseTransaction tx(&conn, error);
            auto del = conn.queryWithStatement(
                QStringLiteral("DELETE FROM t_playlistSong WHERE playlistID = ?"), error);
            if (!tx.isActive() || !del || !del->setIntValue(playlistID, 0, error)
                || !del->execute(error))
                return false;
            auto ins = conn.queryWithStatement(
                QStringLiteral("INSERT INTO t_playlistSong (songID, playlistID, ordinal) "
                               "VALUES (?, ?, ?);"),
                error);
            if (!ins)
                return false;
            for (qsizetype i = 0; i < ids.size(); ++i) {
                ins->reset();
                if (!ins->setIntValue(ids.at(i), 0, error)
                    || !ins->setIntValue(playlistID, 1, error) || !ins->setIntValue(i, 2, error)
                    || !ins->execute(error))
                    return false;
            }
            return tx.commit(error);
        });
    }
    emit valueChanged(QStringLiteral("songs"));
}

void Playlist::setSongsWithoutStoring(const QList<SongPtr> &songs)
{
    invalidateView();
    m_ranks.clear();
    dropSearchTexts();
    m_sortedIndexes.clear();
    m_manualOrder = songs;
    touch();
    updateSortedOrder();
    updateShuffledOrderWithCurrentSong(nullptr);
    emit valueChanged(QStringLiteral("songs"));
}

void Playlist::appendSongs(const QList<SongPtr> &songs)
{
    Rows indexes;
    indexes.reserve(songs.size());
    for (qsizetype i = 0; i < songs.size(); ++i)
        indexes.append(m_manualOrder.size() + i);
    insertSongs(songs, indexes);
}

void Playlist::removeSongsAtIndexes(const Rows &rows)
{
    removeSongs(songsAtIndexes(rows));
}

void Playlist::removeSongs(const QList<SongPtr> &removed)
{
    invalidateView();
    if (removed.isEmpty())
        return;
    QSet<const Song *> set;
    for (const SongPtr &s : removed)
        set.insert(s.get());
    const auto drop = [&set](QList<SongPtr> &list) {
        list.removeIf([&set](const SongPtr &s) { return set.contains(s.get()); });
    };
    drop(m_manualOrder);
    m_ranks.clear();
    dropSearchTexts();
    drop(m_sortedOrder);
    m_sortedIndexes.clear();
    drop(m_shuffledOrder);
    touch();

    if (Database *db = Database::shared()) {
        QList<qint64> ids;
        for (const SongPtr &s : removed)
            ids.append(s->songID());
        const qint64 playlistID = m_playlistID;
        // One statement for the whole batch: deleting song by song walks the playlist's rows
        // once per song, which for 10,000 songs of a long playlist keeps the writer busy for
        // minutes.
        QByteArray list = "[";
        for (qint64 id : std::as_const(ids)) {
            if (list.size() > 1)
                list += ',';
            list += QByteArray::number(id);
        }
        list += ']';
        db->writeAsync([playlistID, list = QString::fromLatin1(list)](VEKDatabase &conn, VEKError *error) {
            VEKDatabaseTransaction tx(&conn, error);
            auto del = conn.queryWithStatement(
                QStringLiteral("DELETE FROM t_playlistSong WHERE playlistID = ? AND songID IN "
                               "(SELECT value FROM json_each(?))"),
                error);
            if (!tx.isActive() || !del)
                return false;
            if (!del->setIntValue(playlistID, 0, error) || !del->setStringValue(list, 1, error)
                || !del->execute(error))
                return false;
            return tx.commit(error);
        });
    }
    emit valueChanged(QStringLiteral("songs"));
}

void Playlist::updateRow()
{
    Database *db = Database::shared();
    if (!db || db->isLoading())
        return;
    VEKError error;
    auto query = db->queryWithStatement(
        QStringLiteral("UPDATE t_playlist SET shuffle = ?, repeatMode = ?, sortKey = ?, "
                       "sortAscending = ? WHERE playlistID = ?"),
        &error);
    // An absent key is stored as the text '(null)', which the load reads back as absent.
    if (query && query->setIntValue(m_shuffle ? 1 : 0, 0, &error)
        && query->setIntValue(qint64(m_repeatMode), 1, &error)
        && query->setStringValue(m_sortKey.isNull() ? QStringLiteral("(null)") : m_sortKey, 2,
                                 &error)
        && query->setIntValue(m_sortAscending ? 1 : 0, 3, &error)
        && query->setIntValue(m_playlistID, 4, &error))
        query->execute(&error);
    error.alert();
}

void Playlist::finishLoading()
{
    invalidateView();
    if (m_sortDue)
        updateSortedOrder();
}

void Playlist::updateSortedOrder()
{
    invalidateView();
    if (m_sortKey == QLatin1String("ordinal"))
        return;
    Database *db = Database::shared();
    m_sortDue = db && db->isLoading();
    if (m_sortDue)
        return;
    const QList<SortDescriptor> descriptors =
        SortDescriptor::descriptorsForSortKey(m_sortKey, m_sortAscending);
    const qsizetype n = m_manualOrder.size();
    if (descriptors.isEmpty() || n == 0) {
        m_sortedOrder = m_manualOrder;
        m_sortedIndexes.clear();
        return;
    }
    const qsizetype levels = descriptors.size();

    // A column of keys per descriptor, each from 0 to its largest and ascending as the level
    // compares: a rank turned round for a descending level, an empty text last either way.
    std::vector<std::vector<quint64>> columns(static_cast<size_t>(levels));
    std::vector<quint64> largest(size_t(levels), 0);
    for (qsizetype d = 0; d < levels; ++d) {
        const SortDescriptor &descriptor = descriptors.at(d);
        const bool ascending = descriptor.ascending();
        std::vector<quint64> &column = columns[size_t(d)];
        column.resize(size_t(n));
        if (descriptor.comparesNumber()) {
            quint64 low = std::numeric_limits<quint64>::max(), high = 0;
            for (qsizetype i = 0; i < n; ++i) {
                column[size_t(i)] = descriptor.number(*m_manualOrder.at(i));
                low = std::min(low, column[size_t(i)]);
                high = std::max(high, column[size_t(i)]);
            }
            for (quint64 &x : column)
                x = ascending ? x - low : high - x;
            largest[size_t(d)] = n > 0 ? high - low : 0;
            continue;
        }
        const std::vector<int> &r = ranksFor(descriptor);
        const quint64 count = quint64(*std::max_element(r.begin(), r.end())) + 1;
        for (qsizetype i = 0; i < n; ++i) {
            const int rank = r[size_t(i)];
            column[size_t(i)] = rank < 0 ? count : (ascending ? quint64(rank) : count - 1 - quint64(rank));
        }
        largest[size_t(d)] = count;
    }

    std::vector<quint32> indexes(static_cast<size_t>(n));
    int bits = 0;
    for (const quint64 most : largest)
        bits += most == 0 ? 0 : 64 - qCountLeadingZeroBits(most);
    if (bits <= 64) {
        // The levels fit one number per song (ranks of 100,000 texts take 17 bits): sort those,
        // the user's order breaking ties.
        std::vector<std::pair<quint64, quint32>> packed(static_cast<size_t>(n));
        for (qsizetype i = 0; i < n; ++i) {
            quint64 key = 0;
            for (qsizetype d = 0; d < levels; ++d) {
                const quint64 most = largest[size_t(d)];
                const int width = most == 0 ? 0 : 64 - qCountLeadingZeroBits(most);
                key = width == 64 ? columns[size_t(d)][size_t(i)]
                                  : (key << width) | columns[size_t(d)][size_t(i)];
            }
            packed[size_t(i)] = {key, quint32(i)};
        }
        std::sort(packed.begin(), packed.end());
        for (qsizetype i = 0; i < n; ++i)
            indexes[size_t(i)] = packed[size_t(i)].second;
    } else {
        for (qsizetype i = 0; i < n; ++i)
            indexes[size_t(i)] = quint32(i);
        std::sort(indexes.begin(), indexes.end(), [&columns](quint32 a, quint32 b) {
            for (const std::vector<quint64> &column : columns)
                if (column[a] != column[b])
                    return column[a] < column[b];
            return a < b;
        });
    }
    QList<SongPtr> sorted;
    sorted.reserve(n);
    for (const quint32 i : indexes)
        sorted.append(m_manualOrder.at(i));
    m_sortedOrder = std::move(sorted);
    m_sortedIndexes = std::move(indexes);
}

const std::vector<int> &Playlist::ranksFor(const SortDescriptor &descriptor) const
{
    const QString key = descriptor.rankKey();
    for (const FieldRanks &kept : m_ranks)
        if (kept.key == key)
            return kept.ranks;
    m_ranks.push_back({key, descriptor.ranks(m_manualOrder)});
    return m_ranks.back().ranks;
}

void Playlist::songFieldsDidChange() const
{
    invalidateView();
    m_ranks.clear();
    dropSearchTexts();
}

namespace {
// Shorter lists are searched song by song at no cost worth keeping texts for.
constexpr qsizetype kFoldedMinimum = 5000;
// Songs folded per step while idle: a few milliseconds.
constexpr qsizetype kFoldedStep = 4000;
}

void Playlist::dropSearchTexts() const
{
    m_foldedTexts = std::string();
    m_foldedStarts = std::vector<quint32>();
}

void Playlist::foldMoreTexts(qsizetype count) const
{
    const qsizetype n = m_manualOrder.size();
    if (m_foldedStarts.empty()) {
        m_foldedStarts.reserve(size_t(n) + 1);
        m_foldedStarts.push_back(0);
    }
    const qsizetype first = qsizetype(m_foldedStarts.size()) - 1;
    const qsizetype end = std::min(n, first + count);
    for (qsizetype i = first; i < end; ++i) {
        SongPredicate::appendFoldedTexts(*m_manualOrder.at(i), m_foldedTexts);
        // Room for the rest at the rate so far, rather than doubling past it.
        if (i == first && first == 0)
            m_foldedTexts.reserve(m_foldedTexts.size() * size_t(n) * 11 / 10 + 64);
        m_foldedStarts.push_back(quint32(m_foldedTexts.size()));
    }
}

void Playlist::prepareSearch()
{
    if (m_folding || m_manualOrder.size() < kFoldedMinimum
        || m_foldedStarts.size() == size_t(m_manualOrder.size()) + 1)
        return;
    m_folding = true;
    QTimer::singleShot(0, this, [this] {
        m_folding = false;
        foldMoreTexts(kFoldedStep);
        prepareSearch();
    });
}

bool Playlist::filterFolded(const QList<SongPtr> &order) const
{
    const qsizetype n = m_manualOrder.size();
    if (n < kFoldedMinimum || m_shuffle || order.size() != n || !m_predicate->evaluatesFoldedTexts())
        return false;
    const bool manual = &order == &m_manualOrder;
    if (!manual && m_sortedIndexes.size() != size_t(n)) {
        // Found anew after songs went from the sorted order without a sort.
        QHash<const Song *, quint32> at;
        at.reserve(n);
        for (qsizetype i = 0; i < n; ++i)
            at.insert(m_manualOrder.at(i).get(), quint32(i));
        std::vector<quint32> indexes;
        indexes.reserve(size_t(n));
        for (const SongPtr &song : order) {
            const auto it = at.constFind(song.get());
            if (it == at.cend())
                return false;
            indexes.push_back(*it);
        }
        m_sortedIndexes = std::move(indexes);
    }
    foldMoreTexts(n);
    // The songs in the user's order, where their texts lie one after another; then the view.
    std::vector<char> hit(static_cast<size_t>(n));
    const std::string_view texts = m_foldedTexts;
    for (qsizetype i = 0; i < n; ++i)
        hit[size_t(i)] = m_predicate->evaluateFolded(texts.substr(
            m_foldedStarts[size_t(i)], m_foldedStarts[size_t(i) + 1] - m_foldedStarts[size_t(i)]));
    m_viewIndexes.clear();
    if (std::all_of(hit.begin(), hit.end(), [](char h) { return h != 0; })) {
        // Every song: the list as it is, without a copy of each song's handle.
        m_view = order;
        if (manual)
            for (qsizetype i = 0; i < n; ++i)
                m_viewIndexes.push_back(quint32(i));
        else
            m_viewIndexes = m_sortedIndexes;
        return true;
    }
    for (qsizetype position = 0; position < n; ++position) {
        const quint32 index = manual ? quint32(position) : m_sortedIndexes[size_t(position)];
        if (hit[index]) {
            m_view.append(order.at(position));
            m_viewIndexes.push_back(index);
        }
    }
    return true;
}

namespace {
// Counts of the songs not yet dealt, so the k-th remaining one is found in O(log n) instead of
// removing it from the middle of an array (quadratic on a large library).
class RemainingSet {
public:
    explicit RemainingSet(qsizetype n) : m_tree(size_t(n) + 1, 0)
    {
        for (qsizetype i = 1; i <= n; ++i) {
            m_tree[size_t(i)] += 1;
            const qsizetype parent = i + (i & -i);
            if (parent <= n)
                m_tree[size_t(parent)] += m_tree[size_t(i)];
        }
        m_top = 1;
        while (m_top * 2 <= n)
            m_top *= 2;
    }
    // Position of the k-th remaining element, counting from 0; removes it.
    qsizetype take(qsizetype k)
    {
        qsizetype pos = 0;
        qsizetype rest = k + 1;
        for (qsizetype step = m_top; step > 0; step /= 2) {
            const qsizetype next = pos + step;
            if (next < qsizetype(m_tree.size()) && m_tree[size_t(next)] < rest) {
                pos = next;
                rest -= m_tree[size_t(next)];
            }
        }
        for (qsizetype i = pos + 1; i < qsizetype(m_tree.size()); i += i & -i)
            m_tree[size_t(i)] -= 1;
        return pos;
    }

private:
    std::vector<qsizetype> m_tree;
    qsizetype m_top = 1;
};
}

QList<SongPtr> Playlist::shuffledOrder(QList<SongPtr> source, const SongPtr &current)
{
    QList<SongPtr> out;
    out.reserve(source.size());
    if (current) {
        const qsizetype i = source.indexOf(current);
        if (i >= 0) {
            out.append(current);
            source.removeAt(i);
        }
    }
    RemainingSet remaining(source.size());
    for (qsizetype count = source.size(); count > 0; --count) {
        // Selection by rounding, in single precision: the ends of the list get half the weight
        // of the others. Kept exactly so that a seed deals the same order as it always has.
        const float x = float(::random()) * 4.656613e-10f;
        const float y = x * float(count - 1);
        const qsizetype index = std::clamp<qsizetype>(qsizetype(std::roundf(y)), 0, count - 1);
        out.append(source.at(remaining.take(index)));
    }
    return out;
}

void Playlist::updateShuffledOrderWithCurrentSong(const SongPtr &currentSong)
{
    invalidateView();
    m_shuffledOrder = shuffledOrder(m_manualOrder, currentSong);
}
