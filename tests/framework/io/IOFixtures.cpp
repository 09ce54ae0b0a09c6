#include "IOFixtures.h"

#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <QFile>
#include <gtest/gtest.h>

#include <cmath>

using TestEnvironment::ffmpeg;

namespace IOFixtures {

namespace {

const QStringList &tagArgs()
{
    static const QStringList args{
        "-metadata", "title=Überschrift – 日本",
        "-metadata", "artist=The Artist",
        "-metadata", "album=The Album",
        "-metadata", "album_artist=Various",
        "-metadata", "composer=Somebody",
        "-metadata", "genre=Ambient",
        "-metadata", "track=3/12",
        "-metadata", "disc=1/2",
    };
    return args;
}

QString sox(const QString &out, const QStringList &format)
{
    // Rate and channels on the input side, so the length in samples is counted at 44.1 kHz.
    QStringList args{"-r", "44100", "-c", "2", "-n"};
    args += format;
    args += {out, "synth", QStringLiteral("%1s").arg(kFrames), "sine", "440", "vol", "0.5"};
    QByteArray output;
    EXPECT_EQ(TestEnvironment::run("sox", args, &output), 0) << output.constData();
    return out;
}

QString build()
{
    const QString d = TestEnvironment::makeTempDir("io-fixtures");
    const QString s16 = sox(d + "/src16.wav", {"-b", "16"});
    const QString s24 = sox(d + "/src24.wav", {"-b", "24"});
    const QString cover = d + "/cover.png";
    QByteArray out;
    EXPECT_EQ(TestEnvironment::run("ffmpeg", {"-y", "-v", "error", "-f", "lavfi", "-i", "color=red:s=16x16",
                                              "-frames:v", "1", cover}, &out), 0) << out.constData();

    const QStringList withCover{"-i", cover, "-map", "0", "-map", "1", "-c:v", "copy",
                                "-disposition:v", "attached_pic"};
    const auto make = [&](const QString &src, const char *name, QStringList args) {
        args += tagArgs();
        ffmpeg(src, d + "/" + name, args);
    };
    make(s16, "a16.aiff", {"-write_id3v2", "1"});
    make(s24, "a24.aiff", {"-c:a", "pcm_s24be", "-write_id3v2", "1"});
    make(s16, "a16.wav", {});
    make(s24, "a24.wav", {"-c:a", "pcm_s24le"});
    make(s16, "a.caf", {});
    make(s16, "a.mp3", withCover + QStringList{"-c:a", "libmp3lame", "-id3v2_version", "3"});
    make(s16, "aac.m4a", withCover + QStringList{"-c:a", "aac", "-movie_timescale", "44100"});
    make(s16, "alac16.m4a", withCover + QStringList{"-c:a", "alac", "-sample_fmt", "s16p"});
    make(s24, "alac24.m4a", withCover + QStringList{"-c:a", "alac"});
    make(s16, "a.ogg", {"-c:a", "libvorbis"});
    make(s16, "a16.flac", withCover + QStringList{"-c:a", "flac"});
    make(s24, "a24.flac", withCover + QStringList{"-c:a", "flac"});
    make(s16, "a.tta", {"-sample_fmt", "s16"});
    make(s16, "a.wv", {"-sample_fmt", "s16p"});
    return d;
}

} // namespace

QString dir()
{
    static const QString d = build();
    return d;
}

const QList<Kind> &kinds()
{
    static const QList<Kind> list{
        {"a16.aiff", "AIFF File", 16, false},
        {"a24.aiff", "AIFF File", 24, false},
        {"a16.wav", "WAVE File", 16, false},
        {"a24.wav", "WAVE File", 24, false},
        {"a.caf", "CAF File", 16, false},
        {"a.mp3", "MP3 Audio File", 0, true},
        {"aac.m4a", "AAC Audio File", 0, true},
        {"alac16.m4a", "Apple Lossless File", 16, true},
        {"alac24.m4a", "Apple Lossless File", 24, true},
        {"a.ogg", "Ogg Vorbis Audio File", 0, false},
        {"a16.flac", "FLAC Audio File", 16, true},
        {"a24.flac", "FLAC Audio File", 24, true},
        {"a.tta", "True Audio File", 16, false},
        {"a.wv", "WavPack Audio File", 16, false},
    };
    return list;
}

QString copy(const QString &file)
{
    const QString target = TestEnvironment::makeTempDir("copy") + "/" + file;
    EXPECT_TRUE(QFile::copy(dir() + "/" + file, target));
    QFile::setPermissions(target, QFile::ReadOwner | QFile::WriteOwner);
    return target;
}

QByteArray coverBytes()
{
    return TestEnvironment::readFile(dir() + "/cover.png");
}

QString plainWave() { return dir() + "/src16.wav"; }

QString combined(const QVariantMap &metadata, const QString &numberKey, const QString &totalKey)
{
    const QString number = metadata.value(numberKey).toString();
    if (number.contains('/'))
        return number;
    return number + "/" + metadata.value(totalKey).toString();
}

QByteArray decodedAudio(const QString &path)
{
    const QString out = TestEnvironment::makeTempDir("pcm") + "/audio.raw";
    ffmpeg(path, out, {"-map", "0:a", "-f", "s32le", "-c:a", "pcm_s32le"});
    return TestEnvironment::readFile(out);
}

int bestShift(const std::function<float(qint64)> &decoded, const std::function<float(qint64)> &original,
              qint64 from, qint64 to, int range)
{
    int best = 0;
    double bestError = 1e300;
    for (int shift = -range; shift <= range; ++shift) {
        double e = 0;
        for (qint64 i = from; i < to; ++i)
            e += std::pow(double(decoded(i)) - double(original(i + shift)), 2);
        if (e < bestError) {
            bestError = e;
            best = shift;
        }
    }
    return best;
}

} // namespace IOFixtures
