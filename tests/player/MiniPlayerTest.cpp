// The mini player: which stored sizes show it at start, its 2 dB volume steps, its two repeat
// buttons, the seeking of its thin bar and the limit of its drag under the top of the screen.

#include "FakePlayerTransport.h"

#include "player/MiniPlayerController.h"
#include "player/MiniPlayerPosition.h"
#include "player/MiniPlayerScrollingText.h"
#include "player/MiniPlayerWindow.h"
#include "player/PlayerButton.h"
#include "support/frontend/QuietLaunch.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

class MiniPlayerTest : public QuietLaunchTest {
protected:
    void SetUp() override
    {
        settings.setValue(u"playerCenter"_s, u"{400, 300}"_s);
        launch();
    }

    float volume() const { return float(settings.doubleForKey(u"volume"_s)); }

    std::unique_ptr<MiniPlayerController> mini;
};

} // namespace

TEST_F(MiniPlayerTest, EveryStoredSizeAboveThreeStartsWithTheMiniPlayerInsteadOfThePlayer)
{
    for (qint64 size : {0, 3, 4, 7}) {
        SCOPED_TRACE(size);
        settings.setValue(u"playerSize"_s, size);
        PlayerController player(*delegate);
        mini = std::make_unique<MiniPlayerController>(*delegate);
        EXPECT_EQ(mini->window()->isVisible(), size > 3);
        EXPECT_EQ(mini->artistText()->idleText(), u"Quivera"_s) << "no song: the name, not a blank";
        EXPECT_NE(player.window()->isVisible(), mini->window()->isVisible());
        // The hidden player stands at its full size about the kept centre.
        if (size > 3) {
            EXPECT_EQ(player.window()->geometry(), QRect(-800, 0, 2400, 600));
        }
        mini.reset();
    }
}

TEST_F(MiniPlayerTest, TheSizesSwitchBetweenTheTwoPlayersAtOneCentre)
{
    settings.setValue(u"playerSize"_s, 3);
    PlayerController player(*delegate);
    mini = std::make_unique<MiniPlayerController>(*delegate);
    for (quint64 size : {4, 1, 5}) {
        SCOPED_TRACE(size);
        player.setPlayerSize(size);
        mini->setPlayerSize(size);
        EXPECT_EQ(mini->window()->isVisible(), size > 3);
        EXPECT_EQ(mini->artistText()->idleText(), u"Quivera"_s) << "no song: the name, not a blank";
        EXPECT_NE(player.window()->isVisible(), mini->window()->isVisible());
    }
    EXPECT_EQ(mini->window()->frameCenter(), QPointF(400, 300));
    // Moving the mini player moves where the player comes back.
    mini->window()->move(mini->window()->pos() + QPoint(-100, 50));
    player.setPlayerSize(3);
    mini->setPlayerSize(3);
    EXPECT_EQ(player.window()->frameCenter(), QPointF(300, 350));
}

TEST_F(MiniPlayerTest, TheVolumeButtonsStepByTwoDecibelsAndReachSilence)
{
    mini = std::make_unique<MiniPlayerController>(*delegate);
    struct Step {
        float from;
        bool up;
        float to;
    };
    const Step steps[] = {
        {0.0f, true, 0.001f},          // out of silence
        {0.001f, true, 0.00125893f},   // +2 dB
        {0.001f, false, 0.0f},         // at the floor: silence
        {0.0011f, false, 0.00087375f}, // -2 dB
        {0.5f, false, 0.39716411f},
        {0.9f, true, 1.0f},            // held at full
        {0.0f, false, 0.0f},
    };
    for (const Step &s : steps) {
        settings.setValue(u"volume"_s, double(s.from));
        (s.up ? mini->volumeUpButton() : mini->volumeDownButton())->click();
        EXPECT_NEAR(volume(), s.to, 1e-7) << s.from << (s.up ? " up" : " down");
    }
    // With no knob in the window, the buttons tell the level.
    EXPECT_EQ(mini->volumeUpButton()->accessibleDescription(), u"Volume off"_s);
    settings.setValue(u"volume"_s, 0.5);
    EXPECT_EQ(mini->volumeDownButton()->accessibleDescription(), u"Volume -6.0 dB"_s);
}

TEST_F(MiniPlayerTest, EachRepeatButtonTurnsItsModeOnOrOffAndTheTwoAreNeverLitTogether)
{
    mini = std::make_unique<MiniPlayerController>(*delegate);
    ASSERT_TRUE(delegate->selectedPlaylist());
    delegate->setRepeatMode(1);
    EXPECT_TRUE(mini->repeatAllButton()->state());
    PlayerButton *one = mini->repeatOneButton(), *all = mini->repeatAllButton();
    for (const auto &[button, mode] : {std::pair{one, 2u}, {one, 0u}, {all, 1u}, {all, 0u}}) {
        SCOPED_TRACE(mode);
        button->click();
        EXPECT_EQ(delegate->repeatMode(), mode);
        EXPECT_EQ(one->state(), mode == 2);
        EXPECT_EQ(all->state(), mode == 1);
    }
}

TEST(MiniPlayerPosition, APressJumpsADragSeeksAndPlayPausesForTheGesture)
{
    FakePlayerTransport transport;
    transport.setSong(u"/a.flac"_s);
    transport.playing = true;
    MiniPlayerPosition bar;
    bar.resize(108, 8); // 100 pixels of travel
    bar.setTransport(&transport);

    sendMouse(&bar, QEvent::MouseButtonPress, QPointF(50, 4));
    EXPECT_FLOAT_EQ(transport.location, 0.5f);
    EXPECT_FALSE(transport.playing);
    // Grabbed 0 pixels into the knob now at 50: a move of 30 is 0.3 on.
    sendMouse(&bar, QEvent::MouseMove, QPointF(80, 4));
    EXPECT_FLOAT_EQ(transport.location, 0.8f);
    sendMouse(&bar, QEvent::MouseButtonRelease, QPointF(80, 4), Qt::NoButton);
    EXPECT_TRUE(transport.playing);

    // A press on the knob grabs it where it was taken, without a jump.
    transport.location = 0.2f;
    sendMouse(&bar, QEvent::MouseButtonPress, QPointF(26, 4));
    EXPECT_FLOAT_EQ(transport.location, 0.2f);
    sendMouse(&bar, QEvent::MouseMove, QPointF(36, 4));
    EXPECT_FLOAT_EQ(transport.location, 0.3f);
    sendMouse(&bar, QEvent::MouseButtonRelease, QPointF(36, 4), Qt::NoButton);
}

TEST(MiniPlayerWindow, ADragStopsUnderTheTopOfTheFreeAreaWhileXFollows)
{
    const QRect available(0, 32, 1920, 1048);
    const QPoint grab(40, 20);
    // 9 percent of 124 (11 pixels) may stand above the free area's top, no more.
    EXPECT_EQ(MiniPlayerWindow::dragOrigin(QPoint(500, 20), grab, available, 124), QPoint(460, 21));
    EXPECT_EQ(MiniPlayerWindow::dragOrigin(QPoint(500, 600), grab, available, 124), QPoint(460, 580));
    EXPECT_EQ(MiniPlayerWindow::dragOrigin(QPoint(-50, 2000), grab, available, 124), QPoint(-90, 1980));
}
