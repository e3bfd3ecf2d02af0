// The Library Manager window: construction, library selection, search and filters, the table's
// cell texts, the tool row and menus, the duration scanner hand-over and double-click to playlist.

#include "durationscanner.h"
#include "musiclibrarydialog.h"
#include "tracktablewidget.h"
#include "uitestsupport.h"

#include <QBoxLayout>
#include <QComboBox>
#include <QFileDialog>
#include <QHeaderView>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QMessageBox>
#include <QMetaMethod>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

namespace {

using uitest::fileTrack;

QString cellText(const QTableWidget* table, int row, int column)
{
    const QTableWidgetItem* item = table->item(row, column);
    return item ? item->text() : QStringLiteral("<no item>");
}

// One line per entry of a box layout: the widget's class and text, "spacing N" or "stretch".
QStringList describeLayout(const QLayout* layout)
{
    QStringList lines;
    for (int i = 0; i < layout->count(); ++i) {
        QLayoutItem* item = layout->itemAt(i);
        if (QWidget* w = item->widget()) {
            QString text;
            if (auto* label = qobject_cast<QLabel*>(w))
                text = label->text();
            else if (auto* button = qobject_cast<QPushButton*>(w))
                text = button->text();
            lines << QStringLiteral("%1 %2").arg(QLatin1String(w->metaObject()->className()), text).trimmed();
        } else if (QSpacerItem* spacer = item->spacerItem()) {
            lines << (spacer->sizePolicy().horizontalPolicy() == QSizePolicy::Expanding
                          ? QStringLiteral("stretch")
                          : QStringLiteral("spacing %1").arg(spacer->sizeHint().width()));
        } else if (item->layout()) {
            lines << QStringLiteral("layout");
        }
    }
    return lines;
}

// The title of the next modal dialog, which is then dismissed without doing anything.
std::shared_ptr<QString> titleOfNextModal()
{
    auto title = std::make_shared<QString>();
    uitest::whenModal<QDialog>([title](QDialog* modal) {
        *title = modal->windowTitle();
        if (auto* box = qobject_cast<QMessageBox*>(modal)) {
            QAbstractButton* button = box->button(QMessageBox::No);
            (button ? button : box->button(QMessageBox::Ok))->click();
        } else {
            modal->reject();
        }
    });
    return title;
}

} // namespace

class TestMusicLibraryDialog : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<MusicLibraryDialog> dialog;
    TrackTableWidget* table = nullptr;
    QLineEdit* searchBox = nullptr;
    QLabel* status = nullptr;
    QTemporaryDir audioDir;

    QLineEdit* box(const char* name) const { return dialog->findChild<QLineEdit*>(QLatin1String(name)); }

    void openDialog()
    {
        dialog = std::make_unique<MusicLibraryDialog>();
        dialog->show();
        table = dialog->findChild<TrackTableWidget*>(QStringLiteral("trackTable"));
        searchBox = dialog->findChild<QLineEdit*>(QStringLiteral("searchBox"));
        status = dialog->findChild<QLabel*>(QStringLiteral("statusLabel"));
        QVERIFY(table && searchBox && status);
    }

    // Four tracks in "Default"; the window is opened afterwards.
    void openWithBands()
    {
        MusicLibrary store;
        store.setLibrary(QStringLiteral("Default"));
        store.addTrack(
            fileTrack(QStringLiteral("Beatles"), QStringLiteral("Help"), QStringLiteral("/music/help.mp3")));
        store.addTrack(fileTrack(QStringLiteral("Beach Boys"), QStringLiteral("Surf"),
                                 QStringLiteral("/music/surf.mp3")));
        store.addTrack(fileTrack(QStringLiteral("Bee Gees"), QStringLiteral("Stayin"),
                                 QStringLiteral("/music/stay.mp3")));
        store.addTrack(fileTrack(QStringLiteral("Abba"), QStringLiteral("Waterloo"),
                                 QStringLiteral("/music/waterloo.mp3")));
        openDialog();
    }

private slots:
    void initTestCase()
    {
        uitest::useTestLocations("tst_musiclibrarydialog");
        QVERIFY(audioDir.isValid());
    }
    void init() { uitest::freshDatabase(); }
    void cleanup()
    {
        uitest::stopWatchers();
        dialog.reset();
    }
    void cleanupTestCase() { uitest::removeTestLocations(); }

    void firstStartWithEmptyStoreCreatesAndSelectsDefault()
    {
        QVERIFY(MusicLibrary::libraries().isEmpty());
        openDialog();
        QCOMPARE(MusicLibrary::libraries(), QStringList{QStringLiteral("Default")});
        auto* selector = dialog->findChild<QComboBox*>(QStringLiteral("librarySelector"));
        QCOMPARE(selector->currentText(), QStringLiteral("Default"));
        QCOMPARE(dialog->library().name(), QStringLiteral("Default"));
        QCOMPARE(status->text(), QStringLiteral("Library \"Default\"  -  Tracks: 0"));
        QCOMPARE(table->rowCount(), 0);
    }

    void windowShowsItsTitleMenusColumnsAndFilterBoxes()
    {
        openDialog();
        QCOMPARE(dialog->windowTitle(), QStringLiteral("Music Library"));
        QCOMPARE(dialog->minimumSize(), QSize(880, 560));

        const QStringList headers = {"Artist",   "Title", "Album",       "Year",  "Genre",    "Comment",
                                     "Duration", "Plays", "Last played", "Added", "Filename", "Path"};
        QCOMPARE(table->columnCount(), 12);
        for (int c = 0; c < 12; ++c)
            QCOMPARE(table->horizontalHeaderItem(c)->text(), headers.at(c));
        QCOMPARE(table->selectionBehavior(), QAbstractItemView::SelectRows);
        QCOMPARE(table->editTriggers(), QAbstractItemView::NoEditTriggers);
        QVERIFY(!table->verticalHeader()->isVisible());
        QVERIFY(table->horizontalHeader()->stretchLastSection());
        QCOMPARE(table->dragDropMode(), QAbstractItemView::DragOnly);
        QCOMPARE(table->contextMenuPolicy(), Qt::CustomContextMenu);

        auto* menuBar = dialog->findChild<QMenuBar*>();
        QVERIFY(menuBar);
        QStringList menus;
        QStringList entries;
        for (QAction* menuAction : menuBar->actions()) {
            menus << menuAction->text();
            for (QAction* entry : menuAction->menu()->actions())
                entries << (entry->isSeparator() ? QStringLiteral("|") : entry->text());
        }
        QCOMPARE(menus, (QStringList{"Library", "Add", "Tools", "Help"}));
        QCOMPARE(entries, (QStringList{"New library...", "Delete library...", "|", "Close", "Files...",
                                       "Folder...", "Online stream...", "Verify (remove missing files)",
                                       "Analyse loudness and cue points…"}));

        QCOMPARE(searchBox->placeholderText(), QStringLiteral("title, artist, album..."));
        QCOMPARE(searchBox->width(), 200);
        const QList<QPair<const char*, int>> boxes = {
            {"filterAll", 130},    {"filterArtist", 110},  {"filterTitle", 110},
            {"filterAlbum", 100},  {"filterYear", 46},     {"filterGenre", 80},
            {"filterComment", 90}, {"filterDuration", 60}, {"filterFileName", 110}};
        const QStringList captions = {"Filter (all)", "Artist",  "Title",    "Album",    "Year",
                                      "Genre",        "Comment", "Duration", "File name"};
        for (int i = 0; i < boxes.size(); ++i) {
            QLineEdit* edit = box(boxes.at(i).first);
            QVERIFY2(edit, boxes.at(i).first);
            QCOMPARE(edit->placeholderText(), captions.at(i));
            QCOMPARE(edit->width(), boxes.at(i).second);
            QVERIFY(edit->isClearButtonEnabled());
        }
        QVERIFY(dialog->findChild<QPushButton*>(QStringLiteral("resetButton")));
    }

    void windowStacksMenuBarToolRowTableFilterRowAndStatusLabel()
    {
        openDialog();
        auto* layout = qobject_cast<QVBoxLayout*>(dialog->layout());
        QVERIFY(layout);
        QCOMPARE(layout->contentsMargins(), QMargins(0, 0, 0, 0));
        QCOMPARE(layout->spacing(), 0);
        QCOMPARE(layout->menuBar(), dialog->findChild<QMenuBar*>());
        QCOMPARE(layout->count(), 4);
        QCOMPARE(layout->itemAt(0)->widget(), searchBox->parentWidget());
        QCOMPARE(layout->itemAt(1)->widget(), table);
        QCOMPARE(layout->stretch(1), 1);
        // The filter row: its first column holds the "Filter (all)" box.
        QLayout* filterRow = layout->itemAt(2)->layout();
        QVERIFY(filterRow && filterRow->itemAt(0)->layout());
        QVERIFY(filterRow->itemAt(0)->layout()->indexOf(box("filterAll")) >= 0);
        QCOMPARE(layout->itemAt(3)->widget(), status);
        QCOMPARE(status->contentsMargins(), QMargins(6, 2, 6, 2));
    }

    void toolRowHoldsSelectorButtonsAndSearchBoxLeftToRight()
    {
        openDialog();
        QWidget* row = searchBox->parentWidget();
        QVERIFY(row && row != dialog.get());
        QCOMPARE(row->layout()->contentsMargins(), QMargins(6, 4, 6, 4));
        QCOMPARE(describeLayout(row->layout()),
                 (QStringList{"QLabel Library:", "QComboBox", "QPushButton New...", "QPushButton Delete",
                              "spacing 16", "QPushButton Add files...", "QPushButton Add folder...",
                              "QPushButton Add stream...", "QPushButton Verify", "stretch",
                              "QLabel Search:", "QLineEdit"}));
        auto* selector = dialog->findChild<QComboBox*>(QStringLiteral("librarySelector"));
        QCOMPARE(row->layout()->indexOf(selector), 1);
        QCOMPARE(selector->minimumWidth(), 180);
        QCOMPARE(row->layout()->indexOf(searchBox), 11);
        QCOMPARE(searchBox->minimumWidth(), 200);
        QCOMPARE(searchBox->maximumWidth(), 200);
    }

    void filterRowCaptionsAreSmallGreyLabelsAboveTheirBoxesAndResetLinesUp()
    {
        openDialog();
        auto* rowLayout = qobject_cast<QHBoxLayout*>(dialog->layout()->itemAt(2)->layout());
        QVERIFY(rowLayout);
        QCOMPARE(rowLayout->spacing(), 4);
        const QStringList captions = {"Filter (all)", "Artist",  "Title",    "Album",     "Year",
                                      "Genre",        "Comment", "Duration", "File name", " "};
        QCOMPARE(rowLayout->count(), captions.size());
        for (int i = 0; i < captions.size(); ++i) {
            auto* column = qobject_cast<QVBoxLayout*>(rowLayout->itemAt(i)->layout());
            QVERIFY(column);
            QCOMPARE(column->spacing(), 1);
            QCOMPARE(column->count(), 2);
            auto* caption = qobject_cast<QLabel*>(column->itemAt(0)->widget());
            QVERIFY(caption);
            QCOMPARE(caption->text(), captions.at(i));
            QCOMPARE(caption->styleSheet(), QStringLiteral("font-size:10px; color:#555;"));
            QWidget* below = column->itemAt(1)->widget();
            if (i < 9) {
                auto* edit = qobject_cast<QLineEdit*>(below);
                QVERIFY(edit);
                QCOMPARE(edit->placeholderText(), captions.at(i));
            } else {
                auto* reset = qobject_cast<QPushButton*>(below);
                QVERIFY(reset);
                QCOMPARE(reset->text(), QStringLiteral("Reset"));
            }
        }
    }

    void everyToolRowButtonAndMenuEntryOpensItsOwnDialog()
    {
        openDialog();
        QVERIFY(QTest::qWaitForWindowExposed(dialog.get()));
        const QList<QPair<const char*, QString>> buttons = {
            {"newLibraryButton", "New library"},        {"deleteLibraryButton", "Delete library"},
            {"addFilesButton", "Add files to library"}, {"addFolderButton", "Add folder to library"},
            {"addStreamButton", "Add online stream"},   {"verifyButton", "Verify library"}};
        for (const auto& button : buttons) {
            auto* pushButton = dialog->findChild<QPushButton*>(QLatin1String(button.first));
            QVERIFY2(pushButton, button.first);
            const auto title = titleOfNextModal();
            QTest::mouseClick(pushButton, Qt::LeftButton);
            QCOMPARE(*title, button.second);
            uitest::stopWatchers();
        }
        QHash<QString, QAction*> entries;
        for (QAction* menuAction : dialog->findChild<QMenuBar*>()->actions()) {
            for (QAction* entry : menuAction->menu()->actions())
                entries.insert(entry->text(), entry);
        }
        const QList<QPair<const char*, QString>> menuEntries = {
            {"New library...", "New library"},         {"Delete library...", "Delete library"},
            {"Files...", "Add files to library"},      {"Folder...", "Add folder to library"},
            {"Online stream...", "Add online stream"}, {"Verify (remove missing files)", "Verify library"}};
        for (const auto& entry : menuEntries) {
            QVERIFY2(entries.contains(QLatin1String(entry.first)), entry.first);
            const auto title = titleOfNextModal();
            entries.value(QLatin1String(entry.first))->trigger();
            QCOMPARE(*title, entry.second);
            uitest::stopWatchers();
        }
        QCOMPARE(MusicLibrary::libraries(), QStringList{QStringLiteral("Default")});
        QSignalSpy accepted(dialog.get(), &QDialog::accepted);
        entries.value(QStringLiteral("Close"))->trigger();
        QCOMPARE(accepted.size(), 1);
        QVERIFY(!dialog->isVisible());
    }

    void durationUpdateRewritesTheFirstRowWhoseLastPlayedTextEqualsThePath()
    {
        openWithBands();
        // Row 1 holds this path in its Path column; rows 2 and 3 are made to show it as "Last played".
        const QString path = QStringLiteral("/music/surf.mp3");
        QCOMPARE(cellText(table, 1, 11), path);
        table->item(2, 8)->setText(path);
        table->item(3, 8)->setText(path);
        const QString before = cellText(table, 1, 6);
        QCOMPARE(cellText(table, 3, 6), before);
        emit dialog->durationScanner()->resolved(path, 3725000);
        // Only the first row whose "Last played" text equals the path changes.
        QCOMPARE(cellText(table, 1, 6), before);
        QCOMPARE(cellText(table, 2, 6), QStringLiteral("62:05"));
        QCOMPARE(cellText(table, 3, 6), before);
        QVERIFY(!(table->item(2, 6)->flags() & Qt::ItemIsEditable));
    }

    void windowOnAnUnopenableDatabaseKeepsTracksZeroAndAnEmptyTable()
    {
        QSqlDatabase::database(QStringLiteral("od_library"), false).close();
        QSqlDatabase::removeDatabase(QStringLiteral("od_library"));
        QSqlDatabase broken =
            QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("od_library"));
        broken.setDatabaseName(audioDir.filePath(QStringLiteral("no/such/folder/library.db")));
        openDialog();
        QVERIFY(MusicLibrary::libraries().isEmpty());
        auto* selector = dialog->findChild<QComboBox*>(QStringLiteral("librarySelector"));
        QCOMPARE(selector->count(), 0);
        QCOMPARE(status->text(), QStringLiteral("Tracks: 0"));
        QCOMPARE(table->rowCount(), 0);
        QTest::keyClicks(searchBox, QStringLiteral("ab"));
        QCOMPARE(table->rowCount(), 0);
    }

    void sendToPlaylistAndLibrariesChangedAreTheWindowsFirstTwoSignals()
    {
        const QMetaObject* meta = &MusicLibraryDialog::staticMetaObject;
        const QMetaMethod first = meta->method(meta->methodOffset());
        const QMetaMethod second = meta->method(meta->methodOffset() + 1);
        QCOMPARE(first.methodType(), QMetaMethod::Signal);
        QCOMPARE(first.methodSignature(), QByteArray("sendToPlaylist(Track)"));
        QCOMPARE(second.methodType(), QMetaMethod::Signal);
        QCOMPARE(second.methodSignature(), QByteArray("librariesChanged()"));
        for (const char* slot :
             {"addFiles()", "addFolder()", "addStream()", "editStream(Track)", "streamDialog(Track)",
              "currentQuery()", "verifyLibrary()", "newLibrary()", "deleteLibrary()", "openSelectedLibrary()",
              "onCellActivated(int,int)", "refreshTable()"}) {
            const int index = meta->indexOfSlot(slot);
            QVERIFY2(index >= meta->methodOffset(), slot);
        }
    }

    void everyKeystrokeHandsTheScannerTheHiddenFilesWithoutDurationToo()
    {
        MusicLibrary store;
        store.setLibrary(QStringLiteral("Default"));
        const QString hidden = audioDir.filePath(QStringLiteral("hidden-gone.mp3"));
        const QString shown = audioDir.filePath(QStringLiteral("shown-gone.mp3"));
        store.addTrack(fileTrack(QStringLiteral("Hidden"), QStringLiteral("One"), hidden, 0));
        store.addTrack(fileTrack(QStringLiteral("Shown"), QStringLiteral("Two"), shown, 0));
        openDialog();
        QSignalSpy finished(dialog->durationScanner(), &DurationScanner::finished);
        QTRY_VERIFY_WITH_TIMEOUT(!finished.isEmpty(), 30000);
        // Neither file has a length after the first scan; typing narrows the table to one of them and
        // still hands both over, in the order of the whole library's listing.
        QSignalSpy resolved(dialog->durationScanner(), &DurationScanner::resolved);
        QTest::keyClicks(box("filterArtist"), QStringLiteral("sh"));
        QCOMPARE(table->rowCount(), 1);
        QCOMPARE(cellText(table, 0, 0), QStringLiteral("Shown"));
        QTRY_VERIFY_WITH_TIMEOUT(finished.size() >= 2, 30000);
        QStringList handed;
        for (const QList<QVariant>& args : resolved)
            handed << args.at(0).toString();
        QCOMPARE(handed.mid(0, 2), (QStringList{hidden, shown}));
    }

    void wholeListingHandsTheScannerTheStoresFilesWithoutDuration()
    {
        MusicLibrary store;
        store.setLibrary(QStringLiteral("Default"));
        // Ties on artist and title, a stream, a file that has its length and one without a path.
        store.addTrack(fileTrack(QStringLiteral("Same"), QStringLiteral("Song"),
                                 audioDir.filePath(QStringLiteral("tie-1.mp3")), 0));
        store.addTrack(fileTrack(QStringLiteral("Zed"), QStringLiteral("Last"),
                                 audioDir.filePath(QStringLiteral("last.mp3")), 0));
        store.addTrack(fileTrack(QStringLiteral("Same"), QStringLiteral("Song"),
                                 audioDir.filePath(QStringLiteral("tie-2.mp3")), 0));
        store.addTrack(fileTrack(QStringLiteral("Known"), QStringLiteral("Length"),
                                 audioDir.filePath(QStringLiteral("known.mp3")), 180000));
        store.addTrack(fileTrack(QStringLiteral("No"), QStringLiteral("Path"), QString(), 0));
        store.addStream(QStringLiteral("Radio"), QStringLiteral("http://radio.example/live"));
        const QStringList expected = store.filesWithoutDuration();
        QCOMPARE(expected.size(), 3);

        openDialog();
        QSignalSpy resolved(dialog->durationScanner(), &DurationScanner::resolved);
        QSignalSpy finished(dialog->durationScanner(), &DurationScanner::finished);
        QTRY_VERIFY_WITH_TIMEOUT(!finished.isEmpty(), 30000);
        QStringList handed;
        for (const QList<QVariant>& args : resolved)
            handed << args.at(0).toString();
        QCOMPARE(handed, expected);
    }

    void refreshReusingRowsLeavesNoFilePathOnAStreamRow()
    {
        MusicLibrary store;
        store.setLibrary(QStringLiteral("Default"));
        store.addTrack(
            fileTrack(QStringLiteral("Alpha"), QStringLiteral("First"), QStringLiteral("/music/a.mp3")));
        store.addStream(QStringLiteral("Beta Radio"), QStringLiteral("http://radio.example/beta"));
        openDialog();
        QTest::keyClicks(searchBox, QStringLiteral("alpha"));
        QCOMPARE(table->rowCount(), 1);
        QCOMPARE(table->item(0, 0)->data(Qt::UserRole).toString(), QStringLiteral("/music/a.mp3"));

        searchBox->clear();
        QTest::keyClicks(searchBox, QStringLiteral("beta"));
        QCOMPARE(table->rowCount(), 1);
        QCOMPARE(cellText(table, 0, 0), QStringLiteral("◉ Online stream"));
        QVERIFY(!table->item(0, 0)->data(Qt::UserRole).isValid());
        QCOMPARE(cellText(table, 0, 6), QStringLiteral("STREAM"));
        QCOMPARE(cellText(table, 0, 10), QStringLiteral("(online)"));
        QCOMPARE(cellText(table, 0, 11), QStringLiteral("http://radio.example/beta"));
        QVERIFY(!(table->item(0, 0)->flags() & Qt::ItemIsEditable));

        searchBox->clear();
        QCOMPARE(table->rowCount(), 2);
        QCOMPARE(cellText(table, 0, 0), QStringLiteral("Alpha"));
        QCOMPARE(table->item(0, 0)->data(Qt::UserRole).toString(), QStringLiteral("/music/a.mp3"));
        QVERIFY(!table->item(1, 0)->data(Qt::UserRole).isValid());
    }

    void refreshLeavesNothingSelectedAndShowsTheFirstRow()
    {
        MusicLibrary store;
        store.setLibrary(QStringLiteral("Default"));
        for (int i = 0; i < 200; ++i) {
            store.addTrack(fileTrack(QStringLiteral("Artist %1").arg(i, 3, 10, QLatin1Char('0')),
                                     QStringLiteral("Title"), QStringLiteral("/music/%1.mp3").arg(i)));
        }
        openDialog();
        QCOMPARE(table->rowCount(), 200);
        table->selectRow(150);
        table->scrollToItem(table->item(150, 0));
        QVERIFY(table->verticalScrollBar()->value() > 0);
        QCOMPARE(table->currentRow(), 150);

        QTest::keyClicks(searchBox, QStringLiteral("artist"));
        QCOMPARE(table->rowCount(), 200);
        QVERIFY(table->selectedItems().isEmpty());
        QCOMPARE(table->currentRow(), -1);
        QCOMPARE(table->verticalScrollBar()->value(), 0);
    }

    void everyRowShowsItsOwnDatesWhenManyDiffer()
    {
        // Texts as stored by this program, by an older one (seconds and "Z"), and with an offset.
        const QStringList played = {
            QStringLiteral("2024-05-01T10:00:00"),       QStringLiteral("2024-05-01T11:30:00"),
            QStringLiteral("2024-05-01T10:00:00Z"),      QStringLiteral("2023-12-31T23:59:59"),
            QStringLiteral("2024-01-01T00:00:00+05:00"), QString()};
        const QStringList added = {QStringLiteral("2023-12-31T23:59:59"),
                                   QStringLiteral("2024-01-01T00:00:00"),
                                   QStringLiteral("2024-05-01T10:00:00"),
                                   QStringLiteral("2024-05-01T10:00:00"),
                                   QString(),
                                   QStringLiteral("1999-02-03T04:05:06")};
        QSqlQuery insert(MusicLibrary::database());
        MusicLibrary::createLibrary(QStringLiteral("Default"));
        for (int i = 0; i < played.size(); ++i) {
            insert.prepare(
                QStringLiteral("INSERT INTO tracks(library,filepath,artist,title,duration_ms,last_played,"
                               "date_added) VALUES('Default',?,?,'T',1000,?,?)"));
            insert.addBindValue(QStringLiteral("/m/%1.mp3").arg(i));
            insert.addBindValue(QStringLiteral("Artist %1").arg(i));
            insert.addBindValue(played.at(i).isNull() ? QStringLiteral("") : played.at(i));
            insert.addBindValue(added.at(i).isNull() ? QStringLiteral("") : added.at(i));
            QVERIFY(insert.exec());
        }
        openDialog();
        QCOMPARE(table->rowCount(), played.size());
        for (int i = 0; i < played.size(); ++i) {
            const QDateTime when = QDateTime::fromString(played.at(i), Qt::ISODate);
            const QDateTime since = QDateTime::fromString(added.at(i), Qt::ISODate);
            QCOMPARE(cellText(table, i, 8),
                     played.at(i).isEmpty() ? QStringLiteral("never") : when.toString("d MMM yyyy HH:mm"));
            QCOMPARE(cellText(table, i, 9), added.at(i).isEmpty() ? QString() : since.toString("d MMM yyyy"));
        }
        QCOMPARE(cellText(table, 1, 8), QStringLiteral("1 May 2024 11:30"));
        QCOMPARE(cellText(table, 0, 9), QStringLiteral("31 Dec 2023"));
    }

    void typingInSearchBoxRequeriesOnEveryCharacter()
    {
        openWithBands();
        QCOMPARE(table->rowCount(), 4);
        // The window sees only what is typed; each character must change the listing at once.
        const QList<QPair<QString, int>> steps = {{"b", 3}, {"be", 3}, {"bea", 2}, {"beat", 1}};
        for (const auto& step : steps) {
            QTest::keyClick(searchBox, step.first.back().toLatin1());
            QCOMPARE(searchBox->text(), step.first);
            QCOMPARE(table->rowCount(), step.second);
            QCOMPARE(status->text(), QStringLiteral("Library \"Default\"  -  Tracks: %1").arg(step.second));
        }
        QCOMPARE(cellText(table, 0, 0), QStringLiteral("Beatles"));
        QTest::keyClick(searchBox, Qt::Key_Backspace);
        QCOMPARE(table->rowCount(), 2);
    }

    void searchBoxOfBlanksFallsBackToFilterAllBox()
    {
        openWithBands();
        QTest::keyClicks(box("filterAll"), QStringLiteral("abba"));
        QCOMPARE(table->rowCount(), 1);
        QTest::keyClicks(searchBox, QStringLiteral("   "));
        QCOMPARE(dialog->currentQuery().text, QStringLiteral("abba"));
        QCOMPARE(table->rowCount(), 1);
        QCOMPARE(cellText(table, 0, 0), QStringLiteral("Abba"));
        // A search box with real text wins over the "Filter (all)" box, untrimmed.
        QTest::keyClicks(searchBox, QStringLiteral("bee"));
        QCOMPARE(dialog->currentQuery().text, QStringLiteral("   bee"));
        QCOMPARE(table->rowCount(), 1);
        QCOMPARE(cellText(table, 0, 0), QStringLiteral("Bee Gees"));
    }

    void columnFilterBoxesFillTheirQueryMembers()
    {
        openWithBands();
        const QList<QPair<const char*, QString MusicLibrary::Query::*>> members = {
            {"filterArtist", &MusicLibrary::Query::artist},
            {"filterTitle", &MusicLibrary::Query::title},
            {"filterAlbum", &MusicLibrary::Query::album},
            {"filterYear", &MusicLibrary::Query::year},
            {"filterGenre", &MusicLibrary::Query::genre},
            {"filterComment", &MusicLibrary::Query::comment},
            {"filterDuration", &MusicLibrary::Query::duration},
            {"filterFileName", &MusicLibrary::Query::filename}};
        for (const auto& member : members) {
            box(member.first)->setText(QStringLiteral(" x%1 ").arg(QLatin1String(member.first)));
            QCOMPARE(dialog->currentQuery().*(member.second),
                     QStringLiteral(" x%1 ").arg(QLatin1String(member.first)));
            box(member.first)->clear();
        }
        QTest::keyClicks(box("filterTitle"), QStringLiteral("surf"));
        QCOMPARE(table->rowCount(), 1);
        QCOMPARE(cellText(table, 0, 0), QStringLiteral("Beach Boys"));
    }

    void resetEmptiesFiltersAndSearchAndShowsWholeLibrary()
    {
        openWithBands();
        const char* names[] = {"filterAll",     "filterArtist",   "filterTitle",
                               "filterAlbum",   "filterYear",     "filterGenre",
                               "filterComment", "filterDuration", "filterFileName"};
        for (const char* name : names)
            box(name)->setText(QStringLiteral("zz"));
        searchBox->setText(QStringLiteral("beat"));
        QCOMPARE(table->rowCount(), 0);
        QTest::mouseClick(dialog->findChild<QPushButton*>(QStringLiteral("resetButton")), Qt::LeftButton);
        for (const char* name : names)
            QVERIFY2(box(name)->text().isEmpty(), name);
        QVERIFY(searchBox->text().isEmpty());
        QCOMPARE(table->rowCount(), 4);
        QCOMPARE(status->text(), QStringLiteral("Library \"Default\"  -  Tracks: 4"));
    }

    void zeroDurationFileShowsPlaceholderAndIsQueuedForScanner()
    {
        const QString wav = audioDir.filePath(QStringLiteral("zero.wav"));
        QVERIFY(uitest::makeTone(wav, 1.0));
        MusicLibrary store;
        store.setLibrary(QStringLiteral("Default"));
        store.addTrack(fileTrack(QStringLiteral("Zero"), QStringLiteral("Unknown length"), wav, 0));
        openDialog();
        QCOMPARE(cellText(table, 0, 6), QStringLiteral("--:--"));
        QSignalSpy resolved(dialog->durationScanner(), &DurationScanner::resolved);
        QTRY_VERIFY_WITH_TIMEOUT(!resolved.isEmpty(), 30000);
        QCOMPARE(resolved.first().at(0).toString(), wav);
        QVERIFY(resolved.first().at(1).toLongLong() > 500);
        // Stored by the window; visible at the next refresh.
        QVERIFY(store.filesWithoutDuration().isEmpty());
        dialog->refreshTable();
        QCOMPARE(cellText(table, 0, 6), QStringLiteral("00:01"));
    }

    void streamShowsStreamAndIsNeverQueued()
    {
        MusicLibrary store;
        store.setLibrary(QStringLiteral("Default"));
        store.addStream(QStringLiteral("Radio"), QStringLiteral("http://example.invalid/live.mp3"));
        const QString missing = audioDir.filePath(QStringLiteral("gone.mp3"));
        store.addTrack(fileTrack(QStringLiteral("Gone"), QStringLiteral("Missing"), missing, 0));
        openDialog();
        QSignalSpy resolved(dialog->durationScanner(), &DurationScanner::resolved);
        QSignalSpy finished(dialog->durationScanner(), &DurationScanner::finished);
        int streamRow = cellText(table, 0, 6) == QStringLiteral("STREAM") ? 0 : 1;
        QCOMPARE(cellText(table, streamRow, 6), QStringLiteral("STREAM"));
        QCOMPARE(cellText(table, streamRow, 0), QStringLiteral("◉ Online stream"));
        QCOMPARE(cellText(table, streamRow, 10), QStringLiteral("(online)"));
        QCOMPARE(cellText(table, streamRow, 11), QStringLiteral("http://example.invalid/live.mp3"));
        QVERIFY(!table->item(streamRow, 0)->data(Qt::UserRole).isValid());
        QCOMPARE(table->item(1 - streamRow, 0)->data(Qt::UserRole).toString(), missing);
        QTRY_VERIFY_WITH_TIMEOUT(!finished.isEmpty(), 30000);
        QCOMPARE(resolved.size(), 1);
        QCOMPARE(resolved.first().at(0).toString(), missing);
        QCOMPARE(resolved.first().at(1).toLongLong(), 0);
    }

    void durationOf3725000MillisecondsShows6205()
    {
        MusicLibrary store;
        store.setLibrary(QStringLiteral("Default"));
        store.addTrack(
            fileTrack(QStringLiteral("Long"), QStringLiteral("Mix"), QStringLiteral("/m/long.mp3"), 3725000));
        store.addTrack(fileTrack(QStringLiteral("Longer"), QStringLiteral("Mix"),
                                 QStringLiteral("/m/longer.mp3"), 4500000));
        openDialog();
        QCOMPARE(cellText(table, 0, 6), QStringLiteral("62:05"));
        QCOMPARE(cellText(table, 1, 6), QStringLiteral("75:00"));
    }

    void unplayedTrackShowsDashNeverAndEmptyAddedCell()
    {
        MusicLibrary store;
        store.setLibrary(QStringLiteral("Default"));
        Track t =
            fileTrack(QStringLiteral("A"), QStringLiteral("Played"), QStringLiteral("/m/dir/played.mp3"));
        t.year = 1999;
        t.album = QStringLiteral("Alb");
        t.genre = QStringLiteral("Pop");
        t.comment = QStringLiteral("Note");
        store.addTrack(t);
        MusicLibrary::recordPlay(t.filePath, QDateTime(QDate(2024, 3, 7), QTime(9, 5)));
        MusicLibrary::recordPlay(t.filePath, QDateTime(QDate(2024, 3, 7), QTime(9, 5)));
        // A row with no date of addition can only come from an old database.
        QSqlQuery insert(MusicLibrary::database());
        QVERIFY(insert.exec(
            QStringLiteral("INSERT INTO tracks(library,filepath,filename,artist,title,duration_ms,"
                           "date_added) VALUES('Default','/m/old.mp3','old.mp3','B','Old',1000,'')")));
        openDialog();
        QCOMPARE(table->rowCount(), 2);
        // Row 0: "A" (played twice), row 1: "B" (never played, no date added).
        QCOMPARE(cellText(table, 0, 3), QStringLiteral("1999"));
        QCOMPARE(cellText(table, 0, 2), QStringLiteral("Alb"));
        QCOMPARE(cellText(table, 0, 4), QStringLiteral("Pop"));
        QCOMPARE(cellText(table, 0, 5), QStringLiteral("Note"));
        QCOMPARE(cellText(table, 0, 7), QStringLiteral("2"));
        QCOMPARE(cellText(table, 0, 8),
                 QDateTime(QDate(2024, 3, 7), QTime(9, 5)).toString("d MMM yyyy HH:mm"));
        QCOMPARE(cellText(table, 0, 9), QDate::currentDate().toString("d MMM yyyy"));
        QCOMPARE(cellText(table, 0, 10), QStringLiteral("played.mp3"));
        QCOMPARE(cellText(table, 0, 11), QStringLiteral("/m/dir/played.mp3"));
        QCOMPARE(cellText(table, 1, 3), QString());
        QCOMPARE(cellText(table, 1, 7), QStringLiteral("-"));
        QCOMPARE(cellText(table, 1, 8), QStringLiteral("never"));
        QCOMPARE(cellText(table, 1, 9), QString());
        for (int c = 0; c < 12; ++c)
            QVERIFY(!(table->item(0, c)->flags() & Qt::ItemIsEditable));
    }

    void doubleClickingAnyColumnSendsTheNthTrackOfTheQuery()
    {
        openWithBands();
        QTest::keyClicks(box("filterArtist"), QStringLiteral("be"));
        QCOMPARE(table->rowCount(), 3);
        QVERIFY(QTest::qWaitForWindowExposed(dialog.get()));
        QSignalSpy sent(dialog.get(), &MusicLibraryDialog::sendToPlaylist);
        const QList<Track> expected = dialog->library().query(dialog->currentQuery());
        for (int row = 0; row < 3; ++row) {
            const int column = (row * 5) % 12;
            table->scrollToItem(table->item(row, column));
            const QRect rect = table->visualItemRect(table->item(row, column));
            // Qt Test's double click carries no press of its own; a real one starts with a click.
            QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, rect.center());
            QTest::mouseDClick(table->viewport(), Qt::LeftButton, {}, rect.center());
            QTRY_COMPARE(sent.size(), row + 1);
            QCOMPARE(sent.last().at(0).value<Track>().filePath, expected.at(row).filePath);
        }
        // Rows outside the query's results do nothing.
        dialog->onCellActivated(3, 0);
        dialog->onCellActivated(-1, 0);
        QCOMPARE(sent.size(), 3);
    }

    void scannerResultIsStoredButShownOnlyAfterNextRefresh()
    {
        MusicLibrary store;
        store.setLibrary(QStringLiteral("Default"));
        const QString path = audioDir.filePath(QStringLiteral("never-made.mp3"));
        store.addTrack(fileTrack(QStringLiteral("X"), QStringLiteral("Y"), path, 0));
        openDialog();
        QSignalSpy finished(dialog->durationScanner(), &DurationScanner::finished);
        QTRY_VERIFY_WITH_TIMEOUT(!finished.isEmpty(), 30000);
        // A value below 1 ms is ignored.
        emit dialog->durationScanner()->resolved(path, 0);
        QCOMPARE(store.filesWithoutDuration(), QStringList{path});
        // The live update looks for the path in the "Last played" column, so the cell stays as it is.
        emit dialog->durationScanner()->resolved(path, 5000);
        QCOMPARE(cellText(table, 0, 6), QStringLiteral("--:--"));
        QVERIFY(store.filesWithoutDuration().isEmpty());
        dialog->refreshTable();
        QCOMPARE(cellText(table, 0, 6), QStringLiteral("00:05"));
    }

    void choosingAnotherLibraryShowsItsTracks()
    {
        MusicLibrary::createLibrary(QStringLiteral("Rock"));
        MusicLibrary rock;
        rock.setLibrary(QStringLiteral("Rock"));
        rock.addTrack(
            fileTrack(QStringLiteral("Cream"), QStringLiteral("Crossroads"), QStringLiteral("/r/c.mp3")));
        MusicLibrary::createLibrary(QStringLiteral("Default"));
        openDialog();
        auto* selector = dialog->findChild<QComboBox*>(QStringLiteral("librarySelector"));
        QCOMPARE(selector->count(), 2);
        QCOMPARE(selector->currentText(), QStringLiteral("Default"));
        QCOMPARE(table->rowCount(), 0);
        selector->setCurrentIndex(selector->findText(QStringLiteral("Rock")));
        QCOMPARE(dialog->library().name(), QStringLiteral("Rock"));
        QCOMPARE(table->rowCount(), 1);
        QCOMPARE(status->text(), QStringLiteral("Library \"Rock\"  -  Tracks: 1"));
    }
};

QTEST_MAIN(TestMusicLibraryDialog)
#include "tst_musiclibrarydialog.moc"
