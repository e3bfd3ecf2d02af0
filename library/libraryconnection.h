#pragma once

#include "databaseurl.h"

#include <QSqlDatabase>
#include <QString>

class QSqlError;

// The store's one shared connection, "od_library": the embedded SQLite database of this workstation,
// or a PostgreSQL server named by DatabaseUrl::configured() that several studios share.
//
// A server can go away while a program runs. A statement that fails is reported here; when the
// connection turns out to be gone it is closed, every store operation meanwhile gives its neutral
// result, and database() opens it again by itself (at most once per reconnect interval, so that a
// server that does not answer never stalls each call).
class LibraryConnection
{
public:
    static QSqlDatabase database();
    static bool isServer();
    // Why the library cannot be used now (a malformed URL, an unreachable or lost server), in words
    // for the status line; empty while all is well.
    static QString problem();
    // The URL the connection was made from (empty for the embedded database).
    static DatabaseUrl url();
    // Counts the openings of the server connection, so that a listener knows when to subscribe again.
    static int generation();

    // A statement of `operation` failed: logs why and, on a server, checks whether the connection is
    // lost.
    static void noteFailure(const QSqlError& error, const char* operation);
    // On a server: checks that the connection answers (and reopens it when it is due). Returns
    // whether the library can be used.
    static bool check();

    // Makes the next connection use `url` (empty: the embedded database) instead of the configured
    // one; for tools that work on a given database.
    static void setUrl(const DatabaseUrl& url);
    // Opens a connection of its own, named `connectionName`, to the server of `url`.
    static QSqlDatabase openServer(const DatabaseUrl& url, const QString& connectionName);

    // The store's tables are set up on this connection (so a late first connection need not do it).
    static void setSchemaReady(bool ready);

    // Milliseconds between two attempts to reach a lost server.
    static void setReconnectInterval(int ms);

private:
    static QSqlDatabase create();
    static void configure(QSqlDatabase& db, const DatabaseUrl& url);
    static void reopen(QSqlDatabase& db);
    static void markLost(QSqlDatabase& db, const QString& reason);
};
