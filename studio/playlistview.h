#pragma once

#include "track.h"

#include <QTableView>

class PlaylistModel;
class QMenu;

// The running order on screen: Qt's table view over the PlaylistModel. Column 0 removes a row,
// column 6 puts a STOP after it, a double-click plays it, the context menu queues, removes, sets
// the mix override and gives a row a fixed start time; rows move by drag and files or stream addresses dropped on it become rows
// (the model's own drop handling).
class PlaylistView : public QTableView
{
    Q_OBJECT

public:
    explicit PlaylistView(PlaylistModel* playlist, QWidget* parent = nullptr);

    PlaylistModel* playlist() const { return m_playlist; }

    // A STOP command row.
    static Track stopRow();

    // The row's playing entries (play, queue, STOP, mix override, remove); the caller shows the menu.
    // Exposed so that the offered entries can be read.
    QMenu* createContextMenu(int row);
    // What a right-click on the row shows: those, then its fixed start time entries.
    QMenu* createRowMenu(int row);

public slots:
    void removeRow(int row);
    void insertStopAfter(int row);
    void toggleQueued(int row);
    // Asks for the row's mix point and fade-out and stores them as its override.
    void editMixOverride(int row);
    // Asks for the row's fixed start time (off, hard or soft, and when) and gives it to the row.
    void editFixedStart(int row);
    void clearFixedStart(int row);

signals:
    void playRowRequested(int row);

private:
    void onClicked(const QModelIndex& index);
    void onDoubleClicked(const QModelIndex& index);
    void showContextMenu(const QPoint& position);

    PlaylistModel* m_playlist;
};
