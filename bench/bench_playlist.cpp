// Playlist model timings on a 10,000-row playlist. Prints figures beside their goals; asserts nothing.
//
// Goals: a single structural change on 10,000 rows under 5 ms; one screen of rows (30 x 7 cells,
// every role, including the track-parameter lookup of the background) under 10 ms.

#include "musiclibrary.h"
#include "playlistmodel.h"
#include "trackparams.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QHeaderView>
#include <QRandomGenerator>
#include <QSqlDatabase>
#include <QStandardPaths>
#include <QTableView>
#include <QTemporaryDir>
#include <QTextStream>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

namespace {

constexpr int kRows = 10000;
constexpr int kScreenRows = 30;

double milliseconds(qint64 nanoseconds)
{
    return double(nanoseconds) / 1e6;
}

// Median of `runs` timings of `work`, in milliseconds; `prepare` runs untimed before each.
double medianMs(int runs, const std::function<void()>& prepare, const std::function<void()>& work)
{
    std::vector<qint64> times;
    times.reserve(runs);
    for (int i = 0; i < runs; ++i) {
        prepare();
        QElapsedTimer timer;
        timer.start();
        work();
        times.push_back(timer.nsecsElapsed());
    }
    std::sort(times.begin(), times.end());
    return milliseconds(times[times.size() / 2]);
}

void report(const char* what, double ms, const char* goal)
{
    std::printf("%-62s %10.3f ms   %s\n", what, ms, goal);
}

Track benchTrack(int i)
{
    Track track;
    track.artist = QStringLiteral("Artist %1").arg(i % 700);
    track.title = QStringLiteral("Title %1").arg(i);
    track.filePath = QStringLiteral("/srv/music/%1/Artist %2 - Title %3.mp3").arg(i % 40).arg(i % 700).arg(i);
    track.durationMs = 120000 + (i * 7919) % 240000;
    if (i % 50 == 0)
        track.category = QStringLiteral("Jingle");
    return track;
}

// The model as the views see it, counting what a repaint asks for and how long the background role's
// store reads take.
class CountingModel : public PlaylistModel
{
public:
    QVariant data(const QModelIndex& index, int role) const override
    {
        ++calls;
        if (role != Qt::BackgroundRole)
            return PlaylistModel::data(index, role);
        ++backgroundCalls;
        QElapsedTimer timer;
        timer.start();
        QVariant value = PlaylistModel::data(index, role);
        backgroundNs += timer.nsecsElapsed();
        return value;
    }

    void resetCounts()
    {
        calls = 0;
        backgroundCalls = 0;
        backgroundNs = 0;
    }

    mutable int calls = 0;
    mutable int backgroundCalls = 0;
    mutable qint64 backgroundNs = 0;
};

} // namespace

int main(int argc, char** argv)
{
    // A throw-away home: the background role reads the store, which must not be a real user's.
    QTemporaryDir home;
    if (!home.isValid())
        return 1;
    qputenv("HOME", home.path().toUtf8());
    qputenv("XDG_CONFIG_HOME", (home.path() + QStringLiteral("/config")).toUtf8());
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QStandardPaths::setTestModeEnabled(true);
    QApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("OndaroBench"));
    QCoreApplication::setApplicationName(QStringLiteral("bench_playlist"));
    if (!MusicLibrary::initialize()) {
        std::fprintf(stderr, "could not open the temporary store\n");
        return 1;
    }

    // Every third track of the first screen, and a share of the rest, carries a voiceover.
    QList<Track> source;
    source.reserve(kRows);
    for (int i = 0; i < kRows; ++i)
        source.append(benchTrack(i));
    {
        QSqlDatabase db = MusicLibrary::database();
        db.transaction();
        TrackParams params;
        params.voiceoverIns = 4000;
        params.voiceoverSource = QStringLiteral("/srv/ids/station id.wav");
        for (int i = 0; i < kRows; i += 3)
            TrackParams::save(source.at(i).filePath, params);
        db.commit();
    }

    std::printf("Playlist model, %d rows (median of repeated runs unless noted)\n\n", kRows);

    CountingModel model;
    model.setStartAnchor(QTime(6, 0, 0));

    // appendTrack of every row, one at a time, each recomputing all start times.
    QElapsedTimer fillTimer;
    fillTimer.start();
    for (int i = 0; i < kRows; ++i)
        model.appendTrack(source.at(i));
    const double fillMs = milliseconds(fillTimer.nsecsElapsed());
    report("appendTrack x 10,000 (total, once)", fillMs, "");
    report("  mean per appendTrack over the growing list", fillMs / kRows, "goal < 5 ms each");

    const double appendAtFull = medianMs(
        51, [&model] { model.removeTrack(model.rowCount() - 1); },
        [&model, &source] { model.appendTrack(source.at(kRows - 1)); });
    report("appendTrack at 10,000 rows", appendAtFull, "goal < 5 ms");

    const double recalc = medianMs(
        51, [] {}, [&model] { model.recalculateStartTimes(); });
    report("recalculateStartTimes alone", recalc, "goal < 5 ms");

    const double insertTop = medianMs(
        51, [&model] { model.removeTrack(0); }, [&model, &source] { model.insertTrack(0, source.at(0)); });
    report("insertTrack(0) at 10,000 rows", insertTop, "goal < 5 ms");

    const double removeTop = medianMs(
        51, [&model, &source] { model.insertTrack(0, source.at(0)); }, [&model] { model.removeTrack(0); });
    report("removeTrack(0) at 10,000 rows", removeTop, "goal < 5 ms");

    const double moveOne = medianMs(
        51, [] {}, [&model] { model.moveTrack(9000, 10); });
    report("moveTrack(9000, 10)", moveOne, "goal < 5 ms");

    QList<int> scattered;
    QRandomGenerator picker(20261122);
    while (scattered.size() < 100) {
        const int row = int(picker.bounded(kRows));
        if (!scattered.contains(row))
            scattered.append(row);
    }
    const double moveMany = medianMs(
        51, [] {}, [&model, &scattered] { model.moveTracks(scattered, 5000); });
    report("moveTracks of 100 scattered rows to 5000", moveMany, "goal < 5 ms");

    const double shuffle = medianMs(
        21, [] {}, [&model] { model.shuffle(); });
    report("shuffle", shuffle, "goal < 5 ms");

    // One screen: 30 rows x 7 columns, every role 0..9, with markers on and a current row in view.
    model.clear();
    for (int i = 0; i < kRows; ++i)
        model.appendTrack(source.at(i)); // same rows as before the shuffle, so the voiceover share holds
    model.setHourMarkersVisible(true);
    model.setCurrentRow(4);
    model.enqueue(9);
    int sink = 0;
    const double screen = medianMs(
        51, [] {},
        [&model, &sink] {
            for (int row = 0; row < kScreenRows; ++row) {
                for (int column = 0; column < PlaylistModel::ColumnCount; ++column) {
                    const QModelIndex index = model.index(row, column);
                    for (int role = 0; role <= Qt::ForegroundRole; ++role)
                        sink += model.data(index, role).isValid() ? 1 : 0;
                }
            }
        });
    report("data() for all roles of one screen (30 x 7 x 10 roles)", screen, "goal < 10 ms");

    const double backgrounds = medianMs(
        51, [] {},
        [&model, &sink] {
            for (int row = 0; row < kScreenRows; ++row) {
                for (int column = 0; column < PlaylistModel::ColumnCount; ++column)
                    sink += model.data(model.index(row, column), Qt::BackgroundRole).isValid() ? 1 : 0;
            }
        });
    report("  of which background role alone (210 store reads)", backgrounds, "");

    // A real table view painting its visible rows (offscreen raster).
    QTableView view;
    view.setModel(&model);
    view.resize(1000, view.horizontalHeader()->height() +
                          kScreenRows * view.verticalHeader()->defaultSectionSize() + 4);
    view.show();
    QCoreApplication::processEvents();
    const int paintRuns = 21;
    model.resetCounts();
    const double paint = medianMs(
        paintRuns, [] {}, [&view] { view.viewport()->repaint(); });
    report("QTableView repaint of one screen", paint, "goal < 10 ms");
    std::printf("  per repaint: %d data() calls, %d of them background requests (store reads) taking"
                " %.3f ms\n",
                model.calls / paintRuns, model.backgroundCalls / paintRuns,
                milliseconds(model.backgroundNs / paintRuns));

    std::printf("\n(checksum %d)\n", sink);
    return 0;
}
