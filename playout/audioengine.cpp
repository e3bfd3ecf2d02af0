#include "audioengine.h"

#include "levelsource.h"
#include "mixrules.h"
#include "playoutlog.h"
#include "playlistmodel.h"
#include "trackparams.h"
#include "voiceoverrules.h"

#include <QAudioDevice>
#include <QAudioOutput>
#include <QFileInfo>
#include <QMediaDevices>
#include <QMediaMetaData>
#include <QRandomGenerator64>
#include <QSettings>
#include <QTimer>

#include <algorithm>

namespace {

constexpr int relayReconnectMs = 5000;
// A live relay whose position has not moved for this long is treated as lost.
constexpr qint64 relayStallMs = 5000;

// A little more than the player's interval between position reports.
constexpr qint64 positionReportMs = 150;

bool readBool(const char* key, bool fallback)
{
    return QSettings().value(QLatin1String(key), fallback).toBool();
}

int readInt(const char* key, int fallback)
{
    return QSettings().value(QLatin1String(key), fallback).toInt();
}

// The output whose description equals "audio/outputDevice" exactly; when none does (or the
// setting is empty), the system's default output.
QAudioDevice configuredOutputDevice()
{
    const QString wanted = QSettings().value(QStringLiteral("audio/outputDevice")).toString();
    if (!wanted.isEmpty()) {
        const QList<QAudioDevice> devices = QMediaDevices::audioOutputs();
        for (const QAudioDevice& candidate : devices) {
            if (candidate.description() == wanted)
                return candidate;
        }
    }
    return QMediaDevices::defaultAudioOutput();
}

// The gain a voiceover is played at: its level, allowed up to twice the music's.
float voiceoverGain(double level)
{
    return float(std::clamp(level, 0.0, 2.0));
}

} // namespace

AudioEngine::AudioEngine(QObject* parent) : QObject(parent)
{
    setupDeck(0);
    setupDeck(1);
    reloadSettings();
    m_streamLimitTimer = new QTimer(this);
    m_streamLimitTimer->setSingleShot(true);
    // A coarse timer may fire 5 % late, half a minute on a ten-minute limit.
    m_streamLimitTimer->setTimerType(Qt::PreciseTimer);
    connect(m_streamLimitTimer, &QTimer::timeout, this, [this] {
        emit logMessage(PlayoutLog::streamLimit);
        next();
    });
    m_voiceoversEnabled = voiceoversEnabledSetting();
    m_reconnectTimer = new QTimer(this);
    m_reconnectTimer->setInterval(relayReconnectMs);
    connect(m_reconnectTimer, &QTimer::timeout, this, &AudioEngine::reconnectRelay);
    m_relayStallTimer = new QTimer(this);
    m_relayStallTimer->setInterval(500);
    connect(m_relayStallTimer, &QTimer::timeout, this, &AudioEngine::checkRelayStall);
    m_mixPointTimer = new QTimer(this);
    m_mixPointTimer->setSingleShot(true);
    m_mixPointTimer->setTimerType(Qt::PreciseTimer);
    connect(m_mixPointTimer, &QTimer::timeout, this,
            [this] { checkMix(m_decks[m_currentDeck].player->position()); });
}

void AudioEngine::setupDeck(int index)
{
    Deck& deck = m_decks[index];
    deck.player = new QMediaPlayer(this);
    deck.output = new QAudioOutput(this);
    deck.player->setAudioOutput(deck.output);
    deck.bufferOutput = new LevelSource(deck.player, this);
    deck.fadeTimer = new QTimer(this);
    deck.fadeTimer->setInterval(DeckFade::tickMs);
    // Fades are heard: keep the steps even rather than coalesced with other timers.
    deck.fadeTimer->setTimerType(Qt::PreciseTimer);

    connect(deck.fadeTimer, &QTimer::timeout, this, [this, index] { onFadeTick(index); });
    connect(deck.bufferOutput, &LevelSource::bufferReady, this,
            [this, index](const QAudioBuffer& buffer) { onDeckBuffer(index, buffer); });
    connect(deck.player, &QMediaPlayer::positionChanged, this,
            [this, index](qint64 position) { onDeckPosition(index, position); });
    connect(deck.player, &QMediaPlayer::durationChanged, this, [this, index](qint64 duration) {
        if (index == m_currentDeck)
            emit durationChanged(duration);
    });
    connect(deck.player, &QMediaPlayer::playbackStateChanged, this,
            [this](QMediaPlayer::PlaybackState) { emit playingChanged(isPlaying()); });
    connect(deck.player, &QMediaPlayer::mediaStatusChanged, this,
            [this, index](QMediaPlayer::MediaStatus status) { onMediaStatus(index, status); });
    connect(deck.player, &QMediaPlayer::errorOccurred, this, &AudioEngine::onPlayerError);
    connect(deck.player, &QMediaPlayer::metaDataChanged, this, [this, index] { onMetaData(index); });
}

void AudioEngine::setPlaylist(PlaylistModel* model)
{
    for (const QMetaObject::Connection& c : std::as_const(m_playlistConnections))
        disconnect(c);
    m_playlistConnections.clear();
    m_playlist = model;
    if (!model)
        return;
    m_playlistConnections << connect(
        model, &QAbstractItemModel::rowsInserted, this,
        [this](const QModelIndex&, int first, int last) { onRowsInserted(first, last); });
    m_playlistConnections << connect(
        model, &QAbstractItemModel::rowsRemoved, this,
        [this](const QModelIndex&, int first, int last) { onRowsRemoved(first, last); });
}

void AudioEngine::onRowsInserted(int first, int last)
{
    if (m_currentRow >= std::max(first, 0))
        m_currentRow += last - first + 1;
}

void AudioEngine::onRowsRemoved(int first, int last)
{
    if (m_currentRow < 0)
        return;
    if (last < m_currentRow)
        m_currentRow -= last - first + 1;
    else if (first <= m_currentRow)
        m_currentRow = std::max(first - 1, 0);
}

bool AudioEngine::isPlaying() const
{
    return m_decks[m_currentDeck].player->playbackState() == QMediaPlayer::PlayingState;
}

qint64 AudioEngine::position() const
{
    return m_decks[m_currentDeck].player->position();
}

qint64 AudioEngine::duration() const
{
    return m_decks[m_currentDeck].player->duration();
}

double AudioEngine::deckGain(int deck) const
{
    return m_decks[deck & 1].fade.gain;
}

double AudioEngine::deckOutputVolume(int deck) const
{
    return m_decks[deck & 1].output->volume();
}

bool AudioEngine::deckFading(int deck) const
{
    return m_decks[deck & 1].fadeTimer->isActive();
}

QMediaPlayer::PlaybackState AudioEngine::deckState(int deck) const
{
    return m_decks[deck & 1].player->playbackState();
}

int AudioEngine::deckRow(int deck) const
{
    return m_decks[deck & 1].row;
}

QString AudioEngine::outputDeviceDescription() const
{
    return m_decks[0].output->device().description();
}

QString AudioEngine::relayOutputDeviceDescription() const
{
    return m_relayOutput ? m_relayOutput->device().description() : QString();
}

int AudioEngine::streamTimeLeftMs() const
{
    return m_streamLimitTimer->isActive() ? m_streamLimitTimer->remainingTime() : -1;
}

void AudioEngine::reloadSettings()
{
    m_hasOutputDevice = !QMediaDevices::audioOutputs().isEmpty();
    m_outputDevice = configuredOutputDevice();
    for (Deck& deck : m_decks)
        deck.output->setDevice(m_outputDevice);

    m_volume = readInt("audio/defaultVolume", 80) / 100.0;
    m_crossfadeEnabled = readBool("playback/crossfadeEnabled", false);
    m_fadeInMs = readInt("playback/fadeInMs", 1500);
    m_fadeOutMs = readInt("playback/fadeOutMs", 2500);
    m_autoPlayNext = readBool("playback/autoPlayNext", true);
    m_minCrossfadeMs = readInt("playback/minCrossfadeMs", 45000);
    m_mix = MixSettings::fromSettings();
    applyBothDecks();
}

QString AudioEngine::displayText(const Track& track)
{
    if (!track.artist.isEmpty() && !track.title.isEmpty())
        return track.artist + QStringLiteral(" - ") + track.title;
    if (!track.title.isEmpty())
        return track.title;
    return track.filePath;
}

bool AudioEngine::isValidRow(int row) const
{
    return m_playlist && row >= 0 && row < m_playlist->rowCount();
}

bool AudioEngine::isCommandRow(int row) const
{
    return isValidRow(row) && m_playlist->tracks().at(row).isCommand;
}

void AudioEngine::playRow(int row)
{
    if (!isValidRow(row))
        return;
    m_currentRow = row;
    m_current = m_playlist->tracks().at(row);
    m_playlist->setCurrentRow(row);
    m_mixTriggered = false;
    m_streamLimitTimer->stop();
    m_mixPointTimer->stop();

    emit currentRowChanged(row);
    m_lastStreamTitle.clear();
    armVoiceover();
    emit nowPlaying(m_current);

    if (m_current.isCommand) {
        const QString command = m_current.command.toLower();
        if (command == QLatin1String("stop")) {
            stopBothDecks();
            emit playingChanged(false);
            emit logMessage(PlayoutLog::stopCommand);
        } else if (command == QLatin1String("pause")) {
            m_decks[m_currentDeck].player->pause();
            emit logMessage(PlayoutLog::pauseCommand);
        } else {
            emit logMessage(PlayoutLog::command + command);
        }
        return;
    }

    emit logMessage(displayText(m_current));
    m_lastEndedRow = -1;
    if (!m_hasOutputDevice) {
        emit logMessage(PlayoutLog::noDevice);
        return;
    }

    if (!m_crossfadeEnabled || !isPlaying()) {
        stopBothDecks();
        startOnDeck(m_currentDeck, row, m_crossfadeEnabled);
    } else {
        fadeTo(m_currentDeck, 0.0, m_fadeOutMs, true);
        m_currentDeck = 1 - m_currentDeck;
        startOnDeck(m_currentDeck, row, true);
    }

    if (m_current.isStream && m_current.streamLimitMs >= 1)
        m_streamLimitTimer->start(int(std::min<qint64>(m_current.streamLimitMs, INT_MAX)));
}

void AudioEngine::startOnDeck(int index, int row, bool fadeIn)
{
    Deck& deck = m_decks[index];
    deck.row = row;
    deck.fadeTimer->stop();
    deck.fade.stopAfterFade = false;

    QUrl source;
    if (m_current.isStream && !m_current.filePath.isEmpty())
        source = QUrl::fromUserInput(m_current.filePath);
    else if (!m_current.isStream && !m_current.filePath.isEmpty() && QFileInfo::exists(m_current.filePath))
        source = QUrl::fromLocalFile(m_current.filePath);

    // Setting the source just before playing keeps the sound server from buffering seconds of
    // audio at a stale volume.
    if (deck.player->source() == source)
        deck.player->setPosition(0);
    else
        deck.player->setSource(source);

    if (fadeIn) {
        deck.fade.gain = 0.0;
        applyDeckVolume(index);
        deck.player->play();
        fadeTo(index, 1.0, m_fadeInMs, false);
    } else {
        deck.fade.gain = 1.0;
        applyDeckVolume(index);
        deck.player->play();
    }
}

void AudioEngine::stopDeck(int index)
{
    m_decks[index].fadeTimer->stop();
    m_decks[index].player->stop();
}

void AudioEngine::stopBothDecks()
{
    stopDeck(0);
    stopDeck(1);
}

void AudioEngine::play()
{
    if (isCommandRow(m_currentRow)) {
        next(); // Play steps over a STOP or PAUSE row
        return;
    }
    if (!m_hasOutputDevice) {
        emit logMessage(PlayoutLog::noDevice);
        return;
    }
    QMediaPlayer* player = m_decks[m_currentDeck].player;
    if (player->source().isEmpty()) {
        if (m_playlist && m_playlist->rowCount() > 0)
            playRow(std::max(m_currentRow, 0));
        return;
    }
    player->play();
}

void AudioEngine::pause()
{
    m_decks[m_currentDeck].player->pause();
}

void AudioEngine::togglePause()
{
    if (isPlaying())
        m_decks[m_currentDeck].player->pause();
    else
        m_decks[m_currentDeck].player->play();
}

void AudioEngine::stop()
{
    stopVoiceover();
    m_streamLimitTimer->stop();
    m_mixPointTimer->stop();
    stopBothDecks();
    emit logMessage(PlayoutLog::stop);
}

void AudioEngine::next()
{
    if (!m_playlist)
        return;
    if (!m_playlist->queue().isEmpty()) {
        const int row = m_playlist->takeNextQueued();
        if (row >= 0) {
            const Track& track = m_playlist->tracks().at(row);
            const QString text = track.isCommand
                                     ? QStringLiteral(">> ") + track.command.toUpper() + QStringLiteral(" <<")
                                     : displayText(track);
            emit logMessage(PlayoutLog::queue + text);
            playRow(row);
            return;
        }
    }
    const int count = m_playlist->rowCount();
    int row = m_currentRow + 1;
    if (m_shuffle && count > 1) {
        for (int draw = 0; draw < 8; ++draw) {
            row = int(QRandomGenerator64::global()->bounded(qint64(count)));
            if (row != m_currentRow)
                break;
        }
    } else if (row >= count) {
        stop();
        return;
    }
    playRow(row);
}

void AudioEngine::previous()
{
    if (m_playlist && m_currentRow - 1 >= 0)
        playRow(m_currentRow - 1);
}

void AudioEngine::setVolume(int percent)
{
    m_volume = std::clamp(percent, 0, 100) / 100.0;
    applyBothDecks();
    // The relay follows the master volume (not the ducking), so the fader works while live.
    if (m_relayOutput)
        m_relayOutput->setVolume(float(m_volume));
}

void AudioEngine::setPosition(qint64 ms)
{
    m_decks[m_currentDeck].player->setPosition(ms);
}

void AudioEngine::setDucked(bool ducked)
{
    if (ducked == m_ducked)
        return;
    m_ducked = ducked;
    applyBothDecks();
}

void AudioEngine::setFadeOutMs(int ms)
{
    ms = std::max(ms, 0);
    m_fadeOutMs = ms;
    m_mix.fadeOutMs = ms;
}

void AudioEngine::setShuffle(bool on)
{
    m_shuffle = on;
}

void AudioEngine::applyDeckVolume(int index)
{
    Deck& deck = m_decks[index & 1];
    deck.output->setVolume(float(effectiveVolume(deck.fade.gain, m_volume, m_ducked)));
}

void AudioEngine::applyBothDecks()
{
    applyDeckVolume(0);
    applyDeckVolume(1);
}

void AudioEngine::fadeTo(int index, double target, int ms, bool stopAtEnd)
{
    Deck& deck = m_decks[index & 1];
    const DeckFade::StartResult result = deck.fade.start(target, ms, stopAtEnd);
    if (ms <= 0) {
        applyDeckVolume(index);
        if (result.stopPlayer)
            stopDeck(index);
        return;
    }
    if (result.runTimer)
        deck.fadeTimer->start();
    else
        applyDeckVolume(index);
}

void AudioEngine::onFadeTick(int index)
{
    Deck& deck = m_decks[index];
    const DeckFade::TickResult result = deck.fade.tick();
    if (result.finished)
        deck.fadeTimer->stop();
    if (result.stopPlayer)
        stopDeck(index);
    applyDeckVolume(index);
}

void AudioEngine::onDeckBuffer(int index, const QAudioBuffer& buffer)
{
    const PeakLevels peaks = peakLevels(buffer);
    if (!peaks.valid)
        return;
    Deck& deck = m_decks[index];
    const double factor = deck.fade.gain * m_volume * (m_ducked ? duckFactor : 1.0);
    deck.levelLeft = peaks.left * factor;
    deck.levelRight = peaks.right * factor;
    deck.levelValid = true;
    emit levels(std::max(m_decks[0].levelLeft, m_decks[1].levelLeft),
                std::max(m_decks[0].levelRight, m_decks[1].levelRight));
    if (index == m_currentDeck)
        emit audioBufferReady(buffer);
}

void AudioEngine::onDeckPosition(int index, qint64 position)
{
    if (index != m_currentDeck)
        return;
    emit positionChanged(position);
    checkVoiceover(position);
    checkMix(position);
}

void AudioEngine::checkMix(qint64 position)
{
    if (m_mixTriggered || !m_autoPlayNext)
        return;
    const Deck& deck = m_decks[m_currentDeck];
    const qint64 duration = deck.player->duration();
    const qint64 remaining = duration - position;
    // Without crossfade nothing mixes; skip loading the track's parameters ten times a second.
    if (!m_crossfadeEnabled || duration < 1)
        return;

    int trackMix = -1;
    int trackFadeOut = -1;
    int rowMix = -1;
    int rowFadeOut = -1;
    if (isValidRow(m_currentRow)) {
        const TrackParams params = TrackParams::load(m_current.filePath);
        trackMix = params.mix;
        trackFadeOut = params.fadeOut;
        const PlaylistModel::MixOverride override = m_playlist->rowMixOverride(m_currentRow);
        rowMix = override.first;
        rowFadeOut = override.second;
    }
    MixSettings settings = effectiveMixSettings(m_mix, trackMix, trackFadeOut, rowMix, rowFadeOut);
    settings.crossfadeEnabled = m_crossfadeEnabled;

    const bool levelValid = deck.levelValid;
    const double levelDb = levelValid ? toDb(std::max(deck.levelLeft, deck.levelRight)) : -100.0;
    if (!shouldMix(settings, duration, remaining, levelDb, levelValid)) {
        const qint64 untilMixPoint = remaining - settings.mixPointMs;
        if (untilMixPoint > 0 && untilMixPoint < positionReportMs && isPlaying())
            m_mixPointTimer->start(int(untilMixPoint));
        return;
    }

    const bool fromQueue = !m_playlist->queue().isEmpty();
    const int nextRow = fromQueue ? m_playlist->queue().first() : m_currentRow + 1;
    // A STOP or other command row is reached by the end of the track, not mixed into.
    if (!isValidRow(nextRow) || isCommandRow(nextRow))
        return;

    m_mixTriggered = true;
    if (settings.fadeOutOnMix && settings.fadeOutMs > 0)
        fadeTo(m_currentDeck, 0.0, settings.fadeOutMs, true);
    if (fromQueue)
        m_playlist->takeNextQueued();
    playRow(nextRow);
}

void AudioEngine::onMediaStatus(int index, QMediaPlayer::MediaStatus status)
{
    if (status != QMediaPlayer::EndOfMedia)
        return;
    if (index != m_currentDeck) {
        stopDeck(index); // the outgoing deck of a crossfade
        return;
    }
    if (m_current.isCommand || m_lastEndedRow == m_currentRow)
        return;
    m_lastEndedRow = m_currentRow;
    emit logMessage(PlayoutLog::endOfTrack + displayText(m_current));
    if (m_autoPlayNext)
        next();
    else
        stop();
}

void AudioEngine::onPlayerError(QMediaPlayer::Error, const QString& errorString)
{
    if (!errorString.isEmpty())
        emit logMessage(PlayoutLog::playbackError + errorString);
}

void AudioEngine::onMetaData(int index)
{
    if (!m_current.isStream || index != m_currentDeck)
        return;
    const QMediaMetaData data = m_decks[index].player->metaData();
    const QString title = data.value(QMediaMetaData::Title).toString().trimmed();
    const QString artist = data.value(QMediaMetaData::ContributingArtist).toString().trimmed();
    if (title.isEmpty())
        return;
    const QString text =
        !artist.isEmpty() && !title.contains(artist) ? artist + QStringLiteral(" - ") + title : title;
    if (text == m_lastStreamTitle)
        return;
    m_lastStreamTitle = text;
    emit streamMetadata(text);
    emit logMessage(PlayoutLog::streamMetadata + text);
}

void AudioEngine::setVoiceoverEnabled(bool enabled)
{
    m_voiceoversEnabled = enabled;
}

bool AudioEngine::voiceoverPlaying() const
{
    return m_voiceoverPlayer && m_voiceoverPlayer->playbackState() == QMediaPlayer::PlayingState;
}

void AudioEngine::armVoiceover()
{
    m_voiceoverArmed = false;
    if (m_voiceoverPlayer)
        m_voiceoverPlayer->stop();
    if (!m_voiceoversEnabled || m_current.isCommand || m_current.isStream || m_current.filePath.isEmpty())
        return;
    const TrackParams params = TrackParams::load(m_current.filePath);
    if (params.voiceoverIns < 1 || params.voiceoverSource.isEmpty())
        return;
    const int r = int(QRandomGenerator64::global()->bounded(100));
    if (!shouldPlayVoiceover(params, QDate::currentDate(), r))
        return;
    const QString file =
        chooseVoiceoverFile(params.voiceoverSource, QRandomGenerator64::global()->generate());
    if (file.isEmpty())
        return;

    m_voiceoverFile = file;
    m_voiceoverLevel = params.voiceoverLevel;
    m_voiceoverInsertAt = voiceoverInsertPoint(params, 0);
    m_voiceoverArmed = true;

    if (!m_voiceoverPlayer) {
        m_voiceoverPlayer = new QMediaPlayer(this);
        m_voiceoverOutput = new QAudioOutput(this);
        m_voiceoverPlayer->setAudioOutput(m_voiceoverOutput);
        connect(m_voiceoverPlayer, &QMediaPlayer::durationChanged, this, &AudioEngine::onVoiceoverDuration);
    }
    m_voiceoverOutput->setDevice(m_outputDevice);
    m_voiceoverOutput->setVolume(voiceoverGain(m_voiceoverLevel));
    m_voiceoverPlayer->setSource(QUrl::fromLocalFile(file));
    emit logMessage(PlayoutLog::voiceoverArmed + QFileInfo(file).fileName());
}

void AudioEngine::onVoiceoverDuration(qint64 durationMs)
{
    // Placement "end at the insert point" needs the real length, known only now.
    if (!m_voiceoverArmed || durationMs < 1)
        return;
    m_voiceoverInsertAt = voiceoverInsertPoint(TrackParams::load(m_current.filePath), durationMs);
}

void AudioEngine::checkVoiceover(qint64 position)
{
    if (!m_voiceoverArmed || m_voiceoverFile.isEmpty() || !m_voiceoverPlayer ||
        m_voiceoverInsertAt > position)
        return;
    m_voiceoverArmed = false;
    m_voiceoverOutput->setVolume(voiceoverGain(m_voiceoverLevel));
    // A source loaded seconds ahead is heard only about two seconds after play() with the sound
    // server here; loading it afresh starts it at once. Arming loaded it to learn its length.
    m_voiceoverPlayer->setSource(QUrl());
    m_voiceoverPlayer->setSource(QUrl::fromLocalFile(m_voiceoverFile));
    m_voiceoverPlayer->setPosition(0);
    m_voiceoverPlayer->play();
    emit logMessage(PlayoutLog::voiceover + QFileInfo(m_voiceoverFile).fileName());
}

void AudioEngine::stopVoiceover()
{
    m_voiceoverArmed = false;
    if (m_voiceoverPlayer)
        m_voiceoverPlayer->stop();
}

void AudioEngine::startRelay(const QString& sourceText)
{
    const QString source = sourceText.trimmed();
    if (source.isEmpty())
        return;
    if (m_relayActive)
        stopRelay();

    m_resumeAfterRelay = isPlaying();
    if (m_resumeAfterRelay)
        m_decks[m_currentDeck].player->pause();

    releaseRelayPlayer();
    m_relayLive = false;
    // Read now, not from the last reloadSettings: the relay goes to the device configured at its
    // start, and every reconnection attempt keeps it.
    m_relayDevice = configuredOutputDevice();
    createRelayPlayer(source);
    m_relayActive = true;
    m_relaySource = source;
    emit logMessage(PlayoutLog::relayStarting + source);
    // Also a connection time-out: a server that never answers changes no status at all.
    m_reconnectTimer->start();
}

void AudioEngine::createRelayPlayer(const QString& source)
{
    m_relayPlayer = new QMediaPlayer(this);
    m_relayOutput = new QAudioOutput(this);
    m_relayOutput->setDevice(m_relayDevice);
    m_relayOutput->setVolume(float(m_volume));
    m_relayPlayer->setAudioOutput(m_relayOutput);
    m_relayLevels = new LevelSource(m_relayPlayer, this);
    connect(m_relayLevels, &LevelSource::bufferReady, this, &AudioEngine::onRelayBuffer);
    connect(m_relayPlayer, &QMediaPlayer::mediaStatusChanged, this, &AudioEngine::onRelayStatus);
    connect(m_relayPlayer, &QMediaPlayer::errorOccurred, this,
            [this](QMediaPlayer::Error, const QString& text) { emit logMessage(PlayoutLog::relayError + text); });
    connect(m_relayPlayer, &QMediaPlayer::positionChanged, this, [this](qint64 position) {
        if (position != m_relayLastPosition) {
            m_relayLastPosition = position;
            m_relaySincePositionMoved.restart();
        }
    });
    m_relayAttemptLost = false;
    m_relayPlayer->setSource(QUrl::fromUserInput(source));
    m_relayPlayer->play();
}

void AudioEngine::releaseRelayPlayer()
{
    m_relayStallTimer->stop();
    if (m_relayPlayer) {
        QMediaPlayer* player = m_relayPlayer;
        QAudioOutput* output = m_relayOutput;
        LevelSource* levels = m_relayLevels;
        player->disconnect(this);
        levels->disconnect(this);
        output->setMuted(true);
        const auto dispose = [player, output, levels] {
            player->deleteLater();
            output->deleteLater();
            levels->deleteLater();
        };
        if (player->mediaStatus() == QMediaPlayer::LoadingMedia) {
            // Tearing down an attempt that still waits for the server blocks this thread for
            // about a second in the backend; let it run into its own time-out first.
            connect(player, &QMediaPlayer::mediaStatusChanged, output, [player, dispose] {
                if (player->mediaStatus() != QMediaPlayer::LoadingMedia)
                    dispose();
            });
        } else {
            player->stop();
            dispose();
        }
    }
    m_relayPlayer = nullptr;
    m_relayOutput = nullptr;
    m_relayLevels = nullptr;
}

void AudioEngine::stopRelay()
{
    if (!m_relayActive)
        return;
    m_relayActive = false;
    m_relayLive = false;
    m_reconnectTimer->stop();
    releaseRelayPlayer();
    emit relayStateChanged(false, m_relaySource, false);
    emit logMessage(PlayoutLog::relayStopped);
    if (QSettings().value(QStringLiteral("relay/startNextOnStop"), false).toBool())
        next();
    else if (m_resumeAfterRelay && !isPlaying())
        m_decks[m_currentDeck].player->play();
}

void AudioEngine::onRelayStatus(QMediaPlayer::MediaStatus status)
{
    if (!m_relayActive)
        return;
    switch (status) {
    case QMediaPlayer::NoMedia:
    case QMediaPlayer::StalledMedia:
    case QMediaPlayer::EndOfMedia:
    case QMediaPlayer::InvalidMedia:
        relayStreamLost();
        break;
    case QMediaPlayer::LoadedMedia:
    case QMediaPlayer::BufferedMedia:
        if (!m_relayLive)
            relayGoesLive();
        break;
    default:
        break;
    }
}

void AudioEngine::relayGoesLive()
{
    m_relayLive = true;
    m_reconnectTimer->stop();
    for (Deck& deck : m_decks) {
        if (deck.player->playbackState() == QMediaPlayer::PlayingState)
            deck.player->pause();
    }
    m_relayLastPosition = -1;
    m_relaySincePositionMoved.restart();
    m_relayStallTimer->start();
    emit relayStateChanged(true, m_relaySource, true);
    emit logMessage(PlayoutLog::relayLive);
}

void AudioEngine::relayStreamLost()
{
    m_relayLive = false;
    m_relayAttemptLost = true;
    m_relayStallTimer->stop();
    if (m_resumeAfterRelay && isValidRow(m_currentRow) && !isPlaying())
        m_decks[m_currentDeck].player->play();
    if (!m_reconnectTimer->isActive())
        m_reconnectTimer->start();
    emit relayStateChanged(true, m_relaySource, false);
    emit logMessage(PlayoutLog::relayLost);
}

void AudioEngine::reconnectRelay()
{
    if (!m_relayActive || m_relayLive || !m_relayPlayer)
        return;
    // An attempt that is not live five seconds later and has reported nothing (a server that
    // never answers changes no status) has failed as well: the playlist gets the air back first.
    if (!m_relayAttemptLost)
        relayStreamLost();
    emit logMessage(PlayoutLog::relayReconnecting);
    // A fresh player per attempt: the same URL set again would be ignored by the old one.
    releaseRelayPlayer();
    createRelayPlayer(m_relaySource);
}

void AudioEngine::checkRelayStall()
{
    if (!m_relayActive || !m_relayLive)
        return;
    if (m_relaySincePositionMoved.isValid() && m_relaySincePositionMoved.elapsed() >= relayStallMs)
        relayStreamLost();
}

void AudioEngine::onRelayBuffer(const QAudioBuffer& buffer)
{
    const PeakLevels peaks = peakLevels(buffer);
    if (!peaks.valid)
        return;
    emit levels(peaks.left * m_volume, peaks.right * m_volume);
    if (m_relayLive)
        emit audioBufferReady(buffer);
}
