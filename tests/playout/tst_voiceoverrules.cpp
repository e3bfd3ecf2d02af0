#include "playouttestsupport.h"
#include "trackparams.h"
#include "voiceoverrules.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

// Whether a voiceover plays, where it starts and which file it is, without audio.
class TestVoiceoverRules : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    const QDate today{2026, 3, 14};

    static TrackParams withVoiceover(int probability)
    {
        TrackParams p;
        p.voiceoverIns = 30000;
        p.voiceoverSource = QStringLiteral("/voice/id.wav");
        p.voiceoverProbability = probability;
        return p;
    }

    QString touch(const QString& name)
    {
        QFile file(dir.filePath(name));
        file.open(QIODevice::WriteOnly);
        file.write("x");
        return file.fileName();
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        playouttest::useTemporarySettings(dir.path(), QStringLiteral("tst_voiceoverrules"));
    }

    void init() { QSettings().clear(); }

    void probability100AlwaysPlays()
    {
        for (int r = 0; r < 100; ++r)
            QVERIFY(shouldPlayVoiceover(withVoiceover(100), today, r, true));
    }

    void probability0NeverPlays()
    {
        for (int r = 0; r < 100; ++r)
            QVERIFY(!shouldPlayVoiceover(withVoiceover(0), today, r, true));
    }

    void probability50PlaysForDraws0To49()
    {
        for (int r = 0; r < 100; ++r)
            QCOMPARE(shouldPlayVoiceover(withVoiceover(50), today, r, true), r < 50);
    }

    void voiceoverWhoseNotAfterDateWasYesterdayDoesNotPlay()
    {
        TrackParams p = withVoiceover(100);
        p.voiceoverNotAfter = today.addDays(-1);
        QVERIFY(!shouldPlayVoiceover(p, today, 0, true));
        p.voiceoverNotAfter = today;
        QVERIFY(shouldPlayVoiceover(p, today, 0, true));
    }

    void noInsertPointOrNoSourceMeansNoVoiceover()
    {
        TrackParams p = withVoiceover(100);
        p.voiceoverIns = 0;
        QVERIFY(!shouldPlayVoiceover(p, today, 0, true));
        p = withVoiceover(100);
        p.voiceoverSource.clear();
        QVERIFY(!shouldPlayVoiceover(p, today, 0, true));
    }

    void storedSwitchOffMeansNoVoiceover()
    {
        QCOMPARE(voiceoversEnabledSetting(), true); // default
        QVERIFY(shouldPlayVoiceover(withVoiceover(100), today, 0));
        setVoiceoversEnabledSetting(false);
        QCOMPARE(QSettings().value(QStringLiteral("voiceovers/enabled")).toBool(), false);
        QCOMPARE(voiceoversEnabledSetting(), false);
        QVERIFY(!shouldPlayVoiceover(withVoiceover(100), today, 0));
        QVERIFY(!shouldPlayVoiceover(withVoiceover(100), today, 0, false));
        setVoiceoversEnabledSetting(true);
        QVERIFY(shouldPlayVoiceover(withVoiceover(100), today, 0));
    }

    void positionOneEndsTheVoiceoverAtTheInsertPoint()
    {
        TrackParams p = withVoiceover(100);
        p.voiceoverPosition = 1;
        QCOMPARE(voiceoverInsertPoint(p, 4000), qint64(26000));
        QCOMPARE(voiceoverInsertPoint(p, 0), qint64(30000)); // length not known yet
        QCOMPARE(voiceoverInsertPoint(p, 45000), qint64(0));
    }

    void otherPositionsStartAtTheInsertPoint()
    {
        TrackParams p = withVoiceover(100);
        p.voiceoverPosition = 0;
        QCOMPARE(voiceoverInsertPoint(p, 4000), qint64(30000));
        p.voiceoverPosition = 2;
        QCOMPARE(voiceoverInsertPoint(p, 4000), qint64(30000));
        p.voiceoverIns = -5;
        QCOMPARE(voiceoverInsertPoint(p, 4000), qint64(0));
    }

    void fileSourceIsUsedAsItIs()
    {
        const QString file = touch(QStringLiteral("station-id.wav"));
        QCOMPARE(chooseVoiceoverFile(file, 12345), QFileInfo(file).absoluteFilePath());
    }

    void folderSourcePicksOneOfItsSupportedFilesOnly()
    {
        QDir(dir.path()).mkdir(QStringLiteral("ids"));
        const QString folder = dir.filePath(QStringLiteral("ids"));
        QFile::copy(touch(QStringLiteral("one.mp3")), folder + QStringLiteral("/one.MP3"));
        QFile::copy(touch(QStringLiteral("two.ogg")), folder + QStringLiteral("/two.ogg"));
        QFile::copy(touch(QStringLiteral("notes.txt")), folder + QStringLiteral("/notes.txt"));
        QDir(folder).mkdir(QStringLiteral("sub.wav")); // a folder, not a file
        QSet<QString> picked;
        for (quint64 draw = 0; draw < 20; ++draw)
            picked.insert(QFileInfo(chooseVoiceoverFile(folder, draw)).fileName());
        QCOMPARE(picked, (QSet<QString>{QStringLiteral("one.MP3"), QStringLiteral("two.ogg")}));
    }

    void emptyFolderOrMissingSourceGivesNoFile()
    {
        QDir(dir.path()).mkdir(QStringLiteral("empty"));
        QVERIFY(chooseVoiceoverFile(dir.filePath(QStringLiteral("empty")), 0).isEmpty());
        QVERIFY(chooseVoiceoverFile(dir.filePath(QStringLiteral("missing.wav")), 0).isEmpty());
        QVERIFY(chooseVoiceoverFile(QString(), 0).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestVoiceoverRules)
#include "tst_voiceoverrules.moc"
