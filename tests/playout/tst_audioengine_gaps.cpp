#include "audioengine.h"
#include "playlistmodel.h"
#include "playouttestsupport.h"
#include "playouttracks.h"

#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

using namespace playouttest;

// What a listener hears of a running order played without crossfade: each item to its end and the
// next one right after it, measured in a recording of the null sink.
class TestAudioEngineGaps : public QObject
{
    Q_OBJECT

private:
    // Whole periods of each tone fit in one window, so the tones do not leak into each other.
    static constexpr int windowMs = 20;
    static constexpr int frequencies[3] = {500, 1000, 1500};
    static constexpr double toneSeconds = 4.0;
    // Heard amplitude is 0.5 x the default volume 0.8; anything above a quarter of it counts.
    static constexpr double heardThreshold = 0.1;
    // Generous for a slow, busy machine; the goal is 50 ms and a start without the lead lost ~150.
    static constexpr int maxGapMs = 100;
    static constexpr int maxOverlapMs = 100;
    static constexpr int minHeardMs = 3850;

    QTemporaryDir dir;
    QStringList tones;
    QStringList logs;

    struct Heard {
        int firstWindow = -1;
        int lastWindow = -1;
        int lengthMs() const { return (lastWindow - firstWindow + 1) * windowMs; }
    };

    static QString describe(const QList<Heard>& heard)
    {
        QStringList parts;
        for (int i = 0; i < heard.size(); ++i) {
            parts << QStringLiteral("tone %1: %2 ms").arg(i).arg(heard[i].lengthMs());
            if (i > 0)
                parts << QStringLiteral("gap %1 ms")
                             .arg((heard[i].firstWindow - heard[i - 1].lastWindow - 1) * windowMs);
        }
        return parts.join(QStringLiteral(", "));
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine_gaps"));
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        for (int frequency : frequencies) {
            tones << makeTone(dir.path(), QStringLiteral("tone%1.wav").arg(frequency), frequency, toneSeconds);
            QVERIFY(!tones.last().isEmpty());
        }
    }

    void withoutCrossfadeEachItemIsHeardToItsEndAndTheNextFollowsAtOnce()
    {
        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
        setSetting(QStringLiteral("playback/crossfadeEnabled"), false);
        PlaylistModel playlist;
        for (int i = 0; i < tones.size(); ++i)
            playlist.appendTrack(fileTrack(QStringLiteral("Tone"), QString::number(frequencies[i]), tones[i]));
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        collectLog(engine, this, logs);

        SinkRecorder recorder(dir.path());
        QVERIFY(recorder.start());
        engine.playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(logs.contains(QStringLiteral("Stop")), 30000);
        // The end is reported once it was heard; let the recording take in a little more.
        const qint64 sizeAtStop = QFileInfo(dir.filePath(QStringLiteral("recording.raw"))).size();
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(dir.filePath(QStringLiteral("recording.raw"))).size() >
                                     sizeAtStop + recordRate * 4 / 2,
                                 5000);
        recorder.stop();

        const std::vector<float> samples = recorder.samples();
        QList<Heard> heard;
        for (int frequency : frequencies) {
            const std::vector<double> track = toneTrack(samples, frequency, windowMs);
            heard.append({firstAbove(track, heardThreshold), lastAbove(track, heardThreshold)});
            QVERIFY2(heard.last().firstWindow >= 0, qPrintable(QStringLiteral("%1 Hz never heard").arg(frequency)));
        }
        qInfo().noquote() << describe(heard);
        for (int i = 0; i < heard.size(); ++i) {
            QVERIFY2(heard[i].lengthMs() >= minHeardMs, qPrintable(describe(heard)));
            if (i == 0)
                continue;
            const int gapMs = (heard[i].firstWindow - heard[i - 1].lastWindow - 1) * windowMs;
            QVERIFY2(gapMs <= maxGapMs, qPrintable(describe(heard)));
            QVERIFY2(-gapMs <= maxOverlapMs, qPrintable(describe(heard)));
        }
        QCOMPARE(logs,
                 (QStringList{QStringLiteral("Tone - 500"), QStringLiteral("End of track: Tone - 500"),
                              QStringLiteral("Tone - 1000"), QStringLiteral("End of track: Tone - 1000"),
                              QStringLiteral("Tone - 1500"), QStringLiteral("End of track: Tone - 1500"),
                              QStringLiteral("Stop")}));
    }
};

QTEST_MAIN(TestAudioEngineGaps)
#include "tst_audioengine_gaps.moc"
