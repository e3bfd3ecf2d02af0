// The generator on a generated library of 300 real files in five categories, read from a real
// database in a temporary folder: clocks in order, full hours, separations, hour and disabled limits,
// reproducible draws, fixed files, zero-length clocks, the as-run history and a missing library.

#include "asrunlog.h"
#include "formatreader.h"
#include "playhistory.h"
#include "playlistfile.h"
#include "rotationpool.h"
#include "schedulebuilder.h"
#include "schedulegenerator.h"
#include "schedulertestsupport.h"
#include "trackparams.h"

#include <QTemporaryDir>
#include <QtTest>

namespace {

const QDateTime kMonday6 = QDateTime(QDate(2024, 5, 6), QTime(6, 0)); // a Monday

QJsonArray categories(const QStringList& names)
{
    QJsonArray slots_;
    for (const QString& name : names)
        slots_.append(QJsonObject{{QStringLiteral("category"), name}});
    return slots_;
}

qint64 endOf(const ScheduledItem& item)
{
    return item.start.toMSecsSinceEpoch() + item.track.durationMs;
}

} // namespace

class TestScheduleGenerator : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir home;
    schedtest::GeneratedLibrary generated;
    QString stationId;      // a fixed file the library holds with a stored length
    QString untaggedJingle; // a fixed file outside the library: its length comes from the file
    QStringList limitedToEvening, disabled, outOfDateRange;
    QString goneFile; // listed and best rated in category C, but its file was deleted

    // Standard: the clock of the issue. Talk runs at 07:00 on Mondays only.
    StationFormat standardFormat(int artistMinutes = 60, int titleMinutes = 240)
    {
        QJsonArray standard = categories(
            {QStringLiteral("Jingle"), QStringLiteral("A"), QStringLiteral("B"), QStringLiteral("A")});
        standard.append(QJsonObject{{QStringLiteral("file"), stationId}});
        standard.append(QJsonObject{{QStringLiteral("category"), QStringLiteral("Gold")}});
        QJsonArray talk = categories({QStringLiteral("c"), QStringLiteral("jingle")});
        talk.append(QJsonObject{{QStringLiteral("file"), untaggedJingle}});
        const QJsonObject format{
            {QStringLiteral("rules"), QJsonObject{{QStringLiteral("artistSeparationMinutes"), artistMinutes},
                                                  {QStringLiteral("titleSeparationMinutes"), titleMinutes}}},
            {QStringLiteral("clocks"),
             QJsonObject{{QStringLiteral("Standard"), standard}, {QStringLiteral("Talk"), talk}}},
            {QStringLiteral("grid"),
             QJsonArray{QJsonObject{{QStringLiteral("days"), QJsonArray{1}},
                                    {QStringLiteral("hours"), QJsonArray{7}},
                                    {QStringLiteral("clock"), QStringLiteral("Talk")}},
                        QJsonObject{{QStringLiteral("clock"), QStringLiteral("Standard")}}}}};
        const FormatReader::Result read = FormatReader::parse(schedtest::json(format));
        if (!read.ok)
            qWarning() << read.error;
        return read.format;
    }

    Schedule build(const StationFormat& format, const QDateTime& from, int hours, quint64 seed)
    {
        return schedtest::buildSchedule(generated.name, format, from, hours, seed);
    }

    static QString categoryOf(const ScheduledItem& item) { return item.track.category; }

private slots:
    void initTestCase()
    {
        QVERIFY(home.isValid());
        schedtest::useConfigFolder(home.path());
        QVERIFY(schedtest::freshStore());
        QVERIFY(schedtest::databaseFile().startsWith(home.path()));
        generated =
            schedtest::generateLibrary(home.filePath(QStringLiteral("audio")), QStringLiteral("Music"));
        QCOMPARE(generated.tracks.size(), 300);
        for (const Track& t : generated.tracks)
            QVERIFY2(QFile::exists(t.filePath), qPrintable(t.filePath));

        // The station id is in the library with a stored length; the other jingle is not.
        stationId = home.filePath(QStringLiteral("audio/Station ID.wav"));
        QVERIFY(QFile::copy(generated.tone, stationId));
        MusicLibrary library;
        library.setLibrary(generated.name);
        library.addTrack(schedtest::fileTrack(QStringLiteral("Ondaro FM"), QStringLiteral("Station ID"),
                                              stationId, QStringLiteral("ID"), 5000));
        untaggedJingle = home.filePath(QStringLiteral("audio/Outside.wav"));
        QVERIFY(QFile::copy(generated.tone, untaggedJingle));

        // The best-rated songs carry limits, so that they would be picked first wherever allowed.
        for (const Track& t : generated.tracks) {
            TrackParams p;
            p.rating = 10;
            if (t.category == QLatin1String("A") && limitedToEvening.size() < 6) {
                for (int day = 0; day < 7; ++day) {
                    for (int hour = 20; hour < 24; ++hour)
                        p.setDaypartHour(day, hour, true);
                }
                limitedToEvening << t.filePath;
            } else if (t.category == QLatin1String("B") && disabled.size() < 6) {
                p.disabled = true;
                disabled << t.filePath;
            } else if (t.category == QLatin1String("Gold") && outOfDateRange.size() < 6) {
                p.startDate = QDate(2023, 1, 1);
                p.endDate = QDate(2023, 12, 31);
                outOfDateRange << t.filePath;
            } else {
                continue;
            }
            TrackParams::save(t.filePath, p);
        }
        // The gone file has an artist of its own: the generated songs share their artists, and one of
        // them scheduled late in the hour before would hold a shared artist back past the end of the
        // 07:00 hour, so that the gone file would never come up (how often depends on the draw, which
        // follows the files' full paths and so the temporary folder's name).
        goneFile = home.filePath(QStringLiteral("audio/Gone Artist - C Song.wav"));
        QVERIFY(QFile::copy(generated.tone, goneFile));
        library.addTrack(schedtest::fileTrack(QStringLiteral("Gone Artist"), QStringLiteral("C Song"),
                                              goneFile, QStringLiteral("C"), 200000));
        TrackParams gone;
        gone.rating = 10;
        TrackParams::save(goneFile, gone);
        QVERIFY(QFile::remove(goneFile));
    }

    void threeHoursFollowTheirClocksInOrder()
    {
        const StationFormat format = standardFormat();
        const Schedule schedule = build(format, kMonday6, 3, 1);
        QVERIFY(schedule.items.size() > 30);
        QVERIFY(schedule.hasAudio());
        int expectedSlot = 0;
        int hourOfLast = -1;
        for (const ScheduledItem& item : schedule.items) {
            const QDateTime hourStart(item.start.date(), QTime(item.start.time().hour(), 0));
            if (item.start.time().hour() != hourOfLast) {
                expectedSlot = 0; // every hour starts its clock from the first slot
                hourOfLast = item.start.time().hour();
            }
            QCOMPARE(item.clock, format.clockFor(hourStart));
            QCOMPARE(item.clock, hourOfLast == 7 ? QStringLiteral("Talk") : QStringLiteral("Standard"));
            const QList<ClockSlot> clockSlots = format.clocks.value(item.clock);
            QCOMPARE(item.slot, expectedSlot);
            const ClockSlot& slot = clockSlots.at(item.slot);
            if (slot.kind == ClockSlot::Kind::Category)
                QCOMPARE(categoryOf(item).toLower(), slot.value.toLower());
            else
                QCOMPARE(item.track.filePath, slot.value);
            expectedSlot = (expectedSlot + 1) % clockSlots.size();
        }
        QCOMPARE(hourOfLast, 8);
        QCOMPARE(schedule.notes.size(), 1); // only the gone C file, below
        QCOMPARE(schedule.notes.first().kind, ScheduleNote::Kind::FileMissing);
    }

    void everyHourIsFullAndTheNextStartsWhereTheLastItemEnds()
    {
        const Schedule schedule = build(standardFormat(), kMonday6.addSecs(17 * 60), 3, 2);
        QVERIFY(!schedule.items.isEmpty());
        QCOMPARE(schedule.items.first().start, kMonday6.addSecs(17 * 60));
        for (int i = 1; i < schedule.items.size(); ++i)
            QCOMPARE(schedule.items.at(i).start.toMSecsSinceEpoch(), endOf(schedule.items.at(i - 1)));
        // The last item starting in each hour runs up to or past the next full hour.
        for (int hour = 6; hour <= 8; ++hour) {
            const QDateTime next(kMonday6.date(), QTime(hour, 0).addSecs(3600));
            const ScheduledItem* last = nullptr;
            for (const ScheduledItem& item : schedule.items) {
                if (item.start.time().hour() == hour)
                    last = &item;
            }
            QVERIFY(last);
            QVERIFY2(endOf(*last) >= next.toMSecsSinceEpoch(), qPrintable(last->start.toString()));
            QVERIFY(last->start < next);
        }
        QVERIFY(schedule.items.last().start < kMonday6.addSecs(3 * 3600));
        QVERIFY(endOf(schedule.items.last()) >= kMonday6.addSecs(3 * 3600).toMSecsSinceEpoch());
    }

    void noArtistOrSongRepeatsWithinItsSeparation()
    {
        const Schedule schedule = build(standardFormat(60, 240), kMonday6, 3, 3);
        // The library is large enough that no rule had to give way (the one note is the gone C file).
        for (const ScheduleNote& note : schedule.notes)
            QCOMPARE(note.kind, ScheduleNote::Kind::FileMissing);
        // Fixed files (the station id, the Talk jingle) repeat by design; the rules are for category slots.
        QList<ScheduledItem> chosen;
        for (const ScheduledItem& item : schedule.items) {
            if (item.track.filePath != stationId && item.track.filePath != untaggedJingle)
                chosen << item;
        }
        QVERIFY(chosen.size() > 30);
        int sameArtistPairs = 0;
        for (int i = 0; i < chosen.size(); ++i) {
            const Track& a = chosen.at(i).track;
            for (int j = i + 1; j < chosen.size(); ++j) {
                const Track& b = chosen.at(j).track;
                const qint64 apartMs = chosen.at(i).start.msecsTo(chosen.at(j).start);
                if (!a.artist.isEmpty() && a.artist.compare(b.artist, Qt::CaseInsensitive) == 0) {
                    QVERIFY2(apartMs >= 60 * 60000, qPrintable(a.artist));
                    ++sameArtistPairs;
                }
                if (a.artist.compare(b.artist, Qt::CaseInsensitive) == 0 &&
                    a.title.compare(b.title, Qt::CaseInsensitive) == 0)
                    QVERIFY2(apartMs >= 240 * 60000, qPrintable(a.title));
            }
        }
        QVERIFY(sameArtistPairs > 0); // three hours from 48 artists: some do return, after the hour
    }

    void tracksLimitedToOtherHoursDisabledOrOutOfDateNeverAppear()
    {
        for (quint64 seed : {1, 2, 3}) {
            const Schedule schedule = build(standardFormat(), kMonday6, 3, seed);
            for (const ScheduledItem& item : schedule.items) {
                QVERIFY2(!limitedToEvening.contains(item.track.filePath), qPrintable(item.track.title));
                QVERIFY2(!disabled.contains(item.track.filePath), qPrintable(item.track.title));
                QVERIFY2(!outOfDateRange.contains(item.track.filePath), qPrintable(item.track.title));
                QVERIFY(item.track.filePath != goneFile);
            }
            // The gone file would have been the first C song at 07:00; the report says why it is not.
            int goneNotes = 0;
            for (const ScheduleNote& note : schedule.notes) {
                QCOMPARE(note.kind, ScheduleNote::Kind::FileMissing);
                QVERIFY(note.text.contains(goneFile));
                ++goneNotes;
            }
            QCOMPARE(goneNotes, 1);
        }
        // In their own hours the evening songs, rated highest, are the first choice of category A.
        const Schedule evening = build(standardFormat(), kMonday6.addSecs(14 * 3600), 1, 1);
        int eveningSongs = 0;
        for (const ScheduledItem& item : evening.items) {
            QVERIFY(!disabled.contains(item.track.filePath));
            if (limitedToEvening.contains(item.track.filePath))
                ++eveningSongs;
        }
        QVERIFY(eveningSongs >= 3);
    }

    void theSameSeedGivesTheSamePlaylistAndAnotherSeedAnotherOne()
    {
        const StationFormat format = standardFormat();
        const QByteArray first = PlaylistFile::toM3u(build(format, kMonday6, 3, 11).tracks());
        const QByteArray again = PlaylistFile::toM3u(build(format, kMonday6, 3, 11).tracks());
        const QByteArray other = PlaylistFile::toM3u(build(format, kMonday6, 3, 12).tracks());
        QVERIFY(first.count("#EXTINF") > 30);
        QCOMPARE(again, first);
        QVERIFY(other != first);
    }

    void fixedFilesTakeTheLibrarysLengthOrElseTheirOwn()
    {
        const Schedule schedule = build(standardFormat(), kMonday6, 2, 4);
        bool sawStationId = false, sawOutside = false;
        for (const ScheduledItem& item : schedule.items) {
            if (item.track.filePath == stationId) {
                QCOMPARE(item.track.durationMs, qint64(5000));
                QCOMPARE(item.track.title, QStringLiteral("Station ID"));
                sawStationId = true;
            } else if (item.track.filePath == untaggedJingle) {
                QVERIFY2(item.track.durationMs > 150 && item.track.durationMs < 250,
                         qPrintable(QString::number(item.track.durationMs))); // a 0.2 s tone
                sawOutside = true;
            }
        }
        QVERIFY(sawStationId);
        QVERIFY(sawOutside);
    }

    void aMissingFixedFileOrEmptyCategoryIsSkippedAndReported()
    {
        StationFormat format = standardFormat();
        format.clocks[QStringLiteral("Standard")] = {
            {ClockSlot::Kind::Category, QStringLiteral("A")},
            {ClockSlot::Kind::File, home.filePath(QStringLiteral("gone.wav"))},
            {ClockSlot::Kind::Category, QStringLiteral("Polka")}};
        const Schedule schedule = build(format, kMonday6.addDays(1), 1, 5);
        QVERIFY(!schedule.items.isEmpty());
        int missing = 0, skipped = 0;
        for (const ScheduleNote& note : schedule.notes) {
            QVERIFY(note.at >= kMonday6.addDays(1));
            if (note.kind == ScheduleNote::Kind::FileMissing) {
                QVERIFY(note.text.contains(QStringLiteral("the file does not exist")));
                ++missing;
            } else if (note.kind == ScheduleNote::Kind::SlotSkipped) {
                QVERIFY(note.text.contains(QStringLiteral("category \"Polka\"")));
                ++skipped;
            }
        }
        // Once per pass, and each pass plays one A song; the song that crosses the hour ends the last pass.
        QCOMPARE(missing, schedule.items.size() - 1);
        QCOMPARE(skipped, schedule.items.size() - 1);
        QVERIFY(
            schedule.reportText().contains(QStringLiteral("skipped, no track of the category is allowed")));
        QVERIFY(schedule.reportText().startsWith(kMonday6.addDays(1).toString(QStringLiteral("yyyy-MM-dd"))));
    }

    void aClockThatAddsNoTimeGivesOnePassAnHour()
    {
        StationFormat format = standardFormat();
        format.clocks[QStringLiteral("Standard")] = {{ClockSlot::Kind::Command, QStringLiteral("STOP")},
                                                     {ClockSlot::Kind::Category, QStringLiteral("Polka")},
                                                     {ClockSlot::Kind::Command, QStringLiteral("pause")}};
        const Schedule schedule = build(format, kMonday6.addDays(2), 3, 6);
        QCOMPARE(schedule.items.size(), 6);
        for (int hour = 0; hour < 3; ++hour) {
            const ScheduledItem& stop = schedule.items.at(2 * hour);
            QVERIFY(stop.track.isCommand);
            QCOMPARE(stop.track.command, QStringLiteral("stop"));
            QCOMPARE(stop.start, kMonday6.addDays(2).addSecs(hour * 3600));
            QCOMPARE(schedule.items.at(2 * hour + 1).track.command, QStringLiteral("pause"));
        }
        int noTime = 0;
        for (const ScheduleNote& note : schedule.notes)
            noTime += note.kind == ScheduleNote::Kind::NoTimeAdded ? 1 : 0;
        QCOMPARE(noTime, 3);
        QVERIFY(!schedule.hasAudio());
    }

    void theAsRunHistoryHoldsAnArtistBackAtTheStart()
    {
        // Every Gold artist played in the last half hour (the as-run log) is held back at 06:00.
        const QDateTime from = kMonday6.addDays(3);
        QSet<QString> goldArtists;
        for (const Track& t : generated.tracks) {
            if (t.category == QLatin1String("Gold") && !outOfDateRange.contains(t.filePath))
                goldArtists << t.artist;
        }
        QStringList recent = goldArtists.values();
        recent.sort();
        recent = recent.mid(0, recent.size() - 2); // leave two artists free
        for (int i = 0; i < recent.size(); ++i) {
            AsRunEntry entry;
            entry.startedAt = from.addSecs(-30 * 60 + i);
            entry.filePath = QStringLiteral("/played/%1.mp3").arg(i);
            entry.artist = recent.at(i);
            entry.title = QStringLiteral("Something");
            QVERIFY(AsRunLog::recordStart(entry) > 0);
        }
        StationFormat format = standardFormat(60, 0);
        format.clocks[QStringLiteral("Standard")] = {{ClockSlot::Kind::Category, QStringLiteral("Gold")}};
        const Schedule schedule = build(format, from, 1, 7);
        QVERIFY(schedule.items.size() > 3);
        // The two free artists go first; then every Gold artist is held back (by the log or by the two
        // songs just scheduled) and the artist rule has to give way, at the third song.
        for (int i = 0; i < 2; ++i)
            QVERIFY2(!recent.contains(schedule.items.at(i).track.artist),
                     qPrintable(schedule.items.at(i).track.artist));
        QVERIFY(!schedule.notes.isEmpty());
        QCOMPARE(schedule.notes.first().kind, ScheduleNote::Kind::ArtistSeparationRelaxed);
        QCOMPARE(schedule.notes.first().at, schedule.items.at(2).start);
        // Without the rule the same log holds nobody back and nothing gives way.
        StationFormat free = format;
        free.rules = SeparationRules{0, 0};
        QVERIFY(build(free, from, 1, 7).notes.isEmpty());
    }

    void relaxationsAreReportedWithTheirTimes()
    {
        // One Jingle clock, a title separation longer than the jingles last: after all 60 jingles the
        // title rule has to give way; jingles have no artist, so only the title rule is named.
        StationFormat format = standardFormat(60, 24 * 60);
        format.clocks[QStringLiteral("Standard")] = {{ClockSlot::Kind::Category, QStringLiteral("Jingle")}};
        const Schedule schedule = build(format, kMonday6.addDays(4), 1, 8);
        QVERIFY(schedule.items.size() > 60);
        int relaxed = 0;
        for (const ScheduleNote& note : schedule.notes) {
            QCOMPARE(note.kind, ScheduleNote::Kind::TitleSeparationRelaxed);
            QVERIFY(note.text.contains(QStringLiteral(": title separation relaxed for \"Jingle ")));
            ++relaxed;
        }
        QCOMPARE(relaxed, schedule.items.size() - 60);
        QCOMPARE(schedule.notes.first().at, schedule.items.at(60).start);
    }

    void aLibraryThatDoesNotExistIsRefusedAndNotCreated()
    {
        const ScheduleBuilder::Outcome outcome =
            ScheduleBuilder::build(QStringLiteral("Nowhere"), standardFormat(), kMonday6, 3, 1);
        QVERIFY(!outcome.ok);
        QVERIFY(outcome.error.contains(QStringLiteral("\"Nowhere\"")));
        QVERIFY(outcome.schedule.items.isEmpty());
        QVERIFY(!MusicLibrary::libraries().contains(QStringLiteral("Nowhere")));
    }

    void anEmptyLibraryGivesNoAudioButAReport()
    {
        QVERIFY(MusicLibrary::createLibrary(QStringLiteral("Empty")));
        StationFormat format = standardFormat();
        format.clocks[QStringLiteral("Standard")] = {{ClockSlot::Kind::Category, QStringLiteral("A")},
                                                     {ClockSlot::Kind::Category, QStringLiteral("B")}};
        const ScheduleBuilder::Outcome outcome =
            ScheduleBuilder::build(QStringLiteral("Empty"), format, kMonday6.addDays(1), 2, 1);
        QVERIFY(outcome.ok);
        QVERIFY(outcome.schedule.items.isEmpty());
        QVERIFY(!outcome.schedule.hasAudio());
        // Per hour: both slots skipped, then the empty pass ends the hour.
        QCOMPARE(outcome.schedule.notes.size(), 6);
        QCOMPARE(outcome.schedule.notes.at(2).kind, ScheduleNote::Kind::NoTimeAdded);
        QCOMPARE(outcome.schedule.notes.at(3).at, kMonday6.addDays(1).addSecs(3600));
    }

    void anHourOfAbsurdlyShortFilesStopsAtTheItemLimit()
    {
        StationFormat format = standardFormat();
        format.clocks[QStringLiteral("Standard")] = {{ClockSlot::Kind::File, untaggedJingle}};
        const Schedule schedule = build(format, kMonday6.addDays(5), 1, 1);
        QCOMPARE(schedule.items.size(), ScheduleGenerator::maxItemsPerHour);
        QCOMPARE(schedule.notes.size(), 1);
        QCOMPARE(schedule.notes.first().kind, ScheduleNote::Kind::HourItemLimit);
    }
};

QTEST_GUILESS_MAIN(TestScheduleGenerator)
#include "tst_schedulegenerator.moc"
