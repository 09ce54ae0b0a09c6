// Start-up of the windowed player to its window shown, on a library of 100,000 songs, against
// the launch of quivera-cli on the same library (the same core without windows) run side by
// side. Each run is a new process; the time runs from its start to the player window exposed.
// Prints the medians. Run under `xvfb-run -a` to show a real X11 window; otherwise it uses
// Qt's offscreen platform.
//
//   build/bin/bench_player_startup [--songs N] [--runs N]

#include "app/Application.h"
#include "db/VEKDatabaseQuery.h"
#include "library/Database.h"
#include "player/PlayerController.h"
#include "player/PlayerWindow.h"
#include "support/BenchLibrary.h"
#include "windowed/WindowedApplication.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <vector>

namespace {

qint64 monotonicNs()
{
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return qint64(t.tv_sec) * 1000000000 + t.tv_nsec;
}

// The child: the windowed launch as `quivera` runs it, then the moment its window is exposed.
int runChild(int argc, char **argv)
{
    const qint64 entered = monotonicNs();
    QApplication app(argc, argv);
    const qint64 applicationMade = monotonicNs();
    QApplication::setApplicationName(QStringLiteral("Quivera"));
    QGuiApplication::setDesktopFileName(Application::identifier());
    WindowedApplication windowed;
    // An alert would wait for a click that never comes: it goes to standard error instead.
    VEKStderrAlertPresenter alerts;
    VEKAlertPresenter::install(&alerts);
    windowed.launch();
    const qint64 launched = monotonicNs();
    PlayerController *player = windowed.playerController();
    if (!player || !QTest::qWaitForWindowExposed(player->window(), 10000))
        return 1;
    const qint64 shown = monotonicNs();
    std::printf("%lld %lld %lld %lld %lld\n", shown, qlonglong(windowed.delegate()->library().size()),
                entered, applicationMade, launched);
    std::fflush(stdout);
    windowed.terminate();
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc > 1 && qstrcmp(argv[1], "--child") == 0)
        return runChild(argc, argv);

    QCoreApplication app(argc, argv);
    int songs = 100000, runs = 7;
    const QStringList args = app.arguments();
    for (int i = 1; i + 1 < args.size(); ++i) {
        if (args[i] == QLatin1String("--songs"))
            songs = args[i + 1].toInt();
        else if (args[i] == QLatin1String("--runs"))
            runs = args[i + 1].toInt();
    }

    QTemporaryDir home;
    const QString data = home.path() + QStringLiteral("/data"), config = home.path() + QStringLiteral("/config"),
                  runtime = home.path() + QStringLiteral("/run");
    QDir().mkpath(data + QStringLiteral("/Quivera"));
    QDir().mkpath(config + QStringLiteral("/Quivera"));
    QDir().mkpath(runtime);
    QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    std::printf("making a library of %d songs...\n", songs);
    BenchLibrary::make(data + QStringLiteral("/Quivera/Quivera Library"), songs);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_DATA_HOME"), data);
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), config);
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
    env.insert(QStringLiteral("QUIVERA_REMOTE_PORT"), QStringLiteral("0"));
    env.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
    if (!env.contains(QStringLiteral("DISPLAY")) && !env.contains(QStringLiteral("QT_QPA_PLATFORM")))
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    const QString platform = env.value(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));

    const QString cliPath = QCoreApplication::applicationDirPath() + QStringLiteral("/quivera-cli");
    // A user who answered the iTunes question, on no sound card.
    for (const QStringList &setting : {QStringList{QStringLiteral("seenAccessiTunesLibraryQuery"), QStringLiteral("true")},
                                       QStringList{QStringLiteral("outputDevice"), QStringLiteral(R"({"UID": "null"})")}}) {
        QProcess set;
        set.setProcessEnvironment(env);
        set.start(cliPath, QStringList{QStringLiteral("settings"), QStringLiteral("set")} + setting);
        set.waitForFinished(60000);
    }

    std::vector<double> windowed, cli;
    for (int run = 0; run < runs; ++run) {
        QProcess child;
        child.setProcessEnvironment(env);
        const qint64 started = monotonicNs();
        child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--child")});
        if (!child.waitForFinished(60000) || child.exitCode() != 0) {
            std::fprintf(stderr, "the player did not come up: %s\n", child.readAllStandardError().constData());
            return 1;
        }
        const QList<QByteArray> out = child.readAllStandardOutput().trimmed().split(' ');
        if (out.value(1).toLongLong() != songs) {
            std::fprintf(stderr, "the player loaded %s songs, not %d\n%s\n", out.value(1).constData(), songs, child.readAllStandardError().constData());
            return 1;
        }
        const qint64 shown = out.value(0).toLongLong();
        windowed.push_back(double(shown - started) / 1e6);
        // Where the time went: loading the program, the application object, the launch with
        // its controllers, the window reaching the screen.
        std::printf("run %d: exec %.0f ms, QApplication %.0f ms, launch %.0f ms, shown %.0f ms\n", run,
                    double(out.value(2).toLongLong() - started) / 1e6,
                    double(out.value(3).toLongLong() - out.value(2).toLongLong()) / 1e6,
                    double(out.value(4).toLongLong() - out.value(3).toLongLong()) / 1e6,
                    double(shown - out.value(4).toLongLong()) / 1e6);

        QProcess peer;
        peer.setProcessEnvironment(env);
        QElapsedTimer timer;
        timer.start();
        peer.start(cliPath, {QStringLiteral("playlists")});
        peer.waitForFinished(60000);
        cli.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    std::printf("platform %s, %d songs, %d runs\n", qPrintable(platform), songs, runs);
    std::printf("quivera to the player window shown: median %.0f ms (min %.0f, max %.0f); target < 1000 ms\n",
                BenchLibrary::median(windowed), *std::min_element(windowed.begin(), windowed.end()),
                *std::max_element(windowed.begin(), windowed.end()));
    std::printf("quivera-cli playlists (the launch without windows, to its exit): median %.0f ms\n",
                BenchLibrary::median(cli));
    std::printf("ratio %.2f\n", BenchLibrary::median(windowed) / BenchLibrary::median(cli));
    return 0;
}
