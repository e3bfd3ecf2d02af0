#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

class AsRunRecorder;
class AudioEngine;
class PlaylistModel;
struct Track;

// Runs a list through the playout without a window, as the studio runs it: the same engine, the
// same rules for missing files and rows that never sound, and the same as-run log. Nobody is
// there to press Play, so a STOP row ends the run and every other command row is stepped over.
class PlayoutRunner : public QObject
{
    Q_OBJECT

public:
    // The program's exit status.
    enum ExitStatus {
        Played = 0,        // playback stopped normally: at the end of the list or at a STOP row
        NothingPlayed = 1, // nothing could be played
        UsageError = 2,
        NoDevice = 3,        // no audio output device
        PlaylistUnusable = 4 // a playlist could not be read or is malformed; nothing was played
    };

    // What a command row does to an unattended run.
    enum class CommandAction { Halt, StepOver };

    struct Options {
        qint64 streamLimitMs = 0; // how long each stream plays, 0 = no limit
        bool recordAsRun = true;  // false: a dry run that writes no as-run rows and no play counts
    };

    explicit PlayoutRunner(const Options& options, QObject* parent = nullptr);

    // Builds the running order from files, stream URLs and M3U playlists, in order. Returns the
    // status to exit with when nothing is to be played, else Played.
    ExitStatus load(const QStringList& items);
    // Starts playback at the first row that is not a missing file; finished() ends the run.
    void start();
    // Closes the as-run rows still open; called once before the program exits.
    void finish();

    const PlaylistModel* playlist() const { return m_playlist; }
    ExitStatus status() const { return m_status; }

    static CommandAction commandAction(const QString& word);
    // The first row to start a run at: not a missing file. -1 when there is none.
    static int firstRowToPlay(const QList<Track>& rows);

    static QString missingFileText(const QString& path); // "Skipping missing file: <path>"
    static QString steppedOverText(const QString& word); // "Command row stepped over: <WORD>"
    static QString nothingToPlayText();

signals:
    // A line of the run's log (the engine's, the guards' and the runner's own).
    void logLine(const QString& text);
    // A problem with the input or the set-up, for the error output.
    void problem(const QString& text);
    // The run is over; the program exits with `status`.
    void finished(int status);

private:
    void onEngineLog(const QString& text);
    void onRowTaken(int row);
    void end(ExitStatus status);
    // A timed row may still start the air: logs what the run waits for; whether it waits.
    bool waitForTimedRow();
    void append(const QList<Track>& tracks);

    Options m_options;
    PlaylistModel* m_playlist = nullptr;
    AudioEngine* m_engine = nullptr;
    AsRunRecorder* m_asRun = nullptr;
    ExitStatus m_status = NothingPlayed;
    bool m_ended = false;
};
