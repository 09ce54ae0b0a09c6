// The conversion stream over real components: from a file through a converter and the dither
// into a FLAC file.

#include "support/graph/GraphTestSupport.h"

#include "dsp/VEKPlatformConverter.h"
#include "dsp/VEKTunableConverter.h"
#include "graph/VEKAudioFileReaderAudioProcessor.h"
#include "graph/VEKAudioFileWriterAudioProcessor.h"
#include "graph/VEKConverterAudioProcessor.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace GraphTest;

namespace {

struct Conversion {
    bool ok = false;
    VEKError error;
    QStringList results;
    quint64 framesWritten = 0;
    float progress = 0;
};

Conversion convert(const QString &source, const QString &converterClass, const QString &dir, const QString &name,
                   const QVariantMap &converterSettings = {})
{
    registerTestClasses();
    const QString json = QStringLiteral(R"({
      "processors": [
        {"identifier": "reader", "class": "VEKAudioFileReaderAudioProcessor"},
        {"identifier": "converter", "class": "%1"},
        {"identifier": "dither", "class": "VEKDitherAudioProcessor", "settings": {"depth": 24}},
        {"identifier": "writer", "class": "VEKAudioFileWriterAudioProcessor"}
      ],
      "chains": [["reader", "converter", "dither", "writer"]]
    })").arg(converterClass);
    Conversion c;
    auto stream = build(json.toUtf8().constData());
    if (!stream)
        return c;
    auto file = std::shared_ptr<VEKAudioFileReader>(VEKAudioFileReader::open(source));
    EXPECT_TRUE(file);
    if (!file)
        return c;
    stream->processorWithIdentifier<VEKAudioFileReaderAudioProcessor>("reader")->setAudioFile(file);
    EXPECT_TRUE(stream->processorWithIdentifier<VEKConverterAudioProcessor>("converter")
                    ->setInSampleRate(file->sampleRate()));
    if (!converterSettings.isEmpty()) {
        EXPECT_TRUE(stream->processorWithIdentifier("converter")->setSettings(converterSettings, nullptr));
    }
    auto *writer = stream->processorWithIdentifier<VEKAudioFileWriterAudioProcessor>("writer");
    writer->setBaseDirectory(dir);
    writer->setBaseFilename(name);
    writer->setExistsAction("rename");
    writer->setFormat("FLAC Audio File");
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
    EXPECT_EQ(TestEnvironment::run("sox", {"-D", "-r", "44100", "-n", "-b", "24", path, "synth", "49999s",
                                           "sine", "1000", "sine", "3000", "channels", "2", "vol", "0.7"}),
              0);
    return path;
}

} // namespace

TEST(ConversionStream, MakesA48kFlacEqualToTheEnginesOwnConversion)
{
    const QString dir = TestEnvironment::makeTempDir();
    const QString source = makeSource(dir);
    const quint64 expectedFrames = quint64(std::llround(49999.0 * 48000.0 / 44100.0));
    for (const QString cls : {"IZOConverterAudioProcessor", "APLConverterAudioProcessor"}) {
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

// An independent opinion: sox's own very-high-quality conversion, which is soxr's recipe too.
TEST(ConversionStream, MasteringConversionAgreesWithSox)
{
    const QString dir = TestEnvironment::makeTempDir();
    const QString source = makeSource(dir);
    const Conversion c = convert(source, "APLConverterAudioProcessor", dir, "bats",
                                 {{"complexity", VEKPlatformConverter::Mastering}});
    ASSERT_TRUE(c.ok) << c.error.text().toStdString();
    ASSERT_EQ(c.results.size(), 1);
    const QString soxPath = dir + QStringLiteral("/sox.wav");
    ASSERT_EQ(TestEnvironment::run(
                  "sox", {"-D", source, "-b", "32", "-e", "floating-point", soxPath, "rate", "-v", "48000"}),
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
