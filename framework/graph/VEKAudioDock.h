#pragma once

#include "VEKAudioProcessor.h"

// A place in the graph that holds one replaceable processor (an effect slot, a branch's
// converter). A dock that holds nothing passes audio through.
//
// Main thread. Changing the held processor of an initialised stream gives the stream a new render
// plan: the new processor is initialised first, the plan swapped in at a buffer boundary (where
// the crossfade, if any, begins), and the old processor uninitialised once the render thread has
// let go of it. The connection formats
// stay as they were, so a live change is for processors that keep the format (effects); the
// converter docks are changed on a stopped, uninitialised stream.
class VEKAudioDock : public VEKAudioProcessor {
    Q_OBJECT
public:
    using VEKAudioProcessor::VEKAudioProcessor;

    VEKAudioProcessorPtr processor() const { return m_processor; }
    // Retains `processor` (may be null). No effect when it is already the held one.
    void setProcessor(VEKAudioProcessorPtr processor);

    // How long a running stream crossfades when the held processor changes or is turned on or
    // off: the old sound fades out while the new one fades in, so the change is heard without a
    // gap or a click. 0 (the default) switches at a buffer boundary. Only for docks whose
    // processor keeps the rate (effects); set before the stream is initialised.
    double crossfadeDuration() const { return m_crossfadeDuration; }
    void setCrossfadeDuration(double seconds) { m_crossfadeDuration = seconds; }

    // Adds "processor": the held processor's settings, when there is one.
    QVariantMap settings() const override;
    // "processor": settings to make the held processor from (an empty map empties the dock).
    bool setSettings(const QVariantMap &settings, VEKError *error) override;

    // Outside a stream only; in a stream the plan renders the held processor directly.
    void render(VEKAudioBufferList &list, quint32 bus, const VEKAudioRenderInfo &info) override;

signals:
    // Before and after a change: the held processor and its successor.
    void processorWillChange(VEKAudioProcessorPtr current);
    void processorChanged(VEKAudioProcessorPtr processor, VEKAudioProcessorPtr previous);

private:
    VEKAudioProcessorPtr m_processor;
    double m_crossfadeDuration = 0.0;
};
