#pragma once

#include "VEKAudioOutput.h"
#include "core/VEKError.h"

#include <QList>
#include <QObject>
#include <QString>
#include <memory>

class VEKAudioDevice;
using VEKAudioDevicePtr = std::shared_ptr<VEKAudioDevice>;

// A selectable output of a device (a jack, a digital output). May be empty for a device.
struct VEKAudioDeviceSource {
    quint32 sourceID = 0;
    QString title;
    bool enabled = false;
};

// An output device of the machine. ALSA devices have their PCM name as UID ("hw:CARD=PCH,DEV=0",
// "default", "pipewire"); beside them stand "null" (a device that keeps real time and plays
// nothing) and "capture:/path/file.wav" (writes what it gets to a WAV file; with the suffix
// "?fast" as fast as the graph renders, for offline renders and tests).
//
// Threads: the main thread, except where noted.
class VEKAudioDevice {
public:
    virtual ~VEKAudioDevice() = default;

    // A device object, also for a device that is gone (then isValid() is false).
    static VEKAudioDevicePtr deviceWithUID(const QString &uid);
    // The system's default output ("default" when ALSA has one, else "null").
    static VEKAudioDevicePtr defaultOutputDevice(VEKError *error = nullptr);
    // Every device with outputs, ALSA's first, "null" last.
    static QList<VEKAudioDevicePtr> outputDevices(VEKError *error = nullptr);

    virtual bool isValid() const = 0;
    virtual bool hasPhysicalOutputs() const = 0;
    virtual QString UID(VEKError *error = nullptr) const = 0;
    // Numeric identifier, valid while the program runs.
    virtual qint64 deviceID() const = 0;
    virtual QString title(VEKError *error = nullptr) const = 0;
    // The rate the device runs at now (the last one set, or its preferred one).
    virtual double sampleRate(VEKError *error = nullptr) const = 0;
    // The rates it offers, exactly.
    virtual QList<double> availableSampleRates(VEKError *error = nullptr) const = 0;
    // A rate not on offer is refused with an error.
    virtual bool setSampleRate(double rate, VEKError *error = nullptr) = 0;
    // Exclusive use (direct hardware access, no mixing). A device without the notion fails
    // with code 'who?' (0x77686F3F).
    virtual bool setIsExclusive(bool exclusive, VEKError *error = nullptr) = 0;
    virtual bool isExclusive() const = 0;
    virtual QList<VEKAudioDeviceSource> outputSources(VEKError *error = nullptr) const = 0;
    virtual bool setSourceEnabled(quint32 sourceID, bool enabled, VEKError *error = nullptr) = 0;

    // A new output on this device, at its current rate and exclusivity.
    virtual std::unique_ptr<VEKAudioOutput> createOutput() = 0;

    static constexpr qint64 unknownPropertyCode = 0x77686F3F; // 'who?'
};

// Tells when the set of devices changes (a card plugged in or out). One per process, on the main
// thread.
class VEKAudioDeviceMonitor : public QObject {
    Q_OBJECT
public:
    static VEKAudioDeviceMonitor &shared();
signals:
    void devicesChanged();

protected:
    using QObject::QObject;
};
