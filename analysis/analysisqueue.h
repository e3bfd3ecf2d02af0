#pragma once

#include "trackanalysis.h"

#include <QHash>
#include <QObject>
#include <QSet>
#include <QStringList>
#include <QThreadPool>
#include <QTimer>

#include <atomic>
#include <memory>

// Analyses files on a pool of worker threads, as many at a time as there are cores (or setMaxJobs).
// Each worker decodes one file with its own objects; results come back to the thread that owns the
// queue (the GUI thread), which writes them through the store in batches, one transaction each.
// Files whose stored analysis matches the file on disk are skipped.
class AnalysisQueue : public QObject
{
    Q_OBJECT

public:
    explicit AnalysisQueue(QObject* parent = nullptr);
    ~AnalysisQueue() override;

    // Adds files; paths already queued or running, and files with an up-to-date analysis, are left out.
    void enqueue(const QStringList& paths);

    void setMaxJobs(int jobs);
    int maxJobs() const;
    // Defaults to the setting Settings::targetLufs, read when the queue is made.
    void setTargetLufs(double lufs) { m_targetLufs = lufs; }
    double targetLufs() const { return m_targetLufs; }
    // Whether results are written to the store (default true) and whether stored, up-to-date
    // analyses are trusted (default true). A tool that measures without a database turns both off.
    void setStoreResults(bool store) { m_storeResults = store; }
    void setSkipUpToDate(bool skip) { m_skipUpToDate = skip; }
    // Results written per transaction (default 50); fewer are written after a second of waiting.
    void setBatchSize(int records) { m_batchSize = qMax(1, records); }

    bool isRunning() const { return m_running > 0 || !m_waiting.isEmpty(); }
    int doneCount() const { return m_done; }
    int totalCount() const { return m_total; }
    // Files actually decoded in this run (up-to-date ones skipped do not count), successful or not.
    int analysedCount() const { return m_analysed; }

    // Whether a result deserves a row: a failure that would fail again on the same file is stored so
    // it is not retried on every run; a cancelled or timed-out one and a vanished file are not.
    static bool isWorthStoring(const TrackAnalysis& analysis);

    // The settings key of the target loudness (Settings::targetLufs).
    static QString targetLufsKey();

public slots:
    // Stops the run: waiting files are dropped, running ones abandoned (nothing of them is written);
    // results that were complete are written. finished() follows once the workers have returned.
    void cancel();

signals:
    void progress(int done, int total);
    void analysed(const TrackAnalysis& analysis);
    void finished();

private:
    struct Job {
        QString path;
        bool hasStamp = false;
        QPair<qint64, qint64> stamp;
    };

    void startWaitingJobs();
    void jobReturned(const TrackAnalysis& analysis, bool skipped, quint64 generation);
    void writeResults();
    void finishIfIdle();

    QThreadPool m_pool;
    std::shared_ptr<std::atomic_bool> m_cancel;
    quint64 m_generation = 0; // raised by cancel(), so returns of abandoned jobs are recognised
    QList<Job> m_waiting;
    QSet<QString> m_queued; // waiting or running
    QList<TrackAnalysis> m_unsaved;
    QTimer m_writeTimer;
    int m_running = 0;
    int m_done = 0;
    int m_total = 0;
    int m_analysed = 0;
    int m_batchSize = 50;
    double m_targetLufs = 0.0; // LUFS; the setting's value, set by the constructor
    bool m_storeResults = true;
    bool m_skipUpToDate = true;
};
