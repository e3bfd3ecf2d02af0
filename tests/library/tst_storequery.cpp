// One statement of the store: a failure is logged once, with the statement and its bound values,
// through "ondaro.library", and counted by the connection; a null text binds as '' and a null value
// as NULL. Runs on the embedded database and, with ONDARO_DATABASE_URL, on a server.

#include "directquery.h"
#include "libraryconnection.h"
#include "storequery.h"
#include "testsupport.h"

#include <QTemporaryDir>
#include <QtTest>

#include <thread>

using namespace testsupport;

namespace {

// The warnings of "ondaro.library" since the last clear, each as "<text>".
QStringList g_libraryWarnings;
QtMessageHandler g_previousHandler = nullptr;

void collectLibraryWarnings(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    if (type == QtWarningMsg && context.category && qstrcmp(context.category, "ondaro.library") == 0)
        g_libraryWarnings << text;
    if (g_previousHandler)
        g_previousHandler(type, context, text);
}

} // namespace

class TestStoreQuery : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void aRefusedStatementIsLoggedOnceWithItsStatementAndValues();
    void aRefusedStatementIsCountedAsAFailureOfTheConnection();
    void aStatementThatCannotBePreparedIsLoggedOnceAndRunsNothing();
    void aStatementThatSucceedsLogsNothing();
    void aNullTextBindsAsEmptyTextAndANullValueAsNull();
    void rowsComeBackInOrderThroughNext();
    void aDirectReadThatFailsIsLoggedWithItsStatementAndValues();
    void aFailureOnAnotherThreadsOwnConnectionLeavesTheSharedOneAlone();

private:
    QTemporaryDir home;
};

void TestStoreQuery::initTestCase()
{
    QVERIFY(home.isValid());
    useTemporaryHome(home.path());
    g_previousHandler = qInstallMessageHandler(collectLibraryWarnings);
}

void TestStoreQuery::init()
{
    QVERIFY(freshStore());
    g_libraryWarnings.clear();
}

void TestStoreQuery::cleanupTestCase()
{
    qInstallMessageHandler(g_previousHandler);
    closeStore();
}

void TestStoreQuery::aRefusedStatementIsLoggedOnceWithItsStatementAndValues()
{
    StoreQuery q("Testing a refusal");
    QVERIFY(q.run(QStringLiteral("INSERT INTO libraries(name) VALUES(?)"), {QStringLiteral("Jazz")}));
    g_libraryWarnings.clear();
    // The name is the primary key: the same name again is refused.
    QVERIFY(!q.run(QStringLiteral("INSERT INTO libraries(name) VALUES(?)"), {QStringLiteral("Jazz")}));
    QCOMPARE(g_libraryWarnings.size(), 1);
    const QString line = g_libraryWarnings.first();
    QVERIFY2(line.startsWith(QStringLiteral("Testing a refusal failed:")), qPrintable(line));
    QVERIFY2(line.contains(QStringLiteral("| statement: INSERT INTO libraries(name) VALUES(?)")),
             qPrintable(line));
    QVERIFY2(line.contains(QStringLiteral("| values: ('Jazz')")), qPrintable(line));
}

void TestStoreQuery::aRefusedStatementIsCountedAsAFailureOfTheConnection()
{
    const int before = LibraryConnection::failureCount();
    StoreQuery q("Testing a refusal");
    QVERIFY(!q.run(QStringLiteral("SELECT title FROM no_such_table WHERE year=? AND title=?"),
                   {1969, QStringLiteral("Abbey Road")}));
    QCOMPARE(LibraryConnection::failureCount(), before + 1);
    QCOMPARE(g_libraryWarnings.size(), 1);
    QVERIFY2(g_libraryWarnings.first().contains(QStringLiteral("| values: (1969, 'Abbey Road')")),
             qPrintable(g_libraryWarnings.first()));
    // The store stays usable: a refused statement is not a lost connection.
    QVERIFY(LibraryConnection::problem().isEmpty());
    QVERIFY(MusicLibrary::createLibrary(QStringLiteral("Still there")));
}

void TestStoreQuery::aStatementThatCannotBePreparedIsLoggedOnceAndRunsNothing()
{
    StoreQuery q("Testing a typing error");
    QVERIFY(!q.prepare(QStringLiteral("SELEC name FROM libraries")) || !q.exec());
    QCOMPARE(g_libraryWarnings.size(), 1);
    QVERIFY2(g_libraryWarnings.first().contains(QStringLiteral("SELEC name FROM libraries")),
             qPrintable(g_libraryWarnings.first()));
    QVERIFY(!q.next());
}

void TestStoreQuery::aStatementThatSucceedsLogsNothing()
{
    StoreQuery q("Testing a success");
    QVERIFY(q.run(QStringLiteral("INSERT INTO libraries(name) VALUES(?)"), {QStringLiteral("Soul")}));
    QCOMPARE(q.numRowsAffected(), 1);
    QVERIFY(g_libraryWarnings.isEmpty());
    QCOMPARE(MusicLibrary::libraries(), QStringList{QStringLiteral("Soul")});
}

void TestStoreQuery::aNullTextBindsAsEmptyTextAndANullValueAsNull()
{
    StoreQuery q("Testing binding");
    QVERIFY(
        q.run(QStringLiteral("SELECT CAST(? AS TEXT) IS NULL, CAST(? AS TEXT) = '', CAST(? AS TEXT) IS NULL, "
                             "CAST(? AS TEXT) IS NULL"),
              {QString(), QString(), QVariant(QMetaType(QMetaType::QString)), QVariant()}));
    QVERIFY(q.next());
    QCOMPARE(q.value(0).toInt(), 0);
    QCOMPARE(q.value(1).toInt(), 1);
    QCOMPARE(q.value(2).toInt(), 1);
    QCOMPARE(q.value(3).toInt(), 1);
    QCOMPARE(StoreQuery::bindable(QString()), QVariant(QStringLiteral("")));
    QVERIFY(StoreQuery::bindable(QVariant(QMetaType(QMetaType::QString))).isNull());
    QCOMPARE(StoreQuery::bindable(QStringLiteral("x")), QVariant(QStringLiteral("x")));
    QCOMPARE(StoreQuery::bindable(7), QVariant(7));

    // An object without a library name addresses the rows of library '' (not none at all).
    MusicLibrary unnamed;
    unnamed.addTrack(makeTrack(QStringLiteral("Nobody"), QStringLiteral("Nowhere")));
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM tracks WHERE library=''")).toInt(), 1);
    QCOMPARE(unnamed.trackCount(), 1);
    QCOMPARE(unnamed.search(QString()).size(), 1);
}

void TestStoreQuery::rowsComeBackInOrderThroughNext()
{
    for (const char* name : {"b", "a", "c"})
        QVERIFY(MusicLibrary::createLibrary(QString::fromLatin1(name)));
    StoreQuery q("Testing a listing");
    q.setForwardOnly(true);
    QVERIFY(q.exec(QStringLiteral("SELECT name FROM libraries ORDER BY name")));
    QStringList names;
    while (q.next())
        names << q.value(0).toString();
    QCOMPARE(names, (QStringList{QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")}));
    QVERIFY(g_libraryWarnings.isEmpty());
}

void TestStoreQuery::aDirectReadThatFailsIsLoggedWithItsStatementAndValues()
{
    DirectQuery direct(MusicLibrary::database());
    if (!direct.isUsable())
        QSKIP("Direct reads run on the embedded database only");
    const int before = LibraryConnection::failureCount();
    QVERIFY(
        !direct.exec(QStringLiteral("SELECT * FROM no_such_table WHERE title=?"), {QStringLiteral("Help")}));
    QCOMPARE(g_libraryWarnings.size(), 1);
    const QString line = g_libraryWarnings.first();
    QVERIFY2(line.contains(QStringLiteral("no such table")), qPrintable(line));
    QVERIFY2(line.contains(QStringLiteral("| statement: SELECT * FROM no_such_table WHERE title=?")),
             qPrintable(line));
    QVERIFY2(line.contains(QStringLiteral("| values: ('Help')")), qPrintable(line));
    QCOMPARE(LibraryConnection::failureCount(), before + 1);
}

void TestStoreQuery::aFailureOnAnotherThreadsOwnConnectionLeavesTheSharedOneAlone()
{
    // A connection that a thread made for itself (as the track details reader does) is not the
    // shared one: its failures are logged, but the shared connection, which belongs to this thread,
    // is neither counted nor probed from there.
    const int before = LibraryConnection::failureCount();
    QStringList threadWarnings;
    std::thread reader([&threadWarnings] {
        const QString name = QStringLiteral("tst_storequery_reader");
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
            db.setDatabaseName(QStringLiteral(":memory:"));
            if (db.open()) {
                StoreQuery q(db, "Testing another thread");
                if (q.run(QStringLiteral("SELECT * FROM no_such_table WHERE id=?"), {3}))
                    threadWarnings << QStringLiteral("the statement did not fail");
            } else {
                threadWarnings << QStringLiteral("no connection");
            }
        }
        QSqlDatabase::removeDatabase(name);
    });
    reader.join();
    QVERIFY2(threadWarnings.isEmpty(), qPrintable(threadWarnings.join(QLatin1Char(' '))));
    QCOMPARE(LibraryConnection::failureCount(), before);
    QCOMPARE(g_libraryWarnings.size(), 1);
    QVERIFY2(g_libraryWarnings.first().startsWith(QStringLiteral("Testing another thread failed:")),
             qPrintable(g_libraryWarnings.first()));
    QVERIFY(LibraryConnection::problem().isEmpty());
}

QTEST_GUILESS_MAIN(TestStoreQuery)
#include "tst_storequery.moc"
