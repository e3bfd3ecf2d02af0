// Batches of store writes: a transaction that is not committed is rolled back, and every batch that
// fails part-way (here a row the database refuses) leaves no half-written rows. Runs on the embedded
// database and, with ONDARO_DATABASE_URL, on a server.

#include "libraryconnection.h"
#include "storequery.h"
#include "storetransaction.h"
#include "testsupport.h"
#include "trackanalysis.h"
#include "trackcategories.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using namespace testsupport;

class TestStoreTransaction : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void aTransactionThatIsNotCommittedIsRolledBack();
    void aCommittedTransactionKeepsItsRows();
    void anExplicitRollbackDropsTheBatchAndCommitThenFails();
    void aTransactionOnAClosedDatabaseDoesNotBeginAndIsCounted();
    void addingFilesThatFailsPartWayStoresNone();
    void addingFilesWithoutARefusalStoresAll();
    void settingACategoryThatFailsPartWayChangesNone();
    void removingMissingFilesThatFailsPartWayRemovesNone();
    void storingAnalysesThatFailPartWayStoresNone();

private:
    // Makes the database refuse the `event` ("INSERT", "UPDATE", "DELETE") of every row of `table`
    // whose filepath contains "boom".
    bool refuseBoom(const QString& table, const QString& event);
    QStringList makeFiles(int count, const QString& last);

    QTemporaryDir home;
    QTemporaryDir files;
};

void TestStoreTransaction::initTestCase()
{
    QVERIFY(home.isValid());
    QVERIFY(files.isValid());
    useTemporaryHome(home.path());
}

void TestStoreTransaction::init()
{
    QVERIFY(freshStore());
}

void TestStoreTransaction::cleanupTestCase()
{
    closeStore();
}

bool TestStoreTransaction::refuseBoom(const QString& table, const QString& event)
{
    const QString row = event == QLatin1String("DELETE") ? QStringLiteral("old") : QStringLiteral("new");
    if (!onServer()) {
        return run(
            QStringLiteral("CREATE TRIGGER refuse_boom_%1 BEFORE %2 ON %3 WHEN %4.filepath LIKE '%boom%' "
                           "BEGIN SELECT RAISE(ABORT, 'refused by the test'); END")
                .arg(event.toLower(), event, table, row));
    }
    return run(QStringLiteral("CREATE OR REPLACE FUNCTION refuse_boom() RETURNS trigger LANGUAGE plpgsql AS "
                              "$$ BEGIN RAISE EXCEPTION 'refused by the test'; END $$")) &&
           run(QStringLiteral("CREATE TRIGGER refuse_boom_%1 BEFORE %2 ON %3 FOR EACH ROW WHEN (%4.filepath "
                              "LIKE '%boom%') EXECUTE FUNCTION refuse_boom()")
                   .arg(event.toLower(), event, table, row));
}

// `count` files that cannot be read as audio (each is added with its file name as title), the one
// named `last` at the end; more than one statement's worth of rows on a server (50 per statement).
QStringList TestStoreTransaction::makeFiles(int count, const QString& last)
{
    QStringList paths;
    for (int i = 0; i < count; ++i) {
        const QString name =
            i == count - 1 ? last : QStringLiteral("song%1.mp3").arg(i, 3, 10, QLatin1Char('0'));
        QFile file(files.path() + QLatin1Char('/') + name);
        if (!file.open(QIODevice::WriteOnly))
            return {};
        paths << file.fileName();
    }
    return paths;
}

void TestStoreTransaction::aTransactionThatIsNotCommittedIsRolledBack()
{
    {
        StoreTransaction batch("Testing a batch");
        QVERIFY(batch.isActive());
        QVERIFY(MusicLibrary::createLibrary(QStringLiteral("Temporary")));
        QCOMPARE(MusicLibrary::libraries(), QStringList{QStringLiteral("Temporary")});
    }
    QVERIFY(MusicLibrary::libraries().isEmpty());
    // The connection is free for the next batch.
    StoreTransaction next("Testing a batch");
    QVERIFY(next.isActive());
}

void TestStoreTransaction::aCommittedTransactionKeepsItsRows()
{
    {
        StoreTransaction batch("Testing a batch");
        QVERIFY(MusicLibrary::createLibrary(QStringLiteral("Kept")));
        QVERIFY(batch.commit());
        QVERIFY(!batch.isActive());
    }
    QCOMPARE(MusicLibrary::libraries(), QStringList{QStringLiteral("Kept")});
}

void TestStoreTransaction::anExplicitRollbackDropsTheBatchAndCommitThenFails()
{
    StoreTransaction batch("Testing a batch");
    QVERIFY(MusicLibrary::createLibrary(QStringLiteral("Dropped")));
    batch.rollback();
    QVERIFY(!batch.isActive());
    QVERIFY(!batch.commit());
    QVERIFY(MusicLibrary::libraries().isEmpty());
}

void TestStoreTransaction::aTransactionOnAClosedDatabaseDoesNotBeginAndIsCounted()
{
    QSqlDatabase closed =
        QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("never_opened"));
    {
        const int before = LibraryConnection::failureCount();
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral(
                                               "^Testing a closed database cannot begin a transaction")));
        StoreTransaction batch(closed, "Testing a closed database");
        QVERIFY(!batch.isActive());
        QVERIFY(!batch.commit());
        QCOMPARE(LibraryConnection::failureCount(), before + 1);
    }
    closed = QSqlDatabase();
    QSqlDatabase::removeDatabase(QStringLiteral("never_opened"));
}

void TestStoreTransaction::addingFilesThatFailsPartWayStoresNone()
{
    const QStringList paths = makeFiles(60, QStringLiteral("zz_boom.mp3"));
    QCOMPARE(paths.size(), 60);
    QVERIFY(refuseBoom(QStringLiteral("tracks"), QStringLiteral("INSERT")));
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Import"));
    QCOMPARE(lib.addFiles(paths), 0);
    QCOMPARE(lib.trackCount(), 0);
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM tracks")).toInt(), 0);
    // Nothing of the batch reached the search index either.
    QVERIFY(lib.search(QStringLiteral("song001")).isEmpty());
    // The connection is left usable, outside any transaction.
    QVERIFY(MusicLibrary::createLibrary(QStringLiteral("After")));
    StoreTransaction next("Testing a batch");
    QVERIFY(next.isActive());
}

void TestStoreTransaction::addingFilesWithoutARefusalStoresAll()
{
    const QStringList paths = makeFiles(60, QStringLiteral("zz_last.mp3"));
    QVERIFY(refuseBoom(QStringLiteral("tracks"), QStringLiteral("INSERT")));
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Import"));
    QCOMPARE(lib.addFiles(paths), 60);
    QCOMPARE(lib.trackCount(), 60);
    QCOMPARE(lib.search(QStringLiteral("song001")).size(), 1);
}

void TestStoreTransaction::settingACategoryThatFailsPartWayChangesNone()
{
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Jingles"));
    const QStringList paths{QStringLiteral("/m/a.mp3"), QStringLiteral("/m/b.mp3"),
                            QStringLiteral("/m/boom.mp3"), QStringLiteral("/m/d.mp3")};
    for (const QString& path : paths)
        lib.addTrack(makeTrack(QStringLiteral("Station"), path, path));
    QVERIFY(refuseBoom(QStringLiteral("tracks"), QStringLiteral("UPDATE")));
    QCOMPARE(TrackCategories::setCategory(QStringLiteral("Jingles"), paths, QStringLiteral("Jingle")), 0);
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM tracks WHERE category='Jingle'")).toInt(), 0);
    QCOMPARE(TrackCategories::categoriesInUse(QStringLiteral("Jingles")),
             QStringList{QStringLiteral("Foreign")});

    // Without the refused row the same selection is set as a whole.
    QStringList good = paths;
    good.removeAll(QStringLiteral("/m/boom.mp3"));
    QCOMPARE(TrackCategories::setCategory(QStringLiteral("Jingles"), good, QStringLiteral("Jingle")), 3);
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM tracks WHERE category='Jingle'")).toInt(), 3);
}

void TestStoreTransaction::removingMissingFilesThatFailsPartWayRemovesNone()
{
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Gone"));
    lib.addTrack(makeTrack(QStringLiteral("A"), QStringLiteral("One"), QStringLiteral("/gone/a.mp3")));
    lib.addTrack(makeTrack(QStringLiteral("B"), QStringLiteral("Two"), QStringLiteral("/gone/boom.mp3")));
    lib.addTrack(makeTrack(QStringLiteral("C"), QStringLiteral("Three"), QStringLiteral("/gone/c.mp3")));
    QVERIFY(refuseBoom(QStringLiteral("tracks"), QStringLiteral("DELETE")));
    QCOMPARE(lib.removeMissingFiles(), 0);
    QCOMPARE(lib.trackCount(), 3);
    QCOMPARE(lib.search(QStringLiteral("One")).size(), 1);
}

void TestStoreTransaction::storingAnalysesThatFailPartWayStoresNone()
{
    QList<TrackAnalysis> records;
    for (const char* path : {"/a/one.mp3", "/a/boom.mp3", "/a/three.mp3"}) {
        TrackAnalysis a;
        a.filePath = QString::fromLatin1(path);
        a.fileSize = 1000;
        a.fileModified = QDateTime::fromMSecsSinceEpoch(1700000000000, Qt::UTC);
        a.durationMs = 180000;
        a.integratedLufs = -14.0;
        records << a;
    }
    QVERIFY(refuseBoom(QStringLiteral("track_analysis"), QStringLiteral("INSERT")));
    QVERIFY(!TrackAnalysis::save(records));
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM track_analysis")).toInt(), 0);
    QVERIFY(TrackAnalysis::load(QStringLiteral("/a/one.mp3")).filePath.isEmpty());

    records.removeAt(1);
    QVERIFY(TrackAnalysis::save(records));
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM track_analysis")).toInt(), 2);
    // An empty error text is stored as '' and not as NULL.
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM track_analysis WHERE error=''")).toInt(), 2);
}

QTEST_GUILESS_MAIN(TestStoreTransaction)
#include "tst_storetransaction.moc"
