#include "VEKDate.h"

#include <QTimeZone>

double VEKDate::now()
{
    return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0 - referenceDateOffset;
}

QString VEKDate::description(const QDateTime &date)
{
    if (!date.isValid())
        return {};
    return date.toUTC().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) + QStringLiteral(" +0000");
}

namespace {
// Reads `count` digits at `pos`; -1 if any is not a digit.
int digits(const QString &s, qsizetype pos, int count)
{
    int v = 0;
    for (int i = 0; i < count; ++i) {
        const char16_t c = s.at(pos + i).unicode();
        if (c < u'0' || c > u'9')
            return -1;
        v = v * 10 + (c - u'0');
    }
    return v;
}
}

QDateTime VEKDate::dateWithString(const QString &text)
{
    // "yyyy-MM-dd HH:mm:ss +hhmm"
    const QString s = text.trimmed();
    if (s.size() != 25 || s.at(4) != u'-' || s.at(7) != u'-' || s.at(10) != u' '
        || s.at(13) != u':' || s.at(16) != u':' || s.at(19) != u' '
        || (s.at(20) != u'+' && s.at(20) != u'-'))
        return {};
    const int y = digits(s, 0, 4), mo = digits(s, 5, 2), d = digits(s, 8, 2);
    const int h = digits(s, 11, 2), mi = digits(s, 14, 2), se = digits(s, 17, 2);
    const int oh = digits(s, 21, 2), om = digits(s, 23, 2);
    if (y < 0 || mo < 0 || d < 0 || h < 0 || mi < 0 || se < 0 || oh < 0 || om < 0)
        return {};
    const QDate date(y, mo, d);
    const QTime time(h, mi, se);
    if (!date.isValid() || !time.isValid())
        return {};
    const int offset = (s.at(20) == u'-' ? -1 : 1) * (oh * 3600 + om * 60);
    return QDateTime(date, time, Qt::UTC).addSecs(-offset);
}

QString VEKDate::iso8601(const QDateTime &date)
{
    if (!date.isValid())
        return {};
    return date.toUTC().toString(Qt::ISODate);
}
