#include "levelmeter.h"

#include <QSignalSpy>
#include <QTest>

// One meter channel: dBFS from -60 to 0, peak hold, and its own repaint pace whatever the rate of
// level reports.
class TestLevelMeter : public QObject
{
    Q_OBJECT

private slots:
    void linearPeaksMapToDbfsWithinTheScale()
    {
        QCOMPARE(LevelMeter::toDb(1.0), 0.0);
        QCOMPARE(LevelMeter::toDb(0.0), -60.0);
        QCOMPARE(LevelMeter::toDb(-0.3), -60.0);
        QCOMPARE(LevelMeter::toDb(0.0001), -60.0); // -80 dB is below the scale
        QCOMPARE(LevelMeter::toDb(2.0), 0.0);
        QVERIFY(qAbs(LevelMeter::toDb(0.5) - (-6.0206)) < 0.001);
    }

    void theBarRisesAtOnceAndTheRepaintFollowsItsOwnTimer()
    {
        LevelMeter meter(QStringLiteral("L"));
        meter.resize(200, 14);
        meter.show();
        QVERIFY(QTest::qWaitForWindowExposed(&meter));
        // A burst of 1000 reports in one go costs no paint of its own.
        const int paintsBefore = meter.repaintCount();
        for (int i = 0; i < 1000; ++i)
            meter.setLevel(i == 500 ? 0.5 : 0.1);
        QCOMPARE(meter.repaintCount(), paintsBefore);
        // The loudest report of the burst shows at the next tick.
        QTRY_VERIFY_WITH_TIMEOUT(qAbs(meter.levelDb() - (-6.0206)) < 0.01, 2000);
        QVERIFY(meter.repaintCount() > paintsBefore);
        QVERIFY(qAbs(meter.peakDb() - (-6.0206)) < 0.01);
    }

    void thePeakIsHeldWhileTheBarFalls()
    {
        LevelMeter meter(QStringLiteral("R"));
        meter.show();
        meter.setLevel(1.0);
        QTRY_COMPARE_WITH_TIMEOUT(meter.levelDb(), 0.0, 2000);
        meter.setLevel(0.0);
        // The bar falls at its steady rate; the peak mark stays at 0 dB for the hold time.
        QTRY_VERIFY_WITH_TIMEOUT(meter.levelDb() < -3.0, 3000);
        QCOMPARE(meter.peakDb(), 0.0);
        QTRY_COMPARE_WITH_TIMEOUT(meter.levelDb(), -60.0, 10000);
        QTRY_VERIFY_WITH_TIMEOUT(meter.peakDb() < 0.0, 10000);
        QTRY_COMPARE_WITH_TIMEOUT(meter.peakDb(), -60.0, 10000);
    }

    void aLevelNoLongerReportedFallsToTheFloor()
    {
        LevelMeter meter(QStringLiteral("L"));
        meter.show();
        meter.setLevel(0.5);
        QTRY_VERIFY_WITH_TIMEOUT(qAbs(meter.levelDb() - (-6.0206)) < 0.01, 2000);
        // No report of silence comes (the sender stopped): the bar does not stay up.
        QTRY_COMPARE_WITH_TIMEOUT(meter.levelDb(), -60.0, 10000);
    }
};

QTEST_MAIN(TestLevelMeter)
#include "tst_levelmeter.moc"
