// How the studio window holds up on air with a long playlist: the lateness of a 0 ms timer on the
// GUI thread while a 10,000-row playlist plays with the meters running, the cost of one meter
// update, and the time to open and to save a 10,000-row M3U. Prints figures and their ratio to the
// goals; run it through scripts/with-sound.sh so that there is an output device.

#include "audioengine.h"
#include "benchfigures.h"
#include "levelmeter.h"
#include "musiclibrary.h"
#include "playlistfile.h"
#include "playlistmodel.h"
#include "playlistview.h"
#include "studiowindow.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QMediaDevices>
#include <QProcess>
#include <QScrollBar>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

namespace {

constexpr int playlistRows = 10000;
constexpr double latenessGoalMs = 20.0; // p99
constexpr double fileGoalMs = 200.0;    // open and save each
constexpr int samplingSeconds = 15;

QString makeTone(const QString& dir, const QString& name, int frequency, int seconds)
{
    const QString path = QDir(dir).filePath(name);
    QProcess sox;
    sox.start(QStringLiteral("sox"),
              {QStringLiteral("-n"), QStringLiteral("-r"), QStringLiteral("44100"), QStringLiteral("-c"),
               QStringLiteral("2"), path, QStringLiteral("synth"), QString::number(seconds),
               QStringLiteral("sine"), QString::number(frequency), QStringLiteral("vol"),
               QStringLiteral("0.5"),
               // A slow tremolo keeps the meters moving all the time.
               QStringLiteral("tremolo"), QStringLiteral("3"), QStringLiteral("90")});
    sox.waitForFinished(60000);
    return QFile::exists(path) ? path : QString();
}

void line(const char* what, double value, const char* unit, double goal = 0.0)
{
    printFigure(44, what, value, unit, goal);
}

// Posts a 0 ms timer again and again and records how late each one fires, for `seconds`.
std::vector<double> zeroTimerLateness(int seconds)
{
    std::vector<double> lateness;
    QElapsedTimer total;
    total.start();
    QElapsedTimer posted;
    bool done = false;
    std::function<void()> post;
    post = [&] {
        posted.start();
        QTimer::singleShot(0, [&] {
            lateness.push_back(posted.nsecsElapsed() / 1e6);
            if (total.elapsed() >= seconds * 1000) {
                done = true;
                return;
            }
            // A short gap between samples so that the timer does not itself load the loop.
            QTimer::singleShot(5, post);
        });
    };
    post();
    while (!done)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    return lateness;
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
        QStringLiteral("bench_studio-%1").arg(QCoreApplication::applicationPid()));
    {
        QSettings settings;
        settings.setValue(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
        settings.setValue(QStringLiteral("playback/crossfadeEnabled"), true);
        settings.setValue(QStringLiteral("playback/minCrossfadeMs"), 0);
    }
    MusicLibrary::initialize();
    if (QMediaDevices::audioOutputs().isEmpty())
        std::printf("warning: no audio output device; run through scripts/with-sound.sh\n");

    QStringList tones;
    for (int i = 0; i < 4; ++i)
        tones << makeTone(dir.path(), QStringLiteral("Artist %1 - Tone %1.wav").arg(i), 300 + 110 * i, 40);
    if (tones.contains(QString())) {
        std::printf("could not generate tone files with sox\n");
        return 1;
    }

    // A 10,000-row playlist file, as the studio saves one.
    QList<Track> rows;
    rows.reserve(playlistRows);
    for (int i = 0; i < playlistRows; ++i) {
        Track t;
        t.artist = QStringLiteral("Artist %1").arg(i % 4);
        t.title = QStringLiteral("Tone %1 (%2)").arg(i % 4).arg(i);
        t.filePath = tones.at(i % 4);
        t.durationMs = 40000;
        rows << t;
    }
    const QString sourceList = QDir(dir.path()).filePath(QStringLiteral("source.m3u"));
    PlaylistFile::write(sourceList, rows);

    StudioWindow window;
    window.show();
    QTest::qWaitForWindowExposed(&window);

    QElapsedTimer clock;
    clock.start();
    const bool opened = window.openPlaylist(sourceList);
    const double openMs = clock.nsecsElapsed() / 1e6;
    QCoreApplication::processEvents();
    clock.restart();
    const bool saved = window.savePlaylist(QDir(dir.path()).filePath(QStringLiteral("saved.m3u")));
    const double saveMs = clock.nsecsElapsed() / 1e6;
    std::printf("playlist rows: %d (opened %s, saved %s)\n", window.playlist()->rowCount(),
                opened ? "yes" : "NO", saved ? "yes" : "NO");
    line("open 10,000-row M3U into the window", openMs, "ms", fileGoalMs);
    line("save 10,000-row M3U from the window", saveMs, "ms", fileGoalMs);

    // On air: play, let the meters and display run, scroll the list now and then.
    window.engine()->playRow(0);
    QElapsedTimer wait;
    wait.start();
    while (!window.engine()->isPlaying() && wait.elapsed() < 15000)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    std::printf("playing: %s\n", window.engine()->isPlaying() ? "yes" : "NO");
    QTimer scroller;
    scroller.setInterval(250);
    QObject::connect(&scroller, &QTimer::timeout, &window, [&window] {
        QScrollBar* bar = window.playlistView()->verticalScrollBar();
        bar->setValue((bar->value() + 97) % std::max(bar->maximum(), 1));
    });
    scroller.start();
    const int paintsBefore = window.leftMeter()->repaintCount();
    QElapsedTimer sampling;
    sampling.start();
    const std::vector<double> lateness = zeroTimerLateness(samplingSeconds);
    const double sampledSeconds = sampling.elapsed() / 1000.0;
    const int meterPaints = window.leftMeter()->repaintCount() - paintsBefore;
    scroller.stop();
    std::printf("0 ms timer samples: %zu over %.1f s\n", lateness.size(), sampledSeconds);
    line("0 ms timer lateness, median", percentile(lateness, 0.5), "ms");
    line("0 ms timer lateness, p99", percentile(lateness, 0.99), "ms", latenessGoalMs);
    line("0 ms timer lateness, max", percentile(lateness, 1.0), "ms");
    line("left meter repaints per second", meterPaints / sampledSeconds, "/s");
    line("left meter level at the end", window.leftMeter()->levelDb(), "dBFS");

    // One meter update: a new level and the repaint it leads to.
    LevelMeter* meter = window.leftMeter();
    constexpr int updates = 2000;
    clock.restart();
    for (int i = 0; i < updates; ++i) {
        meter->setLevel((i % 2) ? 0.9 : 0.05);
        meter->repaint();
    }
    const double perUpdateUs = clock.nsecsElapsed() / 1e3 / updates;
    line("one meter update (level + repaint)", perUpdateUs, "us");
    line("meter updates' share of a 30 ms frame (2 meters)", 2 * perUpdateUs / 30000.0, "");

    window.engine()->stop();
    window.close();
    QDir(QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation)).removeRecursively();
    QDir(QStandardPaths::writableLocation(QStandardPaths::AppDataLocation)).removeRecursively();
    return 0;
}
