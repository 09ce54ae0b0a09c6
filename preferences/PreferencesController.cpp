#include "PreferencesController.h"

#include "AdvancedPreferencesPane.h"
#include "CommandsPreferencesPane.h"
#include "GeneralPreferencesPane.h"
#include "HeadphonesPreferencesPane.h"
#include "ITunesPreferencesPane.h"
#include "OutputDeviceProbe.h"
#include "OutputPreferencesPane.h"
#include "PreferencesPane.h"
#include "PreferencesWindow.h"
#include "PreferredFormatPreferencesPane.h"
#include "player/SignalPathView.h"
#include "settings/UserDefaults.h"

PreferencesController::PreferencesController(UserDefaults &defaults, Services services, QObject *parent)
    : QObject(parent), m_window(std::make_unique<PreferencesWindow>())
{
    m_probe = new OutputDeviceProbe(services.stream, services.probeDevices, this);
    m_panes = {
        new GeneralPreferencesPane(defaults),
        new CommandsPreferencesPane(defaults, services.menu),
        new PreferredFormatPreferencesPane(defaults),
        new ITunesPreferencesPane(defaults, services.rescan),
        new OutputPreferencesPane(defaults, m_probe),
        new HeadphonesPreferencesPane(defaults),
        new AdvancedPreferencesPane(defaults, m_probe, services.stream),
    };
    for (PreferencesPane *pane : std::as_const(m_panes))
        m_window->addPane(pane);
    if (auto *output = qobject_cast<OutputPreferencesPane *>(pane(QStringLiteral("OutputPreferencesPane")));
        output && services.stream) {
        auto *view = new SignalPathView;
        view->setEmbedded(true);
        view->setStream(services.stream);
        output->setSignalPathView(view);
    }
    connect(m_window.get(), &PreferencesWindow::paneChosen, this, &PreferencesController::bringToFront);
    m_window->showPane(0);
}

PreferencesController::~PreferencesController() = default;

PreferencesPane *PreferencesController::pane(const QString &name) const
{
    for (PreferencesPane *pane : m_panes)
        if (pane->name() == name)
            return pane;
    return nullptr;
}

PreferencesPane *PreferencesController::currentPane() const
{
    return m_panes.value(m_window->currentIndex());
}

void PreferencesController::bringToFront(int index)
{
    if (index < 0 || index >= m_panes.size())
        return;
    m_window->showPane(index);
    m_panes[index]->paneWillBecomeFront();
}

void PreferencesController::openPane(const QString &name)
{
    // ALSA is asked about the devices from the first opening on, not at every start.
    m_probe->activate();
    int index = m_window->currentIndex();
    if (PreferencesPane *named = pane(name))
        index = int(m_panes.indexOf(named));
    bringToFront(index);
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
}
