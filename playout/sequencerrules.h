#pragma once

#include "track.h"

#include <QList>
#include <QString>

#include <functional>

// The sequencer's decisions as plain functions over plain values, so they can be checked without a
// playlist, a deck or a clock.

// What taking a row means for the air.
enum class RowAction {
    Play,         // a file or stream row: start it
    SkipMissing,  // a file row whose file is not there (only when missing rows are skipped)
    Stop,         // a STOP command: halt automation
    Pause,        // a PAUSE command: hold the current deck
    OtherCommand, // any other command: logged, nothing sounds
};

// fileThere: whether the row's file exists (ignored for streams and command rows).
RowAction rowAction(const Track& track, bool fileThere, bool skipMissing);

// A file row with a path (not a stream, not a command row): the rows whose file can go missing.
bool isFileRow(const Track& track);

// The row chosen to play next; row -1 means the list has ended.
struct NextChoice {
    int row = -1;
    bool fromQueue = false;
};

// Draws a row in 0..count-1; the engine uses a uniform random generator, tests a fixed sequence.
using RowDraw = std::function<int(int count)>;

// The first queued row that is still a row of the list, else -1.
int firstValidQueued(const QList<int>& queue, int rowCount);

// Next: the first valid queued row, else with shuffle (and more than one row) a random row other
// than the current one (at most eight draws), else the following row; -1 past the last row.
NextChoice chooseNextRow(int currentRow, int rowCount, const QList<int>& queue, bool shuffle,
                         const RowDraw& draw);

// Previous: the row above, -1 at the top.
int choosePreviousRow(int currentRow);

// The row an automatic mix goes into: the first valid queued row, else the following row; -1 when
// there is none or it is a command row (a STOP or other command is reached by the track's end).
int chooseMixRow(int currentRow, const QList<Track>& rows, const QList<int>& queue);

// Skipping goes round for ever (shuffle) once it has skipped more rows in a row than the list
// holds; and a list with no row that could sound has nothing to skip to.
bool nothingPlayable(int skipsInARow, int rowCount, bool anyPlayableRow);

// How long a taken row may stay silent before it is skipped (ms); -1 when no wait applies
// (command rows, rows without a path, missing files).
int silentLimitMs(const Track& track, bool fileThere, int fileLimitMs, int streamLimitMs);

// The log texts of the sequencer, exactly as the presenter reads them.
namespace SequencerLog {
QString missingSkipped(const QString& path);
QString nothingPlayable();
QString streamSkipped(const QString& url, int seconds);
QString fileSkipped(const QString& path, int seconds);
QString loadTimedOut(const QString& path);
} // namespace SequencerLog

