#pragma once

#include <QDateTime>
#include <QString>

// Dates as the library file and the remote protocol carry them.
namespace VEKDate {

// Seconds between 1970-01-01 and 2001-01-01, the epoch of every stamp in the program.
constexpr double referenceDateOffset = 978307200.0;

// The present time as seconds since 2001-01-01 00:00 UTC.
double now();

// The text form stored in the library file: "2012-03-04 12:34:56 +0000" (always UTC).
// A null date gives a null string.
QString description(const QDateTime &date);

// Reads that text form back, with any "+hhmm"/"-hhmm" offset. Anything else gives a null date.
// Hand-written because it runs once per song at every launch.
QDateTime dateWithString(const QString &text);

// ISO 8601 in UTC, "2012-03-04T12:34:56Z", for JSON output.
QString iso8601(const QDateTime &date);

} // namespace VEKDate
