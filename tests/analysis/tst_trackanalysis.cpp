// The analysis record in the store: its table, saving and loading, the up-to-date test and the gain.

#include "testsupport.h"
#include "trackanalysis.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <limits>

using namespace testsupport;

namespace {

TrackAnalysis sample(const QString& path)
{
    TrackAnalysis a;
    a.filePath = path;
    a.fileSize = 123456789012LL;
    a.fileModified = QDateTime::fromMSecsSinceEpoch(1700000000123LL, Qt::UTC);
    a.analysedAt = QDateTime(QDate(2024, 5, 6), QTime(7, 8, 9));
    a.durationMs = 10800000; // three hours
    a.integratedLufs = -14.25;
    a.loudnessRangeLu = 6.5;
    a.truePeakDbtp = -0.75;
    a.cueInMs = 120;
    a.cueOutMs = 10799000;
    a.mixStartMs = 10791000;
    a.gainDb = -3.75;
    return a;
}

int storedRows()
{
    return scalar(QStringLiteral("SELECT COUNT(*) FROM track_analysis")).toInt();
}

bool writeBytes(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

// Analysis of a file as it is on disk now, as the analyser stamps it.
TrackAnalysis stampedFor(const QString& path)
{
    TrackAnalysis a = sample(path);
    const QFileInfo info(path);
    a.fileSize = info.size();
    a.fileModified = info.lastModified();
    return a;
}

} // namespace

class TestTrackAnalysis : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(home.isValid());
        QVERIFY(files.isValid());
        useTemporaryHome(home.path());
    }
    void init() { QVERIFY(freshStore()); }
    void cleanupTestCase() { closeStore(); }

    void theStoreSetUpCreatesTheTableAndASecondSetUpKeepsItsRows()
    {
        QVERIFY(TrackAnalysis::save({sample(QStringLiteral("/music/a.mp3"))}));
        QCOMPARE(storedRows(), 1);
        QVERIFY(MusicLibrary::initialize());
        TrackAnalysis::ensureTable();
        QCOMPARE(storedRows(), 1);
    }

    void everyFieldSurvivesSaveAndLoad()
    {
        const QString path = QStringLiteral("/music/it's \"odd\" ü.flac");
        const TrackAnalysis saved = sample(path);
        QVERIFY(TrackAnalysis::save({saved}));
        const TrackAnalysis loaded = TrackAnalysis::load(path);
        QCOMPARE(loaded.filePath, path);
        QCOMPARE(loaded.fileSize, saved.fileSize);
        QCOMPARE(loaded.fileModified.toMSecsSinceEpoch(), saved.fileModified.toMSecsSinceEpoch());
        QCOMPARE(loaded.analysedAt, saved.analysedAt);
        QCOMPARE(loaded.durationMs, saved.durationMs);
        QCOMPARE(loaded.integratedLufs, saved.integratedLufs);
        QCOMPARE(loaded.loudnessRangeLu, saved.loudnessRangeLu);
        QCOMPARE(loaded.truePeakDbtp, saved.truePeakDbtp);
        QCOMPARE(loaded.cueInMs, saved.cueInMs);
        QCOMPARE(loaded.cueOutMs, saved.cueOutMs);
        QCOMPARE(loaded.mixStartMs, saved.mixStartMs);
        QCOMPARE(loaded.gainDb, saved.gainDb);
        QVERIFY(loaded.error.isEmpty());
        QVERIFY(loaded.isValid());
    }

    void anUnknownFileLoadsAsNoAnalysis()
    {
        const TrackAnalysis loaded = TrackAnalysis::load(QStringLiteral("/music/never.mp3"));
        QVERIFY(loaded.filePath.isEmpty());
        QVERIFY(!loaded.isValid());
        QCOMPARE(loaded.cueInMs, qint64(-1));
    }

    void savingAgainReplacesTheRowOfThatPath()
    {
        const QString path = QStringLiteral("/music/b.mp3");
        TrackAnalysis a = sample(path);
        QVERIFY(TrackAnalysis::save({a, sample(QStringLiteral("/music/c.mp3"))}));
        a.integratedLufs = -20.0;
        a.cueInMs = 2000;
        QVERIFY(TrackAnalysis::save({a}));
        QCOMPARE(storedRows(), 2);
        QCOMPARE(TrackAnalysis::load(path).integratedLufs, -20.0);
        QCOMPARE(TrackAnalysis::load(path).cueInMs, qint64(2000));
    }

    void aFailureIsStoredWithItsReasonAndIsNoValidAnalysis()
    {
        TrackAnalysis failed;
        failed.filePath = QStringLiteral("/music/broken.mp3");
        failed.fileSize = 10;
        failed.fileModified = QDateTime::currentDateTime();
        failed.error = QStringLiteral("not a recognised audio file");
        QVERIFY(TrackAnalysis::save({failed}));
        const TrackAnalysis loaded = TrackAnalysis::load(failed.filePath);
        QCOMPARE(loaded.error, failed.error);
        QVERIFY(!loaded.isValid());
        QCOMPARE(loaded.cueOutMs, qint64(-1));
    }

    void aNonFiniteFigureIsStoredAsNothingRatherThanAsText()
    {
        TrackAnalysis a = sample(QStringLiteral("/music/nan.mp3"));
        a.integratedLufs = std::numeric_limits<double>::quiet_NaN();
        a.truePeakDbtp = -std::numeric_limits<double>::infinity();
        QVERIFY(TrackAnalysis::save({a}));
        QVERIFY(scalar(QStringLiteral("SELECT integrated_lufs FROM track_analysis WHERE filepath=?"),
                       {a.filePath})
                    .isNull());
        QCOMPARE(TrackAnalysis::load(a.filePath).truePeakDbtp, 0.0);
    }

    void removeDeletesTheRow()
    {
        QVERIFY(TrackAnalysis::save({sample(QStringLiteral("/music/d.mp3"))}));
        QVERIFY(TrackAnalysis::remove(QStringLiteral("/music/d.mp3")));
        QCOMPARE(storedRows(), 0);
    }

    void anAnalysisIsUpToDateOnlyWhileTheFileKeepsItsSizeAndTime()
    {
        const QString path = files.filePath(QStringLiteral("song.mp3"));
        QVERIFY(writeBytes(path, QByteArray(1000, 'x')));
        QVERIFY(!TrackAnalysis::isUpToDate(path));
        QVERIFY(TrackAnalysis::save({stampedFor(path)}));
        QVERIFY(TrackAnalysis::isUpToDate(path));

        // Another time, same size.
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(
            file.setFileTime(QFileInfo(path).lastModified().addSecs(-60), QFileDevice::FileModificationTime));
        file.close();
        QVERIFY(!TrackAnalysis::isUpToDate(path));
        QVERIFY(TrackAnalysis::save({stampedFor(path)}));
        QVERIFY(TrackAnalysis::isUpToDate(path));

        // Another size.
        QVERIFY(writeBytes(path, QByteArray(1001, 'x')));
        QVERIFY(!TrackAnalysis::isUpToDate(path));

        // Gone.
        QVERIFY(TrackAnalysis::save({stampedFor(path)}));
        QVERIFY(QFile::remove(path));
        QVERIFY(!TrackAnalysis::isUpToDate(path));
    }

    void storedStampsAreFoundOneByOneAndByScanningTheTable()
    {
        QList<TrackAnalysis> records;
        QStringList asked;
        for (int i = 0; i < 300; ++i) {
            const QString path = QStringLiteral("/music/%1.mp3").arg(i);
            asked << path;
            if (i % 3 == 0) {
                TrackAnalysis a = sample(path);
                a.fileSize = i;
                records << a;
            }
        }
        QVERIFY(TrackAnalysis::save(records));
        const auto all = TrackAnalysis::storedStamps(asked); // more than a few: one scan
        QCOMPARE(all.size(), 100);
        QCOMPARE(all.value(QStringLiteral("/music/99.mp3")).first, qint64(99));
        QVERIFY(!all.contains(QStringLiteral("/music/100.mp3")));
        const auto few = TrackAnalysis::storedStamps(asked.mid(0, 7)); // one by one
        QCOMPARE(few.size(), 3);
        QCOMPARE(few.value(QStringLiteral("/music/6.mp3")).second,
                 sample(QString()).fileModified.toMSecsSinceEpoch());
    }

    void gainBringsTheLoudnessToTheTarget()
    {
        TrackAnalysis a;
        a.integratedLufs = -23.0;
        a.truePeakDbtp = -10.0;
        QCOMPARE(a.gainTowards(-18.0), 5.0);
        a.integratedLufs = -9.0;
        a.truePeakDbtp = 0.5;
        QCOMPARE(a.gainTowards(-18.0), -9.0);
    }

    void gainStopsWhereTheTruePeakReachesMinusOneDbtp()
    {
        TrackAnalysis a;
        a.integratedLufs = -23.0;
        a.truePeakDbtp = -3.0;
        QCOMPARE(a.gainTowards(-18.0), 2.0);
        a.truePeakDbtp = 1.0; // a loud peak can even turn a boost into a cut
        QCOMPARE(a.gainTowards(-18.0), -2.0);
    }

    void nothingMeasurableGetsNoGain()
    {
        TrackAnalysis a;
        a.integratedLufs = -70.0;
        a.truePeakDbtp = -144.0;
        QCOMPARE(a.gainTowards(-18.0), 0.0);
        a.integratedLufs = -std::numeric_limits<double>::infinity();
        QCOMPARE(a.gainTowards(-18.0), 0.0);
    }

private:
    QTemporaryDir home;
    QTemporaryDir files;
};

QTEST_GUILESS_MAIN(TestTrackAnalysis)
#include "tst_trackanalysis.moc"
