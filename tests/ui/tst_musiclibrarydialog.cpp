// The Library Manager window: construction, library selection, search and filters, the table's
// cell texts, the duration scanner hand-over and double-click to playlist.

#include "durationscanner.h"
#include "musiclibrarydialog.h"
#include "tracktablewidget.h"
#include "uitestsupport.h"

#include <QComboBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

namespace {

Track fileTrack(const QString& artist, const QString& title, const QString& path, qint64 ms = 200000)
{
    Track t;
    t.artist = artist;
    t.title = title;
    t.filePath = path;
    t.durationMs = ms;
    return t;
}

QString cellText(const QTableWidget* table, int row, int column)
{
    const QTableWidgetItem* item = table->item(row, column);
    return item ? item->text() : QStringLiteral("<no item>");
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

    // Four tracks in "Default", plus a stream; the window is opened afterwards.
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
        QCOMPARE(dialog->library().name, QStringLiteral("Default"));
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
                                       "Folder...", "Online stream...", "Verify (remove missing files)"}));

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
        QCOMPARE(dialog->library().name, QStringLiteral("Rock"));
        QCOMPARE(table->rowCount(), 1);
        QCOMPARE(status->text(), QStringLiteral("Library \"Rock\"  -  Tracks: 1"));
    }
};

QTEST_MAIN(TestMusicLibraryDialog)
#include "tst_musiclibrarydialog.moc"
