// The library window on a library of 100,000 songs and 200 playlists: what a user does there,
// each timed on the main thread up to the window painted again, and reported at its worst.
//
//   start-up       a new process to the player and the library window both exposed (target 1.5 s)
//   switch         choosing a playlist in the sidebar, the library's 100,000 songs included (100 ms)
//   sort           a click on a column header, with 1,000 songs selected and kept (100 ms)
//   keystroke      each key typed into the search field, and each Backspace back (16 ms)
//   select-all     Ctrl+A in the table (50 ms)
//   context menu   the table's menu, validated and shown, on 100,000 selected rows (50 ms)
//   drag           what a drag of every row does before the pointer moves: payload and picture (50 ms)
//   delete         10,000 songs out of a playlist of 20,000, confirmation turned off (1 s)
//   memory         the maximum resident size of the running program, by /usr/bin/time -v (250 MB)
//
// Each run is a new process on the same library. Run under `scripts/with-xvfb 1600x1000` for a
// real X11 window; otherwise Qt's offscreen platform is used.
//
//   build/bin/bench_library_window [--songs N] [--playlists N] [--runs N] [--home DIR]

#include "support/BenchLibrary.h"

#include "app/Application.h"
#include "app/ApplicationDelegate.h"
#include "librarywindow/LibraryController.h"
#include "librarywindow/LibraryWindow.h"
#include "librarywindow/SongTable.h"
#include "librarywindow/SongTableController.h"
#include "player/PlayerController.h"
#include "player/PlayerWindow.h"
#include "settings/UserDefaults.h"
#include "windowed/WindowedApplication.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <cstdio>
#include <ctime>
#include <map>
#include <vector>

namespace {

qint64 monotonicNs()
{
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return qint64(t.tv_sec) * 1000000000 + t.tv_nsec;
}

// The time of `action` until the library window has painted its result.
double timed(LibraryWindow *window, const std::function<void()> &action)
{
    QElapsedTimer t;
    t.start();
    action();
    QCoreApplication::processEvents();
    window->repaint();
    return double(t.nsecsElapsed()) / 1e6;
}

void report(const char *what, const std::vector<double> &ms)
{
    // Every sample in order, to find which column or which key is the worst.
    if (qEnvironmentVariableIsSet("QUIVERA_BENCH_SAMPLES")) {
        std::fprintf(stderr, "%s:", what);
        for (const double each : ms)
            std::fprintf(stderr, " %.1f", each);
        std::fprintf(stderr, "\n");
    }
    std::printf("%s %.2f %.2f %zu\n", what, BenchLibrary::worst(ms), BenchLibrary::median(ms), ms.size());
    std::fflush(stdout);
}

bool launch(WindowedApplication &windowed)
{
    windowed.launch();
    PlayerController *player = windowed.playerController();
    LibraryController *library = windowed.libraryController();
    return player && library && QTest::qWaitForWindowExposed(player->window(), 10000)
           && QTest::qWaitForWindowExposed(library->window(), 10000);
}

int runStartup(int argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Quivera"));
    WindowedApplication windowed;
    VEKStderrAlertPresenter alerts;
    VEKAlertPresenter::install(&alerts);
    if (!launch(windowed))
        return 1;
    std::printf("%lld %lld\n", monotonicNs(), qlonglong(windowed.delegate()->library().size()));
    std::fflush(stdout);
    windowed.terminate();
    return 0;
}

int runInteractions(int argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Quivera"));
    WindowedApplication windowed;
    VEKStderrAlertPresenter alerts;
    VEKAlertPresenter::install(&alerts);
    if (!launch(windowed))
        return 1;
    ApplicationDelegate *delegate = windowed.delegate();
    LibraryController *library = windowed.libraryController();
    LibraryWindow *window = library->window();
    SongTableController *table = library->songTableController();
    const PlaylistPtr all = delegate->localPlaylists().first();
    window->activateWindow();

    std::vector<double> switching;
    const QList<PlaylistPtr> lists = delegate->localPlaylists();
    for (int round = 0; round < 2; ++round)
        for (qsizetype i = 1; i < std::min<qsizetype>(lists.size(), 41); ++i) {
            switching.push_back(timed(window, [&] { library->setSelectedPlaylist(lists.at(i)); }));
            if (i % 10 == 0)
                switching.push_back(timed(window, [&] { library->setSelectedPlaylist(all); }));
        }
    report("switch", switching);

    library->setSelectedPlaylist(all);
    Playlist::Rows some;
    for (qsizetype row = 0; row < 100000; row += 100)
        some.append(row);
    table->setSelectedSongIndexes(some);
    std::vector<double> sorting;
    for (const char *key : {"artist", "name", "album", "length", "dateAdded", "genre", "artist", "artist"})
        sorting.push_back(timed(window, [&] { table->columnClicked(QString::fromLatin1(key)); }));
    report("sort", sorting);

    QLineEdit *field = window->searchField();
    field->setFocus();
    std::vector<double> keys;
    // Plain letters reach "The Ärtist" too: the search ignores diacritics.
    for (const char c : QByteArrayLiteral("the artist 42"))
        keys.push_back(timed(window, [&] { QTest::keyClick(field, c); }));
    while (!field->text().isEmpty())
        keys.push_back(timed(window, [&] { QTest::keyClick(field, Qt::Key_Backspace); }));
    report("keystroke", keys);

    SongTable *view = table->view();
    view->setFocus();
    std::vector<double> selectAll;
    for (int i = 0; i < 5; ++i) {
        table->deselectAll();
        selectAll.push_back(timed(window, [&] { QTest::keyClick(view, Qt::Key_A, Qt::ControlModifier); }));
    }
    report("select-all", selectAll);

    std::vector<double> menus;
    for (int i = 0; i < 5; ++i) {
        menus.push_back(timed(window, [&] { emit view->customContextMenuRequested(QPoint(40, 40)); }));
        if (QWidget *popup = QApplication::activePopupWidget())
            popup->close();
        QCoreApplication::processEvents();
    }
    report("context-menu", menus);

    std::vector<double> drags;
    for (int i = 0; i < 5; ++i)
        drags.push_back(timed(window, [&] {
            std::unique_ptr<QMimeData> data(table->dragData());
            const QPixmap picture = view->dragPixmap(int(table->selectedSongIndexes().size()));
            Q_UNUSED(picture);
        }));
    report("drag", drags);

    // Twice: a playlist of 20,000 songs, of which the first 10,000 go.
    std::vector<double> deleting;
    const QList<SongPtr> twenty = all->songs().mid(0, 20000);
    for (int i = 0; i < 2; ++i) {
        delegate->newPlaylistWithSongs(twenty);
        QCoreApplication::processEvents();
        Playlist::Rows first;
        for (qsizetype row = 0; row < 10000; ++row)
            first.append(row);
        table->setSelectedSongIndexes(first);
        deleting.push_back(timed(window, [&] { table->deleteSelection(); }));
    }
    report("delete-10000", deleting);
    std::printf("rows-left %lld\n", qlonglong(delegate->songs().size()));

    QFile status(QStringLiteral("/proc/self/status"));
    if (status.open(QIODevice::ReadOnly))
        for (const QByteArray &line : status.readAll().split('\n'))
            if (line.startsWith("VmHWM") || line.startsWith("VmRSS"))
                std::printf("%s\n", line.simplified().constData());
    std::fflush(stdout);
    windowed.terminate();
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc > 1 && qstrcmp(argv[1], "--startup") == 0)
        return runStartup(argc, argv);
    if (argc > 1 && qstrcmp(argv[1], "--interact") == 0)
        return runInteractions(argc, argv);

    QCoreApplication app(argc, argv);
    int songs = 100000, playlists = 200, runs = 5;
    QString keep;
    const QStringList args = app.arguments();
    for (int i = 1; i + 1 < args.size(); ++i) {
        if (args[i] == QLatin1String("--songs"))
            songs = args[i + 1].toInt();
        else if (args[i] == QLatin1String("--playlists"))
            playlists = args[i + 1].toInt();
        else if (args[i] == QLatin1String("--runs"))
            runs = args[i + 1].toInt();
        else if (args[i] == QLatin1String("--home"))
            keep = args[i + 1];
    }

    // --home DIR keeps the library there for later runs (a profiler's), made only once.
    QTemporaryDir temporary;
    const QString root = keep.isEmpty() ? temporary.path() : keep;
    const QString data = root + QStringLiteral("/data"), config = root + QStringLiteral("/config"),
                  runtime = root + QStringLiteral("/run");
    const bool made = QFile::exists(data + QStringLiteral("/Quivera/Quivera Library"));
    QDir().mkpath(data + QStringLiteral("/Quivera"));
    QDir().mkpath(config + QStringLiteral("/Quivera"));
    QDir().mkpath(runtime);
    QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    if (!made) {
        std::printf("making a library of %d songs and %d playlists...\n", songs, playlists);
        std::fflush(stdout);
        BenchLibrary::make(data + QStringLiteral("/Quivera/Quivera Library"), songs, playlists);
    }
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_DATA_HOME"), data);
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), config);
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
    env.insert(QStringLiteral("QUIVERA_REMOTE_PORT"), QStringLiteral("0"));
    env.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
    if (!env.contains(QStringLiteral("DISPLAY")) && !env.contains(QStringLiteral("QT_QPA_PLATFORM")))
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    const QString cli = QCoreApplication::applicationDirPath() + QStringLiteral("/quivera-cli");
    // A user who answered the iTunes question and turned the delete question off, on no sound card.
    for (const QStringList &setting :
         {QStringList{QStringLiteral("seenAccessiTunesLibraryQuery"), QStringLiteral("true")},
          QStringList{QStringLiteral("suppressConfirmDeleteSongAlert"), QStringLiteral("true")},
          QStringList{QStringLiteral("outputDevice"), QStringLiteral(R"({"UID": "null"})")}}) {
        QProcess p;
        p.setProcessEnvironment(env);
        p.start(cli, QStringList{QStringLiteral("settings"), QStringLiteral("set")} + setting);
        p.waitForFinished(60000);
    }

    const QString self = QCoreApplication::applicationFilePath();
    const bool haveTime = QFile::exists(QStringLiteral("/usr/bin/time"));
    double maxRssMb = 0;
    const auto run = [&](const QString &mode, qint64 *started) {
        QProcess p;
        p.setProcessEnvironment(env);
        *started = monotonicNs();
        if (haveTime)
            p.start(QStringLiteral("/usr/bin/time"), {QStringLiteral("-v"), self, mode});
        else
            p.start(self, {mode});
        if (!p.waitForFinished(600000) || p.exitCode() != 0) {
            std::fprintf(stderr, "%s failed: %s\n", qPrintable(mode), p.readAllStandardError().constData());
            std::exit(1);
        }
        const QString errors = QString::fromLocal8Bit(p.readAllStandardError());
        if (qEnvironmentVariableIsSet("QUIVERA_BENCH_SAMPLES"))
            std::fputs(qPrintable(errors.section(u'\t', 0, 0)), stderr);
        const QRegularExpressionMatch rss =
            QRegularExpression(QStringLiteral("Maximum resident set size \\(kbytes\\): (\\d+)"))
                .match(errors);
        if (rss.hasMatch())
            maxRssMb = std::max(maxRssMb, rss.captured(1).toDouble() / 1024.0);
        return QString::fromLocal8Bit(p.readAllStandardOutput());
    };

    std::vector<double> startup;
    for (int i = 0; i < runs; ++i) {
        qint64 started = 0;
        const QStringList out = run(QStringLiteral("--startup"), &started).split(u' ');
        startup.push_back(double(out.value(0).toLongLong() - started) / 1e6);
    }
    std::printf("%-13s %9s %9s %6s %9s\n", "action", "worst ms", "median", "count", "target");
    std::printf("%-13s %9.1f %9.1f %6zu %9s\n", "start-up", BenchLibrary::worst(startup),
                BenchLibrary::median(startup), startup.size(), "1500");

    const std::map<QString, const char *> targets = {
        {QStringLiteral("switch"), "100"},       {QStringLiteral("sort"), "100"},
        {QStringLiteral("keystroke"), "16"},     {QStringLiteral("select-all"), "50"},
        {QStringLiteral("context-menu"), "50"},  {QStringLiteral("drag"), "50"},
        {QStringLiteral("delete-10000"), "1000"}};
    qint64 started = 0;
    for (const QString &line : run(QStringLiteral("--interact"), &started).split(u'\n', Qt::SkipEmptyParts)) {
        const QStringList f = line.split(u' ');
        const auto target = targets.find(f.value(0));
        if (target != targets.end())
            std::printf("%-13s %9.1f %9.1f %6s %9s\n", qPrintable(f.value(0)), f.value(1).toDouble(),
                        f.value(2).toDouble(), qPrintable(f.value(3)), target->second);
        else
            std::printf("%s\n", qPrintable(line));
    }
    if (haveTime)
        std::printf("%-13s %9.1f %9s %6s %9s\n", "memory MB", maxRssMb, "", "", "250");
    return 0;
}
