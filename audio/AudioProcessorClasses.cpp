#include "AudioProcessorClasses.h"

#include "Dimmer.h"
#include "HeadphonesProcessor.h"
#include "Muter.h"

void registerAudioProcessorClasses()
{
    VEKAudioProcessor::registerClass<Muter>(QStringLiteral("Muter"));
    VEKAudioProcessor::registerClass<Dimmer>(QStringLiteral("Dimmer"));
    VEKAudioProcessor::registerClass<HeadphonesProcessor>(QStringLiteral("HeadphonesProcessor"));
}
