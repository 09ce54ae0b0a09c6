#include "player/FakePlayerTransport.h"
#include "player/PlayerButton.h"
#include "player/PlayerMeter.h"
#include "player/PlayerRepeatButton.h"
#include "player/PlayerSignalMark.h"
#include "player/PlayerTitle.h"
#include "player/PlayerVolume.h"
#include "player/SignalPathView.h"
#include "settings/UserDefaults.h"
#include "support/TestEnvironment.h"

#include <QAccessible>
#include <QMenu>
#include <QSignalSpy>
#include <QTest>
#include <QWheelEvent>
#include <gtest/gtest.h>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

// The rightmost column of `row` brighter than the unlit track, or -1.
int litEnd(const QImage &image, int row)
{
    for (int x = image.width() - 1; x >= 0; --x)
        if (qAlpha(image.pixel(x, row)) > 128)
            return x;
    return -1;
}

void wheel(QWidget *w, int deltaY)
{
    QWheelEvent e(QPointF(5, 5), w->mapToGlobal(QPointF(5, 5)), QPoint(), QPoint(0, deltaY), Qt::NoButton,
                  Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(w, &e);
}

} // namespace

TEST(PlayerMeter, LightsAThirdOfADecibelPerStepFromMinus40)
{
    EXPECT_EQ(PlayerMeter::steps(0.0f), 0);
    EXPECT_EQ(PlayerMeter::steps(0.01f), 0); // -40 dB exactly
    EXPECT_EQ(PlayerMeter::steps(0.1f), 60);
    EXPECT_EQ(PlayerMeter::steps(0.5f), 102);
    EXPECT_EQ(PlayerMeter::steps(1.0f), 120);

    // Drawn: channel 0 above at -20 dB reaches half the design width, channel 1 below is dark.
    FakePlayerTransport transport;
    transport.levels[0] = 0.1f;
    PlayerMeter meter;
    meter.setTransport(&transport);
    meter.resize(718, 28);
    const QImage image = renderAlone(&meter);
    EXPECT_NEAR(litEnd(image, 6), 359, 3);
    EXPECT_EQ(litEnd(image, 22), -1);
}

TEST(PlayerVolume, DragsRelativeToThePressWheelsByHundredthsAndIgnoresItsCorners)
{
    UserDefaults defaults(TestEnvironment::makeTempDir() + "/p.plist");
    PlayerVolume knob;
    knob.setDefaults(&defaults);
    knob.resize(100, 100);
    defaults.setValue("volume", 0.2);
    defaults.setValue("volumeKnob", 1);

    sendMouse(&knob, QEvent::MouseButtonPress, {3, 3});
    sendMouse(&knob, QEvent::MouseMove, {3, -97});
    sendMouse(&knob, QEvent::MouseButtonRelease, {3, -97}, Qt::NoButton);
    EXPECT_FLOAT_EQ(knob.volume(), 0.2f) << "a press in a corner is dead";

    sendMouse(&knob, QEvent::MouseButtonPress, {50, 50});
    EXPECT_FLOAT_EQ(knob.volume(), 0.2f) << "a press alone doesn't move it";
    sendMouse(&knob, QEvent::MouseMove, {80, -50}); // up by one knob height
    EXPECT_FLOAT_EQ(knob.volume(), 0.7f);
    sendMouse(&knob, QEvent::MouseMove, {50, -500});
    EXPECT_FLOAT_EQ(knob.volume(), 1.0f);
    sendMouse(&knob, QEvent::MouseButtonRelease, {50, -500}, Qt::NoButton);

    defaults.setValue("volumeKnob", 0);
    sendMouse(&knob, QEvent::MouseButtonPress, {50, 50});
    sendMouse(&knob, QEvent::MouseMove, {0, 0}); // left by half a width
    EXPECT_FLOAT_EQ(knob.volume(), 0.75f);
    sendMouse(&knob, QEvent::MouseButtonRelease, {0, 0}, Qt::NoButton);

    wheel(&knob, 120);
    wheel(&knob, 1);
    wheel(&knob, 240);
    EXPECT_FLOAT_EQ(knob.volume(), 0.78f) << "one event, one hundredth, whatever its size";
    defaults.setValue("volume", 1.0);
    wheel(&knob, 120);
    EXPECT_FLOAT_EQ(knob.volume(), 1.0f);
    wheel(&knob, -120);
    EXPECT_FLOAT_EQ(knob.volume(), 0.99f);
    QTest::keyClick(&knob, Qt::Key_Down);
    EXPECT_FLOAT_EQ(knob.volume(), 0.98f);

    defaults.setValue("volumeKnob", 2);
    sendMouse(&knob, QEvent::MouseButtonPress, {50, 50});
    sendMouse(&knob, QEvent::MouseMove, {50, 40});
    EXPECT_FLOAT_EQ(knob.volume(), 0.0f) << "an unknown knob setting writes silence";
}

TEST(PlayerButton, LatchesShowsThePressAndAMenuButtonNeverChangesState)
{
    PlayerButton shuffle;
    shuffle.resize(64, 64);
    shuffle.setImageName("Player_shuffle", 2);
    shuffle.setLatching(true);
    QSignalSpy triggered(&shuffle, &PlayerButton::triggered);
    for (bool expected : {true, false}) {
        sendMouse(&shuffle, QEvent::MouseButtonPress, {10, 10});
        EXPECT_TRUE(shuffle.state()) << "on during the press whatever it was";
        sendMouse(&shuffle, QEvent::MouseButtonRelease, {200, 200}, Qt::NoButton);
        EXPECT_EQ(shuffle.state(), expected) << "a release outside still acts";
    }
    EXPECT_EQ(triggered.count(), 2);
    // Assistive tools toggle it through its action (its role and press are the AT-SPI test's).
    QAccessibleInterface *a = QAccessible::queryAccessibleInterface(&shuffle);
    ASSERT_TRUE(a && a->actionInterface());
    a->actionInterface()->doAction(QAccessibleActionInterface::toggleAction());
    EXPECT_TRUE(a->state().checked);
    EXPECT_EQ(triggered.count(), 3);

    PlayerButton play;
    play.setImageName("Player_play", 3);
    play.setSelected(true);
    EXPECT_EQ(play.row(), 2);
    sendMouse(&play, QEvent::MouseButtonPress, {1, 1});
    EXPECT_EQ(play.row(), 1) << "the press wins over selected";
    sendMouse(&play, QEvent::MouseButtonRelease, {1, 1}, Qt::NoButton);
    EXPECT_FALSE(play.state());

    play.setEnabled(false);
    QSignalSpy playTriggered(&play, &PlayerButton::triggered);
    QTest::mouseClick(&play, Qt::LeftButton);
    EXPECT_EQ(playTriggered.count(), 0);

    PlayerButton popup;
    QMenu menu;
    popup.setMenu(&menu);
    QSignalSpy tracking(&popup, &PlayerButton::willTrackMenu);
    QSignalSpy popupTriggered(&popup, &PlayerButton::triggered);
    sendMouse(&popup, QEvent::MouseButtonPress, {1, 1});
    sendMouse(&popup, QEvent::MouseButtonRelease, {1, 1}, Qt::NoButton);
    menu.close();
    EXPECT_EQ(tracking.count(), 1);
    EXPECT_EQ(popupTriggered.count(), 0);
    EXPECT_FALSE(popup.state());

    PlayerRepeatButton repeat;
    QSignalSpy stepped(&repeat, &PlayerButton::triggered);
    QList<int> rows;
    for (int i = 0; i < 3; ++i) {
        QTest::mouseClick(&repeat, Qt::LeftButton);
        rows << int(repeat.mode()) << repeat.row();
    }
    EXPECT_EQ(rows, (QList<int>{1, 1, 2, 2, 0, 0}));
    EXPECT_EQ(stepped.count(), 3);
}

TEST(PlayerButton, DrawsAtThreeTenthsWhenDisabledAndLeavesOutATitleTooSmallToRead)
{
    PlayerButton next;
    next.setImageName("Player_next", 2);
    next.resize(64, 64);
    const int enabled = inkOf(&next).strongest;
    next.setEnabled(false);
    EXPECT_GT(enabled, 200);
    EXPECT_NEAR(inkOf(&next).strongest / double(enabled), 0.3, 0.02);

    PlayerButton effect;
    effect.setTitle("Reverb");
    effect.resize(120, 16);
    EXPECT_GT(inkOf(&effect).strongest, 0) << "the slot's title at the second-smallest window";
    effect.resize(120, 8);
    EXPECT_EQ(inkOf(&effect).strongest, 0) << "the slot's title at the smallest window";
}

TEST(PlayerTitle, ScrollsOnlyALineWiderThanTheViewRestingGlidingAndFading)
{
    const double travel = 100.0;
    struct Case { double t, offset, opacity; };
    for (const Case c : {Case{0.0, 0.0, 1.0}, Case{2.99, 0.0, 1.0}, Case{4.5, 50.0, 1.0}, Case{6.0, 100.0, 1.0},
                         Case{8.99, 100.0, 1.0}, Case{9.125, 100.0, 0.5}, Case{9.45, 0.0, 0.0},
                         Case{9.625, 0.0, 0.5}, Case{9.75 + 4.5, 50.0, 1.0}}) {
        const auto s = PlayerTitle::scrollStateAt(c.t, travel);
        EXPECT_NEAR(s.offset, c.offset, 0.5) << "at " << c.t;
        EXPECT_NEAR(s.opacity, c.opacity, 0.01) << "at " << c.t;
    }
    EXPECT_LT(PlayerTitle::scrollStateAt(4.0, travel).offset, 28.0) << "the glide eases in";

    FakePlayerTransport transport;
    PlayerTitle title;
    title.resize(400, 28);
    title.show();
    title.setTransport(&transport);
    transport.setSong("/x.flac", "Artist", "A song whose name is long enough to need a scroll here");
    ASSERT_GT(title.lineWidth(), 400);
    EXPECT_TRUE(title.isScrolling());
    title.resize(int(std::ceil(title.lineWidth())), 28);
    EXPECT_FALSE(title.isScrolling()) << "a line as wide as the view stands still";
    title.resize(title.width() - 1, 28);
    EXPECT_TRUE(title.isScrolling());

    transport.song.reset();
    emit transport.currentSongChanged();
    EXPECT_FALSE(title.isScrolling());
    const QImage empty = title.grab().toImage();
    EXPECT_EQ(empty.pixel(0, 14), qRgb(0, 0, 0));
    bool named = false; // the program's name stands in the middle of the empty line
    for (int x = empty.width() / 2 - 20; x < empty.width() / 2 + 20 && !named; ++x)
        for (int y = 4; y < 24 && !named; ++y)
            named = empty.pixel(x, y) != qRgb(0, 0, 0);
    EXPECT_TRUE(named);

    transport.setSong("/x.flac", "", "");
    EXPECT_EQ(title.artist(), "Unknown Artist");
}

// The mark names the first thing that alters the samples and tells the whole path in words; at
// the smallest player it is only a dot.
TEST(PlayerSignalMark, NamesWhatAltersTheSamplesAndShrinksToADot)
{
    VEKAudioDeviceFormat card;
    card.layers = {{u"card"_s, u"S24_3LE"_s, 44100, 2, 24, false}};
    const SignalPath::Source flac{u"FLAC"_s, 44100, 16, 2};
    SignalPath::Settings dithered;
    dithered.ditherEnabled = true;
    dithered.ditherDepth = 8;

    PlayerSignalMark mark;
    mark.resize(150, 36);
    EXPECT_FALSE(QAccessible::queryAccessibleInterface(&mark)->text(QAccessible::Description).size());
    mark.setPath(SignalPath::build(flac, {}, card));
    EXPECT_EQ(PlayerSignalMark::word(mark.path()), u"Bit-perfect"_s);
    mark.setPath(SignalPath::build(flac, dithered, card));
    EXPECT_EQ(PlayerSignalMark::word(mark.path()), u"Dithered"_s);
    const QString said = QAccessible::queryAccessibleInterface(&mark)->text(QAccessible::Description);
    EXPECT_TRUE(said.contains(u"8 bits"_s)) << said.toStdString();
    EXPECT_TRUE(mark.toolTip().contains(u"24-bit (S24_3LE), 44.1 kHz"_s)) << mark.toolTip().toStdString();

    EXPECT_GT(inkOf(&mark).right, 80) << "a pill with its word";
    mark.resize(38, 9);
    EXPECT_LT(inkOf(&mark).right, 9) << "a dot";
}

// The view grows a row per stage and says every stage in its description.
TEST(SignalPathView, GrowsAndSpeaksAStagePerChange)
{
    VEKAudioDeviceFormat card;
    card.layers = {{u"card"_s, u"S16_LE"_s, 48000, 2, 16, false}};
    const SignalPath::Source flac{u"FLAC"_s, 44100, 16, 2};
    SignalPathView view;
    const int empty = view.heightForWidth(400);
    SignalPath::Settings quiet;
    quiet.volume = 0.5;
    quiet.converter = u"soxr quick"_s;
    view.setPath(SignalPath::build(flac, quiet, card));
    // Song, conversion, volume, rounding to the card's 16 bits, device.
    EXPECT_GE(view.heightForWidth(400), empty + 5 * 40);
    const QString said = QAccessible::queryAccessibleInterface(&view)->text(QAccessible::Description);
    for (const char *part : {"44.1 kHz → 48 kHz, soxr quick", "Volume", "Rounding", "16-bit (S16_LE), 48 kHz",
                             "Not bit-perfect"})
        EXPECT_TRUE(said.contains(QString::fromUtf8(part))) << part << " in " << said.toStdString();
}
