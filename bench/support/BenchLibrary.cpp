#include "BenchLibrary.h"

#include "db/VEKDatabaseQuery.h"
#include "library/Database.h"
#include "library/Song.h"

#include <QDateTime>
#include <algorithm>
#include <cstdio>
#include <cstdlib>

void BenchLibrary::make(const QString &path, int songCount, int playlistCount)
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
    static const char *const words[] = {"Love", "Night", "River", "Blue",  "Fire",  "Dream",
                                        "Café", "Über",  "Road",  "Light", "Storm", "Heart"};
    for (int i = 0; i < songCount; ++i) {
        Song s;
        s.setSongID(-(i + 1));
        const int artist = std::rand() % 5000, album = std::rand() % 3;
        s.setURL(QStringLiteral("/music/Artist %1/Album %2/%3 Song.flac").arg(artist).arg(album).arg(i));
        s.setName(
            QStringLiteral("%1 %2 %3")
                .arg(QString::fromUtf8(words[std::rand() % 12]), QString::fromUtf8(words[std::rand() % 12]))
                .arg(i));
        s.setArtist(artist % 7 == 0 ? QStringLiteral("The Ärtist %1").arg(artist)
                                    : QStringLiteral("Artist %1").arg(artist));
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
    auto entry = db.queryWithStatement(
        QStringLiteral("INSERT INTO t_playlistSong (songID, playlistID, ordinal) VALUES (?, ?, ?)"));
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

double BenchLibrary::median(std::vector<double> values)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double BenchLibrary::worst(const std::vector<double> &values)
{
    return values.empty() ? 0 : *std::max_element(values.begin(), values.end());
}
