// The library window as a screen reader meets it: the real program on an X server and a private
// session bus with the accessibility bus, driven through AT-SPI by Debian's pyatspi.

#include "settings/UserDefaults.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <QRegularExpression>
#include <gtest/gtest.h>

TEST(LibraryAccessibility, AScreenReaderSearchesTheSongsAndPicksAPlaylist)
{
    TestEnvironment::resetUserFolders();
    const QString dir = TestEnvironment::makeTempDir(QStringLiteral("a11y"));
    QStringList songs;
    for (const char *name : {"apple", "banana", "cherry"})
        songs << TestEnvironment::makeSine(dir + QLatin1Char('/') + QLatin1String(name) + QStringLiteral(".flac"), 2.0);
    const QString bin = QStringLiteral(QUIVERA_BIN_DIR);
    const QString cli = bin + QStringLiteral("/quivera-cli");
    QByteArray output;
    ASSERT_EQ(TestEnvironment::run(cli, QStringList{QStringLiteral("import")} + songs, &output), 0) << output.constData();
    // A playlist of the first and the last song, made before the program starts.
    ASSERT_EQ(TestEnvironment::run(cli, {QStringLiteral("songs")}, &output), 0) << output.constData();
    QStringList ids;
    for (const QString &line : QString::fromUtf8(output).split(QLatin1Char('\n'))) {
        const auto m = QRegularExpression(QStringLiteral("^\\s*(-?\\d+)\\s+\\S+\\s+(apple|cherry)$")).match(line);
        if (m.hasMatch())
            ids << m.captured(1);
    }
    ASSERT_EQ(ids.size(), 2) << output.constData();
    ASSERT_EQ(TestEnvironment::run(cli, QStringList{QStringLiteral("playlist"), QStringLiteral("new")} + ids, &output), 0)
        << output.constData();
    const QString playlist = QString::fromUtf8(output).trimmed();
    ASSERT_EQ(TestEnvironment::run(cli, {QStringLiteral("playlist"), QStringLiteral("rename"), playlist, QStringLiteral("Orchard")},
                                   &output),
              0)
        << output.constData();
    {
        UserDefaults settings(QString::fromLocal8Bit(qgetenv("XDG_CONFIG_HOME")) + QStringLiteral("/Quivera/Preferences.plist"));
        settings.setValue(QStringLiteral("outputDevice"), QVariantMap{{QStringLiteral("UID"), QStringLiteral("null")}});
        settings.setValue(QStringLiteral("seenAccessiTunesLibraryQuery"), true);
    }

    const QString run = QStringLiteral(QUIVERA_SOURCE_DIR "/tests/player/accessibility/run_accessibility.sh");
    const QString script = QStringLiteral(QUIVERA_SOURCE_DIR "/tests/librarywindow/accessibility/library_accessibility.py");
    const int rc = TestEnvironment::run(
        QStringLiteral("dbus-run-session"),
        {QStringLiteral("--"), run, bin + QStringLiteral("/quivera"), cli, script, dir + QStringLiteral("/quivera.log")},
        &output, 120000);
    if (rc == 77)
        GTEST_SKIP() << "no accessibility bus: " << output.constData();
    EXPECT_EQ(rc, 0) << output.constData() << "\nthe program's log: "
                     << TestEnvironment::readFile(dir + QStringLiteral("/quivera.log")).constData();
}
