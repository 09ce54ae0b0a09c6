#pragma once

#include "graph/VEKAudioFileAudioGenerator.h"
#include "library/Song.h"

// One of the stream's two players: a file generator that knows which song its file belongs to,
// and ramps its output when the transport starts and stops.
//
// Main thread, like its base (render() aside).
class Player : public VEKAudioFileAudioGenerator {
    Q_OBJECT
public:
    explicit Player(QObject *parent = nullptr);
    ~Player() override;

    bool init(VEKError *error) override;

    const SongPtr &song() const { return m_song; }
    void setSong(const SongPtr &song) { m_song = song; }

private:
    SongPtr m_song;
};
