#pragma once

#include <QList>
#include <QString>
#include <QVariant>

// Settings are the user's to edit (the command line, an old or hand-edited file), so the engine
// and the writer check each value they read against what it may be. A value out of range is
// logged once per setting and value in a process, and the caller uses its default instead.
namespace VEKSettingRange {

constexpr qint64 minimumSampleRate = 8000;
constexpr qint64 maximumSampleRate = 768000;

bool isSampleRate(qint64 hz);

// `value` when `valid`, else `fallback` after the one report. `setting` names it as the user
// would write it ("preferredFormat.sampleRate"); `allowed` says what it may be.
qint64 checked(const QString &setting, qint64 value, bool valid, qint64 fallback, const QString &allowed);

// A rate in hertz, or 0 where 0 means "keep the source's".
qint64 checkedRateOrZero(const QString &setting, qint64 value, qint64 fallback = 0);

// One of `table`.
qint64 checkedFromTable(const QString &setting, qint64 value, const QList<qint64> &table, qint64 fallback);

// A number from `minimum` to `maximum`, NaN never.
double checkedReal(const QString &setting, double value, double minimum, double maximum, double fallback);

// The output rate policy (`sampleRate`): 0 leaves the device alone, -1 follows the song, else a
// rate; anything else is 0.
qint64 checkedRatePolicy(qint64 value);

} // namespace VEKSettingRange
