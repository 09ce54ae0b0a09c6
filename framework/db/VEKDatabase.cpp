#include "VEKDatabase.h"

#include "VEKDatabaseQuery.h"
#include "core/VEKLocalizedString.h"

#include <QFile>
#include <sqlite3.h>

VEKDatabase::VEKDatabase() = default;

VEKDatabase::~VEKDatabase() { close(); }

void VEKDatabase::close()
{
    if (m_db)
        sqlite3_close_v2(m_db);
    m_db = nullptr;
}

bool VEKDatabase::initReadOnlyWithURL(const QString &path, VEKError *error)
{
    close();
    m_path = path;
    const int rc = sqlite3_open_v2(QFile::encodeName(path).constData(), &m_db,
                                   SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr);
    if (rc != SQLITE_OK) {
        VEKError::set(error, VEKError(QStringLiteral("SQLite"), rc,
                                      VEKLocalizedString("Error_databaseOpen"),
                                      QString::fromUtf8(sqlite3_errstr(rc)) + QStringLiteral(" (")
                                          + path + QLatin1Char(')')));
        close();
        return false;
    }
    sqlite3_busy_timeout(m_db, busyTimeoutMs);
    sqlite3_extended_result_codes(m_db, 1);
    return true;
}

bool VEKDatabase::initWithURL(const QString &path, VEKError *error)
{
    m_path = path;
    sqlite3 *db = nullptr;
    const int rc = sqlite3_open_v2(QFile::encodeName(path).constData(), &db,
                                   SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE
                                       | SQLITE_OPEN_NOMUTEX,
                                   nullptr);
    if (rc != SQLITE_OK) {
        const QString reason = db ? QString::fromUtf8(sqlite3_errmsg(db))
                                  : QString::fromUtf8(sqlite3_errstr(rc));
        if (db)
            sqlite3_close_v2(db);
        VEKError::set(error, VEKError(QStringLiteral("SQLite"), rc,
                                      VEKLocalizedString("Error_databaseOpen"),
                                      reason + QStringLiteral(" (") + path + QLatin1Char(')')));
        return false;
    }
    m_db = db;
    sqlite3_busy_timeout(m_db, busyTimeoutMs);
    sqlite3_extended_result_codes(m_db, 1);
    // Reading the journal mode also proves the file is a database: a corrupt or foreign file
    // fails here rather than at the first query.
    if (!executeStatement(QStringLiteral("PRAGMA journal_mode=WAL;"), error)) {
        sqlite3_close_v2(m_db);
        m_db = nullptr;
        return false;
    }
    executeStatement(QStringLiteral("PRAGMA synchronous=NORMAL;"));
    return true;
}

bool VEKDatabase::executeStatement(const QString &sql, VEKError *error)
{
    if (!m_db)
        return false;
    char *message = nullptr;
    const int rc = sqlite3_exec(m_db, sql.toUtf8().constData(), nullptr, nullptr, &message);
    if (rc != SQLITE_OK) {
        const QString reason = message ? QString::fromUtf8(message) : QString();
        sqlite3_free(message);
        VEKError::set(error, VEKError(QStringLiteral("SQLite"), rc,
                                      VEKLocalizedString("Error_database"), reason));
        return false;
    }
    return true;
}

std::unique_ptr<VEKDatabaseQuery> VEKDatabase::queryWithStatement(const QString &sql,
                                                                  VEKError *error)
{
    if (!m_db)
        return nullptr;
    sqlite3_stmt *statement = nullptr;
    const QByteArray utf8 = sql.toUtf8();
    const int rc = sqlite3_prepare_v2(m_db, utf8.constData(), int(utf8.size()), &statement,
                                      nullptr);
    if (rc != SQLITE_OK || !statement) {
        VEKError::set(error, lastError());
        sqlite3_finalize(statement);
        return nullptr;
    }
    return std::make_unique<VEKDatabaseQuery>(this, statement);
}

bool VEKDatabase::beginTransaction(VEKError *error)
{
    // IMMEDIATE takes the write lock now (waiting on the busy timeout), so a batch never
    // fails half-way for want of it.
    return executeStatement(QStringLiteral("BEGIN IMMEDIATE;"), error);
}

bool VEKDatabase::commitTransaction(VEKError *error)
{
    return executeStatement(QStringLiteral("COMMIT;"), error);
}

bool VEKDatabase::rollbackTransaction(VEKError *error)
{
    return executeStatement(QStringLiteral("ROLLBACK;"), error);
}

bool VEKDatabase::inTransaction() const
{
    return m_db && sqlite3_get_autocommit(m_db) == 0;
}

VEKError VEKDatabase::lastError(const QString &context) const
{
    if (!m_db)
        return {};
    QString reason = QString::fromUtf8(sqlite3_errmsg(m_db));
    if (!context.isEmpty())
        reason += QStringLiteral(" (") + context + QLatin1Char(')');
    return VEKError(QStringLiteral("SQLite"), sqlite3_extended_errcode(m_db),
                    VEKLocalizedString("Error_database"), reason);
}

VEKDatabaseTransaction::VEKDatabaseTransaction(VEKDatabase *db, VEKError *error) : m_db(db)
{
    m_active = m_db && m_db->beginTransaction(error);
}

VEKDatabaseTransaction::~VEKDatabaseTransaction()
{
    if (m_active)
        m_db->rollbackTransaction();
}

bool VEKDatabaseTransaction::commit(VEKError *error)
{
    if (!m_active)
        return false;
    m_active = false;
    if (m_db->commitTransaction(error))
        return true;
    m_db->rollbackTransaction();
    return false;
}
