#pragma once

#include "track.h"

#include <QDateTime>
#include <QHash>
#include <QString>
#include <QStringList>

class DirectQuery;
class QSqlQuery;
class QSqlRecord;

// Builds Tracks from the rows of one result set of whole `tracks` rows, as trackFromRecord does, but
// resolves the column names once for the whole result set instead of once per value, and parses each
// distinct date text once (the rows added in one batch share one).
class TrackRowReader
{
public:
    explicit TrackRowReader(const QSqlRecord& layout);
    explicit TrackRowReader(const QStringList& columnNames);
    Track read(const QSqlQuery& row);
    Track read(const DirectQuery& row);

private:
    template <typename Row> Track build(const Row& row);
    QDateTime parseDate(const QString& text);

    int filepath, artist, title, album, genre, comment, year, durationMs, category, isStream, streamLimitMs,
        playCount, lastPlayed, dateAdded;
    QHash<QString, QDateTime> parsedDates;
};
