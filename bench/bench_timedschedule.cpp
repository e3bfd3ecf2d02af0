// How long running to time costs on a long list: the playlist's start times with a fixed time every
// hour, and the on-air display's plan, each over 10,000 rows. Prints medians; never part of the tests.

#include "backtiming.h"
#include "playlistmodel.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

namespace {

constexpr int kRows = 10000;

double medianMs(int runs, const std::function<void()>& work)
{
    std::vector<qint64> times;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        work();
        times.push_back(timer.nsecsElapsed());
    }
    std::sort(times.begin(), times.end());
    return double(times[times.size() / 2]) / 1e6;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QDateTime start(QDate(2026, 11, 23), QTime(6, 0));
    QList<Track> rows;
    rows.reserve(kRows);
    qint64 elapsedMs = 0;
    for (int i = 0; i < kRows; ++i) {
        Track track;
        track.artist = QStringLiteral("Artist %1").arg(i);
        track.title = QStringLiteral("Title %1").arg(i);
        track.filePath = QStringLiteral("/music/%1.mp3").arg(i);
        track.durationMs = 150000 + (i * 7919) % 120000; // 2:30 to 4:30
        // Every 16th row (about one an hour) is timed at the next full hour, hard and soft in turn.
        if (i > 0 && i % 16 == 0) {
            track.timed.mode = (i / 16) % 2 ? TimedStart::Mode::Hard : TimedStart::Mode::Soft;
            const QDateTime due = start.addMSecs(elapsedMs);
            track.timed.at = QDateTime(due.date(), QTime(due.time().hour(), 0)).addSecs(3600);
        }
        elapsedMs += track.durationMs;
        rows.append(track);
    }

    PlaylistModel model;
    model.setStartAnchorAt(start);
    model.appendTracks(rows);
    std::printf("Running to time, %d rows, %lld timed (median of 51 runs)\n\n", kRows,
                qlonglong(model.timedPlan().events.size()));
    std::printf("  %-52s %8.3f ms\n", "recalculateStartTimes, timed list",
                medianMs(51, [&model] { model.recalculateStartTimes(); }));
    model.setCurrentRow(5000);
    std::printf("  %-52s %8.3f ms\n", "recalculateStartTimes, timed list, on air at row 5000",
                medianMs(51, [&model] { model.recalculateStartTimes(); }));
    std::printf("  %-52s %8.3f ms\n", "appendTrack at 10,000 rows, timed list",
                medianMs(51, [&model, &rows] {
                    model.appendTrack(rows.at(1));
                    model.removeTrack(model.rowCount() - 1);
                }) / 2);

    PlaylistModel plain;
    plain.setStartAnchorAt(start);
    QList<Track> untimed = rows;
    for (Track& track : untimed)
        track.timed = TimedStart();
    plain.appendTracks(untimed);
    std::printf("  %-52s %8.3f ms\n", "recalculateStartTimes, same list untimed",
                medianMs(51, [&plain] { plain.recalculateStartTimes(); }));

    BackTiming::Input input;
    for (const Track& track : rows)
        input.rows.append(BackTiming::rowFromTrack(track));
    input.currentRow = 5000;
    input.elapsedMs = 61000;
    input.now = start.addSecs(12 * 3600);
    std::printf("  %-52s %8.3f ms\n", "BackTiming::plan (the display, once a second)",
                medianMs(51, [&input] { BackTiming::plan(input); }));
    std::printf("  %-52s %8.3f ms\n", "rows rebuilt from the list (after a change)", medianMs(51, [&rows] {
                    QList<BackTiming::Row> built;
                    built.reserve(rows.size());
                    for (const Track& track : rows)
                        built.append(BackTiming::rowFromTrack(track));
                }));
    return 0;
}
