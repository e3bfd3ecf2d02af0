#include "soundbounds.h"

#include <cmath>

int SoundBounds::stepOf(double thresholdDb)
{
    if (!(thresholdDb > kLowestDbfs))
        return 0;
    // Rounded to the nearest step; the 1e-9 keeps -59.9 from landing a step low through rounding error.
    const int step = static_cast<int>(std::floor((thresholdDb - kLowestDbfs) / kStepDb + 0.5 + 1e-9));
    return qMin(step, kSteps - 1);
}

void SoundBounds::addLevel(float dbfs)
{
    const qint64 block = m_blocks++;
    if (!(dbfs >= kLowestDbfs))
        return; // also NaN and minus infinity
    // The highest threshold step this block reaches; it reaches every step below as well.
    const int top =
        dbfs >= 0.0f ? kSteps - 1
                     : qMin(static_cast<int>(std::floor((dbfs - kLowestDbfs) / kStepDb + 1e-9)), kSteps - 1);
    for (int s = m_highestReached + 1; s <= top; ++s)
        m_first[static_cast<size_t>(s)] = block;
    m_highestReached = qMax(m_highestReached, top);
    for (int s = 0; s <= top; ++s)
        m_last[static_cast<size_t>(s)] = block;
}

qint64 SoundBounds::firstBlockAtOrAbove(double thresholdDb) const
{
    return m_first[static_cast<size_t>(stepOf(thresholdDb))];
}

qint64 SoundBounds::lastBlockAtOrAbove(double thresholdDb) const
{
    return m_last[static_cast<size_t>(stepOf(thresholdDb))];
}
