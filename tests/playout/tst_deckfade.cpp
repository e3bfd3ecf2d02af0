#include "deckfade.h"

#include <QStandardPaths>
#include <QTest>

#include <cmath>

// The fade arithmetic of a deck, stepped by hand instead of by the 40 ms timer.
class TestDeckFade : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void fadeInOver1500MsFromSilenceTakes37EqualSteps()
    {
        QCOMPARE(DeckFade::tickMs, 40);
        DeckFade fade;
        fade.gain = 0.0;
        const DeckFade::StartResult start = fade.start(1.0, 1500, false);
        QVERIFY(start.runTimer);
        QVERIFY(!start.stopPlayer);
        QVERIFY(std::fabs(fade.fadeStep - 1.0 / 37) < 1e-15);
        QCOMPARE(fade.gain, 0.0); // nothing changes before the first tick
        int ticks = 0;
        DeckFade::TickResult tick;
        while (!tick.finished && ticks < 100) {
            const double before = fade.gain;
            tick = fade.tick();
            ++ticks;
            if (!tick.finished)
                QVERIFY(std::fabs(fade.gain - before - 1.0 / 37) < 1e-12);
        }
        QCOMPARE(ticks, 37);
        QCOMPARE(fade.gain, 1.0);
        QVERIFY(!tick.stopPlayer);
    }

    void fadeShorterThan80MsIsOneStepAppliedAtTheFirstTick()
    {
        DeckFade fade;
        fade.gain = 1.0;
        QVERIFY(fade.start(0.2, 50, false).runTimer);
        QCOMPARE(fade.gain, 1.0);
        const DeckFade::TickResult tick = fade.tick();
        QVERIFY(tick.finished);
        QVERIFY(std::fabs(fade.gain - 0.2) < 1e-12);
    }

    void fadeToTheCurrentGainNeedsNoTimer()
    {
        DeckFade fade;
        fade.gain = 0.6;
        const DeckFade::StartResult start = fade.start(0.6, 2000, false);
        QVERIFY(!start.runTimer);
        QCOMPARE(fade.gain, 0.6);
    }

    void targetAboveOneIsTreatedAsOne()
    {
        DeckFade fade;
        fade.gain = 0.0;
        fade.start(1.7, 0, false);
        QCOMPARE(fade.fadeTarget, 1.0);
        QCOMPARE(fade.gain, 1.0);
    }

    void negativeTargetIsTreatedAsZero()
    {
        DeckFade fade;
        fade.gain = 1.0;
        fade.start(-0.5, 400, false);
        QCOMPARE(fade.fadeTarget, 0.0);
        int ticks = 0;
        while (!fade.tick().finished)
            ++ticks;
        QCOMPARE(ticks + 1, 10);
        QCOMPARE(fade.gain, 0.0);
    }

    void immediateFadeToSilenceWithStopAsksToStopTheDeck()
    {
        DeckFade fade;
        const DeckFade::StartResult start = fade.start(0.0, 0, true);
        QVERIFY(!start.runTimer);
        QVERIFY(start.stopPlayer);
        QCOMPARE(fade.gain, 0.0);
        QVERIFY(!fade.start(0.5, 0, true).stopPlayer);
    }

    void fadeOutWithStopStopsTheDeckOnTheLastStepOnly()
    {
        DeckFade fade;
        fade.start(0.0, 200, true); // five steps
        for (int i = 0; i < 4; ++i) {
            const DeckFade::TickResult tick = fade.tick();
            QVERIFY(!tick.finished);
            QVERIFY(!tick.stopPlayer);
        }
        const DeckFade::TickResult last = fade.tick();
        QVERIFY(last.finished);
        QVERIFY(last.stopPlayer);
        QVERIFY(!fade.stopAfterFade);
    }

    void newFadeReplacesTheRunningOneFromTheCurrentGain()
    {
        DeckFade fade;
        fade.gain = 0.0;
        fade.start(1.0, 400, false);
        fade.tick();
        fade.tick(); // gain 0.2
        fade.start(0.0, 80, true);
        QVERIFY(std::fabs(fade.fadeStep + 0.1) < 1e-12);
        QVERIFY(fade.stopAfterFade);
    }
};

QTEST_GUILESS_MAIN(TestDeckFade)
#include "tst_deckfade.moc"
