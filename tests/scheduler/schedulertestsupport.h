#pragma once

// Helpers shared by the scheduler's tests: a private configuration folder with the programs' own
// identity (so that ondaro-schedule started by a test finds the same database), a generated tone and
// a generated library of real files.

#include "musiclibrary.h"
#include "schedulebuilder.h"
#include "testlocations.h"
#include "testmedia.h"
#include "teststore.h"
#include "testtracks.h"
#include "track.h"
#include "trackparams.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSqlDatabase>
#include <QStandardPaths>
#include <QString>

namespace schedtest {

// Points the per-user folders into `dir` and takes the identity of the Ondaro programs; from then on
// the store's database is dir/config/Ondaro/Ondaro/library.db and never a real user's.
inline void useConfigFolder(const QString& dir)
{
    ondarotest::useTemporaryHome(dir);
    QCoreApplication::setOrganizationName(QStringLiteral("Ondaro"));
    QCoreApplication::setApplicationName(QStringLiteral("Ondaro"));
}

inline QString databaseFile()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation) +
           QStringLiteral("/library.db");
}

// Drops the shared connection and its files and sets the store up again on an empty database.
inline bool freshStore()
{
    return ondarotest::freshStore();
}

// A short sine tone made with sox; returns whether the file exists afterwards.
inline bool makeTone(const QString& path, double seconds = 0.2)
{
    return ondarotest::makeSmallTone(path, seconds);
}

inline Track fileTrack(const QString& artist, const QString& title, const QString& path,
                       const QString& category, qint64 ms)
{
    Track t = ondarotest::fileTrack(artist, title, path, ms);
    t.category = category; // as given, also when empty
    return t;
}

// A library of real files in five categories, all copies of one tone; the store keeps radio-like
// lengths for them. Songs (A, B, C, Gold) come from 48 artists, jingles have no artist.
struct GeneratedLibrary {
    QString name;
    QList<Track> tracks;
    QString tone; // the tone every file copies, not itself in the library
};

inline GeneratedLibrary generateLibrary(const QString& folder, const QString& name, int songsPerCategory = 60,
                                        int jingles = 60)
{
    GeneratedLibrary generated;
    generated.name = name;
    QDir().mkpath(folder);
    generated.tone = folder + QStringLiteral("/tone.wav");
    if (!QFile::exists(generated.tone) && !makeTone(generated.tone))
        return generated;
    const QStringList songCategories = {QStringLiteral("A"), QStringLiteral("B"), QStringLiteral("C"),
                                        QStringLiteral("Gold")};
    int n = 0;
    for (const QString& category : songCategories) {
        for (int i = 0; i < songsPerCategory; ++i, ++n) {
            const QString artist = QStringLiteral("Artist %1").arg(n % 48, 2, 10, QLatin1Char('0'));
            const QString title = QStringLiteral("%1 Song %2").arg(category).arg(i);
            const QString path = QStringLiteral("%1/%2 - %3.wav").arg(folder, artist, title);
            // Lengths from 2:30 to 4:39, varied so that hours do not all look alike.
            generated.tracks << fileTrack(artist, title, path, category, 150000 + (n * 7919) % 130000);
        }
    }
    for (int i = 0; i < jingles; ++i) {
        const QString path = QStringLiteral("%1/Jingle %2.wav").arg(folder).arg(i);
        generated.tracks << fileTrack(QString(), QStringLiteral("Jingle %1").arg(i), path,
                                      QStringLiteral("Jingle"), 8000 + i * 100);
    }
    for (const Track& t : generated.tracks)
        QFile::copy(generated.tone, t.filePath);

    MusicLibrary library;
    library.setLibrary(name);
    QSqlDatabase db = MusicLibrary::database();
    db.transaction();
    for (const Track& t : generated.tracks)
        library.addTrack(t);
    db.commit();
    return generated;
}

inline QByteArray json(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

// A schedule from the named library; a library that cannot be read is logged and gives an empty
// schedule, which the test's own checks then reject.
inline Schedule buildSchedule(const QString& libraryName, const StationFormat& format, const QDateTime& from,
                              int hours, quint64 seed)
{
    const ScheduleBuilder::Outcome outcome = ScheduleBuilder::build(libraryName, format, from, hours, seed);
    if (!outcome.ok)
        qWarning() << outcome.error;
    return outcome.schedule;
}

} // namespace schedtest
