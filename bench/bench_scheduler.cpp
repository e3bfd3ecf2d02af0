// Benchmark of the music scheduler, run on demand (not a test): prints figures.
// A library of 100,000 generated tracks in 20 categories. Every track has a path of its own (the pool
// knows a file by its path), and every path is a symbolic link to one shared 0.2 s tone: the scheduler
// needs existing files and stored lengths, not distinct audio. Every tenth track carries parameters
// (ratings; some limited to evening hours, disabled or out of their date range). The format has four
// clocks. One day and one week are scheduled through ScheduleBuilder, database reads included, in a
// child process of its own so that its peak memory is the scheduler's and not the set-up's; then the
// week again with timed slots every hour (hard at the top, soft at half past).
// Usage: bench_scheduler [tracks=100000]
// Everything lives in a temporary folder (a private HOME and configuration folder).

#include "formatreader.h"
#include "musiclibrary.h"
#include "playhistory.h"
#include "rotationpool.h"
#include "schedulebuilder.h"
#include "schedulegenerator.h"
#include "track.h"
#include "trackparams.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSqlDatabase>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <random>

namespace {

constexpr int kCategories = 20;
constexpr int kArtists = 6000;

// Peak resident memory of this process so far, in MiB (VmHWM of /proc/self/status; 0 elsewhere).
double peakMemoryMiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toDouble() / 1024.0;
    }
    return 0;
}

QString category(int i)
{
    return QStringLiteral("Cat%1").arg(i, 2, 10, QLatin1Char('0'));
}

QByteArray formatJson(const QString& stationId, bool timed = false)
{
    // Four clocks over the twenty categories, with a fixed file and a command in some. Timed: each
    // clock opens with the station id, hard at the top of the hour, and its third slot is soft at
    // half past.
    auto slot = [](int c) { return QStringLiteral("{\"category\": \"%1\"}").arg(category(c)); };
    auto clock = [&](std::initializer_list<int> cats, bool id, bool stop) {
        QStringList parts;
        for (int c : cats)
            parts << slot(c);
        if (timed) {
            parts[2] = QStringLiteral("{\"category\": \"%1\", \"at\": \"30:00\", \"timing\": \"soft\"}")
                           .arg(category(*(cats.begin() + 2)));
            parts.prepend(
                QStringLiteral("{\"file\": \"%1\", \"at\": \"00:00\", \"timing\": \"hard\"}").arg(stationId));
        }
        if (id)
            parts << QStringLiteral("{\"file\": \"%1\"}").arg(stationId);
        if (stop)
            parts << QStringLiteral("{\"command\": \"stop\"}");
        return QStringLiteral("[%1]").arg(parts.join(QStringLiteral(", ")));
    };
    const QString json =
        QStringLiteral("{\"rules\": {\"artistSeparationMinutes\": 90, \"titleSeparationMinutes\": 1440},"
                       " \"clocks\": {\"Morning\": %1, \"Day\": %2, \"Evening\": %3, \"Night\": %4},"
                       " \"grid\": [{\"days\": [1,2,3,4,5], \"hours\": [6,7,8,9], \"clock\": \"Morning\"},"
                       " {\"hours\": [10,11,12,13,14,15,16,17], \"clock\": \"Day\"},"
                       " {\"hours\": [18,19,20,21,22], \"clock\": \"Evening\"}, {\"clock\": \"Night\"}]}")
            .arg(clock({0, 1, 2, 3, 0, 4, 5}, true, false), clock({6, 7, 8, 9, 10, 11, 6, 12}, true, false),
                 clock({13, 14, 15, 16, 17}, false, false), clock({18, 19, 0, 18}, false, true));
    return json.toUtf8();
}

void useFolder(const QString& home)
{
    qputenv("HOME", QFile::encodeName(home));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home + QStringLiteral("/config")));
    QCoreApplication::setOrganizationName(QStringLiteral("OndaroBench"));
    QCoreApplication::setApplicationName(QStringLiteral("bench_scheduler"));
}

// The child: schedules a day and a week from the library the parent made, and prints the figures.
int schedule(const QString& home)
{
    useFolder(home);
    if (!MusicLibrary::initialize()) {
        std::fprintf(stderr, "cannot open the database\n");
        return 1;
    }
    const FormatReader::Result format = FormatReader::parse(formatJson(home + QStringLiteral("/tone.wav")));
    if (!format.ok) {
        std::fprintf(stderr, "format: %s\n", qPrintable(format.error));
        return 1;
    }
    std::printf("before scheduling: peak memory %.1f MiB\n", peakMemoryMiB());
    const QDateTime from(QDate(2024, 5, 6), QTime(0, 0)); // a Monday
    QElapsedTimer timer;
    {
        // A first week by phase, on a database nobody has read yet in this process.
        timer.start();
        MusicLibrary library;
        library.useStoredLibrary(QStringLiteral("Bench"));
        const QList<Track> tracks = library.search(QString());
        const qint64 listingMs = timer.restart();
        const QHash<QString, TrackParams> params = TrackParams::loadAll();
        const qint64 paramsMs = timer.restart();
        const RotationPool pool = RotationPool::build(tracks, params, format.format.categoriesInUse());
        const qint64 poolMs = timer.restart();
        const Schedule week =
            ScheduleGenerator(format.format, pool).generate(from, 168, 1, PlayHistory(pool));
        const qint64 generateMs = timer.restart();
        std::printf("first week by phase: listing %lld ms, parameters %lld ms, pool %lld ms (%d candidates), "
                    "generation %lld ms (%d rows); total %lld ms\n",
                    listingMs, paramsMs, poolMs, pool.candidateCount(), generateMs, int(week.items.size()),
                    listingMs + paramsMs + poolMs + generateMs);
        // The generation alone again, without and with timed slots, from the same pool.
        const FormatReader::Result timedFormat =
            FormatReader::parse(formatJson(home + QStringLiteral("/tone.wav"), true));
        timer.restart();
        const Schedule again =
            ScheduleGenerator(format.format, pool).generate(from, 168, 1, PlayHistory(pool));
        const qint64 againMs = timer.restart();
        const Schedule timedWeek =
            ScheduleGenerator(timedFormat.format, pool).generate(from, 168, 1, PlayHistory(pool));
        const qint64 timedMs = timer.restart();
        std::printf("generation alone: %lld ms (%d rows) without timed slots, %lld ms (%d rows) with them\n",
                    againMs, int(again.items.size()), timedMs, int(timedWeek.items.size()));
    }
    for (int hours : {24, 168}) {
        timer.restart();
        const ScheduleBuilder::Outcome outcome =
            ScheduleBuilder::build(QStringLiteral("Bench"), format.format, from, hours, 1);
        const qint64 ms = timer.elapsed();
        if (!outcome.ok) {
            std::fprintf(stderr, "schedule: %s\n", qPrintable(outcome.error));
            return 1;
        }
        int relaxed = 0;
        for (const ScheduleNote& note : outcome.schedule.notes)
            relaxed += note.kind == ScheduleNote::Kind::SlotSkipped ? 0 : 1;
        std::printf(
            "%3d hours: %d rows, %d report lines (%d not skips); total %lld ms, %.2f ms per scheduled "
            "hour; peak memory %.1f MiB\n",
            hours, int(outcome.schedule.items.size()), int(outcome.schedule.notes.size()), relaxed, ms,
            double(ms) / hours, peakMemoryMiB());
        std::fflush(stdout);
    }

    // The same week with timed slots in every hour: the fill by length is the extra work.
    const FormatReader::Result timed =
        FormatReader::parse(formatJson(home + QStringLiteral("/tone.wav"), true));
    if (!timed.ok) {
        std::fprintf(stderr, "timed format: %s\n", qPrintable(timed.error));
        return 1;
    }
    timer.restart();
    const ScheduleBuilder::Outcome outcome =
        ScheduleBuilder::build(QStringLiteral("Bench"), timed.format, from, 168, 1);
    const qint64 timedMs = timer.elapsed();
    if (!outcome.ok) {
        std::fprintf(stderr, "schedule: %s\n", qPrintable(outcome.error));
        return 1;
    }
    QList<qint64> offsets;
    int within = 0;
    for (const HourTiming& hour : outcome.schedule.timedHours) {
        for (const TimedLanding& landing : hour.landings) {
            offsets << qAbs(landing.overUnderMs);
            within += landing.withinTolerance ? 1 : 0;
        }
    }
    std::sort(offsets.begin(), offsets.end());
    std::printf(
        "168 hours with timed slots (hard 00:00, soft 30:00): %d rows, %d timed slots landed, %d "
        "within %d s; distance from the time: median %.1f s, worst %.1f s; total %lld ms (goal < 2000 "
        "ms); peak memory %.1f MiB\n",
        int(outcome.schedule.items.size()), int(offsets.size()), within, timed.format.fillToleranceSeconds,
        offsets.isEmpty() ? 0.0 : offsets.at(offsets.size() / 2) / 1000.0,
        offsets.isEmpty() ? 0.0 : offsets.last() / 1000.0, timedMs, peakMemoryMiB());
    for (const ScheduleNote& note : outcome.schedule.notes) {
        if (note.kind == ScheduleNote::Kind::TimedSlotMissed)
            std::printf("  missed: %s  %s\n", qPrintable(note.at.toString(Qt::ISODate)),
                        qPrintable(note.text));
    }
    return 0;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    if (argc > 2 && QByteArray(argv[1]) == "--schedule")
        return schedule(QString::fromLocal8Bit(argv[2]));
    const int trackCount = argc > 1 ? QString::fromLocal8Bit(argv[1]).toInt() : 100000;
    QTemporaryDir home;
    useFolder(home.path());
    if (!MusicLibrary::initialize()) {
        std::fprintf(stderr, "cannot open the database\n");
        return 1;
    }

    const QString tone = home.filePath(QStringLiteral("tone.wav"));
    QProcess::execute(QStringLiteral("sox"),
                      {QStringLiteral("-n"), QStringLiteral("-r"), QStringLiteral("8000"),
                       QStringLiteral("-c"), QStringLiteral("1"), tone, QStringLiteral("synth"),
                       QStringLiteral("0.2"), QStringLiteral("sine"), QStringLiteral("440")});
    if (!QFile::exists(tone)) {
        std::fprintf(stderr, "sox did not make the tone file\n");
        return 1;
    }

    QElapsedTimer timer;
    timer.start();
    std::mt19937_64 random(2024);
    MusicLibrary library;
    library.setLibrary(QStringLiteral("Bench"));
    QSqlDatabase db = MusicLibrary::database();
    db.transaction();
    for (int i = 0; i < trackCount; ++i) {
        Track t;
        t.artist = QStringLiteral("Artist %1").arg(int(random() % kArtists));
        t.title = QStringLiteral("Title %1").arg(i);
        t.filePath = home.filePath(QStringLiteral("audio/%1.wav").arg(i));
        t.category = category(i % kCategories);
        t.durationMs = 120000 + qint64(random() % 180000);
        library.addTrack(t);
    }
    db.commit();
    const qint64 insertMs = timer.elapsed();
    // Symbolic links: 100,000 paths, one file's data.
    QDir().mkpath(home.filePath(QStringLiteral("audio")));
    timer.restart();
    for (int i = 0; i < trackCount; ++i)
        QFile::link(tone, home.filePath(QStringLiteral("audio/%1.wav").arg(i)));
    const qint64 linkMs = timer.elapsed();

    timer.restart();
    db.transaction();
    int withParams = 0;
    for (int i = 0; i < trackCount; i += 10) { // every tenth track carries parameters
        TrackParams p;
        p.rating = int(random() % 11);
        if (i % 50 == 0) {
            for (int day = 0; day < 7; ++day) {
                for (int hour = 18; hour < 24; ++hour)
                    p.setDaypartHour(day, hour, true);
            }
        }
        if (i % 100 == 0)
            p.disabled = true;
        if (i % 70 == 0) {
            p.startDate = QDate(2024, 1, 1);
            p.endDate = QDate(2024, 3, 31);
        }
        TrackParams::save(home.filePath(QStringLiteral("audio/%1.wav").arg(i)), p);
        ++withParams;
    }
    db.commit();
    const qint64 paramsMs = timer.elapsed();
    const double setupPeak = peakMemoryMiB();

    std::printf(
        "library: %d tracks in %d categories, %d artists, each path a symbolic link to one 0.2 s tone; "
        "%d with parameters\n",
        trackCount, kCategories, kArtists, withParams);
    std::printf("set-up: insert %lld ms, links %lld ms, parameters %lld ms; peak memory of set-up %.1f MiB\n",
                insertMs, linkMs, paramsMs, setupPeak);
    std::fflush(stdout);
    MusicLibrary::database().close();
    QProcess child;
    child.setProcessChannelMode(QProcess::ForwardedChannels);
    child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--schedule"), home.path()});
    if (!child.waitForFinished(-1) || child.exitCode() != 0)
        return 1;
    return 0;
}
