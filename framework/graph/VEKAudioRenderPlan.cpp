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

VEKAudioProcessor *VEKAudioRenderPlan::audible(VEKAudioProcessor *p)
{
    return p && p->isInitialized() && (p->isEnabled() || p->rendersWhenDisabled()) ? p : nullptr;
}

void VEKAudioRenderPlan::renderNode(int slot, VEKAudioBufferList &list, const VEKAudioRenderInfo &info) const
{
    list.setFrames(info.frames);
    if (nodes[size_t(slot)].fadeFrames > 0) {
        renderCrossfadingDock(slot, list, info);
        return;
    }
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

void VEKAudioRenderPlan::renderFromPreparedInput(VEKAudioProcessor *p, int slot, VEKAudioBufferList &list,
                                                 const VEKAudioRenderInfo &info)
{
    VEKAudioRenderInfo prepared = info;
    prepared.preparedInputSlot = slot;
    list.setFrames(info.frames);
    if (p) {
        p->render(list, 0, prepared);
        return;
    }
    const VEKAudioBufferList &in = *info.preparedInput;
    for (quint32 c = 0; c < list.numberOfChannels(); ++c) {
        float *out = list.channel(c);
        const float *from = c < in.numberOfChannels() ? in.channel(c) : nullptr;
        for (quint32 f = 0; f < info.frames; ++f)
            out[f] = from && f < in.frames() ? from[f] : 0.0f;
    }
}

void VEKAudioRenderPlan::renderCrossfadingDock(int slot, VEKAudioBufferList &list, const VEKAudioRenderInfo &info) const
{
    const Node &node = nodes[size_t(slot)];
    VEKAudioProcessor *now = audible(node.processor);
    if (now != node.heard) {
        // Turned on or off, or the plan's first cycle after a change of processor: fade from
        // what was heard. A change in the middle of a fade starts a new one from the old target.
        node.fadeFrom = node.heard;
        node.fadePosition = 0;
        node.heard = now;
    }
    if (node.fadePosition >= node.fadeFrames) {
        if (now)
            now->render(list, 0, info);
        else
            renderInputs(slot, list, info);
        return;
    }

    // The input once, then both sounds from it, and the ramps between them.
    renderInputs(slot, *node.fadeInput, info);
    VEKAudioRenderInfo prepared = info;
    prepared.preparedInput = node.fadeInput;
    renderFromPreparedInput(now, slot, list, prepared);
    renderFromPreparedInput(node.fadeFrom, slot, *node.fadeOther, prepared);
    const float step = 1.0f / float(node.fadeFrames);
    const quint32 channels = std::min(list.numberOfChannels(), node.fadeOther->numberOfChannels());
    for (quint32 c = 0; c < channels; ++c) {
        float *out = list.channel(c);
        const float *old = node.fadeOther->channel(c);
        for (quint32 f = 0; f < info.frames; ++f) {
            const quint32 at = node.fadePosition + f;
            const float in = at >= node.fadeFrames ? 1.0f : float(at) * step;
            out[f] = out[f] * in + old[f] * (1.0f - in);
        }
    }
    node.fadePosition = std::min(node.fadeFrames, node.fadePosition + info.frames);
    if (node.fadePosition >= node.fadeFrames)
        node.fadeFrom = nullptr;
}
