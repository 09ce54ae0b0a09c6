#pragma once

#include "VEKAudioProcessor.h"
#include "dsp/VEKSampleRateConverter.h"

#include <atomic>

// The common part of the two sample-rate converter processors (a branch's converter dock, the
// conversion stream's "converter"). The input runs at inSampleRate(); the output runs at the
// rate of the output connection, which is the stream's, so one converter turns any file's rate
// into the stream's. With equal rates the audio passes bit-exact.
//
// Threads: main thread (or the thread of a private offline stream), except render().
// setInSampleRate() may also be called on an initialised processor whose branch is not being
// pulled: the new rate takes over at the next buffer, as after reset().
//
// Settings: "inSampleRate" (number), plus the keys of the subclass.
class VEKConverterAudioProcessor : public VEKAudioProcessor {
    Q_OBJECT
public:
    using VEKAudioProcessor::VEKAudioProcessor;

    double inSampleRate() const { return m_inRate; }
    // False with `error` for a rate that is not positive or that the converter refuses; the
    // rate in use then stays.
    bool setInSampleRate(double rate, VEKError *error = nullptr);

    // Songs of different rates in one continuous stream (see VEKSampleRateConverter): prepares
    // the converter for the input rate that follows; the input above ends a render early where
    // that rate begins (the conductor does, at a landmark that changes the rate), and the
    // prepared converter goes on from there without a gap. Main thread.
    bool prepareInSampleRate(double rate, VEKError *error = nullptr);
    // Any thread: the rate prepared and not yet taken up, or 0.
    double preparedInSampleRate() const { return converter().preparedInSampleRate(); }
    // Main thread, once the input went on at `rate`: inSampleRate() says so, nothing is rebuilt.
    void adoptInSampleRate(double rate);
    // The output sample time at which the input's present time line began (its frame 0): 0 at
    // first, moved by each change of rate inside the stream.
    quint64 inputOrigin() const { return m_inputOrigin.load(std::memory_order_acquire); }

    // Asks for the input rate at the input, with the output's channels.
    VEKAudioStreamFormat inputFormatForOutputFormat(const VEKAudioStreamFormat &output) const override;

    // Builds the converter for the output connection's format and maximumFramesToRender().
    // False with `error` when the converter refuses it.
    bool initializeForRender(VEKError *error) override;
    // Any thread: the next buffer starts from a clean filter.
    bool reset(VEKError *error) override;
    bool uninitialize(VEKError *error) override;

    // Pulls from the input through the converter, in pieces of at most maximumFramesToRender().
    void render(VEKAudioBufferList &list, quint32 bus, const VEKAudioRenderInfo &info) override;

    QVariantMap settings() const override;
    bool setSettings(const QVariantMap &settings, VEKError *error) override;

    // The engine: for the parameter setters of the subclasses and for tests.
    virtual VEKSampleRateConverter &converter() = 0;
    virtual const VEKSampleRateConverter &converter() const = 0;

protected:
    // Turns a converter's refusal into this processor's error.
    static bool fail(VEKError *error, const QString &reason);

private:
    static void pull(void *context, VEKAudioBufferList &input);

    double m_inRate = 44100.0;
    // Render thread: the input's time line, and a list of the input's width for the pieces.
    VEKAudioBufferList m_piece;
    quint64 m_inputTime = 0;
    std::atomic<bool> m_timeReset{false};
    std::atomic<quint64> m_inputOrigin{0};
    const VEKAudioRenderInfo *m_info = nullptr;
};
