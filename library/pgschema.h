#pragma once

#include <QSqlDatabase>
#include <QString>
#include <QStringList>

// The store's schema on a PostgreSQL server, and the server's form of the full-text search.
//
// The tables and columns are those of the embedded database. Full-text search is PostgreSQL's own:
// a tsvector column that the server computes from the searched columns (GIN-indexed), holding every
// word once as it is and once tagged with its column, so that a column filter is an index look-up as
// well. Words are split and folded as the embedded index does it: letters and digits only, case and
// the accents of Latin letters ignored, no stemming and no stop words.
class PgSchema
{
public:
    static constexpr int kVersion = 1;

    // Creates and migrates the tables, the search column and its index. Idempotent; several machines
    // may start at once (see lock()). Returns whether full-text search is ready.
    static bool ensure(const QSqlDatabase& db);
    // After every table exists: each change of a store table notifies kChannel, and, when `complete`
    // (every step of ensure() succeeded), the version is recorded.
    static void finish(const QSqlDatabase& db, bool complete);
    // Serialises the set-up of several machines starting at once on one server.
    static void lock(const QSqlDatabase& db);
    static void unlock(const QSqlDatabase& db);
    static int version(const QSqlDatabase& db);

    // The argument of the server's search function for the terms that MusicLibrary::appendFtsTerms
    // built, or false in `ok` for a term the embedded index would refuse as a syntax error, so that
    // such a search finds nothing on both databases.
    static QString searchArgument(const QStringList& terms, bool* ok);

    // The notification channel: its payload is the changed table's name.
    static const QString kChannel;
    // The store's tables, in the order in which a copy fills them.
    static const QStringList kTables;
};
