#include "storereader.h"

#include "libraryconnection.h"
#include "storethread.h"

#include <QTimer>

namespace {

// Milliseconds to wait for the thread when the reader goes: an idle one ends at once, one blocked on a
// server that does not answer is left to end by itself.
constexpr int kStopWaitMs = 100;

} // namespace

// Runs reads on the store's thread and hands their answers back.
class StoreReadWorker : public QObject
{
    Q_OBJECT

public:
    void run(const StoreReader::Read& work)
    {
        const StoreReader::Answer answer = work();
        emit done(answer, LibraryConnection::problem());
    }

signals:
    void done(const StoreReader::Answer& answer, const QString& problem);
};

StoreReader::StoreReader(QObject* parent) : QObject(parent)
{
    m_slowTimer = new QTimer(this);
    m_slowTimer->setSingleShot(true);
    m_slowTimer->setInterval(kSlowMs);
    connect(m_slowTimer, &QTimer::timeout, this, [this] { setWaiting(true); });
}

StoreReader::~StoreReader()
{
    StoreThread::stop(m_thread, kStopWaitMs);
}

QString StoreReader::waitingText()
{
    return QStringLiteral("Waiting for the server…");
}

void StoreReader::read(Read work)
{
    if (!LibraryConnection::isServer()) {
        const Answer answer = work();
        m_problem = LibraryConnection::problem();
        answer();
        return;
    }
    if (!m_thread) {
        auto* worker = new StoreReadWorker;
        m_worker = worker;
        m_thread = new StoreThread(LibraryConnection::target(), worker);
        // Queued: the answer runs on this thread, and never after this reader is gone.
        connect(worker, &StoreReadWorker::done, this, &StoreReader::answered, Qt::QueuedConnection);
        m_thread->start();
    }
    if (m_pending++ == 0)
        m_slowTimer->start();
    QMetaObject::invokeMethod(
        m_worker, [worker = static_cast<StoreReadWorker*>(m_worker), work] { worker->run(work); },
        Qt::QueuedConnection);
}

void StoreReader::answered(const Answer& answer, const QString& problem)
{
    --m_pending;
    m_problem = problem;
    if (m_pending == 0) {
        m_slowTimer->stop();
        setWaiting(false);
    } else if (!m_waiting) {
        m_slowTimer->start(); // the next read's time begins now
    }
    answer();
}

void StoreReader::setWaiting(bool waiting)
{
    if (waiting == m_waiting)
        return;
    m_waiting = waiting;
    emit waitingChanged(waiting);
}

#include "storereader.moc"
