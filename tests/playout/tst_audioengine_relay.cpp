#include "audioengine.h"
#include "playlistmodel.h"
#include "playouttestsupport.h"
#include "playouttracks.h"
#include "streamserver.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

using namespace playouttest;

// The relay of a live stream served by a local test server: going live, losing the stream,
// reconnecting, stopping, a stalled and a silent server.
class TestAudioEngineRelay : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QByteArray liveMp3;
    QString toneA;
    QString toneB;
    QStringList logs;
    QList<qint64> logTimes;
    QElapsedTimer clock;

    void watch(AudioEngine& engine)
    {
        logs.clear();
        logTimes.clear();
        connect(&engine, &AudioEngine::logMessage, this, [this](const QString& text) {
            logs << text;
            logTimes << clock.elapsed();
        });
    }

    void playlistOf(PlaylistModel& playlist)
    {
        playlist.appendTrack(fileTrack(QStringLiteral("A"), QStringLiteral("Long"), toneA));
        playlist.appendTrack(fileTrack(QStringLiteral("B"), QStringLiteral("Long"), toneB));
    }

    // The two long tones in a playlist the engine plays from, with the engine's log watched.
    void attach(AudioEngine& engine, PlaylistModel& playlist)
    {
        playlistOf(playlist);
        engine.setPlaylist(&playlist);
        watch(engine);
    }

    static void playFirstRow(AudioEngine& engine)
    {
        engine.playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(engine.isPlaying(), 10000);
    }

    void goLive(AudioEngine& engine, const QString& url)
    {
        engine.startRelay(url);
        QTRY_VERIFY_WITH_TIMEOUT(logs.contains(QStringLiteral("Relay: live")), 15000);
    }

    // The first row on air, then the relay of the url live over it.
    void playThenGoLive(AudioEngine& engine, const QString& url)
    {
        PLAYOUT_CHECKED(playFirstRow(engine));
        goLive(engine, url);
    }

    // The server started, the engine attached, the first row on air and the relay live over it.
    void liveOverPlaylist(StreamServer& server, AudioEngine& engine, PlaylistModel& playlist)
    {
        PLAYOUT_CHECKED(serve(server, engine, playlist));
        playThenGoLive(engine, server.url());
    }

    // The server started and the engine attached.
    void serve(StreamServer& server, AudioEngine& engine, PlaylistModel& playlist)
    {
        QVERIFY(server.start());
        attach(engine, playlist);
    }

    // A port where nothing listens; empty when the probe server could not start.
    QString deadUrl()
    {
        StreamServer probe(liveMp3, 16000);
        if (!probe.start())
            return QString();
        const QString url = probe.url();
        probe.kill();
        return url;
    }

    static const QString& lostLine()
    {
        static const QString line = QStringLiteral("Relay: stream lost - back to playlist");
        return line;
    }

private slots:
    void initTestCase()
    {
        clock.start();
        QVERIFY(dir.isValid());
        useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine_relay"));
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        toneA = makeTone(dir.path(), QStringLiteral("a.wav"), 440, 40);
        toneB = makeTone(dir.path(), QStringLiteral("b.wav"), 660, 40);
        const QString wav = makeTone(dir.path(), QStringLiteral("live.wav"), 1000, 5);
        const QString mp3 = QDir(dir.path()).filePath(QStringLiteral("live.mp3"));
        QVERIFY(runTool(QStringLiteral("ffmpeg"),
                        {QStringLiteral("-y"), QStringLiteral("-loglevel"), QStringLiteral("error"),
                         QStringLiteral("-i"), wav, QStringLiteral("-b:a"), QStringLiteral("128k"), mp3}));
        QFile file(mp3);
        QVERIFY(file.open(QIODevice::ReadOnly));
        liveMp3 = file.readAll();
        QVERIFY(liveMp3.size() > 10000);
    }

    void init()
    {
        useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine_relay"));
        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
    }

    void startingARelayGoesLiveAndPausesThePlaylist()
    {
        StreamServer server(liveMp3, 16000);
        PlaylistModel playlist;
        AudioEngine engine;
        PLAYOUT_CHECKED(serve(server, engine, playlist));
        QSignalSpy relayState(&engine, &AudioEngine::relayStateChanged);
        QSignalSpy levels(&engine, &AudioEngine::levels);
        QSignalSpy buffers(&engine, &AudioEngine::audioBufferReady);
        PLAYOUT_CHECKED(playFirstRow(engine));
        engine.startRelay(QStringLiteral("  ") + server.url() + QStringLiteral(" "));
        QVERIFY(logs.contains(QStringLiteral("Relay: starting ") + server.url()));
        QVERIFY(engine.isRelaying());
        QCOMPARE(engine.relaySource(), server.url());
        QVERIFY(!engine.isPlaying()); // paused at once
        QTRY_VERIFY_WITH_TIMEOUT(logs.contains(QStringLiteral("Relay: live")), 15000);
        QVERIFY(engine.isRelayLive());
        QVERIFY(!relayState.isEmpty());
        QCOMPARE(relayState.last().at(0).toBool(), true);
        QCOMPARE(relayState.last().at(1).toString(), server.url());
        QCOMPARE(relayState.last().at(2).toBool(), true);
        QVERIFY(!engine.isPlaying());
        // The relay's own meter: the 1 kHz tone at 0.5 times the master volume 0.8.
        levels.clear();
        QTRY_VERIFY_WITH_TIMEOUT(levels.count() > 5 && buffers.count() > 0, 15000);
        const double left = levels.last().at(0).toDouble();
        QVERIFY2(left > 0.3 && left < 0.5, qPrintable(QString::number(left)));
        engine.stopRelay();
    }

    void emptyRelaySourceDoesNothing()
    {
        AudioEngine engine;
        watch(engine);
        engine.startRelay(QStringLiteral("   "));
        QVERIFY(!engine.isRelaying());
        QVERIFY(logs.isEmpty());
        engine.stopRelay(); // not active: nothing
        QVERIFY(logs.isEmpty());
    }

    void losingTheStreamResumesAPlaylistThatWasPlaying()
    {
        StreamServer server(liveMp3, 16000);
        PlaylistModel playlist;
        AudioEngine engine;
        PLAYOUT_CHECKED(serve(server, engine, playlist));
        QSignalSpy relayState(&engine, &AudioEngine::relayStateChanged);
        PLAYOUT_CHECKED(playThenGoLive(engine, server.url()));
        server.kill();
        QTRY_VERIFY_WITH_TIMEOUT(logs.contains(lostLine()), 15000);
        QTRY_VERIFY_WITH_TIMEOUT(engine.isPlaying(), 5000);
        QCOMPARE(engine.currentRow(), 0);
        QVERIFY(engine.isRelaying());
        QVERIFY(!engine.isRelayLive());
        QCOMPARE(relayState.last().at(0).toBool(), true);
        QCOMPARE(relayState.last().at(2).toBool(), false);
        engine.stopRelay();
        engine.stop();
    }

    void losingTheStreamDoesNotStartAPlaylistThatWasNotPlaying()
    {
        StreamServer server(liveMp3, 16000);
        PlaylistModel playlist;
        AudioEngine engine;
        PLAYOUT_CHECKED(serve(server, engine, playlist));
        PLAYOUT_CHECKED(playFirstRow(engine));
        engine.pause();
        QTRY_VERIFY_WITH_TIMEOUT(!engine.isPlaying(), 5000);
        PLAYOUT_CHECKED(goLive(engine, server.url()));
        server.kill();
        QTRY_VERIFY_WITH_TIMEOUT(logs.contains(lostLine()), 15000);
        QTest::qWait(1000);
        QVERIFY(!engine.isPlaying());
        engine.stopRelay();
        QTest::qWait(500);
        QVERIFY(!engine.isPlaying()); // nor does stopping the relay
    }

    void reconnectsEveryFiveSecondsUntilTheServerIsBack()
    {
        StreamServer server(liveMp3, 16000);
        PlaylistModel playlist;
        AudioEngine engine;
        PLAYOUT_CHECKED(liveOverPlaylist(server, engine, playlist));
        server.kill();
        QTRY_VERIFY_WITH_TIMEOUT(logs.count(QStringLiteral("Relay: reconnecting...")) >= 2, 20000);
        QList<qint64> times;
        for (int i = 0; i < logs.size(); ++i)
            if (logs.at(i) == QLatin1String("Relay: reconnecting..."))
                times << logTimes.at(i);
        const qint64 gap = times.at(1) - times.at(0);
        QVERIFY2(gap >= 4500 && gap <= 6500, qPrintable(QString::number(gap)));
        QVERIFY(engine.isPlaying()); // the playlist has the air meanwhile
        const int liveBefore = logs.count(QStringLiteral("Relay: live"));
        QVERIFY(server.start(server.port()));
        QTRY_VERIFY_WITH_TIMEOUT(logs.count(QStringLiteral("Relay: live")) > liveBefore, 20000);
        QTRY_VERIFY_WITH_TIMEOUT(!engine.isPlaying(), 5000); // paused again for the relay
        engine.stopRelay();
        engine.stop();
    }

    void stoppingTheRelayStopsTheReconnecting()
    {
        PlaylistModel playlist;
        AudioEngine engine;
        attach(engine, playlist);
        QSignalSpy relayState(&engine, &AudioEngine::relayStateChanged);
        const QString url = deadUrl();
        QVERIFY(!url.isEmpty());
        engine.startRelay(url);
        QTRY_VERIFY_WITH_TIMEOUT(logs.contains(QStringLiteral("Relay: reconnecting...")), 15000);
        QVERIFY(!logs.filter(QStringLiteral("Relay error: ")).isEmpty());
        engine.stopRelay();
        QCOMPARE(logs.last(), QStringLiteral("Relay: stopped"));
        QCOMPARE(relayState.last().at(0).toBool(), false);
        QCOMPARE(relayState.last().at(2).toBool(), false);
        const int attempts = logs.count(QStringLiteral("Relay: reconnecting..."));
        QTest::qWait(6000);
        QCOMPARE(logs.count(QStringLiteral("Relay: reconnecting...")), attempts);
        QVERIFY(!engine.isRelaying());
    }

    void everyFailedConnectionAttemptIsReportedAsALostStream()
    {
        PlaylistModel playlist;
        AudioEngine engine;
        attach(engine, playlist);
        QSignalSpy relayState(&engine, &AudioEngine::relayStateChanged);
        const QString url = deadUrl(); // nothing listens there any more
        QVERIFY(!url.isEmpty());
        PLAYOUT_CHECKED(playFirstRow(engine));
        engine.startRelay(url);
        QTRY_VERIFY_WITH_TIMEOUT(logs.count(QStringLiteral("Relay: reconnecting...")) >= 2, 20000);
        engine.stopRelay();
        // The first attempt and the reconnection after it each failed, and each failure was
        // reported before the next attempt, with the relay's state going back to not live.
        int lostSinceAttempt = 0;
        int attempts = 0;
        for (const QString& line : std::as_const(logs)) {
            if (line == lostLine()) {
                ++lostSinceAttempt;
            } else if (line == QLatin1String("Relay: reconnecting...")) {
                QVERIFY2(lostSinceAttempt >= 1, qPrintable(logs.join(QLatin1String(" | "))));
                lostSinceAttempt = 0;
                ++attempts;
            }
        }
        QVERIFY(attempts >= 2);
        int notLive = 0;
        for (const QList<QVariant>& state : std::as_const(relayState))
            if (state.at(0).toBool() && !state.at(2).toBool())
                ++notLive;
        QCOMPARE(notLive, int(logs.count(lostLine())));
        QVERIFY(engine.isPlaying()); // the playlist kept the air throughout
        engine.stop();
    }

    void relayPlaysOnTheOutputDeviceConfiguredWhenItStarts()
    {
        // A second sink, so that the device configured for the relay differs from the decks'.
        QProcess load;
        load.start(QStringLiteral("pactl"),
                   {QStringLiteral("load-module"), QStringLiteral("module-null-sink"),
                    QStringLiteral("sink_name=ondaro_relay_test"),
                    QStringLiteral("sink_properties=device.description=RelayOut")});
        QVERIFY(load.waitForFinished(10000));
        const QString module = QString::fromLatin1(load.readAllStandardOutput()).trimmed();
        QVERIFY2(load.exitCode() == 0 && !module.isEmpty(), load.readAllStandardError().constData());
        const auto unload = qScopeGuard([module] {
            QProcess::execute(QStringLiteral("pactl"), {QStringLiteral("unload-module"), module});
        });
        const auto hasRelayOut = [] {
            const QList<QAudioDevice> devices = QMediaDevices::audioOutputs();
            return std::any_of(devices.begin(), devices.end(), [](const QAudioDevice& d) {
                return d.description() == QLatin1String("RelayOut");
            });
        };
        QTRY_VERIFY_WITH_TIMEOUT(hasRelayOut(), 10000);

        AudioEngine engine;
        QCOMPARE(engine.outputDeviceDescription(), QStringLiteral("NullOut"));
        watch(engine);
        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("RelayOut"));
        StreamServer server(liveMp3, 16000);
        QVERIFY(server.start());
        engine.startRelay(server.url());
        QCOMPARE(engine.relayOutputDeviceDescription(), QStringLiteral("RelayOut"));
        // The decks keep the device of the last reloadSettings.
        QCOMPARE(engine.outputDeviceDescription(), QStringLiteral("NullOut"));
        QTRY_VERIFY_WITH_TIMEOUT(logs.contains(QStringLiteral("Relay: live")), 15000);
        engine.stopRelay();
        QCOMPARE(engine.relayOutputDeviceDescription(), QString());
    }

    void stoppingWithStartNextOnStopPlaysTheNextRow()
    {
        setSetting(QStringLiteral("relay/startNextOnStop"), true);
        StreamServer server(liveMp3, 16000);
        PlaylistModel playlist;
        AudioEngine engine;
        PLAYOUT_CHECKED(liveOverPlaylist(server, engine, playlist));
        engine.stopRelay();
        QCOMPARE(engine.currentRow(), 1);
        QVERIFY(logs.contains(QStringLiteral("B - Long")));
        QTRY_VERIFY_WITH_TIMEOUT(engine.isPlaying(), 10000);
        engine.stop();
    }

    void stoppingWithoutStartNextOnStopResumesTheTrack()
    {
        StreamServer server(liveMp3, 16000);
        PlaylistModel playlist;
        AudioEngine engine;
        PLAYOUT_CHECKED(serve(server, engine, playlist));
        engine.playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(engine.position() > 300, 10000);
        PLAYOUT_CHECKED(goLive(engine, server.url()));
        const qint64 pausedAt = engine.position();
        engine.stopRelay();
        QCOMPARE(engine.currentRow(), 0);
        QTRY_VERIFY_WITH_TIMEOUT(engine.isPlaying(), 10000);
        QVERIFY(engine.position() >= pausedAt); // resumed, not restarted
        QVERIFY(!logs.contains(QStringLiteral("B - Long")));
        engine.stop();
    }

    void urlThatNeverAnswersKeepsRetryingWithoutBlockingTheThread()
    {
        StreamServer server(liveMp3, 16000);
        server.setSilent(true);
        PlaylistModel playlist;
        AudioEngine engine;
        PLAYOUT_CHECKED(serve(server, engine, playlist));
        PLAYOUT_CHECKED(playFirstRow(engine));
        // A 50 ms heartbeat on this thread: its longest gap shows whether anything blocked.
        QTimer heartbeat;
        heartbeat.setInterval(50);
        QElapsedTimer beat;
        qint64 longestGap = 0;
        connect(&heartbeat, &QTimer::timeout, this,
                [&] { longestGap = std::max(longestGap, beat.restart()); });
        beat.start();
        heartbeat.start();
        engine.startRelay(server.url());
        QTRY_VERIFY_WITH_TIMEOUT(logs.count(QStringLiteral("Relay: reconnecting...")) >= 2, 20000);
        heartbeat.stop();
        QVERIFY2(longestGap < 1000, qPrintable(QString::number(longestGap)));
        QVERIFY(!engine.isRelayLive());
        QVERIFY(server.clientCount() >= 1);
        // The playlist was given the air back while the relay keeps trying.
        QVERIFY(logs.contains(lostLine()));
        QTRY_VERIFY_WITH_TIMEOUT(engine.isPlaying(), 5000);
        engine.stopRelay();
        engine.stop();
    }

    void stalledServerIsTreatedAsALostStream()
    {
        StreamServer server(liveMp3, 16000);
        PlaylistModel playlist;
        AudioEngine engine;
        PLAYOUT_CHECKED(liveOverPlaylist(server, engine, playlist));
        QTest::qWait(1500);
        server.setStalled(true);
        QTRY_VERIFY_WITH_TIMEOUT(logs.contains(lostLine()), 20000);
        QTRY_VERIFY_WITH_TIMEOUT(engine.isPlaying(), 5000);
        server.setStalled(false);
        QTRY_VERIFY_WITH_TIMEOUT(logs.contains(QStringLiteral("Relay: reconnecting...")), 10000);
        QTRY_VERIFY_WITH_TIMEOUT(logs.count(QStringLiteral("Relay: live")) >= 2, 20000);
        engine.stopRelay();
        engine.stop();
    }
};

QTEST_MAIN(TestAudioEngineRelay)
#include "tst_audioengine_relay.moc"
