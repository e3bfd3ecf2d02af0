#include "storethread.h"

#include "librarylogging.h"

StoreThread::StoreThread(const LibraryConnection::Target& target, QObject* worker) : m_target(target)
{
    worker->moveToThread(this);
    connect(this, &QThread::finished, worker, &QObject::deleteLater);
}

void StoreThread::run()
{
    LibraryConnection::openThreadConnection(m_target);
    exec();
    LibraryConnection::closeThreadConnection();
}

bool StoreThread::stop(StoreThread* thread, int waitMs)
{
    if (!thread)
        return true;
    thread->requestInterruption();
    thread->quit();
    if (thread->wait(waitMs)) {
        delete thread;
        return true;
    }
    qCWarning(lcLibrary) << "A database worker still waits on the server; it is left to end by itself";
    connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    if (thread->isFinished()) // it ended while the connection was made
        delete thread;
    return false;
}
