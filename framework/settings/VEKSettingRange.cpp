#include "VEKSettingRange.h"

#include "core/VEKLog.h"

#include <QMutex>
#include <QSet>

namespace VEKSettingRange {

bool isSampleRate(qint64 hz) { return hz >= minimumSampleRate && hz <= maximumSampleRate; }

namespace {

// True the first time `report` is met in this process.
bool firstReport(const QString &report)
{
    static QMutex mutex;
    static QSet<QString> reported;
    QMutexLocker lock(&mutex);
    if (reported.contains(report))
        return false;
    reported.insert(report);
    return true;
}

} // namespace

qint64 checked(const QString &setting, qint64 value, bool valid, qint64 fallback, const QString &allowed)
{
    if (valid)
        return value;
    // Read at every song or conversion: once is enough to tell the user.
    const QString report = QStringLiteral("%1 = %2").arg(setting).arg(value);
    if (firstReport(report))
        VEKLog(QStringLiteral("Setting %1 is out of range (%2); using %3").arg(report, allowed).arg(fallback));
    return fallback;
}

double checkedReal(const QString &setting, double value, double minimum, double maximum, double fallback)
{
    if (value >= minimum && value <= maximum)
        return value;
    const QString report = QStringLiteral("%1 = %2").arg(setting).arg(value);
    if (firstReport(report))
        VEKLog(QStringLiteral("Setting %1 is out of range (%2 to %3); using %4").arg(report).arg(minimum).arg(maximum).arg(fallback));
    return fallback;
}

qint64 checkedRateOrZero(const QString &setting, qint64 value, qint64 fallback)
{
    return checked(setting, value, value == 0 || isSampleRate(value), fallback,
                   QStringLiteral("0 or %1 to %2 Hz").arg(minimumSampleRate).arg(maximumSampleRate));
}

qint64 checkedFromTable(const QString &setting, qint64 value, const QList<qint64> &table, qint64 fallback)
{
    QStringList items;
    for (qint64 v : table)
        items.append(QString::number(v));
    return checked(setting, value, table.contains(value), fallback, QStringLiteral("one of ") + items.join(QStringLiteral(", ")));
}

qint64 checkedRatePolicy(qint64 value)
{
    return checked(QStringLiteral("sampleRate"), value, value == 0 || value == -1 || isSampleRate(value), 0,
                   QStringLiteral("0, -1 or %1 to %2 Hz").arg(minimumSampleRate).arg(maximumSampleRate));
}

} // namespace VEKSettingRange
