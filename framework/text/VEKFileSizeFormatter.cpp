#include "VEKFileSizeFormatter.h"

#include <cmath>
#include <cstdlib>

QString VEKFileSizeFormatter::stringForByteCount(qint64 bytes) const
{
    const QString sign = bytes < 0 ? QStringLiteral("-") : QString();
    const double magnitude = std::fabs(double(bytes));
    if (magnitude < 1000)
        return sign + QString::number(std::llabs(bytes)) + (magnitude == 1 ? QStringLiteral(" byte") : QStringLiteral(" bytes"));
    static const char *const units[] = {"KB", "MB", "GB", "TB", "PB", "EB"};
    double value = magnitude / 1000.0;
    int unit = 0;
    // Three significant digits; a value that rounds up to 1000 moves to the next unit.
    const auto decimalsFor = [](double v) { return v < 9.995 ? 2 : v < 99.95 ? 1 : 0; };
    while (unit + 1 < int(std::size(units)) && value >= 999.5) {
        value /= 1000.0;
        ++unit;
    }
    return sign + QString::number(value, 'f', decimalsFor(value)) + QLatin1Char(' ') + QLatin1String(units[unit]);
}
