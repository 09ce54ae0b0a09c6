#pragma once

#include <QFileSystemWatcher>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>

// Tells when the set of devices changes (a card plugged in or out) and when a device's rate was
// set. One per process through shared(), made and used on the main thread; its signals are
// delivered there.
//
// Cards are seen through the folder of their device nodes (/dev/snd): the folder is watched, and
// its parent while it does not exist, so the first card to arrive is seen too. Bursts of changes
// (a card brings several nodes) are told once.
class VEKAudioDeviceMonitor : public QObject {
    Q_OBJECT
public:
    static VEKAudioDeviceMonitor &shared();

    // A monitor of another folder (tests). `settleMs` is how long a burst of changes may last.
    explicit VEKAudioDeviceMonitor(const QString &deviceFolder, int settleMs = 250,
                                   QObject *parent = nullptr);

signals:
    void devicesChanged();
    // The device `uid` will open at `rate` from now on.
    void sampleRateChanged(const QString &uid, double rate);

private:
    void watch();
    void settle();
    QStringList fingerprint() const;

    QString m_folder;
    QFileSystemWatcher m_watcher;
    QTimer m_settle;
    QStringList m_last;
};
