#include "backtiming.h"

#include "track.h"

#include <algorithm>

namespace BackTiming {

namespace {

bool isTimed(const Row& row)
{
    return !row.halts && row.timed.isTimed();
}

bool known(qint64 time)
{
    return time != unknownTime;
}

qint64 later(qint64 a, qint64 b)
{
    return std::max(a, b);
}

// Counts back from the start of row `first` over the rows above it.
void planAired(const Input& input, int first, qint64 firstStart, Plan& result)
{
    qint64 nextStart = firstStart;
    for (int i = first - 1; i >= 0; --i) {
        const Row& row = input.rows.at(i);
        RowPlan& plan = result.rows[i];
        plan.fate = Fate::Aired;
        plan.endMs = nextStart;
        if (isTimed(row))
            plan.startMs = row.timed.at.toMSecsSinceEpoch(); // it fired then, or was passed by
        else if (known(nextStart) && !row.endless)
            plan.startMs = nextStart - row.lengthMs;
        else
            plan.startMs = unknownTime;
        nextStart = plan.startMs;
    }
}

void skip(RowPlan& plan, int timedRow)
{
    plan.fate = Fate::Skipped;
    plan.timedRow = timedRow;
}

} // namespace

const Event* Plan::next() const
{
    const Event* first = nullptr;
    for (const Event& event : events) {
        if (first == nullptr || event.atMs < first->atMs ||
            (event.atMs == first->atMs && event.mode == TimedStart::Mode::Hard &&
             first->mode != TimedStart::Mode::Hard))
            first = &event;
    }
    return first;
}

const Event* Plan::eventOf(int row) const
{
    for (const Event& event : events) {
        if (event.row == row)
            return &event;
    }
    return nullptr;
}

Plan plan(const Input& input)
{
    Plan result;
    const int n = int(input.rows.size());
    result.rows.resize(n);
    if (n == 0 || !input.now.isValid())
        return result; // nothing to plan, or no clock to plan by: every time unknown

    const qint64 now = input.now.toMSecsSinceEpoch();
    const bool onAir = input.currentRow >= 0 && input.currentRow < n;
    const int current = onAir ? input.currentRow : -1;
    const int first = onAir ? current : std::clamp(input.startRow, 0, n);
    const qint64 firstStart = onAir ? now - std::max<qint64>(input.elapsedMs, 0) : now;
    planAired(input, first, firstStart, result);

    qint64 t = firstStart;    // when the row being planned starts, if nothing gives way
    int segmentFirst = first; // the first row the next timed row may cut or skip
    int previousEvent = -1;
    qint64 previousStart = unknownTime;

    for (int i = first; i < n; ++i) {
        const Row& row = input.rows.at(i);
        RowPlan& plan = result.rows[i];

        if (i == current || !isTimed(row)) {
            plan.startMs = t;
            if (!known(t) || row.endless)
                plan.endMs = unknownTime;
            else if (i == current)
                plan.endMs = later(t + row.lengthMs, now); // on air: it ends no earlier than now
            else
                plan.endMs = t + row.lengthMs;
            t = plan.endMs;
            continue;
        }

        const qint64 at = row.timed.at.toMSecsSinceEpoch();
        // Late is judged against when the row on air started: a time that came while it played was
        // seen in time and waits for its turn, however long that row goes on.
        if (at < firstStart - std::max<qint64>(input.lateLimitMs, 0)) {
            plan.fate = Fate::Stale;
            plan.startMs = t;
            plan.endMs = t; // skipped: the rows after it start where it would have
            continue;
        }

        Event event;
        event.row = i;
        event.mode = row.timed.mode;
        event.atMs = at;
        event.late = at < now;
        event.overUnderKnown = known(t);
        event.overUnderMs = known(t) ? t - at : 0;
        // Its time had come by the time the timed row above it started: it follows that row.
        const bool follows = previousEvent >= 0 && known(previousStart) && at <= previousStart;

        if (row.timed.isHard()) {
            const qint64 when = follows ? result.rows.at(previousEvent).endMs : later(at, now);
            for (int j = segmentFirst; j < i; ++j) {
                RowPlan& before = result.rows[j];
                if (before.fate == Fate::Skipped || before.fate == Fate::Stale)
                    continue;
                if (follows && j == previousEvent)
                    continue; // plays to its end; this row follows it
                const bool started = j == current || (j == previousEvent && known(previousStart));
                if (!known(when)) {
                    if (!started)
                        skip(before, i);
                    continue;
                }
                if (!started && (!known(before.startMs) || before.startMs >= when)) {
                    skip(before, i);
                } else if (!known(before.endMs) || before.endMs > when) {
                    before.fate = Fate::Cut;
                    before.timedRow = i;
                    before.endMs = when;
                }
            }
            event.startMs = when;
        } else {
            const qint64 timeComes = follows ? previousStart : later(at, now);
            int playing = -1;
            for (int j = segmentFirst; j < i; ++j) {
                RowPlan& before = result.rows[j];
                if (before.fate == Fate::Skipped || before.fate == Fate::Stale)
                    continue;
                // A timed row above that is still waiting came due first: it goes first.
                const bool dueFirst = j == current || j == previousEvent;
                if (!dueFirst && (!known(before.startMs) || before.startMs >= timeComes)) {
                    skip(before, i);
                    continue;
                }
                playing = j;
                if (input.rows.at(j).halts)
                    event.waitsForPlay = true;
            }
            if (playing < 0) {
                event.startMs = later(at, now);
            } else {
                const qint64 end = result.rows.at(playing).endMs;
                event.startMs = known(end) ? later(at, end) : unknownTime;
            }
        }

        plan.startMs = event.startMs;
        plan.endMs = known(event.startMs) && !row.endless ? event.startMs + row.lengthMs : unknownTime;
        t = plan.endMs;
        segmentFirst = i;
        previousEvent = i;
        previousStart = event.startMs;
        result.events.append(event);
    }

    // A timed row above whose time is still to come: the air jumps back to it then.
    for (int i = 0; i < first; ++i) {
        const Row& row = input.rows.at(i);
        if (!isTimed(row) || row.timed.at.toMSecsSinceEpoch() <= now)
            continue;
        Event event;
        event.row = i;
        event.mode = row.timed.mode;
        event.atMs = row.timed.at.toMSecsSinceEpoch();
        event.jumpsBack = true;
        event.startMs = event.atMs;
        if (row.timed.isSoft()) {
            // It follows the row playing at its time.
            for (int j = first; j < n; ++j) {
                const RowPlan& below = result.rows.at(j);
                if (below.fate == Fate::Skipped || below.fate == Fate::Stale || !known(below.startMs))
                    continue;
                if (below.startMs <= event.atMs && (!known(below.endMs) || below.endMs > event.atMs)) {
                    event.startMs = known(below.endMs) ? below.endMs : unknownTime;
                    break;
                }
            }
        }
        result.events.append(event);
    }
    return result;
}

Row rowFromTrack(const Track& track, bool wholeSeconds)
{
    Row row;
    if (track.isCommand) {
        const QString word = track.command.trimmed().toLower();
        row.halts = word == QLatin1String("stop") || word == QLatin1String("pause");
        return row; // no length and no fixed time of its own
    }
    row.timed = track.timed;
    if (track.isStream) {
        // A stream plays for its limit; one without a limit or a known length plays until stopped.
        if (track.streamLimitMs > 0)
            row.lengthMs = track.streamLimitMs;
        else if (track.durationMs > 0)
            row.lengthMs = track.durationMs;
        else
            row.endless = true;
    } else {
        row.lengthMs = std::max<qint64>(track.durationMs, 0);
    }
    if (wholeSeconds)
        row.lengthMs = row.lengthMs / 1000 * 1000;
    return row;
}

bool anyTimed(const QList<Track>& tracks)
{
    return std::any_of(tracks.cbegin(), tracks.cend(),
                       [](const Track& track) { return !track.isCommand && track.timed.isTimed(); });
}

} // namespace BackTiming
