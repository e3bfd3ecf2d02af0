#include "musiclibrarydialog.h"

#include "analysisprogress.h"
#include "durationscanner.h"
#include "librarywatcher.h"
#include "trackcategories.h"
#include "tracktablewidget.h"

#include <QComboBox>
#include <QCoreApplication>
#include <QEventLoop>
#include <QFileDialog>
#include <QFutureWatcher>
#include <QHBoxLayout>
#include <QHash>
#include <QHeaderView>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressDialog>
#include <QPushButton>
#include <QScrollBar>
#include <QVBoxLayout>
#include <QtConcurrent/QtConcurrentRun>

namespace {

constexpr int kBatchSize = 50;

const QStringList& columnHeaders()
{
    static const QStringList headers = {
        QStringLiteral("Artist"),   QStringLiteral("Title"),    QStringLiteral("Album"),
        QStringLiteral("Year"),     QStringLiteral("Genre"),    QStringLiteral("Comment"),
        QStringLiteral("Duration"), QStringLiteral("Plays"),    QStringLiteral("Last played"),
        QStringLiteral("Added"),    QStringLiteral("Filename"), QStringLiteral("Path")};
    return headers;
}

// Deliberately two lists: the chooser offers eight extensions, the folder scan accepts all ten.
const QString kAudioFileFilter =
    QStringLiteral("Audio files (*.mp3 *.wav *.ogg *.flac *.m4a *.aac *.opus *.wma);;All files (*.*)");

// Date formatting goes through the locale and dominates the fill of a large table; many rows share
// one date (a folder added at once), so the texts are remembered per value for the current fill.
class DateTexts
{
public:
    QString added(const QDateTime& when)
    {
        if (!when.isValid())
            return QString();
        return cached(addedTexts, when, QStringLiteral("d MMM yyyy"));
    }
    QString lastPlayed(const QDateTime& when)
    {
        if (!when.isValid())
            return QStringLiteral("never");
        return cached(playedTexts, when, QStringLiteral("d MMM yyyy HH:mm"));
    }

private:
    static QString cached(QHash<qint64, QString>& texts, const QDateTime& when, const QString& format)
    {
        // Keyed by the date and time as shown, which is all the formats use; the moment since the
        // epoch would cost a time-zone conversion for every row.
        const qint64 key = when.date().toJulianDay() * 86400000 + when.time().msecsSinceStartOfDay();
        auto it = texts.constFind(key);
        if (it != texts.constEnd())
            return it.value();
        const QString text = when.toString(format);
        texts.insert(key, text);
        return text;
    }
    QHash<qint64, QString> addedTexts;
    QHash<qint64, QString> playedTexts;
};

// Puts `text` in a cell. A cell that already has an item keeps it and only changes its text: a refresh
// of a large library then neither frees nor allocates a million items.
QTableWidgetItem* setCell(QTableWidget* table, int row, int column, const QString& text)
{
    if (QTableWidgetItem* existing = table->item(row, column)) {
        existing->setText(text);
        return existing;
    }
    auto* item = new QTableWidgetItem(text);
    item->setFlags(item->flags() & ~Qt::ItemIsEditable);
    table->setItem(row, column, item);
    return item;
}

void fillRow(QTableWidget* table, int row, const Track& t, DateTexts& dates)
{
    QTableWidgetItem* artist =
        setCell(table, row, 0, t.isStream ? QStringLiteral("◉ ") + t.artist : t.artist);
    if (!t.isStream)
        artist->setData(Qt::UserRole, t.filePath);
    else if (artist->data(Qt::UserRole).isValid())
        artist->setData(Qt::UserRole, QVariant()); // a reused item that showed a file before
    setCell(table, row, 1, t.title);
    setCell(table, row, 2, t.album);
    setCell(table, row, 3, t.year > 0 ? QString::number(t.year) : QString());
    setCell(table, row, 4, t.genre);
    setCell(table, row, 5, t.comment);
    QString duration;
    if (t.isStream)
        duration = QStringLiteral("STREAM");
    else if (t.durationMs > 0)
        duration = formatDuration(t.durationMs);
    else
        duration = QStringLiteral("--:--");
    setCell(table, row, 6, duration);
    setCell(table, row, 7, t.playCount > 0 ? QString::number(t.playCount) : QStringLiteral("-"));
    setCell(table, row, 8, dates.lastPlayed(t.lastPlayed));
    setCell(table, row, 9, dates.added(t.dateAdded));
    const int slash = t.filePath.lastIndexOf(QLatin1Char('/'));
    setCell(table, row, 10, t.isStream ? QStringLiteral("(online)") : t.filePath.mid(slash + 1));
    setCell(table, row, 11, t.filePath);
}

// A store without any library gets an empty "Default", at start and after the last one is deleted.
void ensureSomeLibraryExists()
{
    if (MusicLibrary::libraries().isEmpty())
        MusicLibrary::createLibrary(QStringLiteral("Default"));
}

} // namespace

MusicLibraryDialog::MusicLibraryDialog(QWidget* parent) : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Music Library"));
    setMinimumSize(880, 560);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    auto* menuBar = new QMenuBar(this);
    QMenu* libraryMenu = menuBar->addMenu(QStringLiteral("Library"));
    libraryMenu->addAction(QStringLiteral("New library..."), this, &MusicLibraryDialog::newLibrary);
    libraryMenu->addAction(QStringLiteral("Delete library..."), this, &MusicLibraryDialog::deleteLibrary);
    libraryMenu->addSeparator();
    libraryMenu->addAction(QStringLiteral("Close"), this, &QDialog::accept);
    QMenu* addMenu = menuBar->addMenu(QStringLiteral("Add"));
    addMenu->addAction(QStringLiteral("Files..."), this, &MusicLibraryDialog::addFiles);
    addMenu->addAction(QStringLiteral("Folder..."), this, &MusicLibraryDialog::addFolder);
    addMenu->addAction(QStringLiteral("Online stream..."), this, &MusicLibraryDialog::addStream);
    QMenu* toolsMenu = menuBar->addMenu(QStringLiteral("Tools"));
    toolsMenu->addAction(QStringLiteral("Verify (remove missing files)"), this,
                         &MusicLibraryDialog::verifyLibrary);
    QAction* analyseAction = toolsMenu->addAction(QStringLiteral("Analyse loudness and cue points…"), this,
                                                  &MusicLibraryDialog::analyseLibrary);
    analyseAction->setObjectName(QStringLiteral("analyseAction"));
    menuBar->addMenu(QStringLiteral("Help"));
    layout->setMenuBar(menuBar);

    layout->addWidget(buildToolRow());

    table = new TrackTableWidget(this);
    table->setObjectName(QStringLiteral("trackTable"));
    table->setHorizontalHeaderLabels(columnHeaders());
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->verticalHeader()->setVisible(false);
    // One line per track: long dates and names are elided rather than wrapped into tall rows.
    table->setWordWrap(false);
    table->verticalHeader()->setDefaultSectionSize(table->fontMetrics().height() + 8);
    table->horizontalHeader()->setStretchLastSection(true);
    table->setContextMenuPolicy(Qt::CustomContextMenu);
    table->setDragEnabled(true);
    table->setDragDropMode(QAbstractItemView::DragOnly);
    connect(table, &QTableWidget::customContextMenuRequested, this,
            &MusicLibraryDialog::showTableContextMenu);
    connect(table, &QTableWidget::cellDoubleClicked, this, &MusicLibraryDialog::onCellActivated);
    layout->addWidget(table, 1);

    layout->addLayout(buildFilterRow());

    statusLabel = new QLabel(QStringLiteral("Tracks: 0"), this);
    statusLabel->setObjectName(QStringLiteral("statusLabel"));
    statusLabel->setContentsMargins(6, 2, 6, 2);
    layout->addWidget(statusLabel);

    scanner = new DurationScanner(this);
    connect(scanner, &DurationScanner::resolved, this, &MusicLibraryDialog::onDurationResolved);
    connect(scanner, &DurationScanner::finished, this, &MusicLibraryDialog::onScannerFinished);

    watcher = new LibraryWatcher(this);
    connect(watcher, &LibraryWatcher::changed, this, &MusicLibraryDialog::onLibraryChangedElsewhere);
    connect(watcher, &LibraryWatcher::connectionRestored, this, &MusicLibraryDialog::onConnectionRestored);
    // The table keeps what it shows while the server is away; the status line says why nothing changes.
    connect(watcher, &LibraryWatcher::connectionLost, this, [this] { statusLabel->setText(statusText()); });

    ensureSomeLibraryExists();
    reloadLibraries();
    if (!watcher->problem().isEmpty())
        statusLabel->setText(statusText());
}

QWidget* MusicLibraryDialog::buildToolRow()
{
    auto* row = new QWidget(this);
    auto* rowLayout = new QHBoxLayout(row);
    rowLayout->setContentsMargins(6, 4, 6, 4);
    rowLayout->setSpacing(4);
    // Buttons sized to their texts (the style's 80-pixel minimum per button would push the search
    // box out of a 960-pixel window).
    row->setStyleSheet(QStringLiteral("QPushButton { padding: 4px 6px; }"));

    rowLayout->addWidget(new QLabel(QStringLiteral("Library:"), row));
    librarySelector = new QComboBox(row);
    librarySelector->setObjectName(QStringLiteral("librarySelector"));
    librarySelector->setMinimumWidth(180);
    rowLayout->addWidget(librarySelector);

    const auto addButton = [&](const QString& text, const char* name, void (MusicLibraryDialog::*slot)()) {
        auto* button = new QPushButton(text, row);
        button->setObjectName(QLatin1String(name));
        // A dialog's buttons are "auto default": Enter in the search box would press "New...".
        button->setAutoDefault(false);
        connect(button, &QPushButton::clicked, this, slot);
        rowLayout->addWidget(button);
    };
    addButton(QStringLiteral("New..."), "newLibraryButton", &MusicLibraryDialog::newLibrary);
    addButton(QStringLiteral("Delete"), "deleteLibraryButton", &MusicLibraryDialog::deleteLibrary);
    rowLayout->addSpacing(16);
    addButton(QStringLiteral("Add files..."), "addFilesButton", &MusicLibraryDialog::addFiles);
    addButton(QStringLiteral("Add folder..."), "addFolderButton", &MusicLibraryDialog::addFolder);
    addButton(QStringLiteral("Add stream..."), "addStreamButton", &MusicLibraryDialog::addStream);
    addButton(QStringLiteral("Verify"), "verifyButton", &MusicLibraryDialog::verifyLibrary);
    rowLayout->addStretch();

    rowLayout->addWidget(new QLabel(QStringLiteral("Search:"), row));
    searchBox = new QLineEdit(row);
    searchBox->setObjectName(QStringLiteral("searchBox"));
    searchBox->setPlaceholderText(QStringLiteral("title, artist, album..."));
    searchBox->setFixedWidth(200);
    rowLayout->addWidget(searchBox);

    // Every keystroke re-runs the query; there is deliberately no delay timer.
    connect(searchBox, &QLineEdit::textChanged, this, &MusicLibraryDialog::refreshTable);
    connect(librarySelector, &QComboBox::currentTextChanged, this, &MusicLibraryDialog::openSelectedLibrary);
    return row;
}

QLayout* MusicLibraryDialog::buildFilterRow()
{
    struct FilterBox {
        const char* caption;
        const char* name;
        int width;
    };
    static const FilterBox boxes[] = {{"Filter (all)", "filterAll", 130},  {"Artist", "filterArtist", 110},
                                      {"Title", "filterTitle", 110},       {"Album", "filterAlbum", 100},
                                      {"Year", "filterYear", 46},          {"Genre", "filterGenre", 80},
                                      {"Comment", "filterComment", 90},    {"Duration", "filterDuration", 60},
                                      {"File name", "filterFileName", 110}};

    auto* rowLayout = new QHBoxLayout;
    rowLayout->setSpacing(4);
    // Level with the tool row's margins instead of touching the window's edge.
    rowLayout->setContentsMargins(6, 4, 6, 2);
    const auto captionColumn = [&](const QString& caption, QWidget* field) {
        auto* column = new QVBoxLayout;
        column->setSpacing(1);
        auto* label = new QLabel(caption, this);
        label->setStyleSheet(QStringLiteral("font-size:10px; color:#555;"));
        column->addWidget(label);
        column->addWidget(field);
        rowLayout->addLayout(column);
    };
    for (const FilterBox& box : boxes) {
        const QString caption = QString::fromLatin1(box.caption);
        auto* edit = new QLineEdit(this);
        edit->setObjectName(QLatin1String(box.name));
        edit->setPlaceholderText(caption);
        edit->setClearButtonEnabled(true);
        edit->setFixedWidth(box.width);
        connect(edit, &QLineEdit::textChanged, this, &MusicLibraryDialog::refreshTable);
        filterBoxes << edit;
        captionColumn(caption, edit);
    }
    auto* reset = new QPushButton(QStringLiteral("Reset"), this);
    reset->setObjectName(QStringLiteral("resetButton"));
    reset->setAutoDefault(false);
    connect(reset, &QPushButton::clicked, this, &MusicLibraryDialog::resetFilters);
    // A blank caption keeps the button level with the boxes.
    captionColumn(QStringLiteral(" "), reset);
    return rowLayout;
}

void MusicLibraryDialog::resetFilters()
{
    for (QLineEdit* edit : std::as_const(filterBoxes))
        edit->clear();
    searchBox->clear();
}

void MusicLibraryDialog::reloadLibraries()
{
    const QString remembered = lib.name();
    loadingLibraries = true;
    librarySelector->clear();
    librarySelector->addItems(MusicLibrary::libraries());
    const int index = librarySelector->findText(remembered, Qt::MatchExactly | Qt::MatchCaseSensitive);
    librarySelector->setCurrentIndex(index >= 0 ? index : 0);
    loadingLibraries = false;
    if (!librarySelector->currentText().isEmpty()) {
        lib.setLibrary(librarySelector->currentText());
        refreshTable();
    }
}

QString MusicLibraryDialog::statusText() const
{
    QString text = QStringLiteral("Library \"%1\"  -  Tracks: %2").arg(lib.name()).arg(table->rowCount());
    const QString problem = watcher ? watcher->problem() : QString();
    if (!problem.isEmpty())
        text += QStringLiteral("  -  ") + problem;
    return text;
}

void MusicLibraryDialog::onLibraryChangedElsewhere()
{
    // Only reads: a write here (setLibrary creates its library) would notify the other windows, whose
    // refresh would notify this one again, without end.
    const QStringList names = MusicLibrary::libraries();
    if (!names.contains(lib.name())) {
        reloadLibraries(); // the library shown here was deleted elsewhere
        return;
    }
    loadingLibraries = true;
    librarySelector->clear();
    librarySelector->addItems(names);
    librarySelector->setCurrentIndex(int(names.indexOf(lib.name())));
    loadingLibraries = false;
    // Whoever is typing in the search or filter boxes keeps the text, the cursor and the focus; the
    // table keeps its place.
    const int scrolled = table->verticalScrollBar()->value();
    refreshTable();
    table->verticalScrollBar()->setValue(scrolled);
}

void MusicLibraryDialog::onConnectionRestored()
{
    // A window opened while the server was away has no library to show yet.
    ensureSomeLibraryExists();
    reloadLibraries();
    statusLabel->setText(statusText());
}

void MusicLibraryDialog::openSelectedLibrary()
{
    if (loadingLibraries)
        return;
    const QString selected = librarySelector->currentText();
    if (selected.isEmpty())
        return;
    lib.setLibrary(selected);
    refreshTable();
}

MusicLibrary::Query MusicLibraryDialog::currentQuery() const
{
    MusicLibrary::Query q;
    q.text = searchBox->text().trimmed().isEmpty() ? filterBoxes[0]->text() : searchBox->text();
    q.artist = filterBoxes[1]->text();
    q.title = filterBoxes[2]->text();
    q.album = filterBoxes[3]->text();
    q.year = filterBoxes[4]->text();
    q.genre = filterBoxes[5]->text();
    q.comment = filterBoxes[6]->text();
    q.duration = filterBoxes[7]->text();
    q.filename = filterBoxes[8]->text();
    return q;
}

void MusicLibraryDialog::refreshTable()
{
    const MusicLibrary::Query query = currentQuery();
    const QList<Track> tracks = lib.query(query);

    // Large listings: updates and sorting off, the row count set once, the rows' items reused, and
    // the model's per-cell change notifications held back (the view repaints once at the end instead).
    // The table reads as if emptied first: nothing stays selected and it shows its first row.
    const bool sorting = table->isSortingEnabled();
    table->setSortingEnabled(false);
    table->setUpdatesEnabled(false);
    table->clearSelection();
    table->setCurrentItem(nullptr);
    table->setRowCount(int(tracks.size()));
    {
        DateTexts dates;
        const QSignalBlocker blockModel(table->model());
        for (int row = 0; row < tracks.size(); ++row)
            fillRow(table, row, tracks.at(row), dates);
    }
    table->setSortingEnabled(sorting);
    table->setUpdatesEnabled(true);
    table->scrollToTop();
    table->viewport()->update();

    statusLabel->setText(statusText());

    // Same paths, same order as a full listing filtered in memory, without reading every track again.
    // With no condition the table holds that very listing. A keystroke in the search or filter boxes
    // changes nothing in the library, so it reuses the list of the last full refresh (kept up to date
    // as durations arrive); every other caller, including each change the window makes to the
    // library, collects it afresh.
    const bool typed = qobject_cast<QLineEdit*>(sender()) != nullptr;
    if (query.isEmpty()) {
        missingDurations = MusicLibrary::pathsWithoutDuration(tracks);
        missingDurationsKnown = true;
    } else if (!typed || !missingDurationsKnown) {
        missingDurations = lib.filesWithoutDuration();
        missingDurationsKnown = true;
    }
    if (!missingDurations.isEmpty())
        scanner->enqueue(missingDurations);
}

void MusicLibraryDialog::onDurationResolved(const QString& path, qint64 durationMs)
{
    if (durationMs < 1)
        return;
    lib.updateDuration(path, durationMs);
    missingDurations.removeAll(path);
    durationsUpdated = true;
    // Compared with the "Last played" column on purpose (an old quirk kept as it is): it does not
    // normally match, and the new duration shows at the next refresh.
    for (int row = 0; row < table->rowCount(); ++row) {
        const QTableWidgetItem* lastPlayed = table->item(row, 8);
        if (lastPlayed && lastPlayed->text() == path) {
            setCell(table, row, 6, formatDuration(durationMs));
            break;
        }
    }
}

void MusicLibraryDialog::onScannerFinished()
{
    durationsUpdated = false;
}

void MusicLibraryDialog::onCellActivated(int row, int column)
{
    Q_UNUSED(column)
    const QList<Track> tracks = lib.query(currentQuery());
    if (row >= 0 && row < tracks.size())
        emit sendToPlaylist(tracks.at(row));
}

void MusicLibraryDialog::showTableContextMenu(const QPoint& pos)
{
    const int row = table->currentRow();
    if (row < 0)
        return;
    const QList<Track> tracks = lib.query(currentQuery());
    bool stream = false;
    Track track;
    if (row < tracks.size()) {
        track = tracks.at(row);
        stream = track.isStream;
    }
    QMenu menu(this);
    menu.setObjectName(QStringLiteral("tableContextMenu"));
    QAction* addToPlaylist = menu.addAction(QStringLiteral("Add to playlist"));
    QAction* edit = stream ? menu.addAction(QStringLiteral("Edit stream…")) : nullptr;
    QAction* category = menu.addAction(QStringLiteral("Set category…"));
    category->setEnabled(!lib.folderMode()); // a folder read into memory has no stored categories
    QAction* chosen = menu.exec(table->viewport()->mapToGlobal(pos));
    if (!chosen)
        return;
    if (chosen == addToPlaylist)
        onCellActivated(row, 0);
    else if (chosen == edit)
        editStream(track);
    else if (chosen == category)
        setCategoryOfSelection();
}

void MusicLibraryDialog::setCategoryOfSelection()
{
    if (lib.folderMode())
        return;
    // Column 11 holds every entry's path or stream URL, whatever order the table is sorted in.
    QStringList paths;
    for (const QModelIndex& index : table->selectionModel()->selectedRows(11)) {
        const QString path = index.data().toString();
        if (!path.isEmpty())
            paths << path;
    }
    if (paths.isEmpty() && table->currentRow() >= 0 && table->item(table->currentRow(), 11))
        paths << table->item(table->currentRow(), 11)->text();
    if (paths.isEmpty())
        return;
    const QStringList categories = TrackCategories::categoriesInUse(lib.name());
    bool ok = false;
    const QString category =
        QInputDialog::getItem(this, QStringLiteral("Set category"),
                              QStringLiteral("Rotation category for %1 track(s):").arg(paths.size()),
                              categories, 0, true, &ok)
            .trimmed();
    if (!ok || category.isEmpty())
        return;
    const int changed = TrackCategories::setCategory(lib.name(), paths, category);
    refreshTable();
    statusLabel->setText(QStringLiteral("Category \"%1\" set for %2 track(s)").arg(category).arg(changed));
}

void MusicLibraryDialog::addFiles()
{
    const QStringList paths = QFileDialog::getOpenFileNames(this, QStringLiteral("Add files to library"),
                                                            QString(), kAudioFileFilter);
    if (paths.isEmpty())
        return;
    const int added = lib.addFiles(paths);
    refreshTable();
    emit librariesChanged();
    statusLabel->setText(QStringLiteral("Added %1 file(s)").arg(added));
}

void MusicLibraryDialog::addFolder()
{
    const QString dir = QFileDialog::getExistingDirectory(this, QStringLiteral("Add folder to library"),
                                                          QString(), QFileDialog::ShowDirsOnly);
    if (dir.isEmpty())
        return;

    QStringList files;
    {
        QProgressDialog scanning(QStringLiteral("Scanning folder…"), QStringLiteral("Cancel"), 0, 0, this);
        scanning.setObjectName(QStringLiteral("folderScanProgress"));
        scanning.setWindowModality(Qt::WindowModal);
        scanning.setMinimumDuration(0);
        scanning.setValue(0);

        QFutureWatcher<QStringList> watcher;
        QEventLoop loop;
        connect(&watcher, &QFutureWatcher<QStringList>::finished, &loop, &QEventLoop::quit);
        connect(&scanning, &QProgressDialog::canceled, &loop, &QEventLoop::quit);
        // The worker gets its own copy of the path and touches neither widgets nor the database.
        watcher.setFuture(QtConcurrent::run([dir] { return MusicLibrary::audioFilesIn(dir, true); }));
        loop.exec();

        if (!watcher.isFinished()) {
            // The listing cannot be interrupted; let it end before the watcher goes away.
            watcher.waitForFinished();
            watcher.disconnect();
            statusLabel->setText(QStringLiteral("Folder scan cancelled"));
            scanning.close();
            return;
        }
        files = watcher.result();
        watcher.disconnect();
        scanning.close();
    }
    if (files.isEmpty()) {
        statusLabel->setText(QStringLiteral("No audio files found in folder"));
        return;
    }

    const int total = int(files.size());
    QProgressDialog adding(QStringLiteral("Adding files to library…"), QStringLiteral("Cancel"), 0, total,
                           this);
    adding.setObjectName(QStringLiteral("addFolderProgress"));
    adding.setWindowModality(Qt::WindowModal);
    adding.setMinimumDuration(0);
    // Stay up showing "(N / N)" until the call ends instead of vanishing at the last batch.
    adding.setAutoReset(false);
    adding.setAutoClose(false);
    int added = 0;
    for (int i = 0; i < total;) {
        if (adding.wasCanceled())
            break;
        added += lib.addFiles(files.mid(i, kBatchSize));
        i += kBatchSize;
        const int done = qMin(i, total);
        adding.setValue(done);
        adding.setLabelText(QStringLiteral("Adding files to library…  (%1 / %2)").arg(done).arg(total));
        QCoreApplication::processEvents();
    }
    adding.setValue(total);
    refreshTable();
    emit librariesChanged();
    statusLabel->setText(QStringLiteral("Added %1 file(s) from folder").arg(added));
}

void MusicLibraryDialog::addStream()
{
    streamDialog();
}

void MusicLibraryDialog::editStream(const Track& existing)
{
    streamDialog(existing);
}

void MusicLibraryDialog::streamDialog(const Track& existing)
{
    const bool editing = !existing.filePath.isEmpty();
    QDialog editor(this);
    editor.setObjectName(QStringLiteral("streamEditor"));
    editor.setWindowTitle(editing ? QStringLiteral("Edit online stream")
                                  : QStringLiteral("Add online stream"));
    editor.setMinimumWidth(380);
    auto* layout = new QVBoxLayout(&editor);
    layout->addWidget(new QLabel(QStringLiteral("Stream name:"), &editor));
    auto* nameEdit = new QLineEdit(editing ? existing.title : QString(), &editor);
    nameEdit->setObjectName(QStringLiteral("streamName"));
    nameEdit->setPlaceholderText(QStringLiteral("e.g. BBC Radio 1"));
    layout->addWidget(nameEdit);
    layout->addWidget(new QLabel(QStringLiteral("Stream URL:"), &editor));
    auto* urlEdit = new QLineEdit(editing ? existing.filePath : QString(), &editor);
    urlEdit->setObjectName(QStringLiteral("streamUrl"));
    urlEdit->setPlaceholderText(QStringLiteral("http://... .mp3 / .aac / .m3u8"));
    layout->addWidget(urlEdit);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    auto* ok = new QPushButton(editing ? QStringLiteral("Save") : QStringLiteral("Add"), &editor);
    ok->setObjectName(QStringLiteral("streamAccept"));
    ok->setDefault(true);
    auto* cancel = new QPushButton(QStringLiteral("Cancel"), &editor);
    cancel->setObjectName(QStringLiteral("streamCancel"));
    connect(ok, &QPushButton::clicked, &editor, &QDialog::accept);
    connect(cancel, &QPushButton::clicked, &editor, &QDialog::reject);
    buttons->addWidget(ok);
    buttons->addWidget(cancel);
    layout->addLayout(buttons);

    if (editor.exec() != QDialog::Accepted)
        return;
    const QString url = urlEdit->text().trimmed();
    if (url.isEmpty())
        return;
    if (editing)
        lib.updateStream(existing.filePath, nameEdit->text(), url);
    else
        lib.addStream(nameEdit->text(), url);
    refreshTable();
    emit librariesChanged();
    statusLabel->setText(editing ? QStringLiteral("Stream updated") : QStringLiteral("Added online stream"));
}

void MusicLibraryDialog::verifyLibrary()
{
    const int removed = lib.removeMissingFiles();
    refreshTable();
    emit librariesChanged();
    QMessageBox::information(this, QStringLiteral("Verify library"),
                             removed == 0 ? QStringLiteral("All files present. Nothing removed.")
                                          : QStringLiteral("Removed %1 missing file(s).").arg(removed),
                             QMessageBox::Ok);
}

void MusicLibraryDialog::analyseLibrary()
{
    QStringList paths;
    for (const Track& t : lib.search(QString())) {
        if (!t.isStream && !t.filePath.isEmpty())
            paths << t.filePath;
    }
    auto* run = new AnalysisProgress(this);
    connect(run, &AnalysisProgress::finished, this, [this, run](int analysed) {
        statusLabel->setText(QStringLiteral("Analysed %1 file(s)").arg(analysed));
        run->deleteLater();
    });
    run->start(paths);
}

void MusicLibraryDialog::newLibrary()
{
    bool ok = false;
    const QString answer =
        QInputDialog::getText(this, QStringLiteral("New library"), QStringLiteral("Library name:"),
                              QLineEdit::Normal, QString(), &ok);
    if (!ok)
        return;
    const QString name = answer.trimmed();
    if (name.isEmpty())
        return;
    // The store accepts an existing name silently, so an existing one is refused here to keep the
    // user from believing a second, empty library was made.
    if (!MusicLibrary::libraries().contains(name) && MusicLibrary::createLibrary(name)) {
        lib.setLibrary(name);
        reloadLibraries();
        emit librariesChanged();
    } else {
        QMessageBox::warning(this, QStringLiteral("New library"),
                             QStringLiteral("Could not create library (name may already exist)."),
                             QMessageBox::Ok);
    }
}

void MusicLibraryDialog::deleteLibrary()
{
    const QString name = librarySelector->currentText();
    if (name.isEmpty())
        return;
    const auto answer = QMessageBox::question(
        this, QStringLiteral("Delete library"),
        QStringLiteral("Delete library \"%1\"? The audio files are not affected.").arg(name),
        QMessageBox::Yes | QMessageBox::No);
    if (answer != QMessageBox::Yes)
        return;
    MusicLibrary::deleteLibrary(name);
    ensureSomeLibraryExists();
    reloadLibraries();
    emit librariesChanged();
}
