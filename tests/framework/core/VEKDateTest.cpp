#include "core/VEKDate.h"

#include <gtest/gtest.h>

TEST(VEKDate, TheLibraryTextFormRoundTripsAppliesOffsetsAndRejectsGarbage)
{
    const QDateTime d(QDate(2012, 3, 4), QTime(12, 34, 56), Qt::UTC);
    EXPECT_EQ(VEKDate::description(d), "2012-03-04 12:34:56 +0000");
    EXPECT_EQ(VEKDate::dateWithString(VEKDate::description(d)), d);
    // Offsets are applied; garbage is rejected.
    const QDateTime utc(QDate(2012, 3, 4), QTime(10, 4, 56), Qt::UTC);
    EXPECT_EQ(VEKDate::dateWithString("2012-03-04 12:34:56 +0230"), utc);
    EXPECT_FALSE(VEKDate::dateWithString("2012-13-04 12:34:56 +0000").isValid());
    EXPECT_FALSE(VEKDate::dateWithString("yesterday").isValid());
    EXPECT_FALSE(VEKDate::dateWithString(QString()).isValid());
}
