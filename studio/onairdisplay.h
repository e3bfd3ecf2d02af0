#pragma once

#include "backtiming.h"

#include <QDateTime>
#include <QWidget>

#include <functional>

class AudioEngine;
class PlaylistModel;
class QLabel;
class QProgressBar;
class QTimer;

// What is on air and what comes: the current track, elapsed and remaining time, a progress bar,
// the intro countdown, the next row, the wall clock, and when the playlist as planned ends with how
// much is left in total, and the next timed row: its time and mode, a countdown, and whether the rows
// before it run over or under. It reads the engine's accessors on its own 200 ms tick.
class OnAirDisplay : public QWidget
{
    Q_OBJECT

public:
    static constexpr int tickMs = 200;

    OnAirDisplay(AudioEngine* engine, PlaylistModel* playlist, QWidget* parent = nullptr);

    QString nowText() const;
    QString elapsedText() const;
    QString remainingText() const;
    QString introText() const;
    QString nextText() const;
    QString clockText() const;
    QString endsAtText() const;
    QString totalLeftText() const;
    int progressPermille() const;
    // The next timed row: "12:00:00 hard – News", "—" when none is coming.
    QString timedEventText() const;
    // "in 4:10", "due now" once its time has passed, empty when none is coming.
    QString timedCountdownText() const;
    // "+0:23 over", "-1:05 under", "on time", "length unknown", "jumps back to row 3" (a timed row
    // above the one on air); empty when none is coming.
    QString timedOverUnderText() const;
    // The plan behind those texts, as last computed.
    const BackTiming::Plan& timedPlan() const { return m_timedPlan; }

    // Where the display reads the time (the system clock unless a test sets another).
    void setClock(std::function<QDateTime()> now);
    // Milliseconds left of the current track as last shown, -1 when none is known.
    qint64 remainingMs() const { return m_remainingMs; }

public slots:
    void refresh();

private:
    QLabel* addCaptioned(class QGridLayout* grid, int row, int column, const QString& caption);
    void refreshTimedEvent(const QDateTime& now);

    AudioEngine* m_engine;
    PlaylistModel* m_playlist;
    QTimer* m_timer = nullptr;
    QLabel* m_now = nullptr;
    QLabel* m_elapsed = nullptr;
    QLabel* m_remaining = nullptr;
    QLabel* m_intro = nullptr;
    QLabel* m_next = nullptr;
    QLabel* m_clock = nullptr;
    QLabel* m_endsAt = nullptr;
    QLabel* m_totalLeft = nullptr;
    QLabel* m_timedEvent = nullptr;
    QLabel* m_timedCountdown = nullptr;
    QLabel* m_timedOverUnder = nullptr;
    QProgressBar* m_progress = nullptr;
    qint64 m_remainingMs = -1;
    // The length of the rows after the current one, recomputed only when the playlist or the
    // current row changed.
    qint64 m_lengthAfter = 0;
    bool m_lengthAfterStale = true;
    // The rows as the running-to-time plan sees them, rebuilt only when the playlist changed; the plan
    // itself is recomputed each second (the current row's position moves it).
    QList<BackTiming::Row> m_timedRows;
    bool m_timedRowsStale = true;
    bool m_anyTimed = false;
    BackTiming::Plan m_timedPlan;
    qint64 m_timedPlannedAt = 0; // ms since the epoch of the last plan, 0 for none
    std::function<QDateTime()> m_clockSource;
};
