#include "trackrowreader.h"

#include "directquery.h"

#include <QSqlQuery>
#include <QSqlRecord>
#include <QVariant>

namespace {

QStringList namesOf(const QSqlRecord& layout)
{
    QStringList names;
    for (int i = 0; i < layout.count(); ++i)
        names << layout.fieldName(i);
    return names;
}

// Column names compare as QSqlRecord::indexOf compares them: ignoring case.
int columnOf(const QStringList& names, const QString& name)
{
    for (int i = 0; i < names.size(); ++i) {
        if (names.at(i).compare(name, Qt::CaseInsensitive) == 0)
            return i;
    }
    return -1;
}

// The two row sources behind one set of conversions; a missing column (-1) reads as NULL.
struct QtRow {
    const QSqlQuery& query;
    QString text(int column) const { return column < 0 ? QString() : query.value(column).toString(); }
    qint64 integer(int column) const { return column < 0 ? 0 : query.value(column).toLongLong(); }
    int toInt(int column) const { return column < 0 ? 0 : query.value(column).toInt(); }
};

struct NativeRow {
    const DirectQuery& query;
    QString text(int column) const { return column < 0 ? QString() : query.text(column); }
    qint64 integer(int column) const { return column < 0 ? 0 : query.integer(column); }
    int toInt(int column) const { return column < 0 ? 0 : query.toInt(column); }
};

} // namespace

TrackRowReader::TrackRowReader(const QSqlRecord& layout) : TrackRowReader(namesOf(layout)) {}

TrackRowReader::TrackRowReader(const QStringList& names)
    : filepath(columnOf(names, QStringLiteral("filepath"))),
      artist(columnOf(names, QStringLiteral("artist"))), title(columnOf(names, QStringLiteral("title"))),
      album(columnOf(names, QStringLiteral("album"))), genre(columnOf(names, QStringLiteral("genre"))),
      comment(columnOf(names, QStringLiteral("comment"))), year(columnOf(names, QStringLiteral("year"))),
      durationMs(columnOf(names, QStringLiteral("duration_ms"))),
      category(columnOf(names, QStringLiteral("category"))),
      isStream(columnOf(names, QStringLiteral("is_stream"))),
      streamLimitMs(columnOf(names, QStringLiteral("stream_limit_ms"))),
      playCount(columnOf(names, QStringLiteral("play_count"))),
      lastPlayed(columnOf(names, QStringLiteral("last_played"))),
      dateAdded(columnOf(names, QStringLiteral("date_added")))
{
}

QDateTime TrackRowReader::parseDate(const QString& text)
{
    if (text.isEmpty())
        return QDateTime();
    // Each parse of a local time asks the C library for the time zone, which reads /etc/localtime's
    // status every time; a sorted listing mixes the rows of many batches, so remember every text.
    auto known = parsedDates.constFind(text);
    if (known != parsedDates.constEnd())
        return known.value();
    const QDateTime parsed = QDateTime::fromString(text, Qt::ISODate);
    parsedDates.insert(text, parsed);
    return parsed;
}

template <typename Row> Track TrackRowReader::build(const Row& row)
{
    Track t;
    t.filePath = row.text(filepath);
    t.artist = row.text(artist);
    t.title = row.text(title);
    t.album = row.text(album);
    t.genre = row.text(genre);
    t.comment = row.text(comment);
    t.year = row.toInt(year);
    t.durationMs = row.integer(durationMs);
    t.category = row.text(category);
    t.isStream = row.toInt(isStream) != 0;
    t.streamLimitMs = row.integer(streamLimitMs);
    t.playCount = row.toInt(playCount);
    t.lastPlayed = parseDate(row.text(lastPlayed));
    t.dateAdded = parseDate(row.text(dateAdded));
    return t;
}

Track TrackRowReader::read(const QSqlQuery& row)
{
    return build(QtRow{row});
}

Track TrackRowReader::read(const DirectQuery& row)
{
    return build(NativeRow{row});
}
