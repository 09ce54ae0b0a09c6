// The file writer: every target format read back by ffprobe, sox and our own reader; naming,
// cancelling and settings it can't take.

#include "IOFixtures.h"
#include "io/VEKAudioFileReader.h"
#include "io/VEKAudioFileWriter.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

namespace {

constexpr quint32 kRate = 48000;
constexpr quint64 kWritten = 62345; // 1.3 s; no multiple of any encoder's frame size

struct Target {
    const char *format;
    const char *extension;
    const char *codec; // as ffprobe names it
    quint32 bits;      // requested and expected; 0 for lossy
    bool lossless;
};

void PrintTo(const Target &t, std::ostream *os) { *os << t.format; }

const Target kTargets[] = {
    {"AIFF File", "aif", "pcm_s16be", 16, true},
    {"WAVE File", "wav", "pcm_s24le", 24, true},
    {"CAF File", "caf", "pcm_s24be", 24, true},
    {"AAC Audio File", "m4a", "aac", 0, false},
    {"Apple Lossless File", "m4a", "alac", 24, true},
    {"Ogg Vorbis Audio File", "ogg", "vorbis", 0, false},
    {"FLAC Audio File", "flac", "flac", 16, true},
};

QVariantMap albumTrack()
{
    return {{"title", "Überschrift – 日本"},
            {"artist", "The Artist"},
            {"album", "The Album"},
            {"albumArtist", "Various"},
            {"composer", "Somebody"},
            {"genre", "Ambient"},
            {"trackNumber", "3"},
            {"numberOfTracks", "12"},
            {"discNumber", "1"},
            {"numberOfDiscs", "2"},
            {"imageData", IOFixtures::coverBytes()}};
}

// A stereo signal at exactly `bits` bits (any float for 0): two sines, left and right apart.
VEKAudioBufferList signal(quint64 from, quint32 frames, quint32 bits)
{
    VEKAudioBufferList list(2, frames);
    const double scale = bits ? double(1u << (bits - 1)) : 0;
    for (quint32 i = 0; i < frames; ++i) {
        const double t = double(from + i) / kRate;
        for (quint32 c = 0; c < 2; ++c) {
            double v = 0.5 * std::sin(2 * M_PI * (c ? 660.0 : 440.0) * t);
            if (bits)
                v = std::round(v * scale) / scale;
            list.channel(c)[i] = float(v);
        }
    }
    return list;
}

// Writes kWritten frames in blocks of an odd size, as the graph hands them over.
QString writeFile(VEKAudioFileWriter &writer, quint32 bits)
{
    VEKError error;
    EXPECT_TRUE(writer.open(&error)) << error.text().toStdString();
    if (!writer.isOpen())
        return {};
    writer.setExpectedFrames(kWritten);
    for (quint64 at = 0; at < kWritten; at += 1000) {
        const quint32 n = quint32(std::min<quint64>(1000, kWritten - at));
        EXPECT_TRUE(writer.write(signal(at, n, bits), &error)) << error.text().toStdString();
    }
    EXPECT_NEAR(writer.progress(), 1.0f, 1e-6f);
    EXPECT_TRUE(writer.finish(&error)) << error.text().toStdString();
    return writer.resultURLs().value(0);
}

// `rename`: a name in use gets a number rather than being replaced.
void configure(VEKAudioFileWriter &writer, const QString &dir, const QString &name, const QString &format,
               bool rename = false)
{
    if (rename)
        writer.setExistsAction("rename");
    writer.setBaseDirectory(dir);
    writer.setBaseFilename(name);
    writer.setFormat(format);
    writer.setSampleRate(kRate);
    writer.setNumberOfChannels(2);
    writer.setBitDepth(16);
    writer.setBitrate(128000);
    writer.setQuality(0.5f);
}

QJsonObject ffprobe(const QString &path)
{
    QByteArray out;
    EXPECT_EQ(TestEnvironment::run("ffprobe", {"-v", "error", "-of", "json", "-show_streams", "-show_format", path}, &out), 0)
        << out.constData();
    return QJsonDocument::fromJson(out).object();
}

QString soxInfo(const QString &option, const QString &path)
{
    QByteArray out;
    EXPECT_EQ(TestEnvironment::run("soxi", {option, path}, &out), 0) << out.constData();
    return QString::fromUtf8(out).trimmed();
}

// What the test feeds a target: audio at its word length, and 16-bit audio to the lossy coders
// (FFmpeg's AAC encoder adds audible noise to a mathematically pure tone, which the graph's
// dither never hands it).
quint32 sourceBits(const Target &target) { return target.bits ? target.bits : 16; }

class WriterFormats : public ::testing::TestWithParam<Target> {};

} // namespace

TEST_P(WriterFormats, WrittenFileReadsBackEverywhere)
{
    const Target target = GetParam();
    const QString dir = TestEnvironment::makeTempDir("write");
    VEKAudioFileWriter writer;
    configure(writer, dir, "Song", target.format);
    writer.setBitDepth(target.bits ? target.bits : 16);
    writer.setBitrate(96000);
    writer.setMetadata(albumTrack());
    const QString path = writeFile(writer, sourceBits(target));
    ASSERT_EQ(path, dir + "/Song." + target.extension);
    // Nothing else is left in the folder: no temporary file, no reserved name.
    EXPECT_EQ(QDir(dir).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("Song.") + target.extension});

    // ffprobe: codec, rate, channels, bit rate, tags (the word length: sox's and ours below).
    const QJsonObject probe = ffprobe(path);
    const QJsonObject stream = probe["streams"].toArray().at(0).toObject();
    EXPECT_EQ(stream["codec_name"].toString(), target.codec);
    EXPECT_EQ(stream["sample_rate"].toString(), QString::number(kRate));
    EXPECT_EQ(stream["channels"].toInt(), 2);
    if (QString(target.codec) == "aac") {
        const double bitrate = stream["bit_rate"].toString().toDouble();
        EXPECT_GT(bitrate, 96000 * 0.8);
        EXPECT_LT(bitrate, 96000 * 1.2);
    }
    QStringList lower; // the container's tags and the stream's, as key=value with the key in lower case
    for (const QJsonObject &tags : {probe["format"].toObject()["tags"].toObject(), stream["tags"].toObject()})
        for (auto it = tags.begin(); it != tags.end(); ++it)
            lower << it.key().toLower() + "=" + it.value().toString();
    EXPECT_TRUE(lower.contains("title=Überschrift – 日本")) << lower.join(", ").toStdString();
    EXPECT_TRUE(lower.contains("artist=The Artist")) << lower.join(", ").toStdString();

    // sox, for the formats it reads: a second header parser (rate and channels are ffprobe's).
    if (QString(target.extension) != "m4a" && QString(target.extension) != "caf") {
        EXPECT_EQ(soxInfo("-s", path), QString::number(kWritten));
        EXPECT_TRUE(!target.bits || soxInfo("-b", path) == QString::number(target.bits));
    }

    // Our reader: kind, word length, length, every tag, the picture, and every frame.
    VEKError error;
    auto reader = VEKAudioFileReader::open(path, &error);
    ASSERT_NE(reader, nullptr) << error.text().toStdString();
    EXPECT_EQ(reader->format(), target.format);
    EXPECT_EQ(reader->bitDepth(), target.bits);
    EXPECT_EQ(reader->frames(), kWritten);
    const QVariantMap md = reader->metadata();
    const QVariantMap expected = albumTrack();
    for (const char *key : {"title", "artist", "album", "albumArtist", "composer", "genre"})
        EXPECT_EQ(md.value(key).toString(), expected.value(key).toString()) << key;
    EXPECT_EQ(IOFixtures::combined(md, "trackNumber", "numberOfTracks"), "3/12");
    EXPECT_EQ(IOFixtures::combined(md, "discNumber", "numberOfDiscs"), "1/2");
    if (QString(target.extension) != "caf") { // CAF holds no picture we can write
        EXPECT_EQ(md.value("imageData").toByteArray(), IOFixtures::coverBytes());
    }

    VEKAudioBufferList back(2, quint32(kWritten) + 10);
    ASSERT_TRUE(reader->getAudio(back, 0, &error)) << error.text().toStdString();
    ASSERT_EQ(back.frames(), kWritten);
    const VEKAudioBufferList original = signal(0, quint32(kWritten), sourceBits(target));
    if (target.lossless) {
        for (quint32 c = 0; c < 2; ++c)
            for (quint32 i = 0; i < kWritten; ++i)
                ASSERT_EQ(back.channel(c)[i], original.channel(c)[i]) << c << " " << i;
    } else {
        // Coded, so not equal; but in place: the least error is at no shift at all.
        const auto backAt = [&](qint64 i) { return back.channel(0)[i]; };
        const auto originalAt = [&](qint64 i) { return original.channel(0)[i]; };
        EXPECT_EQ(IOFixtures::bestShift(backAt, originalAt, 10000, 50000, 32), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(AllTargets, WriterFormats, ::testing::ValuesIn(kTargets), [](const auto &info) {
    return QString(info.param.format).replace(' ', '_').toStdString();
});

TEST(WriterDepth, EachPcmDepthIsExactAndRoundsToNearest)
{
    for (const char *format : {"WAVE File", "AIFF File", "CAF File", "FLAC Audio File", "Apple Lossless File"}) {
        for (quint32 bits : {8u, 16u, 24u, 32u}) {
            const quint32 written = VEKAudioFileWriter::bitDepthWritten(format, bits);
            SCOPED_TRACE(std::string(format) + " " + std::to_string(bits) + " -> " + std::to_string(written));
            const QString dir = TestEnvironment::makeTempDir("depth");
            VEKAudioFileWriter writer;
            configure(writer, dir, "d", format);
            writer.setBitDepth(bits);
            ASSERT_TRUE(writer.open());
            // Values on the grid of the depth written, and values between two steps of it.
            const double step = 1.0 / double(1ull << (written - 1));
            VEKAudioBufferList list(2, 4);
            const float values[4] = {float(3 * step), float(-5 * step), float(7.3 * step), float(-2.7 * step)};
            const float expected[4] = {float(3 * step), float(-5 * step), float(7 * step), float(-3 * step)};
            for (quint32 c = 0; c < 2; ++c)
                std::copy(values, values + 4, list.channel(c));
            ASSERT_TRUE(writer.write(list));
            ASSERT_TRUE(writer.finish());
            auto reader = VEKAudioFileReader::open(writer.resultURLs().value(0));
            ASSERT_NE(reader, nullptr);
            EXPECT_EQ(reader->bitDepth(), written);
            VEKAudioBufferList back(2, 8);
            ASSERT_TRUE(reader->getAudio(back, 0));
            ASSERT_EQ(back.frames(), 4u);
            for (int i = 0; i < 4; ++i) {
                if (written == 32 && i >= 2)
                    continue; // floats carry no more than 24 bits: no step between to round
                EXPECT_EQ(back.channel(0)[i], expected[i]) << i;
            }
        }
    }
    EXPECT_EQ(VEKAudioFileWriter::bitDepthWritten("WAVE File", 0), 16u);
    EXPECT_EQ(VEKAudioFileWriter::bitDepthWritten("WAVE File", 20), 24u);
    EXPECT_EQ(VEKAudioFileWriter::bitDepthWritten("FLAC Audio File", 32), 24u);
    EXPECT_EQ(VEKAudioFileWriter::bitDepthWritten("AAC Audio File", 24), 0u);
}

TEST(WriterSettings, QualityAndBitRateReachTheEncoders)
{
    const QString dir = TestEnvironment::makeTempDir("quality");
    const auto write = [&](const QString &name, const QString &format, float quality, quint32 bitrate) {
        VEKAudioFileWriter writer;
        configure(writer, dir, name, format);
        writer.setQuality(quality);
        writer.setBitrate(bitrate);
        return writeFile(writer, 0);
    };
    const auto nominal = [](const QString &path) {
        return ffprobe(path)["streams"].toArray().at(0).toObject()["bit_rate"].toString().toLongLong();
    };
    // Vorbis: quality sets a variable bit rate; without quality, the bit rate is used.
    const qint64 low = nominal(write("low", "Ogg Vorbis Audio File", 0.1f, 0));
    const qint64 high = nominal(write("high", "Ogg Vorbis Audio File", 0.9f, 0));
    EXPECT_GT(low, 0);
    EXPECT_GT(high, low * 2);
    EXPECT_EQ(nominal(write("abr", "Ogg Vorbis Audio File", -1.0f, 96000)), 96000);
    // AAC: 0 means 128000.
    const qint64 aac = nominal(write("aac", "AAC Audio File", 1.0f, 0));
    EXPECT_GT(aac, 128000 * 0.8);
    EXPECT_LT(aac, 128000 * 1.2);
    // FLAC: quality is compression; the audio is the same.
    const QString fast = write("fast", "FLAC Audio File", 0.0f, 0);
    const QString small = write("small", "FLAC Audio File", 1.0f, 0);
    EXPECT_LT(QFileInfo(small).size(), QFileInfo(fast).size());
    EXPECT_EQ(IOFixtures::decodedAudio(small), IOFixtures::decodedAudio(fast));
}

TEST(WriterNaming, RenameNeverOverwrites)
{
    const QString dir = TestEnvironment::makeTempDir("rename");
    ASSERT_TRUE(TestEnvironment::writeFile(dir + "/Song.wav", "not to be touched"));
    ASSERT_TRUE(TestEnvironment::writeFile(dir + "/Song 2.wav", "nor this"));

    QStringList results;
    for (int i = 0; i < 3; ++i) {
        VEKAudioFileWriter writer;
        configure(writer, dir, "Song", "WAVE File", true);
        results << writeFile(writer, 16);
    }
    EXPECT_EQ(results, QStringList({dir + "/Song 1.wav", dir + "/Song 3.wav", dir + "/Song 4.wav"}));
    EXPECT_EQ(TestEnvironment::readFile(dir + "/Song.wav"), QByteArray("not to be touched"));
    EXPECT_EQ(TestEnvironment::readFile(dir + "/Song 2.wav"), QByteArray("nor this"));

    // Two writers open at once get different names.
    VEKAudioFileWriter a, b;
    for (VEKAudioFileWriter *w : {&a, &b}) {
        configure(*w, dir, "Twin", "FLAC Audio File", true);
        ASSERT_TRUE(w->open());
        ASSERT_TRUE(w->write(signal(0, 100, 16)));
    }
    // Nothing stands under a name of the user's until the file is complete: a killed writer
    // leaves only its hidden file. Names go in the order the files are finished.
    EXPECT_FALSE(QFile::exists(dir + "/Twin.flac"));
    ASSERT_TRUE(b.finish());
    ASSERT_TRUE(a.finish());
    EXPECT_EQ(b.resultURLs(), QStringList{dir + "/Twin.flac"});
    EXPECT_EQ(a.resultURLs(), QStringList{dir + "/Twin 1.flac"});
}

TEST(WriterNaming, HiddenFilesOfKilledWritersGoAtTheNextOpen)
{
    const QString dir = TestEnvironment::makeTempDir("stale");
    VEKAudioFileWriter live;
    configure(live, dir, "Live", "WAVE File");
    ASSERT_TRUE(live.open());
    // What a killed writer leaves: a hidden file that no one holds a lock on any more.
    ASSERT_TRUE(TestEnvironment::writeFile(dir + "/.Song.0123abcd.part.flac", QByteArray(5000, 'x')));
    ASSERT_TRUE(TestEnvironment::writeFile(dir + "/.Song.mine", "not ours"));
    const QStringList before = QDir(dir).entryList(QDir::Files | QDir::Hidden);
    ASSERT_EQ(before.size(), 3);

    VEKAudioFileWriter next;
    configure(next, dir, "Song", "FLAC Audio File", true);
    ASSERT_TRUE(next.open());
    const QStringList after = QDir(dir).entryList(QDir::Files | QDir::Hidden);
    EXPECT_FALSE(after.contains(".Song.0123abcd.part.flac"));
    EXPECT_TRUE(after.contains(".Song.mine"));
    for (const QString &name : before)
        EXPECT_TRUE(!name.startsWith(".Live.") || after.contains(name)) << "a live writer's file was taken";
    ASSERT_TRUE(live.write(signal(0, 100, 16)));
    ASSERT_TRUE(live.finish());
    EXPECT_EQ(live.resultURLs(), QStringList{dir + "/Live.wav"});
    ASSERT_TRUE(next.write(signal(0, 100, 16)));
    ASSERT_TRUE(next.finish());
    EXPECT_EQ(next.resultURLs(), QStringList{dir + "/Song.flac"});
}

TEST(WriterNaming, NamesTooLongForTheSystemAreShortened)
{
    const QString dir = TestEnvironment::makeTempDir("long");
    // 245 bytes, with characters of two bytes, so a cut could fall inside one.
    const QString name = QString(122, QChar(0xE9)) + "x";
    QStringList results;
    for (int i = 0; i < 2; ++i) {
        VEKAudioFileWriter writer;
        configure(writer, dir, name, "FLAC Audio File", true);
        results << writeFile(writer, 16);
    }
    ASSERT_EQ(results.size(), 2);
    for (const QString &result : results) {
        ASSERT_TRUE(QFile::exists(result)) << result.toStdString();
        EXPECT_LE(QFile::encodeName(QFileInfo(result).fileName()).size(), 255);
        EXPECT_TRUE(QFileInfo(result).fileName().startsWith(QString(100, QChar(0xE9))));
    }
    EXPECT_NE(results[0], results[1]);
}

TEST(WriterNaming, WithoutRenameTheOldFileIsReplacedOnlyAtTheEnd)
{
    const QString dir = TestEnvironment::makeTempDir("replace");
    ASSERT_TRUE(TestEnvironment::writeFile(dir + "/Song.flac", "old"));

    VEKAudioFileWriter writer;
    configure(writer, dir, "Song", "FLAC Audio File");
    ASSERT_TRUE(writer.open());
    ASSERT_TRUE(writer.write(signal(0, 5000, 16)));
    EXPECT_EQ(TestEnvironment::readFile(dir + "/Song.flac"), QByteArray("old"));
    writer.cancel();
    EXPECT_EQ(TestEnvironment::readFile(dir + "/Song.flac"), QByteArray("old"));

    EXPECT_EQ(writeFile(writer, 16), dir + "/Song.flac");
    auto reader = VEKAudioFileReader::open(dir + "/Song.flac");
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->frames(), kWritten);
    // Written under a temporary name first, the result still gets what any new file gets.
    QFile plain(dir + "/plain");
    ASSERT_TRUE(plain.open(QIODevice::WriteOnly));
    EXPECT_EQ(QFileInfo(dir + "/Song.flac").permissions(), QFileInfo(plain.fileName()).permissions());
}

TEST(WriterCancel, NothingIsLeftBehind)
{
    for (const QString &format : VEKAudioFileWriter::formats()) {
        SCOPED_TRACE(format.toStdString());
        const QString dir = TestEnvironment::makeTempDir("cancel");
        {
            VEKAudioFileWriter writer;
            configure(writer, dir, "Song", format, true);
            ASSERT_TRUE(writer.open());
            ASSERT_TRUE(writer.write(signal(0, 20000, 16)));
            EXPECT_FALSE(QDir(dir).entryList(QDir::Files | QDir::Hidden).isEmpty());
            writer.cancel();
            EXPECT_TRUE(QDir(dir).entryList(QDir::Files | QDir::Hidden).isEmpty());
            EXPECT_TRUE(writer.resultURLs().isEmpty());
            EXPECT_FALSE(writer.write(signal(0, 10, 16)));
            EXPECT_FALSE(writer.finish());
        }
        {
            // A writer dropped without finish() cancels itself.
            VEKAudioFileWriter writer;
            configure(writer, dir, "Song", format);
            ASSERT_TRUE(writer.open());
            ASSERT_TRUE(writer.write(signal(0, 20000, 16)));
        }
        EXPECT_TRUE(QDir(dir).entryList(QDir::Files | QDir::Hidden).isEmpty());
    }
}

TEST(WriterErrors, SettingsTheFormatCannotTakeFailAtOpen)
{
    const QString dir = TestEnvironment::makeTempDir("bad");
    const auto refuse = [&](const std::function<void(VEKAudioFileWriter &)> &change) {
        VEKAudioFileWriter writer;
        configure(writer, dir, "Song", "AAC Audio File");
        change(writer);
        VEKError error;
        EXPECT_FALSE(writer.open(&error));
        EXPECT_FALSE(error.isNull());
        EXPECT_FALSE(error.localizedDescription().isEmpty());
        EXPECT_FALSE(writer.isOpen());
        EXPECT_TRUE(QDir(dir).entryList(QDir::Files | QDir::Hidden).isEmpty());
    };
    refuse([](VEKAudioFileWriter &w) { w.setFormat("MP3 Audio File"); });
    refuse([](VEKAudioFileWriter &w) { w.setFormat(QString()); });
    refuse([](VEKAudioFileWriter &w) { w.setSampleRate(0); });
    refuse([](VEKAudioFileWriter &w) { w.setSampleRate(44100.5); });
    refuse([](VEKAudioFileWriter &w) { w.setSampleRate(5000); }); // not an AAC rate
    refuse([](VEKAudioFileWriter &w) { w.setNumberOfChannels(0); });
    refuse([](VEKAudioFileWriter &w) { w.setBaseFilename(QString()); });
    refuse([&](VEKAudioFileWriter &w) { w.setBaseDirectory(dir + "/missing"); });
}

TEST(WriterChannels, ChannelsTheListLacksAreSilence)
{
    const QString dir = TestEnvironment::makeTempDir("channels");
    for (const char *format : {"WAVE File", "AAC Audio File"}) {
        SCOPED_TRACE(format);
        VEKAudioFileWriter writer;
        configure(writer, dir, "six", format, true);
        writer.setNumberOfChannels(6);
        ASSERT_TRUE(writer.open());
        ASSERT_TRUE(writer.write(signal(0, 9000, 16))); // a stereo list
        ASSERT_TRUE(writer.finish());
        auto reader = VEKAudioFileReader::open(writer.resultURLs().value(0));
        ASSERT_NE(reader, nullptr);
        EXPECT_EQ(reader->numberOfChannels(), 6u);
        EXPECT_EQ(reader->frames(), 9000u);
        VEKAudioBufferList back(6, 9000);
        ASSERT_TRUE(reader->getAudio(back, 0));
        EXPECT_GT(back.maximum(), 0.4f);
        for (quint32 i = 0; i < 9000; ++i)
            ASSERT_LT(std::fabs(back.channel(5)[i]), 1e-3f);
    }
}
