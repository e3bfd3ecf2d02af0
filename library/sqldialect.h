#pragma once

#include <QSqlDatabase>
#include <QString>
#include <QStringList>

// The one place that knows how the embedded database (SQLite) and a PostgreSQL server differ in the
// statements the store writes. Every statement is written once per engine here (or built from parts
// that are), never by rewriting the embedded text; the embedded forms are the store's documented
// statements, character for character.
class SqlDialect
{
public:
    enum class Engine { Embedded, Server };

    // Statements that differ between the engines. Each has a form for both (see forms()); one without
    // is logged as an error and never sent in the other engine's words.
    enum class Statement {
        InsertLibrary,        // bind the name; an existing name is no error
        ListLibraries,        // library names, ignoring case
        PlainListing,         // bind the library
        FullTextListing,      // bind the library, then fullTextArgument()
        LikeSearch,           // bind the library, then "%text%" eight times
        LikeQueryText,        // a query's free-text condition: "%text%" eight times
        FilesWithoutDuration, // bind the library: filepath, is_stream, duration_ms in listing order
    };
    // Every statement, for code that checks them all.
    static const QList<Statement> kStatements;

    explicit SqlDialect(Engine engine);
    // The engine of the store's connection on this thread.
    static SqlDialect current();
    // The engine of `db`'s driver.
    static SqlDialect of(const QSqlDatabase& db);

    Engine engine() const { return m_engine; }
    bool isServer() const { return m_engine == Engine::Server; }

    // The statement in this engine's words; empty (and logged) for one that has no such form.
    QString statement(Statement s) const;

    // Pieces of the listings built at run time (a query's conditions).
    // The columns of a whole track row: on a server they are named, so that the search column (a
    // tsvector) is not sent along.
    QString trackColumns() const;
    // The start of a listing of whole track rows, up to and including "FROM tracks".
    QString selectTracks() const;
    // Artist, then title, ignoring case, as the listings order them.
    QString orderByArtistTitle() const;
    // `expression` contains "%text%", ignoring case: "<expression> LIKE ?" in the embedded words.
    QString containsCondition(const QString& expression) const;

    // The INSERT of `rows` new tracks (15 values each, in the order of MusicLibrary's insert).
    QString insertTracks(int rows) const;
    // Rows that one INSERT of a batch carries: a server answers each statement over the network, the
    // embedded database reuses one prepared single-row statement.
    int rowsPerTrackInsert() const;

    // The column names of `table`, one per row in column `columnNameField()`, in table order; on a
    // server the generated columns (the search words) are left out, as the server computes them.
    QString columnsOfTable(const QString& table) const;
    int columnNameField() const;
    // After rows were copied with their ids: the statement that makes new ids follow the last one, or
    // empty where the engine does that by itself.
    QString identityAfterCopy(const QString& table) const;

    // The argument that FullTextListing binds for the terms MusicLibrary::appendFtsTerms built; false
    // in `ok` for terms the embedded index refuses as a syntax error, so that such a search finds
    // nothing on both engines.
    QString fullTextArgument(const QStringList& terms, bool* ok) const;

private:
    struct Forms {
        QString embedded;
        QString server;
    };
    static Forms forms(Statement s);

    Engine m_engine;
};
