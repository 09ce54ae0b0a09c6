// The processors around the DSP, LV2 and file engines, each on its own: refusals that say why,
// and rendering that keeps the engines' promises (input pulled in bounded pieces on one time line,
// a file from its start frame then silence, an effect that changes the sound of a running stream).

#include "support/graph/GraphTestSupport.h"

#include "graph/APLAudioUnitAudioProcessor.h"
#include "graph/APLConverterAudioProcessor.h"
#include "graph/IZOConverterAudioProcessor.h"
#include "graph/VEKAudioDock.h"
#include "graph/VEKAudioFileReaderAudioProcessor.h"
#include "graph/VEKDitherAudioProcessor.h"
#include "graph/VEKHardwareAudioProcessor.h"
#include "lv2/VEKLV2World.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace GraphTest;

namespace {

const QString kAmp = "http://plugin.org.uk/swh-plugins/amp";

// Renders a ramp on one time line and remembers the largest request and whether each request
// began where the last one ended ("TestPieceSource").
class PieceSource : public VEKAudioProcessor {
public:
    void render(VEKAudioBufferList &list, quint32, const VEKAudioRenderInfo &info) override
    {
        largest = std::max(largest, info.frames);
        if (info.sampleTime != next)
            contiguous = false;
        rate = info.sampleRate;
        list.setFrames(info.frames);
        for (quint32 c = 0; c < list.numberOfChannels(); ++c)
            for (quint32 i = 0; i < info.frames; ++i)
                list.channel(c)[i] = 0.25f;
        next = info.sampleTime + info.frames;
        total += info.frames;
    }
    quint32 largest = 0;
    quint64 next = 0;
    quint64 total = 0;
    double rate = 0.0;
    bool contiguous = true;
};

void registerHere()
{
    registerTestClasses();
    static std::once_flag once;
    std::call_once(once, [] {
        VEKAudioProcessor::registerClass(
            "TestPieceSource", [] { return VEKAudioProcessorPtr(std::make_shared<PieceSource>()); });
    });
}

} // namespace

TEST(ConverterProcessors, RefuseWhatTheEngineRefuses)
{
    APLConverterAudioProcessor platform;
    VEKError error;
    EXPECT_FALSE(platform.setComplexity(0x61626364, &error)); // 'abcd'
    EXPECT_FALSE(error.isNull());
    EXPECT_EQ(platform.complexity(), VEKPlatformConverter::Normal);
    error = VEKError();
    EXPECT_FALSE(platform.setInSampleRate(0.0, &error));
    EXPECT_FALSE(error.isNull());
    EXPECT_EQ(platform.inSampleRate(), 44100.0);
}

// Converting down asks for more input frames than the buffer holds: they must come in pieces the
// upstream can render, on one continuous time line, at the input rate.
TEST(ConverterProcessors, PullInputInBoundedPiecesOnOneTimeLine)
{
    registerHere();
    for (const char *cls : {"IZOConverterAudioProcessor", "APLConverterAudioProcessor"}) {
        const QString json = QStringLiteral(R"({
          "format": {"sampleRate": 44100, "numberOfChannels": 2},
          "processors": [
            {"identifier": "source", "class": "TestPieceSource"},
            {"identifier": "converter", "class": "%1", "settings": {"inSampleRate": 192000}},
            {"identifier": "sink", "class": "TestManualSink", "settings": {"framesPerBuffer": 64}}
          ],
          "chains": [["source", "converter", "sink"]]
        })").arg(QLatin1String(cls));
        auto stream = build(json.toUtf8().constData());
        ASSERT_TRUE(stream);
        ASSERT_TRUE(stream->initialize());
        auto *source = static_cast<PieceSource *>(stream->processorWithIdentifier("source"));
        const std::vector<float> out = renderManually(*stream, 44100, 64, false);
        EXPECT_LE(source->largest, 64u) << cls;
        EXPECT_TRUE(source->contiguous) << cls;
        EXPECT_EQ(source->rate, 192000.0) << cls;
        // 192000 input frames for a second of output, plus at most the filter's look-ahead.
        EXPECT_GE(source->total, 192000u) << cls;
        EXPECT_LE(source->total, 192000u + 16384u) << cls;
        // The constant comes through the filter at its level once it has settled.
        EXPECT_NEAR(out[40000], 0.25f, 1e-4) << cls;
        stream->uninitialize();
    }
}

TEST(DitherProcessor, CutsToTheWordLengthWhileRenderingAndKeepsItWhenASettingIsRefused)
{
    registerHere();
    auto stream = buildChain({R"({"identifier": "source", "class": "TestCountingSource", "settings": {"value": 0.1}})",
                              R"({"identifier": "dither", "class": "VEKDitherAudioProcessor", "settings": {"depth": 24}})",
                              R"({"identifier": "sink", "class": "TestManualSink", "settings": {"framesPerBuffer": 256}})"});
    ASSERT_TRUE(stream->initialize());
    const auto onGrid = [](float v, int bits) {
        const double scaled = double(v) * std::ldexp(1.0, bits - 1);
        return scaled == std::round(scaled);
    };
    std::vector<float> out = renderManually(*stream, 512, 256, false);
    EXPECT_TRUE(onGrid(out[300], 24));
    EXPECT_FALSE(onGrid(out[300], 16));
    // A change while the stream renders reaches the next buffer; one the dither refuses does not.
    auto *dither = stream->processorWithIdentifier<VEKDitherAudioProcessor>("dither");
    ASSERT_TRUE(dither->setSettings({{"depth", 16}, {"basicShape", 1}}, nullptr));
    VEKError error;
    EXPECT_FALSE(dither->setSettings({{"depth", 40}}, &error));
    EXPECT_FALSE(error.isNull());
    EXPECT_EQ(dither->ditherProperties().value("depth").toInt(), 16);
    out = renderManually(*stream, 512, 256, false);
    for (quint32 i = 0; i < 512; ++i)
        ASSERT_TRUE(onGrid(out[i], 16)) << i;
    EXPECT_NEAR(out[100], 0.1f, 8.0 / 32768.0);
}

TEST(FileReaderProcessor, RendersFromTheStartFrameThenSilence)
{
    registerHere();
    const QString path = makeRampWave(TestEnvironment::makeTempDir() + QStringLiteral("/ramp.wav"), 10000, 44100, 2);
    auto stream = buildChain({R"({"identifier": "reader", "class": "VEKAudioFileReaderAudioProcessor"})",
                              R"({"identifier": "sink", "class": "TestManualSink", "settings": {"framesPerBuffer": 1000}})"});
    auto *reader = stream->processorWithIdentifier<VEKAudioFileReaderAudioProcessor>("reader");
    ASSERT_TRUE(reader);
    auto file = std::shared_ptr<VEKAudioFileReader>(VEKAudioFileReader::open(path));
    ASSERT_TRUE(file);
    reader->setAudioFile(file);
    reader->setStartFrame(2500);
    ASSERT_TRUE(stream->initialize());
    // Buffers that straddle the reader's own decoding blocks and the file's end.
    const std::vector<float> out = renderManually(*stream, 9000, 700, true);
    for (quint64 i = 0; i < 7500; ++i)
        ASSERT_EQ(out[i], float(double(2500 + i + 1) / 16777216.0)) << i;
    for (quint64 i = 7500; i < 9000; ++i)
        ASSERT_EQ(out[i], 0.0f) << i;
    EXPECT_FALSE(reader->readFailed());

    // In a real-time cycle the disk is out of bounds: silence, and no progress.
    ASSERT_TRUE(stream->processorWithIdentifier("reader")->reset(nullptr));
    const std::vector<float> live = renderManually(*stream, 700, 700, false);
    EXPECT_EQ(live.front(), 0.0f);
    EXPECT_EQ(reader->position(), 2500u);
}

TEST(AudioUnitProcessor, HalvesARunningStreamAndKeepsItsValueWhenMadeAgain)
{
    qputenv("LV2_PATH", "/usr/lib/lv2");
    registerHere();
    VEKError error;
    auto amp = VEKAudioProcessor::processorWithSettings(
        {{"class", "APLAudioUnitAudioProcessor"}, {"uri", kAmp}}, &error);
    ASSERT_TRUE(amp) << error.text().toStdString();
    auto *unit = qobject_cast<APLAudioUnitAudioProcessor *>(amp.get());
    ASSERT_TRUE(unit && unit->plugin());
    // Settings written by hand name no effect; the slot shows the plug-in's own name.
    EXPECT_EQ(amp->name(), unit->plugin()->name());
    ASSERT_TRUE(unit->plugin()->setValue("gain", -6.0206f));

    auto stream = buildChain({R"({"identifier": "source", "class": "TestCountingSource", "settings": {"value": 0.5}})",
                              R"({"identifier": "effectDock", "class": "VEKAudioDock"})",
                              R"({"identifier": "hardware", "class": "VEKHardwareAudioProcessor", "settings": {"framesPerBuffer": 128}})"});
    auto device = std::make_shared<FakeDevice>(48000.0, 1.0, 1 << 20);
    stream->processorWithIdentifier<VEKHardwareAudioProcessor>("hardware")->setDevice(device);
    auto *dock = stream->processorWithIdentifier<VEKAudioDock>("effectDock");
    ASSERT_TRUE(stream->initialize());
    ASSERT_TRUE(stream->start());
    FakeOutput *output = device->lastOutput();
    ASSERT_TRUE(output->waitForCycles(2));
    dock->setProcessor(amp);
    ASSERT_TRUE(output->waitForCycles(6));
    // Made again at the stream's rate and buffer size, with its value kept.
    ASSERT_TRUE(unit->plugin());
    EXPECT_EQ(unit->plugin()->sampleRate(), 48000.0);
    EXPECT_EQ(unit->plugin()->maximumFrames(), 128u);
    EXPECT_NEAR(unit->plugin()->value("gain"), -6.0206f, 1e-4);
    stream->stop();
    const std::vector<float> heard = output->captured(0);
    const std::vector<float> right = output->captured(1);
    ASSERT_FALSE(heard.empty());
    EXPECT_EQ(heard.front(), 0.5f);
    EXPECT_NEAR(heard.back(), 0.25f, 1e-5);
    EXPECT_NEAR(right.back(), 0.25f, 1e-5);
    for (float v : heard)
        ASSERT_TRUE(v == 0.5f || std::fabs(v - 0.25f) < 1e-5f) << v;

    stream->uninitialize();
}

TEST(AudioUnitProcessor, MadeFromAnEffectDescriptionOrFailsWithAReason)
{
    qputenv("LV2_PATH", "/usr/lib/lv2");
    VEKError error;
    // What the effect menus list is enough to make the processor.
    const QVariantMap description = VEKLV2World::shared().effectDescription(kAmp, &error);
    ASSERT_FALSE(description.isEmpty()) << error.text().toStdString();
    auto made = VEKAudioProcessor::processorWithSettings(description, &error);
    ASSERT_TRUE(made) << error.text().toStdString();
    EXPECT_EQ(made->settings().value("uri").toString(), kAmp);

    auto none = VEKAudioProcessor::processorWithSettings(
        {{"class", "APLAudioUnitAudioProcessor"}, {"uri", "urn:quivera:no-such-plugin"}}, &error);
    EXPECT_FALSE(none);
    EXPECT_FALSE(error.isNull());
}
