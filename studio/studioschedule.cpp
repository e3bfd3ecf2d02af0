#include "studioschedule.h"

#include "tracktext.h"

#include <algorithm>

namespace {

constexpr qint64 secondsPerDay = 24 * 60 * 60;

qint64 wholeSeconds(const Track& track)
{
    return std::max<qint64>(track.durationMs / 1000, 0);
}

} // namespace

namespace StudioSchedule {

QString trackText(const Track& track)
{
    if (track.isCommand)
        return commandRowText(track);
    if (!track.artist.isEmpty() && !track.title.isEmpty())
        return track.artist + QStringLiteral(" – ") + track.title;
    if (!track.title.isEmpty())
        return track.title;
    const qsizetype slash =
        std::max(track.filePath.lastIndexOf(QLatin1Char('/')), track.filePath.lastIndexOf(QLatin1Char('\\')));
    return track.isStream ? track.filePath : track.filePath.mid(slash + 1);
}

qint64 lengthAfter(const QList<Track>& rows, int row)
{
    qint64 total = 0;
    for (qsizetype i = std::max(row + 1, 0); i < rows.size(); ++i)
        total += std::max<qint64>(rows.at(i).durationMs, 0);
    return total;
}

QTime plannedEnd(const QList<Track>& rows)
{
    if (rows.isEmpty() || !rows.last().startTime.isValid())
        return QTime();
    return rows.last().startTime.addSecs(int(wholeSeconds(rows.last()) % secondsPerDay));
}

QTime anchorFor(const QList<Track>& rows, int row, const QTime& startedAt)
{
    qint64 before = 0;
    for (qsizetype i = 0; i < std::min<qsizetype>(row, rows.size()); ++i)
        before += wholeSeconds(rows.at(i));
    return startedAt.addSecs(-int(before % secondsPerDay));
}

QDateTime anchorAt(const QList<Track>& rows, int row, const QDateTime& startedAt)
{
    qint64 before = 0;
    for (qsizetype i = 0; i < std::min<qsizetype>(row, rows.size()); ++i)
        before += wholeSeconds(rows.at(i));
    return startedAt.addSecs(-before);
}

QString formatLength(qint64 ms)
{
    if (ms < 0)
        return QStringLiteral("--:--");
    const qint64 seconds = ms / 1000;
    const auto two = [](qint64 n) { return QStringLiteral("%1").arg(n, 2, 10, QLatin1Char('0')); };
    if (seconds < 3600)
        return QString::number(seconds / 60) + QLatin1Char(':') + two(seconds % 60);
    return QString::number(seconds / 3600) + QLatin1Char(':') + two(seconds / 60 % 60) + QLatin1Char(':') +
           two(seconds % 60);
}

} // namespace StudioSchedule
