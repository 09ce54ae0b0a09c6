// The Output pane: devices and their outputs in the popup, the rates of the device in use with
// the two policies, and the quality slider that also drives the tunable converter.

#include "PreferencesTestSupport.h"

#include "preferences/OutputDeviceProbe.h"
#include "preferences/OutputMixerProgram.h"
#include "preferences/OutputPreferencesPane.h"

#include <QPushButton>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace PreferencesTest;

namespace {

OutputDevices twoDevices()
{
    OutputDevices devices;
    devices.devices = {
        {u"hw:CARD=PCH,DEV=0"_s,
         u"Built-in Audio"_s,
         {{1, u"Speakers"_s, false}, {2, u"Headphones"_s, true}}},
        {u"null"_s, u"No Output"_s, {}},
    };
    devices.currentUID = u"hw:CARD=PCH,DEV=0"_s;
    devices.currentRates = {44100, 96000};
    return devices;
}

class OutputPaneTest : public ::testing::Test {
protected:
    UserDefaults &d = freshDefaults();
    OutputDeviceProbe probe{nullptr, false};
    OutputPreferencesPane pane{d, &probe};
    QComboBox *devices = control<QComboBox>(pane, "outputDevicesPopup");
    QComboBox *rates = control<QComboBox>(pane, "sampleRatesPopup");
};

TEST_F(OutputPaneTest, ADeviceWithTwoSourcesIsOfferedByItsSourcesAndTheEnabledOneIsSelected)
{
    probe.setDevices(twoDevices());
    pane.paneWillBecomeFront();
    EXPECT_EQ(items(devices), (QStringList{u"Speakers"_s, u"Headphones"_s, u"No Output"_s}));
    EXPECT_EQ(devices->currentText(), u"Headphones"_s);

    choose(devices, u"Speakers"_s);
    const QVariantMap stored = d.dictionaryForKey(u"outputDevice"_s);
    EXPECT_EQ(stored.value(u"UID"_s).toString(), u"hw:CARD=PCH,DEV=0"_s);
    EXPECT_EQ(stored.value(u"sourceID"_s).toULongLong(), 1u);
    choose(devices, u"No Output"_s);
    EXPECT_EQ(d.dictionaryForKey(u"outputDevice"_s), (QVariantMap{{u"UID"_s, u"null"_s}}));
}

TEST_F(OutputPaneTest, TheRatesOfTheDeviceStandBetweenDontChangeAndMatchSong)
{
    probe.setDevices(twoDevices());
    d.setValue(u"sampleRate"_s, 96000);
    pane.paneWillBecomeFront();
    EXPECT_EQ(items(rates), (QStringList{u"Don't change"_s, QString(), u"44100 Hz"_s, u"96000 Hz"_s,
                                         QString(), u"Match song"_s}));
    EXPECT_EQ(rates->currentText(), u"96000 Hz"_s);
    choose(rates, u"Match song"_s);
    EXPECT_EQ(d.integerForKey(u"sampleRate"_s), -1);
    choose(rates, u"Don't change"_s);
    EXPECT_EQ(d.integerForKey(u"sampleRate"_s), 0);
    // A rate the device does not offer selects nothing and stays stored.
    d.setValue(u"sampleRate"_s, 48000);
    pane.paneWillBecomeFront();
    EXPECT_EQ(rates->currentIndex(), -1);
    EXPECT_EQ(d.integerForKey(u"sampleRate"_s), 48000);
}

TEST_F(OutputPaneTest, TheQualitySliderSetsTheTunableConvertersSteepnessAndResetsItsOtherValues)
{
    EXPECT_EQ(OutputPreferencesPane::qualitySteepness(1.0f), 150.0f);
    EXPECT_EQ(OutputPreferencesPane::qualitySteepness(0.5f), 53.0f);
    EXPECT_EQ(OutputPreferencesPane::qualitySteepness(0.0f), 0.0f);

    d.setValue(u"resamplerCutoffScaling"_s, 0.9);
    d.setValue(u"resamplerPreringing"_s, 0.0);
    pane.paneWillBecomeFront();
    drag(control<VEKSlider>(pane, "outputConvertorQualitySlider"), 0.5);
    EXPECT_DOUBLE_EQ(d.doubleForKey(u"convertorQuality"_s), 0.5);
    EXPECT_DOUBLE_EQ(d.doubleForKey(u"resamplerFilterSteepness"_s), 53.0);
    EXPECT_DOUBLE_EQ(d.doubleForKey(u"resamplerCutoffScaling"_s), 1.0);
    EXPECT_DOUBLE_EQ(d.doubleForKey(u"resamplerPreringing"_s), 1.0);

    chooseTag(control<QComboBox>(pane, "outputConvertorTypePopup"), 3);
    EXPECT_EQ(d.integerForKey(u"convertorType"_s), 3);
}

TEST_F(OutputPaneTest, ConfigureIsOfferedOnlyWhenAMixerProgramForTheDeviceIsInstalled)
{
    probe.setDevices(twoDevices());
    pane.paneWillBecomeFront();
    EXPECT_FALSE(control<QPushButton>(pane, "configureButton")->isEnabled());
    OutputDevices withMixer = twoDevices();
    withMixer.mixerCommand = {u"/usr/bin/pavucontrol"_s};
    probe.setDevices(withMixer);
    EXPECT_TRUE(control<QPushButton>(pane, "configureButton")->isEnabled());

    const auto installed = [](QStringList programs) {
        return [programs](const QString &p) { return programs.contains(p) ? u"/usr/bin/"_s + p : QString(); };
    };
    EXPECT_EQ(OutputMixerProgram::commandFor(u"pipewire"_s, installed({u"pavucontrol"_s})),
              QStringList{u"/usr/bin/pavucontrol"_s});
    EXPECT_EQ(OutputMixerProgram::commandFor(u"hw:CARD=PCH,DEV=0"_s,
                                             installed({u"pavucontrol"_s, u"alsamixer"_s, u"xterm"_s})),
              (QStringList{u"/usr/bin/xterm"_s, u"-e"_s, u"/usr/bin/alsamixer"_s, u"-c"_s, u"PCH"_s}));
    EXPECT_TRUE(
        OutputMixerProgram::commandFor(u"hw:CARD=PCH,DEV=0"_s, installed({u"alsamixer"_s})).isEmpty());
    EXPECT_TRUE(OutputMixerProgram::commandFor(u"null"_s, installed({u"pavucontrol"_s})).isEmpty());
}

} // namespace
