#include "VEKDatabaseQuery.h"

#include "VEKDatabase.h"
#include "core/VEKPaths.h"

#include <sqlite3.h>

VEKDatabaseQuery::VEKDatabaseQuery(VEKDatabase *db, sqlite3_stmt *statement)
    : m_db(db), m_statement(statement)
{
}

VEKDatabaseQuery::~VEKDatabaseQuery() { sqlite3_finalize(m_statement); }

void VEKDatabaseQuery::reset()
{
    sqlite3_reset(m_statement);
    sqlite3_clear_bindings(m_statement);
}

bool VEKDatabaseQuery::check(int rc, VEKError *error, const char *what)
{
    if (rc == SQLITE_OK || rc == SQLITE_DONE || rc == SQLITE_ROW)
        return true;
    VEKError::set(error, m_db->lastError(QString::fromLatin1(what)));
    return false;
}

bool VEKDatabaseQuery::setIntValue(qint64 value, int index, VEKError *error)
{
    return check(sqlite3_bind_int64(m_statement, index + 1, value), error, "bind");
}

bool VEKDatabaseQuery::setDoubleValue(double value, int index, VEKError *error)
{
    return check(sqlite3_bind_double(m_statement, index + 1, value), error, "bind");
}

bool VEKDatabaseQuery::setStringValue(const QString &value, int index, VEKError *error)
{
    if (value.isNull())
        return setNullValue(index, error);
    // A path's bytes that are not UTF-8 are stored as they are, so the file is found again.
    const QByteArray utf8 = VEKPaths::native(value);
    return check(sqlite3_bind_text(m_statement, index + 1, utf8.constData(), int(utf8.size()),
                                   SQLITE_TRANSIENT),
                 error, "bind");
}

bool VEKDatabaseQuery::setNullValue(int index, VEKError *error)
{
    return check(sqlite3_bind_null(m_statement, index + 1), error, "bind");
}

bool VEKDatabaseQuery::execute(VEKError *error)
{
    const int rc = sqlite3_step(m_statement);
    const bool ok = check(rc, error, "execute");
    sqlite3_reset(m_statement);
    return ok;
}

bool VEKDatabaseQuery::evaluateNextRow(VEKError *error)
{
    const int rc = sqlite3_step(m_statement);
    if (rc == SQLITE_ROW)
        return true;
    if (rc != SQLITE_DONE)
        check(rc, error, "step");
    return false;
}

qint64 VEKDatabaseQuery::intValueAtColumn(int column) const
{
    return sqlite3_column_int64(m_statement, column);
}

double VEKDatabaseQuery::doubleValueAtColumn(int column) const
{
    return sqlite3_column_double(m_statement, column);
}

QString VEKDatabaseQuery::stringValueAtColumn(int column) const
{
    const auto *text = reinterpret_cast<const char *>(sqlite3_column_text(m_statement, column));
    if (!text)
        return {};
    const int bytes = sqlite3_column_bytes(m_statement, column);
    if (bytes == 0)
        return QStringLiteral(""); // empty, not absent
    return VEKPaths::fromNative(QByteArray::fromRawData(text, bytes));
}

bool VEKDatabaseQuery::isNullAtColumn(int column) const
{
    return sqlite3_column_type(m_statement, column) == SQLITE_NULL;
}
