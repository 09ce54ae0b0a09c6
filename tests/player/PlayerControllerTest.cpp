#include "audio/Stream.h"
#include "graph/VEKAudioProcessor.h"
#include "player/PlayerButton.h"
#include "player/PlayerImage.h"
#include "player/PlayerLabel.h"
#include "remote/Remote.h"
#include "support/frontend/QuietLaunch.h"

#include <QApplication>
#include <QMenu>
#include <QTest>
#include <QTimer>
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

    // Opens the popup of `slot` and chooses the item `pick` returns from the menu it shows.
    void choose(int slot, const std::function<QAction *(QMenu *)> &pick)
    {
        bool chosen = false;
        QTimer::singleShot(0, [&] {
            auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
            if (QAction *item = menu ? pick(menu) : nullptr) {
                chosen = item->isEnabled();
                menu->close();
                if (chosen)
                    item->trigger();
            }
        });
        PlayerButton *popup = player->effectPopup(slot);
        QTest::mouseClick(popup, Qt::LeftButton, {}, popup->rect().center());
        TestEnvironment::waitUntil([&] { return !QApplication::activePopupWidget(); }, 2000);
        lastChoiceEnabled = chosen;
    }

    QAction *removeItem(QMenu *menu) { return menu->actions().last(); }
    QAction *ampItem(QMenu *menu)
    {
        for (QAction *maker : menu->actions())
            if (maker->menu())
                for (QAction *item : maker->menu()->actions())
                    if (item->data().toMap().value(u"uri"_s).toString() == kAmp)
                        return item;
        return nullptr;
    }

    std::unique_ptr<PlayerController> player;
    bool lastChoiceEnabled = false;
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
    choose(1, [&](QMenu *m) { return removeItem(m); });
    EXPECT_FALSE(lastChoiceEnabled);

    choose(1, [&](QMenu *m) { return ampItem(m); });
    ASSERT_TRUE(stream->processorAtIndex(1));
    EXPECT_FALSE(stream->processorAtIndex(0));
    EXPECT_FALSE(stream->processorAtIndex(2));
    EXPECT_TRUE(player->effectButton(1)->isEnabled());
    EXPECT_TRUE(player->effectEnableButton(1)->state());

    choose(2, [&](QMenu *m) { return ampItem(m); });
    ASSERT_TRUE(stream->processorAtIndex(2));

    // The editor of slot 2's effect opens once, and goes when its effect is removed.
    player->editEffect(2);
    player->editEffect(2);
    ASSERT_EQ(player->editors().size(), 1);
    choose(2, [&](QMenu *m) { return removeItem(m); });
    EXPECT_TRUE(lastChoiceEnabled);
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
