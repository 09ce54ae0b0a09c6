#pragma once

#include <QString>
#include <string>

// Text comparisons the library's search and sorts need.
namespace VEKText {

// The form in which case and diacritics no longer count: canonical decomposition, combining
// marks dropped, case folded. "Ünïcode Café" gives "unicode cafe".
QString foldCaseAndDiacritics(const QString &text);

// Substring test that ignores case and diacritics. An empty needle is contained in any text
// that is present; an absent text contains nothing.
bool containsFolded(const QString &text, const QString &needle);

// The same with the needle already folded (the search folds its words once).
bool containsPrefolded(const QString &text, const QString &foldedNeedle);

// Case-insensitive, locale-aware order (the collation of the user's locale at its secondary
// strength, so "a" < "B" < "c" and "é" sorts with "e"). Negative, zero or positive.
int localizedCaseInsensitiveCompare(const QString &a, const QString &b);

// Case-insensitive comparison that orders embedded numbers by value: "Track 9" < "Track 10".
int caseInsensitiveNumericCompare(const QString &a, const QString &b);

// Whether the two comparisons above may order `text` by its code units alone (only letters
// a-z, digits and blanks, under a collation that orders those so). A sort that compares each
// text many times asks this once per text and passes the answer for both texts.
bool comparesPlainly(const QString &text);
int localizedCaseInsensitiveCompare(const QString &a, const QString &b, bool bothPlain);
int caseInsensitiveNumericCompare(const QString &a, const QString &b, bool bothPlain);

// Bytes whose order (as std::string compares them) is the order of the comparisons above, the
// numeric one when `numeric`, so a sort of many texts compares bytes: wholly for texts that
// compare plainly, and at the first level for texts whose other characters are Latin letters
// with marks ("Café" keys as "cafe"): two such keys that differ order their texts, equal ones
// leave it to the comparison. False, with no key, for any other text, when a number in the text
// is too long for one, or under a collation that orders plain texts otherwise.
bool plainOrderKey(const QString &text, bool numeric, std::string *key);

} // namespace VEKText
