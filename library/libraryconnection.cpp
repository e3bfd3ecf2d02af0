#include "libraryconnection.h"

#include "librarylogging.h"
#include "storelocation.h"

#include <QDir>
#include <QElapsedTimer>
#include <QSqlError>
#include <QSqlQuery>
#include <QThread>

#include <atomic>

namespace {

const QString kConnectionName = QStringLiteral("od_library");

// What the process knows about the connection it made; reset whenever the connection is made anew.
struct ConnectionState {
    DatabaseUrl url;
    bool server = false;
    bool unusable = false; // a malformed URL or a missing driver: never try to open
    bool schemaReady = false;
    bool reopening = false;
    bool everConnected = false; // a later failure to connect is a lost connection
    QString problem;
    int generation = 0;
    QElapsedTimer sinceAttempt;
    QThread* owner = nullptr; // the thread the shared connection belongs to
};

ConnectionState g_state;
bool g_urlGiven = false;
DatabaseUrl g_givenUrl;
std::atomic<int> g_reconnectIntervalMs{2000};
int g_sharedFailures = 0;

// A worker thread's own connection and what it knows about it.
struct ThreadConnection {
    bool active = false;
    QString name;
    LibraryConnection::Target target;
    bool everConnected = false;
    QString problem;
    QElapsedTimer sinceAttempt;
    int failures = 0;
};

thread_local ThreadConnection t_own;
std::atomic<int> g_threadConnections{0};
// Sets the store up on a connection that opened late; given by the store's initialisation.
std::function<void()> g_schemaStep;

QString openFailure(const QSqlDatabase& db, const DatabaseUrl& url)
{
    QString reason = db.lastError().text().trimmed();
    reason.replace(QLatin1Char('\n'), QLatin1Char(' '));
    return QStringLiteral("Cannot reach the database server %1: %2").arg(url.displayText(), reason);
}

// Errors that mean the session is gone, as opposed to a statement the server refused: libpq gives no
// SQL state when the socket closed, class 08 for connection failures, 57P0x when the server stops.
bool isConnectionError(const QSqlError& error)
{
    const QString code = error.nativeErrorCode();
    return code.isEmpty() || code.startsWith(QLatin1String("08")) || code.startsWith(QLatin1String("57P"));
}

// "relation already exists, skipping" and the like would otherwise go to standard error at each start.
void quietNotices(const QSqlDatabase& db)
{
    QSqlQuery(db).exec(QStringLiteral("SET client_min_messages TO warning"));
}

QString lostText(const DatabaseUrl& url, const QString& reason)
{
    QString text = reason.trimmed();
    text.replace(QLatin1Char('\n'), QLatin1Char(' '));
    return QStringLiteral("Lost the connection to the database server %1: %2").arg(url.displayText(), text);
}

QString lostText(const QString& reason)
{
    return lostText(g_state.url, reason);
}

// Opens (or reopens) this thread's own server connection; a failure is logged once per loss.
bool openThreadServer(QSqlDatabase& db)
{
    t_own.sinceAttempt.start();
    if (db.open()) {
        quietNotices(db);
        if (!t_own.problem.isEmpty())
            qCInfo(lcLibrary).noquote() << "A worker is connected to the database server"
                                        << t_own.target.url.displayText() << "again";
        t_own.problem.clear();
        t_own.everConnected = true;
        return true;
    }
    const QString problem = t_own.everConnected ? lostText(t_own.target.url, db.lastError().text())
                                                : openFailure(db, t_own.target.url);
    if (problem != t_own.problem)
        qCWarning(lcLibrary).noquote() << problem;
    t_own.problem = problem;
    return false;
}

QSqlDatabase threadDatabase()
{
    QSqlDatabase db = QSqlDatabase::database(t_own.name, false);
    if (t_own.target.server && db.isValid() && !db.isOpen() &&
        (!t_own.sinceAttempt.isValid() || t_own.sinceAttempt.hasExpired(g_reconnectIntervalMs)))
        openThreadServer(db);
    return db;
}

void markThreadLost(QSqlDatabase& db, const QString& reason)
{
    t_own.problem = lostText(t_own.target.url, reason);
    qCWarning(lcLibrary).noquote() << t_own.problem;
    db.close();
    t_own.sinceAttempt.invalidate();
}

} // namespace

QSqlDatabase LibraryConnection::database()
{
    if (t_own.active)
        return threadDatabase();
    if (!QSqlDatabase::contains(kConnectionName))
        return create();
    if (!g_state.server)
        return QSqlDatabase::database(kConnectionName, true);
    // A lost server is reopened by check() on the watcher's timer only: a caller here gets the closed
    // connection at once, so every store call gives its neutral result without a connect attempt.
    return QSqlDatabase::database(kConnectionName, false);
}

QSqlDatabase LibraryConnection::create()
{
    g_state = ConnectionState();
    g_state.owner = QThread::currentThread();
    g_state.url = g_urlGiven ? g_givenUrl : DatabaseUrl::configured();
    if (g_state.url.isEmbedded()) {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), kConnectionName);
        db.setDatabaseName(StoreLocation::embeddedDatabaseFile());
        if (db.open() && QThread::idealThreadCount() > 1) {
            // Lets SQLite sort a large listing's rows on a second core while it still reads them.
            QSqlQuery(db).exec(QStringLiteral("PRAGMA threads=1"));
        }
        return db;
    }

    g_state.server = true;
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"), kConnectionName);
    if (!g_state.url.isValid()) {
        g_state.unusable = true;
        g_state.problem = QStringLiteral("The database URL \"%1\" is not usable: %2")
                              .arg(g_state.url.text, g_state.url.error);
        qCWarning(lcLibrary).noquote() << g_state.problem;
        return db;
    }
    if (!db.isValid()) {
        g_state.unusable = true;
        g_state.problem = QStringLiteral("Qt's PostgreSQL driver (QPSQL) is not installed; the library at "
                                         "%1 cannot be used")
                              .arg(g_state.url.displayText());
        qCWarning(lcLibrary).noquote() << g_state.problem;
        return db;
    }
    configure(db, g_state.url);
    g_state.sinceAttempt.start();
    if (db.open()) {
        ++g_state.generation;
        g_state.everConnected = true;
        quietNotices(db);
    } else {
        g_state.problem = openFailure(db, g_state.url);
        qCWarning(lcLibrary).noquote() << g_state.problem;
    }
    return db;
}

void LibraryConnection::configure(QSqlDatabase& db, const DatabaseUrl& url)
{
    if (!url.host.isEmpty())
        db.setHostName(url.host);
    if (url.port > 0)
        db.setPort(url.port);
    if (!url.userName.isEmpty())
        db.setUserName(url.userName);
    if (!url.password.isEmpty())
        db.setPassword(url.password);
    db.setDatabaseName(url.databaseName);
    db.setConnectOptions(connectOptionsFor(url));
}

QString LibraryConnection::connectOptionsFor(const DatabaseUrl& url)
{
    // Seconds idle before the first keepalive probe, seconds between probes, probes unanswered, and
    // milliseconds sent data may stay unacknowledged: a server lost on the network is noticed within
    // 3 + 2 * 3 = 9 s, whether the connection is idle or waits for an answer. Unix sockets ignore them,
    // and a server process that is stopped on a host that still answers is not noticed this way (its
    // kernel acknowledges): LibraryWatcher finds that one. Options of the URL come last, so that one
    // given there wins.
    QString options = QStringLiteral(
        "keepalives=1;keepalives_idle=3;keepalives_interval=2;keepalives_count=3;tcp_user_timeout=9000");
    if (!url.connectOptions.isEmpty())
        options += QLatin1Char(';') + url.connectOptions;
    return options;
}

QSqlDatabase LibraryConnection::openServer(const DatabaseUrl& url, const QString& connectionName)
{
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"), connectionName);
    if (!db.isValid() || !url.isValid() || url.isEmbedded())
        return db;
    configure(db, url);
    if (db.open())
        quietNotices(db);
    return db;
}

void LibraryConnection::setUrl(const DatabaseUrl& url)
{
    g_urlGiven = true;
    g_givenUrl = url;
}

void LibraryConnection::reopen(QSqlDatabase& db)
{
    if (g_state.unusable || g_state.reopening)
        return;
    if (g_state.sinceAttempt.isValid() && !g_state.sinceAttempt.hasExpired(g_reconnectIntervalMs))
        return;
    g_state.sinceAttempt.start();
    if (!db.open()) {
        g_state.problem =
            g_state.everConnected ? lostText(db.lastError().text()) : openFailure(db, g_state.url);
        return;
    }
    ++g_state.generation;
    quietNotices(db);
    g_state.problem.clear();
    g_state.everConnected = true;
    qCInfo(lcLibrary).noquote() << "Connected to the database server" << g_state.url.displayText();
    if (!g_state.schemaReady) {
        // The server was not there at start-up: set the store up now that it is.
        g_state.reopening = true;
        if (g_schemaStep)
            g_schemaStep();
        g_state.reopening = false;
    }
}

void LibraryConnection::markLost(QSqlDatabase& db, const QString& reason)
{
    g_state.problem = lostText(reason);
    qCWarning(lcLibrary).noquote() << g_state.problem;
    // Closing also drops the driver's socket notifier for notifications on the dead socket.
    db.close();
    // The first attempt to reconnect may follow at once: a restarted server is often back already.
    g_state.sinceAttempt.invalidate();
}

void LibraryConnection::markAway(const QString& reason)
{
    if (!g_state.server || !QSqlDatabase::contains(kConnectionName) ||
        (g_state.owner && QThread::currentThread() != g_state.owner))
        return;
    QSqlDatabase db = QSqlDatabase::database(kConnectionName, false);
    g_state.problem = reason.isEmpty() ? lostText(QStringLiteral("the connection was closed")) : reason;
    qCWarning(lcLibrary).noquote() << g_state.problem;
    // Closing sends one small farewell the kernel takes at once, even from a server that is stopped.
    db.close();
    g_state.sinceAttempt.invalidate();
}

bool LibraryConnection::isServer()
{
    if (t_own.active)
        return t_own.target.server;
    if (!QSqlDatabase::contains(kConnectionName))
        return !(g_urlGiven ? g_givenUrl : DatabaseUrl::configured()).isEmbedded();
    return g_state.server;
}

QString LibraryConnection::problem()
{
    if (t_own.active)
        return t_own.problem;
    return g_state.problem;
}

DatabaseUrl LibraryConnection::url()
{
    return g_state.url;
}

int LibraryConnection::generation()
{
    return g_state.generation;
}

void LibraryConnection::setSchemaReady(bool ready)
{
    g_state.schemaReady = ready;
}

void LibraryConnection::setSchemaStep(std::function<void()> step)
{
    g_schemaStep = std::move(step);
}

void LibraryConnection::setReconnectInterval(int ms)
{
    g_reconnectIntervalMs = ms;
}

void LibraryConnection::noteFailure(const QSqlError& error, const char* operation)
{
    QString why = error.text().trimmed();
    if (why.isEmpty())
        why = g_state.problem.isEmpty() ? QStringLiteral("the database is not open") : g_state.problem;
    qCWarning(lcLibrary).noquote() << operation << "failed:" << why;
    reportFailure(error);
}

void LibraryConnection::reportFailure(const QSqlError& error)
{
    if (t_own.active) {
        ++t_own.failures;
        QSqlDatabase db = QSqlDatabase::database(t_own.name, false);
        if (!t_own.target.server || !isConnectionError(error))
            return;
        if (!db.isOpen()) {
            // The driver closes a connection it found broken; a loss not known yet is one now.
            if (t_own.everConnected && t_own.problem.isEmpty())
                markThreadLost(db, error.text());
            return;
        }
        QSqlQuery probe(db);
        if (!probe.exec(QStringLiteral("SELECT 1")) && isConnectionError(probe.lastError()))
            markThreadLost(db, error.text());
        return;
    }
    // A connection of another thread's own (not made through openThreadConnection) says nothing about
    // the shared one, which only its own thread may touch.
    if (g_state.owner && QThread::currentThread() != g_state.owner)
        return;
    ++g_sharedFailures;
    if (!g_state.server || !QSqlDatabase::contains(kConnectionName))
        return;
    QSqlDatabase db = QSqlDatabase::database(kConnectionName, false);
    if (!isConnectionError(error))
        return;
    if (!db.isOpen()) {
        // The driver closes a connection it found broken; a loss not known yet is one now.
        if (g_state.everConnected && g_state.problem.isEmpty())
            markLost(db, error.text());
        return;
    }
    QSqlQuery probe(db);
    if (!probe.exec(QStringLiteral("SELECT 1")) && isConnectionError(probe.lastError()))
        markLost(db, error.text());
}

bool LibraryConnection::check()
{
    if (t_own.active) {
        QSqlDatabase db = threadDatabase();
        if (!t_own.target.server || !db.isOpen())
            return db.isOpen();
        QSqlQuery probe(db);
        if (probe.exec(QStringLiteral("SELECT 1")))
            return true;
        if (isConnectionError(probe.lastError())) {
            markThreadLost(db, probe.lastError().text());
            return false;
        }
        return true;
    }
    QSqlDatabase db = database();
    if (!g_state.server)
        return db.isOpen();
    if (!db.isOpen())
        reopen(db);
    if (!db.isOpen())
        return false;
    QSqlQuery probe(db);
    if (probe.exec(QStringLiteral("SELECT 1")))
        return true;
    if (isConnectionError(probe.lastError())) {
        markLost(db, probe.lastError().text());
        return false;
    }
    return true;
}

LibraryConnection::Target LibraryConnection::target()
{
    Target target;
    if (QSqlDatabase::contains(kConnectionName)) {
        const QSqlDatabase db = QSqlDatabase::database(kConnectionName, false);
        if (db.driverName() == QLatin1String("QSQLITE")) {
            target.file = db.databaseName();
            return target;
        }
        target.server = true;
        target.url = g_state.url;
        return target;
    }
    const DatabaseUrl url = g_urlGiven ? g_givenUrl : DatabaseUrl::configured();
    if (url.isEmbedded()) {
        target.file = StoreLocation::embeddedDatabaseFile();
    } else {
        target.server = true;
        target.url = url;
    }
    return target;
}

bool LibraryConnection::openThreadConnection(const Target& target)
{
    closeThreadConnection();
    t_own = ThreadConnection();
    t_own.active = true;
    t_own.target = target;
    t_own.name = QStringLiteral("od_library_thread_%1").arg(++g_threadConnections);
    if (!target.server) {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), t_own.name);
        db.setDatabaseName(target.file);
        // Milliseconds to wait for the other connection's write to end instead of failing at once.
        db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=5000"));
        if (db.open())
            return true;
        t_own.problem = db.lastError().text();
        qCWarning(lcLibrary).noquote()
            << "A worker cannot open the library database" << target.file << ":" << t_own.problem;
        return false;
    }
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"), t_own.name);
    if (!db.isValid() || !target.url.isValid()) {
        t_own.problem = QStringLiteral("The database server %1 cannot be used").arg(target.url.displayText());
        qCWarning(lcLibrary).noquote() << t_own.problem;
        return false;
    }
    configure(db, target.url);
    return openThreadServer(db);
}

void LibraryConnection::closeThreadConnection()
{
    if (!t_own.active)
        return;
    const QString name = t_own.name;
    {
        QSqlDatabase db = QSqlDatabase::database(name, false);
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
    t_own = ThreadConnection();
}

bool LibraryConnection::hasThreadConnection()
{
    return t_own.active;
}

int LibraryConnection::failureCount()
{
    return t_own.active ? t_own.failures : g_sharedFailures;
}
