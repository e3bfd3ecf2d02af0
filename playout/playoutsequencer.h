#pragma once

#include "sequencerrules.h"
#include "track.h"

#include <QObject>
#include <QPointer>

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

    explicit PlayoutSequencer(SequencerDecks* decks, QObject* parent = nullptr);

    // Not owned.
    void setPlaylist(PlaylistModel* model);
    PlaylistModel* playlist() const;
    void setClock(Clock clock);
    void setRowDraw(RowDraw draw);
    // Reads the silent-row limits from the settings.
    void reloadSettings();
    void setSilentLimits(int fileMs, int streamMs);
    int silentFileLimitMs() const { return m_fileLimitMs; }
    int silentStreamLimitMs() const { return m_streamLimitMs; }
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

private:
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
};
