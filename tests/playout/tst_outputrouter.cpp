#include "audioplayer.h"
#include "outputrouter.h"
#include "playouttestsupport.h"

#include <QProcess>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <memory>

using namespace playouttest;

// One device for every player of the playout: a change reaches all of them, a later player starts
// on it, and a player that is gone is simply dropped.
class TestOutputRouter : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;

    static QAudioDevice outputNamed(const QString& description)
    {
        const QList<QAudioDevice> devices = QMediaDevices::audioOutputs();
        const auto it = std::find_if(devices.begin(), devices.end(),
                                     [&](const QAudioDevice& d) { return d.description() == description; });
        return it == devices.end() ? QAudioDevice() : *it;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useTemporarySettings(dir.path(), QStringLiteral("tst_outputrouter"));
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
    }

    void aDeviceChangeReachesEveryPlayerAndLaterOnes()
    {
        QProcess load;
        load.start(QStringLiteral("pactl"), {QStringLiteral("load-module"), QStringLiteral("module-null-sink"),
                                             QStringLiteral("sink_name=router_second"),
                                             QStringLiteral("sink_properties=device.description=RouterOut")});
        QVERIFY(load.waitForFinished(10000) && load.exitCode() == 0);
        const QString module = QString::fromLatin1(load.readAllStandardOutput()).trimmed();
        const auto unload = qScopeGuard(
            [module] { QProcess::execute(QStringLiteral("pactl"), {QStringLiteral("unload-module"), module}); });
        QTRY_VERIFY_WITH_TIMEOUT(!outputNamed(QStringLiteral("RouterOut")).isNull(), 10000);
        const QAudioDevice first = outputNamed(QStringLiteral("NullOut"));
        const QAudioDevice second = outputNamed(QStringLiteral("RouterOut"));
        QVERIFY(!first.isNull());

        OutputRouter router;
        router.setDevice(first);
        AudioPlayer deck(AudioPlayer::Metering::On);
        AudioPlayer voiceover(AudioPlayer::Metering::Off);
        auto relay = std::make_unique<AudioPlayer>(AudioPlayer::Metering::On);
        router.add(&deck);
        router.add(&voiceover);
        router.add(relay.get());
        QCOMPARE(deck.device().description(), QStringLiteral("NullOut"));
        QCOMPARE(router.playerCount(), 3);

        router.setDevice(second);
        QCOMPARE(deck.device().description(), QStringLiteral("RouterOut"));
        QCOMPARE(voiceover.device().description(), QStringLiteral("RouterOut"));
        QCOMPARE(relay->device().description(), QStringLiteral("RouterOut"));

        relay.reset(); // a relay attempt that was released
        QCOMPARE(router.playerCount(), 2);
        router.setDevice(first);
        QCOMPARE(deck.device().description(), QStringLiteral("NullOut"));

        AudioPlayer later(AudioPlayer::Metering::Off);
        router.add(&later);
        QCOMPARE(later.device().description(), QStringLiteral("NullOut"));

        // A player taken out is not moved any more.
        router.remove(&voiceover);
        QCOMPARE(router.playerCount(), 2);
        router.setDevice(second);
        QCOMPARE(voiceover.device().description(), QStringLiteral("NullOut"));
        QCOMPARE(deck.device().description(), QStringLiteral("RouterOut"));
    }

    void theVolumeStopsAtFullScale()
    {
        AudioPlayer player(AudioPlayer::Metering::Off);
        player.setVolume(1.6);
        QCOMPARE(player.volume(), 1.0);
        player.setVolume(-0.5);
        QCOMPARE(player.volume(), 0.0);
    }
};

QTEST_MAIN(TestOutputRouter)
#include "tst_outputrouter.moc"
