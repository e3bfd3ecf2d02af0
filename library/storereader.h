#pragma once

#include <QObject>
#include <QString>

#include <functional>

class QTimer;
class StoreThread;

// Runs a window's reads of the store off its thread, so that a shared server that is slow or hangs
// never holds the window: on a server each read runs on a thread of its own with its own connection
// (StoreThread), and its answer comes back on the window's thread, in the order asked. While a read
// takes longer than kSlowMs the reader says it is waiting, for the window to show waitingText().
//
// On the embedded database a read runs at once where it is asked: a local file answers at once, and
// the window's callers keep their immediate results.
class StoreReader : public QObject
{
    Q_OBJECT

public:
    // Runs on the asking thread with what the read found.
    using Answer = std::function<void()>;
    // Runs on the store's thread; must touch nothing of the window, only return what it found inside
    // an Answer.
    using Read = std::function<Answer()>;

    // Milliseconds a read may take before the reader says it is waiting.
    static constexpr int kSlowMs = 300;

    explicit StoreReader(QObject* parent = nullptr);
    ~StoreReader() override;

    void read(Read work);
    // Whether a read is under way or queued.
    bool isBusy() const { return m_pending > 0; }
    // Whether one has taken longer than kSlowMs.
    bool isWaiting() const { return m_waiting; }
    // Why the store could not be used at the last read, in the store's words; empty when all was well.
    QString problem() const { return m_problem; }
    // What a window shows while it waits.
    static QString waitingText();

signals:
    void waitingChanged(bool waiting);

private:
    void answered(const Answer& answer, const QString& problem);
    void setWaiting(bool waiting);

    StoreThread* m_thread = nullptr; // started by the first read on a server
    QObject* m_worker = nullptr;     // lives on m_thread
    QTimer* m_slowTimer = nullptr;
    int m_pending = 0;
    bool m_waiting = false;
    QString m_problem;
};
