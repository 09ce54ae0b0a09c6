// The preferences as a screen reader meets them: the real program driven through AT-SPI.

#include "support/frontend/QuietLaunch.h"

#include <gtest/gtest.h>

TEST(PreferencesAccessibility, TheOutputPanesRatePolicyIsSetThroughTheBusAndStored)
{
    ScreenReaderRun().drive(QStringLiteral("preferences/accessibility/preferences_accessibility.py"));
}
