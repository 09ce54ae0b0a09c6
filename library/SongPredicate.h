#pragma once

#include "Song.h"

#include <QList>
#include <QString>

// A filter on songs: groups of clauses joined by OR, the clauses of a group joined by AND.
// Clauses name Song fields by their field names. "contains" ignores case and diacritics;
// "equals" is exact.
class SongPredicate {
public:
    enum class Operator { Contains, Equals };
    struct Clause {
        QString key;
        Operator op = Operator::Contains;
        QString value; // folded for Contains
        int field = -1; // the text field `key` names, looked up once (contains, equals)
    };
    using Group = QList<Clause>;

    SongPredicate() = default;
    void addGroup(Group group) { m_groups.append(std::move(group)); }
    static Clause contains(const QString &key, const QString &text);
    static Clause equals(const QString &key, const QString &text);

    bool evaluate(const Song &song) const;
    bool isEmpty() const { return m_groups.isEmpty(); }
    const QList<Group> &groups() const { return m_groups; }

    // The library search: the text is trimmed and split at blanks into words; every word must
    // be found within one and the same field. Scope 0 searches album artist, genre, kind, name,
    // artist, album and composer; 1 the name; 2 the artist; 3 the album; 4 the composer.
    // An empty search gives an empty predicate (no filter).
    static SongPredicate forSearch(const QString &text, int scope);

private:
    QList<Group> m_groups;
};
