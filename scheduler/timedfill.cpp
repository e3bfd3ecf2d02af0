#include "timedfill.h"

#include <algorithm>

TimedFill::TimedFill(const QList<FillSpan>& cycle, int next, qint64 toleranceMs, qint64 horizonMs,
                     int maxSlots, const QVector<qint64>& nextLengths)
    : tolerance(qMax<qint64>(toleranceMs, 0))
{
    QVector<Range> ranges{{-tolerance, tolerance}}; // stop now
    // After k more slots the time added lies between the sums of their shortest and their longest
    // lengths; each such range, widened by the tolerance, is closable.
    if (!cycle.isEmpty()) {
        qint64 shortest = 0;
        qint64 longest = 0;
        qint64 longestAtCycleStart = 0;
        const int size = int(cycle.size());
        const int first = ((next % size) + size) % size;
        int position = first;
        for (int k = 1; k <= maxSlots; ++k) {
            if (k == 1 && !nextLengths.isEmpty()) {
                // Sorted lengths give ranges in order: merged here, a large category leaves a few.
                Range run{0, -1};
                for (qint64 length : nextLengths) {
                    if (length - tolerance > horizonMs)
                        break;
                    if (run.high < run.low) {
                        run = {length - tolerance, length + tolerance};
                    } else if (length - tolerance <= run.high + 1) {
                        run.high = qMax(run.high, length + tolerance);
                    } else {
                        ranges.append(run);
                        run = {length - tolerance, length + tolerance};
                    }
                }
                if (run.high >= run.low)
                    ranges.append(run);
                shortest = nextLengths.first();
                longest = nextLengths.last();
            } else {
                const FillSpan& span = cycle.at(position);
                shortest += qMax<qint64>(span.shortestMs, 0);
                longest += qMax(span.longestMs, span.shortestMs);
                if (shortest - tolerance > horizonMs)
                    break;
                ranges.append({shortest - tolerance, longest + tolerance});
            }
            position = (position + 1) % size;
            if (position == first) {
                if (longest == longestAtCycleStart)
                    break; // a whole round of the clock adds no time: nothing further is closable
                longestAtCycleStart = longest;
            }
        }
    }
    std::sort(ranges.begin(), ranges.end(), [](const Range& a, const Range& b) { return a.low < b.low; });
    for (const Range& range : ranges) {
        if (!closable.isEmpty() && range.low <= closable.last().high + 1)
            closable.last().high = qMax(closable.last().high, range.high);
        else
            closable.append(range);
    }
}

qint64 TimedFill::missMs(qint64 remainingMs) const
{
    // The first range that does not end below the gap.
    const auto it = std::lower_bound(closable.cbegin(), closable.cend(), remainingMs,
                                     [](const Range& range, qint64 value) { return range.high < value; });
    if (it == closable.cend())
        return remainingMs - closable.last().high;
    if (it->low <= remainingMs)
        return 0;
    const qint64 toNext = it->low - remainingMs;
    return it == closable.cbegin() ? toNext : qMin(toNext, remainingMs - (it - 1)->high);
}

qint64 TimedFill::depthMs(qint64 remainingMs) const
{
    const auto it = std::lower_bound(closable.cbegin(), closable.cend(), remainingMs,
                                     [](const Range& range, qint64 value) { return range.high < value; });
    if (it == closable.cend() || it->low > remainingMs)
        return 0;
    return qMin(remainingMs - it->low, it->high - remainingMs);
}

bool TimedFill::closesAll(qint64 lowMs, qint64 highMs) const
{
    const auto it = std::lower_bound(closable.cbegin(), closable.cend(), lowMs,
                                     [](const Range& range, qint64 value) { return range.high < value; });
    return it != closable.cend() && it->low <= lowMs && highMs <= it->high;
}

qint64 TimedFill::missIfStopped(qint64 gapMs, qint64 toleranceMs)
{
    return qMax<qint64>(qAbs(gapMs) - qMax<qint64>(toleranceMs, 0), 0);
}
