#pragma once

#include "PreferencesPane.h"

#include <QHash>
#include <QKeySequence>

class MainMenu;
class QAction;
class QKeySequenceEdit;
class QLabel;
class QTableWidget;

// The keys of the menu commands: one row per command, grouped by menu, each with an editor of
// its key (Backspace clears it). A key already used by another command is refused with a
// message; a key taken is stored in `keyboardShortcuts` (command name to key, empty for none; a
// command at its built-in key has no entry), which the menu applies at once.
class CommandsPreferencesPane : public PreferencesPane {
    Q_OBJECT
public:
    CommandsPreferencesPane(UserDefaults &defaults, MainMenu *menu, QWidget *parent = nullptr);

    QString name() const override { return QStringLiteral("CommandsPreferencesPane"); }
    QString title() const override { return QStringLiteral("Commands"); }
    QString subtitle() const override;
    QString iconName() const override { return QStringLiteral("commands"); }
    void paneWillBecomeFront() override;

    // The editor of a command, by the command's name (tests).
    QKeySequenceEdit *editor(const QString &command) const;
    // What the pane last said (a refused key), or empty.
    QString message() const;
    // Takes `key` for `command` as if typed into its editor: stored, or refused when another
    // command has it. True when stored.
    bool assign(QAction *command, const QKeySequence &key);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    static void showPrompt(QKeySequenceEdit *editor);
    void build();
    void restoreDefaults();

    MainMenu *m_menu;
    QTableWidget *m_table;
    QLabel *m_message;
    QHash<QAction *, QKeySequenceEdit *> m_editors;
};
