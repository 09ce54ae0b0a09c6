#pragma once

#include "VEKAudioProcessor.h"

#include <array>
#include <atomic>

// Measures the level at its place in the graph and passes audio unchanged. The level of a channel
// is its peak, falling by decayDecibelsPerSecond once the audio gets quieter.
class VEKMeterAudioProcessor : public VEKAudioProcessor {
    Q_OBJECT
public:
    static constexpr quint32 maxChannels = 32;
    static constexpr float decayDecibelsPerSecond = 24.0f;

    using VEKAudioProcessor::VEKAudioProcessor;

    // Any thread. The linear level of channel `c` (0 for a channel the meter does not see).
    float levelOfChannel(quint32 c) const;
    // Channels measured in the last buffer.
    quint32 numberOfChannels() const { return m_channels.load(std::memory_order_relaxed); }

    bool initializeForRender(VEKError *error) override;
    bool reset(VEKError *error) override;
    bool uninitialize(VEKError *error) override;
    void render(VEKAudioBufferList &list, quint32 bus, const VEKAudioRenderInfo &info) override;

private:
    std::array<std::atomic<float>, maxChannels> m_levels{};
    std::atomic<quint32> m_channels{0};
};
