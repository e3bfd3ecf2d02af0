#include "asrunlog.h"

#include "libraryconnection.h"
#include "librarylogging.h"
#include "storequery.h"
#include "storeschema.h"

#include <QVariant>

namespace {

const QString kTimeFormat = QStringLiteral("yyyy-MM-dd'T'HH:mm:ss.zzz");

const QString kInsert =
    QStringLiteral("INSERT INTO as_run(started_at,filepath,artist,title,is_stream) VALUES(?,?,?,?,?)");
const QString kUpdateEnd = QStringLiteral("UPDATE as_run SET ended_at=?, played_ms=?, ended_by=? WHERE id=?");
const QString kUpdateTitle = QStringLiteral("UPDATE as_run SET title=? WHERE id=?");
const QString kSelectBetween = QStringLiteral(
    "SELECT id, started_at, ended_at, played_ms, filepath, artist, title, is_stream, ended_by FROM as_run "
    "WHERE started_at >= ? AND started_at < ? ORDER BY started_at, id");

} // namespace

QString AsRunLog::timeText(const QDateTime& when)
{
    return when.isValid() ? when.toLocalTime().toString(kTimeFormat) : QStringLiteral("");
}

QDateTime AsRunLog::timeFromText(const QString& text)
{
    QDateTime when = QDateTime::fromString(text, kTimeFormat);
    if (!when.isValid() && !text.isEmpty())
        when = QDateTime::fromString(text, Qt::ISODateWithMs);
    return when;
}

bool AsRunLog::ensureTable()
{
    return StoreSchema::run(QStringLiteral("as-run"), {}, true, "as-run log: creating the table");
}

qint64 AsRunLog::recordStart(const AsRunEntry& entry)
{
    if (!entry.startedAt.isValid()) {
        qCWarning(lcLibrary) << "as-run log: an entry without a start time is not recorded";
        return 0;
    }
    StoreQuery q("as-run log: start");
    if (!q.run(kInsert, {timeText(entry.startedAt), entry.filePath, entry.artist, entry.title,
                         entry.isStream ? 1 : 0}))
        return 0;
    const qint64 id = q.lastInsertId().toLongLong();
    if (id <= 0)
        qCWarning(lcLibrary) << "as-run log: the new row's id is unknown";
    return id > 0 ? id : 0;
}

bool AsRunLog::recordEnd(qint64 id, const QDateTime& endedAt, qint64 playedMs, const QString& endedBy)
{
    if (id <= 0)
        return false;
    StoreQuery q("as-run log: end");
    if (!q.run(kUpdateEnd, {timeText(endedAt), qMax<qint64>(playedMs, 0), endedBy, id}))
        return false;
    return q.numRowsAffected() > 0;
}

bool AsRunLog::updateTitle(qint64 id, const QString& title)
{
    if (id <= 0)
        return false;
    StoreQuery q("as-run log: title update");
    if (!q.run(kUpdateTitle, {title, id}))
        return false;
    return q.numRowsAffected() > 0;
}

QList<AsRunEntry> AsRunLog::entriesBetween(const QDateTime& from, const QDateTime& to)
{
    QList<AsRunEntry> entries;
    if (!from.isValid() || !to.isValid())
        return entries;
    StoreQuery q("as-run log: listing");
    q.setForwardOnly(true);
    if (!q.run(kSelectBetween, {timeText(from), timeText(to)}))
        return entries;
    while (q.next()) {
        AsRunEntry e;
        e.id = q.value(0).toLongLong();
        e.startedAt = timeFromText(q.value(1).toString());
        e.endedAt = timeFromText(q.value(2).toString());
        e.playedMs = q.value(3).toLongLong();
        e.filePath = q.value(4).toString();
        e.artist = q.value(5).toString();
        e.title = q.value(6).toString();
        e.isStream = q.value(7).toInt() != 0;
        e.endedBy = q.value(8).toString();
        entries << e;
    }
    return entries;
}

QList<AsRunEntry> AsRunLog::entriesOn(const QDate& day)
{
    if (!day.isValid())
        return {};
    return entriesBetween(day.startOfDay(), day.addDays(1).startOfDay());
}
