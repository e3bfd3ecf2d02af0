// The as-run log in the library database: the table and its index, start, end and title updates,
// listings by time and by day, and neutral results when the database cannot be opened.

#include "asrunlog.h"
#include "testsupport.h"

#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

using namespace testsupport;

namespace {

// SQLite keeps the CREATE text as given, without its IF NOT EXISTS clause.
const QString kStoredCreate = QStringLiteral(
    "CREATE TABLE as_run( id INTEGER PRIMARY KEY AUTOINCREMENT, started_at TEXT NOT NULL, ended_at TEXT "
    "DEFAULT '', played_ms INTEGER DEFAULT 0, filepath TEXT, artist TEXT, title TEXT, is_stream INTEGER "
    "DEFAULT 0, ended_by TEXT DEFAULT '')");

QDateTime at(int y, int mo, int d, int h, int mi, int s, int ms = 0)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s, ms));
}

AsRunEntry entry(const QDateTime& start, const QString& title, const QString& path = QString())
{
    AsRunEntry e;
    e.startedAt = start;
    e.artist = QStringLiteral("Artist");
    e.title = title;
    e.filePath = path.isEmpty() ? QStringLiteral("/music/%1.mp3").arg(title) : path;
    return e;
}

QStringList titlesOf(const QList<AsRunEntry>& entries)
{
    QStringList titles;
    for (const AsRunEntry& e : entries)
        titles << e.title;
    return titles;
}

// Points the shared connection at a file in a folder that does not exist, so every open fails.
void breakStore(const QString& home)
{
    closeStore();
    QSqlDatabase broken = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), kConnection);
    broken.setDatabaseName(home + QStringLiteral("/no/such/folder/library.db"));
}

} // namespace

class TestAsRunLog : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(home.isValid());
        useTemporaryHome(home.path());
    }
    void init() { QVERIFY(freshStore()); }
    void cleanupTestCase() { closeStore(); }

    void startUpCreatesTheTableWithExactlyTheGivenColumns()
    {
        if (onServer())
            QSKIP("SQLite's stored CREATE text and PRAGMA table_info exist on the embedded database only");
        QCOMPARE(scalar(QStringLiteral("SELECT sql FROM sqlite_master WHERE type='table' AND name='as_run'"))
                     .toString(),
                 kStoredCreate);
        QSqlQuery q(MusicLibrary::database());
        QVERIFY(q.exec(QStringLiteral("PRAGMA table_info(as_run)")));
        QStringList columns;
        while (q.next())
            columns << QStringLiteral("%1 %2 %3 %4 %5")
                           .arg(q.value(1).toString(), q.value(2).toString(), q.value(3).toString(),
                                q.value(4).toString(), q.value(5).toString());
        const QStringList expected = {
            QStringLiteral("id INTEGER 0  1"),      QStringLiteral("started_at TEXT 1  0"),
            QStringLiteral("ended_at TEXT 0 '' 0"), QStringLiteral("played_ms INTEGER 0 0 0"),
            QStringLiteral("filepath TEXT 0  0"),   QStringLiteral("artist TEXT 0  0"),
            QStringLiteral("title TEXT 0  0"),      QStringLiteral("is_stream INTEGER 0 0 0"),
            QStringLiteral("ended_by TEXT 0 '' 0"),
        };
        QCOMPARE(columns, expected);
    }

    void startedAtIsIndexed()
    {
        if (onServer())
            QSKIP("sqlite_master and PRAGMA index_info exist on the embedded database only");
        QSqlQuery q(MusicLibrary::database());
        QVERIFY(
            q.exec(QStringLiteral("SELECT name FROM sqlite_master WHERE type='index' AND tbl_name='as_run' "
                                  "AND sql IS NOT NULL")));
        QVERIFY(q.next());
        const QString index = q.value(0).toString();
        QVERIFY(!q.next());
        QSqlQuery info(MusicLibrary::database());
        QVERIFY(info.exec(QStringLiteral("PRAGMA index_info(%1)").arg(index)));
        QVERIFY(info.next());
        QCOMPARE(info.value(2).toString(), QStringLiteral("started_at"));
        QVERIFY(!info.next());
    }

    void settingUpTwiceKeepsRowsAndAddsNothing()
    {
        QVERIFY(AsRunLog::recordStart(entry(at(2024, 3, 5, 7, 0, 0), QStringLiteral("Kept"))) > 0);
        const QString schemaBefore =
            scalar(QStringLiteral("SELECT group_concat(sql, ';') FROM sqlite_master WHERE tbl_name='as_run'"))
                .toString();
        QVERIFY(AsRunLog::ensureTable());
        QVERIFY(MusicLibrary::initialize());
        QCOMPARE(scalar(QStringLiteral("SELECT group_concat(sql, ';') FROM sqlite_master WHERE "
                                       "tbl_name='as_run'"))
                     .toString(),
                 schemaBefore);
        QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM as_run")).toInt(), 1);
        QCOMPARE(titlesOf(AsRunLog::entriesOn(QDate(2024, 3, 5))), QStringList{QStringLiteral("Kept")});
    }

    void startStoresLocalIsoTimeWithMillisecondsAndEmptyEndColumns()
    {
        AsRunEntry e = entry(at(2024, 3, 5, 7, 8, 9, 12), QStringLiteral("Morning"));
        e.isStream = true;
        const qint64 id = AsRunLog::recordStart(e);
        QVERIFY(id > 0);
        QSqlQuery q(MusicLibrary::database());
        q.prepare(QStringLiteral("SELECT started_at, ended_at, played_ms, filepath, artist, title, "
                                 "is_stream, ended_by FROM as_run "
                                 "WHERE id=?"));
        q.addBindValue(id);
        QVERIFY(q.exec() && q.next());
        QCOMPARE(q.value(0).toString(), QStringLiteral("2024-03-05T07:08:09.012"));
        QCOMPARE(q.value(1).toString(), QStringLiteral(""));
        QCOMPARE(q.value(2).toLongLong(), qint64(0));
        QCOMPARE(q.value(3).toString(), QStringLiteral("/music/Morning.mp3"));
        QCOMPARE(q.value(4).toString(), QStringLiteral("Artist"));
        QCOMPARE(q.value(5).toString(), QStringLiteral("Morning"));
        QCOMPARE(q.value(6).toInt(), 1);
        QCOMPARE(q.value(7).toString(), QStringLiteral(""));
        const qint64 second = AsRunLog::recordStart(entry(at(2024, 3, 5, 7, 10, 0), QStringLiteral("Next")));
        QVERIFY(second > id);
    }

    void anEntryWithoutAStartTimeIsRefused()
    {
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("without a start time")));
        QCOMPARE(AsRunLog::recordStart(AsRunEntry()), qint64(0));
        QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM as_run")).toInt(), 0);
    }

    void endFillsEndTimePlayedAndReason()
    {
        const qint64 id = AsRunLog::recordStart(entry(at(2024, 3, 5, 7, 0, 0), QStringLiteral("Song")));
        QVERIFY(AsRunLog::recordEnd(id, at(2024, 3, 5, 7, 3, 30, 250), 210250, QStringLiteral("mix")));
        const QList<AsRunEntry> rows = AsRunLog::entriesOn(QDate(2024, 3, 5));
        QCOMPARE(rows.size(), 1);
        QCOMPARE(rows[0].id, id);
        QCOMPARE(rows[0].startedAt, at(2024, 3, 5, 7, 0, 0));
        QCOMPARE(rows[0].endedAt, at(2024, 3, 5, 7, 3, 30, 250));
        QCOMPARE(rows[0].playedMs, qint64(210250));
        QCOMPARE(rows[0].endedBy, QStringLiteral("mix"));
        QCOMPARE(scalar(QStringLiteral("SELECT ended_at FROM as_run WHERE id=?"), {id}).toString(),
                 QStringLiteral("2024-03-05T07:03:30.250"));
    }

    void endAndTitleOfAnUnknownRowReportFailureAndChangeNothing()
    {
        const qint64 id = AsRunLog::recordStart(entry(at(2024, 3, 5, 7, 0, 0), QStringLiteral("Song")));
        QVERIFY(!AsRunLog::recordEnd(id + 100, at(2024, 3, 5, 7, 1, 0), 60000, QStringLiteral("end")));
        QVERIFY(!AsRunLog::recordEnd(0, at(2024, 3, 5, 7, 1, 0), 60000, QStringLiteral("end")));
        QVERIFY(!AsRunLog::updateTitle(id + 100, QStringLiteral("Other")));
        const QList<AsRunEntry> rows = AsRunLog::entriesOn(QDate(2024, 3, 5));
        QCOMPARE(rows.size(), 1);
        QCOMPARE(rows[0].title, QStringLiteral("Song"));
        QVERIFY(!rows[0].endedAt.isValid());
        QCOMPARE(rows[0].endedBy, QString());
    }

    void titleUpdateReplacesOnlyThatRowsTitle()
    {
        AsRunEntry relay = entry(at(2024, 3, 5, 9, 0, 0), QString(), QStringLiteral("http://127.0.0.1/live"));
        relay.isStream = true;
        const qint64 id = AsRunLog::recordStart(relay);
        const qint64 other = AsRunLog::recordStart(entry(at(2024, 3, 5, 9, 5, 0), QStringLiteral("Other")));
        QVERIFY(AsRunLog::updateTitle(id, QStringLiteral("Live Show - Hour 1")));
        const QList<AsRunEntry> rows = AsRunLog::entriesOn(QDate(2024, 3, 5));
        QCOMPARE(titlesOf(rows),
                 (QStringList{QStringLiteral("Live Show - Hour 1"), QStringLiteral("Other")}));
        QCOMPARE(rows[1].id, other);
        QVERIFY(rows[0].isStream);
        QVERIFY(!rows[1].isStream);
        QCOMPARE(rows[0].filePath, QStringLiteral("http://127.0.0.1/live"));
    }

    void aDayListsItsRowsOldestFirstAndNothingOfTheNeighbouringDays()
    {
        AsRunLog::recordStart(entry(at(2024, 3, 5, 0, 0, 0), QStringLiteral("Midnight")));
        AsRunLog::recordStart(entry(at(2024, 3, 4, 23, 59, 59, 999), QStringLiteral("Yesterday")));
        AsRunLog::recordStart(entry(at(2024, 3, 5, 23, 59, 59, 999), QStringLiteral("Last")));
        AsRunLog::recordStart(entry(at(2024, 3, 6, 0, 0, 0), QStringLiteral("Tomorrow")));
        AsRunLog::recordStart(entry(at(2024, 3, 5, 12, 0, 0), QStringLiteral("Noon")));
        AsRunLog::recordStart(entry(at(2024, 3, 5, 9, 59, 59, 500), QStringLiteral("Before ten")));
        QCOMPARE(titlesOf(AsRunLog::entriesOn(QDate(2024, 3, 5))),
                 (QStringList{QStringLiteral("Midnight"), QStringLiteral("Before ten"),
                              QStringLiteral("Noon"), QStringLiteral("Last")}));
        QCOMPARE(titlesOf(AsRunLog::entriesOn(QDate(2024, 3, 6))), QStringList{QStringLiteral("Tomorrow")});
        QVERIFY(AsRunLog::entriesOn(QDate(2024, 3, 7)).isEmpty());
        QVERIFY(AsRunLog::entriesOn(QDate()).isEmpty());
    }

    void betweenIsHalfOpen()
    {
        AsRunLog::recordStart(entry(at(2024, 3, 5, 10, 0, 0), QStringLiteral("Ten")));
        AsRunLog::recordStart(entry(at(2024, 3, 5, 11, 0, 0), QStringLiteral("Eleven")));
        AsRunLog::recordStart(entry(at(2024, 3, 5, 10, 59, 59, 999), QStringLiteral("Almost")));
        QCOMPARE(titlesOf(AsRunLog::entriesBetween(at(2024, 3, 5, 10, 0, 0), at(2024, 3, 5, 11, 0, 0))),
                 (QStringList{QStringLiteral("Ten"), QStringLiteral("Almost")}));
        QVERIFY(AsRunLog::entriesBetween(at(2024, 3, 5, 11, 0, 0), at(2024, 3, 5, 11, 0, 0)).isEmpty());
        QVERIFY(AsRunLog::entriesBetween(at(2024, 3, 5, 12, 0, 0), at(2024, 3, 5, 10, 0, 0)).isEmpty());
    }

    void oddCharactersSurviveTheRoundTrip()
    {
        AsRunEntry e =
            entry(at(2024, 3, 5, 8, 0, 0), QStringLiteral("Say \"hi\", O'Neil;\r\nline 2 – ü 日本"),
                  QStringLiteral("/music/it's \"odd\", ü.flac"));
        e.artist = QStringLiteral("Robert'); DROP TABLE as_run;--");
        const qint64 id = AsRunLog::recordStart(e);
        QVERIFY(id > 0);
        QVERIFY(AsRunLog::recordEnd(id, at(2024, 3, 5, 8, 1, 0), 60000, QStringLiteral("skip")));
        const QList<AsRunEntry> rows = AsRunLog::entriesOn(QDate(2024, 3, 5));
        QCOMPARE(rows.size(), 1);
        QCOMPARE(rows[0].title, e.title);
        QCOMPARE(rows[0].artist, e.artist);
        QCOMPARE(rows[0].filePath, e.filePath);
    }

    void aDatabaseThatCannotBeOpenedGivesNeutralResultsAndLosesNothing()
    {
        const qint64 id = AsRunLog::recordStart(entry(at(2024, 3, 5, 7, 0, 0), QStringLiteral("Stored")));
        QVERIFY(id > 0);
        breakStore(home.path());
        QVERIFY(!MusicLibrary::database().isOpen());
        const QRegularExpression logged(QStringLiteral("^as-run log"));
        QTest::ignoreMessage(QtWarningMsg, logged);
        QVERIFY(!AsRunLog::ensureTable());
        QTest::ignoreMessage(QtWarningMsg, logged);
        QCOMPARE(AsRunLog::recordStart(entry(at(2024, 3, 5, 8, 0, 0), QStringLiteral("Lost"))), qint64(0));
        QTest::ignoreMessage(QtWarningMsg, logged);
        QVERIFY(!AsRunLog::recordEnd(id, at(2024, 3, 5, 8, 0, 0), 1000, QStringLiteral("stop")));
        QTest::ignoreMessage(QtWarningMsg, logged);
        QVERIFY(!AsRunLog::updateTitle(id, QStringLiteral("Changed")));
        QTest::ignoreMessage(QtWarningMsg, logged);
        QVERIFY(AsRunLog::entriesOn(QDate(2024, 3, 5)).isEmpty());

        closeStore(); // back to the real file
        QVERIFY(MusicLibrary::initialize());
        const QList<AsRunEntry> rows = AsRunLog::entriesOn(QDate(2024, 3, 5));
        QCOMPARE(titlesOf(rows), QStringList{QStringLiteral("Stored")});
        QVERIFY(!rows[0].endedAt.isValid());
    }

private:
    QTemporaryDir home;
};

QTEST_GUILESS_MAIN(TestAsRunLog)
#include "tst_asrunlog.moc"
