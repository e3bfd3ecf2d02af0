#pragma once

#include <QtGlobal>

#include <array>

// Where sound begins and ends in a stream of short-block levels, for every threshold the cue-point
// finder may choose (-60 to 0 dBFS in 0.1 dB steps), kept in fixed memory: the threshold depends on
// the programme's integrated loudness, which is only known at its end, and a three-hour show must not
// keep a level per block.
class SoundBounds
{
public:
    static constexpr double kLowestDbfs = -60.0;
    static constexpr double kStepDb = 0.1;
    static constexpr int kSteps = 601; // -60.0 ... 0.0 dBFS

    // The next block's level, dBFS (minus infinity for digital silence).
    void addLevel(float dbfs);
    qint64 blockCount() const { return m_blocks; }

    // Index of the first / last block whose level reached the threshold; -1 when none did. A threshold
    // below -60 dBFS is taken as -60, one above 0 dBFS as 0.
    qint64 firstBlockAtOrAbove(double thresholdDb) const;
    qint64 lastBlockAtOrAbove(double thresholdDb) const;

private:
    static int stepOf(double thresholdDb);

    std::array<qint64, kSteps> m_first = filled();
    std::array<qint64, kSteps> m_last = filled();
    int m_highestReached = -1; // steps 0..m_highestReached have a first block
    qint64 m_blocks = 0;

    static std::array<qint64, kSteps> filled()
    {
        std::array<qint64, kSteps> a{};
        a.fill(-1);
        return a;
    }
};
