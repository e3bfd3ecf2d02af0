#pragma once

#include "sequencerrules.h"
#include "timedrules.h"
#include "track.h"

#include <QDateTime>
#include <QObject>
#include <QPointer>
#include <QSet>

#include <functional>

class PlaylistModel;
class QTimer;
class SequencerDecks;

// The one owner of what plays next: Next, Previous, the queue, shuffle, command rows, skipping rows
// that cannot play (a missing file, a row that never sounds), stopping when nothing in the list is
// playable, and picking the air up again after a relay. Its decisions are the plain functions of
// sequencerrules.h; it acts only through SequencerDecks, and reads time from an injectable clock so
// it can be driven without a sound device.
class PlayoutSequencer : public QObject
{
    Q_OBJECT

public:
    // Monotonic milliseconds.
    using Clock = std::function<qint64()>;
    // Local date and time, as the timed rows are written.
    using WallClock = std::function<QDateTime()>;
    // How often the watch looks at the timed rows and the wall clock (ms).
    static constexpr int timedWatchMs = 1000;

    explicit PlayoutSequencer(SequencerDecks* decks, QObject* parent = nullptr);

    // Not owned.
    void setPlaylist(PlaylistModel* model);
    PlaylistModel* playlist() const;
    void setClock(Clock clock);
    void setWallClock(WallClock clock);
    void setRowDraw(RowDraw draw);
    // Reads the silent-row limits from the settings.
    void reloadSettings();
    void setSilentLimits(int fileMs, int streamMs);
    int silentFileLimitMs() const { return m_fileLimitMs; }
    int silentStreamLimitMs() const { return m_streamLimitMs; }
    void setTimedLimits(int hardFadeMs, int lateLimitMs);
    int hardTimeFadeMs() const { return m_hardFadeMs; }
    int timedLateLimitMs() const { return m_lateLimitMs; }
    // Off by default: a bare engine waits on a row without media, as it always has; unattended
    // playout (the studio, the runner) turns the skipping on.
    void setSkipUnplayableRows(bool on);
    bool skipsUnplayableRows() const { return m_skipUnplayable; }
    void setShuffle(bool on) { m_shuffle = on; }
    bool isShuffle() const { return m_shuffle; }

    // The row that holds the current row's identity now, wherever it was moved; when that row was
    // removed, the row the engine chose in its place.
    int currentRow() const;
    qint64 currentRowId() const { return m_currentId; }
    // The current row was removed: the engine names the row that stands in for it (by number: it
    // was never taken, so it has no identity here; currentRowId() is 0 until the next take).
    void setCurrentRow(int row);
    const Track& currentTrack() const { return m_current; }
    // The row Next would play; -1 at the end or when shuffle draws it.
    int nextRow() const;
    // The row an automatic mix would go into now, -1 for none.
    int mixRow() const;
    // Milliseconds since the current row was taken.
    qint64 msSinceTaken() const;
    // The current row has begun to sound since it was taken.
    bool currentRowSounded() const { return m_sounded; }
    bool isWaitingForSound() const { return m_waitId != 0; }

    void playRow(int row);
    void next();
    void previous();
    // Takes the mix row: out of the queue when it came from there.
    void mixInto(int row);
    // The current row has played to its end (not a stale report): the following row or a stop.
    void currentRowEnded(bool autoPlayNext);
    // A row began to sound.
    void rowSounded(int row);
    // The current row's file did not load within the deck's limit: skipped, as a broken file is.
    void currentRowLoadTimedOut();
    // The presenter stopped or paused: a row that has not sounded yet is not a fault.
    void cancelSilentWait();
    // Play pressed on a row that was taken and held before it sounded: the wait starts again.
    void resumeSilentWait();
    // Skips the current row when its limit has passed without sound; the timer calls it, a test
    // may call it after moving its clock.
    void checkSilentRow();

    // The relay takes the air; sounding: the current deck was playing. Returns whether the deck
    // is to be held for later.
    bool relayStarting(bool sounding);
    void relayLost();
    void relayStopped(bool startNext);

    // Timed rows. Watched from the first row taken until the presenter stops the air (a STOP row
    // or the end of the list leave the watch on: a hard row starts automation again).
    // Fires what is due, gives up what is stale, re-arms the timers; the timers call it, a test
    // calls it after moving its clocks.
    void checkTimed();
    // The presenter pressed Stop: no timed row starts the air until a row is taken again.
    void presenterStopped();
    // Play pressed: the watch runs again (it also starts with any row taken).
    void resumeTimedWatch();
    bool isWatchingTimed() const { return m_timedWatch; }
    // The first timed row in list order that may still start the air: one not done, not given up
    // as stale, and hard unless the list has run on past a STOP row; -1 for none. A headless run
    // stays for it instead of ending at a STOP row or the end of the list.
    int waitingTimedRow() const;
    // The timed row waiting for the current track's mix point, -1 for none.
    int pendingTimedRow() const;
    // Milliseconds until the precise timer fires for the next hard row; -1 when it is not armed.
    int msUntilTimedTimer() const;

private:
    enum class Take { Ordinary, Cut, Timed };

    void takeRow(int row, Take take);
    // Runs the timed decision now and takes its row when one is due (cut or next); whether it did.
    bool takeDueTimedRow();
    TimedDecision decideTimedNow();
    void noticeClockJump();
    void armTimedTimer(qint64 msUntilNextHard);
    QString rowText(int row) const;

    bool isValidRow(int row) const;
    // Some row of the list could sound (a stream, or a file that is there); read on a skip only.
    bool anyPlayableRow() const;
    void armSilentWait();

    SequencerDecks* m_decks;
    QPointer<PlaylistModel> m_playlist;
    Clock m_clock;
    RowDraw m_draw;
    QTimer* m_silentTimer = nullptr;
    int m_currentRow = -1; // as taken; used only when its identity is gone
    qint64 m_currentId = 0;
    Track m_current;
    qint64 m_takenAt = 0;
    bool m_sounded = false;
    qint64 m_lastEndedId = 0;
    bool m_shuffle = false;
    bool m_skipUnplayable = false;
    int m_skipsInARow = 0;
    quint64 m_takes = 0; // counts every take, so a deferred skip sees that the air moved on
    int m_fileLimitMs = 10000;
    int m_streamLimitMs = 20000;
    qint64 m_waitId = 0;
    qint64 m_waitDeadline = 0;
    int m_waitLimitMs = 0;
    bool m_resumeAfterRelay = false;

    WallClock m_wallClock;
    QTimer* m_timedTimer = nullptr; // precise: the next hard row
    QTimer* m_watchTimer = nullptr; // coarse: soft rows, clock jumps, a list that changed
    QTimer* m_recheckTimer = nullptr; // the list changed: look again once the change is over
    bool m_timedWatch = false;
    bool m_halted = false; // standing at a STOP row
    QSet<qint64> m_timedDone;
    QSet<qint64> m_timedAccepted;
    qint64 m_pendingTimedId = 0;
    QDateTime m_currentTimedAt; // the time the row on air was started for; invalid when none
    qint64 m_lastWallMs = 0;
    qint64 m_lastMonoMs = -1;
    bool m_clockInjected = false;
    bool m_wallClockInjected = false;
    int m_hardFadeMs = 500;
    int m_lateLimitMs = 60000;
};
