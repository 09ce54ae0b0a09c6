// The panes' mapping from controls to settings and back: each control writes its setting at once,
// a record always replaced whole, and each pane fills its controls from the settings when it
// comes to the front.

#include "PreferencesTestSupport.h"

#include "preferences/AdvancedPreferencesPane.h"
#include "preferences/GeneralPreferencesPane.h"
#include "preferences/HeadphonesPreferencesPane.h"
#include "preferences/ITunesLibraryFileFilter.h"
#include "preferences/ITunesPreferencesPane.h"
#include "preferences/OutputDeviceProbe.h"
#include "preferences/PreferencesSegments.h"
#include "preferences/PreferredFormatPreferencesPane.h"

#include <QCheckBox>
#include <QDir>
#include <QFileDialog>
#include <QLabel>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace PreferencesTest;

namespace {

TEST(GeneralPane, TheDitherRecordIsReplacedWholeWithWordLengthAndTypeTogether)
{
    UserDefaults &d = freshDefaults();
    GeneralPreferencesPane pane(d);
    pane.paneWillBecomeFront();
    // Off until first used: the registered record has no `enabled`.
    EXPECT_FALSE(control<QCheckBox>(pane, "ditherEnabledButton")->isChecked());
    EXPECT_EQ(control<QComboBox>(pane, "ditherTypePopup")->currentData().toInt(), 2);

    control<QCheckBox>(pane, "ditherEnabledButton")->click();
    chooseTag(control<QComboBox>(pane, "ditherRangePopup"), 24);
    const QVariantMap dither = d.dictionaryForKey(u"ditherProperties"_s);
    EXPECT_EQ(dither.value(u"enabled"_s).toInt(), 1);
    EXPECT_EQ(dither.value(u"depth"_s).toInt(), 24);
    EXPECT_EQ(dither.value(u"type"_s).toInt(), 2);
    EXPECT_EQ(dither.value(u"mbitShape"_s).toInt(), 3) << "the other entries stay";

    chooseTag(control<QComboBox>(pane, "meteringPointPopup"), 2);
    chooseTag(control<QComboBox>(pane, "volumeKnobPopup"), 0);
    EXPECT_EQ(d.integerForKey(u"meterPoint"_s), 2);
    EXPECT_EQ(d.integerForKey(u"volumeKnob"_s), 0);
}

class PreferredFormatTest : public ::testing::Test {
protected:
    UserDefaults &d = freshDefaults();
    PreferredFormatPreferencesPane pane{d};
    QComboBox *format = control<QComboBox>(pane, "formatPopup");
    QComboBox *bits = control<QComboBox>(pane, "bitPopup");
    QComboBox *rate = control<QComboBox>(pane, "sampleRatePopup");
    VEKSlider *slider = control<VEKSlider>(pane, "slider");
    QVariantMap record() const { return d.dictionaryForKey(u"preferredFormat"_s); }
    bool rateEnabled(qint64 tag) const
    {
        return rate->model()->flags(rate->model()->index(rate->findData(QVariant(tag)), 0))
               & Qt::ItemIsEnabled;
    }
};

TEST_F(PreferredFormatTest, AFormatChangeDropsRateAndBitsKeepsQualityAndRebuildsTheBitItems)
{
    // The defaults: AIFF with no preference of rate or bits, and no quality to set.
    pane.paneWillBecomeFront();
    EXPECT_EQ(format->currentText(), u"AIFF"_s);
    EXPECT_EQ(rate->currentData().toInt(), 0);
    EXPECT_EQ(bits->currentText(), u"No preference"_s);
    EXPECT_FALSE(slider->isEnabled());

    choose(format, u"FLAC"_s);
    EXPECT_EQ(items(bits),
              (QStringList{u"No preference"_s, QString(), u"16-bit"_s, u"20-bit"_s, u"24-bit"_s}));
    EXPECT_TRUE(slider->isEnabled());
    drag(slider, 0.25);
    chooseTag(bits, 24);
    chooseTag(rate, 96000);
    EXPECT_EQ(record().value(u"bitRange"_s).toInt(), 24);

    choose(format, u"AAC"_s);
    EXPECT_EQ(record(), (QVariantMap{{u"format"_s, 3}, {u"quality"_s, 0.25f}}));
    EXPECT_EQ(items(bits).first(), u"128 kbps"_s);
    EXPECT_EQ(items(bits).size(), 6);
    EXPECT_FALSE(rateEnabled(96000));
    EXPECT_TRUE(rateEnabled(48000));
    chooseTag(bits, 256000);
    EXPECT_EQ(record().value(u"bitRate"_s).toInt(), 256000);

    choose(format, u"Apple Lossless"_s);
    EXPECT_TRUE(rateEnabled(96000));
    EXPECT_TRUE(items(bits).contains(u"20-bit"_s));
    EXPECT_TRUE(items(bits).contains(u"32-bit"_s));
    choose(format, u"Ogg Vorbis"_s);
    EXPECT_EQ(items(bits), QStringList{u"Not applicable"_s});
    EXPECT_FALSE(bits->isEnabled());
    EXPECT_DOUBLE_EQ(slider->doubleValue(), 0.25) << "one quality serves Vorbis and FLAC";
}

TEST(ITunesPane, TheLocationIsShownAsItsFolderAndStoredWithATilde)
{
    UserDefaults &d = freshDefaults();
    int rescans = 0;
    ITunesPreferencesPane pane(d, [&rescans] { ++rescans; });
    pane.paneWillBecomeFront();
    EXPECT_EQ(control<QLabel>(pane, "locationText")->text(), QDir::homePath() + u"/Music/iTunes/"_s);

    pane.locationChosen(QDir::homePath() + u"/Shared/iTunes Library.xml"_s);
    EXPECT_EQ(d.stringForKey(u"iTunesLibraryLocation"_s), u"~/Shared/iTunes Library.xml"_s);
    EXPECT_EQ(control<QLabel>(pane, "locationText")->text(), QDir::homePath() + u"/Shared/"_s);
    control<QCheckBox>(pane, "accessButton")->click();
    EXPECT_TRUE(d.boolForKey(u"accessiTunesLibrary"_s));
    EXPECT_EQ(rescans, 2);

    std::unique_ptr<QFileDialog> chooser(pane.makeChooser());
    EXPECT_EQ(chooser->fileMode(), QFileDialog::ExistingFile);
    EXPECT_TRUE(chooser->nameFilters().first().contains(u"iTunes?Library.xml"_s));
    // The filter's '?' stands for the space; other names that fit it are not shown.
    EXPECT_TRUE(ITunesLibraryFileFilter::accepts(u"iTunes Music Library.xml"_s, false));
    EXPECT_FALSE(ITunesLibraryFileFilter::accepts(u"iTunes_Library.xml"_s, false));
    EXPECT_TRUE(ITunesLibraryFileFilter::accepts(u"Music"_s, true));
}

class HeadphonesTest : public ::testing::Test {
protected:
    UserDefaults &d = freshDefaults();
    HeadphonesPreferencesPane pane{d};
    QVariantMap record() const { return d.dictionaryForKey(u"headphonesProcessorSettings"_s); }
    QString tip(const char *slider, double value)
    {
        VEKSlider *s = control<VEKSlider>(pane, slider);
        s->setDoubleValue(value);
        return s->tipText();
    }
};

TEST_F(HeadphonesTest, TheTipsShowDegreesPercentAndSignedDecibels)
{
    EXPECT_EQ(tip("speakerAngleSlider", 30), u"30°"_s);
    EXPECT_EQ(tip("crossfeedAmountSlider", 0.5), u"50%"_s);
    EXPECT_EQ(tip("trebleSlider", 0.05), u"0.0dB"_s);
    EXPECT_EQ(tip("trebleSlider", -0.1), u"-0.1dB"_s);
    EXPECT_EQ(tip("bassSlider", 0.1), u"+0.1dB"_s);
}

TEST_F(HeadphonesTest, ChangesReplaceTheRecordGainsInTenthsAndTheFrequencyIsReadUnderTheOldSpelling)
{
    pane.paneWillBecomeFront();
    const QVariantMap before = record();
    drag(control<VEKSlider>(pane, "trebleSlider"), 3.15);
    QVariantMap expected = before;
    expected.insert(u"treble"_s, 3.2);
    EXPECT_EQ(record(), expected) << "one entry changed, the twelve others kept";

    chooseTag(control<QComboBox>(pane, "trebleFrequencyPopup"), 8000);
    control<PreferencesSegments>(pane, "soloControl")->choose(2);
    control<PreferencesSegments>(pane, "phaseControl")->choose(1);
    EXPECT_EQ(record().value(u"trebleFrequency"_s).toInt(), 8000);
    EXPECT_EQ(record().value(u"solo"_s).toInt(), 2);
    EXPECT_EQ(record().value(u"outOfPhase"_s).toInt(), 1);
    pane.paneWillBecomeFront();
    EXPECT_EQ(control<QComboBox>(pane, "trebleFrequencyPopup")->currentData().toInt(), 5000);
    EXPECT_EQ(control<QComboBox>(pane, "bassFrequencyPopup")->currentData().toInt(), 250);
    EXPECT_EQ(record().value(u"trebleFrequency"_s).toInt(), 8000);
    EXPECT_EQ(control<PreferencesSegments>(pane, "soloControl")->selectedSegment(), 2);
}

class AdvancedTest : public ::testing::Test {
protected:
    UserDefaults &d = freshDefaults();
    OutputDeviceProbe probe{nullptr, false};
    AdvancedPreferencesPane pane{d, &probe, nullptr};
    QComboBox *shapes = control<QComboBox>(pane, "shapePopup");
    QComboBox *bits = control<QComboBox>(pane, "numberOfBitsPopup");
    QVariantMap dither() const { return d.dictionaryForKey(u"ditherProperties"_s); }
};

TEST_F(AdvancedTest, TheShapesFollowTheDitherTypeAndTheBitsCountFromOne)
{
    pane.paneWillBecomeFront();
    EXPECT_EQ(items(shapes), (QStringList{u"None"_s, u"Light"_s, u"Medium"_s, u"High"_s, u"Ultra"_s}));
    EXPECT_EQ(shapes->currentIndex(), 3);
    EXPECT_FALSE(bits->isEnabled());
    EXPECT_EQ(bits->currentIndex(), -1) << "basicNumberOfBits 0 selects nothing";

    QVariantMap basic = dither();
    basic.insert(u"type"_s, 1);
    basic.insert(u"basicNumberOfBits"_s, 3);
    d.setValue(u"ditherProperties"_s, basic);
    pane.paneWillBecomeFront();
    EXPECT_EQ(items(shapes), (QStringList{u"None"_s, u"Simple"_s, u"Clear"_s, u"Psych5"_s, u"Psych9"_s}));
    EXPECT_EQ(shapes->currentIndex(), 2);
    EXPECT_EQ(bits->currentIndex(), 2);
    EXPECT_TRUE(bits->isEnabled());
    EXPECT_FALSE(control<QComboBox>(pane, "amountPopup")->isEnabled());

    choose(bits, u"1 bit"_s);
    choose(shapes, u"Psych9"_s);
    EXPECT_EQ(dither().value(u"basicNumberOfBits"_s).toInt(), 1);
    EXPECT_EQ(dither().value(u"basicShape"_s).toInt(), 4);
    EXPECT_EQ(dither().value(u"mbitShape"_s).toInt(), 3);
}

TEST_F(AdvancedTest, PresetsFeedTheThreeSlidersAndTheStandardOneIsTheDefaults)
{
    pane.paneWillBecomeFront();
    QComboBox *presets = control<QComboBox>(pane, "presetsPopup");
    ASSERT_GE(presets->count(), 4);
    choose(presets, u"Minimum Phase"_s);
    EXPECT_DOUBLE_EQ(d.doubleForKey(u"resamplerPreringing"_s), 0.0);
    EXPECT_EQ(control<VEKSlider>(pane, "preringingSlider")->tipText(), u"0.00"_s);
    choose(presets, u"Standard"_s);
    EXPECT_DOUBLE_EQ(d.doubleForKey(u"resamplerFilterSteepness"_s), 150.0);
    EXPECT_DOUBLE_EQ(d.doubleForKey(u"resamplerCutoffScaling"_s), 1.0);
    EXPECT_DOUBLE_EQ(d.doubleForKey(u"resamplerPreringing"_s), 1.0);
    EXPECT_EQ(control<VEKSlider>(pane, "cutoffScalingSlider")->tipText(), u"1.00"_s);
    EXPECT_EQ(control<VEKSlider>(pane, "filterSteepnessSlider")->tipText(), u"150"_s);
}

TEST_F(AdvancedTest, ExclusiveUseShowsWhatTheDeviceReports)
{
    d.setValue(u"isExclusive"_s, true);
    OutputDevices devices;
    devices.exclusiveSupported = false;
    probe.setDevices(devices);
    pane.paneWillBecomeFront();
    QCheckBox *exclusive = control<QCheckBox>(pane, "exclusiveButton");
    EXPECT_FALSE(exclusive->isEnabled());
    EXPECT_FALSE(exclusive->isChecked());
    devices.exclusiveSupported = true;
    devices.exclusive = true;
    probe.setDevices(devices);
    EXPECT_TRUE(exclusive->isEnabled());
    EXPECT_TRUE(exclusive->isChecked());
}

} // namespace
