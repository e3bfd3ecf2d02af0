#include "asrunrecorder.h"

#include "asrunlog.h"
#include "asrunwriter.h"
#include "audioengine.h"
#include "libraryconnection.h"
#include "playlistmodel.h"
#include "musiclibrary.h"
#include "playoutlogging.h"
#include "storethread.h"

#include <QSqlDatabase>

namespace {

const QString kNoDatabase =
    QStringLiteral("The library database is not open: the as-run log is not written.");
const QString kNoTable =
    QStringLiteral("The as-run table could not be set up: the as-run log is not written.");
// Milliseconds to wait for the writer's thread to end once its writes are done or given up.
constexpr int kStopWaitMs = 500;

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

AsRunRecorder::~AsRunRecorder()
{
    if (!m_writer)
        return;
    if (!m_writer->waitUntilWritten(kCloseWaitMs))
        qCWarning(lcPlayout) << m_writer->waitingCount()
                             << "as-run writes are lost: the store did not take them before the end";
    StoreThread::stop(m_thread, kStopWaitMs);
}

void AsRunRecorder::send(const AsRunWrite& write)
{
    if (!m_writer) {
        // The writer's connection leads where the shared one does; read now, on the thread that owns it.
        m_writer = new AsRunWriter;
        m_thread = new StoreThread(LibraryConnection::target(), m_writer);
        connect(m_writer, &AsRunWriter::written, this, &AsRunRecorder::entriesChanged, Qt::QueuedConnection);
        connect(
            m_writer, &AsRunWriter::unusable, this, [this] { disable(kNoDatabase); }, Qt::QueuedConnection);
        m_thread->start();
    }
    m_writer->add(write);
}

int AsRunRecorder::heldBackCount() const
{
    return m_writer ? m_writer->waitingCount() : 0;
}

void AsRunRecorder::writeHeldBack()
{
    if (m_writer)
        m_writer->retryNow();
}

bool AsRunRecorder::waitUntilWritten(int ms)
{
    return !m_writer || m_writer->waitUntilWritten(ms);
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

void AsRunRecorder::start(qint64 rowId, const QString& filePath, const QString& artist, const QString& title,
                          bool isStream, const QDateTime& startedAt, bool relay)
{
    OpenEntry open;
    open.key = ++m_lastKey;
    open.rowId = rowId;
    open.entry.startedAt = startedAt.isValid() ? startedAt : QDateTime::currentDateTime();
    open.entry.filePath = filePath;
    open.entry.artist = artist;
    open.entry.title = title;
    open.entry.isStream = isStream;
    open.relay = relay;
    open.sounding.start();
    m_open << open;
    send(AsRunWrite{AsRunWrite::Kind::Start, open.key, open.entry});
}

void AsRunRecorder::end(int index, qint64 playedMs, const QString& endedBy)
{
    OpenEntry open = m_open.takeAt(index);
    open.entry.endedAt = QDateTime::currentDateTime();
    open.entry.playedMs = playedMs;
    open.entry.endedBy = endedBy;
    send(AsRunWrite{AsRunWrite::Kind::End, open.key, open.entry});
}

qint64 AsRunRecorder::rowIdOf(int row) const
{
    const PlaylistModel* playlist = m_engine ? m_engine->playlist() : nullptr;
    return playlist ? playlist->rowId(row) : 0;
}

int AsRunRecorder::findTrackEntry(int row, const QString& filePath) const
{
    // The row itself, by its identity, wherever it has moved. A row that has left the list is found
    // by its file among the open rows that are no longer in it, the oldest first.
    const qint64 id = rowIdOf(row);
    for (int i = 0; id > 0 && i < m_open.size(); ++i)
        if (!m_open[i].relay && m_open[i].rowId == id)
            return i;
    const PlaylistModel* playlist = m_engine ? m_engine->playlist() : nullptr;
    for (int i = 0; i < m_open.size(); ++i) {
        const OpenEntry& open = m_open[i];
        const bool gone = !playlist || open.rowId <= 0 || playlist->rowOfId(open.rowId) < 0;
        if (!open.relay && gone && open.entry.filePath == filePath)
            return i;
    }
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
    if (track.isCommand || !m_enabled)
        return;
    const QDateTime when = startedAt.isValid() ? startedAt : QDateTime::currentDateTime();
    if (!track.isStream) {
        AsRunWrite play;
        play.kind = AsRunWrite::Kind::Play;
        play.entry.filePath = track.filePath;
        play.entry.startedAt = when;
        send(play);
    }
    // A stream may name what it plays before it is heard; that text is its title from the start.
    const bool named = track.isStream && !m_streamTitle.isEmpty() && m_streamTitlePath == track.filePath;
    start(rowIdOf(row), track.filePath, track.artist, named ? m_streamTitle : track.title, track.isStream,
          when, false);
}

void AsRunRecorder::onTrackEnded(int row, const Track& track, TrackEndReason reason, qint64 playedMs)
{
    if (track.isCommand || !m_enabled)
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
    if (!m_enabled)
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
            start(0, source, QString(), m_relayTitle, true, QDateTime::currentDateTime(), true);
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
    if (title.isEmpty() || !m_enabled)
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
    if (index < 0)
        return;
    m_open[index].entry.title = title;
    AsRunWrite update;
    update.kind = AsRunWrite::Kind::Title;
    update.row = m_open[index].key;
    update.entry.title = title;
    send(update);
}

void AsRunRecorder::finishAll(const QString& endedBy)
{
    if (!m_enabled) {
        m_open.clear();
        return;
    }
    while (!m_open.isEmpty())
        end(0, m_open.first().sounding.elapsed(), endedBy);
    if (!waitUntilWritten(kCloseWaitMs))
        qCWarning(lcPlayout) << heldBackCount() << "as-run writes are still held back";
    emit entriesChanged();
}
