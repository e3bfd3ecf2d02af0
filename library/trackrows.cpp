#include "trackrows.h"

#include "directquery.h"
#include "libraryconnection.h"
#include "sqldialect.h"
#include "storequery.h"
#include "storetransaction.h"

#include <QFileInfo>

namespace {

// An empty text; StoreQuery binds it (and a null one) as ''.
const QString kEmptyText = QStringLiteral("");

qint64 firstValue(const QString& sql, const QVariantList& values)
{
    StoreQuery q("Reading a count");
    if (q.run(sql, values) && q.next())
        return q.value(0).toLongLong();
    return 0;
}

// The values as StoreQuery binds them, for the direct reads.
QVariantList bindable(QVariantList values)
{
    for (QVariant& v : values)
        v = StoreQuery::bindable(v);
    return values;
}

} // namespace

TrackRows::TrackRows(const QString& library) : m_library(library) {}

bool TrackRows::lacksDuration(const QString& path, bool isStream, qint64 durationMs)
{
    return !isStream && durationMs <= 0 && !path.isEmpty();
}

bool TrackRows::recordPlay(const QString& filePath, const QDateTime& when)
{
    if (filePath.isEmpty())
        return true;
    StoreQuery q("Recording a play");
    return q.run(
        QStringLiteral("UPDATE tracks SET play_count = play_count + 1, last_played = ? WHERE filepath = ?"),
        {when.toString(Qt::ISODate), filePath});
}

void TrackRows::clear() const
{
    StoreQuery q("Clearing a library");
    q.run(QStringLiteral("DELETE FROM tracks WHERE library=?"), {m_library});
}

int TrackRows::count() const
{
    return static_cast<int>(
        firstValue(QStringLiteral("SELECT COUNT(*) FROM tracks WHERE library=?"), {m_library}));
}

qint64 TrackRows::totalDurationMs() const
{
    return firstValue(QStringLiteral("SELECT COALESCE(SUM(duration_ms),0) FROM tracks WHERE library=?"),
                      {m_library});
}

bool TrackRows::insert(StoreQuery& insert, const QList<Track>& rows) const
{
    // As many rows per statement as the engine takes at once; a statement is prepared again only when
    // its row count changes (the last, shorter part of a batch).
    const SqlDialect dialect = SqlDialect::current();
    const qsizetype perStatement = dialect.rowsPerTrackInsert();
    qsizetype prepared = 0;
    for (qsizetype first = 0; first < rows.size(); first += perStatement) {
        const qsizetype count = qMin<qsizetype>(perStatement, rows.size() - first);
        if (count != prepared) {
            if (!insert.prepare(dialect.insertTracks(int(count))))
                return false;
            prepared = count;
        }
        for (qsizetype i = first; i < first + count; ++i)
            bindRow(insert, rows.at(i));
        if (!insert.exec())
            return false;
    }
    return true;
}

void TrackRows::bindRow(StoreQuery& insert, const Track& t) const
{
    insert.bind(m_library);
    insert.bind(t.filePath);
    insert.bind(t.isStream ? kEmptyText : QFileInfo(t.filePath).fileName());
    insert.bind(t.artist);
    insert.bind(t.title);
    insert.bind(t.album);
    insert.bind(t.genre);
    insert.bind(t.comment);
    insert.bind(t.year);
    insert.bind(t.durationMs);
    // An unknown length is stored as '' and never as "--:--".
    insert.bind(t.durationMs > 0 ? formatDuration(t.durationMs) : kEmptyText);
    insert.bind(t.category);
    insert.bind(t.isStream ? 1 : 0);
    insert.bind(t.streamLimitMs);
    insert.bind(QDateTime::currentDateTime().toString(Qt::ISODate));
}

bool TrackRows::add(const Track& t) const
{
    StoreQuery q("Adding a track");
    return insert(q, {t});
}

int TrackRows::addBatch(const QList<Track>& rows) const
{
    if (rows.isEmpty())
        return 0;
    // Made before the transaction, so that it ends after the rollback: a server cannot free a
    // statement inside a failed transaction.
    StoreQuery q("Adding tracks");
    StoreTransaction batch("Adding files");
    if (!batch.isActive())
        return 0;
    if (!insert(q, rows))
        return 0;
    return batch.commit() ? int(rows.size()) : 0;
}

void TrackRows::updateStream(const QString& oldUrl, const QString& title, const QString& newUrl) const
{
    StoreQuery q("Changing a stream");
    q.run(QStringLiteral(
              "UPDATE tracks SET filepath=?, title=? WHERE library=? AND filepath=? AND is_stream=1"),
          {newUrl.trimmed(), title.trimmed().isEmpty() ? newUrl.trimmed() : title.trimmed(), m_library,
           oldUrl});
}

int TrackRows::updateDuration(const QString& filePath, qint64 ms) const
{
    StoreQuery q("Storing a duration");
    if (!q.run(QStringLiteral("UPDATE tracks SET duration_ms=?, duration_str=? WHERE library=? AND "
                              "filepath=? AND is_stream=0"),
               {ms, formatDuration(ms), m_library, filePath}))
        return 0;
    return q.numRowsAffected();
}

int TrackRows::removeFiles(const QStringList& paths) const
{
    if (paths.isEmpty())
        return 0;
    // Made before the transaction, so that it ends after the rollback (see addBatch).
    StoreQuery remove("Removing a missing file");
    StoreTransaction batch("Removing missing files");
    if (!batch.isActive())
        return 0;
    if (!remove.prepare(QStringLiteral("DELETE FROM tracks WHERE library=? AND filepath=?")))
        return 0;
    for (const QString& path : paths) {
        remove.bind(m_library);
        remove.bind(path);
        if (!remove.exec())
            return 0;
    }
    return batch.commit() ? int(paths.size()) : 0;
}

QStringList TrackRows::filesWithoutDuration() const
{
    QStringList paths;
    // Same condition and order as the plain listing, so rows that tie on artist and title come in
    // the order the table shows them; the filter runs here rather than in SQL for that reason.
    const QString sql = SqlDialect::current().statement(SqlDialect::Statement::FilesWithoutDuration);
    const QVariantList values{m_library};
    auto keep = [&paths](const QString& path, int isStream, qint64 durationMs) {
        if (lacksDuration(path, isStream != 0, durationMs))
            paths << path;
    };
    DirectQuery direct(LibraryConnection::database());
    if (direct.isUsable()) {
        if (direct.exec(sql, bindable(values))) {
            while (direct.next())
                keep(direct.text(0), direct.toInt(1), direct.integer(2));
        }
        return paths;
    }
    StoreQuery q("Listing the files without a duration");
    q.setForwardOnly(true);
    if (!q.run(sql, values))
        return paths;
    while (q.next())
        keep(q.value(0).toString(), q.value(1).toInt(), q.value(2).toLongLong());
    return paths;
}
