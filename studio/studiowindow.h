#pragma once

#include "musiclibrarydialog.h"
#include "studiocommandline.h"
#include "track.h"

#include <QList>
#include <QMainWindow>
#include <QPointer>

class AnalysisQueue;
class AsRunRecorder;
class AudioEngine;
class LevelMeter;
class LogFile;
class LogPane;
class OnAirDisplay;
class PlaylistModel;
class PlaylistSession;
class PlaylistView;
class QAction;
class QLabel;
class RelayPanel;
class TransportBar;

// The on-air window, "Ondaro Studio": builds the playlist, transport, on-air display, meters, log and
// relay parts, connects them to the engine, and offers the menus that open the library, schedule,
// as-run log and settings windows. What happens lives in those parts and in the engine.
class StudioWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit StudioWindow(QWidget* parent = nullptr);
    ~StudioWindow() override;

    // What main does after parsing the command line: brings back the last session's playlist (unless
    // items are given, which replace it), loads the items and, with --play, starts at the row where a
    // restored list stood (else the first). From then on the playlist is kept on disk as it changes.
    void start(const StudioCommandLine::Options& options);

    AudioEngine* engine() const { return m_engine; }
    PlaylistModel* playlist() const { return m_playlist; }
    PlaylistView* playlistView() const { return m_view; }
    TransportBar* transportBar() const { return m_transport; }
    OnAirDisplay* onAirDisplay() const { return m_display; }
    LevelMeter* leftMeter() const { return m_leftMeter; }
    LevelMeter* rightMeter() const { return m_rightMeter; }
    LogPane* logPane() const { return m_logPane; }
    LogFile* logFile() const { return m_logFile; }
    RelayPanel* relayPanel() const { return m_relay; }
    AsRunRecorder* asRunRecorder() const { return m_asRun; }
    MusicLibraryDialog* libraryWindow() const { return m_library; }
    QAction* hourMarkersAction() const { return m_hourMarkers; }
    PlaylistSession* session() const { return m_session; }

    // The object name of the question asked before quitting while on air.
    static QString quitWhileOnAirName() { return QStringLiteral("quitWhileOnAir"); }

public slots:
    // Adds rows at the end and hands their files to the background analysis.
    void appendTracks(const QList<Track>& tracks);
    void appendItems(const QStringList& items);
    // Replaces the playlist with the file's rows (appends while a track is on air). A file that
    // cannot be read gives a message box and changes nothing. Returns whether it was loaded.
    bool openPlaylist(const QString& path);
    bool savePlaylist(const QString& path);
    void openPlaylistDialog();
    void savePlaylistDialog();
    void showLibrary();
    void showSchedule();
    void showAsRunLog();
    void showSettings();
    // A line in the pane and in the daily file.
    void log(const QString& text);

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void buildMenus();
    QWidget* buildCentre();
    void onTracksDropped(int firstRow, int count);
    void analyse(const QList<Track>& tracks);
    void reportProblems(const QStringList& problems);
    void updateRowCount();
    // The last session's rows and position, before anything is on air.
    void restoreSession();
    bool isOnAir() const;
    // Asks whether to quit although the station is on air; true to quit.
    bool confirmQuitWhileOnAir();

    AudioEngine* m_engine = nullptr;
    PlaylistModel* m_playlist = nullptr;
    PlaylistView* m_view = nullptr;
    TransportBar* m_transport = nullptr;
    OnAirDisplay* m_display = nullptr;
    LevelMeter* m_leftMeter = nullptr;
    LevelMeter* m_rightMeter = nullptr;
    LogPane* m_logPane = nullptr;
    LogFile* m_logFile = nullptr;
    RelayPanel* m_relay = nullptr;
    AsRunRecorder* m_asRun = nullptr;
    AnalysisQueue* m_analysis = nullptr;
    PlaylistSession* m_session = nullptr;
    QAction* m_hourMarkers = nullptr;
    QLabel* m_rowCount = nullptr;
    QPointer<MusicLibraryDialog> m_library;
    QPointer<QWidget> m_schedule;
    QPointer<QWidget> m_asRunWindow;
};
