#include "Database.h"

#include "core/VEKDate.h"
#include "core/VEKLog.h"
#include "core/VEKPaths.h"
#include "db/VEKDatabaseQuery.h"

namespace {
Database *g_shared = nullptr;
}

const QString Database::selectSongsStatement = QStringLiteral(
    "SELECT songID, path, name, artist, album, albumArtist, composer, genre, kind, track, disc, "
    "length, size, sampleRate, bitrate, dateAdded, trackNumber, discNumber FROM t_song");

const QString Database::insertSongStatement = QStringLiteral(
    "INSERT INTO t_song (songID, path, name, artist, album, albumArtist, composer, genre, kind, "
    "track, disc, length, size, sampleRate, bitrate, dateAdded, trackNumber, discNumber) VALUES "
    "(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?);");

const QString Database::updateSongStatement = QStringLiteral(
    "UPDATE t_song SET name = ?, artist = ?, album = ?, albumArtist = ?, composer = ?, "
    "genre = ?, track = ?, disc = ?, size = ?, trackNumber = ?, discNumber = ? WHERE songID = ?;");

const QString Database::deleteSongStatement = QStringLiteral("DELETE FROM t_song WHERE songID = ?");

Database::Database() : m_writer(std::make_unique<SerialTaskQueue>("quivera-db")) {}

Database::~Database()
{
    if (g_shared == this)
        g_shared = nullptr;
    m_writer.reset(); // runs what is queued, then joins
}

Database *Database::shared() { return g_shared; }

void Database::setShared(Database *database) { g_shared = database; }

void Database::writeAsync(std::function<bool(VEKDatabase &, VEKError *)> task)
{
    const QString file = path();
    m_writer->async([this, file, task = std::move(task)] {
        VEKError error;
        if (!m_writerConnection) {
            auto connection = std::make_unique<VEKDatabase>();
            if (!connection->initWithURL(file, &error)) {
                VEKLog(error.text());
                return;
            }
            m_writerConnection = std::move(connection);
        }
        if (!task(*m_writerConnection, &error) && !error.isNull())
            VEKLog(error.text());
    });
}

void Database::flushWrites() { m_writer->flush(); }

const QStringList &Database::buildStatements()
{
    static const QStringList statements = {
        QStringLiteral("CREATE TABLE [t_global] (version integer);"),
        QStringLiteral("INSERT INTO t_global (version) VALUES (1);"),
        QStringLiteral("CREATE TABLE [t_song] (songID integer, path text, name text, artist text, "
                       "album text, albumArtist text, composer text, genre text, kind text, "
                       "track text, disc text, length real, size integer, sampleRate integer, "
                       "bitrate integer, dateAdded date, trackNumber integer, discNumber integer);"),
        QStringLiteral("CREATE INDEX t_song_songID_index ON t_song(songID);"),
        QStringLiteral("CREATE TABLE [t_playlist] (playlistID integer, iTunes binary, name text, "
                       "shuffle binary, repeatMode integer, sortKey text, sortAscending binary);"),
        QStringLiteral("CREATE INDEX t_playlist_playlistID_index ON t_playlist(playlistID);"),
        QStringLiteral("CREATE INDEX t_playlist_iTunes_index ON t_playlist(iTunes);"),
        QStringLiteral("INSERT INTO t_playlist (playlistID, iTunes, sortKey, sortAscending) "
                       "VALUES (-1, 0, 'album', 1);"),
        QStringLiteral("INSERT INTO t_playlist (playlistID, iTunes, sortKey, sortAscending) "
                       "VALUES (1, 1, 'album', 1);"),
        QStringLiteral("CREATE TABLE [t_playlistSong] (playlistID integer, songID integer, "
                       "ordinal integer);"),
        QStringLiteral("CREATE INDEX t_playlistSong_playlistID_index ON "
                       "t_playlistSong(playlistID);"),
        QStringLiteral("CREATE INDEX t_playlistSong_ordinal_index ON t_playlistSong(ordinal);"),
    };
    return statements;
}

bool Database::bindSongForInsert(VEKDatabaseQuery &q, const Song &s, VEKError *error)
{
    return q.setIntValue(s.songID(), 0, error) && q.setStringValue(s.URL(), 1, error)
           && q.setStringValue(s.name(), 2, error) && q.setStringValue(s.artist(), 3, error)
           && q.setStringValue(s.album(), 4, error) && q.setStringValue(s.albumArtist(), 5, error)
           && q.setStringValue(s.composer(), 6, error) && q.setStringValue(s.genre(), 7, error)
           && q.setStringValue(s.kind(), 8, error) && q.setStringValue(s.track(), 9, error)
           && q.setStringValue(s.disc(), 10, error) && q.setDoubleValue(s.length(), 11, error)
           && q.setIntValue(qint64(s.size()), 12, error)
           && q.setIntValue(qint64(s.sampleRate()), 13, error)
           && q.setIntValue(qint64(s.bitrate()), 14, error)
           && q.setStringValue(VEKDate::description(s.dateAdded()), 15, error)
           && q.setIntValue(qint64(s.track_sortable()), 16, error)
           && q.setIntValue(qint64(s.disc_sortable()), 17, error);
}

SongPtr Database::songFromRow(const VEKDatabaseQuery &q)
{
    const QString path = q.stringValueAtColumn(1);
    if (path.isEmpty())
        return nullptr;
    auto song = std::make_shared<Song>();
    song->setSongID(q.intValueAtColumn(0));
    song->setIsMissing(!VEKPaths::existsAsFile(path));
    song->setURL(path);
    song->setName(q.stringValueAtColumn(2));
    song->setArtist(q.stringValueAtColumn(3));
    song->setAlbum(q.stringValueAtColumn(4));
    song->setAlbumArtist(q.stringValueAtColumn(5));
    song->setComposer(q.stringValueAtColumn(6));
    song->setGenre(q.stringValueAtColumn(7));
    song->setKind(q.stringValueAtColumn(8));
    song->setTrack(q.stringValueAtColumn(9));
    song->setDisc(q.stringValueAtColumn(10));
    song->setLength(q.doubleValueAtColumn(11));
    song->setSize(quint64(q.intValueAtColumn(12)));
    song->setSampleRate(double(q.intValueAtColumn(13)));
    song->setBitrate(quint64(q.intValueAtColumn(14)));
    song->setDateAdded(VEKDate::dateWithString(q.stringValueAtColumn(15)));
    song->setTrack_sortable(quint64(q.intValueAtColumn(16)));
    song->setDisc_sortable(quint64(q.intValueAtColumn(17)));
    return song;
}
