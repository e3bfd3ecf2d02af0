#include "relay.h"

#include "audioplayer.h"
#include "outputrouter.h"
#include "playoutlogging.h"
#include "streamtitle.h"

#include <QMediaMetaData>
#include <QTimer>
#include <QUrl>

namespace {

constexpr int reconnectMs = 5000;
// A live relay whose position has not moved for this long is treated as lost.
constexpr qint64 stallMs = 5000;

} // namespace

Relay::Relay(QObject* parent, OutputRouter* router) : QObject(parent), m_router(router)
{
    m_reconnectTimer = new QTimer(this);
    m_reconnectTimer->setInterval(reconnectMs);
    connect(m_reconnectTimer, &QTimer::timeout, this, &Relay::reconnect);
    m_stallTimer = new QTimer(this);
    m_stallTimer->setInterval(500);
    connect(m_stallTimer, &QTimer::timeout, this, &Relay::checkStall);
}

void Relay::start(const QString& source, const QAudioDevice& device, double volume)
{
    releasePlayer();
    m_source = source;
    m_device = device;
    m_volume = volume;
    m_lastTitle.clear();
    createPlayer();
    setState(RelayState::Connecting);
    // Also a connection time-out: a server that never answers changes no status at all.
    m_reconnectTimer->start();
}

void Relay::stop()
{
    m_reconnectTimer->stop();
    releasePlayer();
    setState(RelayState::Off);
}

void Relay::setState(RelayState state)
{
    if (state == m_state)
        return;
    m_state = state;
    emit stateChanged(state);
}

void Relay::setVolume(double volume)
{
    m_volume = volume;
    if (m_player)
        m_player->setVolume(volume);
}

void Relay::setDevice(const QAudioDevice& device)
{
    m_device = device;
    if (m_player)
        m_player->setDevice(device);
}

QString Relay::outputDeviceDescription() const
{
    return m_player ? m_player->device().description() : QString();
}

void Relay::createPlayer()
{
    m_player = new AudioPlayer(AudioPlayer::Metering::On, this);
    if (m_router)
        m_router->add(m_player);
    // The device chosen at the relay's start, whatever the router had before.
    m_player->setDevice(m_device);
    m_player->setVolume(m_volume);
    connect(m_player, &AudioPlayer::bufferReady, this, &Relay::bufferReady);
    connect(m_player, &AudioPlayer::levelChanged, this, [this] {
        if (!m_player->isPlaying() || !m_player->levelValid())
            emit levelFell();
    });
    connect(m_player, &AudioPlayer::mediaStatusChanged, this, &Relay::onMediaStatus);
    connect(m_player, &AudioPlayer::errorOccurred, this, [this](QMediaPlayer::Error, const QString& text) {
        qCWarning(lcPlayout) << "relay player error:" << text << "source:" << m_source;
        emit errorOccurred(text);
    });
    connect(m_player, &AudioPlayer::positionChanged, this, [this](qint64 position) {
        if (position != m_lastPosition) {
            m_lastPosition = position;
            m_sincePositionMoved.restart();
        }
    });
    connect(m_player, &AudioPlayer::metaDataChanged, this, &Relay::onMetaData);
    m_player->setSource(QUrl::fromUserInput(m_source));
    m_player->play();
}

void Relay::releasePlayer()
{
    m_stallTimer->stop();
    if (m_player) {
        AudioPlayer* player = m_player;
        player->disconnect(this);
        player->setMuted(true);
        if (player->mediaStatus() == QMediaPlayer::LoadingMedia) {
            // Tearing down an attempt that still waits for the server blocks this thread for
            // about a second in the backend; let it run into its own time-out first.
            connect(player, &AudioPlayer::mediaStatusChanged, player, [player] {
                if (player->mediaStatus() != QMediaPlayer::LoadingMedia)
                    player->deleteLater();
            });
        } else {
            player->stop();
            player->deleteLater();
        }
        emit levelFell();
    }
    m_player = nullptr;
}

void Relay::onMediaStatus()
{
    if (!isActive() || !m_player)
        return;
    switch (m_player->mediaStatus()) {
    case QMediaPlayer::NoMedia:
    case QMediaPlayer::StalledMedia:
    case QMediaPlayer::EndOfMedia:
    case QMediaPlayer::InvalidMedia:
        lose();
        break;
    case QMediaPlayer::LoadedMedia:
    case QMediaPlayer::BufferedMedia:
        if (!isLive())
            goLive();
        break;
    default:
        break;
    }
}

void Relay::goLive()
{
    m_reconnectTimer->stop();
    m_lastPosition = -1;
    m_sincePositionMoved.restart();
    m_stallTimer->start();
    setState(RelayState::Live);
    emit wentLive();
}

void Relay::lose()
{
    m_stallTimer->stop();
    if (!m_reconnectTimer->isActive())
        m_reconnectTimer->start();
    setState(RelayState::Lost);
    emit lost();
}

void Relay::reconnect()
{
    if (!isActive() || isLive() || !m_player)
        return;
    // An attempt that is not live five seconds later and has reported nothing (a server that
    // never answers changes no status) has failed as well: the playlist gets the air back first.
    if (m_state != RelayState::Lost)
        lose();
    emit reconnecting();
    // A fresh player per attempt: the same URL set again would be ignored by the old one.
    releasePlayer();
    createPlayer();
    setState(RelayState::Connecting);
}

void Relay::checkStall()
{
    if (!isLive())
        return;
    if (m_sincePositionMoved.isValid() && m_sincePositionMoved.elapsed() >= stallMs)
        lose();
}

void Relay::onMetaData()
{
    if (!m_player)
        return;
    const QString text = streamTitle(m_player->metaData());
    if (text.isEmpty() || text == m_lastTitle)
        return;
    m_lastTitle = text;
    emit metadataChanged(text);
}
