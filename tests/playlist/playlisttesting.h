#pragma once

// Small helpers shared by the playlist test programs.

#include "musiclibrary.h"
#include "playlistmodel.h"
#include "testlocations.h"
#include "track.h"

#include <QBrush>
#include <QByteArray>
#include <QColor>
#include <QCoreApplication>
#include <QDataStream>
#include <QIODevice>
#include <QList>
#include <QModelIndex>
#include <QSignalSpy>
#include <QSqlDatabase>
#include <QStandardPaths>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QTime>
#include <QVariant>

namespace playlisttesting {

// Points the per-user locations at a fresh temporary home, so the store that the model reads for its
// colours is a throw-away database and never a real user's. Call before anything opens the store.
inline void useTemporaryHome(const QTemporaryDir& home, const QString& applicationName)
{
    ondarotest::useTemporaryHome(home.path());
    ondarotest::useTestLocations(QStringLiteral("OndaroTests"), applicationName);
}

// Opens the store inside a fresh temporary home (see useTemporaryHome); returns what went wrong, or an
// empty text when the store is open and lives in that home.
inline QString openTemporaryStore(const QTemporaryDir& home, const QString& applicationName)
{
    if (!home.isValid())
        return QStringLiteral("no temporary home");
    useTemporaryHome(home, applicationName);
    if (!MusicLibrary::initialize())
        return QStringLiteral("the store did not open");
    const QString databaseName = MusicLibrary::database().databaseName();
    if (!databaseName.startsWith(home.path()))
        return QStringLiteral("the store is outside the temporary home: ") + databaseName;
    return QString();
}

inline Track makeTrack(const QString& artist, const QString& title, qint64 durationMs = 180000,
                       const QString& filePath = QString())
{
    Track track;
    track.artist = artist;
    track.title = title;
    track.durationMs = durationMs;
    track.filePath = filePath.isEmpty() ? QStringLiteral("/music/%1 - %2.mp3").arg(artist, title) : filePath;
    return track;
}

inline Track makeCommand(const QString& word)
{
    return commandTrack(word);
}

// A playlist of n rows titled "T0".."Tn-1", each 60 s long.
inline void fill(PlaylistModel& model, int n, qint64 durationMs = 60000)
{
    for (int i = 0; i < n; ++i)
        model.appendTrack(makeTrack(QStringLiteral("A%1").arg(i), QStringLiteral("T%1").arg(i), durationMs));
}

// The titles of all rows, in order: lets a test state a running order as "T0 T3 T1".
inline QString order(const PlaylistModel& model)
{
    QStringList titles;
    for (const Track& track : model.tracks())
        titles << track.title;
    return titles.join(QLatin1Char(' '));
}

// A row payload as the model writes it: a big-endian 32-bit count, then the rows.
inline QByteArray rowsPayload(qint32 count, const QList<qint32>& rows)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out << count;
    for (qint32 row : rows)
        out << row;
    return bytes;
}

inline QByteArray rowsPayload(const QList<qint32>& rows)
{
    return rowsPayload(qint32(rows.size()), rows);
}

} // namespace playlisttesting

namespace playlisttesting {

// A dataChanged range as (top, left)-(bottom, right).
struct Range {
    int top;
    int left;
    int bottom;
    int right;
    bool operator==(const Range& other) const
    {
        return top == other.top && left == other.left && bottom == other.bottom && right == other.right;
    }
};

// The ranges that a spy on QAbstractItemModel::dataChanged recorded, in order.
inline QList<Range> changedRanges(const QSignalSpy& spy)
{
    QList<Range> ranges;
    for (const QList<QVariant>& args : spy) {
        const auto topLeft = args.at(0).value<QModelIndex>();
        const auto bottomRight = args.at(1).value<QModelIndex>();
        ranges.append({topLeft.row(), topLeft.column(), bottomRight.row(), bottomRight.column()});
    }
    return ranges;
}

inline bool isSolidBrush(const QVariant& value, const QColor& colour)
{
    if (!value.canConvert<QBrush>())
        return false;
    const QBrush brush = value.value<QBrush>();
    return brush.style() == Qt::SolidPattern && brush.color() == colour;
}

// True when every column of row has a solid background of colour.
inline bool rowHasBackground(const PlaylistModel& model, int row, const QColor& colour)
{
    for (int column = 0; column < PlaylistModel::ColumnCount; ++column) {
        if (!isSolidBrush(model.data(model.index(row, column), Qt::BackgroundRole), colour))
            return false;
    }
    return true;
}

} // namespace playlisttesting
