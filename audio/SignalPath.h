#pragma once

#include "outputs/VEKAudioOutput.h"

#include <QList>
#include <QString>
#include <QStringList>

// What the audio goes through now, from the song's file to the device, and whether it reaches the
// device bit for bit. A plain value: the stream builds it on the main thread from the song, its
// settings and the format the device reported when it opened (Stream::signalPath()), and the
// front ends draw it.
//
// Only what changes samples is a stage: a converter that passes its song through, the volume at
// 1 or a dither that finds nothing to cut is not. One exception is told for truth's sake: a
// layer of ALSA beneath us that changes the word (plug, S32 to S24_3LE) is a stage even when it
// keeps every bit, but only one that loses something decides the verdict.
class SignalPath {
public:
    // The song as its file holds it.
    struct Source {
        QString codec; // "FLAC", "MP3"
        double sampleRate = 0.0;
        int bitsPerSample = 0; // 0 for a lossy codec, decoded to float
        int channels = 0;
        bool isLossy() const { return bitsPerSample <= 0; }
        bool operator==(const Source &) const = default;
    };

    enum class Kind {
        RateConversion, // fromRate to toRate with `name` (the converter)
        Volume,         // `gain`, linear, below 1
        Effect,         // `name`
        Headphones,     // crossfeed and the headphone equaliser
        Dim,
        Mute,
        Dither,     // to `bits`
        Rounding,   // to `bits` without dither, where the word we write is shorter than the signal
        DeviceLayer // ALSA layer `name` turns `fromFormat` into `toFormat`
    };
    struct Stage {
        Kind kind = Kind::Volume;
        QString name;
        double fromRate = 0.0;
        double toRate = 0.0;
        double gain = 1.0;
        int bits = 0;
        QString fromFormat;
        QString toFormat;
        // Whether the stage alters sample values (an ALSA layer may only repack them).
        bool changesSamples = true;

        // "Sample-rate conversion", "Volume", ...
        QString title() const;
        // "96 kHz → 44.1 kHz, soxr very high quality", "−6.0 dB", ...
        QString detail() const;
        bool operator==(const Stage &) const = default;
    };

    // The stream's state that decides the stages.
    struct Settings {
        double volume = 1.0;
        bool dim = false;
        bool mute = false;
        bool headphones = false;
        bool ditherEnabled = false;
        int ditherDepth = 16;
        QStringList effects; // the effects switched on, in slot order
        QString converter;   // the converter type's name
        bool operator==(const Settings &) const = default;
    };

    // Nothing playing: no source, no stages, not bit-perfect.
    SignalPath() = default;
    static SignalPath build(const Source &source, const Settings &settings,
                            const VEKAudioDeviceFormat &device);

    bool hasSong() const { return m_source.sampleRate > 0.0; }
    const Source &source() const { return m_source; }
    const QList<Stage> &stages() const { return m_stages; }
    // The device's format as read back when it opened; invalid while it is closed.
    const VEKAudioDeviceFormat &device() const { return m_device; }
    bool isBitPerfect() const { return m_bitPerfect; }
    // Why not, one sentence each, in the order of the path; empty when bit-perfect.
    const QStringList &reasons() const { return m_reasons; }

    // "FLAC 24-bit, 96 kHz, stereo"
    QString sourceText() const;
    // "S24_3LE, 44.1 kHz, 2 channels" of the layer nearest the hardware
    QString deviceText() const;
    // "Bit-perfect" or "Not bit-perfect: the sample rate is converted; ..." in one line.
    QString verdictText() const;

    // "44.1 kHz", "96 kHz"
    static QString rateText(double rate);

    bool operator==(const SignalPath &) const = default;

private:
    Source m_source;
    QList<Stage> m_stages;
    VEKAudioDeviceFormat m_device;
    bool m_bitPerfect = false;
    QStringList m_reasons;
};
