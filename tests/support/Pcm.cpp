#include "support/Pcm.h"

#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <algorithm>
#include <cmath>
#include <cstring>

Pcm Pcm::slice(size_t from, size_t to) const
{
    Pcm p = *this;
    p.s.assign(s.begin() + qsizetype(from * channels), s.begin() + qsizetype(to * channels));
    return p;
}

qint64 Pcm::word(float v, int bits)
{
    const double scale = double(qint64(1) << (bits - 1));
    return qint64(std::clamp(std::nearbyint(double(v) * scale), -scale, scale - 1));
}

float Pcm::fromWord(qint64 w, int bits)
{
    return float(double(w) / double(qint64(1) << (bits - 1)));
}

QByteArray Pcm::toWords(int bits) const
{
    QByteArray bytes;
    bytes.reserve(qsizetype(s.size()) * bits / 8);
    for (const float v : s) {
        const qint64 w = word(v, bits);
        for (int b = 0; b < bits / 8; ++b)
            bytes.append(char((w >> (8 * b)) & 0xFF));
    }
    return bytes;
}

Pcm Pcm::fromWords(const QByteArray &bytes, int bits, quint32 channels, int rate)
{
    const size_t width = size_t(bits / 8);
    Pcm p{rate, channels, std::vector<float>(size_t(bytes.size()) / width)};
    const auto *d = reinterpret_cast<const uchar *>(bytes.constData());
    for (size_t i = 0; i < p.s.size(); ++i) {
        qint64 w = 0;
        for (size_t k = 0; k < width; ++k)
            w |= qint64(d[i * width + k]) << (8 * k);
        if (w & (qint64(1) << (bits - 1)))
            w -= qint64(1) << bits;
        p.s[i] = fromWord(w, bits);
    }
    return p;
}

Pcm Pcm::decodedByFFmpeg(const QString &path, quint32 channels)
{
    const QString out = TestEnvironment::makeTempDir(QStringLiteral("f32")) + QStringLiteral("/audio.raw");
    TestEnvironment::ffmpeg(path, out,
                            {QStringLiteral("-map"), QStringLiteral("0:a"), QStringLiteral("-f"),
                             QStringLiteral("f32le"), QStringLiteral("-c:a"), QStringLiteral("pcm_f32le")});
    const QByteArray bytes = TestEnvironment::readFile(out);
    Pcm p{44100, channels, std::vector<float>(size_t(bytes.size()) / sizeof(float))};
    std::memcpy(p.s.data(), bytes.constData(), p.s.size() * sizeof(float));
    return p;
}

float maxDifference(const Pcm &a, size_t aFrom, const Pcm &b, size_t bFrom, size_t count)
{
    float m = 0;
    for (size_t i = 0; i < count; ++i)
        for (quint32 c = 0; c < a.channels; ++c)
            m = std::max(m, std::fabs(a.at(aFrom + i, c) - b.at(bFrom + i, c)));
    return m;
}

testing::AssertionResult sameWords(const Pcm &expected, const Pcm &actual, int bits)
{
    size_t differing = 0, first = SIZE_MAX;
    for (size_t i = 0; i < std::min(expected.s.size(), actual.s.size()); ++i)
        if (Pcm::word(expected.s[i], bits) != Pcm::word(actual.s[i], bits)) {
            first = std::min(first, i);
            ++differing;
        }
    if (differing == 0 && expected.s.size() == actual.s.size())
        return testing::AssertionSuccess();
    auto r = testing::AssertionFailure();
    r << "expected " << expected.frames() << " frames, got " << actual.frames() << "; " << differing
      << " samples differ";
    if (first != SIZE_MAX)
        r << ", the first at frame " << first / expected.channels << " channel " << first % expected.channels
          << ": expected " << Pcm::word(expected.s[first], bits) << ", got "
          << Pcm::word(actual.s[first], bits);
    return r;
}
