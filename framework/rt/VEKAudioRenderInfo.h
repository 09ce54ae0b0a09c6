#pragma once

#include <QtGlobal>

class VEKAudioBufferList;
class VEKAudioRenderPlan;

// What one render request asks for. Passed by const reference down the pull; a processor that
// asks its input for another amount or rate (a converter) passes on a modified copy.
struct VEKAudioRenderInfo {
    // Frames rendered at this rate before this request since the stream started.
    quint64 sampleTime = 0;
    // Frames to render; the list handed along has at least this capacity.
    quint32 frames = 0;
    // The rate of the audio this request is for, in hertz.
    double sampleRate = 0.0;
    // True when the stream ends in an offline sink: render may then wait for the disk instead of
    // giving silence, since nobody is listening in real time.
    bool offline = false;
    // The stream's topology for this cycle; the input bus reads it. Null outside a stream, where
    // inputs render as silence.
    const VEKAudioRenderPlan *plan = nullptr;
    // While a dock crossfades two processors, the input of its slot is rendered once, here: the
    // input bus of the processor at `preparedInputSlot` copies it instead of pulling upstream a
    // second time.
    int preparedInputSlot = -1;
    const VEKAudioBufferList *preparedInput = nullptr;
};
