#include "pgschema.h"

#include "sqldialect.h"

const QString PgSchema::kChannel = QStringLiteral("ondaro_library");
const QStringList PgSchema::kTables = {QStringLiteral("libraries"), QStringLiteral("tracks"),
                                       QStringLiteral("track_params"), QStringLiteral("as_run"),
                                       QStringLiteral("track_analysis")};

int PgSchema::version(const QSqlDatabase& db)
{
    return StoreSchema::serverVersion(db);
}

QString PgSchema::searchArgument(const QStringList& terms, bool* ok)
{
    return SqlDialect(SqlDialect::Engine::Server).fullTextArgument(terms, ok);
}
