#include "outputfollower.h"

#include "deck.h"
#include "outputdevice.h"
#include "outputrouter.h"
#include "outputwatcher.h"
#include "playoutlog.h"
#include "playoutlogging.h"
#include "relay.h"

#include <QMediaDevices>

OutputFollower::OutputFollower(OutputRouter* router, Relay* relay, QObject* parent)
    : QObject(parent), m_router(router), m_relay(relay)
{
    connect(new OutputWatcher(this), &OutputWatcher::outputsChanged, this, &OutputFollower::onOutputsChanged);
}

void OutputFollower::reload()
{
    m_hasOutput = !QMediaDevices::audioOutputs().isEmpty();
    m_device = configuredOutputDevice();
    m_router->setDevice(m_device);
}

void OutputFollower::onOutputsChanged()
{
    const QList<QAudioDevice> outputs = QMediaDevices::audioOutputs();
    const bool hadDevice = m_hasOutput;
    m_hasOutput = !outputs.isEmpty();
    if (!m_hasOutput) {
        if (hadDevice) {
            qCWarning(lcPlayout) << "every audio output is gone; last in use:"
                                 << m_device.description();
            emit logLine(PlayoutLog::noDevice);
        }
        return;
    }
    if (!hadDevice) {
        // Outputs are back after there were none: the configured one if it is among them.
        m_device = configuredOutputDevice();
        for (Deck* deck : m_decks)
            deck->setDevice(m_device);
        return;
    }
    const QAudioDevice fallback = QMediaDevices::defaultAudioOutput();
    if (m_relay->isActive() && !m_relay->outputDeviceDescription().isEmpty()) {
        bool relayListed = false;
        for (const QAudioDevice& device : outputs)
            relayListed = relayListed || device.description() == m_relay->outputDeviceDescription();
        if (!relayListed)
            m_relay->setDevice(fallback);
    }
    if (outputListed(m_device, outputs))
        return;
    const QString line = PlayoutLog::outputLost + m_device.description() + PlayoutLog::outputMoved +
                         fallback.description();
    qCWarning(lcPlayout).noquote() << line;
    m_device = fallback;
    m_router->setDevice(fallback);
    emit logLine(line);
}
