#pragma once

// The front ends' tests launch the program quietly: fresh user folders with the program's
// defaults (for a 1920 by 1080 screen) and the one-time iTunes question answered, neither the
// network service nor the session bus, and the stream on the device that keeps time without a
// sound card. In the test's own process (QuietLaunchTest, QuietWindowedTest), or as the real
// program driven through AT-SPI (ScreenReaderRun). Header only: it needs the front ends, which
// their test binaries link and the shared support library does not.

#include "app/ApplicationDelegate.h"
#include "app/SignalFrontEnd.h"
#include "outputs/VEKAudioDevice.h"
#include "player/PlayerController.h"
#include "player/PlayerWindow.h"
#include "settings/UserDefaults.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"
#include "windowed/WindowedApplication.h"

#include <QTest>
#include <gtest/gtest.h>

#include <memory>

namespace QuietLaunch {

inline UserDefaults &freshSettings()
{
    TestEnvironment::resetUserFolders();
    UserDefaults &d = UserDefaults::standard();
    ApplicationDelegate::registerDefaults(d, QRectF(0, 0, 1920, 1080));
    d.setValue(QStringLiteral("seenAccessiTunesLibraryQuery"), true);
    return d;
}

inline ApplicationDelegate::LaunchOptions options(bool stream = true)
{
    ApplicationDelegate::LaunchOptions options;
    options.stream = stream;
    options.remote = false;
    options.mpris = false;
    if (stream)
        options.outputDevice = VEKAudioDevice::deviceWithUID(QStringLiteral("null"));
    return options;
}

// One file of `seconds` of sine per name (with its extension) in a new folder, imported into
// the library; their paths, once the import is done.
inline QStringList addSongs(ApplicationDelegate &delegate, const QStringList &names, double seconds = 0.1)
{
    const QString dir = TestEnvironment::makeTempDir(QStringLiteral("music"));
    QStringList paths;
    for (const QString &name : names)
        paths << TestEnvironment::makeSine(dir + QLatin1Char('/') + name, seconds);
    delegate.addFilesToLibrary(paths);
    delegate.queue()->waitUntilAllOperationsAreFinished();
    return paths;
}

} // namespace QuietLaunch

// The core launched in the test's process. Its shutdown runs in this destructor, after the
// derived fixture's members (the window controllers) are gone, as the program's order wants.
class QuietLaunchTest : public ::testing::Test {
protected:
    ~QuietLaunchTest() override
    {
        if (delegate)
            delegate->applicationWillTerminate();
    }

    // Ends a running core first: a launch again reads what the last one left in the files.
    void launch(bool stream = true)
    {
        if (delegate)
            delegate->applicationWillTerminate();
        delegate = std::make_unique<ApplicationDelegate>(&frontEnd);
        delegate->applicationWillFinishLaunching(QuietLaunch::options(stream));
    }

    UserDefaults &settings = QuietLaunch::freshSettings();
    SignalFrontEnd frontEnd;
    std::unique_ptr<ApplicationDelegate> delegate;
};

// The whole windowed program, its player window shown and active.
class QuietWindowedTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QuietLaunch::freshSettings();
        app.launch(QuietLaunch::options());
        ASSERT_TRUE(app.playerController());
        player = app.playerController()->window();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(player));
        player->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(player));
    }

    ApplicationDelegate *delegate() const { return app.delegate(); }

    WindowedApplication app;
    QWidget *player = nullptr;
};

// The real program under a screen reader: an X server and a private session bus with the
// accessibility bus, the program on settings written before it starts, and a Python script
// under tests/ that drives it through AT-SPI (Debian's pyatspi).
class ScreenReaderRun {
public:
    ScreenReaderRun() { TestEnvironment::resetUserFolders(); }

    // The command-line program's output; a failure when it does not succeed.
    QString cli(const QStringList &args)
    {
        QByteArray output;
        EXPECT_EQ(TestEnvironment::run(m_cli, args, &output), 0) << output.constData();
        return QString::fromUtf8(output);
    }

    // One file of `seconds` of sine per name, imported by the command-line program.
    void importSongs(const QStringList &names, double seconds)
    {
        QStringList args{QStringLiteral("import")};
        for (const QString &name : names)
            args << TestEnvironment::makeSine(m_dir + QLatin1Char('/') + name + QStringLiteral(".flac"),
                                              seconds);
        cli(args);
    }

    // Runs `script` to its end; skips where the accessibility bus cannot start.
    void drive(const QString &script)
    {
        {
            UserDefaults settings(QString::fromLocal8Bit(qgetenv("XDG_CONFIG_HOME"))
                                  + QStringLiteral("/Quivera/Preferences.plist"));
            settings.setValue(QStringLiteral("outputDevice"),
                              QVariantMap{{QStringLiteral("UID"), QStringLiteral("null")}});
            settings.setValue(QStringLiteral("seenAccessiTunesLibraryQuery"), true);
        }
        const QString tests = QStringLiteral(QUIVERA_SOURCE_DIR "/tests/");
        const QString log = m_dir + QStringLiteral("/quivera.log");
        QByteArray output;
        const int rc = TestEnvironment::run(
            QStringLiteral("dbus-run-session"),
            {QStringLiteral("--"), tests + QStringLiteral("player/accessibility/run_accessibility.sh"),
             QStringLiteral(QUIVERA_BIN_DIR "/quivera"), m_cli, tests + script, log},
            &output, 120000);
        if (rc == 77)
            GTEST_SKIP() << "no accessibility bus: " << output.constData();
        EXPECT_EQ(rc, 0) << output.constData()
                         << "\nthe program's log: " << TestEnvironment::readFile(log).constData()
                         << "\nthe X server's log: "
                         << TestEnvironment::readFile(log + QStringLiteral(".x")).constData();
    }

private:
    const QString m_dir = TestEnvironment::makeTempDir(QStringLiteral("a11y"));
    const QString m_cli = QStringLiteral(QUIVERA_BIN_DIR "/quivera-cli");
};
