// The preferences as the program makes them: the panes in their order behind the menu's items,
// and the Commands pane, whose keys the menu takes at once and where a key in use is refused.

#include "preferences/PreferencesWindow.h"
#include "player/MainMenu.h"
#include "preferences/CommandsPreferencesPane.h"
#include "preferences/PreferencesController.h"
#include "preferences/PreferencesPane.h"
#include "support/frontend/QuietLaunch.h"

#include <QAction>
#include <QKeySequenceEdit>
#include <QLineEdit>
#include <QScreen>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using A = MenuItem::Action;

namespace {

using PreferencesWindowTest = QuietWindowedTest;

TEST_F(PreferencesWindowTest, TheHeadphonesItemOpensItsPaneAmongTheSevenInOrder)
{
    ASSERT_TRUE(app.preferencesController());
    QStringList names;
    for (PreferencesPane *pane : app.preferencesController()->panes())
        names << pane->name();
    EXPECT_EQ(names, (QStringList{u"GeneralPreferencesPane"_s, u"CommandsPreferencesPane"_s,
                                  u"PreferredFormatPreferencesPane"_s, u"iTunesPreferencesPane"_s,
                                  u"OutputPreferencesPane"_s, u"HeadphonesPreferencesPane"_s,
                                  u"AdvancedPreferencesPane"_s}));
    for (QAction *item : app.mainMenu()->commands())
        if (item->objectName() == u"Commands_headphonesPreferences"_s)
            item->trigger();
    EXPECT_TRUE(app.preferencesController()->window()->isVisible());
    const QWidget *window = app.preferencesController()->window();
    EXPECT_LE(window->height(), window->screen()->availableGeometry().height()) << "fits the screen";
    EXPECT_EQ(app.preferencesController()->currentPane()->name(), u"HeadphonesPreferencesPane"_s);
    // The plain item keeps the pane in front.
    app.mainMenu()->action(A::OpenPreferences)->trigger();
    EXPECT_EQ(app.preferencesController()->currentPane()->name(), u"HeadphonesPreferencesPane"_s);
}

TEST_F(PreferencesWindowTest, AKeyIsTakenAtOnceUnlessAnotherCommandHasIt)
{
    auto *pane = static_cast<CommandsPreferencesPane *>(
        app.preferencesController()->pane(u"CommandsPreferencesPane"_s));
    QAction *next = app.mainMenu()->action(A::Next);
    const QKeySequence before = next->shortcut();
    const auto stored = [] { return UserDefaults::standard().dictionaryForKey(MainMenu::shortcutsKey()); };

    EXPECT_FALSE(pane->assign(next, QKeySequence(Qt::CTRL | Qt::Key_N)));
    EXPECT_TRUE(pane->message().contains(u"New Playlist"_s)) << pane->message().toStdString();
    EXPECT_EQ(next->shortcut(), before);
    EXPECT_EQ(pane->editor(next->objectName())->keySequence(), before);

    QKeySequenceEdit *editor = pane->editor(next->objectName());
    editor->setKeySequence(QKeySequence(Qt::CTRL | Qt::Key_J));
    emit editor->editingFinished();
    EXPECT_EQ(next->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_J));
    EXPECT_EQ(stored().value(next->objectName()).toString(), u"Ctrl+J"_s);
    editor->setKeySequence(QKeySequence(Qt::Key_Backspace));
    emit editor->editingFinished();
    EXPECT_TRUE(next->shortcut().isEmpty());
    EXPECT_TRUE(editor->findChild<QLineEdit *>()->placeholderText().isEmpty()) << "no prompt down the column";
    // The old key is free again, and back at the built-in key the entry goes.
    QAction *previous = app.mainMenu()->action(A::Previous);
    EXPECT_TRUE(pane->assign(previous, before));
    EXPECT_TRUE(pane->assign(previous, QKeySequence(Qt::CTRL | Qt::Key_Left)));
    EXPECT_FALSE(stored().contains(previous->objectName()));
}

} // namespace
