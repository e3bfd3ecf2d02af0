#include "asrunrecorder.h"

#include "asrunlog.h"
#include "audioengine.h"
#include "musiclibrary.h"
#include "studiologging.h"

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
        qCWarning(lcStudio) << reason;
        QMetaObject::invokeMethod(
            this, [this, reason] { emit disabled(reason); }, Qt::QueuedConnection);
    }
}

bool AsRunRecorder::writable()
{
    if (!m_enabled)
        return false;
    // The connection reopens itself on demand; a database that went away for good disables the log.
    if (!MusicLibrary::database().isOpen()) {
        disable(kNoDatabase);
        return false;
    }
    return true;
}

void AsRunRecorder::disable(const QString& reason)
{
    if (!m_enabled)
        return;
    m_enabled = false;
    m_disabledReason = reason;
    m_open.clear();
    qCWarning(lcStudio) << reason;
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
    const qint64 id = AsRunLog::recordStart(entry);
    if (id <= 0) {
        qCWarning(lcStudio) << "as-run row not written for" << filePath;
        return 0;
    }
    OpenEntry open;
    open.id = id;
    open.row = row;
    open.filePath = filePath;
    open.relay = relay;
    open.sounding.start();
    m_open << open;
    emit entriesChanged();
    return id;
}

void AsRunRecorder::end(int index, qint64 playedMs, const QString& endedBy)
{
    const OpenEntry open = m_open.takeAt(index);
    if (!AsRunLog::recordEnd(open.id, QDateTime::currentDateTime(), playedMs, endedBy))
        qCWarning(lcStudio) << "as-run row" << open.id << "could not be ended";
    emit entriesChanged();
}

int AsRunRecorder::findTrackEntry(int row, const QString& filePath) const
{
    // The same row and file first; rows move when the playlist is edited, so then the oldest open
    // row of that file.
    for (int i = 0; i < m_open.size(); ++i)
        if (!m_open[i].relay && m_open[i].row == row && m_open[i].filePath == filePath)
            return i;
    for (int i = 0; i < m_open.size(); ++i)
        if (!m_open[i].relay && m_open[i].filePath == filePath)
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
    if (track.isCommand || !writable())
        return;
    const QDateTime when = startedAt.isValid() ? startedAt : QDateTime::currentDateTime();
    if (!track.isStream)
        MusicLibrary::recordPlay(track.filePath, when);
    // A stream may name what it plays before it is heard; that text is its title from the start.
    const bool named = track.isStream && !m_streamTitle.isEmpty() && m_streamTitlePath == track.filePath;
    start(row, track.filePath, track.artist, named ? m_streamTitle : track.title, track.isStream, when,
          false);
}

void AsRunRecorder::onTrackEnded(int row, const Track& track, TrackEndReason reason, qint64 playedMs)
{
    if (track.isCommand || !writable())
        return;
    const int index = findTrackEntry(row, track.filePath);
    if (index < 0) {
        // Rows already closed by finishAll, or started before the recorder existed.
        qCDebug(lcStudio) << "end of a row that has no open as-run entry:" << row << track.filePath;
        return;
    }
    end(index, playedMs, trackEndReasonText(reason));
}

void AsRunRecorder::onRelayStatus(RelayState state, const QString& source)
{
    if (!writable())
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
    if (title.isEmpty() || !writable())
        return;
    // While a relay is active the text is the relay's; otherwise it belongs to the playlist's stream
    // row now sounding. The last text heard stands as the row's title.
    qint64 id = 0;
    if (!m_relaySource.isEmpty()) {
        m_relayTitle = title;
        const int relay = findRelayEntry();
        if (relay >= 0)
            id = m_open[relay].id;
    } else if (m_engine && m_engine->currentTrack().isStream) {
        const Track& current = m_engine->currentTrack();
        m_streamTitle = title;
        m_streamTitlePath = current.filePath;
        const int index = findTrackEntry(m_engine->currentRow(), current.filePath);
        if (index >= 0)
            id = m_open[index].id;
    }
    if (id > 0) {
        if (AsRunLog::updateTitle(id, title))
            emit entriesChanged();
        else
            qCWarning(lcStudio) << "as-run title of row" << id << "not updated";
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
}
