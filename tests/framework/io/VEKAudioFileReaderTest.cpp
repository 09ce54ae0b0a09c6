#include "IOFixtures.h"
#include "io/VEKAudioFileReader.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <gtest/gtest.h>

#include <thread>

using IOFixtures::kFrames;

namespace {

QString writeFile(const QString &name, const QByteArray &bytes)
{
    const QString path = TestEnvironment::makeTempDir("bad") + "/" + name;
    EXPECT_TRUE(TestEnvironment::writeFile(path, bytes));
    return path;
}

void expectRefused(const QString &path)
{
    VEKError error;
    VEKAudioFileReader reader;
    EXPECT_FALSE(reader.initWithURL(path, &error)) << path.toStdString();
    EXPECT_FALSE(error.isNull());
    EXPECT_FALSE(error.localizedDescription().isEmpty());
    EXPECT_EQ(VEKAudioFileReader::open(path), nullptr);
}

class ReaderFormats : public ::testing::TestWithParam<IOFixtures::Kind> {};

} // namespace

TEST_P(ReaderFormats, FormatLengthSampleFactsAndTags)
{
    const IOFixtures::Kind kind = GetParam();
    const QString path = IOFixtures::dir() + "/" + kind.file;
    VEKError error;
    auto reader = VEKAudioFileReader::open(path, &error);
    ASSERT_NE(reader, nullptr) << error.text().toStdString();

    EXPECT_EQ(reader->format(), QString::fromUtf8(kind.format));
    EXPECT_EQ(reader->sampleRate(), 44100.0);
    EXPECT_EQ(reader->numberOfChannels(), 2u);
    EXPECT_EQ(reader->bitDepth(), kind.bitDepth);
    // Lossless files by their headers, MP3 and AAC without encoder delay and padding.
    EXPECT_EQ(reader->frames(), kFrames);
    EXPECT_DOUBLE_EQ(reader->length(), double(kFrames) / 44100.0);
    EXPECT_EQ(reader->fileSize(), quint64(QFileInfo(path).size()));
    if (kind.bitDepth && QString(kind.file).endsWith(".wav"))
        EXPECT_EQ(reader->bitrate(), 44100u * 2 * kind.bitDepth);
    else
        EXPECT_GT(reader->bitrate(), 16000u);

    // The album track's tags.
    const QVariantMap md = reader->metadata();
    EXPECT_EQ(md.value("title").toString(), "Überschrift – 日本");
    EXPECT_EQ(md.value("artist").toString(), "The Artist");
    EXPECT_EQ(md.value("album").toString(), "The Album");
    EXPECT_EQ(md.value("genre").toString(), "Ambient");
    EXPECT_EQ(IOFixtures::combined(md, "trackNumber", "numberOfTracks"), "3/12");
    // RIFF INFO has no fields for these three.
    if (!QString(kind.file).endsWith(".wav")) {
        EXPECT_EQ(md.value("albumArtist").toString(), "Various");
        EXPECT_EQ(md.value("composer").toString(), "Somebody");
        EXPECT_EQ(IOFixtures::combined(md, "discNumber", "numberOfDiscs"), "1/2");
    } else {
        EXPECT_FALSE(md.contains("composer"));
    }
    if (kind.hasCover)
        EXPECT_EQ(md.value("imageData").toByteArray(), IOFixtures::coverBytes());
    else
        EXPECT_FALSE(md.contains("imageData"));
}

INSTANTIATE_TEST_SUITE_P(AllFormats, ReaderFormats, ::testing::ValuesIn(IOFixtures::kinds()),
                         [](const auto &info) {
                             return QString(info.param.file).replace('.', '_').toStdString();
                         });

TEST(ReaderFacts, FilesWithoutALengthInTheirHeaderAreCounted)
{
    const QString dir = TestEnvironment::makeTempDir("counted");
    const QString src = IOFixtures::dir() + "/src16.wav";
    // FLAC written to a pipe cannot go back to fill in its total; an MP3 without an info
    // frame has only FFmpeg's estimate from the bit rate.
    QByteArray out;
    ASSERT_EQ(TestEnvironment::run("sh", {"-c", QStringLiteral("ffmpeg -v error -i '%1' -f flac - > '%2/pipe.flac'")
                                                      .arg(src, dir)}, &out), 0) << out.constData();
    TestEnvironment::ffmpeg(src, dir + "/plain.mp3", {"-c:a", "libmp3lame", "-write_xing", "0"});
    for (const QString name : {"pipe.flac", "plain.mp3"}) {
        SCOPED_TRACE(name.toStdString());
        auto reader = VEKAudioFileReader::open(dir + "/" + name);
        ASSERT_NE(reader, nullptr);
        EXPECT_EQ(reader->frames(), quint64(IOFixtures::decodedAudio(dir + "/" + name).size() / 8));
    }
}

TEST(ReaderFacts, OtherDecodableKindsHaveNoFormatText)
{
    // Ogg holds Vorbis and FLAC, which have texts, and Opus, which has none.
    const QString path = TestEnvironment::makeTempDir("opus") + "/a.ogg";
    TestEnvironment::ffmpeg(IOFixtures::plainWave(), path, {"-c:a", "libopus", "-metadata", "title=O"});
    auto reader = VEKAudioFileReader::open(path);
    ASSERT_NE(reader, nullptr);
    EXPECT_TRUE(reader->format().isNull());
    EXPECT_EQ(reader->bitDepth(), 0u);
    EXPECT_EQ(reader->sampleRate(), 48000.0);
    EXPECT_EQ(reader->metadata().value("title").toString(), "O");
}

TEST(ReaderFacts, RelativePathBecomesAbsolute)
{
    const QString saved = QDir::currentPath();
    QDir::setCurrent(IOFixtures::dir());
    auto reader = VEKAudioFileReader::open("a16.wav");
    QDir::setCurrent(saved);
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->URL(), IOFixtures::dir() + "/a16.wav");
}

TEST(ReaderFacts, ThreeGigabyteFileKeepsItsSize)
{
    // A sparse 3 GiB WAV: the header promises the data, the file system holds no blocks.
    const quint64 size = 3ull << 30;
    const quint32 dataSize = quint32(size - 44);
    QByteArray header;
    QDataStream out(&header, QIODevice::WriteOnly);
    out.setByteOrder(QDataStream::LittleEndian);
    out.writeRawData("RIFF", 4);
    out << quint32(dataSize + 36);
    out.writeRawData("WAVEfmt ", 8);
    // PCM, two channels at 44.1 kHz, four bytes a frame, 16 bits.
    out << quint32(16) << quint16(1) << quint16(2) << quint32(44100) << quint32(44100 * 4) << quint16(4)
        << quint16(16);
    out.writeRawData("data", 4);
    out << quint32(dataSize);
    const QString path = writeFile("big.wav", header);
    ASSERT_TRUE(QFile::resize(path, qint64(size)));

    VEKError error;
    auto reader = VEKAudioFileReader::open(path, &error);
    ASSERT_NE(reader, nullptr) << error.text().toStdString();
    EXPECT_EQ(reader->fileSize(), size);
    EXPECT_EQ(reader->frames(), quint64(dataSize / 4));
    EXPECT_GT(reader->length(), 3.0 * 3600);
}

TEST(ReaderTags, UntaggedFileHasNoKeys)
{
    auto reader = VEKAudioFileReader::open(IOFixtures::plainWave());
    ASSERT_NE(reader, nullptr);
    EXPECT_TRUE(reader->metadata().isEmpty()) << reader->metadata().keys().join(',').toStdString();
    EXPECT_EQ(reader->format(), "WAVE File");
}

TEST(ReaderErrors, MissingEmptyNonAudioAndTruncatedFilesAreRefused)
{
    expectRefused(TestEnvironment::makeTempDir("none") + "/missing.flac");
    expectRefused(TestEnvironment::makeTempDir("folder"));
    expectRefused(writeFile("empty.flac", {}));
    expectRefused(writeFile("notes.mp3", QByteArray("Shopping list\nmilk\nbread\n").repeated(200)));
    QByteArray noise(256 * 1024, '\0');
    quint32 x = 12345;
    for (char &c : noise)
        c = char((x = x * 1103515245u + 12345u) >> 24);
    expectRefused(writeFile("noise.wav", noise));

    // Files of a framed format cut short.
    for (const char *name : {"a16.flac", "alac16.m4a", "a.wv", "a.tta"}) {
        SCOPED_TRACE(name);
        const QByteArray whole = TestEnvironment::readFile(IOFixtures::dir() + "/" + name);
        expectRefused(writeFile(name, whole.left(whole.size() * 6 / 10)));
        // A FLAC file ends with its last audio frame (the others with tags or an index):
        // losing only that frame's checksum must show.
        if (QString(name).endsWith(".flac"))
            expectRefused(writeFile(name, whole.left(whole.size() - 7)));
        // The header alone.
        expectRefused(writeFile(name, whole.left(200)));
    }
}

TEST(ReaderErrors, CutShortPcmNeverPromisesMoreThanItHolds)
{
    // PCM needs no frame structure: the reader may refuse the file or report what is left,
    // but never the length the header promised.
    for (const char *name : {"a24.wav", "src16.wav", "a16.aiff"}) {
        SCOPED_TRACE(name);
        const QByteArray whole = TestEnvironment::readFile(IOFixtures::dir() + "/" + name);
        const QString path = writeFile(name, whole.left(whole.size() * 6 / 10));
        auto reader = VEKAudioFileReader::open(path);
        if (reader) {
            EXPECT_EQ(reader->frames(), quint64(IOFixtures::decodedAudio(path).size() / 8));
        }
    }
}

TEST(ReaderThreads, ReadersOnSeveralThreadsAgree)
{
    const auto &kinds = IOFixtures::kinds();
    std::vector<quint64> frames(kinds.size() * 4);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (qsizetype i = 0; i < kinds.size(); ++i) {
                auto reader = VEKAudioFileReader::open(IOFixtures::dir() + "/" + kinds[i].file);
                frames[size_t(t * kinds.size() + i)] = reader ? reader->frames() : 0;
            }
        });
    }
    for (auto &thread : threads)
        thread.join();
    for (quint64 f : frames)
        EXPECT_EQ(f, kFrames);
}
