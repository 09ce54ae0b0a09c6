#include "VEKNullOutput.h"

#include "outputs/VEKSamplePacker.h"

VEKNullOutput::VEKNullOutput(double deviceRate) : VEKClockedOutput(true, "quivera-null", deviceRate) {}

VEKNullOutput::~VEKNullOutput() { close(); }

bool VEKNullOutput::prepare(const VEKAudioFormat &requested, quint32, VEKError *)
{
    m_format = requested;
    m_format.bitDepth = VEKSamplePacker(VEKSamplePacker::encodingFor(requested)).bitDepth();
    return true;
}
