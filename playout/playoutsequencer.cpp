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
    : QObject(parent), m_decks(decks), m_silentTimer(new QTimer(this))
{
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
    m_playlist = model;
}

PlaylistModel* PlayoutSequencer::playlist() const
{
    return m_playlist;
}

void PlayoutSequencer::setClock(Clock clock)
{
    m_clock = std::move(clock);
}

void PlayoutSequencer::setRowDraw(RowDraw draw)
{
    m_draw = std::move(draw);
}

void PlayoutSequencer::reloadSettings()
{
    setSilentLimits(Settings::silentFileLimitMs.read(), Settings::silentStreamLimitMs.read());
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
    return chooseMixRow(currentRow(), m_playlist->tracks(), m_playlist->queue());
}

qint64 PlayoutSequencer::msSinceTaken() const
{
    return m_clock() - m_takenAt;
}

void PlayoutSequencer::playRow(int row)
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

    const quint64 take = m_takes;
    m_decks->takeRow(row);
    if (m_takes != take || m_currentId != id)
        return; // taking it already moved the air on

    switch (action) {
    case RowAction::Stop:
        m_decks->haltDecks();
        m_decks->log(PlayoutLog::stopCommand);
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
