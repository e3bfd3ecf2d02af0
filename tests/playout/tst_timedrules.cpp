#include "timedrules.h"

#include <QTest>

// Which timed row is due, cut or next, and what is skipped or given up: plain values, a made-up clock.
class TestTimedRules : public QObject
{
    Q_OBJECT

private:
    const QDateTime noon{QDate(2026, 11, 23), QTime(12, 0, 0)};

    static TimedStart hard(const QDateTime& at) { return {TimedStart::Mode::Hard, at, false}; }
    static TimedStart soft(const QDateTime& at) { return {TimedStart::Mode::Soft, at, false}; }

    // Rows with identities 101, 102, ...; `timed` gives the timed ones by row.
    static QList<TimedRow> rows(int count, const QMap<int, TimedStart>& timed)
    {
        QList<TimedRow> list;
        for (int row = 0; row < count; ++row)
            list << TimedRow{101 + row, timed.value(row)};
        return list;
    }

    TimedSituation at(const QDateTime& now, int current, const QList<TimedRow>& list) const
    {
        TimedSituation s;
        s.rows = list;
        s.currentRow = current;
        s.now = now;
        s.lateLimitMs = 60000;
        return s;
    }

private slots:
    void nothingIsDueBeforeItsTimeAndTheTimerIsToldHowLongToWait()
    {
        const TimedDecision d = decideTimed(at(noon.addSecs(-30), 0, rows(4, {{3, hard(noon)}})));
        QCOMPARE(d.action, TimedDecision::Action::None);
        QCOMPARE(d.msUntilNextHard, 30000);
        QVERIFY(d.skipped.isEmpty());
        QVERIFY(d.accepted.isEmpty());
    }

    void aHardRowIsDueItsStartLeadEarlySoItIsHeardAtItsTime()
    {
        TimedSituation s = at(noon.addMSecs(-200), 0, rows(4, {{3, hard(noon)}}));
        s.leadMs = 150;
        QCOMPARE(decideTimed(s).action, TimedDecision::Action::None);
        QCOMPARE(decideTimed(s).msUntilNextHard, 50);
        s.now = noon.addMSecs(-150);
        const TimedDecision d = decideTimed(s);
        QCOMPARE(d.action, TimedDecision::Action::Cut);
        QCOMPARE(d.row, 3);
        QCOMPARE(d.msUntilNextHard, -1);
    }

    void aSoftRowIsNotDueEarlyWhateverTheLead()
    {
        TimedSituation s = at(noon.addMSecs(-100), 0, rows(4, {{3, soft(noon)}}));
        s.leadMs = 150;
        QCOMPARE(decideTimed(s).action, TimedDecision::Action::None);
        QCOMPARE(decideTimed(s).msUntilNextHard, -1); // a soft row needs no precise timer
        s.now = noon;
        QCOMPARE(decideTimed(s).action, TimedDecision::Action::Next);
    }

    void aDueHardRowCutsAndTheRowsBetweenAreSkipped()
    {
        const TimedDecision d = decideTimed(at(noon, 1, rows(6, {{4, hard(noon)}})));
        QCOMPARE(d.action, TimedDecision::Action::Cut);
        QCOMPARE(d.row, 4);
        QCOMPARE(d.skipped, (QList<int>{2, 3}));
        QCOMPARE(d.accepted, (QList<int>{4}));
        QVERIFY(d.stale.isEmpty());
    }

    void aDueSoftRowIsNextAndTheRowsBetweenAreSkipped()
    {
        const TimedDecision d = decideTimed(at(noon.addSecs(5), 0, rows(5, {{3, soft(noon)}})));
        QCOMPARE(d.action, TimedDecision::Action::Next);
        QCOMPARE(d.row, 3);
        QCOMPARE(d.skipped, (QList<int>{1, 2}));
    }

    void aStopRowBeforeAHardRowDoesNotHoldItBack()
    {
        // The list stands at the STOP in row 1.
        TimedSituation s = at(noon, 1, rows(4, {{3, hard(noon)}}));
        s.halted = true;
        const TimedDecision d = decideTimed(s);
        QCOMPARE(d.action, TimedDecision::Action::Cut);
        QCOMPARE(d.row, 3);
        QCOMPARE(d.skipped, (QList<int>{2}));
    }

    void aSoftRowAfterAStopWaitsForPlayWithoutGoingStale()
    {
        TimedSituation s = at(noon, 1, rows(4, {{3, soft(noon)}}));
        s.halted = true;
        TimedDecision d = decideTimed(s);
        QCOMPARE(d.action, TimedDecision::Action::None);
        QCOMPARE(d.accepted, (QList<int>{3})); // seen in time: it waits
        // Play an hour later: it starts, not given up as late.
        s.accepted.insert(104);
        s.halted = false;
        s.now = noon.addSecs(3600);
        d = decideTimed(s);
        QCOMPARE(d.action, TimedDecision::Action::Next);
        QCOMPARE(d.row, 3);
        QVERIFY(d.stale.isEmpty());
    }

    void twoRowsAtTheSameTimeTheFirstInListOrderFiresAndTheSecondFollows()
    {
        const QList<TimedRow> list = rows(6, {{2, hard(noon)}, {4, hard(noon)}});
        TimedDecision d = decideTimed(at(noon, 0, list));
        QCOMPARE(d.action, TimedDecision::Action::Cut);
        QCOMPARE(d.row, 2);
        QCOMPARE(d.accepted, (QList<int>{2, 4}));
        // Row 2 is on air for its time: row 4 waits for it and follows, with row 3 skipped.
        TimedSituation s = at(noon.addSecs(1), 2, list);
        s.currentTimedAt = noon;
        s.done = {103};
        s.accepted = {103, 105};
        d = decideTimed(s);
        QCOMPARE(d.action, TimedDecision::Action::Next);
        QCOMPARE(d.row, 4);
        QCOMPARE(d.skipped, (QList<int>{3}));
        // Still following when row 2 has run for five minutes: it is not late.
        s.now = noon.addSecs(300);
        s.accepted = {103};
        d = decideTimed(s);
        QCOMPARE(d.action, TimedDecision::Action::Next);
        QVERIFY(d.stale.isEmpty());
    }

    void aHardRowGoesBeforeADueSoftRowWhichIsSkipped()
    {
        const TimedDecision d = decideTimed(at(noon, 0, rows(6, {{2, soft(noon)}, {4, hard(noon)}})));
        QCOMPARE(d.action, TimedDecision::Action::Cut);
        QCOMPARE(d.row, 4);
        QCOMPARE(d.skipped, (QList<int>{1, 2, 3}));
    }

    void aTimedRowAboveTheCurrentRowFiresAndNothingIsSkipped()
    {
        const TimedDecision d = decideTimed(at(noon, 4, rows(6, {{1, hard(noon)}})));
        QCOMPARE(d.action, TimedDecision::Action::Cut);
        QCOMPARE(d.row, 1);
        QVERIFY(d.skipped.isEmpty());
    }

    void aRowPastWhenLoadedFiresAtOnceWithinTheLimit()
    {
        const TimedDecision d = decideTimed(at(noon.addSecs(59), 0, rows(3, {{2, hard(noon)}})));
        QCOMPARE(d.action, TimedDecision::Action::Cut);
        QCOMPARE(d.row, 2);
        QVERIFY(d.stale.isEmpty());
    }

    void aRowPastBeyondTheLimitWhenLoadedIsStaleAndNothingFires()
    {
        const TimedDecision d =
            decideTimed(at(noon.addSecs(61), 0, rows(4, {{1, soft(noon)}, {2, hard(noon)}})));
        QCOMPARE(d.action, TimedDecision::Action::None);
        QCOMPARE(d.stale, (QList<int>{1, 2}));
        QVERIFY(d.accepted.isEmpty());
        QVERIFY(d.skipped.isEmpty());
    }

    void aStaleRowDoesNotStopALaterDueOneFromFiring()
    {
        const TimedDecision d = decideTimed(
            at(noon.addSecs(30), 0, rows(5, {{1, hard(noon.addSecs(-3600))}, {3, hard(noon)}})));
        QCOMPARE(d.stale, (QList<int>{1}));
        QCOMPARE(d.action, TimedDecision::Action::Cut);
        QCOMPARE(d.row, 3);
        QCOMPARE(d.skipped, (QList<int>{1, 2}));
    }

    void anAcceptedSoftRowWaitingForTheMixPointNeverGoesStale()
    {
        TimedSituation s = at(noon.addSecs(400), 0, rows(3, {{2, soft(noon)}}));
        s.accepted = {103};
        const TimedDecision d = decideTimed(s);
        QCOMPARE(d.action, TimedDecision::Action::Next);
        QVERIFY(d.stale.isEmpty());
        QVERIFY(d.accepted.isEmpty()); // known already
    }

    void aRowThatIsDoneNeverFiresAgainWhenTheClockComesBack()
    {
        // The clock went back an hour after the row fired: its time comes round again.
        TimedSituation s = at(noon, 3, rows(4, {{1, hard(noon)}}));
        s.done = {102};
        const TimedDecision d = decideTimed(s);
        QCOMPARE(d.action, TimedDecision::Action::None);
        QCOMPARE(d.msUntilNextHard, -1);
    }

    void theCurrentRowIsNeverItsOwnEvent()
    {
        const TimedDecision d = decideTimed(at(noon, 2, rows(4, {{2, hard(noon)}})));
        QCOMPARE(d.action, TimedDecision::Action::None);
    }

    void aClockJumpForwardGivesUpTheRowsJumpedOverAndFiresNoneTwice()
    {
        // 11:59:50 with a row at 12:00 and one at 12:30: the clock jumps to 13:00.
        const QList<TimedRow> list = rows(5, {{1, hard(noon)}, {3, hard(noon.addSecs(1800))}});
        TimedDecision d = decideTimed(at(noon.addSecs(-10), 0, list));
        QCOMPARE(d.msUntilNextHard, 10000);
        d = decideTimed(at(noon.addSecs(3600), 0, list));
        QCOMPARE(d.stale, (QList<int>{1, 3}));
        QCOMPARE(d.action, TimedDecision::Action::None);
    }

    void theNextHardRowIsTheNearestInTimeNotInListOrder()
    {
        const TimedDecision d =
            decideTimed(at(noon, 0, rows(4, {{1, hard(noon.addSecs(600))}, {3, hard(noon.addSecs(60))}})));
        QCOMPARE(d.action, TimedDecision::Action::None);
        QCOMPARE(d.msUntilNextHard, 60000);
    }

    void clockJumpsAreTheWallClockMovingApartFromTheMonotonicClock()
    {
        QCOMPARE(clockJumpMs(0, 1000, 0, 1000, 2000), 0);
        QCOMPARE(clockJumpMs(0, 1500, 0, 1000, 2000), 0); // a late tick, not a jump
        QCOMPARE(clockJumpMs(0, 3601000, 0, 1000, 2000), 3600000);
        QCOMPARE(clockJumpMs(3600000, 1000, 0, 1000, 2000), -3600000);
    }

    void logLinesNameTheModeTheTimeAndTheRow()
    {
        QCOMPARE(TimedLog::fired(hard(noon), QStringLiteral("News - Top of the hour")),
                 QStringLiteral("Timed: hard 12:00:00 News - Top of the hour"));
        QCOMPARE(TimedLog::fired(soft(noon.addSecs(90)), QStringLiteral("A - B")),
                 QStringLiteral("Timed: soft 12:01:30 A - B"));
        QCOMPARE(TimedLog::skipped(hard(noon), QStringLiteral("A - Song")),
                 QStringLiteral("Timed: skipped for hard 12:00:00: A - Song"));
        QCOMPARE(TimedLog::stale(hard(noon), 300000, QStringLiteral("A - Ad")),
                 QStringLiteral("Timed: hard 12:00:00 missed by 0:05:00, skipped: A - Ad"));
        QCOMPARE(TimedLog::clockJumped(3600000), QStringLiteral("Timed: the clock jumped forward by 1:00:00"));
        QCOMPARE(TimedLog::clockJumped(-3600000), QStringLiteral("Timed: the clock jumped back by 1:00:00"));
    }
};

QTEST_MAIN(TestTimedRules)
#include "tst_timedrules.moc"
