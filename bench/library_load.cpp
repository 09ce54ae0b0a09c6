// Launch to a loaded library of 100,000 songs and 200 playlists, against the sqlite3 command line
// reading the same rows, run side by side. Prints both medians and their ratio.
//
//   build/bin/bench_library_load [--songs N] [--playlists N] [--runs N]

#include "app/ApplicationDelegate.h"
#include "core/VEKDate.h"
#include "db/VEKDatabaseQuery.h"
#include "settings/UserDefaults.h"
#include "support/BenchLibrary.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    int songs = 100000, playlists = 200, runs = 5;
    const QStringList args = QCoreApplication::arguments();
    for (int i = 1; i + 1 < args.size(); i += 2) {
        if (args[i] == QLatin1String("--songs")) songs = args[i + 1].toInt();
        else if (args[i] == QLatin1String("--playlists")) playlists = args[i + 1].toInt();
        else if (args[i] == QLatin1String("--runs")) runs = args[i + 1].toInt();
    }

    QTemporaryDir root;
    qputenv("XDG_DATA_HOME", QFile::encodeName(root.path() + QStringLiteral("/data")));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(root.path() + QStringLiteral("/config")));
    const QString file = ApplicationDelegate::libraryFilePath();
    std::printf("making a library of %d songs and %d playlists...\n", songs, playlists);
    BenchLibrary::make(file, songs, playlists);
    ApplicationDelegate::registerDefaults(UserDefaults::standard());

    std::vector<double> ours, peer;
    qsizetype loaded = 0, rows = 0;
    for (int r = 0; r < runs; ++r) {
        QElapsedTimer t;
        t.start();
        {
            ApplicationDelegate delegate;
            delegate.applicationWillFinishLaunching();
            ours.push_back(double(t.nsecsElapsed()) / 1e6);
            loaded = delegate.library().size();
            rows = 0;
            for (const auto &p : delegate.localPlaylists())
                rows += p->songsInManualOrder().size();
            delegate.applicationWillTerminate();
        }
        // The peer: the sqlite3 command line reading the same rows, printing them to a pipe.
        t.restart();
        QProcess sqlite;
        sqlite.setStandardOutputFile(QProcess::nullDevice());
        sqlite.start(QStringLiteral("sqlite3"),
                     {file, Database::selectSongsStatement + QStringLiteral(";"),
                      QStringLiteral("SELECT playlistID, name, shuffle, repeatMode, sortKey, sortAscending FROM t_playlist;"),
                      QStringLiteral("SELECT playlistID, songID FROM t_playlistSong ORDER BY playlistID, ordinal;")});
        sqlite.waitForFinished(-1);
        peer.push_back(double(t.nsecsElapsed()) / 1e6);
    }
    const double a = BenchLibrary::median(ours), b = BenchLibrary::median(peer);
    std::printf("songs loaded: %lld, playlist entries: %lld\n", qlonglong(loaded), qlonglong(rows));
    std::printf("launch to loaded model: %.1f ms (median of %d)\n", a, runs);
    std::printf("sqlite3 reading the rows: %.1f ms (median of %d)\n", b, runs);
    std::printf("ratio: %.2f (target: at most 3, and under 1000 ms)\n", a / b);
    return 0;
}
