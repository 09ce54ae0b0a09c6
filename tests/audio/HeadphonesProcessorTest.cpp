// The headphone processor: its settings record (partial and refused records), the engine made at
// the chain's rate and crossfeed heard through it. Off, it passes every bit: the engine's own
// Disabled case, and the player's whole chain in BitPerfect and StreamSignalPath.

#include "Signals.h"

#include "audio/AudioProcessorClasses.h"
#include "audio/HeadphonesProcessor.h"
#include "support/graph/GraphTestSupport.h"

#include <gtest/gtest.h>

using namespace GraphTest;

namespace {

// A chain of the playback layer's processors between the graph's test source and sink.
std::unique_ptr<VEKAudioStream> build(const QStringList &classes, double rate = 48000.0, quint32 channels = 2)
{
    registerAudioProcessorClasses();
    return chainOf(classes, rate, channels);
}

std::shared_ptr<HeadphonesProcessor> makeProcessor()
{
    registerAudioProcessorClasses();
    VEKError error;
    auto p = std::dynamic_pointer_cast<HeadphonesProcessor>(
        VEKAudioProcessor::processorWithClass(QStringLiteral("HeadphonesProcessor"), &error));
    EXPECT_TRUE(p) << error.text().toStdString();
    return p;
}

QVariantMap crossfeedOn()
{
    return {{"enabled", true}, {"crossfeedAmount", 1.0}, {"crossfeedType", 1}, {"speakerAngle", 30.0}};
}

} // namespace

TEST(HeadphonesSettings, MissingKeysKeepTheirValuesAndMisspelledFrequenciesAreNotKeys)
{
    auto p = makeProcessor();
    ASSERT_TRUE(p);
    ASSERT_TRUE(p->setSettings({{"enabled", true}, {"mono", true}, {"treble", 2.5}, {"crossfeedType", 2}}, nullptr));
    const QVariantMap before = p->settings();
    ASSERT_TRUE(p->setSettings({}, nullptr));
    EXPECT_EQ(p->settings(), before);
    ASSERT_TRUE(p->setSettings({{"swapped", true}, {"trebleFreqency", 100.0}, {"bassFreqency", 50.0}}, nullptr));
    QVariantMap expected = before;
    expected.insert("swapped", true);
    EXPECT_EQ(p->settings(), expected);
    EXPECT_TRUE(p->isEnabled());
    EXPECT_TRUE(p->parameters().mono);
    EXPECT_EQ(p->parameters().trebleGain, 2.5f);
}

TEST(HeadphonesSettings, ARecordOfTheWrongTypesIsRefusedWhole)
{
    auto p = makeProcessor();
    ASSERT_TRUE(p);
    const QVariantMap before = p->settings();
    const QVariantMap wrong[] = {
        {{"speakerAngle", 30.0}, {"crossfeedAmount", "a lot"}},
        {{"enabled", true}, {"mono", 1}},
        {{"solo", QVariantList{1}}},
        {{"treble", QVariantMap{}}},
    };
    for (const QVariantMap &record : wrong) {
        VEKError error;
        EXPECT_FALSE(p->setSettings(record, &error));
        EXPECT_FALSE(error.isNull());
        EXPECT_EQ(p->settings(), before); // not even the good keys were taken
    }
    VEKError error;
    EXPECT_FALSE(p->setSettings({{"class", "Dimmer"}}, &error));
    EXPECT_FALSE(error.isNull());
}

TEST(HeadphonesRendering, CrossfeedCarriesALeftOnlySignalIntoTheRightEar)
{
    constexpr double Rate = 96000.0;
    auto stream = build({QStringLiteral("HeadphonesProcessor")}, Rate);
    ASSERT_TRUE(stream);
    const size_t frames = size_t(Rate);
    stream->processorWithIdentifier<SequenceSource>(QStringLiteral("source"))
        ->setChannels({Signals::sine(frames, 300.0, Rate), Channel(frames, 0.0f)});
    auto *hp = stream->processorWithIdentifier<HeadphonesProcessor>(QStringLiteral("p0"));
    // Set before the engine exists: the values reach it at initialisation.
    QVariantMap record = crossfeedOn();
    record.insert("crossfeedClipProtectionEnabled", false);
    ASSERT_TRUE(hp->setSettings(record, nullptr));
    ASSERT_TRUE(stream->initialize());
    ASSERT_NE(hp->engine(), nullptr);
    EXPECT_EQ(hp->engine()->sampleRate(), Rate);
    EXPECT_EQ(hp->engine()->parameters(), hp->parameters());
    const std::vector<Channel> out = render(*stream, frames, 1024);
    // Type 1 at full amount feeds the other ear 6 dB down at low frequencies, a little less
    // at 300 Hz through the head's shadow.
    const double direct = Signals::amplitude(out[0], 300.0, Rate, frames / 2, frames / 2);
    const double crossed = Signals::amplitude(out[1], 300.0, Rate, frames / 2, frames / 2);
    EXPECT_NEAR(direct, 0.5, 0.02);
    EXPECT_GT(Signals::toDb(crossed / direct), -9.0);
    EXPECT_LT(Signals::toDb(crossed / direct), -5.0);
}

// The engine exists only while a stereo chain is initialised; the settings outlive it.
TEST(HeadphonesRendering, OnlyAnInitialisedStereoChainHasAnEngineAndTheSettingsOutliveIt)
{
    auto mono = build({QStringLiteral("HeadphonesProcessor")}, 48000.0, 1);
    ASSERT_TRUE(mono);
    VEKError error;
    EXPECT_FALSE(mono->initialize(&error));
    EXPECT_EQ(mono->processorWithIdentifier<HeadphonesProcessor>(QStringLiteral("p0"))->engine(), nullptr);

    auto stream = build({QStringLiteral("HeadphonesProcessor")}, 44100.0);
    ASSERT_TRUE(stream);
    auto *hp = stream->processorWithIdentifier<HeadphonesProcessor>(QStringLiteral("p0"));
    ASSERT_TRUE(hp->setSettings({{"bass", 3.0}, {"solo", 1}}, nullptr));
    ASSERT_TRUE(stream->initialize());
    ASSERT_TRUE(stream->uninitialize());
    EXPECT_EQ(hp->engine(), nullptr);
    ASSERT_TRUE(hp->setSettings({{"treble", -2.0}}, nullptr));
    ASSERT_TRUE(stream->initialize());
    ASSERT_NE(hp->engine(), nullptr);
    EXPECT_EQ(hp->engine()->parameters().bassGain, 3.0f);
    EXPECT_EQ(hp->engine()->parameters().trebleGain, -2.0f);
    EXPECT_EQ(hp->engine()->parameters().solo, 1u);
}
