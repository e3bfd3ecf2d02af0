#include "studioschedule.h"

#include <QTest>

// The sums behind the on-air display: what the next rows add up to, when the list ends and the
// anchor that makes a row start now.
class TestStudioSchedule : public QObject
{
    Q_OBJECT

private:
    static Track row(qint64 ms, const QTime& start = QTime())
    {
        Track t;
        t.title = QStringLiteral("T");
        t.durationMs = ms;
        t.startTime = start;
        return t;
    }

private slots:
    void trackTextJoinsArtistAndTitleWithADash()
    {
        Track t;
        t.artist = QStringLiteral("Band");
        t.title = QStringLiteral("Song");
        QCOMPARE(StudioSchedule::trackText(t), QStringLiteral("Band – Song"));
        t.artist.clear();
        QCOMPARE(StudioSchedule::trackText(t), QStringLiteral("Song"));
        t.title.clear();
        t.filePath = QStringLiteral("/music/x.mp3");
        QCOMPARE(StudioSchedule::trackText(t), QStringLiteral("x.mp3"));
        Track stop;
        stop.isCommand = true;
        stop.command = QStringLiteral("stop");
        QCOMPARE(StudioSchedule::trackText(stop), QStringLiteral(">> STOP <<"));
    }

    void lengthAfterSumsTheRowsAfterTheCurrentOne()
    {
        const QList<Track> rows = {row(1000), row(2000), row(-50), row(4000)};
        QCOMPARE(StudioSchedule::lengthAfter(rows, -1), qint64(7000));
        QCOMPARE(StudioSchedule::lengthAfter(rows, 0), qint64(6000));
        QCOMPARE(StudioSchedule::lengthAfter(rows, 3), qint64(0));
        QCOMPARE(StudioSchedule::lengthAfter({}, -1), qint64(0));
    }

    void plannedEndIsTheLastStartPlusItsLength()
    {
        QCOMPARE(StudioSchedule::plannedEnd({row(1000, QTime(9, 0)), row(125500, QTime(9, 0, 1))}),
                 QTime(9, 2, 6));
        QVERIFY(!StudioSchedule::plannedEnd({}).isValid());
        QVERIFY(!StudioSchedule::plannedEnd({row(1000)}).isValid());
        QCOMPARE(StudioSchedule::plannedEnd({row(60000, QTime(23, 59, 30))}), QTime(0, 0, 30));
    }

    void anchorForPutsTheRowAtTheGivenTime()
    {
        const QList<Track> rows = {row(61500), row(1999), row(5000)};
        // Whole seconds per row, as the start-time column counts them: 61 + 1 = 62 s before row 2.
        QCOMPARE(StudioSchedule::anchorFor(rows, 2, QTime(10, 0, 0)), QTime(9, 58, 58));
        QCOMPARE(StudioSchedule::anchorFor(rows, 0, QTime(10, 0, 0)), QTime(10, 0, 0));
        QCOMPARE(StudioSchedule::anchorFor(rows, 1, QTime(0, 0, 30)), QTime(23, 59, 29));
    }

    void formatLengthShowsHoursOnlyWhenThereAreAny()
    {
        QCOMPARE(StudioSchedule::formatLength(0), QStringLiteral("0:00"));
        QCOMPARE(StudioSchedule::formatLength(65999), QStringLiteral("1:05"));
        QCOMPARE(StudioSchedule::formatLength(3599999), QStringLiteral("59:59"));
        QCOMPARE(StudioSchedule::formatLength(3723000), QStringLiteral("1:02:03"));
        QCOMPARE(StudioSchedule::formatLength(-1), QStringLiteral("--:--"));
    }
};

QTEST_MAIN(TestStudioSchedule)
#include "tst_studioschedule.moc"
