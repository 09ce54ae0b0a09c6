#pragma once

#include "VEKSampleRateConverter.h"

// The "platform" converter class (convertorType 0, 2 and 3): soxr's standard recipes, chosen by
// a complexity code, with a quality that picks the precision within the recipe. The recipe
// keeps its passband end and its (linear) phase whatever the quality; soxr designs for about
// (precision + 1) x 6.02 dB of rejection.
//
// - 'norm' 0x6E6F726D: the high-quality recipe (SOXR_HQ), 16 + 4q bits for quality q in
//   [0, 1] (q = 1 is the recipe's own 20). Measured from 44.1 kHz at q = 1: flat within
//   0.01 dB to 0.913 Nyquist (20.1 kHz), images 137 dB down; at q = 0, 113 dB.
// - 'bats' 0x62617473: the very-high-quality recipe (SOXR_VHQ), 20 + 8q bits (q = 1: 28).
//   Measured: flat within 0.01 dB to 0.91 Nyquist, images 152 dB down, which is the floor of
//   float samples in and out (28 bits design 174 dB).
// - 'line' 0x6C696E65: the quick recipe (SOXR_QQ), cubic interpolation without a filter.
//   Measured: within 0.05 dB to 5 kHz, images 56 dB down. Quality has no effect here.
//
// The tests hold 'norm' to 0.01 dB and 130 dB (105 dB at q = 0), 'bats' to 0.01 dB and 145 dB,
// 'line' to 0.1 dB and 50 dB.
//
// Threads as in VEKSampleRateConverter: the setters belong to the control thread and reach a
// running converter at its next buffer.
class VEKPlatformConverter : public VEKSampleRateConverter {
public:
    static constexpr quint32 Normal = 0x6E6F726D;    // 'norm'
    static constexpr quint32 Linear = 0x6C696E65;    // 'line'
    static constexpr quint32 Mastering = 0x62617473; // 'bats'

    VEKPlatformConverter() = default;
    ~VEKPlatformConverter() override = default;

    quint32 complexity() const { return m_complexity; }
    // An unknown code is refused with `error` and changes nothing.
    bool setComplexity(quint32 complexity, QString *error = nullptr);

    float quality() const { return m_quality; }
    // Clamped to [0, 1]; a value that is not a number counts as 1.
    bool setQuality(float quality, QString *error = nullptr);

    // The soxr parameters of a complexity and quality.
    static VEKResamplerFilter filter(quint32 complexity, float quality);

protected:
    VEKResamplerFilter filterFor(double inRate, double outRate) const override;

private:
    quint32 m_complexity = Normal;
    float m_quality = 1.0f;
};
