// Every store file reports its failures to the lost-server detection: with the server stopped under
// an open connection, the first operation of each file gives its neutral result, counts a failure and
// makes the connection known as lost (so that it is reopened when the server returns). The test runs
// a server of its own (scripts/pg-test-server.sh), since it stops it.

#include "asrunlog.h"
#include "databasecopy.h"
#include "databaseurl.h"
#include "libraryconnection.h"
#include "musiclibrary.h"
#include "pgschema.h"
#include "testsupport.h"
#include "trackanalysis.h"
#include "trackcategories.h"
#include "trackparams.h"

#include <QTemporaryDir>
#include <QtTest>

#include <functional>

using namespace testsupport;

class TestStoreServerLoss : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void theLibraryCatalogueReportsALostServer();
    void trackParametersReportALostServer();
    void theAsRunLogReportsALostServer();
    void trackAnalysesReportALostServer();
    void trackCategoriesReportALostServer();
    void theServerSchemaReportsALostServer();
    void aDatabaseCopyReportsALostServer();

private:
    bool server(const QString& command, const QString& option = QString())
    {
        return testsupport::runTestServer(command, serverDir, option);
    }
    // Stops the server under the open connection, runs `operation` and checks that its failure was
    // counted and the connection is known as lost.
    void stopAndExpectLoss(const std::function<void()>& operation);

    QTemporaryDir home;
    QString serverDir;
};

void TestStoreServerLoss::initTestCase()
{
    QVERIFY(home.isValid());
    useTemporaryHome(home.path());
    // A socket path must stay short.
    serverDir = QStringLiteral("/tmp/ondaro-storeloss-%1").arg(QCoreApplication::applicationPid());
    QVERIFY(server(QStringLiteral("start"), QStringLiteral("--fresh")));
    const DatabaseUrl url =
        DatabaseUrl::parse(QStringLiteral("postgresql://ondaro@/ondaro?host=") + serverDir);
    QVERIFY(url.isValid());
    qputenv("ONDARO_DATABASE_URL", url.text.toUtf8());
    LibraryConnection::setReconnectInterval(200);
    QVERIFY(MusicLibrary::initialize());
    QVERIFY(LibraryConnection::isServer());
}

void TestStoreServerLoss::init()
{
    QVERIFY(server(QStringLiteral("start")));
    // The connection lost by the previous case comes back by itself.
    QTRY_VERIFY_WITH_TIMEOUT(LibraryConnection::check(), 30000);
    QVERIFY(LibraryConnection::problem().isEmpty());
    QVERIFY(MusicLibrary::database().isOpen());
}

void TestStoreServerLoss::cleanupTestCase()
{
    closeStore();
    if (!serverDir.isEmpty())
        server(QStringLiteral("stop"), QStringLiteral("--remove"));
}

void TestStoreServerLoss::stopAndExpectLoss(const std::function<void()>& operation)
{
    const int before = LibraryConnection::failureCount();
    QVERIFY(server(QStringLiteral("stop")));
    operation();
    QVERIFY2(LibraryConnection::failureCount() > before, "the failure was not reported");
    QVERIFY2(
        LibraryConnection::problem().startsWith(QStringLiteral("Lost the connection to the database server")),
        qPrintable(LibraryConnection::problem()));
    QVERIFY(!MusicLibrary::database().isOpen());
}

void TestStoreServerLoss::theLibraryCatalogueReportsALostServer()
{
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Rock"));
    lib.addTrack(makeTrack(QStringLiteral("A"), QStringLiteral("B")));
    QCOMPARE(lib.trackCount(), 1);
    stopAndExpectLoss([&] { QCOMPARE(lib.trackCount(), 0); });
}

void TestStoreServerLoss::trackParametersReportALostServer()
{
    TrackParams::setTrackRating(QStringLiteral("/m/rated.mp3"), 7);
    QCOMPARE(TrackParams::trackRating(QStringLiteral("/m/rated.mp3")), 7);
    stopAndExpectLoss([] { QCOMPARE(TrackParams::trackRating(QStringLiteral("/m/rated.mp3")), 0); });
}

void TestStoreServerLoss::theAsRunLogReportsALostServer()
{
    AsRunEntry entry;
    entry.startedAt = QDateTime::currentDateTime();
    entry.filePath = QStringLiteral("/m/aired.mp3");
    QVERIFY(AsRunLog::recordStart(entry) > 0);
    QCOMPARE(AsRunLog::entriesOn(QDate::currentDate()).size(), 1);
    stopAndExpectLoss([] { QVERIFY(AsRunLog::entriesOn(QDate::currentDate()).isEmpty()); });
}

void TestStoreServerLoss::trackAnalysesReportALostServer()
{
    TrackAnalysis a;
    a.filePath = QStringLiteral("/m/measured.mp3");
    a.fileSize = 10;
    a.integratedLufs = -12.0;
    QVERIFY(TrackAnalysis::save({a}));
    QCOMPARE(TrackAnalysis::load(a.filePath).filePath, a.filePath);
    stopAndExpectLoss([&] { QVERIFY(TrackAnalysis::load(a.filePath).filePath.isEmpty()); });
}

void TestStoreServerLoss::trackCategoriesReportALostServer()
{
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Spots"));
    lib.addTrack(makeTrack(QStringLiteral("Station"), QStringLiteral("Jingle"), QStringLiteral("/m/j.mp3")));
    QCOMPARE(TrackCategories::setCategory(QStringLiteral("Spots"), {QStringLiteral("/m/j.mp3")},
                                          QStringLiteral("Jingle")),
             1);
    stopAndExpectLoss([] { QVERIFY(TrackCategories::categoriesInUse(QStringLiteral("Spots")).isEmpty()); });
}

void TestStoreServerLoss::theServerSchemaReportsALostServer()
{
    QCOMPARE(PgSchema::version(MusicLibrary::database()), PgSchema::kVersion);
    stopAndExpectLoss([] { QCOMPARE(PgSchema::version(MusicLibrary::database()), 0); });
}

void TestStoreServerLoss::aDatabaseCopyReportsALostServer()
{
    QVERIFY(!DatabaseCopy::columnsOf(MusicLibrary::database(), QStringLiteral("tracks")).isEmpty());
    stopAndExpectLoss([] {
        const DatabaseCopy::Result result =
            DatabaseCopy::copy(MusicLibrary::database(), MusicLibrary::database());
        QVERIFY(!result.ok);
        QVERIFY(!result.message.isEmpty());
    });
}

QTEST_GUILESS_MAIN(TestStoreServerLoss)
#include "tst_storeserverloss.moc"
