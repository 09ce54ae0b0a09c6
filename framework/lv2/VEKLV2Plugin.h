#pragma once

#include "core/VEKError.h"
#include "rt/VEKAudioBufferList.h"

#include <QString>
#include <QVariantMap>
#include <QtGlobal>

#include <atomic>
#include <memory>
#include <vector>

// One LV2 effect, ready to process stereo float audio: the engine behind an effect slot.
//
// A mono plugin runs as two instances, one per channel, sharing their control values; a stereo
// plugin runs once; a plugin with other audio channel counts is refused at create(). Everything
// is allocated by create() for the sample rate and the largest block given there; a change of
// rate needs a new object (fromSettings(settings(), newRate, ...) keeps the values).
//
// Threads:
// - create(), fromSettings(), activate(), deactivate(), reset(), settings() and the destructor:
//   main thread (any one non-render thread at a time). activate(), deactivate() and reset() must
//   not overlap process(): call them while the stream is stopped.
// - process(): the render thread only. It never allocates, locks, logs or waits.
// - setValue(), value(), setEnabled(), isEnabled(), latency(): any thread. A value set reaches
//   the plugin at the start of the next block process() runs.
class VEKLV2Plugin {
public:
    struct ScalePoint {
        float value = 0;
        QString label;
    };

    // A control port as a generic editor shows it. Ranges are in the plugin's units, already
    // multiplied by the sample rate for ports that ask for it.
    struct ControlPort {
        quint32 portIndex = 0; // the plugin's own port index
        QString symbol;        // stable key of the value in settings
        QString name;
        float minimum = 0;
        float maximum = 1;
        float defaultValue = 0;
        bool output = false;   // a value the plugin reports (a meter, the latency), not a setting
        bool toggled = false;  // on (1) or off (0)
        bool integer = false;  // whole numbers only
        bool enumeration = false; // only the scale points are meaningful
        bool logarithmic = false; // a slider should move on a log scale
        bool isLatency = false;
        QString unit;            // the unit's symbol ("dB", "Hz", "ms"); empty when none is given
        std::vector<ScalePoint> scalePoints; // labelled values, by increasing value
    };

    ~VEKLV2Plugin();
    VEKLV2Plugin(const VEKLV2Plugin &) = delete;
    VEKLV2Plugin &operator=(const VEKLV2Plugin &) = delete;

    // Instantiates the plugin with this URI for `sampleRate` and blocks of at most
    // `maximumFrames` (larger blocks given to process() are cut into pieces of that size).
    // Control inputs start at their defaults; the plugin starts inactive. Null with `error`
    // filled (VEKLV2World::ErrorCode) when the URI is unknown, the plugin cannot run here (the
    // reason names the channel counts, feature or port kind), or the plugin refuses to start.
    static std::unique_ptr<VEKLV2Plugin> create(const QString &uri, double sampleRate,
                                                quint32 maximumFrames, VEKError *error = nullptr);

    // The same plugin with the same values as when `settings` was taken: the URI, `enabled`,
    // every control value by symbol and the plugin's own state. A description from
    // VEKLV2World also works (defaults, enabled). Symbols the plugin no longer has are skipped
    // and values are clamped to the ranges; a map without a URI, with values of the wrong kind,
    // or with state the plugin cannot take back fails with CorruptSettings or StateFailed.
    static std::unique_ptr<VEKLV2Plugin> fromSettings(const QVariantMap &settings, double sampleRate,
                                                      quint32 maximumFrames,
                                                      VEKError *error = nullptr);

    // Keys: "uri" (string), "name" (string), "enabled" (bool), "controls" (map of symbol to
    // double, every control input), and "state" (string: the plugin's state as Turtle text)
    // for plugins with the state extension. Property-list friendly throughout.
    QVariantMap settings() const;

    QString uri() const;
    QString name() const;
    double sampleRate() const;
    quint32 maximumFrames() const;
    // 1 for a plugin that runs as one instance per channel, 2 for a stereo plugin.
    quint32 pluginChannels() const;
    quint32 numberOfInstances() const;
    bool hasState() const;

    // Control inputs and outputs, in port order. Indexes into this list are what the index
    // overloads below take.
    const std::vector<ControlPort> &controlPorts() const;
    // -1 when there is no such symbol.
    int controlIndex(const QString &symbol) const;

    // Sets a control input, clamped to its range (toggles to 0 or 1, integers rounded). False
    // for an unknown symbol, an index out of range or an output port.
    bool setValue(int index, float value);
    bool setValue(const QString &symbol, float value);
    // A control input's value as last set, or an output's value after the last block. NaN for an
    // unknown symbol or index.
    float value(int index) const;
    float value(const QString &symbol) const;

    // A disabled effect passes audio unchanged (the plugin is not run).
    void setEnabled(bool enabled);
    bool isEnabled() const;

    // The plugin runs only between activate() and deactivate(); before, process() passes audio
    // unchanged. reset() clears the plugin's memory (delay lines, envelopes) by deactivating
    // and activating it again; values are kept.
    void activate();
    void deactivate();
    void reset();
    bool isActive() const;

    // The delay the plugin reports, in frames, after the last block; 0 without a latency port.
    quint32 latency() const;

    // Processes `frames` frames of two channels from `input` to `output`, which may be the same
    // buffers. False (output untouched) for a null pointer; otherwise true, also when the effect
    // is disabled or inactive, in which case the input is copied through.
    bool process(const float *const input[2], float *const output[2], quint32 frames);
    // In place on a two-channel list, over its valid frames. False (list untouched) for a list
    // with another number of channels.
    bool process(VEKAudioBufferList &list);

private:
    VEKLV2Plugin();
    struct Impl;
    std::unique_ptr<Impl> d;
    // Render-side copies of the values, written by setValue() and read at each block.
    std::unique_ptr<std::atomic<float>[]> m_values;
    std::atomic<bool> m_enabled{true};
    std::atomic<bool> m_active{false};
};
