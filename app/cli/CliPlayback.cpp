#include "CliPlayback.h"

#include "app/SignalQuitter.h"
#include "audio/Stream.h"
#include "graph/VEKHardwareAudioProcessor.h"
#include "text/VEKTimeFormatter.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>
#include <QTimer>
#include <algorithm>
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
    if (stream->currentSong())
        return true;
    // The stream has said why a file would not open; songs whose files are gone it passes over
    // without a word, so a playlist of them only would end here in silence.
    if (!session.failed()) {
        const QList<SongPtr> songs = playlist->songs();
        const bool allMissing = std::all_of(songs.cbegin(), songs.cend(),
                                            [](const SongPtr &s) { return s->isMissing(); });
        session.fail(allMissing ? QStringLiteral("every song of the playlist \"%1\" is missing its file").arg(playlist->name())
                                : QStringLiteral("no song of the playlist \"%1\" from there on could be played: their files are missing")
                                      .arg(playlist->name()));
    }
    return false;
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

void waitForPlayOut(Stream *stream, int timeoutMs)
{
    if (const std::optional<quint64> end = stream->endSampleTime()) {
        QDeadlineTimer deadline(timeoutMs);
        while (stream->hardware()->framesPlayed() < *end && !deadline.hasExpired())
            QThread::msleep(5);
    }
}

QString statusLine(const QString &name, double position, double length, const Stream::OutputFormat &format)
{
    const VEKTimeFormatter time;
    QString line = QStringLiteral("%1  %2 / %3").arg(name, time.stringForSeconds(position), time.stringForSeconds(length));
    if (format.sampleRate > 0 && format.bitsPerSample > 0)
        line += QStringLiteral("  %1 kHz %2-bit, %3")
                    .arg(QString::number(format.sampleRate / 1000.0, 'g', 7))
                    .arg(format.bitsPerSample)
                    .arg(format.bitPerfect ? QStringLiteral("bit-perfect") : QStringLiteral("not bit-perfect"));
    return line;
}

} // namespace CliPlayback
