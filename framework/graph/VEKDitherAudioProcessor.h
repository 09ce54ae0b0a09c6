#pragma once

#include "VEKAudioProcessor.h"
#include "dsp/VEKDither.h"

// The dither before the output (identifier "dither"): cuts the audio to the output's word length
// with the `ditherProperties` dictionary (depth, type, mbitShape, mbitAmount, basicShape,
// basicNumberOfBits, autoBlanking, minimizePeaks, silenceHarmonics; see VEKDither). Audio that
// already fits the word length passes bit-identical.
//
// Threads: setSettings() and setDitherProperties() on the main thread, also while the stream
// renders (the change reaches the next buffer); render() on the render thread.
//
// Settings: the base's keys and the dither's dictionary side by side. setSettings() hands every
// key other than "class", "enabled" and "name" to the dither as a whole new dictionary (missing
// keys take the dither's defaults); a map with only those three keys leaves the dither as it is.
class VEKDitherAudioProcessor : public VEKAudioProcessor {
    Q_OBJECT
public:
    using VEKAudioProcessor::VEKAudioProcessor;

    // False with `error` for a dictionary the dither refuses; the one in use then stays.
    bool setDitherProperties(const QVariantMap &properties, VEKError *error = nullptr);
    // The dictionary in use, defaults filled in.
    QVariantMap ditherProperties() const { return m_dither.properties(); }

    // Designs the noise shaping for the output connection's rate.
    bool initializeForRender(VEKError *error) override;
    bool reset(VEKError *error) override;
    void render(VEKAudioBufferList &list, quint32 bus, const VEKAudioRenderInfo &info) override;

    QVariantMap settings() const override;
    bool setSettings(const QVariantMap &settings, VEKError *error) override;

private:
    VEKDither m_dither;
};
