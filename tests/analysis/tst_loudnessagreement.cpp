// Integrated loudness and true peak agree with ffmpeg's own EBU R 128 meter (the "ebur128" filter with
// true peak), run here as a separate program over the same fixtures.

#include "audioanalyser.h"

#include <QProcess>
#include <QRegularExpression>
#include <QtTest>

namespace {

QString fixture(const QString& name)
{
    return QStringLiteral(ONDARO_ANALYSIS_FIXTURE_DIR "/") + name;
}

struct Reference {
    bool ok = false;
    double integratedLufs = 0.0;
    double truePeakDbtp = 0.0;
    QString output;
};

// The summary ffmpeg prints at the end: "I: -21.2 LUFS" and, under "True peak:", "Peak: -10.7 dBFS".
Reference measureWithFfmpeg(const QString& path)
{
    Reference ref;
    QProcess ffmpeg;
    ffmpeg.start(QStringLiteral("ffmpeg"),
                 {QStringLiteral("-nostdin"), QStringLiteral("-hide_banner"), QStringLiteral("-nostats"),
                  QStringLiteral("-i"), path, QStringLiteral("-af"), QStringLiteral("ebur128=peak=true"),
                  QStringLiteral("-f"), QStringLiteral("null"), QStringLiteral("-")});
    if (!ffmpeg.waitForFinished(120000) || ffmpeg.exitCode() != 0) {
        ref.output = QString::fromUtf8(ffmpeg.readAllStandardError());
        return ref;
    }
    ref.output = QString::fromUtf8(ffmpeg.readAllStandardError());
    const qsizetype summary = ref.output.lastIndexOf(QStringLiteral("Summary:"));
    if (summary < 0)
        return ref;
    const QString tail = ref.output.mid(summary);
    const QRegularExpressionMatch i =
        QRegularExpression(QStringLiteral("I:\\s+(-?[0-9.]+|-inf) LUFS")).match(tail);
    const QRegularExpressionMatch peak =
        QRegularExpression(QStringLiteral("True peak:\\s+Peak:\\s+(-?[0-9.]+|-inf) dBFS")).match(tail);
    if (!i.hasMatch() || !peak.hasMatch())
        return ref;
    bool okI = false;
    bool okPeak = false;
    ref.integratedLufs = i.captured(1).toDouble(&okI);
    ref.truePeakDbtp = peak.captured(1).toDouble(&okPeak);
    ref.ok = okI && okPeak;
    return ref;
}

} // namespace

class TestLoudnessAgreement : public QObject
{
    Q_OBJECT

private slots:
    void integratedLoudnessAndTruePeakAgreeWithFfmpeg_data()
    {
        QTest::addColumn<QString>("file");
        QTest::newRow("noise wav") << "cue/gap.wav";
        QTest::newRow("noise mp3") << "cue/gap.mp3";
        QTest::newRow("sine wav") << "cue/tone.wav";
        QTest::newRow("fade wav") << "fade/fade.wav";
        QTest::newRow("mono wav") << "formats/mono.wav";
        QTest::newRow("96 kHz flac") << "formats/96k.flac";
        QTest::newRow("5.1 wav") << "formats/surround.wav";
    }
    void integratedLoudnessAndTruePeakAgreeWithFfmpeg()
    {
        QFETCH(QString, file);
        const Reference ref = measureWithFfmpeg(fixture(file));
        QVERIFY2(ref.ok, qPrintable(ref.output.right(2000)));
        const TrackAnalysis a = AudioAnalyser::analyseFile(fixture(file));
        QVERIFY2(a.error.isEmpty(), qPrintable(a.error));
        const QString figures = QStringLiteral("ours %1 LUFS %2 dBTP, ffmpeg %3 LUFS %4 dBTP")
                                    .arg(a.integratedLufs)
                                    .arg(a.truePeakDbtp)
                                    .arg(ref.integratedLufs)
                                    .arg(ref.truePeakDbtp);
        // ffmpeg prints one decimal, so up to 0.05 of the margin is its rounding.
        QVERIFY2(qAbs(a.integratedLufs - ref.integratedLufs) <= 0.3, qPrintable(figures));
        QVERIFY2(qAbs(a.truePeakDbtp - ref.truePeakDbtp) <= 0.3, qPrintable(figures));
    }
};

QTEST_GUILESS_MAIN(TestLoudnessAgreement)
#include "tst_loudnessagreement.moc"
