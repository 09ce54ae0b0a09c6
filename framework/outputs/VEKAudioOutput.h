#pragma once

#include "core/VEKError.h"
#include "rt/VEKAudioBufferList.h"

#include <QList>
#include <QString>
#include <QtGlobal>
#include <functional>

// The format an output plays at. The graph always renders 32-bit float; `bitDepth` is the
// integer word length at the device (16, 24 or 32), which the dither works towards, or 32 with
// `isFloat` for a device that takes float samples.
struct VEKAudioFormat {
    double sampleRate = 44100.0;
    quint32 numberOfChannels = 2;
    quint32 bitDepth = 24;
    bool isFloat = false;
    bool operator==(const VEKAudioFormat &) const = default;
};

// What a device says it was opened with, read back from it after opening rather than taken from
// what we asked for. A PCM may be a chain (ALSA's plug converting, a file tee): `layers` holds
// each stage from the one we write to down to the one nearest the hardware.
struct VEKAudioDeviceFormat {
    struct Layer {
        QString name;         // "Plug PCM", "Hardware PCM card 0 ..."
        QString sampleFormat; // ALSA's name of the word ("S24_3LE", "FLOAT_LE")
        double sampleRate = 0.0;
        quint32 numberOfChannels = 0;
        // Bits that carry the signal (ALSA's msbits): 24 for S24_LE in 32-bit words.
        quint32 significantBits = 0;
        bool isFloat = false;
        bool operator==(const Layer &) const = default;
    };
    QList<Layer> layers;

    bool isValid() const { return !layers.isEmpty(); }
    // The layer nearest the hardware: what the device really plays.
    const Layer &hardware() const { return layers.last(); }
    bool operator==(const VEKAudioDeviceFormat &) const = default;
};

// A running connection to a device: a thread of its own that asks the graph for buffers and
// hands them to the device. One small interface per backend (ALSA, null, capture).
//
// Threads: open(), start(), stop() and close() on the main thread (or the thread that owns the
// stream). The render callback runs on the output's own thread, the render thread: it must not
// allocate, lock, log or wait.
class VEKAudioOutput {
public:
    // Fills `buffer` (already sized to framesPerBuffer() frames and format().numberOfChannels
    // channels) with the next block; `sampleTime` counts frames since start().
    using RenderCallback = std::function<void(VEKAudioBufferList &buffer, quint64 sampleTime)>;

    virtual ~VEKAudioOutput() = default;

    // Opens the device for `requested`. A sampleRate of 0 asks for the device's current rate.
    // The device may settle on another format; format() tells what it settled on:
    //  - ALSA: the requested rate if the device offers it, else the nearest it offers (never
    //    resampled by ALSA); the highest integer depth the device takes (32 > 24 > 16), or float
    //    when `isFloat` is asked and offered; the requested channel count or the nearest.
    //  - null: exactly what was asked (integer depths rounded up to 16, 24 or 32).
    //  - capture: the same, unless the device's UID fixes the depth.
    // Reopening an open output closes it first. False with `error` when the device cannot be
    // opened at all or takes no sample format we can write.
    virtual bool open(const VEKAudioFormat &requested, quint32 framesPerBuffer, VEKError *error) = 0;
    virtual VEKAudioFormat format() const = 0;
    // The device's own record of the format while open (ALSA: the PCM's current hardware
    // parameters, layer by layer); backends with no record of their own describe format(). An
    // invalid one when closed. Main thread, like open().
    virtual VEKAudioDeviceFormat deviceFormat() const;
    virtual quint32 framesPerBuffer() const = 0;

    // Starts the render thread. Returns at once. False if the output is not open.
    virtual bool start(RenderCallback callback, VEKError *error) = 0;
    // Stops the render thread and waits for it; harmless when stopped. After stop() returns the
    // callback is not called again. The output stays open and can start again.
    virtual void stop() = 0;
    // True from start() to stop(); false once the render thread gave up because the device
    // failed for good (unplugged), which a devices-changed notification follows.
    virtual bool isRunning() const = 0;
    // Releases the device (stopping first); harmless when closed.
    virtual void close() = 0;

    // Frames the device has consumed since start(): written, minus what still waits in the
    // device's buffer where the device can tell. For position reporting. Any thread.
    virtual quint64 framesPlayed() const = 0;
};
