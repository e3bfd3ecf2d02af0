#include "voiceoverplayer.h"

#include "audioplayer.h"
#include "outputrouter.h"
#include "playoutlogging.h"
#include "voiceoverrules.h"

#include <QDate>
#include <QRandomGenerator64>
#include <QUrl>

#include <algorithm>

namespace {

// The gain a voiceover is played at: its level, up to twice the music's as set, but the output
// itself goes no higher than full volume.
double voiceoverGain(double level)
{
    return std::clamp(level, 0.0, 2.0);
}

} // namespace

VoiceoverPlayer::VoiceoverPlayer(QObject* parent, OutputRouter* router) : QObject(parent), m_router(router) {}

QString VoiceoverPlayer::arm(const TrackParams& params, const QAudioDevice& device)
{
    disarm();
    if (!m_enabled || params.voiceoverIns < 1 || params.voiceoverSource.isEmpty())
        return QString();
    const int r = int(QRandomGenerator64::global()->bounded(100));
    if (!shouldPlayVoiceover(params, QDate::currentDate(), r))
        return QString();
    const QString file =
        chooseVoiceoverFile(params.voiceoverSource, QRandomGenerator64::global()->generate());
    if (file.isEmpty())
        return QString();

    m_file = file;
    m_level = params.voiceoverLevel;
    m_params = params;
    m_insertAt = voiceoverInsertPoint(params, 0);
    m_armed = true;

    if (!m_player) {
        m_player = new AudioPlayer(AudioPlayer::Metering::Off, this);
        if (m_router)
            m_router->add(m_player);
        connect(m_player, &AudioPlayer::durationChanged, this, &VoiceoverPlayer::onDuration);
        connect(m_player, &AudioPlayer::errorOccurred, this, [](QMediaPlayer::Error, const QString& text) {
            qCWarning(lcPlayout) << "voiceover player error:" << text;
        });
    }
    m_player->setDevice(device);
    m_player->setVolume(voiceoverGain(m_level));
    m_player->setSource(QUrl::fromLocalFile(file));
    return file;
}

void VoiceoverPlayer::onDuration(qint64 durationMs)
{
    // Placement "end at the insert point" needs the real length, known only now.
    if (!m_armed || durationMs < 1)
        return;
    m_insertAt = voiceoverInsertPoint(m_params, durationMs);
}

QString VoiceoverPlayer::fire(qint64 position)
{
    if (!m_armed || m_file.isEmpty() || !m_player || m_insertAt > position)
        return QString();
    m_armed = false;
    m_player->setVolume(voiceoverGain(m_level));
    // A source loaded seconds ahead is heard only about two seconds after play() with the sound
    // server here; loading it afresh starts it at once. Arming loaded it to learn its length.
    m_player->setSource(QUrl());
    m_player->setSource(QUrl::fromLocalFile(m_file));
    m_player->setPosition(0);
    m_player->play();
    return m_file;
}

void VoiceoverPlayer::disarm()
{
    m_armed = false;
    if (m_player)
        m_player->stop();
}

void VoiceoverPlayer::setDevice(const QAudioDevice& device)
{
    if (m_player)
        m_player->setDevice(device);
}

bool VoiceoverPlayer::isPlaying() const
{
    return m_player && m_player->isPlaying();
}
