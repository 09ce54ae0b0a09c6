#pragma once

#include "VEKAudioProcessor.h"

#include <atomic>

// A linear gain. A new scalar is reached by a linear ramp over the next buffer, so a change never
// steps; a scalar of exactly 1.0 leaves every sample's bits as they were.
//
// Settings: "scalar" (number).
class VEKVolumeAudioProcessor : public VEKAudioProcessor {
    Q_OBJECT
public:
    using VEKAudioProcessor::VEKAudioProcessor;

    // Any thread, while rendering; no lock.
    void setScalar(float scalar) { m_target.store(scalar, std::memory_order_relaxed); }
    float scalar() const { return m_target.load(std::memory_order_relaxed); }

    bool initializeForRender(VEKError *error) override;
    bool reset(VEKError *error) override;
    void render(VEKAudioBufferList &list, quint32 bus, const VEKAudioRenderInfo &info) override;

    QVariantMap settings() const override;
    bool setSettings(const QVariantMap &settings, VEKError *error) override;

private:
    std::atomic<float> m_target{1.0f};
    // Render thread: the gain reached at the end of the last buffer.
    float m_current = 1.0f;
};
