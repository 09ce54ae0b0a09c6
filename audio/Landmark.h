#pragma once

#include "graph/VEKConductorLandmark.h"

class Stream;

// The one landmark of the stream: it stands at the end of the current song's playable range.
// Its action, on the render thread, either swaps the players and jumps to the following song's
// playable start (gapless), repeats the song, leaves the transition to the main thread (when the
// device rate follows the song), or stops the transport at the end of the playlist. Everything
// beyond that is posted to the main thread through the stream, without allocating or waiting.
class Landmark : public VEKConductorLandmark {
public:
    explicit Landmark(Stream *stream = nullptr) : m_stream(stream) {}
    void setStream(Stream *stream) { m_stream = stream; }

    void action() override;

private:
    Stream *m_stream;
};
