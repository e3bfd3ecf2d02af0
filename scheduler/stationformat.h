#pragma once

#include "timedstart.h"

#include <QDateTime>
#include <QList>
#include <QMap>
#include <QString>

// One slot of a clock: one track of a category, a fixed file or stream URL, or a command row. A timed
// slot's row is due at a fixed time of the hour (hard or soft, as a playlist row's TimedStart); the
// untimed slots between two timed ones fill the time up to the later one.
struct ClockSlot {
    enum class Kind { Category, File, Command };
    Kind kind = Kind::Category;
    QString value; // the category, the path or URL, or the command word
    TimedStart::Mode timing = TimedStart::Mode::None;
    int atSeconds = 0; // seconds past the hour, 0 ... 3599; only for a timed slot

    bool isTimed() const { return timing != TimedStart::Mode::None; }
};

// One line of the grid: the clock that runs in the listed days and hours. An empty list means all.
struct GridEntry {
    QList<int> days;  // 1 = Monday ... 7 = Sunday
    QList<int> hours; // 0 ... 23
    QString clock;

    bool covers(int day, int hour) const;
};

// How long an artist, or one song, stays off the air after it played or was scheduled. Minutes.
struct SeparationRules {
    int artistSeparationMinutes = 0;
    int titleSeparationMinutes = 0;
};

// A station's format: its rotation rules, its clocks (the order of one hour) and the grid that picks
// the clock of each hour. Read by FormatReader, which guarantees that every grid entry names a clock,
// that no clock is empty, that the grid covers every hour of the week, and that the timed slots of a
// clock follow their times in order, only its first slot being due at 00:00.
struct StationFormat {
    // How far the planned rows before a timed slot may end from its time, either way. Seconds.
    static constexpr int defaultFillToleranceSeconds = 30;

    SeparationRules rules;
    int fillToleranceSeconds = defaultFillToleranceSeconds;
    QMap<QString, QList<ClockSlot>> clocks;
    QList<GridEntry> grid;

    // The name of the clock for the hour that begins at `hourStart`: the first grid entry whose days
    // and hours both contain it; empty when none does.
    QString clockFor(const QDateTime& hourStart) const;
    // The categories that some clock asks for, as written (for the candidates worth reading).
    QStringList categoriesInUse() const;
};
