// Speed and memory of the loudness and cue-point analysis: 20 generated one-minute stereo 44.1 kHz MP3
// files analysed with one job, then with all cores, and ffmpeg's own EBU R 128 meter
// ("ebur128=peak=true") run over the same files one after another, for comparison. Then the peak
// memory of ondaro-analyse on a one-minute and on a 60-minute file, each in a child process.
// Goals: one job at least as fast as the ffmpeg filter (aim: twice); two jobs at least 1.8 times one
// job; memory independent of the file's length.
// Usage: bench_analysis [media folder]   (default: a folder under /tmp, reused on the next run)

#include "analysisqueue.h"
#include "trackanalysis.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QSignalSpy>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sys/resource.h>

namespace {

constexpr int kFiles = 20;
constexpr int kShortSeconds = 60;
constexpr int kLongSeconds = 3600;

// Pink noise under a slowly swelling tone, a different seed per file, encoded at 128 kb/s.
bool makeMp3(const QString& path, int seconds, int seed)
{
    if (QFileInfo(path).size() > 0)
        return true;
    const QString source =
        QStringLiteral("anoisesrc=color=pink:seed=%1:sample_rate=44100:amplitude=0.25:duration=%2[n];"
                       "sine=frequency=%3:sample_rate=44100:duration=%2,volume=0.2[t];"
                       "[n][t]amix=inputs=2:normalize=0,aformat=channel_layouts=stereo")
            .arg(seed)
            .arg(seconds)
            .arg(220 + 20 * seed);
    const QString part = path + QStringLiteral(".part.mp3");
    const int rc = QProcess::execute(QStringLiteral("ffmpeg"),
                                     {QStringLiteral("-nostdin"), QStringLiteral("-hide_banner"),
                                      QStringLiteral("-loglevel"), QStringLiteral("error"),
                                      QStringLiteral("-y"), QStringLiteral("-filter_complex"), source,
                                      QStringLiteral("-c:a"), QStringLiteral("libmp3lame"),
                                      QStringLiteral("-b:a"), QStringLiteral("128k"), part});
    return rc == 0 && QFile::rename(part, path);
}

// Seconds of wall time to analyse the files with `jobs` workers; -1 on failure.
double analyseAll(const QStringList& files, int jobs)
{
    AnalysisQueue queue;
    queue.setMaxJobs(jobs);
    queue.setStoreResults(false);
    queue.setSkipUpToDate(false);
    int failed = 0;
    QObject::connect(&queue, &AnalysisQueue::analysed, [&failed](const TrackAnalysis& a) {
        if (!a.error.isEmpty()) {
            ++failed;
            std::fprintf(stderr, "failed: %s: %s\n", qPrintable(a.filePath), qPrintable(a.error));
        }
    });
    QSignalSpy finished(&queue, &AnalysisQueue::finished);
    QElapsedTimer clock;
    clock.start();
    queue.enqueue(files);
    if (!finished.wait(1800000) || failed > 0)
        return -1.0;
    return static_cast<double>(clock.nsecsElapsed()) / 1e9;
}

double ffmpegAll(const QStringList& files)
{
    QElapsedTimer clock;
    clock.start();
    for (const QString& file : files) {
        const int rc = QProcess::execute(
            QStringLiteral("ffmpeg"),
            {QStringLiteral("-nostdin"), QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"),
             QStringLiteral("error"), QStringLiteral("-threads"), QStringLiteral("1"), QStringLiteral("-i"),
             file, QStringLiteral("-af"), QStringLiteral("ebur128=peak=true"), QStringLiteral("-f"),
             QStringLiteral("null"), QStringLiteral("-")});
        if (rc != 0)
            return -1.0;
    }
    return static_cast<double>(clock.nsecsElapsed()) / 1e9;
}

// VmHWM (kB) of a running process; 0 once it has gone.
long highWaterMark(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').value(0).toLong();
    }
    return 0;
}

// Peak resident memory (kB) of one run of the tool on one file, and the run's wall time. VmHWM never
// falls, so its last reading before the process ends (read every 10 ms) is the peak.
bool peakMemoryOfTool(const QString& tool, const QString& file, long* peakKb, double* seconds)
{
    QProcess child;
    child.setStandardOutputFile(QProcess::nullDevice());
    child.setStandardErrorFile(QProcess::nullDevice());
    QElapsedTimer clock;
    clock.start();
    child.start(tool, {QStringLiteral("--json"), file});
    if (!child.waitForStarted(10000))
        return false;
    long peak = 0;
    while (!child.waitForFinished(10))
        peak = std::max(peak, highWaterMark(child.processId()));
    *seconds = static_cast<double>(clock.nsecsElapsed()) / 1e9;
    *peakKb = peak;
    return child.exitStatus() == QProcess::NormalExit && child.exitCode() == 0 && peak > 0;
}

// CPU seconds (user and system) used so far by this process and by its finished children.
double cpuSeconds(int who)
{
    rusage usage{};
    getrusage(who, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QString media = argc > 1 ? QString::fromLocal8Bit(argv[1])
                                   : QDir::tempPath() + QStringLiteral("/ondaro-bench-analysis");
    QDir().mkpath(media);
    std::printf("media folder: %s\n", qPrintable(media));

    QStringList files;
    for (int i = 0; i < kFiles; ++i) {
        const QString path =
            QDir(media).filePath(QStringLiteral("minute%1.mp3").arg(i, 2, 10, QLatin1Char('0')));
        if (!makeMp3(path, kShortSeconds, i + 1)) {
            std::fprintf(stderr, "cannot make %s (ffmpeg with libmp3lame needed)\n", qPrintable(path));
            return 1;
        }
        files << path;
    }
    const double audioSeconds = kFiles * kShortSeconds;
    const int cores = QThread::idealThreadCount();

    // A first pass warms the file cache so that no run is charged for reading the disk.
    analyseAll(files, cores);
    double cpu = cpuSeconds(RUSAGE_SELF);
    const double one = analyseAll(files, 1);
    const double oneCpu = cpuSeconds(RUSAGE_SELF) - cpu;
    cpu = cpuSeconds(RUSAGE_SELF);
    const double all = analyseAll(files, cores);
    const double allCpu = cpuSeconds(RUSAGE_SELF) - cpu;
    cpu = cpuSeconds(RUSAGE_CHILDREN);
    const double ffmpeg = ffmpegAll(files);
    const double ffmpegCpu = cpuSeconds(RUSAGE_CHILDREN) - cpu;
    if (one <= 0 || all <= 0 || ffmpeg <= 0) {
        std::fprintf(stderr, "a run failed\n");
        return 1;
    }
    double load[3] = {};
    getloadavg(load, 3);
    std::printf("%d files, %.0f s of audio, %d cores, load average %.2f\n", kFiles, audioSeconds, cores,
                load[0]);
    std::printf("  one job          %7.2f s  %7.1f x realtime\n", one, audioSeconds / one);
    std::printf("  %d jobs           %7.2f s  %7.1f x realtime\n", cores, all, audioSeconds / all);
    std::printf("  ffmpeg ebur128   %7.2f s  %7.1f x realtime  (one file after another)\n", ffmpeg,
                audioSeconds / ffmpeg);
    std::printf("  one job / ffmpeg        %5.2f  (goal >= 1.0, aim 2.0)\n", ffmpeg / one);
    std::printf("  CPU seconds: one job %.2f, ffmpeg %.2f, ratio %.2f (what a busy machine leaves out)\n",
                oneCpu, ffmpegCpu, ffmpegCpu / oneCpu);
    std::printf("  %d jobs / one job        %5.2f  (goal >= 1.8 with 2 cores)\n", cores, one / all);
    // On a shared machine the jobs get what the others leave: CPU time over wall time tells how many
    // cores the run actually had.
    std::printf("  %d jobs had %.2f cores (CPU %.2f s over %.2f s)\n", cores, allCpu / all, allCpu, all);

    const QString tool = QCoreApplication::applicationDirPath() + QStringLiteral("/../app/ondaro-analyse");
    if (!QFileInfo(tool).isExecutable()) {
        std::printf("memory: %s not built, skipped\n", qPrintable(tool));
        return 0;
    }
    const QString hour = QDir(media).filePath(QStringLiteral("hour.mp3"));
    std::printf("making a %d-minute file...\n", kLongSeconds / 60);
    std::fflush(stdout);
    if (!makeMp3(hour, kLongSeconds, 99)) {
        std::fprintf(stderr, "cannot make %s\n", qPrintable(hour));
        return 1;
    }
    long shortKb = 0;
    long longKb = 0;
    double shortSeconds = 0;
    double longSeconds = 0;
    if (!peakMemoryOfTool(tool, files.first(), &shortKb, &shortSeconds) ||
        !peakMemoryOfTool(tool, hour, &longKb, &longSeconds)) {
        std::fprintf(stderr, "ondaro-analyse failed\n");
        return 1;
    }
    std::printf("ondaro-analyse peak memory (VmHWM of the child process):\n");
    std::printf("   1-minute file  %7ld kB  (%.2f s)\n", shortKb, shortSeconds);
    std::printf("  60-minute file  %7ld kB  (%.2f s, %.1f x realtime)\n", longKb, longSeconds,
                kLongSeconds / longSeconds);
    std::printf("  difference      %7ld kB\n", longKb - shortKb);
    return 0;
}
