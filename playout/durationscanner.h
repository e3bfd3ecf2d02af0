#pragma once

#include <QObject>
#include <QSet>
#include <QStringList>

class QAudioOutput;
class QMediaPlayer;
class QTimer;

// Finds the playing time of files whose tags gave none: loads each into a muted media player,
// one file at a time on the GUI thread, and reports the duration (0 when none is found).
class DurationScanner : public QObject
{
    Q_OBJECT

public:
    explicit DurationScanner(QObject* parent = nullptr);

    // Queues the non-empty paths; a path already waiting or being scanned is not queued again.
    void enqueue(const QStringList& paths);
    bool isBusy() const { return busy; }
    int pendingCount() const { return queue.size(); }

signals:
    void resolved(const QString& path, qint64 durationMs);
    void finished();

private:
    void startNext();
    void scheduleNext();
    void finishWith(qint64 durationMs);
    void onTimeout();

    QMediaPlayer* player = nullptr;
    QAudioOutput* output = nullptr;
    QTimer* timeout = nullptr;
    QStringList queue;
    QSet<QString> waiting; // the paths in `queue`, for a cheap duplicate test on long lists
    QString current;
    bool busy = false;
    bool replacePlayer = false; // the last file failed to load; the next one gets a new player
};
