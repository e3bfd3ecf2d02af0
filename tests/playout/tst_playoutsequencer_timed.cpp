#include "playlistmodel.h"
#include "playoutlog.h"
#include "playoutsequencer.h"
#include "recordingdecks.h"
#include "timedrules.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

// Decks that only write down what the sequencer asked of them; a cut is told apart from a take.
class FakeDecks : public RecordingDecks
{
public:
    int cutFadeMs = -1;
    qint64 lead = 150;

    // Here a taken row sounds at once, as a file row on real decks does.
    void takeRow(int row) override
    {
        RecordingDecks::takeRow(row);
        sounding = true;
    }
    void cutToRow(int row, int fadeMs) override
    {
        taken = row;
        sounding = true;
        cutFadeMs = fadeMs;
        calls << QStringLiteral("cut %1").arg(row);
    }
    qint64 startLeadMs() const override { return lead; }
};

// The sequencer with fake decks, a fake monotonic clock and a fake wall clock that move together
// unless a test makes the wall clock jump.
class TestPlayoutSequencerTimed : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    const QDateTime noon{QDate(2026, 11, 23), QTime(12, 0, 0)};
    qint64 mono = 0;
    QDateTime wall;

    struct Rig {
        PlaylistModel playlist;
        FakeDecks decks;
        PlayoutSequencer sequencer{&decks};
    };

    void setUp(Rig& rig, const QList<Track>& rows)
    {
        rig.playlist.appendTracks(rows);
        rig.sequencer.setPlaylist(&rig.playlist);
        rig.sequencer.setClock([this] { return mono; });
        rig.sequencer.setWallClock([this] { return wall; });
        rig.sequencer.setSilentLimits(10000, 20000);
        rig.sequencer.setTimedLimits(500, 60000);
        rig.sequencer.setSkipUnplayableRows(true);
    }

    // Both clocks move on together.
    void pass(qint64 ms)
    {
        mono += ms;
        wall = wall.addMSecs(ms);
    }

    // The wall clock alone moves (an operator or a time server set it); a second passes meanwhile.
    void jump(qint64 ms)
    {
        mono += 1000;
        wall = wall.addMSecs(ms + 1000);
    }

    QString existing(const QString& name)
    {
        const QString path = QDir(dir.path()).filePath(name + QStringLiteral(".wav"));
        QFile file(path);
        if (!file.exists() && file.open(QIODevice::WriteOnly))
            file.write("RIFF");
        return path;
    }

    Track file(const QString& title)
    {
        Track track;
        track.artist = QStringLiteral("A");
        track.title = title;
        track.filePath = existing(title.toLower());
        track.durationMs = 180000;
        return track;
    }

    Track timedFile(const QString& title, TimedStart::Mode mode, const QDateTime& at)
    {
        Track track = file(title);
        track.timed = {mode, at, false};
        return track;
    }

    static Track command(const QString& word)
    {
        Track track;
        track.isCommand = true;
        track.command = word;
        return track;
    }

    static constexpr TimedStart::Mode Hard = TimedStart::Mode::Hard;
    static constexpr TimedStart::Mode Soft = TimedStart::Mode::Soft;

private slots:
    void initTestCase() { QVERIFY(dir.isValid()); }
    void init()
    {
        mono = 5000;
        wall = noon.addSecs(-60);
    }

    void aHardRowCutsMidTrackItsStartLeadBeforeItsTimeAndTheRowsBetweenAreSkipped()
    {
        Rig rig;
        setUp(rig, {file("One"), file("Two"), file("Three"), timedFile("News", Hard, noon), file("Five")});
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        sequencer.checkTimed();
        QCOMPARE(decks.calls, QStringList{"take 0"});
        // Armed to fire the start lead early.
        QVERIFY2(qAbs(sequencer.msUntilTimedTimer() - (60000 - 150)) < 200,
                 qPrintable(QString::number(sequencer.msUntilTimedTimer())));
        pass(60000 - 151);
        sequencer.checkTimed();
        QCOMPARE(decks.calls, QStringList{"take 0"});
        pass(1);
        sequencer.checkTimed();
        QCOMPARE(decks.calls, (QStringList{"take 0", "cut 3"}));
        QCOMPARE(decks.cutFadeMs, 500);
        QCOMPARE(sequencer.currentRow(), 3);
        QCOMPARE(decks.logs, (QStringList{"Timed: skipped for hard 12:00:00: A - Two",
                                          "Timed: skipped for hard 12:00:00: A - Three",
                                          "Timed: hard 12:00:00 A - News"}));
        // The list goes on after it, and it never fires again.
        QCOMPARE(sequencer.nextRow(), 4);
        pass(1000);
        sequencer.checkTimed();
        QCOMPARE(decks.calls.size(), 2);
    }

    void aSoftRowIsTheNextAtTheMixPointOnceItsTimeHasCome()
    {
        Rig rig;
        setUp(rig, {file("One"), file("Two"), file("Three"), timedFile("Ad", Soft, noon)});
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        pass(59000);
        sequencer.checkTimed();
        QCOMPARE(sequencer.mixRow(), 1);
        pass(1000);
        sequencer.checkTimed();
        // Nothing cut: it waits for the mix point of what plays.
        QCOMPARE(decks.calls, QStringList{"take 0"});
        QCOMPARE(sequencer.pendingTimedRow(), 3);
        QCOMPARE(sequencer.nextRow(), 3);
        QCOMPARE(sequencer.mixRow(), 3);
        // Three minutes later, well past the late limit, it still starts at the mix point.
        pass(180000);
        sequencer.checkTimed();
        sequencer.mixInto(sequencer.mixRow());
        QCOMPARE(decks.calls, (QStringList{"take 0", "take 3"}));
        QCOMPARE(decks.logs, (QStringList{"Timed: skipped for soft 12:00:00: A - Two",
                                          "Timed: skipped for soft 12:00:00: A - Three",
                                          "Timed: soft 12:00:00 A - Ad"}));
    }

    void aSoftRowFollowsATrackThatEndsWithoutAMix()
    {
        Rig rig;
        setUp(rig, {file("One"), file("Two"), timedFile("Ad", Soft, noon)});
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        pass(61000);
        sequencer.checkTimed();
        sequencer.currentRowEnded(true);
        QCOMPARE(decks.calls, (QStringList{"take 0", "take 2"}));
        QVERIFY(decks.logs.contains("Timed: soft 12:00:00 A - Ad"));
    }

    void aStopRowBeforeAHardRowDoesNotHoldItBack()
    {
        Rig rig;
        setUp(rig, {file("One"), command("STOP"), file("Two"), timedFile("News", Hard, noon)});
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        sequencer.currentRowEnded(true);
        QCOMPARE(decks.calls, (QStringList{"take 0", "take 1", "halt"}));
        pass(60000);
        sequencer.checkTimed();
        QCOMPARE(decks.calls, (QStringList{"take 0", "take 1", "halt", "cut 3"}));
        QCOMPARE(decks.logs, (QStringList{"End of track: A - One", PlayoutLog::stopCommand,
                                          "Timed: skipped for hard 12:00:00: A - Two",
                                          "Timed: hard 12:00:00 A - News"}));
    }

    void aSoftRowAfterAStopWaitsForPlay()
    {
        Rig rig;
        setUp(rig, {file("One"), command("STOP"), file("Two"), timedFile("Ad", Soft, noon)});
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        sequencer.currentRowEnded(true);
        pass(60000);
        sequencer.checkTimed();
        pass(3600000);
        sequencer.checkTimed();
        QCOMPARE(decks.calls, (QStringList{"take 0", "take 1", "halt"}));
        // Play, an hour after its time: it was due while the list stood still, so it starts.
        sequencer.next();
        QCOMPARE(decks.calls, (QStringList{"take 0", "take 1", "halt", "take 3"}));
        QVERIFY(decks.logs.contains("Timed: soft 12:00:00 A - Ad"));
        QVERIFY(decks.logs.contains("Timed: skipped for soft 12:00:00: A - Two"));
    }

    void twoRowsAtTheSameTimeTheFirstInListOrderFiresAndTheSecondFollowsIt()
    {
        Rig rig;
        setUp(rig, {file("One"), timedFile("News", Hard, noon), timedFile("Weather", Hard, noon),
                    file("Four")});
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        pass(60000);
        sequencer.checkTimed();
        QCOMPARE(decks.calls, (QStringList{"take 0", "cut 1"}));
        // The second waits for the first's end, however long the news runs.
        pass(240000);
        sequencer.checkTimed();
        QCOMPARE(decks.calls, (QStringList{"take 0", "cut 1"}));
        QCOMPARE(sequencer.nextRow(), 2);
        sequencer.currentRowEnded(true);
        QCOMPARE(decks.calls, (QStringList{"take 0", "cut 1", "take 2"}));
        QCOMPARE(decks.logs, (QStringList{"Timed: hard 12:00:00 A - News", "End of track: A - News",
                                          "Timed: hard 12:00:00 A - Weather"}));
    }

    void aTimedRowAboveTheCurrentRowFiresAndTheAirJumpsBack()
    {
        Rig rig;
        setUp(rig, {timedFile("News", Hard, noon), file("One"), file("Two")});
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(1);
        pass(60000);
        sequencer.checkTimed();
        QCOMPARE(decks.calls, (QStringList{"take 1", "cut 0"}));
        QCOMPARE(decks.logs, QStringList{"Timed: hard 12:00:00 A - News"});
        QCOMPARE(sequencer.nextRow(), 1);
    }

    void aRowJustPastWhenTheListStartsFiresAtOnce()
    {
        wall = noon.addSecs(30);
        Rig rig;
        setUp(rig, {file("One"), file("Two"), timedFile("News", Hard, noon)});
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        sequencer.checkTimed();
        QCOMPARE(decks.calls, (QStringList{"take 0", "cut 2"}));
    }

    void aRowLongPastWhenTheListStartsIsSkippedWithALogLineAndTheListGoesOn()
    {
        wall = noon.addSecs(3 * 3600);
        Rig rig;
        setUp(rig, {file("One"), timedFile("News", Hard, noon), file("Three")});
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        sequencer.checkTimed();
        QCOMPARE(decks.calls, QStringList{"take 0"});
        QCOMPARE(decks.logs, QStringList{"Timed: hard 12:00:00 missed by 3:00:00, skipped: A - News"});
        // Given up as an event; in list order it is an ordinary row, and it is logged once only.
        pass(1000);
        sequencer.checkTimed();
        QCOMPARE(decks.logs.size(), 1);
        sequencer.currentRowEnded(true);
        QCOMPARE(decks.calls, (QStringList{"take 0", "take 1"}));
    }

    void aClockJumpForwardIsLoggedAndTheRowsJumpedOverAreGivenUpNotFiredLate()
    {
        Rig rig;
        setUp(rig, {file("One"), timedFile("News", Hard, noon), file("Three"),
                    timedFile("Late news", Hard, noon.addSecs(7200))});
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        sequencer.checkTimed();
        pass(30000);
        jump(3600000);
        sequencer.checkTimed();
        QCOMPARE(decks.calls, QStringList{"take 0"});
        QCOMPARE(decks.logs, (QStringList{"Timed: the clock jumped forward by 1:00:00",
                                          "Timed: hard 12:00:00 missed by 0:59:31, skipped: A - News"}));
        // The one still ahead (14:00, now 12:59:31) is not lost: the timer is set from the new time.
        const int left = sequencer.msUntilTimedTimer();
        QVERIFY2(qAbs(left - (3629000 - 150)) < 500, qPrintable(QString::number(left)));
        pass(3629000 - 151);
        sequencer.checkTimed();
        QCOMPARE(decks.calls, QStringList{"take 0"});
        pass(1);
        sequencer.checkTimed();
        QCOMPARE(decks.calls, (QStringList{"take 0", "cut 3"}));
    }

    void aClockJumpBackFiresNoRowTwiceAndLosesNone()
    {
        Rig rig;
        setUp(rig, {file("One"), timedFile("News", Hard, noon), file("Three"),
                    timedFile("Half", Hard, noon.addSecs(1800))});
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        pass(60000);
        sequencer.checkTimed();
        QCOMPARE(decks.calls, (QStringList{"take 0", "cut 1"}));
        pass(60000);
        jump(-3600000);
        sequencer.checkTimed();
        QVERIFY(decks.logs.contains("Timed: the clock jumped back by 1:00:00"));
        // 12:00 comes round again: the news has fired and does not fire again.
        pass(3540000);
        sequencer.checkTimed();
        QCOMPARE(decks.calls, (QStringList{"take 0", "cut 1"}));
        // 12:30 still comes, once.
        pass(1800000);
        sequencer.checkTimed();
        pass(1000);
        sequencer.checkTimed();
        QCOMPARE(decks.calls, (QStringList{"take 0", "cut 1", "cut 3"}));
        QCOMPARE(decks.logs.filter("Timed: hard").size(), 2);
    }

    void aTimedRowWhoseFileIsMissingIsSkippedAndTheListGoesOn()
    {
        Rig rig;
        Track gone = timedFile("Gone", Hard, noon);
        gone.filePath = QDir(dir.path()).filePath(QStringLiteral("gone-missing.wav"));
        setUp(rig, {file("One"), file("Two"), gone, file("Four")});
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        pass(60000);
        sequencer.checkTimed();
        QTRY_COMPARE(decks.taken, 3);
        QCOMPARE(decks.calls, (QStringList{"take 0", "cut 2", "take 3"}));
        QVERIFY(decks.logs.contains("Timed: hard 12:00:00 A - Gone"));
        QVERIFY(decks.logs.contains(SequencerLog::missingSkipped(gone.filePath)));
    }

    void aTimedStreamThatNeverAnswersIsSkippedAfterTheStreamLimit()
    {
        Rig rig;
        Track stream;
        stream.title = QStringLiteral("Network news");
        stream.filePath = QStringLiteral("http://127.0.0.1:9/news");
        stream.isStream = true;
        stream.timed = {Hard, noon, false};
        setUp(rig, {file("One"), stream, file("Three")});
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        pass(60000);
        sequencer.checkTimed();
        QCOMPARE(decks.calls, (QStringList{"take 0", "cut 1"}));
        decks.sounding = false; // it never answers
        pass(20000);
        sequencer.checkSilentRow();
        QCOMPARE(decks.calls, (QStringList{"take 0", "cut 1", "take 2"}));
        QVERIFY(decks.logs.contains("Stream did not answer within 20 s, skipped: http://127.0.0.1:9/news"));
    }

    void aTimedRowReachedInListOrderBeforeItsTimePlaysThenAndNeverFiresAgain()
    {
        Rig rig;
        setUp(rig, {file("One"), timedFile("News", Hard, noon), file("Three")});
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        sequencer.currentRowEnded(true);
        sequencer.currentRowEnded(true);
        QCOMPARE(decks.calls, (QStringList{"take 0", "take 1", "take 2"}));
        pass(60000);
        sequencer.checkTimed();
        QCOMPARE(decks.calls.size(), 3);
    }

    void afterThePresenterStopsNoTimedRowStartsTheAir()
    {
        Rig rig;
        setUp(rig, {file("One"), timedFile("News", Hard, noon)});
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        sequencer.presenterStopped();
        pass(60000);
        sequencer.checkTimed();
        QCOMPARE(decks.calls, QStringList{"take 0"});
        QCOMPARE(sequencer.msUntilTimedTimer(), -1);
        // Play again: the row now due fires.
        sequencer.resumeTimedWatch();
        sequencer.checkTimed();
        QCOMPARE(decks.calls, (QStringList{"take 0", "cut 1"}));
    }

    void theEndOfTheListLeavesTheWatchOnAndAHardRowStartsTheAirAgain()
    {
        Rig rig;
        setUp(rig, {timedFile("News", Hard, noon), file("One")});
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(1);
        sequencer.currentRowEnded(true);
        QCOMPARE(decks.calls, (QStringList{"take 1", "stop"}));
        pass(60000);
        sequencer.checkTimed();
        QCOMPARE(decks.calls, (QStringList{"take 1", "stop", "cut 0"}));
    }

    void aTimedRowAddedWhileTheListPlaysArmsTheTimer()
    {
        Rig rig;
        setUp(rig, {file("One"), file("Two")});
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        sequencer.checkTimed();
        QCOMPARE(sequencer.msUntilTimedTimer(), -1);
        playlist.insertTrack(1, timedFile("News", Hard, noon));
        QTRY_VERIFY(sequencer.msUntilTimedTimer() > 0);
        QVERIFY(qAbs(sequencer.msUntilTimedTimer() - (60000 - 150)) < 1000);
        // Removed again, the timer goes.
        playlist.removeTrack(1);
        QTRY_COMPARE(sequencer.msUntilTimedTimer(), -1);
    }
};

QTEST_MAIN(TestPlayoutSequencerTimed)
#include "tst_playoutsequencer_timed.moc"
