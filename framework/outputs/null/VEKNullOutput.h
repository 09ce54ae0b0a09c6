#pragma once

#include "outputs/VEKClockedOutput.h"

// The output of the null device: renders in real time and drops every block. Takes any rate and
// channel count; integer depths round up to 16, 24 or 32 bits, float is kept.
class VEKNullOutput final : public VEKClockedOutput {
public:
    // `deviceRate` is used when open() asks for rate 0.
    explicit VEKNullOutput(double deviceRate);
    ~VEKNullOutput() override;

protected:
    bool prepare(const VEKAudioFormat &requested, quint32 framesPerBuffer, VEKError *error) override;
    void consume(const VEKAudioBufferList &) override {}
};
