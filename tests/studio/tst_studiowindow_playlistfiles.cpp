#include "audioengine.h"
#include "logpane.h"
#include "playlistfile.h"
#include "playlistmodel.h"
#include "playlistview.h"
#include "studiotestsupport.h"
#include "studiowindow.h"
#include "transportbar.h"

#include <QFile>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

using namespace studiotest;

// Playlists on disk through the window: a missing, a malformed and a binary file each give a
// message box and leave the playlist as it was; what is saved opens again row for row.
class TestStudioWindowPlaylistFiles : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QStringList tones;

    QString pathOf(const QString& name) const { return QDir(dir.path()).filePath(name); }

    // Expects a warning box, remembers its text and closes it.
    static std::shared_ptr<QString> closeWarning()
    {
        auto text = std::make_shared<QString>();
        uitest::whenModal<QMessageBox>([text](QMessageBox* box) {
            *text = box->text();
            box->accept();
        });
        return text;
    }

    static QStringList shownTitles(StudioWindow& window)
    {
        QStringList titles;
        for (int row = 0; row < window.playlist()->rowCount(); ++row)
            titles << window.playlist()
                          ->data(window.playlist()->index(row, PlaylistModel::TitleColumn))
                          .toString();
        return titles;
    }

    void checkRefused(const QString& path, const QString& reason)
    {
        StudioWindow window;
        window.appendItems(tones);
        const QStringList before = shownTitles(window);
        const auto warning = closeWarning();
        QVERIFY(!window.openPlaylist(path));
        QTRY_VERIFY_WITH_TIMEOUT(!warning->isEmpty(), 10000);
        QVERIFY2(warning->contains(QDir::toNativeSeparators(path)), qPrintable(*warning));
        QVERIFY2(warning->contains(reason), qPrintable(*warning));
        QCOMPARE(shownTitles(window), before);
        QCOMPARE(window.logPane()->lines().filter(QStringLiteral("Playlist not loaded: ")).size(), 1);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useStudioLocations(dir.path(), "tst_studiowindow_playlistfiles");
        for (const QString& name : {QStringLiteral("One - First.wav"), QStringLiteral("Two - Second.wav")}) {
            const QString path = playouttest::makeTone(dir.path(), name, 440, 1.0);
            QVERIFY(!path.isEmpty());
            tones << path;
        }
    }

    void cleanup() { uitest::stopWatchers(); }
    void cleanupTestCase() { removeStudioLocations(); }

    void openingAMissingFileWarnsAndChangesNothing()
    {
        checkRefused(pathOf(QStringLiteral("no such list.m3u")), QStringLiteral("Cannot read"));
    }

    void openingAMalformedFileWarnsAndChangesNothing()
    {
        const QString path = pathOf(QStringLiteral("broken.m3u"));
        QVERIFY(uitest::writeFile(path, "#EXTM3U\n#EXTINF:abc,Someone - Something\n/music/a.mp3\n"));
        checkRefused(path, QStringLiteral("Line 2"));
    }

    void openingABinaryFileWarnsAndChangesNothing()
    {
        const QString path = pathOf(QStringLiteral("binary.m3u"));
        QVERIFY(uitest::writeFile(path, QByteArray("\x00\x01\x02\xff\xfe garbage \x00", 14)));
        checkRefused(path, QStringLiteral("binary"));
    }

    void whatIsSavedOpensAgainRowForRow()
    {
        StudioWindow window;
        window.appendItems(tones);
        window.playlistView()->insertStopAfter(0);
        window.appendItems({QStringLiteral("https://radio.example/live.mp3")});
        const QList<Track> saved = window.playlist()->tracks();
        QCOMPARE(saved.size(), 4);
        const QString path = pathOf(QStringLiteral("saved.m3u"));
        QVERIFY(window.savePlaylist(path));
        QVERIFY(!window.logPane()->lines().filter(QStringLiteral("Playlist saved: 4 rows to ")).isEmpty());

        StudioWindow other;
        other.appendItems({tones.at(1)}); // replaced by the file
        QVERIFY(other.openPlaylist(path));
        const QList<Track> opened = other.playlist()->tracks();
        QCOMPARE(titlesOf(opened), titlesOf(saved));
        for (int i = 0; i < saved.size(); ++i) {
            QCOMPARE(opened.at(i).filePath, saved.at(i).filePath);
            QCOMPARE(opened.at(i).isStream, saved.at(i).isStream);
            QCOMPARE(opened.at(i).isCommand, saved.at(i).isCommand);
            QCOMPARE(opened.at(i).durationMs / 1000, saved.at(i).durationMs / 1000);
        }
        QVERIFY(!other.logPane()->lines().filter(QStringLiteral("Playlist loaded: 4 rows from ")).isEmpty());
    }

    void playAfterOpeningAnotherListStartsItsRowNotTheOldTrack()
    {
        StudioWindow window;
        window.appendItems({tones.at(0)});
        QSignalSpy started(window.engine(), &AudioEngine::trackStarted);
        window.transportBar()->playButton()->click();
        QVERIFY(started.wait(15000));
        QCOMPARE(window.engine()->currentTrack().filePath, tones.at(0));
        window.transportBar()->stopButton()->click();
        QTRY_VERIFY_WITH_TIMEOUT(!window.engine()->isPlaying(), 10000);

        const QString path = pathOf(QStringLiteral("other.m3u"));
        Track second;
        second.filePath = tones.at(1);
        second.artist = QStringLiteral("Two");
        second.title = QStringLiteral("Second");
        QVERIFY(PlaylistFile::write(path, {second}));
        QVERIFY(window.openPlaylist(path));
        QCOMPARE(window.playlist()->rowCount(), 1);

        started.clear();
        window.transportBar()->playButton()->click();
        QVERIFY(started.wait(15000));
        QCOMPARE(started.last().at(1).value<Track>().filePath, tones.at(1));
        window.transportBar()->stopButton()->click();
    }

    void aPlaylistOfVanishedFilesKeepsItsRowsAndReportsThem()
    {
        const QString path = pathOf(QStringLiteral("vanished.m3u"));
        QVERIFY(uitest::writeFile(path, "#EXTM3U\n#EXTINF:200,Gone - Away\n/nonexistent/gone.mp3\n"
                                        "#EXTINF:1,One - First\nOne - First.wav\n"));
        StudioWindow window;
        QVERIFY(window.openPlaylist(path));
        QCOMPARE(window.playlist()->rowCount(), 2);
        QCOMPARE(window.playlist()->tracks().at(1).filePath, tones.at(0)); // relative to the list's folder
        QCOMPARE(
            window.logPane()->lines().filter(QStringLiteral("File not found: /nonexistent/gone.mp3")).size(),
            1);
    }

    void aPlaylistOnTheCommandLineThatCannotBeReadIsReportedInTheLog()
    {
        StudioWindow window;
        window.appendItems(
            {pathOf(QStringLiteral("absent.m3u")), tones.at(0), QStringLiteral("ftp://files.example/x.mp3")});
        QCOMPARE(titlesOf(window.playlist()->tracks()), QStringList{QStringLiteral("One - First")});
        QCOMPARE(window.logPane()->lines().filter(QStringLiteral("Playlist not loaded: ")).size(), 1);
        QCOMPARE(
            window.logPane()->lines().filter(QStringLiteral("Not a file or stream, ignored: ftp://")).size(),
            1);
    }

    void savingWhereNothingCanBeWrittenWarns()
    {
        StudioWindow window;
        window.appendItems(tones);
        const auto warning = closeWarning();
        QVERIFY(!window.savePlaylist(QStringLiteral("/nonexistent/folder/list.m3u")));
        QTRY_VERIFY_WITH_TIMEOUT(!warning->isEmpty(), 10000);
        QVERIFY(warning->contains(QStringLiteral("could not be saved")));
        QCOMPARE(window.playlist()->rowCount(), 2);
    }
};

QTEST_MAIN(TestStudioWindowPlaylistFiles)
#include "tst_studiowindow_playlistfiles.moc"
