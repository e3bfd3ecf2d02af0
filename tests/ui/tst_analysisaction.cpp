// The Library Manager's Tools action "Analyse loudness and cue points…": a real window offscreen, a
// temporary database and generated audio (scripts/make-analysis-fixtures.sh).

#include "musiclibrarydialog.h"
#include "trackanalysis.h"
#include "uitestsupport.h"

#include <QAction>
#include <QFile>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QProgressDialog>
#include <QPushButton>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

namespace {

QString fixture(const QString& name)
{
    return QStringLiteral(ONDARO_ANALYSIS_FIXTURE_DIR "/") + name;
}

int storedRows(const QString& condition = QString())
{
    QSqlQuery q(MusicLibrary::database());
    if (!q.exec(QStringLiteral("SELECT COUNT(*) FROM track_analysis") + condition) || !q.next())
        return -1;
    return q.value(0).toInt();
}

} // namespace

class TestAnalysisAction : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<MusicLibraryDialog> dialog;
    QLabel* status = nullptr;
    QTemporaryDir work;

    // Copies of one fixture, entered in the current library with a length so that the window's
    // duration scanner has nothing to do; one stream entry besides, which the analysis must pass by.
    QStringList fillLibrary(const QString& fixtureName, int copies)
    {
        MusicLibrary library;
        library.setLibrary(QStringLiteral("Default"));
        QStringList paths;
        for (int i = 0; i < copies; ++i) {
            const QString path =
                work.filePath(QStringLiteral("%1-%2").arg(i).arg(QFileInfo(fixtureName).fileName()));
            QFile::remove(path);
            if (!QFile::copy(fixture(fixtureName), path))
                return {};
            library.addTrack(
                uitest::fileTrack(QStringLiteral("Artist"), QStringLiteral("Song %1").arg(i), path));
            paths << path;
        }
        library.addStream(QStringLiteral("Radio"), QStringLiteral("http://127.0.0.1:9/stream"));
        return paths;
    }

    void openDialog()
    {
        dialog = std::make_unique<MusicLibraryDialog>();
        dialog->show();
        status = dialog->findChild<QLabel*>(QStringLiteral("statusLabel"));
        QVERIFY(status);
    }

    QAction* analyseAction() const { return dialog->findChild<QAction*>(QStringLiteral("analyseAction")); }

private slots:
    void initTestCase()
    {
        QVERIFY(work.isValid());
        QVERIFY(QFile::exists(fixture(QStringLiteral("formats/mono.wav"))));
        uitest::useTestLocations("tst_analysisaction");
    }
    void init() { uitest::freshDatabase(); }
    void cleanup()
    {
        dialog.reset();
        uitest::stopWatchers();
    }
    void cleanupTestCase() { uitest::removeTestLocations(); }

    void theToolsMenuOffersTheAnalysis()
    {
        openDialog();
        QMenu* tools = nullptr;
        for (QAction* menuAction : dialog->findChild<QMenuBar*>()->actions()) {
            if (menuAction->text() == QStringLiteral("Tools"))
                tools = menuAction->menu();
        }
        QVERIFY(tools);
        QAction* action = analyseAction();
        QVERIFY(action);
        QCOMPARE(action->text(), QStringLiteral("Analyse loudness and cue points…"));
        QVERIFY(tools->actions().contains(action));
    }

    void theLibrarysFilesAreAnalysedStoredAndNotAnalysedTwice()
    {
        const QStringList paths = fillLibrary(QStringLiteral("formats/mono.wav"), 3);
        QCOMPARE(paths.size(), 3);
        openDialog();
        analyseAction()->trigger();
        auto* progress = dialog->findChild<QProgressDialog*>(QStringLiteral("analysisProgressDialog"));
        QVERIFY(progress);
        QTRY_COMPARE_WITH_TIMEOUT(status->text(), QStringLiteral("Analysed 3 file(s)"), 120000);
        QCOMPARE(storedRows(), 3);
        for (const QString& path : paths) {
            const TrackAnalysis a = TrackAnalysis::load(path);
            QVERIFY(a.isValid());
            QVERIFY(qAbs(a.cueInMs - 1000) <= 50);
        }
        // The progress dialog went with the run.
        QTRY_VERIFY(!dialog->findChild<QProgressDialog*>(QStringLiteral("analysisProgressDialog")));

        status->clear();
        analyseAction()->trigger();
        QTRY_COMPARE_WITH_TIMEOUT(status->text(), QStringLiteral("Analysed 0 file(s)"), 60000);
        QCOMPARE(storedRows(), 3);
    }

    void theProgressDialogCountsAndCancellingKeepsOnlyWholeResults()
    {
        const QStringList paths = fillLibrary(QStringLiteral("cue/gap.flac"), 40);
        QCOMPARE(paths.size(), 40);
        openDialog();
        analyseAction()->trigger();
        QPointer<QProgressDialog> progress =
            dialog->findChild<QProgressDialog*>(QStringLiteral("analysisProgressDialog"));
        QVERIFY(progress);
        QTRY_VERIFY(progress->isVisible());
        // The window keeps serving events while the workers run: the count moves on.
        QTRY_VERIFY_WITH_TIMEOUT(progress->value() >= 1, 60000);
        QCOMPARE(progress->maximum(), 40);
        QVERIFY(progress->labelText().contains(QStringLiteral("of 40 file(s)")));
        auto* cancel = progress->findChild<QPushButton*>();
        QVERIFY(cancel);
        cancel->click();
        QTRY_VERIFY_WITH_TIMEOUT(status->text().startsWith(QStringLiteral("Analysed ")), 60000);
        const int analysed = status->text().section(QLatin1Char(' '), 1, 1).toInt();
        QVERIFY2(analysed >= 1 && analysed < 40, qPrintable(status->text()));
        QCOMPARE(storedRows(), analysed);
        QCOMPARE(storedRows(QStringLiteral(" WHERE error<>'' OR duration_ms<=0")), 0);
        QTRY_VERIFY(progress.isNull());
    }
};

QTEST_MAIN(TestAnalysisAction)
#include "tst_analysisaction.moc"
