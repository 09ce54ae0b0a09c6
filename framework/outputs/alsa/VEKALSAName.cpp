#include "VEKALSAName.h"

#include <QStringList>

namespace {
// Definitions of the stock configuration whose first positional argument is the card.
bool takesCardFirst(const QString &prefix)
{
    static const QStringList names = {
        QStringLiteral("hw"),         QStringLiteral("plughw"),     QStringLiteral("sysdefault"),
        QStringLiteral("front"),      QStringLiteral("rear"),       QStringLiteral("center_lfe"),
        QStringLiteral("side"),       QStringLiteral("surround21"), QStringLiteral("surround40"),
        QStringLiteral("surround41"), QStringLiteral("surround50"), QStringLiteral("surround51"),
        QStringLiteral("surround71"), QStringLiteral("iec958"),     QStringLiteral("spdif"),
        QStringLiteral("hdmi"),       QStringLiteral("dmix"),       QStringLiteral("dsnoop"),
        QStringLiteral("usbstream"),
    };
    return names.contains(prefix);
}

QString unquote(QString v)
{
    v = v.trimmed();
    if (v.size() >= 2 && (v.front() == u'"' || v.front() == u'\'') && v.back() == v.front())
        v = v.mid(1, v.size() - 2);
    return v;
}
}

VEKALSAName VEKALSAName::parse(const QString &pcm)
{
    VEKALSAName n;
    const qsizetype colon = pcm.indexOf(u':');
    n.prefix = colon < 0 ? pcm : pcm.left(colon);
    if (colon < 0)
        return n;
    const QString args = pcm.mid(colon + 1);
    if (args.startsWith(u'{'))
        return n; // a compound definition: nothing we can read a card from
    const QStringList parts = args.split(u',');
    int position = 0;
    QString device;
    for (const QString &part : parts) {
        const qsizetype eq = part.indexOf(u'=');
        if (eq >= 0) {
            const QString key = part.left(eq).trimmed().toUpper();
            if (key == QLatin1String("CARD"))
                n.card = unquote(part.mid(eq + 1));
            else if (key == QLatin1String("DEV"))
                device = unquote(part.mid(eq + 1));
        } else if (takesCardFirst(n.prefix)) {
            if (position == 0)
                n.card = unquote(part);
            else if (position == 1)
                device = unquote(part);
            ++position;
        }
    }
    bool ok = false;
    const int d = device.toInt(&ok);
    if (ok && d >= 0)
        n.device = d;
    return n;
}

QString VEKALSAName::hardwareName(int dev) const
{
    if (!hasCard())
        return {};
    if (dev < 0)
        dev = device >= 0 ? device : 0;
    return QStringLiteral("hw:CARD=%1,DEV=%2").arg(card).arg(dev);
}

QString VEKALSAName::controlName() const
{
    return hasCard() ? QStringLiteral("hw:CARD=%1").arg(card) : QString();
}
