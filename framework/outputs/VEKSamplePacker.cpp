#include "VEKSamplePacker.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#if defined(__SSE2__)
#include <immintrin.h>
#endif

static_assert(Q_BYTE_ORDER == Q_LITTLE_ENDIAN, "the packer writes the host's words as _LE formats");

namespace {

// Scaling by a power of two is exact in float, so grid values come out as whole numbers and
// lrintf keeps them; the comparisons are made before the conversion so nothing overflows.
template <int Bits>
inline qint32 quantize(float sample)
{
    constexpr float scale = float(qint64(1) << (Bits - 1));
    constexpr qint32 hi = qint32((qint64(1) << (Bits - 1)) - 1);
    constexpr qint32 lo = qint32(-(qint64(1) << (Bits - 1)));
    const float v = sample * scale;
    if (v >= float(hi))
        return hi;
    if (v <= -scale)
        return lo;
    if (v != v)
        return 0;
#if defined(__SSE2__)
    // lrintf without the call into libm: the same round-to-nearest-even of the current mode.
    return _mm_cvtss_si32(_mm_set_ss(v));
#else
    return qint32(std::lrintf(v));
#endif
}

// quantize<24> over `n` samples.
void quantizeBlock24(const float *src, qint32 *dst, quint32 n)
{
    quint32 f = 0;
#if defined(__SSE2__)
    const __m128 scale = _mm_set1_ps(8388608.0f);
    const __m128 hi = _mm_set1_ps(8388607.0f), lo = _mm_set1_ps(-8388608.0f);
    for (; f + 4 <= n; f += 4) {
        const __m128 v = _mm_mul_ps(_mm_loadu_ps(src + f), scale);
        // NaN (unordered) comes out as 0, as in quantize().
        const __m128 ordered = _mm_cmpord_ps(v, v);
        const __m128 clamped = _mm_and_ps(_mm_max_ps(_mm_min_ps(v, hi), lo), ordered);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + f), _mm_cvtps_epi32(clamped));
    }
#endif
    for (; f < n; ++f)
        dst[f] = quantize<24>(src[f]);
}

template <typename Word, typename Convert>
void interleave(const VEKAudioBufferList &list, void *out, Convert convert)
{
    const quint32 channels = list.numberOfChannels();
    const quint32 frames = list.frames();
    Word *dst = static_cast<Word *>(out);
    for (quint32 c = 0; c < channels; ++c) {
        const float *src = list.channel(c);
        Word *d = dst + c;
        for (quint32 f = 0; f < frames; ++f, d += channels)
            *d = Word(convert(src[f]));
    }
}

} // namespace

VEKSamplePacker::VEKSamplePacker(VEKSampleEncoding encoding) : m_encoding(encoding) {}

VEKSampleEncoding VEKSamplePacker::encodingFor(const VEKAudioFormat &format)
{
    if (format.isFloat)
        return VEKSampleEncoding::Float32;
    if (format.bitDepth <= 16)
        return VEKSampleEncoding::Int16;
    if (format.bitDepth <= 24)
        return VEKSampleEncoding::Int24Packed;
    return VEKSampleEncoding::Int32;
}

quint32 VEKSamplePacker::bytesPerSample() const
{
    switch (m_encoding) {
    case VEKSampleEncoding::Int16:
        return 2;
    case VEKSampleEncoding::Int24Packed:
        return 3;
    default:
        return 4;
    }
}

quint32 VEKSamplePacker::bitDepth() const
{
    switch (m_encoding) {
    case VEKSampleEncoding::Int16:
        return 16;
    case VEKSampleEncoding::Int24Packed:
    case VEKSampleEncoding::Int24In32:
        return 24;
    default:
        return 32;
    }
}

qint32 VEKSamplePacker::toInt16(float sample) { return quantize<16>(sample); }
qint32 VEKSamplePacker::toInt24(float sample) { return quantize<24>(sample); }
qint32 VEKSamplePacker::toInt32(float sample) { return quantize<32>(sample); }

void VEKSamplePacker::pack(const VEKAudioBufferList &list, void *out) const
{
    switch (m_encoding) {
    case VEKSampleEncoding::Int16:
        interleave<qint16>(list, out, quantize<16>);
        break;
    case VEKSampleEncoding::Int24In32:
        interleave<qint32>(list, out, quantize<24>);
        break;
    case VEKSampleEncoding::Int32:
        interleave<qint32>(list, out, quantize<32>);
        break;
    case VEKSampleEncoding::Float32:
        interleave<float>(list, out, [](float s) { return s; });
        break;
    case VEKSampleEncoding::Int24Packed: {
        const quint32 channels = list.numberOfChannels();
        const quint32 frames = list.frames();
        quint8 *dst = static_cast<quint8 *>(out);
        // Converted a block at a time first, so the rounding runs four lanes wide and the byte
        // stores are all that is left to the scatter.
        constexpr quint32 Block = 256;
        qint32 words[Block];
        for (quint32 c = 0; c < channels; ++c) {
            const float *src = list.channel(c);
            quint8 *d = dst + 3 * c;
            for (quint32 start = 0; start < frames; start += Block) {
                const quint32 n = std::min(Block, frames - start);
                quantizeBlock24(src + start, words, n);
                for (quint32 f = 0; f < n; ++f, d += 3 * channels) {
                    const quint32 w = quint32(words[f]);
                    d[0] = quint8(w);
                    d[1] = quint8(w >> 8);
                    d[2] = quint8(w >> 16);
                }
            }
        }
        break;
    }
    }
}
