#include "SongPredicate.h"

#include "text/VEKText.h"

#include <algorithm>

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
    const QString folded = VEKText::foldCaseAndDiacritics(text);
    return {key, Operator::Contains, folded, textFieldOf(key), folded.toUtf8()};
}

void SongPredicate::appendFoldedTexts(const Song &song, std::string &out)
{
    Clause clause;
    QString other;
    for (clause.field = 0; clause.field < int(std::size(kTextFields)); ++clause.field) {
        const QString &text = textField(song, clause, other);
        bool ascii = true;
        for (const QChar c : text)
            ascii = ascii && c.unicode() < 0x80;
        if (ascii) {
            // Folded ASCII is its lower case, copied without a folded copy in between.
            for (const QChar c : text) {
                const char16_t u = c.unicode();
                out.push_back(char(u >= u'A' && u <= u'Z' ? u + 32 : u));
            }
        } else {
            out += VEKText::foldCaseAndDiacritics(text).toStdString();
        }
        out.push_back('\0');
    }
}

bool SongPredicate::evaluatesFoldedTexts() const
{
    for (const Group &group : m_groups)
        for (const Clause &clause : group) {
            if (clause.op != Operator::Contains || clause.field < 0 || clause.value.isEmpty()
                || clause.value8.contains('\0'))
                return false;
            for (const QChar c : clause.value)
                if (c.isSurrogate())
                    return false;
        }
    return true;
}

void SongPredicate::addGroup(Group group)
{
    QList<QByteArray> words;
    QList<int> fields;
    for (const Clause &clause : std::as_const(group)) {
        words.append(clause.value8);
        fields.append(clause.field);
    }
    if (m_wordSets.isEmpty() || m_wordSets.last().words != words)
        m_wordSets.append({words, {}});
    m_wordSets.last().fields.append(fields);
    m_groups.append(std::move(group));
}

bool SongPredicate::evaluateFolded(std::string_view texts) const
{
    const auto found = [](std::string_view haystack, const QByteArray &needle) {
        return haystack.find(std::string_view(needle.constData(), size_t(needle.size())))
               != std::string_view::npos;
    };
    std::string_view fields[std::size(kTextFields)];
    bool split = false;
    for (const WordSet &set : m_wordSets) {
        // A word found nowhere in the song is found in none of its fields: one look at the
        // whole, and most songs are done.
        if (set.words.isEmpty()
            || !std::all_of(set.words.begin(), set.words.end(),
                            [&](const QByteArray &word) { return found(texts, word); }))
            continue;
        if (!split) {
            std::string_view rest = texts;
            for (std::string_view &field : fields) {
                const size_t end = rest.find('\0');
                field = rest.substr(0, end);
                rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
            }
            split = true;
        }
        for (const QList<int> &group : set.fields) {
            qsizetype k = 0;
            while (k < group.size() && found(fields[group.at(k)], set.words.at(k)))
                ++k;
            if (k == group.size())
                return true;
        }
    }
    return false;
}

SongPredicate::Clause SongPredicate::equals(const QString &key, const QString &text)
{
    return {key, Operator::Equals, text, textFieldOf(key), {}};
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
