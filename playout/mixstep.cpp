#include "mixstep.h"

#include "mixrules.h"

namespace {

MixStep waitFor(qint64 ms)
{
    // Only a point between this report and the next needs the timer.
    if (ms > 0 && ms < positionReportMs)
        return {MixStep::Action::WaitUntil, int(ms)};
    return {};
}

} // namespace

MixStep decideMixStep(const MixSituation& now)
{
    if (now.alreadyMoved || !now.autoPlayNext)
        return {};
    const qint64 remaining = now.endMs - now.positionMs;
    if (!now.settings.crossfadeEnabled) {
        if (!now.handoverPossible || !now.playing || now.endMs < 1)
            return {};
        const qint64 untilHandover = remaining - now.startLeadMs;
        if (untilHandover > 0)
            return waitFor(untilHandover);
        return {MixStep::Action::HandOver, 0};
    }
    if (now.fileDurationMs < 1)
        return {};
    if (shouldMix(now.settings, now.endMs, remaining, now.levelDb, now.levelValid))
        return {MixStep::Action::Mix, 0};
    if (!now.playing)
        return {};
    return waitFor(remaining - now.settings.mixPointMs);
}
