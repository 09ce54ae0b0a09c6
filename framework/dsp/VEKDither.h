#pragma once

#include "rt/VEKAudioBufferList.h"

#include <QString>
#include <QVariantMap>
#include <QtGlobal>

#include <atomic>
#include <memory>
#include <vector>

// Cuts float audio down to the output word length with TPDF dither and noise shaping, driven
// by the `ditherProperties` dictionary. The result stays float, but every sample lies on the
// grid of the word length (k / 2^(depth-1), within [-1, 1 - 1/2^(depth-1)]), so the output
// stage converts it to integers without further rounding.
//
// The dictionary (missing keys take the defaults of defaultProperties()):
// - depth (16): word length in bits, 2 to 32. 25 and above leave the audio untouched: a float
//   sample carries 24 bits, so there is nothing to cut.
// - type (2): 2 or above selects the MBIT family (mbitShape, mbitAmount), 1 or below the basic
//   one (basicShape, basicNumberOfBits).
// - mbitShape (3): 0 None, 1 Light (3 taps, ear-weighted over 12 dB), 2 Medium (5 taps, 20 dB),
//   3 High (9 taps, 30 dB), 4 Ultra (12 taps, 40 dB). See VEKNoiseShaping::psychoacoustic.
// - mbitAmount (2): dither peak of 0.5, 0.75, 1, 1.25 or 1.5 LSB for 0 to 4. Below 1 the
//   noise is lower, but quiet signals keep some quantisation distortion.
// - basicShape (2): 0 None, 1 Simple (first order), 2 Clear (second order, a double zero at
//   3.5 kHz), 3 Psych5 (5 taps, ear-weighted over 24 dB), 4 Psych9 (9 taps, 30 dB).
// - basicNumberOfBits (0): the Advanced pane writes 1 and up; n gives a dither peak of n LSB
//   (0, never chosen, counts as 1; kept within 1 to 4).
// - autoBlanking (false): a run of at least BlankingFrames frames of exact digital silence (in
//   every channel) comes out as exact silence, and the noise shaper's memory is cleared there.
// - minimizePeaks (false): the noise shaper's correction is held within +-2 LSB, so the total
//   error of a sample stays within about 3.5 LSB at the cost of some shaping on loud noise.
// - silenceHarmonics (false): the dither peak is raised to at least 1 LSB (full TPDF), which
//   makes the error's mean and power independent of the signal: no harmonics on quiet tones.
// Indexes out of range are clamped; a key holding something that is not a number, or a depth
// outside 2 to 32, is refused.
//
// Bit-perfection: a buffer whose every sample already lies on the grid of the word length (a
// 16-bit source at depth 16 or 24, digital silence) passes bit-identical, whatever the
// settings, and the noise shaper's memory starts afresh after it.
//
// Errors are fed back in units of the LSB with the dither included, so the dither is shaped as
// well; without shaping and at 1 LSB the error has mean 0 and variance 1/4 LSB^2.
//
// Threads: setProperties(), setSampleRate() and the getters belong to a control thread. They
// prepare the new settings there and hand them over through an atomic slot; process() takes
// them up at the start of its next buffer. process() runs on the render thread and never
// allocates, locks or waits. reset() may be called from any thread. The destructor must not
// run while process() does. Up to MaxChannels channels are dithered; further ones pass as
// they are.
class VEKDither {
public:
    static constexpr quint32 MaxChannels = 16;
    static constexpr int MaxOrder = 16;
    static constexpr quint32 BlankingFrames = 32;

    VEKDither();
    ~VEKDither();

    VEKDither(const VEKDither &) = delete;
    VEKDither &operator=(const VEKDither &) = delete;

    static QVariantMap defaultProperties();

    // Control thread. False with `error` for a dictionary it refuses; the settings in use
    // then stay as they were.
    bool setProperties(const QVariantMap &properties, QString *error = nullptr);
    // The last accepted dictionary, with the defaults filled in.
    QVariantMap properties() const { return m_properties; }

    // Control thread. The rate the shaping curves are designed for (default 44100).
    void setSampleRate(double sampleRate);
    double sampleRate() const { return m_sampleRate; }

    // Facts of the accepted settings (control thread).
    quint32 depth() const;
    double ditherPeak() const; // LSB
    std::vector<double> noiseShaping() const;

    // Any thread: the next process() forgets the noise shaper's memory.
    void reset() { m_resetRequested.store(true, std::memory_order_release); }

    // Render thread. Works in place on the valid frames.
    void process(VEKAudioBufferList &buffer);
    void process(float *const *channels, quint32 channelCount, quint32 frames);

private:
    struct Settings;

    Settings *prepare(const QVariantMap &properties, QString *error) const;
    void publish(Settings *settings);
    void collectRetired();
    void clearMemory();
    void dither(float *const *channels, quint32 channelCount, quint32 from, quint32 to);

    // Control side.
    QVariantMap m_properties;
    double m_sampleRate = 44100.0;
    std::unique_ptr<Settings> m_current; // a copy of the latest settings handed over

    // Hand-over.
    std::atomic<Settings *> m_pending{nullptr};
    std::atomic<bool> m_resetRequested{false};
    static constexpr int RetiredSlots = 8;
    std::atomic<Settings *> m_retired[RetiredSlots] = {};

    // Render side.
    Settings *m_active = nullptr;
    float m_history[MaxChannels][2 * MaxOrder] = {};
    int m_position[MaxChannels] = {};
    // The same memory for channels processed in pairs, both channels of a pair side by side.
    alignas(16) float m_pairHistory[MaxChannels / 2][2 * MaxOrder][4] = {};
    int m_pairPosition[MaxChannels / 2] = {};
    quint64 m_random[MaxChannels] = {0x9E3779B97F4A7C15ull, 0xD1B54A32D192ED03ull, 0x8CB92BA72F3D8DD7ull,
                                     0xABC98388FB8FAC03ull, 0xC13FA9A902A6328Full, 0x91E10DA5C79E7B1Dull,
                                     0x2127599BF4325C37ull, 0x4F1BBCDCBFA54A0Bull, 0x5851F42D4C957F2Dull,
                                     0x14057B7EF767814Full, 0x3C6EF372FE94F82Bull, 0xA54FF53A5F1D36F1ull,
                                     0x510E527FADE682D1ull, 0x9B05688C2B3E6C1Full, 0x1F83D9ABFB41BD6Bull,
                                     0x5BE0CD19137E2179ull};
    quint64 m_zeroRun = 0;
};
