#include "SongPredicate.h"

#include "text/VEKText.h"

namespace {
const char *const kTextFields[] = {"name", "artist", "album", "albumArtist", "composer", "genre", "kind"};

int textFieldOf(const QString &key)
{
    for (int i = 0; i < int(std::size(kTextFields)); ++i)
        if (key == QLatin1String(kTextFields[i]))
            return i;
    return -1;
}

// The fields the search names, by reference: a search of 100,000 songs looks at 700,000 fields
// per key press and must neither compare key names nor copy texts for each.
const QString &textField(const Song &song, const SongPredicate::Clause &clause, QString &other)
{
    switch (clause.field) {
    case 0: return song.name();
    case 1: return song.artist();
    case 2: return song.album();
    case 3: return song.albumArtist();
    case 4: return song.composer();
    case 5: return song.genre();
    case 6: return song.kind();
    default: other = song.valueForKey(clause.key).toString(); return other;
    }
}
} // namespace

SongPredicate::Clause SongPredicate::contains(const QString &key, const QString &text)
{
    return {key, Operator::Contains, VEKText::foldCaseAndDiacritics(text), textFieldOf(key)};
}

SongPredicate::Clause SongPredicate::equals(const QString &key, const QString &text)
{
    return {key, Operator::Equals, text, textFieldOf(key)};
}

bool SongPredicate::evaluate(const Song &song) const
{
    QString other;
    for (const Group &group : m_groups) {
        bool all = true;
        for (const Clause &clause : group) {
            const QString &field = textField(song, clause, other);
            const bool hit = clause.op == Operator::Contains
                                 ? VEKText::containsPrefolded(field, clause.value)
                                 : (!field.isNull() && field == clause.value);
            if (!hit) {
                all = false;
                break;
            }
        }
        if (all && !group.isEmpty())
            return true;
    }
    return false;
}

SongPredicate SongPredicate::forSearch(const QString &text, int scope)
{
    SongPredicate predicate;
    QString trimmed = text;
    // Blanks and tabs only, as the search field trims.
    while (!trimmed.isEmpty() && (trimmed.front() == u' ' || trimmed.front() == u'\t'))
        trimmed.remove(0, 1);
    while (!trimmed.isEmpty() && (trimmed.back() == u' ' || trimmed.back() == u'\t'))
        trimmed.chop(1);
    if (trimmed.isEmpty())
        return predicate;
    const QStringList words = trimmed.split(u' ', Qt::SkipEmptyParts);

    struct Field { const char *key; int scope; };
    static const Field fields[] = {{"albumArtist", 0}, {"genre", 0}, {"kind", 0}, {"name", 1},
                                   {"artist", 2},      {"album", 3}, {"composer", 4}};
    for (const Field &f : fields) {
        if (scope != 0 && scope != f.scope)
            continue;
        Group group;
        for (const QString &word : words)
            group.append(contains(QLatin1String(f.key), word));
        predicate.addGroup(std::move(group));
    }
    return predicate;
}
