#include "SortDescriptor.h"

#include "text/VEKText.h"

namespace {
template <typename T> int threeWay(const T &a, const T &b) { return a < b ? -1 : (b < a ? 1 : 0); }

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
