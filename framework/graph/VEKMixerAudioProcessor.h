#pragma once

#include "VEKAudioProcessor.h"

// Where several connections meet: its output is the sum of its active inputs (none active gives
// silence). The player's two branches join here, and only one of them is active at a time, so
// the sum is the active branch sample for sample.
class VEKMixerAudioProcessor : public VEKAudioProcessor {
    Q_OBJECT
public:
    using VEKAudioProcessor::VEKAudioProcessor;
    bool acceptsMultipleInputs() const override { return true; }
};
