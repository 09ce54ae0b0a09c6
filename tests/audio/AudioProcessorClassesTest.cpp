// Every processor class the program registers, made by name and brought back from its settings:
// a stored graph or effect chain must come back as it was saved.

#include "audio/AudioProcessorClasses.h"
#include "graph/VEKAudioGraphError.h"
#include "graph/VEKAudioProcessor.h"

#include <QVariantList>
#include <gtest/gtest.h>

namespace {

QVariantMap volumeRecord()
{
    return {{"class", "VEKVolumeAudioProcessor"}, {"scalar", 0.125}, {"enabled", false}, {"name", "Quieter"}};
}

// Per class, a record that differs from the defaults in each of its own keys.
const QHash<QString, QVariantMap> &changedRecords()
{
    static const QHash<QString, QVariantMap> records{
        {"VEKAudioProcessor", {{"enabled", false}, {"name", "Named"}}},
        {"VEKAudioDock", {{"processor", volumeRecord()}}},
        {"VEKMixerAudioProcessor", {{"enabled", false}}},
        {"VEKRouterAudioProcessor",
         {{"numberOfInputChannels", 6}, {"ties", QVariantList{QVariantList{0, 0}, QVariantList{5, 1}}}}},
        {"VEKConductorAudioProcessor", {{"name", "Conductor"}}},
        {"VEKAudioFileAudioGenerator", {{"enabled", false}}},
        {"VEKVolumeAudioProcessor", volumeRecord()},
        {"VEKMeterAudioProcessor", {{"enabled", false}}},
        {"VEKHardwareAudioProcessor", {{"framesPerBuffer", 256}}},
        {"IZOConverterAudioProcessor",
         {{"inSampleRate", 96000.0}, {"filterSteepness", 100}, {"filterCutoffScaling", 0.875},
          {"filterPreRinging", 0.5}}},
        {"APLConverterAudioProcessor", {{"inSampleRate", 88200.0}, {"complexity", 0x62617473} /* mastering */, {"quality", 0.5}}},
        {"VEKDitherAudioProcessor", {{"depth", 20}, {"type", 1}, {"autoBlanking", true}}},
        {"APLAudioUnitAudioProcessor",
         {{"uri", "http://plugin.org.uk/swh-plugins/amp"}, {"controls", QVariantMap{{"gain", -6.0}}}}},
        {"VEKAudioFileReaderAudioProcessor", {{"enabled", false}}},
        {"VEKAudioFileWriterAudioProcessor",
         {{"sampleRate", 96000.0}, {"numberOfChannels", 1}, {"format", "flac"}, {"bitDepth", 24},
          {"existsAction", "overwrite"}, {"baseFilename", "take"}, {"baseDirectory", "/tmp/takes"}}},
        {"Muter", {{"enabled", false}}},
        {"Player", {{"name", "Player"}}},
        {"Dimmer", {{"enabled", false}}},
        {"HeadphonesProcessor",
         {{"enabled", true}, {"crossfeedAmount", 1.0}, {"crossfeedType", 3}, {"trebleFrequency", 7000.0},
          {"bass", -1.5}, {"outOfPhase", true}, {"solo", 2}, {"eqClipProtectionEnabled", false}}},
    };
    return records;
}

} // namespace

TEST(AudioProcessorClasses, EveryRegisteredClassComesBackFromItsSettings)
{
    qputenv("LV2_PATH", "/usr/lib/lv2");
    registerAudioProcessorClasses();
    const QStringList classes = VEKAudioProcessor::registeredClasses();
    for (const char *name : {"Muter", "Dimmer", "HeadphonesProcessor", "Player", "VEKAudioDock"})
        EXPECT_TRUE(classes.contains(QLatin1String(name))) << name;
    for (const QString &name : classes) {
        if (name.startsWith(QLatin1String("Test")))
            continue; // the tests' own fakes
        SCOPED_TRACE(name.toStdString());
        ASSERT_TRUE(changedRecords().contains(name)) << "a registered class with no record here";
        VEKError error;
        auto original = VEKAudioProcessor::processorWithClass(name, &error);
        ASSERT_TRUE(original) << error.text().toStdString();
        EXPECT_EQ(original->className(), name);
        const QVariantMap record = changedRecords().value(name);
        ASSERT_TRUE(original->setSettings(record, &error)) << error.text().toStdString();
        const QVariantMap settings = original->settings();
        // Each changed key reads back as set, so the round trip below compares real values.
        for (auto it = record.constBegin(); it != record.constEnd(); ++it) {
            if (it.key() == QLatin1String("ties")) {
                EXPECT_EQ(settings.value(it.key()), it.value());
            } else if (it.key() != QLatin1String("controls")) {
                EXPECT_EQ(settings.value(it.key()).toString(), it.value().toString()) << it.key().toStdString();
            }
        }
        auto copy = VEKAudioProcessor::processorWithSettings(settings, &error);
        ASSERT_TRUE(copy) << error.text().toStdString();
        EXPECT_EQ(copy->className(), name);
        EXPECT_EQ(copy->settings(), settings);
    }
}

TEST(AudioProcessorClasses, UnknownOrMismatchedClassesAreRefused)
{
    VEKError error;
    EXPECT_FALSE(VEKAudioProcessor::processorWithSettings({{"class", "Nope"}}, &error));
    EXPECT_EQ(error.code(), VEKAudioGraphError::UnknownClass);
    EXPECT_FALSE(VEKAudioProcessor::processorWithSettings({{"enabled", true}}, &error));
    EXPECT_EQ(error.code(), VEKAudioGraphError::MalformedDescription);
    auto volume = VEKAudioProcessor::processorWithClass("VEKVolumeAudioProcessor");
    EXPECT_FALSE(volume->setSettings({{"class", "VEKMeterAudioProcessor"}}, &error));
    EXPECT_EQ(error.code(), VEKAudioGraphError::InvalidArgument);
}
