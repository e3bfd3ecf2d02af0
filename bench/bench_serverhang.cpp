// How long the studio window's GUI thread stalls while its shared server hangs: a private PostgreSQL
// server over TCP is stopped with SIGSTOP (the kernel still takes connections and data, nothing
// answers) while the studio plays a list with its as-run and schedule windows open. Every 500 ms the
// presenter's work goes on: the as-run window and the schedule window's libraries are read again, the
// playlist is recoloured and repainted and scrolled. A 10 ms timer on the GUI thread measures the
// stalls (how much later than 10 ms after the previous tick each tick comes), before, during and after
// the hang. Prints the figures and the ratio of the longest stall during the hang to the goal. Run it
// through scripts/with-sound.sh so that there is an output device.

#include "asrunlog.h"
#include "asrunwindow.h"
#include "audioengine.h"
#include "benchfigures.h"
#include "benchtones.h"
#include "libraryconnection.h"
#include "musiclibrary.h"
#include "pgtcpserver.h"
#include "playlistmodel.h"
#include "playlistview.h"
#include "schedulewindow.h"
#include "studiowindow.h"
#include "trackparams.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QMediaDevices>
#include <QScrollBar>
#include <QSettings>
#include <QStandardPaths>
#include <QStatusBar>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

namespace {

constexpr int kTickMs = 10;
constexpr double kStallGoalMs = 50.0;
constexpr int kHangMs = 12000;
constexpr int kCalmMs = 5000;
constexpr int kPlaylistRows = 400;

// The stalls of a 10 ms timer on this thread, in milliseconds, while it runs.
class StallProbe
{
public:
    StallProbe()
    {
        m_timer.setInterval(kTickMs);
        m_timer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&m_timer, &QTimer::timeout, [this] {
            const double now = m_clock.nsecsElapsed() / 1e6;
            if (m_last >= 0)
                m_stalls.push_back(std::max(0.0, now - m_last - kTickMs));
            m_last = now;
        });
        m_clock.start();
        m_timer.start();
    }
    // The stalls since the last call.
    std::vector<double> take() { return std::exchange(m_stalls, {}); }

private:
    QTimer m_timer;
    QElapsedTimer m_clock;
    double m_last = -1;
    std::vector<double> m_stalls;
};

void line(const char* what, double value, const char* unit, double goal = 0.0)
{
    printFigure(58, what, value, unit, goal);
}

void report(const char* phase, const std::vector<double>& stalls, double goal = 0.0)
{
    std::printf("%s: %zu ticks\n", phase, stalls.size());
    line("  stall of the GUI thread, median", percentile(stalls, 0.5), "ms");
    line("  stall of the GUI thread, p99", percentile(stalls, 0.99), "ms");
    line("  longest stall of the GUI thread", percentile(stalls, 1.0), "ms", goal);
}

// Runs the event loop for `ms`, doing the presenter's work every 500 ms.
void work(StudioWindow& window, AsRunWindow* asRun, ScheduleWindow* schedule, int ms)
{
    QElapsedTimer clock;
    clock.start();
    qint64 next = 0;
    while (clock.elapsed() < ms) {
        if (clock.elapsed() >= next) {
            next += 500;
            asRun->refresh();
            schedule->reloadLibraries();
            window.playlist()->refresh();
            QScrollBar* bar = window.playlistView()->verticalScrollBar();
            bar->setValue((bar->value() + 37) % std::max(bar->maximum(), 1));
            window.playlistView()->viewport()->repaint();
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 20);
    }
}

} // namespace

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QTemporaryDir dir;
    QStandardPaths::setTestModeEnabled(true);
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, dir.path());
    QSettings::setDefaultFormat(QSettings::IniFormat);
    QCoreApplication::setOrganizationName(QStringLiteral("OndaroBench"));
    QCoreApplication::setApplicationName(
        QStringLiteral("bench_serverhang-%1").arg(QCoreApplication::applicationPid()));
    {
        QSettings settings;
        settings.setValue(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
        settings.setValue(QStringLiteral("playback/crossfadeEnabled"), false);
    }
    if (QMediaDevices::audioOutputs().isEmpty())
        std::printf("warning: no audio output device; run through scripts/with-sound.sh\n");
    if (!pgtest::TcpServer::available()) {
        std::printf("no PostgreSQL server is installed\n");
        return 1;
    }
    pgtest::TcpServer server;
    if (!server.start(QStringLiteral("/tmp/ondaro-benchhang-%1").arg(QCoreApplication::applicationPid()))) {
        std::printf("the private PostgreSQL server did not start\n");
        return 1;
    }
    qputenv("ONDARO_DATABASE_URL", server.url().toUtf8());
    if (!MusicLibrary::initialize()) {
        std::printf("the store on the server did not open: %s\n", qPrintable(LibraryConnection::problem()));
        return 1;
    }

    QStringList tones;
    for (int i = 0; i < 4; ++i)
        tones << makeBenchTone(dir.path(), QStringLiteral("Artist %1 - Tone %1.wav").arg(i), 300 + 110 * i, 60);
    if (tones.contains(QString())) {
        std::printf("could not generate tone files with sox\n");
        return 1;
    }
    // What the windows read: a library, a day of as-run rows, voiceover parameters for two files.
    MusicLibrary::createLibrary(QStringLiteral("Bench"));
    for (int i = 0; i < 200; ++i) {
        AsRunEntry entry;
        entry.startedAt = QDateTime(QDate::currentDate(), QTime(0, 0).addSecs(i * 60));
        entry.title = QStringLiteral("Aired %1").arg(i);
        entry.filePath = tones.at(i % 4);
        AsRunLog::recordStart(entry);
    }
    TrackParams voiced;
    voiced.voiceoverIns = 5000;
    voiced.voiceoverSource = tones.at(3);
    TrackParams::save(tones.at(0), voiced);
    TrackParams::save(tones.at(1), voiced);

    StudioWindow window;
    window.show();
    (void)QTest::qWaitForWindowExposed(&window);
    QList<Track> rows;
    for (int i = 0; i < kPlaylistRows; ++i) {
        Track t;
        t.artist = QStringLiteral("Artist %1").arg(i % 4);
        t.title = QStringLiteral("Tone %1 (%2)").arg(i % 4).arg(i);
        t.filePath = tones.at(i % 4);
        t.durationMs = 60000;
        rows << t;
    }
    window.appendTracks(rows);
    window.showAsRunLog();
    window.showSchedule();
    auto* asRun = window.findChild<AsRunWindow*>();
    auto* schedule = window.findChild<ScheduleWindow*>();
    if (!asRun || !schedule) {
        std::printf("the as-run or schedule window did not open\n");
        return 1;
    }
    window.engine()->playRow(0);
    QElapsedTimer wait;
    wait.start();
    while (!window.engine()->isPlaying() && wait.elapsed() < 15000)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    std::printf("server: %s; playing: %s; as-run rows shown: %lld\n", qPrintable(server.url()),
                window.engine()->isPlaying() ? "yes" : "NO", qint64(asRun->entries().size()));

    StallProbe probe;
    work(window, asRun, schedule, kCalmMs);
    report("server well, 5 s", probe.take());

    QElapsedTimer hung;
    if (!server.pause()) {
        std::printf("the server could not be stopped\n");
        return 1;
    }
    hung.start();
    // Continued from a thread of its own after kHangMs: a GUI thread that waits on the server would
    // never get to do it, and its stall is then what this measures.
    std::thread resumer([&server] {
        std::this_thread::sleep_for(std::chrono::milliseconds(kHangMs));
        server.resume();
    });
    qint64 awayAfterMs = -1;
    QObject::connect(window.statusBar(), &QStatusBar::messageChanged, &window, [&](const QString& text) {
        if (awayAfterMs < 0 && text.contains(QStringLiteral("does not answer")))
            awayAfterMs = hung.elapsed();
    });
    work(window, asRun, schedule, kHangMs);
    const std::vector<double> hangStalls = probe.take();
    resumer.join();
    work(window, asRun, schedule, kCalmMs);
    const std::vector<double> afterStalls = probe.take();

    report("server hung (SIGSTOP), 12 s", hangStalls, kStallGoalMs);
    if (awayAfterMs >= 0)
        line("status line says the server does not answer, after", double(awayAfterMs), "ms");
    else
        std::printf("status line never said that the server does not answer\n");
    report("server continued, 5 s", afterStalls);
    std::printf("after: problem \"%s\", as-run rows shown %lld, still playing %s\n",
                qPrintable(LibraryConnection::problem()), qint64(asRun->entries().size()),
                window.engine()->isPlaying() ? "yes" : "no");
    window.engine()->stop();
    server.stop();
    return 0;
}
