#include "CommandsPreferencesPane.h"

#include "PreferencesSection.h"
#include "player/MainMenu.h"
#include "settings/UserDefaults.h"

#include <QAction>
#include <QEvent>
#include <QHeaderView>
#include <QKeySequenceEdit>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QTableWidget>

CommandsPreferencesPane::CommandsPreferencesPane(UserDefaults &defaults, MainMenu *menu, QWidget *parent)
    : PreferencesPane(defaults, parent), m_menu(menu)
{
    PreferencesSection *keys = addSection(QString());
    m_table = new QTableWidget(0, 2, this);
    m_table->setObjectName(QStringLiteral("commandsTable"));
    m_table->setAccessibleName(QStringLiteral("Commands and their keys"));
    m_table->setHorizontalHeaderLabels({QStringLiteral("COMMAND"), QStringLiteral("KEY")});
    m_table->verticalHeader()->hide();
    m_table->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    m_table->horizontalHeader()->setSectionResizeMode(1, QHeaderView::Fixed);
    m_table->horizontalHeader()->resizeSection(1, 220);
    m_table->horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    m_table->setSelectionMode(QAbstractItemView::NoSelection);
    m_table->setFocusPolicy(Qt::NoFocus);
    m_table->setShowGrid(false);
    m_table->setMinimumHeight(520);
    m_table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    m_table->verticalHeader()->setDefaultSectionSize(34);
    keys->addWide(m_table);
    m_message = new QLabel(this);
    m_message->setObjectName(QStringLiteral("PreferencesMessage"));
    m_message->setAccessibleName(QStringLiteral("Message"));
    auto *restore = new QPushButton(QStringLiteral("Restore Defaults"), this);
    restore->setObjectName(QStringLiteral("restoreDefaultsButton"));
    keys->addRow(
        QString(), {m_message, restore},
        QStringLiteral("Click a key and press the new one; Backspace leaves the command without one. "
                       "A key can serve one command only."));
    finishLayout();
    connect(restore, &QPushButton::clicked, this, &CommandsPreferencesPane::restoreDefaults);
    build();
}

QString CommandsPreferencesPane::subtitle() const
{
    return QStringLiteral("The keys of the menu commands. They work in every window of the player.");
}

void CommandsPreferencesPane::build()
{
    if (!m_menu)
        return;
    QString lastMenu;
    for (QAction *command : m_menu->commands()) {
        auto *menu = qobject_cast<QMenu *>(command->parent());
        const QString menuTitle = menu ? menu->title() : QString();
        int row = m_table->rowCount();
        if (menuTitle != lastMenu) {
            lastMenu = menuTitle;
            m_table->insertRow(row);
            auto *heading = new QTableWidgetItem(menuTitle);
            QFont font = heading->font();
            font.setBold(true);
            heading->setFont(font);
            heading->setForeground(QColor(0x6f, 0x89, 0xa6));
            heading->setFlags(Qt::ItemIsEnabled);
            m_table->setItem(row, 0, heading);
            m_table->setSpan(row, 0, 1, 2);
            ++row;
        }
        m_table->insertRow(row);
        auto *title = new QTableWidgetItem(QStringLiteral("    ") + command->text().remove(u'&'));
        title->setFlags(Qt::ItemIsEnabled);
        m_table->setItem(row, 0, title);
        auto *editor = new QKeySequenceEdit(m_table);
        editor->setObjectName(command->objectName());
        if (auto *line = editor->findChild<QLineEdit *>())
            line->installEventFilter(this);
        showPrompt(editor);
        // The editor puts its own prompt back each time a key is set.
        connect(editor, &QKeySequenceEdit::keySequenceChanged, this, [editor] { showPrompt(editor); });
        editor->setAccessibleName(command->text().remove(u'&'));
        m_table->setCellWidget(row, 1, editor);
        m_editors.insert(command, editor);
        connect(editor, &QKeySequenceEdit::editingFinished, this, [this, command, editor] {
            // One chord per command: the first one typed. Backspace or Delete alone clears it.
            const QKeySequence typed = editor->keySequence();
            const QKeyCombination first = typed.isEmpty() ? QKeyCombination() : typed[0];
            const bool clears =
                first == QKeyCombination(Qt::Key_Backspace) || first == QKeyCombination(Qt::Key_Delete);
            assign(command, typed.isEmpty() || clears ? QKeySequence() : QKeySequence(first));
        });
    }
}

void CommandsPreferencesPane::showPrompt(QKeySequenceEdit *editor)
{
    // A command without a key shows an empty box; the prompt comes only in the box being set,
    // not down the whole column.
    if (auto *line = editor->findChild<QLineEdit *>())
        line->setPlaceholderText(line->hasFocus() ? QStringLiteral("Press a key") : QString());
}

bool CommandsPreferencesPane::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::FocusIn || event->type() == QEvent::FocusOut)
        if (auto *editor = qobject_cast<QKeySequenceEdit *>(watched->parent()))
            showPrompt(editor);
    return PreferencesPane::eventFilter(watched, event);
}

QKeySequenceEdit *CommandsPreferencesPane::editor(const QString &command) const
{
    for (auto it = m_editors.cbegin(); it != m_editors.cend(); ++it)
        if (it.key()->objectName() == command)
            return it.value();
    return nullptr;
}

QString CommandsPreferencesPane::message() const
{
    return m_message->text();
}

bool CommandsPreferencesPane::assign(QAction *command, const QKeySequence &key)
{
    m_message->clear();
    if (!key.isEmpty()) {
        for (QAction *other : m_menu->commands()) {
            if (other != command && other->shortcut() == key) {
                m_message->setText(
                    QStringLiteral("%1 is already the key of “%2”.")
                        .arg(key.toString(QKeySequence::NativeText), other->text().remove(u'&')));
                paneWillBecomeFront();
                return false;
            }
        }
    }
    QVariantMap keys = defaults().dictionaryForKey(MainMenu::shortcutsKey());
    if (key == m_menu->defaultShortcut(command))
        keys.remove(command->objectName());
    else
        keys.insert(command->objectName(), key.toString(QKeySequence::PortableText));
    defaults().setValue(MainMenu::shortcutsKey(), keys);
    paneWillBecomeFront();
    return true;
}

void CommandsPreferencesPane::restoreDefaults()
{
    m_message->clear();
    defaults().removeValue(MainMenu::shortcutsKey());
    paneWillBecomeFront();
}

void CommandsPreferencesPane::paneWillBecomeFront()
{
    // The menu applied the setting already; the editors show the keys in force.
    for (auto it = m_editors.cbegin(); it != m_editors.cend(); ++it) {
        const QSignalBlocker quiet(it.value());
        it.value()->setKeySequence(it.key()->shortcut());
        showPrompt(it.value());
    }
}
