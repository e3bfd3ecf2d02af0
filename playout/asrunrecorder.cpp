#include "asrunrecorder.h"

#include "asrunlog.h"
#include "audioengine.h"
#include "libraryconnection.h"
#include "musiclibrary.h"
#include "playoutlogging.h"

#include <QSqlDatabase>

namespace {

const QString kNoDatabase =
    QStringLiteral("The library database is not open: the as-run log is not written.");
const QString kNoTable =
    QStringLiteral("The as-run table could not be set up: the as-run log is not written.");

} // namespace

AsRunRecorder::AsRunRecorder(AudioEngine* engine, QObject* parent) : QObject(parent), m_engine(engine)
{
    if (engine) {
        connect(engine, &AudioEngine::trackStarted, this, &AsRunRecorder::onTrackStarted);
        connect(engine, &AudioEngine::trackEnded, this, &AsRunRecorder::onTrackEnded);
        connect(engine, &AudioEngine::relayStatusChanged, this, &AsRunRecorder::onRelayStatus);
        connect(engine, &AudioEngine::streamMetadata, this, &AsRunRecorder::onStreamMetadata);
        // A text heard for an earlier row never names the next one.
        connect(engine, &AudioEngine::currentRowChanged, this, [this] {
            m_streamTitle.clear();
            m_streamTitlePath.clear();
        });
    }
    // Checked now so that isEnabled() is true to the state at construction; the signal is queued so
    // that whoever creates the recorder can connect to it first.
    QString reason;
    if (!MusicLibrary::database().isOpen())
        reason = kNoDatabase;
    else if (!AsRunLog::ensureTable())
        reason = kNoTable;
    if (!reason.isEmpty()) {
        m_enabled = false;
        m_disabledReason = reason;
        qCWarning(lcPlayout) << reason;
        QMetaObject::invokeMethod(
            this, [this, reason] { emit disabled(reason); }, Qt::QueuedConnection);
    }
}

bool AsRunRecorder::writable()
{
    if (!m_enabled)
        return false;
    // The connection reopens itself on demand; a database that went away for good disables the log.
    if (MusicLibrary::database().isOpen())
        return true;
    // A shared server that was reached once comes back: what airs meanwhile is held back and written
    // when it is (the window says when it is lost and back).
    if (LibraryConnection::isServer() && !LibraryConnection::problem().isEmpty())
        return false;
    disable(kNoDatabase);
    return false;
}

bool AsRunRecorder::recording()
{
    if (writable()) {
        writeHeldBack();
        return true;
    }
    if (m_enabled)
        qCWarning(lcPlayout).noquote() << "as-run row held back:" << LibraryConnection::problem();
    return m_enabled;
}

int AsRunRecorder::heldBackCount() const
{
    int count = int(m_heldBack.size() + m_heldPlays.size());
    for (const OpenEntry& open : m_open)
        count += open.id == 0 ? 1 : 0;
    return count;
}

void AsRunRecorder::writeHeldBack()
{
    if (heldBackCount() == 0 || !writable())
        return;
    // Oldest first; what fails stays held back for the next attempt.
    while (!m_heldPlays.isEmpty()) {
        MusicLibrary::recordPlay(m_heldPlays.first().filePath, m_heldPlays.first().when);
        m_heldPlays.removeFirst();
    }
    while (!m_heldBack.isEmpty()) {
        HeldBack& held = m_heldBack.first();
        if (held.id <= 0)
            held.id = AsRunLog::recordStart(held.entry);
        if (held.id <= 0 ||
            !AsRunLog::recordEnd(held.id, held.entry.endedAt, held.entry.playedMs, held.entry.endedBy))
            break;
        m_heldBack.removeFirst();
    }
    for (OpenEntry& open : m_open) {
        if (open.id == 0)
            open.id = AsRunLog::recordStart(open.entry);
    }
    if (heldBackCount() > 0)
        qCWarning(lcPlayout) << heldBackCount() << "as-run rows are still held back";
    emit entriesChanged();
}

void AsRunRecorder::disable(const QString& reason)
{
    if (!m_enabled)
        return;
    m_enabled = false;
    m_disabledReason = reason;
    m_open.clear();
    qCWarning(lcPlayout) << reason;
    emit disabled(reason);
}

qint64 AsRunRecorder::start(int row, const QString& filePath, const QString& artist, const QString& title,
                            bool isStream, const QDateTime& startedAt, bool relay)
{
    AsRunEntry entry;
    entry.startedAt = startedAt.isValid() ? startedAt : QDateTime::currentDateTime();
    entry.filePath = filePath;
    entry.artist = artist;
    entry.title = title;
    entry.isStream = isStream;
    // Held back (id 0) when it cannot be written now; written with the rest when it can.
    const qint64 id = writable() ? AsRunLog::recordStart(entry) : 0;
    if (id <= 0)
        qCWarning(lcPlayout) << "as-run row held back for" << filePath;
    OpenEntry open;
    open.id = qMax<qint64>(id, 0);
    open.row = row;
    open.entry = entry;
    open.relay = relay;
    open.sounding.start();
    m_open << open;
    emit entriesChanged();
    return id;
}

void AsRunRecorder::end(int index, qint64 playedMs, const QString& endedBy)
{
    OpenEntry open = m_open.takeAt(index);
    open.entry.endedAt = QDateTime::currentDateTime();
    open.entry.playedMs = playedMs;
    open.entry.endedBy = endedBy;
    if (open.id <= 0 || !writable() ||
        !AsRunLog::recordEnd(open.id, open.entry.endedAt, open.entry.playedMs, open.entry.endedBy)) {
        qCWarning(lcPlayout) << "end of as-run row held back for" << open.entry.filePath;
        m_heldBack << HeldBack{open.id, open.entry};
    }
    emit entriesChanged();
}

int AsRunRecorder::findTrackEntry(int row, const QString& filePath) const
{
    // The same row and file first; rows move when the playlist is edited, so then the oldest open
    // row of that file.
    for (int i = 0; i < m_open.size(); ++i)
        if (!m_open[i].relay && m_open[i].row == row && m_open[i].entry.filePath == filePath)
            return i;
    for (int i = 0; i < m_open.size(); ++i)
        if (!m_open[i].relay && m_open[i].entry.filePath == filePath)
            return i;
    return -1;
}

int AsRunRecorder::findRelayEntry() const
{
    for (int i = 0; i < m_open.size(); ++i)
        if (m_open[i].relay)
            return i;
    return -1;
}

void AsRunRecorder::onTrackStarted(int row, const Track& track, const QDateTime& startedAt)
{
    if (track.isCommand || !recording())
        return;
    const QDateTime when = startedAt.isValid() ? startedAt : QDateTime::currentDateTime();
    if (!track.isStream) {
        if (writable())
            MusicLibrary::recordPlay(track.filePath, when);
        else
            m_heldPlays << HeldPlay{track.filePath, when};
    }
    // A stream may name what it plays before it is heard; that text is its title from the start.
    const bool named = track.isStream && !m_streamTitle.isEmpty() && m_streamTitlePath == track.filePath;
    start(row, track.filePath, track.artist, named ? m_streamTitle : track.title, track.isStream, when,
          false);
}

void AsRunRecorder::onTrackEnded(int row, const Track& track, TrackEndReason reason, qint64 playedMs)
{
    if (track.isCommand || !recording())
        return;
    const int index = findTrackEntry(row, track.filePath);
    if (index < 0) {
        // Rows already closed by finishAll, or started before the recorder existed.
        qCDebug(lcPlayout) << "end of a row that has no open as-run entry:" << row << track.filePath;
        return;
    }
    end(index, playedMs, trackEndReasonText(reason));
}

void AsRunRecorder::onRelayStatus(RelayState state, const QString& source)
{
    if (!recording())
        return;
    const int index = findRelayEntry();
    switch (state) {
    case RelayState::Connecting:
        if (source != m_relaySource)
            m_relayTitle.clear();
        m_relaySource = source;
        break;
    case RelayState::Live:
        if (source != m_relaySource)
            m_relayTitle.clear();
        m_relaySource = source;
        if (index < 0)
            start(-1, source, QString(), m_relayTitle, true, QDateTime::currentDateTime(), true);
        break;
    case RelayState::Lost:
        if (index >= 0)
            end(index, m_open[index].sounding.elapsed(), relayLostText());
        break;
    case RelayState::Off:
        if (index >= 0)
            end(index, m_open[index].sounding.elapsed(), relayStoppedText());
        m_relaySource.clear();
        m_relayTitle.clear();
        break;
    }
}

void AsRunRecorder::onStreamMetadata(const QString& title)
{
    if (title.isEmpty() || !recording())
        return;
    // While a relay is active the text is the relay's; otherwise it belongs to the playlist's stream
    // row now sounding. The last text heard stands as the row's title.
    int index = -1;
    if (!m_relaySource.isEmpty()) {
        m_relayTitle = title;
        index = findRelayEntry();
    } else if (m_engine && m_engine->currentTrack().isStream) {
        const Track& current = m_engine->currentTrack();
        m_streamTitle = title;
        m_streamTitlePath = current.filePath;
        index = findTrackEntry(m_engine->currentRow(), current.filePath);
    }
    qint64 id = 0;
    if (index >= 0) {
        m_open[index].entry.title = title; // a row still held back is written with it
        id = m_open[index].id;
    }
    if (id > 0 && writable()) {
        if (AsRunLog::updateTitle(id, title))
            emit entriesChanged();
        else
            qCWarning(lcPlayout) << "as-run title of row" << id << "not updated";
    }
}

void AsRunRecorder::finishAll(const QString& endedBy)
{
    if (!m_enabled) {
        m_open.clear();
        return;
    }
    while (!m_open.isEmpty())
        end(0, m_open.first().sounding.elapsed(), endedBy);
    writeHeldBack();
}
