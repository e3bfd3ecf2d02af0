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
        NoTimeAdded,  // a pass through the clock added no time; the rest of the hour stays empty
        HourItemLimit // the hour reached the item limit; the rest of the hour stays empty
    };
    QDateTime at;
    Kind kind = Kind::SlotSkipped;
    QString clock;
    int slot = -1;
    QString text; // for people, without the time
};

// A generated running order and its report.
struct Schedule {
    QList<ScheduledItem> items;
    QList<ScheduleNote> notes;

    QList<Track> tracks() const;
    // Whether any row plays audio (a file or a stream); command rows alone are no schedule.
    bool hasAudio() const;
    // One line per note: "yyyy-MM-dd HH:mm:ss  <text>".
    QString reportText() const;
};
