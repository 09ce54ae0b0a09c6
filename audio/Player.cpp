#include "Player.h"

Player::Player(QObject *parent) : VEKAudioFileAudioGenerator(parent) {}

Player::~Player()
{
    m_song.reset();
}

bool Player::init(VEKError *error)
{
    if (!VEKAudioFileAudioGenerator::init(error))
        return false;
    setAntiClickOnStart(true);
    setAntiClickOnStop(true);
    return true;
}
