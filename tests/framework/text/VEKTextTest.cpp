#include "text/VEKText.h"

#include <QCollator>
#include <QLocale>
#include <gtest/gtest.h>

using namespace VEKText;

TEST(VEKTextSearch, IgnoresCaseAndDiacritics)
{
    EXPECT_TRUE(containsFolded(QStringLiteral("Motörhead"), QStringLiteral("MOTOR")));
    EXPECT_TRUE(containsFolded(QStringLiteral("Beyonce"), QStringLiteral("Beyoncé")));
    EXPECT_TRUE(containsFolded(QStringLiteral("Sigur Rós"), QStringLiteral("ros")));
    EXPECT_FALSE(containsFolded(QStringLiteral("Abba"), QStringLiteral("abc")));
}

TEST(VEKTextSearch, AbsentTextMatchesNothingEmptyNeedleMatchesPresentText)
{
    EXPECT_FALSE(containsFolded(QString(), QStringLiteral("a")));
    EXPECT_FALSE(containsFolded(QString(), QString()));
    EXPECT_TRUE(containsFolded(QStringLiteral("x"), QString()));
}

TEST(VEKTextOrder, NumericCompareOrdersNumbersByValue)
{
    EXPECT_LT(caseInsensitiveNumericCompare(QStringLiteral("Track 9"), QStringLiteral("track 10")), 0);
    EXPECT_EQ(caseInsensitiveNumericCompare(QStringLiteral("abc"), QStringLiteral("ABC")), 0);
}

TEST(VEKTextOrder, LocalizedCompareIsCaseInsensitiveAndKeepsAccentedLettersNearTheirBase)
{
    EXPECT_EQ(localizedCaseInsensitiveCompare(QStringLiteral("beatles"), QStringLiteral("Beatles")), 0);
    EXPECT_LT(localizedCaseInsensitiveCompare(QStringLiteral("a"), QStringLiteral("B")), 0);
    EXPECT_LT(localizedCaseInsensitiveCompare(QStringLiteral("élan"), QStringLiteral("fin")), 0);
}

TEST(VEKTextOrder, PlainTextsOrderAsTheCollatorOrdersThem)
{
    // The shortcut for texts of a-z, 0-9 and blanks must agree with the full collation, or a
    // sort would mix two orders.
    const QStringList words = {QStringLiteral("a"), QStringLiteral("a b"), QStringLiteral("ab"), QStringLiteral("a1"),
                               QStringLiteral("1a"), QStringLiteral("10"), QStringLiteral("9"), QStringLiteral("zz top"),
                               QStringLiteral("z"), QStringLiteral(" "), QStringLiteral("b 2"), QStringLiteral("b2"),
                               QStringLiteral("beatles"), QStringLiteral("beatle s")};
    QCollator collator{QLocale(QLocale::English)};
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    for (const QString &x : words)
        for (const QString &y : words) {
            const int fast = localizedCaseInsensitiveCompare(x, y);
            const int full = collator.compare(x, y);
            EXPECT_EQ(fast < 0, full < 0) << x.toStdString() << " vs " << y.toStdString();
            EXPECT_EQ(fast == 0, full == 0) << x.toStdString() << " vs " << y.toStdString();
        }
}
