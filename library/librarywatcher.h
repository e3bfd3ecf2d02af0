#pragma once

#include <QObject>
#include <QSqlDriver>
#include <QString>

class QTimer;

// Tells a window what happens to a library that several machines share on a server: another machine
// changed it (the server notifies every change), the server went away, or it came back. The
// connection itself is checked every second, which also brings it back (LibraryConnection reopens a
// lost connection). On the embedded database nothing of this happens and no signal is sent.
class LibraryWatcher : public QObject
{
    Q_OBJECT

public:
    explicit LibraryWatcher(QObject* parent = nullptr);

    // Why the library cannot be used now; empty while all is well.
    QString problem() const;

signals:
    // A store table changed elsewhere. Changes arriving in quick succession come as one signal.
    void changed();
    void connectionLost(const QString& reason);
    void connectionRestored();

private:
    void checkConnection();
    void subscribe();
    void onNotification(const QString& name, QSqlDriver::NotificationSource source, const QVariant& payload);

    QTimer* checkTimer = nullptr;
    QTimer* settleTimer = nullptr;
    int subscribedGeneration = 0;
    bool usable = true;
};
