#include "WindowedApplication.h"

#include "app/MprisService.h"
#include "core/VEKLocalizedString.h"
#include "librarywindow/LibraryController.h"
#include "librarywindow/LibraryWindow.h"
#include "librarywindow/SongTableModel.h"
#include "player/AboutWindow.h"
#include "player/AddToLibraryDialog.h"
#include "player/MiniPlayerController.h"
#include "player/MiniPlayerWindow.h"
#include "player/PlayerArt.h"
#include "player/PlayerController.h"
#include "player/PlayerStyle.h"
#include "player/PlayerWindow.h"
#include "player/UserGuide.h"
#include "preferences/PreferencesController.h"
#include "preferences/PreferencesWindow.h"
#include "settings/UserDefaults.h"

#include <QApplication>
#include <QMenu>
#include <QMessageBox>
#include <QPalette>
#include <QProgressDialog>
#include <QPushButton>
#include <QScreen>

WindowedApplication::WindowedApplication(QObject *parent) : QObject(parent)
{
    VEKAlertPresenter::install(&m_alerts);
    // Every window, dialog and menu is dark like the player, whatever the desktop's theme.
    PlayerStyle::install();
    m_frontEnd.setAskAccessITunesLibraryHandler([this] { return askAccessITunesLibrary(); });
    connect(&m_frontEnd, &SignalFrontEnd::releaseWindowsRequested, this, &WindowedApplication::releaseWindows);
    connect(&m_frontEnd, &SignalFrontEnd::beginProgressRequested, this, &WindowedApplication::beginProgress);
    connect(&m_frontEnd, &SignalFrontEnd::setProgressRequested, this, &WindowedApplication::setProgress);
    connect(&m_frontEnd, &SignalFrontEnd::endProgressRequested, this, &WindowedApplication::endProgress);
}

WindowedApplication::~WindowedApplication()
{
    if (m_delegate && m_launched)
        terminate();
    VEKAlertPresenter::install(nullptr);
}

void WindowedApplication::launch(const ApplicationDelegate::LaunchOptions &options)
{
    // The defaults come before anything else reads a setting.
    const QScreen *screen = QGuiApplication::primaryScreen();
    ApplicationDelegate::registerDefaults(UserDefaults::standard(), screen ? QRectF(screen->geometry()) : QRectF());
    m_delegate = std::make_unique<ApplicationDelegate>(&m_frontEnd);
    m_delegate->applicationWillFinishLaunching(options);
    m_menu = std::make_unique<MainMenu>(m_delegate.get(), this);
    m_guide = std::make_unique<UserGuide>();
    connect(m_guide.get(), &UserGuide::pdfReady, this, [](const QString &path, const QString &problem) {
        if (path.isEmpty())
            VEKError(QStringLiteral("Quivera"), 0, VEKLocalizedString("Controller_userGuideFailed"), problem).alert();
    });
    createControllers();
    if (MprisService *mpris = m_delegate->mpris())
        mpris->setRaiseHandler([this] { showPlayer(); });
    m_launched = true;
    const QList<SingleInstance::Request> pending = std::exchange(m_pending, {});
    for (const SingleInstance::Request &request : pending)
        handle(request);
}

void WindowedApplication::createControllers()
{
    // The controllers, last of the launch: each reads a loaded library and a running stream.
    // The library window comes first here and the mini player after the player, when they
    // exist; each then answers its `has` question in the header and takes the main menu (the
    // library window as its menu bar).
    m_library = std::make_unique<LibraryController>(*m_delegate, m_menu.get());
    for (const QString &identifier : SongTableModel::identifiers())
        if (identifier != QLatin1String("ordinal") && identifier != QLatin1String("name"))
            m_menu->addSongColumnItem(VEKLocalizedString(QStringLiteral("SongTable_column_") + identifier),
                                      identifier);
    m_player = std::make_unique<PlayerController>(*m_delegate);
    m_mini = std::make_unique<MiniPlayerController>(*m_delegate);
    PreferencesController::Services services;
    services.stream = m_delegate->stream();
    services.menu = m_menu.get();
    services.rescan = [this] {
        if (m_delegate)
            m_delegate->rescan();
    };
    m_preferences = std::make_unique<PreferencesController>(UserDefaults::standard(), services);
    m_menu->attachTo(m_preferences->window());
    // The players are frameless and have no menu bar: their bare background opens the whole
    // menu, and the menu's keys work while either is shown.
    for (QWidget *window : {static_cast<QWidget *>(m_player->window()), static_cast<QWidget *>(m_mini->window())}) {
        m_menu->attachTo(window);
        window->setContextMenuPolicy(Qt::CustomContextMenu);
        connect(window, &QWidget::customContextMenuRequested, this, [this, window](const QPoint &at) {
            m_menu->contextMenu()->popup(window->mapToGlobal(at));
        });
    }
    m_menu->validate();
}

void WindowedApplication::terminate()
{
    if (!m_delegate)
        return;
    m_delegate->applicationWillTerminate();
    m_menu.reset();
    m_guide.reset();
    m_delegate.reset();
    m_launched = false;
}

void WindowedApplication::releaseWindows()
{
    // The mini player goes before the player, and the library window after it when it exists.
    m_preferences.reset();
    m_mini.reset();
    m_player.reset();
    m_library.reset();
    delete m_about;
    delete m_progress;
}

void WindowedApplication::handle(const SingleInstance::Request &request)
{
    if (!m_launched) {
        m_pending.append(request);
        return;
    }
    const QString &command = request.command;
    if (command == QLatin1String("open")) {
        m_delegate->applicationOpenFiles(request.paths);
        showPlayer();
    } else if (command == QLatin1String("play-pause")) {
        // As the media key: from a stop it starts the list in view rather than do nothing.
        if (MprisService *mpris = m_delegate->mpris())
            mpris->playPause();
        else
            m_delegate->play();
    } else if (command == QLatin1String("next")) {
        m_delegate->next();
    } else if (command == QLatin1String("previous")) {
        m_delegate->previous();
    } else if (command == QLatin1String("raise")) {
        showPlayer();
    }
}

void WindowedApplication::showPlayer()
{
    if (!m_player)
        return;
    const quint64 size = quint64(UserDefaults::standard().integerForKey(QStringLiteral("playerSize")));
    // Above 3 the mini player stands in for the player.
    if (size > 3 && m_mini) {
        m_mini->setPlayerSize(size);
        m_mini->window()->showNormal();
        return;
    }
    const QScreen *screen = QGuiApplication::primaryScreen();
    m_player->setPlayerSize(size <= 3 ? size
                                      : ApplicationDelegate::playerSizeForScreen(
                                            screen ? QRectF(screen->geometry()) : QRectF()));
    PlayerWindow *window = m_player->window();
    window->showNormal();
    window->raise();
    window->activateWindow();
}

QWidget *WindowedApplication::frontWindow() const
{
    return QApplication::activeWindow();
}

void WindowedApplication::openLibrary()
{
    if (!m_library)
        return;
    // Ctrl+L in the library itself means "to the search", as in a browser's address bar.
    const bool inFront = m_library->window()->isActiveWindow();
    m_library->open();
    if (inFront)
        m_library->focusSearch();
}

bool WindowedApplication::isSongColumnHidden(const QString &identifier) const
{
    return m_library && m_library->isHiddenForColumn(identifier);
}

void WindowedApplication::setSongColumnHidden(const QString &identifier, bool hidden)
{
    if (m_library)
        m_library->setIsHiddenForColumn(hidden, identifier);
}

void WindowedApplication::openAbout(bool credits)
{
    if (!m_about)
        m_about = new AboutWindow;
    m_about->setAttribute(Qt::WA_DeleteOnClose, false);
    m_about->showPage(credits ? AboutWindow::Page::Credits : AboutWindow::Page::About);
}

void WindowedApplication::openPreferences(const QString &pane)
{
    if (m_preferences)
        m_preferences->openPane(pane);
}

void WindowedApplication::openUserGuideAsPDF() { m_guide->openAsPdf(); }

void WindowedApplication::openUserGuideAsBook() { m_guide->openAsBook(frontWindow()); }

void WindowedApplication::addToLibrary()
{
    // The chooser stands on the library window, which comes up for it.
    if (m_library && !m_library->window()->isVisible())
        m_library->open();
    auto *dialog =
        new AddToLibraryDialog(m_library ? static_cast<QWidget *>(m_library->window()) : frontWindow());
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &QDialog::accepted, this, [this, dialog] {
        if (m_delegate)
            m_delegate->addFilesToLibrary(dialog->chosenPaths());
    });
    dialog->open();
}

void WindowedApplication::setPlayerSize(quint64 size)
{
    // Each player takes the size first, then it is kept.
    if (m_player)
        m_player->setPlayerSize(size);
    if (m_mini)
        m_mini->setPlayerSize(size);
    UserDefaults::standard().setValue(QStringLiteral("playerSize"), size);
}

void WindowedApplication::quit() { QCoreApplication::quit(); }

std::optional<bool> WindowedApplication::askAccessITunesLibrary()
{
    QMessageBox box;
    box.setIcon(QMessageBox::Question);
    box.setWindowTitle(QStringLiteral("Quivera"));
    box.setText(VEKLocalizedString("Controller_accessITunes_title"));
    box.setInformativeText(VEKLocalizedString("Controller_accessITunes_message"));
    QPushButton *yes = box.addButton(VEKLocalizedString("Controller_accessITunes_yes"), QMessageBox::AcceptRole);
    box.addButton(VEKLocalizedString("Controller_accessITunes_no"), QMessageBox::RejectRole);
    box.setDefaultButton(yes);
    box.exec();
    return box.clickedButton() == yes;
}

void WindowedApplication::beginProgress(const QString &title, double progress)
{
    if (!m_progress) {
        m_progress = new QProgressDialog(frontWindow());
        m_progress->setCancelButton(nullptr);
        m_progress->setMinimumDuration(0);
        m_progress->setWindowModality(Qt::ApplicationModal);
    }
    m_progress->setLabelText(title.isEmpty() ? VEKLocalizedString("Controller_rescanning") : title);
    setProgress(progress);
    m_progress->show();
}

void WindowedApplication::setProgress(double progress)
{
    if (!m_progress)
        return;
    // Below 0: a bar that only says something is going on.
    m_progress->setRange(0, progress < 0 ? 0 : 1000);
    if (progress >= 0)
        m_progress->setValue(int(progress * 1000));
    // The main thread is busy until the end: paint the panel now so it is seen.
    QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
}

void WindowedApplication::endProgress()
{
    if (m_progress)
        m_progress->deleteLater();
}
