// "Set category…" in the Library Manager: the table's context menu sets the rotation category of the
// selected rows through the store, offering the categories in use and taking a new one.

#include "musiclibrarydialog.h"
#include "trackcategories.h"
#include "tracktablewidget.h"
#include "uitestsupport.h"

#include <QComboBox>
#include <QContextMenuEvent>
#include <QInputDialog>
#include <QLabel>
#include <QMenu>
#include <QSqlQuery>
#include <QtTest>

class TestSetCategory : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<MusicLibraryDialog> dialog;
    TrackTableWidget* table = nullptr;

    // Rows sorted by artist: Alpha (Gold), Bravo (Foreign), Charlie (Foreign), "Online stream".
    void openLibrary()
    {
        MusicLibrary store;
        store.setLibrary(QStringLiteral("Default"));
        Track alpha =
            uitest::fileTrack(QStringLiteral("Alpha"), QStringLiteral("One"), QStringLiteral("/m/a.mp3"));
        alpha.category = QStringLiteral("Gold");
        store.addTrack(alpha);
        store.addTrack(
            uitest::fileTrack(QStringLiteral("Bravo"), QStringLiteral("Two"), QStringLiteral("/m/b.mp3")));
        store.addTrack(uitest::fileTrack(QStringLiteral("Charlie"), QStringLiteral("Three"),
                                         QStringLiteral("/m/c.mp3")));
        store.addStream(QStringLiteral("Live"), QStringLiteral("http://radio.example/live"));
        uitest::openLibraryManager(dialog, table, 4);
        if (QTest::currentTestFailed())
            return;
        QCOMPARE(table->item(1, 0)->text(), QStringLiteral("Bravo"));
    }

    static QString categoryOf(const QString& path)
    {
        QSqlQuery q(MusicLibrary::database());
        q.prepare(QStringLiteral("SELECT category FROM tracks WHERE library='Default' AND filepath=?"));
        q.addBindValue(path);
        return q.exec() && q.next() ? q.value(0).toString() : QStringLiteral("<none>");
    }

    void selectRows(std::initializer_list<int> rows)
    {
        table->clearSelection();
        for (int row : rows)
            table->selectionModel()->select(table->model()->index(row, 0),
                                            QItemSelectionModel::Select | QItemSelectionModel::Rows);
        table->setCurrentCell(*rows.begin(), 0, QItemSelectionModel::NoUpdate);
    }

    void requestContextMenu() { uitest::requestContextMenu(table); }

    // Picks "Set category…" the way a user does.
    static void chooseSetCategory(QMenu* menu)
    {
        for (QAction* action : menu->actions()) {
            if (action->text() == QStringLiteral("Set category…")) {
                menu->setActiveAction(action);
                QTest::keyClick(menu, Qt::Key_Return);
                return;
            }
        }
        menu->close();
    }

private slots:
    void initTestCase() { uitest::useTestLocations("tst_setcategory"); }
    void init() { uitest::freshDatabase(); }
    void cleanup()
    {
        uitest::stopWatchers();
        dialog.reset();
    }
    void cleanupTestCase() { uitest::removeTestLocations(); }

    void aNewCategoryIsStoredForEverySelectedRow()
    {
        openLibrary();
        selectRows({1, 3});
        QStringList offered;
        QString label;
        uitest::whenPopup<QMenu>([](QMenu* menu) { chooseSetCategory(menu); });
        uitest::whenModal<QInputDialog>([&](QInputDialog* input) {
            offered = input->comboBoxItems();
            label = input->labelText();
            QVERIFY(input->isComboBoxEditable());
            input->setTextValue(QStringLiteral("  Power  "));
            input->accept();
        });
        requestContextMenu();
        QTRY_COMPARE_WITH_TIMEOUT(categoryOf(QStringLiteral("/m/b.mp3")), QStringLiteral("Power"), 30000);
        QCOMPARE(categoryOf(QStringLiteral("http://radio.example/live")), QStringLiteral("Power"));
        QCOMPARE(categoryOf(QStringLiteral("/m/a.mp3")), QStringLiteral("Gold"));
        QCOMPARE(categoryOf(QStringLiteral("/m/c.mp3")), QStringLiteral("Foreign"));
        QCOMPARE(offered, (QStringList{QStringLiteral("Foreign"), QStringLiteral("Gold")}));
        QVERIFY(label.contains(QStringLiteral("2 track(s)")));
        auto* status = dialog->findChild<QLabel*>(QStringLiteral("statusLabel"));
        QVERIFY(status);
        QCOMPARE(status->text(), QStringLiteral("Category \"Power\" set for 2 track(s)"));
        // The table keeps its twelve columns and rows.
        QCOMPARE(table->columnCount(), 12);
        QCOMPARE(table->rowCount(), 4);
        QCOMPARE(TrackCategories::categoriesInUse(QStringLiteral("Default")),
                 (QStringList{QStringLiteral("Foreign"), QStringLiteral("Gold"), QStringLiteral("Power")}));
    }

    void aCategoryInUseCanBeChosenForTheCurrentRow()
    {
        openLibrary();
        table->clearSelection();
        table->setCurrentCell(2, 4, QItemSelectionModel::NoUpdate);
        uitest::whenPopup<QMenu>([](QMenu* menu) { chooseSetCategory(menu); });
        uitest::whenModal<QInputDialog>([](QInputDialog* input) {
            auto* combo = input->findChild<QComboBox*>();
            QVERIFY(combo);
            combo->setCurrentIndex(combo->findText(QStringLiteral("Gold")));
            input->accept();
        });
        requestContextMenu();
        QTRY_COMPARE_WITH_TIMEOUT(categoryOf(QStringLiteral("/m/c.mp3")), QStringLiteral("Gold"), 30000);
        QCOMPARE(categoryOf(QStringLiteral("/m/b.mp3")), QStringLiteral("Foreign"));
    }

    void cancellingOrAnEmptyAnswerChangesNothing()
    {
        openLibrary();
        selectRows({0, 1, 2});
        uitest::whenPopup<QMenu>([](QMenu* menu) { chooseSetCategory(menu); });
        auto cancelled = uitest::whenModal<QInputDialog>([](QInputDialog* input) {
            input->setTextValue(QStringLiteral("Never"));
            input->reject();
        });
        requestContextMenu();
        QTRY_VERIFY_WITH_TIMEOUT(*cancelled, 30000);
        selectRows({0, 1, 2});
        uitest::whenPopup<QMenu>([](QMenu* menu) { chooseSetCategory(menu); });
        auto empty = uitest::whenModal<QInputDialog>([](QInputDialog* input) {
            input->setTextValue(QStringLiteral("   "));
            input->accept();
        });
        requestContextMenu();
        QTRY_VERIFY_WITH_TIMEOUT(*empty, 30000);
        QTest::qWait(100);
        QCOMPARE(categoryOf(QStringLiteral("/m/a.mp3")), QStringLiteral("Gold"));
        QCOMPARE(categoryOf(QStringLiteral("/m/b.mp3")), QStringLiteral("Foreign"));
        QCOMPARE(TrackCategories::categoriesInUse(QStringLiteral("Default")),
                 (QStringList{QStringLiteral("Foreign"), QStringLiteral("Gold")}));
    }
};

QTEST_MAIN(TestSetCategory)
#include "tst_setcategory.moc"
