#pragma once

// Small helpers shared by the store's tests: a private home folder, a fresh database per test case,
// one-value queries. Header-only so each test program stays a single source file.

#include "musiclibrary.h"
#include "track.h"

#include <QDir>
#include <QFile>
#include <QList>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QStandardPaths>
#include <QStringList>
#include <QVariant>

namespace testsupport {

inline const QString kConnection = QStringLiteral("od_library");

// Points HOME at `dir` and switches Qt to its test locations, so the store lives under
// dir/.qttest/config/... and never near a real user's database.
inline void useTemporaryHome(const QString& dir)
{
    qputenv("HOME", QFile::encodeName(dir));
    QStandardPaths::setTestModeEnabled(true);
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
    if (!QSqlDatabase::contains(kConnection))
        return;
    {
        QSqlDatabase db = QSqlDatabase::database(kConnection, false);
        db.close();
    }
    QSqlDatabase::removeDatabase(kConnection);
}

inline void removeStoreFiles()
{
    for (const char* suffix : {"", "-wal", "-shm", "-journal"})
        QFile::remove(databaseFile() + QLatin1String(suffix));
}

// Closes the shared connection and deletes the database; the next database() call starts afresh.
inline void discardStore()
{
    closeStore();
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

} // namespace testsupport
