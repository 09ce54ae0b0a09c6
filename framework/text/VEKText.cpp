#include "VEKText.h"

#include <QCollator>
#include <QLocale>

namespace {
bool isAscii(const QString &s)
{
    for (const QChar c : s)
        if (c.unicode() >= 0x80)
            return false;
    return true;
}

// Only a-z, 0-9 and blanks.
bool isPlain(const QString &text)
{
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if (!((u >= u'a' && u <= u'z') || (u >= u'0' && u <= u'9') || u == u' '))
            return false;
    }
    return true;
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

bool VEKText::containsPrefolded(const QString &text, const QString &foldedNeedle)
{
    if (text.isNull())
        return false;
    if (foldedNeedle.isEmpty())
        return true;
    return foldCaseAndDiacritics(text).contains(foldedNeedle);
}

int VEKText::localizedCaseInsensitiveCompare(const QString &a, const QString &b)
{
    // English collation orders such texts (blanks, then digits, then letters) by their code
    // units; other languages may not ("aa" after "z" in Danish), so they always ask the collator.
    thread_local const bool plainOrderHolds = collationLocale().language() == QLocale::English;
    if (plainOrderHolds && isPlain(a) && isPlain(b))
        return a.compare(b);
    return collator().compare(a, b);
}

int VEKText::caseInsensitiveNumericCompare(const QString &a, const QString &b)
{
    return numericCollator().compare(a, b);
}
