#pragma once

#include <QString>

// The parts of an ALSA PCM name that tell which card it plays on: "plughw:CARD=PCH,DEV=3",
// "hw:1,0", "front:CARD=Intel", "dmix:0". Names without a card ("default", "pipewire", "pulse",
// "null", "plug:dmix") have none: for them exclusive use means nothing.
struct VEKALSAName {
    QString prefix;   // "plughw"
    QString card;     // "PCH" or "1"; empty when the name names no card
    int device = -1;  // DEV, -1 when not given

    static VEKALSAName parse(const QString &pcm);

    bool hasCard() const { return !card.isEmpty(); }
    // The card's hw PCM that `pcm` plays on ("hw:CARD=PCH,DEV=3"), with `device` when given,
    // else the named or first device. Empty without a card.
    QString hardwareName(int device = -1) const;
    // The card's control device ("hw:CARD=PCH"), for its mixer. Empty without a card.
    QString controlName() const;
};
