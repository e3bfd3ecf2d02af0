#pragma once

#include "trackinfo.h"

#include <QMutex>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <atomic>

// Reads the stored parameters and analysis of files on a store thread (StoreThread), one file at a
// time, files asked for urgently first, and reports each by signal.
class TrackInfoReader : public QObject
{
    Q_OBJECT

public:
    explicit TrackInfoReader(QObject* parent = nullptr);

    // Any thread: adds the files to those waiting to be read (once each); urgent ones go first.
    void request(const QStringList& paths, bool urgent);
    // Any thread: forgets every file still waiting, and stops reading soon.
    void cancel();
    // Any thread: how many files wait to be read.
    int waitingCount() const;

signals:
    // info.known is false when the store could not be read.
    void infoRead(const QString& path, const TrackInfo& info);

private:
    // On the store thread: reads what waits, until nothing does.
    void drain();
    TrackInfo read(const QString& path) const;
    bool takeNext(QString* path);

    mutable QMutex m_mutex;
    QStringList m_urgent;  // a file may be here and in m_waiting; it is read once
    QStringList m_waiting; // in the order asked
    qsizetype m_waitingHead = 0;
    QSet<QString> m_queued;
    bool m_drainPosted = false;
    std::atomic<bool> m_cancelled{false};
};
