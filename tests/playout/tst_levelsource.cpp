#include "audioengine.h"
#include "levelsource.h"
#include "mixrules.h"
#include "playlistmodel.h"
#include "playouttestsupport.h"

#include <QAudioOutput>
#include <QFile>
#include <QRegularExpression>
#include <QMediaPlayer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace playouttest;

// The decoded audio of a player reaches the meter buffer by buffer as it is heard.
class TestLevelSource : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QString wavTone;
    QString mp3Tone;

    struct Seen {
        qint64 startUs;
        qint64 playerMs;
        double peak;
    };

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useTemporarySettings(dir.path(), QStringLiteral("tst_levelsource"));
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        wavTone = makeTone(dir.path(), QStringLiteral("tone.wav"), 440, 4, 0.5);
        QVERIFY(!wavTone.isEmpty());
        mp3Tone = QDir(dir.path()).filePath(QStringLiteral("tone.mp3"));
        QVERIFY(runTool(QStringLiteral("ffmpeg"), {QStringLiteral("-y"), QStringLiteral("-loglevel"),
                                                   QStringLiteral("error"), QStringLiteral("-i"), wavTone,
                                                   QStringLiteral("-b:a"), QStringLiteral("128k"), mp3Tone}));
    }

    void init() { useTemporarySettings(dir.path(), QStringLiteral("tst_levelsource")); }

    void buffersOfAnMp3ArriveInStepWithThePlayer()
    {
        QMediaPlayer player;
        QAudioOutput output;
        player.setAudioOutput(&output);
        LevelSource source(&player);
        QList<Seen> seen;
        connect(&source, &LevelSource::bufferReady, this, [&](const QAudioBuffer& buffer) {
            const PeakLevels p = peakLevels(buffer);
            seen.append({buffer.startTime(), player.position(), p.valid ? p.left : -1.0});
        });
        player.setSource(QUrl::fromLocalFile(mp3Tone));
        player.play();
        QTRY_VERIFY_WITH_TIMEOUT(player.mediaStatus() == QMediaPlayer::EndOfMedia, 20000);
        QVERIFY(seen.size() > 20);
        qint64 previous = -1;
        for (const Seen& s : std::as_const(seen)) {
            QVERIFY(s.startUs > previous); // in order, each once
            previous = s.startUs;
            QVERIFY2(s.startUs <= s.playerMs * 1000, "a buffer was released before it was heard");
            QVERIFY(s.peak > 0.0);
        }
        // Covers the track, not just its start.
        QVERIFY2(seen.last().startUs > 3000000, qPrintable(QString::number(seen.last().startUs)));
        // Away from the encoder's edges the meter reads the tone's amplitude.
        const Seen& middle = seen.at(seen.size() / 2);
        QVERIFY2(middle.peak > 0.4 && middle.peak < 0.6, qPrintable(QString::number(middle.peak)));
    }

    void decodingStaysWithinItsLeadAndResumesWithoutLosingBuffers()
    {
        const QString longTone = makeTone(dir.path(), QStringLiteral("long.wav"), 440, 6, 0.5);
        QMediaPlayer player;
        QAudioOutput output;
        player.setAudioOutput(&output);
        LevelSource source(&player);
        source.setDecodeAhead(1500, 700); // minutes in production, seconds here
        QList<qint64> starts;
        QList<qint64> ends;
        qint64 mostAhead = 0;
        connect(&source, &LevelSource::bufferReady, this, [&](const QAudioBuffer& buffer) {
            starts << buffer.startTime();
            ends << buffer.startTime() + buffer.duration();
        });
        QTimer probe;
        connect(&probe, &QTimer::timeout, this,
                [&] { mostAhead = std::max(mostAhead, source.decodedAheadMs()); });
        probe.start(20);
        player.setSource(QUrl::fromLocalFile(longTone));
        player.play();
        QTRY_VERIFY_WITH_TIMEOUT(player.mediaStatus() == QMediaPlayer::EndOfMedia, 20000);
        probe.stop();
        QVERIFY(starts.size() > 20);
        // At most the lead plus one buffer ahead (the meter's own cap), never the whole file.
        QVERIFY2(mostAhead < 2500, qPrintable(QString::number(mostAhead)));
        QVERIFY(mostAhead > 0);
        qint64 heardUs = 0;
        for (int i = 1; i < starts.size(); ++i) {
            QVERIFY(starts.at(i) > starts.at(i - 1));
            heardUs += ends.at(i) - starts.at(i);
            if (starts.at(i) - ends.at(i - 1) > 0)
                qInfo("gap of %lld us before %lld us", starts.at(i) - ends.at(i - 1), starts.at(i));
            // Past the first two seconds, where the sound server's early position stall may make
            // the meter skip what was already heard, each buffer begins where the one before
            // ended: nothing is lost when decoding resumes.
            if (starts.at(i) > 2000000)
                QVERIFY2(starts.at(i) - ends.at(i - 1) < 1000,
                         qPrintable(QStringLiteral("gap before %1 us").arg(starts.at(i))));
        }
        QVERIFY2(heardUs > 4500000, qPrintable(QString::number(heardUs)));
        QVERIFY2(ends.last() > 5500000, qPrintable(QString::number(ends.last())));
    }

    void backwardSeekRestartsTheDecoding()
    {
        QMediaPlayer player;
        QAudioOutput output;
        player.setAudioOutput(&output);
        LevelSource source(&player);
        QList<qint64> starts;
        connect(&source, &LevelSource::bufferReady, this,
                [&](const QAudioBuffer& buffer) { starts << buffer.startTime(); });
        player.setSource(QUrl::fromLocalFile(wavTone));
        player.play();
        QTRY_VERIFY_WITH_TIMEOUT(player.position() > 2000, 10000);
        QTRY_VERIFY_WITH_TIMEOUT(!starts.isEmpty() && starts.last() > 1500000, 5000);
        const int before = starts.size();
        player.setPosition(200);
        QTRY_VERIFY_WITH_TIMEOUT(starts.size() > before && starts.last() < 1500000, 10000);
        player.stop();
    }

    void missingSourceGivesNoBuffersAndNoCrash()
    {
        QMediaPlayer player;
        QAudioOutput output;
        player.setAudioOutput(&output);
        LevelSource source(&player);
        QSignalSpy buffers(&source, &LevelSource::bufferReady);
        player.setSource(QUrl::fromLocalFile(QDir(dir.path()).filePath(QStringLiteral("nothing.mp3"))));
        player.play();
        QTest::qWait(1500);
        QCOMPARE(buffers.count(), 0);
    }

    void aFileThatVanishedGivesNoLevelsAndOneLogLine()
    {
        const QString path = makeTone(dir.path(), QStringLiteral("vanishing.wav"), 440, 4, 0.5);
        QMediaPlayer player;
        QAudioOutput output;
        player.setAudioOutput(&output);
        LevelSource source(&player);
        source.setEnabled(false);
        QSignalSpy buffers(&source, &LevelSource::bufferReady);
        player.setSource(QUrl::fromLocalFile(path));
        player.play();
        QTRY_VERIFY_WITH_TIMEOUT(player.position() > 300, 10000);
        // The player holds the file open; the meter comes to it only after it is gone.
        QVERIFY(QFile::remove(path));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^no levels for .*vanishing.wav")));
        QTest::failOnWarning(QRegularExpression(QStringLiteral("^no levels for")));
        source.setEnabled(true);
        QTest::qWait(500);
        // Switched off and on again: the same source is not tried, nor logged, again.
        source.setEnabled(false);
        source.setEnabled(true);
        QTRY_VERIFY_WITH_TIMEOUT(player.mediaStatus() == QMediaPlayer::EndOfMedia, 10000);
        QCOMPARE(buffers.count(), 0);
    }

    void aDamagedMp3StillMetersInOrder()
    {
        QFile in(mp3Tone);
        QVERIFY(in.open(QIODevice::ReadOnly));
        QByteArray data = in.readAll();
        for (qsizetype i = data.size() / 2; i < data.size() / 2 + 6000 && i < data.size(); ++i)
            data[i] = char((i * 7919) & 0xff);
        const QString path = QDir(dir.path()).filePath(QStringLiteral("damaged.mp3"));
        QFile out(path);
        QVERIFY(out.open(QIODevice::WriteOnly));
        out.write(data);
        out.close();
        QMediaPlayer player;
        QAudioOutput output;
        player.setAudioOutput(&output);
        LevelSource source(&player);
        QList<qint64> starts;
        connect(&source, &LevelSource::bufferReady, this,
                [&](const QAudioBuffer& buffer) { starts << buffer.startTime(); });
        player.setSource(QUrl::fromLocalFile(path));
        player.play();
        QTRY_VERIFY_WITH_TIMEOUT(player.mediaStatus() == QMediaPlayer::EndOfMedia ||
                                     player.error() != QMediaPlayer::NoError,
                                 20000);
        QVERIFY(starts.size() > 10);
        for (int i = 1; i < starts.size(); ++i)
            QVERIFY(starts.at(i) > starts.at(i - 1));
    }

    void engineReportsLevelsScaledByTheMasterVolume()
    {
        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
        setSetting(QStringLiteral("audio/defaultVolume"), 50);
        PlaylistModel playlist;
        Track t;
        t.title = QStringLiteral("Tone");
        t.filePath = mp3Tone;
        playlist.appendTrack(t);
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        QSignalSpy levels(&engine, &AudioEngine::levels);
        QSignalSpy buffers(&engine, &AudioEngine::audioBufferReady);
        engine.playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(levels.count() > 10, 10000);
        QVERIFY(buffers.count() > 0);
        const double left = levels.at(levels.count() / 2).at(0).toDouble();
        const double right = levels.at(levels.count() / 2).at(1).toDouble();
        // Tone at 0.5, master volume 0.5: about 0.25.
        QVERIFY2(left > 0.2 && left < 0.3, qPrintable(QString::number(left)));
        QVERIFY2(right > 0.2 && right < 0.3, qPrintable(QString::number(right)));
        engine.setDucked(true);
        levels.clear();
        QTRY_VERIFY_WITH_TIMEOUT(levels.count() > 3, 10000);
        QVERIFY2(levels.last().at(0).toDouble() < 0.06, qPrintable(levels.last().at(0).toString()));
        engine.stop();
    }
};

QTEST_MAIN(TestLevelSource)
#include "tst_levelsource.moc"
