#pragma once

#include "timedstart.h"

#include <QDateTime>
#include <QList>
#include <QSet>
#include <QString>

// The decisions about rows that must start at a fixed time, as plain functions over plain values:
// the sequencer gathers what they need, a test hands them a made-up list and clock.
//
// The rules, in the station's words:
// - A hard row is due its start lead before its time (so it is heard at the time); once due it
//   cuts what is on air, even mid-track, and the rows between are skipped. A STOP row between does
//   not hold it back: automation starts again for it.
// - A soft row is due at its time; it is then the next to start, at the current track's normal mix
//   point, and the rows between are skipped. While the list stands at a STOP it waits for Play.
// - When a hard and a soft row are due together, the hard one goes first: its time is a promise.
//   Otherwise the first due row in list order goes first, and a due row whose time is not after
//   that of the timed row on air follows it instead of cutting it (two rows at 12:00: the first
//   fires, the second follows).
// - A timed row above the current row still fires when due: the air jumps back to it. The time is
//   what the station promised, not the place in the list.
// - A row is judged late once, when it is first seen due: more than the late limit past its time
//   and it is given up ("stale") with a log line, so an event never fires hours late (a list loaded
//   after its time, a clock jumping forward over it). Seen due in time, it is "accepted" and no
//   longer goes stale while it waits for a mix point or for Play.
// - Rows that fired, were taken in the ordinary way, were skipped or went stale are "done" by
//   identity (PlaylistModel::rowId): none fires twice, whatever the wall clock does.
// - A timed row that cannot sound (a missing file, a stream that never answers) is taken like any
//   other row, and the ordinary skip rules of the sequencer move the list on.

struct TimedRow {
    qint64 id = 0; // the row's identity in the list
    TimedStart timed;
};

struct TimedSituation {
    QList<TimedRow> rows; // the whole list in order, untimed rows included
    int currentRow = -1;
    // The time of the timed row on air, when it was started for its time; invalid otherwise.
    QDateTime currentTimedAt;
    QDateTime now;          // the wall clock
    QSet<qint64> done;      // fired, taken, skipped or stale
    QSet<qint64> accepted;  // seen due within the late limit: they wait without going stale
    qint64 lateLimitMs = 60000;
    qint64 leadMs = 0;      // how long a start takes to be heard
    bool halted = false;    // the list stands at a STOP row
};

struct TimedDecision {
    enum class Action {
        None, // nothing is due
        Cut,  // a hard row: start it now, fading out what is on air
        Next, // start it at the current track's mix point (or now, when nothing sounds)
    };

    Action action = Action::None;
    int row = -1;
    QList<int> skipped;     // rows between the current row and `row`, in list order; never played
    QList<int> stale;       // timed rows given up as too late, in list order
    QList<int> accepted;    // rows seen due in time for the first time now (`row` among them)
    // Milliseconds until the next hard row that is not due yet becomes due; -1 when there is none.
    qint64 msUntilNextHard = -1;
};

TimedDecision decideTimed(const TimedSituation& situation);

// Whether `row` is due at `now` with that lead (hard rows become due the lead early).
bool isTimedRowDue(const TimedStart& timed, const QDateTime& now, qint64 leadMs);

// How far the wall clock moved beside the monotonic clock between two readings (ms, positive
// forward); readings that agree within `toleranceMs` give 0.
qint64 clockJumpMs(qint64 wallBeforeMs, qint64 wallNowMs, qint64 monoBeforeMs, qint64 monoNowMs,
                   qint64 toleranceMs);

// The log texts of timed rows, exactly as the presenter reads them.
namespace TimedLog {
// "Timed: hard 12:00:00 Artist - Title"
QString fired(const TimedStart& timed, const QString& rowText);
// "Timed: skipped for hard 12:00:00: Artist - Title"
QString skipped(const TimedStart& timed, const QString& rowText);
// "Timed: hard 12:00:00 missed by 0:05:00, skipped: Artist - Title"
QString stale(const TimedStart& timed, qint64 lateMs, const QString& rowText);
// "Timed: the clock jumped forward by 1:00:00" / "... back by ..."
QString clockJumped(qint64 jumpMs);
// "hard" / "soft"
QString modeText(const TimedStart& timed);
} // namespace TimedLog
