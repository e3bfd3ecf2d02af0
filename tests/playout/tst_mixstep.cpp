#include "mixstep.h"

#include <QTest>

// Whether the engine mixes, hands over or waits at one position report, without a sound device.
class TestMixStep : public QObject
{
    Q_OBJECT

private:
    // A 60 s track playing, crossfade off, the following row ready, a start lead of 300 ms.
    static MixSituation handoverAt(qint64 positionMs)
    {
        MixSituation now;
        now.playing = true;
        now.positionMs = positionMs;
        now.fileDurationMs = 60000;
        now.endMs = 60000;
        now.handoverPossible = true;
        now.startLeadMs = 300;
        return now;
    }

    // The same track with crossfade on and a mix point 2.5 s before the end.
    static MixSituation crossfadeAt(qint64 positionMs)
    {
        MixSituation now = handoverAt(positionMs);
        now.settings.crossfadeEnabled = true;
        now.settings.mixPointMs = 2500;
        now.handoverPossible = false;
        return now;
    }

    static MixStep::Action actionAt(const MixSituation& now) { return decideMixStep(now).action; }

private slots:
    void withoutCrossfadeTheNextRowStartsTheStartLeadBeforeTheEnd()
    {
        QCOMPARE(actionAt(handoverAt(30000)), MixStep::Action::Wait);
        QCOMPARE(actionAt(handoverAt(59700)), MixStep::Action::HandOver);
        QCOMPARE(actionAt(handoverAt(59900)), MixStep::Action::HandOver);
    }

    void aHandoverPointBetweenTwoReportsIsReachedByTimer()
    {
        const MixStep step = decideMixStep(handoverAt(59620)); // 80 ms before 59,700
        QCOMPARE(step.action, MixStep::Action::WaitUntil);
        QCOMPARE(step.timerMs, 80);
        QCOMPARE(actionAt(handoverAt(59500)), MixStep::Action::Wait); // 200 ms: the next report comes first
    }

    void noHandoverWhenTheRowsDoNotAllowOneOrNothingPlays()
    {
        MixSituation now = handoverAt(59900);
        now.handoverPossible = false; // a stream, shuffle, a command or missing file next
        QCOMPARE(actionAt(now), MixStep::Action::Wait);
        now = handoverAt(59900);
        now.playing = false;
        QCOMPARE(actionAt(now), MixStep::Action::Wait);
        now = handoverAt(0);
        now.endMs = 0; // length not known yet
        QCOMPARE(actionAt(now), MixStep::Action::Wait);
    }

    void nothingMovesTwiceNorWithoutAutoPlay()
    {
        MixSituation now = handoverAt(59900);
        now.alreadyMoved = true;
        QCOMPARE(actionAt(now), MixStep::Action::Wait);
        now = crossfadeAt(59000);
        now.autoPlayNext = false;
        QCOMPARE(actionAt(now), MixStep::Action::Wait);
    }

    void withCrossfadeTheMixStartsAtTheMixPoint()
    {
        QCOMPARE(actionAt(crossfadeAt(50000)), MixStep::Action::Wait);
        QCOMPARE(actionAt(crossfadeAt(57500)), MixStep::Action::Mix);
        const MixStep step = decideMixStep(crossfadeAt(57400));
        QCOMPARE(step.action, MixStep::Action::WaitUntil);
        QCOMPARE(step.timerMs, 100);
        MixSituation paused = crossfadeAt(57400);
        paused.playing = false;
        QCOMPARE(actionAt(paused), MixStep::Action::Wait);
    }

    void aCueOutIsTheEndTheMixPointCountsFrom()
    {
        MixSituation now = crossfadeAt(47500);
        now.endMs = 50000; // cue-out 10 s before the file's end
        QCOMPARE(actionAt(now), MixStep::Action::Mix);
    }

    void crossfadeWaitsForAKnownLengthAndSparesShortTracks()
    {
        MixSituation now = crossfadeAt(59000);
        now.fileDurationMs = 0;
        QCOMPARE(actionAt(now), MixStep::Action::Wait);
        now = crossfadeAt(9000);
        now.fileDurationMs = 10000;
        now.endMs = 10000; // shorter than the 45 s the mix needs
        QCOMPARE(actionAt(now), MixStep::Action::Wait);
    }

    void aQuietPassageTriggersTheMixWhenSetTo()
    {
        MixSituation now = crossfadeAt(20000);
        now.settings.triggerMixEnabled = true;
        now.settings.triggerMixDb = -14.0;
        now.levelValid = true;
        now.levelDb = -30.0;
        QCOMPARE(actionAt(now), MixStep::Action::Mix);
        now.levelDb = -6.0;
        QCOMPARE(actionAt(now), MixStep::Action::Wait);
        now.levelDb = -30.0;
        now.levelValid = false;
        QCOMPARE(actionAt(now), MixStep::Action::Wait);
    }
};

QTEST_MAIN(TestMixStep)
#include "tst_mixstep.moc"
