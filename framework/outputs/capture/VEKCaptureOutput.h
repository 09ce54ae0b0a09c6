#pragma once

#include "VEKWaveFileWriter.h"
#include "outputs/VEKClockedOutput.h"
#include "outputs/VEKSamplePacker.h"

#include <vector>

// The output of a capture device: each block, converted to the file's words exactly as an ALSA
// device would get them, goes into a WAV file. The file is written between two callbacks on the
// render thread, as an ALSA output writes to its PCM; the callback itself never waits on it.
// open() empties the file, stop() and close() finish its header; a write that failed is logged
// when the output stops.
class VEKCaptureOutput final : public VEKClockedOutput {
public:
    struct Settings {
        QString path;
        bool paced = true;
        quint32 bits = 0; // 16, 24 or 32; 0 takes the depth open() asks for
        bool isFloat = false;
        bool valid = true;
    };

    VEKCaptureOutput(Settings settings, double deviceRate);
    ~VEKCaptureOutput() override;

protected:
    bool prepare(const VEKAudioFormat &requested, quint32 framesPerBuffer, VEKError *error) override;
    void consume(const VEKAudioBufferList &block) override;
    void didStop() override;
    void didClose() override;

private:
    const Settings m_settings;
    VEKSamplePacker m_packer;
    std::vector<char> m_bytes;
    VEKWaveFileWriter m_writer;
};
