#include "VEKAudioConnection.h"

VEKAudioConnection::VEKAudioConnection(QString identifier, int sourceSlot, int destinationSlot)
    : m_identifier(std::move(identifier)), m_source(sourceSlot), m_destination(destinationSlot)
{
}

void VEKAudioConnection::setFormat(const VEKAudioStreamFormat &format)
{
    setSampleRate(format.sampleRate);
    setNumberOfChannels(format.numberOfChannels);
}
