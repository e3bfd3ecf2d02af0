// The studio window with its as-run and schedule windows open on a shared server that is stopped, then
// hangs (SIGSTOP: the kernel still takes connections and data, nothing answers): the GUI thread keeps
// answering (a 10 ms timer measures its lateness), the windows and the status line say why, and
// everything comes back when the server does. A private server over TCP.
//
// Prints the longest lateness of the GUI thread's timer while the server hung.

#include "asrunlog.h"
#include "asrunwindow.h"
#include "libraryconnection.h"
#include "musiclibrary.h"
#include "pgtcpserver.h"
#include "playlistmodel.h"
#include "playlistview.h"
#include "schedulewindow.h"
#include "storereader.h"
#include "studiotestsupport.h"
#include "studiowindow.h"

#include <QComboBox>
#include <QElapsedTimer>
#include <QLabel>
#include <QStatusBar>
#include <QTest>
#include <QTimer>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

const QString kLibrary = QStringLiteral("Hang");
// The GUI thread counts as answering while its 10 ms timer is never later than this.
constexpr qint64 kLatenessBoundMs = 250;
constexpr int kTickMs = 10;

// How late a timer on the GUI thread fires, at most, while it runs.
class LatenessProbe
{
public:
    LatenessProbe()
    {
        m_timer.setInterval(kTickMs);
        m_timer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&m_timer, &QTimer::timeout, [this] {
            const qint64 now = m_clock.elapsed();
            m_longestMs = qMax(m_longestMs, now - m_lastMs - kTickMs);
            m_lastMs = now;
        });
        m_clock.start();
        m_timer.start();
    }
    qint64 longestMs() const { return m_longestMs; }

private:
    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_lastMs = 0;
    qint64 m_longestMs = 0;
};

QString statusOf(QWidget* window, const char* name)
{
    auto* label = window->findChild<QLabel*>(QLatin1String(name));
    return label ? label->text() : QStringLiteral("<no status>");
}

} // namespace

class TestStudioWindowsAway : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void theWindowsSayWhyWhileTheServerIsStoppedAndComeBack();
    void theWindowsKeepAnsweringWhileTheServerHangsAndComeBack();

private:
    bool serverScript(const QString& command);
    // Opens the studio with its as-run and schedule windows, both showing the server's data.
    void openWindows(StudioWindow& studio, AsRunWindow** asRun, ScheduleWindow** schedule);

    QTemporaryDir dir;
    pgtest::TcpServer server;
    QString serverDir;
};

bool TestStudioWindowsAway::serverScript(const QString& command)
{
    QProcess run;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("ONDARO_PG_TCP_PORT"), QString::number(server.port()));
    run.setProcessEnvironment(env);
    run.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    run.start(QStringLiteral("bash"),
              {QStringLiteral(ONDARO_SOURCE_DIR "/scripts/pg-test-server.sh"), command, serverDir});
    return run.waitForFinished(120000) && run.exitStatus() == QProcess::NormalExit && run.exitCode() == 0;
}

void TestStudioWindowsAway::initTestCase()
{
    QVERIFY(dir.isValid());
    if (!pgtest::TcpServer::available())
        QSKIP("no PostgreSQL server is installed (scripts/setup.sh installs it)");
    serverDir = QStringLiteral("/tmp/ondaro-windows-%1").arg(QCoreApplication::applicationPid());
    QVERIFY(server.start(serverDir));
    qputenv("ONDARO_DATABASE_URL", server.url().toUtf8());
    LibraryConnection::setReconnectInterval(200);
    studiotest::useStudioLocations(dir.path(), "tst_studiowindowsaway");
    QVERIFY(LibraryConnection::isServer());
    QVERIFY2(LibraryConnection::problem().isEmpty(), qPrintable(LibraryConnection::problem()));
    QVERIFY(MusicLibrary::createLibrary(kLibrary));
    for (int i = 0; i < 3; ++i) {
        AsRunEntry entry;
        entry.startedAt = QDateTime(QDate::currentDate(), QTime(0, 10 * i));
        entry.title = QStringLiteral("Aired %1").arg(i);
        entry.filePath = QStringLiteral("/music/aired %1.mp3").arg(i);
        QVERIFY(AsRunLog::recordStart(entry) > 0);
    }
}

void TestStudioWindowsAway::init()
{
    // A case that failed while the server was stopped leaves it so.
    QVERIFY(server.resume());
    QVERIFY(serverScript(QStringLiteral("start")));
}

void TestStudioWindowsAway::cleanupTestCase()
{
    studiotest::removeStudioLocations();
    server.resume();
    server.stop();
}

void TestStudioWindowsAway::openWindows(StudioWindow& studio, AsRunWindow** asRun, ScheduleWindow** schedule)
{
    studio.showAsRunLog();
    studio.showSchedule();
    *asRun = studio.findChild<AsRunWindow*>();
    *schedule = studio.findChild<ScheduleWindow*>();
    QVERIFY(*asRun && *schedule);
}

void TestStudioWindowsAway::theWindowsSayWhyWhileTheServerIsStoppedAndComeBack()
{
    // Stopping waits for the script on this thread: the lateness counts from when it is done.
    QVERIFY(serverScript(QStringLiteral("stop")));
    LatenessProbe lateness;
    QElapsedTimer opening;
    opening.start();
    StudioWindow studio;
    studio.show();
    QVERIFY(QTest::qWaitForWindowExposed(&studio));
    AsRunWindow* asRun = nullptr;
    ScheduleWindow* schedule = nullptr;
    openWindows(studio, &asRun, &schedule);
    qInfo("the studio and its windows opened in %lld ms with the server stopped", opening.elapsed());
    auto* libraries = schedule->findChild<QComboBox*>(QStringLiteral("librarySelector"));
    QVERIFY(libraries);

    QTRY_VERIFY2_WITH_TIMEOUT(statusOf(asRun, "asRunStatus").contains(QStringLiteral("database server")),
                              qPrintable(statusOf(asRun, "asRunStatus")), 15000);
    QTRY_VERIFY2_WITH_TIMEOUT(statusOf(schedule, "statusLabel").contains(QStringLiteral("database server")),
                              qPrintable(statusOf(schedule, "statusLabel")), 15000);
    QTRY_VERIFY2_WITH_TIMEOUT(
        studio.statusBar()->currentMessage().contains(QStringLiteral("database server")),
        qPrintable(studio.statusBar()->currentMessage()), 15000);
    QVERIFY(asRun->entries().isEmpty());
    QCOMPARE(libraries->count(), 0);
    // Asked again while the server is away, they answer with the reason again.
    asRun->refresh();
    schedule->reloadLibraries();
    QTest::qWait(3 * StoreReader::kSlowMs);
    QVERIFY2(statusOf(asRun, "asRunStatus").contains(QStringLiteral("database server")),
             qPrintable(statusOf(asRun, "asRunStatus")));
    qInfo("longest lateness of the GUI thread with the server stopped: %lld ms", lateness.longestMs());
    QVERIFY2(lateness.longestMs() < kLatenessBoundMs, qPrintable(QString::number(lateness.longestMs())));

    QVERIFY(serverScript(QStringLiteral("start")));
    QTRY_VERIFY2_WITH_TIMEOUT(studio.statusBar()->currentMessage().contains(QStringLiteral("again")),
                              qPrintable(studio.statusBar()->currentMessage()), 30000);
    // A window asked again reads the server again (its own connection returns by itself).
    QTRY_VERIFY_WITH_TIMEOUT((asRun->refresh(), asRun->entries().size() == 3), 30000);
    QTRY_VERIFY_WITH_TIMEOUT((schedule->reloadLibraries(), libraries->findText(kLibrary) >= 0), 30000);
    QVERIFY(LibraryConnection::problem().isEmpty());
}

void TestStudioWindowsAway::theWindowsKeepAnsweringWhileTheServerHangsAndComeBack()
{
    StudioWindow studio;
    studio.show();
    QVERIFY(QTest::qWaitForWindowExposed(&studio));
    // A list to repaint while the server hangs.
    QList<Track> rows;
    for (int i = 0; i < 20; ++i) {
        Track track;
        track.title = QStringLiteral("Row %1").arg(i);
        track.filePath = QStringLiteral("/music/row %1.mp3").arg(i);
        track.durationMs = 60000;
        rows << track;
    }
    studio.appendTracks(rows);
    QTRY_VERIFY(LibraryConnection::problem().isEmpty());

    AsRunWindow* asRun = nullptr;
    ScheduleWindow* schedule = nullptr;
    qint64 longest = 0;
    {
        pgtest::ResumeLater safety(server, 40000);
        LatenessProbe lateness;
        QElapsedTimer hung;
        QVERIFY(server.pause());
        hung.start();
        // Opened while the server hangs.
        openWindows(studio, &asRun, &schedule);
        QTRY_VERIFY2_WITH_TIMEOUT(statusOf(asRun, "asRunStatus") == StoreReader::waitingText(),
                                  qPrintable(statusOf(asRun, "asRunStatus")), 5000);
        QTRY_VERIFY2_WITH_TIMEOUT(statusOf(schedule, "statusLabel") == StoreReader::waitingText(),
                                  qPrintable(statusOf(schedule, "statusLabel")), 5000);
        QVERIFY(asRun->entries().isEmpty());
        QTRY_VERIFY2_WITH_TIMEOUT(
            studio.statusBar()->currentMessage().contains(QStringLiteral("does not answer")),
            qPrintable(studio.statusBar()->currentMessage()), 10000);
        qInfo("the studio said the server does not answer %lld ms after it hung", hung.elapsed());
        // The window keeps working while it waits: another day asked for, the lists asked again, the
        // playlist recoloured and repainted.
        asRun->setDate(QDate::currentDate().addDays(-1));
        asRun->setDate(QDate::currentDate());
        while (hung.elapsed() < 8000) {
            schedule->reloadLibraries();
            studio.playlist()->refresh();
            studio.playlistView()->viewport()->repaint();
            QTest::qWait(100);
        }
        QCOMPARE(statusOf(asRun, "asRunStatus"), StoreReader::waitingText());
        longest = lateness.longestMs();
        qInfo("longest lateness of the GUI thread's %d ms timer while the server hung: %lld ms", kTickMs,
              longest);
        QVERIFY(server.resume());
    }
    QVERIFY2(longest < kLatenessBoundMs, qPrintable(QString::number(longest)));

    QTRY_VERIFY2_WITH_TIMEOUT(studio.statusBar()->currentMessage().contains(QStringLiteral("again")),
                              qPrintable(studio.statusBar()->currentMessage()), 30000);
    QTRY_COMPARE_WITH_TIMEOUT(asRun->entries().size(), 3, 30000);
    QTRY_VERIFY2_WITH_TIMEOUT(statusOf(asRun, "asRunStatus").startsWith(QStringLiteral("3 entries")),
                              qPrintable(statusOf(asRun, "asRunStatus")), 30000);
    auto* libraries = schedule->findChild<QComboBox*>(QStringLiteral("librarySelector"));
    QTRY_VERIFY_WITH_TIMEOUT(libraries->findText(kLibrary) >= 0, 30000);
    QVERIFY(LibraryConnection::problem().isEmpty());
    QVERIFY(MusicLibrary::libraries().contains(kLibrary));
}

QTEST_MAIN(TestStudioWindowsAway)
#include "tst_studiowindowsaway.moc"
