#include "audioengine.h"
#include "musiclibrary.h"
#include "playlistmodel.h"
#include "playouttestsupport.h"
#include "playouttracks.h"
#include "trackparams.h"
#include "voiceoverrules.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace playouttest;

// Voiceovers on real audio: parameters stored per track, armed on playRow, fired at the insert
// point and heard in the recording as their own tone.
class TestAudioEngineVoiceover : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QString music;     // 440 Hz, 5 s
    QString voiceover; // 1320 Hz, 1 s
    QStringList logs;

    void watch(AudioEngine& engine) { collectLog(engine, this, logs); }

    // The engine plays from the playlist and its log is watched.
    void attach(AudioEngine& engine, PlaylistModel& playlist)
    {
        engine.setPlaylist(&playlist);
        watch(engine);
    }

    // The music as the playlist's one row, played by the engine with its log watched.
    void attachMusic(AudioEngine& engine, PlaylistModel& playlist)
    {
        playlist.appendTrack(musicTrack());
        attach(engine, playlist);
    }

    Track musicTrack() const { return fileTrack(QStringLiteral("M"), QStringLiteral("Music"), music); }

    TrackParams voiceoverParams(qint64 ins, const QString& source) const
    {
        TrackParams p;
        p.voiceoverIns = ins;
        p.voiceoverSource = source;
        return p;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine_voiceover"));
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        removeLibraryStore();
        QVERIFY(MusicLibrary::initialize());
        music = makeTone(dir.path(), QStringLiteral("music.wav"), 440, 5);
        voiceover = makeTone(dir.path(), QStringLiteral("voice.wav"), 1320, 1);
        QVERIFY(!music.isEmpty() && !voiceover.isEmpty());
    }

    void init()
    {
        useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine_voiceover"));
        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
        TrackParams::remove(music);
    }

    void voiceoverIsArmedFiredAtItsInsertPointAndHeard()
    {
        TrackParams::save(music, voiceoverParams(2000, voiceover));
        PlaylistModel playlist;
        AudioEngine engine;
        attachMusic(engine, playlist);
        SinkRecorder recorder(dir.path());
        QVERIFY(recorder.start());
        engine.playRow(0);
        QCOMPARE(logs.at(0), QStringLiteral("Voiceover armed: voice.wav"));
        QCOMPARE(logs.at(1), QStringLiteral("M - Music"));
        QVERIFY(engine.voiceoverArmed());
        QCOMPARE(engine.voiceoverInsertAt(), qint64(2000));
        qint64 firedAt = -1;
        connect(&engine, &AudioEngine::logMessage, this, [&](const QString& text) {
            if (text == QLatin1String("Voiceover: voice.wav"))
                firedAt = engine.position();
        });
        QTRY_VERIFY_WITH_TIMEOUT(logs.contains(QStringLiteral("Voiceover: voice.wav")), 15000);
        QVERIFY2(firedAt >= 2000 && firedAt < 2700, qPrintable(QString::number(firedAt)));
        QVERIFY(!engine.voiceoverArmed());
        QTRY_VERIFY_WITH_TIMEOUT(engine.voiceoverPlaying(), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(logs.contains(QStringLiteral("Stop")), 15000);
        QTest::qWait(300);
        recorder.stop();
        const std::vector<float> samples = recorder.samples();
        const std::vector<double> tone = toneTrack(samples, 440);
        const std::vector<double> voice = toneTrack(samples, 1320);
        const int musicStart = firstAbove(tone, 0.05);
        const int voiceStart = firstAbove(voice, 0.05);
        QVERIFY(musicStart >= 0);
        QVERIFY2(voiceStart >= 0, "the voiceover was not heard");
        // 2 s into the music, in 50 ms windows, allowing for the position reports' jitter.
        const int offset = voiceStart - musicStart;
        qInfo("music heard from %d ms, voiceover from %d ms of the recording", musicStart * 50,
              voiceStart * 50);
        QVERIFY2(offset >= 36 && offset <= 60, qPrintable(QString::number(offset)));
        // Laid over the music, not instead of it.
        QVERIFY(windowsBothAbove(tone, voice, 0.05) >= 10);
    }

    void probabilityZeroNeverArmsOrFires()
    {
        TrackParams p = voiceoverParams(1000, voiceover);
        p.voiceoverProbability = 0;
        TrackParams::save(music, p);
        PlaylistModel playlist;
        AudioEngine engine;
        attachMusic(engine, playlist);
        for (int i = 0; i < 5; ++i) {
            engine.playRow(0);
            QVERIFY(!engine.voiceoverArmed());
        }
        QTRY_VERIFY_WITH_TIMEOUT(logs.contains(QStringLiteral("Stop")), 15000);
        QVERIFY(logs.filter(QStringLiteral("Voiceover")).isEmpty());
    }

    void notAfterDateOfYesterdayNeverArms()
    {
        TrackParams p = voiceoverParams(1000, voiceover);
        p.voiceoverNotAfter = QDate::currentDate().addDays(-1);
        TrackParams::save(music, p);
        PlaylistModel playlist;
        AudioEngine engine;
        attachMusic(engine, playlist);
        engine.playRow(0);
        QVERIFY(!engine.voiceoverArmed());
        QVERIFY(logs.filter(QStringLiteral("Voiceover")).isEmpty());
        engine.stop();
    }

    void positionOneEndsTheVoiceoverAtItsInsertPoint()
    {
        TrackParams p = voiceoverParams(3000, voiceover);
        p.voiceoverPosition = 1;
        TrackParams::save(music, p);
        PlaylistModel playlist;
        AudioEngine engine;
        attachMusic(engine, playlist);
        engine.playRow(0);
        QVERIFY(engine.voiceoverArmed());
        // Known only once the voiceover's one-second length has been read: 3000 - 1000.
        QTRY_COMPARE_WITH_TIMEOUT(engine.voiceoverInsertAt(), qint64(2000), 10000);
        qint64 firedAt = -1;
        connect(&engine, &AudioEngine::logMessage, this, [&](const QString& text) {
            if (text.startsWith(QLatin1String("Voiceover: ")))
                firedAt = engine.position();
        });
        QTRY_VERIFY_WITH_TIMEOUT(firedAt >= 0, 15000);
        QVERIFY2(firedAt >= 2000 && firedAt < 2700, qPrintable(QString::number(firedAt)));
        engine.stop();
    }

    void folderSourceArmsOneOfItsSupportedFiles()
    {
        const QString folder = dir.filePath(QStringLiteral("ids"));
        QDir().mkpath(folder);
        QVERIFY(QFile::copy(voiceover, folder + QStringLiteral("/id-one.wav")));
        QVERIFY(QFile::copy(voiceover, folder + QStringLiteral("/id-two.wav")));
        QFile text(folder + QStringLiteral("/readme.txt"));
        QVERIFY(text.open(QIODevice::WriteOnly));
        text.write("not audio");
        text.close();
        TrackParams::save(music, voiceoverParams(1000, folder));
        PlaylistModel playlist;
        AudioEngine engine;
        attachMusic(engine, playlist);
        for (int i = 0; i < 8; ++i)
            engine.playRow(0);
        const QStringList armed = logs.filter(QStringLiteral("Voiceover armed: "));
        QCOMPARE(armed.size(), 8);
        for (const QString& line : armed)
            QVERIFY2(line == QLatin1String("Voiceover armed: id-one.wav") ||
                         line == QLatin1String("Voiceover armed: id-two.wav"),
                     qPrintable(line));
        QTRY_VERIFY_WITH_TIMEOUT(logs.filter(QStringLiteral("Voiceover: id-")).size() == 1, 10000);
        engine.stop();
    }

    void disabledVoiceoversArmNothing()
    {
        TrackParams::save(music, voiceoverParams(500, voiceover));
        PlaylistModel playlist;
        AudioEngine engine;
        attachMusic(engine, playlist);
        QVERIFY(engine.voiceoversEnabled());
        engine.setVoiceoverEnabled(false);
        engine.playRow(0);
        QVERIFY(!engine.voiceoverArmed());
        QTRY_VERIFY_WITH_TIMEOUT(engine.position() > 1500, 10000);
        QVERIFY(logs.filter(QStringLiteral("Voiceover")).isEmpty());
        QVERIFY(!engine.voiceoverPlaying());
        engine.stop();
    }

    void storedSwitchOffArmsNothingAndIsTheEnginesStartValue()
    {
        TrackParams::save(music, voiceoverParams(500, voiceover));
        setVoiceoversEnabledSetting(false);
        PlaylistModel playlist;
        playlist.appendTrack(musicTrack());
        AudioEngine engine;
        QVERIFY(!engine.voiceoversEnabled());
        attach(engine, playlist);
        engine.setVoiceoverEnabled(true); // the stored switch still says no
        engine.playRow(0);
        QVERIFY(!engine.voiceoverArmed());
        QVERIFY(logs.filter(QStringLiteral("Voiceover")).isEmpty());
        engine.stop();
    }

    void missingVoiceoverFileIsSilent()
    {
        TrackParams::save(music, voiceoverParams(500, dir.filePath(QStringLiteral("gone.wav"))));
        PlaylistModel playlist;
        AudioEngine engine;
        attachMusic(engine, playlist);
        engine.playRow(0);
        QVERIFY(!engine.voiceoverArmed());
        QTRY_VERIFY_WITH_TIMEOUT(engine.position() > 1000, 10000);
        QCOMPARE(logs, QStringList{QStringLiteral("M - Music")});
        engine.stop();
    }

    void stopDropsAnArmedVoiceover()
    {
        TrackParams::save(music, voiceoverParams(4000, voiceover));
        PlaylistModel playlist;
        playlist.appendTrack(musicTrack());
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        engine.playRow(0);
        QVERIFY(engine.voiceoverArmed());
        engine.stop();
        QVERIFY(!engine.voiceoverArmed());
    }
};

QTEST_MAIN(TestAudioEngineVoiceover)
#include "tst_audioengine_voiceover.moc"
