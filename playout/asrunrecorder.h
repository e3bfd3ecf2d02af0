#pragma once

#include "asrunentry.h"
#include "asrunwrite.h"
#include "relaystate.h"
#include "track.h"
#include "trackendreason.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

class AsRunWriter;
class AudioEngine;
class StoreThread;

// Writes what the engine puts on air into the as-run log: one row per file or stream row from the
// moment it starts sounding until it stops, and one row per stretch of a live relay. File starts
// also raise the track's play count. Without an open database it writes nothing and says so once.
//
// The writes go to a store thread with a connection of its own (AsRunWriter), in order, so that the
// playout never waits on the database; while a shared server is away or slow they are held back there
// and written when it answers.
class AsRunRecorder : public QObject
{
    Q_OBJECT

public:
    explicit AsRunRecorder(AudioEngine* engine, QObject* parent = nullptr);
    ~AsRunRecorder() override;

    // Milliseconds that finishAll and the end of the recorder wait for the writes to reach the store.
    static constexpr int kCloseWaitMs = 3000;

    bool isEnabled() const { return m_enabled; }
    QString disabledReason() const { return m_disabledReason; }
    // Rows started and not yet ended (a crossfade has two; a relay adds its own).
    int openEntryCount() const { return int(m_open.size()); }

    // Ends every row still open, with the given word in ended_by, and waits (at most kCloseWaitMs) until
    // what is written reaches the store: the window calls it on close.
    void finishAll(const QString& endedBy = QStringLiteral("stop"));
    // Writes (rows, ends, titles and play counts) that wait to reach the store: held back while a
    // shared server is away, or not written yet.
    int heldBackCount() const;
    // Tries the held-back writes now; called when the server is back.
    void writeHeldBack();
    // Waits at most ms milliseconds until every write has reached the store or the store stopped taking
    // them; returns whether nothing is held back.
    bool waitUntilWritten(int ms);

    // ended_by of a relay row: stopped by the user, or the stream went away (the playlist resumed).
    static QString relayStoppedText() { return QStringLiteral("stop"); }
    static QString relayLostText() { return QStringLiteral("lost"); }

signals:
    // Emitted once, when the recorder finds it cannot write.
    void disabled(const QString& reason);
    // A row was added or ended or its title changed in the store; a window showing the log can refresh.
    void entriesChanged();

private slots:
    void onTrackStarted(int row, const Track& track, const QDateTime& startedAt);
    void onTrackEnded(int row, const Track& track, TrackEndReason reason, qint64 playedMs);
    void onRelayStatus(RelayState state, const QString& source);
    void onStreamMetadata(const QString& title);

private:
    struct OpenEntry {
        qint64 key = 0;   // the writer's number for the row
        qint64 rowId = 0; // the playlist row's identity; 0 for a relay or a row outside a list
        AsRunEntry entry; // what the row holds (filePath: file, stream URL or relay URL)
        bool relay = false;
        QElapsedTimer sounding; // for the played time of a relay and of rows ended by finishAll
    };

    void disable(const QString& reason);
    void send(const AsRunWrite& write);
    void start(qint64 rowId, const QString& filePath, const QString& artist, const QString& title, bool isStream,
               const QDateTime& startedAt, bool relay);
    void end(int index, qint64 playedMs, const QString& endedBy);
    qint64 rowIdOf(int row) const;
    int findTrackEntry(int row, const QString& filePath) const;
    int findRelayEntry() const;

    QPointer<AudioEngine> m_engine;
    QList<OpenEntry> m_open; // oldest first
    qint64 m_lastKey = 0;
    StoreThread* m_thread = nullptr; // started by the first write
    AsRunWriter* m_writer = nullptr;
    bool m_enabled = true;
    QString m_disabledReason;
    QString m_relaySource; // of the relay now active, empty when none
    QString m_relayTitle;  // last metadata text heard while the relay was active
    // The last metadata text of a playlist stream, and that stream's URL: it may come before the
    // stream is heard.
    QString m_streamTitle;
    QString m_streamTitlePath;
};
