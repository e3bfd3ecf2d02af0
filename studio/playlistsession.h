#pragma once

#include "playlistmodel.h"
#include "track.h"

#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QPair>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QThreadPool>
#include <QTimer>

// The studio's running order kept on disk while it changes, so that neither a quit nor a crash loses
// it: the rows go to "session.m3u" (written whole through a temporary file, so the file on disk is
// always complete) and where the list stood (current row, queue, played rows, mix overrides) to
// "session.json" beside it. Writes wait until the list has been still for a moment and run on a
// worker thread, so a long list does not hold up the window.
class PlaylistSession : public QObject
{
    Q_OBJECT

public:
    // What the last session left behind, read back before the window goes on air.
    struct Saved {
        bool found = false;  // a session playlist was there
        QString error;       // it could not be read (tracks then empty); empty when it was fine
        QList<Track> tracks; // the rows, command rows included
        QStringList missingFiles;
        QStringList skipped;
        bool positionKnown = false; // the side file was readable and belongs to these rows
        int currentRow = -1;
        QList<int> queue;
        QList<int> played;
        QList<QPair<int, PlaylistModel::MixOverride>> mixOverrides;
    };

    // A list still for this long is written (milliseconds).
    static constexpr int defaultDelayMs = 500;
    // Changes that never stop (a busy presenter) are written at least this often (milliseconds).
    static constexpr int longestDelayMs = 3000;

    PlaylistSession(PlaylistModel* model, const QString& folder, QObject* parent = nullptr);
    ~PlaylistSession() override;

    // The application's data folder, where the studio keeps its session.
    static QString defaultFolder();
    QString folder() const { return m_folder; }
    QString playlistPath() const;
    QString positionPath() const;

    // Reads the last session. A playlist file that cannot be read is moved aside to
    // "session.m3u.unreadable" (for a look by hand) and the result carries the reason.
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
    struct Snapshot {
        QList<Track> tracks;
        int currentRow = -1;
        QList<int> queue;
        QList<int> played;
        QList<QPair<int, PlaylistModel::MixOverride>> mixOverrides;
    };

    void onChanged();
    void scheduleWrite();
    void onDataChanged(const QModelIndex& topLeft, const QModelIndex& bottomRight);
    void startWrite();
    void onWritten(quint64 serial, bool ok, const QString& error, int rows, double writeMs);
    void reportWrite(bool ok, const QString& error, int rows);
    Snapshot snapshot() const;
    // Safe on any thread: plain values in, files out.
    static bool write(const QString& folder, const Snapshot& snapshot, QString* error);

    QPointer<PlaylistModel> m_model;
    QString m_folder;
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
