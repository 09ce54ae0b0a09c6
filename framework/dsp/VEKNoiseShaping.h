#pragma once

#include <vector>

// Error-feedback filters for the dither. A filter is the list of coefficients c1..cn of its
// noise transfer function NTF(z) = 1 + c1 z^-1 + ... + cn z^-n: the requantisation error e
// reaches the output as NTF * e. Every filter here has a leading 1 and is minimum phase, so
// the feedback loop is stable and the noise is moved in frequency rather than merely raised.
//
// Pure functions, for the control thread (designs take well under a millisecond).
class VEKNoiseShaping {
public:
    // 1 - z^-1: noise falls 6 dB per octave towards DC and rises 6 dB at Nyquist.
    static std::vector<double> firstOrder();
    // 1 - 2 cos(w0) z^-1 + z^-2: a double zero at `frequency` (kept below 40% of Nyquist),
    // where the ear is most sensitive; the noise goes to both ends of the band.
    static std::vector<double> notch(double sampleRate, double frequency);
    // The filter of `order` taps that minimises the noise as the ear weighs it: the linear
    // predictor of the hearing threshold's sensitivity curve (threshold in quiet, taken flat
    // below 1 kHz and limited to `rangeDb` above its lowest point), designed for this sample
    // rate. Larger ranges and orders push more noise above 15 kHz and out of 2 to 5 kHz.
    static std::vector<double> psychoacoustic(double sampleRate, int order, double rangeDb);

    // |NTF| in dB at `frequency`.
    static double responseDb(const std::vector<double> &coefficients, double frequency, double sampleRate);
    // Threshold of hearing in quiet, in dB SPL (Terhardt's approximation).
    static double thresholdOfHearing(double frequency);
};
