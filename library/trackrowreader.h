#pragma once

#include "track.h"

#include <QDateTime>
#include <QString>

class QSqlQuery;
class QSqlRecord;

// Builds Tracks from the rows of one result set of whole `tracks` rows, as trackFromRecord does, but
// resolves the column names once for the whole result set instead of once per value, and parses a
// date text only when it differs from the previous row's (rows added in one batch share it).
class TrackRowReader
{
public:
    explicit TrackRowReader(const QSqlRecord& layout);
    Track read(const QSqlQuery& row);

private:
    QDateTime parseDate(const QString& text, QString& lastText, QDateTime& lastDate);

    int filepath, artist, title, album, genre, comment, year, durationMs, category, isStream, streamLimitMs,
        playCount, lastPlayed, dateAdded;
    QString lastPlayedText, dateAddedText;
    QDateTime lastPlayedDate, dateAddedDate;
};
