// The analyser on generated fixtures (scripts/make-analysis-fixtures.sh): cue points, mix start,
// silence, every format and every kind of bad input.

#include "audioanalyser.h"
#include "trackanalysis.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>

namespace {

QString fixture(const QString& name)
{
    return QStringLiteral(ONDARO_ANALYSIS_FIXTURE_DIR "/") + name;
}

// Restores the default time allowance when a test case that changed it ends, passed or failed.
struct AllowanceGuard {
    ~AllowanceGuard()
    {
        AudioAnalyser::setTimeAllowance(AudioAnalyser::kDefaultBaseAllowanceMs,
                                        AudioAnalyser::kDefaultMsPerAudioSecond);
    }
};

} // namespace

class TestAudioAnalyser : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(QFile::exists(fixture(QStringLiteral("cue/gap.wav"))), "fixtures missing");
    }

    void cuePointsOfTheGapFixture_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<qint64>("tolerance");
        QTest::newRow("wav") << "cue/gap.wav" << qint64(50);
        QTest::newRow("flac") << "cue/gap.flac" << qint64(50);
        QTest::newRow("sine wav") << "cue/tone.wav" << qint64(50);
        // The encoder's delay and its frames of 26 ms blur the edges a little.
        QTest::newRow("mp3") << "cue/gap.mp3" << qint64(100);
    }
    void cuePointsOfTheGapFixture()
    {
        QFETCH(QString, file);
        QFETCH(qint64, tolerance);
        const TrackAnalysis a = AudioAnalyser::analyseFile(fixture(file));
        QVERIFY2(a.error.isEmpty(), qPrintable(a.error));
        QVERIFY2(qAbs(a.cueInMs - 2000) <= tolerance, qPrintable(QString::number(a.cueInMs)));
        QVERIFY2(qAbs(a.cueOutMs - 12000) <= tolerance, qPrintable(QString::number(a.cueOutMs)));
        QVERIFY2(qAbs(a.durationMs - 15000) <= tolerance, qPrintable(QString::number(a.durationMs)));
        // A hard ending: the next item starts at cue-out.
        QCOMPARE(a.mixStartMs, a.cueOutMs);
        QVERIFY(a.isValid());
    }

    void theDecodedDurationIsExact()
    {
        QCOMPARE(AudioAnalyser::analyseFile(fixture(QStringLiteral("cue/gap.wav"))).durationMs,
                 qint64(15000));
        QCOMPARE(AudioAnalyser::analyseFile(fixture(QStringLiteral("cue/gap.flac"))).durationMs,
                 qint64(15000));
        QCOMPARE(AudioAnalyser::analyseFile(fixture(QStringLiteral("fade/fade.wav"))).durationMs,
                 qint64(26000));
    }

    void theFileIsStampedWithItsSizeAndTime()
    {
        const QString path = fixture(QStringLiteral("cue/gap.wav"));
        const TrackAnalysis a = AudioAnalyser::analyseFile(path);
        QCOMPARE(a.filePath, path);
        QCOMPARE(a.fileSize, QFileInfo(path).size());
        QCOMPARE(a.fileModified, QFileInfo(path).lastModified());
        QVERIFY(a.analysedAt.isValid());
    }

    void aSixSecondFadeOutGetsItsMixStartInsideTheFade()
    {
        // 20 s of noise, then a linear fade to nothing at 26 s.
        const TrackAnalysis a = AudioAnalyser::analyseFile(fixture(QStringLiteral("fade/fade.wav")));
        QVERIFY2(a.error.isEmpty(), qPrintable(a.error));
        QVERIFY2(a.mixStartMs > 20000 && a.mixStartMs < 26000, qPrintable(QString::number(a.mixStartMs)));
        QVERIFY(a.mixStartMs < a.cueOutMs);
        // The fade's last whisper, 40 dB down, is cut; the audible part is kept.
        QVERIFY2(a.cueOutMs > 25000 && a.cueOutMs <= 26000, qPrintable(QString::number(a.cueOutMs)));
        QVERIFY(a.cueInMs <= 50);
    }

    void pureDigitalSilenceIsAnalysedButHasNoCuePoints()
    {
        const TrackAnalysis a = AudioAnalyser::analyseFile(fixture(QStringLiteral("silence/silence.wav")));
        QVERIFY2(a.error.isEmpty(), qPrintable(a.error));
        QCOMPARE(a.durationMs, qint64(5000));
        QCOMPARE(a.cueInMs, qint64(-1));
        QCOMPARE(a.cueOutMs, qint64(-1));
        QCOMPARE(a.mixStartMs, qint64(-1));
        QCOMPARE(a.integratedLufs, AudioAnalyser::kSilentLufs);
        QCOMPARE(a.truePeakDbtp, AudioAnalyser::kSilentPeakDbtp);
        QCOMPARE(a.loudnessRangeLu, 0.0);
        QCOMPARE(a.gainDb, 0.0);
        QVERIFY(a.isValid());
    }

    void everyFormatIsAnalysed_data()
    {
        QTest::addColumn<QString>("file");
        QTest::newRow("mono") << "formats/mono.wav";
        QTest::newRow("8-bit") << "formats/8bit.wav";
        QTest::newRow("96 kHz") << "formats/96k.flac";
        QTest::newRow("6 channels") << "formats/surround.wav";
    }
    void everyFormatIsAnalysed()
    {
        // 1 s silence, 4 s noise, 1 s silence.
        QFETCH(QString, file);
        const TrackAnalysis a = AudioAnalyser::analyseFile(fixture(file));
        QVERIFY2(a.error.isEmpty(), qPrintable(a.error));
        QCOMPARE(a.durationMs, qint64(6000));
        QVERIFY2(qAbs(a.cueInMs - 1000) <= 50, qPrintable(QString::number(a.cueInMs)));
        QVERIFY2(qAbs(a.cueOutMs - 5000) <= 50, qPrintable(QString::number(a.cueOutMs)));
        QVERIFY(a.integratedLufs > -30.0 && a.integratedLufs < -10.0);
        QVERIFY(a.truePeakDbtp > -20.0 && a.truePeakDbtp < 0.0);
    }

    void badInputGetsAnErrorText_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("error");
        QTest::newRow("empty") << "bad/empty.mp3"
                               << "empty file";
        QTest::newRow("text named .mp3") << "bad/notaudio.mp3"
                                         << "not a recognised audio file";
        QTest::newRow("random bytes named .flac") << "bad/random.flac"
                                                  << "no audio stream";
        QTest::newRow("unknown WAV format") << "bad/unsupported.wav"
                                            << "unsupported audio format";
        QTest::newRow("WAV without samples") << "bad/zero.wav"
                                             << "no audio samples";
        QTest::newRow("missing") << "bad/no such file.mp3"
                                 << "file not found";
        QTest::newRow("folder") << "bad"
                                << "not a regular file";
    }
    void badInputGetsAnErrorText()
    {
        QFETCH(QString, file);
        QFETCH(QString, error);
        const TrackAnalysis a = AudioAnalyser::analyseFile(fixture(file));
        QVERIFY2(a.error.startsWith(error), qPrintable(a.error));
        QVERIFY(!a.isValid());
        QCOMPARE(a.cueInMs, qint64(-1));
        QCOMPARE(a.filePath, fixture(file));
    }

    void damagedAudioGivesWhatCanBeDecoded_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<qint64>("durationMs");
        QTest::addColumn<qint64>("cueOutMs");
        // Cut halfway: 7.5 s remain and the sound runs to the cut.
        QTest::newRow("truncated mp3") << "bad/truncated.mp3" << qint64(7500) << qint64(7500);
        // Cut at a third of the file although its header promises 15 s.
        QTest::newRow("truncated wav") << "bad/truncated.wav" << qint64(5000) << qint64(5000);
        // 16 KiB of noise over the middle: the decoder skips it and goes on.
        QTest::newRow("corrupt mp3") << "bad/corrupt.mp3" << qint64(15000) << qint64(12000);
    }
    void damagedAudioGivesWhatCanBeDecoded()
    {
        QFETCH(QString, file);
        QFETCH(qint64, durationMs);
        QFETCH(qint64, cueOutMs);
        const TrackAnalysis a = AudioAnalyser::analyseFile(fixture(file));
        QVERIFY2(a.error.isEmpty(), qPrintable(a.error));
        QVERIFY2(qAbs(a.durationMs - durationMs) <= 100, qPrintable(QString::number(a.durationMs)));
        QVERIFY2(qAbs(a.cueInMs - 2000) <= 100, qPrintable(QString::number(a.cueInMs)));
        QVERIFY2(qAbs(a.cueOutMs - cueOutMs) <= 100, qPrintable(QString::number(a.cueOutMs)));
    }

    void aFifoIsRefusedInsteadOfWaitedOn()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("pipe.mp3"));
        QCOMPARE(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
        const TrackAnalysis a = AudioAnalyser::analyseFile(path);
        QCOMPARE(a.error, QStringLiteral("not a regular file"));
    }

    void theGainAimsAtTheTargetWithinTheTruePeakCeiling()
    {
        const QString path = fixture(QStringLiteral("cue/gap.wav")); // about -21 LUFS, -11 dBTP
        const TrackAnalysis quieter = AudioAnalyser::analyseFile(path, -24.0);
        QVERIFY(qAbs(quieter.gainDb - (-24.0 - quieter.integratedLufs)) < 1e-9);
        QVERIFY(quieter.gainDb < 0.0);
        const TrackAnalysis louder = AudioAnalyser::analyseFile(path, -5.0);
        QVERIFY(qAbs(louder.gainDb - (-1.0 - louder.truePeakDbtp)) < 1e-9);
        QVERIFY(louder.gainDb < -5.0 - louder.integratedLufs);
        QCOMPARE(louder.integratedLufs, quieter.integratedLufs);
    }

    void aSetCancelFlagStopsTheWork()
    {
        const std::atomic_bool cancel{true};
        const TrackAnalysis a =
            AudioAnalyser::analyseFile(fixture(QStringLiteral("cue/gap.flac")), -18.0, &cancel);
        QCOMPARE(a.error, AudioAnalyser::cancelledText());
        QVERIFY(!a.isValid());
    }

    void aDecodeOverItsTimeAllowanceIsGivenUp()
    {
        const AllowanceGuard guard;
        AudioAnalyser::setTimeAllowance(-1, 0.0);
        const TrackAnalysis a = AudioAnalyser::analyseFile(fixture(QStringLiteral("cue/gap.mp3")));
        QCOMPARE(a.error, AudioAnalyser::timeLimitText());
    }
};

QTEST_GUILESS_MAIN(TestAudioAnalyser)
#include "tst_audioanalyser.moc"
