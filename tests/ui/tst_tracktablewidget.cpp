// The track table's drag payload (a URL list) and the window's context menu on the table.

#include "musiclibrarydialog.h"
#include "tracktablewidget.h"
#include "uitestsupport.h"

#include <QContextMenuEvent>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QSignalSpy>
#include <QtTest>

namespace {

Track fileTrack(const QString& artist, const QString& path)
{
    return uitest::fileTrack(artist, artist + QStringLiteral(" song"), path);
}

} // namespace

class TestTrackTableWidget : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<MusicLibraryDialog> dialog;
    TrackTableWidget* table = nullptr;

    // Rows in table order: Alpha (file), Bravo (stream "Online stream"... sorted by artist), see below.
    void openWithMixedLibrary()
    {
        MusicLibrary store;
        store.setLibrary(QStringLiteral("Default"));
        store.addTrack(fileTrack(QStringLiteral("Alpha"), QStringLiteral("/music/alpha one.mp3")));
        store.addTrack(
            fileTrack(QStringLiteral("Charlie"), QStringLiteral("HTTP://host.example/charlie.mp3")));
        store.addTrack(fileTrack(QStringLiteral("Delta"), QStringLiteral("  /music/delta.mp3  ")));
        store.addStream(QStringLiteral("Live"), QStringLiteral("http://radio.example/live"));
        uitest::openLibraryManager(dialog, table, 4);
        if (QTest::currentTestFailed())
            return;
        // Sorted by artist: Alpha, Charlie, Delta, "Online stream".
        QCOMPARE(table->item(3, 0)->text(), QStringLiteral("◉ Online stream"));
    }

    QList<QUrl> dragUrlsOf(const QModelIndexList& indexes, QStringList* formats = nullptr) const
    {
        std::unique_ptr<QMimeData> data(table->model()->mimeData(indexes));
        if (!data)
            return {};
        if (formats)
            *formats = data->formats();
        return data->urls();
    }

    QModelIndexList rowCells(int row, std::initializer_list<int> columns) const
    {
        QModelIndexList cells;
        for (int c : columns)
            cells << table->model()->index(row, c);
        return cells;
    }

    // Picks an entry the way a user does, so that the menu reports it as the choice.
    static void chooseEntry(QMenu* menu, QAction* entry)
    {
        menu->setActiveAction(entry);
        QTest::keyClick(menu, Qt::Key_Return);
    }

    void requestContextMenu() { uitest::requestContextMenu(table); }

private slots:
    void initTestCase() { uitest::useTestLocations("tst_tracktablewidget"); }
    void init() { uitest::freshDatabase(); }
    void cleanup()
    {
        uitest::stopWatchers();
        dialog.reset();
    }
    void cleanupTestCase() { uitest::removeTestLocations(); }

    void tableIsItsOwnClassWithTwelveColumns()
    {
        TrackTableWidget standalone;
        QCOMPARE(QString::fromLatin1(standalone.metaObject()->className()),
                 QStringLiteral("TrackTableWidget"));
        QCOMPARE(standalone.rowCount(), 0);
        QCOMPARE(standalone.columnCount(), 12);
    }

    void draggingThreeRowsOfWhichOneIsStreamGivesTwoUrls()
    {
        openWithMixedLibrary();
        QStringList formats;
        const QModelIndexList cells = rowCells(0, {0}) + rowCells(3, {0}) + rowCells(2, {0});
        const QList<QUrl> urls = dragUrlsOf(cells, &formats);
        QCOMPARE(urls, (QList<QUrl>{QUrl::fromLocalFile(QStringLiteral("/music/alpha one.mp3")),
                                    QUrl::fromLocalFile(QStringLiteral("/music/delta.mp3"))}));
        QCOMPARE(formats, QStringList{QStringLiteral("text/uri-list")});
    }

    void fileRowWithUppercaseHttpPathIsDraggedAsThatUrl()
    {
        openWithMixedLibrary();
        const QList<QUrl> urls = dragUrlsOf(rowCells(1, {4}));
        QCOMPARE(urls.size(), 1);
        QCOMPARE(urls.first(), QUrl(QStringLiteral("HTTP://host.example/charlie.mp3")));
        QVERIFY(!urls.first().isLocalFile());
    }

    void severalCellsOfOneRowGiveOneUrl()
    {
        openWithMixedLibrary();
        const QList<QUrl> urls = dragUrlsOf(rowCells(0, {0, 1, 2, 11, 6}));
        QCOMPARE(urls, QList<QUrl>{QUrl::fromLocalFile(QStringLiteral("/music/alpha one.mp3"))});
    }

    void pathOfOnlyBlanksIsNotSkippedButTrimmedToAnEmptyUrl()
    {
        openWithMixedLibrary();
        // Only a row without a stored path is left out; whatever path there is, is trimmed and sent.
        table->item(0, 0)->setData(Qt::UserRole, QStringLiteral("   "));
        const QList<QUrl> urls = dragUrlsOf(rowCells(0, {0}) + rowCells(2, {0}));
        QCOMPARE(urls.size(), 2);
        QVERIFY(urls.at(0).isEmpty());
        QCOMPARE(urls.at(1), QUrl::fromLocalFile(QStringLiteral("/music/delta.mp3")));
        table->item(0, 0)->setData(Qt::UserRole, QString());
        QCOMPARE(dragUrlsOf(rowCells(0, {0})).size(), 0);
    }

    void selectedRowsGiveTheirUrlsThroughTheSelection()
    {
        openWithMixedLibrary();
        table->selectAll();
        const QList<QUrl> urls = dragUrlsOf(table->selectionModel()->selectedIndexes());
        QCOMPARE(urls.size(), 3);
        // A row whose first cell was removed contributes nothing.
        delete table->takeItem(0, 0);
        QCOMPARE(dragUrlsOf(rowCells(0, {1, 2})).size(), 0);
    }

    void rightClickingWithNoCurrentRowShowsNoMenu()
    {
        openWithMixedLibrary();
        table->setCurrentCell(-1, -1);
        QCOMPARE(table->currentRow(), -1);
        QStringList seen;
        QObject scope; // the watcher must not outlive this test's locals
        auto shown = uitest::whenPopup<QMenu>(
            [&](QMenu* menu) {
                for (QAction* a : menu->actions())
                    seen << a->text();
                menu->close();
            },
            2000, &scope);
        requestContextMenu();
        QTest::qWait(300);
        QVERIFY2(!*shown, qPrintable(seen.join(',')));
    }

    void contextMenuForFileOffersAddToPlaylistWhichSendsTheTrack()
    {
        openWithMixedLibrary();
        table->setCurrentCell(2, 3);
        QSignalSpy sent(dialog.get(), &MusicLibraryDialog::sendToPlaylist);
        QStringList entries;
        QPoint shownAt;
        uitest::whenPopup<QMenu>([&](QMenu* menu) {
            for (QAction* a : menu->actions())
                entries << a->text();
            shownAt = menu->pos();
            chooseEntry(menu, menu->actions().first());
        });
        requestContextMenu();
        QCOMPARE(entries, (QStringList{QStringLiteral("Add to playlist"), QStringLiteral("Set category…")}));
        // The request's point is in the viewport; the menu opens there on the screen.
        QCOMPARE(shownAt, table->viewport()->mapToGlobal(QPoint(5, 5)));
        QTRY_COMPARE(sent.size(), 1);
        QCOMPARE(sent.first().at(0).value<Track>().filePath, QStringLiteral("  /music/delta.mp3  "));
    }

    void contextMenuForStreamOffersEditStreamWhichOpensTheEditor()
    {
        openWithMixedLibrary();
        table->setCurrentCell(3, 0);
        QStringList entries;
        uitest::whenPopup<QMenu>([&](QMenu* menu) {
            for (QAction* a : menu->actions())
                entries << a->text();
            chooseEntry(menu, menu->actions().at(1));
        });
        QString editorTitle;
        QString urlShown;
        uitest::whenModal<QDialog>([&](QDialog* editor) {
            editorTitle = editor->windowTitle();
            urlShown = editor->findChild<QLineEdit*>(QStringLiteral("streamUrl"))->text();
            editor->reject();
        });
        requestContextMenu();
        QTRY_COMPARE(editorTitle, QStringLiteral("Edit online stream"));
        QCOMPARE(entries, (QStringList{QStringLiteral("Add to playlist"), QStringLiteral("Edit stream…"),
                                       QStringLiteral("Set category…")}));
        QCOMPARE(urlShown, QStringLiteral("http://radio.example/live"));
    }

    void rowBeyondQueryResultsShowsOnlyAddToPlaylistWhichDoesNothing()
    {
        openWithMixedLibrary();
        // The library shrinks behind the table's back: the table still shows four rows.
        MusicLibrary::deleteLibrary(QStringLiteral("Default"));
        MusicLibrary::createLibrary(QStringLiteral("Default"));
        QCOMPARE(table->rowCount(), 4);
        table->setCurrentCell(3, 0);
        QSignalSpy sent(dialog.get(), &MusicLibraryDialog::sendToPlaylist);
        QStringList entries;
        uitest::whenPopup<QMenu>([&](QMenu* menu) {
            for (QAction* a : menu->actions())
                entries << a->text();
            chooseEntry(menu, menu->actions().first());
        });
        requestContextMenu();
        QCOMPARE(entries, (QStringList{QStringLiteral("Add to playlist"), QStringLiteral("Set category…")}));
        QTest::qWait(200);
        QCOMPARE(sent.size(), 0);
    }

    void dismissingTheMenuDoesNothing()
    {
        openWithMixedLibrary();
        table->setCurrentCell(0, 0);
        QSignalSpy sent(dialog.get(), &MusicLibraryDialog::sendToPlaylist);
        auto shown = uitest::whenPopup<QMenu>([](QMenu* menu) { menu->close(); });
        requestContextMenu();
        QVERIFY(*shown);
        QTest::qWait(100);
        QCOMPARE(sent.size(), 0);
    }
};

QTEST_MAIN(TestTrackTableWidget)
#include "tst_tracktablewidget.moc"
