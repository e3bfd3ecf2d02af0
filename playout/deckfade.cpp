#include "deckfade.h"

#include <algorithm>
#include <cmath>

DeckFade::StartResult DeckFade::start(double target, int ms, bool stopAtEnd)
{
    target = std::clamp(target, 0.0, 1.0);
    fadeTarget = target;
    stopAfterFade = stopAtEnd;
    StartResult result;
    if (ms <= 0) {
        gain = target;
        result.stopPlayer = stopAtEnd && gain <= 0.0001;
        return result;
    }
    const int steps = ms >= 80 ? ms / tickMs : 1;
    fadeStep = (target - gain) / steps;
    if (std::fabs(fadeStep) > 1e-12)
        result.runTimer = true;
    else
        gain = target;
    return result;
}

DeckFade::TickResult DeckFade::tick()
{
    TickResult result;
    gain += fadeStep;
    // Summing n steps of (target - gain) / n can fall short of the target by a rounding error,
    // which would add a whole extra 40 ms tick; a millionth of a step absorbs it.
    const double slack = std::fabs(fadeStep) * 1e-6;
    if ((fadeStep > 0 && gain >= fadeTarget - slack) || (fadeStep <= 0 && gain <= fadeTarget + slack)) {
        gain = fadeTarget;
        result.finished = true;
        if (stopAfterFade && gain <= 0.0001) {
            stopAfterFade = false;
            result.stopPlayer = true;
        }
    }
    return result;
}
