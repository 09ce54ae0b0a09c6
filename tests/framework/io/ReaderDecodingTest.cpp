// Sample decoding: what getAudio() delivers against FFmpeg's own decoding of the same file and
// against the source the file was made from.

#include "IOFixtures.h"
#include "io/VEKAudioFileReader.h"
#include "support/Pcm.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <QFile>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

using IOFixtures::kFrames;

namespace {

// Appends `list` to `pcm`, interleaved.
void append(Pcm &pcm, const VEKAudioBufferList &list)
{
    for (quint32 f = 0; f < list.frames(); ++f)
        for (quint32 c = 0; c < pcm.channels; ++c)
            pcm.s.push_back(list.channel(c)[f]);
}

// The whole file block after block, as the decoder thread reads it.
Pcm readAll(VEKAudioFileReader &reader, quint32 blockFrames = 4096)
{
    Pcm pcm;
    pcm.channels = reader.numberOfChannels();
    VEKAudioBufferList list(pcm.channels, blockFrames);
    quint64 at = 0;
    for (;;) {
        VEKError error;
        EXPECT_TRUE(reader.getAudio(list, at, &error)) << error.text().toStdString();
        if (list.frames() == 0)
            break;
        append(pcm, list);
        at += list.frames();
    }
    return pcm;
}

Pcm readAt(VEKAudioFileReader &reader, quint64 from, quint32 count)
{
    Pcm pcm;
    pcm.channels = reader.numberOfChannels();
    VEKAudioBufferList list(pcm.channels, count);
    EXPECT_TRUE(reader.getAudio(list, from));
    append(pcm, list);
    return pcm;
}

// Pieces read at offsets near and far, the ends included, match `whole` within `tolerance`
// (well below what one frame of displacement makes of the fixtures' sine, 0.03).
void expectSameFromAnyOffset(VEKAudioFileReader &reader, const Pcm &whole, float tolerance)
{
    // Short steps back and forth (within the preroll, around the seek threshold) and far jumps.
    std::vector<quint64> offsets{
        0,   kFrames - 1, 1, kFrames / 2, kFrames / 2 - 3000, kFrames / 2 + 30000 / 2, 22000, 22100,
        100, 33000,       5};
    std::mt19937 random(42);
    for (int i = 0; i < 40; ++i)
        offsets.push_back(random() % kFrames);
    for (quint64 at : offsets) {
        SCOPED_TRACE(at);
        const quint32 count = quint32(std::min<quint64>(777, kFrames - at));
        const Pcm piece = readAt(reader, at, 777);
        ASSERT_EQ(piece.frames(), count);
        EXPECT_LE(maxDifference(piece, 0, whole, at, count), tolerance);
    }
}

QString fixture(const char *name) { return IOFixtures::dir() + "/" + name; }

const char *const kLossless[] = {"a16.aiff", "a24.aiff", "a16.wav", "a24.wav", "a.caf", "alac16.m4a",
                                 "alac24.m4a", "a16.flac", "a24.flac", "a.tta", "a.wv"};
const char *const kLossy[] = {"a.mp3", "aac.m4a", "a.ogg"};

} // namespace

// Lossless files decode exactly as FFmpeg decodes them. Lossy ones: FFmpeg's own decoding keeps
// AAC's end padding (33792 frames here) and, for Vorbis, times the first packet wrongly and cuts
// 128 frames too many at the end. Ours has exactly the source's frames, starting where the source
// starts, and is FFmpeg's decoding where both have audio.
// Then reads at any offset give the frames of the sequential read. Lossless, MP3 and Vorbis: the
// same samples exactly. AAC: the same place exactly; bands the encoder filled with noise come out
// of the decoder's noise generator, which a seek does not restart, so the samples differ, by less
// than the coding noise.
TEST(ReaderDecoding, FilesDecodeAsFFmpegDoesWithTheSourceLengthAndFromAnyOffset)
{
    const Pcm source = Pcm::decodedByFFmpeg(IOFixtures::plainWave(), 2);
    QList<const char *> names(std::begin(kLossless), std::end(kLossless));
    names.append(QList<const char *>(std::begin(kLossy), std::end(kLossy)));
    for (const char *name : names) {
        SCOPED_TRACE(name);
        auto reader = VEKAudioFileReader::open(fixture(name));
        ASSERT_NE(reader, nullptr);
        const Pcm ours = readAll(*reader);
        expectSameFromAnyOffset(*reader, ours, QString(name) == "aac.m4a" ? 0.01f : 0.0f);
        const Pcm theirs = Pcm::decodedByFFmpeg(fixture(name), 2);
        if (std::find(std::begin(kLossy), std::end(kLossy), name) == std::end(kLossy)) {
            EXPECT_EQ(theirs.frames(), kFrames);
            EXPECT_EQ(ours.s, theirs.s);
            continue;
        }
        EXPECT_EQ(ours.frames(), kFrames);
        const auto oursAt = [&](qint64 i) { return ours.at(quint64(i), 0); };
        const auto sourceAt = [&](qint64 i) { return source.at(quint64(i), 0); };
        EXPECT_EQ(IOFixtures::bestShift(oursAt, sourceAt, 4096, 4096 + 8192, 64), 0);
        const quint64 common = std::min(ours.frames(), theirs.frames());
        EXPECT_GT(common, kFrames - 200);
        EXPECT_EQ(maxDifference(ours, 0, theirs, 0, common), 0.0f);
        // The last frames are the source's last frames, not silence made up to fill the length.
        EXPECT_LT(maxDifference(ours, kFrames - 100, source, kFrames - 100, 100), 0.05f);
        float loudest = 0;
        for (quint64 f = kFrames - 100; f < kFrames; ++f)
            loudest = std::max(loudest, std::fabs(ours.at(f, 0)));
        EXPECT_GT(loudest, 0.2f);
    }
}

// Reading on never seeks: a whole read is one seek back to the start after opening, and a read
// a little further on is decoded to.
TEST(ReaderDecoding, FramesAddUpWhateverTheBlockSizeAndReadingOnDoesNotSeek)
{
    for (const char *name : {"a16.flac", "a.mp3", "aac.m4a", "a.ogg", "a24.wav"}) {
        SCOPED_TRACE(name);
        auto reader = VEKAudioFileReader::open(fixture(name));
        ASSERT_NE(reader, nullptr);
        const Pcm reference = readAll(*reader, 1000);
        EXPECT_EQ(reader->seekCount(), 1u);
        VEKAudioBufferList list(2, 500);
        ASSERT_TRUE(reader->getAudio(list, 0));
        const quint64 afterRewind = reader->seekCount();
        ASSERT_TRUE(reader->getAudio(list, 500));
        ASSERT_TRUE(reader->getAudio(list, 1500));
        ASSERT_TRUE(reader->getAudio(list, 5000));
        EXPECT_EQ(reader->seekCount(), afterRewind);
        for (quint32 block : {1u, 333u, 1024u, 4096u, 100000u}) {
            SCOPED_TRACE(block);
            const Pcm pcm = readAll(*reader, block);
            EXPECT_EQ(pcm.frames(), reader->frames());
            EXPECT_EQ(pcm.s, reference.s);
        }
        // Far past the end: nothing, and no error (at the end itself readAll stops).
        EXPECT_TRUE(reader->getAudio(list, reader->frames() + 12345));
        EXPECT_EQ(list.frames(), 0u);
    }
}

TEST(ReaderDecoding, LongFilesSeekExactly)
{
    // Seeks that land in the middle of real files: FLAC frames, MP3 bit reservoir, Ogg pages of
    // their own.
    const QString dir = TestEnvironment::makeTempDir("long");
    const QString src = TestEnvironment::makeSine(dir + "/src.wav", 20.0, 44100, 2, {"-b", "16"}, 1000);
    TestEnvironment::ffmpeg(src, dir + "/l.flac", {});
    TestEnvironment::ffmpeg(src, dir + "/l.mp3", {"-c:a", "libmp3lame", "-b:a", "64k"});
    TestEnvironment::ffmpeg(src, dir + "/l.ogg", {"-c:a", "libvorbis"});
    for (const char *name : {"l.flac", "l.mp3", "l.ogg"}) {
        SCOPED_TRACE(name);
        auto reader = VEKAudioFileReader::open(dir + "/" + name);
        ASSERT_NE(reader, nullptr);
        ASSERT_EQ(reader->frames(), 20u * 44100u);
        const Pcm whole = readAll(*reader);
        std::mt19937 random(9);
        for (int i = 0; i < 30; ++i) {
            const quint64 at = random() % (reader->frames() - 2000);
            SCOPED_TRACE(at);
            EXPECT_EQ(maxDifference(readAt(*reader, at, 2000), 0, whole, at, 2000), 0.0f);
        }
    }
}

TEST(ReaderDecoding, AMonoFileHasOneChannelAndTheOthersAreSilence)
{
    const QString mono =
        TestEnvironment::makeSine(TestEnvironment::makeTempDir("mono") + "/mono.flac", 0.5, 48000, 1);
    auto reader = VEKAudioFileReader::open(mono);
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->numberOfChannels(), 1u);
    EXPECT_EQ(reader->sampleRate(), 48000.0);
    EXPECT_EQ(reader->frames(), 24000u);
    EXPECT_DOUBLE_EQ(reader->length(), 0.5);
    VEKAudioBufferList stereo(2, 1000);
    std::fill(stereo.channel(1), stereo.channel(1) + 1000, 0.75f);
    ASSERT_TRUE(reader->getAudio(stereo, 100));
    ASSERT_EQ(stereo.frames(), 1000u);
    EXPECT_GT(stereo.maximum(), 0.4f);
    EXPECT_EQ(*std::max_element(stereo.channel(1), stereo.channel(1) + 1000), 0.0f);
}

TEST(ReaderDecoding, MemoryCopyReadsAfterTheFileIsGone)
{
    for (const char *name : {"a24.flac", "a.mp3", "alac16.m4a"}) {
        SCOPED_TRACE(name);
        const QString path = IOFixtures::copy(name);
        auto reader = VEKAudioFileReader::open(path);
        ASSERT_NE(reader, nullptr);
        const Pcm whole = readAll(*reader);
        // Halfway through when the copy is made: reading goes on from there.
        const Pcm first = readAt(*reader, 0, 10000);
        VEKError error;
        ASSERT_TRUE(reader->loadIntoMemory(&error)) << error.text().toStdString();
        ASSERT_TRUE(QFile::remove(path));
        const quint64 seeks = reader->seekCount();
        const Pcm rest = readAt(*reader, 10000, quint32(kFrames));
        EXPECT_EQ(reader->seekCount(), seeks);
        ASSERT_EQ(first.frames() + rest.frames(), kFrames);
        EXPECT_EQ(maxDifference(rest, 0, whole, 10000, rest.frames()), 0.0f);
        EXPECT_EQ(readAll(*reader).s, whole.s);
        EXPECT_TRUE(reader->loadIntoMemory(&error)); // once is enough
    }
}

TEST(ReaderDecoding, CutShortLossyFileStillGivesItsLength)
{
    // An MP3 keeps its length in its first frame, so a copy cut short opens with the full
    // length; the missing end plays as silence instead of ending early.
    const QByteArray whole = TestEnvironment::readFile(fixture("a.mp3"));
    const QString path = TestEnvironment::makeTempDir("cut") + "/cut.mp3";
    ASSERT_TRUE(TestEnvironment::writeFile(path, whole.left(whole.size() / 2)));
    auto reader = VEKAudioFileReader::open(path);
    ASSERT_NE(reader, nullptr);
    ASSERT_EQ(reader->frames(), kFrames);
    const Pcm pcm = readAll(*reader);
    EXPECT_EQ(pcm.frames(), kFrames);
    EXPECT_GT(std::fabs(pcm.at(1000, 0)) + std::fabs(pcm.at(1010, 0)), 0.01f);
    EXPECT_EQ(pcm.at(kFrames - 1, 0), 0.0f);
}

TEST(ReaderDecoding, UnopenedReaderRefusesToRead)
{
    VEKAudioFileReader reader;
    EXPECT_FALSE(reader.initWithURL(TestEnvironment::makeTempDir("none") + "/missing.wav"));
    VEKAudioBufferList list(2, 16);
    VEKError error;
    EXPECT_FALSE(reader.getAudio(list, 0, &error));
    EXPECT_FALSE(error.isNull());
    EXPECT_EQ(list.frames(), 0u);
    EXPECT_FALSE(reader.loadIntoMemory(&error));
}
