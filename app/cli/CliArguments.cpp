#include "CliArguments.h"

CliArguments::CliArguments(const QStringList &args, const QStringList &valueOptions,
                           const QStringList &flags)
{
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString &a = args.at(i);
        if (a == QLatin1String("-h") || a == QLatin1String("--help")) {
            m_help = true;
        } else if (a == QLatin1String("--")) {
            m_positional += args.mid(i + 1);
            break;
        } else if (a.startsWith(QLatin1String("--"))) {
            QString name = a.mid(2);
            QString inlineValue;
            const qsizetype eq = name.indexOf(u'=');
            if (eq >= 0) {
                inlineValue = name.mid(eq + 1);
                name.truncate(eq);
            }
            if (valueOptions.contains(name)) {
                if (eq >= 0) {
                    m_values.insert(name, inlineValue);
                } else if (i + 1 < args.size()) {
                    m_values.insert(name, args.at(++i));
                } else {
                    m_error = QStringLiteral("option --%1 needs a value").arg(name);
                    return;
                }
            } else if (flags.contains(name) && eq < 0) {
                m_flags.append(name);
            } else {
                m_error = QStringLiteral("unknown option --%1").arg(name);
                return;
            }
        } else {
            m_positional.append(a);
        }
    }
}

bool CliArguments::toInteger(const QString &text, qint64 *out, QString *error, const QString &what)
{
    bool ok = false;
    const qint64 v = text.toLongLong(&ok);
    if (!ok) {
        *error = QStringLiteral("%1 must be a whole number, not \"%2\"").arg(what, text);
        return false;
    }
    *out = v;
    return true;
}
