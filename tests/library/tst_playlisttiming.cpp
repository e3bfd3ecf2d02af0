// Fixed start times in M3U playlists: the "#ONDARO-TIME:" line, read and written back, and what a
// malformed or misplaced one gives.

#include "playlistfile.h"
#include "testtracks.h"
#include "track.h"

#include <QtTest>

namespace {

using ondarotest::fileTrack;

const QDateTime loadedAt(QDate(2026, 11, 23), QTime(11, 30, 0));

PlaylistFile::ReadResult parse(const QByteArray& m3u)
{
    return PlaylistFile::parse(m3u, QStringLiteral("/music"), loadedAt);
}

} // namespace

class TestPlaylistTiming : public QObject
{
    Q_OBJECT

private slots:
    void aTimeLineAppliesToTheEntryAfterIt()
    {
        const auto read = parse("#EXTM3U\n#EXTINF:10,A - One\n/music/1.mp3\n"
                                "#ONDARO-TIME:hard 2026-11-23T12:00:00\n#EXTINF:10,A - News\n/music/news.wav\n"
                                "#ONDARO-TIME:soft 2026-11-23T12:30:15\nhttp://radio.example/live\n");
        QVERIFY(read.ok);
        QVERIFY(read.timingProblems.isEmpty());
        QCOMPARE(read.tracks.size(), 3);
        QVERIFY(!read.tracks.at(0).timed.isTimed());
        QVERIFY(read.tracks.at(1).timed.isHard());
        QCOMPARE(read.tracks.at(1).timed.at, QDateTime(QDate(2026, 11, 23), QTime(12, 0, 0)));
        QVERIFY(!read.tracks.at(1).timed.timeOfDay);
        QVERIFY(read.tracks.at(2).timed.isSoft());
        QCOMPARE(read.tracks.at(2).timed.at, QDateTime(QDate(2026, 11, 23), QTime(12, 30, 15)));
        QVERIFY(read.tracks.at(2).isStream);
    }

    void aBareTimeIsTheNextSuchTimeAfterLoading()
    {
        const auto read = parse("#ONDARO-TIME:HARD 12:00:00\n/music/a.mp3\n"
                                "#ONDARO-TIME:soft 11:00:00\n/music/b.mp3\n"
                                "#ONDARO-TIME:soft 11:30:00\n/music/c.mp3\n");
        QVERIFY(read.ok);
        QCOMPARE(read.tracks.size(), 3);
        QCOMPARE(read.tracks.at(0).timed.at, QDateTime(QDate(2026, 11, 23), QTime(12, 0, 0)));
        QVERIFY(read.tracks.at(0).timed.isHard());
        QVERIFY(read.tracks.at(0).timed.timeOfDay);
        // 11:00 has passed at 11:30: tomorrow's.
        QCOMPARE(read.tracks.at(1).timed.at, QDateTime(QDate(2026, 11, 24), QTime(11, 0, 0)));
        // The very moment of loading still counts as to come.
        QCOMPARE(read.tracks.at(2).timed.at, loadedAt);
    }

    void writingGivesTheLineBackAsItWasRead()
    {
        const QByteArray m3u = "#EXTM3U\n"
                               "#ONDARO-TIME:hard 2026-11-23T12:00:00\n#EXTINF:10,A - News\n/music/news.wav\n"
                               "#ONDARO-COMMAND:stop\n"
                               "#ONDARO-TIME:soft 13:05:00\n#EXTINF:-1,Online stream - http://radio.example/live\n"
                               "http://radio.example/live\n"
                               "#EXTINF:20,B - Plain\n/music/plain.mp3\n";
        const auto read = parse(m3u);
        QVERIFY(read.ok);
        QCOMPARE(PlaylistFile::toM3u(read.tracks), m3u);
    }

    void untimedRowsWriteNoTimeLine()
    {
        const QByteArray m3u = PlaylistFile::toM3u(
            {fileTrack(QStringLiteral("A"), QStringLiteral("B"), QStringLiteral("/x.mp3"), 1000)});
        QVERIFY(!m3u.contains("#ONDARO-TIME"));
    }

    void commandRowsBetweenLeaveTheTimeForTheEntry()
    {
        const auto read = parse("#ONDARO-TIME:hard 2026-11-23T12:00:00\n#ONDARO-COMMAND:stop\n/music/news.wav\n");
        QVERIFY(read.ok);
        QCOMPARE(read.tracks.size(), 2);
        QVERIFY(read.tracks.at(0).isCommand);
        QVERIFY(!read.tracks.at(0).timed.isTimed());
        QVERIFY(read.tracks.at(1).timed.isHard());
    }

    void malformedLinesAreReportedAndTheEntryKeptUntimed_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("no mode") << QByteArray("#ONDARO-TIME:2026-11-23T12:00:00");
        QTest::newRow("unknown mode") << QByteArray("#ONDARO-TIME:firm 12:00:00");
        QTest::newRow("no time") << QByteArray("#ONDARO-TIME:hard");
        QTest::newRow("empty") << QByteArray("#ONDARO-TIME:");
        QTest::newRow("bad date") << QByteArray("#ONDARO-TIME:hard 2026-13-45T12:00:00");
        QTest::newRow("no seconds") << QByteArray("#ONDARO-TIME:hard 12:00");
        QTest::newRow("hour 25") << QByteArray("#ONDARO-TIME:soft 25:00:00");
        QTest::newRow("offset") << QByteArray("#ONDARO-TIME:hard 2026-11-23T12:00:00+01:00");
        QTest::newRow("three words") << QByteArray("#ONDARO-TIME:hard 12:00:00 now");
        QTest::newRow("odd bytes") << QByteArray("#ONDARO-TIME:hard \xff\xfe\x01");
    }

    void malformedLinesAreReportedAndTheEntryKeptUntimed()
    {
        QFETCH(QByteArray, line);
        const auto read = parse("#EXTM3U\n" + line + "\n#EXTINF:10,A - One\n/music/1.mp3\n");
        QVERIFY(read.ok);
        QCOMPARE(read.tracks.size(), 1);
        QVERIFY(!read.tracks.at(0).timed.isTimed());
        QCOMPARE(read.timingProblems.size(), 1);
        QVERIFY2(read.timingProblems.at(0).startsWith(QStringLiteral("Line 2: ")),
                 qPrintable(read.timingProblems.at(0)));
    }

    void aTimeLineWithoutItsEntryIsReported()
    {
        auto read = parse("/music/1.mp3\n#ONDARO-TIME:hard 12:00:00\n");
        QVERIFY(read.ok);
        QCOMPARE(read.tracks.size(), 1);
        QCOMPARE(read.timingProblems.size(), 1);
        QVERIFY(read.timingProblems.at(0).startsWith(QStringLiteral("Line 2: ")));

        // An entry that cannot play takes its time line with it.
        read = parse("#ONDARO-TIME:hard 12:00:00\nftp://files.example/a.mp3\n/music/1.mp3\n");
        QVERIFY(read.ok);
        QCOMPARE(read.tracks.size(), 1);
        QVERIFY(!read.tracks.at(0).timed.isTimed());
        QCOMPARE(read.timingProblems.size(), 1);
    }

    void aSecondTimeLineBeforeTheEntryHolds()
    {
        const auto read = parse("#ONDARO-TIME:hard 12:00:00\n#ONDARO-TIME:soft 12:05:00\n/music/1.mp3\n");
        QVERIFY(read.ok);
        QCOMPARE(read.tracks.size(), 1);
        QVERIFY(read.tracks.at(0).timed.isSoft());
        QCOMPARE(read.tracks.at(0).timed.at.time(), QTime(12, 5, 0));
        QCOMPARE(read.timingProblems.size(), 1);
        QVERIFY(read.timingProblems.at(0).startsWith(QStringLiteral("Line 1: ")));
    }

    void timingTextForEachForm()
    {
        TimedStart timed;
        QCOMPARE(PlaylistFile::timingText(timed), QString());
        timed.mode = TimedStart::Mode::Soft;
        timed.at = QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5));
        QCOMPARE(PlaylistFile::timingText(timed), QStringLiteral("soft 2026-01-02T03:04:05"));
        timed.timeOfDay = true;
        QCOMPARE(PlaylistFile::timingText(timed), QStringLiteral("soft 03:04:05"));
        timed.mode = TimedStart::Mode::Hard;
        timed.at = QDateTime();
        QCOMPARE(PlaylistFile::timingText(timed), QString()); // no time, nothing timed
    }
};

QTEST_GUILESS_MAIN(TestPlaylistTiming)
#include "tst_playlisttiming.moc"
