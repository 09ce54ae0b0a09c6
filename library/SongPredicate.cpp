#include "SongPredicate.h"

#include "text/VEKText.h"

SongPredicate::Clause SongPredicate::contains(const QString &key, const QString &text)
{
    return {key, Operator::Contains, VEKText::foldCaseAndDiacritics(text)};
}

SongPredicate::Clause SongPredicate::equals(const QString &key, const QString &text)
{
    return {key, Operator::Equals, text};
}

namespace {
QString textField(const Song &song, const QString &key)
{
    // The fields the search names, without going through QVariant.
    if (key == QLatin1String("name")) return song.name();
    if (key == QLatin1String("artist")) return song.artist();
    if (key == QLatin1String("album")) return song.album();
    if (key == QLatin1String("albumArtist")) return song.albumArtist();
    if (key == QLatin1String("composer")) return song.composer();
    if (key == QLatin1String("genre")) return song.genre();
    if (key == QLatin1String("kind")) return song.kind();
    return song.valueForKey(key).toString();
}
}

bool SongPredicate::evaluate(const Song &song) const
{
    for (const Group &group : m_groups) {
        bool all = true;
        for (const Clause &clause : group) {
            const QString field = textField(song, clause.key);
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
