// The one place that knows every processor class of the framework by name. Registration is
// explicit because a static library drops objects that nothing refers to, self-registering
// ones included.

#include "APLAudioUnitAudioProcessor.h"
#include "APLConverterAudioProcessor.h"
#include "IZOConverterAudioProcessor.h"
#include "VEKAudioDock.h"
#include "VEKAudioFileReaderAudioProcessor.h"
#include "VEKAudioFileWriterAudioProcessor.h"
#include "VEKAudioFileAudioGenerator.h"
#include "VEKConductorAudioProcessor.h"
#include "VEKDitherAudioProcessor.h"
#include "VEKHardwareAudioProcessor.h"
#include "VEKMeterAudioProcessor.h"
#include "VEKMixerAudioProcessor.h"
#include "VEKRouterAudioProcessor.h"
#include "VEKVolumeAudioProcessor.h"

#include <mutex>

void VEKAudioProcessor::registerFrameworkClasses()
{
    static std::once_flag once;
    std::call_once(once, [] {
        registerClass<VEKAudioProcessor>();
        registerClass<VEKAudioDock>();
        registerClass<VEKMixerAudioProcessor>();
        registerClass<VEKRouterAudioProcessor>();
        registerClass<VEKConductorAudioProcessor>();
        registerClass<VEKAudioFileAudioGenerator>();
        registerClass<VEKVolumeAudioProcessor>();
        registerClass<VEKMeterAudioProcessor>();
        registerClass<VEKHardwareAudioProcessor>();
        registerClass<IZOConverterAudioProcessor>();
        registerClass<APLConverterAudioProcessor>();
        registerClass<VEKDitherAudioProcessor>();
        registerClass<APLAudioUnitAudioProcessor>();
        registerClass<VEKAudioFileReaderAudioProcessor>();
        registerClass<VEKAudioFileWriterAudioProcessor>();
    });
}
