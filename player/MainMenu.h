#pragma once

#include "app/MenuItem.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QKeySequence>
#include <QString>
#include <functional>

class ApplicationDelegate;
class QAction;
class QActionGroup;
class QMenu;
class QMenuBar;
class QWidget;

// The program's main menu: Quivera, File, Edit, Controls, View, Window and Help, with the
// commands of the delegate and of the windows. One per process, owned by the windowed
// application.
//
// The same seven menus serve as a context menu of the frameless player window and as the menu
// bar of the library window. Their shortcuts work in every window of the program that carries
// them (attachTo), and the validation runs each time a menu opens and before any key could
// trigger a shortcut, so a disabled item's shortcut does nothing. Main thread only.
//
// The commands of the File and Edit menus that act on what the user is looking at (a song
// table, the playlist sidebar, a text field) go to a responder chain: starting at the widget
// with the keyboard focus, each widget and then the controller it names, up to its window, is
// asked in turn; the first that has the command's slot answers. A widget names its controller
// with the dynamic property "commandTarget" (a QObject *), so a controller that is no widget
// still takes its view's commands. The answering object:
//   - implements the command as a public slot without arguments, named as below;
//   - may implement `Q_INVOKABLE bool validateCommand(const QString &command, QAction *item)`,
//     asked each time a menu opens and before a shortcut acts, with the slot's name: its answer
//     enables the item (it may set the check mark). Without it an item it answers is enabled.
//     It runs on every key press, so it must cost no more than a glance at the selection.
// With no answering object the item is disabled. The command slots:
//   File: newPlaylistFromSelection, getInfo (Ctrl+I), showInFileManager, createPreferredVersion
//         (its title, "Create FORMAT Version", comes from the preferred format here)
//   Edit: undo, redo, cut, copy, paste, deleteSelection (Delete), selectAll, selectNone,
//         rename (F2)
class MainMenu : public QObject {
    Q_OBJECT
public:
    // What the menu asks of the windows. A window that does not exist yet answers false to its
    // `has` question, and the items that need it stay disabled.
    class Windows {
    public:
        virtual ~Windows() = default;
        virtual bool hasPlayerWindow() const = 0;
        virtual bool hasLibraryWindow() const = 0;
        virtual bool hasMiniPlayer() const = 0;
        virtual bool hasPreferences() const = 0;
        virtual void showPlayer() = 0;
        virtual void openLibrary() = 0;
        virtual void openPreferences(const QString &pane) = 0;
        virtual void openAbout(bool credits) = 0;
        virtual void openUserGuideAsPDF() = 0;
        virtual void openUserGuideAsBook() = 0;
        // Asks for files and folders and imports them.
        virtual void addToLibrary() = 0;
        // Each player takes the size; then it is stored.
        virtual void setPlayerSize(quint64 size) = 0;
        // The library window's own answer for a column of the song table.
        virtual bool isSongColumnHidden(const QString &identifier) const = 0;
        virtual void setSongColumnHidden(const QString &identifier, bool hidden) = 0;
        virtual void quit() = 0;
    };

    MainMenu(ApplicationDelegate *delegate, Windows *windows, QObject *parent = nullptr);
    ~MainMenu() override;

    // The seven menus, in order.
    const QList<QMenu *> &menus() const { return m_menus; }
    // One menu holding the seven as submenus: the player window's context menu.
    QMenu *contextMenu() const { return m_contextMenu; }
    // Puts the seven menus into a window's menu bar.
    void fillMenuBar(QMenuBar *bar) const;
    // Lets the shortcuts work while `window` (or any other window of the program) is active,
    // as long as `window` is shown.
    void attachTo(QWidget *window) const;
    // A column of the song table for the View menu; the library window adds its own.
    QAction *addSongColumnItem(const QString &title, const QString &identifier);

    // Runs the validation on every item now.
    void validate();

    // The commands whose keys the user may change: every item with a name of its own, in the
    // order of the menus. Their keys are the built-in ones overlaid with the setting
    // `keyboardShortcuts` (item name to a key sequence in portable text, empty for none), applied
    // as soon as the setting changes.
    QList<QAction *> commands() const;
    QKeySequence defaultShortcut(QAction *command) const { return m_defaultShortcuts.value(command); }
    static QString shortcutsKey() { return QStringLiteral("keyboardShortcuts"); }
    void applyShortcuts();
    // The item that sends `action` (with `tag` where several do); null if there is none.
    QAction *action(MenuItem::Action action, qint64 tag = 0) const;
    // The item of a responder-chain command, by its slot name (see above); null if none.
    QAction *commandItem(const QString &slot) const;
    // The object that answers `slot` for the focused widget now, or null.
    static QObject *commandTarget(const char *slot);
    // "Create FORMAT Version", FORMAT being the name of the preferred format's "format" number.
    static QString createVersionTitle();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QMenu *addMenu(const char *titleKey);
    QAction *addItem(QMenu *menu, const char *titleKey, MenuItem item, const QKeySequence &shortcut);
    QAction *addItem(QMenu *menu, const char *titleKey, MenuItem::Action action,
                     const QKeySequence &shortcut = {});
    QAction *addCommandItem(QMenu *menu, const char *titleKey, const char *slot,
                            const QKeySequence &shortcut = {});
    QAction *addWindowItem(QMenu *menu, const char *titleKey, const QKeySequence &shortcut,
                           std::function<bool()> enabled, std::function<void()> run);
    void build();
    void perform(QAction *action);
    bool windowAllows(const MenuItem &item) const;

    ApplicationDelegate *m_delegate;
    Windows *m_windows;
    QList<QMenu *> m_menus;
    QMenu *m_contextMenu = nullptr;
    QMenu *m_columnsMenu = nullptr;
    QHash<QAction *, MenuItem> m_items;
    // The items that act on the front end alone (edit, window): when enabled, what they do.
    QHash<QAction *, std::pair<std::function<bool()>, std::function<void()>>> m_windowItems;
    QList<QAction *> m_actions;
    QHash<QAction *, QKeySequence> m_defaultShortcuts;
    QHash<QString, QAction *> m_commandItems;
};
