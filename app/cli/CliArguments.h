#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

// The arguments of one subcommand. Anything that starts with "--" is an option (with a value
// when the command declares one); everything else, "-12345" included (own song IDs are
// negative), is positional. "-h" and "--help" ask for help.
class CliArguments {
public:
    // `valueOptions` are the options that take a value ("--playlist 5"); `flags` take none.
    CliArguments(const QStringList &args, const QStringList &valueOptions,
                 const QStringList &flags);

    bool ok() const { return m_error.isEmpty(); }
    const QString &error() const { return m_error; }
    bool helpRequested() const { return m_help; }

    const QStringList &positional() const { return m_positional; }
    bool has(const QString &option) const { return m_values.contains(option) || m_flags.contains(option); }
    QString value(const QString &option) const { return m_values.value(option); }
    // Every value given to a repeatable option, in order.
    QStringList values(const QString &option) const { return m_values.values(option); }

    // Parses an integer argument; false and an error message naming `what` if it is not one.
    static bool toInteger(const QString &text, qint64 *out, QString *error, const QString &what);

private:
    QStringList m_positional;
    QMultiHash<QString, QString> m_values;
    QStringList m_flags;
    bool m_help = false;
    QString m_error;
};
