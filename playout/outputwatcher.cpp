#include "outputwatcher.h"

#include <QAudioDevice>
#include <QMediaDevices>
#include <QTimer>

namespace {

constexpr int pollMs = 1000;

QList<QByteArray> outputIds()
{
    QList<QByteArray> ids;
    const QList<QAudioDevice> outputs = QMediaDevices::audioOutputs();
    for (const QAudioDevice& device : outputs)
        ids << device.id();
    return ids;
}

} // namespace

OutputWatcher::OutputWatcher(QObject* parent) : QObject(parent)
{
    m_lastIds = outputIds();
    m_devices = new QMediaDevices(this);
    connect(m_devices, &QMediaDevices::audioOutputsChanged, this, &OutputWatcher::check);
    m_poll = new QTimer(this);
    m_poll->setInterval(pollMs);
    connect(m_poll, &QTimer::timeout, this, &OutputWatcher::check);
    m_poll->start();
}

void OutputWatcher::check()
{
    const QList<QByteArray> ids = outputIds();
    if (ids == m_lastIds)
        return;
    m_lastIds = ids;
    emit outputsChanged();
}
