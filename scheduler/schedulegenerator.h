#pragma once

#include "playhistory.h"
#include "schedule.h"
#include "stationformat.h"

#include <QDateTime>
#include <QHash>

class RotationPool;

// Builds the running order of a number of hours from a format, a pool of candidates and the play
// history. Each hour runs the clock the grid gives it, slot after slot and again from its first slot,
// while the planned start is still before the next full hour; the item that crosses it runs on, and
// the next hour's clock starts where it ends. The same inputs and seed give the same schedule.
//
// A clock with timed slots runs in stretches: each timed row is planned on its time (hard) or after
// the row before it (soft), and the untimed slots after it, in order and again, fill the time up to the
// next timed slot (the slots after the last one go on with those before the first). Near each timed
// slot the tracks are chosen by length (see TimedFill) so that the rows end within the format's
// tolerance of its time; how close each hour comes is in Schedule::timedHours. A slot at 00:00 is filled
// up to by the hour before. Timed slots due before `from` are not part of the schedule.
//
// Zero-length slots (commands, skipped slots, streams and files without a length) add no time. When a
// whole pass through the clock adds none, the rest of that hour is left empty and reported, so such a
// clock gives one pass of rows per hour and never loops. As a guard against absurdly short files an
// hour also ends after `maxItemsPerHour` rows.
class ScheduleGenerator
{
public:
    static constexpr int maxItemsPerHour = 1000;

    ScheduleGenerator(const StationFormat& format, const RotationPool& pool);

    // `hours` whole clock hours from the hour of `from` on; the first starts at `from` itself.
    Schedule generate(const QDateTime& from, int hours, quint64 seed, PlayHistory history) const;

    // Where hour `hours` after the hour of `from` begins: the end of what generate() plans.
    static QDateTime endOf(const QDateTime& from, int hours);

private:
    const StationFormat& format;
    const RotationPool& pool;
};
