#include "audioengine.h"

#include "deck.h"
#include "deckpair.h"
#include "mixrules.h"
#include "mixstep.h"
#include "outputdevice.h"
#include "outputrouter.h"
#include "outputfollower.h"
#include "playlistmodel.h"
#include "playoutlog.h"
#include "playoutlogging.h"
#include "playoutsequencer.h"
#include "relay.h"
#include "rowstart.h"
#include "settingkeys.h"
#include "streamtitle.h"
#include "trackinfocache.h"
#include "tracktext.h"
#include "voiceoverplayer.h"
#include "voiceoverrules.h"

#include <QAudioDevice>
#include <QFileInfo>
#include <QMediaDevices>
#include <QMediaMetaData>
#include <QTimer>

#include <algorithm>

namespace {

// Where a row's audio comes from; empty for a file that is not there (the deck then reports no
// media and the playlist waits).
QUrl sourceOf(const Track& track)
{
    if (track.filePath.isEmpty())
        return QUrl();
    if (track.isStream)
        return QUrl::fromUserInput(track.filePath);
    return QFileInfo::exists(track.filePath) ? QUrl::fromLocalFile(track.filePath) : QUrl();
}

} // namespace

AudioEngine::AudioEngine(QObject* parent) : QObject(parent)
{
    // For queued connections and QSignalSpy on the typed signals.
    qRegisterMetaType<TrackEndReason>("TrackEndReason");
    qRegisterMetaType<RelayState>("RelayState");

    m_router = new OutputRouter(this);
    m_sequencer = new PlayoutSequencer(this, this);
    m_info = new TrackInfoCache(this);
    m_decks = new DeckPair(m_router, this);
    connect(m_decks, &DeckPair::airingEnded, this, &AudioEngine::trackEnded);
    setupDeck(0);
    setupDeck(1);
    m_voiceover = new VoiceoverPlayer(this, m_router);
    m_relay = new Relay(this, m_router);
    m_output = new OutputFollower(m_router, m_relay, this);
    m_output->setDecks({m_decks->at(0), m_decks->at(1)});
    connect(m_output, &OutputFollower::logLine, this, &AudioEngine::logMessage);
    connect(m_relay, &Relay::levelFell, this, &AudioEngine::emitDeckLevels);
    connect(m_relay, &Relay::stateChanged, this,
            [this](RelayState state) { emit relayStatusChanged(state, m_relay->source()); });
    connect(m_relay, &Relay::wentLive, this, &AudioEngine::onRelayLive);
    connect(m_relay, &Relay::lost, this, &AudioEngine::onRelayLost);
    connect(m_relay, &Relay::reconnecting, this, [this] { emit logMessage(PlayoutLog::relayReconnecting); });
    connect(m_relay, &Relay::errorOccurred, this,
            [this](const QString& text) { emit logMessage(PlayoutLog::relayError + text); });
    connect(m_relay, &Relay::bufferReady, this, &AudioEngine::onRelayBuffer);
    connect(m_relay, &Relay::metadataChanged, this, [this](const QString& text) {
        emit streamMetadata(text);
        emit logMessage(PlayoutLog::streamMetadata + text);
    });

    reloadSettings();
    m_streamLimitTimer = new QTimer(this);
    m_streamLimitTimer->setSingleShot(true);
    // A coarse timer may fire 5 % late, half a minute on a ten-minute limit.
    m_streamLimitTimer->setTimerType(Qt::PreciseTimer);
    connect(m_streamLimitTimer, &QTimer::timeout, this, [this] {
        emit logMessage(PlayoutLog::streamLimit);
        // The planned end of a stream entry, as a cue-out is for a file.
        m_decks->endAiring(m_decks->currentIndex(), TrackEndReason::End);
        next();
    });
    m_voiceover->setEnabled(voiceoversEnabledSetting());
    m_mixPointTimer = new QTimer(this);
    m_mixPointTimer->setSingleShot(true);
    m_mixPointTimer->setTimerType(Qt::PreciseTimer);
    connect(m_mixPointTimer, &QTimer::timeout, this,
            [this] { checkMix(m_decks->current()->position()); });
}

void AudioEngine::setupDeck(int index)
{
    Deck* deck = m_decks->at(index);
    connect(deck, &Deck::levelMeasured, this,
            [this, index](const QAudioBuffer& buffer) { onDeckLevel(index, buffer); });
    connect(deck, &Deck::beganToSound, this, [this](int row, const Track& track, const QDateTime& startedAt) {
        m_sequencer->rowSounded(row);
        emit trackStarted(row, track, startedAt);
    });
    connect(deck, &Deck::cueOutReached, this, [this, index] { onTrackEnd(index); });
    connect(deck, &Deck::loadTimedOut, this, [this, index] {
        if (index == m_decks->currentIndex())
            m_sequencer->currentRowLoadTimedOut();
    });
    connect(deck, &Deck::levelFell, this, &AudioEngine::emitDeckLevels);
    connect(deck, &Deck::positionChanged, this,
            [this, index](qint64 position) { onDeckPosition(index, position); });
    connect(deck, &Deck::durationChanged, this, [this, index](qint64 duration) {
        if (index == m_decks->currentIndex())
            emit durationChanged(duration);
    });
    connect(deck, &Deck::playbackStateChanged, this,
            [this](QMediaPlayer::PlaybackState) { emit playingChanged(isPlaying()); });
    connect(deck, &Deck::mediaStatusChanged, this,
            [this, index](QMediaPlayer::MediaStatus status) { onMediaStatus(index, status); });
    connect(deck, &Deck::errorOccurred, this, &AudioEngine::onPlayerError);
    connect(deck, &Deck::metaDataChanged, this, [this, index] { onMetaData(index); });
}

PlaylistModel* AudioEngine::playlist() const
{
    return m_playlist;
}

void AudioEngine::setPlaylist(PlaylistModel* model)
{
    for (const QMetaObject::Connection& c : std::as_const(m_playlistConnections))
        disconnect(c);
    m_playlistConnections.clear();
    m_playlist = model;
    m_sequencer->setPlaylist(model);
    m_info->watch(model);
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
    // The current row follows its identity; only the decks' reported rows are renumbered here.
    m_decks->rowsInserted(first, last);
}

void AudioEngine::onRowsRemoved(int first, int last)
{
    m_decks->rowsRemoved(first, last);
    // Rows above the current one are followed by its identity; when the current row itself went,
    // the row above the gap stands in for it.
    const qint64 id = m_sequencer->currentRowId();
    if (id > 0 && m_playlist && m_playlist->rowOfId(id) < 0)
        m_sequencer->setCurrentRow(std::max(first - 1, 0));
}

qint64 AudioEngine::currentRowId() const
{
    return m_sequencer->currentRowId();
}

int AudioEngine::currentRow() const
{
    return m_sequencer->currentRow();
}

bool AudioEngine::isShuffle() const
{
    return m_sequencer->isShuffle();
}

void AudioEngine::setSkipUnplayableRows(bool on)
{
    m_sequencer->setSkipUnplayableRows(on);
}

bool AudioEngine::skipsUnplayableRows() const
{
    return m_sequencer->skipsUnplayableRows();
}

void AudioEngine::setSilentRowLimits(int fileMs, int streamMs)
{
    m_sequencer->setSilentLimits(fileMs, streamMs);
}

bool AudioEngine::isWaitingForSound() const
{
    return m_sequencer->isWaitingForSound();
}

bool AudioEngine::isPlaying() const
{
    return m_decks->current()->isPlaying();
}

qint64 AudioEngine::position() const
{
    return m_decks->current()->position();
}

qint64 AudioEngine::duration() const
{
    return m_decks->current()->duration();
}

qint64 AudioEngine::effectiveDuration() const
{
    const qint64 fileDuration = duration();
    if (m_plan.endMs <= 0)
        return fileDuration;
    return fileDuration > 0 ? std::min(m_plan.endMs, fileDuration) : m_plan.endMs;
}

double AudioEngine::deckGain(int deck) const
{
    return m_decks->at(deck)->gain();
}

double AudioEngine::deckOutputVolume(int deck) const
{
    return m_decks->at(deck)->outputVolume();
}

bool AudioEngine::deckFading(int deck) const
{
    return m_decks->at(deck)->fading();
}

QMediaPlayer::PlaybackState AudioEngine::deckState(int deck) const
{
    return m_decks->at(deck)->state();
}

int AudioEngine::deckRow(int deck) const
{
    return m_decks->at(deck)->row();
}

QString AudioEngine::outputDeviceDescription() const
{
    return m_decks->at(0)->device().description();
}

QString AudioEngine::relayOutputDeviceDescription() const
{
    return m_relay->outputDeviceDescription();
}

int AudioEngine::streamTimeLeftMs() const
{
    return m_streamLimitTimer->isActive() ? m_streamLimitTimer->remainingTime() : -1;
}

bool AudioEngine::voiceoverArmed() const
{
    return m_voiceover->isArmed();
}

qint64 AudioEngine::voiceoverInsertAt() const
{
    return m_voiceover->insertAt();
}

QString AudioEngine::voiceoverFile() const
{
    return m_voiceover->file();
}

bool AudioEngine::voiceoversEnabled() const
{
    return m_voiceover->isEnabled();
}

bool AudioEngine::isRelayLive() const
{
    return m_relay->isLive();
}

bool AudioEngine::isRelaying() const
{
    return m_relay->isActive();
}

QString AudioEngine::relaySource() const
{
    return m_relay->source();
}

RelayState AudioEngine::relayState() const
{
    return m_relay->state();
}

void AudioEngine::reloadSettings()
{
    m_output->reload();

    m_volume = Settings::defaultVolume.read() / 100.0;
    m_fadeInMs = Settings::fadeInMs.read();
    m_autoPlayNext = Settings::autoPlayNext.read();
    m_loadLimitMs = Settings::loadLimitMs.read();
    // Crossfade on/off, fade-out and the shortest mixed track live in the mix rules alone. Cue
    // points and loudness are read when a row is taken, not here.
    m_mix = MixSettings::fromSettings();
    m_sequencer->reloadSettings();
    m_decks->setMix(m_volume, m_ducked);
}

void AudioEngine::setCrossfadeEnabled(bool on)
{
    m_mix.crossfadeEnabled = on;
}

int AudioEngine::currentDeck() const
{
    return m_decks->currentIndex();
}

bool AudioEngine::hasOutputDevice() const
{
    return m_output->hasOutput();
}

int AudioEngine::nextRow() const
{
    return m_sequencer->nextRow();
}

QString AudioEngine::displayText(const Track& track)
{
    return trackDisplayText(track);
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
    m_sequencer->playRow(row);
}

void AudioEngine::takeRow(int row)
{
    if (!isValidRow(row))
        return;
    m_current = m_playlist->tracks().at(row);
    m_playlist->setCurrentRow(row);
    m_mixTriggered = false;
    m_streamLimitTimer->stop();
    m_mixPointTimer->stop();
    // Taken once here, never from a server that may not answer: the mix check and the voiceover
    // use these until the next row is taken.
    const RowStart start = readRowStart(m_current, *m_info);
    m_useCuePoints = start.useCuePoints;
    m_normalizeLoudness = start.normalizeLoudness;
    m_currentParams = start.params;
    m_currentAnalysis = start.analysis;
    m_plan = start.plan;
    const bool paramsUnknown = start.paramsUnknown;

    emit currentRowChanged(row);
    // What was read ahead may be hours old: read the coming row again while this one plays, so
    // it starts with the parameters an editor may have changed meanwhile.
    const int coming = nextRow();
    if (isValidRow(coming) && !m_playlist->tracks().at(coming).isCommand)
        m_info->invalidate(m_playlist->tracks().at(coming).filePath);
    m_lastStreamTitle.clear();
    armVoiceover();
    emit nowPlaying(m_current);

    if (m_current.isCommand)
        return; // the sequencer carries it out

    emit logMessage(displayText(m_current));
    if (paramsUnknown) {
        qCWarning(lcPlayout) << "parameters of" << m_current.filePath << "not known; playing with defaults";
        emit logMessage(PlayoutLog::defaultParameters + displayText(m_current));
    }
    if (!m_output->hasOutput()) {
        emit logMessage(PlayoutLog::noDevice);
        return;
    }
    if (!m_current.isStream && sourceOf(m_current).isEmpty()) {
        // The deck gets no source and the playlist waits here, as for any row with no media.
        qCWarning(lcPlayout) << "file not found:" << m_current.filePath;
        emit logMessage(PlayoutLog::fileNotFound + m_current.filePath);
    }

    const bool cutting = m_cutFadeMs >= 0;
    m_decks->endAllAirings(cutting ? TrackEndReason::Timed : TrackEndReason::Skip);
    if (cutting && isPlaying()) {
        // What the timed row cuts fades out on its deck; the row is heard at once, at full level.
        m_decks->other()->stop();
        // The same file played again from the top on a player that had played it to its end was
        // at times not heard at all (bench_timed, three events in a row): it is loaded afresh.
        if (m_decks->other()->source() == sourceOf(m_current))
            m_decks->other()->unload();
        fadeTo(m_decks->currentIndex(), 0.0, m_cutFadeMs, true);
        m_decks->switchCurrent();
        startOnDeck(m_decks->currentIndex(), row, false);
    } else if (cutting) {
        m_decks->stopBoth();
        startOnDeck(m_decks->currentIndex(), row, false);
    } else if (m_handingOver) {
        // The outgoing deck plays out its last milliseconds and is stopped by its own end.
        m_decks->switchCurrent();
        m_decks->current()->stop();
        startOnDeck(m_decks->currentIndex(), row, false);
    } else if (!m_mix.crossfadeEnabled || !isPlaying()) {
        m_decks->stopBoth();
        startOnDeck(m_decks->currentIndex(), row, m_mix.crossfadeEnabled);
    } else {
        fadeTo(m_decks->currentIndex(), 0.0, m_mix.fadeOutMs, true);
        m_decks->switchCurrent();
        startOnDeck(m_decks->currentIndex(), row, true);
    }

    if (m_current.isStream && m_current.streamLimitMs >= 1)
        m_streamLimitTimer->start(int(std::min<qint64>(m_current.streamLimitMs, INT_MAX)));
}

void AudioEngine::startOnDeck(int index, int row, bool fadeIn)
{
    Deck* deck = m_decks->at(index);
    // A player left in error by a file it could not decode would take the same file again as
    // sounding at once; it loads it afresh instead.
    if (deck->hasPlayerError())
        deck->unload();
    // Levels are measured only for someone: a meter listening, or a mix triggered by level.
    deck->setMetering(isSignalConnected(QMetaMethod::fromSignal(&AudioEngine::levels)) ||
                      isSignalConnected(QMetaMethod::fromSignal(&AudioEngine::audioBufferReady)) ||
                      m_mix.triggerMixEnabled);
    // The output goes no higher than full volume: a quiet track is raised only that far, and the
    // plan (what a display shows) and the meters say what is really applied.
    const double capped = deck->cappedTrackGain(m_plan.gain);
    if (capped < m_plan.gain) {
        const QString line =
            PlayoutLog::gainCapped.arg(toDb(capped), 0, 'f', 1).arg(toDb(m_plan.gain), 0, 'f', 1);
        qCInfo(lcPlayout).noquote() << line << m_current.filePath;
        emit logMessage(line);
        m_plan.gain = capped;
    }
    deck->setTrackGain(m_plan.gain);
    // A stream may take its time to answer; its own silent limit covers it.
    deck->setLoadLimitMs(m_current.isStream ? 0 : m_loadLimitMs);
    deck->start(row, m_current, sourceOf(m_current), fadeIn, m_fadeInMs, m_plan.startMs, m_plan.endMs);
}

void AudioEngine::play()
{
    if (isCommandRow(currentRow())) {
        next(); // Play steps over a STOP or PAUSE row
        return;
    }
    if (!m_output->hasOutput()) {
        emit logMessage(PlayoutLog::noDevice);
        return;
    }
    Deck* deck = m_decks->current();
    if (deck->source().isEmpty()) {
        if (m_playlist && m_playlist->rowCount() > 0)
            playRow(std::max(currentRow(), 0));
        return;
    }
    // A row held before it ever sounded is watched again, as when it was taken.
    m_sequencer->resumeSilentWait();
    m_sequencer->resumeTimedWatch();
    deck->resume();
}

void AudioEngine::pause()
{
    m_sequencer->cancelSilentWait();
    m_decks->current()->pause();
}

void AudioEngine::togglePause()
{
    if (isPlaying()) {
        m_sequencer->cancelSilentWait();
        m_decks->current()->pause();
    } else {
        m_sequencer->resumeSilentWait();
        m_decks->current()->resume();
    }
}

void AudioEngine::stopDecks()
{
    stopAir();
}

void AudioEngine::cutToRow(int row, int fadeMs)
{
    m_cutFadeMs = std::max(fadeMs, 0);
    takeRow(row);
    m_cutFadeMs = -1;
}

qint64 AudioEngine::startLeadMs() const
{
    // A cut starts on the other deck while one plays, else on the current one.
    return isPlaying() ? m_decks->other()->startLeadMs() : m_decks->current()->startLeadMs();
}

void AudioEngine::haltDecks()
{
    m_decks->endAllAirings(TrackEndReason::Stop);
    m_decks->stopBoth();
    emit playingChanged(false);
}

void AudioEngine::holdDeck()
{
    m_decks->current()->pause();
}

void AudioEngine::resumeDeck()
{
    m_decks->current()->resume();
}

bool AudioEngine::isSounding() const
{
    return isPlaying();
}

bool AudioEngine::hasOutput() const
{
    return m_output->hasOutput();
}

void AudioEngine::log(const QString& text)
{
    emit logMessage(text);
}

void AudioEngine::stop()
{
    m_sequencer->presenterStopped();
    stopAir();
}

void AudioEngine::stopAir()
{
    m_sequencer->cancelSilentWait();
    m_voiceover->disarm();
    m_streamLimitTimer->stop();
    m_mixPointTimer->stop();
    m_decks->endAllAirings(TrackEndReason::Stop);
    m_decks->stopBoth();
    emit logMessage(PlayoutLog::stop);
}

void AudioEngine::next()
{
    m_sequencer->next();
}

void AudioEngine::previous()
{
    m_sequencer->previous();
}

void AudioEngine::setVolume(int percent)
{
    m_volume = std::clamp(percent, 0, 100) / 100.0;
    m_decks->setMix(m_volume, m_ducked);
    // The relay follows the master volume (not the ducking), so the fader works while live.
    m_relay->setVolume(m_volume);
}

void AudioEngine::setPosition(qint64 ms)
{
    m_decks->current()->setPosition(ms);
}

void AudioEngine::setDucked(bool ducked)
{
    if (ducked == m_ducked)
        return;
    m_ducked = ducked;
    m_decks->setMix(m_volume, m_ducked);
}

void AudioEngine::setFadeOutMs(int ms)
{
    m_mix.fadeOutMs = std::max(ms, 0);
}

void AudioEngine::setShuffle(bool on)
{
    m_sequencer->setShuffle(on);
}

void AudioEngine::applyDeckVolume(int index)
{
    m_decks->at(index)->setMix(m_volume, m_ducked);
}

void AudioEngine::fadeTo(int index, double target, int ms, bool stopAtEnd)
{
    m_decks->at(index)->fadeTo(target, ms, stopAtEnd);
}

void AudioEngine::onDeckLevel(int index, const QAudioBuffer& buffer)
{
    emitDeckLevels();
    if (index == m_decks->currentIndex())
        emit audioBufferReady(buffer);
}

void AudioEngine::emitDeckLevels()
{
    emit levels(m_decks->heardLeft(), m_decks->heardRight());
}

void AudioEngine::onDeckPosition(int index, qint64 position)
{
    if (index != m_decks->currentIndex())
        return;
    emit positionChanged(position);
    checkVoiceover(position);
    checkMix(position);
}

MixSituation AudioEngine::mixSituation(qint64 position) const
{
    const Deck* deck = m_decks->current();
    MixSituation now;
    now.autoPlayNext = m_autoPlayNext;
    now.alreadyMoved = m_mixTriggered;
    now.settings = m_mix;
    now.playing = deck->isPlaying();
    now.positionMs = position;
    now.fileDurationMs = deck->duration();
    // A cue-out is the track's end for the mix as well.
    now.endMs = effectiveDuration();
    if (now.alreadyMoved || !now.autoPlayNext)
        return now;
    if (!m_mix.crossfadeEnabled) {
        // Rows whose end cannot be known ahead (streams, shuffle, command rows, missing files)
        // keep the plain start at the end.
        const int following = nextRow();
        now.handoverPossible = !m_current.isCommand && !m_current.isStream && !isShuffle() &&
                               isValidRow(following) && !isCommandRow(following) &&
                               !sourceOf(m_playlist->tracks().at(following)).isEmpty();
        now.startLeadMs = m_decks->other()->startLeadMs();
        return now;
    }
    int rowMix = -1;
    int rowFadeOut = -1;
    if (isValidRow(currentRow())) {
        const PlaylistModel::MixOverride override = m_playlist->rowMixOverride(currentRow());
        rowMix = override.first;
        rowFadeOut = override.second;
    }
    now.settings = effectiveMixSettings(m_mix, trackMixPointMs(m_currentParams, m_plan, now.endMs),
                                        m_currentParams.fadeOut, rowMix, rowFadeOut);
    now.settings.crossfadeEnabled = true;
    now.levelValid = deck->levelValid();
    now.levelDb = now.levelValid ? toDb(std::max(deck->levelLeft(), deck->levelRight())) : -100.0;
    return now;
}

void AudioEngine::checkMix(qint64 position)
{
    const MixSituation now = mixSituation(position);
    const MixStep step = decideMixStep(now);
    switch (step.action) {
    case MixStep::Action::Wait:
        return;
    case MixStep::Action::WaitUntil:
        m_mixPointTimer->start(step.timerMs);
        return;
    case MixStep::Action::Mix:
        mixIntoNext(now.settings);
        return;
    case MixStep::Action::HandOver:
        handOver();
        return;
    }
}

void AudioEngine::mixIntoNext(const MixSettings& settings)
{
    // A STOP or other command row is reached by the end of the track, not mixed into.
    const int row = m_sequencer->mixRow();
    if (row < 0)
        return;
    m_mixTriggered = true;
    m_decks->endAiring(m_decks->currentIndex(), TrackEndReason::Mix);
    if (settings.fadeOutOnMix && settings.fadeOutMs > 0)
        fadeTo(m_decks->currentIndex(), 0.0, settings.fadeOutMs, true);
    m_sequencer->mixInto(row);
}

// A deck is heard only some time after it is started (the start lead). Waiting for the end of the
// current track before starting the next leaves that much silence, so the next row is started
// on the other deck the start lead before the end; the current deck plays out to its end (or
// cue-out), unflushed, and its end stops it.
void AudioEngine::handOver()
{
    m_mixTriggered = true;
    m_decks->endAiring(m_decks->currentIndex(), TrackEndReason::End);
    m_handingOver = true;
    m_sequencer->currentRowEnded(true);
    m_handingOver = false;
}

void AudioEngine::onMediaStatus(int index, QMediaPlayer::MediaStatus status)
{
    if (status == QMediaPlayer::EndOfMedia)
        onTrackEnd(index);
}

void AudioEngine::onTrackEnd(int index)
{
    // Ends of an earlier load never get here: the deck drops them.
    m_decks->endAiring(index, TrackEndReason::End);
    if (index != m_decks->currentIndex()) {
        m_decks->at(index)->stop(); // the outgoing deck of a crossfade
        return;
    }
    m_sequencer->currentRowEnded(m_autoPlayNext);
}

void AudioEngine::onPlayerError(QMediaPlayer::Error error, const QString& errorString)
{
    qCWarning(lcPlayout) << "deck player error" << error << errorString << "row" << currentRow()
                         << m_current.filePath;
    if (!errorString.isEmpty())
        emit logMessage(PlayoutLog::playbackError + errorString);
}

void AudioEngine::onMetaData(int index)
{
    if (!m_current.isStream || index != m_decks->currentIndex())
        return;
    const QString text = streamTitle(m_decks->at(index)->metaData());
    if (text.isEmpty() || text == m_lastStreamTitle)
        return;
    m_lastStreamTitle = text;
    emit streamMetadata(text);
    emit logMessage(PlayoutLog::streamMetadata + text);
}

void AudioEngine::setVoiceoverEnabled(bool enabled)
{
    m_voiceover->setEnabled(enabled);
}

bool AudioEngine::voiceoverPlaying() const
{
    return m_voiceover->isPlaying();
}

void AudioEngine::armVoiceover()
{
    m_voiceover->disarm();
    if (!m_voiceover->isEnabled() || m_current.isCommand || m_current.isStream ||
        m_current.filePath.isEmpty())
        return;
    const QString file = m_voiceover->arm(m_currentParams, m_output->device());
    if (!file.isEmpty())
        emit logMessage(PlayoutLog::voiceoverArmed + QFileInfo(file).fileName());
}

void AudioEngine::checkVoiceover(qint64 position)
{
    const QString file = m_voiceover->fire(position);
    if (!file.isEmpty())
        emit logMessage(PlayoutLog::voiceover + QFileInfo(file).fileName());
}

void AudioEngine::startRelay(const QString& sourceText)
{
    const QString source = sourceText.trimmed();
    if (source.isEmpty())
        return;
    if (m_relay->isActive())
        stopRelay();

    if (m_sequencer->relayStarting(isPlaying()))
        m_decks->current()->pause();
    // Read now, not from the last reloadSettings: the relay goes to the device configured at its
    // start, and every reconnection attempt keeps it.
    m_relay->start(source, configuredOutputDevice(), m_volume);
    emit logMessage(PlayoutLog::relayStarting + source);
}

void AudioEngine::stopRelay()
{
    if (!m_relay->isActive())
        return;
    m_relay->stop();
    emit relayStateChanged(false, m_relay->source(), false);
    emit logMessage(PlayoutLog::relayStopped);
    m_sequencer->relayStopped(Settings::relayStartNextOnStop.read());
}

void AudioEngine::onRelayLive()
{
    m_decks->endAllAirings(TrackEndReason::Relay);
    for (Deck* deck : *m_decks) {
        if (deck->isPlaying())
            deck->pause();
    }
    emit relayStateChanged(true, m_relay->source(), true);
    emit logMessage(PlayoutLog::relayLive);
}

void AudioEngine::onRelayLost()
{
    m_sequencer->relayLost();
    emit relayStateChanged(true, m_relay->source(), false);
    emit logMessage(PlayoutLog::relayLost);
}

void AudioEngine::onRelayBuffer(const QAudioBuffer& buffer)
{
    const PeakLevels peaks = peakLevels(buffer);
    if (!peaks.valid)
        return;
    emit levels(peaks.left * m_volume, peaks.right * m_volume);
    if (m_relay->isLive())
        emit audioBufferReady(buffer);
}
