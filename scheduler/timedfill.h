#pragma once

#include <QList>
#include <QVector>
#include <QtGlobal>

// What one slot of a clock can add to the running time, in milliseconds: a fixed file's length (both
// ends equal), the shortest and longest track a category allows, or nothing (a command, a stream).
struct FillSpan {
    qint64 shortestMs = 0;
    qint64 longestMs = 0;
};

// The remaining gaps before a timed slot that the slots still to come can close to within the
// tolerance. The slots before a timed slot run in clock order and again from the first while time is
// left; the fill ends as soon as the gap is within the tolerance. Each slot is taken to add any length
// between its span's ends, which a category of many tracks nearly does; the last choice before the
// timed slot then picks the track whose real length ends closest.
//
// A pure function of plain values, so the generator's choices by length can be checked without a
// library.
class TimedFill
{
public:
    // `cycle`: the spans of the filling slots in clock order; the next slot to run is cycle[next]. Gaps
    // up to `horizonMs` are worked out; `maxSlots` bounds how many slots may still run. When given,
    // `nextLengths` (sorted) are the lengths the next slot can really take, in place of its span:
    // close to the timed slot, the holes between a category's lengths matter.
    TimedFill(const QList<FillSpan>& cycle, int next, qint64 toleranceMs, qint64 horizonMs, int maxSlots,
              const QVector<qint64>& nextLengths = {});

    // How far a remaining gap (the timed slot's time minus the planned end; negative when over) lies
    // from one the slots to come can close: 0 when they can, or when it is within the tolerance now.
    qint64 missMs(qint64 remainingMs) const;
    // How far inside what can be closed a remaining gap lies: the distance to the nearest end of its
    // closable range, 0 when it cannot be closed. The model takes each slot's lengths as continuous, so a
    // gap near an end is the one most likely to be missed in the end.
    qint64 depthMs(qint64 remainingMs) const;
    // Whether every remaining gap from `lowMs` to `highMs` can be closed: then any length of that range
    // may be chosen, and the choice is the rotation's alone.
    bool closesAll(qint64 lowMs, qint64 highMs) const;
    // How far the planned end lies from the timed slot when the fill stops with `gapMs` left.
    static qint64 missIfStopped(qint64 gapMs, qint64 toleranceMs);
    qint64 toleranceMs() const { return tolerance; }

private:
    qint64 tolerance = 0;
    struct Range {
        qint64 low;
        qint64 high;
    };
    QVector<Range> closable; // sorted, disjoint
};
