#pragma once

#include "core/VEKError.h"

#include <QString>
#include <memory>

struct sqlite3;
class VEKDatabaseQuery;

// One connection to an SQLite file. Each thread that writes opens its own connection; SQLite
// arbitrates between them. The file runs in WAL mode with a busy timeout, so a writer waits for
// another's lock instead of failing. Not thread-safe: use a connection on one thread at a time.
class VEKDatabase {
public:
    VEKDatabase();
    virtual ~VEKDatabase();
    VEKDatabase(const VEKDatabase &) = delete;
    VEKDatabase &operator=(const VEKDatabase &) = delete;

    // Opens the file, creating an empty database if there is none. False with `error` filled if
    // the file cannot be opened or is not a database.
    bool initWithURL(const QString &path, VEKError *error = nullptr);
    // Opens an existing file to look at it: nothing is created, changed or written back (no
    // journal mode is set, and closing folds no log into the file).
    bool initReadOnlyWithURL(const QString &path, VEKError *error = nullptr);
    void close();
    bool isOpen() const { return m_db != nullptr; }
    const QString &path() const { return m_path; }

    // Runs one statement without arguments to its end. On a closed connection: false, no error.
    bool executeStatement(const QString &sql, VEKError *error = nullptr);

    // Prepares a statement with ? placeholders; null and `error` filled on failure (or on a
    // closed connection, null with no error).
    std::unique_ptr<VEKDatabaseQuery> queryWithStatement(const QString &sql,
                                                         VEKError *error = nullptr);

    // Batches: a run of writes that stands or falls together, and is much faster than the same
    // statements each in its own implicit transaction.
    bool beginTransaction(VEKError *error = nullptr);
    bool commitTransaction(VEKError *error = nullptr);
    bool rollbackTransaction(VEKError *error = nullptr);
    bool inTransaction() const;

    // The error of the last failed call on this connection, as a VEKError.
    VEKError lastError(const QString &context = {}) const;

    sqlite3 *handle() const { return m_db; }

    // How long a statement waits for another connection's lock before it fails.
    static constexpr int busyTimeoutMs = 10000;

private:
    sqlite3 *m_db = nullptr;
    QString m_path;
};

// Runs a transaction for the life of the scope; rolls back unless commit() was called.
class VEKDatabaseTransaction {
public:
    explicit VEKDatabaseTransaction(VEKDatabase *db, VEKError *error = nullptr);
    ~VEKDatabaseTransaction();
    bool isActive() const { return m_active; }
    bool commit(VEKError *error = nullptr);

private:
    VEKDatabase *m_db;
    bool m_active = false;
};
