#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>

class QMediaDevices;
class QTimer;

// Tells when the list of audio outputs changes (a device plugged in or gone). Qt 6.4's GStreamer
// backend lists outputs afresh on every call but does not always signal a change, so the list is
// also looked at once a second.
class OutputWatcher : public QObject
{
    Q_OBJECT

public:
    explicit OutputWatcher(QObject* parent = nullptr);

signals:
    void outputsChanged();

private:
    void check();

    QMediaDevices* m_devices = nullptr;
    QTimer* m_poll = nullptr;
    QList<QByteArray> m_lastIds;
};
