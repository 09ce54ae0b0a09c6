#pragma once

#include "graph/VEKAudioProcessor.h"

#include <atomic>

// Silences the chain while the setting "mute" is true. A change fades over one buffer (whatever
// frame count the cycle brings), so muting and unmuting never click.
//
// States: 0 passing (nothing done), 1 going silent (fadeOut, then 2), 2 silent (cleared),
// 3 coming back (fadeIn, then 0).
//
// Threads. init(), initializeForRender() and the setting's observation run on the main thread;
// render() on the render thread. They share only an atomic state: the main thread stores the
// start of a ramp, the render thread steps it with a compare-exchange, so a change that lands
// while a buffer renders is taken up by the next one and never lost.
class Muter : public VEKAudioProcessor {
    Q_OBJECT
public:
    enum State : quint32 { Passing = 0, GoingSilent = 1, Silent = 2, ComingBack = 3 };

    using VEKAudioProcessor::VEKAudioProcessor;

    // Starts following UserDefaults::standard()'s "mute". Fails only when the base does.
    bool init(VEKError *error) override;
    // Conforms the input to the output and takes the setting's final level at once (no ramp).
    bool initializeForRender(VEKError *error) override;
    void render(VEKAudioBufferList &list, quint32 bus, const VEKAudioRenderInfo &info) override;

    // Any thread.
    quint32 state() const { return m_state.load(std::memory_order_acquire); }

private:
    // Main thread: a change of "mute" starts a ramp from its beginning, whatever the state was.
    void muteChanged();

    std::atomic<quint32> m_state{Passing};
};
