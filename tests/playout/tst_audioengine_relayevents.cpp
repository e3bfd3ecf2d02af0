#include "audioengine.h"
#include "playlistmodel.h"
#include "playouttestsupport.h"
#include "playouttracks.h"
#include "streamserver.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace playouttest;

// What the engine reports of a relay in typed form: its states, the track it took the air from,
// and the live stream's title.
class TestAudioEngineRelayEvents : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QByteArray taggedMp3;
    QString longTone;

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine_relayevents"));
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        longTone = makeTone(dir.path(), QStringLiteral("long.wav"), 440, 40);
        taggedMp3 = makeTaggedStreamMp3(dir.path());
        QVERIFY(!longTone.isEmpty() && taggedMp3.size() > 10000);
    }

    void init()
    {
        useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine_relayevents"));
        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
    }

    void aRelayEndsTheTrackAndTheResumedTrackStartsAgain()
    {
        StreamServer server(taggedMp3, 16000);
        QVERIFY(server.start());
        PlaylistModel playlist;
        playlist.appendTrack(fileTrack(QStringLiteral("A"), QStringLiteral("Long"), longTone));
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        QSignalSpy status(&engine, &AudioEngine::relayStatusChanged);
        QSignalSpy started(&engine, &AudioEngine::trackStarted);
        QSignalSpy ended(&engine, &AudioEngine::trackEnded);
        QSignalSpy titles(&engine, &AudioEngine::streamMetadata);
        engine.playRow(0);
        QTRY_COMPARE_WITH_TIMEOUT(started.count(), 1, 15000);
        QCOMPARE(engine.relayState(), RelayState::Off);

        engine.startRelay(server.url());
        QCOMPARE(engine.relayState(), RelayState::Connecting);
        QTRY_COMPARE_WITH_TIMEOUT(engine.relayState(), RelayState::Live, 15000);
        QCOMPARE(relayStates(status), (QList<RelayState>{RelayState::Connecting, RelayState::Live}));
        QCOMPARE(status.last().at(1).toString(), server.url());
        QCOMPARE(ended.count(), 1);
        QCOMPARE(qvariant_cast<TrackEndReason>(ended.first().at(2)), TrackEndReason::Relay);
        QCOMPARE(ended.first().at(0).toInt(), 0);
        QTRY_VERIFY_WITH_TIMEOUT(!titles.isEmpty(), 15000);
        QCOMPARE(titles.first().at(0).toString(), QStringLiteral("Night Owls - Relay Hour"));

        // The stream goes away: the playlist has the air again and its track is on air anew.
        server.kill();
        QTRY_COMPARE_WITH_TIMEOUT(engine.relayState(), RelayState::Lost, 15000);
        QTRY_COMPARE_WITH_TIMEOUT(started.count(), 2, 15000);
        QCOMPARE(started.last().at(0).toInt(), 0);
        QTRY_VERIFY_WITH_TIMEOUT(relayStates(status).count(RelayState::Connecting) >= 2, 15000);

        engine.stopRelay();
        QCOMPARE(engine.relayState(), RelayState::Off);
        QCOMPARE(relayStates(status).last(), RelayState::Off);
        engine.stop();
        QCOMPARE(ended.count(), 2);
        QCOMPARE(qvariant_cast<TrackEndReason>(ended.last().at(2)), TrackEndReason::Stop);
    }
};

QTEST_MAIN(TestAudioEngineRelayEvents)
#include "tst_audioengine_relayevents.moc"
