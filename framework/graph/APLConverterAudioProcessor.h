#pragma once

#include "VEKConverterAudioProcessor.h"
#include "dsp/VEKPlatformConverter.h"

// The "platform" sample-rate converter as a processor (convertorType 0, 2, 3): a complexity
// code picks soxr's recipe ('norm', 'line', 'bats'), the quality its precision (see
// VEKPlatformConverter).
//
// Threads: the setters run on the main thread, also while the stream renders; a change reaches
// the running converter at its next buffer without a click.
//
// Settings: "inSampleRate", "complexity" (integer, the four-character code), "quality" (number).
class APLConverterAudioProcessor : public VEKConverterAudioProcessor {
    Q_OBJECT
public:
    using VEKConverterAudioProcessor::VEKConverterAudioProcessor;

    quint32 complexity() const { return m_converter.complexity(); }
    // An unknown code fails with `error` and changes nothing.
    bool setComplexity(quint32 complexity, VEKError *error = nullptr);
    float quality() const { return m_converter.quality(); }
    // Clamped to [0, 1].
    bool setQuality(float quality, VEKError *error = nullptr);

    QVariantMap settings() const override;
    bool setSettings(const QVariantMap &settings, VEKError *error) override;

    VEKSampleRateConverter &converter() override { return m_converter; }
    const VEKSampleRateConverter &converter() const override { return m_converter; }

private:
    VEKPlatformConverter m_converter;
};
