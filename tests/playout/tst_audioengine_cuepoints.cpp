#include "audioanalyser.h"
#include "audioengine.h"
#include "musiclibrary.h"
#include "playlistmodel.h"
#include "playouttestsupport.h"
#include "playouttracks.h"
#include "trackanalysis.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cmath>

using namespace playouttest;

// Cue points and loudness from the real analysis on real playback. Where a track starts is seen
// through the engine's own level measurement, which follows the player's position and so tells
// what part of the file is playing without the sound server's latency; how loud two tracks are is
// recorded from the null sink's monitor, since it must be what actually reached the sound server.
class TestAudioEngineCuePoints : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QString leading;  // 2 s of silence, then 3 s of 440 Hz
    QString trailing; // 2 s of 440 Hz, then 3 s of silence
    QString next;     // 2 s of 660 Hz
    QString loud;     // 440 Hz at 0.5
    QString quiet;    // 660 Hz at 0.125, 12 dB below

    // sox's tone with silence padded before and after (seconds).
    QString makePadded(const QString& name, int frequency, double seconds, double before, double after)
    {
        const QString path = dir.filePath(name);
        const bool ok =
            runTool(QStringLiteral("sox"),
                    {QStringLiteral("-n"), QStringLiteral("-r"), QString::number(recordRate),
                     QStringLiteral("-c"), QStringLiteral("2"), QStringLiteral("-b"), QStringLiteral("16"),
                     path, QStringLiteral("synth"), QString::number(seconds), QStringLiteral("sine"),
                     QString::number(frequency), QStringLiteral("vol"), QStringLiteral("0.5"),
                     QStringLiteral("pad"), QString::number(before), QString::number(after)});
        return ok ? path : QString();
    }

    // Runs the analyser on the file and stores its result, as the analysis tools do.
    static TrackAnalysis analyse(const QString& path)
    {
        const TrackAnalysis a = AudioAnalyser::analyseFile(path, -18.0);
        if (a.isValid())
            TrackAnalysis::save({a});
        return a;
    }

    // Milliseconds from the start of the track until the engine measures the tone.
    qint64 msUntilHeard(bool useCuePoints)
    {
        setSetting(QStringLiteral("playback/useCuePoints"), useCuePoints);
        PlaylistModel playlist;
        playlist.appendTrack(fileTrack(QStringLiteral("L"), QStringLiteral("Leading"), leading));
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        QElapsedTimer sinceStart;
        qint64 heardAt = -1;
        connect(&engine, &AudioEngine::trackStarted, this, [&] { sinceStart.start(); });
        connect(&engine, &AudioEngine::levels, this, [&](double left, double) {
            if (heardAt < 0 && sinceStart.isValid() && left > 0.05)
                heardAt = sinceStart.elapsed();
        });
        engine.playRow(0);
        const bool heard = QTest::qWaitFor([&] { return heardAt >= 0; }, 15000);
        engine.stop();
        return heard ? heardAt : -1;
    }

    // Median of the tone's amplitude over the windows where it clearly sounds.
    static double medianLevel(const std::vector<double>& track)
    {
        std::vector<double> on;
        for (double v : track)
            if (v > 0.01)
                on.push_back(v);
        if (on.size() < 5)
            return 0.0;
        std::sort(on.begin(), on.end());
        return on[on.size() / 2];
    }

    // The loud and the quiet file one after the other; their recorded levels in dB apart.
    double recordedDifferenceDb(bool normalize)
    {
        setSetting(QStringLiteral("playback/normalizeLoudness"), normalize);
        PlaylistModel playlist;
        appendRows(playlist, {fileTrack(QStringLiteral("L"), QStringLiteral("Loud"), loud),
                              fileTrack(QStringLiteral("Q"), QStringLiteral("Quiet"), quiet)});
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        QSignalSpy ended(&engine, &AudioEngine::trackEnded);
        SinkRecorder recorder(dir.path());
        if (!recorder.start())
            return 100.0;
        engine.playRow(0);
        if (!QTest::qWaitFor([&] { return ended.count() >= 2; }, 20000))
            return 100.0;
        recorder.stop();
        const std::vector<float> samples = recorder.samples();
        const double a = medianLevel(toneTrack(samples, 440));
        const double b = medianLevel(toneTrack(samples, 660));
        if (a <= 0.0 || b <= 0.0)
            return 100.0;
        return 20.0 * std::log10(a / b);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine_cuepoints"));
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        removeLibraryStore();
        QVERIFY(MusicLibrary::initialize());
        leading = makePadded(QStringLiteral("leading.wav"), 440, 3, 2, 0);
        trailing = makePadded(QStringLiteral("trailing.wav"), 440, 2, 0, 3);
        next = makeTone(dir.path(), QStringLiteral("next.wav"), 660, 2);
        loud = makeTone(dir.path(), QStringLiteral("loud.wav"), 440, 3, 0.5);
        quiet = makeTone(dir.path(), QStringLiteral("quiet.wav"), 660, 3, 0.125);
        QVERIFY(!leading.isEmpty() && !trailing.isEmpty() && !next.isEmpty() && !loud.isEmpty() &&
                !quiet.isEmpty());
        const TrackAnalysis a = analyse(leading);
        QVERIFY2(a.isValid(), qPrintable(a.error));
        QVERIFY2(a.cueInMs > 1800 && a.cueInMs < 2200, qPrintable(QString::number(a.cueInMs)));
        const TrackAnalysis b = analyse(trailing);
        QVERIFY2(b.isValid(), qPrintable(b.error));
        QVERIFY2(b.cueOutMs > 1800 && b.cueOutMs < 2300, qPrintable(QString::number(b.cueOutMs)));
        QVERIFY(analyse(loud).isValid());
        QVERIFY(analyse(quiet).isValid());
    }

    void init()
    {
        useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine_cuepoints"));
        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
    }

    void leadingSilenceIsSkippedWithCuePointsOn()
    {
        const qint64 on = msUntilHeard(true);
        qInfo("tone measured %lld ms after the start with cue points", on);
        QVERIFY2(on >= 0 && on <= 300, qPrintable(QString::number(on)));
        // The same file without cue points: its silence is played first.
        const qint64 off = msUntilHeard(false);
        qInfo("tone measured %lld ms after the start without cue points", off);
        QVERIFY2(off >= 1500, qPrintable(QString::number(off)));
    }

    void aTrackWithTrailingSilenceHandsOverAtItsCueOut()
    {
        setSetting(QStringLiteral("playback/useCuePoints"), true);
        PlaylistModel playlist;
        appendRows(playlist, {fileTrack(QStringLiteral("T"), QStringLiteral("Trailing"), trailing),
                              fileTrack(QStringLiteral("N"), QStringLiteral("Next"), next)});
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        QSignalSpy started(&engine, &AudioEngine::trackStarted);
        QSignalSpy ended(&engine, &AudioEngine::trackEnded);
        QElapsedTimer clock;
        qint64 secondStartedAt = -1;
        connect(&engine, &AudioEngine::trackStarted, this, [&](int row) {
            if (row == 0)
                clock.start();
            else if (row == 1)
                secondStartedAt = clock.elapsed();
        });
        engine.playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(secondStartedAt >= 0, 15000);
        QCOMPARE(ended.first().at(0).toInt(), 0);
        QCOMPARE(qvariant_cast<TrackEndReason>(ended.first().at(2)), TrackEndReason::End);
        const qint64 played = ended.first().at(3).toLongLong();
        // 2 s of tone; the 3 s of silence after it are not played.
        QVERIFY2(played >= 1600 && played <= 2700, qPrintable(QString::number(played)));
        QVERIFY2(secondStartedAt <= 3200, qPrintable(QString::number(secondStartedAt)));
        QTRY_VERIFY_WITH_TIMEOUT(ended.count() == 2, 15000);
    }

    void normalisedTracksTwelveDecibelsApartPlayAlike()
    {
        const double normalised = recordedDifferenceDb(true);
        qInfo("recorded difference normalised: %.2f dB", normalised);
        QVERIFY2(std::fabs(normalised) <= 1.0, qPrintable(QString::number(normalised)));
        // Without normalisation the recording shows them 12 dB apart.
        const double plain = recordedDifferenceDb(false);
        qInfo("recorded difference without normalisation: %.2f dB", plain);
        QVERIFY2(plain > 10.0 && plain < 14.0, qPrintable(QString::number(plain)));
    }

    void bothSettingsAreOffByDefault()
    {
        AudioEngine engine;
        QVERIFY(!engine.useCuePoints());
        QVERIFY(!engine.normalizeLoudness());
        PlaylistModel playlist;
        playlist.appendTrack(fileTrack(QStringLiteral("L"), QStringLiteral("Loud"), loud));
        engine.setPlaylist(&playlist);
        engine.playRow(0);
        // Analysed and stored, yet neither read nor applied.
        QVERIFY(!engine.currentAnalysis().isValid());
        QCOMPARE(engine.currentPlan().gain, 1.0);
        QCOMPARE(engine.currentPlan().startMs, qint64(0));
        engine.stop();
    }
};

QTEST_MAIN(TestAudioEngineCuePoints)
#include "tst_audioengine_cuepoints.moc"
