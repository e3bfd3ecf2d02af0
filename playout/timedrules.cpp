#include "timedrules.h"

#include <algorithm>
#include <cstdlib>

namespace {

// "1:00:00", "0:05:00": hours always shown, as a station clock reads.
QString clockSpan(qint64 ms)
{
    const qint64 seconds = std::llabs(ms) / 1000;
    return QStringLiteral("%1:%2:%3")
        .arg(seconds / 3600)
        .arg((seconds / 60) % 60, 2, 10, QLatin1Char('0'))
        .arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

} // namespace

bool isTimedRowDue(const TimedStart& timed, const QDateTime& now, qint64 leadMs)
{
    if (!timed.isTimed())
        return false;
    const qint64 early = timed.isHard() ? std::max<qint64>(leadMs, 0) : 0;
    return now.msecsTo(timed.at) <= early;
}

TimedDecision decideTimed(const TimedSituation& s)
{
    TimedDecision decision;
    const int count = int(s.rows.size());
    const qint64 currentId = s.currentRow >= 0 && s.currentRow < count ? s.rows.at(s.currentRow).id : 0;

    int firstHard = -1;
    int firstDue = -1;
    for (int row = 0; row < count; ++row) {
        const TimedRow& candidate = s.rows.at(row);
        const TimedStart& timed = candidate.timed;
        if (!timed.isTimed() || s.done.contains(candidate.id) || (currentId != 0 && candidate.id == currentId))
            continue;
        if (!isTimedRowDue(timed, s.now, s.leadMs)) {
            if (timed.isHard()) {
                const qint64 until = s.now.msecsTo(timed.at) - std::max<qint64>(s.leadMs, 0);
                if (decision.msUntilNextHard < 0 || until < decision.msUntilNextHard)
                    decision.msUntilNextHard = std::max<qint64>(until, 0);
            }
            continue;
        }
        // A row due no later than the timed row on air follows it; it is as much on time as that one.
        const bool follows = s.currentTimedAt.isValid() && timed.at <= s.currentTimedAt;
        if (!s.accepted.contains(candidate.id) && !follows) {
            const qint64 late = timed.at.msecsTo(s.now);
            if (late > s.lateLimitMs) {
                decision.stale << row;
                continue;
            }
        }
        if (!s.accepted.contains(candidate.id))
            decision.accepted << row;
        if (timed.isHard() && !follows && firstHard < 0)
            firstHard = row;
        // Behind a STOP a soft row waits for Play.
        if (firstDue < 0 && !(s.halted && timed.isSoft()))
            firstDue = row;
    }

    if (firstHard >= 0) {
        decision.action = TimedDecision::Action::Cut;
        decision.row = firstHard;
    } else if (firstDue >= 0) {
        decision.action = TimedDecision::Action::Next;
        decision.row = firstDue;
    } else {
        return decision;
    }
    // Above the current row: the air jumps back and nothing is skipped.
    for (int row = s.currentRow + 1; row < decision.row; ++row)
        decision.skipped << row;
    return decision;
}

qint64 clockJumpMs(qint64 wallBeforeMs, qint64 wallNowMs, qint64 monoBeforeMs, qint64 monoNowMs,
                   qint64 toleranceMs)
{
    const qint64 jump = (wallNowMs - wallBeforeMs) - (monoNowMs - monoBeforeMs);
    return std::llabs(jump) <= toleranceMs ? 0 : jump;
}

namespace TimedLog {

QString modeText(const TimedStart& timed)
{
    return timed.isHard() ? QStringLiteral("hard") : QStringLiteral("soft");
}

static QString timeText(const TimedStart& timed)
{
    return timed.at.time().toString(QStringLiteral("HH:mm:ss"));
}

QString fired(const TimedStart& timed, const QString& rowText)
{
    return QStringLiteral("Timed: %1 %2 %3").arg(modeText(timed), timeText(timed), rowText);
}

QString skipped(const TimedStart& timed, const QString& rowText)
{
    return QStringLiteral("Timed: skipped for %1 %2: %3").arg(modeText(timed), timeText(timed), rowText);
}

QString stale(const TimedStart& timed, qint64 lateMs, const QString& rowText)
{
    return QStringLiteral("Timed: %1 %2 missed by %3, skipped: %4")
        .arg(modeText(timed), timeText(timed), clockSpan(lateMs), rowText);
}

QString clockJumped(qint64 jumpMs)
{
    return QStringLiteral("Timed: the clock jumped %1 by %2")
        .arg(jumpMs >= 0 ? QStringLiteral("forward") : QStringLiteral("back"), clockSpan(jumpMs));
}

} // namespace TimedLog
