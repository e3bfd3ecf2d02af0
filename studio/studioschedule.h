#pragma once

#include "track.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <QTime>

// Plain sums over the running order that the on-air display shows. Times follow the playlist's own
// schedule: whole seconds per row, as the start-time column counts them.
namespace StudioSchedule {

// "Artist – Title", the title alone, or the file name; a command row as ">> STOP <<".
QString trackText(const Track& track);

// Sum of the known lengths (ms) of the rows after `row` (all rows when row is -1).
qint64 lengthAfter(const QList<Track>& rows, int row);

// When the last row of the schedule ends: its start time plus its length. Invalid when there are
// no rows or the schedule has not been computed.
QTime plannedEnd(const QList<Track>& rows);

// The start time of row 0 that makes `row` start at `startedAt` in the playlist's schedule.
QTime anchorFor(const QList<Track>& rows, int row, const QTime& startedAt);
// The same with its day: a running-to-time plan needs to know which noon is meant.
QDateTime anchorAt(const QList<Track>& rows, int row, const QDateTime& startedAt);

// "m:ss" under an hour, "h:mm:ss" from an hour on; "--:--" for a negative or unknown length.
QString formatLength(qint64 ms);

} // namespace StudioSchedule
