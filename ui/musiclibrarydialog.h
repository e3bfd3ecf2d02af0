#pragma once

#include "musiclibrary.h"
#include "track.h"

#include <QDialog>
#include <QList>

class DurationScanner;
class LibraryWatcher;
class QComboBox;
class QLabel;
class QLineEdit;
class QPoint;
class TrackTableWidget;

// The Library Manager window: one library of the store in a table, with library selection,
// search-as-you-type, per-column filters, adding of files, folders and streams, and upkeep.
class MusicLibraryDialog : public QDialog
{
    Q_OBJECT

public:
    explicit MusicLibraryDialog(QWidget* parent = nullptr);

    // Read access for the program's owner and for tests; the window itself owns all of these.
    const MusicLibrary& library() const { return lib; }
    DurationScanner* durationScanner() const { return scanner; }

signals:
    void sendToPlaylist(const Track& track);
    void librariesChanged();

public slots:
    void addFiles();
    void addFolder();
    void addStream();
    void editStream(const Track& existing);
    // The stream editor; an `existing` track with an empty URL stands for a new stream.
    void streamDialog(const Track& existing = Track());
    MusicLibrary::Query currentQuery() const;
    void verifyLibrary();
    // Tools: loudness and cue points of the library's files that lack an up-to-date analysis.
    void analyseLibrary();
    void newLibrary();
    void deleteLibrary();
    void openSelectedLibrary();
    void onCellActivated(int row, int column);
    // Context menu "Set category…": asks for a rotation category (one in use, or a new one) and
    // stores it for the selected rows' entries.
    void setCategoryOfSelection();
    void refreshTable();

private slots:
    void onDurationResolved(const QString& path, qint64 durationMs);
    void onScannerFinished();
    void showTableContextMenu(const QPoint& pos);
    void resetFilters();
    // A shared library changed on another machine, or its server came back.
    void onLibraryChangedElsewhere();
    void onConnectionRestored();

private:
    QWidget* buildToolRow();
    QLayout* buildFilterRow();
    void reloadLibraries();
    // "Library ... - Tracks: n", followed by why the library's server cannot be used, if it cannot.
    QString statusText() const;

    MusicLibrary lib;
    TrackTableWidget* table = nullptr;
    QComboBox* librarySelector = nullptr;
    QLineEdit* searchBox = nullptr;
    // all, artist, title, album, year, genre, comment, duration, file name
    QList<QLineEdit*> filterBoxes;
    QLabel* statusLabel = nullptr;
    DurationScanner* scanner = nullptr;
    LibraryWatcher* watcher = nullptr;
    bool loadingLibraries = false;
    bool durationsUpdated = false;
    // File paths without a duration as of the last full refresh; reused while only typing happens.
    QStringList missingDurations;
    bool missingDurationsKnown = false;
};
