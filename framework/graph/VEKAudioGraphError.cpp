#include "VEKAudioGraphError.h"

#include "core/VEKLocalizedString.h"

namespace VEKAudioGraphError {

VEKError make(Code code, const char *key, const QString &arg, const QString &reason)
{
    QString text = VEKLocalizedString(key);
    if (!arg.isNull())
        text = text.arg(arg);
    return VEKError(QString::fromLatin1(domain), code, text, reason);
}

} // namespace VEKAudioGraphError
