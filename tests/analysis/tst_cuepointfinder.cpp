// The cue-point rules on hand-made level lists: no files, no decoder.

#include "cuepointfinder.h"
#include "soundbounds.h"

#include <QtTest>

#include <limits>

namespace {

constexpr float kSilence = -std::numeric_limits<float>::infinity();
constexpr double kBlockMs = 10.0;
constexpr double kStepMs = 100.0;

// Runs of equal block levels, in order: {count, level}.
SoundBounds blocks(std::initializer_list<std::pair<int, float>> runs)
{
    SoundBounds bounds;
    for (const auto& run : runs) {
        for (int i = 0; i < run.first; ++i)
            bounds.addLevel(run.second);
    }
    return bounds;
}

// Momentary loudness, one value per 100 ms window end: {count, LUFS}.
QList<float> momentary(std::initializer_list<std::pair<int, float>> runs)
{
    QList<float> values;
    for (const auto& run : runs) {
        for (int i = 0; i < run.first; ++i)
            values << run.second;
    }
    return values;
}

} // namespace

class TestCuePointFinder : public QObject
{
    Q_OBJECT

private slots:
    void thresholdSitsFortyDecibelsBelowTheLoudness()
    {
        QCOMPARE(CuePointFinder::silenceThresholdDb(-14.0), -54.0);
        QCOMPARE(CuePointFinder::silenceThresholdDb(-19.5), -59.5);
    }

    void thresholdOfAQuietRecordingStopsAtTheFloor()
    {
        QCOMPARE(CuePointFinder::silenceThresholdDb(-30.0), -60.0);
        QCOMPARE(CuePointFinder::silenceThresholdDb(-std::numeric_limits<double>::infinity()), -60.0);
        QCOMPARE(CuePointFinder::silenceThresholdDb(std::numeric_limits<double>::quiet_NaN()), -60.0);
    }

    void soundStartsAtTheFirstBlockReachingTheThresholdAndEndsAfterTheLast()
    {
        const SoundBounds levels = blocks({{200, kSilence}, {1000, -20.0f}, {300, kSilence}});
        QCOMPARE(levels.blockCount(), qint64(1500));
        QCOMPARE(CuePointFinder::cueInMs(levels, kBlockMs, -54.0), qint64(2000));
        QCOMPARE(CuePointFinder::cueOutMs(levels, kBlockMs, -54.0), qint64(12000));
    }

    void hissBelowTheThresholdIsSilence()
    {
        const SoundBounds levels = blocks({{150, -70.0f}, {50, -58.0f}, {500, -18.0f}, {100, -56.0f}});
        // -54 dBFS: the -58 and -56 dBFS stretches are not sound, the -70 hiss never is.
        QCOMPARE(CuePointFinder::cueInMs(levels, kBlockMs, -54.0), qint64(2000));
        QCOMPARE(CuePointFinder::cueOutMs(levels, kBlockMs, -54.0), qint64(7000));
        // At the floor (-60) the -58 and -56 dBFS stretches count, the -70 hiss still does not.
        QCOMPARE(CuePointFinder::cueInMs(levels, kBlockMs, -60.0), qint64(1500));
        QCOMPARE(CuePointFinder::cueOutMs(levels, kBlockMs, -60.0), qint64(8000));
    }

    void aQuietIntroAboveTheThresholdIsKept()
    {
        const SoundBounds levels = blocks({{100, kSilence}, {300, -45.0f}, {1000, -14.0f}});
        QCOMPARE(CuePointFinder::cueInMs(levels, kBlockMs, CuePointFinder::silenceThresholdDb(-14.0)),
                 qint64(1000));
    }

    void theBlockLengthScalesThePoints()
    {
        // 441 frames at 44.1 kHz are exactly 10 ms; 221 frames at 22.05 kHz are a little more.
        const SoundBounds levels = blocks({{100, kSilence}, {100, -10.0f}, {100, kSilence}});
        const double blockMs = 221.0 * 1000.0 / 22050.0;
        QCOMPARE(CuePointFinder::cueInMs(levels, blockMs, -54.0), qint64(std::llround(100 * blockMs)));
        QCOMPARE(CuePointFinder::cueOutMs(levels, blockMs, -54.0), qint64(std::llround(200 * blockMs)));
    }

    void noBlockReachingTheThresholdGivesNoCuePoints()
    {
        const SoundBounds silent = blocks({{500, kSilence}});
        QCOMPARE(CuePointFinder::cueInMs(silent, kBlockMs, -60.0), qint64(-1));
        QCOMPARE(CuePointFinder::cueOutMs(silent, kBlockMs, -60.0), qint64(-1));
        const SoundBounds hiss = blocks({{500, -65.0f}});
        QCOMPARE(CuePointFinder::cueInMs(hiss, kBlockMs, -60.0), qint64(-1));
        const SoundBounds nothing;
        QCOMPARE(CuePointFinder::cueOutMs(nothing, kBlockMs, -60.0), qint64(-1));
    }

    void thresholdsOutsideTheKeptRangeAreClamped()
    {
        const SoundBounds levels = blocks({{10, kSilence}, {10, -59.95f}, {10, 3.0f}, {10, kSilence}});
        // Below the floor: taken as -60 dBFS, which -59.95 reaches.
        QCOMPARE(levels.firstBlockAtOrAbove(-80.0), qint64(10));
        // Above 0 dBFS: taken as 0, reached only by the +3 dBFS blocks.
        QCOMPARE(levels.firstBlockAtOrAbove(6.0), qint64(20));
        QCOMPARE(levels.lastBlockAtOrAbove(6.0), qint64(29));
        QCOMPARE(levels.lastBlockAtOrAbove(-50.0), qint64(29));
        QCOMPARE(levels.firstBlockAtOrAbove(-50.0), qint64(20));
    }

    void mixStartsWhereTheEndingStaysEightLuBelowTheLoudness()
    {
        // Integrated -20 LUFS; loud windows up to 25.0 s, then -35 LUFS up to cue-out at 30 s. The first
        // quiet window ends at 25.1 s, so the quiet stretch begins with that window at 24.7 s.
        const QList<float> values = momentary({{250, -20.0f}, {50, -35.0f}, {20, kSilence}});
        QCOMPARE(CuePointFinder::mixStartMs(values, kStepMs, 0, 30000, -20.0), qint64(24700));
    }

    void aDropOfLessThanEightLuIsNoEnding()
    {
        const QList<float> values = momentary({{250, -20.0f}, {50, -26.0f}});
        QCOMPARE(CuePointFinder::mixStartMs(values, kStepMs, 0, 30000, -20.0), qint64(30000));
    }

    void aLoudWindowInsideTheEndingRestartsTheQuietStretch()
    {
        // Quiet from 20 s, one loud window ending at 27.0 s, quiet again to cue-out at 30 s.
        const QList<float> values = momentary({{200, -18.0f}, {69, -40.0f}, {1, -18.0f}, {30, -40.0f}});
        QCOMPARE(CuePointFinder::mixStartMs(values, kStepMs, 0, 30000, -18.0), qint64(27100 - 400));
    }

    void mixStartIsNeverMoreThanFifteenSecondsBeforeCueOut()
    {
        const QList<float> values = momentary({{100, -20.0f}, {500, -50.0f}});
        QCOMPARE(CuePointFinder::mixStartMs(values, kStepMs, 0, 60000, -20.0), qint64(45000));
    }

    void aHardEndingMixesAtCueOut()
    {
        const QList<float> values = momentary({{300, -16.0f}, {30, kSilence}});
        QCOMPARE(CuePointFinder::mixStartMs(values, kStepMs, 500, 30000, -16.0), qint64(30000));
    }

    void mixStartIsNeverBeforeCueIn()
    {
        const QList<float> values = momentary({{60, -60.0f}});
        QCOMPARE(CuePointFinder::mixStartMs(values, kStepMs, 1000, 5000, -20.0), qint64(1000));
    }

    void noCueOutOrNoLoudnessGivesNoMixStart()
    {
        const QList<float> values = momentary({{100, kSilence}});
        QCOMPARE(CuePointFinder::mixStartMs(values, kStepMs, -1, -1, -20.0), qint64(-1));
        QCOMPARE(
            CuePointFinder::mixStartMs(values, kStepMs, 0, 5000, -std::numeric_limits<double>::infinity()),
            qint64(-1));
    }
};

QTEST_GUILESS_MAIN(TestCuePointFinder)
#include "tst_cuepointfinder.moc"
