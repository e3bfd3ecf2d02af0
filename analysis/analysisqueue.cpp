#include "analysisqueue.h"

#include "analysislogging.h"
#include "audioanalyser.h"
#include "settingkeys.h"

#include <QSettings>
#include <QThread>

#include <cmath>

namespace {

// A batch waits at most this long for more results before it is written.
constexpr int kWriteDelayMs = 1000;

} // namespace

QString AnalysisQueue::targetLufsKey()
{
    return Settings::targetLufs.key();
}

AnalysisQueue::AnalysisQueue(QObject* parent)
    : QObject(parent), m_cancel(std::make_shared<std::atomic_bool>(false))
{
    m_pool.setMaxThreadCount(QThread::idealThreadCount());
    bool ok = false;
    const double target = QSettings().value(targetLufsKey(), Settings::targetLufs.fallback).toDouble(&ok);
    m_targetLufs = ok && std::isfinite(target) ? target : Settings::targetLufs.fallback;
    m_writeTimer.setSingleShot(true);
    m_writeTimer.setInterval(kWriteDelayMs);
    connect(&m_writeTimer, &QTimer::timeout, this, &AnalysisQueue::writeResults);
}

AnalysisQueue::~AnalysisQueue()
{
    // Workers post their results to this object: they must all have returned before it goes.
    m_cancel->store(true);
    m_waiting.clear();
    m_pool.waitForDone();
    writeResults();
}

void AnalysisQueue::setMaxJobs(int jobs)
{
    m_pool.setMaxThreadCount(jobs >= 1 ? jobs : QThread::idealThreadCount());
    startWaitingJobs();
}

int AnalysisQueue::maxJobs() const
{
    return m_pool.maxThreadCount();
}

bool AnalysisQueue::isWorthStoring(const TrackAnalysis& analysis)
{
    return !analysis.filePath.isEmpty() && analysis.fileSize >= 0 &&
           analysis.error != AudioAnalyser::cancelledText() &&
           analysis.error != AudioAnalyser::timeLimitText();
}

void AnalysisQueue::enqueue(const QStringList& paths)
{
    if (!isRunning()) {
        m_done = 0;
        m_total = 0;
        m_analysed = 0;
    }
    QStringList fresh;
    for (const QString& path : paths) {
        if (path.isEmpty() || m_queued.contains(path))
            continue;
        m_queued.insert(path);
        fresh << path;
    }
    if (fresh.isEmpty())
        return;
    // The stored stamps are read here, on the store's thread; the files are compared on the workers.
    const QHash<QString, QPair<qint64, qint64>> stamps =
        m_skipUpToDate ? TrackAnalysis::storedStamps(fresh) : QHash<QString, QPair<qint64, qint64>>();
    for (const QString& path : fresh) {
        Job job;
        job.path = path;
        const auto it = stamps.constFind(path);
        if (it != stamps.constEnd()) {
            job.hasStamp = true;
            job.stamp = it.value();
        }
        m_waiting << job;
    }
    m_total += static_cast<int>(fresh.size());
    emit progress(m_done, m_total);
    startWaitingJobs();
}

void AnalysisQueue::startWaitingJobs()
{
    while (m_running < m_pool.maxThreadCount() && !m_waiting.isEmpty()) {
        const Job job = m_waiting.takeFirst();
        ++m_running;
        const std::shared_ptr<std::atomic_bool> cancel = m_cancel;
        const quint64 generation = m_generation;
        const double target = m_targetLufs;
        m_pool.start([this, job, cancel, generation, target] {
            TrackAnalysis result;
            bool skipped = false;
            if (job.hasStamp && TrackAnalysis::fileMatchesStamp(job.path, job.stamp)) {
                result.filePath = job.path;
                skipped = true;
            } else {
                result = AudioAnalyser::analyseFile(job.path, target, cancel.get());
            }
            QMetaObject::invokeMethod(
                this, [this, result, skipped, generation] { jobReturned(result, skipped, generation); },
                Qt::QueuedConnection);
        });
    }
}

void AnalysisQueue::jobReturned(const TrackAnalysis& analysis, bool skipped, quint64 generation)
{
    --m_running;
    if (generation == m_generation) {
        m_queued.remove(analysis.filePath);
        ++m_done;
        if (!skipped) {
            ++m_analysed;
            if (m_storeResults && isWorthStoring(analysis)) {
                m_unsaved << analysis;
                if (m_unsaved.size() >= m_batchSize)
                    writeResults();
                else if (!m_writeTimer.isActive())
                    m_writeTimer.start();
            }
            emit analysed(analysis);
        }
        emit progress(m_done, m_total);
    }
    startWaitingJobs();
    finishIfIdle();
}

void AnalysisQueue::writeResults()
{
    m_writeTimer.stop();
    if (m_unsaved.isEmpty())
        return;
    if (!TrackAnalysis::save(m_unsaved))
        qCWarning(lcAnalysis) << "some of" << m_unsaved.size() << "analyses could not be stored";
    m_unsaved.clear();
}

void AnalysisQueue::finishIfIdle()
{
    if (isRunning())
        return;
    writeResults();
    emit finished();
}

void AnalysisQueue::cancel()
{
    if (!isRunning())
        return;
    m_cancel->store(true);
    m_cancel = std::make_shared<std::atomic_bool>(false);
    ++m_generation;
    m_waiting.clear();
    m_queued.clear();
    writeResults();
    finishIfIdle();
}
