#include "VEKDither.h"

#include "VEKNoiseShaping.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

// Rounds to the nearest integer, ties to even (the default rounding mode), without a call into
// the maths library. |v| must stay well inside the int32 range; callers clamp first.
inline float roundToInteger(float v)
{
#if defined(__SSE2__)
    return float(_mm_cvtss_si32(_mm_set_ss(v)));
#else
    return std::nearbyint(v);
#endif
}

// Largest error fed back, in LSB. Normal operation stays within dither peak + 0.5; only a
// clipped sample goes beyond, and feeding that back whole would make the shaper ring.
constexpr float MaxError = 4.0f;
constexpr float PeakCorrection = 2.0f;

const double MbitAmounts[] = {0.5, 0.75, 1.0, 1.25, 1.5};

struct Key {
    const char *name;
    int fallback;
};
const Key Keys[] = {{"depth", 16},      {"type", 2},         {"basicShape", 2},
                    {"basicNumberOfBits", 0}, {"mbitShape", 3}, {"mbitAmount", 2},
                    {"autoBlanking", 0}, {"minimizePeaks", 0}, {"silenceHarmonics", 0}};

bool readInt(const QVariantMap &map, const char *key, int fallback, int *out)
{
    const auto it = map.constFind(QLatin1String(key));
    if (it == map.constEnd() || !it->isValid()) {
        *out = fallback;
        return true;
    }
    bool ok = false;
    const double v = it->toDouble(&ok);
    if (!ok || !std::isfinite(v))
        return false;
    *out = int(std::clamp(v, -1e6, 1e6));
    return true;
}

} // namespace

struct VEKDither::Settings {
    quint32 depth = 16;
    bool untouched = false; // depth above what a float carries
    float scale = 32768.0f; // 2^(depth-1): LSB units per full scale
    float inverse = 1.0f / 32768.0f;
    float peak = 1.0f; // TPDF peak in LSB
    int order = 0;
    float coefficients[MaxOrder] = {};
    bool autoBlanking = false;
    bool minimizePeaks = false;
};

VEKDither::VEKDither()
{
    m_properties = defaultProperties();
    m_current.reset(prepare(m_properties, nullptr));
    publish(new Settings(*m_current));
}

VEKDither::~VEKDither()
{
    collectRetired();
    delete m_pending.exchange(nullptr);
    delete m_active;
}

QVariantMap VEKDither::defaultProperties()
{
    QVariantMap map;
    map.insert(QStringLiteral("depth"), 16);
    map.insert(QStringLiteral("type"), 2);
    map.insert(QStringLiteral("basicShape"), 2);
    map.insert(QStringLiteral("basicNumberOfBits"), 0);
    map.insert(QStringLiteral("mbitShape"), 3);
    map.insert(QStringLiteral("mbitAmount"), 2);
    map.insert(QStringLiteral("autoBlanking"), false);
    map.insert(QStringLiteral("minimizePeaks"), false);
    map.insert(QStringLiteral("silenceHarmonics"), false);
    return map;
}

VEKDither::Settings *VEKDither::prepare(const QVariantMap &properties, QString *error) const
{
    int v[std::size(Keys)];
    for (size_t i = 0; i < std::size(Keys); ++i) {
        if (!readInt(properties, Keys[i].name, Keys[i].fallback, &v[i])) {
            if (error)
                *error = QStringLiteral("dither setting %1 is not a number").arg(QLatin1String(Keys[i].name));
            return nullptr;
        }
    }
    const int depth = v[0], type = v[1], basicShape = v[2], basicBits = v[3], mbitShape = v[4], mbitAmount = v[5];
    if (depth < 2 || depth > 32) {
        if (error)
            *error = QStringLiteral("dither depth %1 is not between 2 and 32 bits").arg(depth);
        return nullptr;
    }

    auto s = std::make_unique<Settings>();
    s->depth = quint32(depth);
    s->untouched = depth > 24;
    s->scale = std::ldexp(1.0f, depth - 1);
    s->inverse = 1.0f / s->scale;
    s->autoBlanking = v[6] != 0;
    s->minimizePeaks = v[7] != 0;
    const bool silenceHarmonics = v[8] != 0;

    std::vector<double> shaping;
    const double rate = m_sampleRate;
    if (type >= 2) {
        s->peak = float(MbitAmounts[std::clamp(mbitAmount, 0, 4)]);
        switch (std::clamp(mbitShape, 0, 4)) {
        case 1: shaping = VEKNoiseShaping::psychoacoustic(rate, 3, 12.0); break;
        case 2: shaping = VEKNoiseShaping::psychoacoustic(rate, 5, 20.0); break;
        case 3: shaping = VEKNoiseShaping::psychoacoustic(rate, 9, 30.0); break;
        case 4: shaping = VEKNoiseShaping::psychoacoustic(rate, 12, 40.0); break;
        default: break;
        }
    } else {
        s->peak = float(std::clamp(basicBits, 1, 4));
        switch (std::clamp(basicShape, 0, 4)) {
        case 1: shaping = VEKNoiseShaping::firstOrder(); break;
        case 2: shaping = VEKNoiseShaping::notch(rate, 3500.0); break;
        case 3: shaping = VEKNoiseShaping::psychoacoustic(rate, 5, 24.0); break;
        case 4: shaping = VEKNoiseShaping::psychoacoustic(rate, 9, 30.0); break;
        default: break;
        }
    }
    if (silenceHarmonics)
        s->peak = std::max(s->peak, 1.0f);
    s->order = int(std::min<size_t>(shaping.size(), MaxOrder));
    for (int k = 0; k < s->order; ++k)
        s->coefficients[k] = float(shaping[size_t(k)]);
    return s.release();
}

bool VEKDither::setProperties(const QVariantMap &properties, QString *error)
{
    Settings *s = prepare(properties, error);
    if (!s)
        return false;
    QVariantMap complete = defaultProperties();
    for (auto it = properties.constBegin(); it != properties.constEnd(); ++it)
        complete.insert(it.key(), it.value());
    m_properties = complete;
    m_current.reset(new Settings(*s));
    publish(s);
    return true;
}

void VEKDither::setSampleRate(double sampleRate)
{
    if (!(sampleRate > 0.0) || sampleRate == m_sampleRate)
        return;
    m_sampleRate = sampleRate;
    if (Settings *s = prepare(m_properties, nullptr)) {
        m_current.reset(new Settings(*s));
        publish(s);
    }
}

quint32 VEKDither::depth() const { return m_current->depth; }

double VEKDither::ditherPeak() const { return m_current->peak; }

std::vector<double> VEKDither::noiseShaping() const
{
    return std::vector<double>(m_current->coefficients, m_current->coefficients + m_current->order);
}

void VEKDither::publish(Settings *settings)
{
    collectRetired();
    delete m_pending.exchange(settings, std::memory_order_acq_rel);
}

void VEKDither::collectRetired()
{
    for (auto &slot : m_retired)
        delete slot.exchange(nullptr, std::memory_order_acq_rel);
}

void VEKDither::clearMemory()
{
    std::memset(m_history, 0, sizeof m_history);
    std::memset(m_position, 0, sizeof m_position);
    std::memset(m_pairHistory, 0, sizeof m_pairHistory);
    std::memset(m_pairPosition, 0, sizeof m_pairPosition);
}

void VEKDither::process(VEKAudioBufferList &buffer)
{
    float *channels[MaxChannels];
    const quint32 n = std::min(buffer.numberOfChannels(), MaxChannels);
    for (quint32 c = 0; c < n; ++c)
        channels[c] = buffer.channel(c);
    process(channels, n, buffer.frames());
}

void VEKDither::process(float *const *channels, quint32 channelCount, quint32 frames)
{
    if (Settings *next = m_pending.exchange(nullptr, std::memory_order_acq_rel)) {
        Settings *old = m_active;
        m_active = next;
        if (old) {
            bool parked = false;
            for (auto &slot : m_retired) {
                Settings *expected = nullptr;
                if (slot.compare_exchange_strong(expected, old, std::memory_order_acq_rel)) {
                    parked = true;
                    break;
                }
            }
            (void)parked; // every slot taken cannot happen: each hand-over empties them first
        }
    }
    if (m_resetRequested.exchange(false, std::memory_order_acq_rel)) {
        clearMemory();
        m_zeroRun = 0;
    }
    const Settings *s = m_active;
    channelCount = std::min(channelCount, MaxChannels);
    if (!s || s->untouched || frames == 0 || channelCount == 0)
        return;

    // A buffer that already fits the word length passes as it is.
    bool fits = true;
    for (quint32 c = 0; c < channelCount && fits; ++c) {
        const float *x = channels[c];
        for (quint32 i = 0; i < frames; ++i) {
            const float v = x[i] * s->scale;
            if (!(v >= -s->scale && v <= s->scale - 1.0f) || v != roundToInteger(v)) {
                fits = false;
                break;
            }
        }
    }
    if (fits) {
        clearMemory();
        bool silent = true;
        for (quint32 c = 0; c < channelCount && silent; ++c)
            for (quint32 i = 0; i < frames; ++i)
                if (channels[c][i] != 0.0f) {
                    silent = false;
                    break;
                }
        m_zeroRun = silent ? m_zeroRun + frames : 0;
        return;
    }

    if (!s->autoBlanking) {
        dither(channels, channelCount, 0, frames);
        return;
    }

    auto silentFrame = [&](quint32 i) {
        for (quint32 c = 0; c < channelCount; ++c)
            if (channels[c][i] != 0.0f)
                return false;
        return true;
    };
    for (quint32 i = 0; i < frames;) {
        quint32 j = i;
        while (j < frames && silentFrame(j))
            ++j;
        if (j > i) {
            const quint64 run = (j - i) + (i == 0 ? m_zeroRun : 0);
            if (run >= BlankingFrames)
                clearMemory(); // the zeros stay as they are
            else
                dither(channels, channelCount, i, j);
            m_zeroRun = j == frames ? run : 0;
            i = j;
            continue;
        }
        while (j < frames && !silentFrame(j))
            ++j;
        dither(channels, channelCount, i, j);
        m_zeroRun = 0;
        i = j;
    }
}

namespace {

// The error-feedback quantiser over `Lanes` channels at once: each channel's loop is a chain
// of dependent steps (an error feeds the next sample), so running two side by side keeps the
// processor busy. Only the newest error is on that chain; the older terms are summed first.
template <int Lanes>
void quantise(float *const *x, float (*const *history)[2 * VEKDither::MaxOrder], int *positions,
              const float *coefficients, int order, float peak, float scale, bool limit, quint32 from,
              quint32 to, quint64 *rnd)
{
    constexpr int M = VEKDither::MaxOrder;
    const float inverse = 1.0f / scale, top = scale - 1.0f, bottom = -scale;
    const float c0 = order > 0 ? coefficients[0] : 0.0f;
    float *h[Lanes];
    int pos[Lanes];
    float last[Lanes];
    quint64 state[Lanes];
    for (int l = 0; l < Lanes; ++l) {
        state[l] = rnd[l];
        h[l] = *history[l];
        pos[l] = positions[l];
        last[l] = h[l][pos[l]];
    }
    for (quint32 i = from; i < to; ++i) {
        float older[Lanes], d[Lanes];
        for (int l = 0; l < Lanes; ++l) {
            float sum = 0.0f;
            for (int k = order - 1; k >= 1; --k)
                sum += coefficients[k] * h[l][pos[l] + k];
            older[l] = sum;
            // A 64-bit LCG per channel (one multiply-add on each chain); its upper 48 bits make
            // two 24-bit uniforms, and their difference one triangular value in (-peak, peak).
            state[l] = state[l] * 6364136223846793005ull + 1442695040888963407ull;
            const quint64 r = state[l];
            d[l] = (float(qint32(r >> 40)) - float(qint32((r >> 16) & 0xFFFFFFu))) * peak;
        }
        for (int l = 0; l < Lanes; ++l) {
            float correction = older[l] + c0 * last[l];
            if (limit)
                correction = std::clamp(correction, -PeakCorrection, PeakCorrection);
            const float v = x[l][i] * scale + correction;
            const float y = std::clamp(roundToInteger(std::clamp(v + d[l], bottom - 8.0f, top + 8.0f)), bottom, top);
            const float e = std::clamp(y - v, -MaxError, MaxError);
            pos[l] = pos[l] == 0 ? M - 1 : pos[l] - 1;
            h[l][pos[l]] = h[l][pos[l] + M] = e;
            last[l] = e;
            x[l][i] = y * inverse;
        }
    }
    for (int l = 0; l < Lanes; ++l) {
        positions[l] = pos[l];
        rnd[l] = state[l];
    }
}

} // namespace

#if defined(__SSE2__)
namespace {

// The same quantiser for a pair of channels in the lanes of one SSE register: half the
// instructions of two scalar chains. History entries hold the pair in lanes 0 and 1.
template <bool ClampError>
void quantisePair(float *a, float *b, float (*history)[4], int &position, const float *coefficients, int order,
                  float peak, float scale, bool limit, quint32 from, quint32 to, quint64 *rnd)
{
    constexpr int M = VEKDither::MaxOrder;
    const __m128 vscale = _mm_set1_ps(scale), vinverse = _mm_set1_ps(1.0f / scale);
    const __m128 top = _mm_set1_ps(scale - 1.0f), bottom = _mm_set1_ps(-scale);
    const __m128 two = _mm_set1_ps(2.0f), minusTwo = _mm_set1_ps(-2.0f);
    const __m128 maxError = _mm_set1_ps(MaxError), minError = _mm_set1_ps(-MaxError);
    const __m128 maxCorrection = _mm_set1_ps(PeakCorrection), minCorrection = _mm_set1_ps(-PeakCorrection);
    const __m128 vpeak = _mm_set1_ps(peak);
    __m128 c[M];
    for (int k = 0; k < M; ++k)
        c[k] = _mm_set1_ps(k < order ? coefficients[k] : 0.0f);
    int pos = position;
    __m128 last = _mm_load_ps(history[pos]);
    quint64 s0 = rnd[0], s1 = rnd[1];
    for (quint32 i = from; i < to; ++i) {
        __m128 older = _mm_setzero_ps();
        for (int k = order - 1; k >= 1; --k)
            older = _mm_add_ps(older, _mm_mul_ps(c[k], _mm_load_ps(history[pos + k])));
        s0 = s0 * 6364136223846793005ull + 1442695040888963407ull;
        s1 = s1 * 6364136223846793005ull + 1442695040888963407ull;
        const __m128 u = _mm_cvtepi32_ps(_mm_set_epi32(int((s1 >> 16) & 0xFFFFFFu), int(s1 >> 40),
                                                       int((s0 >> 16) & 0xFFFFFFu), int(s0 >> 40)));
        const __m128 d = _mm_mul_ps(_mm_sub_ps(_mm_shuffle_ps(u, u, _MM_SHUFFLE(2, 0, 2, 0)),
                                               _mm_shuffle_ps(u, u, _MM_SHUFFLE(3, 1, 3, 1))), vpeak);
        if (limit) // bounding the correction puts all of it on the chain; only with the option
            older = _mm_sub_ps(_mm_max_ps(_mm_min_ps(_mm_add_ps(older, _mm_mul_ps(c[0], last)), maxCorrection), minCorrection),
                               _mm_mul_ps(c[0], last));
        // The input is held within twice full scale off the feedback chain, which keeps v + d
        // inside the integer range without a clamp on the chain.
        const __m128 x = _mm_max_ps(_mm_min_ps(_mm_setr_ps(a[i], b[i], 0.0f, 0.0f), two), minusTwo);
        const __m128 xs = _mm_add_ps(_mm_mul_ps(x, vscale), older);
        // Only the newest error depends on the sample before, so everything else is added first
        // and the chain from one sample to the next stays short. The error fed back is the
        // rounding's; a clip at full scale goes to the output alone, where feeding it back would
        // only wind the shaper up.
        const __m128 feedback = _mm_mul_ps(c[0], last);
        const __m128 v = _mm_add_ps(xs, feedback);
        const __m128 rounded = _mm_cvtepi32_ps(_mm_cvtps_epi32(_mm_add_ps(_mm_add_ps(xs, d), feedback)));
        __m128 e = _mm_sub_ps(rounded, v);
        if constexpr (ClampError)
            e = _mm_max_ps(_mm_min_ps(e, maxError), minError);
        const __m128 y = _mm_max_ps(_mm_min_ps(rounded, top), bottom);
        pos = pos == 0 ? M - 1 : pos - 1;
        _mm_store_ps(history[pos], e);
        _mm_store_ps(history[pos + M], e);
        last = e;
        const __m128 out = _mm_mul_ps(y, vinverse);
        a[i] = _mm_cvtss_f32(out);
        b[i] = _mm_cvtss_f32(_mm_shuffle_ps(out, out, _MM_SHUFFLE(1, 1, 1, 1)));
    }
    position = pos;
    rnd[0] = s0;
    rnd[1] = s1;
}

} // namespace
#endif

void VEKDither::dither(float *const *channels, quint32 channelCount, quint32 from, quint32 to)
{
    const Settings &s = *m_active;
    const float peak = s.peak * (1.0f / 16777216.0f);
    quint32 c = 0;
    for (; c + 2 <= channelCount; c += 2) {
#if defined(__SSE2__)
        // The rounding error never exceeds the dither peak plus 1.5 LSB (half a step, and one
        // float step of a sample near full scale): below a peak of 2.5 LSB the bound on the
        // fed-back error can never act, and leaving it out shortens the chain from one sample to
        // the next.
        if (s.peak + 1.5f < MaxError)
            quantisePair<false>(channels[c], channels[c + 1], m_pairHistory[c / 2], m_pairPosition[c / 2],
                                s.coefficients, s.order, peak, s.scale, s.minimizePeaks, from, to, m_random + c);
        else
            quantisePair<true>(channels[c], channels[c + 1], m_pairHistory[c / 2], m_pairPosition[c / 2],
                               s.coefficients, s.order, peak, s.scale, s.minimizePeaks, from, to, m_random + c);
#else
        float (*history[2])[2 * MaxOrder] = {&m_history[c], &m_history[c + 1]};
        quantise<2>(channels + c, history, m_position + c, s.coefficients, s.order, peak, s.scale, s.minimizePeaks,
                    from, to, m_random + c);
#endif
    }
    if (c < channelCount) {
        float (*history[1])[2 * MaxOrder] = {&m_history[c]};
        quantise<1>(channels + c, history, m_position + c, s.coefficients, s.order, peak, s.scale, s.minimizePeaks,
                    from, to, m_random + c);
    }
}
