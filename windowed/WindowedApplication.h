#pragma once

#include "app/ApplicationDelegate.h"
#include "app/SignalFrontEnd.h"
#include "app/SingleInstance.h"
#include "player/MainMenu.h"
#include "player/MessageBoxAlertPresenter.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <memory>
#include <optional>

class AboutWindow;
class LibraryController;
class MiniPlayerController;
class PlayerController;
class PreferencesController;
class QProgressDialog;
class UserGuide;

// The windowed program: the launch with windows, the requests of later starts, the menus'
// window commands and the shutdown. One per process, made after the QApplication.
//
// The window controllers come last in the launch, when the library is loaded and the stream
// runs, and go in the shutdown after the library file and before the stream. The player window
// and the mini player are made in createControllers() (the library window and the preferences
// join them there) and answer the `has` questions of the menu, which keeps the items of a window
// that is not there disabled.
class WindowedApplication : public QObject, public MainMenu::Windows {
    Q_OBJECT
public:
    explicit WindowedApplication(QObject *parent = nullptr);
    ~WindowedApplication() override;

    // Registers the defaults against the primary screen, runs the delegate's launch (the
    // iTunes question is a modal box, asked once per user), then makes the menu and the
    // controllers and shows the player.
    void launch(const ApplicationDelegate::LaunchOptions &options = {});
    // The delegate's shutdown, which releases the windows at their place in it.
    void terminate();

    // A request of a later start (or of this one's command line): files are imported and the
    // player comes to the front; transport commands act as the media keys do. Requests that
    // arrive while the launch runs wait for its end.
    void handle(const SingleInstance::Request &request);

    ApplicationDelegate *delegate() const { return m_delegate.get(); }
    MainMenu *mainMenu() const { return m_menu.get(); }

    // MainMenu::Windows
    bool hasPlayerWindow() const override { return m_player != nullptr; }
    bool hasLibraryWindow() const override { return m_library != nullptr; }
    bool hasMiniPlayer() const override { return m_mini != nullptr; }
    bool hasPreferences() const override { return m_preferences != nullptr; }
    void showPlayer() override;
    // Brings the library window forward; asked again while it is in front, it goes to the search.
    void openLibrary() override;
    void openPreferences(const QString &pane) override;
    void openAbout(bool credits) override;
    void openUserGuideAsPDF() override;
    void openUserGuideAsBook() override;
    void addToLibrary() override;
    void setPlayerSize(quint64 size) override;
    bool isSongColumnHidden(const QString &identifier) const override;
    void setSongColumnHidden(const QString &identifier, bool hidden) override;
    void quit() override;

    PlayerController *playerController() const { return m_player.get(); }
    MiniPlayerController *miniPlayerController() const { return m_mini.get(); }
    PreferencesController *preferencesController() const { return m_preferences.get(); }
    LibraryController *libraryController() const { return m_library.get(); }

private:
    // What the core asks of the windows, through the front end's signals.
    std::optional<bool> askAccessITunesLibrary();
    void releaseWindows();
    void beginProgress(const QString &title, double progress);
    void setProgress(double progress);
    void endProgress();

    void createControllers();
    // The window in front, for dialogs to stand on.
    QWidget *frontWindow() const;

    MessageBoxAlertPresenter m_alerts;
    SignalFrontEnd m_frontEnd;
    std::unique_ptr<ApplicationDelegate> m_delegate;
    std::unique_ptr<MainMenu> m_menu;
    std::unique_ptr<UserGuide> m_guide;
    // The window controllers.
    std::unique_ptr<PlayerController> m_player;
    std::unique_ptr<MiniPlayerController> m_mini;
    std::unique_ptr<PreferencesController> m_preferences;
    std::unique_ptr<LibraryController> m_library;
    QPointer<AboutWindow> m_about;
    QPointer<QProgressDialog> m_progress;
    bool m_launched = false;
    QList<SingleInstance::Request> m_pending;
};
