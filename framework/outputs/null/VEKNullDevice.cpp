#include "VEKNullDevice.h"

#include "VEKNullOutput.h"
#include "core/VEKLocalizedString.h"

VEKNullDevice::VEKNullDevice() : VEKClockedDevice(QString::fromLatin1(uid)) {}

QString VEKNullDevice::title(VEKError *) const { return VEKLocalizedString("AudioDevice_nullTitle"); }

std::unique_ptr<VEKAudioOutput> VEKNullDevice::createOutput()
{
    return std::make_unique<VEKNullOutput>(sampleRate());
}
