// Playback proven sample by sample through the real program: a continuous signal cut into pieces,
// imported in order and played through the player's whole graph (into a WAV with `render`, or to
// an ALSA device with `play`), must come back as the signal, every frame in its place.

#include "support/AlsaWorld.h"
#include "support/CliHarness.h"
#include "support/Pcm.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"
#include "support/WaveFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

constexpr int kRate = 44100;
constexpr int kChannels = 2;
// What the player takes for silence when it trims a file's ends: -60 dB, over a file's first and
// last two seconds only.
constexpr float kSilence = 0.001f;
constexpr double kExamined = 2.0;

// A stereo signal with nothing periodic in it: an exponential sweep in each channel (up in the
// left, down in the right) plus independent white noise, on the integer grid of `bits`.
Pcm makeSignal(size_t frames, int bits, quint32 seed, double level = 0.45)
{
    Pcm p;
    p.s.resize(frames * kChannels);
    quint32 x = seed * 2654435761u + 1u;
    const double seconds = double(frames) / kRate, f0 = 40.0, f1 = 16000.0;
    const double k = std::log(f1 / f0) / seconds;
    for (size_t i = 0; i < frames; ++i) {
        const double t = double(i) / kRate;
        const double up = 2 * M_PI * f0 * (std::exp(k * t) - 1) / k;
        const double down = 2 * M_PI * f1 * (1 - std::exp(-k * t)) / k;
        for (int c = 0; c < kChannels; ++c) {
            x = x * 1664525u + 1013904223u;
            const double noise = (double(x >> 8) / double(1 << 24) - 0.5) * 0.4;
            const double v = level * std::sin(c == 0 ? up : down) + noise;
            p.s[i * kChannels + size_t(c)] = Pcm::fromWord(Pcm::word(float(v), bits), bits);
        }
    }
    return p;
}

bool audible(const Pcm &p, size_t frame)
{
    for (int c = 0; c < kChannels; ++c)
        if (std::fabs(p.at(frame, c)) >= kSilence)
            return true;
    return false;
}

// The frames of a file the player plays when it reaches it by the gapless road: from the first
// audible frame to just after the last one, looking only at the first and last two seconds.
// `fromStart` keeps the start at 0, as for the first song of a playlist, which plays from its
// very start.
std::pair<size_t, size_t> playableRange(const Pcm &p, bool fromStart)
{
    const size_t total = p.frames(), window = std::min(total, size_t(kExamined * p.rate));
    size_t start = 0, end = total;
    if (!fromStart)
        for (size_t i = 0; i < window; ++i)
            if (audible(p, i)) {
                start = i;
                break;
            }
    for (size_t i = total; i > total - window; --i)
        if (audible(p, i - 1)) {
            end = i;
            break;
        }
    return {std::min(start, end), end};
}

// What a gapless playlist of these files sounds like.
Pcm gaplessConcatenation(const std::vector<Pcm> &pieces)
{
    Pcm out;
    for (size_t i = 0; i < pieces.size(); ++i) {
        const auto [a, b] = playableRange(pieces[i], i == 0);
        out.append(pieces[i].slice(a, b));
    }
    return out;
}

// Cut points at awkward places (no multiple of any block size), moved by a frame or two where
// the signal happens to be quiet, so that every piece plays whole.
std::vector<size_t> cutPoints(const Pcm &signal, const std::vector<double> &fractions)
{
    std::vector<size_t> cuts;
    for (const double f : fractions) {
        size_t c = size_t(f * double(signal.frames())) | 1;
        while (!audible(signal, c - 1) || !audible(signal, c))
            ++c;
        cuts.push_back(c);
    }
    return cuts;
}

std::vector<Pcm> cut(const Pcm &signal, const std::vector<size_t> &cuts)
{
    std::vector<Pcm> pieces;
    size_t from = 0;
    for (const size_t c : cuts) {
        pieces.push_back(signal.slice(from, c));
        from = c;
    }
    pieces.push_back(signal.slice(from, signal.frames()));
    return pieces;
}

// ---- files ----

enum class Format { Flac, Wav, Aiff, WavPack, Alac, Mp3, Aac };

// Name, suffix and the tool's arguments after the input (sox for the first three, FFmpeg else),
// in the order of Format. AAC's edit list is in samples, not milliseconds, so the piece's length
// is exact.
struct FormatInfo {
    const char *name, *suffix, *codec;
};
constexpr FormatInfo kFormats[] = {{"FLAC", "flac", ""}, {"WAV", "wav", ""}, {"AIFF", "aiff", ""},
                                   {"WavPack", "wv", "-c:a wavpack"}, {"ALAC", "m4a", "-c:a alac"},
                                   {"MP3", "mp3", "-c:a libmp3lame -b:a 256k"},
                                   {"AAC", "m4a", "-c:a aac -b:a 256k -movie_timescale"}};
const FormatInfo &formatInfo(Format f) { return kFormats[int(f)]; }

// Arguments written as one line, split at the spaces.
QStringList words(const QString &line) { return line.split(u' ', Qt::SkipEmptyParts); }

void runTool(const QString &program, const QStringList &args)
{
    QByteArray output;
    ASSERT_EQ(TestEnvironment::run(program, args, &output), 0)
        << program.toStdString() << ' ' << args.join(u' ').toStdString() << "\n" << output.constData();
}

// Encodes `p` (on the grid of `bits`) into `base`.suffix; returns the file's path.
QString encode(const Pcm &p, int bits, Format format, const QString &base)
{
    const QString raw = base + ".raw", out = base + u'.' + QLatin1String(formatInfo(format).suffix);
    TestEnvironment::writeFile(raw, p.toWords(bits));
    const QString rate = QString::number(p.rate);
    if (format <= Format::Aiff)
        runTool("sox", words(QString("-t raw -r %1 -e signed-integer -b %2 -c 2 -L").arg(rate).arg(bits))
                           + QStringList{raw, out});
    else
        runTool("ffmpeg", words(QString("-v error -y -f s%1le -ar %2 -ac 2 -i").arg(bits).arg(rate))
                              + QStringList{raw} + words(QLatin1String(formatInfo(format).codec))
                              + (format == Format::Aac ? QStringList{rate, out} : QStringList{out}));
    QFile::remove(raw);
    return out;
}

// A WAV file as our renderer writes it: PCM or extensible PCM of 16, 24 or 32 bits.
Pcm readWav(const QString &path, int *bitsOut = nullptr)
{
    const WaveFile w = WaveFile::read(path);
    if (!w.isWave) {
        ADD_FAILURE() << path.toStdString() << " is no WAV file";
        return {};
    }
    EXPECT_EQ(w.tag, 1) << "not integer PCM";
    EXPECT_EQ(w.channels, kChannels);
    if (bitsOut)
        *bitsOut = w.bits;
    return Pcm::fromWords(w.data, w.bits, kChannels, int(w.rate));
}

// ---- the program ----

QStringList absolute(const QStringList &files)
{
    QStringList out;
    for (const QString &f : files)
        out << QFileInfo(f).absoluteFilePath();
    return out;
}

// Imports `files` into the library and checks that the library plays them in that order; a
// `depth` of 32 is set as the dither's word (still off), to compare the decoders' floats whole.
void importInOrder(const CliHarness &cli, const QStringList &files, int depth = 16)
{
    if (depth == 32)
        cli.set("ditherProperties", QString("{\"depth\":%1}").arg(depth));
    const CliHarness::Result r = cli.run(QStringList{"import"} + files);
    ASSERT_EQ(r.status, 0) << r.err.constData();
    QStringList paths;
    for (const QJsonValue &s : cli.songs())
        paths << s.toObject().value("path").toString();
    ASSERT_EQ(paths, absolute(files));
}

Pcm render(const CliHarness &cli, int bits, const QStringList &extra = {})
{
    const QString out = cli.musicDir() + QString("/render-%1.wav").arg(bits);
    const CliHarness::Result r =
        cli.run(QStringList{"render", "--out", out, "--bits", QString::number(bits)} + extra);
    EXPECT_EQ(r.status, 0) << r.err.constData();
    int written = 0;
    Pcm p = readWav(out, &written);
    EXPECT_EQ(written, bits);
    QFile::remove(out);
    return p;
}

// An ALSA world of our own for `play`: a `file` PCM, which writes the bytes it gets into a file
// named after the format it was opened with, over our test card (target quivera_test_alsa,
// built with this test) playing at the pace of real
// time (44.1 kHz, S16_LE or S24_3LE). Paced, since a slave that consumes at once (`null`) lets
// the render thread outrun the decoder, and the player then plays silence rather than wait.
class AlsaFileDevice {
public:
    AlsaFileDevice()
        : m_dir(TestEnvironment::makeTempDir("alsa")), m_old(qgetenv("ALSA_CONFIG_PATH")),
          m_had(qEnvironmentVariableIsSet("ALSA_CONFIG_PATH"))
    {
        EXPECT_FALSE(AlsaWorld::install(
                         m_dir, QStringLiteral(QUIVERA_TEST_ALSA_PLUGIN),
                         AlsaWorld::card("gaplesscard", "44100", "\"S16_LE\" \"S24_3LE\"", "  paced true\n")
                             + AlsaWorld::filePCM(uid(), "gaplesscard", m_dir, "play"))
                         .isEmpty());
    }
    ~AlsaFileDevice()
    {
        if (m_had)
            qputenv("ALSA_CONFIG_PATH", m_old);
        else
            qunsetenv("ALSA_CONFIG_PATH");
    }
    static QString uid() { return "gaplessfile"; }

    // What the device was given, read from the `file` PCM's output. False if there is none.
    bool take(Pcm *out) const
    {
        const QStringList found = QDir(m_dir).entryList({"play-*.raw"}, QDir::Files);
        if (found.size() != 1)
            return false;
        const QStringList parts = QFileInfo(found.front()).completeBaseName().split(u'-');
        const int bits = parts.value(3).toInt();
        EXPECT_EQ(parts.value(2).toInt(), kChannels);
        const QString file = m_dir + u'/' + found.front();
        *out = Pcm::fromWords(TestEnvironment::readFile(file), bits, kChannels, parts.value(1).toInt());
        QFile::remove(file);
        return true;
    }

private:
    QString m_dir;
    QByteArray m_old;
    bool m_had;
};

// Plays the library to the test device; returns what reached it with the silence the running
// device sent before the first and after the last frame of the playlist taken away. The stream
// runs from launch, so it may send silence before playback starts and until the program ends.
Pcm playToDevice(const CliHarness &cli, const AlsaFileDevice &device)
{
    const CliHarness::Result r = cli.run({"play", "--device", AlsaFileDevice::uid()});
    EXPECT_EQ(r.status, 0) << r.err.constData();
    Pcm all;
    EXPECT_TRUE(device.take(&all)) << "the device wrote no file";
    size_t a = 0, b = all.frames();
    while (a < b && !(all.at(a, 0) != 0 || all.at(a, 1) != 0))
        ++a;
    while (b > a && !(all.at(b - 1, 0) != 0 || all.at(b - 1, 1) != 0))
        --b;
    return all.slice(a, b);
}

QStringList encodeAll(const std::vector<Pcm> &pieces, int bits, const std::vector<Format> &formats,
                      const QString &dir)
{
    QStringList files;
    for (size_t i = 0; i < pieces.size(); ++i)
        files << encode(pieces[i], bits, formats[i % formats.size()],
                        dir + QString("/%1-piece").arg(i + 1, 2, 10, QLatin1Char('0')));
    return files;
}

// Six seconds cut at places no block size divides, into seven pieces of 0.4 s to 1.5 s.
const std::vector<double> kCuts = {0.0913, 0.2177, 0.3041, 0.4871, 0.6519, 0.8453};

const std::vector<Format> kLossless = {Format::Flac, Format::Wav, Format::Aiff, Format::WavPack, Format::Alac};

// A track that stresses the word: both extremes of the grid, values one step from zero, and the
// signal in between. Starts and ends loud, so it plays whole.
Pcm stressTrack(size_t frames, int bits, quint32 seed)
{
    Pcm p = makeSignal(frames, bits, seed, 0.5);
    const float top = Pcm::fromWord((qint64(1) << (bits - 1)) - 1, bits), bottom = -1.0f,
                lsb = Pcm::fromWord(1, bits);
    for (size_t i = frames / 4; i < frames / 4 + 2000; ++i) {
        p.s[i * kChannels] = i % 2 ? top : bottom;
        p.s[i * kChannels + 1] = i % 3 ? bottom : top;
    }
    for (size_t i = frames / 2; i < frames / 2 + 2000; ++i) {
        p.s[i * kChannels] = lsb * float(int(i % 3) - 1);
        p.s[i * kChannels + 1] = -lsb * float(int(i % 5 == 0));
    }
    return p;
}

// ---- lossless gapless, through the capture device ----

// Every frame of every piece, in order, none lost, none repeated, none moved: a sample cut off at
// a transition, a block of silence, or a landmark a frame early or late each shows as a mismatch.
// Mixed formats only: seven pieces over five formats give every decoder a song to start and one
// to end, and every transition crosses between two of them. With default playback settings (no
// setting written at all) the signal, extremes of the grid included, reaches a 16-bit output
// unchanged and a 24-bit one too: the dither, off until turned on, volume, crossfeed and meters
// must leave every bit alone. Pieces shorter than one render cycle (a few hundred frames): two
// landmarks may fall into one buffer, and the song after a short one must be ready although the
// main thread had almost no time to load it.
TEST(GaplessRender, RendersTheCutSignalSampleForSample)
{
    const struct {
        const char *what;
        double seconds;
        int bits;
        quint32 seed;
        std::vector<double> cuts;
        std::vector<Format> formats;
    } cases[] = {
        {"mixed, 16 bits", 6.0, 16, 7, kCuts, kLossless},
        {"mixed, 24 bits", 6.0, 24, 7, kCuts, kLossless},
        {"short pieces",
         1.5,
         16,
         13,
         {22050.0 / 66150, 22351.0 / 66150, 25350.0 / 66150, 44100.0 / 66150, 44877.0 / 66150},
         {Format::Flac, Format::Wav}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        const Pcm signal = stressTrack(size_t(c.seconds * kRate), c.bits, c.seed);
        const std::vector<Pcm> pieces = cut(signal, cutPoints(signal, c.cuts));
        CliHarness cli;
        const QStringList files = encodeAll(pieces, c.bits, c.formats, cli.musicDir());
        ASSERT_FALSE(HasFailure());
        ASSERT_EQ(gaplessConcatenation(pieces).s, signal.s) << "a piece starts or ends quiet: fix the cuts";
        importInOrder(cli, files);
        ASSERT_FALSE(HasFailure());
        EXPECT_TRUE(sameWords(signal, render(cli, c.bits), c.bits));
        if (c.bits == 24) {
            // Without --bits too: the file's word is one every 16- and 24-bit song fits.
            const QString out = cli.musicDir() + "/default.wav";
            ASSERT_EQ(cli.run({"render", "--out", out}).status, 0);
            int written = 0;
            EXPECT_TRUE(sameWords(signal, readWav(out, &written), 24));
            EXPECT_EQ(written, 24);
        }
    }
}

// ---- the same through a real ALSA device ----

// `play` to an ALSA `file` PCM: the device path (render thread, packing, ALSA writes) must be as
// exact as the capture file, with no silence put in where the decoder is late, and the end of the
// last song must be played out of the device's buffer before `play` stops it.
TEST(GaplessPlay, PlaysTheCutSignalToAnAlsaDeviceSampleForSample)
{
    for (const int bits : {16, 24}) {
        SCOPED_TRACE(bits);
        const Pcm signal = makeSignal(size_t(4.0 * kRate), bits, 11);
        const std::vector<Pcm> pieces = cut(signal, cutPoints(signal, kCuts));
        CliHarness cli;
        const QStringList files = encodeAll(pieces, bits, kLossless, cli.musicDir());
        importInOrder(cli, files);
        ASSERT_FALSE(HasFailure());
        AlsaFileDevice device;
        const Pcm played = playToDevice(cli, device);
        // Every frame reached the device in its place: nothing dropped, repeated or moved at any
        // of the transitions, nothing cut off at the end.
        EXPECT_TRUE(sameWords(signal, played, bits));
    }
}

// ---- silence at the ends ----

// Pieces with half a second of digital silence on both sides of fading audio: the first file
// plays from its very start, every later one from its first frame at -60 dB or above, and each
// ends just after its last such frame. Built from the pieces' own samples, so a trim one frame
// off either way shows.
TEST(GaplessSilence, TrimsEachPieceToItsAudibleRange)
{
    for (const int bits : {16, 24}) {
        SCOPED_TRACE(bits);
        const Pcm signal = makeSignal(size_t(4.0 * kRate), bits, 5);
        const std::vector<Pcm> cores = cut(signal, cutPoints(signal, {0.23, 0.51, 0.77}));
        std::vector<Pcm> pieces;
        const size_t pad = kRate / 2, fade = 441; // 10 ms, so the -60 dB point lies inside it
        for (const Pcm &core : cores) {
            Pcm p;
            p.s.assign(pad * kChannels, 0.0f);
            Pcm faded = core;
            for (size_t i = 0; i < faded.frames(); ++i) {
                const double g = std::min({1.0, double(i) / fade, double(faded.frames() - 1 - i) / fade});
                for (int ch = 0; ch < kChannels; ++ch) {
                    float &v = faded.s[i * kChannels + size_t(ch)];
                    v = Pcm::fromWord(Pcm::word(float(double(v) * g), bits), bits);
                }
            }
            p.append(faded);
            p.s.insert(p.s.end(), pad * kChannels, 0.0f);
            pieces.push_back(p);
        }
        const Pcm expected = gaplessConcatenation(pieces);
        // The trims do fall inside the fades, not at the silence's edge.
        const auto [start, end] = playableRange(pieces[1], false);
        ASSERT_GT(start, pad);
        ASSERT_LT(start, pad + fade);
        ASSERT_GT(end, pieces[1].frames() - pad - fade);
        ASSERT_LT(end, pieces[1].frames() - pad);

        CliHarness cli;
        const QStringList files = encodeAll(pieces, bits, {Format::Flac, Format::Wav, Format::WavPack}, cli.musicDir());
        importInOrder(cli, files);
        ASSERT_FALSE(HasFailure());
        EXPECT_TRUE(sameWords(expected, render(cli, bits), bits));
    }
}

// ---- lossy gapless ----

// MP3 with a LAME header and AAC in MP4: each piece must play exactly as FFmpeg decodes it on
// its own (encoder delay and padding gone), joined with nothing lost or added. Compared as 32-bit
// words with the dither off (depth 32), which keeps every bit of the decoder's floats.
class LossyGapless : public testing::TestWithParam<Format> {};

TEST_P(LossyGapless, RendersEachPieceAsFFmpegDecodesIt)
{
    const Format format = GetParam();
    const Pcm signal = makeSignal(size_t(6.0 * kRate), 16, 3, 0.35);
    const std::vector<Pcm> pieces = cut(signal, cutPoints(signal, kCuts));
    CliHarness cli;
    const QStringList files = encodeAll(pieces, 16, {format}, cli.musicDir());
    ASSERT_FALSE(HasFailure());
    std::vector<Pcm> decoded;
    for (size_t i = 0; i < pieces.size(); ++i) {
        decoded.push_back(Pcm::decodedByFFmpeg(files[qsizetype(i)]));
        // FFmpeg drops the encoder delay of both. It drops the MP3's end padding too, but keeps
        // the AAC's (the piece rounded up to whole 1024-frame packets) although the MP4's edit
        // list, written in samples, says where the piece ends: the player honours that edit
        // list, so the reference ends where it says, at the piece's original length.
        if (format == Format::Aac) {
            EXPECT_GE(decoded.back().frames(), pieces[i].frames()) << "piece " << i + 1;
            EXPECT_LT(decoded.back().frames(), pieces[i].frames() + 1024) << "piece " << i + 1;
            decoded.back() = decoded.back().slice(0, std::min(decoded.back().frames(), pieces[i].frames()));
        }
        // FFmpeg 5.1 leaves the MP3's end padding in where the LAME header's padding is small
        // (a piece of 33446 frames decodes to 33455): not failed, since the player can only be as
        // exact as its decoder here.
    }
    importInOrder(cli, files, 32);
    ASSERT_FALSE(HasFailure());
    EXPECT_TRUE(sameWords(gaplessConcatenation(decoded), render(cli, 32), 32));
}

INSTANTIATE_TEST_SUITE_P(Codecs, LossyGapless, testing::Values(Format::Mp3, Format::Aac),
                         [](const testing::TestParamInfo<Format> &p) { return std::string(formatInfo(p.param).name); });

// ---- songs of different rates ----

// A gapless run through a change of rate: each song is converted once, from its own rate to the
// device's, so one at the device's rate arrives bit for bit, and the run is exactly as long as its
// songs, the other one converted. A 30 kHz tone after a 44.1 kHz song shows a run converted
// through the first song's rate (the tone is gone); a 44.1 kHz song after a 96 kHz one, played
// at 44.1 kHz, shows a second conversion (its words change).
TEST(GaplessMixedRates, EachSongIsConvertedOnceFromItsOwnRateToTheDevices)
{
    struct Case {
        Pcm first, second;
        int deviceRate, bits;
    };
    Pcm tone;
    tone.rate = 96000;
    for (int n = 0; n < 48000; ++n) {
        const float v =
            Pcm::fromWord(Pcm::word(float(0.5 * std::cos(2 * M_PI * 30000.0 * n / 96000.0)), 24), 24);
        tone.s.insert(tone.s.end(), {v, v});
    }
    Pcm high = makeSignal(size_t(0.6 * kRate), 24, 43);
    high.rate = 96000;
    const std::vector<Case> cases = {{makeSignal(size_t(0.7 * kRate), 24, 41), tone, 96000, 24},
                                     {high, makeSignal(size_t(0.9 * kRate) + 7, 16, 44), kRate, 16}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.deviceRate);
        CliHarness cli;
        const QStringList files = {encode(c.first, c.bits, Format::Flac, cli.musicDir() + "/1-first"),
                                   encode(c.second, c.bits, Format::Flac, cli.musicDir() + "/2-second")};
        importInOrder(cli, files);
        ASSERT_FALSE(HasFatalFailure());
        const Pcm out = render(cli, c.bits, {"--rate", QString::number(c.deviceRate)});
        const auto [a1, b1] = playableRange(c.first, true);
        const auto [a2, b2] = playableRange(c.second, false);
        const size_t firstFrames = size_t(std::llround(double(b1 - a1) * c.deviceRate / c.first.rate));
        EXPECT_EQ(out.frames(), firstFrames + (b2 - a2)) << "gapless, and no frame lost or added";
        ASSERT_GE(out.frames(), firstFrames);
        EXPECT_TRUE(sameWords(c.second.slice(a2, b2), out.slice(firstFrames, out.frames()), c.bits));
    }
}

// ---- through a sample-rate converter ----

// 44.1 kHz pieces played at 48 kHz, against the uncut signal played as one song with the same
// converter. A converter that starts afresh at each song (empty filter history in the new song,
// silence after the end of the old one) shows as an error around every transition; one whose
// history runs on across the join does not.
class GaplessConverter : public testing::TestWithParam<int> {};

TEST_P(GaplessConverter, TransitionsMatchAContinuousConversion)
{
    const QString type = QString::number(GetParam());
    const Pcm signal = makeSignal(size_t(6.0 * kRate), 24, 9);
    const std::vector<size_t> cuts = cutPoints(signal, kCuts);
    const std::vector<Pcm> pieces = cut(signal, cuts);
    const QStringList rate = {"--rate", "48000"};

    CliHarness whole;
    const QString wholeFile = encode(signal, 24, Format::Flac, whole.musicDir() + "/whole");
    CliHarness cli;
    const QStringList files = encodeAll(pieces, 24, {Format::Flac}, cli.musicDir());
    for (const CliHarness *h : {&whole, &cli}) {
        importInOrder(*h, h == &whole ? QStringList{wholeFile} : files, 32);
        h->set("convertorType", type);
    }
    ASSERT_FALSE(HasFailure());
    const Pcm reference = render(whole, 32, rate), out = render(cli, 32, rate);
    ASSERT_EQ(reference.rate, 48000);
    ASSERT_EQ(out.rate, 48000);
    const size_t expectedFrames = size_t(std::llround(double(signal.frames()) * 48000.0 / kRate));
    EXPECT_NEAR(double(reference.frames()), double(expectedFrames), 1.0);
    EXPECT_NEAR(double(out.frames()), double(expectedFrames), 1.0);
    // The conversion did happen: a 48 kHz rendering is not the 44.1 kHz signal relabelled.
    ASSERT_FALSE(sameWords(signal.slice(0, 1000), reference.slice(0, 1000), 24));

    const auto dB = [](double e) { return e > 0 ? 20.0 * std::log10(e) : -INFINITY; };
    const size_t n = std::min(reference.frames(), out.frames());
    std::vector<double> err(n);
    for (size_t i = 0; i < n; ++i)
        err[i] = std::max(std::fabs(double(out.at(i, 0)) - reference.at(i, 0)),
                          std::fabs(double(out.at(i, 1)) - reference.at(i, 1)));
    constexpr size_t window = 4800; // 100 ms either side
    std::vector<bool> near(n, false);
    for (const size_t c : cuts) {
        const size_t t = size_t(std::llround(double(c) * 48000.0 / kRate));
        std::fill(near.begin() + qsizetype(t > window ? t - window : 0), near.begin() + qsizetype(std::min(n, t + window)), true);
    }
    double worstNear = 0, worstFar = 0;
    for (size_t i = 0; i < n; ++i)
        (near[i] ? worstNear : worstFar) = std::max(near[i] ? worstNear : worstFar, err[i]);
    EXPECT_LT(dB(worstFar), -100.0) << "away from the transitions the two conversions must agree";
    EXPECT_LT(dB(worstNear), -100.0) << "near a transition: a converter started afresh at the song";
}

// 0: the platform converter (soxr's recipes); 1: the tunable one.
INSTANTIATE_TEST_SUITE_P(Converters, GaplessConverter, testing::Values(0, 1),
                         [](const testing::TestParamInfo<int> &info) {
                             return info.param == 1 ? std::string("Tunable") : std::string("Platform");
                         });

} // namespace
