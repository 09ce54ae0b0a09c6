#include "audio/Stream.h"
#include "graph/VEKAudioProcessor.h"
#include "player/PlayerButton.h"
#include "player/PlayerImage.h"
#include "player/PlayerLabel.h"
#include "remote/Remote.h"
#include "support/frontend/QuietLaunch.h"

#include <QMenu>
#include <QTest>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

const QString kAmp = u"http://plugin.org.uk/swh-plugins/amp"_s;

class PlayerControllerTest : public QuietLaunchTest {
protected:
    void SetUp() override
    {
        launch();
        ASSERT_TRUE(delegate->stream());
    }

    void makePlayer() { player = std::make_unique<PlayerController>(*delegate); }

    // Opens the menu from the popup of `slot` as a click does (the button's signal, then the
    // menu's validation) and chooses the item `pick` finds; false when that item is disabled.
    bool choose(int slot, QAction *(*pick)(QMenu *))
    {
        PlayerButton *popup = player->effectPopup(slot);
        emit popup->willTrackMenu(popup);
        emit popup->menu()->aboutToShow();
        QAction *item = pick(popup->menu());
        if (!item || !item->isEnabled())
            return false;
        item->trigger();
        return true;
    }
    static QAction *removeItem(QMenu *menu) { return menu->actions().last(); }
    static QAction *ampItem(QMenu *menu)
    {
        for (QAction *maker : menu->actions())
            if (maker->menu())
                for (QAction *item : maker->menu()->actions())
                    if (item->data().toMap().value(u"uri"_s).toString() == kAmp)
                        return item;
        return nullptr;
    }

    std::unique_ptr<PlayerController> player;
};

} // namespace

TEST_F(PlayerControllerTest, TheFourSizesStandAboutTheKeptCentre)
{
    // The offscreen screen is 800 by 600.
    settings.setValue(u"playerCenter"_s, u"{500, 400}"_s);
    settings.setValue(u"playerSize"_s, 2);
    makePlayer();
    PlayerWindow *w = player->window();
    EXPECT_TRUE(w->isVisible());
    EXPECT_EQ(w->geometry(), QRect(-100, 250, 1200, 300));

    const QSize sizes[] = {{2400, 600}, {1800, 450}, {1200, 300}, {600, 150}};
    for (quint64 size : {0, 3, 1, 2}) {
        SCOPED_TRACE(size);
        player->setPlayerSize(size);
        EXPECT_EQ(w->size(), sizes[size]);
        EXPECT_EQ(w->frameCenter(), QPointF(500, 400));
    }
    // A drag on the bare panel moves the window (here by hand: the offscreen platform has no
    // move of its own), and the place is kept as the new centre, in top-left coordinates.
    QWidget *panel = w->childAt(30, 150);
    ASSERT_TRUE(panel);
    const QPoint from = panel->mapFrom(w, QPoint(30, 150));
    QTest::mousePress(panel, Qt::LeftButton, {}, from);
    QTest::mouseMove(panel, from + QPoint(200, -50));
    QTest::mouseRelease(panel, Qt::LeftButton, {}, from + QPoint(200, -50));
    EXPECT_EQ(w->pos(), QPoint(100, 200));
    EXPECT_EQ(settings.stringForKey(u"playerCenter"_s), u"{700, 350}"_s);

    // Above 3 the mini player stands instead: this window hides and keeps its frame.
    player->setPlayerSize(4);
    EXPECT_FALSE(w->isVisible());
    EXPECT_EQ(w->geometry(), QRect(100, 200, 1200, 300));
}

TEST_F(PlayerControllerTest, ACentreOnNoScreenFallsBackToTheDefault)
{
    settings.setValue(u"playerCenter"_s, u"{5000, 5000}"_s);
    settings.setValue(u"playerSize"_s, 3);
    makePlayer();
    // Two thirds of the way up the registered 1920 by 1080 screen (the launch's formula, in Qt's
    // coordinates that grow downwards).
    EXPECT_EQ(player->window()->frameCenter(), QPointF(960, 360));
    EXPECT_EQ(settings.stringForKey(u"playerCenter"_s), u"{960, 360}"_s);
}

TEST_F(PlayerControllerTest, TheEffectsMenuActsOnTheSlotWhosePopupOpenedIt)
{
    makePlayer();
    Stream *stream = delegate->stream();
    EXPECT_FALSE(player->effectButton(1)->isEnabled());

    // Slot 1 is empty: nothing to remove there.
    EXPECT_FALSE(choose(1, removeItem));

    ASSERT_TRUE(choose(1, ampItem));
    ASSERT_TRUE(stream->processorAtIndex(1));
    EXPECT_FALSE(stream->processorAtIndex(0));
    EXPECT_FALSE(stream->processorAtIndex(2));
    EXPECT_TRUE(player->effectButton(1)->isEnabled());
    EXPECT_TRUE(player->effectEnableButton(1)->state());

    ASSERT_TRUE(choose(2, ampItem));
    ASSERT_TRUE(stream->processorAtIndex(2));

    // The editor of slot 2's effect opens once, and goes when its effect is removed.
    player->editEffect(2);
    player->editEffect(2);
    ASSERT_EQ(player->editors().size(), 1);
    EXPECT_TRUE(choose(2, removeItem));
    EXPECT_FALSE(stream->processorAtIndex(2));
    EXPECT_TRUE(stream->processorAtIndex(1)) << "the menu acted on another slot than its popup's";
    EXPECT_TRUE(player->editors().isEmpty());
    EXPECT_FALSE(player->effectButton(2)->isEnabled());
}

TEST_F(PlayerControllerTest, ThePositionTextFormatIsKeptAcrossRestarts)
{
    makePlayer();
    PlayerLabel *text = player->positionText();
    EXPECT_EQ(text->text(), u"0:00"_s);
    QTest::mouseClick(text, Qt::LeftButton, {}, text->rect().center());
    EXPECT_EQ(text->text(), u"-0:00"_s) << "remaining time shows at once, with its sign";

    player.reset();
    makePlayer();
    EXPECT_TRUE(player->positionTextFormat());
    EXPECT_EQ(player->positionText()->text(), u"-0:00"_s);
}

TEST_F(PlayerControllerTest, TheRemoteMarkShowsOnlyWhileAClientIsConnected)
{
    makePlayer();
    auto *mark = player->window()->findChild<PlayerImage *>();
    ASSERT_TRUE(mark);
    EXPECT_TRUE(mark->isHidden());
    Remote::sharedInstance()->setConnected(true);
    EXPECT_FALSE(mark->isHidden());
    Remote::sharedInstance()->setConnected(false);
    EXPECT_TRUE(mark->isHidden());
}
