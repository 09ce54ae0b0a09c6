// The player window as a screen reader meets it: the real program driven through AT-SPI.

#include "support/frontend/QuietLaunch.h"

#include <gtest/gtest.h>

TEST(PlayerAccessibility, AScreenReaderFindsTheControlsByNamePlaysAndSetsTheVolume)
{
    ScreenReaderRun run;
    run.importSongs({QStringLiteral("song0"), QStringLiteral("song1")}, 30.0);
    run.drive(QStringLiteral("player/accessibility/player_accessibility.py"));
}
