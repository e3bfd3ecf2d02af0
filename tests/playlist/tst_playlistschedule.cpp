// Planned start times of playlist rows and the hour markers drawn from them.

#include "musiclibrary.h"
#include "playlistmodel.h"
#include "playlisttesting.h"

#include <QBrush>
#include <QSignalSpy>
#include <QSqlDatabase>
#include <QTemporaryDir>
#include <QTest>

using namespace playlisttesting;

namespace {

const QColor kMarkerColour(226, 240, 226);

bool hasMarkerBackground(const PlaylistModel& model, int row)
{
    return rowHasBackground(model, row, kMarkerColour);
}

QString startText(const PlaylistModel& model, int row)
{
    return model.data(model.index(row, 2)).toString();
}

} // namespace

class TestPlaylistSchedule : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void anchorIsTheTimeOfDayAtConstruction();
    void rowsStartOneAfterAnotherFromTheAnchor();
    void startTimesShowTwelveHourClockWithoutLeadingZero();
    void scheduleWrapsPastMidnightAndMarksBothHours();
    void rowOfUnderASecondAddsNothingToTheSchedule();
    void rowWithNegativeDurationAddsNothingToTheSchedule();
    void commandsAndStreamsCountWithTheirDurationOnly();
    void recomputationAnnouncesTheStartTimeColumnOnly();
    void movingTheAnchorReschedulesEveryRow();
    void everyStructuralChangeRecomputesTheSchedule();
    void clearingKeepsTheAnchor();
    void rowThatBypassedTheRecomputationShowsDashes();
    void invalidAnchorLeavesEveryRowUnscheduled();
    void markerSitsOnTheFirstRowOfANewHourOnly();
    void longRowMarksOnlyTheHourInWhichTheNextRowStarts();
    void firstRowIsAlwaysAMarker();
    void rowAfterAnUnscheduledRowIsNoMarker();
    void markersOffGiveNoMarkerAndNoMarkerBackground();
    void markerToolTipNamesTheHourWithTwoDigits();
    void markerBackgroundWinsOverCommandAndCurrentRow();
    void switchingMarkersAnnouncesTheWholeTableOnlyOnAChange();
    void switchingMarkersChangesNoStoredTime();

private:
    QTemporaryDir m_home;
};

void TestPlaylistSchedule::initTestCase()
{
    const QString problem = openTemporaryStore(m_home, QStringLiteral("tst_playlistschedule"));
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
}

void TestPlaylistSchedule::anchorIsTheTimeOfDayAtConstruction()
{
    const QTime before = QTime::currentTime();
    PlaylistModel model;
    const QTime after = QTime::currentTime();
    const QTime anchor = model.startAnchor();
    QVERIFY(anchor.isValid());
    if (before <= after) // not across midnight
        QVERIFY2(before <= anchor && anchor <= after, qPrintable(anchor.toString()));
    fill(model, 1);
    QCOMPARE(model.tracks().at(0).startTime, anchor);
}

void TestPlaylistSchedule::rowsStartOneAfterAnotherFromTheAnchor()
{
    PlaylistModel model;
    model.setStartAnchor(QTime(14, 0, 0, 250));
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("1"), 61500)); // 61 s counted
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("2"), 120999));
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("3"), 1000));
    QCOMPARE(model.tracks().at(0).startTime, QTime(14, 0, 0, 250));
    QCOMPARE(model.tracks().at(1).startTime, QTime(14, 1, 1, 250));
    QCOMPARE(model.tracks().at(2).startTime, QTime(14, 3, 1, 250));
}

void TestPlaylistSchedule::startTimesShowTwelveHourClockWithoutLeadingZero()
{
    PlaylistModel model;
    model.setStartAnchor(QTime(9, 5, 7));
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("1"), 4 * 3600 * 1000));
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("2"), 1000));
    QCOMPARE(startText(model, 0), QStringLiteral("9:05:07 AM"));
    QCOMPARE(startText(model, 1), QStringLiteral("1:05:07 PM"));
}

void TestPlaylistSchedule::scheduleWrapsPastMidnightAndMarksBothHours()
{
    PlaylistModel model;
    model.setStartAnchor(QTime(23, 59, 30));
    model.setHourMarkersVisible(true);
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("Late"), 45000));
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("Early"), 60000));
    QCOMPARE(model.tracks().at(1).startTime, QTime(0, 0, 15));
    QCOMPARE(startText(model, 0), QStringLiteral("11:59:30 PM"));
    QCOMPARE(startText(model, 1), QStringLiteral("12:00:15 AM"));
    QCOMPARE(model.hourMarkerAt(0), 23);
    QCOMPARE(model.hourMarkerAt(1), 0);
    QVERIFY(hasMarkerBackground(model, 0));
    QVERIFY(hasMarkerBackground(model, 1));
}

void TestPlaylistSchedule::rowOfUnderASecondAddsNothingToTheSchedule()
{
    PlaylistModel model;
    model.setStartAnchor(QTime(12, 0, 0));
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("Blip"), 999));
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("Next"), 1000));
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("Last"), 1000));
    QCOMPARE(model.tracks().at(1).startTime, QTime(12, 0, 0));
    QCOMPARE(model.tracks().at(2).startTime, QTime(12, 0, 1));
}

void TestPlaylistSchedule::rowWithNegativeDurationAddsNothingToTheSchedule()
{
    PlaylistModel model;
    model.setStartAnchor(QTime(12, 0, 0));
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("Odd"), -90000));
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("Next"), 1000));
    QCOMPARE(model.tracks().at(1).startTime, QTime(12, 0, 0));
}

void TestPlaylistSchedule::commandsAndStreamsCountWithTheirDurationOnly()
{
    PlaylistModel model;
    model.setStartAnchor(QTime(12, 0, 0));
    model.appendTrack(makeCommand(QStringLiteral("stop")));
    Track limited = trackFromStreamUrl(QStringLiteral("http://radio.example/"));
    limited.streamLimitMs = 600000; // not part of the schedule
    model.appendTrack(limited);
    Track measured = trackFromStreamUrl(QStringLiteral("http://radio.example/2"));
    measured.durationMs = 30000;
    model.appendTrack(measured);
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("After"), 1000));
    model.setCurrentRow(0);
    model.setCurrentRow(1); // played and current rows count too
    model.recalculateStartTimes();
    QCOMPARE(model.tracks().at(1).startTime, QTime(12, 0, 0));
    QCOMPARE(model.tracks().at(2).startTime, QTime(12, 0, 0));
    QCOMPARE(model.tracks().at(3).startTime, QTime(12, 0, 30));
}

void TestPlaylistSchedule::recomputationAnnouncesTheStartTimeColumnOnly()
{
    PlaylistModel model;
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.recalculateStartTimes();
    QCOMPARE(changed.count(), 0);
    fill(model, 4);
    changed.clear();
    model.recalculateStartTimes();
    QCOMPARE(changedRanges(changed), (QList<Range>{{0, 2, 3, 2}}));
}

void TestPlaylistSchedule::movingTheAnchorReschedulesEveryRow()
{
    PlaylistModel model;
    fill(model, 3);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.setStartAnchor(QTime(16, 20, 0));
    QCOMPARE(model.startAnchor(), QTime(16, 20, 0));
    QCOMPARE(startText(model, 0), QStringLiteral("4:20:00 PM"));
    QCOMPARE(startText(model, 2), QStringLiteral("4:22:00 PM"));
    QCOMPARE(changedRanges(changed), (QList<Range>{{0, 2, 2, 2}}));
}

void TestPlaylistSchedule::everyStructuralChangeRecomputesTheSchedule()
{
    PlaylistModel model;
    model.setStartAnchor(QTime(7, 0, 0));
    fill(model, 5); // 60 s each
    auto lastStart = [&model] { return model.tracks().constLast().startTime; };
    QCOMPARE(lastStart(), QTime(7, 4, 0));
    model.insertTrack(0, makeTrack(QStringLiteral("B"), QStringLiteral("Long"), 600000));
    QCOMPARE(lastStart(), QTime(7, 14, 0));
    model.moveTrack(0, 5); // the long row is now last: it starts after five minutes
    QCOMPARE(lastStart(), QTime(7, 5, 0));
    model.moveTracks({5}, 0);
    QCOMPARE(lastStart(), QTime(7, 14, 0));
    model.removeTrack(0);
    QCOMPARE(lastStart(), QTime(7, 4, 0));
    model.removeTracksBefore(2);
    QCOMPARE(model.tracks().at(0).startTime, QTime(7, 0, 0));
    QCOMPARE(lastStart(), QTime(7, 2, 0));
    model.removeTracksAfter(1);
    QCOMPARE(lastStart(), QTime(7, 1, 0));
}

void TestPlaylistSchedule::clearingKeepsTheAnchor()
{
    PlaylistModel model;
    model.setStartAnchor(QTime(18, 30, 0));
    fill(model, 3);
    model.clear();
    QCOMPARE(model.startAnchor(), QTime(18, 30, 0));
    fill(model, 1);
    QCOMPARE(model.tracks().at(0).startTime, QTime(18, 30, 0));
}

void TestPlaylistSchedule::rowThatBypassedTheRecomputationShowsDashes()
{
    PlaylistModel model;
    model.setStartAnchor(QTime(10, 0, 0));
    fill(model, 3);
    Track fresh = makeTrack(QStringLiteral("New"), QStringLiteral("Record"));
    QVERIFY(!fresh.startTime.isValid());
    model.replaceTrack(1, fresh);
    QCOMPARE(startText(model, 1), QStringLiteral("--"));
    QCOMPARE(startText(model, 2), QStringLiteral("10:02:00 AM"));
    model.recalculateStartTimes();
    QCOMPARE(startText(model, 1), QStringLiteral("10:01:00 AM"));
}

void TestPlaylistSchedule::invalidAnchorLeavesEveryRowUnscheduled()
{
    PlaylistModel model;
    model.setStartAnchor(QTime());
    model.setHourMarkersVisible(true);
    fill(model, 2);
    QCOMPARE(startText(model, 0), QStringLiteral("--"));
    QCOMPARE(startText(model, 1), QStringLiteral("--"));
    QCOMPARE(model.hourMarkerAt(0), -1);
    QVERIFY(!model.data(model.index(0, 2), Qt::ToolTipRole).isValid());
}

void TestPlaylistSchedule::markerSitsOnTheFirstRowOfANewHourOnly()
{
    PlaylistModel model;
    model.setStartAnchor(QTime(9, 58, 0));
    model.setHourMarkersVisible(true);
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("1"), 60000));
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("2"), 120000));
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("3"), 60000));
    QCOMPARE(model.tracks().at(1).startTime, QTime(9, 59, 0));
    QCOMPARE(model.tracks().at(2).startTime, QTime(10, 1, 0));
    QCOMPARE(model.hourMarkerAt(0), 9); // row 0 aside
    QCOMPARE(model.hourMarkerAt(1), -1);
    QCOMPARE(model.hourMarkerAt(2), 10);
    QVERIFY(!hasMarkerBackground(model, 1));
    QVERIFY(hasMarkerBackground(model, 2));
}

void TestPlaylistSchedule::longRowMarksOnlyTheHourInWhichTheNextRowStarts()
{
    PlaylistModel model;
    model.setStartAnchor(QTime(8, 30, 0));
    model.setHourMarkersVisible(true);
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("Concert"), 3 * 3600 * 1000));
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("After"), 60000));
    QCOMPARE(model.hourMarkerAt(1), 11);
    QCOMPARE(model.hourMarkerAt(2), -1);
    QCOMPARE(model.hourMarkerAt(-1), -1);
}

void TestPlaylistSchedule::firstRowIsAlwaysAMarker()
{
    PlaylistModel model;
    model.setStartAnchor(QTime(15, 45, 0));
    model.setHourMarkersVisible(true);
    fill(model, 2);
    QCOMPARE(model.hourMarkerAt(0), 15);
    QCOMPARE(model.hourMarkerAt(1), -1);
}

void TestPlaylistSchedule::rowAfterAnUnscheduledRowIsNoMarker()
{
    PlaylistModel model;
    model.setStartAnchor(QTime(10, 59, 0));
    model.setHourMarkersVisible(true);
    fill(model, 3); // 10:59, 11:00, 11:01
    QCOMPARE(model.hourMarkerAt(1), 11);
    model.replaceTrack(0, makeTrack(QStringLiteral("No"), QStringLiteral("Time")));
    QCOMPARE(model.hourMarkerAt(0), -1);
    QCOMPARE(model.hourMarkerAt(1), -1); // the previous row has no time to compare with
}

void TestPlaylistSchedule::markersOffGiveNoMarkerAndNoMarkerBackground()
{
    PlaylistModel model;
    model.setStartAnchor(QTime(23, 59, 30));
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("Late"), 45000));
    fill(model, 3, 3600 * 1000);
    for (int row = 0; row < model.rowCount(); ++row) {
        QCOMPARE(model.hourMarkerAt(row), -1);
        QVERIFY(!hasMarkerBackground(model, row));
        QVERIFY(!model.data(model.index(row, 2), Qt::ToolTipRole).isValid());
    }
}

void TestPlaylistSchedule::markerToolTipNamesTheHourWithTwoDigits()
{
    PlaylistModel model;
    model.setStartAnchor(QTime(7, 10, 0));
    model.setHourMarkersVisible(true);
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("Morning"), 8 * 3600 * 1000));
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("Afternoon"), 60000));
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("Same hour"), 60000));
    QCOMPARE(model.data(model.index(0, 2), Qt::ToolTipRole).toString(),
             QStringLiteral("Start of the 07:00 hour"));
    QCOMPARE(model.data(model.index(1, 2), Qt::ToolTipRole).toString(),
             QStringLiteral("Start of the 15:00 hour"));
    QVERIFY(!model.data(model.index(2, 2), Qt::ToolTipRole).isValid());
    // Only column 2 explains the marker.
    QVERIFY(!model.data(model.index(1, 3), Qt::ToolTipRole).isValid());
}

void TestPlaylistSchedule::markerBackgroundWinsOverCommandAndCurrentRow()
{
    PlaylistModel model;
    model.setStartAnchor(QTime(10, 59, 59));
    model.setHourMarkersVisible(true);
    model.appendTrack(makeCommand(QStringLiteral("stop")));
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("1"), 2000));
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("2"), 3600 * 1000));
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("3"), 1000));
    model.setCurrentRow(3);
    QVERIFY(hasMarkerBackground(model, 0)); // a command row at the start of the list
    QCOMPARE(model.hourMarkerAt(2), 11);
    QVERIFY(hasMarkerBackground(model, 2));
    QCOMPARE(model.hourMarkerAt(3), 12);
    QVERIFY(hasMarkerBackground(model, 3)); // current, and a marker
    model.setHourMarkersVisible(false);
    QCOMPARE(model.data(model.index(3, 1), Qt::BackgroundRole).value<QBrush>().color(),
             QColor(179, 215, 255));
    QCOMPARE(model.data(model.index(0, 1), Qt::BackgroundRole).value<QBrush>().color(),
             QColor(255, 235, 200));
}

void TestPlaylistSchedule::switchingMarkersAnnouncesTheWholeTableOnlyOnAChange()
{
    PlaylistModel empty;
    QSignalSpy emptyChanged(&empty, &QAbstractItemModel::dataChanged);
    empty.setHourMarkersVisible(true);
    QVERIFY(empty.hourMarkersVisible());
    QCOMPARE(emptyChanged.count(), 0);

    PlaylistModel model;
    fill(model, 3);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.setHourMarkersVisible(false);
    QCOMPARE(changed.count(), 0);
    model.setHourMarkersVisible(true);
    model.setHourMarkersVisible(true);
    QCOMPARE(changedRanges(changed), (QList<Range>{{0, 0, 2, 6}}));
}

void TestPlaylistSchedule::switchingMarkersChangesNoStoredTime()
{
    PlaylistModel model;
    model.setStartAnchor(QTime(5, 0, 0));
    fill(model, 3);
    Track stale = makeTrack(QStringLiteral("S"), QStringLiteral("Stale"));
    model.replaceTrack(2, stale);
    model.setHourMarkersVisible(true);
    model.setHourMarkersVisible(false);
    QVERIFY(!model.tracks().at(2).startTime.isValid());
    QCOMPARE(model.tracks().at(1).startTime, QTime(5, 1, 0));
}

QTEST_MAIN(TestPlaylistSchedule)
#include "tst_playlistschedule.moc"
