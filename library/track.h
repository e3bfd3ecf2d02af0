#pragma once

#include "timedstart.h"

#include <QDateTime>
#include <QMetaType>
#include <QString>
#include <QStringList>
#include <QTime>

class QSqlQuery;

// One library or playlist entry. A plain value: copies are cheap (implicitly shared strings).
// A stream is a Track whose filePath holds the URL and whose isStream is true.
struct Track {
    QString artist;
    QString title;
    QString album;
    QString genre;
    QString comment;
    QString filePath;
    int year = 0;
    qint64 durationMs = 0; // 0 = unknown
    QString category = QStringLiteral("Foreign");
    QStringList playoutTags; // playout side only, never stored
    QTime startTime;         // computed playlist start time, never stored
    bool isCommand = false;  // playlist command row, never stored
    QString command;         // command word of a command row, never stored
    bool isStream = false;
    bool italic = false; // playlist draws the row in italics, never stored
    int playCount = 0;
    QDateTime lastPlayed;
    QDateTime dateAdded;
    qint64 streamLimitMs = 0; // how long a stream plays, 0 = no limit
    TimedStart timed;         // a playlist row's fixed start time, never stored
};

// Every member is relocatable, so lists of Tracks grow by moving memory rather than element by element.
Q_DECLARE_TYPEINFO(Track, Q_RELOCATABLE_TYPE);
Q_DECLARE_METATYPE(Track)

// "--:--" below 1 ms, otherwise "mm:ss" with at least two digits each (minutes uncapped).
QString formatDuration(qint64 ms);

// Builds a Track from the current row of a query that selected whole rows of `tracks`.
Track trackFromRecord(const QSqlQuery& row);

// Fills `track` from the media file's tags; falls back to "Artist - Title" from the file name.
// Always returns true, also for files that cannot be opened.
bool readTags(const QString& path, Track& track);
