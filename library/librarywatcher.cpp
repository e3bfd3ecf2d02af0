#include "librarywatcher.h"

#include "libraryconnection.h"
#include "librarylogging.h"
#include "pgschema.h"
#include "storethread.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QTimer>
#include <QVariant>

namespace {

// Milliseconds between two checks of the server connection.
constexpr int kCheckIntervalMs = 1000;
// Milliseconds to gather notifications before one refresh: an import commits a batch every moment.
constexpr int kSettleMs = 300;

// Milliseconds to wait for the probe's thread when the watcher goes.
constexpr int kProbeStopWaitMs = 300;

} // namespace

// Asks the server whether it answers, on the probe's own thread and connection.
class ServerProbe : public QObject
{
    Q_OBJECT

public:
    void ask()
    {
        LibraryConnection::check();
        emit answered();
    }

signals:
    void answered();
};

LibraryWatcher::LibraryWatcher(QObject* parent) : QObject(parent)
{
    if (!LibraryConnection::isServer())
        return;
    settleTimer = new QTimer(this);
    settleTimer->setSingleShot(true);
    settleTimer->setInterval(kSettleMs);
    connect(settleTimer, &QTimer::timeout, this, &LibraryWatcher::changed);
    checkTimer = new QTimer(this);
    checkTimer->setInterval(kCheckIntervalMs);
    connect(checkTimer, &QTimer::timeout, this, &LibraryWatcher::checkConnection);
    checkTimer->start();
    usable = LibraryConnection::problem().isEmpty() && LibraryConnection::database().isOpen();
    if (usable)
        subscribe();
    probe = new ServerProbe;
    probeThread = new StoreThread(LibraryConnection::target(), probe);
    connect(probe, &ServerProbe::answered, this, &LibraryWatcher::onProbeAnswered, Qt::QueuedConnection);
    probeThread->start();
    probeClock.start();
}

LibraryWatcher::~LibraryWatcher()
{
    StoreThread::stop(probeThread, kProbeStopWaitMs);
}

QString LibraryWatcher::problem() const
{
    return LibraryConnection::problem();
}

void LibraryWatcher::checkConnection()
{
    if (probeSentMs < 0) {
        probeSentMs = probeClock.elapsed();
        QMetaObject::invokeMethod(probe, &ServerProbe::ask, Qt::QueuedConnection);
        return;
    }
    if (probeClock.elapsed() - probeSentMs < kNoAnswerMs || !usable)
        return;
    usable = false;
    const QString reason =
        QStringLiteral("The database server %1 does not answer").arg(LibraryConnection::url().displayText());
    qCWarning(lcLibrary).noquote() << reason;
    emit connectionLost(reason);
}

void LibraryWatcher::onProbeAnswered()
{
    probeSentMs = -1;
    // The server answers (or refuses at once): the shared connection can be asked without hanging.
    checkSharedConnection();
}

void LibraryWatcher::checkSharedConnection()
{
    const bool nowUsable = LibraryConnection::check();
    if (nowUsable && subscribedGeneration != LibraryConnection::generation())
        subscribe();
    if (nowUsable == usable)
        return;
    usable = nowUsable;
    if (usable)
        emit connectionRestored();
    else
        emit connectionLost(LibraryConnection::problem());
}

void LibraryWatcher::subscribe()
{
    QSqlDatabase db = LibraryConnection::database();
    QSqlDriver* driver = db.driver();
    if (!db.isOpen() || !driver)
        return;
    subscribedGeneration = LibraryConnection::generation();
    connect(driver, &QSqlDriver::notification, this, &LibraryWatcher::onNotification, Qt::UniqueConnection);
    if (!driver->subscribedToNotifications().contains(PgSchema::kChannel) &&
        !driver->subscribeToNotification(PgSchema::kChannel))
        qCWarning(lcLibrary).noquote()
            << "Cannot listen for changes of the shared library:" << driver->lastError().text();
}

void LibraryWatcher::onNotification(const QString& name, QSqlDriver::NotificationSource source,
                                    const QVariant& payload)
{
    // This program's own changes are already on its screen. The payload names the changed table;
    // plays going on air (as_run), analyses and track parameters change nothing a library list shows.
    if (name != PgSchema::kChannel || source == QSqlDriver::SelfSource)
        return;
    const QString table = payload.toString();
    if (table != QLatin1String("tracks") && table != QLatin1String("libraries"))
        return;
    if (!settleTimer->isActive())
        settleTimer->start();
}

#include "librarywatcher.moc"
