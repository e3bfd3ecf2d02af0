#pragma once

#include "backtiming.h"
#include "track.h"

#include <QDate>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QTime>

#include <utility>

// The start-time column of a playlist: the plain running order from the anchor while no row carries
// a fixed time, and the running-to-time plan (BackTiming) once one does. Plain values in and out; the
// playlist model holds one and announces what changed.
class PlaylistTiming
{
public:
    // Empty while no row is timed.
    const BackTiming::Plan& plan() const;
    // True while a row carries a fixed time the plan honours.
    bool isPlanned() const;

    // Writes every row's start time and returns the plan it replaced. anchor is row 0's time of day,
    // anchorAt the same with its day (invalid: the timed rows' plan has no start and shows none).
    // Reads the late limit from the settings once per call.
    BackTiming::Plan recompute(QList<Track>& rows, int currentRow, const QTime& anchor,
                               const QDateTime& anchorAt);
    void clear();

    // For a row that gives way to a fixed time (skipped, or a timed row gone stale): the fixed time it
    // gives way to; invalid otherwise.
    QDateTime skippedForTime(const QList<Track>& rows, int row) const;
    // What the plan has to say about a row; startTimeColumn: the tip of the start-time cell, which
    // also tells a timed row's fixed and planned start. Empty when nothing.
    QString toolTip(const QList<Track>& rows, int row, bool startTimeColumn) const;
    // Runs of rows, first and last, whose skip or cut mark differs between before and the plan now.
    QList<std::pair<int, int>> changedMarks(const BackTiming::Plan& before, int rowCount) const;

    // The day that puts a time of day nearest to now: 23:59 set just after midnight is yesterday's.
    // Invalid for an invalid time.
    static QDate nearestDay(const QTime& anchor, const QDateTime& now);

private:
    void planTimed(QList<Track>& rows, int currentRow, const QDateTime& anchorAt);

    BackTiming::Plan m_plan;
};
