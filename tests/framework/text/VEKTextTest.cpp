#include "text/VEKFileSizeFormatter.h"
#include "text/VEKText.h"
#include "text/VEKTimeFormatter.h"

#include <QCollator>
#include <QLocale>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

using namespace VEKText;

TEST(VEKTextSearch, IgnoresCaseAndDiacriticsAndAbsentTextMatchesNothing)
{
    EXPECT_TRUE(containsFolded("Motörhead", "MOTOR"));
    EXPECT_TRUE(containsFolded("Beyonce", "Beyoncé"));
    EXPECT_TRUE(containsFolded("Sigur Rós", "ros"));
    EXPECT_FALSE(containsFolded("Abba", "abc"));
    // Plain ASCII is compared in place: the same answers as with a folded copy.
    EXPECT_TRUE(containsFolded("ABBA Gold", "bba g"));
    EXPECT_FALSE(containsFolded("Motorhead", "Motørhead"));
    EXPECT_TRUE(containsFolded("Ünïcode ABBA", "abba"));
    EXPECT_FALSE(containsFolded("Ünïcode ABBA", "abc"));
    // Absent text matches nothing; an empty needle matches any present text.
    EXPECT_FALSE(containsFolded(QString(), "a"));
    EXPECT_FALSE(containsFolded(QString(), QString()));
    EXPECT_TRUE(containsFolded("x", QString()));
    // Latin texts fold character by character without a copy: the same answers as the whole
    // text's fold, for every character, alone and among others.
    for (char16_t u = 0x80; u < 0x300; ++u) {
        const QString text = QStringLiteral("Ab") + QChar(u) + QStringLiteral("\u00e9Z");
        const QString folded = foldCaseAndDiacritics(text);
        EXPECT_TRUE(containsPrefolded(text, folded)) << int(u);
        EXPECT_EQ(containsPrefolded(text, "abez"), folded == QLatin1String("abez")) << int(u);
        EXPECT_EQ(containsPrefolded(text, QStringLiteral("b") + QChar(u)),
                  folded.contains(QStringLiteral("b") + QChar(u)))
            << int(u);
    }
}

TEST(VEKTextOrder, PlainTextsOrderAsTheCollatorOrdersThem)
{
    // The shortcuts for texts of letters, digits and blanks must agree with the full collations,
    // plain and numeric, or a sort would mix two orders; accented letters sort near their base.
    const QStringList words = {"a", "a b", "ab", "a1", "1a", "10", "9", "zz top", "z", " ", "b 2", "b2",
                               "beatles", "beatle s", "Beatles", "B", "Track 9", "track 10", "Track 010",
                               "A 2 b", "a 12 B",
                               // Against texts with other characters, compared plainly up to the first.
                               "Café 2", "cafe 10", "Über", "uber", "a\u0308b", "a-b", "Zoë", "zoe", "b2é",
                               "Ébène 9", "ébène 9", "élan", "fin"};
    QCollator collator{QLocale(QLocale::English)};
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    QCollator numeric{QLocale(QLocale::English)};
    numeric.setCaseSensitivity(Qt::CaseInsensitive);
    numeric.setNumericMode(true);
    for (const QString &x : words)
        for (const QString &y : words) {
            const int fast = localizedCaseInsensitiveCompare(x, y);
            const int full = collator.compare(x, y);
            EXPECT_EQ(fast < 0, full < 0) << x.toStdString() << " vs " << y.toStdString();
            EXPECT_EQ(fast == 0, full == 0) << x.toStdString() << " vs " << y.toStdString();
            const int fastNumeric = caseInsensitiveNumericCompare(x, y);
            const int fullNumeric = numeric.compare(x, y);
            EXPECT_EQ(fastNumeric < 0, fullNumeric < 0)
                << x.toStdString() << " vs " << y.toStdString() << " by number";
            EXPECT_EQ(fastNumeric == 0, fullNumeric == 0)
                << x.toStdString() << " vs " << y.toStdString() << " by number";
            // And the byte keys a sort of many texts compares instead: wholly for plain texts,
            // at the first level for Latin letters with marks.
            std::string kx, ky;
            for (const bool byNumber : {false, true}) {
                const bool both = plainOrderKey(x, byNumber, &kx) && plainOrderKey(y, byNumber, &ky);
                ASSERT_TRUE(both || !comparesPlainly(x) || !comparesPlainly(y)) << x.toStdString();
                if (!both)
                    continue;
                const int keyed = kx.compare(ky), expected = byNumber ? fullNumeric : full;
                if (keyed == 0 && !(comparesPlainly(x) && comparesPlainly(y)))
                    continue;
                EXPECT_EQ(keyed < 0, expected < 0)
                    << x.toStdString() << " vs " << y.toStdString() << " keyed";
                EXPECT_EQ(keyed == 0, expected == 0)
                    << x.toStdString() << " vs " << y.toStdString() << " keyed";
            }
        }
    for (const char *other : {"a-b", "a\u0308b", "ß", "Łódź"}) {
        std::string key;
        EXPECT_FALSE(plainOrderKey(other, false, &key)) << other;
    }
}

TEST(VEKFormatters, DurationsInFormat12)
{
    const VEKTimeFormatter f(VEKTimeFormatter::hoursMinutesSeconds);
    const struct {
        double seconds;
        const char *text;
    } cases[] = {
        {0, "0:00"},         {59.999, "0:59"},      {60, "1:00"},          {599, "9:59"},
        {3599.5, "59:59"},   {3600, "1:00:00"},     {36061, "10:01:01"},   {-0.5, "-0:01"},
        {-65, "-1:05"},      {-3600, "-1:00:00"},   {std::nan(""), "0:00"}, {HUGE_VAL, "0:00"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(f.stringForSeconds(c.seconds), QString::fromLatin1(c.text)) << c.seconds;
    // Position and remaining time of one moment add up to the length shown.
    EXPECT_EQ(f.stringForSeconds(0.4) + " " + f.stringForSeconds(0.4 - 205), "0:00 -3:25");
}

TEST(VEKFormatters, ByteCountsWithThreeSignificantDigits)
{
    const VEKFileSizeFormatter f;
    const struct {
        qint64 bytes;
        const char *text;
    } cases[] = {
        {0, "0 bytes"},           {1, "1 byte"},           {999, "999 bytes"},
        {1000, "1.00 KB"},        {1234, "1.23 KB"},       {12345678, "12.3 MB"},
        {999499, "999 KB"},       {999500, "1.00 MB"},     {123456789012, "123 GB"},
        {-2048, "-2.05 KB"},      {std::numeric_limits<qint64>::max(), "9.22 EB"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(f.stringForByteCount(c.bytes), QString::fromLatin1(c.text)) << c.bytes;
}
