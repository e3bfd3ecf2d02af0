#pragma once

#include "asrunentry.h"
#include "relaystate.h"
#include "track.h"
#include "trackendreason.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

class AudioEngine;

// Writes what the engine puts on air into the as-run log: one row per file or stream row from the
// moment it starts sounding until it stops, and one row per stretch of a live relay. File starts
// also raise the track's play count. Without an open database it writes nothing and says so once.
class AsRunRecorder : public QObject
{
    Q_OBJECT

public:
    explicit AsRunRecorder(AudioEngine* engine, QObject* parent = nullptr);

    bool isEnabled() const { return m_enabled; }
    QString disabledReason() const { return m_disabledReason; }
    // Rows started and not yet ended (a crossfade has two; a relay adds its own).
    int openEntryCount() const { return int(m_open.size()); }

    // Ends every row still open, with the given word in ended_by: the window calls it on close.
    void finishAll(const QString& endedBy = QStringLiteral("stop"));
    // Rows (and play counts) that aired while a shared server was away and wait to be written.
    int heldBackCount() const;
    // Writes what was held back; called when the server is back, and before every new write.
    void writeHeldBack();

    // ended_by of a relay row: stopped by the user, or the stream went away (the playlist resumed).
    static QString relayStoppedText() { return QStringLiteral("stop"); }
    static QString relayLostText() { return QStringLiteral("lost"); }

signals:
    // Emitted once, when the recorder finds it cannot write.
    void disabled(const QString& reason);
    // A row was added or ended or its title changed; a window showing the log can refresh.
    void entriesChanged();

private slots:
    void onTrackStarted(int row, const Track& track, const QDateTime& startedAt);
    void onTrackEnded(int row, const Track& track, TrackEndReason reason, qint64 playedMs);
    void onRelayStatus(RelayState state, const QString& source);
    void onStreamMetadata(const QString& title);

private:
    struct OpenEntry {
        qint64 id = 0;    // 0 while held back: the row is not in the table yet
        int row = -1;     // -1 for a relay
        AsRunEntry entry; // what the row holds (filePath: file, stream URL or relay URL)
        bool relay = false;
        QElapsedTimer sounding; // for the played time of a relay and of rows ended by finishAll
    };
    // A row that ended while its start, its end or both could not be written.
    struct HeldBack {
        qint64 id = 0; // the row's id when its start was written, else 0
        AsRunEntry entry;
    };
    struct HeldPlay {
        QString filePath;
        QDateTime when;
    };

    bool writable();
    // Whether rows are kept at all: the log is on, and either writable now or a shared server that
    // will come back is away (then rows are held back).
    bool recording();
    void disable(const QString& reason);
    qint64 start(int row, const QString& filePath, const QString& artist, const QString& title, bool isStream,
                 const QDateTime& startedAt, bool relay);
    void end(int index, qint64 playedMs, const QString& endedBy);
    int findTrackEntry(int row, const QString& filePath) const;
    int findRelayEntry() const;

    QPointer<AudioEngine> m_engine;
    QList<OpenEntry> m_open;    // oldest first
    QList<HeldBack> m_heldBack; // oldest first
    QList<HeldPlay> m_heldPlays;
    bool m_enabled = true;
    QString m_disabledReason;
    QString m_relaySource; // of the relay now active, empty when none
    QString m_relayTitle;  // last metadata text heard while the relay was active
    // The last metadata text of a playlist stream, and that stream's URL: it may come before the
    // stream is heard.
    QString m_streamTitle;
    QString m_streamTitlePath;
};
