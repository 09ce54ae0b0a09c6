#pragma once

#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <functional>
#include <ostream>

// Audio files for the reader and modifier tests, made once per test binary with sox and
// ffmpeg. Every file is 33333 frames long (an odd count, so a rounded length shows), tagged
// like an album track, and the MP3, FLAC and M4A files carry the cover picture.
namespace IOFixtures {

constexpr quint64 kFrames = 33333;

struct Kind {
    const char *file;       // name in dir()
    const char *format;     // expected format text
    quint32 bitDepth;
    bool hasCover;
};

inline void PrintTo(const Kind &kind, std::ostream *os) { *os << kind.file; }

// All generated kinds, each file present in dir().
const QList<Kind> &kinds();

QString dir();
// A fresh copy of a fixture in its own folder, for tests that change files.
QString copy(const QString &file);
QByteArray coverBytes();
// Untagged 16-bit stereo WAV source.
QString plainWave();

// "3/12" from either a combined track number or a number and a total.
QString combined(const QVariantMap &metadata, const QString &numberKey, const QString &totalKey);

// The decoded samples as ffmpeg sees them, for comparing audio before and after a change.
QByteArray decodedAudio(const QString &path);

// The shift (within ±range frames) at which `decoded` lines up best with `original` over the
// frames [from, to). A lossy decode is never equal to its source, but it lines up with it.
int bestShift(const std::function<float(qint64)> &decoded, const std::function<float(qint64)> &original,
              qint64 from, qint64 to, int range);

} // namespace IOFixtures
