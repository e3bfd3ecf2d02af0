// A server that is not there at start-up, or goes away while the window is open: the reason is shown,
// every store operation gives its neutral result, nothing crashes, and once the server is back the
// connection returns by itself with nothing written before the stop lost. The test runs a server of
// its own (scripts/pg-test-server.sh), since it stops it.

#include "databaseurl.h"
#include "libraryconnection.h"
#include "musiclibrary.h"
#include "musiclibrarydialog.h"
#include "testsupport.h"
#include "trackparams.h"

#include <QLabel>
#include <QProcess>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QtTest>

using namespace testsupport;

class TestServerLoss : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void aMalformedUrlIsReportedInTheStatusLineAndEveryOperationIsNeutral();
    void startingWithAnUnreachableServerShowsTheReasonAndConnectsWhenItComes();
    void stoppingTheServerMidSessionIsReportedAndLosesNothingWrittenBefore();

private:
    bool server(const QString& command, const QString& option = QString());
    QLabel* statusOf(MusicLibraryDialog& window)
    {
        return window.findChild<QLabel*>(QStringLiteral("statusLabel"));
    }

    QTemporaryDir home;
    QString serverDir;
    std::unique_ptr<MusicLibraryDialog> window;
};

bool TestServerLoss::server(const QString& command, const QString& option)
{
    return testsupport::runTestServer(command, serverDir, option);
}

void TestServerLoss::initTestCase()
{
    QVERIFY(home.isValid());
    useTemporaryHome(home.path());
    // A socket path must stay short.
    serverDir = QStringLiteral("/tmp/ondaro-loss-%1").arg(QCoreApplication::applicationPid());
    LibraryConnection::setReconnectInterval(200);
}

void TestServerLoss::cleanupTestCase()
{
    window.reset();
    closeStore();
    if (!serverDir.isEmpty())
        server(QStringLiteral("stop"), QStringLiteral("--remove"));
}

void TestServerLoss::aMalformedUrlIsReportedInTheStatusLineAndEveryOperationIsNeutral()
{
    closeStore();
    qputenv("ONDARO_DATABASE_URL", "postgresql://studio-db:notaport/ondaro");
    QVERIFY(!MusicLibrary::initialize());
    QVERIFY2(LibraryConnection::problem().startsWith(
                 QStringLiteral("The database URL \"postgresql://studio-db:notaport/ondaro\" is not usable")),
             qPrintable(LibraryConnection::problem()));
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Rock"));
    lib.addTrack(makeTrack(QStringLiteral("A"), QStringLiteral("B")));
    QCOMPARE(lib.trackCount(), 0);
    QVERIFY(lib.search(QString()).isEmpty());
    QVERIFY(MusicLibrary::libraries().isEmpty());
    QCOMPARE(TrackParams::trackRating(QStringLiteral("/x.mp3")), 0);

    MusicLibraryDialog dialog;
    QVERIFY2(statusOf(dialog)->text().contains(QStringLiteral("is not usable")),
             qPrintable(statusOf(dialog)->text()));
    closeStore();
}

void TestServerLoss::startingWithAnUnreachableServerShowsTheReasonAndConnectsWhenItComes()
{
    closeStore();
    server(QStringLiteral("stop"), QStringLiteral("--remove"));
    const DatabaseUrl url =
        DatabaseUrl::parse(QStringLiteral("postgresql://ondaro@/ondaro?host=") + serverDir);
    QVERIFY(url.isValid());
    qputenv("ONDARO_DATABASE_URL", url.text.toUtf8());

    QVERIFY(!MusicLibrary::initialize());
    window = std::make_unique<MusicLibraryDialog>();
    window->show();
    QLabel* status = statusOf(*window);
    QVERIFY2(status->text().contains(QStringLiteral("Cannot reach the database server")),
             qPrintable(status->text()));

    QVERIFY(server(QStringLiteral("start"), QStringLiteral("--fresh")));
    // The store is set up on the late connection, the window creates its first library and lists it.
    QTRY_COMPARE_WITH_TIMEOUT(status->text(), QStringLiteral("Library \"Default\"  -  Tracks: 0"), 60000);
    QCOMPARE(MusicLibrary::libraries(), QStringList{QStringLiteral("Default")});
}

void TestServerLoss::stoppingTheServerMidSessionIsReportedAndLosesNothingWrittenBefore()
{
    QVERIFY(window);
    QLabel* status = statusOf(*window);
    auto* table = window->findChild<QTableWidget*>(QStringLiteral("trackTable"));
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Default"));
    for (int i = 0; i < 25; ++i)
        lib.addTrack(makeTrack(QStringLiteral("Artist %1").arg(i), QStringLiteral("Song %1").arg(i),
                               QString(), 1990, 180000));
    TrackParams::setTrackRating(QStringLiteral("/music/Artist 1 - Song 1.mp3"), 8);
    window->refreshTable();
    QCOMPARE(table->rowCount(), 25);

    QVERIFY(server(QStringLiteral("stop")));
    QTRY_VERIFY2_WITH_TIMEOUT(
        status->text().contains(QStringLiteral("Lost the connection to the database server")),
        qPrintable(status->text()), 30000);
    // What the window showed stays on screen; the store answers with neutral results meanwhile.
    QCOMPARE(table->rowCount(), 25);
    QCOMPARE(lib.trackCount(), 0);
    QVERIFY(lib.search(QStringLiteral("Artist")).isEmpty());
    QVERIFY(MusicLibrary::libraries().isEmpty());
    QCOMPARE(TrackParams::trackRating(QStringLiteral("/music/Artist 1 - Song 1.mp3")), 0);
    lib.addTrack(makeTrack(QStringLiteral("Lost"), QStringLiteral("Write")));
    QCOMPARE(lib.updateDuration(QStringLiteral("/music/Artist 2 - Song 2.mp3"), 1000), 0);
    QVERIFY(!LibraryConnection::problem().isEmpty());

    QVERIFY(server(QStringLiteral("start")));
    QTRY_COMPARE_WITH_TIMEOUT(status->text(), QStringLiteral("Library \"Default\"  -  Tracks: 25"), 60000);
    QCOMPARE(lib.trackCount(), 25);
    QCOMPARE(TrackParams::trackRating(QStringLiteral("/music/Artist 1 - Song 1.mp3")), 8);
    QCOMPARE(lib.search(QStringLiteral("song")).size(), 25);
    QVERIFY(LibraryConnection::problem().isEmpty());
}

QTEST_MAIN(TestServerLoss)
#include "tst_serverloss.moc"
