#include "playlistmodel.h"

#include "musiclibrary.h"
#include "playlistmime.h"

#include <QBrush>
#include <QColor>
#include <QFont>
#include <QLocale>
#include <QMimeData>
#include <QRandomGenerator64>

#include <algorithm>
#include <atomic>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

namespace {

// Texts and colours as the user sees them, kept in one place.
const QString kRowsMimeType = PlaylistMime::rowsMimeType();
const QString kUriListMimeType = PlaylistMime::uriListMimeType();
const QString kRemoveSymbol = QStringLiteral("\u2715");
const QString kStopSymbol = QStringLiteral("\u23F9");
const QString kCounterHeader = QStringLiteral("\u266B");
const QString kStartTimeFormat = QStringLiteral("h:mm:ss AP");
const QString kNoStartTime = QStringLiteral("--");
const QString kLive = QStringLiteral("LIVE");
const QString kJingleCategory = QStringLiteral("Jingle");
const QString kHourMarkerTip = QStringLiteral("Start of the %1:00 hour");
const QString kQueuePositionTip = QStringLiteral("Playback queue position %1");
const QString kRemoveTip = QStringLiteral("Remove this track");
const QString kStopTip = QStringLiteral("Insert a STOP command after this track");

const QColor kHourMarkerBackground(226, 240, 226);
const QColor kCommandBackground(255, 235, 200);
const QColor kCurrentBackground(179, 215, 255);
const QColor kVoiceoverBackground(255, 214, 234);

const QColor kRemoveForeground(200, 60, 60);
const QColor kStopForeground(150, 110, 40);
const QColor kPlayedForeground(150, 150, 150);
const QColor kStreamForeground(40, 130, 150);
const QColor kCommandForeground(160, 90, 0);
const QColor kJingleForeground(120, 120, 120);

constexpr int kLastRole = Qt::ForegroundRole; // 9: every role above it is unknown here

bool isJingle(const Track& track)
{
    return track.category.compare(kJingleCategory, Qt::CaseInsensitive) == 0;
}

// Row firstRow + offset (offset >= 0), or nothing when that number does not fit in an int.
std::optional<int> offsetRow(int firstRow, int offset)
{
    if (firstRow > std::numeric_limits<int>::max() - offset)
        return std::nullopt;
    return firstRow + offset;
}

// Row identities are unique in the whole process, so an id of one playlist never names a row of
// another that replaced it.
std::atomic<qint64> lastRowId{0};

} // namespace

bool isStreamUrl(const QString& text)
{
    return MusicLibrary::isStreamUrl(text);
}

Track trackFromDroppedFile(const QString& path)
{
    return trackFromFileName(path);
}

QString PlaylistModel::rowsMimeType()
{
    return kRowsMimeType;
}

PlaylistModel::PlaylistModel(QObject* parent) : QAbstractTableModel(parent)
{
    m_colours = new PlaylistColours(this);
    connect(m_colours, &PlaylistColours::coloursChanged, this, &PlaylistModel::emitColoursChanged);
    const QDateTime now = QDateTime::currentDateTime();
    m_startAnchor = now.time();
    m_startAnchorDay = now.date();
}

// --- item model ---------------------------------------------------------------------------

int PlaylistModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

int PlaylistModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(ColumnCount);
}

QVariant PlaylistModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
    case RemoveColumn:
    case StopColumn:
        return QString();
    case NumberColumn:
        return QStringLiteral("#");
    case StartTimeColumn:
        return QStringLiteral("Start time");
    case TitleColumn:
        return QStringLiteral("Track Title");
    case DurationColumn:
        return QStringLiteral("Duration");
    case CounterColumn:
        return kCounterHeader;
    default:
        return {};
    }
}

Qt::ItemFlags PlaylistModel::flags(const QModelIndex& index) const
{
    if (!index.isValid())
        return Qt::ItemIsDropEnabled; // a drop between or below the rows
    return Qt::ItemIsSelectable | Qt::ItemIsDragEnabled | Qt::ItemIsDropEnabled | Qt::ItemIsEnabled;
}

QVariant PlaylistModel::data(const QModelIndex& index, int role) const
{
    const int row = index.row();
    const int column = index.column();
    if (role == SkippedForTimeRole && index.isValid() && index.model() == this && isValidRow(row)) {
        const QDateTime at = skippedForTime(row);
        return at.isValid() ? QVariant(at) : QVariant();
    }
    if (!index.isValid() || row < 0 || column < 0 || row >= m_rows.size() || column >= ColumnCount ||
        role < 0 || role > kLastRole)
        return {};
    switch (role) {
    case Qt::DisplayRole:
        return displayData(row, column);
    case Qt::ToolTipRole:
        return toolTipData(row, column);
    case Qt::FontRole:
        return fontData(row, column);
    case Qt::TextAlignmentRole:
        if (column == RemoveColumn || column == NumberColumn || column == DurationColumn ||
            column == StopColumn)
            return int(Qt::AlignCenter);
        if (column == StartTimeColumn)
            return int(Qt::AlignLeft | Qt::AlignVCenter);
        return {};
    case Qt::BackgroundRole:
        return backgroundData(row);
    case Qt::ForegroundRole:
        return foregroundData(row, column);
    default:
        return {};
    }
}

QString PlaylistModel::titleText(int row) const
{
    const Track& track = m_rows.at(row);
    QString text = playlistRowText(track);
    const int position = queuePosition(row);
    if (position > 0)
        text = QStringLiteral("[%1]  %2").arg(QString::number(position), text);
    return text;
}

QVariant PlaylistModel::displayData(int row, int column) const
{
    const Track& track = m_rows.at(row);
    switch (column) {
    case RemoveColumn:
        return kRemoveSymbol;
    case NumberColumn:
        return row + 1;
    case StartTimeColumn:
        // The C locale keeps "AM"/"PM" whatever the desktop's language is.
        return track.startTime.isValid() ? QLocale::c().toString(track.startTime, kStartTimeFormat)
                                         : kNoStartTime;
    case TitleColumn:
        return titleText(row);
    case DurationColumn:
        if (!track.isStream)
            return formatDuration(track.durationMs);
        return track.streamLimitMs < 1 ? kLive : formatDuration(track.streamLimitMs);
    case CounterColumn: {
        const int counter = rowCounter(row);
        return counter >= 1 ? QString::number(counter) : QString();
    }
    case StopColumn:
        return track.isCommand ? QString() : kStopSymbol;
    default:
        return {};
    }
}

QVariant PlaylistModel::toolTipData(int row, int column) const
{
    if (column != RemoveColumn && column != StopColumn) {
        const QString timed = m_timing.toolTip(m_rows, row, column == StartTimeColumn);
        if (!timed.isEmpty())
            return timed;
    }
    if (column == StartTimeColumn) {
        const int hour = hourMarkerAt(row);
        if (hour >= 0)
            return kHourMarkerTip.arg(hour, 2, 10, QLatin1Char('0'));
    }
    if (column == TitleColumn) {
        const int position = queuePosition(row);
        if (position > 0)
            return kQueuePositionTip.arg(position);
    }
    if (column == RemoveColumn)
        return kRemoveTip;
    if (column == StopColumn)
        return kStopTip;
    return {};
}

QVariant PlaylistModel::fontData(int row, int column) const
{
    const Track& track = m_rows.at(row);
    // Only a timed list marks anything here: a fixed start time in bold, a row that gives way to a
    // fixed time struck out.
    const bool fixedStart =
        column == StartTimeColumn && !track.isCommand && track.timed.isTimed() && m_timing.isPlanned();
    const bool struckOut = skippedForTime(row).isValid();
    if (row == m_currentRow || track.isCommand || fixedStart) {
        QFont font;
        font.setWeight(QFont::Bold);
        font.setItalic(track.italic);
        font.setStrikeOut(struckOut);
        return font;
    }
    if (track.italic || struckOut) {
        QFont font;
        font.setWeight(QFont::Normal);
        font.setItalic(track.italic);
        font.setStrikeOut(struckOut);
        return font;
    }
    return {};
}

void PlaylistModel::setParamsSource(ParamsSource source)
{
    m_colours->setParamsSource(std::move(source));
}

void PlaylistModel::emitColoursChanged(const QSet<QString>& filePaths)
{
    if (filePaths.isEmpty())
        return;
    int first = -1;
    int last = -1;
    for (int row = 0; row < m_rows.size(); ++row) {
        if (!filePaths.contains(m_rows.at(row).filePath))
            continue;
        if (first < 0)
            first = row;
        last = row;
    }
    if (first >= 0)
        emit dataChanged(index(first, 0), index(last, ColumnCount - 1), {Qt::BackgroundRole});
}

QVariant PlaylistModel::backgroundData(int row) const
{
    const Track& track = m_rows.at(row);
    if (hourMarkerAt(row) >= 0)
        return QBrush(kHourMarkerBackground);
    if (track.isCommand)
        return QBrush(kCommandBackground);
    if (row == m_currentRow)
        return QBrush(kCurrentBackground);
    if (track.isStream || track.filePath.isEmpty())
        return {};
    // Unknown until the file is read, just after this repaint.
    if (m_colours->hasVoiceover(track.filePath).value_or(false))
        return QBrush(kVoiceoverBackground);
    return {};
}

QVariant PlaylistModel::foregroundData(int row, int column) const
{
    const Track& track = m_rows.at(row);
    if (column == RemoveColumn)
        return QBrush(kRemoveForeground);
    if (column == StopColumn)
        return QBrush(kStopForeground);
    if (m_playedRows.contains(row) && row != m_currentRow)
        return QBrush(kPlayedForeground);
    if (track.isStream)
        return QBrush(kStreamForeground);
    if (track.isCommand)
        return QBrush(kCommandForeground);
    if (isJingle(track))
        return QBrush(kJingleForeground);
    return {};
}

// --- drag and drop ------------------------------------------------------------------------

QStringList PlaylistModel::mimeTypes() const
{
    return {kRowsMimeType, kUriListMimeType};
}

QMimeData* PlaylistModel::mimeData(const QModelIndexList& indexes) const
{
    QList<int> rows;
    for (const QModelIndex& index : indexes) {
        // Each selected row arrives once per column; the payload keeps it once.
        if (index.isValid() && index.column() >= 0 && index.model() != nullptr)
            rows.append(index.row());
    }
    auto* mime = new QMimeData;
    mime->setData(kRowsMimeType, PlaylistMime::encodeRows(rows));
    return mime;
}

bool PlaylistModel::dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                                 const QModelIndex& parent)
{
    Q_UNUSED(column)
    if (action == Qt::IgnoreAction)
        return true;
    if (data == nullptr)
        return false;
    int destination = row;
    if (destination < 0)
        destination = parent.isValid() ? parent.row() : rowCount();

    if (data->hasFormat(kRowsMimeType)) {
        moveTracks(PlaylistMime::decodeRows(data->data(kRowsMimeType)), destination);
        // False on purpose: a view that made a move drag must not remove the source rows again.
        return false;
    }
    if (!data->hasUrls())
        return false;
    QList<Track> dropped = PlaylistMime::tracksFromUrls(data->urls());
    if (dropped.isEmpty())
        return false;
    const int count = int(dropped.size());
    const int first = insertTracksAt(destination, std::move(dropped));
    emit tracksInserted(first, count);
    return true;
}

Qt::DropActions PlaylistModel::supportedDropActions() const
{
    return Qt::CopyAction | Qt::MoveAction;
}

// --- read access --------------------------------------------------------------------------

const QList<Track>& PlaylistModel::tracks() const
{
    return m_rows;
}

qint64 PlaylistModel::rowId(int row) const
{
    return isValidRow(row) ? m_rowIds.at(row) : 0;
}

int PlaylistModel::rowOfId(qint64 id) const
{
    return id > 0 ? int(m_rowIds.indexOf(id)) : -1;
}

int PlaylistModel::currentRow() const
{
    return m_currentRow;
}

const QList<int>& PlaylistModel::queue() const
{
    return m_queue;
}

int PlaylistModel::queuePosition(int row) const
{
    return int(m_queue.indexOf(row)) + 1;
}

PlaylistModel::MixOverride PlaylistModel::rowMixOverride(int row) const
{
    return m_rowMixOverrides.value(row, MixOverride(-1, -1));
}

QList<PlaylistModel::MixOverride> PlaylistModel::rowMixOverrides(int firstRow, int count) const
{
    QList<MixOverride> values;
    if (count < 1)
        return values;
    values.reserve(count);
    for (int i = 0; i < count; ++i) {
        const std::optional<int> row = offsetRow(firstRow, i);
        values.append(row ? rowMixOverride(*row) : MixOverride(-1, -1));
    }
    return values;
}

bool PlaylistModel::isPlayed(int row) const
{
    return m_playedRows.contains(row);
}

const QSet<int>& PlaylistModel::playedRows() const
{
    return m_playedRows;
}

int PlaylistModel::rowCounter(int row) const
{
    return m_rowCounters.value(row, 0);
}

bool PlaylistModel::hourMarkersVisible() const
{
    return m_hourMarkersVisible;
}

int PlaylistModel::hourMarkerAt(int row) const
{
    if (!m_hourMarkersVisible || !isValidRow(row))
        return -1;
    const QTime start = m_rows.at(row).startTime;
    if (!start.isValid())
        return -1;
    if (row == 0)
        return start.hour();
    const QTime previous = m_rows.at(row - 1).startTime;
    if (!previous.isValid())
        return -1;
    return start.hour() != previous.hour() ? start.hour() : -1;
}

QTime PlaylistModel::startAnchor() const
{
    return m_startAnchor;
}

qint64 PlaylistModel::totalDuration() const
{
    qint64 total = 0;
    for (const Track& track : m_rows)
        total += track.durationMs;
    return total;
}

// --- structure ----------------------------------------------------------------------------

void PlaylistModel::appendTrack(const Track& track)
{
    insertTrack(rowCount(), track);
}

void PlaylistModel::appendTracks(const QList<Track>& tracks)
{
    insertTracksAt(rowCount(), tracks);
}

void PlaylistModel::insertTrack(int row, const Track& track)
{
    insertTracksAt(row, QList<Track>{track});
}

int PlaylistModel::insertTracksAt(int row, QList<Track> tracks)
{
    const int first = std::clamp(row, 0, rowCount());
    const int count = int(tracks.size());
    if (count == 0)
        return first;
    beginInsertRows(QModelIndex(), first, first + count - 1);
    // Open the gap once, then fill it: a drop of a whole folder shifts the rows below only once.
    m_rows.insert(first, count, Track());
    m_rowIds.insert(first, count, 0);
    for (int i = 0; i < count; ++i) {
        m_rows[first + i] = std::move(tracks[i]);
        m_rowIds[first + i] = ++lastRowId;
    }
    endInsertRows();
    recalculateStartTimes();
    return first;
}

void PlaylistModel::removeTrack(int row)
{
    if (!isValidRow(row))
        return;
    beginRemoveRows(QModelIndex(), row, row);
    m_rows.removeAt(row);
    m_rowIds.removeAt(row);
    endRemoveRows();
    if (m_currentRow == row)
        m_currentRow = -1;
    else if (m_currentRow > row)
        --m_currentRow;
    recalculateStartTimes();
}

void PlaylistModel::removeTracksAfter(int row)
{
    if (row < 0)
        row = m_currentRow >= 0 ? m_currentRow : 0;
    // "rowCount() - 1 > row" rather than "rowCount() > row + 1": the largest int must keep every row,
    // not wrap around and loop forever.
    while (rowCount() - 1 > row)
        removeTrack(rowCount() - 1);
}

void PlaylistModel::removeTracksBefore(int count)
{
    if (count < 0)
        count = m_currentRow;
    if (count < 1)
        return;
    for (int i = 0; i < count && !m_rows.isEmpty(); ++i)
        removeTrack(0); // its own remove notification, current-row adjustment and recomputation
    m_playedRows.clear();
}

void PlaylistModel::moveTrack(int from, int to)
{
    if (!isValidRow(from))
        return;
    to = std::clamp(to, 0, rowCount() - 1);
    if (from == to)
        return;
    beginResetModel();
    m_rows.move(from, to);
    m_rowIds.move(from, to);
    if (m_currentRow == from)
        m_currentRow = to;
    endResetModel();
    recalculateStartTimes();
}

void PlaylistModel::moveTracks(const QList<int>& rows, int destination)
{
    if (rows.isEmpty())
        return;
    // Only distinct rows of this table take part: a payload from elsewhere may hold anything.
    QList<int> sorted;
    sorted.reserve(rows.size());
    for (int row : rows) {
        if (isValidRow(row))
            sorted.append(row);
    }
    std::sort(sorted.begin(), sorted.end());
    sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
    if (sorted.isEmpty())
        return;

    // One pass instead of a removal and an insertion per row: a drag of many rows on a long
    // playlist stays linear in its length.
    const int n = rowCount();
    std::vector<bool> listed(size_t(n), false);
    int before = 0;
    for (int row : sorted) {
        listed[size_t(row)] = true;
        if (row < destination)
            ++before;
    }

    beginResetModel();
    QList<Track> moving;
    QList<Track> remaining;
    QList<qint64> movingIds;
    QList<qint64> remainingIds;
    moving.reserve(sorted.size());
    remaining.reserve(n - sorted.size());
    for (int row = 0; row < n; ++row) {
        if (listed[size_t(row)]) {
            moving.append(std::move(m_rows[row]));
            movingIds.append(m_rowIds.at(row));
        } else {
            remaining.append(std::move(m_rows[row]));
            remainingIds.append(m_rowIds.at(row));
        }
    }
    const int position = std::clamp(destination - before, 0, int(remaining.size()));
    QList<Track> reordered;
    reordered.reserve(n);
    for (int i = 0; i < position; ++i)
        reordered.append(std::move(remaining[i]));
    for (Track& track : moving)
        reordered.append(std::move(track));
    for (int i = position; i < remaining.size(); ++i)
        reordered.append(std::move(remaining[i]));
    m_rows = std::move(reordered);
    m_rowIds = remainingIds.mid(0, position) + movingIds + remainingIds.mid(position);
    endResetModel();
    recalculateStartTimes();
}

void PlaylistModel::clear()
{
    beginResetModel();
    m_rows.clear();
    m_timing.clear();
    m_rowIds.clear();
    m_currentRow = -1;
    m_playedRows.clear();
    m_rowCounters.clear();
    endResetModel();
}

void PlaylistModel::shuffle()
{
    const int n = rowCount();
    if (n < 2)
        return;
    beginResetModel();
    QRandomGenerator64* random = QRandomGenerator64::global();
    for (int k = n; k >= 2; --k) {
        // The 32-bit draw: QRandomGenerator64::generate() itself would give 64 bits.
        const quint32 x = random->QRandomGenerator::generate();
        const int j = int((quint64(x) * quint64(k)) >> 32);
        m_rows.swapItemsAt(k - 1, j);
        m_rowIds.swapItemsAt(k - 1, j);
    }
    m_rowMixOverrides.clear();
    m_queue.clear();
    endResetModel();
    recalculateStartTimes();
}

void PlaylistModel::replaceTrack(int row, const Track& track)
{
    if (!isValidRow(row))
        return;
    m_rows[row] = track;
    emitRowChanged(row);
}

// --- playing mark and played set ----------------------------------------------------------

void PlaylistModel::setCurrentRow(int row)
{
    const int old = m_currentRow;
    if (isValidRow(old)) {
        // Clearing the mark (-1) does not count the last row as played.
        if (row >= 0 && row != old)
            m_playedRows.insert(old);
        m_currentRow = row;
        emitRowChanged(old);
    } else {
        m_currentRow = row;
    }
    if (isValidRow(row))
        emitRowChanged(row);
    // A timed list plans from the current row: what lies above it has aired.
    if (m_timing.isPlanned())
        recalculateStartTimes();
}

void PlaylistModel::markPlayed(int row)
{
    if (!isValidRow(row) || m_playedRows.contains(row))
        return;
    m_playedRows.insert(row);
    emitRowChanged(row);
}

void PlaylistModel::clearPlayed()
{
    if (m_playedRows.isEmpty())
        return;
    m_playedRows.clear();
    emitWholeTableChanged();
}

// --- play queue ---------------------------------------------------------------------------

void PlaylistModel::enqueue(int row)
{
    if (!isValidRow(row) || m_queue.contains(row))
        return;
    m_queue.append(row);
    emitRowChanged(row);
}

int PlaylistModel::takeNextQueued()
{
    while (!m_queue.isEmpty()) {
        const int row = m_queue.takeFirst();
        if (isValidRow(row)) {
            emitWholeTableChanged();
            return row;
        }
    }
    return -1;
}

void PlaylistModel::dequeue(int row)
{
    if (m_queue.removeOne(row))
        emitWholeTableChanged();
}

void PlaylistModel::moveQueued(int from, int to)
{
    const int size = int(m_queue.size());
    if (from < 0 || from >= size || to < 0 || to >= size)
        return;
    m_queue.move(from, to);
    emitWholeTableChanged();
}

void PlaylistModel::clearQueue()
{
    if (m_queue.isEmpty())
        return;
    m_queue.clear();
    emitWholeTableChanged();
}

// --- per-row values -----------------------------------------------------------------------

void PlaylistModel::setRowMixOverrides(int firstRow, const QList<PlaylistModel::MixOverride>& values)
{
    // Rows outside the table are kept too; nothing is shown for these values, so nothing is signalled.
    for (int i = 0; i < values.size(); ++i) {
        const std::optional<int> row = offsetRow(firstRow, i);
        if (!row)
            break; // no row number left: never wrap around to negative rows
        const MixOverride& value = values.at(i);
        if (value.first < 0 && value.second < 0)
            m_rowMixOverrides.remove(*row);
        else
            m_rowMixOverrides.insert(*row, value);
    }
}

void PlaylistModel::raiseRowCounter(int row, int value)
{
    if (!isValidRow(row) || value < 1)
        return;
    if (rowCounter(row) >= value)
        return;
    m_rowCounters.insert(row, value);
    const QModelIndex cell = index(row, CounterColumn);
    emit dataChanged(cell, cell);
}

// --- schedule -----------------------------------------------------------------------------

void PlaylistModel::setHourMarkersVisible(bool on)
{
    if (on == m_hourMarkersVisible)
        return;
    m_hourMarkersVisible = on;
    emitWholeTableChanged();
}

void PlaylistModel::recalculateStartTimes()
{
    const BackTiming::Plan before = m_timing.recompute(m_rows, m_currentRow, m_startAnchor, startAnchorAt());
    if (!m_rows.isEmpty())
        emit dataChanged(index(0, StartTimeColumn), index(rowCount() - 1, StartTimeColumn));
    emitTimedMarkChanges(before);
}

void PlaylistModel::emitTimedMarkChanges(const BackTiming::Plan& before)
{
    for (const auto& [first, last] : m_timing.changedMarks(before, rowCount()))
        emit dataChanged(index(first, 0), index(last, ColumnCount - 1));
}

void PlaylistModel::setStartAnchor(const QTime& anchor)
{
    m_startAnchor = anchor;
    m_startAnchorDay = PlaylistTiming::nearestDay(anchor, QDateTime::currentDateTime());
    recalculateStartTimes();
}

void PlaylistModel::setStartAnchorAt(const QDateTime& anchor)
{
    m_startAnchor = anchor.time();
    m_startAnchorDay = anchor.date();
    recalculateStartTimes();
}

QDateTime PlaylistModel::startAnchorAt() const
{
    if (!m_startAnchor.isValid() || !m_startAnchorDay.isValid())
        return QDateTime();
    return QDateTime(m_startAnchorDay, m_startAnchor);
}

const BackTiming::Plan& PlaylistModel::timedPlan() const
{
    return m_timing.plan();
}

QDateTime PlaylistModel::skippedForTime(int row) const
{
    return m_timing.skippedForTime(m_rows, row);
}

void PlaylistModel::setRowTimed(int row, const TimedStart& timed)
{
    if (!isValidRow(row) || m_rows.at(row).isCommand)
        return;
    m_rows[row].timed = timed.isTimed() ? timed : TimedStart();
    emitRowChanged(row);
    recalculateStartTimes();
}

void PlaylistModel::refresh()
{
    m_colours->refresh(m_rows);
    emitWholeTableChanged();
}

// --- helpers ------------------------------------------------------------------------------

bool PlaylistModel::isValidRow(int row) const
{
    return row >= 0 && row < m_rows.size();
}

void PlaylistModel::emitRowChanged(int row)
{
    emit dataChanged(index(row, 0), index(row, ColumnCount - 1));
}

void PlaylistModel::emitWholeTableChanged()
{
    if (m_rows.isEmpty())
        return;
    emit dataChanged(index(0, 0), index(rowCount() - 1, ColumnCount - 1));
}
