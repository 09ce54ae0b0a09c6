#pragma once

#include "VEKAudioProcessor.h"

#include <memory>
#include <vector>

// The stream's topology baked for the render thread: for each position of the graph, the
// processor that stands there (a dock's held processor, or null for an empty dock, which passes
// audio through) and the connections that end there. Immutable once published; the stream makes a
// new plan for every change of structure and swaps it in with one atomic exchange
// (VEKRenderSnapshot), and frees the old one on the main thread when the render thread has left it.
class VEKAudioRenderPlan {
public:
    struct Input {
        VEKAudioConnection *connection = nullptr;
        int sourceSlot = -1;
    };
    struct Node {
        VEKAudioProcessor *processor = nullptr;
        quint32 firstInput = 0;
        quint32 inputCount = 0;
        // Where a mixer's second and further inputs are rendered before they are added.
        VEKAudioBufferList *mixScratch = nullptr;

        // A crossfading dock (fadeFrames > 0): what it renders changes through a crossfade, be
        // it another processor or its processor turned on or off. `fadingOut` is what was heard
        // before the change that made this plan (null: the input itself), faded out from the
        // plan's first cycle on.
        quint32 fadeFrames = 0;
        VEKAudioProcessor *fadingOut = nullptr;
        VEKAudioBufferList *fadeInput = nullptr;
        VEKAudioBufferList *fadeOther = nullptr;
        // Render thread only: what was heard last (a processor, or null for the input itself),
        // what fades out and how far the fade has come (fadeFrames when none runs).
        mutable VEKAudioProcessor *heard = nullptr;
        mutable VEKAudioProcessor *fadeFrom = nullptr;
        mutable quint32 fadePosition = 0;
    };

    VEKAudioRenderPlan() = default;
    // Main thread: gives the processors this plan let go of their uninitialize().
    ~VEKAudioRenderPlan();
    VEKAudioRenderPlan(const VEKAudioRenderPlan &) = delete;
    VEKAudioRenderPlan &operator=(const VEKAudioRenderPlan &) = delete;

    // Render thread. Renders the processor at `slot` (or passes its inputs through when it is
    // absent, disabled or not initialised).
    void renderNode(int slot, VEKAudioBufferList &list, const VEKAudioRenderInfo &info) const;
    // Render thread. Sums the active inputs of `slot` into `list`; silence when none is active.
    void renderInputs(int slot, VEKAudioBufferList &list, const VEKAudioRenderInfo &info) const;

    // What a processor at a node makes heard: itself, or null when it passes its input through
    // (absent, disabled or not initialised). Any thread.
    static VEKAudioProcessor *audible(VEKAudioProcessor *p);

    std::vector<Node> nodes;
    std::vector<Input> inputs;
    int sinkSlot = -1;

private:
    void renderCrossfadingDock(int slot, VEKAudioBufferList &list, const VEKAudioRenderInfo &info) const;
    // Renders `p` (null: the input itself) from the prepared input into `list`.
    static void renderFromPreparedInput(VEKAudioProcessor *p, int slot, VEKAudioBufferList &list,
                                        const VEKAudioRenderInfo &info);

public:
    std::vector<std::unique_ptr<VEKAudioBufferList>> scratch;
    // Docked processors stay alive while a plan that renders them exists.
    std::vector<VEKAudioProcessorPtr> keepAlive;
    // Processors taken out of the graph while this plan rendered them: uninitialised when it is
    // freed, unless they have been placed again meanwhile.
    std::vector<VEKAudioProcessorPtr> releasedProcessors;
};
