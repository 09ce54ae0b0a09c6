#pragma once

#include <QtGlobal>

#include <array>
#include <atomic>
#include <vector>

// The headphone engine: crossfeed, a two-band tone control and channel tricks for listening to
// stereo on headphones. Stereo in, stereo out, in place.
//
// Signal path, in this order:
//  1. Channel matrix: swap (first <-> second), then out of phase (the second channel inverted),
//     then solo (1 keeps the first channel and silences the second, 2 the reverse; this is one
//     speaker of the pair playing alone, so with crossfeed it still reaches both ears), then mono
//     (both channels become (first + second) / 2; with out of phase that is the side signal).
//  2. Crossfeed: each ear hears its own channel plus the other one, delayed by the interaural
//     time difference of a speaker at `speakerAngle` degrees off the centre line (Woodworth's
//     spherical head: r / c * (angle + sin(angle)), r = 8.75 cm, c = 343 m/s; 0.26 ms at 30
//     degrees, 0.49 ms at 60) through a fractional delay line (linear interpolation), then
//     low-passed for the shadow of the head, at a level of crossfeedAmount times the type's level
//     (see crossfeedType()). The shadow filter adds its own low-frequency delay on top, as a head
//     does. The angle sets the delay only.
//  3. Tone: a bass low shelf at bassFrequency and a treble high shelf at trebleFrequency
//     (RBJ cookbook shelves, slope 1, the frequency being the shelf's midpoint), gains in dB.
//
// Clip protection:
//  - Crossfeed: the ear's sum is scaled by 1 / (1 + level). Every tap of the crossfed path is
//    positive and the path has unity gain at DC, so no output sample can exceed the largest input
//    sample, whatever the input; correlated low frequencies keep their level and everything else
//    comes out quieter by that factor.
//  - Tone: the audio is scaled by the inverse of the largest gain of the two shelves together
//    (found over the whole band), so no steady tone comes out louder than it went in. Short
//    transients can overshoot a little, as through any boosting filter.
//
// Threads. initialize() and setParameters() belong to one control thread (the main thread);
// processStereo() to the render thread; reset() to any thread. setParameters() prepares the
// coefficients on its own thread and hands them over through a lock-free slot: the render thread
// takes them up at the start of its next block and glides every value there over RampSeconds
// (the channel matrix, the levels, the delay, the filters), so that a change does not click.
// Turning the engine on fades the effect in from plain stereo; turning it off takes effect at
// once (the audio passes bit for bit from the next block on). initialize() must not run while
// processStereo() does.
class CrossfeedEngine {
public:
    // The parameter record. limited() applies the limits; setParameters() does it itself.
    struct Parameters {
        bool enabled = false;
        float speakerAngle = 0.0f;     // degrees off the centre line, 0 to 60
        float crossfeedAmount = 0.0f;  // 0 to 1.5; 1 (100 %) is the type's own level
        quint32 crossfeedType = 1;     // 1 to 3, see crossfeedType()
        bool crossfeedClipProtectionEnabled = true;
        float trebleFrequency = 5000.0f; // Hz, no limit here (see below)
        float bassFrequency = 250.0f;    // Hz, no limit here
        float trebleGain = 0.0f;         // dB, -6 to 6
        float bassGain = 0.0f;           // dB, -6 to 6
        bool eqClipProtectionEnabled = true;
        bool mono = false;
        bool swapped = false;
        bool outOfPhase = false;
        quint32 solo = 0; // 0 both channels, 1 the first alone, 2 the second alone

        static constexpr float MaxSpeakerAngle = 60.0f;
        static constexpr float MaxCrossfeedAmount = 1.5f;
        static constexpr quint32 MaxCrossfeedType = 3;
        static constexpr float MaxGain = 6.0f;
        static constexpr quint32 MaxSolo = 2;

        // The angle clamped to 0..60, the amount to 0..1.5, the type to 1..3 (0 counts as 1),
        // the gains to -6..6, solo to 0..2; a NaN angle, amount or gain counts as 0. The
        // frequencies stay as they are: the engine keeps its filters between 10 Hz and 0.45 times
        // the sample rate, and takes 5000 and 250 Hz for a frequency that is not a positive number.
        Parameters limited() const;
        bool operator==(const Parameters &) const = default;
    };

    // What a crossfed signal goes through, by type: a head-shadow low-pass of `shadowPoles`
    // equal first-order poles at `shadowCornerHz`, at `levelDb` below the direct signal (at low
    // frequencies) when crossfeedAmount is 1.
    //  1 Natural: 700 Hz, one pole, -6 dB; a speaker pair in a damped room.
    //  2 Dense:   900 Hz, two poles, -4.5 dB; near-field speakers: more low end crosses over,
    //             the highs are shadowed more steeply.
    //  3 Light:   1100 Hz, one pole, -9.5 dB; a subtle widening of the phantom centre.
    struct CrossfeedType {
        double shadowCornerHz;
        int shadowPoles;
        double levelDb;
    };
    static CrossfeedType crossfeedType(quint32 type);

    // Seconds by which the far ear hears a speaker at `speakerAngle` degrees later than the near one.
    static double interauralDelay(float speakerAngle);

    static constexpr double RampSeconds = 0.02;
    static constexpr double MinSampleRate = 8000.0;
    static constexpr double MaxSampleRate = 1536000.0;

    CrossfeedEngine();
    ~CrossfeedEngine();
    CrossfeedEngine(const CrossfeedEngine &) = delete;
    CrossfeedEngine &operator=(const CrossfeedEngine &) = delete;

    // Control thread, never while processStereo() runs. Makes the delay lines for `sampleRate`
    // and applies the current parameters at that rate, from a clear state and without a glide.
    // False for a rate outside MinSampleRate..MaxSampleRate; the engine then stays as it was.
    bool initialize(double sampleRate);
    bool isInitialized() const { return m_initialized; }
    double sampleRate() const { return m_rate; }

    // Any thread. At the start of the next block the delay lines and filter memories are
    // cleared and any glide jumps to its end; the parameters stay.
    void reset();

    // Control thread. Takes `parameters` through limited() and hands them to the render thread
    // (see above). Before initialize() they are only kept, and initialize() applies them.
    void setParameters(const Parameters &parameters);
    // Control thread: the last record given, limited.
    const Parameters &parameters() const { return m_parameters; }

    // Render thread. Processes `frames` frames of two distinct channels in place. Never
    // allocates, locks or waits. Before initialize(), or while the record in force says disabled,
    // the samples are not touched.
    void processStereo(float *left, float *right, quint32 frames);

private:
    // Every value that glides, as the render thread applies it.
    enum Value {
        M00, M01, M10, M11, // channel matrix: first' = M00 first + M01 second, ...
        Level,              // crossfeed level (linear)
        Protect,            // crossfeed clip protection, 0 or 1
        Delay,              // interaural delay in samples
        S1B0, S1B1, S1P,    // shadow stage 1: y = b0 x + b1 x[-1] + p y[-1]
        S2B0, S2B1, S2P,    // shadow stage 2 (a pass-through for one-pole types)
        BassDb, TrebleDb,
        BassLogHz, TrebleLogHz,
        EqProtect, // tone clip protection, 0 or 1
        ValueCount
    };
    using Values = std::array<double, ValueCount>;

    // What setParameters() prepares for the render thread.
    struct Targets {
        Values values{};
        bool enabled = false;
        quint32 enableCount = 0; // how often the record went from off to on
    };

    struct Biquad {
        double b0 = 1, b1 = 0, b2 = 0, a1 = 0, a2 = 0;
    };
    // Direct form I, so that changing coefficients leaves the memory meaningful.
    struct BiquadState {
        double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
    };

    static constexpr int GridPoints = 96;
    static constexpr quint32 EqUpdateInterval = 16;
    static constexpr unsigned FreshSlot = 4;

    Targets prepare(const Parameters &p) const;
    void takeNewTargets();
    void glideTo(const Targets &t, bool fromNeutral);
    void advance();
    void updateEq();
    double eqPeakGain() const;
    void clearCrossfeedState();
    void clearState();
    void flushTinyStates();
    void bypassEqMemory(const float *left, const float *right, quint32 frames);
    double shadow(int channel, double x);
    static double biquad(const Biquad &f, BiquadState &s, double x);
    template <bool Gliding>
    void processFrames(float *left, float *right, quint32 frames);
    // The same as processFrames<false> with every parameter and memory held in locals: nothing
    // glides, so the compiler need not reload them after each store to the delay line.
    void processSteady(float *left, float *right, quint32 frames);

    // Control thread.
    Parameters m_parameters;
    quint32 m_enableCount = 0;
    bool m_initialized = false;
    double m_rate = 0.0;
    quint32 m_rampLength = 1;
    unsigned m_writeSlot = 1;

    // Handover: three slots, one being written, one being read, one in between (its index in
    // m_shared, with FreshSlot set when it holds something the reader has not seen).
    std::array<Targets, 3> m_slots;
    std::atomic<unsigned> m_shared{0};
    std::atomic<bool> m_resetRequested{false};

    // Render thread (set up by initialize()).
    unsigned m_readSlot = 2;
    bool m_enabled = false;
    quint32 m_seenEnableCount = 0;
    Values m_value{};
    Values m_step{};
    Values m_target{};
    quint32 m_glideLeft = 0;
    quint32 m_eqCountdown = 0;
    Biquad m_bass, m_treble;
    double m_eqGain = 1.0;
    BiquadState m_bassState[2], m_trebleState[2];
    double m_shadowState[2][2][2] = {}; // channel, stage, {x1, y1}
    std::vector<double> m_delayLine[2];
    quint32 m_delayMask = 0;
    quint32 m_writePos = 0;
    std::array<double, GridPoints> m_gridCos{}, m_gridCos2{};
};
