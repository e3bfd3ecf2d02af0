// The generator plans around timed slots, on the generated library of 300 real files the scheduler's
// tests share: a day of hard news at the top of each hour and soft jingles at half past lands every
// timed slot within the tolerance; timed rows carry their times into the M3U; the same seed gives
// the same bytes; a library without tracks short enough reports the miss and keeps the slot.

#include "formatreader.h"
#include "playlistfile.h"
#include "schedulebuilder.h"
#include "schedulegenerator.h"
#include "schedulertestsupport.h"

#include <QLockFile>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const QDateTime kMonday = QDateTime(QDate(2024, 5, 6), QTime(0, 0)); // a Monday, midnight

qint64 endOf(const ScheduledItem& item)
{
    return item.start.toMSecsSinceEpoch() + qMax<qint64>(item.track.durationMs, 0);
}

} // namespace

class TestTimedSchedule : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir home;
    // The rotation orders tracks by a hash of their full paths, so the audio lives at one fixed path:
    // every run plans from the same library rather than from a new order each time. The lock keeps two
    // runs on one machine out of each other's way.
    QString audio = QDir::temp().filePath(QStringLiteral("ondaro-tst-timedschedule"));
    QLockFile audioLock{audio + QStringLiteral(".lock")};
    schedtest::GeneratedLibrary generated;
    QString news;      // a fixed file in the library, 5 s long
    QString formatDir; // where format files are written

    StationFormat parse(const QByteArray& json)
    {
        const FormatReader::Result read = FormatReader::parse(json);
        if (!read.ok)
            qWarning() << read.error;
        return read.format;
    }

    // News at the top of each hour (hard), a jingle at half past (soft); songs between. The noon hour
    // runs the untimed Music clock, so 11:00 fills up to nothing and 12:00 fills up to 13:00's news.
    StationFormat dayFormat(int toleranceSeconds = 30)
    {
        const QByteArray json = QStringLiteral(R"({
            "rules": {"artistSeparationMinutes": 60, "titleSeparationMinutes": 240,
                      "fillToleranceSeconds": %1},
            "clocks": {
              "News": [{"file": "%2", "at": "00:00", "timing": "hard"}, {"category": "Jingle"},
                       {"category": "A"}, {"category": "B"}, {"category": "A"}, {"category": "Gold"},
                       {"category": "Jingle", "at": "30:00", "timing": "soft"},
                       {"category": "A"}, {"category": "B"}, {"category": "C"}, {"category": "A"},
                       {"category": "Gold"}],
              "Music": [{"category": "A"}, {"category": "B"}, {"category": "Jingle"}, {"category": "Gold"}]
            },
            "grid": [{"hours": [12], "clock": "Music"}, {"clock": "News"}]})")
                                    .arg(toleranceSeconds)
                                    .arg(news)
                                    .toUtf8();
        return parse(json);
    }

    Schedule build(const StationFormat& format, const QDateTime& from, int hours, quint64 seed)
    {
        return schedtest::buildSchedule(generated.name, format, from, hours, seed);
    }

    // The planned end of the rows before item `index`, measured from the rows themselves.
    static qint64 endBefore(const Schedule& schedule, int index)
    {
        return index > 0 ? endOf(schedule.items.at(index - 1))
                         : schedule.items.at(0).start.toMSecsSinceEpoch();
    }

private slots:
    void cleanupTestCase() { QDir(audio).removeRecursively(); }

    void initTestCase()
    {
        QVERIFY(home.isValid());
        audioLock.setStaleLockTime(0);
        QVERIFY(audioLock.lock());
        QDir(audio).removeRecursively();
        schedtest::useConfigFolder(home.path());
        QVERIFY(schedtest::freshStore());
        generated =
            schedtest::generateLibrary(audio, QStringLiteral("Music"));
        QCOMPARE(generated.tracks.size(), 300);
        news = audio + QStringLiteral("/News.wav");
        QVERIFY(QFile::copy(generated.tone, news));
        MusicLibrary library;
        library.setLibrary(generated.name);
        library.addTrack(schedtest::fileTrack(QStringLiteral("Ondaro FM"), QStringLiteral("News"), news,
                                              QStringLiteral("News"), 5000));
    }

    void aDayLandsEveryTimedSlotWithinTheTolerance()
    {
        const StationFormat format = dayFormat();
        const Schedule schedule = build(format, kMonday, 24, 1);
        QVERIFY(schedule.items.size() > 24 * 10);

        // Every timed row, found in the rows themselves: where it starts, and where the rows before it end.
        int hard = 0, soft = 0;
        for (int i = 0; i < schedule.items.size(); ++i) {
            const ScheduledItem& item = schedule.items.at(i);
            const TimedStart& timed = item.track.timed;
            if (!timed.isTimed())
                continue;
            QVERIFY(!timed.timeOfDay);
            QCOMPARE(item.clock, QStringLiteral("News"));
            const qint64 dueMs = timed.at.toMSecsSinceEpoch();
            if (timed.isHard()) {
                ++hard;
                QCOMPARE(item.track.filePath, news);
                QCOMPARE(timed.at.time(), QTime(timed.at.time().hour(), 0));
                QCOMPARE(item.start, timed.at); // a hard row starts on its time, whatever plays
            } else {
                ++soft;
                QCOMPARE(item.track.category, QStringLiteral("Jingle"));
                QCOMPARE(timed.at.time(), QTime(timed.at.time().hour(), 30));
                QVERIFY(item.start >= timed.at); // after the row before it, never before its time
            }
            if (i > 0) {
                const qint64 offset = endBefore(schedule, i) - dueMs;
                QVERIFY2(qAbs(offset) <= 30000, qPrintable(QStringLiteral("%1 at %2: %3 ms")
                                                               .arg(item.track.title, timed.at.toString(),
                                                                    QString::number(offset))));
                if (timed.isSoft())
                    QCOMPARE(item.start.toMSecsSinceEpoch(), qMax(dueMs, endBefore(schedule, i)));
            }
        }
        QCOMPARE(hard, 23); // every hour but noon, which runs the untimed clock
        QCOMPARE(soft, 23);

        // Each hour's planned over/under: the half past and the next top of the hour it fills up to.
        // 11:00 has nothing timed at noon, noon has nothing timed of its own but fills up to 13:00.
        QCOMPARE(schedule.timedHours.size(), 24);
        int landings = 0;
        for (const HourTiming& hour : schedule.timedHours) {
            const int h = hour.hourStart.time().hour();
            QCOMPARE(hour.landings.size(), h == 11 || h == 12 ? 1 : 2);
            QCOMPARE(hour.clock, h == 12 ? QStringLiteral("Music") : QStringLiteral("News"));
            QVERIFY(hour.withinTolerance);
            QVERIFY(qAbs(hour.overUnderMs) <= 30000);
            qint64 furthest = 0;
            for (const TimedLanding& landing : hour.landings) {
                QVERIFY(landing.withinTolerance);
                QVERIFY(landing.due > hour.hourStart && landing.due <= hour.hourStart.addSecs(3600));
                furthest = qMax(furthest, qAbs(landing.overUnderMs));
                ++landings;
            }
            QCOMPARE(qAbs(hour.overUnderMs), furthest);
        }
        QCOMPARE(landings, 46); // 23 soft ones and 23 tops of the hour, midnight next included
        // The landing at 13:00 is the noon hour's, measured from its rows.
        const HourTiming& noon = schedule.timedHours.at(12);
        QCOMPARE(noon.landings.first().due, kMonday.addSecs(13 * 3600));
        for (int i = 0; i < schedule.items.size(); ++i) {
            if (schedule.items.at(i).track.timed.at == noon.landings.first().due)
                QCOMPARE(endBefore(schedule, i) - noon.landings.first().due.toMSecsSinceEpoch(),
                         noon.landings.first().overUnderMs);
        }
        for (const ScheduleNote& note : schedule.notes)
            QVERIFY2(note.kind != ScheduleNote::Kind::TimedSlotMissed, qPrintable(note.text));

        // The report has a line for each of those hours.
        const QString report = schedule.reportText();
        QCOMPARE(report.count(QStringLiteral("clock \"News\": planned ")), 23);
        QVERIFY(report.contains(QStringLiteral("2024-05-06 12:00:00  clock \"Music\": planned ")));
        QVERIFY(report.contains(QStringLiteral("soft 00:30:00 ")));
        QVERIFY(!report.contains(QStringLiteral("beyond the tolerance")));
    }

    void timedRowsCarryTheirTimesIntoThePlaylist()
    {
        const Schedule schedule = build(dayFormat(), kMonday.addSecs(5 * 3600), 3, 2);
        const QByteArray m3u = PlaylistFile::toM3u(schedule.tracks());
        QVERIFY(m3u.contains("#ONDARO-TIME:hard 2024-05-06T05:00:00\n"));
        QVERIFY(m3u.contains("#ONDARO-TIME:soft 2024-05-06T05:30:00\n"));
        QVERIFY(m3u.contains("#ONDARO-TIME:hard 2024-05-06T07:00:00\n"));
        QCOMPARE(m3u.count("#ONDARO-TIME:"), 6);
        // Read back, the rows keep their times.
        const QString path = home.filePath(QStringLiteral("timed.m3u"));
        QString error;
        QVERIFY2(PlaylistFile::write(path, schedule.tracks(), &error), qPrintable(error));
        const PlaylistFile::ReadResult read = PlaylistFile::read(path);
        QVERIFY2(read.ok, qPrintable(read.error));
        QVERIFY(read.timingProblems.isEmpty());
        QCOMPARE(read.tracks.size(), schedule.items.size());
        int timed = 0;
        for (const Track& t : read.tracks) {
            if (t.timed.isTimed()) {
                QCOMPARE(t.timed.at.date(), QDate(2024, 5, 6));
                ++timed;
            }
        }
        QCOMPARE(timed, 6);
    }

    void theSameSeedGivesTheSameBytesWithTimedSlots()
    {
        const StationFormat format = dayFormat();
        const Schedule first = build(format, kMonday.addDays(1), 6, 11);
        const Schedule again = build(format, kMonday.addDays(1), 6, 11);
        const Schedule other = build(format, kMonday.addDays(1), 6, 12);
        const QByteArray m3u = PlaylistFile::toM3u(first.tracks());
        QVERIFY(m3u.count("#ONDARO-TIME:") >= 12);
        QCOMPARE(PlaylistFile::toM3u(again.tracks()), m3u);
        QCOMPARE(again.reportText(), first.reportText());
        QVERIFY(PlaylistFile::toM3u(other.tracks()) != m3u);
    }

    void aScheduleThatStartsWithinAnHourLeavesOutTheTimedSlotsBeforeIt()
    {
        const QDateTime from = kMonday.addDays(2).addSecs(6 * 3600 + 17 * 60); // 06:17
        const Schedule schedule = build(dayFormat(), from, 2, 3);
        QVERIFY(!schedule.items.isEmpty());
        QCOMPARE(schedule.items.first().start, from);
        QVERIFY(!schedule.items.first().track.timed.isTimed());
        QStringList times;
        for (const ScheduledItem& item : schedule.items) {
            if (item.track.timed.isTimed())
                times << item.track.timed.at.toString(QStringLiteral("HH:mm:ss"));
        }
        QCOMPARE(times, QStringList({QStringLiteral("06:30:00"), QStringLiteral("07:00:00"),
                                     QStringLiteral("07:30:00")}));
        // 06:17 to 06:30 is filled as well as the rest.
        QCOMPARE(schedule.timedHours.first().landings.first().due, from.addSecs(13 * 60));
        QVERIFY(schedule.timedHours.first().landings.first().withinTolerance);
    }

    void tooFewShortTracksMissTheTimeWhichIsReportedAndTheSlotKept()
    {
        // Only songs of 2:30 and longer between the news and a slot one minute later: 55 s to fill.
        // Stopping misses by less than any song would, so the minute stays short and says so.
        const QByteArray shortGap = QStringLiteral(R"({
            "clocks": {"Tight": [{"file": "%1", "at": "00:00", "timing": "hard"}, {"category": "A"},
                                 {"category": "Gold", "at": "01:00", "timing": "soft"}, {"category": "B"}]},
            "grid": [{"clock": "Tight"}]})")
                                        .arg(news)
                                        .toUtf8();
        const Schedule under = build(parse(shortGap), kMonday.addDays(3), 1, 4);
        QVERIFY(under.items.size() > 5);
        QCOMPARE(under.items.at(0).track.filePath, news);
        QCOMPARE(under.items.at(1).track.timed.mode, TimedStart::Mode::Soft); // kept, right after the news
        QCOMPARE(under.items.at(1).start, kMonday.addDays(3).addSecs(60));
        QCOMPARE(under.items.at(1).track.category, QStringLiteral("Gold"));
        const TimedLanding& landing = under.timedHours.first().landings.first();
        QCOMPARE(landing.overUnderMs, qint64(-55000));
        QVERIFY(!landing.withinTolerance);
        QVERIFY(!under.timedHours.first().withinTolerance);
        int missed = 0;
        for (const ScheduleNote& note : under.notes) {
            if (note.kind == ScheduleNote::Kind::TimedSlotMissed) {
                ++missed;
                QCOMPARE(note.at, landing.due);
                QVERIFY2(note.text.contains(
                             QStringLiteral("soft at 00:01:00: the rows before it are planned -0:55 under, "
                                            "beyond the tolerance of 30 seconds")),
                         qPrintable(note.text));
            }
        }
        QCOMPARE(missed, 1);
        QVERIFY(under.reportText().contains(QStringLiteral("-0:55 under")));

        // 1:40 to fill: stopping misses by 70 s beyond the tolerance, the shortest song (2:30) by 20 s.
        // It runs 50 s over; the soft slot starts when it ends.
        QByteArray overGap = shortGap;
        overGap.replace("\"01:00\"", "\"01:45\"");
        const Schedule over = build(parse(overGap), kMonday.addDays(3), 1, 4);
        QVERIFY(over.items.size() > 5);
        QCOMPARE(over.items.at(1).track.durationMs, qint64(150000));
        const ScheduledItem& late = over.items.at(2);
        QCOMPARE(late.track.timed.at, kMonday.addDays(3).addSecs(105));
        QCOMPARE(late.start, kMonday.addDays(3).addSecs(155));
        QCOMPARE(over.timedHours.first().landings.first().overUnderMs, qint64(50000));
        QVERIFY(over.reportText().contains(
            QStringLiteral("+0:50 over, beyond the tolerance of 30 seconds; it starts late")));

        // Hard, the slot keeps its time and the song before it is cut.
        overGap.replace("\"soft\"}, {\"category\": \"B\"", "\"hard\"}, {\"category\": \"B\"");
        const Schedule cut = build(parse(overGap), kMonday.addDays(3), 1, 4);
        QCOMPARE(cut.items.at(2).track.timed.mode, TimedStart::Mode::Hard);
        QCOMPARE(cut.items.at(2).start, kMonday.addDays(3).addSecs(105));
        QVERIFY(cut.reportText().contains(QStringLiteral("the row before it is cut")));
    }

    void aTimedFileThatDoesNotExistIsReportedAndTheHourGoesOn()
    {
        const QByteArray json = QStringLiteral(R"({
            "clocks": {"C": [{"file": "%1", "at": "00:00", "timing": "hard"}, {"category": "A"},
                             {"category": "B"}]},
            "grid": [{"clock": "C"}]})")
                                    .arg(audio + QStringLiteral("/gone.wav"))
                                    .toUtf8();
        const Schedule schedule = build(parse(json), kMonday.addDays(4), 2, 5);
        QVERIFY(schedule.items.size() > 10);
        QCOMPARE(schedule.items.first().start, kMonday.addDays(4));
        QVERIFY(!schedule.items.first().track.timed.isTimed());
        int missing = 0;
        for (const ScheduleNote& note : schedule.notes) {
            if (note.kind == ScheduleNote::Kind::FileMissing) {
                QVERIFY(note.text.contains(QStringLiteral("skipped, the file does not exist")));
                ++missing;
            }
        }
        QCOMPARE(missing, 2); // once an hour
        // The hours still fill up to the top of the next one.
        QCOMPARE(schedule.timedHours.size(), 2);
        QVERIFY(schedule.timedHours.first().withinTolerance);

        // A timed category slot with no track: skipped the same way, and the half hour still fills.
        const QByteArray polka = R"({
            "clocks": {"C": [{"category": "A"}, {"category": "Polka", "at": "30:00", "timing": "soft"},
                             {"category": "B"}]},
            "grid": [{"clock": "C"}]})";
        const Schedule noPolka = build(parse(polka), kMonday.addDays(4), 1, 6);
        QVERIFY(noPolka.items.size() > 8);
        int skipped = 0;
        for (const ScheduleNote& note : noPolka.notes) {
            if (note.kind == ScheduleNote::Kind::SlotSkipped) {
                QVERIFY(note.text.contains(QStringLiteral("category \"Polka\"): skipped")));
                ++skipped;
            }
        }
        QCOMPARE(skipped, 1);
        for (const ScheduledItem& item : noPolka.items)
            QVERIFY(!item.track.timed.isTimed());
        QCOMPARE(noPolka.timedHours.size(), 1);
        QCOMPARE(noPolka.timedHours.first().landings.size(), 1); // 00:30; 01:00 opens with no timed slot
        QVERIFY(noPolka.timedHours.first().withinTolerance);
    }
};

QTEST_GUILESS_MAIN(TestTimedSchedule)
#include "tst_timedschedule.moc"
