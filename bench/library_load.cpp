// Launch to a loaded library of 100,000 songs and 200 playlists, against the sqlite3 command line
// reading the same rows, run side by side. Prints both medians and their ratio.
//
//   build/bin/bench_library_load [--songs N] [--playlists N] [--runs N]

#include "app/ApplicationDelegate.h"
#include "core/VEKDate.h"
#include "db/VEKDatabaseQuery.h"
#include "settings/UserDefaults.h"

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

void makeLibrary(const QString &path, int songCount, int playlistCount)
{
    Database db;
    if (!db.initWithURL(path)) {
        std::fprintf(stderr, "cannot create %s\n", qPrintable(path));
        std::exit(1);
    }
    VEKDatabaseTransaction tx(&db);
    for (const QString &s : Database::buildStatements())
        db.executeStatement(s);
    auto insert = db.queryWithStatement(Database::insertSongStatement);
    std::srand(1);
    const QDateTime added = QDateTime::currentDateTimeUtc();
    for (int i = 0; i < songCount; ++i) {
        Song s;
        s.setSongID(-(i + 1));
        const int artist = std::rand() % 5000, album = std::rand() % 3;
        s.setURL(QStringLiteral("/music/Artist %1/Album %2/%3 Song.flac").arg(artist).arg(album).arg(i));
        s.setName(QStringLiteral("Song number %1").arg(i));
        s.setArtist(artist % 7 == 0 ? QStringLiteral("The Artist %1").arg(artist) : QStringLiteral("Artist %1").arg(artist));
        s.setAlbum(QStringLiteral("Album %1 of %2").arg(album).arg(artist));
        s.setAlbumArtist(s.artist());
        s.setGenre(QStringLiteral("Genre %1").arg(artist % 40));
        s.setKind(QStringLiteral("FLAC Audio File"));
        s.setTrack(QStringLiteral("%1 of 12").arg(i % 12 + 1));
        s.setTrack_sortable(quint64(i % 12 + 1));
        s.setDisc(QStringLiteral("1"));
        s.setDisc_sortable(1);
        s.setLength(180.0 + i % 200);
        s.setSize(30000000 + quint64(i));
        s.setSampleRate(44100);
        s.setBitrate(900000);
        s.setDateAdded(added.addSecs(-i));
        insert->reset();
        Database::bindSongForInsert(*insert, s);
        insert->execute();
    }
    auto playlist = db.queryWithStatement(QStringLiteral(
        "INSERT INTO t_playlist (playlistID, iTunes, name, shuffle, repeatMode, sortKey, sortAscending) "
        "VALUES (?, 0, ?, 0, 0, ?, 1)"));
    auto entry = db.queryWithStatement(QStringLiteral(
        "INSERT INTO t_playlistSong (songID, playlistID, ordinal) VALUES (?, ?, ?)"));
    for (int p = 0; p < playlistCount; ++p) {
        playlist->reset();
        playlist->setIntValue(1000 + p, 0);
        playlist->setStringValue(QStringLiteral("Playlist %1").arg(p), 1);
        playlist->setStringValue(p % 2 ? QStringLiteral("ordinal") : QStringLiteral("artist"), 2);
        playlist->execute();
        const int size = 50 + std::rand() % 900;
        for (int k = 0; k < size; ++k) {
            entry->reset();
            entry->setIntValue(-(1 + std::rand() % songCount), 0);
            entry->setIntValue(1000 + p, 1);
            entry->setIntValue(k, 2);
            entry->execute();
        }
    }
    tx.commit();
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

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
    makeLibrary(file, songs, playlists);
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
    const double a = median(ours), b = median(peer);
    std::printf("songs loaded: %lld, playlist entries: %lld\n", qlonglong(loaded), qlonglong(rows));
    std::printf("launch to loaded model: %.1f ms (median of %d)\n", a, runs);
    std::printf("sqlite3 reading the rows: %.1f ms (median of %d)\n", b, runs);
    std::printf("ratio: %.2f (target: at most 3, and under 1000 ms)\n", a / b);
    return 0;
}
