#pragma once

#include <QWidget>

class AudioEngine;
class PlaylistModel;
class QLabel;
class QProgressBar;
class QTimer;

// What is on air and what comes: the current track, elapsed and remaining time, a progress bar,
// the intro countdown, the next row, the wall clock, and when the playlist as planned ends with how
// much is left in total. It reads the engine's accessors on its own 200 ms tick.
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
    // Milliseconds left of the current track as last shown, -1 when none is known.
    qint64 remainingMs() const { return m_remainingMs; }

public slots:
    void refresh();

private:
    QLabel* addCaptioned(class QGridLayout* grid, int row, int column, const QString& caption);

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
    QProgressBar* m_progress = nullptr;
    qint64 m_remainingMs = -1;
    // The length of the rows after the current one, recomputed only when the playlist or the
    // current row changed.
    qint64 m_lengthAfter = 0;
    bool m_lengthAfterStale = true;
};
