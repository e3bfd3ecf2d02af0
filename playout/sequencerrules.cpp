#include "sequencerrules.h"

#include <QDir>

RowAction rowAction(const Track& track, bool fileThere, bool skipMissing)
{
    if (track.isCommand) {
        const QString command = track.command.toLower();
        if (command == QLatin1String("stop"))
            return RowAction::Stop;
        if (command == QLatin1String("pause"))
            return RowAction::Pause;
        return RowAction::OtherCommand;
    }
    if (skipMissing && isFileRow(track) && !fileThere)
        return RowAction::SkipMissing;
    return RowAction::Play;
}

bool isFileRow(const Track& track)
{
    return !track.isCommand && !track.isStream && !track.filePath.isEmpty();
}

int firstValidQueued(const QList<int>& queue, int rowCount)
{
    for (int row : queue) {
        if (row >= 0 && row < rowCount)
            return row;
    }
    return -1;
}

NextChoice chooseNextRow(int currentRow, int rowCount, const QList<int>& queue, bool shuffle,
                         const RowDraw& draw)
{
    const int queued = firstValidQueued(queue, rowCount);
    if (queued >= 0)
        return {queued, true};
    if (shuffle && rowCount > 1) {
        int row = currentRow;
        for (int attempt = 0; attempt < 8; ++attempt) {
            row = draw(rowCount);
            if (row != currentRow)
                break;
        }
        return {row, false};
    }
    const int row = currentRow + 1;
    return {row < rowCount ? row : -1, false};
}

int choosePreviousRow(int currentRow)
{
    return currentRow - 1 >= 0 ? currentRow - 1 : -1;
}

int chooseMixRow(int currentRow, const QList<Track>& rows, const QList<int>& queue)
{
    const int count = int(rows.size());
    const int queued = firstValidQueued(queue, count);
    const int row = queued >= 0 ? queued : currentRow + 1;
    if (row < 0 || row >= count || rows.at(row).isCommand)
        return -1;
    return row;
}

bool nothingPlayable(int skipsInARow, int rowCount, bool anyPlayableRow)
{
    return !anyPlayableRow || skipsInARow > rowCount;
}

int silentLimitMs(const Track& track, bool fileThere, int fileLimitMs, int streamLimitMs)
{
    if (track.isCommand || track.filePath.isEmpty())
        return -1;
    if (track.isStream)
        return streamLimitMs;
    return fileThere ? fileLimitMs : -1;
}

namespace SequencerLog {

QString missingSkipped(const QString& path)
{
    return QStringLiteral("File not found, skipped: %1").arg(QDir::toNativeSeparators(path));
}

QString nothingPlayable()
{
    return QStringLiteral("No playable file found in the playlist - playback stopped");
}

QString streamSkipped(const QString& url, int seconds)
{
    return QStringLiteral("Stream did not answer within %1 s, skipped: %2").arg(seconds).arg(url);
}

QString fileSkipped(const QString& path, int seconds)
{
    return QStringLiteral("File did not start playing within %1 s, skipped: %2")
        .arg(seconds)
        .arg(QDir::toNativeSeparators(path));
}

QString loadTimedOut(const QString& path)
{
    return QStringLiteral("Load timed out, skipped: %1").arg(QDir::toNativeSeparators(path));
}

} // namespace SequencerLog
