#include "audioengine.h"
#include "logpane.h"
#include "mixoverridedialog.h"
#include "musiclibrarydialog.h"
#include "playlistmodel.h"
#include "playlistview.h"
#include "schedulewindow.h"
#include "studiotestsupport.h"
#include "studiowindow.h"

#include <QAbstractItemModelTester>
#include <QAction>
#include <QContextMenuEvent>
#include <QMenu>
#include <QMimeData>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTest>
#include <QUrl>

using namespace studiotest;

// The playlist as the presenter handles it in the window: the remove and STOP columns, the context
// menu, double-click, drops from the desktop and from the library, all offscreen.
class TestPlaylistView : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QStringList tones;

    static QPoint centreOf(PlaylistView* view, int row, int column)
    {
        return view->visualRect(view->model()->index(row, column)).center();
    }

    // Shows the window with the three tones as its playlist.
    void fill(StudioWindow& window)
    {
        window.appendItems(tones);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QCOMPARE(window.playlist()->rowCount(), 3);
    }

    // Opens the context menu of a row and picks the entry with that text.
    static void chooseFromMenu(PlaylistView* view, int row, const QString& entry)
    {
        const auto chosen = uitest::whenPopup<QMenu>([entry](QMenu* menu) {
            for (QAction* action : menu->actions())
                if (action->text() == entry) {
                    menu->close();
                    action->trigger();
                    return;
                }
            menu->close();
        });
        const QPoint at = centreOf(view, row, PlaylistModel::TitleColumn);
        QContextMenuEvent event(QContextMenuEvent::Mouse, at, view->viewport()->mapToGlobal(at));
        QApplication::sendEvent(view->viewport(), &event);
        QTRY_VERIFY_WITH_TIMEOUT(*chosen, 10000);
    }

    // A drag from outside the window onto the playlist's empty area below the rows.
    static bool drop(PlaylistView* view, const QList<QUrl>& urls)
    {
        auto* mime = new QMimeData;
        mime->setUrls(urls);
        const QPoint at(view->viewport()->width() / 2, view->viewport()->height() - 4);
        QDragEnterEvent enter(at, Qt::CopyAction | Qt::MoveAction, mime, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(view->viewport(), &enter);
        QDragMoveEvent move(at, Qt::CopyAction | Qt::MoveAction, mime, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(view->viewport(), &move);
        QDropEvent dropEvent(at, Qt::CopyAction | Qt::MoveAction, mime, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(view->viewport(), &dropEvent);
        const bool accepted = dropEvent.isAccepted();
        delete mime;
        return accepted;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useStudioLocations(dir.path(), "tst_playlistview");
        for (const QString& name : {QStringLiteral("One - First.wav"), QStringLiteral("Two - Second.wav"),
                                    QStringLiteral("Three - Third.wav")}) {
            const QString path = playouttest::makeTone(dir.path(), name, 440, 1.0);
            QVERIFY(!path.isEmpty());
            tones << path;
        }
    }

    void cleanup() { uitest::stopWatchers(); }
    void cleanupTestCase() { removeStudioLocations(); }

    void rowsFromFilesCarryTheirTagsAndLengths()
    {
        StudioWindow window;
        QAbstractItemModelTester tester(window.playlist(),
                                        QAbstractItemModelTester::FailureReportingMode::QtTest);
        window.appendItems(tones);
        QCOMPARE(titlesOf(window.playlist()->tracks()),
                 (QStringList{QStringLiteral("One - First"), QStringLiteral("Two - Second"),
                              QStringLiteral("Three - Third")}));
        QVERIFY(window.playlist()->tracks().at(0).durationMs >= 900);
    }

    void clickingColumnZeroRemovesTheRow()
    {
        StudioWindow window;
        fill(window);
        PlaylistView* view = window.playlistView();
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {},
                          centreOf(view, 1, PlaylistModel::RemoveColumn));
        QCOMPARE(titlesOf(window.playlist()->tracks()),
                 (QStringList{QStringLiteral("One - First"), QStringLiteral("Three - Third")}));
    }

    void clickingColumnSixInsertsAStopAfterTheRow()
    {
        StudioWindow window;
        fill(window);
        PlaylistView* view = window.playlistView();
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, centreOf(view, 0, PlaylistModel::StopColumn));
        QCOMPARE(window.playlist()->rowCount(), 4);
        const Track stop = window.playlist()->tracks().at(1);
        QVERIFY(stop.isCommand);
        QCOMPARE(stop.command, QStringLiteral("stop"));
        QCOMPARE(window.playlist()->data(window.playlist()->index(1, PlaylistModel::TitleColumn)).toString(),
                 QStringLiteral(">> STOP <<"));
        // Other columns do nothing on a single click.
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {},
                          centreOf(view, 0, PlaylistModel::TitleColumn));
        QCOMPARE(window.playlist()->rowCount(), 4);
    }

    void doubleClickPlaysTheRow()
    {
        StudioWindow window;
        fill(window);
        PlaylistView* view = window.playlistView();
        QSignalSpy rows(window.engine(), &AudioEngine::currentRowChanged);
        QSignalSpy requested(view, &PlaylistView::playRowRequested);
        // A double-click reaches a view as press, release, then the double-click event.
        const QPoint at = centreOf(view, 2, PlaylistModel::TitleColumn);
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, at);
        QTest::mouseDClick(view->viewport(), Qt::LeftButton, {}, at);
        QCOMPARE(requested.count(), 1);
        QTRY_COMPARE_WITH_TIMEOUT(rows.count(), 1, 5000);
        QCOMPARE(rows.at(0).at(0).toInt(), 2);
        QCOMPARE(window.engine()->currentRow(), 2);
        window.engine()->stop();
    }

    void contextMenuQueuesAndUnqueuesARow()
    {
        StudioWindow window;
        fill(window);
        PlaylistView* view = window.playlistView();
        QMenu* offered = view->createContextMenu(2);
        QStringList texts;
        for (QAction* action : offered->actions())
            if (!action->isSeparator())
                texts << action->text();
        QCOMPARE(texts, (QStringList{QStringLiteral("Play now"), QStringLiteral("Add to queue"),
                                     QStringLiteral("Insert STOP after"), QStringLiteral("Mix override…"),
                                     QStringLiteral("Remove")}));
        offered->deleteLater();

        chooseFromMenu(view, 2, QStringLiteral("Add to queue"));
        QCOMPARE(window.playlist()->queue(), QList<int>{2});
        QCOMPARE(window.engine()->nextRow(), 2);
        chooseFromMenu(view, 2, QStringLiteral("Remove from queue"));
        QVERIFY(window.playlist()->queue().isEmpty());
        chooseFromMenu(view, 0, QStringLiteral("Insert STOP after"));
        QVERIFY(window.playlist()->tracks().at(1).isCommand);
        chooseFromMenu(view, 1, QStringLiteral("Remove"));
        QCOMPARE(window.playlist()->rowCount(), 3);
        QSignalSpy rows(window.engine(), &AudioEngine::currentRowChanged);
        chooseFromMenu(view, 1, QStringLiteral("Play now"));
        QTRY_COMPARE_WITH_TIMEOUT(rows.count(), 1, 5000);
        QCOMPARE(rows.at(0).at(0).toInt(), 1);
        window.engine()->stop();
    }

    void mixOverrideIsEditedThroughTheContextMenu()
    {
        StudioWindow window;
        fill(window);
        PlaylistView* view = window.playlistView();
        const auto answered = uitest::whenModal<MixOverrideDialog>([](MixOverrideDialog* dialog) {
            QCOMPARE(dialog->mixPointMs(), -1);
            dialog->mixPointBox()->setValue(3000);
            dialog->fadeOutBox()->setValue(1500);
            dialog->accept();
        });
        chooseFromMenu(view, 1, QStringLiteral("Mix override…"));
        QTRY_VERIFY_WITH_TIMEOUT(*answered, 10000);
        QCOMPARE(window.playlist()->rowMixOverride(1), PlaylistModel::MixOverride(3000, 1500));
        QCOMPARE(window.playlist()->rowMixOverride(0), PlaylistModel::MixOverride(-1, -1));

        // Opening it again shows the stored values; "default" on both clears the override.
        const auto cleared = uitest::whenModal<MixOverrideDialog>([](MixOverrideDialog* dialog) {
            QCOMPARE(dialog->mixPointMs(), 3000);
            QCOMPARE(dialog->fadeOutMs(), 1500);
            dialog->mixPointBox()->setValue(-1);
            dialog->fadeOutBox()->setValue(-1);
            dialog->accept();
        });
        chooseFromMenu(view, 1, QStringLiteral("Mix override…"));
        QTRY_VERIFY_WITH_TIMEOUT(*cleared, 10000);
        QCOMPARE(window.playlist()->rowMixOverride(1), PlaylistModel::MixOverride(-1, -1));

        // Cancel keeps what was there.
        window.playlist()->setRowMixOverrides(2, {PlaylistModel::MixOverride(500, 700)});
        const auto cancelled = uitest::whenModal<MixOverrideDialog>([](MixOverrideDialog* dialog) {
            dialog->mixPointBox()->setValue(9000);
            dialog->reject();
        });
        chooseFromMenu(view, 2, QStringLiteral("Mix override…"));
        QTRY_VERIFY_WITH_TIMEOUT(*cancelled, 10000);
        QCOMPARE(window.playlist()->rowMixOverride(2), PlaylistModel::MixOverride(500, 700));
    }

    void droppedFilesBecomeRowsWithTheirLengths()
    {
        StudioWindow window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QVERIFY(drop(window.playlistView(),
                     {QUrl::fromLocalFile(tones.at(0)), QUrl::fromLocalFile(tones.at(2))}));
        QCOMPARE(titlesOf(window.playlist()->tracks()),
                 (QStringList{QStringLiteral("One - First"), QStringLiteral("Three - Third")}));
        // The tags were read after the drop: the length is known, not "--:--".
        QVERIFY(window.playlist()->tracks().at(1).durationMs >= 900);
        QCOMPARE(
            window.playlist()->data(window.playlist()->index(1, PlaylistModel::DurationColumn)).toString(),
            QStringLiteral("00:01"));
    }

    void aDroppedStreamUrlBecomesAStreamRowAndAnFtpUrlIsIgnored()
    {
        StudioWindow window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QVERIFY(drop(window.playlistView(), {QUrl(QStringLiteral("http://radio.example/live"))}));
        QCOMPARE(window.playlist()->rowCount(), 1);
        QVERIFY(window.playlist()->tracks().at(0).isStream);
        QCOMPARE(window.playlist()->tracks().at(0).filePath, QStringLiteral("http://radio.example/live"));
        QCOMPARE(
            window.playlist()->data(window.playlist()->index(0, PlaylistModel::DurationColumn)).toString(),
            QStringLiteral("LIVE"));

        QVERIFY(!drop(window.playlistView(), {QUrl(QStringLiteral("ftp://files.example/song.mp3"))}));
        QCOMPARE(window.playlist()->rowCount(), 1);
    }

    void aDroppedFileThatDoesNotExistIsKeptAndReported()
    {
        StudioWindow window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        const QString missing = QDir(dir.path()).filePath(QStringLiteral("Nobody - Nothing.wav"));
        QVERIFY(drop(window.playlistView(), {QUrl::fromLocalFile(missing)}));
        QCOMPARE(titlesOf(window.playlist()->tracks()), QStringList{QStringLiteral("Nobody - Nothing")});
        QCOMPARE(window.logPane()->lines().filter(QStringLiteral("File not found: ") + missing).size(), 1);
    }

    void theLibraryManagerSendsTracksToThePlaylist()
    {
        MusicLibrary library;
        QVERIFY(library.setLibrary(QStringLiteral("Default")));
        QCOMPARE(library.addFiles({tones.at(1)}), 1);

        StudioWindow window;
        window.show();
        QVERIFY(window.libraryWindow() == nullptr);
        window.showLibrary();
        MusicLibraryDialog* manager = window.libraryWindow();
        QVERIFY(manager != nullptr);
        QVERIFY(manager->isVisible());
        QVERIFY(!manager->isModal());
        window.showLibrary();
        QCOMPARE(window.libraryWindow(), manager); // one instance
        manager->refreshTable();
        manager->onCellActivated(0, 0);
        QCOMPARE(titlesOf(window.playlist()->tracks()), QStringList{QStringLiteral("Two - Second")});
        QVERIFY(window.playlist()->tracks().at(0).durationMs >= 900);
    }

    void theScheduleWindowOpensOnceAndAppendsItsTracks()
    {
        StudioWindow window;
        window.showSchedule();
        window.showSchedule();
        const QList<ScheduleWindow*> schedules = window.findChildren<ScheduleWindow*>();
        QCOMPARE(schedules.size(), 1);
        QVERIFY(schedules.at(0)->isVisible());
        QVERIFY(!schedules.at(0)->isModal());
        Track planned;
        planned.artist = QStringLiteral("Planned");
        planned.title = QStringLiteral("Song");
        planned.filePath = tones.at(0);
        emit schedules.at(0)->appendToPlaylist({planned, planned});
        QCOMPARE(titlesOf(window.playlist()->tracks()),
                 (QStringList{QStringLiteral("Planned - Song"), QStringLiteral("Planned - Song")}));
    }

    void hourMarkersAreSwitchedFromTheMenu()
    {
        StudioWindow window;
        fill(window);
        QVERIFY(!window.playlist()->hourMarkersVisible());
        window.hourMarkersAction()->trigger();
        QVERIFY(window.playlist()->hourMarkersVisible());
        QVERIFY(window.playlist()->hourMarkerAt(0) >= 0); // the first row always carries one
        window.hourMarkersAction()->trigger();
        QVERIFY(!window.playlist()->hourMarkersVisible());
    }
};

QTEST_MAIN(TestPlaylistView)
#include "tst_playlistview.moc"
