#include "playlistmodel.h"
#include "playoutlog.h"
#include "playoutsequencer.h"
#include "recordingdecks.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

// Decks that only write down what the sequencer asked of them; a taken row does not sound.
using FakeDecks = RecordingDecks;

// A list under a sequencer whose decks are fake and whose clock reads `now` (milliseconds).
struct SequencerRig {
    SequencerRig(const QList<Track>& rows, const qint64* now, bool skipUnplayableRows) : sequencer(&decks)
    {
        playlist.appendTracks(rows);
        sequencer.setPlaylist(&playlist);
        sequencer.setClock([now] { return *now; });
        sequencer.setSilentLimits(10000, 20000);
        sequencer.setSkipUnplayableRows(skipUnplayableRows);
    }

    PlaylistModel playlist;
    FakeDecks decks;
    PlayoutSequencer sequencer;
};

// The sequencer with fake decks and a fake clock: which row plays next, and when a row is skipped.
class TestPlayoutSequencer : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    qint64 now = 0;

    QString existing(const QString& name)
    {
        const QString path = QDir(dir.path()).filePath(name + QStringLiteral(".wav"));
        QFile file(path);
        if (!file.exists() && file.open(QIODevice::WriteOnly))
            file.write("RIFF");
        return path;
    }

    QString missing(const QString& name)
    {
        return QDir(dir.path()).filePath(name + QStringLiteral("-gone.wav"));
    }

    static Track file(const QString& title, const QString& path)
    {
        Track track;
        track.artist = QStringLiteral("A");
        track.title = title;
        track.filePath = path;
        track.durationMs = 180000;
        return track;
    }

    static Track command(const QString& word)
    {
        Track track;
        track.isCommand = true;
        track.command = word;
        return track;
    }

    static Track stream(const QString& url)
    {
        Track track;
        track.title = url;
        track.filePath = url;
        track.isStream = true;
        return track;
    }

private slots:
    void initTestCase() { QVERIFY(dir.isValid()); }
    void init() { now = 1000; }

    void aQueuedRowPlaysBeforeTheFollowingOne()
    {
        SequencerRig rig(
            {file("One", existing("one")), file("Two", existing("two")), file("Three", existing("three"))},
            &now, false);
        auto& [playlist, decks, sequencer] = rig;
        playlist.enqueue(2);
        sequencer.playRow(0);
        QCOMPARE(sequencer.nextRow(), 2);
        sequencer.next();
        QCOMPARE(decks.taken, 2);
        QVERIFY(decks.logs.contains(PlayoutLog::queue + QStringLiteral("A - Three")));
        QVERIFY(playlist.queue().isEmpty());
        QCOMPARE(sequencer.nextRow(), 3 < playlist.rowCount() ? 3 : -1);
        sequencer.next();
        QCOMPARE(decks.calls, (QStringList{"take 0", "take 2", "stop"}));
    }

    void aStopRowReachedByTheEndOfATrackHaltsAndNothingFollows()
    {
        SequencerRig rig({file("One", existing("one")), command("STOP"), file("Two", existing("two"))}, &now,
                         false);
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        sequencer.rowSounded(0);
        // A STOP row is reached by the track's end, never mixed into.
        QCOMPARE(sequencer.mixRow(), -1);
        sequencer.currentRowEnded(true);
        QCOMPARE(decks.calls, (QStringList{"take 0", "take 1", "halt"}));
        QCOMPARE(decks.logs, (QStringList{PlayoutLog::endOfTrack + "A - One", PlayoutLog::stopCommand}));
        // A command row has no end of its own: nothing moves until the presenter presses Next.
        sequencer.currentRowEnded(true);
        QCOMPARE(decks.calls.size(), 3);
        QCOMPARE(sequencer.currentRow(), 1);
        sequencer.next();
        QCOMPARE(decks.taken, 2);
    }

    void aCommandRowAtTheEndOfTheListIsLoggedAndTheListEnds()
    {
        SequencerRig rig({file("One", existing("one")), command("Jingle")}, &now, false);
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        QCOMPARE(sequencer.mixRow(), -1);
        sequencer.currentRowEnded(true);
        QCOMPARE(decks.taken, 1);
        QCOMPARE(decks.logs.last(), PlayoutLog::command + QStringLiteral("jingle"));
        QCOMPARE(sequencer.nextRow(), -1);
        sequencer.next();
        QCOMPARE(decks.calls, (QStringList{"take 0", "take 1", "stop"}));
    }

    void aPauseRowHoldsTheDeck()
    {
        SequencerRig rig({command("pause"), file("One", existing("one"))}, &now, false);
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        QCOMPARE(decks.calls, (QStringList{"take 0", "hold"}));
        QCOMPARE(decks.logs, QStringList{PlayoutLog::pauseCommand});
    }

    void aMissingFileAtTheStartIsSkipped()
    {
        SequencerRig rig({file("Gone", missing("start")), file("One", existing("one"))}, &now, true);
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        QCOMPARE(decks.logs, QStringList{SequencerLog::missingSkipped(missing("start"))});
        QTRY_COMPARE(decks.taken, 1);
        QCOMPARE(decks.calls, (QStringList{"take 0", "take 1"}));
        QVERIFY(sequencer.isWaitingForSound());
    }

    void aMissingFileInTheMiddleIsSkipped()
    {
        SequencerRig rig(
            {file("One", existing("one")), file("Gone", missing("middle")), file("Two", existing("two"))},
            &now, true);
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        sequencer.rowSounded(0);
        sequencer.currentRowEnded(true);
        QTRY_COMPARE(decks.taken, 2);
        QCOMPARE(decks.calls, (QStringList{"take 0", "take 1", "take 2"}));
        QCOMPARE(decks.logs.filter(SequencerLog::missingSkipped(missing("middle"))).size(), 1);
    }

    void aMissingFileAtTheEndEndsTheListWithoutCallingItUnplayable()
    {
        SequencerRig rig({file("One", existing("one")), file("Gone", missing("end"))}, &now, true);
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        sequencer.rowSounded(0);
        sequencer.currentRowEnded(true);
        QTRY_COMPARE(decks.calls.size(), 3);
        QCOMPARE(decks.calls, (QStringList{"take 0", "take 1", "stop"}));
        QVERIFY(!decks.logs.contains(SequencerLog::nothingPlayable()));
    }

    void twoMissingFilesInARowAreBothSkipped()
    {
        SequencerRig rig({file("One", existing("one")), file("Gone", missing("first")),
                          file("Gone too", missing("second")), file("Two", existing("two"))},
                         &now, true);
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        sequencer.rowSounded(0);
        sequencer.currentRowEnded(true);
        QTRY_COMPARE(decks.taken, 3);
        QCOMPARE(decks.calls, (QStringList{"take 0", "take 1", "take 2", "take 3"}));
        QCOMPARE(decks.logs.filter(QStringLiteral("File not found, skipped: ")).size(), 2);
    }

    void aListOfMissingFilesStopsAndSaysNothingIsPlayable()
    {
        SequencerRig rig({file("Gone", missing("a")), command("jingle"), file("Gone too", missing("b"))},
                         &now, true);
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        QCOMPARE(decks.calls, (QStringList{"take 0", "stop"}));
        QCOMPARE(decks.logs,
                 (QStringList{SequencerLog::missingSkipped(missing("a")), SequencerLog::nothingPlayable()}));
        QTest::qWait(0);
        QCOMPARE(decks.calls.size(), 2);
    }

    void withShuffleMissingFilesStopAfterMoreSkipsThanRows()
    {
        SequencerRig rig({file("Gone", missing("a")), file("Gone too", missing("b")), stream("http://x/")},
                         &now, true);
        auto& [playlist, decks, sequencer] = rig;
        sequencer.setShuffle(true);
        // The draw never lands on the stream: only the two missing rows are taken, in turn.
        sequencer.setRowDraw([&sequencer](int) { return sequencer.currentRow() == 0 ? 1 : 0; });
        sequencer.playRow(0);
        QTRY_VERIFY(decks.logs.contains(SequencerLog::nothingPlayable()));
        QCOMPARE(decks.calls, (QStringList{"take 0", "take 1", "take 0", "take 1", "stop"}));
    }

    void missingFilesAreNotSkippedUnlessAskedTo()
    {
        SequencerRig rig({file("Gone", missing("kept")), file("One", existing("one"))}, &now, false);
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        QTest::qWait(0);
        QCOMPARE(decks.calls, QStringList{"take 0"});
        QVERIFY(decks.logs.isEmpty());
    }

    void aFileThatNeverSoundsIsSkippedAfterItsLimit()
    {
        SequencerRig rig({file("Mute", existing("mute")), file("One", existing("one"))}, &now, true);
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        QVERIFY(sequencer.isWaitingForSound());
        now += 9999;
        sequencer.checkSilentRow();
        QCOMPARE(decks.calls, QStringList{"take 0"});
        QVERIFY(sequencer.isWaitingForSound());
        now += 1;
        sequencer.checkSilentRow();
        QCOMPARE(decks.calls, (QStringList{"take 0", "take 1"}));
        QCOMPARE(decks.logs, QStringList{SequencerLog::fileSkipped(existing("mute"), 10)});
        QCOMPARE(SequencerLog::fileSkipped(QStringLiteral("/a/b.wav"), 10),
                 QStringLiteral("File did not start playing within 10 s, skipped: /a/b.wav"));
    }

    void aStreamThatNeverAnswersIsSkippedAfterTheStreamLimit()
    {
        SequencerRig rig({stream("http://127.0.0.1:9/silent"), file("One", existing("one"))}, &now, true);
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        now += 10000;
        sequencer.checkSilentRow();
        QCOMPARE(decks.taken, 0);
        now += 10000;
        sequencer.checkSilentRow();
        QCOMPARE(decks.taken, 1);
        QCOMPARE(decks.logs, QStringList{QStringLiteral(
                                 "Stream did not answer within 20 s, skipped: http://127.0.0.1:9/silent")});
    }

    void aRowThatSoundsOrIsStoppedIsNotSkipped()
    {
        SequencerRig rig({file("One", existing("one")), file("Two", existing("two"))}, &now, true);
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        sequencer.rowSounded(0);
        QVERIFY(!sequencer.isWaitingForSound());
        now += 60000;
        sequencer.checkSilentRow();
        sequencer.playRow(1);
        sequencer.cancelSilentWait();
        now += 60000;
        sequencer.checkSilentRow();
        QCOMPARE(decks.calls, (QStringList{"take 0", "take 1"}));
        // Play again on the held row watches it again.
        sequencer.resumeSilentWait();
        QVERIFY(sequencer.isWaitingForSound());
        now += 10000;
        sequencer.checkSilentRow();
        QCOMPARE(decks.calls, (QStringList{"take 0", "take 1", "stop"}));
    }

    void withoutAnOutputASilentRowIsNotSkipped()
    {
        SequencerRig rig({file("One", existing("one")), file("Two", existing("two"))}, &now, true);
        auto& [playlist, decks, sequencer] = rig;
        decks.output = false;
        sequencer.playRow(0);
        now += 10000;
        sequencer.checkSilentRow();
        QCOMPARE(decks.calls, QStringList{"take 0"});
    }

    void shuffleDrawsAnotherRowThanTheCurrentOne()
    {
        SequencerRig rig(
            {file("One", existing("one")), file("Two", existing("two")), file("Three", existing("three"))},
            &now, false);
        auto& [playlist, decks, sequencer] = rig;
        sequencer.setShuffle(true);
        QList<int> draws{1, 1, 1, 0};
        sequencer.setRowDraw([&draws](int count) {
            Q_ASSERT(count == 3);
            return draws.takeFirst();
        });
        sequencer.playRow(1);
        QCOMPARE(sequencer.nextRow(), -1); // drawn at random, not known ahead
        sequencer.next();
        QCOMPARE(decks.taken, 0);
        QVERIFY(draws.isEmpty());
        // Queued rows go before the draw.
        playlist.enqueue(2);
        QCOMPARE(sequencer.nextRow(), 2);
        sequencer.next();
        QCOMPARE(decks.taken, 2);
    }

    void shuffleGivesUpAfterEightDrawsOfTheCurrentRow()
    {
        const NextChoice choice = chooseNextRow(1, 3, {}, true, [](int) { return 1; });
        QCOMPARE(choice.row, 1);
        int draws = 0;
        chooseNextRow(1, 3, {}, true, [&draws](int) {
            ++draws;
            return 1;
        });
        QCOMPARE(draws, 8);
    }

    void shuffleWithOneRowEndsTheList()
    {
        SequencerRig rig({file("One", existing("one"))}, &now, false);
        auto& [playlist, decks, sequencer] = rig;
        sequencer.setShuffle(true);
        sequencer.playRow(0);
        sequencer.currentRowEnded(true);
        QCOMPARE(decks.calls, (QStringList{"take 0", "stop"}));
    }

    void aRelayTakesTheAirAndGivesItBack()
    {
        SequencerRig rig({file("One", existing("one")), file("Two", existing("two"))}, &now, true);
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        decks.sounding = true;
        sequencer.rowSounded(0);
        QVERIFY(sequencer.relayStarting(true));
        decks.sounding = false; // the engine held the deck
        sequencer.relayLost();
        QCOMPARE(decks.calls, (QStringList{"take 0", "resume"}));
        // Given back by the presenter: the held row plays on.
        decks.sounding = false;
        sequencer.relayStopped(false);
        QCOMPARE(decks.calls.last(), QStringLiteral("resume"));
        // Set up to start the next row when the relay ends.
        QVERIFY(sequencer.relayStarting(true));
        decks.sounding = false;
        sequencer.relayStopped(true);
        QCOMPARE(decks.calls.last(), QStringLiteral("take 1"));
    }

    void aRelayOverSilenceResumesNothingAndSkipsNothingBehindIt()
    {
        SequencerRig rig({stream("http://127.0.0.1:9/silent"), file("Two", existing("two"))}, &now, true);
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(0);
        QVERIFY(!sequencer.relayStarting(false));
        QVERIFY(!sequencer.isWaitingForSound());
        now += 60000;
        sequencer.checkSilentRow();
        sequencer.relayLost();
        sequencer.relayStopped(false);
        QCOMPARE(decks.calls, QStringList{"take 0"});
    }

    void theCurrentRowFollowsItsIdentityWhenRowsMove()
    {
        SequencerRig rig(
            {file("One", existing("one")), file("Two", existing("two")), file("Three", existing("three"))},
            &now, false);
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(1);
        const qint64 id = sequencer.currentRowId();
        QCOMPARE(id, playlist.rowId(1));
        playlist.moveTrack(1, 2);
        QCOMPARE(sequencer.currentRow(), 2);
        QCOMPARE(sequencer.nextRow(), -1);
        playlist.insertTrack(0, file("New", existing("new")));
        QCOMPARE(sequencer.currentRow(), 3);
        playlist.shuffle();
        QCOMPARE(playlist.tracks().at(sequencer.currentRow()).title, QStringLiteral("Two"));
        QCOMPARE(sequencer.currentRowId(), id);
    }

    void aListOpenedAgainHoldsNoneOfTheOldRows()
    {
        const QList<Track> rows{file("One", existing("one")), file("Two", existing("two"))};
        SequencerRig rig(rows, &now, false);
        auto& [playlist, decks, sequencer] = rig;
        sequencer.playRow(1);
        const qint64 id = sequencer.currentRowId();
        playlist.clear();
        playlist.appendTracks(rows);
        // The same file in the same place is another row: the taken row is gone.
        QCOMPARE(playlist.rowOfId(id), -1);
        QCOMPARE(sequencer.currentRow(), 1); // the number as taken, as before identities
    }
};

QTEST_MAIN(TestPlayoutSequencer)
#include "tst_playoutsequencer.moc"
