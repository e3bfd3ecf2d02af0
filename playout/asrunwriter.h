#pragma once

#include "asrunwrite.h"

#include <QHash>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QWaitCondition>
#include <atomic>

// Writes the as-run recorder's rows and play counts on a store thread (StoreThread), in the order they
// came. While the server is away or slow they wait, and are written when it answers; a write leaves the
// queue only once it is written (or when a server that answers refuses it kRefusalLimit times).
class AsRunWriter : public QObject
{
    Q_OBJECT

public:
    explicit AsRunWriter(QObject* parent = nullptr);

    static constexpr int kRefusalLimit = 3;
    // Milliseconds between two attempts while the store does not take the writes.
    static constexpr int kRetryMs = 500;

    // Any thread: adds a write at the end of the queue.
    void add(const AsRunWrite& write);
    // Any thread: tries the waiting writes now (the server is back).
    void retryNow();
    // Any thread: writes not written yet.
    int waitingCount() const;
    // Any thread: waits at most ms milliseconds until every write is written or the store stops taking
    // them; returns whether nothing waits.
    bool waitUntilWritten(int ms);

signals:
    // A write reached the store (the as-run table or a play count changed).
    void written();
    // The embedded database cannot be opened at all: nothing will ever be written.
    void unusable(const QString& reason);
    // A write was given up: a server that answers refused it.
    void dropped(const QString& what);

private:
    // On the store thread.
    void drain();
    bool write(const AsRunWrite& write);
    void stall();

    mutable QMutex m_mutex;
    QWaitCondition m_settled; // the queue emptied, or the store stopped taking writes
    QList<AsRunWrite> m_queue;
    bool m_drainPosted = false;
    bool m_stalled = false; // the last attempt failed; a retry is due
    // Store thread only.
    QHash<qint64, qint64> m_ids; // the recorder's row -> the store's id, until the row's end is written
    bool m_heldBackSaid = false;
    bool m_unusableSaid = false;
};
