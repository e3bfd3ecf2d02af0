#include "playoutsequencer.h"

#include "playlistmodel.h"
#include "playoutlog.h"
#include "playoutlogging.h"
#include "sequencerdecks.h"
#include "settingkeys.h"
#include "tracktext.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QRandomGenerator64>
#include <QTimer>

#include <algorithm>
#include <memory>

namespace {

bool fileThere(const Track& track)
{
    return !isFileRow(track) || QFileInfo(track.filePath).isFile();
}

} // namespace

PlayoutSequencer::PlayoutSequencer(SequencerDecks* decks, QObject* parent)
    : QObject(parent), m_decks(decks), m_silentTimer(new QTimer(this)), m_timedTimer(new QTimer(this)),
      m_watchTimer(new QTimer(this)), m_recheckTimer(new QTimer(this))
{
    m_wallClock = [] { return QDateTime::currentDateTime(); };
    // A coarse timer may fire 5 % late: a hard row is promised to the second.
    m_timedTimer->setSingleShot(true);
    m_timedTimer->setTimerType(Qt::PreciseTimer);
    connect(m_timedTimer, &QTimer::timeout, this, &PlayoutSequencer::checkTimed);
    m_watchTimer->setInterval(timedWatchMs);
    connect(m_watchTimer, &QTimer::timeout, this, &PlayoutSequencer::checkTimed);
    m_recheckTimer->setSingleShot(true);
    m_recheckTimer->setInterval(0);
    connect(m_recheckTimer, &QTimer::timeout, this, &PlayoutSequencer::checkTimed);
    auto started = std::make_shared<QElapsedTimer>();
    started->start();
    m_clock = [started] { return started->elapsed(); };
    m_draw = [](int count) { return int(QRandomGenerator64::global()->bounded(qint64(count))); };
    m_silentTimer->setSingleShot(true);
    connect(m_silentTimer, &QTimer::timeout, this, &PlayoutSequencer::checkSilentRow);
    reloadSettings();
}

void PlayoutSequencer::setPlaylist(PlaylistModel* model)
{
    if (m_playlist)
        disconnect(m_playlist, nullptr, this, nullptr);
    m_playlist = model;
    m_timedDone.clear();
    m_timedAccepted.clear();
    m_pendingTimedId = 0;
    if (!model)
        return;
    // Any change may move, add or retime a timed row: look again once the change is over, never
    // from inside the model's own signal.
    const auto recheck = [this] {
        if (m_timedWatch)
            m_recheckTimer->start();
    };
    connect(model, &QAbstractItemModel::rowsInserted, this, recheck);
    connect(model, &QAbstractItemModel::rowsRemoved, this, recheck);
    connect(model, &QAbstractItemModel::rowsMoved, this, recheck);
    connect(model, &QAbstractItemModel::modelReset, this, recheck);
    connect(model, &QAbstractItemModel::layoutChanged, this, recheck);
    connect(model, &QAbstractItemModel::dataChanged, this, recheck);
}

PlaylistModel* PlayoutSequencer::playlist() const
{
    return m_playlist;
}

void PlayoutSequencer::setClock(Clock clock)
{
    m_clock = std::move(clock);
    m_clockInjected = true;
    m_lastMonoMs = -1;
}

void PlayoutSequencer::setWallClock(WallClock clock)
{
    m_wallClock = std::move(clock);
    m_wallClockInjected = true;
    m_lastMonoMs = -1; // a new clock is no jump
}

void PlayoutSequencer::setTimedLimits(int hardFadeMs, int lateLimitMs)
{
    m_hardFadeMs = std::max(hardFadeMs, 0);
    m_lateLimitMs = std::max(lateLimitMs, 0);
}

void PlayoutSequencer::setRowDraw(RowDraw draw)
{
    m_draw = std::move(draw);
}

void PlayoutSequencer::reloadSettings()
{
    setSilentLimits(Settings::silentFileLimitMs.read(), Settings::silentStreamLimitMs.read());
    setTimedLimits(Settings::hardTimeFadeMs.read(), Settings::timedLateLimitMs.read());
}

void PlayoutSequencer::setSilentLimits(int fileMs, int streamMs)
{
    // Below a second a row has no fair chance to start; zero would skip everything at once.
    m_fileLimitMs = std::max(fileMs, 1000);
    m_streamLimitMs = std::max(streamMs, 1000);
}

void PlayoutSequencer::setSkipUnplayableRows(bool on)
{
    m_skipUnplayable = on;
    if (!on)
        cancelSilentWait();
}

int PlayoutSequencer::currentRow() const
{
    if (m_playlist && m_currentId > 0) {
        // Asked on every position report: the row where it was taken answers without a search.
        if (m_playlist->rowId(m_currentRow) == m_currentId)
            return m_currentRow;
        const int row = m_playlist->rowOfId(m_currentId);
        if (row >= 0)
            return row;
    }
    return m_currentRow;
}

void PlayoutSequencer::setCurrentRow(int row)
{
    // A stand-in has no identity of its own: it was never taken.
    m_currentRow = row;
    m_currentId = 0;
}

bool PlayoutSequencer::isValidRow(int row) const
{
    return m_playlist && row >= 0 && row < m_playlist->rowCount();
}

int PlayoutSequencer::nextRow() const
{
    if (!m_playlist)
        return -1;
    const int pending = pendingTimedRow();
    if (pending >= 0)
        return pending;
    const int queued = firstValidQueued(m_playlist->queue(), m_playlist->rowCount());
    if (queued >= 0)
        return queued;
    if (m_shuffle)
        return -1;
    const int row = currentRow() + 1;
    return row < m_playlist->rowCount() ? row : -1;
}

int PlayoutSequencer::mixRow() const
{
    if (!m_playlist)
        return -1;
    const int pending = pendingTimedRow();
    if (pending >= 0)
        return m_playlist->tracks().at(pending).isCommand ? -1 : pending;
    return chooseMixRow(currentRow(), m_playlist->tracks(), m_playlist->queue());
}

qint64 PlayoutSequencer::msSinceTaken() const
{
    return m_clock() - m_takenAt;
}

void PlayoutSequencer::playRow(int row)
{
    takeRow(row, Take::Ordinary);
}

void PlayoutSequencer::takeRow(int row, Take how)
{
    if (!isValidRow(row))
        return;
    cancelSilentWait();
    ++m_takes;
    m_currentRow = row;
    m_currentId = m_playlist->rowId(row);
    const qint64 id = m_currentId;
    m_current = m_playlist->tracks().at(row);
    m_takenAt = m_clock();
    m_sounded = false;
    const bool there = fileThere(m_current);
    const RowAction action = rowAction(m_current, there, m_skipUnplayable);
    if (!m_current.isCommand)
        m_lastEndedId = 0;
    // A timed row taken in any way has had its moment: it never fires after this.
    if (m_current.timed.isTimed())
        m_timedDone.insert(id);
    if (m_pendingTimedId == id)
        m_pendingTimedId = 0;
    m_currentTimedAt = how == Take::Ordinary ? QDateTime() : m_current.timed.at;
    m_halted = false;
    resumeTimedWatch();

    // Every take may change which timed row comes next: look again once this one is done.
    if (m_timedWatch)
        m_recheckTimer->start();

    const quint64 take = m_takes;
    if (how == Take::Cut)
        m_decks->cutToRow(row, m_hardFadeMs);
    else
        m_decks->takeRow(row);
    if (m_takes != take || m_currentId != id)
        return; // taking it already moved the air on

    switch (action) {
    case RowAction::Stop:
        m_halted = true;
        m_decks->haltDecks();
        m_decks->log(PlayoutLog::stopCommand);
        checkTimed(); // a hard row already due starts the air again
        return;
    case RowAction::Pause:
        m_decks->holdDeck();
        m_decks->log(PlayoutLog::pauseCommand);
        return;
    case RowAction::OtherCommand:
        m_decks->log(PlayoutLog::command + m_current.command.toLower());
        return;
    case RowAction::Play:
        m_skipsInARow = 0;
        if (!m_sounded) // it may begin to sound while it is being taken
            armSilentWait();
        return;
    case RowAction::SkipMissing:
        break;
    }
    m_decks->log(SequencerLog::missingSkipped(m_current.filePath));
    if (nothingPlayable(++m_skipsInARow, m_playlist->rowCount(), anyPlayableRow())) {
        m_skipsInARow = 0;
        m_decks->log(SequencerLog::nothingPlayable());
        m_decks->stopDecks();
        return;
    }
    // After the engine has finished taking this row, never from inside its own call: a list of
    // missing files must not recurse.
    QTimer::singleShot(0, this, [this, take] {
        if (m_takes == take)
            next();
    });
}

bool PlayoutSequencer::anyPlayableRow() const
{
    for (const Track& track : m_playlist->tracks()) {
        if (!track.isCommand && !track.filePath.isEmpty() && fileThere(track))
            return true;
    }
    return false;
}

void PlayoutSequencer::armSilentWait()
{
    if (!m_skipUnplayable)
        return;
    const int limit = silentLimitMs(m_current, fileThere(m_current), m_fileLimitMs, m_streamLimitMs);
    if (limit < 0)
        return;
    m_waitId = m_currentId;
    m_waitLimitMs = limit;
    m_waitDeadline = m_clock() + limit;
    m_silentTimer->start(limit);
}

void PlayoutSequencer::next()
{
    if (!m_playlist)
        return;
    // Play or Next at a STOP row: automation runs again, and a soft row waiting behind it is due.
    m_halted = false;
    if (takeDueTimedRow())
        return;
    const NextChoice choice =
        chooseNextRow(currentRow(), m_playlist->rowCount(), m_playlist->queue(), m_shuffle, m_draw);
    if (choice.fromQueue) {
        const int row = m_playlist->takeNextQueued();
        if (row >= 0) {
            const Track& track = m_playlist->tracks().at(row);
            const QString text = track.isCommand ? commandRowText(track) : trackDisplayText(track);
            m_decks->log(PlayoutLog::queue + text);
            playRow(row);
            return;
        }
    }
    if (choice.row < 0) {
        cancelSilentWait();
        m_decks->stopDecks();
        return;
    }
    playRow(choice.row);
}

void PlayoutSequencer::previous()
{
    const int row = choosePreviousRow(currentRow());
    if (row >= 0)
        playRow(row);
}

void PlayoutSequencer::mixInto(int row)
{
    if (!m_playlist)
        return;
    if (row >= 0 && row == pendingTimedRow() && takeDueTimedRow())
        return;
    if (firstValidQueued(m_playlist->queue(), m_playlist->rowCount()) == row)
        m_playlist->takeNextQueued();
    playRow(row);
}

void PlayoutSequencer::currentRowEnded(bool autoPlayNext)
{
    if (m_current.isCommand || m_lastEndedId == m_currentId)
        return;
    m_lastEndedId = m_currentId;
    m_decks->log(PlayoutLog::endOfTrack + trackDisplayText(m_current));
    if (autoPlayNext)
        next();
    else
        m_decks->stopDecks();
}

void PlayoutSequencer::rowSounded(int row)
{
    m_skipsInARow = 0;
    if (row == currentRow()) {
        m_sounded = true;
        if (m_waitId == m_currentId)
            cancelSilentWait();
    }
}

void PlayoutSequencer::currentRowLoadTimedOut()
{
    if (m_current.isCommand || m_sounded)
        return;
    cancelSilentWait();
    const QString text = SequencerLog::loadTimedOut(m_current.filePath);
    qCWarning(lcPlayout).noquote() << text;
    m_decks->log(text);
    next();
}

void PlayoutSequencer::cancelSilentWait()
{
    m_silentTimer->stop();
    m_waitId = 0;
}

void PlayoutSequencer::resumeSilentWait()
{
    if (!m_sounded && !isWaitingForSound() && isValidRow(currentRow()) && !m_current.isCommand)
        armSilentWait();
}

void PlayoutSequencer::checkSilentRow()
{
    if (m_waitId == 0)
        return;
    const qint64 left = m_waitDeadline - m_clock();
    if (left > 0) {
        m_silentTimer->start(int(std::min<qint64>(left, INT_MAX)));
        return;
    }
    const qint64 id = m_waitId;
    cancelSilentWait();
    // The air moved on, or there is no device to play on: nothing to skip.
    if (id != m_currentId || !m_decks->hasOutput())
        return;
    const int seconds = m_waitLimitMs / 1000;
    const QString text = m_current.isStream ? SequencerLog::streamSkipped(m_current.filePath, seconds)
                                            : SequencerLog::fileSkipped(m_current.filePath, seconds);
    qCWarning(lcPlayout).noquote() << text;
    m_decks->log(text);
    next();
}

bool PlayoutSequencer::relayStarting(bool sounding)
{
    m_resumeAfterRelay = sounding;
    // While the relay has the air, a row waiting for sound is not skipped behind it.
    cancelSilentWait();
    return sounding;
}

void PlayoutSequencer::relayLost()
{
    if (m_resumeAfterRelay && isValidRow(currentRow()) && !m_decks->isSounding())
        m_decks->resumeDeck();
}

void PlayoutSequencer::relayStopped(bool startNext)
{
    if (startNext)
        next();
    else if (m_resumeAfterRelay && !m_decks->isSounding())
        m_decks->resumeDeck();
}

int PlayoutSequencer::pendingTimedRow() const
{
    if (!m_playlist || m_pendingTimedId == 0)
        return -1;
    return m_playlist->rowOfId(m_pendingTimedId);
}

int PlayoutSequencer::msUntilTimedTimer() const
{
    return m_timedTimer->isActive() ? m_timedTimer->remainingTime() : -1;
}

void PlayoutSequencer::presenterStopped()
{
    m_timedWatch = false;
    m_pendingTimedId = 0;
    m_timedTimer->stop();
    m_watchTimer->stop();
    m_recheckTimer->stop();
}

void PlayoutSequencer::resumeTimedWatch()
{
    if (m_timedWatch)
        return;
    m_timedWatch = true;
    m_watchTimer->start();
    m_recheckTimer->start();
}

QString PlayoutSequencer::rowText(int row) const
{
    const Track& track = m_playlist->tracks().at(row);
    return track.isCommand ? commandRowText(track) : trackDisplayText(track);
}

void PlayoutSequencer::noticeClockJump()
{
    // A made-up clock beside a real one tells nothing about jumps.
    if (m_clockInjected != m_wallClockInjected)
        return;
    const qint64 wall = m_wallClock().toMSecsSinceEpoch();
    const qint64 mono = m_clock();
    // The watch ticks every second; a tick held up by a busy machine shows on both clocks alike.
    const qint64 jump = m_lastMonoMs < 0 ? 0 : clockJumpMs(m_lastWallMs, wall, m_lastMonoMs, mono, 2000);
    m_lastWallMs = wall;
    m_lastMonoMs = mono;
    if (jump == 0)
        return;
    const QString text = TimedLog::clockJumped(jump);
    qCWarning(lcPlayout).noquote() << text;
    m_decks->log(text);
}

TimedDecision PlayoutSequencer::decideTimedNow()
{
    TimedSituation situation;
    const QList<Track>& tracks = m_playlist->tracks();
    situation.rows.reserve(tracks.size());
    for (int row = 0; row < tracks.size(); ++row)
        situation.rows << TimedRow{m_playlist->rowId(row), tracks.at(row).timed};
    const int current = currentRow();
    situation.currentRow = current;
    if (current >= 0 && current < tracks.size() && m_playlist->rowId(current) == m_currentId)
        situation.currentTimedAt = m_currentTimedAt;
    situation.now = m_wallClock();
    situation.done = m_timedDone;
    situation.accepted = m_timedAccepted;
    situation.lateLimitMs = m_lateLimitMs;
    situation.leadMs = m_decks->startLeadMs();
    situation.halted = m_halted;
    const TimedDecision decision = decideTimed(situation);

    for (int row : decision.stale) {
        const TimedStart& timed = tracks.at(row).timed;
        m_timedDone.insert(m_playlist->rowId(row));
        const QString text = TimedLog::stale(timed, timed.at.msecsTo(situation.now), rowText(row));
        qCWarning(lcPlayout).noquote() << text;
        m_decks->log(text);
    }
    for (int row : decision.accepted)
        m_timedAccepted.insert(m_playlist->rowId(row));
    return decision;
}

bool PlayoutSequencer::takeDueTimedRow()
{
    if (!m_playlist || !m_timedWatch)
        return false;
    const TimedDecision decision = decideTimedNow();
    if (decision.action == TimedDecision::Action::None) {
        m_pendingTimedId = 0;
        return false;
    }
    const TimedStart timed = m_playlist->tracks().at(decision.row).timed;
    for (int row : decision.skipped) {
        const QString text = TimedLog::skipped(timed, rowText(row));
        qCInfo(lcPlayout).noquote() << text;
        m_decks->log(text);
        // A timed row passed over for another never fires later.
        if (m_playlist->tracks().at(row).timed.isTimed())
            m_timedDone.insert(m_playlist->rowId(row));
    }
    const QString text = TimedLog::fired(timed, rowText(decision.row));
    qCInfo(lcPlayout).noquote() << text;
    m_decks->log(text);
    m_pendingTimedId = 0;
    takeRow(decision.row, decision.action == TimedDecision::Action::Cut ? Take::Cut : Take::Timed);
    return true;
}

void PlayoutSequencer::armTimedTimer(qint64 msUntilNextHard)
{
    if (msUntilNextHard < 0 || !m_timedWatch) {
        m_timedTimer->stop();
        return;
    }
    m_timedTimer->start(int(std::min<qint64>(msUntilNextHard, INT_MAX)));
}

void PlayoutSequencer::checkTimed()
{
    if (!m_playlist)
        return;
    noticeClockJump();
    if (!m_timedWatch)
        return;
    TimedDecision decision = decideTimedNow();
    const bool airIdle = m_currentId == 0 || (m_lastEndedId == m_currentId && !m_decks->isSounding());
    if (decision.action == TimedDecision::Action::Cut ||
        (decision.action == TimedDecision::Action::Next && airIdle && !m_halted)) {
        // Nothing to wait for: a hard row cuts in, a soft one starts on an air that ran out.
        takeDueTimedRow();
        decision = decideTimedNow();
    }
    m_pendingTimedId = decision.action == TimedDecision::Action::Next && !m_halted
                           ? m_playlist->rowId(decision.row)
                           : 0;
    armTimedTimer(decision.msUntilNextHard);
}

int PlayoutSequencer::waitingTimedRow() const
{
    if (!m_playlist || !m_timedWatch)
        return -1;
    const QDateTime now = m_wallClock();
    const QList<Track>& tracks = m_playlist->tracks();
    for (int row = 0; row < tracks.size(); ++row) {
        const TimedStart& timed = tracks.at(row).timed;
        const qint64 id = m_playlist->rowId(row);
        if (!timed.isTimed() || m_timedDone.contains(id) || (m_halted && timed.isSoft()))
            continue;
        if (m_timedAccepted.contains(id) || timed.at.msecsTo(now) <= m_lateLimitMs)
            return row;
    }
    return -1;
}
