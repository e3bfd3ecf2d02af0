#include "logfile.h"
#include "logpane.h"

#include <QDateTime>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

// The daily log file and the log pane: one file per day, a time stamp on every line, a defined
// outcome when the disk refuses, and a pane that does not grow without bound.
class TestLogFile : public QObject
{
    Q_OBJECT

private:
    static QString contents(const QString& path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }

private slots:
    void linesGoToTheFileOfTheirDay()
    {
        QTemporaryDir dir;
        LogFile log(dir.filePath(QStringLiteral("logs")));
        const QDateTime first(QDate(2024, 3, 1), QTime(23, 59, 58));
        const QDateTime second(QDate(2024, 3, 2), QTime(0, 0, 1));
        QVERIFY(log.append(first, QStringLiteral("Artist - Title")));
        QVERIFY(log.append(first.addSecs(1), QStringLiteral("Ünïcode — line")));
        QVERIFY(log.append(second, QStringLiteral("Stop")));
        QCOMPARE(log.pathFor(first.date()), dir.filePath(QStringLiteral("logs/2024-03-01.log")));
        // Flushed per line: readable at once, without closing.
        QCOMPARE(contents(log.pathFor(first.date())),
                 QStringLiteral("23:59:58  Artist - Title\n23:59:59  Ünïcode — line\n"));
        QCOMPARE(contents(log.pathFor(second.date())), QStringLiteral("00:00:01  Stop\n"));
    }

    void aDayAlreadyLoggedIsAppendedTo()
    {
        QTemporaryDir dir;
        const QDateTime when(QDate(2024, 5, 6), QTime(8, 0));
        {
            LogFile log(dir.path());
            QVERIFY(log.append(when, QStringLiteral("one")));
        }
        LogFile again(dir.path());
        QVERIFY(again.append(when.addSecs(60), QStringLiteral("two")));
        QCOMPARE(contents(again.pathFor(when.date())), QStringLiteral("08:00:00  one\n08:01:00  two\n"));
    }

    void aFolderThatCannotBeCreatedIsReportedOnce()
    {
        QTemporaryDir dir;
        // A plain file where the folder should be.
        const QString blocker = dir.filePath(QStringLiteral("logs"));
        QFile file(blocker);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.close();
        LogFile log(blocker + QStringLiteral("/inner"));
        QSignalSpy failed(&log, &LogFile::writeFailed);
        QVERIFY(!log.append(QDateTime::currentDateTime(), QStringLiteral("a")));
        QVERIFY(!log.append(QDateTime::currentDateTime(), QStringLiteral("b")));
        QCOMPARE(failed.count(), 1);
        QVERIFY(failed.at(0).at(0).toString().startsWith(QStringLiteral("Log file cannot be written: ")));
        // The disk comes back: writing resumes.
        QVERIFY(QFile::remove(blocker));
        QVERIFY(log.append(QDateTime::currentDateTime(), QStringLiteral("c")));
        QVERIFY(contents(log.pathFor(QDate::currentDate())).endsWith(QStringLiteral("  c\n")));
    }

    void thePaneStampsEachLineAndKeepsTheNewest()
    {
        LogPane pane;
        const QDateTime when(QDate(2024, 1, 1), QTime(14, 5, 9));
        pane.appendLine(when, QStringLiteral("Relay: live"));
        QCOMPARE(pane.lines(), QStringList{QStringLiteral("14:05:09  Relay: live")});
        for (int i = 0; i < LogPane::maximumLines + 10; ++i)
            pane.appendLine(when, QString::number(i));
        const QStringList lines = pane.lines();
        QCOMPARE(lines.size(), LogPane::maximumLines);
        QCOMPARE(lines.last(), QStringLiteral("14:05:09  %1").arg(LogPane::maximumLines + 9));
    }
};

QTEST_MAIN(TestLogFile)
#include "tst_logfile.moc"
