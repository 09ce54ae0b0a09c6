#include "graph/APLAudioUnitAudioProcessor.h"
#include "lv2/VEKLV2Plugin.h"
#include "player/PlayerEffectEditor.h"

#include <QSlider>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(PlayerEffectEditor, LogarithmicPortsSpreadDecadesEvenlyAndIntegerPortsStepWhole)
{
    // Half-way along 20 Hz to 20 kHz is the geometric middle, not 10 kHz.
    EXPECT_NEAR(PlayerEffectEditor::sliderValue(500, 20, 20000, true, false, 1000), 632.46f, 0.01f);
    EXPECT_EQ(PlayerEffectEditor::sliderPosition(2000, 20, 20000, true, 1000), 667);
    EXPECT_EQ(PlayerEffectEditor::sliderPosition(10010, 20, 20000, false, 1000), 500);
    EXPECT_EQ(PlayerEffectEditor::sliderValue(3, 0, 8, false, true, 8), 3.f);
    EXPECT_EQ(PlayerEffectEditor::sliderValue(1000, 20, 20000, true, false, 1000), 20000.f);
}

TEST(PlayerEffectEditor, SlidersWriteThePluginAndFollowChangesMadeElsewhere)
{
    auto amp = std::make_shared<APLAudioUnitAudioProcessor>();
    ASSERT_TRUE(amp->init(nullptr));
    // One port: gain, -70..70 dB.
    ASSERT_TRUE(amp->setPluginURI(u"http://plugin.org.uk/swh-plugins/amp"_s));
    ASSERT_TRUE(amp->plugin());
    PlayerEffectEditor editor(amp);
    const QList<QSlider *> sliders = editor.findChildren<QSlider *>();
    ASSERT_EQ(sliders.size(), 1);
    QSlider *gain = sliders.first();
    EXPECT_EQ(gain->value(), 500); // 0 dB, the default, in the middle

    gain->setValue(250);
    EXPECT_FLOAT_EQ(amp->plugin()->value(u"gain"_s), -35.f);

    amp->plugin()->setValue(u"gain"_s, 35.f);
    editor.refresh();
    EXPECT_EQ(gain->value(), 750);
    EXPECT_FLOAT_EQ(amp->plugin()->value(u"gain"_s), 35.f) << "showing a value wrote it back";
}
