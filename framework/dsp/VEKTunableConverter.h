#pragma once

#include "VEKSampleRateConverter.h"

// The tunable converter class (convertorType 1): three parameters shape soxr's filter. All
// frequencies are fractions of the lower Nyquist frequency (22050 Hz between 44.1 and 96 kHz).
//
// Filter steepness s (default 150; the Output pane writes round(150 q^1.5) for q in [0, 1])
// sets the width of the transition band: w = 0.5 x 25^(-s / 150), kept within soxr's range
// [0.002, 0.5]:
//
//     s      0      53     100    150    200     >= 258
//     w      0.50   0.161  0.058  0.020  0.0068  0.002
//
// Cutoff scaling c (default 1) places the stopband: it begins at c and the passband ends at
// c - w. c is kept within [0.5 + w, 1.5]; when converting up it is also kept at or below
// 1 + w/2, which is as far as soxr lets images into the transition band. So the defaults give
// a passband to 0.98 (21.6 kHz from 44.1 kHz) and a stopband from exactly the Nyquist
// frequency; c = 0.9 moves both down by a tenth.
//
// Pre-ringing r (default 1) sets the phase response: 50 r on soxr's scale, with r kept within
// [0, 2]. So r = 1 is linear phase (symmetric ringing), r = 0 minimum phase (no ringing
// before a transient), r = 0.5 soxr's intermediate phase, and r = 2 maximum phase.
//
// Precision is 20 bits throughout, which keeps soxr on its single-precision SIMD engine: images
// and aliases measure 134 to 140 dB down (the tests hold them below -130 dB), under the noise
// of a dithered 24-bit output; 24 bits would gain about 15 dB for a third more time (soxr's
// double-precision engine). The tests measure the defaults flat within 0.01 dB up to 0.98.
//
// Threads as in VEKSampleRateConverter: the setters belong to the control thread and reach a
// running converter at its next buffer.
class VEKTunableConverter : public VEKSampleRateConverter {
public:
    static constexpr double Precision = 20.0;

    VEKTunableConverter() = default;
    ~VEKTunableConverter() override = default;

    quint32 filterSteepness() const { return m_steepness; }
    float filterCutoffScaling() const { return m_cutoffScaling; }
    float filterPreRinging() const { return m_preRinging; }

    // Each rebuilds the filter when configured; setParameters() changes all three with one
    // rebuild. False with `error` when soxr refuses, and the old values stay.
    bool setFilterSteepness(quint32 steepness, QString *error = nullptr);
    bool setFilterCutoffScaling(float scaling, QString *error = nullptr);
    bool setFilterPreRinging(float preRinging, QString *error = nullptr);
    bool setParameters(quint32 steepness, float cutoffScaling, float preRinging, QString *error = nullptr);

    // The soxr parameters for the three values, converting up (output rate above the input
    // rate) or not.
    static VEKResamplerFilter filter(quint32 steepness, float cutoffScaling, float preRinging, bool upsampling);

protected:
    VEKResamplerFilter filterFor(double inRate, double outRate) const override;

private:
    quint32 m_steepness = 150;
    float m_cutoffScaling = 1.0f;
    float m_preRinging = 1.0f;
};
