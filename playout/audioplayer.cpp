#include "audioplayer.h"

#include "levelsource.h"
#include "mixrules.h"

#include <QAudioOutput>

#include <algorithm>

AudioPlayer::AudioPlayer(Metering metering, QObject* parent) : QObject(parent)
{
    m_player = new QMediaPlayer(this);
    m_output = new QAudioOutput(this);
    m_player->setAudioOutput(m_output);
    if (metering == Metering::On) {
        m_levels = new LevelSource(m_player, this);
        connect(m_levels, &LevelSource::bufferReady, this, &AudioPlayer::onBuffer);
    }
    connect(m_player, &QMediaPlayer::positionChanged, this, &AudioPlayer::positionChanged);
    connect(m_player, &QMediaPlayer::durationChanged, this, &AudioPlayer::durationChanged);
    connect(m_player, &QMediaPlayer::playbackStateChanged, this, [this](QMediaPlayer::PlaybackState state) {
        // Before anyone hears of the change, so that a listener reads the level that goes with it.
        if (state != QMediaPlayer::PlayingState)
            fallSilent();
        emit playbackStateChanged(state);
    });
    connect(m_player, &QMediaPlayer::mediaStatusChanged, this, [this](QMediaPlayer::MediaStatus status) {
        if (status == QMediaPlayer::EndOfMedia || status == QMediaPlayer::NoMedia ||
            status == QMediaPlayer::InvalidMedia)
            fallSilent();
        emit mediaStatusChanged(status);
    });
    connect(m_player, &QMediaPlayer::errorOccurred, this, &AudioPlayer::errorOccurred);
    connect(m_player, &QMediaPlayer::metaDataChanged, this, &AudioPlayer::metaDataChanged);
}

void AudioPlayer::setMetering(bool on)
{
    if (!m_levels)
        return;
    m_levels->setEnabled(on);
    if (!on)
        fallSilent();
}

bool AudioPlayer::isMetering() const
{
    return m_levels && m_levels->isEnabled();
}

void AudioPlayer::setSource(const QUrl& source)
{
    m_player->setSource(source);
}

QUrl AudioPlayer::source() const
{
    return m_player->source();
}

void AudioPlayer::play()
{
    m_player->play();
}

void AudioPlayer::pause()
{
    m_player->pause();
}

void AudioPlayer::stop()
{
    m_player->stop();
    // Stopping a player that was never playing reports no change of state.
    fallSilent();
}

void AudioPlayer::setPosition(qint64 ms)
{
    m_player->setPosition(ms);
}

qint64 AudioPlayer::position() const
{
    return m_player->position();
}

qint64 AudioPlayer::duration() const
{
    return m_player->duration();
}

QMediaPlayer::PlaybackState AudioPlayer::playbackState() const
{
    return m_player->playbackState();
}

QMediaPlayer::MediaStatus AudioPlayer::mediaStatus() const
{
    return m_player->mediaStatus();
}

QMediaMetaData AudioPlayer::metaData() const
{
    return m_player->metaData();
}

void AudioPlayer::setVolume(double volume)
{
    m_output->setVolume(float(std::clamp(volume, 0.0, 1.0)));
}

double AudioPlayer::volume() const
{
    return m_output->volume();
}

void AudioPlayer::setMuted(bool muted)
{
    m_output->setMuted(muted);
}

bool AudioPlayer::isMuted() const
{
    return m_output->isMuted();
}

void AudioPlayer::setDevice(const QAudioDevice& device)
{
    m_output->setDevice(device);
}

QAudioDevice AudioPlayer::device() const
{
    return m_output->device();
}

void AudioPlayer::onBuffer(const QAudioBuffer& buffer)
{
    const PeakLevels peaks = peakLevels(buffer);
    if (!peaks.valid)
        return;
    // What reaches the sound server: the volume as the output took it, muting included.
    const double heard = m_output->isMuted() ? 0.0 : double(m_output->volume());
    m_levelLeft = peaks.left * heard;
    m_levelRight = peaks.right * heard;
    m_levelValid = true;
    emit bufferReady(buffer);
    emit levelChanged();
}

void AudioPlayer::fallSilent()
{
    // No longer a measurement of what plays: a level trigger must wait for a fresh one.
    m_levelValid = false;
    if (m_levelLeft == 0.0 && m_levelRight == 0.0)
        return;
    m_levelLeft = 0.0;
    m_levelRight = 0.0;
    emit levelChanged();
}

QMediaPlayer::Error AudioPlayer::error() const
{
    return m_player->error();
}
