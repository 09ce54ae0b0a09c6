#include "VEKAudioDeviceMonitor.h"

#include "VEKAudioDevice.h"

#include <QDir>
#include <QFileInfo>

VEKAudioDeviceMonitor &VEKAudioDeviceMonitor::shared()
{
    // Never destroyed: devices may announce rate changes until the very end of the process.
    static VEKAudioDeviceMonitor *monitor = new VEKAudioDeviceMonitor(QStringLiteral("/dev/snd"));
    return *monitor;
}

VEKAudioDeviceMonitor::VEKAudioDeviceMonitor(const QString &deviceFolder, int settleMs, QObject *parent)
    : QObject(parent), m_folder(QDir::cleanPath(deviceFolder))
{
    m_settle.setSingleShot(true);
    m_settle.setInterval(settleMs);
    connect(&m_settle, &QTimer::timeout, this, &VEKAudioDeviceMonitor::settle);
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, [this] { m_settle.start(); });
    m_last = fingerprint();
    watch();
}

void VEKAudioDeviceMonitor::watch()
{
    const QStringList watched = m_watcher.directories();
    if (!watched.isEmpty())
        m_watcher.removePaths(watched);
    if (QFileInfo(m_folder).isDir())
        m_watcher.addPath(m_folder);
    else if (QFileInfo(QFileInfo(m_folder).path()).isDir())
        m_watcher.addPath(QFileInfo(m_folder).path());
}

void VEKAudioDeviceMonitor::settle()
{
    // The folder may have appeared or gone: watch what is there now.
    watch();
    const QStringList now = fingerprint();
    if (now == m_last)
        return; // another device node of the parent folder, or a change undone
    m_last = now;
    VEKAudioDevice::forgetProbedFactsOfAllDevices();
    emit devicesChanged();
}

QStringList VEKAudioDeviceMonitor::fingerprint() const
{
    return QDir(m_folder).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}
