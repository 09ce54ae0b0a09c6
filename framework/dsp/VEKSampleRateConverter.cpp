#include "VEKSampleRateConverter.h"

#include <soxr.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <map>
#include <mutex>
#include <numeric>
#include <tuple>
#include <vector>

namespace {

// Input kept behind the read position, so that a new filter can be primed with what the old
// one has heard. Covers the longest filter memory soxr builds for our settings (about 25,000
// input frames for the steepest tunable filter at 44.1 kHz).
constexpr qint64 HistoryFrames = 65536;
// Length of the crossfade when a new filter takes over while playing.
constexpr quint32 CrossfadeFrames = 2048;
// Requests of the warm-up: the largest and a spread of others, so that every queue inside soxr
// has grown to its working size (a queue grows when a request finds it short, and never
// shrinks).
constexpr int WarmUpCalls = 256;

qint64 floorDiv(qint64 a, qint64 b) { return a >= 0 ? a / b : -((-a + b - 1) / b); }
qint64 ceilDiv(qint64 a, qint64 b) { return -floorDiv(-a, b); }
qint64 roundUp(qint64 a, qint64 step) { return ceilDiv(a, step) * step; }

struct Feeder;

// Input pulled from the source, addressed by a running frame index. Several readers (the
// current filter and, during a crossfade, the one it replaces) read the same frames.
struct Ring {
    quint32 channels = 0;
    qint64 capacity = 0;
    std::vector<float> data;
    qint64 start = 0; // index of the oldest frame kept
    qint64 end = 0;   // one past the newest frame
    Feeder *readers[2] = {nullptr, nullptr};
    // Set by the source through endInput(): the input ends at `endIndex`, and what a filter
    // reads beyond it is silence, never pulled.
    bool *endSignal = nullptr;
    bool ended = false;
    qint64 endIndex = 0;
    VEKAudioBufferList pullList;
    VEKSampleRateConverter::PullFunction pull = nullptr;
    void *context = nullptr;

    float *at(quint32 c, qint64 index) { return data.data() + size_t(c) * size_t(capacity) + size_t(index - start); }
    void append(qint64 frames);
};

// What one soxr resampler reads through its input function: first `zeros` frames of silence,
// then the ring from `cursor` on.
struct Feeder {
    Ring *ring = nullptr;
    qint64 cursor = 0;
    qint64 zeros = 0;
    qint64 fed = 0; // frames handed to soxr since it was made
    std::vector<const void *> pointers;
    std::vector<const void *> zeroPointers;
    qint64 zeroCapacity = 0;
};

void Ring::append(qint64 frames)
{
    if (end - start + frames > capacity) {
        qint64 keep = end;
        for (Feeder *r : readers)
            if (r)
                keep = std::min(keep, r->cursor);
        keep = std::clamp(keep - HistoryFrames, start, end);
        if (end - keep + frames > capacity)
            keep = end + frames - capacity; // drop history rather than overflow
        for (quint32 c = 0; c < channels; ++c)
            std::memmove(data.data() + size_t(c) * size_t(capacity), at(c, keep), sizeof(float) * size_t(end - keep));
        start = keep;
        for (Feeder *r : readers)
            if (r && r->cursor < start)
                r->cursor = start;
    }
    pullList.setFrames(quint32(frames));
    if (pull && !ended)
        pull(context, pullList);
    else
        pullList.setFrames(0);
    const qint64 got = std::min<qint64>(pullList.frames(), frames);
    if (endSignal && *endSignal && !ended) {
        ended = true;
        endIndex = end + got;
    }
    for (quint32 c = 0; c < channels; ++c) {
        float *dst = at(c, end);
        std::memcpy(dst, pullList.channel(c), sizeof(float) * size_t(got));
        std::memset(dst + got, 0, sizeof(float) * size_t(frames - got));
    }
    end += frames;
}

size_t feedInput(void *state, soxr_in_t *data, size_t requested)
{
    auto *f = static_cast<Feeder *>(state);
    const qint64 want = qint64(std::max<size_t>(requested, 1));
    qint64 n;
    if (f->zeros > 0) {
        n = std::min({want, f->zeros, f->zeroCapacity});
        f->zeros -= n;
        *data = f->zeroPointers.data();
    } else {
        Ring &r = *f->ring;
        if (f->cursor >= r.end)
            r.append(std::min<qint64>(want, r.pullList.capacity()));
        n = std::min(want, r.end - f->cursor);
        for (quint32 c = 0; c < r.channels; ++c)
            f->pointers[c] = r.at(c, f->cursor);
        f->cursor += n;
        *data = f->pointers.data();
    }
    f->fed += n;
    return size_t(n);
}

// Frames of silence after which soxr's output no longer carries anything of earlier input,
// measured once per filter and pair of rates from the length of its impulse response.
qint64 memoryFrames(double inRate, double outRate, const soxr_quality_spec_t &spec)
{
    static std::mutex mutex;
    static std::map<std::tuple<double, double, double, double, double, double>, qint64> cache;
    const auto key = std::make_tuple(inRate, outRate, spec.precision, spec.passband_end,
                                     spec.stopband_begin, spec.phase_response);
    {
        std::lock_guard<std::mutex> lock(mutex);
        auto it = cache.find(key);
        if (it != cache.end())
            return it->second;
    }
    soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    soxr_error_t err = nullptr;
    soxr_t s = soxr_create(inRate, outRate, 1, &err, &io, &spec, &runtime);
    qint64 last = 0;
    if (s && !err) {
        std::vector<float> in(4096, 0.0f), out(16384);
        in[0] = 1.0f;
        qint64 produced = 0;
        while (produced < 1 << 22) {
            size_t idone = 0, odone = 0;
            if (soxr_process(s, in.data(), in.size(), &idone, out.data(), out.size(), &odone))
                break;
            for (size_t i = 0; i < odone; ++i)
                if (std::fabs(out[i]) > 1e-9f)
                    last = produced + qint64(i);
            produced += qint64(odone);
            in[0] = 0.0f;
            if (produced > last + 65536 && produced > 131072)
                break;
        }
    }
    soxr_delete(s);
    const qint64 frames = qint64(std::ceil(double(last + 1) * inRate / outRate)) + 64;
    std::lock_guard<std::mutex> lock(mutex);
    cache[key] = frames;
    return frames;
}

} // namespace

struct VEKSampleRateConverter::State {
    double inRate = 0.0;
    double outRate = 0.0;
    quint32 channels = 0;
    quint32 maxFrames = 0;
    bool passThrough = false;

    // q input frames make exactly p output frames (exact for whole-number rates).
    qint64 p = 1;
    qint64 q = 1;
    bool exactRatio = false;
    qint64 flushFrames = 0;

    soxr_t soxr = nullptr;
    Ring ring;
    Feeder feeder;
    std::vector<float> zeros;
    std::vector<float> interleaved;
    VEKAudioBufferList fadeList;

    qint64 outputs = 0;  // frames soxr has delivered since it was made
    qint64 skip = 0;     // of the frames still to come, how many belong before the signal
    qint64 base = 0;     // ring index where the signal of this converter begins
    qint64 produced = 0; // signal frames delivered since `base`
    bool dirty = false;  // has taken in any real input

    ~State()
    {
        if (soxr)
            soxr_delete(soxr);
    }

    qint64 outputIndexOfInput(qint64 inputIndex) const
    {
        return exactRatio ? inputIndex / q * p : qint64(std::llround(double(inputIndex) * outRate / inRate));
    }

    // Makes the next real input frame start a fresh signal: enough silence first to clear the
    // filter, rounded to a whole period of the rate ratio, and the output up to it dropped.
    void startSignalAfterSilence(qint64 minimumSilence)
    {
        const qint64 next = feeder.fed + feeder.zeros;
        const qint64 target = roundUp(next + minimumSilence, q);
        feeder.zeros += target - next;
        skip = std::max<qint64>(0, outputIndexOfInput(target) - outputs);
        feeder.cursor = ring.end;
        ring.start = ring.end;
        base = ring.end;
        produced = 0;
        dirty = false;
    }

    // Renders `frames` (at most maxFrames) signal frames into `out` (one pointer per channel).
    void produce(float *const *out, quint32 frames)
    {
        while (skip > 0) {
            const size_t got = soxr_output(soxr, interleaved.data(), size_t(std::min<qint64>(skip, maxFrames)));
            if (got == 0)
                break;
            outputs += qint64(got);
            skip -= qint64(got);
        }
        const size_t got = soxr_output(soxr, interleaved.data(), frames);
        outputs += qint64(got);
        produced += qint64(got);
        dirty = true;
        const float *src = interleaved.data();
        for (quint32 c = 0; c < channels; ++c) {
            float *dst = out[c];
            for (size_t i = 0; i < got; ++i)
                dst[i] = src[i * channels + c];
            if (got < frames)
                std::memset(dst + got, 0, sizeof(float) * (frames - got));
        }
    }
};

VEKSampleRateConverter::VEKSampleRateConverter() = default;

VEKSampleRateConverter::~VEKSampleRateConverter() { release(); }

quint32 VEKSampleRateConverter::maximumInputFrames() const
{
    if (m_inRate <= 0.0 || m_outRate <= 0.0)
        return 0;
    return quint32(std::ceil(double(m_maxFrames) * m_inRate / m_outRate)) + 16;
}

bool VEKSampleRateConverter::configure(double outSampleRate, quint32 channels, quint32 maxFrames, QString *error)
{
    if (!(outSampleRate > 0.0) || channels == 0 || channels > 64 || maxFrames == 0) {
        if (error)
            *error = QStringLiteral("invalid converter format");
        return false;
    }
    const double oldOut = m_outRate;
    const quint32 oldChannels = m_channels, oldMax = m_maxFrames;
    m_outRate = outSampleRate;
    m_channels = channels;
    m_maxFrames = maxFrames;
    State *s = build(m_inRate, error);
    if (!s) {
        m_outRate = oldOut;
        m_channels = oldChannels;
        m_maxFrames = oldMax;
        return false;
    }
    m_configured = true;
    // A converter prepared for the old output rate no longer fits.
    delete m_next.exchange(nullptr);
    m_nextRate.store(0.0);
    publish(s);
    return true;
}

bool VEKSampleRateConverter::prepareNextInSampleRate(double rate, QString *error)
{
    if (!m_configured || !(rate > 0.0)) {
        if (error)
            *error = QStringLiteral("invalid input sample rate");
        return false;
    }
    collectRetired();
    const double builtRate = m_builtInRate;
    const VEKResamplerFilter builtFilter = m_builtFilter;
    State *s = build(rate, error);
    // The converter in use keeps its own description.
    m_builtInRate = builtRate;
    m_builtFilter = builtFilter;
    if (!s)
        return false;
    m_nextRate.store(0.0, std::memory_order_release);
    delete m_next.exchange(s, std::memory_order_acq_rel); // never seen by the render thread
    m_nextRate.store(rate, std::memory_order_release);
    return true;
}

void VEKSampleRateConverter::adoptInSampleRate(double rate)
{
    collectRetired(); // the converter the render thread left
    m_inRate = rate;
    m_builtInRate = rate;
    m_builtFilter = filterFor(rate, m_outRate);
}

bool VEKSampleRateConverter::endInput()
{
    if (!m_next.load(std::memory_order_acquire))
        return false;
    m_inputEnded = true;
    return true;
}

VEKSampleRateConverter::State *VEKSampleRateConverter::switchToNext()
{
    m_inputEnded = false;
    State *next = m_next.exchange(nullptr, std::memory_order_acq_rel);
    m_nextRate.store(0.0, std::memory_order_release);
    if (!next)
        return m_active;
    detachFading();
    retire(m_active);
    m_active = next;
    return next;
}

void VEKSampleRateConverter::produceFrom(State *s, float *const *out, quint32 frames)
{
    if (!s->passThrough) {
        s->produce(out, frames);
        return;
    }
    // Pulled into a list of our own: the output is addressed from an offset here.
    s->fadeList.setFrames(frames);
    s->ring.pull(s->ring.context, s->fadeList);
    const quint32 got = std::min(frames, s->fadeList.frames());
    for (quint32 c = 0; c < s->channels; ++c) {
        if (out[c] != s->fadeList.channel(c))
            std::memcpy(out[c], s->fadeList.channel(c), sizeof(float) * got);
        std::memset(out[c] + got, 0, sizeof(float) * (frames - got));
    }
}

bool VEKSampleRateConverter::setInSampleRate(double rate, QString *error)
{
    if (!(rate > 0.0)) {
        if (error)
            *error = QStringLiteral("invalid input sample rate");
        return false;
    }
    if (!m_configured) {
        m_inRate = rate;
        return true;
    }
    if (rate == m_builtInRate && filterFor(rate, m_outRate) == m_builtFilter)
        return true;
    State *s = build(rate, error);
    if (!s)
        return false;
    m_inRate = rate;
    publish(s);
    return true;
}

bool VEKSampleRateConverter::update(QString *error)
{
    if (!m_configured || filterFor(m_inRate, m_outRate) == m_builtFilter)
        return true;
    State *s = build(m_inRate, error);
    if (!s)
        return false;
    publish(s);
    return true;
}

void VEKSampleRateConverter::release()
{
    collectRetired();
    delete m_next.exchange(nullptr);
    m_nextRate.store(0.0);
    delete m_pending.exchange(nullptr);
    delete m_fading;
    m_fading = nullptr;
    delete m_active;
    m_active = nullptr;
    m_configured = false;
    m_builtInRate = 0.0;
}

VEKSampleRateConverter::State *VEKSampleRateConverter::build(double inRate, QString *error)
{
    auto s = std::make_unique<State>();
    s->inRate = inRate;
    s->outRate = m_outRate;
    s->channels = m_channels;
    s->maxFrames = m_maxFrames;
    s->passThrough = inRate == m_outRate;
    const VEKResamplerFilter filter = filterFor(inRate, m_outRate);
    s->fadeList.allocate(m_channels, m_maxFrames);
    if (s->passThrough) {
        m_builtFilter = filter;
        m_builtInRate = inRate;
        return s.release();
    }

    if (inRate == std::floor(inRate) && m_outRate == std::floor(m_outRate) && inRate < 1e9 && m_outRate < 1e9) {
        const qint64 in = qint64(inRate), out = qint64(m_outRate);
        const qint64 g = std::gcd(in, out);
        s->q = in / g;
        s->p = out / g;
        s->exactRatio = true;
    }

    soxr_quality_spec_t spec = soxr_quality_spec(filter.precision == 0.0 ? SOXR_QQ : SOXR_HQ, 0);
    if (filter.precision != 0.0) {
        spec.precision = filter.precision;
        spec.passband_end = filter.passbandEnd;
        spec.stopband_begin = filter.stopbandBegin;
        spec.phase_response = filter.phaseResponse;
    }
    soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_S, SOXR_FLOAT32_I);
    soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    soxr_error_t err = nullptr;
    s->soxr = soxr_create(inRate, m_outRate, m_channels, &err, &io, &spec, &runtime);
    if (!s->soxr || err) {
        if (error)
            *error = QStringLiteral("sample-rate converter refused: %1").arg(QString::fromUtf8(err ? err : "unknown error"));
        return nullptr;
    }

    const qint64 maxPull = qint64(std::ceil(double(m_maxFrames) * inRate / m_outRate)) + 16;
    soxr_set_input_fn(s->soxr, feedInput, &s->feeder, size_t(maxPull));
    s->flushFrames = memoryFrames(inRate, m_outRate, spec);

    Ring &r = s->ring;
    r.channels = m_channels;
    r.capacity = 2 * HistoryFrames + 4 * maxPull + 2 * s->flushFrames + 64;
    r.data.assign(size_t(r.capacity) * m_channels, 0.0f);
    r.pullList.allocate(m_channels, quint32(maxPull));
    r.readers[0] = &s->feeder;
    s->interleaved.assign(size_t(m_maxFrames) * m_channels, 0.0f);
    Feeder &f = s->feeder;
    f.ring = &r;
    f.pointers.assign(m_channels, nullptr);

    // Warm-up on silence. soxr designs the filter on first use, and its queues grow when a
    // request finds them short, never shrinking; one that has once held far more than a
    // render will ever ask for only moves its contents down from then on. So: a few requests
    // much larger than ours (input and output), then a spread of ordinary ones.
    const qint64 bigOut = std::max<qint64>({16 * qint64(m_maxFrames), 65536, 4 * s->flushFrames * s->p / s->q});
    const qint64 bigIn = std::max<qint64>({16 * maxPull, 65536, 4 * s->flushFrames});
    s->zeros.assign(size_t(bigIn), 0.0f);
    f.zeroPointers.assign(m_channels, s->zeros.data());
    f.zeroCapacity = bigIn;
    f.zeros = std::numeric_limits<qint64>::max() / 4;
    {
        std::vector<float> big(size_t(bigOut) * m_channels);
        soxr_set_input_fn(s->soxr, feedInput, &f, size_t(bigIn));
        for (int i = 0; i < 3; ++i)
            s->outputs += qint64(soxr_output(s->soxr, big.data(), size_t(bigOut)));
    }
    soxr_set_input_fn(s->soxr, feedInput, &f, size_t(maxPull));
    f.zeroCapacity = maxPull;
    quint32 lcg = 12345;
    for (int i = 0; i < WarmUpCalls; ++i) {
        lcg = lcg * 1664525u + 1013904223u;
        const size_t n = i % 4 == 0 ? m_maxFrames : 1 + (lcg >> 8) % m_maxFrames;
        s->outputs += qint64(soxr_output(s->soxr, s->interleaved.data(), n));
    }
    f.zeros = 0;
    if (soxr_error(s->soxr)) {
        if (error)
            *error = QStringLiteral("sample-rate converter failed: %1").arg(QString::fromUtf8(soxr_error(s->soxr)));
        return nullptr;
    }
    // Everything so far was silence, so the filter's memory is clear already; only the period
    // of the ratio needs rounding out.
    s->startSignalAfterSilence(0);
    m_builtFilter = filter;
    m_builtInRate = inRate;
    return s.release();
}

void VEKSampleRateConverter::publish(State *state)
{
    collectRetired();
    delete m_pending.exchange(state, std::memory_order_acq_rel); // never seen by the render thread
}

void VEKSampleRateConverter::collectRetired()
{
    for (auto &slot : m_retired)
        delete slot.exchange(nullptr, std::memory_order_acq_rel);
}

void VEKSampleRateConverter::retire(State *state)
{
    if (!state)
        return;
    for (auto &slot : m_retired) {
        State *expected = nullptr;
        if (slot.compare_exchange_strong(expected, state, std::memory_order_acq_rel))
            return;
    }
    // Every slot taken: at most two states retire between two calls of the control thread,
    // which empties the slots each time, so this is not reached. Keeping the state alive is
    // the safe way out if it ever were.
}

void VEKSampleRateConverter::detachFading()
{
    if (!m_fading)
        return;
    if (m_active)
        m_active->ring.readers[1] = nullptr;
    retire(m_fading);
    m_fading = nullptr;
}

void VEKSampleRateConverter::install(State *next)
{
    State *old = m_active;
    m_active = next;
    const bool sameFormat = old && !old->passThrough && !next->passThrough && old->dirty &&
                            old->inRate == next->inRate && old->outRate == next->outRate &&
                            old->channels == next->channels && old->maxFrames == next->maxFrames;
    if (!sameFormat) {
        retire(old);
        return;
    }

    // Prime the new filter with input the old one has heard, from a point far enough back for
    // its memory and on the same grid of the rate ratio, and discard its output up to where
    // the old one stands; then the two run in step and can be crossfaded.
    const qint64 p = old->p, q = old->q;
    qint64 k = std::max<qint64>(0, floorDiv(old->produced * q - next->flushFrames * p, p * q));
    qint64 from = old->base + k * q;
    if (from < old->ring.start) {
        k = ceilDiv(old->ring.start - old->base, q);
        from = old->base + k * q;
    }
    const qint64 count = old->ring.end - from;
    if (k * p > old->produced || count > next->ring.capacity || count < 0) {
        retire(old); // cannot align: take over at once
        return;
    }
    Ring &r = next->ring;
    r.start = from;
    r.end = old->ring.end;
    for (quint32 c = 0; c < r.channels; ++c)
        std::memcpy(r.at(c, from), old->ring.at(c, from), sizeof(float) * size_t(count));
    next->feeder.cursor = from;
    next->base = from;
    next->skip += old->produced - k * p;
    next->produced = old->produced - k * p;
    next->dirty = true;
    old->feeder.ring = &r;
    r.readers[1] = &old->feeder;
    old->ring.readers[0] = nullptr;
    m_fading = old;
    m_fadePosition = 0;
}

void VEKSampleRateConverter::resetActive()
{
    detachFading();
    State *s = m_active;
    if (!s || s->passThrough || !s->dirty)
        return;
    s->startSignalAfterSilence(s->flushFrames);
}

void VEKSampleRateConverter::render(VEKAudioBufferList &output, PullFunction pull, void *context)
{
    if (!m_fading) {
        if (State *next = m_pending.exchange(nullptr, std::memory_order_acq_rel))
            install(next);
    }
    if (m_resetRequested.exchange(false, std::memory_order_acq_rel))
        resetActive();

    const quint32 frames = output.frames();
    m_lastSwitchOffset = -1;
    State *s = m_active;
    if (!s) {
        output.clear();
        return;
    }
    s->ring.pull = pull;
    s->ring.context = context;
    s->ring.endSignal = &m_inputEnded;

    quint32 start = 0;
    if (s->passThrough) {
        pull(context, output);
        const quint32 got = std::min(output.frames(), frames);
        output.setFrames(frames);
        if (got < frames && m_inputEnded) {
            // The input went on at another rate: the prepared converter renders the rest.
            s = switchToNext();
            m_lastSwitchOffset = got;
            start = got;
        } else {
            for (quint32 c = 0; c < output.numberOfChannels(); ++c)
                std::memset(output.channel(c) + got, 0, sizeof(float) * (frames - got));
            for (quint32 c = s->channels; c < output.numberOfChannels(); ++c)
                std::memset(output.channel(c), 0, sizeof(float) * frames);
            return;
        }
        s->ring.pull = pull;
        s->ring.context = context;
        s->ring.endSignal = &m_inputEnded;
    }

    const quint32 channels = std::min(s->channels, output.numberOfChannels());
    float *out[64];
    float *fade[64];
    const quint32 usable = std::min<quint32>(channels, 64);
    for (quint32 done = start; done < frames;) {
        quint32 n = std::min(frames - done, s->maxFrames);
        // Where the output of an input that has ended stops: no further than its own frames.
        const auto endOfSignal = [](const State *st) {
            return qint64(std::llround(double(st->ring.endIndex - st->base) * st->outRate / st->inRate));
        };
        if (!s->passThrough && s->ring.ended)
            n = quint32(std::clamp<qint64>(endOfSignal(s) - s->produced, 0, n));
        // Channels the output lacks are rendered into the fade list and dropped.
        for (quint32 c = 0; c < s->channels && c < 64; ++c)
            out[c] = c < usable ? output.channel(c) + done : s->fadeList.channel(c);
        if (s->passThrough) {
            produceFrom(s, out, n);
            if (m_inputEnded) {
                // Only reached after a switch: a pass-through converter's pull ends short.
                const quint32 got = std::min(n, s->fadeList.frames());
                s = switchToNext();
                m_lastSwitchOffset = done + got;
                done += got;
                s->ring.pull = pull;
                s->ring.context = context;
                s->ring.endSignal = &m_inputEnded;
            } else {
                done += n;
            }
            continue;
        }
        if (n > 0)
            s->produce(out, n);
        if (s->ring.ended && s->produced >= endOfSignal(s)) {
            // What this call gave past the end belongs to the next converter.
            const quint32 over = quint32(std::min<qint64>(s->produced - endOfSignal(s), n));
            const quint32 at = done + n - over;
            State *next = switchToNext();
            if (next != s) {
                s = next;
                m_lastSwitchOffset = at;
                s->ring.pull = pull;
                s->ring.context = context;
                s->ring.endSignal = &m_inputEnded;
                done = at;
                continue;
            }
        }
        if (m_fading) {
            for (quint32 c = 0; c < s->channels && c < 64; ++c)
                fade[c] = m_fading->fadeList.channel(c);
            m_fading->produce(fade, n);
            for (quint32 i = 0; i < n; ++i) {
                const float w = std::min(1.0f, float(m_fadePosition + i) / float(CrossfadeFrames));
                for (quint32 c = 0; c < usable; ++c)
                    out[c][i] = fade[c][i] + w * (out[c][i] - fade[c][i]);
            }
            m_fadePosition += n;
            if (m_fadePosition >= CrossfadeFrames)
                detachFading();
        }
        done += n;
    }
    for (quint32 c = channels; c < output.numberOfChannels(); ++c)
        std::memset(output.channel(c), 0, sizeof(float) * frames);
}
