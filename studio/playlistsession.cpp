#include "playlistsession.h"

#include "playlistfile.h"
#include "studiologging.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QStandardPaths>

#include <algorithm>
#include <cmath>

namespace {

const QString playlistName = QStringLiteral("session.m3u");
const QString positionName = QStringLiteral("session.json");
const QString unreadableSuffix = QStringLiteral(".unreadable");

const QString notWritten = QStringLiteral("The playlist could not be kept on disk: %1");
const QString writtenAgain = QStringLiteral("The playlist is kept on disk again");
const QString positionUnreadable =
    QStringLiteral("The last session's rows are back, but not where it stood: %1");
const QString keptAside = QStringLiteral("%1 (the file was kept as %2)");

// The side file belongs to the rows it was written with; a crash between the two writes leaves a
// side file of the list before, which is then not applied.
QJsonObject positionObject(int rows, int currentRow, const QList<int>& queue, const QList<int>& played,
                           const QList<QPair<int, PlaylistModel::MixOverride>>& overrides)
{
    QJsonArray queueArray;
    for (int row : queue)
        queueArray.append(row);
    QJsonArray playedArray;
    for (int row : played)
        playedArray.append(row);
    QJsonArray overrideArray;
    for (const auto& [row, value] : overrides)
        overrideArray.append(QJsonArray{row, value.first, value.second});
    return QJsonObject{{QStringLiteral("rows"), rows},
                       {QStringLiteral("currentRow"), currentRow},
                       {QStringLiteral("queue"), queueArray},
                       {QStringLiteral("played"), playedArray},
                       {QStringLiteral("mixOverrides"), overrideArray}};
}

// Whole numbers in 0..rows-1 of a JSON array, each once, in their order; false when any is not.
bool readRows(const QJsonValue& value, int rows, QList<int>& out)
{
    if (!value.isArray())
        return false;
    for (const QJsonValue& entry : value.toArray()) {
        const double number = entry.toDouble(-1.0);
        if (!entry.isDouble() || !(number >= 0.0 && number < rows) || number != std::floor(number))
            return false;
        const int row = int(number);
        if (out.contains(row))
            return false;
        out.append(row);
    }
    return true;
}

} // namespace

PlaylistSession::PlaylistSession(PlaylistModel* model, const QString& folder, QObject* parent)
    : QObject(parent), m_model(model), m_folder(folder)
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

QString PlaylistSession::playlistPath() const
{
    return QDir(m_folder).filePath(playlistName);
}

QString PlaylistSession::positionPath() const
{
    return QDir(m_folder).filePath(positionName);
}

PlaylistSession::Saved PlaylistSession::readLastSession()
{
    Saved saved;
    if (!QFile::exists(playlistPath()))
        return saved;
    saved.found = true;
    PlaylistFile::ReadResult read = PlaylistFile::read(playlistPath());
    if (!read.ok) {
        // Kept for a look by hand; the next write would otherwise replace it.
        const QString aside = playlistPath() + unreadableSuffix;
        QFile::remove(aside);
        const bool moved = QFile::rename(playlistPath(), aside);
        saved.error = moved ? keptAside.arg(read.error, QDir::toNativeSeparators(aside)) : read.error;
        qCWarning(lcStudio).noquote()
            << "session playlist" << playlistPath() << "not restored:" << read.error;
        return saved;
    }
    saved.tracks = std::move(read.tracks);
    saved.missingFiles = std::move(read.missingFiles);
    saved.skipped = std::move(read.skipped);

    QFile file(positionPath());
    if (!file.exists())
        return saved;
    QString problem;
    QJsonParseError parseError;
    const QJsonDocument document = file.open(QIODevice::ReadOnly)
                                       ? QJsonDocument::fromJson(file.readAll(), &parseError)
                                       : QJsonDocument();
    const QJsonObject position = document.object();
    const int rows = int(saved.tracks.size());
    if (!file.isOpen())
        problem = file.errorString();
    else if (!document.isObject())
        problem = parseError.errorString();
    else if (position.value(QStringLiteral("rows")).toInt(-1) != rows)
        problem = QStringLiteral("it was written for another list");
    if (problem.isEmpty()) {
        const int current = position.value(QStringLiteral("currentRow")).toInt(-2);
        bool fine = current >= -1 && current < rows;
        fine = fine && readRows(position.value(QStringLiteral("queue")), rows, saved.queue);
        fine = fine && readRows(position.value(QStringLiteral("played")), rows, saved.played);
        const QJsonValue overrides = position.value(QStringLiteral("mixOverrides"));
        fine = fine && overrides.isArray();
        for (const QJsonValue& entry : overrides.toArray()) {
            const QJsonArray triple = entry.toArray();
            const int row = triple.at(0).toInt(-1);
            fine = fine && triple.size() == 3 && row >= 0 && row < rows;
            saved.mixOverrides.append({row, {triple.at(1).toInt(-1), triple.at(2).toInt(-1)}});
        }
        if (fine) {
            saved.currentRow = current;
            saved.positionKnown = true;
        } else {
            problem = QStringLiteral("its rows are out of range");
        }
    }
    if (!saved.positionKnown) {
        saved.queue.clear();
        saved.played.clear();
        saved.mixOverrides.clear();
        qCWarning(lcStudio).noquote() << "session position" << positionPath() << "not used:" << problem;
        emit message(positionUnreadable.arg(problem));
    }
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

PlaylistSession::Snapshot PlaylistSession::snapshot() const
{
    Snapshot s;
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

bool PlaylistSession::write(const QString& folder, const Snapshot& snapshot, QString* error)
{
    if (!QDir().mkpath(folder)) {
        *error = QStringLiteral("Cannot create %1").arg(QDir::toNativeSeparators(folder));
        return false;
    }
    // The rows first: a side file always describes rows that are already on disk.
    if (!PlaylistFile::write(QDir(folder).filePath(playlistName), snapshot.tracks, error))
        return false;
    const int rows = int(snapshot.tracks.size());
    // The queue and played rows only name rows that exist.
    QList<int> queue;
    for (int row : snapshot.queue)
        if (row >= 0 && row < rows && !queue.contains(row))
            queue.append(row);
    QList<int> played;
    for (int row : snapshot.played)
        if (row >= 0 && row < rows)
            played.append(row);
    const int current = snapshot.currentRow >= 0 && snapshot.currentRow < rows ? snapshot.currentRow : -1;
    const QByteArray json = QJsonDocument(positionObject(rows, current, queue, played, snapshot.mixOverrides))
                                .toJson(QJsonDocument::Compact);
    QSaveFile file(QDir(folder).filePath(positionName));
    if (!file.open(QIODevice::WriteOnly) || file.write(json) != json.size() || !file.commit()) {
        *error = QStringLiteral("Cannot write %1: %2")
                     .arg(QDir::toNativeSeparators(file.fileName()), file.errorString());
        return false;
    }
    return true;
}

void PlaylistSession::startWrite()
{
    if (!m_watching || !m_dirty || m_writing)
        return;
    QElapsedTimer handOver;
    handOver.start();
    const Snapshot s = snapshot();
    m_dirty = false;
    m_writing = true;
    const QString folder = m_folder;
    const quint64 serial = ++m_writeSerial;
    m_writer.start([this, folder, s, serial] {
        QElapsedTimer clock;
        clock.start();
        QString error;
        const bool ok = write(folder, s, &error);
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
    const Snapshot s = snapshot();
    m_dirty = false;
    ++m_writeSerial;
    QString error;
    const bool ok = write(m_folder, s, &error);
    reportWrite(ok, error, int(s.tracks.size()));
}
