#pragma once

#include <QByteArray>
#include <QString>
#include <gtest/gtest.h>

#include <vector>

// Interleaved PCM as floats, and the ways the tests encode, decode and compare it. A lossless
// source holds values of its integer grid (exact in a float up to 24 bits); a lossy one what the
// decoder gave.
struct Pcm {
    int rate = 44100;
    quint32 channels = 2;
    std::vector<float> s;

    size_t frames() const { return channels ? s.size() / channels : 0; }
    float at(size_t frame, quint32 c) const { return s[frame * channels + c]; }
    Pcm slice(size_t from, size_t to) const;
    void append(const Pcm &o) { s.insert(s.end(), o.s.begin(), o.s.end()); }

    // The word an output of `bits` bits stores for a float sample: scaled by a power of two,
    // rounded to nearest, clipped to the word; and the float that word stands for.
    static qint64 word(float v, int bits);
    static float fromWord(qint64 w, int bits);
    // As little-endian signed words of `bits` bits, and back.
    QByteArray toWords(int bits) const;
    static Pcm fromWords(const QByteArray &bytes, int bits, quint32 channels = 2, int rate = 44100);
    // FFmpeg's own decoding of a file's audio, as 32-bit floats.
    static Pcm decodedByFFmpeg(const QString &path, quint32 channels = 2);
};

// The largest difference over `count` frames of `a` from `aFrom` and `b` from `bFrom`.
float maxDifference(const Pcm &a, size_t aFrom, const Pcm &b, size_t bFrom, size_t count);
// Equal as words of `bits`; otherwise the lengths, how many samples differ and the first.
testing::AssertionResult sameWords(const Pcm &expected, const Pcm &actual, int bits);
