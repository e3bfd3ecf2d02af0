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
        const bool reached = LibraryConnection::check();
        emit answered(reached, LibraryConnection::problem());
    }

signals:
    // Whether the server answered on the probe's connection (false also when it refused at once), and
    // why not.
    void answered(bool reached, const QString& problem);
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
    // From now on store calls give their neutral result at once instead of waiting on the server.
    LibraryConnection::markAway(reason);
    emit connectionLost(reason);
}

void LibraryWatcher::onProbeAnswered(bool reached, const QString& probeProblem)
{
    probeSentMs = -1;
    // The server answers (or refuses at once): the shared connection can be asked without hanging.
    // A closed one is reopened only after the probe reached the server, so that the window's thread
    // never waits out a connect attempt to a server that is not there.
    if (!reached && !LibraryConnection::database().isOpen()) {
        // The driver closes a connection it finds broken by itself (its notifications' socket ended):
        // the probe's words say why.
        if (LibraryConnection::problem().isEmpty())
            LibraryConnection::markAway(probeProblem);
        if (usable) {
            usable = false;
            emit connectionLost(LibraryConnection::problem());
        }
        return;
    }
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
    // plays going on air (as_run) and analyses change nothing a library list shows, track parameters
    // only the playlist's colours.
    if (name != PgSchema::kChannel || source == QSqlDriver::SelfSource)
        return;
    const QString table = payload.toString();
    if (table == QLatin1String("track_params")) {
        emit paramsChanged();
        return;
    }
    if (table != QLatin1String("tracks") && table != QLatin1String("libraries"))
        return;
    if (!settleTimer->isActive())
        settleTimer->start();
}

#include "librarywatcher.moc"
