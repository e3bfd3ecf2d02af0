#pragma once

#include "storeschema.h"

#include <QSqlDatabase>
#include <QString>
#include <QStringList>

// Names the store uses on a PostgreSQL server. Its schema is set up by StoreSchema from
// schema/postgresql-1.sql.
class PgSchema
{
public:
    static constexpr int kVersion = StoreSchema::kServerVersion;

    static int version(const QSqlDatabase& db);

    // The argument of the server's search function for the terms that MusicLibrary::appendFtsTerms
    // built (SqlDialect::fullTextArgument on a server).
    static QString searchArgument(const QStringList& terms, bool* ok);

    // The notification channel: its payload is the changed table's name.
    static const QString kChannel;
    // The store's tables, in the order in which a copy fills them.
    static const QStringList kTables;
};
