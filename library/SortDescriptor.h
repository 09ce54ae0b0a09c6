#pragma once

#include "Song.h"

#include <QList>
#include <QString>
#include <vector>

// One level of a playlist's sort. Three kinds of comparison:
// - Sortable: the locale's case-insensitive order; empty values come last in either direction.
// - NumericText: case-insensitive with numbers by value ("Track 9" before "Track 10").
// - Natural: numbers by value, dates by time, texts by plain comparison.
class SortDescriptor {
public:
    enum class Comparison { Sortable, NumericText, Natural };

    SortDescriptor(QString key, bool ascending, Comparison comparison);

    const QString &key() const { return m_key; }
    bool ascending() const { return m_ascending; }

    // Negative, zero or positive.
    int compare(const Song &a, const Song &b) const;

    // Sortable and NumericText descriptors compare one text field; a sort of many songs ranks
    // the distinct texts once and then compares ranks (see Playlist::updateSortedOrder).
    bool ranksText() const { return m_comparison != Comparison::Natural && m_field != Field::Other; }
    // Sortable texts put empty values last in either direction; other texts order them first.
    bool emptyTextLast() const { return m_comparison == Comparison::Sortable; }
    bool comparesNumericText() const { return m_comparison == Comparison::NumericText; }
    const QString &sortableText(const Song &song) const;
    // The ascending order of two texts of this descriptor (non-empty ones when emptyTextLast),
    // told whether both compare plainly (VEKText::comparesPlainly).
    int compareTexts(const QString &x, const QString &y, bool bothPlain) const;
    // Disc and track descriptors compare a number, read once per song by a sort of many.
    bool comparesNumber() const { return m_field == Field::DiscSortable || m_field == Field::TrackSortable; }
    quint64 number(const Song &song) const
    {
        return m_field == Field::DiscSortable ? song.disc_sortable() : song.track_sortable();
    }
    // Descriptors of any other field compare the field's value (valueForKey); a sort of many
    // songs reads each song's value once and compares those (compareValues, ascending).
    bool comparesFieldValues() const { return m_field == Field::Other; }
    static int compareValues(const QVariant &a, const QVariant &b);

    // The ascending order of `songs` by this descriptor as dense ranks (equal songs, equal
    // ranks), whatever its direction; -1 for an empty text that comes last in either direction.
    // The direction applies to the ranks, so a playlist keeps them for the next sort. Not for
    // numbers (comparesNumber), which are read as they are.
    std::vector<int> ranks(const QList<SongPtr> &songs) const;
    // What the ranks depend on besides the songs: the field and the kind of comparison.
    QString rankKey() const { return m_key + QLatin1Char('/') + QString::number(int(m_comparison)); }

    // The chain of descriptors for a playlist's sort key, most significant first; empty for an
    // empty or absent key.
    static QList<SortDescriptor> descriptorsForSortKey(const QString &sortKey, bool ascending);

private:
    enum class Field { ArtistSortable, AlbumSortable, DiscSortable, TrackSortable, Name, Kind, Other };
    QString m_key;
    bool m_ascending;
    Comparison m_comparison;
    Field m_field;
};
