// The studio's Schedule window offscreen against a generated library in a temporary database:
// preview with start times, the report beside it, appending to the playlist, saving as M3U, and a
// malformed format.

#include "../scheduler/schedulertestsupport.h"
#include "../ui/uitestsupport.h"
#include "playlistfile.h"
#include "schedulewindow.h"

#include <QComboBox>
#include <QDateEdit>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QtTest>

namespace {

// Jingles hold no artist and there are only four, so a three-hour schedule must relax title
// separation and say so.
const char* const kFormat = R"({
  "rules": {"artistSeparationMinutes": 60, "titleSeparationMinutes": 240},
  "clocks": {"Standard": [{"category": "Jingle"}, {"category": "A"}, {"category": "B"}, {"command": "stop"}]},
  "grid": [{"clock": "Standard"}]
})";

} // namespace

class TestScheduleWindow : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir folder;
    QString formatPath;
    std::unique_ptr<ScheduleWindow> window;

    template <typename T> T* child(const char* name) const
    {
        return window->findChild<T*>(QLatin1String(name));
    }

    // Fills the fields as a presenter does and runs the preview to its end.
    bool previewWith(const QString& format, const QDate& day, int firstHour, int hours, const QString& seed)
    {
        child<QLineEdit>("formatPath")->setText(format);
        child<QDateEdit>("scheduleDate")->setDate(day);
        child<QSpinBox>("firstHour")->setValue(firstHour);
        child<QSpinBox>("hourCount")->setValue(hours);
        child<QLineEdit>("seed")->setText(seed);
        QSignalSpy finished(window.get(), &ScheduleWindow::previewFinished);
        QTest::mouseClick(child<QPushButton>("previewButton"), Qt::LeftButton);
        return finished.size() == 1 || finished.wait(60000);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(folder.isValid());
        uitest::useTestLocations("tst_schedulewindow");
        uitest::freshDatabase();
        const schedtest::GeneratedLibrary generated = schedtest::generateLibrary(
            folder.filePath(QStringLiteral("audio")), QStringLiteral("Music"), 20, 4);
        QCOMPARE(generated.tracks.size(), 84);
        formatPath = folder.filePath(QStringLiteral("format.json"));
        QFile file(formatPath);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(kFormat);
    }
    void init()
    {
        window = std::make_unique<ScheduleWindow>();
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    }
    void cleanup()
    {
        uitest::stopWatchers();
        window.reset();
    }
    void cleanupTestCase() { uitest::removeTestLocations(); }

    void previewListsTheRowsWithStartTimesAndTheReport()
    {
        QVERIFY(child<QComboBox>("librarySelector"));
        QCOMPARE(child<QComboBox>("librarySelector")->currentText(), QStringLiteral("Music"));
        QVERIFY(!child<QPushButton>("appendButton")->isEnabled());
        QVERIFY(previewWith(formatPath, QDate(2024, 5, 6), 6, 3, QStringLiteral("1")));
        const Schedule& schedule = window->schedule();
        QVERIFY(schedule.items.size() > 20);
        auto* table = child<QTableWidget>("previewTable");
        QCOMPARE(table->rowCount(), schedule.items.size());
        QCOMPARE(table->item(0, 0)->text(), QStringLiteral("Mon 2024-05-06 06:00:00"));
        QCOMPARE(table->item(1, 0)->text(), schedule.items.at(1).start.toString(QStringLiteral("HH:mm:ss")));
        QCOMPARE(table->item(1, 3)->text(), schedule.items.at(1).track.title);
        QCOMPARE(table->item(3, 3)->text(), QStringLiteral(">> STOP <<"));
        QCOMPARE(table->item(1, 5)->text(), QStringLiteral("Standard"));
        const QString report = child<QPlainTextEdit>("reportView")->toPlainText();
        QCOMPARE(report, schedule.reportText());
        QVERIFY2(report.contains(QStringLiteral("title separation relaxed")), qPrintable(report));
        QVERIFY(child<QLabel>("statusLabel")
                    ->text()
                    .contains(QStringLiteral("%1 rows").arg(schedule.items.size())));
        QVERIFY(child<QPushButton>("appendButton")->isEnabled());
        QVERIFY(child<QPushButton>("saveButton")->isEnabled());

        // The same inputs give the same rows; another seed other ones.
        const QByteArray first = PlaylistFile::toM3u(schedule.tracks());
        QVERIFY(previewWith(formatPath, QDate(2024, 5, 6), 6, 3, QStringLiteral("1")));
        QCOMPARE(PlaylistFile::toM3u(window->schedule().tracks()), first);
        QVERIFY(previewWith(formatPath, QDate(2024, 5, 6), 6, 3, QStringLiteral("2")));
        QVERIFY(PlaylistFile::toM3u(window->schedule().tracks()) != first);
    }

    void appendHandsTheRowsToThePlaylist()
    {
        QVERIFY(previewWith(formatPath, QDate(2024, 5, 7), 10, 1, QStringLiteral("3")));
        QSignalSpy appended(window.get(), &ScheduleWindow::appendToPlaylist);
        QTest::mouseClick(child<QPushButton>("appendButton"), Qt::LeftButton);
        QCOMPARE(appended.size(), 1);
        const QList<Track> tracks = appended.first().at(0).value<QList<Track>>();
        QCOMPARE(tracks.size(), window->schedule().items.size());
        for (int i = 0; i < tracks.size(); ++i) {
            QCOMPARE(tracks.at(i).filePath, window->schedule().items.at(i).track.filePath);
            QCOMPARE(tracks.at(i).isCommand, window->schedule().items.at(i).track.isCommand);
        }
        QVERIFY(tracks.at(3).isCommand);
    }

    void saveWritesTheScheduleAsExtendedM3u()
    {
        QVERIFY(previewWith(formatPath, QDate(2024, 5, 8), 20, 2, QStringLiteral("4")));
        const QString target = folder.filePath(QStringLiteral("evening.m3u"));
        auto answered = uitest::whenModal<QFileDialog>([&](QFileDialog* dialog) {
            // Typed into the name box, as a user does; selectFile() can leave a focused box alone.
            if (auto* nameBox = dialog->findChild<QLineEdit*>(QStringLiteral("fileNameEdit")))
                nameBox->setText(target);
            else
                dialog->selectFile(target);
            QMetaObject::invokeMethod(dialog, "accept");
        });
        QTest::mouseClick(child<QPushButton>("saveButton"), Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(*answered, 30000);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(target), 30000);
        QFile saved(target);
        QVERIFY(saved.open(QIODevice::ReadOnly));
        QCOMPARE(saved.readAll(), PlaylistFile::toM3u(window->schedule().tracks()));
        QVERIFY(child<QLabel>("statusLabel")->text().startsWith(QStringLiteral("Saved ")));
        // A folder that does not exist is refused with the reason.
        QVERIFY(!window->saveTo(folder.filePath(QStringLiteral("no/such/folder/x.m3u"))));
        QVERIFY(child<QLabel>("statusLabel")->text().startsWith(QStringLiteral("Cannot save")));
    }

    void aMalformedFormatShowsTheReasonAndOffersNothing()
    {
        QVERIFY(previewWith(formatPath, QDate(2024, 5, 6), 6, 1, QStringLiteral("1")));
        QVERIFY(child<QPushButton>("appendButton")->isEnabled());
        const QString bad = folder.filePath(QStringLiteral("bad.json"));
        QFile file(bad);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(R"({"clocks": {"Standard": [{"category": 5}]}, "grid": [{"clock": "Standard"}]})");
        file.close();
        QVERIFY(previewWith(bad, QDate(2024, 5, 6), 6, 1, QStringLiteral("1")));
        QVERIFY(window->schedule().items.isEmpty());
        QCOMPARE(child<QTableWidget>("previewTable")->rowCount(), 0);
        QVERIFY(child<QPlainTextEdit>("reportView")
                    ->toPlainText()
                    .contains(QStringLiteral("\"clocks.Standard[0].category\": must be a text")));
        QVERIFY(!child<QPushButton>("appendButton")->isEnabled());
        QVERIFY(!child<QPushButton>("saveButton")->isEnabled());
    }

    void aLibraryDeletedMeanwhileIsReportedNotCreated()
    {
        QVERIFY(MusicLibrary::createLibrary(QStringLiteral("Gone soon")));
        window->reloadLibraries();
        auto* selector = child<QComboBox>("librarySelector");
        selector->setCurrentIndex(selector->findText(QStringLiteral("Gone soon")));
        QVERIFY(MusicLibrary::deleteLibrary(QStringLiteral("Gone soon")));
        QVERIFY(previewWith(formatPath, QDate(2024, 5, 6), 6, 1, QStringLiteral("1")));
        QVERIFY(
            child<QPlainTextEdit>("reportView")->toPlainText().contains(QStringLiteral("no library named")));
        QVERIFY(!MusicLibrary::libraries().contains(QStringLiteral("Gone soon")));
    }
};

QTEST_MAIN(TestScheduleWindow)
#include "tst_schedulewindow.moc"
