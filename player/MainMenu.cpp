#include "MainMenu.h"

#include "app/ApplicationDelegate.h"
#include "core/VEKLocalizedString.h"
#include "settings/UserDefaults.h"

#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QEvent>
#include <QMenu>
#include <QMenuBar>
#include <QWidget>

namespace {
using A = MenuItem::Action;

// A volume key moves the knob by a twentieth.
constexpr double kVolumeStep = 0.05;

const char *const kFormatNames[] = {"AIFF", "WAVE", "CAF", "AAC", "Apple Lossless", "Ogg Vorbis", "FLAC"};

bool answers(QObject *object, const QByteArray &signature)
{
    return object && object->metaObject()->indexOfSlot(signature.constData()) >= 0;
}

// What the target says of the item; a target without the hook takes every command it has.
bool targetAllows(QObject *target, const QString &command, QAction *item)
{
    if (target->metaObject()->indexOfMethod("validateCommand(QString,QAction*)") < 0)
        return true;
    bool enabled = false;
    QMetaObject::invokeMethod(target, "validateCommand", Qt::DirectConnection, Q_RETURN_ARG(bool, enabled),
                              Q_ARG(QString, command), Q_ARG(QAction *, item));
    return enabled;
}
} // namespace

MainMenu::MainMenu(ApplicationDelegate *delegate, Windows *windows, QObject *parent)
    : QObject(parent), m_delegate(delegate), m_windows(windows)
{
    build();
    applyShortcuts();
    connect(&UserDefaults::standard(), &UserDefaults::valueChanged, this, [this](const QString &key) {
        if (key == shortcutsKey())
            applyShortcuts();
    });
    // Before the shortcut map looks for a match, Qt offers every key press as a
    // ShortcutOverride: the moment to bring the enabled states up to date.
    qApp->installEventFilter(this);
    validate();
}

MainMenu::~MainMenu()
{
    qApp->removeEventFilter(this);
    delete m_contextMenu;
    qDeleteAll(m_menus);
}

QMenu *MainMenu::addMenu(const char *titleKey)
{
    auto *menu = new QMenu(VEKLocalizedString(titleKey));
    menu->setObjectName(QString::fromLatin1(titleKey));
    connect(menu, &QMenu::aboutToShow, this, &MainMenu::validate);
    m_menus.append(menu);
    return menu;
}

QAction *MainMenu::addItem(QMenu *menu, const char *titleKey, MenuItem item, const QKeySequence &shortcut)
{
    QAction *a = menu->addAction(VEKLocalizedString(titleKey));
    a->setObjectName(QString::fromLatin1(titleKey));
    a->setShortcut(shortcut);
    m_defaultShortcuts.insert(a, shortcut);
    a->setShortcutContext(Qt::ApplicationShortcut);
    connect(a, &QAction::triggered, this, [this, a] { perform(a); });
    m_items.insert(a, std::move(item));
    m_actions.append(a);
    return a;
}

QAction *MainMenu::addItem(QMenu *menu, const char *titleKey, A action, const QKeySequence &shortcut)
{
    MenuItem item;
    item.action = action;
    return addItem(menu, titleKey, std::move(item), shortcut);
}

QAction *MainMenu::addWindowItem(QMenu *menu, const char *titleKey, const QKeySequence &shortcut,
                                 std::function<bool()> enabled, std::function<void()> run)
{
    QAction *a = addItem(menu, titleKey, A::Other, shortcut);
    m_windowItems.insert(a, {std::move(enabled), std::move(run)});
    return a;
}

QAction *MainMenu::addCommandItem(QMenu *menu, const char *titleKey, const char *slot,
                                  const QKeySequence &shortcut)
{
    const QString command = QString::fromLatin1(slot);
    QAction *item = addWindowItem(
        menu, titleKey, shortcut,
        [this, command, slot] {
            QObject *target = commandTarget(slot);
            return target && targetAllows(target, command, m_commandItems.value(command));
        },
        [slot] {
            if (QObject *target = commandTarget(slot))
                QMetaObject::invokeMethod(target, slot);
        });
    m_commandItems.insert(command, item);
    return item;
}

QObject *MainMenu::commandTarget(const char *slot)
{
    const QByteArray signature = QByteArray(slot) + "()";
    // The chain ends at the focused widget's window: another window's views are not in view.
    for (QWidget *w = QApplication::focusWidget(); w; w = w->isWindow() ? nullptr : w->parentWidget()) {
        QObject *controller = w->property("commandTarget").value<QObject *>();
        if (answers(controller, signature))
            return controller;
        if (answers(w, signature))
            return w;
    }
    return nullptr;
}

QAction *MainMenu::commandItem(const QString &slot) const
{
    return m_commandItems.value(slot);
}

QString MainMenu::createVersionTitle()
{
    const QVariantMap preferred =
        UserDefaults::standard().dictionaryForKey(QStringLiteral("preferredFormat"));
    const quint64 format = preferred.value(QStringLiteral("format")).toULongLong();
    const QString name = format < std::size(kFormatNames) ? QString::fromLatin1(kFormatNames[format])
                                                          : QStringLiteral("Unknown");
    return VEKLocalizedString("Commands_fileMenu_createVersion").arg(name);
}

void MainMenu::build()
{
    QMenu *app = addMenu("Commands_quivera");
    addItem(app, "Commands_about", A::OpenAbout);
    addItem(app, "Commands_credits", A::OpenCredits);
    app->addSeparator();
    addItem(app, "Commands_preferences", A::OpenPreferences, QKeySequence(Qt::CTRL | Qt::Key_Comma));
    MenuItem headphones;
    headphones.action = A::OpenPreferences;
    headphones.representedObject = QStringLiteral("HeadphonesPreferencesPane");
    addItem(app, "Commands_headphonesPreferences", headphones, {});
    app->addSeparator();
    addWindowItem(app, "Commands_quit", QKeySequence(Qt::CTRL | Qt::Key_Q), [] { return true; },
                  [this] { m_windows->quit(); });

    QMenu *file = addMenu("Commands_fileMenu");
    addItem(file, "Commands_fileMenu_newPlaylist", A::NewPlaylist, QKeySequence(Qt::CTRL | Qt::Key_N));
    addItem(file, "Commands_fileMenu_addToLibrary", A::AddToLibrary, QKeySequence(Qt::CTRL | Qt::Key_O));
    addItem(file, "Commands_fileMenu_rescan", A::Rescan);
    file->addSeparator();
    addCommandItem(file, "Commands_fileMenu_newPlaylistFromSelection", "newPlaylistFromSelection",
                   QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_N));
    addCommandItem(file, "Commands_fileMenu_getInfo", "getInfo", QKeySequence(Qt::CTRL | Qt::Key_I));
    addCommandItem(file, "Commands_fileMenu_showInFileManager", "showInFileManager",
                   QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_R));
    addCommandItem(file, "Commands_fileMenu_createVersion", "createPreferredVersion");
    file->addSeparator();
    addWindowItem(
        file, "Commands_fileMenu_close", QKeySequence(Qt::CTRL | Qt::Key_W),
        [] { return QApplication::activeWindow() != nullptr; },
        [] {
            if (QWidget *w = QApplication::activeWindow())
                w->close();
        });

    QMenu *edit = addMenu("Commands_editMenu");
    addCommandItem(edit, "Commands_editMenu_undo", "undo", QKeySequence::Undo);
    addCommandItem(edit, "Commands_editMenu_redo", "redo", QKeySequence::Redo);
    edit->addSeparator();
    addCommandItem(edit, "Commands_editMenu_cut", "cut", QKeySequence::Cut);
    addCommandItem(edit, "Commands_editMenu_copy", "copy", QKeySequence::Copy);
    addCommandItem(edit, "Commands_editMenu_paste", "paste", QKeySequence::Paste);
    // A text field with the focus keeps Delete for itself (it takes the key before shortcuts).
    addCommandItem(edit, "Commands_editMenu_delete", "deleteSelection", QKeySequence(Qt::Key_Delete));
    edit->addSeparator();
    addCommandItem(edit, "Commands_editMenu_selectAll", "selectAll", QKeySequence::SelectAll);
    addCommandItem(edit, "Commands_editMenu_selectNone", "selectNone",
                   QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_A));
    edit->addSeparator();
    addCommandItem(edit, "Commands_editMenu_rename", "rename", QKeySequence(Qt::Key_F2));

    QMenu *controls = addMenu("Commands_controlsMenu");
    addItem(controls, "Commands_controlsMenu_play", A::Play, QKeySequence(Qt::Key_Space));
    addItem(controls, "Commands_controlsMenu_next", A::Next, QKeySequence(Qt::CTRL | Qt::Key_Right));
    addItem(controls, "Commands_controlsMenu_previous", A::Previous, QKeySequence(Qt::CTRL | Qt::Key_Left));
    controls->addSeparator();
    addItem(controls, "Commands_controlsMenu_volumeUp", A::VolumeUp, QKeySequence(Qt::CTRL | Qt::Key_Up));
    addItem(controls, "Commands_controlsMenu_volumeDown", A::VolumeDown, QKeySequence(Qt::CTRL | Qt::Key_Down));
    addItem(controls, "Commands_controlsMenu_mute", A::ToggleMute)->setCheckable(true);
    addItem(controls, "Commands_controlsMenu_dim", A::ToggleDim)->setCheckable(true);
    controls->addSeparator();
    addItem(controls, "Commands_controlsMenu_shuffle", A::ToggleShuffle)->setCheckable(true);
    QMenu *repeat = controls->addMenu(VEKLocalizedString("Commands_controlsMenu_repeat"));
    connect(repeat, &QMenu::aboutToShow, this, &MainMenu::validate);
    auto *repeatGroup = new QActionGroup(repeat);
    const char *repeatKeys[] = {"Commands_controlsMenu_repeatOff", "Commands_controlsMenu_repeatAll",
                                "Commands_controlsMenu_repeatOne"};
    for (qint64 mode = 0; mode < 3; ++mode) {
        MenuItem item;
        item.action = A::RepeatChanged;
        item.tag = mode;
        QAction *a = addItem(repeat, repeatKeys[mode], item, {});
        a->setCheckable(true);
        repeatGroup->addAction(a);
    }
    controls->addSeparator();
    addItem(controls, "Commands_controlsMenu_enableEffects", A::ToggleEffectsEnabled);

    QMenu *view = addMenu("Commands_viewMenu");
    auto *sizeGroup = new QActionGroup(view);
    const char *sizeKeys[] = {"Commands_viewMenu_size0", "Commands_viewMenu_size1", "Commands_viewMenu_size2",
                              "Commands_viewMenu_size3", "Commands_viewMenu_miniPlayer"};
    for (qint64 size = 0; size < 5; ++size) {
        MenuItem item;
        item.action = A::ViewSizeChanged;
        item.tag = size;
        QAction *a = addItem(view, sizeKeys[size], item, {});
        a->setCheckable(true);
        sizeGroup->addAction(a);
    }
    view->addSeparator();
    m_columnsMenu = view->addMenu(VEKLocalizedString("Commands_viewMenu_columns"));
    connect(m_columnsMenu, &QMenu::aboutToShow, this, &MainMenu::validate);

    QMenu *window = addMenu("Commands_windowMenu");
    addWindowItem(
        window, "Commands_windowMenu_minimize", QKeySequence(Qt::CTRL | Qt::Key_M),
        [] { return QApplication::activeWindow() != nullptr; },
        [] {
            if (QWidget *w = QApplication::activeWindow())
                w->showMinimized();
        });
    window->addSeparator();
    addWindowItem(
        window, "Commands_windowMenu_player", {}, [this] { return m_windows->hasPlayerWindow(); },
        [this] { m_windows->showPlayer(); });
    addItem(window, "Commands_windowMenu_library", A::OpenLibrary, QKeySequence(Qt::CTRL | Qt::Key_L));

    QMenu *help = addMenu("Commands_helpMenu");
    addItem(help, "Commands_helpMenu_userGuide", A::OpenUserGuideAsPDF, QKeySequence::HelpContents);
    addItem(help, "Commands_helpMenu_userGuideBook", A::OpenUserGuideAsBook);

    m_contextMenu = new QMenu;
    for (QMenu *menu : std::as_const(m_menus))
        m_contextMenu->addMenu(menu);
    connect(m_contextMenu, &QMenu::aboutToShow, this, &MainMenu::validate);
}

QAction *MainMenu::addSongColumnItem(const QString &title, const QString &identifier)
{
    MenuItem item;
    item.action = A::ToggleSongColumn;
    item.representedObject = identifier;
    QAction *a = addItem(m_columnsMenu, "", item, {});
    a->setText(title);
    a->setCheckable(true);
    validate();
    return a;
}

void MainMenu::fillMenuBar(QMenuBar *bar) const
{
    for (QMenu *menu : m_menus)
        bar->addMenu(menu);
}

void MainMenu::attachTo(QWidget *window) const
{
    window->addActions(m_actions);
}

QAction *MainMenu::action(A action, qint64 tag) const
{
    for (auto it = m_items.cbegin(); it != m_items.cend(); ++it)
        if (it->action == action && it->tag == tag)
            return it.key();
    return nullptr;
}

bool MainMenu::windowAllows(const MenuItem &item) const
{
    // Items whose window is not there are disabled rather than doing nothing.
    switch (item.action) {
    case A::OpenLibrary: return m_windows->hasLibraryWindow();
    case A::ToggleSongColumn: return m_windows->hasLibraryWindow();
    case A::OpenPreferences: return m_windows->hasPreferences();
    case A::ViewSizeChanged:
        return item.tag > 3 ? m_windows->hasMiniPlayer() : m_windows->hasPlayerWindow();
    default: return true;
    }
}

void MainMenu::validate()
{
    if (QAction *create = m_commandItems.value(QStringLiteral("createPreferredVersion")))
        create->setText(createVersionTitle());
    m_columnsMenu->setEnabled(m_windows->hasLibraryWindow() && !m_columnsMenu->isEmpty());
    for (QAction *a : std::as_const(m_actions)) {
        const auto windowItem = m_windowItems.constFind(a);
        if (windowItem != m_windowItems.cend()) {
            a->setEnabled(windowItem->first());
            continue;
        }
        MenuItem item = m_items.value(a);
        const QString before = item.title;
        bool enabled = m_delegate->validateMenuItem(item) && windowAllows(item);
        if (item.action == A::ToggleSongColumn) {
            item.state = m_windows->hasLibraryWindow() && !m_windows->isSongColumnHidden(item.representedObject);
        }
        a->setEnabled(enabled);
        if (item.title != before && !item.title.isEmpty())
            a->setText(item.title);
        if (a->isCheckable())
            a->setChecked(item.state);
        a->setVisible(!item.hidden);
    }
}

void MainMenu::perform(QAction *a)
{
    // A shortcut can arrive between two validations only if nothing was pressed in between;
    // check again so that a stale enabled state never acts.
    validate();
    if (!a->isEnabled())
        return;
    if (const auto w = m_windowItems.constFind(a); w != m_windowItems.cend()) {
        w->second();
        return;
    }
    const MenuItem item = m_items.value(a);
    switch (item.action) {
    case A::OpenAbout: m_windows->openAbout(false); break;
    case A::OpenCredits: m_windows->openAbout(true); break;
    case A::OpenPreferences: m_windows->openPreferences(item.representedObject); break;
    case A::OpenUserGuideAsPDF: m_windows->openUserGuideAsPDF(); break;
    case A::OpenUserGuideAsBook: m_windows->openUserGuideAsBook(); break;
    case A::OpenLibrary: m_windows->openLibrary(); break;
    case A::NewPlaylist: m_delegate->newPlaylistWithSongs({}); break;
    case A::AddToLibrary: m_windows->addToLibrary(); break;
    case A::Rescan: m_delegate->rescan(); break;
    case A::ViewSizeChanged: m_windows->setPlayerSize(quint64(item.tag)); break;
    case A::ToggleSongColumn:
        m_windows->setSongColumnHidden(item.representedObject,
                                       !m_windows->isSongColumnHidden(item.representedObject));
        break;
    case A::Play: m_delegate->play(); break;
    case A::Next: m_delegate->next(); break;
    case A::Previous: m_delegate->previous(); break;
    case A::VolumeUp: m_delegate->changeVolume(kVolumeStep); break;
    case A::VolumeDown: m_delegate->changeVolume(-kVolumeStep); break;
    case A::ToggleDim: m_delegate->toggleDim(); break;
    case A::ToggleMute: m_delegate->toggleMute(); break;
    case A::RepeatChanged: m_delegate->setRepeatMode(quint64(item.tag)); break;
    case A::ToggleShuffle: m_delegate->toggleShuffle(); break;
    case A::ToggleEffectsEnabled: m_delegate->toggleEffectsEnabled(); break;
    case A::Other: break;
    }
    validate();
}

bool MainMenu::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::ShortcutOverride)
        validate();
    return QObject::eventFilter(watched, event);
}

QList<QAction *> MainMenu::commands() const
{
    QList<QAction *> named;
    for (QAction *a : m_actions)
        if (!a->objectName().isEmpty())
            named.append(a);
    return named;
}

void MainMenu::applyShortcuts()
{
    const QVariantMap chosen = UserDefaults::standard().dictionaryForKey(shortcutsKey());
    for (QAction *a : std::as_const(m_actions)) {
        const auto it = chosen.constFind(a->objectName());
        a->setShortcut(it == chosen.cend() || a->objectName().isEmpty()
                           ? m_defaultShortcuts.value(a)
                           : QKeySequence::fromString(it->toString(), QKeySequence::PortableText));
    }
}
