#include "text/VEKText.h"

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
