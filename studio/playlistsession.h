#pragma once

#include "playlistmodel.h"
#include "sessionfiles.h"

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QThreadPool>
#include <QTimer>

// When the studio's running order goes to disk (SessionFiles is what it looks like there), so that
// neither a quit nor a crash loses it: writes wait until the list has been still for a moment and run
// on a worker thread, so a long list does not hold up the window; a quit writes at once.
class PlaylistSession : public QObject
{
    Q_OBJECT

public:
    // What the last session left behind, read back before the window goes on air.
    using Saved = SessionFiles::Saved;

    // A list still for this long is written (milliseconds).
    static constexpr int defaultDelayMs = 500;
    // Changes that never stop (a busy presenter) are written at least this often (milliseconds).
    static constexpr int longestDelayMs = 3000;

    PlaylistSession(PlaylistModel* model, const QString& folder, QObject* parent = nullptr);
    ~PlaylistSession() override;

    // The application's data folder, where the studio keeps its session.
    static QString defaultFolder();
    QString folder() const { return m_files.folder(); }
    QString playlistPath() const { return m_files.playlistPath(); }
    QString positionPath() const { return m_files.positionPath(); }

    // Reads the last session (see SessionFiles::read); a side file that is not used is said in the log.
    Saved readLastSession();
    // Puts the current row, the queue, the played rows and the mix overrides back on the model, whose
    // rows must be the saved ones.
    void restorePosition(const Saved& saved);

    // From now on every change of the list is written; the list as it is now is written first.
    void watch();
    bool isWatching() const { return m_watching; }
    void setDelayMs(int ms) { m_delay.setInterval(ms); }
    // Writes the list as it is, here and now, after any write in progress (a quit).
    void saveNow();
    bool hasUnsavedChanges() const { return m_dirty; }
    // How long the window's thread spent handing the last write over, and the worker writing it
    // (milliseconds).
    double lastHandOverMs() const { return m_lastHandOverMs; }
    double lastWriteMs() const { return m_lastWriteMs; }

signals:
    void saved(int rows);
    // A line for the presenter's log (a failed write, a session that could not be restored).
    void message(const QString& text);

private:
    void onChanged();
    void scheduleWrite();
    void onDataChanged(const QModelIndex& topLeft, const QModelIndex& bottomRight);
    void startWrite();
    void onWritten(quint64 serial, bool ok, const QString& error, int rows, double writeMs);
    void reportWrite(bool ok, const QString& error, int rows);
    SessionFiles::Snapshot snapshot() const;

    QPointer<PlaylistModel> m_model;
    const SessionFiles m_files;
    QTimer m_delay;
    QElapsedTimer m_unsavedSince;
    QThreadPool m_writer;
    bool m_watching = false;
    bool m_dirty = false;
    bool m_writing = false;
    bool m_failing = false;
    quint64 m_writeSerial = 0; // of the latest write started
    double m_lastHandOverMs = 0.0;
    double m_lastWriteMs = 0.0;
};
