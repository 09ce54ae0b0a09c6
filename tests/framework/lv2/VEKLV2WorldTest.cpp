#include "lv2/VEKLV2World.h"
#include "LV2Fixtures.h"

#include <gtest/gtest.h>

using namespace LV2Fixtures;

namespace {

class VEKLV2WorldTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { LV2Fixtures::setUp(); }

    static QVariantMap byURI(const QVariantList &list, const QString &uri)
    {
        for (const QVariant &v : list)
            if (v.toMap().value("uri").toString() == uri)
                return v.toMap();
        return {};
    }
};

// Every record must be usable by the effect menu (name, maker, type, channels) and as settings
// as it stands (class and URI: AudioUnitProcessor.MadeFromAnEffectDescriptionOrFailsWithAReason).
// The component codes and channel configurations are written for the record's shape only; no
// code reads them.
void expectWellFormed(const QVariantMap &d, quint32 type)
{
    SCOPED_TRACE(d.value("uri").toString().toStdString());
    EXPECT_EQ(d.value("class").toString(), "APLAudioUnitAudioProcessor");
    EXPECT_FALSE(d.value("uri").toString().isEmpty());
    EXPECT_FALSE(d.value("name").toString().isEmpty());
    EXPECT_FALSE(d.value("manufacturer").toString().isEmpty());
    EXPECT_EQ(d.value("componentType").toUInt(), type);
    const quint32 ins = d.value("numberOfInputs").toUInt();
    const quint32 outs = d.value("numberOfOutputs").toUInt();
    EXPECT_TRUE((ins == 1 && outs == 1) || (ins == 2 && outs == 2)) << ins << " in, " << outs << " out";
}

TEST_F(VEKLV2WorldTest, EffectsAreTheRunnableAudioPluginsAndMusicEffectsThoseThatAlsoTakeMIDI)
{
    const QVariantList effects = VEKLV2World::shared().effectDescriptions(VEKLV2World::EffectType);
    // swh-lv2 and mda-lv2 hold well over a hundred effects between them.
    EXPECT_GT(effects.size(), 50);
    for (const QVariant &v : effects)
        expectWellFormed(v.toMap(), VEKLV2World::EffectType);

    const QVariantMap amp = byURI(effects, kAmp);
    EXPECT_EQ(amp.value("name").toString(), "Simple amplifier");
    EXPECT_EQ(amp.value("manufacturer").toString(), "Steve Harris");
    EXPECT_EQ(amp.value("numberOfInputs").toUInt(), 1u);
    const QVariantMap overdrive = byURI(effects, kOverdrive);
    EXPECT_EQ(overdrive.value("name").toString(), "MDA Overdrive");
    EXPECT_EQ(overdrive.value("numberOfInputs").toUInt(), 2u);

    // Not runnable here: one in and two out, a synth without audio input, a missing feature.
    EXPECT_TRUE(byURI(effects, kHilbert).isEmpty());
    EXPECT_TRUE(byURI(effects, kSynth).isEmpty());
    EXPECT_TRUE(byURI(effects, kNeedsWorker).isEmpty());
    // A plugin that takes MIDI is a music effect, not an effect.
    EXPECT_TRUE(byURI(effects, kMidiGain).isEmpty());
    const QVariantList music = VEKLV2World::shared().effectDescriptions(VEKLV2World::MusicEffectType);
    for (const QVariant &v : music)
        expectWellFormed(v.toMap(), VEKLV2World::MusicEffectType);
    const QVariantMap gain = byURI(music, kMidiGain);
    ASSERT_FALSE(gain.isEmpty());
    EXPECT_EQ(gain.value("manufacturer").toString(), "Quivera Tests");
    EXPECT_EQ(gain.value("numberOfInputs").toUInt(), 2u);
    EXPECT_TRUE(byURI(music, kAmp).isEmpty());

    EXPECT_TRUE(VEKLV2World::shared().effectDescriptions(0x61756d78 /* 'aumx' */).isEmpty());
}

TEST_F(VEKLV2WorldTest, OneDescriptionByURITellsWhyAPluginCannotRun)
{
    VEKError error;
    EXPECT_EQ(VEKLV2World::shared().effectDescription(kAmp, &error).value("uri").toString(), kAmp);
    EXPECT_TRUE(error.isNull());

    EXPECT_TRUE(VEKLV2World::shared().effectDescription(kNeedsWorker, &error).isEmpty());
    EXPECT_EQ(error.code(), VEKLV2World::UnsupportedPlugin);
    EXPECT_TRUE(error.failureReason().contains("worker#schedule")) << error.text().toStdString();

    EXPECT_TRUE(VEKLV2World::shared().effectDescription("urn:nowhere", &error).isEmpty());
    EXPECT_EQ(error.code(), VEKLV2World::UnknownPlugin);
}

} // namespace
