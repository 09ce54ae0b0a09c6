#include "VEKALSA.h"

#include "core/VEKLocalizedString.h"

#include <alsa/asoundlib.h>
#include <mutex>

namespace {
void quiet(const char *, int, const char *, int, const char *, ...) {}
}

void VEKALSA::silenceErrors()
{
    static std::once_flag once;
    std::call_once(once, [] { snd_lib_error_set_handler(quiet); });
}

VEKError VEKALSA::error(const char *key, int status, const QString &pcm)
{
    return VEKError(QStringLiteral("VEKAudioDevice"), status, VEKLocalizedString(key),
                    QStringLiteral("%1: %2").arg(pcm, QString::fromLocal8Bit(snd_strerror(status))));
}
