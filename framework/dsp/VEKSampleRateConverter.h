#pragma once

#include "rt/VEKAudioBufferList.h"

#include <QString>
#include <QtGlobal>

#include <atomic>
#include <type_traits>

// What soxr is asked to build. Frequencies are fractions of the lower of the two Nyquist
// frequencies (22050 Hz for 44.1 kHz to 96 kHz).
struct VEKResamplerFilter {
    // Bits of precision; the stopband rejection is about (precision + 1) x 6.02 dB. 0 selects
    // soxr's quick cubic interpolation, which has no filter and ignores the other fields.
    double precision = 20.0;
    // Where the passband ends (response within 0.01 dB below it) and the stopband begins.
    double passbandEnd = 0.913;
    double stopbandBegin = 1.0;
    // 0 minimum phase (no pre-ringing), 50 linear phase, 100 maximum phase.
    double phaseResponse = 50.0;

    bool operator==(const VEKResamplerFilter &) const = default;
};

// A sample-rate converter on soxr for pull-model rendering: each render() delivers exactly the
// frames the output list asks for, at the output rate, and pulls from a source as many input
// frames as that takes. Equal rates pass the source through untouched (bit-exact). The two
// converter classes of the engine derive from this and only choose the filter.
//
// Threads:
// - configure(), setInSampleRate(), release() and the parameter setters of the subclasses run
//   on a control thread (the main thread, or the thread of a conversion). They build a complete
//   converter there (filter design, buffers, a warm-up run) and hand it over through an atomic
//   slot; the render thread takes it up at the start of its next buffer. With the same rates
//   the new filter is primed with the input already heard and crossfaded in over 2048 output
//   frames, so a quality change while playing neither clicks nor drops a frame. A new input
//   rate takes over at once, as after reset(): the graph sets it on a branch that is not heard.
// - render() runs on the render thread and does not allocate, lock, log or wait: every buffer
//   of ours is made at configure time. soxr_output() allocates only when one of soxr's internal
//   queues finds itself short (it grows them with realloc and never shrinks them), so the
//   configure-time warm-up runs soxr on silence with requests far larger than ours and then a
//   spread of ordinary ones. With the steady buffer size an output asks for, the tests count no
//   allocation at all from the first render on, across resets, filter swaps and rate changes.
//   Left as it is: requests of erratic sizes (say a random count each time) can still, rarely,
//   meet a queue state the warm-up did not reach; we measured two reallocations of one queue
//   in 20,000 such requests in 3 of 36 rate/size/quality combinations, after which the queue
//   is at its final size.
// - reset() may be called from any thread; the next render() clears the filter's memory
//   without allocating (it feeds the converter silence and drops the corresponding output),
//   so what follows starts exactly as in a new converter.
// - The destructor and release() must not run while render() does.
class VEKSampleRateConverter {
public:
    // Called by render() on the render thread: fill `input` with input.frames() frames at the
    // input rate (the engine sets the count; at most maximumInputFrames()). Frames the source
    // leaves out (by lowering frames()) count as silence. Must not allocate, lock or wait.
    using PullFunction = void (*)(void *context, VEKAudioBufferList &input);

    virtual ~VEKSampleRateConverter();

    VEKSampleRateConverter(const VEKSampleRateConverter &) = delete;
    VEKSampleRateConverter &operator=(const VEKSampleRateConverter &) = delete;

    // Control thread. Prepares for rendering at `outSampleRate` with `channels` (1 to 64)
    // channels and buffers of up to `maxFrames` frames (larger requests are rendered in
    // pieces). False with `error` when soxr refuses the settings; the converter then keeps what
    // it had.
    bool configure(double outSampleRate, quint32 channels, quint32 maxFrames, QString *error = nullptr);
    // Control thread. The rate of the input; before configure() it is only remembered.
    bool setInSampleRate(double rate, QString *error = nullptr);
    // Control thread, while nothing renders: frees everything; configure() starts again.
    void release();

    double inSampleRate() const { return m_inRate; }
    double outSampleRate() const { return m_outRate; }
    quint32 numberOfChannels() const { return m_channels; }
    quint32 maximumFrames() const { return m_maxFrames; }
    bool isConfigured() const { return m_configured; }
    // True when the rates are equal: render() then hands the source's frames through.
    bool isPassThrough() const { return m_inRate == m_outRate; }
    // The filter the current parameters ask of soxr for the configured rates.
    VEKResamplerFilter currentFilter() const { return filterFor(m_inRate, m_outRate); }
    // The most input frames one pull asks for, for the configured rates.
    quint32 maximumInputFrames() const;

    // Any thread. Asks the next render() to forget the signal so far.
    void reset() { m_resetRequested.store(true, std::memory_order_release); }

    // A change of input rate inside one continuous stream (songs of different rates played
    // gaplessly). Control thread: builds a converter for `rate` and holds it ready. Render
    // thread, inside the pull: endInput() says the input of the present rate ends with the
    // frames this pull delivers (the source lowers frames() to where it ends). The converter then
    // delivers the output of exactly those frames, round(input frames x out / in) since its
    // signal began, and goes on, in the same render, with the prepared one from its first frame:
    // no gap and no frame lost. False (and nothing changed) when nothing is prepared.
    bool prepareNextInSampleRate(double rate, QString *error = nullptr);
    // Any thread: the rate prepared and not yet taken up, or 0.
    double preparedInSampleRate() const { return m_nextRate.load(std::memory_order_acquire); }
    bool endInput();
    // Render thread, after render(): where in its output the prepared converter took over, or -1.
    qint64 lastSwitchOffset() const { return m_lastSwitchOffset; }
    // Control thread, once the render thread has switched: the input rate is now `rate`.
    void adoptInSampleRate(double rate);

    // Render thread. Fills output.frames() frames of every channel of `output` (channels beyond
    // the configured count are zeroed). Before the first configure() the output is silence.
    void render(VEKAudioBufferList &output, PullFunction pull, void *context);
    // The same with any callable `void(VEKAudioBufferList &input)`, e.g. a lambda.
    template <typename F>
    void render(VEKAudioBufferList &output, F &&pull)
    {
        using Callable = std::remove_reference_t<F>;
        render(output, [](void *c, VEKAudioBufferList &in) { (*static_cast<Callable *>(c))(in); },
               const_cast<void *>(static_cast<const void *>(&pull)));
    }

protected:
    VEKSampleRateConverter();
    // The filter for a pair of rates under the subclass's parameters.
    virtual VEKResamplerFilter filterFor(double inRate, double outRate) const = 0;
    // Subclasses call this after a parameter changed: rebuilds when configured and the filter
    // differs. False with `error` when soxr refuses; the running converter stays as it was.
    bool update(QString *error);

private:
    struct State;

    State *build(double inRate, QString *error);
    void publish(State *state);
    void collectRetired();
    void retire(State *state);
    void install(State *next);
    void resetActive();
    void detachFading();
    // Render thread: the prepared converter takes over.
    State *switchToNext();
    // Render thread: `frames` frames of `s` into `out` (pointers per channel).
    void produceFrom(State *s, float *const *out, quint32 frames);

    // Control side.
    double m_inRate = 44100.0;
    double m_outRate = 44100.0;
    quint32 m_channels = 0;
    quint32 m_maxFrames = 0;
    bool m_configured = false;
    VEKResamplerFilter m_builtFilter;
    double m_builtInRate = 0.0;

    // Hand-over between the threads.
    std::atomic<State *> m_pending{nullptr};
    std::atomic<bool> m_resetRequested{false};
    static constexpr int RetiredSlots = 8;
    std::atomic<State *> m_retired[RetiredSlots] = {};

    std::atomic<State *> m_next{nullptr};
    std::atomic<double> m_nextRate{0.0};

    // Render side.
    bool m_inputEnded = false;
    qint64 m_lastSwitchOffset = -1;
    State *m_active = nullptr;
    State *m_fading = nullptr;
    quint32 m_fadePosition = 0;
};
