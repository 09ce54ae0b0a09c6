#pragma once

#include "CrossfeedEngine.h"

#include "graph/VEKAudioProcessor.h"

#include <memory>

// The headphone processor of the stream: crossfeed, tone and channel tricks (CrossfeedEngine) on
// the two channels of its chain, at the output connection's rate.
//
// Settings, the record "headphonesProcessorSettings", one key per parameter. A missing key keeps
// its value, so a partial record is a legal change.
//   enabled                          boolean: process at all (the processor's own enabled flag;
//                                    false at creation). Off, the audio passes bit for bit and the
//                                    engine is not called.
//   speakerAngle                     number, clamped to 0..60
//   crossfeedAmount                  number, below 0 counts as 0, 1.5 or above as 1.5
//   crossfeedType                    number, 0 counts as 1, above 3 as 3
//   crossfeedClipProtectionEnabled   boolean
//   trebleFrequency, bassFrequency   number, hertz, taken as they are (5000 and 250 at creation)
//   treble, bass                     number, gain clamped to -6..6
//   eqClipProtectionEnabled          boolean
//   mono, swapped, outOfPhase        boolean
//   solo                             number: 0 both channels, 1 the first, 2 the second; above 2
//                                    counts as 2
// Only these spellings: "trebleFreqency"/"bassFreqency" are not keys of this processor.
//
// Threads. Everything but render() runs on the main thread. setSettings() hands the record to
// the engine through its lock-free slot; render() reads the enabled flag once per buffer.
class HeadphonesProcessor : public VEKAudioProcessor {
    Q_OBJECT
public:
    explicit HeadphonesProcessor(QObject *parent = nullptr);
    ~HeadphonesProcessor() override;

    // Sets the initial values (disabled, type 1, both clip protections on, 5000 and 250 Hz).
    bool init(VEKError *error) override;
    // False, with a log line and `error` untouched, when the output connection is not two
    // channels wide (or missing); false with `error` when the engine refuses the rate. Otherwise
    // conforms the input to the output and makes the engine at the output's rate with the
    // current settings.
    bool initializeForRender(VEKError *error) override;
    // Clears the engine's filters and delay lines; the settings stay.
    bool reset(VEKError *error) override;
    // Frees the engine; the settings stay for the next initializeForRender().
    bool uninitialize(VEKError *error) override;
    void render(VEKAudioBufferList &list, quint32 bus, const VEKAudioRenderInfo &info) override;

    // The base's keys plus the fourteen of the record.
    QVariantMap settings() const override;
    // Fails, changing nothing, when the base does or when a key of the record holds a value of
    // the wrong type (a boolean key takes a boolean, a number key a number); the error names
    // the key. Applies the limits above, then hands the record to the engine.
    bool setSettings(const QVariantMap &settings, VEKError *error) override;

    // Main thread: the record in force, limits applied (enabled mirrors isEnabled()).
    CrossfeedEngine::Parameters parameters() const;
    // Main thread: the engine while initialised, else null (tests look at its rate).
    const CrossfeedEngine *engine() const { return m_engine.get(); }

private:
    // Hands the record to the engine, when there is one.
    void updateParameters();

    CrossfeedEngine::Parameters m_parameters; // main thread; `enabled` is the base's flag
    std::unique_ptr<CrossfeedEngine> m_engine;
};
