// Building streams from descriptions, and processors from their settings.

#include "support/graph/GraphTestSupport.h"

#include "graph/VEKAudioGraphError.h"
#include "graph/VEKHardwareAudioProcessor.h"
#include "graph/VEKMixerAudioProcessor.h"
#include "graph/VEKRouterAudioProcessor.h"
#include "graph/VEKVolumeAudioProcessor.h"

#include <gtest/gtest.h>

using namespace GraphTest;

namespace {

QString fixture() { return QStringLiteral(QUIVERA_SOURCE_DIR "/tests/framework/graph/PlayerStream.plist"); }

// The error a description gives, or a null error when it builds.
VEKError buildError(const char *json)
{
    registerTestClasses();
    VEKAudioStream stream;
    VEKError error;
    if (stream.initWithDescription(description(json), &error))
        return VEKError();
    EXPECT_TRUE(stream.identifiers().isEmpty()) << "a failed build leaves nothing behind";
    return error;
}

} // namespace

TEST(StreamDescription, InitialisingThePlayerGraphTakesTheDevicesRateEverywhere)
{
    VEKAudioStream stream;
    ASSERT_TRUE(stream.initWithDescriptionFile(fixture()));
    auto device = std::make_shared<FakeDevice>(48000.0);
    auto *hardware = stream.processorWithIdentifier<VEKHardwareAudioProcessor>("hardware");
    EXPECT_FALSE(stream.initialize()) << "no device yet";
    ASSERT_TRUE(hardware->setDevice(device));
    auto *router = stream.processorWithIdentifier<VEKRouterAudioProcessor>("player1Router");
    ASSERT_TRUE(router->setNumberOfInputChannels(1));
    ASSERT_TRUE(stream.initialize());
    EXPECT_TRUE(stream.isInitialized());
    EXPECT_EQ(stream.format().sampleRate, 48000.0);
    EXPECT_EQ(stream.framesPerBuffer(), 512u);
    EXPECT_EQ(router->inputConnection()->numberOfChannels(), 1u);
    EXPECT_EQ(router->inputConnection()->sampleRate(), 48000.0);
    EXPECT_EQ(stream.connectionWithIdentifier("converter1ToMixer")->numberOfChannels(), 2u);
    // The generators are timed by the conductor after the mixer; the meters are not.
    EXPECT_EQ(stream.processorWithIdentifier("player2Generator")->conductor(), stream.conductor());
    EXPECT_EQ(stream.processorWithIdentifier("postVolumeMeter")->conductor(), nullptr);

    VEKError error;
    EXPECT_FALSE(hardware->setDevice(std::make_shared<FakeDevice>(), &error));
    EXPECT_EQ(error.code(), VEKAudioGraphError::StreamNotStopped);
    EXPECT_TRUE(stream.uninitialize());
    EXPECT_TRUE(stream.uninitialize()) << "harmless twice";
    EXPECT_TRUE(hardware->setDevice(std::make_shared<FakeDevice>()));
}

TEST(StreamDescription, BrokenDescriptionsAreRefusedWithTheirKindAndWhatIsWrong)
{
    struct Case {
        const char *why;
        const char *json;
        qint64 code;
        QStringList named = {}; // what the error must name
    };
    const Case cases[] = {
        {"unknown class",
         R"({"processors": [{"identifier": "mystery", "class": "NoSuchProcessor"},
                                             {"identifier": "sink", "class": "TestManualSink"}]})",
         VEKAudioGraphError::UnknownClass,
         {"NoSuchProcessor", "mystery"}},
        {"dangling connection",
         R"({"processors": [{"identifier": "mixer", "class": "VEKMixerAudioProcessor"},
                                                   {"identifier": "sink", "class": "TestManualSink"}],
                                    "chains": [["mixer", "sink"]],
                                    "connections": [{"from": "player1ConverterDock", "to": "mixer"}]})",
         VEKAudioGraphError::UnknownIdentifier,
         {"player1ConverterDock", "connections[0]"}},
        {"no sink", R"({"processors": [{"identifier": "v", "class": "VEKVolumeAudioProcessor"}]})",
         VEKAudioGraphError::BadTopology},
        {"two sinks", R"({"processors": [{"identifier": "a", "class": "TestManualSink"},
                                         {"identifier": "b", "class": "TestManualSink"}]})",
         VEKAudioGraphError::BadTopology},
        {"fan-out", R"({"processors": [{"identifier": "s", "class": "TestCountingSource"},
                                       {"identifier": "m", "class": "VEKMixerAudioProcessor"},
                                       {"identifier": "k", "class": "TestManualSink"}],
                        "chains": [["s", "m", "k"], ["s", "m"]]})",
         VEKAudioGraphError::BadTopology},
        {"two inputs into a non-mixer", R"({"processors": [{"identifier": "a", "class": "TestCountingSource"},
                                       {"identifier": "b", "class": "TestCountingSource"},
                                       {"identifier": "v", "class": "VEKVolumeAudioProcessor"},
                                       {"identifier": "k", "class": "TestManualSink"}],
                        "chains": [["a", "v", "k"], ["b", "v"]]})",
         VEKAudioGraphError::BadTopology},
        {"cycle", R"({"processors": [{"identifier": "a", "class": "VEKMixerAudioProcessor"},
                                     {"identifier": "b", "class": "VEKVolumeAudioProcessor"},
                                     {"identifier": "k", "class": "TestManualSink"}],
                      "chains": [["a", "b", "a"]]})",
         VEKAudioGraphError::BadTopology},
        {"duplicate identifier", R"({"processors": [{"identifier": "a", "class": "TestManualSink"},
                                                    {"identifier": "a", "class": "VEKVolumeAudioProcessor"}]})",
         VEKAudioGraphError::DuplicateIdentifier},
        {"processors not an array", R"({"processors": {"a": 1}})", VEKAudioGraphError::MalformedDescription},
        {"entry without class", R"({"processors": [{"identifier": "a"}]})",
         VEKAudioGraphError::MalformedDescription},
        {"connection without to", R"({"processors": [{"identifier": "a", "class": "TestManualSink"}],
                                      "connections": [{"from": "a"}]})",
         VEKAudioGraphError::MalformedDescription},
        {"settings a processor refuses",
         R"({"processors": [{"identifier": "r", "class": "VEKRouterAudioProcessor",
                                              "settings": {"numberOfInputChannels": 0}},
                                             {"identifier": "k", "class": "TestManualSink"}]})",
         VEKAudioGraphError::InvalidArgument},
    };
    for (const Case &c : cases) {
        const VEKError error = buildError(c.json);
        EXPECT_EQ(error.code(), c.code) << c.why << ": " << error.text().toStdString();
        EXPECT_FALSE(error.text().isEmpty()) << c.why;
        EXPECT_EQ(error.domain(), QLatin1String(VEKAudioGraphError::domain)) << c.why;
        for (const QString &name : c.named)
            EXPECT_TRUE(error.text().contains(name)) << c.why << ": " << error.text().toStdString();
    }
}

TEST(StreamDescription, InlineProcessorsInAChainNeedNoIdentifier)
{
    auto stream = build(R"({
      "processors": [{"identifier": "source", "class": "TestCountingSource", "settings": {"value": 0.5}}],
      "chains": [["source", {"class": "VEKVolumeAudioProcessor", "settings": {"scalar": 0.5}},
                  {"class": "TestManualSink"}]]
    })");
    ASSERT_TRUE(stream);
    EXPECT_EQ(stream->identifiers(), QStringList{"source"});
    ASSERT_TRUE(stream->initialize());
    EXPECT_EQ(renderManually(*stream, 16, 16, false), std::vector<float>(16, 0.25f));
}
