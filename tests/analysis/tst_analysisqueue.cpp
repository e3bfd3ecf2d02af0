// The worker queue against a real store: skipping unchanged files, analysing changed ones again,
// batches, stored failures and cancelling.

#include "analysisqueue.h"
#include "audioanalyser.h"
#include "testsupport.h"
#include "trackanalysis.h"

#include <QFile>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

using namespace testsupport;

namespace {

QString fixture(const QString& name)
{
    return QStringLiteral(ONDARO_ANALYSIS_FIXTURE_DIR "/") + name;
}

int storedRows()
{
    return scalar(QStringLiteral("SELECT COUNT(*) FROM track_analysis")).toInt();
}

// Runs one queue over the paths to its end; returns the files it analysed (skipped ones not).
int runQueue(const QStringList& paths, int jobs = 2)
{
    AnalysisQueue queue;
    queue.setMaxJobs(jobs);
    QSignalSpy finished(&queue, &AnalysisQueue::finished);
    queue.enqueue(paths);
    if (queue.isRunning() && !finished.wait(120000))
        return -1;
    return queue.analysedCount();
}

} // namespace

class TestAnalysisQueue : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(home.isValid());
        useTemporaryHome(home.path());
        QVERIFY(QFile::exists(fixture(QStringLiteral("cue/gap.flac"))));
    }
    void init()
    {
        QVERIFY(freshStore());
        QVERIFY(files.isValid());
    }
    void cleanupTestCase() { closeStore(); }

    void anUnchangedFileIsSkippedOnTheSecondRunAndAChangedOneAnalysedAgain()
    {
        const QString path = copy(QStringLiteral("formats/mono.wav"), QStringLiteral("song.wav"));
        QCOMPARE(runQueue({path}), 1);
        QCOMPARE(storedRows(), 1);
        const TrackAnalysis first = TrackAnalysis::load(path);
        QVERIFY(first.isValid());
        QVERIFY(TrackAnalysis::isUpToDate(path));

        AnalysisQueue second;
        QSignalSpy analysed(&second, &AnalysisQueue::analysed);
        QSignalSpy progress(&second, &AnalysisQueue::progress);
        QSignalSpy finished(&second, &AnalysisQueue::finished);
        second.enqueue({path});
        QVERIFY(finished.wait(60000));
        QCOMPARE(second.analysedCount(), 0);
        QCOMPARE(analysed.count(), 0);
        QCOMPARE(progress.last().at(0).toInt(), 1);
        QCOMPARE(progress.last().at(1).toInt(), 1);
        QCOMPARE(TrackAnalysis::load(path).analysedAt, first.analysedAt);

        // The same name, other content: the stamp no longer matches.
        QVERIFY(QFile::remove(path));
        QVERIFY(QFile::copy(fixture(QStringLiteral("cue/tone.wav")), path));
        QVERIFY(!TrackAnalysis::isUpToDate(path));
        QCOMPARE(runQueue({path}), 1);
        const TrackAnalysis changed = TrackAnalysis::load(path);
        QVERIFY(qAbs(changed.cueInMs - 2000) <= 50);
        QVERIFY(qAbs(changed.integratedLufs - first.integratedLufs) > 3.0);
        QCOMPARE(storedRows(), 1);
    }

    void pathsAlreadyQueuedAreLeftOut()
    {
        const QString a = copy(QStringLiteral("formats/mono.wav"), QStringLiteral("a.wav"));
        const QString b = copy(QStringLiteral("formats/8bit.wav"), QStringLiteral("b.wav"));
        AnalysisQueue queue;
        queue.setMaxJobs(1);
        QSignalSpy analysed(&queue, &AnalysisQueue::analysed);
        QSignalSpy finished(&queue, &AnalysisQueue::finished);
        queue.enqueue({a, a, b});
        queue.enqueue({b, a, QString()});
        QCOMPARE(queue.totalCount(), 2);
        QVERIFY(finished.wait(60000));
        QCOMPARE(analysed.count(), 2);
        QCOMPARE(finished.count(), 1);
        QCOMPARE(storedRows(), 2);
    }

    void resultsComeBackOnTheQueuesThreadAndAreWrittenInBatches()
    {
        QStringList paths;
        for (int i = 0; i < 5; ++i)
            paths << copy(QStringLiteral("formats/mono.wav"), QStringLiteral("batch%1.wav").arg(i));
        AnalysisQueue queue;
        queue.setMaxJobs(2);
        queue.setBatchSize(2);
        QList<int> rowsSeen;
        bool onOwnThread = true;
        connect(&queue, &AnalysisQueue::analysed, this, [&](const TrackAnalysis& a) {
            onOwnThread = onOwnThread && QThread::currentThread() == thread();
            QVERIFY(a.isValid());
            rowsSeen << storedRows();
        });
        QSignalSpy progress(&queue, &AnalysisQueue::progress);
        QSignalSpy finished(&queue, &AnalysisQueue::finished);
        queue.enqueue(paths);
        QVERIFY(finished.wait(60000));
        QVERIFY(onOwnThread);
        // When the n-th result is reported, every full batch of two up to it is stored (a batch that
        // waited a second may have been written early), and nothing beyond it.
        QCOMPARE(rowsSeen.size(), 5);
        for (int n = 1; n <= 5; ++n) {
            QVERIFY2(rowsSeen.at(n - 1) >= n / 2 * 2 && rowsSeen.at(n - 1) <= n,
                     qPrintable(QStringLiteral("after %1: %2 rows").arg(n).arg(rowsSeen.at(n - 1))));
        }
        QCOMPARE(storedRows(), 5);
        QCOMPARE(progress.last().at(0).toInt(), 5);
        QCOMPARE(progress.last().at(1).toInt(), 5);
    }

    void aFailureIsStoredSoTheSameFileIsNotRetried()
    {
        const QString path = copy(QStringLiteral("bad/notaudio.mp3"), QStringLiteral("notaudio.mp3"));
        QCOMPARE(runQueue({path}), 1);
        const TrackAnalysis stored = TrackAnalysis::load(path);
        QVERIFY(stored.error.startsWith(QStringLiteral("not a recognised audio file")));
        QCOMPARE(runQueue({path}), 0);
    }

    void aVanishedFileIsReportedButNotStored()
    {
        AnalysisQueue queue;
        QSignalSpy analysed(&queue, &AnalysisQueue::analysed);
        QSignalSpy finished(&queue, &AnalysisQueue::finished);
        queue.enqueue({files.filePath(QStringLiteral("gone.mp3"))});
        QVERIFY(finished.wait(60000));
        QCOMPARE(analysed.count(), 1);
        QCOMPARE(analysed.first().at(0).value<TrackAnalysis>().error, QStringLiteral("file not found"));
        QCOMPARE(storedRows(), 0);
    }

    void resultsAreNotStoredWhenStoringIsOff()
    {
        const QString path = copy(QStringLiteral("formats/mono.wav"), QStringLiteral("unstored.wav"));
        AnalysisQueue queue;
        queue.setStoreResults(false);
        QSignalSpy finished(&queue, &AnalysisQueue::finished);
        queue.enqueue({path});
        QVERIFY(finished.wait(60000));
        QCOMPARE(queue.analysedCount(), 1);
        QCOMPARE(storedRows(), 0);
    }

    void cancellingLeavesOnlyCompleteAnalysesBehind()
    {
        QStringList paths;
        for (int i = 0; i < 12; ++i)
            paths << copy(QStringLiteral("cue/gap.flac"), QStringLiteral("cancel%1.flac").arg(i));
        AnalysisQueue queue;
        queue.setMaxJobs(2);
        QList<TrackAnalysis> delivered;
        connect(&queue, &AnalysisQueue::analysed, this, [&](const TrackAnalysis& a) {
            delivered << a;
            if (delivered.size() == 1)
                queue.cancel();
        });
        QSignalSpy finished(&queue, &AnalysisQueue::finished);
        queue.enqueue(paths);
        QVERIFY(finished.wait(120000));
        QCOMPARE(finished.count(), 1);
        QVERIFY(!queue.isRunning());
        // The one result before the cancel is kept whole; nothing of the abandoned ones is written.
        QCOMPARE(delivered.size(), 1);
        QCOMPARE(storedRows(), 1);
        const TrackAnalysis kept = TrackAnalysis::load(delivered.first().filePath);
        QVERIFY(kept.isValid());
        QCOMPARE(kept.cueInMs, delivered.first().cueInMs);
        QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM track_analysis WHERE error<>''")).toInt(), 0);

        // Afterwards the queue takes new work again.
        QCOMPARE(runQueue(paths.mid(0, 3)), 2);
    }

    void theTargetLoudnessComesFromTheSettings()
    {
        QSettings().setValue(AnalysisQueue::targetLufsKey(), -23.0);
        const AnalysisQueue queue;
        QCOMPARE(queue.targetLufs(), -23.0);
        QSettings().remove(AnalysisQueue::targetLufsKey());
        const AnalysisQueue byDefault;
        QCOMPARE(byDefault.targetLufs(), -18.0);
    }

private:
    QString copy(const QString& fixtureName, const QString& name)
    {
        const QString path = files.filePath(name);
        QFile::remove(path);
        if (!QFile::copy(fixture(fixtureName), path))
            qWarning() << "cannot copy" << fixtureName;
        return path;
    }

    QTemporaryDir home;
    QTemporaryDir files;
};

QTEST_GUILESS_MAIN(TestAnalysisQueue)
#include "tst_analysisqueue.moc"
