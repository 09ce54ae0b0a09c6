#include "AudioProcessorClasses.h"

#include "Dimmer.h"
#include "HeadphonesProcessor.h"
#include "Muter.h"
#include "Player.h"

void registerAudioProcessorClasses()
{
    VEKAudioProcessor::registerClass<Muter>(QStringLiteral("Muter"));
    VEKAudioProcessor::registerClass<Player>(QStringLiteral("Player"));
    VEKAudioProcessor::registerClass<Dimmer>(QStringLiteral("Dimmer"));
    VEKAudioProcessor::registerClass<HeadphonesProcessor>(QStringLiteral("HeadphonesProcessor"));
}
