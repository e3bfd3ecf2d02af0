#include "playlisttiming.h"

#include "settingkeys.h"

#include <QStringList>
#include <QTimeZone>

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace {

// Texts as the user sees them, kept in one place.
const QString kFixedStartTip = QStringLiteral("Fixed start, %1: %2");
const QString kPlannedStartTip = QStringLiteral("Planned to start at %1");
const QString kUnknownStartTip = QStringLiteral("Planned start unknown: a row above it has no length");
const QString kWaitsForPlayTip = QStringLiteral("A STOP comes before it: it waits for Play");
const QString kSkippedTip = QStringLiteral("Skipped to meet the %1 time %2");
const QString kCutTip = QStringLiteral("Cut short at %1 for the hard time");
const QString kStaleTip = QStringLiteral("Skipped: its fixed time %1 passed too long ago");
const QString kClockFormat = QStringLiteral("HH:mm:ss");
const QString kDateClockFormat = QStringLiteral("yyyy-MM-dd HH:mm:ss");

constexpr int kSecondsPerDay = 24 * 60 * 60;

QString modeWord(TimedStart::Mode mode)
{
    return mode == TimedStart::Mode::Hard ? QStringLiteral("hard") : QStringLiteral("soft");
}

QTime timeOfDay(qint64 msSinceEpoch)
{
    if (msSinceEpoch == BackTiming::unknownTime)
        return QTime();
    return QDateTime::fromMSecsSinceEpoch(msSinceEpoch).time();
}

// Local time of day for many moments in a row: the zone's offset is looked up again only when a
// moment leaves the stretch between two clock changes. Each QDateTime conversion asks the zone, and
// 10,000 of them took some 20 ms, four times a schedule pass's budget.
struct LocalClock {
    QTimeZone zone = QTimeZone::systemTimeZone();
    qint64 from = 1; // [from, until): the stretch where offsetMs holds; empty at first
    qint64 until = 0;
    qint64 offsetMs = 0;

    QTime timeOf(qint64 msSinceEpoch)
    {
        if (msSinceEpoch == BackTiming::unknownTime)
            return QTime();
        if (msSinceEpoch < from || msSinceEpoch >= until)
            lookUp(msSinceEpoch);
        constexpr qint64 day = qint64(kSecondsPerDay) * 1000;
        const qint64 local = ((msSinceEpoch + offsetMs) % day + day) % day;
        return QTime::fromMSecsSinceStartOfDay(int(local));
    }

    void lookUp(qint64 msSinceEpoch)
    {
        const QDateTime at = QDateTime::fromMSecsSinceEpoch(msSinceEpoch, QTimeZone::utc());
        offsetMs = qint64(zone.offsetFromUtc(at)) * 1000;
        from = msSinceEpoch;
        until = msSinceEpoch + 1;
        if (!zone.hasTransitions()) {
            from = std::numeric_limits<qint64>::min() + 1;
            until = std::numeric_limits<qint64>::max();
            return;
        }
        const QTimeZone::OffsetData next = zone.nextTransition(at);
        until = next.atUtc.isValid() ? next.atUtc.toMSecsSinceEpoch() : std::numeric_limits<qint64>::max();
        const QTimeZone::OffsetData previous = zone.previousTransition(at);
        // A moment exactly on a change belongs to the new offset; the stretch then starts at it.
        if (previous.atUtc.isValid() && qint64(zone.offsetFromUtc(at.addMSecs(-1))) * 1000 == offsetMs)
            from = previous.atUtc.toMSecsSinceEpoch();
        else if (!previous.atUtc.isValid())
            from = std::numeric_limits<qint64>::min() + 1;
    }
};

// A row's skip or cut mark: its fate and the timed row it gives way to, or plays and -1 for none.
std::pair<BackTiming::Fate, int> markOf(const BackTiming::Plan& plan, int row)
{
    if (row >= plan.rows.size())
        return {BackTiming::Fate::Plays, -1};
    const BackTiming::RowPlan& planned = plan.rows.at(row);
    const bool marked = planned.fate == BackTiming::Fate::Skipped || planned.fate == BackTiming::Fate::Cut ||
                        planned.fate == BackTiming::Fate::Stale;
    return marked ? std::pair<BackTiming::Fate, int>(planned.fate, planned.timedRow)
                  : std::pair<BackTiming::Fate, int>(BackTiming::Fate::Plays, -1);
}

} // namespace

const BackTiming::Plan& PlaylistTiming::plan() const
{
    return m_plan;
}

bool PlaylistTiming::isPlanned() const
{
    return !m_plan.rows.isEmpty();
}

void PlaylistTiming::clear()
{
    m_plan = BackTiming::Plan();
}

BackTiming::Plan PlaylistTiming::recompute(QList<Track>& rows, int currentRow, const QTime& anchor,
                                           const QDateTime& anchorAt)
{
    BackTiming::Plan before = std::move(m_plan);
    m_plan = BackTiming::Plan();
    if (BackTiming::anyTimed(rows)) {
        planTimed(rows, currentRow, anchorAt);
        return before;
    }
    // No fixed time (or the last one gone, and the marks it drew with it): the plain running order.
    QTime t = anchor;
    for (Track& track : rows) {
        track.startTime = t;
        // Whole seconds, truncated row by row; a negative length adds nothing.
        const qint64 seconds = std::max<qint64>(track.durationMs / 1000, 0);
        t = t.addSecs(int(seconds % kSecondsPerDay));
    }
    return before;
}

void PlaylistTiming::planTimed(QList<Track>& rows, int currentRow, const QDateTime& anchorAt)
{
    BackTiming::Input input;
    input.rows.reserve(rows.size());
    for (const Track& track : rows)
        input.rows.append(BackTiming::rowFromTrack(track, true));
    // The playout drops a timed row this late; the plan marks the same rows stale.
    input.lateLimitMs = Settings::timedLateLimitMs.read();
    // The current row started where the plain schedule puts it (the studio anchors the schedule so
    // that this is when it really started); the plan runs from that moment.
    QDateTime from = anchorAt;
    if (currentRow >= 0 && currentRow < rows.size() && from.isValid()) {
        qint64 before = 0;
        for (int i = 0; i < currentRow; ++i)
            before += std::max<qint64>(rows.at(i).durationMs / 1000, 0);
        from = from.addSecs(before);
        input.currentRow = currentRow;
    }
    input.now = from;
    m_plan = BackTiming::plan(input);

    const bool planned = from.isValid();
    LocalClock clock;
    for (int i = 0; i < rows.size(); ++i) {
        Track& track = rows[i];
        // A timed row shows its fixed time; its tool tip tells when it is planned to start.
        if (!track.isCommand && track.timed.isTimed())
            track.startTime = track.timed.at.time();
        else
            track.startTime = planned ? clock.timeOf(m_plan.rows.at(i).startMs) : QTime();
    }
}

QDateTime PlaylistTiming::skippedForTime(const QList<Track>& rows, int row) const
{
    if (row < 0 || row >= rows.size() || m_plan.rows.size() != rows.size())
        return QDateTime();
    const BackTiming::RowPlan& plan = m_plan.rows.at(row);
    if (plan.fate == BackTiming::Fate::Stale)
        return rows.at(row).timed.at;
    if (plan.fate == BackTiming::Fate::Skipped && plan.timedRow >= 0 && plan.timedRow < rows.size())
        return rows.at(plan.timedRow).timed.at;
    return QDateTime();
}

QString PlaylistTiming::toolTip(const QList<Track>& rows, int row, bool startTimeColumn) const
{
    if (m_plan.rows.size() != rows.size() || row < 0 || row >= rows.size())
        return {};
    const Track& track = rows.at(row);
    const BackTiming::RowPlan& plan = m_plan.rows.at(row);
    switch (plan.fate) {
    case BackTiming::Fate::Skipped: {
        const TimedStart& timed = rows.at(plan.timedRow).timed;
        return kSkippedTip.arg(modeWord(timed.mode), timed.at.toString(kClockFormat));
    }
    case BackTiming::Fate::Cut:
        return kCutTip.arg(timeOfDay(plan.endMs).toString(kClockFormat));
    case BackTiming::Fate::Stale:
        return kStaleTip.arg(track.timed.at.toString(kDateClockFormat));
    default:
        break;
    }
    if (!startTimeColumn || track.isCommand || !track.timed.isTimed())
        return {};
    QStringList lines{
        kFixedStartTip.arg(modeWord(track.timed.mode), track.timed.at.toString(kDateClockFormat))};
    if (const BackTiming::Event* event = m_plan.eventOf(row)) {
        if (event->startMs == BackTiming::unknownTime)
            lines << kUnknownStartTip;
        else if (event->startMs / 1000 != event->atMs / 1000)
            lines << kPlannedStartTip.arg(timeOfDay(event->startMs).toString(kClockFormat));
        if (event->waitsForPlay)
            lines << kWaitsForPlayTip;
    }
    return lines.join(QLatin1Char('\n'));
}

QList<std::pair<int, int>> PlaylistTiming::changedMarks(const BackTiming::Plan& before, int rowCount) const
{
    // Only the rows whose mark changed, in runs: listeners that read every announced row (the
    // playout's read-ahead) must not walk the whole list on each schedule pass.
    QList<std::pair<int, int>> runs;
    int first = -1;
    for (int row = 0; row <= rowCount; ++row) {
        const bool changed = row < rowCount && markOf(before, row) != markOf(m_plan, row);
        if (changed && first < 0)
            first = row;
        if (!changed && first >= 0) {
            runs.append({first, row - 1});
            first = -1;
        }
    }
    return runs;
}

QDate PlaylistTiming::nearestDay(const QTime& anchor, const QDateTime& now)
{
    QDate day;
    if (!anchor.isValid())
        return day;
    qint64 nearest = std::numeric_limits<qint64>::max();
    for (int offset = -1; offset <= 1; ++offset) {
        const QDateTime candidate(now.date().addDays(offset), anchor);
        const qint64 distance = std::abs(now.msecsTo(candidate));
        if (candidate.isValid() && distance < nearest) {
            nearest = distance;
            day = candidate.date();
        }
    }
    return day;
}
