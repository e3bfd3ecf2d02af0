#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QSqlDriver>
#include <QString>

class QTimer;
class ServerProbe;
class StoreThread;

// Tells a window what happens to a library that several machines share on a server: another machine
// changed it (the server notifies every change), the server went away, or it came back. The
// connection itself is checked every second, and this check is the only place where a lost connection
// is opened again (LibraryConnection::check). On the embedded database nothing of this happens and no
// signal is sent.
//
// The check asks the server first from a thread of its own: a server that does not answer at all (hung,
// or a network that drops packets) would otherwise hold the window's thread until it does. While that
// question is open longer than kNoAnswerMs the server counts as lost: the shared connection is closed
// (LibraryConnection::markAway), so store calls give their neutral result at once, and it is opened
// again once the probe's thread reaches the server.
class LibraryWatcher : public QObject
{
    Q_OBJECT

public:
    explicit LibraryWatcher(QObject* parent = nullptr);
    ~LibraryWatcher() override;

    // Milliseconds without an answer after which a server counts as lost.
    static constexpr int kNoAnswerMs = 2000;

    // Why the library cannot be used now; empty while all is well.
    QString problem() const;

signals:
    // A store table changed elsewhere. Changes arriving in quick succession come as one signal.
    void changed();
    // Another machine wrote or removed track parameters (this process's own writes come from
    // TrackParamsChanges).
    void paramsChanged();
    void connectionLost(const QString& reason);
    void connectionRestored();

private:
    void checkConnection();
    void onProbeAnswered(bool reached, const QString& probeProblem);
    void checkSharedConnection();
    void subscribe();
    void onNotification(const QString& name, QSqlDriver::NotificationSource source, const QVariant& payload);

    QTimer* checkTimer = nullptr;
    QTimer* settleTimer = nullptr;
    int subscribedGeneration = 0;
    bool usable = true;
    StoreThread* probeThread = nullptr;
    ServerProbe* probe = nullptr;
    qint64 probeSentMs = -1; // on probeClock; -1 while no question is open
    QElapsedTimer probeClock;
};
