#pragma once

#include "track.h"

#include <QDateTime>
#include <QList>
#include <QString>

// One planned row: what plays, when, and which clock slot asked for it.
struct ScheduledItem {
    QDateTime start;
    Track track;
    QString clock;
    int slot = -1; // 0-based position in the clock
};

// One line of the schedule's report: a rule that gave way, or a slot or hour left unfilled.
struct ScheduleNote {
    enum class Kind {
        ArtistSeparationRelaxed,         // the chosen track's artist played within the separation
        TitleSeparationRelaxed,          // the chosen song itself played within the separation
        ArtistAndTitleSeparationRelaxed, // both
        SlotSkipped,                     // no allowed track of the category
        FileMissing,                     // a fixed file that does not exist
        NoTimeAdded,    // a pass through the clock added no time; the rest of the hour stays empty
        HourItemLimit,  // the hour reached the item limit; the rest of the hour stays empty
        TimedSlotMissed // the rows before a timed slot end further from its time than the tolerance
    };
    QDateTime at;
    Kind kind = Kind::SlotSkipped;
    QString clock;
    int slot = -1;
    QString text; // for people, without the time
};

// How the planned rows before a timed slot meet its time.
struct TimedLanding {
    QDateTime due; // the slot's fixed time
    TimedStart::Mode mode = TimedStart::Mode::Hard;
    QString clock; // the clock and slot of the timed slot
    int slot = -1;
    qint64 overUnderMs = 0; // planned end of the rows before it minus `due`: + over, - under
    bool withinTolerance = true;
};

// The planned timing of one clock hour that fills up to timed slots: those due after its start and up
// to the next full hour (a slot at the top of the hour is filled for by the hour before it).
struct HourTiming {
    QDateTime hourStart;
    QString clock;
    QList<TimedLanding> landings; // in order of time
    qint64 overUnderMs = 0;       // of the landing furthest from its time
    bool withinTolerance = true;  // all of them
};

// "+0:23 over", "-1:05 under" or "on time", to the nearest second.
QString overUnderText(qint64 ms);

// A generated running order and its report.
struct Schedule {
    QList<ScheduledItem> items;
    QList<ScheduleNote> notes;
    QList<HourTiming> timedHours; // only the hours that fill up to timed slots

    QList<Track> tracks() const;
    // Whether any row plays audio (a file or a stream); command rows alone are no schedule.
    bool hasAudio() const;
    // One line per note, and one per hour of timedHours, in order of time:
    // "yyyy-MM-dd HH:mm:ss  <text>".
    QString reportText() const;
};
