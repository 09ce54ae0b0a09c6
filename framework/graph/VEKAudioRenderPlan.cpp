#include "VEKAudioRenderPlan.h"

#include <algorithm>

VEKAudioRenderPlan::~VEKAudioRenderPlan()
{
    for (const VEKAudioProcessorPtr &p : releasedProcessors) {
        if (!p->isPlaced() && p->isInitialized()) {
            p->uninitialize(nullptr);
            p->setInitialized(false);
        }
    }
}

void VEKAudioRenderPlan::renderNode(int slot, VEKAudioBufferList &list, const VEKAudioRenderInfo &info) const
{
    list.setFrames(info.frames);
    VEKAudioProcessor *p = nodes[size_t(slot)].processor;
    if (!p || !p->isInitialized() || (!p->isEnabled() && !p->rendersWhenDisabled())) {
        renderInputs(slot, list, info);
        return;
    }
    p->render(list, 0, info);
}

void VEKAudioRenderPlan::renderInputs(int slot, VEKAudioBufferList &list, const VEKAudioRenderInfo &info) const
{
    list.setFrames(info.frames);
    const Node &node = nodes[size_t(slot)];
    bool filled = false;
    for (quint32 i = node.firstInput; i < node.firstInput + node.inputCount; ++i) {
        const Input &in = inputs[i];
        if (!in.connection->isActive())
            continue;
        if (!filled) {
            renderNode(in.sourceSlot, list, info);
            filled = true;
            continue;
        }
        VEKAudioBufferList *mix = node.mixScratch;
        if (!mix)
            continue;
        renderNode(in.sourceSlot, *mix, info);
        const quint32 frames = std::min(list.frames(), mix->frames());
        const quint32 channels = std::min(list.numberOfChannels(), mix->numberOfChannels());
        for (quint32 c = 0; c < channels; ++c) {
            float *out = list.channel(c);
            const float *add = mix->channel(c);
            for (quint32 f = 0; f < frames; ++f)
                out[f] += add[f];
        }
    }
    if (!filled)
        list.clear();
}
