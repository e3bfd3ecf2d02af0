// A shared server that goes away: store calls give their neutral result at once, the connection is
// opened again only by the library watcher's timer, and a server that stops answering (SIGSTOP: the
// kernel still takes connections and data, nothing answers) is declared away by the watcher. The
// connection asks libpq for keepalive probes and a send time-out. A private server over TCP.
//
// Prints how long the watcher took to declare a hung server away.

#include "libraryconnection.h"
#include "librarywatcher.h"
#include "musiclibrary.h"
#include "pgtcpserver.h"
#include "testsupport.h"
#include "trackparams.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QSqlDatabase>
#include <QTemporaryDir>
#include <QtTest>

#include <atomic>
#include <chrono>
#include <thread>

using namespace testsupport;

namespace {

const QString kLibrary = QStringLiteral("Away");
const QString kVoiceoverFile = QStringLiteral("/music/away.mp3");
// Milliseconds a store call may take while the server is known to be away: no connect attempt, no
// statement sent.
constexpr qint64 kAtOnceMs = 100;
// The longest a hung server may go unnoticed.
constexpr qint64 kDeclaredAwayMs = 10000;

} // namespace

class TestServerAway : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void theConnectionAsksLibpqForKeepaliveAndASendTimeout();
    void optionsOfTheUrlComeAfterTheKeepaliveOnes();
    void aStoppedServerIsOpenedAgainByTheWatcherNotByTheCaller();
    void aHungServerIsDeclaredAwayAndStoreCallsReturnAtOnce();

private:
    // Stops or starts the server of `server` without removing its files, on the same port.
    bool serverScript(const QString& command);
    // The longest of several store calls, in milliseconds, and whether all gave neutral results.
    qint64 longestNeutralCallMs(bool* allNeutral);

    QTemporaryDir home;
    pgtest::TcpServer server;
    QString serverDir;
};

bool TestServerAway::serverScript(const QString& command)
{
    qputenv("ONDARO_PG_TCP_PORT", QByteArray::number(server.port()));
    const bool ok = runTestServer(command, serverDir);
    qunsetenv("ONDARO_PG_TCP_PORT");
    return ok;
}

qint64 TestServerAway::longestNeutralCallMs(bool* allNeutral)
{
    *allNeutral = true;
    qint64 longest = 0;
    for (int i = 0; i < 10; ++i) {
        QElapsedTimer clock;
        clock.start();
        const bool neutral = MusicLibrary::libraries().isEmpty() &&
                             TrackParams::load(kVoiceoverFile).voiceoverIns == 0 &&
                             TrackParams::trackRating(kVoiceoverFile) == 0;
        longest = qMax(longest, clock.elapsed());
        *allNeutral = *allNeutral && neutral;
    }
    return longest;
}

void TestServerAway::initTestCase()
{
    QVERIFY(home.isValid());
    if (!pgtest::TcpServer::available())
        QSKIP("no PostgreSQL server is installed (scripts/setup.sh installs it)");
    serverDir = QStringLiteral("/tmp/ondaro-away-%1").arg(QCoreApplication::applicationPid());
    QVERIFY(server.start(serverDir));
    qputenv("ONDARO_DATABASE_URL", server.url().toUtf8());
    useTemporaryHome(home.path());
    LibraryConnection::setReconnectInterval(200);
    QVERIFY(MusicLibrary::initialize());
    QVERIFY(LibraryConnection::isServer());
    MusicLibrary::createLibrary(kLibrary);
    TrackParams params;
    params.voiceoverIns = 1000;
    params.voiceoverSource = QStringLiteral("/music/voice.mp3");
    TrackParams::save(kVoiceoverFile, params);
    QCOMPARE(MusicLibrary::libraries(), QStringList{kLibrary});
}

void TestServerAway::cleanupTestCase()
{
    server.resume();
    closeStore();
    server.stop();
}

void TestServerAway::theConnectionAsksLibpqForKeepaliveAndASendTimeout()
{
    const QSqlDatabase db = LibraryConnection::database();
    const QString options = db.connectOptions();
    for (const QString& option :
         {QStringLiteral("keepalives=1"), QStringLiteral("keepalives_idle=3"),
          QStringLiteral("keepalives_interval=2"), QStringLiteral("keepalives_count=3"),
          QStringLiteral("tcp_user_timeout=9000")})
        QVERIFY2(options.split(QLatin1Char(';')).contains(option), qPrintable(options));
    // libpq refuses a connection string with an option it does not know: these were taken.
    QVERIFY(db.isOpen());
    QVERIFY(server.url().contains(QStringLiteral("127.0.0.1")));
}

void TestServerAway::optionsOfTheUrlComeAfterTheKeepaliveOnes()
{
    const DatabaseUrl url =
        DatabaseUrl::parse(QStringLiteral("postgresql://u@db.example:5432/ondaro?connect_timeout=7"));
    QVERIFY(url.isValid());
    const QStringList options = LibraryConnection::connectOptionsFor(url).split(QLatin1Char(';'));
    QCOMPARE(options.first(), QStringLiteral("keepalives=1"));
    QCOMPARE(options.last(), QStringLiteral("connect_timeout=7"));
}

void TestServerAway::aStoppedServerIsOpenedAgainByTheWatcherNotByTheCaller()
{
    QVERIFY(serverScript(QStringLiteral("stop")));
    // The first call finds the connection broken and reports the loss.
    QVERIFY(MusicLibrary::libraries().isEmpty());
    QVERIFY2(LibraryConnection::problem().startsWith(QStringLiteral("Lost the connection")),
             qPrintable(LibraryConnection::problem()));
    QVERIFY(!LibraryConnection::database().isOpen());

    QVERIFY(serverScript(QStringLiteral("start")));
    // Well past the reconnect interval (200 ms), callers still get neutral results: none of them
    // reconnects.
    QElapsedTimer waited;
    waited.start();
    while (waited.elapsed() < 1000) {
        bool neutral = false;
        QVERIFY(longestNeutralCallMs(&neutral) < kAtOnceMs);
        QVERIFY(neutral);
        QVERIFY(!LibraryConnection::database().isOpen());
        QTest::qWait(100);
    }

    LibraryWatcher watcher;
    QSignalSpy restored(&watcher, &LibraryWatcher::connectionRestored);
    QVERIFY(restored.wait(15000));
    QVERIFY(LibraryConnection::database().isOpen());
    QVERIFY(LibraryConnection::problem().isEmpty());
    QCOMPARE(MusicLibrary::libraries(), QStringList{kLibrary});
    QCOMPARE(TrackParams::load(kVoiceoverFile).voiceoverIns, 1000);
}

void TestServerAway::aHungServerIsDeclaredAwayAndStoreCallsReturnAtOnce()
{
    LibraryWatcher watcher;
    QSignalSpy lost(&watcher, &LibraryWatcher::connectionLost);
    QSignalSpy restored(&watcher, &LibraryWatcher::connectionRestored);
    QVERIFY(LibraryConnection::database().isOpen());
    QCOMPARE(MusicLibrary::libraries(), QStringList{kLibrary});

    QElapsedTimer clock;
    {
        pgtest::ResumeLater safety(server, 30000);
        QVERIFY(server.pause());
        clock.start();
        // Nothing on this thread asks the store until the watcher says the server is away.
        QVERIFY(lost.wait(int(kDeclaredAwayMs) + 5000));
        const qint64 declaredMs = clock.elapsed();
        qInfo("a hung server was declared away after %lld ms", declaredMs);
        QVERIFY2(declaredMs < kDeclaredAwayMs, qPrintable(QString::number(declaredMs)));
        QVERIFY2(LibraryConnection::problem().contains(QStringLiteral("does not answer")),
                 qPrintable(LibraryConnection::problem()));
        QVERIFY2(lost.first().first().toString().contains(QStringLiteral("does not answer")),
                 qPrintable(lost.first().first().toString()));

        // While it hangs, every call gives its neutral result at once, a second later as well
        // (when a reconnect would have been due).
        bool neutral = false;
        qint64 longest = longestNeutralCallMs(&neutral);
        QVERIFY(neutral);
        QTest::qWait(1200);
        longest = qMax(longest, longestNeutralCallMs(&neutral));
        QVERIFY(neutral);
        qInfo("longest store call while the server hung: %lld ms", longest);
        QVERIFY2(longest < kAtOnceMs, qPrintable(QString::number(longest)));
        QVERIFY(restored.isEmpty());
        QVERIFY(server.resume());
    }

    QVERIFY(restored.wait(30000));
    QVERIFY(LibraryConnection::problem().isEmpty());
    QCOMPARE(MusicLibrary::libraries(), QStringList{kLibrary});
    QCOMPARE(TrackParams::load(kVoiceoverFile).voiceoverIns, 1000);
}

QTEST_MAIN(TestServerAway)
#include "tst_serveraway.moc"
