#pragma once

#include "Song.h"

#include <QList>
#include <QString>

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

    // Sortable descriptors compare one text field; a sort of many songs ranks the distinct texts
    // once and then compares ranks (see Playlist::updateSortedOrder).
    bool comparesSortableText() const { return m_comparison == Comparison::Sortable; }
    const QString &sortableText(const Song &song) const;
    // The order of two non-empty sortable texts, ascending.
    static int compareSortableTexts(const QString &x, const QString &y);
    // Descriptors of any other field compare the field's value (valueForKey); a sort of many
    // songs reads each song's value once and compares those (compareValues, ascending).
    bool comparesFieldValues() const { return m_field == Field::Other; }
    static int compareValues(const QVariant &a, const QVariant &b);

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
