// DurationScanner on real files: one file at a time through a muted media player, a result per file,
// `finished` when the queue runs empty, and no second queue entry for a path already waiting.

#include "durationscanner.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

class TestDurationScanner : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir work;
    QString wav, mp3, ogg, garbage;

    // The fixture script's scan files when they exist; otherwise the same kind made here with ffmpeg.
    QString scanFile(const QString& name)
    {
        const QString fixture = QStringLiteral(ONDARO_FIXTURE_DIR "/scan/") + name;
        if (QFileInfo(fixture).size() > 0)
            return fixture;
        const QString path = work.filePath(name);
        QProcess ffmpeg;
        ffmpeg.start(QStringLiteral("ffmpeg"),
                     {QStringLiteral("-nostdin"), QStringLiteral("-loglevel"), QStringLiteral("error"),
                      QStringLiteral("-y"), QStringLiteral("-f"), QStringLiteral("lavfi"),
                      QStringLiteral("-i"),
                      QStringLiteral("sine=frequency=440:sample_rate=44100:duration=1.5"), path});
        ffmpeg.waitForFinished(120000);
        return path;
    }

    // Every resolved path with its duration, in order.
    static QList<QPair<QString, qint64>> results(const QSignalSpy& spy)
    {
        QList<QPair<QString, qint64>> list;
        for (const QList<QVariant>& args : spy)
            list << qMakePair(args.at(0).toString(), args.at(1).toLongLong());
        return list;
    }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(work.isValid());
        wav = scanFile(QStringLiteral("short.wav"));
        mp3 = scanFile(QStringLiteral("short.mp3"));
        ogg = scanFile(QStringLiteral("short.ogg"));
        for (const QString& f : {wav, mp3, ogg})
            QVERIFY2(QFileInfo(f).size() > 0, qPrintable(f));
        garbage = work.filePath(QStringLiteral("notes.mp3"));
        QFile file(garbage);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(QByteArray("This is a text file wearing an audio file's name.\n").repeated(40));
    }

    void realFilesResolveToTheirLengthsOneAtATime()
    {
        DurationScanner scanner;
        QSignalSpy resolved(&scanner, &DurationScanner::resolved);
        QSignalSpy finished(&scanner, &DurationScanner::finished);
        scanner.enqueue({wav, mp3, ogg});
        QVERIFY(scanner.isBusy());
        QCOMPARE(scanner.pendingCount(), 2);
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 60000);
        const auto list = results(resolved);
        QCOMPARE(list.size(), 3);
        QCOMPARE(list.at(0).first, wav);
        QCOMPARE(list.at(1).first, mp3);
        QCOMPARE(list.at(2).first, ogg);
        for (const auto& r : list)
            QVERIFY2(r.second > 1200 && r.second < 1900,
                     qPrintable(QStringLiteral("%1: %2 ms").arg(r.first).arg(r.second)));
        QVERIFY(!scanner.isBusy());
    }

    void nonAudioFileResolvesToZero()
    {
        DurationScanner scanner;
        QSignalSpy resolved(&scanner, &DurationScanner::resolved);
        QSignalSpy finished(&scanner, &DurationScanner::finished);
        scanner.enqueue({garbage});
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 30000);
        QCOMPARE(results(resolved), (QList<QPair<QString, qint64>>{{garbage, 0}}));
    }

    void missingFileResolvesToZeroAndTheQueueGoesOn()
    {
        DurationScanner scanner;
        QSignalSpy resolved(&scanner, &DurationScanner::resolved);
        QSignalSpy finished(&scanner, &DurationScanner::finished);
        const QString missing = work.filePath(QStringLiteral("no-such-file.mp3"));
        scanner.enqueue({missing, wav});
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 30000);
        const auto list = results(resolved);
        QCOMPARE(list.size(), 2);
        QCOMPARE(list.at(0), qMakePair(missing, qint64(0)));
        QCOMPARE(list.at(1).first, wav);
        QVERIFY2(list.at(1).second > 1200, qPrintable(QString::number(list.at(1).second)));
    }

    void emptyListWhileIdleEmitsFinishedAtOnce()
    {
        DurationScanner scanner;
        QSignalSpy resolved(&scanner, &DurationScanner::resolved);
        QSignalSpy finished(&scanner, &DurationScanner::finished);
        scanner.enqueue({});
        QCOMPARE(finished.size(), 1);
        QCOMPARE(resolved.size(), 0);
        QVERIFY(!scanner.isBusy());
    }

    void emptyStringsInTheListAreSkipped()
    {
        DurationScanner scanner;
        QSignalSpy resolved(&scanner, &DurationScanner::resolved);
        QSignalSpy finished(&scanner, &DurationScanner::finished);
        scanner.enqueue({QString(), QStringLiteral(""), QString()});
        QCOMPARE(finished.size(), 1);
        scanner.enqueue({QString(), wav, QString()});
        QCOMPARE(scanner.pendingCount(), 0);
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 2, 30000);
        QCOMPARE(resolved.size(), 1);
        QCOMPARE(resolved.first().at(0).toString(), wav);
    }

    void durationReportedTwiceYieldsOneResult()
    {
        // The player reports a length both by its duration signal and by the loaded status; only the
        // first counts.
        DurationScanner scanner;
        QSignalSpy resolved(&scanner, &DurationScanner::resolved);
        QSignalSpy finished(&scanner, &DurationScanner::finished);
        scanner.enqueue({mp3});
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 30000);
        QTest::qWait(1000);
        QCOMPARE(resolved.size(), 1);
        QCOMPARE(finished.size(), 1);
    }

    void samePathHandedOverTwiceWhileBusyIsScannedOnce()
    {
        DurationScanner scanner;
        QSignalSpy resolved(&scanner, &DurationScanner::resolved);
        QSignalSpy finished(&scanner, &DurationScanner::finished);
        scanner.enqueue({wav, ogg, ogg});
        QCOMPARE(scanner.pendingCount(), 1);
        // As the window does at every refresh: the same paths again, while the first is being scanned.
        scanner.enqueue({wav, ogg});
        scanner.enqueue({wav, ogg, mp3});
        QCOMPARE(scanner.pendingCount(), 2);
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 60000);
        const auto list = results(resolved);
        QCOMPARE(list.size(), 3);
        QCOMPARE(list.at(0).first, wav);
        QCOMPARE(list.at(1).first, ogg);
        QCOMPARE(list.at(2).first, mp3);
    }

    void pathScannedAgainAfterItsResultIsResolvedAgain()
    {
        // A file whose result was 0 comes back at the next refresh; the player still holds it as its
        // source and must load it again rather than wait for the time-out.
        DurationScanner scanner;
        QSignalSpy resolved(&scanner, &DurationScanner::resolved);
        QSignalSpy finished(&scanner, &DurationScanner::finished);
        scanner.enqueue({wav});
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 30000);
        scanner.enqueue({wav});
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 2, 30000);
        QCOMPARE(resolved.size(), 2);
        // Resolved by the player with its length, not by the 6 s time-out (which would report 0).
        QVERIFY(resolved.at(1).at(1).toLongLong() > 1200);
    }

    void eachFileIsGivenSixSecondsAtMost()
    {
        DurationScanner scanner;
        QSignalSpy finished(&scanner, &DurationScanner::finished);
        QList<QTimer*> limits;
        for (QTimer* timer : scanner.findChildren<QTimer*>()) {
            if (timer->interval() == 6000 && timer->isSingleShot())
                limits << timer;
        }
        QCOMPARE(limits.size(), 1);
        QVERIFY(!limits.first()->isActive());
        scanner.enqueue({wav});
        QVERIFY(scanner.isBusy());
        QVERIFY(limits.first()->isActive());
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 30000);
        // The result stops the clock, so no late time-out can report the file a second time.
        QVERIFY(!limits.first()->isActive());
    }
};

QTEST_MAIN(TestDurationScanner)
#include "tst_durationscanner.moc"
