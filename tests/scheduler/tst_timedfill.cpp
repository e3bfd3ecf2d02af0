// The choice by length before a timed slot, over plain values: which remaining gaps the slots still
// to come can close within the tolerance, and which track of a small pool the rotation then takes.

#include "playhistory.h"
#include "rotationpool.h"
#include "rotationrules.h"
#include "seededrandom.h"
#include "timedfill.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

namespace {

constexpr qint64 kSecond = 1000;
const FillSpan kSong{150 * kSecond, 280 * kSecond};
const FillSpan kJingle{10 * kSecond, 10 * kSecond};
const FillSpan kCommand{};

} // namespace

class TestTimedFill : public QObject
{
    Q_OBJECT

private slots:
    void withNothingToComeOnlyAGapWithinTheToleranceCloses()
    {
        const TimedFill fill({}, 0, 30 * kSecond, 3600 * kSecond, 100);
        QCOMPARE(fill.missMs(0), qint64(0));
        QCOMPARE(fill.missMs(30 * kSecond), qint64(0));
        QCOMPARE(fill.missMs(-30 * kSecond), qint64(0));
        QCOMPARE(fill.missMs(45 * kSecond), 15 * kSecond);  // under
        QCOMPARE(fill.missMs(-40 * kSecond), 10 * kSecond); // over
        QVERIFY(fill.closesAll(-30 * kSecond, 30 * kSecond));
        QVERIFY(!fill.closesAll(-30 * kSecond, 31 * kSecond));
    }

    void songsStillToComeCloseEveryGapButTheHolesBetweenTheirLengths()
    {
        // One song: 150 to 280 s, within 30 s either way: 120 to 310 s. Two: 270 to 590 s, which
        // overlaps, so from 120 s on everything closes; only 31 to 119 s is a hole.
        const TimedFill fill({kSong}, 0, 30 * kSecond, 3600 * kSecond, 100);
        QCOMPARE(fill.missMs(200 * kSecond), qint64(0));
        QCOMPARE(fill.missMs(120 * kSecond), qint64(0));
        QCOMPARE(fill.missMs(3000 * kSecond), qint64(0));
        QCOMPARE(fill.missMs(100 * kSecond), 20 * kSecond); // 20 s short of a song
        QCOMPARE(fill.missMs(60 * kSecond), 30 * kSecond);  // 30 s from both ends of the hole
        QCOMPARE(fill.missMs(40 * kSecond), 10 * kSecond);  // 10 s more than stopping allows
        QVERIFY(fill.closesAll(120 * kSecond, 3000 * kSecond));
        QVERIFY(!fill.closesAll(20 * kSecond, 170 * kSecond));
    }

    void withoutTolerancePassesOfFixedLengthsCloseOnlyTheirSums()
    {
        // A jingle and a command, over and over: only whole multiples of 10 s close.
        const TimedFill fill({kJingle, kCommand}, 0, 0, 100 * kSecond, 100);
        QCOMPARE(fill.missMs(0), qint64(0));
        QCOMPARE(fill.missMs(30 * kSecond), qint64(0));
        QCOMPARE(fill.missMs(34 * kSecond), 4 * kSecond);
        QCOMPARE(fill.missMs(37 * kSecond), 3 * kSecond);
        QCOMPARE(fill.missMs(-1 * kSecond), 1 * kSecond);
    }

    void theSlotThatComesNextCounts()
    {
        // Next the jingle: 10 s closes at once. Next the song: 10 s lies in the hole before it.
        const TimedFill jingleNext({kJingle, kSong}, 0, 5 * kSecond, 3600 * kSecond, 100);
        const TimedFill songNext({kJingle, kSong}, 1, 5 * kSecond, 3600 * kSecond, 100);
        QCOMPARE(jingleNext.missMs(12 * kSecond), qint64(0));
        QCOMPARE(songNext.missMs(12 * kSecond), 7 * kSecond);
        // The cycle goes round: after the song comes the jingle again, so 160 s closes either way.
        QCOMPARE(songNext.missMs(160 * kSecond), qint64(0));
        QCOMPARE(jingleNext.missMs(160 * kSecond), qint64(0));
    }

    void slotsThatAddNoTimeCloseNothingMore()
    {
        const TimedFill fill({kCommand, kCommand}, 0, 30 * kSecond, 3600 * kSecond, 1000);
        QCOMPARE(fill.missMs(90 * kSecond), 60 * kSecond);
        QCOMPARE(fill.missMs(3600 * kSecond), 3570 * kSecond);
    }

    void theSlotLimitEndsWhatCanBeClosed()
    {
        // Two more songs at most: beyond 590 s nothing closes.
        const TimedFill fill({kSong}, 0, 30 * kSecond, 3600 * kSecond, 2);
        QCOMPARE(fill.missMs(590 * kSecond), qint64(0));
        QCOMPARE(fill.missMs(600 * kSecond), 10 * kSecond);
    }

    void aGapDeepInsideWhatClosesIsTheSafestToLeave()
    {
        // Stop range -30 to 30 s, one song after: 120 to 310 s.
        const TimedFill fill({kSong}, 0, 30 * kSecond, 3600 * kSecond, 1);
        QCOMPARE(fill.toleranceMs(), 30 * kSecond);
        QCOMPARE(fill.depthMs(0), 30 * kSecond);
        QCOMPARE(fill.depthMs(25 * kSecond), 5 * kSecond);
        QCOMPARE(fill.depthMs(-28 * kSecond), 2 * kSecond);
        QCOMPARE(fill.depthMs(125 * kSecond), 5 * kSecond);
        QCOMPARE(fill.depthMs(200 * kSecond), 80 * kSecond); // 80 s above 120, 110 below 310
        QCOMPARE(fill.depthMs(60 * kSecond), qint64(0));     // in the hole: not closable at all
        QCOMPARE(fill.depthMs(400 * kSecond), qint64(0));
    }

    void theNextSlotsRealLengthsReplaceItsSpan()
    {
        // The next slot's category really has only 150 s and 270 s left: 200 s no longer closes.
        const TimedFill spans({kSong}, 0, 10 * kSecond, 3600 * kSecond, 1);
        const TimedFill real({kSong}, 0, 10 * kSecond, 3600 * kSecond, 1, {150 * kSecond, 270 * kSecond});
        QCOMPARE(spans.missMs(200 * kSecond), qint64(0));
        QCOMPARE(real.missMs(200 * kSecond), 40 * kSecond);
        QCOMPARE(real.missMs(155 * kSecond), qint64(0));
        QCOMPARE(real.missMs(275 * kSecond), qint64(0));
    }

    void stoppingMissesByWhatLiesBeyondTheTolerance()
    {
        QCOMPARE(TimedFill::missIfStopped(20 * kSecond, 30 * kSecond), qint64(0));
        QCOMPARE(TimedFill::missIfStopped(55 * kSecond, 30 * kSecond), 25 * kSecond);
        QCOMPARE(TimedFill::missIfStopped(-50 * kSecond, 30 * kSecond), 20 * kSecond);
        QCOMPARE(TimedFill::missIfStopped(7, 0), qint64(7));
    }

    void theRotationTakesTheTrackWhoseLengthLandsClosest()
    {
        QTemporaryDir folder;
        QList<Track> tracks;
        for (int seconds : {100, 150, 200, 250, 300}) {
            Track t;
            t.artist = QStringLiteral("Artist %1").arg(seconds);
            t.title = QStringLiteral("Song %1").arg(seconds);
            t.category = QStringLiteral("A");
            t.durationMs = seconds * kSecond;
            t.filePath = folder.filePath(QStringLiteral("%1.wav").arg(seconds));
            tracks << t;
        }
        const RotationPool pool = RotationPool::build(tracks, {});
        const QList<int> all = pool.inCategory(QStringLiteral("A"));
        QCOMPARE(all.size(), 5);
        const PlayHistory history(pool);
        const QDateTime at(QDate(2024, 5, 6), QTime(6, 0));
        const TimedFill last({}, 0, 5 * kSecond, 210 * kSecond, 10); // nothing comes after this slot
        SeededRandom random(1);
        // 210 s left: the 200 s song ends 10 s early, 5 s beyond the tolerance; every other is further.
        FitChoice fit =
            RotationRules::chooseToFit(pool, all, history, at, SeparationRules{}, random, last, 210 * kSecond,
                                       TimedFill::missIfStopped(210 * kSecond, 5 * kSecond));
        QVERIFY(fit.anyAllowed);
        QVERIFY(fit.choice.candidate >= 0);
        QCOMPARE(pool.candidate(fit.choice.candidate).track.durationMs, 200 * kSecond);
        QCOMPARE(fit.missMs, 5 * kSecond);
        QCOMPARE(fit.choice.relaxation, Relaxation::None);

        // 215 s left, tolerance 40 s: 200 s ends 15 s early and 250 s ends 35 s late, both within it. The
        // closer one goes first, whatever the draw would have said.
        const TimedFill last40({}, 0, 40 * kSecond, 215 * kSecond, 10);
        for (quint64 seed = 1; seed <= 8; ++seed) {
            SeededRandom draw(seed);
            fit = RotationRules::chooseToFit(pool, all, history, at, SeparationRules{}, draw, last40,
                                             215 * kSecond,
                                             TimedFill::missIfStopped(215 * kSecond, 40 * kSecond));
            QCOMPARE(pool.candidate(fit.choice.candidate).track.durationMs, 200 * kSecond);
            QCOMPARE(fit.missMs, qint64(0));
        }

        // With 40 s left stopping misses by 35 s; the shortest song would run 60 s over, 55 s beyond.
        const TimedFill short40({}, 0, 5 * kSecond, 40 * kSecond, 10);
        fit = RotationRules::chooseToFit(pool, all, history, at, SeparationRules{}, random, short40,
                                         40 * kSecond, TimedFill::missIfStopped(40 * kSecond, 5 * kSecond));
        QVERIFY(fit.anyAllowed);
        QCOMPARE(fit.choice.candidate, -1);
        QCOMPARE(fit.missMs, 55 * kSecond);

        // Nothing allowed: no choice and nothing kept the rules.
        fit = RotationRules::chooseToFit(pool, {}, history, at, SeparationRules{}, random, last,
                                         210 * kSecond, 200 * kSecond);
        QVERIFY(!fit.anyAllowed);
        QCOMPARE(fit.choice.candidate, -1);
    }

    void amongTracksThatAllLandTheLeastRecentlyPlayedGoesFirst()
    {
        QTemporaryDir folder;
        QList<Track> tracks;
        for (int i = 0; i < 4; ++i) {
            Track t;
            t.artist = QStringLiteral("Artist %1").arg(i);
            t.title = QStringLiteral("Song %1").arg(i);
            t.category = QStringLiteral("A");
            t.durationMs = (200 + i) * kSecond;
            t.filePath = folder.filePath(QStringLiteral("%1.wav").arg(i));
            tracks << t;
        }
        const RotationPool pool = RotationPool::build(tracks, {});
        PlayHistory history(pool);
        const QDateTime at(QDate(2024, 5, 6), QTime(6, 0));
        // Every song but "Song 2" played in the last hours.
        for (int i = 0; i < pool.candidateCount(); ++i) {
            const Track& t = pool.candidate(i).track;
            if (t.title != QLatin1String("Song 2"))
                history.recordPlay(t, at.addSecs(-3600 * (i + 1)));
        }
        // 600 s left, songs of 150 to 280 s to come: 397 to 400 s left are all deep inside what closes.
        const TimedFill rest({kSong}, 0, 5 * kSecond, 600 * kSecond, 10);
        SeededRandom random(3);
        const FitChoice fit =
            RotationRules::chooseToFit(pool, pool.inCategory(QStringLiteral("A")), history, at,
                                       SeparationRules{}, random, rest, 600 * kSecond, 595 * kSecond);
        QVERIFY(fit.choice.candidate >= 0);
        QCOMPARE(fit.missMs, qint64(0));
        QCOMPARE(pool.candidate(fit.choice.candidate).track.title, QStringLiteral("Song 2"));
    }

    void aSeparationGivesWayForATrackThatLandsAndTheRelaxationIsNamed()
    {
        QTemporaryDir folder;
        QList<Track> tracks;
        for (int seconds : {200, 250}) {
            Track t;
            t.artist = seconds == 200 ? QStringLiteral("Just Played") : QStringLiteral("Other");
            t.title = QStringLiteral("Song %1").arg(seconds);
            t.category = QStringLiteral("A");
            t.durationMs = seconds * kSecond;
            t.filePath = folder.filePath(QStringLiteral("%1.wav").arg(seconds));
            tracks << t;
        }
        const RotationPool pool = RotationPool::build(tracks, {});
        PlayHistory history(pool);
        const QDateTime at(QDate(2024, 5, 6), QTime(6, 0));
        Track earlier;
        earlier.artist = QStringLiteral("Just Played");
        earlier.title = QStringLiteral("Another Song");
        history.recordPlay(earlier, at.addSecs(-600)); // ten minutes ago: held back by an hour's separation
        SeparationRules rules;
        rules.artistSeparationMinutes = 60;
        // 205 s left, tolerance 10 s: only the held-back 200 s song lands; the other runs 45 s over.
        const TimedFill last({}, 0, 10 * kSecond, 205 * kSecond, 10);
        SeededRandom random(1);
        FitChoice fit = RotationRules::chooseToFit(pool, pool.inCategory(QStringLiteral("A")), history, at,
                                                   rules, random, last, 205 * kSecond, 195 * kSecond);
        QCOMPARE(pool.candidate(fit.choice.candidate).track.title, QStringLiteral("Song 200"));
        QCOMPARE(fit.choice.relaxation, Relaxation::ArtistSeparation);
        QCOMPARE(fit.missMs, qint64(0));
        // Far from the time both land, and the rule holds again.
        const TimedFill far({kSong}, 0, 10 * kSecond, 900 * kSecond, 10);
        fit = RotationRules::chooseToFit(pool, pool.inCategory(QStringLiteral("A")), history, at, rules,
                                         random, far, 900 * kSecond, 890 * kSecond);
        QCOMPARE(pool.candidate(fit.choice.candidate).track.title, QStringLiteral("Song 250"));
        QCOMPARE(fit.choice.relaxation, Relaxation::None);
    }
};

QTEST_GUILESS_MAIN(TestTimedFill)
#include "tst_timedfill.moc"
