#include "SortDescriptor.h"

#include "text/VEKText.h"

#include <QDateTime>
#include <QHash>
#include <algorithm>
#include <cmath>
#include <string>
#include <string_view>

namespace {
template <typename T> int threeWay(const T &a, const T &b) { return a < b ? -1 : (b < a ? 1 : 0); }

// Dense ranks of slots from their ascending order; `same` tells two neighbours in it apart.
template <typename Same>
std::vector<int> denseRanks(const std::vector<int> &order, Same same)
{
    std::vector<int> rankOfSlot(order.size());
    int rank = 0;
    for (size_t k = 0; k < order.size(); ++k) {
        if (k > 0 && !same(order[k - 1], order[k]))
            ++rank;
        rankOfSlot[size_t(order[k])] = rank;
    }
    return rankOfSlot;
}

std::vector<int> identity(size_t n)
{
    std::vector<int> order(n);
    for (size_t k = 0; k < n; ++k)
        order[k] = int(k);
    return order;
}

// Values of one plain type (every length a double, every date valid) rank by that type rather
// than through QVariant at each comparison.
template <typename T>
std::vector<int> ranksOfPlainValues(const std::vector<T> &values)
{
    std::vector<int> order = identity(values.size());
    std::sort(order.begin(), order.end(), [&values](int a, int b) {
        return values[size_t(a)] < values[size_t(b)] || (!(values[size_t(b)] < values[size_t(a)]) && a < b);
    });
    return denseRanks(order, [&values](int a, int b) {
        return !(values[size_t(a)] < values[size_t(b)]) && !(values[size_t(b)] < values[size_t(a)]);
    });
}

int naturalCompare(const QVariant &a, const QVariant &b)
{
    // Absent values order first, as a nil compares low.
    if (!a.isValid() || !b.isValid())
        return threeWay(a.isValid(), b.isValid());
    switch (a.typeId()) {
    case QMetaType::QString:
        // Read in place: a sort compares each value many times, and a copy costs two atomic counts.
        if (b.typeId() == QMetaType::QString)
            return threeWay(*static_cast<const QString *>(a.constData()),
                            *static_cast<const QString *>(b.constData()));
        return threeWay(a.toString(), b.toString());
    case QMetaType::QDateTime:
        return threeWay(a.toDateTime(), b.toDateTime());
    case QMetaType::Double:
        return threeWay(a.toDouble(), b.toDouble());
    case QMetaType::Bool:
        return threeWay(a.toBool(), b.toBool());
    case QMetaType::ULongLong:
        return threeWay(a.toULongLong(), b.toULongLong());
    default:
        return threeWay(a.toLongLong(), b.toLongLong());
    }
}
}

SortDescriptor::SortDescriptor(QString key, bool ascending, Comparison comparison)
    : m_key(std::move(key)), m_ascending(ascending), m_comparison(comparison)
{
    if (m_key == QLatin1String("artist_sortable"))
        m_field = Field::ArtistSortable;
    else if (m_key == QLatin1String("album_sortable"))
        m_field = Field::AlbumSortable;
    else if (m_key == QLatin1String("disc_sortable"))
        m_field = Field::DiscSortable;
    else if (m_key == QLatin1String("track_sortable"))
        m_field = Field::TrackSortable;
    else if (m_key == QLatin1String("name"))
        m_field = Field::Name;
    else if (m_key == QLatin1String("kind"))
        m_field = Field::Kind;
    else
        m_field = Field::Other;
}

int SortDescriptor::compare(const Song &a, const Song &b) const
{
    const int sign = m_ascending ? 1 : -1;
    switch (m_field) {
    case Field::DiscSortable:
        return sign * threeWay(a.disc_sortable(), b.disc_sortable());
    case Field::TrackSortable:
        return sign * threeWay(a.track_sortable(), b.track_sortable());
    case Field::ArtistSortable:
    case Field::AlbumSortable:
    case Field::Name:
    case Field::Kind:
        break;
    case Field::Other:
        return sign * naturalCompare(a.valueForKey(m_key), b.valueForKey(m_key));
    }
    const QString &x = m_field == Field::ArtistSortable ? a.artist_sortable()
                       : m_field == Field::AlbumSortable ? a.album_sortable()
                       : m_field == Field::Name          ? a.name()
                                                         : a.kind();
    const QString &y = m_field == Field::ArtistSortable ? b.artist_sortable()
                       : m_field == Field::AlbumSortable ? b.album_sortable()
                       : m_field == Field::Name          ? b.name()
                                                         : b.kind();
    if (m_comparison == Comparison::Sortable) {
        // Songs without a value come last whichever way the sort runs.
        const bool xe = x.isEmpty(), ye = y.isEmpty();
        if (xe && ye)
            return 0;
        if (xe)
            return 1;
        if (ye)
            return -1;
        return sign * VEKText::localizedCaseInsensitiveCompare(x, y);
    }
    if (m_comparison == Comparison::NumericText)
        return sign * VEKText::caseInsensitiveNumericCompare(x, y);
    return sign * threeWay(x, y);
}

int SortDescriptor::compareValues(const QVariant &a, const QVariant &b)
{
    return naturalCompare(a, b);
}

std::vector<int> SortDescriptor::ranks(const QList<SongPtr> &songs) const
{
    const qsizetype n = songs.size();
    std::vector<int> r(static_cast<size_t>(n));
    if (ranksText()) {
        // Each text with a key (nearly all) is an item of its own, ordered by its key: sorting
        // the keys costs less than finding the repeats first. Texts without a key, which only
        // the collator orders, are items once per distinct text, so it is asked once for each.
        const bool emptyLast = emptyTextLast();
        const bool numeric = comparesNumericText();
        QHash<QString, int> slot;
        std::vector<const QString *> text;
        std::vector<char> plain, keyed;
        // The keys one after another in one buffer.
        std::string pool, scratch;
        std::vector<quint32> keyStart;
        text.reserve(size_t(n));
        keyStart.reserve(size_t(n) + 1);
        for (qsizetype i = 0; i < n; ++i) {
            const QString &each = sortableText(*songs.at(i));
            if (emptyLast && each.isEmpty()) {
                r[size_t(i)] = -1;
                continue;
            }
            const bool hasKey = VEKText::plainOrderKey(each, numeric, &scratch);
            if (!hasKey) {
                const auto it = slot.constFind(each);
                if (it != slot.cend()) {
                    r[size_t(i)] = it.value();
                    continue;
                }
                slot.insert(each, int(text.size()));
            }
            r[size_t(i)] = int(text.size());
            text.push_back(&each);
            plain.push_back(hasKey && VEKText::comparesPlainly(each));
            keyed.push_back(hasKey);
            keyStart.push_back(quint32(pool.size()));
            if (hasKey)
                pool += scratch;
        }
        keyStart.push_back(quint32(pool.size()));
        const auto key = [&](int a) {
            return std::string_view(pool.data() + keyStart[size_t(a)],
                                    keyStart[size_t(a) + 1] - keyStart[size_t(a)]);
        };
        // Keys that differ order their texts; tied keys of texts that are not both plain leave
        // it to the comparison, unless the texts are the same.
        const auto compare = [&](int a, int b) {
            const bool bothPlain = plain[size_t(a)] && plain[size_t(b)];
            if (keyed[size_t(a)] && keyed[size_t(b)]) {
                const int c = key(a).compare(key(b));
                if (c != 0 || bothPlain || *text[size_t(a)] == *text[size_t(b)])
                    return c;
            }
            return compareTexts(*text[size_t(a)], *text[size_t(b)], bothPlain);
        };
        std::vector<int> order;
        if (std::all_of(keyed.begin(), keyed.end(), [](char k) { return k != 0; })) {
            // The keys' first 16 bytes beside each item settle most comparisons without
            // reaching into the buffer; keys begin with no byte below those of a longer key.
            struct Item {
                quint64 high, low;
                int item;
            };
            std::vector<Item> items(text.size());
            for (size_t k = 0; k < items.size(); ++k) {
                const std::string_view bytes = key(int(k));
                quint64 part[2] = {0, 0};
                for (size_t b = 0; b < 16 && b < bytes.size(); ++b)
                    part[b / 8] |= quint64(quint8(bytes[b])) << (56 - 8 * (b % 8));
                items[k] = {part[0], part[1], int(k)};
            }
            std::sort(items.begin(), items.end(), [&compare](const Item &x, const Item &y) {
                if (x.high != y.high)
                    return x.high < y.high;
                if (x.low != y.low)
                    return x.low < y.low;
                return compare(x.item, y.item) < 0;
            });
            order.reserve(items.size());
            for (const Item &each : items)
                order.push_back(each.item);
        } else {
            order = identity(text.size());
            std::sort(order.begin(), order.end(), [&compare](int a, int b) { return compare(a, b) < 0; });
        }
        const std::vector<int> rankOfItem =
            denseRanks(order, [&compare](int a, int b) { return compare(a, b) == 0; });
        for (int &value : r)
            if (value >= 0)
                value = rankOfItem[size_t(value)];
        return r;
    }
    if (!comparesFieldValues()) {
        // Any other pairing of a field and a comparison: the songs compared as they are.
        const SortDescriptor up(m_key, true, m_comparison);
        const auto compare = [&](int a, int b) { return up.compare(*songs.at(a), *songs.at(b)); };
        std::vector<int> order = identity(size_t(n));
        std::stable_sort(order.begin(), order.end(), [&compare](int a, int b) { return compare(a, b) < 0; });
        return denseRanks(order, [&compare](int a, int b) { return compare(a, b) == 0; });
    }

    // Other fields (a length, a date) are read once per song rather than twice per comparison.
    std::vector<QVariant> v;
    v.reserve(size_t(n));
    const int field = Song::fieldOfKey(m_key);
    for (qsizetype i = 0; i < n; ++i)
        v.push_back(songs.at(i)->valueOfField(field));
    const auto all = [&v](int type) {
        return std::all_of(v.begin(), v.end(), [type](const QVariant &x) { return x.typeId() == type; });
    };
    if (n > 0 && all(QMetaType::Double)) {
        std::vector<double> values;
        values.reserve(size_t(n));
        for (const QVariant &x : v)
            values.push_back(*static_cast<const double *>(x.constData()));
        if (std::none_of(values.begin(), values.end(), [](double x) { return std::isnan(x); }))
            return ranksOfPlainValues(values);
    }
    if (n > 0 && all(QMetaType::QDateTime)) {
        // Valid dates (an absent one is no date at all) order as their instants do.
        std::vector<qint64> values;
        values.reserve(size_t(n));
        for (const QVariant &x : v) {
            const auto *date = static_cast<const QDateTime *>(x.constData());
            if (!date->isValid())
                break;
            values.push_back(date->toMSecsSinceEpoch());
        }
        if (qsizetype(values.size()) == n)
            return ranksOfPlainValues(values);
    }
    if (n > 0 && all(QMetaType::ULongLong)) {
        std::vector<quint64> values;
        values.reserve(size_t(n));
        for (const QVariant &x : v)
            values.push_back(*static_cast<const quint64 *>(x.constData()));
        return ranksOfPlainValues(values);
    }
    if (all(QMetaType::QString)) {
        // A text field (a genre) repeats like an artist: rank its distinct texts once, by their
        // code units as the values compare.
        QHash<QString, int> slot;
        QList<QString> distinct;
        for (qsizetype i = 0; i < n; ++i) {
            const QString &text = *static_cast<const QString *>(v[size_t(i)].constData());
            auto it = slot.constFind(text);
            if (it == slot.cend()) {
                it = slot.insert(text, int(distinct.size()));
                distinct.append(text);
            }
            r[size_t(i)] = it.value();
        }
        std::vector<int> order = identity(size_t(distinct.size()));
        std::sort(order.begin(), order.end(),
                  [&distinct](int a, int b) { return distinct.at(a) < distinct.at(b); });
        const std::vector<int> rankOfSlot = denseRanks(order, [](int, int) { return false; });
        for (int &value : r)
            value = rankOfSlot[size_t(value)];
        return r;
    }
    const auto compare = [&v](int a, int b) { return naturalCompare(v[size_t(a)], v[size_t(b)]); };
    std::vector<int> order = identity(size_t(n));
    std::stable_sort(order.begin(), order.end(), [&compare](int a, int b) { return compare(a, b) < 0; });
    return denseRanks(order, [&compare](int a, int b) { return compare(a, b) == 0; });
}

int SortDescriptor::compareTexts(const QString &x, const QString &y, bool bothPlain) const
{
    if (m_comparison == Comparison::Sortable)
        return VEKText::localizedCaseInsensitiveCompare(x, y, bothPlain);
    return VEKText::caseInsensitiveNumericCompare(x, y, bothPlain);
}

const QString &SortDescriptor::sortableText(const Song &song) const
{
    switch (m_field) {
    case Field::ArtistSortable: return song.artist_sortable();
    case Field::AlbumSortable: return song.album_sortable();
    case Field::Kind: return song.kind();
    default: return song.name();
    }
}

QList<SortDescriptor> SortDescriptor::descriptorsForSortKey(const QString &sortKey, bool ascending)
{
    using C = Comparison;
    if (sortKey == QLatin1String("artist"))
        return {{QStringLiteral("artist_sortable"), ascending, C::Sortable},
                {QStringLiteral("album_sortable"), ascending, C::Sortable},
                {QStringLiteral("disc_sortable"), true, C::Natural},
                {QStringLiteral("track_sortable"), true, C::Natural}};
    if (sortKey == QLatin1String("album"))
        return {{QStringLiteral("album_sortable"), ascending, C::Sortable},
                {QStringLiteral("artist_sortable"), ascending, C::Sortable},
                {QStringLiteral("disc_sortable"), true, C::Natural},
                {QStringLiteral("track_sortable"), true, C::Natural}};
    if (sortKey == QLatin1String("name") || sortKey == QLatin1String("kind"))
        return {{sortKey, ascending, C::NumericText}};
    if (sortKey == QLatin1String("track"))
        return {{QStringLiteral("disc_sortable"), ascending, C::Natural},
                {QStringLiteral("track_sortable"), ascending, C::Natural}};
    if (sortKey.isEmpty())
        return {};
    return {{sortKey, ascending, C::Natural}};
}
