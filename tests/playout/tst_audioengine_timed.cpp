#include "asrunrecorder.h"
#include "audioengine.h"
#include "playlistmodel.h"
#include "playouttestsupport.h"
#include "playouttracks.h"
#include "recordingclock.h"
#include "teststore.h"

#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace playouttest;

// Timed rows on the real engine and the null sink: a hard row cuts what plays at its time, a soft
// row waits for the mix point; what a listener hears is read from a recording of the monitor.
class TestAudioEngineTimed : public QObject
{
    Q_OBJECT

private:
    static constexpr int onAirHz = 440;
    static constexpr int skippedHz = 660;
    static constexpr int timedHz = 2000;
    // Heard amplitude is 0.5 x the default volume 0.8; anything above a quarter of it counts.
    static constexpr double heardThreshold = 0.1;
    // Generous for a slow, shared machine; the goal of the benchmark is 100 ms at worst.
    static constexpr int maxStartErrorMs = 250;

    QTemporaryDir dir;
    QString longTone;
    QString skippedTone;
    QString timedTone;
    QStringList logs;

    static QDateTime wholeSecondsFromNow(int seconds)
    {
        QDateTime at = QDateTime::currentDateTime().addSecs(seconds);
        at.setTime(QTime(at.time().hour(), at.time().minute(), at.time().second()));
        return at;
    }

    static Track timed(Track track, TimedStart::Mode mode, const QDateTime& at)
    {
        track.timed = {mode, at, false};
        return track;
    }

    // Lets the recording take in a little more after the last sound of interest.
    void recordOn(qint64 ms)
    {
        const QString path = dir.filePath(QStringLiteral("recording.raw"));
        const qint64 size = QFileInfo(path).size();
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(path).size() > size + recordRate * 4 * ms / 1000, 10000);
    }

    static int msBetween(qint64 fromFrame, qint64 toFrame) { return int((toFrame - fromFrame) * 1000 / recordRate); }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine_timed-%1").arg(QCoreApplication::applicationPid()));
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        longTone = makeTone(dir.path(), QStringLiteral("long.wav"), onAirHz, 20);
        skippedTone = makeTone(dir.path(), QStringLiteral("skipped.wav"), skippedHz, 4);
        timedTone = makeTone(dir.path(), QStringLiteral("timed.wav"), timedHz, 3);
        QVERIFY(!longTone.isEmpty() && !skippedTone.isEmpty() && !timedTone.isEmpty());
    }

    void init()
    {
        logs.clear();
        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
        setSetting(QStringLiteral("playback/hardTimeFadeMs"), 500);
        QVERIFY(ondarotest::freshStore());
    }

    void cleanupTestCase() { ondarotest::closeStore(); }

    void aHardRowCutsThePlayingTrackWithinItsFadeAndIsHeardAtItsTime()
    {
        setSetting(QStringLiteral("playback/crossfadeEnabled"), false);
        // Recording first: the times below are counted from when it runs.
        SinkRecorder recorder(dir.path());
        QVERIFY(recorder.start());
        RecordingClock clock(dir.filePath(QStringLiteral("recording.raw")));
        const QDateTime at = wholeSecondsFromNow(6);
        PlaylistModel playlist;
        appendRows(playlist, {fileTrack(QStringLiteral("Long"), QStringLiteral("Tone"), longTone),
                              fileTrack(QStringLiteral("Skip"), QStringLiteral("Me"), skippedTone),
                              timed(fileTrack(QStringLiteral("Top"), QStringLiteral("Of the hour"), timedTone),
                                    TimedStart::Mode::Hard, at)});
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        AsRunRecorder asRun(&engine);
        collectLog(engine, this, logs);
        QSignalSpy ended(&engine, &AudioEngine::trackEnded);
        QSignalSpy started(&engine, &AudioEngine::trackStarted);

        engine.playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(engine.isPlaying(), 10000);
        QTRY_VERIFY_WITH_TIMEOUT(started.size() == 2, 20000);
        QCOMPARE(started.at(1).at(0).toInt(), 2);
        PLAYOUT_CHECKED(recordOn(1500));
        const qint64 dueFrame = clock.frameAt(at.toMSecsSinceEpoch());
        engine.stop();
        recorder.stop();

        const QString time = at.time().toString(QStringLiteral("HH:mm:ss"));
        QVERIFY2(logs.contains(QStringLiteral("Timed: skipped for hard %1: Skip - Me").arg(time)), qPrintable(logs.join('\n')));
        QVERIFY2(logs.contains(QStringLiteral("Timed: hard %1 Top - Of the hour").arg(time)), qPrintable(logs.join('\n')));
        QVERIFY(!ended.isEmpty());
        QCOMPARE(ended.at(0).at(0).toInt(), 0);
        QCOMPARE(ended.at(0).at(2).value<TrackEndReason>(), TrackEndReason::Timed);

        // What was heard: the long tone up to the time, gone within the fade; the timed row from its
        // time; the row between never.
        QVERIFY(dueFrame > recordRate);
        const std::vector<float> samples = recorder.samples();
        const qint64 onset = toneOnsetFrame(samples, dueFrame - recordRate, timedHz, heardThreshold);
        QVERIFY2(onset >= 0, "the timed row was never heard");
        const int errorMs = msBetween(dueFrame, onset);
        const qint64 from = dueFrame - recordRate;
        const std::vector<float> around(samples.begin() + from, samples.end());
        const std::vector<double> before = toneTrack(around, onAirHz, 20);
        const int lastOnAir = lastAbove(before, heardThreshold);
        const int cutEndMs = lastOnAir * 20 + 20 - 1000; // relative to the time
        qInfo().noquote() << QStringLiteral("timed row heard %1 ms from its time; cut track last heard %2 ms after it")
                                 .arg(errorMs)
                                 .arg(cutEndMs);
        QVERIFY2(std::abs(errorMs) <= maxStartErrorMs, qPrintable(QString::number(errorMs)));
        QVERIFY2(before.size() > 25 && before[25] > heardThreshold, "the long tone was not playing before the time");
        QVERIFY2(cutEndMs <= 500 + maxStartErrorMs, qPrintable(QString::number(cutEndMs)));
        QCOMPARE(firstAbove(toneTrack(samples, skippedHz, 20), heardThreshold), -1);

        // The as-run: the cut track ends "timed", the skipped row never appears.
        QTRY_VERIFY_WITH_TIMEOUT(ondarotest::allAsRunRows().size() == 2 &&
                                     ondarotest::allAsRunRows().last().endedAt.isValid(),
                                 10000);
        const QList<AsRunEntry> rows = ondarotest::allAsRunRows();
        QCOMPARE(rows.at(0).filePath, longTone);
        QCOMPARE(rows.at(0).endedBy, QStringLiteral("timed"));
        QCOMPARE(rows.at(1).filePath, timedTone);
        QCOMPARE(rows.at(1).endedBy, QStringLiteral("stop"));
    }

    void aSoftRowWaitsForTheMixPointOfWhatPlays()
    {
        setSetting(QStringLiteral("playback/crossfadeEnabled"), true);
        setSetting(QStringLiteral("playback/mixPointMs"), 2500);
        setSetting(QStringLiteral("playback/minCrossfadeMs"), 1000);
        // Recording first: the times below are counted from when it runs.
        SinkRecorder recorder(dir.path());
        QVERIFY(recorder.start());
        RecordingClock clock(dir.filePath(QStringLiteral("recording.raw")));
        const QDateTime at = wholeSecondsFromNow(3);
        PlaylistModel playlist;
        const QString eight = makeTone(dir.path(), QStringLiteral("eight.wav"), onAirHz, 8);
        appendRows(playlist, {fileTrack(QStringLiteral("Eight"), QStringLiteral("Seconds"), eight),
                              fileTrack(QStringLiteral("Skip"), QStringLiteral("Me"), skippedTone),
                              timed(fileTrack(QStringLiteral("Ad"), QStringLiteral("Break"), timedTone),
                                    TimedStart::Mode::Soft, at)});
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        collectLog(engine, this, logs);
        QSignalSpy ended(&engine, &AudioEngine::trackEnded);
        QSignalSpy started(&engine, &AudioEngine::trackStarted);

        engine.playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(started.size() == 1, 10000);
        const qint64 firstStartWall = started.at(0).at(2).toDateTime().toMSecsSinceEpoch();
        QTRY_VERIFY_WITH_TIMEOUT(started.size() == 2, 20000);
        QCOMPARE(started.at(1).at(0).toInt(), 2);
        PLAYOUT_CHECKED(recordOn(1000));
        const qint64 dueFrame = clock.frameAt(at.toMSecsSinceEpoch());
        const qint64 firstFrame = clock.frameAt(firstStartWall);
        engine.stop();
        recorder.stop();

        const QString time = at.time().toString(QStringLiteral("HH:mm:ss"));
        QVERIFY2(logs.contains(QStringLiteral("Timed: soft %1 Ad - Break").arg(time)), qPrintable(logs.join('\n')));
        QVERIFY(logs.contains(QStringLiteral("Timed: skipped for soft %1: Skip - Me").arg(time)));
        QCOMPARE(ended.at(0).at(0).toInt(), 0);
        QCOMPARE(ended.at(0).at(2).value<TrackEndReason>(), TrackEndReason::Mix);

        // Not at its time: at the mix point, 2.5 s before the eight seconds end.
        QVERIFY(dueFrame > 0 && firstFrame > 0);
        const std::vector<float> samples = recorder.samples();
        const qint64 onset = toneOnsetFrame(samples, std::max<qint64>(firstFrame - recordRate, 0), timedHz,
                                            heardThreshold);
        QVERIFY2(onset >= 0, "the soft row was never heard");
        const int afterStartMs = msBetween(firstFrame, onset);
        qInfo().noquote() << QStringLiteral("soft row heard %1 ms after the track it follows began (mix point at 5500)")
                                 .arg(afterStartMs);
        QVERIFY2(msBetween(dueFrame, onset) > 2000, qPrintable(QString::number(msBetween(dueFrame, onset))));
        // It fades in over the fade-in (1.5 s) from the mix point: heard above the threshold within it.
        QVERIFY2(afterStartMs >= 5500 - 300 && afterStartMs <= 5500 + 1500 + 300,
                 qPrintable(QString::number(afterStartMs)));
        // What it follows was not cut: heard to its mix point.
        const std::vector<float> fromFirst(samples.begin() + firstFrame, samples.end());
        const int lastOnAirMs = lastAbove(toneTrack(fromFirst, onAirHz, 20), heardThreshold) * 20;
        QVERIFY2(lastOnAirMs >= 5500 - 300, qPrintable(QString::number(lastOnAirMs)));
        QCOMPARE(firstAbove(toneTrack(samples, skippedHz, 20), heardThreshold), -1);
    }
};

QTEST_MAIN(TestAudioEngineTimed)
#include "tst_audioengine_timed.moc"
