#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

// Runs the real quivera-cli with its own isolated settings and data folders, as a user would: the
// one way every test binary starts it.
class CliHarness {
public:
    CliHarness();

    struct Result {
        int status = -1;
        QByteArray out;
        QByteArray err;
    };
    Result run(const QStringList &args) const;
    // Runs `arguments` (already quoted for a shell) on a terminal of its own, through script(1);
    // standard output then holds all the program wrote.
    QByteArray runOnTerminal(const QString &arguments) const;
    // The environment of the program: the isolated folders.
    QProcessEnvironment environment() const;
    // Runs and parses standard output as a JSON array; fails the test on a bad status.
    QJsonArray json(const QStringList &args) const;
    // `songs --json` with `more` arguments.
    QJsonArray songs(const QStringList &more = {}) const;
    // `settings set KEY JSON`; fails the test on a bad status.
    void set(const QString &key, const QString &json) const;

    QString dataDir() const { return m_root + QStringLiteral("/data/Quivera"); }
    QString configDir() const { return m_root + QStringLiteral("/config/Quivera"); }
    QString libraryFile() const { return dataDir() + QStringLiteral("/Quivera Library"); }
    QString musicDir() const { return m_root + QStringLiteral("/music"); }

    // Runs SQL through the sqlite3 command line on the library file; returns its output.
    QString sql(const QString &statements) const;

private:
    QString m_root;
};
