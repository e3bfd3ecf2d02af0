#include "audioengine.h"
#include "musiclibrary.h"
#include "playlistmodel.h"
#include "playouttestsupport.h"
#include "playouttracks.h"
#include "trackparams.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace playouttest;

// The engine's typed events on real playback: when a track starts and how it ended (each reason
// once, paired with its start), how long it was heard, the next row, and the parameters read
// when a track starts.
class TestAudioEngineEvents : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QString shortA; // 440 Hz, 1.5 s
    QString shortB; // 660 Hz, 1.5 s
    QString longA;  // 440 Hz, 20 s
    QString longB;  // 660 Hz, 20 s
    QString mixA;   // 550 Hz, 4 s

    // One recorded event: "start" or a TrackEndReason text, with its row and played time.
    struct Event {
        QString what;
        int row = -1;
        QString title;
        qint64 playedMs = -1;
    };
    QList<Event> events;

    // Plays `playlist` on `engine` and records the engine's events from now on.
    void record(AudioEngine& engine, PlaylistModel& playlist)
    {
        engine.setPlaylist(&playlist);
        events.clear();
        connect(&engine, &AudioEngine::trackStarted, this,
                [this](int row, const Track& track, const QDateTime& at) {
                    QVERIFY(at.isValid());
                    events.append({QStringLiteral("start"), row, track.title, -1});
                });
        connect(&engine, &AudioEngine::trackEnded, this,
                [this](int row, const Track& track, TrackEndReason reason, qint64 playedMs) {
                    events.append({trackEndReasonText(reason), row, track.title, playedMs});
                });
    }

    QStringList sequence() const
    {
        QStringList out;
        for (const Event& e : events)
            out << e.what + QLatin1Char(':') + QString::number(e.row);
        return out;
    }

    int count(const QString& what) const
    {
        return int(
            std::count_if(events.begin(), events.end(), [&](const Event& e) { return e.what == what; }));
    }

    // Every start is followed by exactly one end of the same row before the next start of that
    // deck's track; with one deck sounding at a time, starts and ends alternate.
    void checkAlternating() const
    {
        for (int i = 0; i < events.size(); ++i) {
            const bool start = events.at(i).what == QLatin1String("start");
            QVERIFY2(start == (i % 2 == 0), qPrintable(sequence().join(QLatin1Char(' '))));
            if (!start)
                QCOMPARE(events.at(i).row, events.at(i - 1).row);
        }
    }

    // Crossfade on, with a short fade-in and no lower limit that a few seconds' tone would fall under.
    static void useCrossfade(int mixPointMs, int fadeOutMs)
    {
        setSetting(QStringLiteral("playback/crossfadeEnabled"), true);
        setSetting(QStringLiteral("playback/minCrossfadeMs"), 1000);
        setSetting(QStringLiteral("playback/mixPointMs"), mixPointMs);
        setSetting(QStringLiteral("playback/fadeInMs"), 200);
        setSetting(QStringLiteral("playback/fadeOutMs"), fadeOutMs);
    }

    // The 4 s tone to be mixed out of, then a long one to mix into.
    void appendMixThenLong(PlaylistModel& playlist) const
    {
        appendRows(playlist, {fileTrack(QStringLiteral("M"), QStringLiteral("Mix"), mixA),
                              fileTrack(QStringLiteral("B"), QStringLiteral("Long B"), longB)});
    }

    static void waitSounding(QSignalSpy& started, int n)
    {
        QTRY_VERIFY_WITH_TIMEOUT(started.count() >= n, 15000);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine_events"));
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        removeLibraryStore();
        QVERIFY(MusicLibrary::initialize());
        shortA = makeTone(dir.path(), QStringLiteral("short-a.wav"), 440, 1.5);
        shortB = makeTone(dir.path(), QStringLiteral("short-b.wav"), 660, 1.5);
        longA = makeTone(dir.path(), QStringLiteral("long-a.wav"), 440, 20);
        longB = makeTone(dir.path(), QStringLiteral("long-b.wav"), 660, 20);
        mixA = makeTone(dir.path(), QStringLiteral("mix-a.wav"), 550, 4);
        QVERIFY(!shortA.isEmpty() && !shortB.isEmpty() && !longA.isEmpty() && !longB.isEmpty() &&
                !mixA.isEmpty());
    }

    void init()
    {
        useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine_events"));
        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
        TrackParams::remove(mixA);
    }

    void tracksPlayedToTheirEndAreEachStartedAndEndedOnce()
    {
        PlaylistModel playlist;
        appendRows(playlist, {commandTrack(QStringLiteral("jingle")),
                              fileTrack(QStringLiteral("A"), QStringLiteral("One"), shortA),
                              fileTrack(QStringLiteral("B"), QStringLiteral("Two"), shortB)});
        AudioEngine engine;
        record(engine, playlist);
        // Row 0 is a command row: it never sounds, so only rows 1 and 2 are reported.
        engine.playRow(0);
        QVERIFY(events.isEmpty());
        engine.next();
        QTRY_VERIFY_WITH_TIMEOUT(count(QStringLiteral("end")) == 2, 30000);
        QCOMPARE(sequence(), (QStringList{QStringLiteral("start:1"), QStringLiteral("end:1"),
                                          QStringLiteral("start:2"), QStringLiteral("end:2")}));
        QCOMPARE(events.at(0).title, QStringLiteral("One"));
        QCOMPARE(events.at(3).title, QStringLiteral("Two"));
        for (const Event& e : std::as_const(events)) {
            if (e.what == QLatin1String("end"))
                QVERIFY2(e.playedMs > 1000 && e.playedMs < 3500, qPrintable(QString::number(e.playedMs)));
        }
    }

    void startingAnotherRowSkipsTheOneThatSounds()
    {
        PlaylistModel playlist;
        appendRows(playlist, {fileTrack(QStringLiteral("A"), QStringLiteral("Long A"), longA),
                              fileTrack(QStringLiteral("B"), QStringLiteral("Long B"), longB)});
        AudioEngine engine;
        record(engine, playlist);
        QSignalSpy started(&engine, &AudioEngine::trackStarted);
        engine.playRow(0);
        PLAYOUT_CHECKED(waitSounding(started, 1));
        engine.next();
        PLAYOUT_CHECKED(waitSounding(started, 2));
        engine.previous();
        PLAYOUT_CHECKED(waitSounding(started, 3));
        playlist.enqueue(1);
        engine.next(); // from the queue
        PLAYOUT_CHECKED(waitSounding(started, 4));
        engine.stop();
        QCOMPARE(sequence(),
                 (QStringList{QStringLiteral("start:0"), QStringLiteral("skip:0"), QStringLiteral("start:1"),
                              QStringLiteral("skip:1"), QStringLiteral("start:0"), QStringLiteral("skip:0"),
                              QStringLiteral("start:1"), QStringLiteral("stop:1")}));
        engine.stop(); // nothing sounds any more: no second end
        QCOMPARE(count(QStringLiteral("stop")), 1);
    }

    void playedTimeLeavesPausesOut()
    {
        PlaylistModel playlist;
        playlist.appendTrack(fileTrack(QStringLiteral("A"), QStringLiteral("Long A"), longA));
        AudioEngine engine;
        record(engine, playlist);
        QSignalSpy started(&engine, &AudioEngine::trackStarted);
        QElapsedTimer wall;
        wall.start();
        engine.playRow(0);
        PLAYOUT_CHECKED(waitSounding(started, 1));
        QTRY_VERIFY_WITH_TIMEOUT(engine.position() > 500, 10000);
        engine.pause();
        QTRY_VERIFY_WITH_TIMEOUT(!engine.isPlaying(), 5000);
        QTest::qWait(2000); // the pause being measured, not a wait for something to happen
        engine.togglePause();
        QTRY_VERIFY_WITH_TIMEOUT(engine.isPlaying(), 5000);
        const qint64 positionBeforeStop = engine.position();
        engine.stop();
        const qint64 total = wall.elapsed();
        QCOMPARE(count(QStringLiteral("stop")), 1);
        const qint64 played = events.last().playedMs;
        // Heard for about as long as the player's position advanced; the 2 s pause is not in it.
        QVERIFY2(played <= total - 1800, qPrintable(QStringLiteral("%1 of %2").arg(played).arg(total)));
        QVERIFY2(played >= positionBeforeStop - 400,
                 qPrintable(QStringLiteral("%1, position %2").arg(played).arg(positionBeforeStop)));
    }

    void aStopRowEndsTheTrackThatSoundsWithStop()
    {
        PlaylistModel playlist;
        appendRows(playlist, {fileTrack(QStringLiteral("A"), QStringLiteral("Long A"), longA),
                              commandTrack(QStringLiteral("STOP"))});
        AudioEngine engine;
        record(engine, playlist);
        QSignalSpy started(&engine, &AudioEngine::trackStarted);
        engine.playRow(0);
        PLAYOUT_CHECKED(waitSounding(started, 1));
        engine.playRow(1);
        QCOMPARE(sequence(), (QStringList{QStringLiteral("start:0"), QStringLiteral("stop:0")}));
    }

    void theAutomaticMixEndsTheOutgoingTrackWithMix()
    {
        useCrossfade(1500, 500);
        PlaylistModel playlist;
        appendMixThenLong(playlist);
        AudioEngine engine;
        record(engine, playlist);
        engine.playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(count(QStringLiteral("mix")) == 1, 20000);
        QTRY_VERIFY_WITH_TIMEOUT(count(QStringLiteral("start")) == 2, 10000);
        engine.stop();
        QCOMPARE(sequence(), (QStringList{QStringLiteral("start:0"), QStringLiteral("mix:0"),
                                          QStringLiteral("start:1"), QStringLiteral("stop:1")}));
        // Taken over 1.5 s before the end of 4 s: heard for about 2.5 s.
        const qint64 played = events.at(1).playedMs;
        QVERIFY2(played > 1800 && played < 3400, qPrintable(QString::number(played)));
    }

    void parametersAreReadWhenTheTrackStartsAndKeptWhileItPlays()
    {
        useCrossfade(500, 300);
        TrackParams params;
        params.mix = 3000; // the next track starts 3 s before the end of 4 s
        TrackParams::save(mixA, params);
        PlaylistModel playlist;
        appendMixThenLong(playlist);
        AudioEngine engine;
        record(engine, playlist);
        qint64 positionAtMix = -1;
        connect(&engine, &AudioEngine::trackEnded, this,
                [&](int, const Track&, TrackEndReason reason, qint64) {
                    if (reason == TrackEndReason::Mix)
                        positionAtMix = engine.position();
                });
        engine.playRow(0);
        QCOMPARE(engine.currentParams().mix, 3000);
        // Stored anew while the track plays: this track keeps what was read when it started.
        params.mix = 200;
        TrackParams::save(mixA, params);
        QCOMPARE(engine.currentParams().mix, 3000);
        QTRY_VERIFY_WITH_TIMEOUT(count(QStringLiteral("mix")) == 1, 20000);
        QVERIFY2(positionAtMix >= 500 && positionAtMix < 2000, qPrintable(QString::number(positionAtMix)));
        QCOMPARE(engine.currentRow(), 1);
        QCOMPARE(engine.currentParams().mix, -1); // row 1's own (none stored)
        engine.stop();
    }

    void nextRowIsTheFirstQueuedRowElseTheFollowingOne()
    {
        PlaylistModel playlist;
        appendRows(playlist, {commandTrack(QStringLiteral("a")), commandTrack(QStringLiteral("b")),
                              commandTrack(QStringLiteral("c")), commandTrack(QStringLiteral("d"))});
        AudioEngine engine;
        QCOMPARE(engine.nextRow(), -1); // no playlist
        engine.setPlaylist(&playlist);
        QCOMPARE(engine.nextRow(), 0); // nothing played yet: the first row
        engine.playRow(1);
        QCOMPARE(engine.nextRow(), 2);
        playlist.enqueue(3);
        playlist.enqueue(0);
        QCOMPARE(engine.nextRow(), 3);
        engine.next();
        QCOMPARE(engine.currentRow(), 3);
        QCOMPARE(engine.nextRow(), 0);
        engine.next();
        QCOMPARE(engine.nextRow(), 1);
        engine.playRow(3);
        QCOMPARE(engine.nextRow(), -1); // the last row
        engine.playRow(0);
        engine.setShuffle(true);
        QCOMPARE(engine.nextRow(), -1); // drawn at random
        playlist.enqueue(2);
        QCOMPARE(engine.nextRow(), 2); // the queue wins over shuffle
        QCOMPARE(engine.currentTrack().command, QStringLiteral("a"));
    }

    void aFileThatVanishedWhileQueuedIsLoggedAndNeverStarts()
    {
        const QString copy = dir.filePath(QStringLiteral("vanishing.wav"));
        QFile::remove(copy);
        QVERIFY(QFile::copy(shortB, copy));
        PlaylistModel playlist;
        appendRows(playlist, {fileTrack(QStringLiteral("A"), QStringLiteral("Long A"), longA),
                              fileTrack(QStringLiteral("V"), QStringLiteral("Vanished"), copy)});
        AudioEngine engine;
        record(engine, playlist);
        QStringList logs;
        collectLog(engine, this, logs);
        QSignalSpy started(&engine, &AudioEngine::trackStarted);
        engine.playRow(0);
        PLAYOUT_CHECKED(waitSounding(started, 1));
        playlist.enqueue(1);
        QVERIFY(QFile::remove(copy));
        engine.next();
        QVERIFY(logs.contains(QStringLiteral("File not found: ") + copy));
        QCOMPARE(engine.currentRow(), 1);
        // The track that sounded was skipped; the vanished one never starts and the row waits.
        QTRY_VERIFY_WITH_TIMEOUT(!engine.isPlaying(), 5000);
        QVERIFY(!started.wait(1500));
        QCOMPARE(sequence(), (QStringList{QStringLiteral("start:0"), QStringLiteral("skip:0")}));
        QCOMPARE(engine.currentRow(), 1);
    }

    void typedSignalsCrossAQueuedConnection()
    {
        PlaylistModel playlist;
        playlist.appendTrack(fileTrack(QStringLiteral("A"), QStringLiteral("One"), shortA));
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        QSignalSpy ended(&engine, &AudioEngine::trackEnded);
        QVERIFY(ended.isValid());
        QList<TrackEndReason> queued;
        connect(
            &engine, &AudioEngine::trackEnded, this,
            [&queued](int, const Track&, TrackEndReason reason, qint64) { queued << reason; },
            Qt::QueuedConnection);
        engine.playRow(0);
        QTRY_COMPARE_WITH_TIMEOUT(queued.size(), 1, 15000);
        QCOMPARE(queued.first(), TrackEndReason::End);
        QCOMPARE(ended.count(), 1);
        QCOMPARE(qvariant_cast<TrackEndReason>(ended.first().at(2)), TrackEndReason::End);
    }
};

QTEST_MAIN(TestAudioEngineEvents)
#include "tst_audioengine_events.moc"
