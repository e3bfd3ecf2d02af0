// The rotation rules as plain functions: which candidates may play at a time, which keep their
// separation, which goes first, and how the rules give way. No database: the pool is built from
// records, over real (empty) files in a temporary folder.

#include "asrunentry.h"
#include "playhistory.h"
#include "rotationpool.h"
#include "rotationrules.h"
#include "seededrandom.h"

#include <QFile>
#include <QSet>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const QDateTime kMonday7 = QDateTime(QDate(2024, 5, 6), QTime(7, 0)); // a Monday

} // namespace

class TestRotationRules : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir folder;

    // A file track whose file exists.
    Track track(const QString& artist, const QString& title, const QString& category = QStringLiteral("A"),
                qint64 ms = 180000)
    {
        Track t;
        t.artist = artist;
        t.title = title;
        t.category = category;
        t.durationMs = ms;
        t.filePath = folder.filePath(QStringLiteral("%1 - %2 (%3).mp3").arg(artist, title, category));
        QFile file(t.filePath);
        file.open(QIODevice::WriteOnly);
        return t;
    }

    static QStringList titlesOf(const RotationPool& pool, const QList<int>& indexes)
    {
        QStringList titles;
        for (int i : indexes)
            titles << pool.candidate(i).track.title;
        return titles;
    }

    static const QString& titleOf(const RotationPool& pool, int index)
    {
        return pool.candidate(index).track.title;
    }

    static int indexOf(const RotationPool& pool, const QString& title)
    {
        for (int i = 0; i < pool.candidateCount(); ++i) {
            if (pool.candidate(i).track.title == title)
                return i;
        }
        return -1;
    }

private slots:
    void separationCountsWholeMinutesBetweenStarts()
    {
        const qint64 at = kMonday7.toMSecsSinceEpoch();
        QVERIFY(RotationRules::isSeparated(PlayHistory::never, at, 60));
        QVERIFY(RotationRules::isSeparated(at - 60 * 60000, at, 60));
        QVERIFY(!RotationRules::isSeparated(at - 60 * 60000 + 1, at, 60));
        QVERIFY(RotationRules::isSeparated(at - 1000, at, 0));
        QVERIFY(!RotationRules::isSeparated(at + 5 * 60000, at, 60)); // a later play holds back too
    }

    void poolKeepsFilesWithALengthOfTheWantedCategoriesOncePerPath()
    {
        QList<Track> tracks;
        tracks << track(QStringLiteral("Blur"), QStringLiteral("Song 2"), QStringLiteral("gold"));
        tracks << track(QStringLiteral("Abba"), QStringLiteral("Waterloo"), QStringLiteral("Gold"));
        tracks << track(QStringLiteral("Abba"), QStringLiteral("Waterloo"),
                        QStringLiteral("Gold")); // same path
        tracks << track(QStringLiteral("Cher"), QStringLiteral("Believe"), QStringLiteral("A"));
        tracks << track(QStringLiteral("Doors"), QStringLiteral("Unknown length"), QStringLiteral("Gold"), 0);
        Track stream;
        stream.filePath = QStringLiteral("http://radio.example/stream");
        stream.isStream = true;
        stream.category = QStringLiteral("Gold");
        stream.durationMs = 1000;
        tracks << stream;

        const RotationPool pool = RotationPool::build(tracks, {}, {QStringLiteral("GOLD")});
        QCOMPARE(pool.candidateCount(), 2);
        QStringList gold = titlesOf(pool, pool.inCategory(QStringLiteral("Gold")));
        QCOMPARE(QSet<QString>(gold.begin(), gold.end()),
                 QSet<QString>({QStringLiteral("Waterloo"), QStringLiteral("Song 2")}));
        // One order, whatever the listing's order.
        QList<Track> reversed(tracks.rbegin(), tracks.rend());
        const RotationPool other = RotationPool::build(reversed, {}, {QStringLiteral("Gold")});
        QCOMPARE(titlesOf(other, other.inCategory(QStringLiteral("Gold"))), gold);
        QCOMPARE(pool.inCategory(QStringLiteral("gOLD")), pool.inCategory(QStringLiteral("Gold")));
        QVERIFY(pool.inCategory(QStringLiteral("A")).isEmpty());       // not asked for by the format
        QCOMPARE(RotationPool::build(tracks, {}).candidateCount(), 3); // every category
        // Every entry stays known by path, for the length of fixed files.
        QVERIFY(pool.libraryTrack(stream.filePath));
        QCOMPARE(pool.libraryTrack(tracks.at(3).filePath)->title, QStringLiteral("Believe"));
        QVERIFY(!pool.libraryTrack(QStringLiteral("/nowhere.mp3")));
    }

    void parametersDecideWhetherATrackMayPlayAtATime_data()
    {
        QTest::addColumn<QString>("limit");
        QTest::addColumn<QDateTime>("at");
        QTest::addColumn<bool>("allowed");
        QTest::newRow("disabled") << QStringLiteral("disabled") << kMonday7 << false;
        QTest::newRow("inside the date range") << QStringLiteral("range") << kMonday7 << true;
        QTest::newRow("before the date range") << QStringLiteral("range") << kMonday7.addDays(-10) << false;
        QTest::newRow("after the date range") << QStringLiteral("range") << kMonday7.addDays(10) << false;
        QTest::newRow("one-sided range is no limit")
            << QStringLiteral("start only") << kMonday7.addDays(-100) << true;
        QTest::newRow("allowed hour") << QStringLiteral("monday 7") << kMonday7 << true;
        QTest::newRow("other hour") << QStringLiteral("monday 7") << kMonday7.addSecs(3600) << false;
        QTest::newRow("same hour, other weekday")
            << QStringLiteral("monday 7") << kMonday7.addDays(1) << false;
        QTest::newRow("no limits") << QStringLiteral("none") << kMonday7.addDays(3) << true;
    }

    void parametersDecideWhetherATrackMayPlayAtATime()
    {
        QFETCH(QString, limit);
        QFETCH(QDateTime, at);
        QFETCH(bool, allowed);
        const Track t = track(QStringLiteral("Abba"), QStringLiteral("SOS"));
        TrackParams params;
        if (limit == QLatin1String("disabled")) {
            params.disabled = true;
        } else if (limit == QLatin1String("range")) {
            params.startDate = kMonday7.date().addDays(-2);
            params.endDate = kMonday7.date().addDays(2);
        } else if (limit == QLatin1String("start only")) {
            params.startDate = kMonday7.date();
        } else if (limit == QLatin1String("monday 7")) {
            params.setDaypartHour(0, 7, true);
        }
        const RotationPool pool = RotationPool::build({t}, {{t.filePath, params}});
        QCOMPARE(pool.candidateCount(), 1);
        QCOMPARE(RotationRules::isAllowedAt(pool.candidate(0), at), allowed);
        QCOMPARE(RotationRules::isAllowedAt(pool.candidate(0), at), params.isScheduledAt(at));
        QCOMPARE(RotationRules::allowedAt(pool, {0}, at).size(), allowed ? 1 : 0);
    }

    void artistSeparationHoldsAcrossAnHourBoundary()
    {
        const Track a = track(QStringLiteral("Abba"), QStringLiteral("SOS"));
        const Track b =
            track(QStringLiteral("ABBA "), QStringLiteral("Waterloo")); // same act, other spelling
        const RotationPool pool = RotationPool::build({a, b}, {});
        PlayHistory history(pool);
        const SeparationRules rules{60, 0};
        history.recordPlay(a, kMonday7.addSecs(-10 * 60)); // 06:50
        QVERIFY(indexOf(pool, QStringLiteral("Waterloo")) >= 0);
        const RotationCandidate& waterloo = pool.candidate(indexOf(pool, QStringLiteral("Waterloo")));
        const qint64 at0710 = kMonday7.addSecs(10 * 60).toMSecsSinceEpoch();
        const qint64 at0750 = kMonday7.addSecs(50 * 60).toMSecsSinceEpoch();
        QVERIFY(!RotationRules::keepsArtistSeparation(waterloo.keys, history, at0710, rules));
        QVERIFY(RotationRules::keepsArtistSeparation(waterloo.keys, history, at0750, rules));
        QVERIFY(RotationRules::keepsTitleSeparation(waterloo.keys, history, at0710, rules));
    }

    void titleSeparationHoldsTheSameSongButNotTheArtistsOtherSongs()
    {
        const Track original = track(QStringLiteral("Abba"), QStringLiteral("SOS"), QStringLiteral("A"));
        const Track copy = track(QStringLiteral("abba"), QStringLiteral("sos"), QStringLiteral("Gold"));
        const Track other = track(QStringLiteral("Abba"), QStringLiteral("Fernando"), QStringLiteral("Gold"));
        const RotationPool pool = RotationPool::build({original, copy, other}, {});
        PlayHistory history(pool);
        const SeparationRules rules{0, 240};
        history.recordPlay(original, kMonday7);
        const qint64 threeHoursLater = kMonday7.addSecs(3 * 3600).toMSecsSinceEpoch();
        const QList<int> gold = pool.inCategory(QStringLiteral("Gold"));
        QCOMPARE(titlesOf(pool, RotationRules::separated(pool, gold, history, threeHoursLater, rules,
                                                         Relaxation::None)),
                 QStringList({QStringLiteral("Fernando")}));
        const qint64 fourHoursLater = kMonday7.addSecs(4 * 3600).toMSecsSinceEpoch();
        QCOMPARE(
            RotationRules::separated(pool, gold, history, fourHoursLater, rules, Relaxation::None).size(), 2);
    }

    void theAsRunLogHoldsArtistsAndSongsBack()
    {
        const Track sos = track(QStringLiteral("Abba"), QStringLiteral("SOS"));
        const Track song2 = track(QStringLiteral("Blur"), QStringLiteral("Song 2"));
        const RotationPool pool = RotationPool::build({sos, song2}, {});
        PlayHistory history(pool);
        AsRunEntry played;
        played.startedAt = kMonday7.addSecs(-30 * 60);
        played.filePath = QStringLiteral("/elsewhere/abba-sos.flac"); // another copy of the song
        played.artist = QStringLiteral("ABBA");
        played.title = QStringLiteral("SOS");
        history.recordAsRun(played);
        const qint64 at = kMonday7.toMSecsSinceEpoch();
        const QList<int> all = pool.inCategory(QStringLiteral("A"));
        QCOMPARE(titlesOf(pool, RotationRules::separated(pool, all, history, at, {60, 0}, Relaxation::None)),
                 QStringList({QStringLiteral("Song 2")}));
        QCOMPARE(titlesOf(pool, RotationRules::separated(pool, all, history, at, {0, 240}, Relaxation::None)),
                 QStringList({QStringLiteral("Song 2")}));
        QCOMPARE(RotationRules::separated(pool, all, history, at, {20, 20}, Relaxation::None).size(), 2);
    }

    void theTrackPlayedLeastRecentlyGoesFirstAndNeverPlayedBeforeAll()
    {
        Track old = track(QStringLiteral("A1"), QStringLiteral("Last week"));
        old.lastPlayed = kMonday7.addDays(-7);
        Track recent = track(QStringLiteral("A2"), QStringLiteral("Yesterday"));
        recent.lastPlayed = kMonday7.addDays(-1);
        Track never = track(QStringLiteral("A3"), QStringLiteral("Never"));
        const RotationPool pool = RotationPool::build({old, recent, never}, {});
        PlayHistory history(pool);
        SeededRandom random(1);
        const QList<int> all = pool.inCategory(QStringLiteral("A"));
        QCOMPARE(titleOf(pool, RotationRules::leastRecentlyPlayed(pool, all, history, random)),
                 QStringLiteral("Never"));
        history.recordPlay(never, kMonday7);
        QCOMPARE(titleOf(pool, RotationRules::leastRecentlyPlayed(pool, all, history, random)),
                 QStringLiteral("Last week"));
        history.recordPlay(old, kMonday7.addSecs(60));
        QCOMPARE(titleOf(pool, RotationRules::leastRecentlyPlayed(pool, all, history, random)),
                 QStringLiteral("Yesterday"));
        QCOMPARE(RotationRules::leastRecentlyPlayed(pool, {}, history, random), -1);
    }

    void tiesGoToTheHigherRatingAndThenToTheSeed()
    {
        const Track five = track(QStringLiteral("A1"), QStringLiteral("Five"));
        const Track eightA = track(QStringLiteral("A2"), QStringLiteral("Eight A"));
        const Track eightB = track(QStringLiteral("A3"), QStringLiteral("Eight B"));
        QHash<QString, TrackParams> params;
        params[five.filePath].rating = 5;
        params[eightA.filePath].rating = 8;
        params[eightB.filePath].rating = 8;
        const RotationPool pool = RotationPool::build({five, eightA, eightB}, params);
        const PlayHistory history(pool);
        const QList<int> all = pool.inCategory(QStringLiteral("A"));
        QSet<QString> chosen;
        for (quint64 seed = 0; seed < 64; ++seed) {
            SeededRandom random(seed);
            const QString title =
                titleOf(pool, RotationRules::leastRecentlyPlayed(pool, all, history, random));
            chosen << title;
            SeededRandom again(seed);
            QCOMPARE(titleOf(pool, RotationRules::leastRecentlyPlayed(pool, all, history, again)), title);
        }
        QCOMPARE(chosen, QSet<QString>({QStringLiteral("Eight A"), QStringLiteral("Eight B")}));
    }

    void separationGivesWayArtistFirstThenTitle()
    {
        const Track heldByArtist = track(QStringLiteral("Abba"), QStringLiteral("Fernando"));
        const Track heldByTitle = track(QStringLiteral("Blur"), QStringLiteral("Song 2"));
        const Track playedBefore =
            track(QStringLiteral("Abba"), QStringLiteral("SOS"), QStringLiteral("Gold"));
        const Track blurBefore =
            track(QStringLiteral("Blur"), QStringLiteral("Song 2"), QStringLiteral("Gold"));
        const RotationPool pool =
            RotationPool::build({heldByArtist, heldByTitle, playedBefore, blurBefore}, {});
        const SeparationRules rules{60, 240};
        const QList<int> a = pool.inCategory(QStringLiteral("A"));
        SeededRandom random(7);

        // Abba played 10 minutes ago; Blur's "Song 2" two hours ago (its artist is free again).
        PlayHistory history(pool);
        history.recordPlay(playedBefore, kMonday7.addSecs(-10 * 60));
        history.recordPlay(blurBefore, kMonday7.addSecs(-2 * 3600));
        RotationChoice choice = RotationRules::choose(pool, a, history, kMonday7, rules, random);
        QCOMPARE(choice.relaxation, Relaxation::ArtistSeparation);
        QCOMPARE(titleOf(pool, choice.candidate), QStringLiteral("Fernando")); // title kept, artist given way

        // Both held back by their artist, "Song 2" also by its title: only the artist rule gives way
        // and the song that keeps its title separation wins.
        history.recordPlay(blurBefore, kMonday7.addSecs(-20 * 60));
        choice = RotationRules::choose(pool, a, history, kMonday7, rules, random);
        QCOMPARE(choice.relaxation, Relaxation::ArtistSeparation);
        QCOMPARE(titleOf(pool, choice.candidate), QStringLiteral("Fernando"));

        // With "Fernando" itself just played, nothing keeps its title separation: both rules give way.
        history.recordPlay(heldByArtist, kMonday7.addSecs(-5 * 60));
        choice = RotationRules::choose(pool, a, history, kMonday7, rules, random);
        QCOMPARE(choice.relaxation, Relaxation::ArtistAndTitleSeparation);
        QCOMPARE(titleOf(pool, choice.candidate), QStringLiteral("Song 2")); // played least recently

        // Two hours on, everything is free again.
        choice = RotationRules::choose(pool, a, history, kMonday7.addSecs(5 * 3600), rules, random);
        QCOMPARE(choice.relaxation, Relaxation::None);
    }

    void aCategoryWithoutAllowedTrackGivesNoChoice()
    {
        const Track t = track(QStringLiteral("Abba"), QStringLiteral("SOS"));
        TrackParams disabled;
        disabled.disabled = true;
        const RotationPool pool = RotationPool::build({t}, {{t.filePath, disabled}});
        const PlayHistory history(pool);
        SeededRandom random(1);
        const QList<int> allowed =
            RotationRules::allowedAt(pool, pool.inCategory(QStringLiteral("A")), kMonday7);
        QVERIFY(allowed.isEmpty());
        const RotationChoice choice =
            RotationRules::choose(pool, allowed, history, kMonday7, {60, 240}, random);
        QCOMPARE(choice.candidate, -1);
        QCOMPARE(RotationRules::choose(pool, pool.inCategory(QStringLiteral("Nothing")), history, kMonday7,
                                       {60, 240}, random)
                     .candidate,
                 -1);
    }

    void aSeedGivesTheSameDrawsAndEveryValueInRange()
    {
        SeededRandom first(42);
        SeededRandom second(42);
        SeededRandom other(43);
        QList<quint64> a, b, c;
        QSet<quint64> seen;
        for (int i = 0; i < 200; ++i) {
            a << first.below(7);
            b << second.below(7);
            c << other.below(7);
            QVERIFY(a.last() < 7);
            seen << a.last();
        }
        QCOMPARE(a, b);
        QVERIFY(a != c);
        QCOMPARE(seen.size(), 7);
        QCOMPARE(first.below(1), quint64(0));
        QCOMPARE(first.below(0), quint64(0));
        // A range that is not a power of two near the top of 64 bits still stays inside.
        const quint64 huge = (quint64(1) << 63) + 12345;
        for (int i = 0; i < 50; ++i)
            QVERIFY(first.below(huge) < huge);
    }
};

QTEST_GUILESS_MAIN(TestRotationRules)
#include "tst_rotationrules.moc"
