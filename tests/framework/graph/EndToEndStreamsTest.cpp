// Whole streams over real components: a player's chain into ALSA (a `file` PCM over `null`, so no
// sound card is needed and every byte that reached ALSA can be read back), and the conversion
// stream from a file through a converter and the dither into a FLAC file.

#include "GraphTestSupport.h"

#include "dsp/VEKPlatformConverter.h"
#include "dsp/VEKTunableConverter.h"
#include "graph/VEKAudioFileAudioGenerator.h"
#include "graph/VEKAudioFileReaderAudioProcessor.h"
#include "graph/VEKAudioFileWriterAudioProcessor.h"
#include "graph/VEKConverterAudioProcessor.h"
#include "graph/VEKHardwareAudioProcessor.h"
#include "ops/Operation.h"
#include "outputs/alsa/VEKALSADevice.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <thread>

using namespace GraphTest;

namespace {

// A self-contained ALSA configuration: "testfile" writes what it gets, raw, into a file named
// after the rate, channels and bits it was opened with. Nothing of the system's leaks in.
QString installALSA()
{
    static QString dir;
    if (!dir.isEmpty())
        return dir;
    dir = TestEnvironment::makeTempDir(QStringLiteral("alsa"));
    const QString conf = dir + QStringLiteral("/asound.conf");
    QFile f(conf);
    EXPECT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(QStringLiteral("pcm.null { type null }\n"
                           "pcm.testfile {\n  type file\n  slave.pcm \"null\"\n  format \"raw\"\n"
                           "  file \"%1/out-%r-%c-%b.raw\"\n}\n")
                .arg(dir)
                .toUtf8());
    f.close();
    qputenv("ALSA_CONFIG_PATH", QFile::encodeName(conf));
    return dir;
}

// The source's samples as 32-bit words (sox shifts them up, exactly as an S32 output holds them).
std::vector<qint32> sourceWords(const QString &wav)
{
    const QString raw = wav + QStringLiteral(".s32");
    EXPECT_EQ(TestEnvironment::run(QStringLiteral("sox"), {QStringLiteral("-D"), wav, QStringLiteral("-t"), QStringLiteral("raw"),
                                                           QStringLiteral("-e"), QStringLiteral("signed-integer"),
                                                           QStringLiteral("-b"), QStringLiteral("32"), QStringLiteral("-L"), raw}),
              0);
    const QByteArray bytes = TestEnvironment::readFile(raw);
    std::vector<qint32> words(size_t(bytes.size()) / 4);
    std::memcpy(words.data(), bytes.constData(), words.size() * 4);
    return words;
}

void playThroughALSA(int bits)
{
    const QString alsaDir = installALSA();
    for (const QString &old : QDir(alsaDir).entryList({QStringLiteral("*.raw")}))
        QFile::remove(alsaDir + QLatin1Char('/') + old);
    const QString dir = TestEnvironment::makeTempDir();
    // Noise at full scale exercises every bit of the word; half a second fits the read-ahead, so
    // the generator never runs dry however fast ALSA takes the audio.
    const QString wav = dir + QStringLiteral("/noise.wav");
    ASSERT_EQ(TestEnvironment::run(QStringLiteral("sox"),
                                   {QStringLiteral("-D"), QStringLiteral("-r"), QStringLiteral("44100"), QStringLiteral("-c"),
                                    QStringLiteral("2"), QStringLiteral("-n"), QStringLiteral("-b"), QString::number(bits),
                                    QStringLiteral("-e"), QStringLiteral("signed-integer"), wav, QStringLiteral("synth"),
                                    QStringLiteral("0.5"), QStringLiteral("whitenoise")}),
              0);
    const std::vector<qint32> expected = sourceWords(wav);
    ASSERT_EQ(expected.size(), 22050u * 2);

    const QString json = QStringLiteral(R"({
      "processors": [
        {"identifier": "generator", "class": "VEKAudioFileAudioGenerator"},
        {"identifier": "router", "class": "VEKRouterAudioProcessor", "settings": {"numberOfInputChannels": 2}},
        {"identifier": "mixer", "class": "VEKMixerAudioProcessor"},
        {"identifier": "conductor", "class": "VEKConductorAudioProcessor"},
        {"identifier": "volume", "class": "VEKVolumeAudioProcessor", "settings": {"scalar": 1.0}},
        {"identifier": "dither", "class": "VEKDitherAudioProcessor", "settings": {"depth": %1}},
        {"identifier": "hardware", "class": "VEKHardwareAudioProcessor", "settings": {"framesPerBuffer": 512}}
      ],
      "chains": [["generator", "router", "mixer", "conductor", "volume", "dither", "hardware"]]
    })").arg(bits);
    auto stream = build(json.toUtf8().constData());
    ASSERT_TRUE(stream);
    auto device = std::make_shared<VEKALSADevice>(QStringLiteral("testfile"));
    device->setSampleRate(44100.0);
    ASSERT_TRUE(stream->processorWithIdentifier<VEKHardwareAudioProcessor>(QStringLiteral("hardware"))->setDevice(device));
    auto *generator = stream->processorWithIdentifier<VEKAudioFileAudioGenerator>(QStringLiteral("generator"));
    generator->setAudioFile(std::shared_ptr<VEKAudioFileReader>(VEKAudioFileReader::open(wav)));
    VEKError error;
    ASSERT_TRUE(stream->initialize(&error)) << error.text().toStdString();
    generator->prepareForPlaybackFromLocation(0.0);
    stream->conductor()->start();
    ASSERT_TRUE(stream->start(&error)) << error.text().toStdString();

    // Wait until ALSA has been given the whole file and a little silence after it.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    QString rawPath;
    for (;;) {
        const QStringList raws = QDir(alsaDir).entryList({QStringLiteral("*.raw")});
        if (!raws.isEmpty()) {
            rawPath = alsaDir + QLatin1Char('/') + raws.first();
            if (QFileInfo(rawPath).size() > qint64(expected.size() * 4 + 44100 * 8))
                break;
        }
        ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "ALSA got too little";
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    stream->stop();
    stream->uninitialize();
    // The output opened as 32-bit integers at the file's rate; that is what the words below assume.
    ASSERT_TRUE(rawPath.endsWith(QStringLiteral("out-44100-2-32.raw"))) << rawPath.toStdString();

    const QByteArray bytes = TestEnvironment::readFile(rawPath);
    std::vector<qint32> got(size_t(bytes.size()) / 4);
    std::memcpy(got.data(), bytes.constData(), got.size() * 4);
    size_t first = 0;
    while (first + 1 < got.size() && got[first] == 0 && got[first + 1] == 0)
        first += 2;
    ASSERT_GE(got.size() - first, expected.size());
    for (size_t i = 0; i < expected.size(); ++i)
        ASSERT_EQ(got[first + i], expected[i]) << "sample " << i << " of " << bits << " bits";
    // And then silence: nothing was added after the file's last frame.
    for (size_t i = first + expected.size(); i < got.size(); ++i)
        ASSERT_EQ(got[i], 0) << "after the end, sample " << i - first - expected.size();
}

// An operation that does nothing itself: the stream runs on the test's thread and only looks at
// its cancellation.
class IdleOperation : public Operation {
protected:
    void main() override {}
};

// Cancels `operation` when asked for its Nth buffer ("TestCancelAfter"), as a user's click on
// the conversion's stop button would in the middle of it.
IdleOperation *g_cancelTarget = nullptr;
class CancelAfter : public VEKAudioProcessor {
public:
    void render(VEKAudioBufferList &list, quint32 bus, const VEKAudioRenderInfo &info) override
    {
        VEKAudioProcessor::render(list, bus, info);
        if (++m_buffers == 3 && g_cancelTarget)
            g_cancelTarget->cancel();
    }

private:
    int m_buffers = 0;
};

struct Conversion {
    bool ok = false;
    VEKError error;
    QStringList results;
    quint64 framesWritten = 0;
    float progress = 0;
};

Conversion convert(const QString &source, const QString &converterClass, const QString &dir, const QString &name,
                   Operation *operation = nullptr, bool cancelMidway = false, const QVariantMap &converterSettings = {})
{
    registerTestClasses();
    VEKAudioProcessor::registerClass(QStringLiteral("TestCancelAfter"),
                                     [] { return VEKAudioProcessorPtr(std::make_shared<CancelAfter>()); });
    const QString json = QStringLiteral(R"({
      "processors": [
        {"identifier": "reader", "class": "VEKAudioFileReaderAudioProcessor"},
        {"identifier": "converter", "class": "%1"},
        {"identifier": "dither", "class": "VEKDitherAudioProcessor", "settings": {"depth": 24}},
        {"identifier": "tap", "class": "%2"},
        {"identifier": "writer", "class": "VEKAudioFileWriterAudioProcessor"}
      ],
      "chains": [["reader", "converter", "dither", "tap", "writer"]]
    })").arg(converterClass, cancelMidway ? QStringLiteral("TestCancelAfter") : QStringLiteral("VEKAudioProcessor"));
    Conversion c;
    auto stream = build(json.toUtf8().constData());
    if (!stream)
        return c;
    auto file = std::shared_ptr<VEKAudioFileReader>(VEKAudioFileReader::open(source));
    EXPECT_TRUE(file);
    if (!file)
        return c;
    stream->processorWithIdentifier<VEKAudioFileReaderAudioProcessor>(QStringLiteral("reader"))->setAudioFile(file);
    EXPECT_TRUE(stream->processorWithIdentifier<VEKConverterAudioProcessor>(QStringLiteral("converter"))
                    ->setInSampleRate(file->sampleRate()));
    if (!converterSettings.isEmpty()) {
        EXPECT_TRUE(stream->processorWithIdentifier(QStringLiteral("converter"))->setSettings(converterSettings, nullptr));
    }
    auto *writer = stream->processorWithIdentifier<VEKAudioFileWriterAudioProcessor>(QStringLiteral("writer"));
    writer->setOperation(operation);
    writer->setBaseDirectory(dir);
    writer->setBaseFilename(name);
    writer->setExistsAction(QStringLiteral("rename"));
    writer->setFormat(QStringLiteral("FLAC Audio File"));
    writer->setSampleRate(48000.0);
    writer->setNumberOfChannels(file->numberOfChannels());
    writer->setBitDepth(24);
    writer->setRange(0.0, file->length());
    c.ok = stream->initialize(&c.error) && stream->start(&c.error);
    c.results = writer->resultURLs();
    c.framesWritten = writer->framesWritten();
    c.progress = writer->progress();
    stream->uninitialize();
    return c;
}

// The same conversion with the engine alone: the source in memory, pulled in the writer's
// buffers of 4096 frames.
template <class Converter>
std::vector<std::vector<float>> convertDirectly(Converter &converter, const QString &source, quint64 outFrames)
{
    auto file = VEKAudioFileReader::open(source);
    VEKAudioBufferList all(file->numberOfChannels(), quint32(file->frames()));
    EXPECT_TRUE(file->getAudio(all, 0));
    const quint32 channels = all.numberOfChannels();
    EXPECT_TRUE(converter.setInSampleRate(file->sampleRate()));
    EXPECT_TRUE(converter.configure(48000.0, channels, 4096));
    quint64 read = 0;
    auto pull = [&](VEKAudioBufferList &input) {
        for (quint32 i = 0; i < input.frames(); ++i, ++read)
            for (quint32 ch = 0; ch < channels; ++ch)
                input.channel(ch)[i] = read < all.frames() ? all.channel(ch)[read] : 0.0f;
    };
    std::vector<std::vector<float>> out(channels);
    VEKAudioBufferList buffer(channels, 4096);
    for (quint64 done = 0; done < outFrames;) {
        const quint32 n = quint32(std::min<quint64>(4096, outFrames - done));
        buffer.setFrames(n);
        converter.render(buffer, pull);
        for (quint32 ch = 0; ch < channels; ++ch)
            out[ch].insert(out[ch].end(), buffer.channel(ch), buffer.channel(ch) + n);
        done += n;
    }
    return out;
}

QString makeSource(const QString &dir)
{
    // Two tones, one per channel, 24 bits, a second and a bit (an odd length on purpose).
    const QString path = dir + QStringLiteral("/source.wav");
    EXPECT_EQ(TestEnvironment::run(QStringLiteral("sox"),
                                   {QStringLiteral("-D"), QStringLiteral("-r"), QStringLiteral("44100"), QStringLiteral("-n"),
                                    QStringLiteral("-b"), QStringLiteral("24"), path, QStringLiteral("synth"),
                                    QStringLiteral("49999s"), QStringLiteral("sine"), QStringLiteral("1000"),
                                    QStringLiteral("sine"), QStringLiteral("3000"), QStringLiteral("channels"),
                                    QStringLiteral("2"), QStringLiteral("vol"), QStringLiteral("0.7")}),
              0);
    return path;
}

} // namespace

TEST(PlaybackThroughALSA, SixteenBitSourceArrivesBitIdentical) { playThroughALSA(16); }

TEST(PlaybackThroughALSA, TwentyFourBitSourceArrivesBitIdentical) { playThroughALSA(24); }

TEST(ConversionStream, MakesA48kFlacEqualToTheEnginesOwnConversion)
{
    const QString dir = TestEnvironment::makeTempDir();
    const QString source = makeSource(dir);
    const quint64 expectedFrames = quint64(std::llround(49999.0 * 48000.0 / 44100.0));
    for (const QString &cls : {QStringLiteral("IZOConverterAudioProcessor"), QStringLiteral("APLConverterAudioProcessor")}) {
        const Conversion c = convert(source, cls, dir, cls);
        ASSERT_TRUE(c.ok) << c.error.text().toStdString();
        ASSERT_EQ(c.results.size(), 1);
        EXPECT_EQ(c.results.first(), dir + QLatin1Char('/') + cls + QStringLiteral(".flac"));
        EXPECT_EQ(c.progress, 1.0f);
        auto result = VEKAudioFileReader::open(c.results.first());
        ASSERT_TRUE(result);
        EXPECT_EQ(result->sampleRate(), 48000.0);
        EXPECT_EQ(result->bitDepth(), 24u);
        EXPECT_LE(std::llabs(qint64(result->frames()) - qint64(expectedFrames)), 1) << result->frames() << " written " << c.framesWritten;

        VEKAudioBufferList written(2, quint32(result->frames()));
        ASSERT_TRUE(result->getAudio(written, 0));
        std::vector<std::vector<float>> reference;
        if (cls.startsWith(QLatin1String("IZO"))) {
            VEKTunableConverter engine;
            reference = convertDirectly(engine, source, written.frames());
        } else {
            VEKPlatformConverter engine;
            reference = convertDirectly(engine, source, written.frames());
        }
        // Only the 24-bit dither (noise-shaped, so a few LSB at most) separates the two.
        for (quint32 ch = 0; ch < 2; ++ch) {
            double worst = 0, power = 0;
            for (quint32 i = 0; i < written.frames(); ++i) {
                const double d = double(written.channel(ch)[i]) - double(reference[ch][i]);
                worst = std::max(worst, std::fabs(d));
                power += d * d;
            }
            const double rms = std::sqrt(power / written.frames());
            std::printf("[ measured ] %s channel %u against the engine alone: largest %.3g, rms %.3g (24-bit LSB %.3g)\n",
                        qPrintable(cls), ch, worst, rms, 1.0 / 8388608.0);
            EXPECT_LT(worst, 64.0 / 8388608.0) << cls.toStdString() << " channel " << ch;
            EXPECT_LT(rms, 8.0 / 8388608.0) << cls.toStdString() << " channel " << ch;
        }
        // And the tone really is there, at its level, once the start's ringing has passed.
        float peak = 0;
        for (quint32 i = 10000; i < 50000; ++i)
            peak = std::max(peak, std::fabs(written.channel(0)[i]));
        EXPECT_NEAR(peak, 0.7f, 0.005f);
    }
}

TEST(ConversionStream, RenameKeepsTheExistingFile)
{
    const QString dir = TestEnvironment::makeTempDir();
    const QString source = makeSource(dir);
    const QString existing = dir + QStringLiteral("/song.flac");
    {
        ASSERT_TRUE(TestEnvironment::writeFile(existing, "not to be touched"));
    }
    const Conversion c = convert(source, QStringLiteral("APLConverterAudioProcessor"), dir, QStringLiteral("song"));
    ASSERT_TRUE(c.ok) << c.error.text().toStdString();
    ASSERT_EQ(c.results.size(), 1);
    EXPECT_EQ(c.results.first(), dir + QStringLiteral("/song 1.flac"));
    EXPECT_EQ(TestEnvironment::readFile(existing), QByteArray("not to be touched"));
    EXPECT_TRUE(VEKAudioFileReader::open(c.results.first()));
}

TEST(ConversionStream, CancellationStopsAndLeavesNoFile)
{
    const QString sourceDir = TestEnvironment::makeTempDir();
    const QString source = makeSource(sourceDir);
    const QString dir = TestEnvironment::makeTempDir();
    IdleOperation operation;
    g_cancelTarget = &operation;
    const Conversion c = convert(source, QStringLiteral("IZOConverterAudioProcessor"), dir, QStringLiteral("cut"), &operation,
                                 true);
    g_cancelTarget = nullptr;
    ASSERT_TRUE(c.ok) << c.error.text().toStdString();
    EXPECT_TRUE(c.results.isEmpty());
    // It did stop early: three buffers of 4096 were asked for, not the whole range.
    EXPECT_GT(c.framesWritten, 0u);
    EXPECT_LE(c.framesWritten, 3u * 4096u);
    EXPECT_TRUE(QDir(dir).entryList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot).isEmpty())
        << QDir(dir).entryList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot).join(QLatin1Char(' ')).toStdString();

    // Cancelled before it starts: nothing is rendered at all, and again nothing stays.
    IdleOperation early;
    early.cancel();
    const Conversion none = convert(source, QStringLiteral("IZOConverterAudioProcessor"), dir, QStringLiteral("cut"), &early);
    ASSERT_TRUE(none.ok);
    EXPECT_EQ(none.framesWritten, 0u);
    EXPECT_TRUE(QDir(dir).entryList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot).isEmpty());
}

// An independent opinion: sox's own very-high-quality conversion, which is soxr's recipe too.
TEST(ConversionStream, MasteringConversionAgreesWithSox)
{
    const QString dir = TestEnvironment::makeTempDir();
    const QString source = makeSource(dir);
    const Conversion c = convert(source, QStringLiteral("APLConverterAudioProcessor"), dir, QStringLiteral("bats"), nullptr,
                                 false, {{QStringLiteral("complexity"), VEKPlatformConverter::Mastering}});
    ASSERT_TRUE(c.ok) << c.error.text().toStdString();
    ASSERT_EQ(c.results.size(), 1);
    const QString soxPath = dir + QStringLiteral("/sox.wav");
    ASSERT_EQ(TestEnvironment::run(QStringLiteral("sox"), {QStringLiteral("-D"), source, QStringLiteral("-b"), QStringLiteral("32"),
                                                           QStringLiteral("-e"), QStringLiteral("floating-point"), soxPath,
                                                           QStringLiteral("rate"), QStringLiteral("-v"), QStringLiteral("48000")}),
              0);
    auto ours = VEKAudioFileReader::open(c.results.first());
    auto theirs = VEKAudioFileReader::open(soxPath);
    ASSERT_TRUE(ours && theirs);
    EXPECT_LE(std::llabs(qint64(ours->frames()) - qint64(theirs->frames())), 1);
    const quint32 n = quint32(std::min(ours->frames(), theirs->frames()));
    VEKAudioBufferList a(2, n), b(2, n);
    ASSERT_TRUE(ours->getAudio(a, 0));
    ASSERT_TRUE(theirs->getAudio(b, 0));
    // The abrupt start and end ring differently through the two passbands (sox's reaches
    // further); between them the tones must agree closely.
    double worst = 0, edge = 0;
    for (quint32 ch = 0; ch < 2; ++ch)
        for (quint32 i = 0; i < n; ++i) {
            const double d = std::fabs(double(a.channel(ch)[i]) - double(b.channel(ch)[i]));
            double &slot = i >= 2000 && i + 2000 < n ? worst : edge;
            slot = std::max(slot, d);
        }
    std::printf("[ measured ] largest difference from sox rate -v: %.3g (%.1f dB) inside, %.3g at the ends\n", worst,
                20 * std::log10(worst), edge);
    EXPECT_LT(worst, 1e-5);
}
