#include "outputrouter.h"

#include "audioplayer.h"

OutputRouter::OutputRouter(QObject* parent) : QObject(parent) {}

void OutputRouter::add(AudioPlayer* player)
{
    if (!player)
        return;
    m_players.removeAll(nullptr);
    m_players.append(player);
    if (!m_device.isNull())
        player->setDevice(m_device);
}

void OutputRouter::remove(AudioPlayer* player)
{
    m_players.removeAll(player);
    m_players.removeAll(nullptr);
}

void OutputRouter::setDevice(const QAudioDevice& device)
{
    m_device = device;
    m_players.removeAll(nullptr);
    for (const QPointer<AudioPlayer>& player : std::as_const(m_players))
        player->setDevice(device);
}

int OutputRouter::playerCount() const
{
    int count = 0;
    for (const QPointer<AudioPlayer>& player : m_players)
        count += player ? 1 : 0;
    return count;
}
