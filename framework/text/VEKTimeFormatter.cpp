#include "VEKTimeFormatter.h"

#include <algorithm>
#include <cmath>

QString VEKTimeFormatter::stringForSeconds(double seconds) const
{
    if (!std::isfinite(seconds))
        seconds = 0.0;
    // Below 2^53 s a double counts whole seconds exactly; beyond that no duration is real.
    const double whole = std::floor(std::clamp(seconds, -9.0e15, 9.0e15));
    const bool negative = whole < 0;
    const qint64 total = qint64(std::fabs(whole));
    const qint64 h = total / 3600, m = total / 60 % 60, s = total % 60;
    const QLatin1Char zero('0');
    QString text = h > 0 ? QStringLiteral("%1:%2:%3").arg(h).arg(m, 2, 10, zero).arg(s, 2, 10, zero)
                         : QStringLiteral("%1:%2").arg(m).arg(s, 2, 10, zero);
    return negative ? QLatin1Char('-') + text : text;
}
