#include "trackinforeader.h"

#include "libraryconnection.h"

#include <QMutexLocker>
#include <QThread>

TrackInfoReader::TrackInfoReader(QObject* parent) : QObject(parent) {}

void TrackInfoReader::request(const QStringList& paths, bool urgent)
{
    QMutexLocker lock(&m_mutex);
    if (m_cancelled)
        return;
    for (const QString& path : paths) {
        if (path.isEmpty())
            continue;
        const bool fresh = !m_queued.contains(path);
        if (fresh)
            m_queued.insert(path);
        if (urgent)
            m_urgent << path;
        else if (fresh)
            m_waiting << path;
    }
    if (m_drainPosted || m_queued.isEmpty())
        return;
    m_drainPosted = true;
    QMetaObject::invokeMethod(this, &TrackInfoReader::drain, Qt::QueuedConnection);
}

void TrackInfoReader::cancel()
{
    QMutexLocker lock(&m_mutex);
    m_cancelled = true;
    m_urgent.clear();
    m_waiting.clear();
    m_waitingHead = 0;
    m_queued.clear();
}

int TrackInfoReader::waitingCount() const
{
    QMutexLocker lock(&m_mutex);
    return int(m_queued.size());
}

bool TrackInfoReader::takeNext(QString* path)
{
    QMutexLocker lock(&m_mutex);
    while (!m_urgent.isEmpty()) {
        const QString next = m_urgent.takeFirst();
        if (m_queued.remove(next)) {
            *path = next;
            return true;
        }
    }
    while (m_waitingHead < m_waiting.size()) {
        const QString next = m_waiting.at(m_waitingHead++);
        if (m_queued.remove(next)) {
            *path = next;
            return true;
        }
    }
    // Taking from the head without moving the rest keeps a long list cheap; it is emptied here.
    m_waiting.clear();
    m_waitingHead = 0;
    m_drainPosted = false;
    return false;
}

void TrackInfoReader::drain()
{
    QString path;
    while (!m_cancelled && !QThread::currentThread()->isInterruptionRequested() && takeNext(&path))
        emit infoRead(path, read(path));
}

TrackInfo TrackInfoReader::read(const QString& path) const
{
    TrackInfo info;
    if (!LibraryConnection::database().isOpen())
        return info;
    const int failuresBefore = LibraryConnection::failureCount();
    info.analysis = TrackAnalysis::load(path);
    info.params = TrackParams::load(path);
    // A failed statement gives neutral values; they are not what the store holds.
    info.known =
        LibraryConnection::failureCount() == failuresBefore && LibraryConnection::database().isOpen();
    if (!info.known) {
        info.params = TrackParams();
        info.analysis = TrackAnalysis();
    }
    return info;
}
