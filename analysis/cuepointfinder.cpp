#include "cuepointfinder.h"

#include <algorithm>
#include <cmath>

double CuePointFinder::silenceThresholdDb(double integratedLufs)
{
    if (!std::isfinite(integratedLufs))
        return kThresholdFloorDbfs;
    return std::max(integratedLufs - kRelativeThresholdDb, kThresholdFloorDbfs);
}

qint64 CuePointFinder::cueInMs(const SoundBounds& levels, double blockMs, double thresholdDb)
{
    const qint64 block = levels.firstBlockAtOrAbove(thresholdDb);
    return block < 0 ? -1 : std::llround(static_cast<double>(block) * blockMs);
}

qint64 CuePointFinder::cueOutMs(const SoundBounds& levels, double blockMs, double thresholdDb)
{
    const qint64 block = levels.lastBlockAtOrAbove(thresholdDb);
    return block < 0 ? -1 : std::llround(static_cast<double>(block + 1) * blockMs);
}

qint64 CuePointFinder::mixStartMs(const QList<float>& momentaryLufs, double stepMs, qint64 cueInMs,
                                  qint64 cueOutMs, double integratedLufs)
{
    if (cueOutMs < 0 || !std::isfinite(integratedLufs) || stepMs <= 0.0)
        return -1;
    const double quietBelow = integratedLufs - kMixDropLu;
    const qint64 earliest = std::max<qint64>(cueOutMs - kMaxMixLeadMs, std::max<qint64>(cueInMs, 0));
    qint64 mixStart = cueOutMs;
    // Walk back from the last window that ends by cue-out while the windows stay quiet.
    qsizetype i = static_cast<qsizetype>(std::floor(static_cast<double>(cueOutMs) / stepMs)) - 1;
    i = std::min(i, momentaryLufs.size() - 1);
    for (; i >= 0; --i) {
        const double windowEnd = static_cast<double>(i + 1) * stepMs;
        const qint64 windowStart = std::llround(windowEnd) - kMomentaryWindowMs;
        if (!(momentaryLufs.at(i) < quietBelow))
            break;
        mixStart = windowStart;
        if (windowStart <= earliest)
            break;
    }
    return std::max(std::min(mixStart, cueOutMs), earliest);
}
