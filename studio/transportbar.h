#pragma once

#include <QWidget>

class AudioEngine;
class PlaylistModel;
class QCheckBox;
class QItemSelectionModel;
class QLabel;
class QPushButton;
class QSlider;

// Play, Pause, Stop, Next, Previous, the master volume, shuffle and crossfade on/off, wired straight
// to the engine.
class TransportBar : public QWidget
{
    Q_OBJECT

public:
    TransportBar(AudioEngine* engine, PlaylistModel* playlist, QWidget* parent = nullptr);

    QPushButton* playButton() const { return m_play; }
    QPushButton* pauseButton() const { return m_pause; }
    QPushButton* stopButton() const { return m_stop; }
    QPushButton* nextButton() const { return m_next; }
    QPushButton* previousButton() const { return m_previous; }
    QSlider* volumeSlider() const { return m_volume; }
    QCheckBox* shuffleBox() const { return m_shuffle; }
    QCheckBox* crossfadeBox() const { return m_crossfade; }
    // The presenter's selection in the playlist: where Play starts when no row is loaded.
    void setSelectionModel(QItemSelectionModel* selection);

public slots:
    // Crossfade lives in the settings ("playback/crossfadeEnabled"), so the settings dialog and this
    // box agree; only crossfade changes, never the device or the volume on air.
    void setCrossfade(bool on);
    // After the engine re-read its settings (which reset the volume to the default): the slider's
    // volume again, and the crossfade box as the settings now say.
    void reapplyVolume();
    void syncCrossfade();
    // Resumes the row the engine took while it is still in the list; otherwise starts afresh: at
    // the row the presenter selected, else (the list was replaced) at the first row, or (the current
    // row was removed) at the row that stands in for it.
    void playOrResume();

private:
    void showFromEngine();
    void showPlaying(bool playing);

    AudioEngine* m_engine;
    PlaylistModel* m_playlist;
    QItemSelectionModel* m_selection = nullptr;
    QPushButton* m_play = nullptr;
    QPushButton* m_pause = nullptr;
    QPushButton* m_stop = nullptr;
    QPushButton* m_next = nullptr;
    QPushButton* m_previous = nullptr;
    QSlider* m_volume = nullptr;
    QLabel* m_volumeText = nullptr;
    QCheckBox* m_shuffle = nullptr;
    QCheckBox* m_crossfade = nullptr;
};
