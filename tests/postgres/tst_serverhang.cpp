// A shared server that hangs while a track plays: every process of a private PostgreSQL server,
// reached over TCP, is stopped with SIGSTOP (the kernel still accepts connections and data, nothing
// answers), then continued. The rows that follow must start on time in ondaro-playout and in the
// studio window, whose GUI thread keeps answering, and the as-run rows arrive once the server answers.
//
// Prints the longest delay of a row start while the server hangs.

#include "asrunlog.h"
#include "asrunrecorder.h"
#include "audioengine.h"
#include "libraryconnection.h"
#include "pgtcpserver.h"
#include "playlistmodel.h"
#include "playoutlog.h"
#include "studiotestsupport.h"
#include "studiowindow.h"

#include <QElapsedTimer>
#include <QMediaDevices>
#include <QProcess>
#include <QSignalSpy>
#include <QSqlError>
#include <QSqlQuery>
#include <QTest>
#include <QTimer>

#include <chrono>
#include <thread>

using namespace playouttest;

namespace {

// Seconds of each tone; the server hangs long enough for the next two rows to start.
constexpr double kToneSeconds = 3.0;
constexpr int kHangMs = 9000;
// A row counts as on time when it starts within this many milliseconds of the moment the row before
// would have ended (its start plus its length). The engine reports an end up to about 1.2 s late today
// with the server well, which this leaves room for; a hung server holds a row far longer.
constexpr qint64 kOnTimeMs = 2000;
constexpr qint64 kToneMs = qint64(kToneSeconds * 1000);
// The GUI thread counts as answering when no two ticks of a 50 ms timer lie further apart than this.
constexpr qint64 kLongestTickGapMs = 500;

struct AsRunRow {
    QString title;
    QDateTime startedAt;
    QString endedBy;
};

// Resumes the server after kHangMs from a thread of its own, so that a test thread that hangs with the
// server is freed too.
class HangWindow
{
public:
    explicit HangWindow(pgtest::TcpServer& server) : m_server(server)
    {
        m_paused = server.pause();
        m_thread = std::thread([this] {
            std::this_thread::sleep_for(std::chrono::milliseconds(kHangMs));
            m_server.resume();
        });
        m_clock.start();
    }
    ~HangWindow()
    {
        if (m_thread.joinable())
            m_thread.join();
    }
    bool paused() const { return m_paused; }
    // Milliseconds since the server was stopped.
    qint64 elapsed() const { return m_clock.elapsed(); }
    void waitForResume()
    {
        if (m_thread.joinable())
            m_thread.join();
    }

private:
    pgtest::TcpServer& m_server;
    std::thread m_thread;
    QElapsedTimer m_clock;
    bool m_paused = false;
};

} // namespace

class TestServerHang : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void theRunnerStartsEveryRowOnTimeWhileTheServerHangs();
    void theStudioStartsEveryRowOnTimeAndItsWindowKeepsAnswering();

private:
    // The as-run rows the server holds, oldest first, over a connection of its own.
    QList<AsRunRow> rowsOnServer();
    void clearAsRun();

    QTemporaryDir dir;
    pgtest::TcpServer server;
    QStringList tones;
    qint64 longestDelayMs = 0;
};

QList<AsRunRow> TestServerHang::rowsOnServer()
{
    const QString name = QStringLiteral("hang_check");
    QList<AsRunRow> rows;
    {
        QSqlDatabase db = LibraryConnection::openServer(DatabaseUrl::parse(server.url()), name);
        if (db.isOpen()) {
            QSqlQuery q(db);
            if (q.exec(QStringLiteral("SELECT title, started_at, ended_by FROM as_run ORDER BY id")))
                while (q.next())
                    rows << AsRunRow{q.value(0).toString(), AsRunLog::timeFromText(q.value(1).toString()),
                                     q.value(2).toString()};
            db.close();
        }
    }
    QSqlDatabase::removeDatabase(name);
    return rows;
}

void TestServerHang::clearAsRun()
{
    const QString name = QStringLiteral("hang_clear");
    {
        QSqlDatabase db = LibraryConnection::openServer(DatabaseUrl::parse(server.url()), name);
        QSqlQuery(db).exec(QStringLiteral("DELETE FROM as_run"));
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
}

void TestServerHang::initTestCase()
{
    QVERIFY(dir.isValid());
    QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
    if (!pgtest::TcpServer::available())
        QSKIP("no PostgreSQL server is installed (scripts/setup.sh installs it)");
    QVERIFY(server.start(QStringLiteral("/tmp/ondaro-hang-%1").arg(QCoreApplication::applicationPid())));
    qputenv("ONDARO_DATABASE_URL", server.url().toUtf8());
    LibraryConnection::setReconnectInterval(200);
    studiotest::useStudioLocations(dir.path(), "tst_serverhang");
    QVERIFY(LibraryConnection::isServer());
    QVERIFY2(LibraryConnection::problem().isEmpty(), qPrintable(LibraryConnection::problem()));
    setSetting(QStringLiteral("playback/crossfadeEnabled"), false);

    const QStringList names = {QStringLiteral("Artist A - Tone A.wav"),
                               QStringLiteral("Artist B - Tone B.wav"),
                               QStringLiteral("Artist C - Tone C.wav")};
    const int frequencies[] = {440, 660, 880};
    for (int i = 0; i < names.size(); ++i) {
        const QString path = makeTone(dir.path(), names.at(i), frequencies[i], kToneSeconds);
        QVERIFY(!path.isEmpty());
        tones << path;
    }
}

void TestServerHang::cleanupTestCase()
{
    qInfo("longest delay of a row start while the server hung: %lld ms", longestDelayMs);
    studiotest::removeStudioLocations();
    server.resume();
    server.stop();
}

void TestServerHang::theRunnerStartsEveryRowOnTimeWhileTheServerHangs()
{
    clearAsRun();
    QProcess runner;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), dir.path());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), dir.filePath(QStringLiteral("runner-config")));
    env.insert(QStringLiteral("XDG_DATA_HOME"), dir.filePath(QStringLiteral("runner-data")));
    env.insert(QStringLiteral("ONDARO_DATABASE_URL"), server.url());
    runner.setProcessEnvironment(env);
    runner.setProcessChannelMode(QProcess::SeparateChannels);

    // Each line with the moment it arrived.
    QStringList lines;
    QList<qint64> arrivedMs;
    QList<QDateTime> arrivedAt;
    QElapsedTimer clock;
    QByteArray pending;
    connect(&runner, &QProcess::readyReadStandardOutput, this, [&] {
        pending += runner.readAllStandardOutput();
        int end;
        while ((end = pending.indexOf('\n')) >= 0) {
            lines << QString::fromUtf8(pending.left(end));
            arrivedMs << clock.elapsed();
            arrivedAt << QDateTime::currentDateTime();
            pending.remove(0, end + 1);
        }
    });
    auto lineOf = [&](const QString& text, bool endLine) {
        for (int i = 0; i < lines.size(); ++i)
            if (lines.at(i).endsWith(text) && lines.at(i).contains(PlayoutLog::endOfTrack) == endLine)
                return i;
        return -1;
    };

    clock.start();
    runner.start(QStringLiteral(ONDARO_PLAYOUT_RUNNER), tones);
    QVERIFY(runner.waitForStarted(10000));
    QTRY_VERIFY_WITH_TIMEOUT(lineOf(QStringLiteral("Tone A"), false) >= 0, 20000);
    QTest::qWait(500); // the track plays

    HangWindow hang(server);
    QVERIFY(hang.paused());
    QTRY_VERIFY_WITH_TIMEOUT(lineOf(QStringLiteral("Tone C"), false) >= 0 || hang.elapsed() > kHangMs + 1000,
                             kHangMs + 2000);
    hang.waitForResume();
    const qint64 resumedMs = clock.elapsed();
    QTRY_VERIFY_WITH_TIMEOUT(lineOf(QStringLiteral("Tone C"), false) >= 0, 30000);
    QVERIFY2(runner.waitForFinished(60000), "the runner did not end after the last row");
    runner.waitForReadyRead(0);

    // The delay of each row start after the moment the row before would have ended.
    qint64 longest = 0;
    const QStringList rowTitles = {QStringLiteral("Tone A"), QStringLiteral("Tone B"),
                                   QStringLiteral("Tone C")};
    for (int i = 1; i < rowTitles.size(); ++i) {
        const int before = lineOf(rowTitles.at(i - 1), false);
        const int startLine = lineOf(rowTitles.at(i), false);
        QVERIFY2(before >= 0 && startLine >= 0, qPrintable(lines.join(QLatin1Char('\n'))));
        const qint64 delay = arrivedMs.at(startLine) - arrivedMs.at(before) - kToneMs;
        qInfo("ondaro-playout: %s started %lld ms after the row before would have ended (server stopped at "
              "%lld ms, continued at %lld ms, row at %lld ms)",
              qPrintable(rowTitles.at(i)), delay, resumedMs - kHangMs, resumedMs, arrivedMs.at(startLine));
        longest = qMax(longest, delay);
    }
    longestDelayMs = qMax(longestDelayMs, longest);
    qInfo("ondaro-playout: longest delay of a row start while the server hung: %lld ms", longest);
    QVERIFY2(longest < kOnTimeMs, qPrintable(QString::number(longest)));

    // What aired while the server hung arrives once it answers, with the times it really had.
    QTRY_COMPARE_WITH_TIMEOUT(rowsOnServer().size(), 3, 20000);
    const QList<AsRunRow> rows = rowsOnServer();
    for (int i = 0; i < rows.size(); ++i) {
        QCOMPARE(rows.at(i).title, rowTitles.at(i));
        const int startLine = lineOf(rowTitles.at(i), false);
        QVERIFY(qAbs(rows.at(i).startedAt.msecsTo(arrivedAt.at(startLine))) < 1000);
    }
}

void TestServerHang::theStudioStartsEveryRowOnTimeAndItsWindowKeepsAnswering()
{
    clearAsRun();
    StudioWindow window;
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    AudioEngine* engine = window.engine();
    QVERIFY(window.asRunRecorder()->isEnabled());
    QElapsedTimer clock;
    clock.start();
    QList<qint64> startedMs;
    connect(engine, &AudioEngine::trackStarted, this, [&] { startedMs << clock.elapsed(); });
    window.appendItems(tones);
    QCOMPARE(window.playlist()->rowCount(), 3);
    engine->playRow(0);
    QTRY_COMPARE_WITH_TIMEOUT(startedMs.size(), 1, 15000);
    QTRY_COMPARE_WITH_TIMEOUT(rowsOnServer().size(), 1, 10000);
    QTest::qWait(500);

    // A tick every 50 ms on the GUI thread; the longest gap between two says whether it answered.
    QList<qint64> ticks;
    QTimer ticker;
    ticker.setInterval(50);
    connect(&ticker, &QTimer::timeout, this, [&] { ticks << clock.elapsed(); });
    ticker.start();
    const qint64 hangStartMs = clock.elapsed();
    {
        HangWindow hang(server);
        QVERIFY(hang.paused());
        QTest::qWait(kHangMs - 500);
        ticks << clock.elapsed();
        ticker.stop();
    }
    const qint64 resumedMs = clock.elapsed();
    qint64 longestGap = ticks.first() - hangStartMs;
    for (int i = 1; i < ticks.size(); ++i)
        longestGap = qMax(longestGap, ticks.at(i) - ticks.at(i - 1));
    // Until the next row is due nothing in the studio needs the store: the window answers all along.
    const qint64 nextDueMs = startedMs.first() + kToneMs;
    qint64 longestGapBeforeDue = ticks.first() - hangStartMs;
    for (int i = 1; i < ticks.size() && ticks.at(i - 1) < nextDueMs; ++i)
        longestGapBeforeDue = qMax(longestGapBeforeDue, qMin(ticks.at(i), nextDueMs) - ticks.at(i - 1));
    qInfo(
        "studio: %lld ticks while the server hung, longest gap %lld ms, %lld ms before the next row was due",
        qsizetype(ticks.size()), longestGap, longestGapBeforeDue);
    QVERIFY2(longestGapBeforeDue < kLongestTickGapMs, qPrintable(QString::number(longestGapBeforeDue)));

    QTRY_COMPARE_WITH_TIMEOUT(startedMs.size(), 3, 30000);
    QTRY_VERIFY_WITH_TIMEOUT(!engine->isPlaying(), 30000);
    qint64 longest = 0;
    for (int i = 1; i < 3; ++i) {
        const qint64 delay = startedMs.at(i) - startedMs.at(i - 1) - kToneMs;
        qInfo("studio: row %d started %lld ms after the row before would have ended (server stopped at %lld "
              "ms, "
              "continued at %lld ms, row at %lld ms)",
              i + 1, delay, hangStartMs, resumedMs, startedMs.at(i));
        longest = qMax(longest, delay);
    }
    longestDelayMs = qMax(longestDelayMs, longest);
    qInfo("studio: longest delay of a row start while the server hung: %lld ms", longest);

    // What aired while the server hung arrives once it answers.
    QTRY_COMPARE_WITH_TIMEOUT(rowsOnServer().size(), 3, 20000);
    QTRY_COMPARE_WITH_TIMEOUT(window.asRunRecorder()->heldBackCount(), 0, 20000);
    const QList<AsRunRow> rows = rowsOnServer();
    QCOMPARE(rows.at(0).title, QStringLiteral("Tone A"));
    QCOMPARE(rows.at(1).title, QStringLiteral("Tone B"));
    QCOMPARE(rows.at(2).title, QStringLiteral("Tone C"));
    QCOMPARE(rows.at(0).endedBy, QStringLiteral("end"));

    // Neither the row start nor a repaint of the list waits for the server.
    QVERIFY2(longest < kOnTimeMs, qPrintable(QString::number(longest)));
    QVERIFY2(longestGap < kLongestTickGapMs, qPrintable(QString::number(longestGap)));
}

QTEST_MAIN(TestServerHang)
#include "tst_serverhang.moc"
