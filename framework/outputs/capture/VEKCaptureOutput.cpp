#include "VEKCaptureOutput.h"

#include "core/VEKLocalizedString.h"
#include "core/VEKLog.h"

#include <cerrno>

VEKCaptureOutput::VEKCaptureOutput(Settings settings, double deviceRate)
    : VEKClockedOutput(settings.paced, "quivera-capture", deviceRate), m_settings(std::move(settings))
{
}

VEKCaptureOutput::~VEKCaptureOutput() { close(); }

bool VEKCaptureOutput::prepare(const VEKAudioFormat &requested, quint32 framesPerBuffer, VEKError *error)
{
    if (!m_settings.valid) {
        VEKError::set(error, VEKError(QStringLiteral("VEKAudioDevice"), -ENOENT,
                                      VEKLocalizedString("Error_audioDeviceMissing"),
                                      QStringLiteral("capture:%1").arg(m_settings.path)));
        return false;
    }
    VEKAudioFormat f = requested;
    if (m_settings.isFloat) {
        f.isFloat = true;
    } else if (m_settings.bits != 0) {
        f.isFloat = false;
        f.bitDepth = m_settings.bits;
    }
    m_packer = VEKSamplePacker(VEKSamplePacker::encodingFor(f));
    f.bitDepth = m_packer.bitDepth();
    if (!m_writer.open(m_settings.path, f, error))
        return false;
    m_format = f;
    m_bytes.assign(size_t(framesPerBuffer) * f.numberOfChannels * m_packer.bytesPerSample(), 0);
    return true;
}

void VEKCaptureOutput::consume(const VEKAudioBufferList &block)
{
    m_packer.pack(block, m_bytes.data());
    m_writer.append(m_bytes.data(), size_t(block.frames()) * block.numberOfChannels() * m_packer.bytesPerSample());
}

void VEKCaptureOutput::didStop()
{
    VEKError error;
    if (!m_writer.finish(&error))
        VEKLog(error.text());
}

void VEKCaptureOutput::didClose() { m_writer.close(); }
