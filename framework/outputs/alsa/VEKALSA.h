#pragma once

#include "core/VEKError.h"

#include <QString>

// What every use of ALSA here shares.
namespace VEKALSA {

// Keeps ALSA's own messages off standard error for the whole process: every failure reaches the
// caller as a VEKError instead. Called before any other ALSA call; cheap after the first time.
void silenceErrors();

// A VEKError for an ALSA status `status` (negative errno) on PCM `pcm`: the text of `key`, the
// PCM and ALSA's words as the reason.
VEKError error(const char *key, int status, const QString &pcm);

} // namespace VEKALSA
