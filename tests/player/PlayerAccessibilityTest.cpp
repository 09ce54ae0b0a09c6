// The player window as a screen reader meets it: the real program on an X server and a private
// session bus with the accessibility bus, driven through AT-SPI by Debian's pyatspi.

#include "settings/UserDefaults.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

TEST(PlayerAccessibility, AScreenReaderFindsTheControlsByNamePlaysAndSetsTheVolume)
{
    TestEnvironment::resetUserFolders();
    const QString dir = TestEnvironment::makeTempDir(QStringLiteral("a11y"));
    QStringList songs;
    for (int i = 0; i < 2; ++i)
        songs << TestEnvironment::makeSine(dir + QStringLiteral("/song%1.flac").arg(i), 30.0, 44100, 2, {}, 330.0 + 110 * i);
    const QString bin = QStringLiteral(QUIVERA_BIN_DIR);
    QByteArray output;
    ASSERT_EQ(TestEnvironment::run(bin + QStringLiteral("/quivera-cli"), QStringList{QStringLiteral("import")} + songs, &output), 0)
        << output.constData();
    // The device that keeps time without a sound card.
    {
        UserDefaults settings(QString::fromLocal8Bit(qgetenv("XDG_CONFIG_HOME")) + QStringLiteral("/Quivera/Preferences.plist"));
        settings.setValue(QStringLiteral("outputDevice"), QVariantMap{{QStringLiteral("UID"), QStringLiteral("null")}});
        // The one-time question about the iTunes library was answered.
        settings.setValue(QStringLiteral("seenAccessiTunesLibraryQuery"), true);
    }

    const QString here = QStringLiteral(QUIVERA_SOURCE_DIR "/tests/player/accessibility");
    const int rc = TestEnvironment::run(
        QStringLiteral("dbus-run-session"),
        {QStringLiteral("--"), here + QStringLiteral("/run_accessibility.sh"), bin + QStringLiteral("/quivera"),
         bin + QStringLiteral("/quivera-cli"), here + QStringLiteral("/player_accessibility.py"),
         dir + QStringLiteral("/player.log")},
        &output, 120000);
    if (rc == 77)
        GTEST_SKIP() << "no accessibility bus: " << output.constData();
    EXPECT_EQ(rc, 0) << output.constData() << "\nplayer's log: "
                     << TestEnvironment::readFile(dir + QStringLiteral("/player.log")).constData()
                     << "\nthe X server's log: " << TestEnvironment::readFile(dir + QStringLiteral("/player.log.x")).constData();
}
