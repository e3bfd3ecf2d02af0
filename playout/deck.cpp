#include "deck.h"

#include "audioplayer.h"
#include "mixrules.h"
#include "outputrouter.h"
#include "playoutlogging.h"

#include <QTimer>

#include <algorithm>

Deck::Deck(QObject* parent, OutputRouter* router) : QObject(parent), m_router(router)
{
    m_fadeTimer = new QTimer(this);
    m_fadeTimer->setInterval(DeckFade::tickMs);
    // Fades are heard: keep the steps even rather than coalesced with other timers.
    m_fadeTimer->setTimerType(Qt::PreciseTimer);
    connect(m_fadeTimer, &QTimer::timeout, this, &Deck::onFadeTick);
    m_cueOutTimer = new QTimer(this);
    m_cueOutTimer->setSingleShot(true);
    m_cueOutTimer->setTimerType(Qt::PreciseTimer);
    connect(m_cueOutTimer, &QTimer::timeout, this, [this] { checkCueOut(m_cueOutMs); });
    m_loadTimer = new QTimer(this);
    m_loadTimer->setSingleShot(true);
    connect(m_loadTimer, &QTimer::timeout, this, &Deck::onLoadTimeout);
    attachPlayer(new AudioPlayer(AudioPlayer::Metering::On, this));
}

void Deck::attachPlayer(AudioPlayer* player)
{
    m_player = player;
    if (m_router)
        m_router->add(m_player);
    connect(m_player, &AudioPlayer::bufferReady, this, &Deck::levelMeasured);
    connect(m_player, &AudioPlayer::levelChanged, this, [this] {
        if (!m_player->isPlaying() || !m_player->levelValid())
            emit levelFell();
    });
    // The deck's own handling runs first, so that the airing is up to date when the engine hears
    // of the same change.
    connect(m_player, &AudioPlayer::playbackStateChanged, this, [this](QMediaPlayer::PlaybackState state) {
        onPlaybackState(state);
        emit playbackStateChanged(state);
    });
    connect(m_player, &AudioPlayer::mediaStatusChanged, this, [this](QMediaPlayer::MediaStatus status) {
        if (isEarlierLoadsReport(status)) {
            dropEarlierEnd();
            return;
        }
        if (status != QMediaPlayer::LoadingMedia && status != QMediaPlayer::NoMedia)
            m_loadTimer->stop(); // loaded, or failed in a way the player reports itself
        onMediaStatus(status);
        emit mediaStatusChanged(status);
    });
    connect(m_player, &AudioPlayer::durationChanged, this, &Deck::durationChanged);
    connect(m_player, &AudioPlayer::errorOccurred, this,
            [this](QMediaPlayer::Error error, const QString& errorString) {
                m_loadTimer->stop();
                emit errorOccurred(error, errorString);
            });
    connect(m_player, &AudioPlayer::metaDataChanged, this, &Deck::metaDataChanged);
    connect(m_player, &AudioPlayer::positionChanged, this, [this](qint64 position) {
        if (position > 0 && !m_loading) {
            m_loadConfirmed = true;
            m_loadTimer->stop();
        }
        measureStartLead(position);
        checkSeek(position);
        checkSounding();
        checkCueOut(position);
        emit positionChanged(position);
    });
}

void Deck::setLoadLimitMs(int ms)
{
    m_loadLimitMs = std::max(ms, 0);
}

void Deck::onLoadTimeout()
{
    if (m_player->mediaStatus() != QMediaPlayer::LoadingMedia && m_loadConfirmed)
        return;
    const QUrl source = m_player->source();
    qCWarning(lcPlayout) << "load of" << source.toDisplayString() << "not finished within" << m_loadLimitMs
                         << "ms; the deck takes a fresh player";
    // A player that never finished a load may be wedged for good: it is replaced, not reused. It
    // is not told anything either, as stopping or destroying it can block until its load ends;
    // it is set aside and destroyed once it gets past loading.
    const bool metering = m_player->isMetering();
    const QAudioDevice device = m_player->device();
    AudioPlayer* wedged = m_player;
    disconnect(wedged, nullptr, this, nullptr);
    if (m_router)
        m_router->remove(wedged);
    wedged->setParent(nullptr);
    wedged->setMuted(true);
    connect(wedged, &AudioPlayer::mediaStatusChanged, wedged, [wedged](QMediaPlayer::MediaStatus status) {
        if (status != QMediaPlayer::LoadingMedia)
            wedged->deleteLater();
    });
    attachPlayer(new AudioPlayer(AudioPlayer::Metering::On, this));
    m_player->setMetering(metering);
    if (!m_router)
        m_player->setDevice(device);
    ++m_generation;
    m_loadConfirmed = false;
    m_playRequested = false;
    m_airing = Airing::None;
    m_hasSource = false;
    m_sinceStart.invalidate();
    clearSeek();
    m_cueOutTimer->stop();
    m_fadeTimer->stop();
    applyVolume();
    emit loadTimedOut(source);
}

void Deck::start(int row, const Track& track, const QUrl& source, bool fadeIn, int fadeInMs, qint64 startAtMs,
                 qint64 endAtMs)
{
    m_row = row;
    clearSeek();
    m_cueOutMs = std::max<qint64>(endAtMs, 0);
    m_cueOutReported = false;
    m_cueOutTimer->stop();
    m_fadeTimer->stop();
    m_fade.stopAfterFade = false;

    m_airing = Airing::Pending;
    m_airingRow = row;
    m_airingTrack = track;
    m_hasSource = !source.isEmpty();
    m_playedBeforeMs = 0;
    m_playingFor.invalidate();

    // A new load: whatever the player reports from here on belongs to this source once it has
    // shown that it plays it.
    ++m_generation;
    m_loadConfirmed = false;
    m_resumeWhenLoaded = false;
    m_playRequested = true;
    m_loading = true;
    // Setting the source just before playing keeps the sound server from buffering seconds of
    // audio at a stale volume. The source the player holds already (a jingle twice in a row, a
    // timed row cutting to what the deck just had) is loaded afresh once it ended or while it
    // still plays: sought back to the top, it was at times not heard at all, as its end, posted
    // late, stopped it again or its position stuck. One stopped midway is sought back.
    const bool sameSource = !source.isEmpty() && m_player->source() == source;
    const bool cleanlyStopped = m_player->playbackState() == QMediaPlayer::StoppedState &&
                                m_player->mediaStatus() != QMediaPlayer::EndOfMedia;
    if (sameSource && cleanlyStopped) {
        m_player->setPosition(std::max<qint64>(startAtMs, 0));
    } else {
        if (sameSource)
            m_player->setSource(QUrl());
        m_player->setSource(source);
    }

    m_fade.gain = fadeIn ? 0.0 : 1.0;
    applyVolume();
    // A seek is dropped by the backend until audio flows, so a cue-in is reached by seeking on the
    // position reports, muted until the position is there: nothing before the cue-in is heard.
    if (startAtMs > 0) {
        m_seekToMs = startAtMs;
        m_player->setMuted(true);
    }
    m_player->play();
    m_loading = false;
    // Only a load the player has not finished by now is watched.
    const QMediaPlayer::MediaStatus status = m_player->mediaStatus();
    if (m_hasSource && m_loadLimitMs > 0 &&
        (status == QMediaPlayer::LoadingMedia || status == QMediaPlayer::NoMedia))
        m_loadTimer->start(m_loadLimitMs);
    else
        m_loadTimer->stop();
    // Only a start from the top tells the lead: a cue-in is reached by seeking first.
    if (startAtMs > 0 || !m_hasSource)
        m_sinceStart.invalidate();
    else
        m_sinceStart.start();
    if (fadeIn)
        fadeTo(1.0, fadeInMs, false);
}

void Deck::measureStartLead(qint64 position)
{
    if (!m_sinceStart.isValid() || position <= 0)
        return;
    // The position is that of what is heard: the sound began `position` ms before this report.
    m_leads.add(m_sinceStart.elapsed() - position);
    m_sinceStart.invalidate();
}

void Deck::fadeTo(double target, int ms, bool stopAtEnd)
{
    const DeckFade::StartResult result = m_fade.start(target, ms, stopAtEnd);
    if (ms <= 0) {
        applyVolume();
        if (result.stopPlayer)
            stop();
        return;
    }
    if (result.runTimer)
        m_fadeTimer->start();
    else
        applyVolume();
}

void Deck::stop()
{
    m_playRequested = false;
    m_loadTimer->stop();
    m_sinceStart.invalidate();
    clearSeek();
    m_cueOutTimer->stop();
    m_fadeTimer->stop();
    m_player->stop();
}

void Deck::setMetering(bool on)
{
    m_player->setMetering(on);
}

bool Deck::isMetering() const
{
    return m_player->isMetering();
}

void Deck::pause()
{
    m_playRequested = false;
    m_player->pause();
}

void Deck::resume()
{
    m_playRequested = true;
    m_player->play();
}

void Deck::setPosition(qint64 ms)
{
    m_player->setPosition(ms);
}

QMediaPlayer::PlaybackState Deck::state() const
{
    return m_player->playbackState();
}

QMediaPlayer::MediaStatus Deck::mediaStatus() const
{
    return m_player->mediaStatus();
}

QUrl Deck::source() const
{
    return m_player->source();
}

bool Deck::hasPlayerError() const
{
    return m_player->error() != QMediaPlayer::NoError;
}

void Deck::unload()
{
    ++m_generation;
    m_loadConfirmed = false;
    m_playRequested = false;
    m_loadTimer->stop();
    m_player->setSource(QUrl());
}

bool Deck::isEarlierLoadsReport(QMediaPlayer::MediaStatus status)
{
    if (m_loading)
        return false; // reported by the player while it takes the new source
    switch (status) {
    case QMediaPlayer::LoadedMedia:
    case QMediaPlayer::BufferingMedia:
    case QMediaPlayer::BufferedMedia:
        m_loadConfirmed = true;
        resumeAfterDroppedEnd();
        return false;
    case QMediaPlayer::EndOfMedia:
        // The player delivers what its previous source posted before it reports the new one: an
        // end that comes first is the end of what the deck played before this load.
        return !m_loadConfirmed && m_generation > 1;
    default:
        return false;
    }
}

void Deck::dropEarlierEnd()
{
    qCDebug(lcPlayout) << "end of media of an earlier load dropped; load" << m_generation << "goes on";
    ++m_droppedReports;
    // That end stopped the player. Played again at once it would stay wedged: the new source is
    // played once the player reports it loaded, unless the deck was told otherwise meanwhile.
    m_resumeWhenLoaded = true;
}

void Deck::resumeAfterDroppedEnd()
{
    if (!m_resumeWhenLoaded)
        return;
    m_resumeWhenLoaded = false;
    if (m_playRequested && !m_player->isPlaying())
        m_player->play();
}

qint64 Deck::position() const
{
    return m_player->position();
}

qint64 Deck::duration() const
{
    return m_player->duration();
}

QMediaMetaData Deck::metaData() const
{
    return m_player->metaData();
}

double Deck::levelLeft() const
{
    return m_player->levelLeft();
}

double Deck::levelRight() const
{
    return m_player->levelRight();
}

bool Deck::levelValid() const
{
    return m_player->levelValid();
}

double Deck::effectiveTrackGain() const
{
    return cappedTrackGain(m_trackGain);
}

double Deck::cappedTrackGain(double requested) const
{
    // At full fade and unducked the output gets gain x master; it stops at 1.0.
    if (m_masterVolume <= 0.0)
        return requested;
    return std::min(requested, 1.0 / m_masterVolume);
}

void Deck::onFadeTick()
{
    const DeckFade::TickResult result = m_fade.tick();
    if (result.finished)
        m_fadeTimer->stop();
    if (result.stopPlayer)
        stop();
    applyVolume();
}

void Deck::setMix(double masterVolume, bool ducked)
{
    m_masterVolume = masterVolume;
    m_ducked = ducked;
    applyVolume();
}

void Deck::setTrackGain(double gain)
{
    m_trackGain = gain;
    applyVolume();
}

void Deck::applyVolume()
{
    m_player->setVolume(effectiveVolume(m_fade.gain * m_trackGain, m_masterVolume, m_ducked));
}

void Deck::setDevice(const QAudioDevice& device)
{
    m_player->setDevice(device);
}

QAudioDevice Deck::device() const
{
    return m_player->device();
}

double Deck::outputVolume() const
{
    return m_player->volume();
}

bool Deck::fading() const
{
    return m_fadeTimer->isActive();
}

qint64 Deck::playedMs() const
{
    return m_playedBeforeMs + (m_playingFor.isValid() ? m_playingFor.elapsed() : 0);
}

qint64 Deck::endAiring()
{
    const qint64 played = playedMs();
    m_airing = Airing::Ended;
    m_playedBeforeMs = 0;
    m_playingFor.invalidate();
    return played;
}

void Deck::onPlaybackState(QMediaPlayer::PlaybackState state)
{
    if (state == QMediaPlayer::PlayingState) {
        if (m_airing == Airing::Ended)
            m_airing = Airing::Pending; // resumed after its end was reported: heard anew
        if (m_airing == Airing::OnAir && !m_playingFor.isValid())
            m_playingFor.start();
        checkSounding();
    } else if (m_playingFor.isValid()) {
        m_playedBeforeMs += m_playingFor.elapsed();
        m_playingFor.invalidate();
    }
}

void Deck::onMediaStatus(QMediaPlayer::MediaStatus status)
{
    if (m_seekToMs > 0 && (status == QMediaPlayer::InvalidMedia || status == QMediaPlayer::NoMedia ||
                           status == QMediaPlayer::EndOfMedia))
        clearSeek();
    // A very short file can reach its end before it was seen playing; it was heard all the same.
    if (status == QMediaPlayer::EndOfMedia && m_airing == Airing::Pending && m_hasSource)
        announce();
    else
        checkSounding();
}

void Deck::clearSeek()
{
    if (m_seekToMs > 0)
        m_player->setMuted(false);
    m_seekToMs = -1;
}

void Deck::checkSeek(qint64 position)
{
    if (m_seekToMs <= 0 || !isPlaying())
        return;
    // Within a position report of the cue-in: there.
    if (position >= m_seekToMs - 150)
        clearSeek();
    else if (position > 0)
        m_player->setPosition(m_seekToMs);
}

void Deck::checkSounding()
{
    if (m_airing != Airing::Pending || !m_hasSource || !isPlaying() || m_seekToMs > 0)
        return;
    if (m_player->mediaStatus() == QMediaPlayer::BufferedMedia || m_player->position() > 0)
        announce();
}

void Deck::checkCueOut(qint64 position)
{
    if (m_cueOutMs < 1 || m_cueOutReported || !isPlaying())
        return;
    const qint64 remaining = m_cueOutMs - position;
    if (remaining <= 0) {
        m_cueOutTimer->stop();
        m_cueOutReported = true;
        emit cueOutReached();
    } else if (remaining < 150 && !m_cueOutTimer->isActive()) {
        // Positions arrive about every 100 ms: run the check at the point itself.
        m_cueOutTimer->start(int(remaining));
    }
}

void Deck::announce()
{
    m_airing = Airing::OnAir;
    m_playedBeforeMs = 0;
    m_playingFor.invalidate();
    if (isPlaying())
        m_playingFor.start();
    emit beganToSound(m_airingRow, m_airingTrack, QDateTime::currentDateTime());
}
