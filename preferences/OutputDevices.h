#pragma once

#include "outputs/VEKAudioDevice.h"

#include <QList>
#include <QString>
#include <QStringList>

// What the Output and Advanced panes show of the machine's devices: a plain copy, made off the
// main thread (asking ALSA opens every PCM), so the panes never wait on it.
struct OutputDevices {
    struct Device {
        QString uid;
        QString title;
        // Its selectable outputs; with two or more the popup offers them in its place.
        QList<VEKAudioDeviceSource> sources;
    };
    QList<Device> devices;

    // The device the stream plays on, and what it offers.
    QString currentUID;
    QList<double> currentRates;
    bool exclusiveSupported = false;
    bool exclusive = false;
    // The program that configures the device in use, with its arguments; empty when none is
    // installed.
    QStringList mixerCommand;

    // As the Advanced pane shows it: 3 when exclusive use is not possible, 2 while it is on.
    int exclusivity() const { return !exclusiveSupported ? 3 : exclusive ? 2 : 0; }
    const Device *device(const QString &uid) const
    {
        for (const Device &d : devices)
            if (d.uid == uid)
                return &d;
        return nullptr;
    }
};
