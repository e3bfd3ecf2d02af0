#pragma once

// Small helpers shared by the store's tests: a private home folder, a fresh database per test case,
// one-value queries. Header-only so each test program stays a single source file.
//
// With ONDARO_DATABASE_URL set the same tests run against that PostgreSQL server: each test program
// gets a database of its own there (named after the program), emptied for every fresh store.

#include "databaseurl.h"
#include "musiclibrary.h"
#include "teststore.h"
#include "track.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QList>
#include <QProcess>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QStandardPaths>
#include <QStringList>
#include <QVariant>

namespace testsupport {

inline const QString kConnection = QStringLiteral("od_library");
inline const QString kServerAdminConnection = QStringLiteral("od_test_admin");

// Whether the store of this run is a PostgreSQL server.
inline bool onServer()
{
    return !qEnvironmentVariableIsEmpty("ONDARO_DATABASE_URL");
}

// Runs `statements` on a connection of its own to database `name` of the configured server; an error
// of SQL state `expectedState` is no failure.
inline bool runOnServer(const QString& name, const QStringList& statements, const QString& expectedState = {})
{
    const DatabaseUrl url = DatabaseUrl::configured();
    bool ok = true;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"), kServerAdminConnection);
        db.setHostName(url.host);
        if (url.port > 0)
            db.setPort(url.port);
        db.setUserName(url.userName);
        db.setPassword(url.password);
        db.setDatabaseName(name);
        ok = db.open();
        if (!ok)
            qWarning("test support: %s", qPrintable(db.lastError().text()));
        for (const QString& sql : statements) {
            if (!ok)
                break;
            QSqlQuery q(db);
            ok = q.exec(sql) || q.lastError().nativeErrorCode() == expectedState;
            if (!ok)
                qWarning("test support: %s", qPrintable(q.lastError().text()));
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(kServerAdminConnection);
    return ok;
}

// Moves this program onto a database of its own on the server, created when missing.
inline void useOwnServerDatabase()
{
    const DatabaseUrl url = DatabaseUrl::configured();
    QString program = QCoreApplication::applicationName().toLower();
    program.replace(QRegularExpression(QStringLiteral("[^a-z0-9_]")), QStringLiteral("_"));
    const QString name = QStringLiteral("ondaro_") + program;
    if (url.databaseName == name)
        return;
    // 42P04: the database exists already.
    runOnServer(url.databaseName, {QStringLiteral("CREATE DATABASE %1").arg(name)}, QStringLiteral("42P04"));
    qputenv("ONDARO_DATABASE_URL", url.withDatabase(name).text.toUtf8());
}

// Points HOME at `dir` and switches Qt to its test locations, so the store lives under
// dir/.qttest/config/... and never near a real user's database.
inline void useTemporaryHome(const QString& dir)
{
    qputenv("HOME", QFile::encodeName(dir));
    QStandardPaths::setTestModeEnabled(true);
    if (onServer())
        useOwnServerDatabase();
}

inline QString configFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation);
}

inline QString databaseFile()
{
    return configFolder() + QStringLiteral("/library.db");
}

inline void closeStore()
{
    ondarotest::closeStore();
}

inline void removeStoreFiles()
{
    ondarotest::removeDatabaseFiles(databaseFile());
}

// Closes the shared connection and deletes the database; the next database() call starts afresh.
inline void discardStore()
{
    closeStore();
    if (onServer()) {
        runOnServer(DatabaseUrl::configured().databaseName,
                    {QStringLiteral("SET client_min_messages = warning"),
                     QStringLiteral("DROP SCHEMA IF EXISTS public CASCADE"),
                     QStringLiteral("CREATE SCHEMA public")});
    }
    removeStoreFiles();
    QDir(configFolder() + QStringLiteral("/libraries")).removeRecursively();
}

// A new, empty, fully set-up store.
inline bool freshStore()
{
    discardStore();
    return MusicLibrary::initialize();
}

inline QVariant scalar(const QString& sql, const QVariantList& values = {})
{
    QSqlQuery q(MusicLibrary::database());
    q.prepare(sql);
    for (const QVariant& v : values)
        q.addBindValue(v);
    if (!q.exec() || !q.next())
        return QVariant();
    return q.value(0);
}

inline bool run(const QString& sql)
{
    QSqlQuery q(MusicLibrary::database());
    return q.exec(sql);
}

inline QStringList titlesOf(const QList<Track>& tracks)
{
    QStringList titles;
    for (const Track& t : tracks)
        titles << t.title;
    return titles;
}

inline QStringList artistsOf(const QList<Track>& tracks)
{
    QStringList artists;
    for (const Track& t : tracks)
        artists << t.artist;
    return artists;
}

// A stable picture of every stored row, used to prove that a search changed nothing.
inline QStringList dumpTracks()
{
    QStringList rows;
    QSqlQuery q(MusicLibrary::database());
    q.exec(QStringLiteral("SELECT * FROM tracks ORDER BY id"));
    while (q.next()) {
        QStringList fields;
        for (int i = 0; i < q.record().count(); ++i)
            fields << q.value(i).toString();
        rows << fields.join(QLatin1Char('|'));
    }
    return rows;
}

// A track with the given texts, for inserting through addTrack.
inline Track makeTrack(const QString& artist, const QString& title, const QString& path = QString(),
                       int year = 0, qint64 durationMs = 0)
{
    Track t;
    t.artist = artist;
    t.title = title;
    t.filePath = path.isEmpty() ? QStringLiteral("/music/%1 - %2.mp3").arg(artist, title) : path;
    t.year = year;
    t.durationMs = durationMs;
    return t;
}

// Runs scripts/pg-test-server.sh COMMAND FOLDER [OPTION] (start, stop; --fresh, --remove) for a
// test that starts and stops a PostgreSQL server of its own; true when the script succeeded.
inline bool runTestServer(const QString& command, const QString& folder, const QString& option = QString())
{
    QProcess script;
    script.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QStringList args{QStringLiteral(ONDARO_SOURCE_DIR "/scripts/pg-test-server.sh"), command, folder};
    if (!option.isEmpty())
        args << option;
    script.start(QStringLiteral("bash"), args);
    return script.waitForFinished(120000) && script.exitStatus() == QProcess::NormalExit &&
           script.exitCode() == 0;
}

} // namespace testsupport
