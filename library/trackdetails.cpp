#include "trackdetails.h"

#include "libraryconnection.h"
#include "librarylogging.h"
#include "librarysql.h"
#include "musiclibrary.h"
#include "storequery.h"

#include <QAtomicInteger>
#include <QFileInfo>
#include <QSet>
#include <QSqlDatabase>

#include <chrono>
#include <future>
#include <memory>
#include <thread>

namespace {

// The rows of up to `chunk` files per statement: filepath has no index of its own, so each
// statement is one pass over the table. Ordered by id so that a file held by two libraries gives
// its oldest row, on either database.
constexpr int kChunk = 400;
const QString kEmbeddedColumns = QStringLiteral("*");

QString byPathStatement(const QString& columns, int count)
{
    QStringList marks;
    marks.reserve(count);
    for (int i = 0; i < count; ++i)
        marks << QStringLiteral("?");
    return QStringLiteral("SELECT ") + columns +
           QStringLiteral(" FROM tracks WHERE is_stream=0 AND filepath IN (") + marks.join(QLatin1Char(',')) +
           QStringLiteral(") ORDER BY id");
}

QHash<QString, Track> readRows(QSqlDatabase db, const QString& columns, const QStringList& paths)
{
    QHash<QString, Track> found;
    StoreQuery query(db, "Reading track details");
    query.setForwardOnly(true);
    for (qsizetype first = 0; first < paths.size(); first += kChunk) {
        const QStringList chunk = paths.mid(first, kChunk);
        if (!query.prepare(byPathStatement(columns, int(chunk.size()))))
            return found;
        for (const QString& path : chunk)
            query.bind(path);
        if (!query.exec())
            return found;
        while (query.next()) {
            const Track track = trackFromRecord(query.query());
            if (!found.contains(track.filePath))
                found.insert(track.filePath, track);
        }
    }
    return found;
}

// On a connection of its own on a thread of its own: a server that stops answering holds only that
// thread, which is left to finish (or hang) by itself.
QHash<QString, Track> readFromServer(const QStringList& paths, int waitMs)
{
    static QAtomicInteger<int> serial;
    const QString name = QStringLiteral("od_track_details_%1").arg(serial.fetchAndAddRelaxed(1));
    const DatabaseUrl url = LibraryConnection::url();
    auto promise = std::make_shared<std::promise<QHash<QString, Track>>>();
    std::future<QHash<QString, Track>> answer = promise->get_future();
    std::thread([promise, url, name, paths] {
        QHash<QString, Track> found;
        {
            QSqlDatabase db = LibraryConnection::openServer(url, name);
            if (db.isOpen())
                found = readRows(db, librarysql::serverColumns, paths);
            db.close();
        }
        QSqlDatabase::removeDatabase(name);
        promise->set_value(found);
    }).detach();
    if (answer.wait_for(std::chrono::milliseconds(waitMs)) != std::future_status::ready) {
        qCWarning(lcLibrary) << "track details: the database server did not answer within" << waitMs
                             << "ms; names and lengths come from the files";
        return {};
    }
    return answer.get();
}

bool isFileRow(const Track& track)
{
    return !track.isCommand && !track.isStream && !track.filePath.isEmpty();
}

} // namespace

QHash<QString, Track> TrackDetails::fromLibrary(const QStringList& paths, int serverWaitMs)
{
    if (paths.isEmpty())
        return {};
    if (LibraryConnection::isServer())
        return LibraryConnection::problem().isEmpty() ? readFromServer(paths, serverWaitMs)
                                                      : QHash<QString, Track>();
    // The embedded database is a local file: it answers.
    const QSqlDatabase db = MusicLibrary::database();
    if (!db.isOpen())
        return {};
    return readRows(db, kEmbeddedColumns, paths);
}

void TrackDetails::fill(QList<Track>& tracks, const QList<int>& rows, int serverWaitMs)
{
    QStringList paths;
    for (int row : rows) {
        if (row >= 0 && row < tracks.size() && isFileRow(tracks.at(row)) &&
            QFileInfo(tracks.at(row).filePath).isFile())
            paths << tracks.at(row).filePath;
    }
    paths.removeDuplicates();
    if (paths.isEmpty())
        return;
    const QSet<QString> wanted(paths.cbegin(), paths.cend());
    const QHash<QString, Track> known = fromLibrary(paths, serverWaitMs);
    QHash<QString, Track> fromFiles; // a list may hold one jingle many times
    for (int row : rows) {
        if (row < 0 || row >= tracks.size() || !wanted.contains(tracks.at(row).filePath))
            continue;
        Track& track = tracks[row];
        const QString path = track.filePath;
        const QTime startTime = track.startTime;
        const qint64 streamLimitMs = track.streamLimitMs;
        const TimedStart timed = track.timed; // the row's, not the file's
        auto stored = known.constFind(path);
        if (stored != known.constEnd()) {
            track = *stored;
            if (track.durationMs <= 0) { // in the library, its length not measured yet
                Track tagged;
                readTags(path, tagged);
                track.durationMs = tagged.durationMs;
            }
        } else {
            auto read = fromFiles.constFind(path);
            if (read == fromFiles.constEnd()) {
                Track tagged;
                readTags(path, tagged);
                read = fromFiles.insert(path, tagged);
            }
            track = *read;
        }
        track.filePath = path;
        track.startTime = startTime;
        track.streamLimitMs = streamLimitMs;
        track.timed = timed;
    }
}
