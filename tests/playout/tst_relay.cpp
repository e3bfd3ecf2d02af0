#include "playouttestsupport.h"
#include "playouttracks.h"
#include "relay.h"
#include "streamserver.h"

#include <QMediaDevices>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace playouttest;

// The relay on its own against a local stream server: its states, a lost server and the
// reconnection, stopping, and the stream's metadata.
class TestRelay : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QByteArray taggedMp3; // tone with artist and title tags

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useTemporarySettings(dir.path(), QStringLiteral("tst_relay"));
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        qRegisterMetaType<RelayState>("RelayState");
        taggedMp3 = makeTaggedStreamMp3(dir.path());
        QVERIFY(taggedMp3.size() > 10000);
    }

    void startsConnectingAndGoesLiveWithTheStreamsTitle()
    {
        StreamServer server(taggedMp3, 16000);
        QVERIFY(server.start());
        Relay relay;
        QSignalSpy changes(&relay, &Relay::stateChanged);
        QSignalSpy live(&relay, &Relay::wentLive);
        QSignalSpy titles(&relay, &Relay::metadataChanged);
        QSignalSpy buffers(&relay, &Relay::bufferReady);
        QCOMPARE(relay.state(), RelayState::Off);
        relay.start(server.url(), QMediaDevices::defaultAudioOutput(), 0.8);
        QCOMPARE(relay.state(), RelayState::Connecting);
        QVERIFY(relay.isActive());
        QCOMPARE(relay.source(), server.url());
        QVERIFY(!relay.outputDeviceDescription().isEmpty());
        QTRY_COMPARE_WITH_TIMEOUT(live.count(), 1, 15000);
        QCOMPARE(relay.state(), RelayState::Live);
        QCOMPARE(relayStates(changes), (QList<RelayState>{RelayState::Connecting, RelayState::Live}));
        QTRY_VERIFY_WITH_TIMEOUT(!titles.isEmpty(), 15000);
        QCOMPARE(titles.first().at(0).toString(), QStringLiteral("Night Owls - Relay Hour"));
        QTRY_VERIFY_WITH_TIMEOUT(!buffers.isEmpty(), 15000);
        relay.stop();
        QCOMPARE(relay.state(), RelayState::Off);
        QCOMPARE(relayStates(changes).last(), RelayState::Off);
        QCOMPARE(relay.outputDeviceDescription(), QString());
    }

    void aServerThatDiesIsLostThenReconnectedWhenItIsBack()
    {
        StreamServer server(taggedMp3, 16000);
        QVERIFY(server.start());
        Relay relay;
        QSignalSpy changes(&relay, &Relay::stateChanged);
        QSignalSpy live(&relay, &Relay::wentLive);
        QSignalSpy lost(&relay, &Relay::lost);
        QSignalSpy reconnecting(&relay, &Relay::reconnecting);
        relay.start(server.url(), QMediaDevices::defaultAudioOutput(), 0.8);
        QTRY_COMPARE_WITH_TIMEOUT(live.count(), 1, 15000);
        server.kill();
        QTRY_VERIFY_WITH_TIMEOUT(lost.count() >= 1, 15000);
        QVERIFY(relay.isActive());
        QVERIFY(!relay.isLive());
        QTRY_VERIFY_WITH_TIMEOUT(reconnecting.count() >= 1, 10000);
        QVERIFY(server.start(server.port()));
        QTRY_COMPARE_WITH_TIMEOUT(live.count(), 2, 20000);
        const QList<RelayState> seen = relayStates(changes);
        QCOMPARE(seen.mid(0, 3),
                 (QList<RelayState>{RelayState::Connecting, RelayState::Live, RelayState::Lost}));
        QCOMPARE(seen.last(), RelayState::Live);
        QVERIFY(seen.contains(RelayState::Connecting));
        // No state is reported twice in a row.
        for (int i = 1; i < seen.size(); ++i)
            QVERIFY(seen.at(i) != seen.at(i - 1));
        relay.stop();
    }

    void aServerThatNeverAnswersIsReportedLostAtTheFirstRetry()
    {
        StreamServer server(taggedMp3, 16000);
        server.setSilent(true);
        QVERIFY(server.start());
        Relay relay;
        QSignalSpy lost(&relay, &Relay::lost);
        QSignalSpy reconnecting(&relay, &Relay::reconnecting);
        relay.start(server.url(), QMediaDevices::defaultAudioOutput(), 0.8);
        QTRY_VERIFY_WITH_TIMEOUT(reconnecting.count() >= 1, 15000);
        QVERIFY(lost.count() >= 1);
        QCOMPARE(relay.state(), RelayState::Connecting); // the next attempt runs
        relay.stop();
        QCOMPARE(relay.state(), RelayState::Off);
    }
};

QTEST_MAIN(TestRelay)
#include "tst_relay.moc"
