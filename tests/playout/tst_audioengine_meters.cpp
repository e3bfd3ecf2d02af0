#include "audioanalyser.h"
#include "audioengine.h"
#include "musiclibrary.h"
#include "playlistmodel.h"
#include "playoutlog.h"
#include "playouttestsupport.h"
#include "playouttracks.h"
#include "trackanalysis.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cmath>

using namespace playouttest;

// The meters show what is heard: the level after the volume the output really gets, and silence
// once nothing plays. A quiet track that loudness normalisation would raise beyond full output
// volume is raised only that far, and the engine says so.
class TestAudioEngineMeters : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QString tone;      // 440 Hz at 0.5, 5 s
    QString shortTone; // 440 Hz at 0.5, 1.5 s
    QString quiet;     // 660 Hz at 0.05, 4 s: about 11 dB below the -18 LUFS target
    QStringList logs;

    // Every levels report, as (left, right).
    struct LevelLog {
        QList<QPair<double, double>> reports;
        double loudest() const
        {
            double peak = 0.0;
            for (const auto& r : reports)
                peak = std::max({peak, r.first, r.second});
            return peak;
        }
        bool lastIsSilence() const
        {
            return !reports.isEmpty() && reports.last().first == 0.0 && reports.last().second == 0.0;
        }
    };

    void watchLevels(AudioEngine& engine, LevelLog& log)
    {
        connect(&engine, &AudioEngine::levels, this,
                [&log](double left, double right) { log.reports.append({left, right}); });
    }

    // Plays `playlist` from its first row: the meters show the sound, the log line `line` comes, and
    // then the meters fall to silence.
    void checkMetersFallToSilenceAt(PlaylistModel& playlist, const QString& line)
    {
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        collectLog(engine, this, logs);
        LevelLog levels;
        watchLevels(engine, levels);
        engine.playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(levels.loudest() > 0.2, 10000);
        QTRY_VERIFY_WITH_TIMEOUT(logs.contains(line), 10000);
        QTRY_VERIFY_WITH_TIMEOUT(levels.lastIsSilence(), 3000);
    }

    static double gainDb(double linear) { return 20.0 * std::log10(linear); }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine_meters"));
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        removeLibraryStore();
        QVERIFY(MusicLibrary::initialize());
        tone = makeTone(dir.path(), QStringLiteral("tone.wav"), 440, 5);
        shortTone = makeTone(dir.path(), QStringLiteral("short.wav"), 440, 1.5);
        quiet = makeTone(dir.path(), QStringLiteral("quiet.wav"), 660, 4, 0.05);
        QVERIFY(!tone.isEmpty() && !shortTone.isEmpty() && !quiet.isEmpty());
        const TrackAnalysis analysis = AudioAnalyser::analyseFile(quiet, -18.0);
        QVERIFY2(analysis.isValid(), qPrintable(analysis.error));
        QVERIFY(TrackAnalysis::save({analysis}));
    }

    void init()
    {
        useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine_meters"));
        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
    }

    void metersFallToSilenceOnStop()
    {
        PlaylistModel playlist;
        playlist.appendTrack(fileTrack(QStringLiteral("A"), QStringLiteral("Tone"), tone));
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        LevelLog levels;
        watchLevels(engine, levels);
        engine.playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(levels.loudest() > 0.2, 10000);
        engine.stop();
        QTRY_VERIFY_WITH_TIMEOUT(levels.lastIsSilence(), 3000);
        // And they stay there: nothing plays.
        const qsizetype count = levels.reports.size();
        QTest::qWait(500);
        QCOMPARE(levels.reports.size(), count);
    }

    void metersFallToSilenceAtAStopRow()
    {
        PlaylistModel playlist;
        appendRows(playlist, {fileTrack(QStringLiteral("A"), QStringLiteral("Short"), shortTone),
                              commandTrack(QStringLiteral("STOP")),
                              fileTrack(QStringLiteral("B"), QStringLiteral("Tone"), tone)});
        PLAYOUT_CHECKED(checkMetersFallToSilenceAt(playlist, PlayoutLog::stopCommand));
    }

    void metersFallToSilenceAtTheEndOfTheList()
    {
        PlaylistModel playlist;
        playlist.appendTrack(fileTrack(QStringLiteral("A"), QStringLiteral("Short"), shortTone));
        PLAYOUT_CHECKED(checkMetersFallToSilenceAt(playlist, PlayoutLog::stop));
    }

    void aQuietTrackIsRaisedOnlyToFullVolumeAndTheMetersShowWhatIsHeard()
    {
        setSetting(QStringLiteral("playback/normalizeLoudness"), true);
        PlaylistModel playlist;
        playlist.appendTrack(fileTrack(QStringLiteral("Q"), QStringLiteral("Quiet"), quiet));
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        collectLog(engine, this, logs);
        LevelLog levels;
        watchLevels(engine, levels);
        SinkRecorder recorder(dir.path());
        QVERIFY(recorder.start());
        engine.playRow(0);

        // Asked for about +11 dB; at the default volume 0.8 the output has +1.9 dB left.
        const double asked = chooseGain(TrackParams(), engine.currentAnalysis(), true, -18.0);
        QVERIFY2(gainDb(asked) > 8.0, qPrintable(QString::number(gainDb(asked))));
        QVERIFY(std::fabs(engine.currentPlan().gain - 1.0 / 0.8) < 1e-6);
        QCOMPARE(engine.deckOutputVolume(engine.currentDeck()), 1.0);
        const QString capped = PlayoutLog::gainCapped.arg(gainDb(1.0 / 0.8), 0, 'f', 1).arg(gainDb(asked), 0, 'f', 1);
        QVERIFY2(logs.contains(capped), qPrintable(logs.join(QLatin1String(" | "))));

        QTRY_VERIFY_WITH_TIMEOUT(logs.contains(PlayoutLog::stop), 15000);
        recorder.stop();
        const std::vector<double> heard = toneTrack(recorder.samples(), 660);
        const double heardPeak = *std::max_element(heard.begin(), heard.end());
        // What went out: the file's 0.05 at full output volume.
        QVERIFY2(std::fabs(gainDb(heardPeak / 0.05)) < 1.0, qPrintable(QString::number(heardPeak)));
        // The meter agrees with the recording, not with the gain that was asked for.
        const double metered = levels.loudest();
        QVERIFY2(std::fabs(gainDb(metered / heardPeak)) < 1.5,
                 qPrintable(QStringLiteral("metered %1, heard %2").arg(metered).arg(heardPeak)));
        QTRY_VERIFY_WITH_TIMEOUT(levels.lastIsSilence(), 3000);
    }

    void aRowQueuedBeforeTheSettingsChangedFollowsTheNewSettings()
    {
        setSetting(QStringLiteral("playback/normalizeLoudness"), false);
        PlaylistModel playlist;
        appendRows(playlist, {fileTrack(QStringLiteral("A"), QStringLiteral("Short"), shortTone),
                              fileTrack(QStringLiteral("B"), QStringLiteral("Tone"), tone),
                              fileTrack(QStringLiteral("Q"), QStringLiteral("Quiet"), quiet)});
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        collectLog(engine, this, logs);
        engine.playRow(0);
        QCOMPARE(engine.currentPlan().gain, 1.0);
        playlist.enqueue(2);
        // Switched on elsewhere (the settings dialog of another program) while the row waits.
        setSetting(QStringLiteral("playback/normalizeLoudness"), true);
        QTRY_COMPARE_WITH_TIMEOUT(engine.currentRow(), 2, 10000);
        QVERIFY(engine.normalizeLoudness());
        QVERIFY2(engine.currentPlan().gain > 1.2, qPrintable(QString::number(engine.currentPlan().gain)));
        engine.stop();
    }
};

QTEST_MAIN(TestAudioEngineMeters)
#include "tst_audioengine_meters.moc"
