#include "asrunwriter.h"

#include "asrunlog.h"
#include "libraryconnection.h"
#include "musiclibrary.h"
#include "playoutlogging.h"

#include <QDeadlineTimer>
#include <QMutexLocker>
#include <QThread>
#include <QTimer>

namespace {

QString describe(const AsRunWrite& write)
{
    switch (write.kind) {
    case AsRunWrite::Kind::Play:
        return QStringLiteral("the play count of %1").arg(write.entry.filePath);
    case AsRunWrite::Kind::Start:
        return QStringLiteral("the as-run row of %1").arg(write.entry.filePath);
    case AsRunWrite::Kind::End:
        return QStringLiteral("the end of an as-run row");
    case AsRunWrite::Kind::Title:
        return QStringLiteral("the title of an as-run row");
    }
    return QString();
}

} // namespace

AsRunWriter::AsRunWriter(QObject* parent) : QObject(parent) {}

void AsRunWriter::add(const AsRunWrite& write)
{
    QMutexLocker lock(&m_mutex);
    m_queue << write;
    if (m_drainPosted || m_stalled)
        return; // the running drain or the due retry takes it
    m_drainPosted = true;
    QMetaObject::invokeMethod(this, &AsRunWriter::drain, Qt::QueuedConnection);
}

void AsRunWriter::retryNow()
{
    QMutexLocker lock(&m_mutex);
    if (m_drainPosted || m_queue.isEmpty())
        return;
    m_drainPosted = true;
    QMetaObject::invokeMethod(this, &AsRunWriter::drain, Qt::QueuedConnection);
}

int AsRunWriter::waitingCount() const
{
    QMutexLocker lock(&m_mutex);
    return int(m_queue.size());
}

bool AsRunWriter::waitUntilWritten(int ms)
{
    QDeadlineTimer deadline(ms);
    QMutexLocker lock(&m_mutex);
    while (!m_queue.isEmpty() && !m_stalled) {
        if (!m_settled.wait(&m_mutex, deadline))
            break;
    }
    return m_queue.isEmpty();
}

void AsRunWriter::drain()
{
    for (;;) {
        AsRunWrite next;
        {
            QMutexLocker lock(&m_mutex);
            m_stalled = false;
            if (m_queue.isEmpty()) {
                m_drainPosted = false;
                m_settled.wakeAll();
                return;
            }
            next = m_queue.first();
        }
        if (QThread::currentThread()->isInterruptionRequested())
            return;
        if (write(next)) {
            {
                QMutexLocker lock(&m_mutex);
                m_queue.removeFirst();
            }
            if (m_heldBackSaid) {
                m_heldBackSaid = false;
                qCInfo(lcPlayout) << "The as-run rows held back are being written";
            }
            emit written();
            continue;
        }
        if (!LibraryConnection::isServer() && !LibraryConnection::database().isOpen()) {
            // The embedded database cannot be opened: nothing would ever be written.
            const QString reason = LibraryConnection::problem();
            {
                QMutexLocker lock(&m_mutex);
                m_queue.clear();
                m_drainPosted = false;
                m_settled.wakeAll();
            }
            if (!m_unusableSaid) {
                m_unusableSaid = true;
                emit unusable(reason);
            }
            return;
        }
        if (!LibraryConnection::check()) {
            // The server is away: everything waits, in order, until it answers.
            if (!m_heldBackSaid) {
                m_heldBackSaid = true;
                qCWarning(lcPlayout).noquote()
                    << "as-run rows held back until the server answers:" << LibraryConnection::problem();
            }
            stall();
            return;
        }
        bool drop = false;
        {
            QMutexLocker lock(&m_mutex);
            drop = ++m_queue.first().refusals >= kRefusalLimit;
            if (drop)
                m_queue.removeFirst();
        }
        if (drop) {
            qCWarning(lcPlayout).noquote()
                << "The store refused" << describe(next) << "again; it is not written";
            emit dropped(describe(next));
            continue;
        }
        stall();
        return;
    }
}

void AsRunWriter::stall()
{
    {
        QMutexLocker lock(&m_mutex);
        m_stalled = true;
        m_drainPosted = true; // the retry below is the one pending drain
        m_settled.wakeAll();
    }
    QTimer::singleShot(kRetryMs, this, &AsRunWriter::drain);
}

bool AsRunWriter::write(const AsRunWrite& write)
{
    const AsRunEntry& e = write.entry;
    switch (write.kind) {
    case AsRunWrite::Kind::Play:
        return MusicLibrary::recordPlay(e.filePath, e.startedAt);
    case AsRunWrite::Kind::Start: {
        const qint64 id = AsRunLog::recordStart(e);
        if (id > 0)
            m_ids.insert(write.row, id);
        return id > 0;
    }
    case AsRunWrite::Kind::End: {
        const qint64 id = m_ids.value(write.row);
        if (id <= 0)
            return true; // its start was given up: there is no row to end
        if (!AsRunLog::recordEnd(id, e.endedAt, e.playedMs, e.endedBy))
            return false;
        m_ids.remove(write.row);
        return true;
    }
    case AsRunWrite::Kind::Title: {
        const qint64 id = m_ids.value(write.row);
        return id <= 0 || AsRunLog::updateTitle(id, e.title);
    }
    }
    return false;
}
