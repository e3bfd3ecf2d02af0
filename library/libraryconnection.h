#pragma once

#include "databaseurl.h"

#include <QSqlDatabase>
#include <QString>

#include <functional>

class QSqlError;

// The store's one shared connection, "od_library": the embedded SQLite database of this workstation,
// or a PostgreSQL server named by DatabaseUrl::configured() that several studios share.
//
// A server can go away while a program runs. A statement that fails is reported here; when the
// connection turns out to be gone it is closed, and every store operation meanwhile gives its neutral
// result at once. Only check() opens it again (at most once per reconnect interval), which the library
// watcher calls on its timer once its own thread has reached the server: a caller of database() never
// waits for a connect attempt. A server that stops answering without closing the connection is found
// by the watcher, which calls markAway().
//
// A worker thread that reads or writes the store (so that the playout never waits on a server) opens a
// connection of its own with openThreadConnection(); from then on every store operation on that thread
// (database(), check(), noteFailure(), isServer(), problem()) uses it, since a Qt connection serves only
// the thread that made it.
class LibraryConnection
{
public:
    // Where a worker's own connection leads: the shared connection's SQLite file, or its server.
    struct Target {
        bool server = false;
        QString file;    // the SQLite file, when not a server
        DatabaseUrl url; // the server, when one
    };
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
    // The same without the log line, for StoreQuery and StoreTransaction, which log the statement
    // themselves: counts the failure and, on a server, checks whether the connection is lost.
    static void reportFailure(const QSqlError& error);
    // On a server: checks that the connection answers (and reopens it when it is due). Returns
    // whether the library can be used. May wait for the server: the watcher calls it only after its
    // own thread got an answer.
    static bool check();
    // The server does not answer (the watcher's question is open too long): the shared connection is
    // closed, so that store calls give their neutral result at once, and `reason` (empty: "the
    // connection was closed") is the problem until check() reconnects. Logged.
    static void markAway(const QString& reason);
    // The options given to libpq for a server of `url`: keepalive and send time-outs first, then the
    // URL's own.
    static QString connectOptionsFor(const DatabaseUrl& url);

    // Makes the next connection use `url` (empty: the embedded database) instead of the configured
    // one; for tools that work on a given database.
    static void setUrl(const DatabaseUrl& url);
    // Opens a connection of its own, named `connectionName`, to the server of `url`.
    static QSqlDatabase openServer(const DatabaseUrl& url, const QString& connectionName);

    // The store's tables are set up on this connection (so a late first connection need not do it).
    static void setSchemaReady(bool ready);
    // What sets the store up when the server was not there at start-up and a reconnect reaches it:
    // given once by the store's initialisation, so that this class needs to know nothing of it.
    static void setSchemaStep(std::function<void()> step);

    // Milliseconds between two attempts to reach a lost server.
    static void setReconnectInterval(int ms);

    // Where the shared connection leads; read on the thread that uses the shared connection.
    static Target target();
    // On a worker thread: opens a connection of its own to `target` under a name unique to the thread,
    // used by every store operation on the thread from then on. Returns whether it is open now (a
    // server not reached yet is tried again by database(), as the shared connection is).
    static bool openThreadConnection(const Target& target);
    // Closes and forgets this thread's own connection; call it on the thread before it ends.
    static void closeThreadConnection();
    // Whether this thread uses a connection of its own.
    static bool hasThreadConnection();
    // Counts the failed statements of this thread's connection (or of the shared one), so that a
    // worker can tell a neutral result from a read that failed.
    static int failureCount();

private:
    static QSqlDatabase create();
    static void configure(QSqlDatabase& db, const DatabaseUrl& url);
    static void reopen(QSqlDatabase& db);
    static void markLost(QSqlDatabase& db, const QString& reason);
};
