// The running-to-time plan over plain rows: planned starts, the next timed event, over and under, and
// the rows that give way to a fixed time.

#include "backtiming.h"
#include "track.h"

#include <QTest>

using namespace BackTiming;

namespace {

const QDate kDay(2026, 11, 23);

QDateTime clock(int h, int m, int s = 0, const QDate& day = kDay)
{
    return QDateTime(day, QTime(h, m, s));
}

qint64 ms(int h, int m, int s = 0, const QDate& day = kDay)
{
    return clock(h, m, s, day).toMSecsSinceEpoch();
}

constexpr qint64 minutes(int m, int s = 0)
{
    return (qint64(m) * 60 + s) * 1000;
}

Row song(qint64 lengthMs)
{
    Row row;
    row.lengthMs = lengthMs;
    return row;
}

Row timedRow(TimedStart::Mode mode, const QDateTime& at, qint64 lengthMs)
{
    Row row = song(lengthMs);
    row.timed.mode = mode;
    row.timed.at = at;
    return row;
}

Row hard(const QDateTime& at, qint64 lengthMs = minutes(1))
{
    return timedRow(TimedStart::Mode::Hard, at, lengthMs);
}

Row soft(const QDateTime& at, qint64 lengthMs = minutes(1))
{
    return timedRow(TimedStart::Mode::Soft, at, lengthMs);
}

Row stop()
{
    Row row;
    row.halts = true;
    return row;
}

Row endlessStream()
{
    Row row;
    row.endless = true;
    return row;
}

// On air: row `current`, `elapsedMs` into it, at `now`.
Input onAir(const QList<Row>& rows, int current, qint64 elapsedMs, const QDateTime& now)
{
    Input input;
    input.rows = rows;
    input.currentRow = current;
    input.elapsedMs = elapsedMs;
    input.now = now;
    return input;
}

QList<Fate> fates(const Plan& plan)
{
    QList<Fate> result;
    for (const RowPlan& row : plan.rows)
        result << row.fate;
    return result;
}

} // namespace

class TestBackTiming : public QObject
{
    Q_OBJECT

private slots:
    void rowsRunOneAfterAnotherFromTheCurrentRow();
    void rowsAboveTheCurrentRowAreCountedBack();
    void hardRowOverCutsThePlayingRowAndSkipsTheRest();
    void hardRowUnderLeavesAGapAndSkipsNothing();
    void hardRowExactlyOnTimeSkipsNothing();
    void hardRowMidCurrentTrackCutsTheCurrentTrack();
    void softRowFollowsTheTrackPlayingWhenItsTimeComes();
    void softRowUnderWaitsForItsTime();
    void softRowExactlyOnTimeFollowsTheLastRow();
    void rowsAfterATimedRowRunFromItsStart();
    void twoTimedRowsAtTheSameTimeFireInListOrder();
    void secondHardRowCutsTheFirstWhenItsTimeComesDuringIt();
    void twoSoftRowsAtTheSameTimeFollowOneAnother();
    void timedRowAboveTheCurrentRowWhoseTimeHasPassedIsNoEvent();
    void timedRowAboveTheCurrentRowStillToComeJumpsBack();
    void nextEventIsTheEarliestAndHardBeforeSoft();
    void timedRowLateWithinTheLimitFiresAtOnce();
    void timedRowLateBeyondTheLimitIsStaleAndSkipped();
    void softRowWhoseTimeCameDuringTheRowOnAirWaitsWithoutGoingStale();
    void stopBeforeAHardRowDoesNotHoldItBack();
    void stopBeforeASoftRowMakesItWaitForPlay();
    void stopSkippedBySoftRowDoesNotMakeItWait();
    void endlessStreamIsCutByAHardRowAndTheRowsAfterItSkipped();
    void endlessStreamLeavesTheSoftRowAndOverUnderUnknown();
    void currentRowPastItsLengthEndsNoEarlierThanNow();
    void planWrapsPastMidnight();
    void nothingOnAirPlansFromTheStartRowNow();
    void commandRowsCarryNoFixedTime();
    void rowFromTrackCountsStreamsByTheirLimit();
    void rowFromTrackWholeSecondsDropsFractions();
    void invalidClockPlansNothing();
    void untimedRowsGiveNoEvents();
};

void TestBackTiming::rowsRunOneAfterAnotherFromTheCurrentRow()
{
    const Plan plan = BackTiming::plan(onAir({song(minutes(3)), song(minutes(4)), song(minutes(2))}, 0,
                                             minutes(1), clock(11, 0)));
    QCOMPARE(plan.rows.at(0).startMs, ms(10, 59));
    QCOMPARE(plan.rows.at(0).endMs, ms(11, 2));
    QCOMPARE(plan.rows.at(1).startMs, ms(11, 2));
    QCOMPARE(plan.rows.at(2).startMs, ms(11, 6));
    QCOMPARE(plan.rows.at(2).endMs, ms(11, 8));
    QCOMPARE(fates(plan), QList<Fate>(3, Fate::Plays));
    QVERIFY(plan.next() == nullptr);
}

void TestBackTiming::rowsAboveTheCurrentRowAreCountedBack()
{
    const Plan plan =
        BackTiming::plan(onAir({song(minutes(3)), song(minutes(4)), song(minutes(2))}, 2, 0, clock(11, 0)));
    QCOMPARE(plan.rows.at(2).startMs, ms(11, 0));
    QCOMPARE(plan.rows.at(1).startMs, ms(10, 56));
    QCOMPARE(plan.rows.at(1).endMs, ms(11, 0));
    QCOMPARE(plan.rows.at(0).startMs, ms(10, 53));
    QCOMPARE(plan.rows.at(0).fate, Fate::Aired);
    QCOMPARE(plan.rows.at(1).fate, Fate::Aired);
    QCOMPARE(plan.rows.at(2).fate, Fate::Plays);
}

void TestBackTiming::hardRowOverCutsThePlayingRowAndSkipsTheRest()
{
    // 11:50 + 4 + 4 + 4 + 4 = 12:06; the hard news is at 12:00.
    const QList<Row> rows{song(minutes(4)), song(minutes(4)), song(minutes(4)), song(minutes(4)),
                          hard(clock(12, 0), minutes(5)), song(minutes(3))};
    const Plan plan = BackTiming::plan(onAir(rows, 0, 0, clock(11, 50)));
    QCOMPARE(fates(plan), (QList<Fate>{Fate::Plays, Fate::Plays, Fate::Cut, Fate::Skipped, Fate::Plays,
                                       Fate::Plays}));
    QCOMPARE(plan.rows.at(2).endMs, ms(12, 0)); // cut at the hard time
    QCOMPARE(plan.rows.at(2).timedRow, 4);
    QCOMPARE(plan.rows.at(3).timedRow, 4);
    QCOMPARE(plan.rows.at(4).startMs, ms(12, 0));
    QCOMPARE(plan.rows.at(5).startMs, ms(12, 5));

    const Event* next = plan.next();
    QVERIFY(next != nullptr);
    QCOMPARE(next->row, 4);
    QCOMPARE(next->mode, TimedStart::Mode::Hard);
    QCOMPARE(next->atMs, ms(12, 0));
    QCOMPARE(next->startMs, ms(12, 0));
    QVERIFY(next->overUnderKnown);
    QCOMPARE(next->overUnderMs, minutes(6)); // over
    QVERIFY(!next->late);
}

void TestBackTiming::hardRowUnderLeavesAGapAndSkipsNothing()
{
    const QList<Row> rows{song(minutes(3)), song(minutes(3, 55)), hard(clock(12, 0))};
    const Plan plan = BackTiming::plan(onAir(rows, 0, minutes(1), clock(11, 53)));
    // 11:52 + 3:00 + 3:55 = 11:58:55: 1:05 short of noon.
    QCOMPARE(fates(plan), QList<Fate>(3, Fate::Plays));
    QCOMPARE(plan.next()->overUnderMs, -minutes(1, 5));
    QCOMPARE(plan.rows.at(1).endMs, ms(11, 58, 55));
    QCOMPARE(plan.rows.at(2).startMs, ms(12, 0));
}

void TestBackTiming::hardRowExactlyOnTimeSkipsNothing()
{
    const QList<Row> rows{song(minutes(5)), song(minutes(5)), hard(clock(12, 0))};
    const Plan plan = BackTiming::plan(onAir(rows, 0, 0, clock(11, 50)));
    QCOMPARE(fates(plan), QList<Fate>(3, Fate::Plays));
    QCOMPARE(plan.next()->overUnderMs, 0);
    QCOMPARE(plan.rows.at(1).endMs, ms(12, 0));
}

void TestBackTiming::hardRowMidCurrentTrackCutsTheCurrentTrack()
{
    const QList<Row> rows{song(minutes(10)), song(minutes(3)), hard(clock(12, 0))};
    const Plan plan = BackTiming::plan(onAir(rows, 0, minutes(2), clock(11, 57)));
    QCOMPARE(fates(plan), (QList<Fate>{Fate::Cut, Fate::Skipped, Fate::Plays}));
    QCOMPARE(plan.rows.at(0).endMs, ms(12, 0));
    QCOMPARE(plan.next()->overUnderMs, minutes(8));
}

void TestBackTiming::softRowFollowsTheTrackPlayingWhenItsTimeComes()
{
    // 11:50 start; rows end 11:54, 11:58, 12:02, 12:06: at noon the third is playing.
    const QList<Row> rows{song(minutes(4)), song(minutes(4)), song(minutes(4)), song(minutes(4)),
                          soft(clock(12, 0), minutes(2)), song(minutes(3))};
    const Plan plan = BackTiming::plan(onAir(rows, 0, 0, clock(11, 50)));
    QCOMPARE(fates(plan), (QList<Fate>{Fate::Plays, Fate::Plays, Fate::Plays, Fate::Skipped, Fate::Plays,
                                       Fate::Plays}));
    QCOMPARE(plan.rows.at(3).timedRow, 4);
    QCOMPARE(plan.rows.at(2).endMs, ms(12, 2)); // not cut
    QCOMPARE(plan.rows.at(4).startMs, ms(12, 2));
    QCOMPARE(plan.rows.at(5).startMs, ms(12, 4));
    QCOMPARE(plan.next()->mode, TimedStart::Mode::Soft);
    QCOMPARE(plan.next()->startMs, ms(12, 2));
    QCOMPARE(plan.next()->overUnderMs, minutes(6));
    QVERIFY(!plan.next()->waitsForPlay);
}

void TestBackTiming::softRowUnderWaitsForItsTime()
{
    const QList<Row> rows{song(minutes(4)), soft(clock(12, 0))};
    const Plan plan = BackTiming::plan(onAir(rows, 0, 0, clock(11, 50)));
    QCOMPARE(plan.next()->overUnderMs, -minutes(6));
    QCOMPARE(plan.rows.at(1).startMs, ms(12, 0));
    QCOMPARE(fates(plan), QList<Fate>(2, Fate::Plays));
}

void TestBackTiming::softRowExactlyOnTimeFollowsTheLastRow()
{
    const QList<Row> rows{song(minutes(5)), song(minutes(5)), soft(clock(12, 0))};
    const Plan plan = BackTiming::plan(onAir(rows, 0, 0, clock(11, 50)));
    QCOMPARE(fates(plan), QList<Fate>(3, Fate::Plays));
    QCOMPARE(plan.next()->overUnderMs, 0);
    QCOMPARE(plan.rows.at(2).startMs, ms(12, 0));
}

void TestBackTiming::rowsAfterATimedRowRunFromItsStart()
{
    const QList<Row> rows{song(minutes(1)), hard(clock(12, 0), minutes(2, 30)), song(minutes(3)),
                          song(minutes(3))};
    const Plan plan = BackTiming::plan(onAir(rows, 0, 0, clock(11, 0)));
    QCOMPARE(plan.rows.at(2).startMs, ms(12, 2, 30));
    QCOMPARE(plan.rows.at(3).startMs, ms(12, 5, 30));
    QCOMPARE(plan.rows.at(3).endMs, ms(12, 8, 30));
}

void TestBackTiming::twoTimedRowsAtTheSameTimeFireInListOrder()
{
    const QList<Row> rows{song(minutes(10)), hard(clock(12, 0), minutes(2)), song(minutes(1)),
                          hard(clock(12, 0), minutes(1)), song(minutes(1))};
    const Plan plan = BackTiming::plan(onAir(rows, 0, 0, clock(11, 55)));
    QCOMPARE(fates(plan),
             (QList<Fate>{Fate::Cut, Fate::Plays, Fate::Skipped, Fate::Plays, Fate::Plays}));
    QCOMPARE(plan.events.size(), 2);
    QCOMPARE(plan.events.at(0).row, 1);
    QCOMPARE(plan.events.at(0).startMs, ms(12, 0));
    // The second is not allowed to cut the first: it follows it, and the row between gives way.
    QCOMPARE(plan.rows.at(1).endMs, ms(12, 2));
    QCOMPARE(plan.rows.at(2).timedRow, 3);
    QCOMPARE(plan.events.at(1).startMs, ms(12, 2));
    QCOMPARE(plan.rows.at(4).startMs, ms(12, 3));
    QCOMPARE(plan.next()->row, 1);
}

void TestBackTiming::secondHardRowCutsTheFirstWhenItsTimeComesDuringIt()
{
    const QList<Row> rows{song(minutes(1)), hard(clock(12, 0), minutes(10)), hard(clock(12, 5))};
    const Plan plan = BackTiming::plan(onAir(rows, 0, 0, clock(11, 59)));
    QCOMPARE(plan.rows.at(1).fate, Fate::Cut);
    QCOMPARE(plan.rows.at(1).endMs, ms(12, 5));
    QCOMPARE(plan.rows.at(2).startMs, ms(12, 5));
    QCOMPARE(plan.events.at(1).overUnderMs, minutes(5));
}

void TestBackTiming::twoSoftRowsAtTheSameTimeFollowOneAnother()
{
    const QList<Row> rows{song(minutes(8)), soft(clock(12, 0), minutes(2)), soft(clock(12, 0), minutes(2))};
    const Plan plan = BackTiming::plan(onAir(rows, 0, 0, clock(11, 55)));
    QCOMPARE(fates(plan), QList<Fate>(3, Fate::Plays));
    QCOMPARE(plan.rows.at(1).startMs, ms(12, 3));
    QCOMPARE(plan.rows.at(2).startMs, ms(12, 5));
}

void TestBackTiming::timedRowAboveTheCurrentRowWhoseTimeHasPassedIsNoEvent()
{
    const QList<Row> rows{song(minutes(3)), hard(clock(12, 0), minutes(2)), song(minutes(4)),
                          song(minutes(4))};
    const Plan plan = BackTiming::plan(onAir(rows, 3, 0, clock(12, 30)));
    QVERIFY(plan.next() == nullptr);
    QCOMPARE(plan.rows.at(1).fate, Fate::Aired);
    QCOMPARE(plan.rows.at(1).startMs, ms(12, 0)); // it keeps its fixed time
    QCOMPARE(plan.rows.at(0).startMs, ms(11, 57)); // and the rows above it count back from there
    QCOMPARE(plan.rows.at(2).startMs, ms(12, 26));
}

void TestBackTiming::timedRowAboveTheCurrentRowStillToComeJumpsBack()
{
    const QList<Row> rows{song(minutes(3)), hard(clock(12, 40), minutes(2)), song(minutes(4)),
                          soft(clock(12, 50)), song(minutes(30))};
    const Plan plan = BackTiming::plan(onAir(rows, 2, 0, clock(12, 30)));
    QCOMPARE(plan.events.size(), 2);
    QCOMPARE(plan.events.at(0).row, 3); // below first, in list order
    const Event* next = plan.next();
    QVERIFY(next != nullptr);
    QCOMPARE(next->row, 1);
    QVERIFY(next->jumpsBack);
    QVERIFY(!next->overUnderKnown);
    QCOMPARE(next->startMs, ms(12, 40));
    QCOMPARE(plan.rows.at(1).fate, Fate::Aired); // its place in the list is behind us

    // A soft one follows the row playing at its time.
    const QList<Row> softRows{soft(clock(12, 40)), song(minutes(4)), song(minutes(20))};
    const Plan softPlan = BackTiming::plan(onAir(softRows, 1, 0, clock(12, 30)));
    QVERIFY(softPlan.next()->jumpsBack);
    QCOMPARE(softPlan.next()->startMs, ms(12, 54));
}

void TestBackTiming::nextEventIsTheEarliestAndHardBeforeSoft()
{
    // Listed out of time order: the 12:00 row comes due first.
    const QList<Row> rows{song(minutes(1)), hard(clock(12, 30)), song(minutes(1)), hard(clock(12, 0))};
    QCOMPARE(BackTiming::plan(onAir(rows, 0, 0, clock(11, 50))).next()->row, 3);
    // The same time: hard first, else list order.
    const QList<Row> same{song(minutes(1)), soft(clock(12, 0)), hard(clock(12, 0))};
    QCOMPARE(BackTiming::plan(onAir(same, 0, 0, clock(11, 50))).next()->row, 2);
    const QList<Row> twoHard{song(minutes(1)), hard(clock(12, 0)), hard(clock(12, 0))};
    QCOMPARE(BackTiming::plan(onAir(twoHard, 0, 0, clock(11, 50))).next()->row, 1);
}

void TestBackTiming::timedRowLateWithinTheLimitFiresAtOnce()
{
    const QList<Row> rows{song(minutes(4)), song(minutes(4)), hard(clock(12, 0)), song(minutes(1))};
    const Plan plan = BackTiming::plan(onAir(rows, 0, minutes(1), clock(12, 0, 30)));
    QVERIFY(plan.next() != nullptr);
    QVERIFY(plan.next()->late);
    QCOMPARE(plan.next()->startMs, ms(12, 0, 30));
    QCOMPARE(fates(plan), (QList<Fate>{Fate::Cut, Fate::Skipped, Fate::Plays, Fate::Plays}));

    const QList<Row> softRows{song(minutes(4)), song(minutes(4)), soft(clock(12, 0)), song(minutes(1))};
    const Plan softPlan = BackTiming::plan(onAir(softRows, 0, minutes(1), clock(12, 0, 30)));
    QVERIFY(softPlan.next()->late);
    QCOMPARE(softPlan.next()->startMs, ms(12, 3, 30)); // after the current row
    QCOMPARE(fates(softPlan), (QList<Fate>{Fate::Plays, Fate::Skipped, Fate::Plays, Fate::Plays}));
}

void TestBackTiming::timedRowLateBeyondTheLimitIsStaleAndSkipped()
{
    const QList<Row> rows{song(minutes(4)), hard(clock(12, 0), minutes(2)), song(minutes(1)),
                          soft(clock(14, 0))};
    Input input = onAir(rows, 0, 0, clock(13, 0));
    const Plan plan = BackTiming::plan(input);
    QCOMPARE(plan.rows.at(1).fate, Fate::Stale);
    QCOMPARE(plan.rows.at(2).startMs, ms(13, 4)); // the stale row takes no time
    QCOMPARE(plan.events.size(), 1);
    QCOMPARE(plan.next()->row, 3);

    // Exactly at the limit it still fires; the limit is the caller's.
    input.now = clock(12, 1);
    QCOMPARE(BackTiming::plan(input).next()->row, 1);
    input.lateLimitMs = 0;
    QCOMPARE(BackTiming::plan(input).rows.at(1).fate, Fate::Stale);
}

void TestBackTiming::softRowWhoseTimeCameDuringTheRowOnAirWaitsWithoutGoingStale()
{
    // On air since 11:57 for ten minutes; the soft row's time, noon, came five minutes ago.
    const QList<Row> rows{song(minutes(10)), song(minutes(3)), soft(clock(12, 0))};
    const Plan plan = BackTiming::plan(onAir(rows, 0, minutes(8), clock(12, 5)));
    QVERIFY(plan.next() != nullptr);
    QCOMPARE(plan.next()->row, 2);
    QVERIFY(plan.next()->late);
    QCOMPARE(plan.next()->startMs, ms(12, 7));
    QCOMPARE(plan.rows.at(1).fate, Fate::Skipped);
    // Come due more than a minute before the row on air started (12:02), it is stale.
    const Plan stale = BackTiming::plan(onAir(rows, 0, minutes(8), clock(12, 10)));
    QCOMPARE(stale.rows.at(2).fate, Fate::Stale);
}

void TestBackTiming::stopBeforeAHardRowDoesNotHoldItBack()
{
    const QList<Row> rows{song(minutes(4)), stop(), song(minutes(3)), hard(clock(12, 0))};
    const Plan plan = BackTiming::plan(onAir(rows, 0, 0, clock(11, 50)));
    QCOMPARE(fates(plan), QList<Fate>(4, Fate::Plays));
    QCOMPARE(plan.rows.at(3).startMs, ms(12, 0));
    QVERIFY(!plan.next()->waitsForPlay);
    QCOMPARE(plan.next()->overUnderMs, -minutes(3));

    // Over: the STOP and the row after it never come; the hard row starts anyway.
    const QList<Row> over{song(minutes(12)), stop(), song(minutes(3)), hard(clock(12, 0))};
    const Plan overPlan = BackTiming::plan(onAir(over, 0, 0, clock(11, 50)));
    QCOMPARE(fates(overPlan), (QList<Fate>{Fate::Cut, Fate::Skipped, Fate::Skipped, Fate::Plays}));
}

void TestBackTiming::stopBeforeASoftRowMakesItWaitForPlay()
{
    const QList<Row> rows{song(minutes(4)), stop(), song(minutes(3)), soft(clock(12, 0))};
    const Plan plan = BackTiming::plan(onAir(rows, 0, 0, clock(11, 50)));
    QVERIFY(plan.next()->waitsForPlay);
    QCOMPARE(plan.rows.at(3).startMs, ms(12, 0));
}

void TestBackTiming::stopSkippedBySoftRowDoesNotMakeItWait()
{
    const QList<Row> rows{song(minutes(12)), stop(), song(minutes(3)), soft(clock(12, 0))};
    const Plan plan = BackTiming::plan(onAir(rows, 0, 0, clock(11, 50)));
    QCOMPARE(fates(plan), (QList<Fate>{Fate::Plays, Fate::Skipped, Fate::Skipped, Fate::Plays}));
    QVERIFY(!plan.next()->waitsForPlay);
    QCOMPARE(plan.rows.at(3).startMs, ms(12, 2));
}

void TestBackTiming::endlessStreamIsCutByAHardRowAndTheRowsAfterItSkipped()
{
    const QList<Row> rows{song(minutes(2)), endlessStream(), song(minutes(3)), hard(clock(12, 0)),
                          song(minutes(2))};
    const Plan plan = BackTiming::plan(onAir(rows, 0, 0, clock(11, 50)));
    QCOMPARE(fates(plan), (QList<Fate>{Fate::Plays, Fate::Cut, Fate::Skipped, Fate::Plays, Fate::Plays}));
    QCOMPARE(plan.rows.at(1).endMs, ms(12, 0));
    QCOMPARE(plan.rows.at(2).startMs, unknownTime);
    QVERIFY(!plan.next()->overUnderKnown); // the stream has no end to measure
    QCOMPARE(plan.rows.at(4).startMs, ms(12, 1)); // known again from the hard time on
}

void TestBackTiming::endlessStreamLeavesTheSoftRowAndOverUnderUnknown()
{
    const QList<Row> rows{endlessStream(), song(minutes(3)), soft(clock(12, 0)), song(minutes(2))};
    const Plan plan = BackTiming::plan(onAir(rows, 0, minutes(1), clock(11, 50)));
    QCOMPARE(fates(plan), (QList<Fate>{Fate::Plays, Fate::Skipped, Fate::Plays, Fate::Plays}));
    QCOMPARE(plan.rows.at(2).startMs, unknownTime);
    QCOMPARE(plan.rows.at(3).startMs, unknownTime);
    QVERIFY(!plan.next()->overUnderKnown);
    QCOMPARE(plan.next()->atMs, ms(12, 0)); // the event itself is still known
}

void TestBackTiming::currentRowPastItsLengthEndsNoEarlierThanNow()
{
    const Plan plan =
        BackTiming::plan(onAir({song(minutes(3)), hard(clock(12, 0))}, 0, minutes(4), clock(11, 55)));
    QCOMPARE(plan.rows.at(0).endMs, ms(11, 55));
    QCOMPARE(plan.next()->overUnderMs, -minutes(5));
}

void TestBackTiming::planWrapsPastMidnight()
{
    const QDate nextDay = kDay.addDays(1);
    const QList<Row> rows{song(minutes(4)), song(minutes(4)), hard(clock(0, 0, 0, nextDay), minutes(1)),
                          song(minutes(2))};
    const Plan plan = BackTiming::plan(onAir(rows, 0, 0, clock(23, 55)));
    QCOMPARE(plan.next()->overUnderMs, minutes(3));
    QCOMPARE(fates(plan), (QList<Fate>{Fate::Plays, Fate::Cut, Fate::Plays, Fate::Plays}));
    QCOMPARE(plan.rows.at(3).startMs, ms(0, 1, 0, nextDay));
    // A time that is today's midnight, a day gone, is stale rather than a wrap.
    const QList<Row> stale{song(minutes(4)), hard(clock(0, 0)), song(minutes(2))};
    QCOMPARE(BackTiming::plan(onAir(stale, 0, 0, clock(23, 55))).rows.at(1).fate, Fate::Stale);
}

void TestBackTiming::nothingOnAirPlansFromTheStartRowNow()
{
    Input input;
    input.rows = {song(minutes(3)), song(minutes(3)), song(minutes(4)), hard(clock(12, 0))};
    input.startRow = 1;
    input.now = clock(11, 50);
    const Plan plan = BackTiming::plan(input);
    QCOMPARE(plan.rows.at(1).startMs, ms(11, 50));
    QCOMPARE(plan.rows.at(0).fate, Fate::Aired);
    QCOMPARE(plan.rows.at(0).startMs, ms(11, 47));
    QCOMPARE(plan.next()->overUnderMs, -minutes(3));
    // A start row past the end plans nothing forward: the timed row, still to come, is above.
    input.startRow = 9;
    QVERIFY(BackTiming::plan(input).next()->jumpsBack);
    QCOMPARE(BackTiming::plan(input).rows.at(3).fate, Fate::Aired);
    input.now = clock(12, 0, 1); // and once its time has passed it is taken as aired
    QVERIFY(BackTiming::plan(input).next() == nullptr);
}

void TestBackTiming::commandRowsCarryNoFixedTime()
{
    Track command;
    command.isCommand = true;
    command.command = QStringLiteral("STOP");
    command.timed.mode = TimedStart::Mode::Hard;
    command.timed.at = clock(12, 0);
    const Row row = rowFromTrack(command);
    QVERIFY(row.halts);
    QVERIFY(!row.timed.isTimed());
    QCOMPARE(row.lengthMs, 0);
    QVERIFY(!BackTiming::anyTimed({command}));

    Track other = command;
    other.command = QStringLiteral("mark");
    QVERIFY(!rowFromTrack(other).halts);
    other.command = QStringLiteral("pause");
    QVERIFY(rowFromTrack(other).halts);
}

void TestBackTiming::rowFromTrackCountsStreamsByTheirLimit()
{
    Track stream;
    stream.isStream = true;
    stream.filePath = QStringLiteral("http://radio.example/live");
    QVERIFY(rowFromTrack(stream).endless);
    stream.streamLimitMs = 90000;
    QVERIFY(!rowFromTrack(stream).endless);
    QCOMPARE(rowFromTrack(stream).lengthMs, 90000);

    Track file;
    file.durationMs = -5;
    QCOMPARE(rowFromTrack(file).lengthMs, 0);
    file.timed.mode = TimedStart::Mode::Soft;
    file.timed.at = clock(9, 0);
    QVERIFY(rowFromTrack(file).timed.isSoft());
    QVERIFY(BackTiming::anyTimed({Track(), file}));
}

void TestBackTiming::rowFromTrackWholeSecondsDropsFractions()
{
    Track file;
    file.durationMs = 61999;
    QCOMPARE(rowFromTrack(file).lengthMs, 61999);
    QCOMPARE(rowFromTrack(file, true).lengthMs, 61000);
}

void TestBackTiming::invalidClockPlansNothing()
{
    Input input = onAir({song(minutes(3)), hard(clock(12, 0))}, 0, 0, QDateTime());
    const Plan plan = BackTiming::plan(input);
    QCOMPARE(plan.rows.size(), 2);
    QCOMPARE(plan.rows.at(1).startMs, unknownTime);
    QVERIFY(plan.next() == nullptr);
    QCOMPARE(BackTiming::plan(Input()).rows.size(), 0);
}

void TestBackTiming::untimedRowsGiveNoEvents()
{
    Row halfTimed = song(minutes(1));
    halfTimed.timed.mode = TimedStart::Mode::Hard; // a mode without a time is no fixed time
    const Plan plan = BackTiming::plan(onAir({song(minutes(1)), halfTimed}, 0, 0, clock(12, 0)));
    QVERIFY(plan.events.isEmpty());
    QCOMPARE(plan.rows.at(1).startMs, ms(12, 1));
}

QTEST_GUILESS_MAIN(TestBackTiming)
#include "tst_backtiming.moc"
