// The as-run window lists one day of the log, and its CSV export survives a round trip through an
// independent CSV reader (python3's csv module) for titles holding commas, quotes and line breaks.

#include "asruncsv.h"
#include "asrunlog.h"
#include "asrunwindow.h"
#include "musiclibrary.h"

#include <QApplication>
#include <QDateEdit>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLabel>
#include <QProcess>
#include <QPushButton>
#include <QSqlDatabase>
#include <QStandardPaths>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>

namespace {

const QString kConnection = QStringLiteral("od_library");

// Reads a CSV file with python3's csv module and prints its rows as a JSON array of arrays.
const char* const kReadCsv = R"(
import csv, json, sys
with open(sys.argv[1], newline='', encoding='utf-8') as f:
    print(json.dumps(list(csv.reader(f, strict=True))))
)";

const QDate kDay(2024, 3, 5);

QDateTime at(const QDate& day, int h, int m, int s = 0)
{
    return QDateTime(day, QTime(h, m, s));
}

qint64 addRow(const QDateTime& start, const QString& artist, const QString& title, const QString& path,
              qint64 playedMs, const QString& endedBy, bool stream = false)
{
    AsRunEntry e;
    e.startedAt = start;
    e.artist = artist;
    e.title = title;
    e.filePath = path;
    e.isStream = stream;
    const qint64 id = AsRunLog::recordStart(e);
    if (!endedBy.isEmpty())
        AsRunLog::recordEnd(id, start.addMSecs(playedMs), playedMs, endedBy);
    return id;
}

QString cellText(QTableWidget* table, int row, int column)
{
    QTableWidgetItem* item = table->item(row, column);
    return item ? item->text() : QStringLiteral("<none>");
}

// The rows python3's csv module reads from `path`; an empty list when it could not.
QList<QStringList> readWithPython(const QString& path)
{
    QProcess python;
    python.start(QStringLiteral("python3"), {QStringLiteral("-c"), QString::fromUtf8(kReadCsv), path});
    if (!python.waitForFinished(60000) || python.exitCode() != 0) {
        qWarning("python3 failed: %s", python.readAllStandardError().constData());
        return {};
    }
    QList<QStringList> rows;
    for (const QJsonValue& row : QJsonDocument::fromJson(python.readAllStandardOutput()).array()) {
        QStringList fields;
        for (const QJsonValue& field : row.toArray())
            fields << field.toString();
        rows << fields;
    }
    return rows;
}

} // namespace

class TestAsRunWindow : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;

    static QString configFolder()
    {
        return QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation);
    }

    static void dropConnection()
    {
        if (QSqlDatabase::contains(kConnection))
            QSqlDatabase::database(kConnection, false).close();
        QSqlDatabase::removeDatabase(kConnection);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        QStandardPaths::setTestModeEnabled(true);
        QCoreApplication::setOrganizationName(QStringLiteral("OndaroTest"));
        QCoreApplication::setApplicationName(
            QStringLiteral("tst_asrunwindow-%1").arg(QCoreApplication::applicationPid()));
    }

    void init()
    {
        dropConnection();
        for (const char* suffix : {"", "-wal", "-shm"})
            QFile::remove(configFolder() + QStringLiteral("/library.db") + QLatin1String(suffix));
        QVERIFY(MusicLibrary::initialize());
    }

    void cleanupTestCase()
    {
        const QString folder = configFolder();
        dropConnection();
        QDir(folder).removeRecursively();
    }

    void theWindowListsTheChosenDaysRowsOldestFirst()
    {
        addRow(at(kDay.addDays(-1), 23, 59, 59), QStringLiteral("Late"), QStringLiteral("Yesterday"),
               QStringLiteral("/m/y.mp3"), 1000, QStringLiteral("end"));
        addRow(at(kDay, 9, 0), QStringLiteral("Bob"), QStringLiteral("Second"), QStringLiteral("/m/b.mp3"),
               61000, QStringLiteral("skip"));
        addRow(at(kDay, 8, 30), QStringLiteral("Ann"), QStringLiteral("First"), QStringLiteral("/m/a.mp3"),
               185000, QStringLiteral("mix"));
        addRow(at(kDay, 10, 0), QString(), QStringLiteral("Live"), QStringLiteral("http://127.0.0.1/live"), 0,
               QString(), true);
        addRow(at(kDay.addDays(1), 0, 0), QStringLiteral("Early"), QStringLiteral("Tomorrow"),
               QStringLiteral("/m/t.mp3"), 1000, QStringLiteral("end"));

        AsRunWindow window;
        QCOMPARE(window.windowTitle(), QStringLiteral("As-run log"));
        window.setDate(kDay);
        auto* table = window.findChild<QTableWidget*>(QStringLiteral("asRunTable"));
        QVERIFY(table);
        QStringList headers;
        for (int c = 0; c < table->columnCount(); ++c)
            headers << table->horizontalHeaderItem(c)->text();
        QCOMPARE(headers,
                 (QStringList{QStringLiteral("Start"), QStringLiteral("End"), QStringLiteral("Played"),
                              QStringLiteral("Artist"), QStringLiteral("Title"), QStringLiteral("File"),
                              QStringLiteral("Ended by")}));
        QCOMPARE(table->rowCount(), 3);
        const QStringList first = {cellText(table, 0, 0), cellText(table, 0, 1), cellText(table, 0, 2),
                                   cellText(table, 0, 3), cellText(table, 0, 4), cellText(table, 0, 5),
                                   cellText(table, 0, 6)};
        QCOMPARE(first, (QStringList{QStringLiteral("08:30:00"), QStringLiteral("08:33:05"),
                                     QStringLiteral("03:05"), QStringLiteral("Ann"), QStringLiteral("First"),
                                     QStringLiteral("/m/a.mp3"), QStringLiteral("mix")}));
        QCOMPARE(cellText(table, 1, 4), QStringLiteral("Second"));
        QCOMPARE(cellText(table, 1, 6), QStringLiteral("skip"));
        // Still on air: no end yet.
        QCOMPARE(cellText(table, 2, 1), QStringLiteral("on air"));
        QCOMPARE(cellText(table, 2, 6), QString());

        // Picking another day in the date field lists that day.
        auto* date = window.findChild<QDateEdit*>(QStringLiteral("asRunDate"));
        QVERIFY(date);
        date->setDate(kDay.addDays(1));
        QCOMPARE(table->rowCount(), 1);
        QCOMPARE(cellText(table, 0, 4), QStringLiteral("Tomorrow"));
        date->setDate(kDay.addDays(5));
        QCOMPARE(table->rowCount(), 0);
    }

    void refreshShowsRowsWrittenSinceTheWindowOpened()
    {
        AsRunWindow window;
        window.setDate(kDay);
        auto* table = window.findChild<QTableWidget*>(QStringLiteral("asRunTable"));
        QCOMPARE(table->rowCount(), 0);
        addRow(at(kDay, 12, 0), QStringLiteral("New"), QStringLiteral("Arrival"), QStringLiteral("/m/n.mp3"),
               5000, QStringLiteral("end"));
        QCOMPARE(table->rowCount(), 0);
        auto* refresh = window.findChild<QPushButton*>(QStringLiteral("asRunRefresh"));
        QVERIFY(refresh);
        QCOMPARE(refresh->text(), QStringLiteral("Refresh"));
        QTest::mouseClick(refresh, Qt::LeftButton);
        QCOMPARE(table->rowCount(), 1);
        QCOMPARE(cellText(table, 0, 4), QStringLiteral("Arrival"));
    }

    void fieldsAreQuotedOnlyWhenTheyHoldACommaQuoteOrLineBreak()
    {
        QCOMPARE(asruncsv::field(QStringLiteral("plain text")), QStringLiteral("plain text"));
        QCOMPARE(asruncsv::field(QString()), QString());
        QCOMPARE(asruncsv::field(QStringLiteral("a,b")), QStringLiteral("\"a,b\""));
        QCOMPARE(asruncsv::field(QStringLiteral("say \"hi\"")), QStringLiteral("\"say \"\"hi\"\"\""));
        QCOMPARE(asruncsv::field(QStringLiteral("one\ntwo")), QStringLiteral("\"one\ntwo\""));
        QCOMPARE(asruncsv::field(QStringLiteral("one\rtwo")), QStringLiteral("\"one\rtwo\""));
    }

    void theFileHasAHeaderAndCrlfLineEnds()
    {
        AsRunEntry e;
        e.startedAt = at(kDay, 8, 0);
        e.endedAt = at(kDay, 8, 3);
        e.playedMs = 180000;
        e.artist = QStringLiteral("Ann");
        e.title = QStringLiteral("Plain");
        e.filePath = QStringLiteral("/m/a.mp3");
        e.endedBy = QStringLiteral("end");
        const QString path = dir.filePath(QStringLiteral("plain.csv"));
        QString error;
        QVERIFY2(exportCsv({e}, path, &error), qPrintable(error));
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(),
                 QByteArray(
                     "Start,End,Played (ms),Artist,Title,File,Stream,Ended by\r\n"
                     "2024-03-05T08:00:00.000,2024-03-05T08:03:00.000,180000,Ann,Plain,/m/a.mp3,0,end\r\n"));
    }

    void exportedTitlesWithCommasQuotesAndLineBreaksReadBackUnchanged()
    {
        const QStringList titles = {
            QStringLiteral("Hello, World"),
            QStringLiteral("She said \"yes\""),
            QStringLiteral("Line one\nLine two"),
            QStringLiteral("Carriage\rreturn and\r\nboth"),
            QStringLiteral("\"Quoted\", comma,\nand break"),
            QStringLiteral("  spaced  "),
            QStringLiteral("Ünïcødé 日本語 – ok"),
            QString(),
        };
        for (int i = 0; i < titles.size(); ++i)
            addRow(at(kDay, 6, i), QStringLiteral("Artist, \"%1\"").arg(i), titles[i],
                   QStringLiteral("/m/odd, \"%1\".mp3").arg(i), 1000 * (i + 1), QStringLiteral("end"));
        AsRunWindow window;
        window.setDate(kDay);
        QCOMPARE(window.entries().size(), titles.size());
        const QString path = dir.filePath(QStringLiteral("odd titles.csv"));
        QVERIFY(window.exportTo(path));

        const QList<QStringList> rows = readWithPython(path);
        QCOMPARE(rows.size(), titles.size() + 1);
        QCOMPARE(rows.first(), asruncsv::header());
        for (int i = 0; i < titles.size(); ++i) {
            const AsRunEntry& e = window.entries().at(i);
            const QStringList expected = {AsRunLog::timeText(e.startedAt),
                                          AsRunLog::timeText(e.endedAt),
                                          QString::number(1000 * (i + 1)),
                                          QStringLiteral("Artist, \"%1\"").arg(i),
                                          titles[i],
                                          QStringLiteral("/m/odd, \"%1\".mp3").arg(i),
                                          QStringLiteral("0"),
                                          QStringLiteral("end")};
            QCOMPARE(rows.at(i + 1), expected);
        }
    }

    void anExportThatCannotBeWrittenSaysSoAndCreatesNothing()
    {
        addRow(at(kDay, 7, 0), QStringLiteral("Ann"), QStringLiteral("One"), QStringLiteral("/m/a.mp3"), 1000,
               QStringLiteral("end"));
        AsRunWindow window;
        window.setDate(kDay);
        const QString path = dir.filePath(QStringLiteral("missing/folder/out.csv"));
        QVERIFY(!window.exportTo(path));
        QVERIFY(!QFile::exists(path));
        auto* status = window.findChild<QLabel*>(QStringLiteral("asRunStatus"));
        QVERIFY(status);
        QVERIFY2(status->text().startsWith(QStringLiteral("Export failed: ")), qPrintable(status->text()));
        QString error;
        QVERIFY(!exportCsv(window.entries(), path, &error));
        QVERIFY(!error.isEmpty());
    }

    void theExportButtonReadsExportCsv()
    {
        AsRunWindow window;
        auto* button = window.findChild<QPushButton*>(QStringLiteral("asRunExport"));
        QVERIFY(button);
        QCOMPARE(button->text(), QStringLiteral("Export CSV…"));
    }
};

QTEST_MAIN(TestAsRunWindow)
#include "tst_asrunwindow.moc"
