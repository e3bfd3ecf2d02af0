#pragma once

#include "sqldialect.h"

#include <QSqlDatabase>
#include <QString>
#include <QStringList>
#include <QVariantList>

// The store's tables, created and migrated in one step. The statements live in one versioned SQL file
// per engine among the library's resources (schema/sqlite-3.sql, schema/postgresql-1.sql), in named
// sections; this class decides which sections run, by what is actually there (columns, version), so
// that running the step twice, or on a database made by an earlier release, changes nothing and loses
// nothing.
class StoreSchema
{
public:
    // "PRAGMA user_version" of an up-to-date embedded database.
    static constexpr int kEmbeddedVersion = 3;
    // The version recorded in table ondaro_schema of an up-to-date server.
    static constexpr int kServerVersion = 1;

    // The whole step on the store's connection: the library tables, the track parameters, the
    // analysis results and the as-run log; on a server also the change notifications and the version,
    // under a lock that keeps machines starting at once from doing it together. False when the
    // database is not open.
    static bool apply();
    // The library tables alone (libraries, tracks, full-text index), created and migrated.
    static void applyTrackTables();
    // Whether the full-text index is ready, as the last apply() found it.
    static bool fullTextReady();

    // Runs the statements of `section` of the current engine's file on the store's connection,
    // binding `values` to each statement that has placeholders. With `stopAtFailure` the first failed
    // statement ends the section; otherwise every statement runs (each is idempotent). True when all
    // succeeded. A failure is logged under `operation` (a literal).
    static bool run(const QString& section, const QVariantList& values = {}, bool stopAtFailure = true,
                    const char* operation = "Setting up the library database");

    // The statements of `section` of `engine`'s file, in order; empty (and logged) for an unknown one.
    static QStringList statements(SqlDialect::Engine engine, const QString& section);
    // The section names of `engine`'s file, in file order.
    static QStringList sections(SqlDialect::Engine engine);
    // The statements of an SQL text in the schema files' format (see the head of either file), by
    // section.
    static QList<QPair<QString, QStringList>> parse(const QString& text);

    // The schema version a server records (0 when it has none).
    static int serverVersion(const QSqlDatabase& db);

private:
    static void applyEmbeddedTrackTables();
    static bool applyServerTrackTables(const QSqlDatabase& db);
    static void finishServer(const QSqlDatabase& db, bool complete);
    static bool addFilenameColumn();
};
