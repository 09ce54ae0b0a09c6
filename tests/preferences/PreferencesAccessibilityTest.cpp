// The preferences as a screen reader meets them: the real program on an X server and a private
// session bus with the accessibility bus, driven through AT-SPI by Debian's pyatspi.

#include "settings/UserDefaults.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

TEST(PreferencesAccessibility, TheOutputPanesRatePolicyIsSetThroughTheBusAndStored)
{
    TestEnvironment::resetUserFolders();
    const QString dir = TestEnvironment::makeTempDir(QStringLiteral("prefs-a11y"));
    {
        UserDefaults settings(QString::fromLocal8Bit(qgetenv("XDG_CONFIG_HOME"))
                              + QStringLiteral("/Quivera/Preferences.plist"));
        // The device that keeps time without a sound card.
        settings.setValue(QStringLiteral("outputDevice"),
                          QVariantMap{{QStringLiteral("UID"), QStringLiteral("null")}});
        settings.setValue(QStringLiteral("seenAccessiTunesLibraryQuery"), true);
    }
    const QString bin = QStringLiteral(QUIVERA_BIN_DIR);
    const QString runner =
        QStringLiteral(QUIVERA_SOURCE_DIR "/tests/player/accessibility/run_accessibility.sh");
    const QString script =
        QStringLiteral(QUIVERA_SOURCE_DIR "/tests/preferences/accessibility/preferences_accessibility.py");
    QByteArray output;
    const int rc = TestEnvironment::run(QStringLiteral("dbus-run-session"),
                                        {QStringLiteral("--"), runner, bin + QStringLiteral("/quivera"),
                                         bin + QStringLiteral("/quivera-cli"), script,
                                         dir + QStringLiteral("/player.log")},
                                        &output, 120000);
    if (rc == 77)
        GTEST_SKIP() << "no accessibility bus: " << output.constData();
    EXPECT_EQ(rc, 0) << output.constData() << "\nplayer's log: "
                     << TestEnvironment::readFile(dir + QStringLiteral("/player.log")).constData();
}
