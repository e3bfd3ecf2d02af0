// Adding files and folders: the choosers, the background folder listing with its busy dialog,
// insertion in batches of 50 with progress labels, cancelling, and every status text.

#include "musiclibrarydialog.h"
#include "uitestsupport.h"

#include <QAbstractItemView>
#include <QElapsedTimer>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QProgressDialog>
#include <QPushButton>
#include <QSignalSpy>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QtTest>

class TestAddFilesAndFolders : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<MusicLibraryDialog> dialog;
    QLabel* status = nullptr;
    QTemporaryDir work;
    QString toneWav; // one generated tone, copied wherever a folder needs audio files

    void openDialog()
    {
        dialog = std::make_unique<MusicLibraryDialog>();
        dialog->show();
        status = dialog->findChild<QLabel*>(QStringLiteral("statusLabel"));
        QVERIFY(status);
    }

    // A folder with `count` copies of the tone, named track001.wav ...
    QString folderOfTones(const QString& name, int count)
    {
        const QString dir = work.filePath(name);
        QDir().mkpath(dir);
        for (int i = 1; i <= count; ++i)
            QFile::copy(toneWav, QStringLiteral("%1/track%2.wav").arg(dir).arg(i, 3, 10, QLatin1Char('0')));
        return dir;
    }

    // Answers the next file chooser with `selection` (names in `dir`, or `dir` itself), as a user
    // does: it picks and confirms again while the chooser's background file listing is still settling
    // (the chooser can refuse a name it has not listed yet), and it stops once the chooser is gone.
    void answerChooser(const QString& dir, const QString& selection,
                       const std::function<void(QFileDialog*)>& inspect = {})
    {
        auto* timer = new QTimer(uitest::watcherScope().get());
        timer->setInterval(50);
        auto seen = std::make_shared<bool>(false);
        const QDeadlineTimer deadline(60000);
        connect(timer, &QTimer::timeout, timer, [timer, seen, deadline, dir, selection, inspect] {
            QWidget* modal = QApplication::activeModalWidget();
            if (auto* chooser = qobject_cast<QFileDialog*>(modal)) {
                if (!*seen && inspect)
                    inspect(chooser);
                *seen = true;
                if (QDir(chooser->directory()) != QDir(dir))
                    chooser->setDirectory(dir);
                // Typed into the name box: selectFile() leaves the box alone once it has the focus.
                if (auto* nameBox = chooser->findChild<QLineEdit*>(QStringLiteral("fileNameEdit")))
                    nameBox->setText(selection);
                else
                    chooser->selectFile(selection);
                QMetaObject::invokeMethod(chooser, "accept");
            } else if (auto* box = qobject_cast<QMessageBox*>(modal); box && *seen) {
                box->accept(); // the chooser's own complaint; try again on the next tick
            } else if (*seen || deadline.hasExpired()) {
                timer->stop();
                timer->deleteLater();
            }
        });
        timer->start();
    }

    void chooseFolder(const QString& dir) { answerChooser(dir, dir); }

    void chooseFiles(const QString& dir, const QStringList& names,
                     const std::function<void(QFileDialog*)>& inspect = {})
    {
        QStringList quoted;
        for (const QString& name : names)
            quoted << QLatin1Char('"') + name + QLatin1Char('"');
        answerChooser(dir, names.size() == 1 ? names.first() : quoted.join(QLatin1Char(' ')), inspect);
    }

    // A folder whose listing takes a while: level i holds two links, "a" and "b", to level i + 1, so
    // the listing walks 2^depth folders. The depth grows until one listing takes at least 1.5 s here,
    // which leaves the test ample time to cancel while the real one runs.
    QString slowFolder(const QString& name)
    {
        const QString base = work.filePath(name);
        QDir().mkpath(base);
        int depth = 0;
        const auto deepen = [&] {
            const QString next = QStringLiteral("%1/level%2").arg(base).arg(depth + 1);
            QDir().mkpath(next);
            const QString here = QStringLiteral("%1/level%2").arg(base).arg(depth);
            QFile::link(next, here + QStringLiteral("/a"));
            QFile::link(next, here + QStringLiteral("/b"));
            ++depth;
        };
        QDir().mkpath(base + QStringLiteral("/level0"));
        for (int i = 0; i < 10; ++i)
            deepen();
        for (;;) {
            QElapsedTimer clock;
            clock.start();
            MusicLibrary::audioFilesIn(base + QStringLiteral("/level0"), true);
            if (clock.elapsed() >= 1500 || depth >= 24)
                break;
            deepen();
            if (clock.elapsed() < 400)
                deepen();
        }
        return base + QStringLiteral("/level0");
    }

    QProgressDialog* progress(const char* name) const
    {
        return dialog->findChild<QProgressDialog*>(QLatin1String(name));
    }

private slots:
    void initTestCase()
    {
        uitest::useTestLocations("tst_addfilesandfolders");
        QVERIFY(work.isValid());
        toneWav = work.filePath(QStringLiteral("tone.wav"));
        QVERIFY(uitest::makeTone(toneWav, 0.2));
    }
    void init() { uitest::freshDatabase(); }
    void cleanup()
    {
        uitest::stopWatchers();
        dialog.reset();
    }
    void cleanupTestCase() { uitest::removeTestLocations(); }

    void addingChosenFilesReportsTheStoresCount()
    {
        const QString dir = folderOfTones(QStringLiteral("pick"), 3);
        openDialog();
        QSignalSpy changed(dialog.get(), &MusicLibraryDialog::librariesChanged);
        QString caption;
        QStringList filters;
        chooseFiles(dir, {QStringLiteral("track001.wav"), QStringLiteral("track002.wav")},
                    [&](QFileDialog* chooser) {
                        caption = chooser->windowTitle();
                        filters = chooser->nameFilters();
                    });
        dialog->addFiles();
        QCOMPARE(caption, QStringLiteral("Add files to library"));
        QCOMPARE(filters, (QStringList{"Audio files (*.mp3 *.wav *.ogg *.flac *.m4a *.aac *.opus *.wma)",
                                       "All files (*.*)"}));
        QCOMPARE(status->text(), QStringLiteral("Added 2 file(s)"));
        QCOMPARE(dialog->library().trackCount(), 2);
        QCOMPARE(changed.size(), 1);
    }

    void choosingNothingStopsWithoutMessage()
    {
        openDialog();
        const QString before = status->text();
        QSignalSpy changed(dialog.get(), &MusicLibraryDialog::librariesChanged);
        uitest::whenModal<QFileDialog>([](QFileDialog* chooser) { chooser->reject(); });
        dialog->addFiles();
        uitest::whenModal<QFileDialog>([](QFileDialog* chooser) { chooser->reject(); });
        dialog->addFolder();
        QCOMPARE(status->text(), before);
        QCOMPARE(changed.size(), 0);
    }

    void choosingFilesAlreadyInLibraryReportsWhatTheStoreCounts()
    {
        const QString dir = folderOfTones(QStringLiteral("again"), 2);
        openDialog();
        chooseFiles(dir, {QStringLiteral("track001.wav"), QStringLiteral("track002.wav")});
        dialog->addFiles();
        QCOMPARE(status->text(), QStringLiteral("Added 2 file(s)"));
        // This store counts every supported path it is given, present or not, and so does the text.
        MusicLibrary probe;
        probe.setLibrary(dialog->library().name());
        const int before = probe.trackCount();
        chooseFiles(dir, {QStringLiteral("track001.wav"), QStringLiteral("track002.wav")});
        dialog->addFiles();
        const int reported = probe.trackCount() - before;
        QCOMPARE(status->text(), QStringLiteral("Added %1 file(s)").arg(reported));
    }

    void aiffIsFoundByFolderScanButNotOfferedByAudioFilter()
    {
        const QString dir = work.filePath(QStringLiteral("aiff"));
        QDir().mkpath(dir);
        QVERIFY(uitest::makeTone(dir + QStringLiteral("/song.aiff"), 0.2));
        openDialog();

        QStringList audioChoices;
        QStringList allChoices;
        uitest::whenModal<QFileDialog>([&](QFileDialog* chooser) {
            chooser->setDirectory(dir);
            auto visibleFiles = [chooser] {
                auto* view = chooser->findChild<QAbstractItemView*>(QStringLiteral("listView"));
                QStringList names;
                QTest::qWait(300); // the file system model fills in the background
                const QModelIndex root = view->rootIndex();
                for (int r = 0; r < view->model()->rowCount(root); ++r)
                    names << view->model()->index(r, 0, root).data().toString();
                return names;
            };
            chooser->selectNameFilter(chooser->nameFilters().at(0));
            audioChoices = visibleFiles();
            chooser->selectNameFilter(chooser->nameFilters().at(1));
            allChoices = visibleFiles();
            chooser->reject();
        });
        dialog->addFiles();
        QVERIFY2(!audioChoices.contains(QStringLiteral("song.aiff")), qPrintable(audioChoices.join(',')));
        QVERIFY2(allChoices.contains(QStringLiteral("song.aiff")), qPrintable(allChoices.join(',')));

        chooseFolder(dir);
        dialog->addFolder();
        QCOMPARE(status->text(), QStringLiteral("Added 1 file(s) from folder"));
        QCOMPARE(dialog->library().trackCount(), 1);
    }

    void folderOf120FilesGivesThreeProgressLabels()
    {
        const QString dir = folderOfTones(QStringLiteral("hundred-twenty"), 120);
        openDialog();
        QSignalSpy changed(dialog.get(), &MusicLibraryDialog::librariesChanged);
        QStringList labels;
        int maximum = -1;
        Qt::WindowModality addingModality = Qt::NonModal;
        int addingMinimumDuration = -1;
        QString addingCancelText;
        // Polls on every pass of the event loop while the dialogs are up and notes each new text.
        QTimer watch;
        watch.setInterval(0);
        connect(&watch, &QTimer::timeout, this, [&] {
            QProgressDialog* adding = progress("addFolderProgress");
            if (adding && adding->isVisible()) {
                maximum = adding->maximum();
                addingModality = adding->windowModality();
                addingMinimumDuration = adding->minimumDuration();
                if (auto* button = adding->findChild<QPushButton*>())
                    addingCancelText = button->text();
                if (labels.isEmpty() || labels.last() != adding->labelText())
                    labels << adding->labelText();
            }
        });
        watch.start();
        QString caption;
        bool directoriesOnly = false;
        answerChooser(dir, dir, [&](QFileDialog* chooser) {
            caption = chooser->windowTitle();
            directoriesOnly = chooser->testOption(QFileDialog::ShowDirsOnly);
        });
        dialog->addFolder();
        watch.stop();
        QCOMPARE(caption, QStringLiteral("Add folder to library"));
        QVERIFY(directoriesOnly);
        QCOMPARE(maximum, 120);
        QCOMPARE(addingModality, Qt::WindowModal);
        QCOMPARE(addingMinimumDuration, 0);
        QCOMPARE(addingCancelText, QStringLiteral("Cancel"));
        QStringList steps;
        for (const QString& label : labels) {
            if (label.contains(QLatin1Char('(')))
                steps << label;
        }
        QCOMPARE(steps, (QStringList{QStringLiteral("Adding files to library…  (50 / 120)"),
                                     QStringLiteral("Adding files to library…  (100 / 120)"),
                                     QStringLiteral("Adding files to library…  (120 / 120)")}));
        QCOMPARE(status->text(), QStringLiteral("Added 120 file(s) from folder"));
        QCOMPARE(dialog->library().trackCount(), 120);
        QCOMPARE(changed.size(), 1);
        // Both progress dialogs live only for the call.
        QVERIFY(!progress("folderScanProgress"));
        QVERIFY(!progress("addFolderProgress"));
    }

    void cancellingDuringScanReportsCancelledAndAddsNothing()
    {
        const QString dir = slowFolder(QStringLiteral("slow"));
        QVERIFY(uitest::writeFile(dir + QStringLiteral("/song.mp3"), "not really audio"));
        openDialog();
        QSignalSpy changed(dialog.get(), &MusicLibraryDialog::librariesChanged);
        QString label;
        QString cancelText;
        int maximum = -1;
        Qt::WindowModality modality = Qt::NonModal;
        uitest::whenShown<QProgressDialog>([this] { return progress("folderScanProgress"); },
                                           [&](QProgressDialog* scan) {
                                               label = scan->labelText();
                                               maximum = scan->maximum();
                                               modality = scan->windowModality();
                                               // As the user does: the button, not the slot.
                                               if (auto* button = scan->findChild<QPushButton*>()) {
                                                   cancelText = button->text();
                                                   button->click();
                                               }
                                           });
        chooseFolder(dir);
        dialog->addFolder();
        QCOMPARE(label, QStringLiteral("Scanning folder…"));
        QCOMPARE(maximum, 0);
        QCOMPARE(modality, Qt::WindowModal);
        QCOMPARE(cancelText, QStringLiteral("Cancel"));
        QCOMPARE(status->text(), QStringLiteral("Folder scan cancelled"));
        QCOMPARE(dialog->library().trackCount(), 0);
        QCOMPARE(changed.size(), 0);
        QVERIFY(!progress("folderScanProgress"));
        QVERIFY(!progress("addFolderProgress"));
    }

    void cancellingAfterFirstBatchAddsFifty()
    {
        const QString dir = folderOfTones(QStringLiteral("cancel-insert"), 120);
        openDialog();
        QSignalSpy changed(dialog.get(), &MusicLibraryDialog::librariesChanged);
        QTimer watch;
        watch.setInterval(0);
        connect(&watch, &QTimer::timeout, this, [&] {
            QProgressDialog* adding = progress("addFolderProgress");
            if (adding && adding->labelText().endsWith(QStringLiteral("(50 / 120)")) &&
                !adding->wasCanceled()) {
                if (auto* button = adding->findChild<QPushButton*>())
                    button->click();
            }
        });
        watch.start();
        chooseFolder(dir);
        dialog->addFolder();
        watch.stop();
        QCOMPARE(status->text(), QStringLiteral("Added 50 file(s) from folder"));
        QCOMPARE(dialog->library().trackCount(), 50);
        QCOMPARE(changed.size(), 1);
    }

    void folderOfTextFilesReportsNoAudioFilesFound()
    {
        const QString dir = work.filePath(QStringLiteral("texts"));
        QDir().mkpath(dir + QStringLiteral("/sub"));
        QVERIFY(uitest::writeFile(dir + QStringLiteral("/notes.txt"), "hello"));
        QVERIFY(uitest::writeFile(dir + QStringLiteral("/sub/more.txt"), "world"));
        openDialog();
        QSignalSpy changed(dialog.get(), &MusicLibraryDialog::librariesChanged);
        chooseFolder(dir);
        dialog->addFolder();
        QCOMPARE(status->text(), QStringLiteral("No audio files found in folder"));
        QCOMPARE(changed.size(), 0);
        QVERIFY(!progress("addFolderProgress"));
    }

    void folderOfBadFilesAddsThemWithoutCrashing()
    {
        // The store's fixtures when they are there; otherwise the same kinds of damage made here.
        QString dir = QStringLiteral(ONDARO_FIXTURE_DIR) + QStringLiteral("/bad");
        if (!QFileInfo::exists(dir + QStringLiteral("/truncated.mp3"))) {
            dir = work.filePath(QStringLiteral("bad"));
            QDir().mkpath(dir);
            QVERIFY(uitest::writeFile(dir + QStringLiteral("/empty.mp3"), QByteArray()));
            QByteArray noise(4096, Qt::Uninitialized);
            for (int i = 0; i < noise.size(); ++i)
                noise[i] = char((i * 7919) ^ (i >> 3));
            QVERIFY(uitest::writeFile(dir + QStringLiteral("/random.mp3"), noise));
            QVERIFY(uitest::writeFile(dir + QStringLiteral("/random.flac"), noise));
            QFile tone(toneWav);
            QVERIFY(tone.open(QIODevice::ReadOnly));
            QVERIFY(uitest::writeFile(dir + QStringLiteral("/truncated.mp3"), tone.read(100)));
            QVERIFY(uitest::writeFile(dir + QStringLiteral("/notaudio.txt"), "plain text"));
        }
        const QStringList audio = MusicLibrary::audioFilesIn(dir, true);
        QVERIFY(!audio.isEmpty());
        openDialog();
        chooseFolder(dir);
        dialog->addFolder();
        QCOMPARE(status->text(), QStringLiteral("Added %1 file(s) from folder").arg(audio.size()));
        QCOMPARE(dialog->library().trackCount(), audio.size());
        auto* table = dialog->findChild<QTableWidget*>(QStringLiteral("trackTable"));
        QCOMPARE(table->rowCount(), audio.size());
    }
};

QTEST_MAIN(TestAddFilesAndFolders)
#include "tst_addfilesandfolders.moc"
