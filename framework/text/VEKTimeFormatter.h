#pragma once

#include <QString>

// Durations as the player shows them. Format code 12, the one every screen uses: "M:SS" below an
// hour, "H:MM:SS" from an hour on, a minus sign before negative values (remaining time). Whole
// seconds are taken by rounding down, so a position and the remaining time shown beside it always
// add up to the length. Not a number or an infinite value reads as "0:00".
class VEKTimeFormatter {
public:
    static constexpr int hoursMinutesSeconds = 12;

    // Codes other than 12 are not used by the program and behave as 12.
    explicit VEKTimeFormatter(int format = hoursMinutesSeconds) : m_format(format) {}
    void setFormat(int format) { m_format = format; }
    int format() const { return m_format; }

    QString stringForSeconds(double seconds) const;

private:
    int m_format;
};
