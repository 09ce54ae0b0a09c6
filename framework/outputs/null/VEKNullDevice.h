#pragma once

#include "outputs/VEKClockedDevice.h"

// "null": plays nothing and keeps real time. What the stream falls back to when no ALSA device
// opens, so the transport, landmarks and gapless sequencing go on as with a card.
class VEKNullDevice final : public VEKClockedDevice {
public:
    static constexpr const char *uid = "null";

    VEKNullDevice();

    bool isValid() const override { return true; }
    QString title(VEKError *error = nullptr) const override;
    std::unique_ptr<VEKAudioOutput> createOutput() override;
};
