#include "audioengine.h"
#include "playlistmodel.h"
#include "playouttestsupport.h"
#include "playouttracks.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace playouttest;

// Runs with no reachable sound server (see the test's environment): the engine must say so in
// its log and play nothing.
class TestAudioEngineNoDevice : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QString tone;

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine_nodevice"));
        QVERIFY2(QMediaDevices::audioOutputs().isEmpty(),
                 "This test must run without a sound server (PULSE_SERVER points nowhere)");
        tone = makeTone(dir.path(), QStringLiteral("a.wav"), 440, 1.0);
        QVERIFY(!tone.isEmpty());
    }

    void playRowWithoutOutputDeviceLogsAndPlaysNothing()
    {
        PlaylistModel playlist;
        playlist.appendTrack(fileTrack(QStringLiteral("A"), QStringLiteral("One"), tone));
        AudioEngine engine;
        QVERIFY(!engine.hasOutputDevice());
        engine.setPlaylist(&playlist);
        QSignalSpy log(&engine, &AudioEngine::logMessage);
        QSignalSpy rows(&engine, &AudioEngine::currentRowChanged);
        engine.playRow(0);
        QCOMPARE(rows.count(), 1);
        QCOMPARE(log.count(), 2);
        QCOMPARE(log.at(0).at(0).toString(), QStringLiteral("A - One"));
        QCOMPARE(log.at(1).at(0).toString(),
                 QStringLiteral("No audio output device available - cannot play"));
        QTest::qWait(500);
        QVERIFY(!engine.isPlaying());
        QCOMPARE(engine.deckRow(0), -1);
        QCOMPARE(engine.deckRow(1), -1);
    }

    void playWithoutOutputDeviceLogsAndPlaysNothing()
    {
        PlaylistModel playlist;
        Track t;
        t.filePath = tone;
        playlist.appendTrack(t);
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        QSignalSpy log(&engine, &AudioEngine::logMessage);
        engine.play();
        QCOMPARE(log.count(), 1);
        QCOMPARE(log.at(0).at(0).toString(),
                 QStringLiteral("No audio output device available - cannot play"));
        QCOMPARE(engine.currentRow(), -1);
    }
};

QTEST_MAIN(TestAudioEngineNoDevice)
#include "tst_audioengine_nodevice.moc"
