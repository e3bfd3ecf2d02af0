#include "cueplan.h"
#include "trackanalysis.h"
#include "trackparams.h"

#include <QTest>

#include <cmath>

// Which cue-in, cue-out, mix start and gain a track is played with, from its hand-set parameters
// and its analysis, with both settings on and off.
class TestCuePlan : public QObject
{
    Q_OBJECT

private:
    // A stored, successful analysis: 200 s with 2 s of leading and 5 s of trailing silence.
    static TrackAnalysis analysed()
    {
        TrackAnalysis a;
        a.filePath = QStringLiteral("/music/a.flac");
        a.durationMs = 200000;
        a.cueInMs = 2000;
        a.cueOutMs = 195000;
        a.mixStartMs = 188000;
        a.integratedLufs = -12.0;
        a.truePeakDbtp = -3.0;
        return a;
    }

private slots:
    void withCuePointsOffTheTrackPlaysWhole()
    {
        TrackParams p;
        p.start = 4000;
        p.end = 100000;
        p.mixStart = 90000;
        const CuePlan plan = planTrack(p, analysed(), false, false, -18.0);
        QCOMPARE(plan.startMs, qint64(0));
        QCOMPARE(plan.endMs, qint64(0));
        QCOMPARE(plan.mixStartMs, qint64(-1));
        QCOMPARE(plan.gain, 1.0);
    }

    void analysedCuePointsApplyWhenNoneIsSetByHand()
    {
        const CuePlan plan = planTrack(TrackParams(), analysed(), true, false, -18.0);
        QCOMPARE(plan.startMs, qint64(2000));
        QCOMPARE(plan.endMs, qint64(195000));
        QCOMPARE(plan.mixStartMs, qint64(188000));
    }

    void handSetCuePointsWinOverAnalysedOnes()
    {
        TrackParams p;
        p.start = 500;
        p.end = 150000;
        p.mixStart = 0; // set by hand to the very start: taken as the cue-in
        const CuePlan plan = planTrack(p, analysed(), true, false, -18.0);
        QCOMPARE(plan.startMs, qint64(500));
        QCOMPARE(plan.endMs, qint64(150000));
        QCOMPARE(plan.mixStartMs, qint64(500));
    }

    void aFileWithoutAnalysisPlaysAsBefore()
    {
        const TrackAnalysis none; // as load() gives for an unknown file
        QVERIFY(!none.isValid());
        const CuePlan plan = planTrack(TrackParams(), none, true, true, -18.0);
        QCOMPARE(plan.startMs, qint64(0));
        QCOMPARE(plan.endMs, qint64(0));
        QCOMPARE(plan.mixStartMs, qint64(-1));
        QCOMPARE(plan.gain, 1.0);
    }

    void aFailedAnalysisIsIgnored()
    {
        TrackAnalysis failed = analysed();
        failed.error = QStringLiteral("cannot decode");
        const CuePlan plan = planTrack(TrackParams(), failed, true, true, -18.0);
        QCOMPARE(plan.startMs, qint64(0));
        QCOMPARE(plan.gain, 1.0);
    }

    void aCueOutNotAfterTheCueInIsDropped()
    {
        TrackParams p;
        p.start = 10000;
        p.end = 8000;
        QCOMPARE(chooseCueOut(p, TrackAnalysis(), true, chooseCueIn(p, TrackAnalysis(), true)), qint64(0));
    }

    void gainBringsTheTrackToTheTargetWithinThePeakCeiling()
    {
        TrackAnalysis a = analysed(); // -12 LUFS, -3 dBTP
        // Down by 6 dB towards -18 LUFS.
        QVERIFY(std::fabs(chooseGain(TrackParams(), a, true, -18.0) - std::pow(10.0, -6.0 / 20.0)) < 1e-9);
        // Up towards -6 LUFS would put the peak at +3 dBTP: limited to +2 dB (peak -1 dBTP).
        QVERIFY(std::fabs(chooseGain(TrackParams(), a, true, -6.0) - std::pow(10.0, 2.0 / 20.0)) < 1e-9);
        // Off: exactly 1, whatever the analysis says.
        QCOMPARE(chooseGain(TrackParams(), a, false, -18.0), 1.0);
    }

    void theTracksOwnLevelMultipliesTheGain()
    {
        TrackParams p;
        p.level = 0.5;
        QVERIFY(std::fabs(chooseGain(p, analysed(), true, -18.0) - 0.5 * std::pow(10.0, -6.0 / 20.0)) < 1e-9);
        QCOMPARE(chooseGain(p, TrackAnalysis(), true, -18.0), 0.5);
        QCOMPARE(chooseGain(p, TrackAnalysis(), false, -18.0), 1.0);
        p.level = -2.0;
        QCOMPARE(chooseGain(p, TrackAnalysis(), true, -18.0), 0.0);
    }

    void theMixPointComesFromTheMixStartUnlessAHandSetLengthIsGiven()
    {
        TrackParams p;
        CuePlan plan = planTrack(p, analysed(), true, false, -18.0);
        QCOMPARE(trackMixPointMs(p, plan, 195000), 7000); // analysed 188 s of 195 s
        p.mix = 3000;                                     // a length set by hand beats an analysed start
        QCOMPARE(trackMixPointMs(p, plan, 195000), 3000);
        p.mixStart = 190000; // a start set by hand beats both
        plan = planTrack(p, analysed(), true, false, -18.0);
        QCOMPARE(trackMixPointMs(p, plan, 195000), 5000);
        // Off: the hand-set length, as always.
        plan = planTrack(p, analysed(), false, false, -18.0);
        QCOMPARE(trackMixPointMs(p, plan, 195000), 3000);
        QCOMPARE(mixPointFromStart(-1, 195000), qint64(-1));
        QCOMPARE(mixPointFromStart(200000, 195000), qint64(0)); // past the end: at once
    }
};

QTEST_MAIN(TestCuePlan)
#include "tst_cueplan.moc"
