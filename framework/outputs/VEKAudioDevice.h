#pragma once

#include "VEKAudioDeviceMonitor.h"
#include "VEKAudioOutput.h"
#include "core/VEKError.h"

#include <QList>
#include <QString>
#include <memory>

class VEKAudioDevice;
using VEKAudioDevicePtr = std::shared_ptr<VEKAudioDevice>;

// A selectable output of a device (a jack, a digital output). May be empty for a device.
// `sourceID` stays the same across runs for the same control of the same card.
struct VEKAudioDeviceSource {
    quint32 sourceID = 0;
    QString title;
    bool enabled = false;
};

// An output device of the machine. ALSA devices have their PCM name as UID ("hw:CARD=PCH,DEV=0",
// "default", "pipewire"); beside them stand "null" (a device that keeps real time and plays
// nothing) and "capture:/path/file.wav" (writes what it gets to a WAV file, for offline renders
// and tests; options after '?', joined by '&': "fast" renders as fast as the graph can instead of
// in real time, "bits=16|24|32" or "float" fix the file's sample format, else it takes what the
// output is opened with).
//
// One object per UID while anyone holds it: deviceWithUID() hands out the same object, so the
// rate and exclusivity set through one reference are those of the device.
//
// Threads: the main thread, except where noted. Errors: domain "VEKAudioDevice"; `code` is the
// negative ALSA/errno status for a failure of the system, or 'who?' (0x77686F3F) for a property
// the device does not have.
class VEKAudioDevice {
public:
    virtual ~VEKAudioDevice() = default;

    // A device object, also for a device that is gone or never was (then isValid() is false).
    static VEKAudioDevicePtr deviceWithUID(const QString &uid);
    // The device that got `deviceID` in this run; an invalid device for any other number
    // (numbers from other machines' settings mean nothing here).
    static VEKAudioDevicePtr deviceWithID(qint64 deviceID);
    // The system's default output: "default" when ALSA has one that opens, else "null".
    static VEKAudioDevicePtr defaultOutputDevice(VEKError *error = nullptr);
    // Every device with outputs: ALSA's hinted playback PCMs in ALSA's order, "null" last.
    // On an ALSA failure, `error` is set and the list holds "null" alone.
    static QList<VEKAudioDevicePtr> outputDevices(VEKError *error = nullptr);

    // The rates devices are asked about, and that null and capture devices offer.
    static const QList<double> &commonSampleRates();

    // Forgets what was learnt by probing (rates, hardware names) on every live device, since a
    // card came or went. VEKAudioDeviceMonitor calls it before it tells the world.
    static void forgetProbedFactsOfAllDevices();

    virtual bool isValid() const = 0;
    virtual bool hasPhysicalOutputs() const = 0;
    virtual QString UID(VEKError *error = nullptr) const = 0;
    // Numeric identifier, valid while the program runs.
    virtual qint64 deviceID() const = 0;
    virtual QString title(VEKError *error = nullptr) const = 0;
    // The rate the next output opens at: the last one set, else the device's preferred one
    // (44100 if offered, else 48000, else its first). 0 with `error` if the device can't say.
    virtual double sampleRate(VEKError *error = nullptr) const = 0;
    // The rates it offers without resampling, exactly, ascending.
    virtual QList<double> availableSampleRates(VEKError *error = nullptr) const = 0;
    // A rate not on offer is refused with an error and changes nothing. A change is announced
    // through VEKAudioDeviceMonitor::sampleRateChanged; an output already open keeps its rate
    // until it is opened again.
    virtual bool setSampleRate(double rate, VEKError *error = nullptr) = 0;
    // Exclusive use (direct hardware access, no mixing, no conversion): the next output opens
    // the card's hw device. A device without the notion fails with code 'who?' (0x77686F3F)
    // either way.
    virtual bool setIsExclusive(bool exclusive, VEKError *error = nullptr) = 0;
    virtual bool isExclusive() const = 0;
    // Whether setIsExclusive() can succeed on this device.
    virtual bool supportsExclusive() const = 0;
    virtual QList<VEKAudioDeviceSource> outputSources(VEKError *error = nullptr) const = 0;
    virtual bool setSourceEnabled(quint32 sourceID, bool enabled, VEKError *error = nullptr) = 0;

    // False for a device that takes audio as fast as it is rendered (a capture file in "fast"
    // mode): nobody listens in real time, so rendering into it may wait for the disk.
    virtual bool rendersInRealTime() const { return true; }

    // A new, closed output on this device, at its current rate and exclusivity.
    virtual std::unique_ptr<VEKAudioOutput> createOutput() = 0;

    static constexpr qint64 unknownPropertyCode = 0x77686F3F; // 'who?'

protected:
    // Drops cached probe results; the next question asks the system again.
    virtual void forgetProbedFacts() {}
    // The number deviceID() returns for `uid`, the same for the whole run.
    static qint64 idForUID(const QString &uid);
};
