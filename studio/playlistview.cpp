#include "playlistview.h"

#include "fixedstartdialog.h"
#include "mixoverridedialog.h"
#include "playlistmodel.h"
#include "stopbuttondelegate.h"
#include "studioschedule.h"

#include <QHeaderView>
#include <QMenu>

namespace {

const QString playNowText = QStringLiteral("Play now");
const QString enqueueText = QStringLiteral("Add to queue");
const QString dequeueText = QStringLiteral("Remove from queue");
const QString stopAfterText = QStringLiteral("Insert STOP after");
const QString removeText = QStringLiteral("Remove");
const QString mixOverrideText = QStringLiteral("Mix override…");
const QString fixedStartText = QStringLiteral("Fixed start time…");
const QString clearFixedStartText = QStringLiteral("Clear fixed start time");

// The next moment at or after now with the given time of day: where a row planned for that time
// would be given it.
QDateTime nextAt(const QTime& time)
{
    const QDateTime now = QDateTime::currentDateTime();
    if (!time.isValid())
        return now;
    QDateTime at(now.date(), time);
    if (at < now)
        at = QDateTime(now.date().addDays(1), time);
    return at;
}

} // namespace

PlaylistView::PlaylistView(PlaylistModel* playlist, QWidget* parent)
    : QTableView(parent), m_playlist(playlist)
{
    setModel(playlist);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setAlternatingRowColors(false);
    setWordWrap(false);
    setShowGrid(false);
    // Rows move within the list, and files come in from outside; the model decides both.
    setDragEnabled(true);
    setAcceptDrops(true);
    setDropIndicatorShown(true);
    setDragDropMode(QAbstractItemView::DragDrop);
    setDefaultDropAction(Qt::MoveAction);
    setDragDropOverwriteMode(false);
    setContextMenuPolicy(Qt::CustomContextMenu);

    // Fixed row heights and no content-based sizing: a 10,000-row list costs nothing to lay out.
    verticalHeader()->setVisible(false);
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 8);
    QHeaderView* header = horizontalHeader();
    header->setHighlightSections(false);
    header->setSectionResizeMode(QHeaderView::Interactive);
    header->setSectionResizeMode(PlaylistModel::TitleColumn, QHeaderView::Stretch);
    header->setSectionResizeMode(PlaylistModel::RemoveColumn, QHeaderView::Fixed);
    header->setSectionResizeMode(PlaylistModel::StopColumn, QHeaderView::Fixed);
    setColumnWidth(PlaylistModel::RemoveColumn, 28);
    setColumnWidth(PlaylistModel::NumberColumn, 52);
    setColumnWidth(PlaylistModel::StartTimeColumn, 100);
    setColumnWidth(PlaylistModel::DurationColumn, 70);
    setColumnWidth(PlaylistModel::CounterColumn, 36);
    setColumnWidth(PlaylistModel::StopColumn, 28);

    setItemDelegateForColumn(PlaylistModel::StopColumn, new StopButtonDelegate(this));

    connect(this, &QTableView::clicked, this, &PlaylistView::onClicked);
    connect(this, &QTableView::doubleClicked, this, &PlaylistView::onDoubleClicked);
    connect(this, &QWidget::customContextMenuRequested, this, &PlaylistView::showContextMenu);
}

Track PlaylistView::stopRow()
{
    Track stop;
    stop.isCommand = true;
    stop.command = QStringLiteral("stop");
    return stop;
}

void PlaylistView::onClicked(const QModelIndex& index)
{
    if (!index.isValid())
        return;
    if (index.column() == PlaylistModel::RemoveColumn)
        removeRow(index.row());
    else if (index.column() == PlaylistModel::StopColumn)
        insertStopAfter(index.row());
}

void PlaylistView::onDoubleClicked(const QModelIndex& index)
{
    // Columns 0 and 6 are buttons: their first click has already acted.
    if (!index.isValid() || index.column() == PlaylistModel::RemoveColumn ||
        index.column() == PlaylistModel::StopColumn)
        return;
    emit playRowRequested(index.row());
}

void PlaylistView::removeRow(int row)
{
    m_playlist->removeTrack(row);
}

void PlaylistView::insertStopAfter(int row)
{
    if (row < 0 || row >= m_playlist->rowCount())
        return;
    m_playlist->insertTrack(row + 1, stopRow());
}

void PlaylistView::toggleQueued(int row)
{
    if (m_playlist->queuePosition(row) > 0)
        m_playlist->dequeue(row);
    else
        m_playlist->enqueue(row);
}

void PlaylistView::editMixOverride(int row)
{
    if (row < 0 || row >= m_playlist->rowCount())
        return;
    const PlaylistModel::MixOverride current = m_playlist->rowMixOverride(row);
    auto* dialog = new MixOverrideDialog(StudioSchedule::trackText(m_playlist->tracks().at(row)),
                                         current.first, current.second, this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    // Window-modal without a nested event loop: playback and the display keep running meanwhile.
    connect(dialog, &QDialog::accepted, this, [this, row, dialog] {
        m_playlist->setRowMixOverrides(
            row, {PlaylistModel::MixOverride(dialog->mixPointMs(), dialog->fadeOutMs())});
    });
    dialog->open();
}

void PlaylistView::editFixedStart(int row)
{
    if (row < 0 || row >= m_playlist->rowCount() || m_playlist->tracks().at(row).isCommand)
        return;
    const Track& track = m_playlist->tracks().at(row);
    auto* dialog =
        new FixedStartDialog(StudioSchedule::trackText(track), track.timed, nextAt(track.startTime), this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    // The row is followed by its identity: rows may move while the dialog is open.
    const qint64 id = m_playlist->rowId(row);
    connect(dialog, &QDialog::accepted, this,
            [this, id, dialog] { m_playlist->setRowTimed(m_playlist->rowOfId(id), dialog->timedStart()); });
    dialog->open();
}

void PlaylistView::clearFixedStart(int row)
{
    m_playlist->setRowTimed(row, TimedStart());
}

QMenu* PlaylistView::createContextMenu(int row)
{
    auto* menu = new QMenu(this);
    menu->addAction(playNowText, this, [this, row] { emit playRowRequested(row); });
    const bool queued = m_playlist->queuePosition(row) > 0;
    menu->addAction(queued ? dequeueText : enqueueText, this, [this, row] { toggleQueued(row); });
    menu->addSeparator();
    menu->addAction(stopAfterText, this, [this, row] { insertStopAfter(row); });
    menu->addAction(mixOverrideText, this, [this, row] { editMixOverride(row); });
    menu->addSeparator();
    menu->addAction(removeText, this, [this, row] { removeRow(row); });
    return menu;
}

QMenu* PlaylistView::createRowMenu(int row)
{
    QMenu* menu = createContextMenu(row);
    const bool valid = row >= 0 && row < m_playlist->rowCount();
    const bool command = valid && m_playlist->tracks().at(row).isCommand;
    const bool timed = valid && !command && m_playlist->tracks().at(row).timed.isTimed();
    menu->addSeparator();
    // A command row has no fixed time of its own: the entries are shown, greyed.
    menu->addAction(fixedStartText, this, [this, row] { editFixedStart(row); })
        ->setEnabled(valid && !command);
    menu->addAction(clearFixedStartText, this, [this, row] { clearFixedStart(row); })->setEnabled(timed);
    return menu;
}

void PlaylistView::showContextMenu(const QPoint& position)
{
    const QModelIndex index = indexAt(position);
    if (!index.isValid())
        return;
    QMenu* menu = createRowMenu(index.row());
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->popup(viewport()->mapToGlobal(position));
}
