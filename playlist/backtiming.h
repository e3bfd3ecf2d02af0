#pragma once

#include "settingkeys.h"
#include "timedstart.h"

#include <QDateTime>
#include <QList>

#include <limits>

struct Track;

// Running to time: from the rows' lengths and fixed times, when each row is planned to start, which
// rows give way to a timed row, and whether the rows before each timed row run over or under.
// Plain values in, plain values out; times are milliseconds since the epoch.
//
// The rules the plan follows (the playout's own, seen from the schedule's side):
// - A hard row starts at its fixed time. The row playing then is cut; rows not yet started are
//   skipped. A STOP before it does not hold it back.
// - A soft row starts once its time has come, after the row playing then has ended; rows that cannot
//   start before its time are skipped. A STOP between the plan's start and it makes it wait for Play
//   (the plan assumes Play at once, and says so).
// - Neither starts before its time: rows that end early leave a gap (they run "under").
// - A timed row whose time is at or before the start of the timed row above it follows that row
//   (two rows at the same time: the first in list order fires, the second follows it).
// - A timed row whose time lies more than the late limit before the plan's start (the start of the
//   row on air, or now) is stale: skipped, never fired. One that is late by less fires at once
//   (hard) or is the next to start (soft), however long it then waits.
// - Rows above the row the plan starts from have aired; their times are counted back from it, and
//   a timed one among them keeps its fixed time. One whose time is still to come fires all the same
//   (the air jumps back to it): it is an event, though the rows below it are not replanned for it.
namespace BackTiming {

constexpr qint64 unknownTime = std::numeric_limits<qint64>::min();

// One row as the plan sees it.
struct Row {
    qint64 lengthMs = 0;  // how long it plays when nothing cuts it
    bool endless = false; // a stream without a length: plays until something stops it
    bool halts = false;   // a STOP (or PAUSE) row: automation waits for Play after it
    TimedStart timed;     // ignored on command rows, which have no fixed time of their own
};

struct Input {
    QList<Row> rows;
    int currentRow = -1;  // the row on air, -1 for none
    qint64 elapsedMs = 0; // how far the current row has played
    int startRow = 0;     // with nothing on air: the row that would start now
    QDateTime now;
    // How late a timed row may fire before it is stale (milliseconds); readers of the plan for the
    // screen pass Settings::timedLateLimitMs.read(), as the playout does.
    qint64 lateLimitMs = Settings::timedLateLimitMs.fallback;
};

enum class Fate {
    Plays,   // starts as planned (and plays to its end)
    Aired,   // above the row the plan starts from
    Cut,     // starts, and a hard time ends it early (endMs is that time)
    Skipped, // never starts: it gives way to a timed row
    Stale    // a timed row whose time passed beyond the late limit: skipped
};

struct RowPlan {
    qint64 startMs = unknownTime; // unknown after a row without a length
    qint64 endMs = unknownTime;
    Fate fate = Fate::Plays;
    int timedRow = -1; // Cut or Skipped: the timed row it gives way to
};

struct Event {
    int row = -1;
    TimedStart::Mode mode = TimedStart::Mode::None;
    qint64 atMs = 0;              // its fixed time
    qint64 startMs = unknownTime; // when it is planned to start
    bool overUnderKnown = false;  // false after a row without a length
    // When the rows above it would end, played in full, minus its fixed time: > 0 over, < 0 under.
    qint64 overUnderMs = 0;
    bool waitsForPlay = false; // soft, after a STOP that comes before its time
    bool late = false;         // its time had already passed (within the late limit)
    bool jumpsBack = false;    // above the row the plan starts from: no over/under to tell
};

struct Plan {
    QList<RowPlan> rows; // parallel to Input::rows
    QList<Event> events; // timed rows still to come: those below the start in list order, then above
    // The event that comes first: the earliest fixed time, a hard one before a soft one at the same
    // time, else the first in list order. nullptr when there is none.
    const Event* next() const;
    // The event of the given row, nullptr when the row is none.
    const Event* eventOf(int row) const;
};

Plan plan(const Input& input);

// A playlist row as the plan sees it. wholeSeconds: count only whole seconds of each length, as the
// playlist's start-time column does.
Row rowFromTrack(const Track& track, bool wholeSeconds = false);

// True when some row carries a fixed time the plan honours.
bool anyTimed(const QList<Track>& tracks);

} // namespace BackTiming
