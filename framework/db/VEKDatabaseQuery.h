#pragma once

#include "core/VEKError.h"

#include <QString>

struct sqlite3_stmt;
class VEKDatabase;

// A prepared statement. Argument and column indexes count from 0. Integers are bound and read
// as 64-bit values, so sizes and IDs never wrap. Belongs to the connection that made it and
// must not outlive it.
class VEKDatabaseQuery {
public:
    VEKDatabaseQuery(VEKDatabase *db, sqlite3_stmt *statement);
    ~VEKDatabaseQuery();
    VEKDatabaseQuery(const VEKDatabaseQuery &) = delete;
    VEKDatabaseQuery &operator=(const VEKDatabaseQuery &) = delete;

    // Rewinds so that the statement can run again, and clears its arguments.
    void reset();

    bool setIntValue(qint64 value, int index, VEKError *error = nullptr);
    bool setDoubleValue(double value, int index, VEKError *error = nullptr);
    // A null string binds NULL.
    bool setStringValue(const QString &value, int index, VEKError *error = nullptr);
    bool setNullValue(int index, VEKError *error = nullptr);

    // Runs a statement that returns no rows to its end.
    bool execute(VEKError *error = nullptr);

    // Steps to the next row: true if there is one; false at the end, and false with `error`
    // filled on a failure.
    bool evaluateNextRow(VEKError *error = nullptr);

    // NULL reads as 0, 0.0 and a null string.
    qint64 intValueAtColumn(int column) const;
    double doubleValueAtColumn(int column) const;
    QString stringValueAtColumn(int column) const;
    bool isNullAtColumn(int column) const;

private:
    bool check(int rc, VEKError *error, const char *what);

    VEKDatabase *m_db;
    sqlite3_stmt *m_statement;
};
