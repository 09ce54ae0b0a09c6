#include "CrossfeedEngine.h"

#include <cstring>
#include <emmintrin.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

constexpr double HeadRadius = 0.0875;  // metres
constexpr double SpeedOfSound = 343.0; // metres per second
constexpr float DefaultTrebleFrequency = 5000.0f;
constexpr float DefaultBassFrequency = 250.0f;
constexpr double LowestFilterFrequency = 10.0;
constexpr double HighestFilterFrequency = 0.45; // of the sample rate
// The shadow corner stays below a fifth of the rate: its pole then lies in (0, 1) and every
// tap of the crossfed path is positive, which the clip protection counts on.
constexpr double HighestShadowCorner = 0.2;
// The tone's peak gain is searched on a grid; between grid points it may rise a hair higher.
constexpr double PeakSearchMargin = 1.005; // as an exponent: +0.5 %, 0.03 dB at 6 dB
// Filter memories below this are flushed: feedback paths decaying in silence would otherwise
// end up cycling on denormals, which are slow.
constexpr double TinyState = 1e-15;

float finiteOrZero(float x) { return std::isnan(x) ? 0.0f : x; }

double boundedFrequency(float hz, float fallback, double rate)
{
    const double f = (std::isfinite(hz) && hz > 0.0f) ? double(hz) : double(fallback);
    return std::clamp(f, LowestFilterFrequency, HighestFilterFrequency * rate);
}

} // namespace

CrossfeedEngine::Parameters CrossfeedEngine::Parameters::limited() const
{
    Parameters q = *this;
    q.speakerAngle = std::clamp(finiteOrZero(speakerAngle), 0.0f, MaxSpeakerAngle);
    q.crossfeedAmount = std::clamp(finiteOrZero(crossfeedAmount), 0.0f, MaxCrossfeedAmount);
    q.crossfeedType = std::clamp(crossfeedType, 1u, MaxCrossfeedType);
    q.trebleGain = std::clamp(finiteOrZero(trebleGain), -MaxGain, MaxGain);
    q.bassGain = std::clamp(finiteOrZero(bassGain), -MaxGain, MaxGain);
    q.solo = std::min(solo, MaxSolo);
    return q;
}

CrossfeedEngine::CrossfeedType CrossfeedEngine::crossfeedType(quint32 type)
{
    switch (std::clamp(type, 1u, Parameters::MaxCrossfeedType)) {
    case 2:
        return {900.0, 2, -4.5};
    case 3:
        return {1100.0, 1, -9.5};
    default:
        return {700.0, 1, -6.0};
    }
}

double CrossfeedEngine::interauralDelay(float speakerAngle)
{
    const double theta = std::clamp(double(finiteOrZero(speakerAngle)), 0.0,
                                    double(Parameters::MaxSpeakerAngle)) * std::numbers::pi / 180.0;
    return HeadRadius / SpeedOfSound * (theta + std::sin(theta));
}

CrossfeedEngine::CrossfeedEngine() = default;
CrossfeedEngine::~CrossfeedEngine() = default;

bool CrossfeedEngine::initialize(double sampleRate)
{
    if (!(sampleRate >= MinSampleRate && sampleRate <= MaxSampleRate))
        return false;
    m_rate = sampleRate;

    // Room for the longest delay and the interpolation's second tap.
    const double longest = interauralDelay(Parameters::MaxSpeakerAngle) * m_rate + 2.0;
    quint32 size = 4;
    while (size < longest)
        size <<= 1;
    for (auto &line : m_delayLine)
        line.assign(size, 0.0);
    m_delayMask = size - 1;
    m_writePos = 0;

    // DC, then log-spaced from 10 Hz up to Nyquist, which is the last point.
    for (int i = 0; i < GridPoints; ++i) {
        double w = 0.0;
        if (i > 0) {
            const double t = double(i - 1) / double(GridPoints - 2);
            w = 2.0 * std::numbers::pi * LowestFilterFrequency
                * std::pow(0.5 * m_rate / LowestFilterFrequency, t) / m_rate;
        }
        m_gridCos[size_t(i)] = std::cos(w);
        m_gridCos2[size_t(i)] = std::cos(2.0 * w);
    }

    m_rampLength = quint32(std::max(1.0, std::round(RampSeconds * m_rate)));
    const Targets t = prepare(m_parameters);
    m_value = m_target = t.values;
    m_step = {};
    m_glideLeft = 0;
    m_enabled = t.enabled;
    m_seenEnableCount = t.enableCount;
    clearState();
    updateEq();

    m_shared.store(0, std::memory_order_relaxed);
    m_writeSlot = 1;
    m_readSlot = 2;
    m_resetRequested.store(false, std::memory_order_relaxed);
    m_initialized = true;
    return true;
}

void CrossfeedEngine::reset()
{
    m_resetRequested.store(true, std::memory_order_release);
}

void CrossfeedEngine::setParameters(const Parameters &parameters)
{
    const Parameters q = parameters.limited();
    if (q.enabled && !m_parameters.enabled)
        ++m_enableCount;
    m_parameters = q;
    if (!m_initialized)
        return;
    m_slots[m_writeSlot] = prepare(q);
    const unsigned previous = m_shared.exchange(m_writeSlot | FreshSlot, std::memory_order_acq_rel);
    m_writeSlot = previous & 3u;
}

CrossfeedEngine::Targets CrossfeedEngine::prepare(const Parameters &p) const
{
    Targets t;
    t.enabled = p.enabled;
    t.enableCount = m_enableCount;
    Values &v = t.values;

    // The channel matrix, composed in the order of the signal path.
    std::array<double, 2> first{1.0, 0.0}, second{0.0, 1.0};
    if (p.swapped)
        std::swap(first, second);
    if (p.outOfPhase)
        second = {-second[0], -second[1]};
    if (p.solo == 1)
        second = {0.0, 0.0};
    else if (p.solo == 2)
        first = {0.0, 0.0};
    if (p.mono) {
        first = {0.5 * (first[0] + second[0]), 0.5 * (first[1] + second[1])};
        second = first;
    }
    v[M00] = first[0];
    v[M01] = first[1];
    v[M10] = second[0];
    v[M11] = second[1];

    const CrossfeedType type = crossfeedType(p.crossfeedType);
    v[Level] = double(p.crossfeedAmount) * std::pow(10.0, type.levelDb / 20.0);
    v[Protect] = p.crossfeedClipProtectionEnabled ? 1.0 : 0.0;
    v[Delay] = interauralDelay(p.speakerAngle) * m_rate;
    // Bilinear one-pole low-pass, prewarped to its corner.
    const double corner = std::min(type.shadowCornerHz, HighestShadowCorner * m_rate);
    const double k = std::tan(std::numbers::pi * corner / m_rate);
    const double b = k / (1.0 + k);
    const double pole = (1.0 - k) / (1.0 + k);
    v[S1B0] = b;
    v[S1B1] = b;
    v[S1P] = pole;
    v[S2B0] = type.shadowPoles > 1 ? b : 1.0;
    v[S2B1] = type.shadowPoles > 1 ? b : 0.0;
    v[S2P] = type.shadowPoles > 1 ? pole : 0.0;

    v[BassDb] = p.bassGain;
    v[TrebleDb] = p.trebleGain;
    v[BassLogHz] = std::log(boundedFrequency(p.bassFrequency, DefaultBassFrequency, m_rate));
    v[TrebleLogHz] = std::log(boundedFrequency(p.trebleFrequency, DefaultTrebleFrequency, m_rate));
    v[EqProtect] = p.eqClipProtectionEnabled ? 1.0 : 0.0;
    return t;
}

void CrossfeedEngine::takeNewTargets()
{
    if (!(m_shared.load(std::memory_order_acquire) & FreshSlot))
        return;
    m_readSlot = m_shared.exchange(m_readSlot, std::memory_order_acq_rel) & 3u;
    const Targets &t = m_slots[m_readSlot];
    const bool wasEnabled = m_enabled;
    m_enabled = t.enabled;
    if (!t.enabled)
        return;
    // Switched on (here, or while the caller skipped us): whatever is in memory is stale.
    const bool switchedOn = !wasEnabled || t.enableCount != m_seenEnableCount;
    m_seenEnableCount = t.enableCount;
    glideTo(t, switchedOn);
}

void CrossfeedEngine::glideTo(const Targets &t, bool fromNeutral)
{
    m_target = t.values;
    if (fromNeutral) {
        clearState();
        // Plain stereo: the matrix at identity, no crossfeed, flat tone; the shapes as targeted.
        m_value = m_target;
        m_value[M00] = 1.0;
        m_value[M01] = 0.0;
        m_value[M10] = 0.0;
        m_value[M11] = 1.0;
        m_value[Level] = 0.0;
        m_value[BassDb] = 0.0;
        m_value[TrebleDb] = 0.0;
    } else {
        // A silent crossfeed path starts afresh in its new shape while its level rises.
        if (m_value[Level] == 0.0) {
            if (m_target[Level] != 0.0)
                clearCrossfeedState();
            for (int k : {Delay, S1B0, S1B1, S1P, S2B0, S2B1, S2P})
                m_value[size_t(k)] = m_target[size_t(k)];
        }
        // A flat tone control takes its new frequencies as it is.
        if (m_value[BassDb] == 0.0 && m_value[TrebleDb] == 0.0) {
            m_value[BassLogHz] = m_target[BassLogHz];
            m_value[TrebleLogHz] = m_target[TrebleLogHz];
        }
    }
    for (size_t k = 0; k < ValueCount; ++k)
        m_step[k] = (m_target[k] - m_value[k]) / double(m_rampLength);
    m_glideLeft = m_rampLength;
    m_eqCountdown = 1;
}

void CrossfeedEngine::advance()
{
    if (--m_glideLeft == 0) {
        m_value = m_target;
        updateEq();
        return;
    }
    for (size_t k = 0; k < ValueCount; ++k)
        m_value[k] += m_step[k];
    if (--m_eqCountdown == 0) {
        m_eqCountdown = EqUpdateInterval;
        updateEq();
    }
}

namespace {

// RBJ cookbook shelf with slope 1; `frequency` is the midpoint of the shelf.
void shelf(bool high, double frequency, double gainDb, double rate, double &b0, double &b1,
           double &b2, double &a1, double &a2)
{
    const double A = std::pow(10.0, gainDb / 40.0);
    const double w0 = 2.0 * std::numbers::pi * frequency / rate;
    const double c = std::cos(w0);
    const double alpha = std::sin(w0) / 2.0 * std::numbers::sqrt2;
    const double s = 2.0 * std::sqrt(A) * alpha;
    const double sign = high ? -1.0 : 1.0; // the high shelf mirrors the low one
    const double a0 = (A + 1) + sign * (A - 1) * c + s;
    b0 = A * ((A + 1) - sign * (A - 1) * c + s) / a0;
    b1 = sign * 2 * A * ((A - 1) - sign * (A + 1) * c) / a0;
    b2 = A * ((A + 1) - sign * (A - 1) * c - s) / a0;
    a1 = -sign * 2 * ((A - 1) + sign * (A + 1) * c) / a0;
    a2 = ((A + 1) + sign * (A - 1) * c - s) / a0;
}

} // namespace

void CrossfeedEngine::updateEq()
{
    shelf(false, std::exp(m_value[BassLogHz]), m_value[BassDb], m_rate, m_bass.b0, m_bass.b1,
          m_bass.b2, m_bass.a1, m_bass.a2);
    shelf(true, std::exp(m_value[TrebleLogHz]), m_value[TrebleDb], m_rate, m_treble.b0,
          m_treble.b1, m_treble.b2, m_treble.a1, m_treble.a2);
    const double peak = eqPeakGain();
    m_eqGain = peak > 1.0 ? 1.0 - m_value[EqProtect] * (1.0 - 1.0 / peak) : 1.0;
}

double CrossfeedEngine::eqPeakGain() const
{
    // |H(e^jw)|^2 of a biquad from cos(w) and cos(2w).
    auto power = [](const Biquad &f, double c, double c2) {
        const double num = f.b0 * f.b0 + f.b1 * f.b1 + f.b2 * f.b2
                           + 2.0 * (f.b0 * f.b1 + f.b1 * f.b2) * c + 2.0 * f.b0 * f.b2 * c2;
        const double den = 1.0 + f.a1 * f.a1 + f.a2 * f.a2 + 2.0 * (f.a1 + f.a1 * f.a2) * c
                           + 2.0 * f.a2 * c2;
        return num / den;
    };
    double peak = 0.0;
    for (size_t i = 0; i < GridPoints; ++i)
        peak = std::max(peak, power(m_bass, m_gridCos[i], m_gridCos2[i])
                                  * power(m_treble, m_gridCos[i], m_gridCos2[i]));
    peak = std::sqrt(peak);
    return peak > 1.0 ? std::pow(peak, PeakSearchMargin) : peak;
}

void CrossfeedEngine::clearCrossfeedState()
{
    for (auto &line : m_delayLine)
        std::fill(line.begin(), line.end(), 0.0);
    for (auto &channel : m_shadowState)
        for (auto &stage : channel)
            stage[0] = stage[1] = 0.0;
}

void CrossfeedEngine::clearState()
{
    clearCrossfeedState();
    for (int c = 0; c < 2; ++c)
        m_bassState[c] = m_trebleState[c] = BiquadState{};
}

void CrossfeedEngine::flushTinyStates()
{
    auto flush = [](double &s) {
        if (std::fabs(s) < TinyState)
            s = 0.0;
    };
    for (auto &channel : m_shadowState)
        for (auto &stage : channel)
            for (double &s : stage)
                flush(s);
    for (BiquadState *states : {m_bassState, m_trebleState})
        for (int c = 0; c < 2; ++c) {
            flush(states[c].x1);
            flush(states[c].x2);
            flush(states[c].y1);
            flush(states[c].y2);
        }
}

// With the tone control flat and skipped, its memories follow what went by as if it had run
// (a flat shelf passes its input), so that it can take over without a jolt.
void CrossfeedEngine::bypassEqMemory(const float *left, const float *right, quint32 frames)
{
    const float *channels[2] = {left, right};
    for (int c = 0; c < 2; ++c)
        for (quint32 i = frames > 2 ? frames - 2 : 0; i < frames; ++i) {
            const double x = channels[c][i];
            for (BiquadState *s : {&m_bassState[c], &m_trebleState[c]}) {
                s->x2 = s->x1;
                s->y2 = s->y1;
                s->x1 = s->y1 = x;
            }
        }
}

double CrossfeedEngine::shadow(int channel, double x)
{
    double(&s)[2][2] = m_shadowState[channel];
    const double y1 = m_value[S1B0] * x + m_value[S1B1] * s[0][0] + m_value[S1P] * s[0][1];
    s[0][0] = x;
    s[0][1] = y1;
    const double y2 = m_value[S2B0] * y1 + m_value[S2B1] * s[1][0] + m_value[S2P] * s[1][1];
    s[1][0] = y1;
    s[1][1] = y2;
    return y2;
}

double CrossfeedEngine::biquad(const Biquad &f, BiquadState &s, double x)
{
    const double y = f.b0 * x + f.b1 * s.x1 + f.b2 * s.x2 - f.a1 * s.y1 - f.a2 * s.y2;
    s.x2 = s.x1;
    s.x1 = x;
    s.y2 = s.y1;
    s.y1 = y;
    return y;
}

template <bool Gliding>
void CrossfeedEngine::processFrames(float *left, float *right, quint32 frames)
{
    const bool crossfeed = m_value[Level] != 0.0 || (Gliding && m_target[Level] != 0.0);
    const bool eq = m_value[BassDb] != 0.0 || m_value[TrebleDb] != 0.0
                    || (Gliding && (m_target[BassDb] != 0.0 || m_target[TrebleDb] != 0.0));
    const bool matrix = Gliding || m_value[M00] != 1.0 || m_value[M01] != 0.0
                        || m_value[M10] != 0.0 || m_value[M11] != 1.0;

    if (matrix || crossfeed || eq) {
        for (quint32 i = 0; i < frames; ++i) {
            if constexpr (Gliding)
                advance();
            double a = left[i];
            double b = right[i];
            if (matrix) {
                const double l = a, r = b;
                a = m_value[M00] * l + m_value[M01] * r;
                b = m_value[M10] * l + m_value[M11] * r;
            }
            if (crossfeed) {
                m_delayLine[0][m_writePos] = a;
                m_delayLine[1][m_writePos] = b;
                const double delay = m_value[Delay];
                const quint32 whole = quint32(delay);
                const double fraction = delay - double(whole);
                const quint32 i0 = (m_writePos - whole) & m_delayMask;
                const quint32 i1 = (i0 - 1) & m_delayMask;
                m_writePos = (m_writePos + 1) & m_delayMask;
                const double da = (1.0 - fraction) * m_delayLine[0][i0] + fraction * m_delayLine[0][i1];
                const double db = (1.0 - fraction) * m_delayLine[1][i0] + fraction * m_delayLine[1][i1];
                const double xa = shadow(0, da);
                const double xb = shadow(1, db);
                const double level = m_value[Level];
                const double gain = 1.0 / (1.0 + m_value[Protect] * level);
                const double na = gain * (a + level * xb);
                b = gain * (b + level * xa);
                a = na;
            }
            if (eq) {
                a = m_eqGain * biquad(m_treble, m_trebleState[0], biquad(m_bass, m_bassState[0], a));
                b = m_eqGain * biquad(m_treble, m_trebleState[1], biquad(m_bass, m_bassState[1], b));
            }
            left[i] = float(a);
            right[i] = float(b);
        }
    }
    if (!eq)
        bypassEqMemory(left, right, frames);
}

void CrossfeedEngine::processSteady(float *left, float *right, quint32 frames)
{
    const bool crossfeed = m_value[Level] != 0.0;
    const bool eq = m_value[BassDb] != 0.0 || m_value[TrebleDb] != 0.0;
    const bool matrix = m_value[M00] != 1.0 || m_value[M01] != 0.0 || m_value[M10] != 0.0 || m_value[M11] != 1.0;
    if (!matrix && !crossfeed && !eq) {
        bypassEqMemory(left, right, frames);
        return;
    }
    // Left and right in the two lanes of one register: the same operations in the same order
    // as the scalar code, so the result is the same to the bit, at half the instructions.
    using V = __m128d;
    const auto splat = [](double x) { return _mm_set1_pd(x); };
    const auto swap = [](V v) { return _mm_shuffle_pd(v, v, 1); };
    const V mDirect = _mm_setr_pd(m_value[M00], m_value[M11]);
    const V mCross = _mm_setr_pd(m_value[M01], m_value[M10]);
    const double delay = m_value[Delay];
    const quint32 whole = quint32(delay);
    const double fraction = delay - double(whole);
    const V keep = splat(1.0 - fraction), take = splat(fraction);
    const V s1b0 = splat(m_value[S1B0]), s1b1 = splat(m_value[S1B1]), s1p = splat(m_value[S1P]);
    const V s2b0 = splat(m_value[S2B0]), s2b1 = splat(m_value[S2B1]), s2p = splat(m_value[S2P]);
    const double levelValue = m_value[Level];
    const V level = splat(levelValue);
    const V gain = splat(1.0 / (1.0 + m_value[Protect] * levelValue));
    const V bb0 = splat(m_bass.b0), bb1 = splat(m_bass.b1), bb2 = splat(m_bass.b2), ba1 = splat(m_bass.a1),
            ba2 = splat(m_bass.a2);
    const V tb0 = splat(m_treble.b0), tb1 = splat(m_treble.b1), tb2 = splat(m_treble.b2),
            ta1 = splat(m_treble.a1), ta2 = splat(m_treble.a2);
    const V eqGain = splat(m_eqGain);
    double *const lineA = m_delayLine[0].data();
    double *const lineB = m_delayLine[1].data();
    const quint32 mask = m_delayMask;
    quint32 writePos = m_writePos;
    const auto pair = [](double a, double b) { return _mm_setr_pd(a, b); };
    V sh1x = pair(m_shadowState[0][0][0], m_shadowState[1][0][0]);
    V sh1y = pair(m_shadowState[0][0][1], m_shadowState[1][0][1]);
    V sh2x = pair(m_shadowState[0][1][0], m_shadowState[1][1][0]);
    V sh2y = pair(m_shadowState[0][1][1], m_shadowState[1][1][1]);
    V bx1 = pair(m_bassState[0].x1, m_bassState[1].x1), bx2 = pair(m_bassState[0].x2, m_bassState[1].x2);
    V by1 = pair(m_bassState[0].y1, m_bassState[1].y1), by2 = pair(m_bassState[0].y2, m_bassState[1].y2);
    V tx1 = pair(m_trebleState[0].x1, m_trebleState[1].x1), tx2 = pair(m_trebleState[0].x2, m_trebleState[1].x2);
    V ty1 = pair(m_trebleState[0].y1, m_trebleState[1].y1), ty2 = pair(m_trebleState[0].y2, m_trebleState[1].y2);

    for (quint32 i = 0; i < frames; ++i) {
        V v = pair(left[i], right[i]);
        if (matrix)
            v = _mm_add_pd(_mm_mul_pd(mDirect, v), _mm_mul_pd(mCross, swap(v)));
        if (crossfeed) {
            _mm_storel_pd(lineA + writePos, v);
            _mm_storeh_pd(lineB + writePos, v);
            const quint32 i0 = (writePos - whole) & mask;
            const quint32 i1 = (i0 - 1) & mask;
            writePos = (writePos + 1) & mask;
            const V delayed = _mm_add_pd(_mm_mul_pd(keep, pair(lineA[i0], lineB[i0])),
                                         _mm_mul_pd(take, pair(lineA[i1], lineB[i1])));
            // The head shadow: two first-order stages.
            const V y1 = _mm_add_pd(_mm_add_pd(_mm_mul_pd(s1b0, delayed), _mm_mul_pd(s1b1, sh1x)), _mm_mul_pd(s1p, sh1y));
            sh1x = delayed;
            sh1y = y1;
            const V y2 = _mm_add_pd(_mm_add_pd(_mm_mul_pd(s2b0, y1), _mm_mul_pd(s2b1, sh2x)), _mm_mul_pd(s2p, sh2y));
            sh2x = y1;
            sh2y = y2;
            // Each ear hears the other side's shadowed sound.
            v = _mm_mul_pd(gain, _mm_add_pd(v, _mm_mul_pd(level, swap(y2))));
        }
        if (eq) {
            const V b = _mm_sub_pd(_mm_sub_pd(_mm_add_pd(_mm_add_pd(_mm_mul_pd(bb0, v), _mm_mul_pd(bb1, bx1)), _mm_mul_pd(bb2, bx2)),
                                              _mm_mul_pd(ba1, by1)),
                                   _mm_mul_pd(ba2, by2));
            bx2 = bx1;
            bx1 = v;
            by2 = by1;
            by1 = b;
            const V t = _mm_sub_pd(_mm_sub_pd(_mm_add_pd(_mm_add_pd(_mm_mul_pd(tb0, b), _mm_mul_pd(tb1, tx1)), _mm_mul_pd(tb2, tx2)),
                                              _mm_mul_pd(ta1, ty1)),
                                   _mm_mul_pd(ta2, ty2));
            tx2 = tx1;
            tx1 = b;
            ty2 = ty1;
            ty1 = t;
            v = _mm_mul_pd(eqGain, t);
        }
        const __m128 out = _mm_cvtpd_ps(v);
        left[i] = _mm_cvtss_f32(out);
        right[i] = _mm_cvtss_f32(_mm_shuffle_ps(out, out, 1));
    }
    m_writePos = writePos;
    const auto store = [](V v, double &a, double &b) {
        _mm_storel_pd(&a, v);
        _mm_storeh_pd(&b, v);
    };
    store(sh1x, m_shadowState[0][0][0], m_shadowState[1][0][0]);
    store(sh1y, m_shadowState[0][0][1], m_shadowState[1][0][1]);
    store(sh2x, m_shadowState[0][1][0], m_shadowState[1][1][0]);
    store(sh2y, m_shadowState[0][1][1], m_shadowState[1][1][1]);
    store(bx1, m_bassState[0].x1, m_bassState[1].x1);
    store(bx2, m_bassState[0].x2, m_bassState[1].x2);
    store(by1, m_bassState[0].y1, m_bassState[1].y1);
    store(by2, m_bassState[0].y2, m_bassState[1].y2);
    store(tx1, m_trebleState[0].x1, m_trebleState[1].x1);
    store(tx2, m_trebleState[0].x2, m_trebleState[1].x2);
    store(ty1, m_trebleState[0].y1, m_trebleState[1].y1);
    store(ty2, m_trebleState[0].y2, m_trebleState[1].y2);
    if (!eq)
        bypassEqMemory(left, right, frames);
}

void CrossfeedEngine::processStereo(float *left, float *right, quint32 frames)
{
    if (!m_initialized || frames == 0)
        return;
    takeNewTargets();
    if (m_resetRequested.load(std::memory_order_relaxed)
        && m_resetRequested.exchange(false, std::memory_order_acq_rel)) {
        clearState();
        if (m_glideLeft) {
            m_glideLeft = 0;
            m_value = m_target;
            updateEq();
        }
    }
    if (!m_enabled)
        return;

    quint32 done = 0;
    if (m_glideLeft) {
        done = std::min(frames, m_glideLeft);
        processFrames<true>(left, right, done);
    }
    if (done < frames)
        processSteady(left + done, right + done, frames - done);
    flushTinyStates();
}
