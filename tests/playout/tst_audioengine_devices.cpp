#include "audioengine.h"
#include "playlistmodel.h"
#include "playouttestsupport.h"
#include "playouttracks.h"

#include <QProcess>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

using namespace playouttest;

// An output device that goes away while the engine plays on it.
class TestAudioEngineDevices : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QString longTone;

    static bool listed(const QString& description)
    {
        const QList<QAudioDevice> devices = QMediaDevices::audioOutputs();
        return std::any_of(devices.begin(), devices.end(),
                           [&](const QAudioDevice& d) { return d.description() == description; });
    }

    // pactl load-module ...; the module id, empty on failure.
    static QString loadSink(const QString& name, const QString& description)
    {
        QProcess load;
        load.start(QStringLiteral("pactl"),
                   {QStringLiteral("load-module"), QStringLiteral("module-null-sink"),
                    QStringLiteral("sink_name=") + name,
                    QStringLiteral("sink_properties=device.description=") + description});
        if (!load.waitForFinished(10000) || load.exitCode() != 0)
            return QString();
        return QString::fromLatin1(load.readAllStandardOutput()).trimmed();
    }

    static bool unloadModule(const QString& module)
    {
        return QProcess::execute(QStringLiteral("pactl"), {QStringLiteral("unload-module"), module}) == 0;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine_devices"));
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        longTone = makeTone(dir.path(), QStringLiteral("long.wav"), 440, 30);
        QVERIFY(!longTone.isEmpty());
    }

    void aVanishedOutputMovesTheDecksToTheSystemDefault()
    {
        const QString module = loadSink(QStringLiteral("second"), QStringLiteral("SecondOut"));
        QVERIFY(!module.isEmpty());
        bool unloaded = false;
        const auto cleanup = qScopeGuard([&] {
            if (!unloaded)
                unloadModule(module);
        });
        QTRY_VERIFY_WITH_TIMEOUT(listed(QStringLiteral("SecondOut")), 10000);

        PlaylistModel playlist;
        playlist.appendTrack(fileTrack(QStringLiteral("A"), QStringLiteral("Long"), longTone));
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        QStringList logs;
        collectLog(engine, this, logs);
        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("SecondOut"));
        engine.reloadSettings();
        QCOMPARE(engine.outputDeviceDescription(), QStringLiteral("SecondOut"));
        QSignalSpy started(&engine, &AudioEngine::trackStarted);
        engine.playRow(0);
        QTRY_COMPARE_WITH_TIMEOUT(started.count(), 1, 15000);

        QVERIFY(unloadModule(module));
        unloaded = true;
        const QString fallback = QMediaDevices::defaultAudioOutput().description();
        QTRY_VERIFY_WITH_TIMEOUT(!listed(QStringLiteral("SecondOut")), 10000);
        QTRY_COMPARE_WITH_TIMEOUT(engine.outputDeviceDescription(), QStringLiteral("NullOut"), 10000);
        QVERIFY(engine.hasOutputDevice());
        const QString line =
            QStringLiteral("Output device lost: SecondOut - moved to the system default NullOut");
        QVERIFY2(logs.contains(line), qPrintable(logs.join(QLatin1String(" | "))));
        QCOMPARE(fallback, QStringLiteral("NullOut"));
        // Playback goes on, on the other output.
        QVERIFY(engine.isPlaying());
        const qint64 before = engine.position();
        QTRY_VERIFY_WITH_TIMEOUT(engine.position() > before + 300, 10000);
        engine.stop();
    }

    void anOutputThatComesAndGoesElsewhereChangesNothing()
    {
        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
        AudioEngine engine;
        QStringList logs;
        collectLog(engine, this, logs);
        QCOMPARE(engine.outputDeviceDescription(), QStringLiteral("NullOut"));
        const QString module = loadSink(QStringLiteral("third"), QStringLiteral("ThirdOut"));
        QVERIFY(!module.isEmpty());
        QTRY_VERIFY_WITH_TIMEOUT(listed(QStringLiteral("ThirdOut")), 10000);
        QVERIFY(unloadModule(module));
        QTRY_VERIFY_WITH_TIMEOUT(!listed(QStringLiteral("ThirdOut")), 10000);
        QCOMPARE(engine.outputDeviceDescription(), QStringLiteral("NullOut"));
        QVERIFY(logs.isEmpty());
    }

    void withNoOutputLeftTheEngineSaysSoAndTakesTheOutputBackWhenOneReturns()
    {
        // The private sound server's own sink is taken away and put back as it was.
        QProcess list;
        list.start(QStringLiteral("pactl"),
                   {QStringLiteral("list"), QStringLiteral("short"), QStringLiteral("modules")});
        QVERIFY(list.waitForFinished(10000));
        QString nullModule;
        for (const QString& line :
             QString::fromLatin1(list.readAllStandardOutput()).split(QLatin1Char('\n'))) {
            if (line.contains(QLatin1String("module-null-sink")) &&
                line.contains(QLatin1String("sink_name=null ")))
                nullModule = line.section(QLatin1Char('\t'), 0, 0);
        }
        QVERIFY(!nullModule.isEmpty());
        QVERIFY(QMediaDevices::audioOutputs().size() == 1); // nothing else would be left

        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
        AudioEngine engine;
        QStringList logs;
        collectLog(engine, this, logs);
        QVERIFY(engine.hasOutputDevice());
        QVERIFY(unloadModule(nullModule));
        bool restored = false;
        const auto restore = qScopeGuard([&restored] {
            if (!restored)
                loadSink(QStringLiteral("null"), QStringLiteral("NullOut"));
        });
        QTRY_VERIFY_WITH_TIMEOUT(!engine.hasOutputDevice(), 10000);
        QCOMPARE(logs, QStringList{QStringLiteral("No audio output device available - cannot play")});
        restored = !loadSink(QStringLiteral("null"), QStringLiteral("NullOut")).isEmpty();
        QVERIFY(restored);
        QTRY_VERIFY_WITH_TIMEOUT(engine.hasOutputDevice(), 10000);
        QCOMPARE(engine.outputDeviceDescription(), QStringLiteral("NullOut"));
    }
};

QTEST_MAIN(TestAudioEngineDevices)
#include "tst_audioengine_devices.moc"
