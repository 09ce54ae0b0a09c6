#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <functional>
#include <memory>

class MainMenu;
class OutputDeviceProbe;
class PreferencesPane;
class PreferencesWindow;
class Stream;
class UserDefaults;

// The preferences panel: its window and the seven panes in their order (General, Commands,
// Preferred format, iTunes, Output, Headphones, Advanced). Made on first use and kept for the
// run; the panes hold nothing beyond their controls, since what counts is in the store. Main
// thread only.
class PreferencesController : public QObject {
    Q_OBJECT
public:
    // What the panes reach beyond the store; any of it may be absent (tests), and the panes
    // then leave out what needs it.
    struct Services {
        Stream *stream = nullptr;     // the device in use, exclusive use
        MainMenu *menu = nullptr;     // the commands and their keys
        std::function<void()> rescan; // rereads or drops the iTunes library
        bool probeDevices = true;     // ask ALSA for the devices (off in tests that give their own)
    };

    PreferencesController(UserDefaults &defaults, Services services, QObject *parent = nullptr);
    ~PreferencesController() override;

    // Shows the window with the pane of that class name in front; an empty or unknown name keeps
    // the pane that was in front last (the first one at first).
    void openPane(const QString &name = {});
    const QList<PreferencesPane *> &panes() const { return m_panes; }
    PreferencesPane *pane(const QString &name) const;
    PreferencesPane *currentPane() const;
    PreferencesWindow *window() const { return m_window.get(); }
    OutputDeviceProbe *deviceProbe() const { return m_probe; }

private:
    void bringToFront(int index);

    std::unique_ptr<PreferencesWindow> m_window;
    OutputDeviceProbe *m_probe = nullptr;
    QList<PreferencesPane *> m_panes;
};
