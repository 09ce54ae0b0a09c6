#include "CliPlayback.h"

#include "app/SignalQuitter.h"
#include "audio/Stream.h"

#include <QCoreApplication>
#include <QTimer>
#include <cmath>

namespace CliPlayback {

VEKAudioDevicePtr deviceForUID(CliSession &session, const QString &uid)
{
    if (uid.isEmpty())
        return nullptr;
    VEKAudioDevicePtr device = VEKAudioDevice::deviceWithUID(uid);
    if (!device->isValid()) {
        session.fail(QStringLiteral("no output device has the UID \"%1\" (see quivera-cli devices)").arg(uid));
        return nullptr;
    }
    return device;
}

bool cue(CliSession &session, const QString &playlistID, const QString &songID)
{
    ApplicationDelegate &delegate = session.delegate();
    Stream *stream = delegate.stream();
    if (!stream) {
        session.fail(QStringLiteral("the audio engine could not be started"));
        return false;
    }
    PlaylistPtr playlist = playlistID.isEmpty() ? delegate.playlistAtIndex(0) : session.playlistForID(playlistID);
    if (!playlist)
        return false;
    SongPtr song;
    if (!songID.isEmpty()) {
        song = session.songForID(songID);
        if (!song)
            return false;
        if (playlist->indexOfObjectInSongs(song) == Playlist::NotFound) {
            session.fail(QStringLiteral("the song %1 is not in the playlist \"%2\"").arg(songID, playlist->name()));
            return false;
        }
    } else {
        song = playlist->objectInSongsAtIndex(0);
        if (!song) {
            session.fail(QStringLiteral("the playlist \"%1\" has no songs to play").arg(playlist->name()));
            return false;
        }
    }
    stream->setPlaylist(playlist);
    stream->setCurrentSong(song);
    // The stream has already said why a file would not open.
    return stream->currentSong() != nullptr;
}

bool runUntilEnd(CliSession &session, const std::function<void()> &status)
{
    Stream *stream = session.delegate().stream();
    SignalQuitter quitter;
    bool ended = false;
    QObject::connect(stream, &Stream::playlistEnded, &quitter, [&ended] {
        ended = true;
        QCoreApplication::quit();
    });
    QTimer timer;
    if (status) {
        QObject::connect(&timer, &QTimer::timeout, &quitter, status);
        timer.start(200);
    }
    QCoreApplication::exec();
    return ended;
}

QString formatTime(double seconds)
{
    const qint64 s = std::max<qint64>(0, qint64(std::floor(seconds)));
    return QStringLiteral("%1:%2").arg(s / 60).arg(s % 60, 2, 10, QLatin1Char('0'));
}

} // namespace CliPlayback
