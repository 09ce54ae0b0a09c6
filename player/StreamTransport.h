#pragma once

#include "PlayerTransport.h"

#include <QPointer>

class Stream;

// The player's controls over the program's Stream, forwarding its notices.
class StreamTransport : public PlayerTransport {
    Q_OBJECT
public:
    explicit StreamTransport(Stream *stream, QObject *parent = nullptr);

    SongPtr currentSong() const override;
    bool isPlaying() const override;
    void play() override;
    void pause() override;
    float normalizedLocation() const override;
    void setNormalizedLocation(float fraction) override;
    float levelOfChannel(quint32 channel) const override;

private:
    QPointer<Stream> m_stream;
};
