#pragma once

#include <QString>

// Byte counts as the player shows them: "0 bytes", "1 byte", "999 bytes", then decimal units
// (1 KB = 1000 bytes, as file managers on this desktop count) with three significant digits:
// "1.23 KB", "12.3 MB", "123 GB", up to EB. The decimal point is a full stop, whatever the locale,
// so the command line's output reads the same everywhere.
class VEKFileSizeFormatter {
public:
    QString stringForByteCount(qint64 bytes) const;
};
