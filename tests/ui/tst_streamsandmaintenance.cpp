// Online streams (the stream editor) and library upkeep: verify, new library, delete library.

#include "musiclibrarydialog.h"
#include "tracktablewidget.h"
#include "uitestsupport.h"

#include <QComboBox>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {

struct EditorSeen {
    QString title;
    QString name;
    QString url;
    QString namePlaceholder;
    QString urlPlaceholder;
    QString acceptText;
    bool acceptIsDefault = false;
    int minimumWidth = 0;
};

struct BoxSeen {
    QString title;
    QString text;
    QMessageBox::StandardButtons buttons;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
};

} // namespace

class TestStreamsAndMaintenance : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<MusicLibraryDialog> dialog;
    TrackTableWidget* table = nullptr;
    QLabel* status = nullptr;
    QComboBox* selector = nullptr;
    QTemporaryDir work;

    void openDialog()
    {
        dialog = std::make_unique<MusicLibraryDialog>();
        dialog->show();
        table = dialog->findChild<TrackTableWidget*>(QStringLiteral("trackTable"));
        status = dialog->findChild<QLabel*>(QStringLiteral("statusLabel"));
        selector = dialog->findChild<QComboBox*>(QStringLiteral("librarySelector"));
        QVERIFY(table && status && selector);
    }

    // Fills the stream editor when it appears and presses its accept button (or Cancel).
    static void answerEditor(EditorSeen& seen, const QString& name, const QString& url, bool accept = true)
    {
        uitest::whenModal<QDialog>([&seen, name, url, accept](QDialog* editor) {
            auto* nameEdit = editor->findChild<QLineEdit*>(QStringLiteral("streamName"));
            auto* urlEdit = editor->findChild<QLineEdit*>(QStringLiteral("streamUrl"));
            auto* ok = editor->findChild<QPushButton*>(QStringLiteral("streamAccept"));
            auto* cancel = editor->findChild<QPushButton*>(QStringLiteral("streamCancel"));
            seen.title = editor->windowTitle();
            seen.name = nameEdit->text();
            seen.url = urlEdit->text();
            seen.namePlaceholder = nameEdit->placeholderText();
            seen.urlPlaceholder = urlEdit->placeholderText();
            seen.acceptText = ok->text();
            seen.acceptIsDefault = ok->isDefault();
            seen.minimumWidth = editor->minimumWidth();
            nameEdit->setText(name);
            urlEdit->setText(url);
            (accept ? ok : cancel)->click();
        });
    }

    static void answerMessageBox(BoxSeen& seen, QMessageBox::StandardButton press)
    {
        uitest::whenModal<QMessageBox>([&seen, press](QMessageBox* box) {
            seen.title = box->windowTitle();
            seen.text = box->text();
            seen.buttons = box->standardButtons();
            seen.icon = box->icon();
            box->button(press)->click();
        });
    }

    static void answerNameDialog(QString& label, const QString& name, bool accept = true)
    {
        uitest::whenModal<QInputDialog>([&label, name, accept](QInputDialog* input) {
            label = input->windowTitle() + QLatin1Char('|') + input->labelText() + QLatin1Char('|') +
                    input->textValue() +
                    (input->textEchoMode() == QLineEdit::Normal ? QStringLiteral("|normal echo")
                                                                : QStringLiteral("|hidden echo"));
            input->setTextValue(name);
            if (accept)
                input->accept();
            else
                input->reject();
        });
    }

private slots:
    void initTestCase()
    {
        uitest::useTestLocations("tst_streamsandmaintenance");
        QVERIFY(work.isValid());
    }
    void init() { uitest::freshDatabase(); }
    void cleanup()
    {
        uitest::stopWatchers();
        dialog.reset();
    }
    void cleanupTestCase() { uitest::removeTestLocations(); }

    void addingStreamStoresItAndReportsAdded()
    {
        openDialog();
        QSignalSpy changed(dialog.get(), &MusicLibraryDialog::librariesChanged);
        EditorSeen seen;
        answerEditor(seen, QStringLiteral("Jazz FM"), QStringLiteral("  http://jazz.example/stream.mp3 "));
        dialog->addStream();
        QCOMPARE(seen.title, QStringLiteral("Add online stream"));
        QCOMPARE(seen.acceptText, QStringLiteral("Add"));
        QVERIFY(seen.acceptIsDefault);
        QCOMPARE(seen.name, QString());
        QCOMPARE(seen.url, QString());
        QCOMPARE(seen.namePlaceholder, QStringLiteral("e.g. BBC Radio 1"));
        QCOMPARE(seen.urlPlaceholder, QStringLiteral("http://... .mp3 / .aac / .m3u8"));
        QCOMPARE(seen.minimumWidth, 380);
        QCOMPARE(status->text(), QStringLiteral("Added online stream"));
        QCOMPARE(changed.size(), 1);
        QCOMPARE(table->rowCount(), 1);
        QCOMPARE(table->item(0, 1)->text(), QStringLiteral("Jazz FM"));
        QCOMPARE(table->item(0, 11)->text(), QStringLiteral("http://jazz.example/stream.mp3"));
        QCOMPARE(table->item(0, 6)->text(), QStringLiteral("STREAM"));
    }

    void addingStreamWithBlankUrlDoesNothing()
    {
        openDialog();
        const QString before = status->text();
        QSignalSpy changed(dialog.get(), &MusicLibraryDialog::librariesChanged);
        EditorSeen seen;
        answerEditor(seen, QStringLiteral("Nothing"), QStringLiteral("    "));
        dialog->addStream();
        QCOMPARE(seen.title, QStringLiteral("Add online stream"));
        QCOMPARE(status->text(), before);
        QCOMPARE(changed.size(), 0);
        QCOMPARE(dialog->library().trackCount(), 0);
    }

    void cancellingStreamEditorDoesNothing()
    {
        openDialog();
        QSignalSpy changed(dialog.get(), &MusicLibraryDialog::librariesChanged);
        EditorSeen seen;
        answerEditor(seen, QStringLiteral("Kept out"), QStringLiteral("http://x.example/"), false);
        dialog->addStream();
        QCOMPARE(changed.size(), 0);
        QCOMPARE(dialog->library().trackCount(), 0);
    }

    void editingStreamNameOnlyKeepsUrlAndReportsUpdated()
    {
        MusicLibrary store;
        store.setLibrary(QStringLiteral("Default"));
        store.addStream(QStringLiteral("Old name"), QStringLiteral("http://radio.example/live"));
        openDialog();
        const Track existing = dialog->library().query({}).first();
        QSignalSpy changed(dialog.get(), &MusicLibraryDialog::librariesChanged);
        EditorSeen seen;
        uitest::whenModal<QDialog>([&seen](QDialog* editor) {
            seen.title = editor->windowTitle();
            seen.name = editor->findChild<QLineEdit*>(QStringLiteral("streamName"))->text();
            seen.url = editor->findChild<QLineEdit*>(QStringLiteral("streamUrl"))->text();
            seen.acceptText = editor->findChild<QPushButton*>(QStringLiteral("streamAccept"))->text();
            // Only the name changes, typed as a user would.
            auto* nameEdit = editor->findChild<QLineEdit*>(QStringLiteral("streamName"));
            nameEdit->selectAll();
            QTest::keyClicks(nameEdit, QStringLiteral("New name"));
            editor->findChild<QPushButton*>(QStringLiteral("streamAccept"))->click();
        });
        dialog->editStream(existing);
        QCOMPARE(seen.title, QStringLiteral("Edit online stream"));
        QCOMPARE(seen.acceptText, QStringLiteral("Save"));
        QCOMPARE(seen.name, QStringLiteral("Old name"));
        QCOMPARE(seen.url, QStringLiteral("http://radio.example/live"));
        QCOMPARE(status->text(), QStringLiteral("Stream updated"));
        QCOMPARE(changed.size(), 1);
        const QList<Track> after = dialog->library().query({});
        QCOMPARE(after.size(), 1);
        QCOMPARE(after.first().title, QStringLiteral("New name"));
        QCOMPARE(after.first().filePath, QStringLiteral("http://radio.example/live"));
        QVERIFY(after.first().isStream);
    }

    void verifyingLibraryWithNothingMissingSaysAllPresent()
    {
        const QString present = work.filePath(QStringLiteral("present.mp3"));
        QVERIFY(uitest::writeFile(present, "x"));
        MusicLibrary store;
        store.setLibrary(QStringLiteral("Default"));
        Track t;
        t.filePath = present;
        t.title = QStringLiteral("Present");
        t.durationMs = 1000;
        store.addTrack(t);
        store.addStream(QStringLiteral("S"), QStringLiteral("http://never.checked/"));
        openDialog();
        QSignalSpy changed(dialog.get(), &MusicLibraryDialog::librariesChanged);
        BoxSeen seen;
        answerMessageBox(seen, QMessageBox::Ok);
        dialog->verifyLibrary();
        QCOMPARE(seen.title, QStringLiteral("Verify library"));
        QCOMPARE(seen.text, QStringLiteral("All files present. Nothing removed."));
        QCOMPARE(seen.buttons, QMessageBox::StandardButtons(QMessageBox::Ok));
        QCOMPARE(seen.icon, QMessageBox::Information);
        QCOMPARE(changed.size(), 1);
        QCOMPARE(table->rowCount(), 2);
    }

    void verifyingRemovesMissingFilesAndSaysHowMany()
    {
        MusicLibrary store;
        store.setLibrary(QStringLiteral("Default"));
        for (const char* name : {"gone1.mp3", "gone2.mp3"}) {
            Track t;
            t.filePath = work.filePath(QLatin1String(name));
            t.title = QLatin1String(name);
            t.durationMs = 1000;
            store.addTrack(t);
        }
        openDialog();
        QCOMPARE(table->rowCount(), 2);
        BoxSeen seen;
        answerMessageBox(seen, QMessageBox::Ok);
        dialog->verifyLibrary();
        QCOMPARE(seen.text, QStringLiteral("Removed 2 missing file(s)."));
        QCOMPARE(table->rowCount(), 0);
    }

    void newLibraryIsCreatedSelectedAndAnnounced()
    {
        openDialog();
        QSignalSpy changed(dialog.get(), &MusicLibraryDialog::librariesChanged);
        QString asked;
        answerNameDialog(asked, QStringLiteral("  Jazz  "));
        dialog->newLibrary();
        QCOMPARE(asked, QStringLiteral("New library|Library name:||normal echo"));
        QCOMPARE(MusicLibrary::libraries(), (QStringList{QStringLiteral("Default"), QStringLiteral("Jazz")}));
        QCOMPARE(selector->currentText(), QStringLiteral("Jazz"));
        QCOMPARE(dialog->library().name(), QStringLiteral("Jazz"));
        QCOMPARE(status->text(), QStringLiteral("Library \"Jazz\"  -  Tracks: 0"));
        QCOMPARE(changed.size(), 1);
    }

    void newLibraryCancelledOrBlankDoesNothing()
    {
        openDialog();
        QSignalSpy changed(dialog.get(), &MusicLibraryDialog::librariesChanged);
        QString asked;
        answerNameDialog(asked, QStringLiteral("Never"), false);
        dialog->newLibrary();
        answerNameDialog(asked, QStringLiteral("   "));
        dialog->newLibrary();
        QCOMPARE(MusicLibrary::libraries(), QStringList{QStringLiteral("Default")});
        QCOMPARE(changed.size(), 0);
    }

    void creatingLibraryWithExistingNameWarnsAndKeepsSelection()
    {
        MusicLibrary::createLibrary(QStringLiteral("Default"));
        MusicLibrary::createLibrary(QStringLiteral("Rock"));
        openDialog();
        QCOMPARE(selector->currentText(), QStringLiteral("Default"));
        QSignalSpy changed(dialog.get(), &MusicLibraryDialog::librariesChanged);
        QString asked;
        answerNameDialog(asked, QStringLiteral("Rock"));
        BoxSeen seen;
        answerMessageBox(seen, QMessageBox::Ok);
        dialog->newLibrary();
        QCOMPARE(seen.title, QStringLiteral("New library"));
        QCOMPARE(seen.text, QStringLiteral("Could not create library (name may already exist)."));
        QCOMPARE(seen.icon, QMessageBox::Warning);
        QCOMPARE(selector->currentText(), QStringLiteral("Default"));
        QCOMPARE(dialog->library().name(), QStringLiteral("Default"));
        QCOMPARE(MusicLibrary::libraries().size(), 2);
        QCOMPARE(changed.size(), 0);
    }

    void deletingOnlyLibraryLeavesEmptyDefaultSelected()
    {
        MusicLibrary store;
        store.setLibrary(QStringLiteral("Default"));
        store.addStream(QStringLiteral("S"), QStringLiteral("http://s.example/"));
        openDialog();
        QCOMPARE(table->rowCount(), 1);
        QSignalSpy changed(dialog.get(), &MusicLibraryDialog::librariesChanged);
        BoxSeen seen;
        answerMessageBox(seen, QMessageBox::Yes);
        dialog->deleteLibrary();
        QCOMPARE(seen.title, QStringLiteral("Delete library"));
        QCOMPARE(seen.text, QStringLiteral("Delete library \"Default\"? The audio files are not affected."));
        QCOMPARE(seen.buttons, QMessageBox::StandardButtons(QMessageBox::Yes | QMessageBox::No));
        QCOMPARE(MusicLibrary::libraries(), QStringList{QStringLiteral("Default")});
        QCOMPARE(selector->count(), 1);
        QCOMPARE(selector->currentText(), QStringLiteral("Default"));
        QCOMPARE(table->rowCount(), 0);
        QCOMPARE(status->text(), QStringLiteral("Library \"Default\"  -  Tracks: 0"));
        QCOMPARE(changed.size(), 1);
    }

    void deletingOneOfSeveralLibrariesSelectsTheFirstLeft()
    {
        MusicLibrary::createLibrary(QStringLiteral("abba"));
        MusicLibrary::createLibrary(QStringLiteral("Rock"));
        openDialog();
        selector->setCurrentIndex(selector->findText(QStringLiteral("Rock")));
        BoxSeen seen;
        answerMessageBox(seen, QMessageBox::Yes);
        dialog->deleteLibrary();
        QCOMPARE(MusicLibrary::libraries(), QStringList{QStringLiteral("abba")});
        QCOMPARE(selector->currentText(), QStringLiteral("abba"));
        QCOMPARE(dialog->library().name(), QStringLiteral("abba"));
    }

    void answeringNoKeepsTheLibrary()
    {
        openDialog();
        QSignalSpy changed(dialog.get(), &MusicLibraryDialog::librariesChanged);
        MusicLibrary store;
        store.setLibrary(QStringLiteral("Default"));
        store.addStream(QStringLiteral("S"), QStringLiteral("http://s.example/"));
        BoxSeen seen;
        answerMessageBox(seen, QMessageBox::No);
        dialog->deleteLibrary();
        QCOMPARE(store.trackCount(), 1);
        QCOMPARE(changed.size(), 0);
    }
};

QTEST_MAIN(TestStreamsAndMaintenance)
#include "tst_streamsandmaintenance.moc"
