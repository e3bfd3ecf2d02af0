#include "trackrowreader.h"

#include <QSqlQuery>
#include <QSqlRecord>
#include <QVariant>

TrackRowReader::TrackRowReader(const QSqlRecord& layout)
    : filepath(layout.indexOf(QStringLiteral("filepath"))), artist(layout.indexOf(QStringLiteral("artist"))),
      title(layout.indexOf(QStringLiteral("title"))), album(layout.indexOf(QStringLiteral("album"))),
      genre(layout.indexOf(QStringLiteral("genre"))), comment(layout.indexOf(QStringLiteral("comment"))),
      year(layout.indexOf(QStringLiteral("year"))), durationMs(layout.indexOf(QStringLiteral("duration_ms"))),
      category(layout.indexOf(QStringLiteral("category"))),
      isStream(layout.indexOf(QStringLiteral("is_stream"))),
      streamLimitMs(layout.indexOf(QStringLiteral("stream_limit_ms"))),
      playCount(layout.indexOf(QStringLiteral("play_count"))),
      lastPlayed(layout.indexOf(QStringLiteral("last_played"))),
      dateAdded(layout.indexOf(QStringLiteral("date_added")))
{
}

QDateTime TrackRowReader::parseDate(const QString& text, QString& lastText, QDateTime& lastDate)
{
    if (text.isEmpty())
        return QDateTime();
    if (text != lastText) {
        lastText = text;
        lastDate = QDateTime::fromString(text, Qt::ISODate);
    }
    return lastDate;
}

Track TrackRowReader::read(const QSqlQuery& row)
{
    // A missing column reads as NULL.
    auto value = [&row](int column) { return column < 0 ? QVariant() : row.value(column); };
    Track t;
    t.filePath = value(filepath).toString();
    t.artist = value(artist).toString();
    t.title = value(title).toString();
    t.album = value(album).toString();
    t.genre = value(genre).toString();
    t.comment = value(comment).toString();
    t.year = value(year).toInt();
    t.durationMs = value(durationMs).toLongLong();
    t.category = value(category).toString();
    t.isStream = value(isStream).toInt() != 0;
    t.streamLimitMs = value(streamLimitMs).toLongLong();
    t.playCount = value(playCount).toInt();
    t.lastPlayed = parseDate(value(lastPlayed).toString(), lastPlayedText, lastPlayedDate);
    t.dateAdded = parseDate(value(dateAdded).toString(), dateAddedText, dateAddedDate);
    return t;
}
