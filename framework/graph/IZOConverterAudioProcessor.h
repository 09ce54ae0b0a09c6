#pragma once

#include "VEKConverterAudioProcessor.h"
#include "dsp/VEKTunableConverter.h"

// The tunable sample-rate converter as a processor (convertorType 1): steepness, cutoff scaling
// and pre-ringing shape the filter (see VEKTunableConverter for what each does).
//
// Threads: the setters run on the main thread, also while the stream renders; a change reaches
// the running converter at its next buffer without a click.
//
// Settings: "inSampleRate", "filterSteepness" (integer), "filterCutoffScaling" (number),
// "filterPreRinging" (number).
class IZOConverterAudioProcessor : public VEKConverterAudioProcessor {
    Q_OBJECT
public:
    using VEKConverterAudioProcessor::VEKConverterAudioProcessor;

    quint32 filterSteepness() const { return m_converter.filterSteepness(); }
    float filterCutoffScaling() const { return m_converter.filterCutoffScaling(); }
    float filterPreRinging() const { return m_converter.filterPreRinging(); }
    // False with `error` when the converter refuses the value; the old one stays.
    bool setFilterSteepness(quint32 steepness, VEKError *error = nullptr);
    bool setFilterCutoffScaling(float scaling, VEKError *error = nullptr);
    bool setFilterPreRinging(float preRinging, VEKError *error = nullptr);

    QVariantMap settings() const override;
    bool setSettings(const QVariantMap &settings, VEKError *error) override;

    VEKSampleRateConverter &converter() override { return m_converter; }
    const VEKSampleRateConverter &converter() const override { return m_converter; }

private:
    VEKTunableConverter m_converter;
};
