#include "playlistsession.h"

#include "studiologging.h"

#include <QStandardPaths>

#include <algorithm>

namespace {

const QString notWritten = QStringLiteral("The playlist could not be kept on disk: %1");
const QString writtenAgain = QStringLiteral("The playlist is kept on disk again");
const QString positionUnreadable =
    QStringLiteral("The last session's rows are back, but not where it stood: %1");

} // namespace

PlaylistSession::PlaylistSession(PlaylistModel* model, const QString& folder, QObject* parent)
    : QObject(parent), m_model(model), m_files(folder)
{
    // One writer: writes never overtake each other.
    m_writer.setMaxThreadCount(1);
    m_delay.setSingleShot(true);
    m_delay.setInterval(defaultDelayMs);
    connect(&m_delay, &QTimer::timeout, this, &PlaylistSession::startWrite);
}

PlaylistSession::~PlaylistSession()
{
    m_writer.waitForDone();
}

QString PlaylistSession::defaultFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
}

PlaylistSession::Saved PlaylistSession::readLastSession()
{
    Saved saved = m_files.read();
    if (!saved.positionProblem.isEmpty())
        emit message(positionUnreadable.arg(saved.positionProblem));
    return saved;
}

void PlaylistSession::restorePosition(const Saved& saved)
{
    if (!m_model || !saved.positionKnown || m_model->rowCount() != saved.tracks.size())
        return;
    for (const auto& [row, value] : saved.mixOverrides)
        m_model->setRowMixOverrides(row, {value});
    for (int row : saved.played)
        m_model->markPlayed(row);
    for (int row : saved.queue)
        m_model->enqueue(row);
    m_model->setCurrentRow(saved.currentRow);
}

void PlaylistSession::watch()
{
    if (m_watching || !m_model)
        return;
    m_watching = true;
    for (auto signal : {&QAbstractItemModel::rowsInserted, &QAbstractItemModel::rowsRemoved})
        connect(m_model, signal, this, &PlaylistSession::onChanged);
    connect(m_model, &QAbstractItemModel::rowsMoved, this, &PlaylistSession::onChanged);
    connect(m_model, &QAbstractItemModel::modelReset, this, &PlaylistSession::onChanged);
    connect(m_model, &QAbstractItemModel::layoutChanged, this, &PlaylistSession::onChanged);
    connect(m_model, &QAbstractItemModel::dataChanged, this, &PlaylistSession::onDataChanged);
    onChanged();
}

void PlaylistSession::onDataChanged(const QModelIndex& topLeft, const QModelIndex& bottomRight)
{
    // Start times follow the clock on every track start; they are not kept.
    if (topLeft.column() == PlaylistModel::StartTimeColumn &&
        bottomRight.column() == PlaylistModel::StartTimeColumn)
        return;
    onChanged();
}

void PlaylistSession::onChanged()
{
    if (!m_dirty)
        m_unsavedSince.start();
    m_dirty = true;
    scheduleWrite();
}

void PlaylistSession::scheduleWrite()
{
    if (m_writing)
        return; // the write in progress schedules the next one when it is done
    const qint64 waited = m_unsavedSince.elapsed();
    m_delay.start(int(std::clamp<qint64>(longestDelayMs - waited, 0, m_delay.interval())));
}

SessionFiles::Snapshot PlaylistSession::snapshot() const
{
    SessionFiles::Snapshot s;
    if (!m_model)
        return s;
    // The list of tracks is shared, not copied: the worker reads it while the window goes on.
    s.tracks = m_model->tracks();
    s.currentRow = m_model->currentRow();
    s.queue = m_model->queue();
    s.played = m_model->playedRows().values();
    std::sort(s.played.begin(), s.played.end());
    const int rows = m_model->rowCount();
    const QList<PlaylistModel::MixOverride> overrides = m_model->rowMixOverrides(0, rows);
    for (int row = 0; row < overrides.size(); ++row)
        if (overrides.at(row) != PlaylistModel::MixOverride(-1, -1))
            s.mixOverrides.append({row, overrides.at(row)});
    return s;
}

void PlaylistSession::startWrite()
{
    if (!m_watching || !m_dirty || m_writing)
        return;
    QElapsedTimer handOver;
    handOver.start();
    const SessionFiles::Snapshot s = snapshot();
    m_dirty = false;
    m_writing = true;
    const quint64 serial = ++m_writeSerial;
    // The worker has its own copy of the files' folder: nothing of this object is read off its thread.
    m_writer.start([this, files = m_files, s, serial] {
        QElapsedTimer clock;
        clock.start();
        QString error;
        const bool ok = files.write(s, &error);
        const double ms = clock.nsecsElapsed() / 1e6;
        const int rows = int(s.tracks.size());
        QMetaObject::invokeMethod(
            this, [this, ok, error, rows, ms, serial] { onWritten(serial, ok, error, rows, ms); },
            Qt::QueuedConnection);
    });
    m_lastHandOverMs = handOver.nsecsElapsed() / 1e6;
}

void PlaylistSession::onWritten(quint64 serial, bool ok, const QString& error, int rows, double writeMs)
{
    m_writing = false;
    m_lastWriteMs = writeMs;
    // A report that arrives after saveNow wrote again is about an older file: not news any more.
    if (serial == m_writeSerial)
        reportWrite(ok, error, rows);
    if (m_dirty)
        scheduleWrite();
}

void PlaylistSession::reportWrite(bool ok, const QString& error, int rows)
{
    if (ok) {
        if (m_failing)
            emit message(writtenAgain);
        m_failing = false;
        emit saved(rows);
    } else if (!m_failing) {
        // Once, not on every change while the disk stays full or the folder stays locked.
        m_failing = true;
        qCWarning(lcStudio).noquote() << "session not written:" << error;
        emit message(notWritten.arg(error));
    }
}

void PlaylistSession::saveNow()
{
    m_delay.stop();
    m_writer.waitForDone();
    m_writing = false; // its report may still be queued; it changes nothing that follows
    // Written even without a change seen: mix overrides change without a signal of the model.
    if (!m_watching)
        return;
    const SessionFiles::Snapshot s = snapshot();
    m_dirty = false;
    ++m_writeSerial;
    QString error;
    const bool ok = m_files.write(s, &error);
    reportWrite(ok, error, int(s.tracks.size()));
}
