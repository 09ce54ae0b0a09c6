#pragma once

#include "graph/VEKAudioProcessor.h"

#include <atomic>

// Lowers the chain to a gain of 0.1 (-20 dB) while the setting "dim" is true. The level moves in
// 8 linear ramps of one buffer each (whatever frame count the cycle brings), by 0.1125 a buffer:
// 1.0, 0.8875, 0.775, 0.6625, 0.55, 0.4375, 0.325, 0.2125, 0.1 going down, the reverse coming back.
//
// States: 0 passing (nothing done, bit for bit); s in 1..8 going down, a ramp from
// 1 - (s - 1) * 0.1125 to 1 - s * 0.1125, then s + 1; 9 dimmed, scaled by 0.1f; s in 10..17
// coming back, a ramp from (s - 10) * 0.1125 + 0.1 to (s - 9) * 0.1125 + 0.1, then s + 1 and 0
// after 17. Gains are computed in double and rounded to float.
//
// Threads. init(), initializeForRender() and the setting's observation run on the main thread;
// render() on the render thread. They share only an atomic state: the main thread stores the
// start of a ramp, the render thread steps it with a compare-exchange, so a change that lands
// while a buffer renders is taken up by the next one and never lost.
class Dimmer : public VEKAudioProcessor {
    Q_OBJECT
public:
    static constexpr quint32 Passing = 0;
    static constexpr quint32 FirstDown = 1;
    static constexpr quint32 Dimmed = 9;
    static constexpr quint32 FirstUp = 10;
    static constexpr quint32 LastUp = 17;
    static constexpr double Step = 0.1125;
    static constexpr double DimLevel = 0.1;

    using VEKAudioProcessor::VEKAudioProcessor;

    // Starts following UserDefaults::standard()'s "dim". Fails only when the base does.
    bool init(VEKError *error) override;
    // Conforms the input to the output and takes the setting's final level at once (no ramp).
    bool initializeForRender(VEKError *error) override;
    void render(VEKAudioBufferList &list, quint32 bus, const VEKAudioRenderInfo &info) override;

    // Any thread.
    quint32 state() const { return m_state.load(std::memory_order_acquire); }

    // The gains at the start and the end of the buffer rendered in `state` (a ramp state, 1..8 or
    // 10..17), in double as computed.
    static double rampStart(quint32 state);
    static double rampEnd(quint32 state);

private:
    // Main thread: a change of "dim" starts a ramp from its beginning, whatever the state was.
    void dimChanged();

    std::atomic<quint32> m_state{Passing};
};
