// Memory over a long unattended run: the playout engine plays many short tracks one after the
// other (crossfade off, every row to its end) and the resident memory is printed as it goes. After
// a warm-up the growth per 1,000 tracks is what a station that never restarts would see.
// Run it with a sound server (scripts/with-sound.sh's null sink or a real card).
// Usage: bench_soak [--metered] [tracks [warm-up tracks]]   (defaults 1200 and 200)
// --metered listens to the engine's levels as the studio's meters do; without it the engine runs
// as the headless runner does, with nobody metering.
// Goal: flat after warm-up, under 1 MB per 1,000 tracks.

#include "audioengine.h"
#include "benchtones.h"
#include "musiclibrary.h"
#include "playlistmodel.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QMediaDevices>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <malloc.h>
#include <unistd.h>

namespace {

// Distinct files, so that every start loads a new source as a running order does.
constexpr int fileCount = 20;
constexpr double trackSeconds = 0.3;
constexpr int reportEvery = 100;

// Resident set size in kilobytes, from /proc/self/statm.
qint64 residentKb()
{
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly))
        return -1;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    if (fields.size() < 2)
        return -1;
    return fields.at(1).toLongLong() * (sysconf(_SC_PAGESIZE) / 1024);
}

// Heap in use in kilobytes, all malloc arenas together: what is held, as opposed to what the
// allocator keeps mapped (RSS) around it.
qint64 heapInUseKb()
{
    return qint64(mallinfo2().uordblks / 1024);
}

} // namespace

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QStandardPaths::setTestModeEnabled(true);
    QTemporaryDir dir;
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, dir.path());
    QSettings::setDefaultFormat(QSettings::IniFormat);
    QCoreApplication::setOrganizationName(QStringLiteral("OndaroBench"));
    QCoreApplication::setApplicationName(QStringLiteral("bench_soak"));

    QStringList arguments = app.arguments().mid(1);
    const bool metered = arguments.removeAll(QStringLiteral("--metered")) > 0;
    const int total = arguments.size() > 0 ? std::max(arguments.at(0).toInt(), 2) : 1200;
    const int warmUp = arguments.size() > 1 ? std::clamp(arguments.at(1).toInt(), 1, total - 1) : 200;

    // As the programs do: track parameters and analysis are read from the library at each start.
    if (!MusicLibrary::initialize()) {
        std::printf("the library could not be opened\n");
        return 1;
    }
    if (QMediaDevices::audioOutputs().isEmpty()) {
        std::printf("no audio output device: run through scripts/with-sound.sh\n");
        return 1;
    }
    QStringList files;
    for (int i = 0; i < fileCount; ++i) {
        files << makeBenchTone(dir.path(), QStringLiteral("soak%1.wav").arg(i), 300 + 40 * i, trackSeconds);
        if (files.last().isEmpty()) {
            std::printf("sox failed\n");
            return 1;
        }
    }

    PlaylistModel playlist;
    for (int i = 0; i < total; ++i) {
        Track track;
        track.artist = QStringLiteral("Soak");
        track.title = QString::number(i);
        track.filePath = files.at(i % fileCount);
        playlist.appendTrack(track);
    }
    AudioEngine engine;
    engine.setPlaylist(&playlist);
    double loudest = 0.0;
    if (metered)
        QObject::connect(&engine, &AudioEngine::levels, &app,
                         [&loudest](double left, double right) { loudest = std::max({loudest, left, right}); });

    int started = 0;
    qint64 warmKb = -1;
    qint64 warmHeapKb = -1;
    QElapsedTimer clock;
    clock.start();
    std::printf("tracks of %.1f s, %d files, %d tracks, warm-up %d, %s\n", trackSeconds, fileCount, total, warmUp,
                metered ? "metered" : "not metered");
    std::printf("%8s %10s %10s %10s\n", "tracks", "RSS kB", "heap kB", "seconds");
    QObject::connect(&engine, &AudioEngine::currentRowChanged, &app, [&](int) {
        ++started;
        if (started == warmUp) {
            warmKb = residentKb();
            warmHeapKb = heapInUseKb();
        }
        if (started % reportEvery == 0)
            std::printf("%8d %10lld %10lld %10.1f\n", started, residentKb(), heapInUseKb(),
                        clock.elapsed() / 1000.0);
        std::fflush(stdout);
    });
    QObject::connect(&engine, &AudioEngine::logMessage, &app, [&](const QString& text) {
        if (text == QLatin1String("Stop"))
            QTimer::singleShot(500, &app, &QCoreApplication::quit);
    });
    engine.playRow(0);
    app.exec();

    const qint64 endKb = residentKb();
    const qint64 endHeapKb = heapInUseKb();
    const int measured = started - warmUp;
    if (warmKb < 0 || measured < 1) {
        std::printf("too few tracks played (%d)\n", started);
        return 1;
    }
    std::printf("played %d tracks in %.1f s\n", started, clock.elapsed() / 1000.0);
    if (metered)
        std::printf("loudest level metered: %.3f\n", loudest);
    std::printf("RSS after warm-up %lld kB, at the end %lld kB\n", warmKb, endKb);
    std::printf("growth after warm-up: %.0f kB per 1,000 tracks (goal < 1024)\n",
                double(endKb - warmKb) * 1000.0 / measured);
    std::printf("heap in use after warm-up %lld kB, at the end %lld kB: %.0f kB per 1,000 tracks\n", warmHeapKb,
                endHeapKb, double(endHeapKb - warmHeapKb) * 1000.0 / measured);
    return 0;
}
