#include "audioengine.h"
#include "musiclibrary.h"
#include "playlistmodel.h"
#include "playouttestsupport.h"
#include "playouttracks.h"
#include "trackparams.h"

#include <QSignalSpy>
#include <QSqlDatabase>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

using namespace playouttest;

// Mixes heard on the null sink: a crossfade where both tones sound together, a hard cut, a mix
// triggered by a quiet passage, and mix points moved by track parameters and row overrides.
class TestAudioEngineMixing : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QStringList logs;
    QList<qint64> mixPositions; // position of the outgoing deck when each new row started

    void watch(AudioEngine& engine)
    {
        collectLog(engine, this, logs);
        mixPositions.clear();
        // currentRowChanged comes before the deck switch: position() is still the outgoing track's.
        connect(&engine, &AudioEngine::currentRowChanged, this,
                [this, &engine](int) { mixPositions << engine.position(); });
    }

    // The engine plays from the playlist and its log is watched.
    void attach(AudioEngine& engine, PlaylistModel& playlist)
    {
        engine.setPlaylist(&playlist);
        watch(engine);
    }

    // Artist A's track, then artist B's.
    static void aThenB(PlaylistModel& playlist, const QString& a, const QString& aTitle, const QString& b,
                       const QString& bTitle)
    {
        appendRows(playlist,
                   {fileTrack(QStringLiteral("A"), aTitle, a), fileTrack(QStringLiteral("B"), bTitle, b)});
    }

    // Ten seconds of 440 Hz whose stored mix point is 8 s, and one second of 880 Hz.
    void tenSecondsMixedAtEight(QString& a, QString& b)
    {
        a = makeTone(dir.path(), QStringLiteral("ma.wav"), 440, 10);
        b = makeTone(dir.path(), QStringLiteral("mb.wav"), 880, 1);
        TrackParams params;
        params.mix = 8000;
        TrackParams::save(a, params);
    }

    static void shortMixSettings()
    {
        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
        setSetting(QStringLiteral("playback/crossfadeEnabled"), true);
        setSetting(QStringLiteral("playback/minCrossfadeMs"), 1000);
        setSetting(QStringLiteral("playback/mixPointMs"), 2000);
        setSetting(QStringLiteral("playback/fadeInMs"), 1500);
        setSetting(QStringLiteral("playback/fadeOutMs"), 1500);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine_mixing"));
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        removeLibraryStore(); // a fresh store for the track parameters
        QVERIFY(MusicLibrary::initialize());
    }

    void init()
    {
        useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine_mixing"));
        shortMixSettings();
    }

    void crossfadeLetsBothTonesSoundTogetherWhileOneFadesOutAndTheOtherIn()
    {
        const QString a = makeTone(dir.path(), QStringLiteral("xa.wav"), 440, 6);
        const QString b = makeTone(dir.path(), QStringLiteral("xb.wav"), 880, 4);
        QVERIFY(!a.isEmpty() && !b.isEmpty());
        PlaylistModel playlist;
        aThenB(playlist, a, QStringLiteral("Low"), b, QStringLiteral("High"));
        // The first track starts without a fade-in so that its full level is clear in the
        // recording; the second one fades in over 1500 ms.
        setSetting(QStringLiteral("playback/fadeInMs"), 0);
        AudioEngine engine;
        attach(engine, playlist);
        SinkRecorder recorder(dir.path());
        QVERIFY(recorder.start());
        engine.playRow(0);
        setSetting(QStringLiteral("playback/fadeInMs"), 1500);
        engine.reloadSettings();
        QTRY_VERIFY_WITH_TIMEOUT(logs.contains(QStringLiteral("Stop")), 30000);
        QTest::qWait(300);
        recorder.stop();
        // Mixed, not ended: the first track never reported its end.
        QVERIFY(!logs.contains(QStringLiteral("End of track: A - Low")));
        QCOMPARE(mixPositions.size(), 2);
        QVERIFY2(mixPositions.at(1) >= 3900 && mixPositions.at(1) <= 4600,
                 qPrintable(QString::number(mixPositions.at(1))));

        const std::vector<float> samples = recorder.samples();
        const std::vector<double> low = toneTrack(samples, 440);
        const std::vector<double> high = toneTrack(samples, 880);
        const double plateau = *std::max_element(low.begin(), low.end());
        QVERIFY2(plateau > 0.2, qPrintable(QString::number(plateau)));
        const int both = windowsBothAbove(low, high, 0.02);
        QVERIFY2(both >= 10, qPrintable(QString::number(both))); // at least half a second together
        const int highStart = firstAbove(high, 0.02);
        const int lowEnd = lastAbove(low, 0.02);
        qInfo("mix at %lld ms; overlap %d windows of 50 ms; outgoing %.3f -> %.3f, incoming %.3f -> %.3f",
              mixPositions.at(1), both, low[size_t(highStart)], low[size_t(lowEnd)], high[size_t(highStart)],
              high[size_t(lowEnd)]);
        QVERIFY(highStart > 0 && lowEnd > highStart);
        // The outgoing tone gets quieter across the overlap, the incoming one louder.
        QVERIFY(low[size_t(highStart)] > low[size_t(lowEnd)] * 2);
        QVERIFY(high[size_t(highStart)] * 2 < high[size_t(lowEnd)]);
        QVERIFY(low[size_t(lowEnd)] < plateau * 0.5);
    }

    void withoutCrossfadeTheNextTrackFollowsWithAHardCut()
    {
        setSetting(QStringLiteral("playback/crossfadeEnabled"), false);
        const QString a = makeTone(dir.path(), QStringLiteral("ca.wav"), 440, 2.5);
        const QString b = makeTone(dir.path(), QStringLiteral("cb.wav"), 880, 2);
        PlaylistModel playlist;
        aThenB(playlist, a, QStringLiteral("Low"), b, QStringLiteral("High"));
        AudioEngine engine;
        attach(engine, playlist);
        SinkRecorder recorder(dir.path());
        QVERIFY(recorder.start());
        engine.playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(logs.contains(QStringLiteral("Stop")), 30000);
        QTest::qWait(300);
        recorder.stop();
        QVERIFY(logs.contains(QStringLiteral("End of track: A - Low")));
        const std::vector<float> samples = recorder.samples();
        const std::vector<double> low = toneTrack(samples, 440);
        const std::vector<double> high = toneTrack(samples, 880);
        QVERIFY(firstAbove(low, 0.05) >= 0);
        QVERIFY(firstAbove(high, 0.05) >= 0);
        QVERIFY(firstAbove(high, 0.05) >= lastAbove(low, 0.05));
        qInfo("hard cut: 440 Hz last heard in window %d, 880 Hz first in window %d", lastAbove(low, 0.05),
              firstAbove(high, 0.05));
        QVERIFY(windowsBothAbove(low, high, 0.05) <= 1);
        // Both at full level: no fade-in on the second track.
        QVERIFY(high[size_t(firstAbove(high, 0.05) + 1)] > 0.25);
    }

    void quietPassageBelowTheThresholdStartsTheNextRowEarly()
    {
        setSetting(QStringLiteral("playback/triggerMixEnabled"), true);
        setSetting(QStringLiteral("playback/triggerMixDb"), -14.0);
        setSetting(QStringLiteral("playback/mixPointMs"), 500);
        setSetting(QStringLiteral("playback/fadeInMs"), 0);
        setSetting(QStringLiteral("playback/fadeOutMs"), 500);
        // Loud (about -8 dB after the master volume) for 3 s, then -28 dB for 5 s.
        const QString a = makeLoudThenQuiet(dir.path(), QStringLiteral("la.wav"), 440, 3, 5, 0.5, 0.05);
        const QString b = makeTone(dir.path(), QStringLiteral("lb.wav"), 880, 1.5);
        QVERIFY(!a.isEmpty() && !b.isEmpty());
        PlaylistModel playlist;
        aThenB(playlist, a, QStringLiteral("Fading"), b, QStringLiteral("Next"));
        AudioEngine engine;
        attach(engine, playlist);
        engine.playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(logs.contains(QStringLiteral("B - Next")), 20000);
        QCOMPARE(mixPositions.size(), 2);
        const qint64 at = mixPositions.at(1);
        QVERIFY2(at >= 2900 && at <= 5000, qPrintable(QString::number(at))); // quiet from 3000, end at 8000
        QVERIFY(!logs.contains(QStringLiteral("End of track: A - Fading")));
        engine.stop();
    }

    void trackMixOfEightSecondsStartsTheNextRowEightSecondsBeforeTheEnd()
    {
        QString a;
        QString b;
        tenSecondsMixedAtEight(a, b);
        QCOMPARE(TrackParams::load(a).mix, 8000);
        PlaylistModel playlist;
        aThenB(playlist, a, QStringLiteral("Ten"), b, QStringLiteral("One"));
        AudioEngine engine;
        attach(engine, playlist);
        engine.playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(logs.contains(QStringLiteral("B - One")), 20000);
        QVERIFY2(mixPositions.at(1) >= 1900 && mixPositions.at(1) <= 2600,
                 qPrintable(QString::number(mixPositions.at(1))));
        engine.stop();
    }

    void rowOverrideOfThreeSecondsWinsOverTheTrackMix()
    {
        QString a;
        QString b;
        tenSecondsMixedAtEight(a, b);
        PlaylistModel playlist;
        aThenB(playlist, a, QStringLiteral("Ten"), b, QStringLiteral("One"));
        playlist.setRowMixOverrides(0, {PlaylistModel::MixOverride(3000, -1)});
        AudioEngine engine;
        attach(engine, playlist);
        engine.playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(logs.contains(QStringLiteral("B - One")), 20000);
        QVERIFY2(mixPositions.at(1) >= 6900 && mixPositions.at(1) <= 7600,
                 qPrintable(QString::number(mixPositions.at(1))));
        engine.stop();
        TrackParams::remove(a);
    }

    void fortySecondTrackIsNeverMixedWithTheDefaultMinimumAndPlaysToItsEnd()
    {
        QSettings().remove(QStringLiteral("playback/minCrossfadeMs")); // default 45000
        QSettings().remove(QStringLiteral("playback/mixPointMs"));     // default 2500
        const QString a = makeTone(dir.path(), QStringLiteral("forty.wav"), 440, 40);
        const QString b = makeTone(dir.path(), QStringLiteral("fb.wav"), 880, 1);
        QVERIFY(!a.isEmpty() && !b.isEmpty());
        PlaylistModel playlist;
        aThenB(playlist, a, QStringLiteral("Forty"), b, QStringLiteral("Next"));
        AudioEngine engine;
        QVERIFY(engine.crossfadeEnabled());
        QCOMPARE(engine.minCrossfadeMs(), 45000);
        attach(engine, playlist);
        engine.playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(engine.position() >= 300, 10000);
        // The last seconds are what matters: the mix point (2.5 s before the end) passes unused.
        engine.setPosition(35000);
        QTRY_VERIFY_WITH_TIMEOUT(logs.contains(QStringLiteral("B - Next")), 30000);
        const int ended = logs.indexOf(QStringLiteral("End of track: A - Forty"));
        QVERIFY2(ended >= 0, qPrintable(logs.join(QLatin1String(" | "))));
        QVERIFY(ended < logs.indexOf(QStringLiteral("B - Next")));
        QVERIFY2(mixPositions.at(1) >= 39000, qPrintable(QString::number(mixPositions.at(1))));
        engine.stop();
    }

    void stopRowAfterTheTrackIsNotMixedButReachedAtTheEnd()
    {
        const QString a = makeTone(dir.path(), QStringLiteral("sa.wav"), 440, 3);
        PlaylistModel playlist;
        appendRows(playlist, {fileTrack(QStringLiteral("A"), QStringLiteral("Before"), a),
                              commandTrack(QStringLiteral("STOP")),
                              fileTrack(QStringLiteral("B"), QStringLiteral("After"), a)});
        AudioEngine engine;
        attach(engine, playlist);
        engine.playRow(0);
        const QString stopLine = stopCommandLine();
        QTRY_VERIFY_WITH_TIMEOUT(logs.contains(stopLine), 20000);
        QVERIFY(logs.indexOf(QStringLiteral("End of track: A - Before")) >= 0);
        QVERIFY(logs.indexOf(QStringLiteral("End of track: A - Before")) < logs.indexOf(stopLine));
        QVERIFY(mixPositions.at(1) >= 2800);
        QVERIFY(!logs.contains(QStringLiteral("B - After")));
    }

    void manualPlayRowWhilePlayingCrossfadesToTheOtherDeck()
    {
        const QString a = makeTone(dir.path(), QStringLiteral("pa.wav"), 440, 6);
        const QString b = makeTone(dir.path(), QStringLiteral("pb.wav"), 880, 6);
        PlaylistModel playlist;
        aThenB(playlist, a, QStringLiteral("Low"), b, QStringLiteral("High"));
        AudioEngine engine;
        attach(engine, playlist);
        engine.playRow(0);
        const int first = engine.currentDeck();
        QTRY_VERIFY_WITH_TIMEOUT(engine.position() > 500, 10000);
        engine.playRow(1);
        QCOMPARE(engine.currentDeck(), 1 - first);
        QVERIFY(engine.deckFading(first));
        QTRY_VERIFY_WITH_TIMEOUT(engine.deckState(first) == QMediaPlayer::StoppedState, 10000);
        QCOMPARE(engine.deckGain(first), 0.0);
        QTRY_COMPARE_WITH_TIMEOUT(engine.deckGain(1 - first), 1.0, 10000);
        QVERIFY(engine.isPlaying());
        engine.stop();
    }
};

QTEST_MAIN(TestAudioEngineMixing)
#include "tst_audioengine_mixing.moc"
