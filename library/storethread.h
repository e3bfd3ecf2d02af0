#pragma once

#include "libraryconnection.h"

#include <QThread>

// A thread for store work off the caller's thread, on a database connection of its own that it opens
// when it starts and closes when it ends. A worker object moved to it is deleted with it.
class StoreThread : public QThread
{
    Q_OBJECT

public:
    explicit StoreThread(const LibraryConnection::Target& target, QObject* worker);

    // Ends the thread, waiting at most waitMs milliseconds. A thread still blocked on a server that does
    // not answer is left to end by itself (it deletes itself then, or goes with the process), so that
    // nobody waits on it. Returns whether it ended in time.
    static bool stop(StoreThread* thread, int waitMs);

protected:
    void run() override;

private:
    LibraryConnection::Target m_target;
};
