#include "VEKText.h"

#include <QCollator>
#include <QLocale>
#include <QVarLengthArray>
#include <algorithm>
#include <array>

namespace {
bool isAscii(const QString &s)
{
    for (const QChar c : s)
        if (c.unicode() >= 0x80)
            return false;
    return true;
}

// Only letters a-z in either case, 0-9 and blanks.
bool isPlain(const QString &text)
{
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if (!((u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || (u >= u'0' && u <= u'9') || u == u' '))
            return false;
    }
    return true;
}

char16_t lower(char16_t u)
{
    return u >= u'A' && u <= u'Z' ? char16_t(u + 32) : u;
}
bool isDigit(char16_t u)
{
    return u >= u'0' && u <= u'9';
}

// The numeric collation's order on plain texts: runs of digits by their value, everything else
// by its lower case (blanks before digits before letters, as the collation has them).
int plainNumericCompare(const QString &a, const QString &b)
{
    qsizetype i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        const char16_t x = a.at(i).unicode(), y = b.at(j).unicode();
        if (isDigit(x) && isDigit(y)) {
            qsizetype ei = i, ej = j;
            while (ei < a.size() && isDigit(a.at(ei).unicode()))
                ++ei;
            while (ej < b.size() && isDigit(b.at(ej).unicode()))
                ++ej;
            qsizetype si = i, sj = j;
            while (si + 1 < ei && a.at(si) == u'0')
                ++si;
            while (sj + 1 < ej && b.at(sj) == u'0')
                ++sj;
            if (ei - si != ej - sj)
                return ei - si < ej - sj ? -1 : 1;
            for (; si < ei; ++si, ++sj)
                if (a.at(si) != b.at(sj))
                    return a.at(si).unicode() < b.at(sj).unicode() ? -1 : 1;
            i = ei;
            j = ej;
            continue;
        }
        if (lower(x) != lower(y))
            return lower(x) < lower(y) ? -1 : 1;
        ++i;
        ++j;
    }
    if (i < a.size())
        return 1;
    return j < b.size() ? -1 : 0;
}

bool isPlainCharacter(char16_t u)
{
    return (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || isDigit(u) || u == u' ';
}

// Two texts that are not both plain often differ before either leaves its plain characters
// ("Café Night" and "Love Song" at their first letters): letters, digits and blanks that differ
// there order the two as they order plain texts, whatever follows. 0 when that does not settle
// it, as when either text ends or a number begins first (the numeric order reads it whole).
int plainPrefixOrder(const QString &a, const QString &b, bool numeric)
{
    const qsizetype n = std::min(a.size(), b.size());
    for (qsizetype i = 0; i < n; ++i) {
        const char16_t x = a.at(i).unicode(), y = b.at(i).unicode();
        if (!isPlainCharacter(x) || !isPlainCharacter(y) || (numeric && (isDigit(x) || isDigit(y))))
            return 0;
        if (lower(x) != lower(y))
            return lower(x) < lower(y) ? -1 : 1;
    }
    return 0;
}

QLocale collationLocale()
{
    // The POSIX locale has no collation of its own; fall back to the root order of English.
    const QLocale system = QLocale::system();
    return system.language() == QLocale::C ? QLocale(QLocale::English) : system;
}

QCollator &collator()
{
    // QCollator is not thread-safe; sorting happens on the main thread and on the worker.
    thread_local QCollator c = [] {
        QCollator col(collationLocale());
        col.setCaseSensitivity(Qt::CaseInsensitive);
        return col;
    }();
    return c;
}

QCollator &numericCollator()
{
    thread_local QCollator c = [] {
        QCollator col(collationLocale());
        col.setCaseSensitivity(Qt::CaseInsensitive);
        col.setNumericMode(true);
        return col;
    }();
    return c;
}
}

QString VEKText::foldCaseAndDiacritics(const QString &text)
{
    if (isAscii(text))
        return text.toCaseFolded();
    const QString decomposed = text.normalized(QString::NormalizationForm_D);
    QString out;
    out.reserve(decomposed.size());
    for (const QChar c : decomposed) {
        const auto cat = c.category();
        if (cat == QChar::Mark_NonSpacing || cat == QChar::Mark_SpacingCombining
            || cat == QChar::Mark_Enclosing)
            continue;
        out.append(c);
    }
    return out.toCaseFolded();
}

bool VEKText::containsFolded(const QString &text, const QString &needle)
{
    return containsPrefolded(text, foldCaseAndDiacritics(needle));
}

namespace {
// The folded form of each Latin character (U+0000 to U+024F): one character, none (a mark), or
// kTooLong for a character that folds to more than one. Folding works character by character
// (a decomposition's marks are dropped, so their order never matters), so a text of such
// characters folds without the normalizer's and the case folder's copies.
constexpr char16_t kLatinEnd = 0x250, kNone = 0, kTooLong = 0xFFFF;

const std::array<char16_t, kLatinEnd> &latinFolds()
{
    static const std::array<char16_t, kLatinEnd> table = [] {
        std::array<char16_t, kLatinEnd> t{};
        for (char16_t u = 0; u < kLatinEnd; ++u) {
            const QString folded = VEKText::foldCaseAndDiacritics(QString(QChar(u)));
            t[u] = folded.isEmpty() ? kNone : folded.size() == 1 ? folded.at(0).unicode() : kTooLong;
        }
        return t;
    }();
    return table;
}

// Folds `text` into `out` when every character is in the table; false otherwise.
bool foldLatin(const QString &text, QVarLengthArray<char16_t, 256> &out)
{
    const std::array<char16_t, kLatinEnd> &folds = latinFolds();
    out.reserve(text.size());
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if (u >= kLatinEnd || folds[u] == kTooLong)
            return false;
        if (folds[u] != kNone)
            out.append(folds[u]);
    }
    return true;
}

// Whether `text` holds the ASCII `needle`, letters of either case alike, in one pass that reads
// each character once. A run of ASCII stays whole and keeps its letters in the folded text, so a
// hit here is a hit there; a miss in a text with other characters is -1: the fold may still hit.
int containsAsciiNeedle(const QString &text, const QString &needle)
{
    const char16_t *t = QStringView(text).utf16(), *n = QStringView(needle).utf16();
    const qsizetype size = text.size(), length = needle.size();
    const char16_t first = lower(n[0]);
    bool wide = false;
    for (qsizetype i = 0; i < size; ++i) {
        const char16_t u = t[i];
        if (u >= 0x80) {
            wide = true;
            continue;
        }
        if (lower(u) != first || i + length > size)
            continue;
        qsizetype k = 1;
        while (k < length && lower(t[i + k]) == lower(n[k]))
            ++k;
        if (k == length)
            return 1;
    }
    return wide ? -1 : 0;
}
} // namespace

bool VEKText::containsPrefolded(const QString &text, const QString &foldedNeedle)
{
    if (text.isNull())
        return false;
    if (foldedNeedle.isEmpty())
        return true;
    // Plain ASCII folds to its lower case: compare in place rather than build a folded copy of
    // every field of every song at each search. Folded ASCII never holds a character beyond it.
    if (isAscii(foldedNeedle)) {
        const int found = containsAsciiNeedle(text, foldedNeedle);
        if (found >= 0)
            return found;
    } else if (isAscii(text)) {
        return false;
    }
    QVarLengthArray<char16_t, 256> folded;
    if (foldLatin(text, folded))
        return QStringView(folded.data(), folded.size()).contains(QStringView(foldedNeedle));
    return foldCaseAndDiacritics(text).contains(foldedNeedle);
}

namespace {
bool plainOrderHolds()
{
    // English collation orders such texts (blanks, then digits, then letters) by their code
    // units; other languages may not ("aa" after "z" in Danish), so they always ask the collator.
    thread_local const bool holds = collationLocale().language() == QLocale::English;
    return holds;
}
}

bool VEKText::comparesPlainly(const QString &text)
{
    return plainOrderHolds() && isPlain(text);
}

int VEKText::localizedCaseInsensitiveCompare(const QString &a, const QString &b)
{
    return localizedCaseInsensitiveCompare(a, b, comparesPlainly(a) && comparesPlainly(b));
}

int VEKText::localizedCaseInsensitiveCompare(const QString &a, const QString &b, bool bothPlain)
{
    if (bothPlain)
        return a.compare(b, Qt::CaseInsensitive);
    if (plainOrderHolds())
        if (const int order = plainPrefixOrder(a, b, false))
            return order;
    return collator().compare(a, b);
}

int VEKText::caseInsensitiveNumericCompare(const QString &a, const QString &b)
{
    return caseInsensitiveNumericCompare(a, b, comparesPlainly(a) && comparesPlainly(b));
}

bool VEKText::plainOrderKey(const QString &text, bool numeric, std::string *key)
{
    key->clear();
    // Other languages order even plain texts their own way.
    if (!plainOrderHolds())
        return false;
    key->reserve(size_t(text.size()) + 2);
    const std::array<char16_t, kLatinEnd> &folds = latinFolds();
    for (qsizetype i = 0; i < text.size();) {
        char16_t u = text.at(i).unicode();
        if (!isPlainCharacter(u)) {
            // A Latin letter with marks ("é", "Ü") weighs as its letter at the first level.
            const char16_t letter = u < kLatinEnd ? folds[u] : kTooLong;
            if (letter < u'a' || letter > u'z')
                return false;
            u = letter;
        }
        if (!numeric || !isDigit(u)) {
            key->push_back(char(lower(u)));
            ++i;
            continue;
        }
        // A number: a digit (any digit orders the same against a blank or a letter), its count
        // of digits without leading zeros, then those digits.
        qsizetype end = i;
        while (end < text.size() && isDigit(text.at(end).unicode()))
            ++end;
        while (i + 1 < end && text.at(i) == u'0')
            ++i;
        if (end - i > 120)
            return false;
        key->push_back('0');
        key->push_back(char(end - i));
        for (; i < end; ++i)
            key->push_back(char(text.at(i).unicode()));
    }
    return true;
}

int VEKText::caseInsensitiveNumericCompare(const QString &a, const QString &b, bool bothPlain)
{
    // Song names mostly are plain: a sort of 100,000 of them must not ask the collator
    // 1.7 million times.
    if (bothPlain)
        return plainNumericCompare(a, b);
    if (plainOrderHolds())
        if (const int order = plainPrefixOrder(a, b, true))
            return order;
    return numericCollator().compare(a, b);
}
