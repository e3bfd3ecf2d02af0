// Start times of a playlist that runs to time: fixed start times in the start-time column, the rows
// after them, and the marks on rows that give way to a fixed time.

#include "playlistmodel.h"
#include "playlisttesting.h"
#include "settingkeys.h"

#include <QAbstractItemModelTester>
#include <QApplication>
#include <QSettings>
#include <QFont>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <ctime>

using namespace playlisttesting;

namespace {

const QDate kDay(2026, 11, 23);

QDateTime clock(int h, int m, int s = 0, const QDate& day = kDay)
{
    return QDateTime(day, QTime(h, m, s));
}

TimedStart timedAt(TimedStart::Mode mode, const QDateTime& at)
{
    TimedStart timed;
    timed.mode = mode;
    timed.at = at;
    return timed;
}

Track song(const QString& title, qint64 durationMs)
{
    return makeTrack(QStringLiteral("A"), title, durationMs);
}

Track timedSong(const QString& title, qint64 durationMs, TimedStart::Mode mode, const QDateTime& at)
{
    Track track = song(title, durationMs);
    track.timed = timedAt(mode, at);
    return track;
}

QString startText(const PlaylistModel& model, int row)
{
    return model.data(model.index(row, PlaylistModel::StartTimeColumn)).toString();
}

QString toolTip(const PlaylistModel& model, int row, int column)
{
    return model.data(model.index(row, column), Qt::ToolTipRole).toString();
}

QFont fontOf(const PlaylistModel& model, int row, int column)
{
    return model.data(model.index(row, column), Qt::FontRole).value<QFont>();
}

bool struckOut(const PlaylistModel& model, int row)
{
    const QVariant font = model.data(model.index(row, PlaylistModel::TitleColumn), Qt::FontRole);
    return font.isValid() && font.value<QFont>().strikeOut();
}

// 11:50 anchor; four rows of 4:00 (ending 12:06 if all played), a hard news at 12:00 of 5:00, one more.
void fillOverHardNews(PlaylistModel& model)
{
    model.setStartAnchorAt(clock(11, 50));
    for (int i = 0; i < 4; ++i)
        model.appendTrack(song(QStringLiteral("S%1").arg(i), 240000));
    model.appendTrack(timedSong(QStringLiteral("News"), 300000, TimedStart::Mode::Hard, clock(12, 0)));
    model.appendTrack(song(QStringLiteral("After"), 180000));
}

} // namespace

class TestPlaylistTimed : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();

    void untimedListHasNoPlanAndNoMarks();
    void timedRowShowsItsFixedTimeInBoldWithATip();
    void rowsAfterATimedRowRunFromItsFixedTime();
    void rowsBeforeTheFirstTimedRowKeepThePlainSchedule();
    void rowsGivingWayToAHardTimeAreStruckOutAndSayWhy();
    void rowCutByAHardTimeSaysSoButIsNotStruckOut();
    void softRowTellsWhenItReallyStarts();
    void staleTimedRowIsStruckOut();
    void lateLimitSettingDecidesWhichRowIsTooLate();
    void settingAFixedTimeReplansAndClearingItRemovesEveryMark();
    void commandRowsTakeNoFixedTime();
    void fixedTimeSurvivesAMove();
    void currentRowIsWhereThePlanStarts();
    void fixedTimePastMidnightShowsOnTheTwelveHourClock();
    void timeOfDayAnchorTakesTheNearestDay();
    void invalidAnchorLeavesUntimedRowsUnscheduled();
    void startTimesFollowTheClockChange();
    void timedModelPassesTheModelTester();

private:
    QTemporaryDir m_home;
};

void TestPlaylistTimed::initTestCase()
{
    const QString problem = openTemporaryStore(m_home, QStringLiteral("tst_playlisttimed"));
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
}

void TestPlaylistTimed::cleanup()
{
    // The late limit back to its default for the next case.
    QSettings().remove(Settings::timedLateLimitMs.key());
}

void TestPlaylistTimed::untimedListHasNoPlanAndNoMarks()
{
    PlaylistModel model;
    model.setStartAnchorAt(clock(11, 50));
    fill(model, 3);
    QVERIFY(model.timedPlan().rows.isEmpty());
    QCOMPARE(startText(model, 2), QStringLiteral("11:52:00 AM"));
    QVERIFY(!model.data(model.index(0, PlaylistModel::StartTimeColumn), Qt::FontRole).isValid());
    QVERIFY(!model.data(model.index(1, PlaylistModel::TitleColumn), PlaylistModel::SkippedForTimeRole).isValid());
    QVERIFY(!model.skippedForTime(1).isValid());
}

void TestPlaylistTimed::timedRowShowsItsFixedTimeInBoldWithATip()
{
    PlaylistModel model;
    model.setStartAnchorAt(clock(11, 0));
    model.appendTrack(song(QStringLiteral("Before"), 60000));
    model.appendTrack(timedSong(QStringLiteral("News"), 120000, TimedStart::Mode::Hard, clock(12, 0)));
    QCOMPARE(startText(model, 1), QStringLiteral("12:00:00 PM"));
    QVERIFY(fontOf(model, 1, PlaylistModel::StartTimeColumn).bold());
    QVERIFY(!model.data(model.index(1, PlaylistModel::TitleColumn), Qt::FontRole).isValid());
    QCOMPARE(toolTip(model, 1, PlaylistModel::StartTimeColumn),
             QStringLiteral("Fixed start, hard: 2026-11-23 12:00:00"));
    QCOMPARE(model.timedPlan().events.size(), 1);
    QCOMPARE(model.timedPlan().next()->overUnderMs, -59 * 60000);
}

void TestPlaylistTimed::rowsAfterATimedRowRunFromItsFixedTime()
{
    PlaylistModel model;
    model.setStartAnchorAt(clock(11, 0));
    model.appendTrack(song(QStringLiteral("Before"), 60000));
    model.appendTrack(timedSong(QStringLiteral("News"), 150500, TimedStart::Mode::Hard, clock(12, 0)));
    model.appendTrack(song(QStringLiteral("After"), 180000));
    model.appendTrack(song(QStringLiteral("Later"), 60000));
    // Whole seconds, as the column always counts: 2:30.5 adds 2:30.
    QCOMPARE(startText(model, 2), QStringLiteral("12:02:30 PM"));
    QCOMPARE(startText(model, 3), QStringLiteral("12:05:30 PM"));
}

void TestPlaylistTimed::rowsBeforeTheFirstTimedRowKeepThePlainSchedule()
{
    PlaylistModel plain;
    PlaylistModel timed;
    for (PlaylistModel* model : {&plain, &timed}) {
        model->setStartAnchorAt(clock(9, 0));
        model->appendTrack(song(QStringLiteral("One"), 61999));
        model->appendTrack(song(QStringLiteral("Two"), 999));
        model->appendTrack(song(QStringLiteral("Three"), 125400));
    }
    timed.appendTrack(timedSong(QStringLiteral("News"), 60000, TimedStart::Mode::Soft, clock(10, 0)));
    plain.appendTrack(song(QStringLiteral("News"), 60000));
    for (int row = 0; row < 4; ++row) {
        if (row < 3)
            QCOMPARE(startText(timed, row), startText(plain, row));
    }
    QCOMPARE(startText(plain, 3), QStringLiteral("9:03:06 AM"));
    QCOMPARE(startText(timed, 3), QStringLiteral("10:00:00 AM"));
}

void TestPlaylistTimed::rowsGivingWayToAHardTimeAreStruckOutAndSayWhy()
{
    PlaylistModel model;
    fillOverHardNews(model);
    QCOMPARE(startText(model, 4), QStringLiteral("12:00:00 PM"));
    QCOMPARE(startText(model, 5), QStringLiteral("12:05:00 PM"));
    // S3 would start at 12:02: it never does.
    QVERIFY(struckOut(model, 3));
    QCOMPARE(model.skippedForTime(3), clock(12, 0));
    QCOMPARE(model.data(model.index(3, PlaylistModel::DurationColumn), PlaylistModel::SkippedForTimeRole)
                 .toDateTime(),
             clock(12, 0));
    QCOMPARE(toolTip(model, 3, PlaylistModel::TitleColumn),
             QStringLiteral("Skipped to meet the hard time 12:00:00"));
    QCOMPARE(toolTip(model, 3, PlaylistModel::StartTimeColumn),
             QStringLiteral("Skipped to meet the hard time 12:00:00"));
    // The buttons keep their own tips.
    QCOMPARE(toolTip(model, 3, PlaylistModel::RemoveColumn), QStringLiteral("Remove this track"));
    for (int row : {0, 1, 4, 5}) {
        QVERIFY2(!struckOut(model, row), qPrintable(QString::number(row)));
        QVERIFY(!model.skippedForTime(row).isValid());
    }
    QCOMPARE(model.timedPlan().next()->overUnderMs, 6 * 60000);
}

void TestPlaylistTimed::rowCutByAHardTimeSaysSoButIsNotStruckOut()
{
    PlaylistModel model;
    fillOverHardNews(model);
    QVERIFY(!struckOut(model, 2));
    QVERIFY(!model.skippedForTime(2).isValid());
    QCOMPARE(model.timedPlan().rows.at(2).fate, BackTiming::Fate::Cut);
    QCOMPARE(toolTip(model, 2, PlaylistModel::TitleColumn), QStringLiteral("Cut short at 12:00:00 for the hard time"));
}

void TestPlaylistTimed::softRowTellsWhenItReallyStarts()
{
    PlaylistModel model;
    model.setStartAnchorAt(clock(11, 50));
    for (int i = 0; i < 4; ++i)
        model.appendTrack(song(QStringLiteral("S%1").arg(i), 240000));
    model.appendTrack(timedSong(QStringLiteral("Promo"), 60000, TimedStart::Mode::Soft, clock(12, 0)));
    model.appendTrack(song(QStringLiteral("After"), 60000));
    // At noon S2 (11:58-12:02) plays on; S3 gives way; the promo follows S2.
    QCOMPARE(startText(model, 4), QStringLiteral("12:00:00 PM"));
    QCOMPARE(toolTip(model, 4, PlaylistModel::StartTimeColumn),
             QStringLiteral("Fixed start, soft: 2026-11-23 12:00:00\nPlanned to start at 12:02:00"));
    QCOMPARE(startText(model, 5), QStringLiteral("12:03:00 PM"));
    QVERIFY(struckOut(model, 3));
    QCOMPARE(toolTip(model, 3, PlaylistModel::TitleColumn),
             QStringLiteral("Skipped to meet the soft time 12:00:00"));
    QVERIFY(!struckOut(model, 2));
}

void TestPlaylistTimed::staleTimedRowIsStruckOut()
{
    PlaylistModel model;
    model.setStartAnchorAt(clock(13, 0));
    model.appendTrack(song(QStringLiteral("Now"), 60000));
    model.appendTrack(timedSong(QStringLiteral("Old news"), 60000, TimedStart::Mode::Hard, clock(12, 0)));
    model.appendTrack(song(QStringLiteral("Next"), 60000));
    QVERIFY(struckOut(model, 1));
    QCOMPARE(model.skippedForTime(1), clock(12, 0));
    QCOMPARE(toolTip(model, 1, PlaylistModel::StartTimeColumn),
             QStringLiteral("Skipped: its fixed time 2026-11-23 12:00:00 passed too long ago"));
    QCOMPARE(startText(model, 2), QStringLiteral("1:01:00 PM")); // the stale row takes no time
    QVERIFY(model.timedPlan().next() == nullptr);
}

void TestPlaylistTimed::lateLimitSettingDecidesWhichRowIsTooLate()
{
    QCOMPARE(Settings::timedLateLimitMs.read(), 60000);
    PlaylistModel model;
    model.setStartAnchorAt(clock(13, 0));
    // 1:30 late and 0:30 late: with the default minute only the first is too late.
    model.appendTrack(timedSong(QStringLiteral("Ninety late"), 60000, TimedStart::Mode::Hard, clock(12, 58, 30)));
    model.appendTrack(timedSong(QStringLiteral("Thirty late"), 60000, TimedStart::Mode::Soft, clock(12, 59, 30)));
    model.appendTrack(song(QStringLiteral("Next"), 60000));
    QCOMPARE(model.skippedForTime(0), clock(12, 58, 30));
    QVERIFY(!model.skippedForTime(1).isValid());
    QVERIFY(model.timedPlan().eventOf(1) != nullptr);
    QVERIFY(model.timedPlan().eventOf(1)->late);

    // Two minutes: neither is too late; the hard row fires at once, late.
    Settings::timedLateLimitMs.write(120000);
    model.recalculateStartTimes();
    QVERIFY(!model.skippedForTime(0).isValid());
    QVERIFY(!struckOut(model, 0));
    QVERIFY(model.timedPlan().eventOf(0) != nullptr);
    QVERIFY(model.timedPlan().eventOf(0)->late);

    // Twenty seconds: both are too late, and struck out.
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    Settings::timedLateLimitMs.write(20000);
    model.recalculateStartTimes();
    QCOMPARE(model.skippedForTime(0), clock(12, 58, 30));
    QCOMPARE(model.skippedForTime(1), clock(12, 59, 30));
    QVERIFY(struckOut(model, 1));
    QCOMPARE(toolTip(model, 1, PlaylistModel::TitleColumn),
             QStringLiteral("Skipped: its fixed time 2026-11-23 12:59:30 passed too long ago"));
    // The rows whose mark changed were announced whole.
    bool wholeRowsAnnounced = false;
    for (const QList<QVariant>& arguments : std::as_const(changed)) {
        const QModelIndex first = arguments.at(0).toModelIndex();
        const QModelIndex last = arguments.at(1).toModelIndex();
        if (first.row() == 0 && last.row() == 1 && first.column() == 0)
            wholeRowsAnnounced = true;
    }
    QVERIFY(wholeRowsAnnounced);
}

void TestPlaylistTimed::settingAFixedTimeReplansAndClearingItRemovesEveryMark()
{
    PlaylistModel model;
    model.setStartAnchorAt(clock(11, 50));
    for (int i = 0; i < 6; ++i)
        model.appendTrack(song(QStringLiteral("S%1").arg(i), 240000));
    QCOMPARE(startText(model, 4), QStringLiteral("12:06:00 PM"));

    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.setRowTimed(4, timedAt(TimedStart::Mode::Hard, clock(12, 0)));
    QCOMPARE(model.tracks().at(4).timed.mode, TimedStart::Mode::Hard);
    QCOMPARE(startText(model, 4), QStringLiteral("12:00:00 PM"));
    QCOMPARE(startText(model, 5), QStringLiteral("12:04:00 PM"));
    QVERIFY(struckOut(model, 3));
    // The start times, then the rows whose mark changed (cut and skipped) in every column: not the
    // whole table.
    QVERIFY(changedRanges(changed).contains(Range{0, 2, 5, 2}));
    QVERIFY(changedRanges(changed).contains(Range{2, 0, 3, 6}));
    QVERIFY(!changedRanges(changed).contains(Range{0, 0, 5, 6}));

    changed.clear();
    model.setRowTimed(4, TimedStart());
    QVERIFY(!model.tracks().at(4).timed.isTimed());
    QVERIFY(model.timedPlan().rows.isEmpty());
    QVERIFY(!struckOut(model, 3));
    QCOMPARE(startText(model, 4), QStringLiteral("12:06:00 PM"));
    QVERIFY(changedRanges(changed).contains(Range{2, 0, 3, 6}));

    // A mode without a time is no fixed time.
    TimedStart noTime;
    noTime.mode = TimedStart::Mode::Soft;
    model.setRowTimed(2, noTime);
    QVERIFY(model.timedPlan().rows.isEmpty());
    QCOMPARE(model.tracks().at(2).timed.mode, TimedStart::Mode::None);

    changed.clear();
    model.setRowTimed(6, timedAt(TimedStart::Mode::Hard, clock(12, 0)));
    model.setRowTimed(-1, timedAt(TimedStart::Mode::Hard, clock(12, 0)));
    QCOMPARE(changed.count(), 0);
}

void TestPlaylistTimed::commandRowsTakeNoFixedTime()
{
    PlaylistModel model;
    model.setStartAnchorAt(clock(11, 50));
    model.appendTrack(song(QStringLiteral("S0"), 60000));
    model.appendTrack(makeCommand(QStringLiteral("stop")));
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.setRowTimed(1, timedAt(TimedStart::Mode::Hard, clock(12, 0)));
    QCOMPARE(changed.count(), 0);
    QVERIFY(!model.tracks().at(1).timed.isTimed());
    QVERIFY(model.timedPlan().rows.isEmpty());
}

void TestPlaylistTimed::fixedTimeSurvivesAMove()
{
    PlaylistModel model;
    fillOverHardNews(model);
    model.moveTrack(4, 1); // the news now comes second
    QCOMPARE(model.tracks().at(1).title, QStringLiteral("News"));
    QCOMPARE(startText(model, 1), QStringLiteral("12:00:00 PM"));
    // S0 ends at 11:54: the rest follow the news without a gap, and nothing gives way.
    QCOMPARE(startText(model, 2), QStringLiteral("12:05:00 PM"));
    for (int row = 0; row < model.rowCount(); ++row)
        QVERIFY(!struckOut(model, row));
    QCOMPARE(model.timedPlan().next()->overUnderMs, -6 * 60000);
}

void TestPlaylistTimed::currentRowIsWhereThePlanStarts()
{
    PlaylistModel model;
    model.setStartAnchorAt(clock(11, 50));
    model.appendTrack(song(QStringLiteral("S0"), 240000));
    model.appendTrack(timedSong(QStringLiteral("News"), 120000, TimedStart::Mode::Hard, clock(11, 52)));
    model.appendTrack(song(QStringLiteral("S2"), 240000));
    model.appendTrack(song(QStringLiteral("S3"), 240000));
    QCOMPARE(model.timedPlan().next()->row, 1);
    QCOMPARE(model.timedPlan().rows.at(0).fate, BackTiming::Fate::Cut);

    // On air at S2 (anchored so that it started at 12:20): the news above it is history.
    model.setCurrentRow(2);
    model.setStartAnchorAt(clock(12, 14));
    QVERIFY(model.timedPlan().next() == nullptr);
    QCOMPARE(model.timedPlan().rows.at(1).fate, BackTiming::Fate::Aired);
    QCOMPARE(startText(model, 2), QStringLiteral("12:20:00 PM"));
    QCOMPARE(startText(model, 3), QStringLiteral("12:24:00 PM"));
    QCOMPARE(startText(model, 1), QStringLiteral("11:52:00 AM")); // still its fixed time
    QVERIFY(!struckOut(model, 0));
}

void TestPlaylistTimed::fixedTimePastMidnightShowsOnTheTwelveHourClock()
{
    PlaylistModel model;
    model.setHourMarkersVisible(true);
    model.setStartAnchorAt(clock(23, 58));
    model.appendTrack(song(QStringLiteral("Late"), 240000));
    model.appendTrack(timedSong(QStringLiteral("Midnight"), 60000, TimedStart::Mode::Hard,
                                clock(0, 0, 0, kDay.addDays(1))));
    model.appendTrack(song(QStringLiteral("Night"), 60000));
    QCOMPARE(startText(model, 1), QStringLiteral("12:00:00 AM"));
    QCOMPARE(startText(model, 2), QStringLiteral("12:01:00 AM"));
    QCOMPARE(model.hourMarkerAt(1), 0);
    QCOMPARE(model.timedPlan().rows.at(0).fate, BackTiming::Fate::Cut);
    QCOMPARE(model.timedPlan().next()->overUnderMs, 2 * 60000);
}

void TestPlaylistTimed::timeOfDayAnchorTakesTheNearestDay()
{
    PlaylistModel model;
    const QDateTime now = QDateTime::currentDateTime();
    model.setStartAnchor(now.time());
    QVERIFY(qAbs(model.startAnchorAt().secsTo(now)) < 2);
    // Twenty hours ahead on the clock is four hours ago, the day before, or twenty hours later on
    // the same day: whichever lies nearer.
    const QTime later = now.time().addSecs(20 * 3600);
    model.setStartAnchor(later);
    QCOMPARE(model.startAnchor(), later);
    QVERIFY(qAbs(model.startAnchorAt().secsTo(now)) <= 12 * 3600 + 2);
    model.setStartAnchor(QTime());
    QVERIFY(!model.startAnchorAt().isValid());
}

void TestPlaylistTimed::invalidAnchorLeavesUntimedRowsUnscheduled()
{
    PlaylistModel model;
    model.setStartAnchor(QTime());
    model.appendTrack(song(QStringLiteral("S0"), 60000));
    model.appendTrack(timedSong(QStringLiteral("News"), 60000, TimedStart::Mode::Hard, clock(12, 0)));
    model.appendTrack(song(QStringLiteral("S2"), 60000));
    QCOMPARE(startText(model, 0), QStringLiteral("--"));
    QCOMPARE(startText(model, 1), QStringLiteral("12:00:00 PM"));
    QCOMPARE(startText(model, 2), QStringLiteral("--"));
}

void TestPlaylistTimed::startTimesFollowTheClockChange()
{
    // main() runs this program on Berlin's clock: on 25 October 2026 03:00 summer time becomes 02:00.
    QCOMPARE(QDateTime(QDate(2026, 10, 25), QTime(1, 30)).offsetFromUtc(), 7200);
    QCOMPARE(QDateTime(QDate(2026, 10, 25), QTime(3, 30)).offsetFromUtc(), 3600);
    PlaylistModel model;
    const QDateTime anchor(QDate(2026, 10, 25), QTime(0, 30));
    model.setStartAnchorAt(anchor);
    for (int i = 0; i < 6; ++i)
        model.appendTrack(song(QStringLiteral("S%1").arg(i), 3600000));
    model.appendTrack(timedSong(QStringLiteral("News"), 60000, TimedStart::Mode::Hard,
                                QDateTime(QDate(2026, 10, 25), QTime(9, 0))));
    // An hour a row in real time: 0:30, 1:30, 2:30 summer time, 2:30 winter time, 3:30, 4:30.
    const QStringList expected{QStringLiteral("12:30:00 AM"), QStringLiteral("1:30:00 AM"),
                               QStringLiteral("2:30:00 AM"),  QStringLiteral("2:30:00 AM"),
                               QStringLiteral("3:30:00 AM"),  QStringLiteral("4:30:00 AM")};
    for (int row = 0; row < 6; ++row) {
        QCOMPARE(startText(model, row), expected.at(row));
        QCOMPARE(model.tracks().at(row).startTime,
                 anchor.addMSecs(qint64(row) * 3600000).time()); // QDateTime's own reading
    }
    // Counted back over the change from a current row after it.
    model.setCurrentRow(5);
    for (int row = 0; row < 6; ++row)
        QCOMPARE(startText(model, row), expected.at(row));
}

void TestPlaylistTimed::timedModelPassesTheModelTester()
{
    PlaylistModel model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    fillOverHardNews(model);
    model.setCurrentRow(1);
    model.moveTrack(5, 0);
    model.removeTrack(2);
    model.setRowTimed(0, timedAt(TimedStart::Mode::Soft, clock(12, 30)));
    model.shuffle();
    model.clear();
    QCOMPARE(model.rowCount(), 0);
}

int main(int argc, char** argv)
{
    // A clock with summer time, whatever the machine's: the schedule must follow its changes.
    qputenv("TZ", "Europe/Berlin");
    tzset();
    QApplication app(argc, argv);
    TestPlaylistTimed test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "tst_playlisttimed.moc"
