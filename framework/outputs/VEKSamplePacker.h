#pragma once

#include "VEKAudioOutput.h"
#include "rt/VEKAudioBufferList.h"

#include <QtGlobal>

// How samples lie in a device's or a file's buffer, all little-endian and interleaved.
enum class VEKSampleEncoding {
    Int16,       // S16_LE
    Int24Packed, // S24_3LE: three bytes a sample
    Int24In32,   // S24_LE: the low three bytes of a 32-bit word, sign-extended
    Int32,       // S32_LE
    Float32,     // FLOAT_LE
};

// Turns the graph's non-interleaved float blocks into a device's interleaved words.
//
// Float -> integer is exact for samples on the integer grid: k / 2^(n-1) becomes k for a word of
// n bits, and a 16- or 24-bit value lands in a wider word shifted left, unchanged otherwise.
// Anything else is rounded to the nearest word (ties to even); the dither upstream has already
// decided what to keep. Values at or beyond full scale clip to the largest word, NaN becomes 0.
//
// pack() neither allocates nor locks: made for the render thread.
class VEKSamplePacker {
public:
    explicit VEKSamplePacker(VEKSampleEncoding encoding = VEKSampleEncoding::Int32);

    // The encoding for a format an output settled on (24 bits means the packed form).
    static VEKSampleEncoding encodingFor(const VEKAudioFormat &format);

    VEKSampleEncoding encoding() const { return m_encoding; }
    quint32 bytesPerSample() const;
    // 16, 24 or 32.
    quint32 bitDepth() const;
    bool isFloat() const { return m_encoding == VEKSampleEncoding::Float32; }

    // Interleaves list.frames() frames of the list's channels into `out`, which holds at least
    // frames * channels * bytesPerSample() bytes.
    void pack(const VEKAudioBufferList &list, void *out) const;

    // One sample as an integer word of 16, 24 or 32 bits.
    static qint32 toInt16(float sample);
    static qint32 toInt24(float sample);
    static qint32 toInt32(float sample);

private:
    VEKSampleEncoding m_encoding;
};
