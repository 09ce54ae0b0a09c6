#pragma once

#include "outputs/VEKAudioDevice.h"

#include <QList>
#include <QString>

// A card's selectable outputs: the playback switches of its mixer ("Headphone", "Speaker",
// "IEC958"), each a source that is enabled when its switch is on. A source's ID is a hash of the
// control's name and index, so a stored choice finds the same control after a restart.
namespace VEKALSAMixer {

// The sources of control device `ctl` ("hw:CARD=PCH"), in the mixer's order. Empty with `error`
// when the mixer can't be read.
QList<VEKAudioDeviceSource> playbackSwitches(const QString &ctl, VEKError *error);
// Turns every channel of the source's switch on or off.
bool setPlaybackSwitch(const QString &ctl, quint32 sourceID, bool enabled, VEKError *error);
// FNV-1a of "name,index".
quint32 sourceID(const QString &name, unsigned index);

} // namespace VEKALSAMixer
