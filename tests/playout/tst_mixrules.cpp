#include "mixrules.h"
#include "mixsettings.h"
#include "playouttestsupport.h"

#include <QAudioBuffer>
#include <QAudioFormat>
#include <QCoreApplication>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <vector>

// The mixing decisions, the meter and the volume formula, checked without any audio device.
class TestMixRules : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir settingsDir;

    static MixSettings crossfading()
    {
        MixSettings s;
        s.crossfadeEnabled = true;
        return s;
    }

    template <typename Sample>
    static QAudioBuffer bufferOf(QAudioFormat::SampleFormat format, int channels,
                                 const std::vector<Sample>& samples)
    {
        QAudioFormat f;
        f.setSampleRate(44100);
        f.setChannelCount(channels);
        f.setSampleFormat(format);
        const QByteArray bytes(reinterpret_cast<const char*>(samples.data()),
                               int(samples.size() * sizeof(Sample)));
        return QAudioBuffer(bytes, f);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(settingsDir.isValid());
        playouttest::useTemporarySettings(settingsDir.path(), QStringLiteral("tst_mixrules"));
    }

    void init() { QSettings().clear(); }

    void mixSettingsHaveTheDocumentedDefaults()
    {
        const MixSettings s = MixSettings::fromSettings();
        QCOMPARE(s.crossfadeEnabled, false);
        QCOMPARE(s.mixPointMs, 2500);
        QCOMPARE(s.fadeOutMs, 2500);
        QCOMPARE(s.triggerMixEnabled, false);
        QCOMPARE(s.triggerMixDb, -14.0);
        QCOMPARE(s.fadeOutOnMix, true);
        QCOMPARE(s.minCrossfadeMs, 45000);
    }

    void mixSettingsAreReadFromThePlaybackGroup()
    {
        QSettings settings;
        settings.setValue(QStringLiteral("playback/crossfadeEnabled"), true);
        settings.setValue(QStringLiteral("playback/mixPointMs"), 4000);
        settings.setValue(QStringLiteral("playback/fadeOutMs"), 1200);
        settings.setValue(QStringLiteral("playback/triggerMixEnabled"), true);
        settings.setValue(QStringLiteral("playback/triggerMixDb"), -20.5);
        settings.setValue(QStringLiteral("playback/fadeOutOnMix"), false);
        settings.setValue(QStringLiteral("playback/minCrossfadeMs"), 10000);
        settings.sync();
        const MixSettings s = MixSettings::fromSettings();
        QCOMPARE(s.crossfadeEnabled, true);
        QCOMPARE(s.mixPointMs, 4000);
        QCOMPARE(s.fadeOutMs, 1200);
        QCOMPARE(s.triggerMixEnabled, true);
        QCOMPARE(s.triggerMixDb, -20.5);
        QCOMPARE(s.fadeOutOnMix, false);
        QCOMPARE(s.minCrossfadeMs, 10000);
    }

    void toDbOfFullScaleIsZero() { QCOMPARE(toDb(1.0), 0.0); }
    void toDbOfSilenceIsTheFloor() { QCOMPARE(toDb(0.0), -100.0); }
    void toDbBelowTheFloorIsClampedToMinus100() { QCOMPARE(toDb(0.000001), -100.0); }
    void toDbOfNegativeInputIsTheFloor() { QCOMPARE(toDb(-0.5), -100.0); }
    void toDbOfHalfIsAboutMinusSix() { QVERIFY(std::fabs(toDb(0.5) + 6.0206) < 0.001); }

    void duckedDeckAtFullGainAndVolume80OutputsPoint16()
    {
        QVERIFY(std::fabs(effectiveVolume(1.0, 0.8, true) - 0.16) < 1e-12);
        QVERIFY(std::fabs(effectiveVolume(1.0, 0.8, false) - 0.8) < 1e-12);
    }

    void effectiveVolumeIsClampedToZeroAndOne()
    {
        QCOMPARE(effectiveVolume(1.5, 1.0, false), 1.0);
        QCOMPARE(effectiveVolume(-0.2, 0.8, false), 0.0);
        QCOMPARE(effectiveVolume(0.5, 0.0, false), 0.0);
    }

    void fortySecondTrackIsNeverMixedWithDefaultMinimum()
    {
        const MixSettings s = crossfading();
        for (qint64 remaining = 40000; remaining >= 0; remaining -= 100)
            QVERIFY2(!shouldMix(s, 40000, remaining, -100.0, true), qPrintable(QString::number(remaining)));
    }

    void noMixWithoutCrossfade()
    {
        MixSettings s;
        QVERIFY(!shouldMix(s, 200000, 1000, -100.0, true));
    }

    void noMixWhenDurationUnknown()
    {
        MixSettings s = crossfading();
        s.minCrossfadeMs = 0;
        QVERIFY(!shouldMix(s, 0, 0, 0.0, false));
    }

    void noMixWhenPositionIsPastTheDuration()
    {
        QVERIFY(!shouldMix(crossfading(), 200000, -5, -100.0, true));
    }

    void mixesAtTheMixPoint()
    {
        const MixSettings s = crossfading();
        QVERIFY(!shouldMix(s, 200000, 2501, 0.0, false));
        QVERIFY(shouldMix(s, 200000, 2500, 0.0, false));
        QVERIFY(shouldMix(s, 200000, 10, 0.0, false));
    }

    void levelTriggerMixesAnywhereOnceQuietEnough()
    {
        MixSettings s = crossfading();
        s.triggerMixEnabled = true;
        QVERIFY(shouldMix(s, 200000, 150000, -14.0, true));
        QVERIFY(shouldMix(s, 200000, 150000, -30.0, true));
        QVERIFY(!shouldMix(s, 200000, 150000, -13.9, true));
        QVERIFY(!shouldMix(s, 200000, 150000, -30.0, false));
        s.triggerMixEnabled = false;
        QVERIFY(!shouldMix(s, 200000, 150000, -30.0, true));
    }

    void trackMixOfEightSecondsStartsNextRowEightSecondsBeforeTheEnd()
    {
        const MixSettings s = effectiveMixSettings(crossfading(), 8000, -1, -1, -1);
        QCOMPARE(s.mixPointMs, 8000);
        QVERIFY(!shouldMix(s, 200000, 8001, 0.0, false));
        QVERIFY(shouldMix(s, 200000, 8000, 0.0, false));
    }

    void rowOverrideOfThreeSecondsWinsOverTrackMix()
    {
        const MixSettings s = effectiveMixSettings(crossfading(), 8000, 1000, 3000, 500);
        QCOMPARE(s.mixPointMs, 3000);
        QCOMPARE(s.fadeOutMs, 500);
        QVERIFY(!shouldMix(s, 200000, 8000, 0.0, false));
        QVERIFY(shouldMix(s, 200000, 3000, 0.0, false));
    }

    void negativeOverridesLeaveTheSettings()
    {
        MixSettings base = crossfading();
        base.mixPointMs = 1234;
        base.fadeOutMs = 987;
        const MixSettings s = effectiveMixSettings(base, -1, -1, -1, -1);
        QCOMPARE(s.mixPointMs, 1234);
        QCOMPARE(s.fadeOutMs, 987);
    }

    void peakOfStereoInt16BufferIsPerChannel()
    {
        const QAudioBuffer b = bufferOf<qint16>(QAudioFormat::Int16, 2, {100, -16384, -32768, 200, 5, 0});
        const PeakLevels p = peakLevels(b);
        QVERIFY(p.valid);
        QCOMPARE(p.left, 1.0);
        QCOMPARE(p.right, 0.5);
    }

    void peakOfMonoBufferCopiesLeftToRight()
    {
        const QAudioBuffer b = bufferOf<float>(QAudioFormat::Float, 1, {0.1f, -0.25f, 0.2f});
        const PeakLevels p = peakLevels(b);
        QVERIFY(p.valid);
        QCOMPARE(p.left, 0.25);
        QCOMPARE(p.right, 0.25);
    }

    void peakOfFloatAboveFullScaleIsCapped()
    {
        const PeakLevels p = peakLevels(bufferOf<float>(QAudioFormat::Float, 2, {1.8f, -0.5f}));
        QVERIFY(p.valid);
        QCOMPARE(p.left, 1.0);
        QCOMPARE(p.right, 0.5);
    }

    void peakOfUnsigned8BitIsCentredOn128()
    {
        const PeakLevels p = peakLevels(bufferOf<quint8>(QAudioFormat::UInt8, 2, {128, 0, 192, 130}));
        QVERIFY(p.valid);
        QCOMPARE(p.left, 0.5);
        QCOMPARE(p.right, 1.0);
    }

    void peakOfInt32UsesTwoToThe31()
    {
        const PeakLevels p =
            peakLevels(bufferOf<qint32>(QAudioFormat::Int32, 2, {1073741824, -2147483647 - 1}));
        QVERIFY(p.valid);
        QCOMPARE(p.left, 0.5);
        QCOMPARE(p.right, 1.0);
    }

    void emptyOrInvalidBufferGivesNoLevel()
    {
        QVERIFY(!peakLevels(QAudioBuffer()).valid);
        QVERIFY(!peakLevels(bufferOf<qint16>(QAudioFormat::Int16, 2, {})).valid);
    }

    void unknownSampleFormatGivesNoLevel()
    {
        QAudioFormat f;
        f.setSampleRate(44100);
        f.setChannelCount(2);
        QCOMPARE(f.sampleFormat(), QAudioFormat::Unknown);
        QVERIFY(!peakLevels(QAudioBuffer(QByteArray(64, '\x7f'), f)).valid);
    }
};

QTEST_GUILESS_MAIN(TestMixRules)
#include "tst_mixrules.moc"
