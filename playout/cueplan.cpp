#include "cueplan.h"

#include "trackanalysis.h"
#include "trackparams.h"

#include <algorithm>
#include <climits>
#include <cmath>

qint64 chooseCueIn(const TrackParams& params, const TrackAnalysis& analysis, bool useCuePoints)
{
    if (!useCuePoints)
        return 0;
    if (params.start > 0)
        return params.start;
    if (analysis.isValid() && analysis.cueInMs > 0)
        return analysis.cueInMs;
    return 0;
}

qint64 chooseCueOut(const TrackParams& params, const TrackAnalysis& analysis, bool useCuePoints,
                    qint64 cueInMs)
{
    if (!useCuePoints)
        return 0;
    qint64 out = 0;
    if (params.end > 0)
        out = params.end;
    else if (analysis.isValid() && analysis.cueOutMs > 0)
        out = analysis.cueOutMs;
    return out > cueInMs ? out : 0;
}

qint64 chooseMixStart(const TrackParams& params, const TrackAnalysis& analysis, bool useCuePoints,
                      qint64 cueInMs)
{
    if (!useCuePoints)
        return -1;
    qint64 start = -1;
    if (params.mixStart >= 0)
        start = params.mixStart;
    else if (analysis.isValid() && analysis.mixStartMs >= 0)
        start = analysis.mixStartMs;
    return start < 0 ? -1 : std::max(start, cueInMs);
}

double chooseGain(const TrackParams& params, const TrackAnalysis& analysis, bool normalize, double targetLufs)
{
    if (!normalize)
        return 1.0;
    const double loudness =
        analysis.isValid() ? std::pow(10.0, analysis.gainTowards(targetLufs) / 20.0) : 1.0;
    const double level = std::isfinite(params.level) ? std::max(params.level, 0.0) : 1.0;
    return loudness * level;
}

CuePlan planTrack(const TrackParams& params, const TrackAnalysis& analysis, bool useCuePoints, bool normalize,
                  double targetLufs)
{
    CuePlan plan;
    plan.startMs = chooseCueIn(params, analysis, useCuePoints);
    plan.endMs = chooseCueOut(params, analysis, useCuePoints, plan.startMs);
    plan.mixStartMs = chooseMixStart(params, analysis, useCuePoints, plan.startMs);
    plan.gain = chooseGain(params, analysis, normalize, targetLufs);
    return plan;
}

qint64 mixPointFromStart(qint64 mixStartMs, qint64 endMs)
{
    if (mixStartMs < 0 || endMs < 1)
        return -1;
    return std::max<qint64>(endMs - mixStartMs, 0);
}

int trackMixPointMs(const TrackParams& params, const CuePlan& plan, qint64 endMs)
{
    if (plan.mixStartMs >= 0 && (params.mixStart >= 0 || params.mix < 0)) {
        const qint64 point = mixPointFromStart(plan.mixStartMs, endMs);
        if (point >= 0)
            return int(std::min<qint64>(point, INT_MAX));
    }
    return params.mix;
}
