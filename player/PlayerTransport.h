#pragma once

#include "library/Song.h"

#include <QObject>

// What the player's controls read and drive of the engine: the current song, playing or not,
// the place in the song and the meter. The window hands the controls a StreamTransport over the
// program's Stream; tests hand them a fake. Main thread only.
class PlayerTransport : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    virtual SongPtr currentSong() const = 0;
    virtual bool isPlaying() const = 0;
    virtual void play() = 0;
    virtual void pause() = 0;
    // 0 to 1 of the current song; 0 without one.
    virtual float normalizedLocation() const = 0;
    // Does nothing without a song.
    virtual void setNormalizedLocation(float fraction) = 0;
    // Linear level of channel 0 or 1 of the meter, 1.0 at full scale; 0 without a meter.
    virtual float levelOfChannel(quint32 channel) const = 0;

signals:
    void currentSongChanged();
    void playingChanged(bool playing);
    // A seek; between seeks the place advances without notice.
    void locationChanged();
};
