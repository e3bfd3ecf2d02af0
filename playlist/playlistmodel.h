#pragma once

#include "backtiming.h"
#include "playlistcolours.h"
#include "playlisttiming.h"
#include "track.h"
#include "trackparams.h"
#include "tracktext.h"

#include <QAbstractTableModel>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QPair>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QTime>

#include <functional>

class QMimeData;

// True for a trimmed text that begins, in any letter case, with "http://", "https://", "mms://",
// "rtsp://" or "rtmp://".
bool isStreamUrl(const QString& text);

// A playlist row for a dropped local file: trackFromFileName (library/tracktext.h). Streams come from
// trackFromStreamUrl there too.
Track trackFromDroppedFile(const QString& path);

// The running order of the playout side, shown as a seven-column table.
//
// Row-keyed state (current row, play queue, played set, counters, mix overrides) holds plain row
// indices and is deliberately NOT renumbered when rows are inserted, moved, shuffled or removed, except
// where an operation says so: the view shows whatever row now has that index.
//
// Names chosen here where none was given: MixOverride (the pair of mix point ms and fade-out ms, -1 =
// none), the column enum, rowsMimeType(), setStartAnchor()/startAnchor() (fix or move the schedule's
// start), replaceTrack() (update one record in place without recomputing the schedule), and the read
// accessors isPlayed(), playedRows(), rowCounter(), hourMarkersVisible().
class PlaylistModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    // Mix point (first) and fade-out (second) in milliseconds; -1 in either half means none.
    using MixOverride = QPair<int, int>;

    enum Column {
        RemoveColumn = 0,
        NumberColumn = 1,
        StartTimeColumn = 2,
        TitleColumn = 3,
        DurationColumn = 4,
        CounterColumn = 5,
        StopColumn = 6,
        ColumnCount = 7
    };

    // Data roles beyond the standard ones, answered only where they apply.
    enum Role {
        SkippedForTimeRole = Qt::UserRole + 40 // QDateTime: see skippedForTime()
    };

    // "application/x-ondaro-rows": this playlist's own row-move payload.
    static QString rowsMimeType();

    explicit PlaylistModel(QObject* parent = nullptr);

    // --- item model -----------------------------------------------------------------------
    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;

    // --- drag and drop --------------------------------------------------------------------
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    bool dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                      const QModelIndex& parent) override;
    Qt::DropActions supportedDropActions() const override;

    // --- read access ----------------------------------------------------------------------
    const QList<Track>& tracks() const;
    // A row's identity: given when the row is inserted, kept through moves, shuffles and
    // replaceTrack, never given again (in any playlist of the process). 0 for no such row.
    qint64 rowId(int row) const;
    // The row that now holds the id, -1 when it was removed (or never existed).
    int rowOfId(qint64 id) const;
    int currentRow() const;
    // Row numbers in the order in which they are to play.
    const QList<int>& queue() const;
    // 1-based position of row in the queue, 0 when it is not queued.
    int queuePosition(int row) const;
    MixOverride rowMixOverride(int row) const;
    QList<MixOverride> rowMixOverrides(int firstRow, int count) const;
    bool isPlayed(int row) const;
    const QSet<int>& playedRows() const;
    // The counter of column 5, 0 when the row has none.
    int rowCounter(int row) const;
    bool hourMarkersVisible() const;
    // The hour (0..23) that begins at row, or -1.
    int hourMarkerAt(int row) const;
    // Running to time. While no row carries a fixed time the plan is empty and the schedule is the
    // plain running order from the anchor. Once one does, the start times come from the plan: a
    // timed row starts at its fixed time and the rows after it from there, as of the start of the
    // current row (or of the anchor when none is current). Rows are counted in whole seconds.
    const BackTiming::Plan& timedPlan() const;
    // For a row that gives way to a fixed time (skipped, or a timed row gone stale): the fixed time it
    // gives way to; invalid otherwise. Also through SkippedForTimeRole.
    QDateTime skippedForTime(int row) const;
    // The anchor with its day: the moment row 0 starts.
    QDateTime startAnchorAt() const;
    // Start time of row 0; the time of day at construction unless setStartAnchor moved it.
    QTime startAnchor() const;
    // Sum of durationMs over all rows, milliseconds.
    qint64 totalDuration() const;

    // Where the background colour finds a file's parameters (unset: the store); the studio hands in
    // the playout's read-ahead view, so that a server that does not answer never holds a repaint.
    // What the colour needs is kept per file and read off the paint path: a file painted for the
    // first time is read just after (and its rows repainted), and again when its parameters change
    // (TrackParamsChanges) or refresh() is called. A repaint itself never reads.
    using ParamsSource = std::function<TrackParams(const QString& filePath)>;
    void setParamsSource(ParamsSource source);

public slots:
    // --- structure (each recomputes start times unless stated) -----------------------------
    void appendTrack(const Track& track);
    // Appends many rows with one insert notification and one schedule pass (a long playlist file).
    void appendTracks(const QList<Track>& tracks);
    void insertTrack(int row, const Track& track);
    void removeTrack(int row);
    void removeTracksAfter(int row = -1);
    void removeTracksBefore(int count = -1);
    void moveTrack(int from, int to);
    void moveTracks(const QList<int>& rows, int destination);
    void clear();
    void shuffle();
    // Replaces the record of row as given (startTime included) and signals that row; does not
    // recompute the schedule, so a caller that changes durations calls recalculateStartTimes() once
    // after its batch. Ignores an invalid row.
    void replaceTrack(int row, const Track& track);

    // --- playing mark and played set --------------------------------------------------------
    void setCurrentRow(int row);
    void markPlayed(int row);
    void clearPlayed();

    // --- play queue -----------------------------------------------------------------------
    void enqueue(int row);
    // Removes and returns the first queued entry that is still a valid row, -1 when none.
    int takeNextQueued();
    void dequeue(int row);
    // from and to are 0-based positions in the queue.
    void moveQueued(int from, int to);
    void clearQueue();

    // --- per-row values -------------------------------------------------------------------
    void setRowMixOverrides(int firstRow, const QList<PlaylistModel::MixOverride>& values);
    void raiseRowCounter(int row, int value);

    // --- schedule -------------------------------------------------------------------------
    void setHourMarkersVisible(bool on);
    void recalculateStartTimes();
    // Re-anchors the schedule (tests fix it; a station may align it to the actual start) and
    // recomputes start times.
    void setStartAnchor(const QTime& anchor);
    // The same with the day given (a time of day alone takes the day that puts it nearest to now).
    void setStartAnchorAt(const QDateTime& anchor);
    // Gives the row a fixed start time (mode None clears it) and recomputes start times. Ignores an
    // invalid row and command rows, which have no fixed time.
    void setRowTimed(int row, const TimedStart& timed);
    // Reads the colours' parameters again and repaints every row (for example after track parameters
    // changed on another machine).
    void refresh();

signals:
    // Emitted after dropped URLs became rows firstRow..firstRow+count-1.
    void tracksInserted(int firstRow, int count);

private:
    bool isValidRow(int row) const;
    // Inserts tracks at row (clamped to 0..rowCount()) with one insert notification, recomputes the
    // start times and returns the row of the first new track.
    int insertTracksAt(int row, QList<Track> tracks);
    void emitRowChanged(int row);
    void emitWholeTableChanged();
    QString titleText(int row) const;
    QVariant displayData(int row, int column) const;
    QVariant toolTipData(int row, int column) const;
    QVariant backgroundData(int row) const;
    QVariant foregroundData(int row, int column) const;
    QVariant fontData(int row, int column) const;
    // Announces the rows whose skip or cut mark differs from `before`.
    void emitTimedMarkChanges(const BackTiming::Plan& before);
    // Repaints the rows of files whose colour changed.
    void emitColoursChanged(const QSet<QString>& filePaths);

    QHash<int, MixOverride> m_rowMixOverrides;
    QList<int> m_queue;
    QSet<int> m_playedRows;
    QHash<int, int> m_rowCounters;
    bool m_hourMarkersVisible = false;
    QDate m_startAnchorDay;
    PlaylistTiming m_timing;
    QList<Track> m_rows;
    QList<qint64> m_rowIds; // parallel to m_rows
    int m_currentRow = -1;
    QTime m_startAnchor;
    PlaylistColours* m_colours = nullptr; // a child: the Qt parent tree owns it
};
