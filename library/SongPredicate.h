#pragma once

#include "Song.h"

#include <QList>
#include <QString>
#include <string>
#include <string_view>

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
        QByteArray value8; // the folded value in UTF-8, for folded texts (contains)
    };
    using Group = QList<Clause>;

    SongPredicate() = default;
    void addGroup(Group group);
    static Clause contains(const QString &key, const QString &text);
    static Clause equals(const QString &key, const QString &text);

    bool evaluate(const Song &song) const;

    // A song's searched text fields folded once, for a list searched key after key: each field
    // folded (foldCaseAndDiacritics) in UTF-8 and ended by a zero byte, in a fixed order.
    static void appendFoldedTexts(const Song &song, std::string &out);
    // Whether evaluateFolded answers as evaluate does: every clause looks for a text without a
    // zero or a surrogate in one of those fields.
    bool evaluatesFoldedTexts() const;
    bool evaluateFolded(std::string_view texts) const;
    bool isEmpty() const { return m_groups.isEmpty(); }
    const QList<Group> &groups() const { return m_groups; }

    // The library search: the text is trimmed and split at blanks into words; every word must
    // be found within one and the same field. Scope 0 searches album artist, genre, kind, name,
    // artist, album and composer; 1 the name; 2 the artist; 3 the album; 4 the composer.
    // An empty search gives an empty predicate (no filter).
    static SongPredicate forSearch(const QString &text, int scope);

private:
    QList<Group> m_groups;
    // The groups by the words they look for (the search's groups all look for the same words,
    // each in its own field): the words, then each group's field for each word.
    struct WordSet {
        QList<QByteArray> words;
        QList<QList<int>> fields;
    };
    QList<WordSet> m_wordSets;
};
