#pragma once

// A new library file with every table of the schema, in a folder of its own, and what it holds
// read back with SQL. Shared by the tests of the operations that write to it.

#include "db/VEKDatabaseQuery.h"
#include "library/Database.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

struct LibraryFile {
    explicit LibraryFile(const QString &hint = QStringLiteral("library"))
        : dir(TestEnvironment::makeTempDir(hint)), path(dir + QStringLiteral("/library"))
    {
        Database db;
        EXPECT_TRUE(db.initWithURL(path));
        for (const QString &s : Database::buildStatements())
            EXPECT_TRUE(db.executeStatement(s)) << s.toStdString();
    }
    // The first column of the first row of `select`; -1 when there is none.
    qint64 number(const QString &select) const
    {
        VEKDatabase db;
        db.initWithURL(path);
        auto q = db.queryWithStatement(select);
        return q && q->evaluateNextRow() ? q->intValueAtColumn(0) : -1;
    }

    QString dir, path;
};
