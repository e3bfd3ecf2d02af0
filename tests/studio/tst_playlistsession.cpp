// The studio keeps its playlist and its position on disk while they change: a crash loses nothing,
// the next start brings them back, command-line files replace them, an unreadable session opens
// empty with a log line, and quitting while on air asks first.

#include "audioengine.h"
#include "logpane.h"
#include "playlistfile.h"
#include "playlistmodel.h"
#include "playlistsession.h"
#include "playlistview.h"
#include "streamserver.h"
#include "studiocommandline.h"
#include "studiotestsupport.h"
#include "studiowindow.h"

#include <QElapsedTimer>
#include <QFile>
#include <QItemSelectionModel>
#include <QMessageBox>
#include <QProcess>
#include <QProcessEnvironment>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <memory>

using namespace playouttest;

namespace {

QByteArray fileBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

StudioCommandLine::Options noItems()
{
    return StudioCommandLine::parse({QStringLiteral("ondaro-studio")});
}

QMessageBox* quitQuestion()
{
    for (QWidget* widget : QApplication::topLevelWidgets())
        if (widget->objectName() == StudioWindow::quitWhileOnAirName() && widget->isVisible())
            return qobject_cast<QMessageBox*>(widget);
    return nullptr;
}

// Clicks the question's button with the role given once it shows, after checking what it asks.
std::shared_ptr<bool> answerQuitQuestion(QMessageBox::ButtonRole role)
{
    return uitest::whenShown<QMessageBox>(quitQuestion, [role](QMessageBox* box) {
        const QString title = box->windowTitle();
        const QString text = box->text();
        for (QAbstractButton* button : box->buttons())
            if (box->buttonRole(button) == role)
                button->click();
        // Checked after the answer, so a wrong text fails the test instead of leaving the box open.
        QCOMPARE(title, QStringLiteral("Quit while on air?"));
        QVERIFY(text.startsWith(QStringLiteral("The station is on air.")));
    });
}

} // namespace

class TestPlaylistSession : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QStringList tones;

    static QString sessionPlaylist() { return studiotest::dataFolder() + QStringLiteral("/session.m3u"); }
    static QString sessionPosition() { return studiotest::dataFolder() + QStringLiteral("/session.json"); }

    static bool logged(StudioWindow& window, const QString& text)
    {
        return !window.logPane()->lines().filter(text).isEmpty();
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        studiotest::useStudioLocations(dir.path(), "tst_playlistsession");
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        const QStringList names = {
            QStringLiteral("Artist A - Morning.wav"), QStringLiteral("Artist B - Noon.wav"),
            QStringLiteral("Artist C - Evening.wav"), QStringLiteral("Artist D - Night.wav")};
        for (int i = 0; i < names.size(); ++i) {
            const QString path = makeTone(dir.path(), names.at(i), 440 + 110 * i, i == 0 ? 30.0 : 1.0);
            QVERIFY(!path.isEmpty());
            tones << path;
        }
    }

    void init()
    {
        QFile::remove(sessionPlaylist());
        QFile::remove(sessionPosition());
        QFile::remove(sessionPlaylist() + QStringLiteral(".unreadable"));
    }

    void cleanup() { uitest::stopWatchers(); }

    void cleanupTestCase() { studiotest::removeStudioLocations(); }

    void theListAndItsPositionComeBackAfterACrash()
    {
        QList<Track> before;
        QByteArray crashedPlaylist;
        QByteArray crashedPosition;
        {
            StudioWindow window;
            window.start(noItems());
            QCOMPARE(window.playlist()->rowCount(), 0);
            window.appendItems(tones);
            window.playlist()->insertTrack(2, PlaylistView::stopRow());
            PlaylistModel* playlist = window.playlist();
            playlist->setCurrentRow(0);
            playlist->setCurrentRow(1); // row 0 is played now
            playlist->enqueue(4);
            playlist->enqueue(3);
            playlist->setRowMixOverrides(3, {{4000, 1200}});
            playlist->enqueue(2); // a change the model signals, after the override
            before = playlist->tracks();
            QCOMPARE(before.size(), 5);

            // On disk within moments, while the window lives: what a crash now would leave.
            QTRY_VERIFY_WITH_TIMEOUT(fileBytes(sessionPosition()).contains("\"queue\":[4,3,2]"), 5000);
            crashedPlaylist = fileBytes(sessionPlaylist());
            crashedPosition = fileBytes(sessionPosition());
            QVERIFY(crashedPlaylist.startsWith("#EXTM3U"));
            QVERIFY(crashedPlaylist.contains("#ONDARO-COMMAND:stop"));
        }
        // The files as the crash left them (the window's own end may have written them again).
        QVERIFY(uitest::writeFile(sessionPlaylist(), crashedPlaylist));
        QVERIFY(uitest::writeFile(sessionPosition(), crashedPosition));

        StudioWindow window;
        window.start(noItems());
        PlaylistModel* playlist = window.playlist();
        QCOMPARE(studiotest::titlesOf(playlist->tracks()), studiotest::titlesOf(before));
        for (int row = 0; row < before.size(); ++row)
            QCOMPARE(playlist->tracks().at(row).filePath, before.at(row).filePath);
        QCOMPARE(playlist->currentRow(), 1);
        QCOMPARE(playlist->queue(), (QList<int>{4, 3, 2}));
        QVERIFY(playlist->isPlayed(0));
        QVERIFY(!playlist->isPlayed(1));
        QCOMPARE(playlist->rowMixOverride(3), PlaylistModel::MixOverride(4000, 1200));
        QVERIFY(logged(window, QStringLiteral("Playlist restored from the last session: 5 rows")));
        // The row where the list stood is the one chosen on screen.
        const QModelIndexList selected = window.playlistView()->selectionModel()->selectedRows();
        QCOMPARE(selected.size(), 1);
        QCOMPARE(selected.first().row(), 1);
        QVERIFY(!window.engine()->isPlaying());
    }

    void aKilledStudioComesBackWithItsList()
    {
#ifdef ONDARO_STUDIO_EXECUTABLE
        // The real program in a home of its own, killed without warning while its list is on disk.
        QTemporaryDir home;
        QVERIFY(home.isValid());
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("HOME"), home.path());
        environment.insert(QStringLiteral("XDG_DATA_HOME"), home.filePath(QStringLiteral("data")));
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
        environment.insert(QStringLiteral("XDG_CACHE_HOME"), home.filePath(QStringLiteral("cache")));
        environment.remove(QStringLiteral("ONDARO_DATABASE_URL"));
        const QString data = home.filePath(QStringLiteral("data/Ondaro/Ondaro"));
        const QString session = data + QStringLiteral("/session.m3u");
        const QString todaysLog = data + QStringLiteral("/logs/") +
                                  QDate::currentDate().toString(Qt::ISODate) + QStringLiteral(".log");

        QProcess first;
        first.setProcessEnvironment(environment);
        first.start(QStringLiteral(ONDARO_STUDIO_EXECUTABLE), tones.mid(1, 3));
        QVERIFY(first.waitForStarted(10000));
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(session) && PlaylistFile::read(session).tracks.size() == 3,
                                 20000);
        first.kill();
        QVERIFY(first.waitForFinished(10000));
        QCOMPARE(first.exitStatus(), QProcess::CrashExit);

        QProcess second;
        second.setProcessEnvironment(environment);
        second.start(QStringLiteral(ONDARO_STUDIO_EXECUTABLE), QStringList());
        QVERIFY(second.waitForStarted(10000));
        QTRY_VERIFY_WITH_TIMEOUT(
            fileBytes(todaysLog).contains("Playlist restored from the last session: 3 rows"), 20000);
        second.kill();
        QVERIFY(second.waitForFinished(10000));
        QCOMPARE(studiotest::titlesOf(PlaylistFile::read(session).tracks),
                 (QStringList{QStringLiteral("Artist B - Noon"), QStringLiteral("Artist C - Evening"),
                              QStringLiteral("Artist D - Night")}));
#else
        QSKIP("ondaro-studio is not built");
#endif
    }

    void aCleanQuitKeepsTheLastChange()
    {
        {
            StudioWindow window;
            window.start(noItems());
            window.appendItems(tones.mid(0, 2));
            // Closed at once: nothing waits for the delay.
            window.session()->setDelayMs(60000);
            window.playlist()->setRowMixOverrides(1, {{2500, -1}});
            QVERIFY(window.close());
        }
        StudioWindow window;
        window.start(noItems());
        QCOMPARE(window.playlist()->rowCount(), 2);
        QCOMPARE(window.playlist()->rowMixOverride(1), PlaylistModel::MixOverride(2500, -1));
    }

    void playAtStartGoesOnFromTheRowWhereTheListStood()
    {
        const QList<Track> rows = {
            uitest::fileTrack(QStringLiteral("Artist B"), QStringLiteral("Noon"), tones.at(1)),
            uitest::fileTrack(QStringLiteral("Artist C"), QStringLiteral("Evening"), tones.at(2)),
            uitest::fileTrack(QStringLiteral("Artist D"), QStringLiteral("Night"), tones.at(3))};
        QVERIFY(PlaylistFile::write(sessionPlaylist(), rows));
        QVERIFY(uitest::writeFile(
            sessionPosition(),
            "{\"rows\":3,\"currentRow\":1,\"queue\":[],\"played\":[0],\"mixOverrides\":[]}"));
        StudioWindow window;
        QSignalSpy started(window.engine(), &AudioEngine::trackStarted);
        window.start(StudioCommandLine::parse({QStringLiteral("ondaro-studio"), QStringLiteral("--play")}));
        QTRY_VERIFY_WITH_TIMEOUT(!started.isEmpty(), 10000);
        QCOMPARE(started.first().at(0).toInt(), 1);
        QCOMPARE(started.first().at(1).value<Track>().title, QStringLiteral("Evening"));
        window.engine()->stop();
    }

    void commandLineFilesReplaceTheRestoredList()
    {
        const QList<Track> old = {
            uitest::fileTrack(QStringLiteral("Old"), QStringLiteral("List"), tones.at(3))};
        QVERIFY(PlaylistFile::write(sessionPlaylist(), old));

        StudioWindow window;
        window.start(StudioCommandLine::parse({QStringLiteral("ondaro-studio"), tones.at(1), tones.at(2)}));
        QCOMPARE(studiotest::titlesOf(window.playlist()->tracks()),
                 (QStringList{QStringLiteral("Artist B - Noon"), QStringLiteral("Artist C - Evening")}));
        QVERIFY(!logged(window, QStringLiteral("restored")));
        // And they are this session's list from now on.
        QTRY_VERIFY_WITH_TIMEOUT(PlaylistFile::read(sessionPlaylist()).tracks.size() == 2, 5000);
        QVERIFY(!fileBytes(sessionPlaylist()).contains("Old - List"));
    }

    void anUnreadableSessionOpensEmptyWithALogLine()
    {
        QVERIFY(uitest::writeFile(sessionPlaylist(), QByteArray("#EXTM3U\n\0\x01\x02garbage", 18)));
        QVERIFY(uitest::writeFile(sessionPosition(), "{\"rows\":3,\"currentRow\":1}"));

        StudioWindow window;
        window.start(noItems());
        QCOMPARE(window.playlist()->rowCount(), 0);
        QCOMPARE(window.playlist()->currentRow(), -1);
        QVERIFY2(logged(window, QStringLiteral("The last session's playlist could not be restored: ")),
                 qPrintable(window.logPane()->lines().join(QLatin1Char('\n'))));
        // Kept aside for a look by hand, not overwritten by the new session.
        QVERIFY(QFile::exists(sessionPlaylist() + QStringLiteral(".unreadable")));
        QVERIFY(logged(window, sessionPlaylist() + QStringLiteral(".unreadable")));
    }

    void aPositionOfAnotherListBringsBackTheRowsOnly()
    {
        const QList<Track> rows = {
            uitest::fileTrack(QStringLiteral("Artist A"), QStringLiteral("Morning"), tones.at(0)),
            uitest::fileTrack(QStringLiteral("Artist B"), QStringLiteral("Noon"), tones.at(1))};
        QVERIFY(PlaylistFile::write(sessionPlaylist(), rows));
        QVERIFY(uitest::writeFile(
            sessionPosition(),
            "{\"rows\":7,\"currentRow\":5,\"queue\":[6],\"played\":[],\"mixOverrides\":[]}"));
        StudioWindow window;
        window.start(noItems());
        QCOMPARE(window.playlist()->rowCount(), 2);
        QCOMPARE(window.playlist()->currentRow(), -1);
        QVERIFY(window.playlist()->queue().isEmpty());
        QVERIFY(logged(window, QStringLiteral("The last session's rows are back, but not where it stood: ")));

        // A side file that is not JSON at all: the same.
        QVERIFY(uitest::writeFile(sessionPosition(), "not json"));
        StudioWindow second;
        second.start(noItems());
        QCOMPARE(second.playlist()->rowCount(), 2);
        QCOMPARE(second.playlist()->currentRow(), -1);
    }

    void aFolderThatCannotBeWrittenIsReportedOnceAndAgainWhenItWorks()
    {
        // A file where the session's folder should be: nothing can be written under it.
        const QString blocked = dir.filePath(QStringLiteral("blocked"));
        QVERIFY(uitest::writeFile(blocked, "not a folder"));
        PlaylistModel playlist;
        PlaylistSession session(&playlist, blocked, nullptr);
        session.setDelayMs(10);
        QSignalSpy messages(&session, &PlaylistSession::message);
        QSignalSpy saved(&session, &PlaylistSession::saved);
        session.watch();
        QTRY_COMPARE_WITH_TIMEOUT(messages.count(), 1, 5000);
        QVERIFY(messages.first().at(0).toString().startsWith(
            QStringLiteral("The playlist could not be kept on disk: ")));
        playlist.appendTrack(uitest::fileTrack(QStringLiteral("A"), QStringLiteral("B"), tones.at(1)));
        playlist.appendTrack(uitest::fileTrack(QStringLiteral("C"), QStringLiteral("D"), tones.at(2)));
        session.saveNow();
        session.saveNow();
        QCOMPARE(messages.count(), 1); // failed again twice, said once
        QVERIFY(saved.isEmpty());

        QVERIFY(QFile::remove(blocked));
        playlist.enqueue(1);
        QTRY_VERIFY_WITH_TIMEOUT(!saved.isEmpty(), 5000);
        QCOMPARE(messages.count(), 2);
        QCOMPARE(messages.last().at(0).toString(), QStringLiteral("The playlist is kept on disk again"));
        QCOMPARE(PlaylistFile::read(blocked + QStringLiteral("/session.m3u")).tracks.size(), 2);
        QDir(blocked).removeRecursively();
    }

    void quittingWhileOnAirAsksAndCancelKeepsTheWindowOpen()
    {
        StudioWindow window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        window.start(StudioCommandLine::parse(
            {QStringLiteral("ondaro-studio"), QStringLiteral("--play"), tones.at(0)}));
        QTRY_VERIFY_WITH_TIMEOUT(window.engine()->isPlaying(), 10000);

        const auto cancelled = answerQuitQuestion(QMessageBox::RejectRole);
        QVERIFY(!window.close());
        QVERIFY(*cancelled);
        QVERIFY(window.isVisible());
        QVERIFY(window.engine()->isPlaying());

        const auto quit = answerQuitQuestion(QMessageBox::DestructiveRole);
        QVERIFY(window.close());
        QVERIFY(*quit);
        QVERIFY(!window.engine()->isPlaying());
    }

    void quittingWhileARelayIsOnAirAsksToo()
    {
        const QByteArray liveMp3 = makeTaggedStreamMp3(dir.path());
        QVERIFY(liveMp3.size() > 10000);
        StreamServer server(liveMp3, 16000);
        QVERIFY(server.start());
        StudioWindow window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        window.start(noItems());
        window.engine()->startRelay(server.url());
        QTRY_VERIFY_WITH_TIMEOUT(window.engine()->isRelayLive(), 15000);
        QVERIFY(!window.engine()->isPlaying());

        const auto cancelled = answerQuitQuestion(QMessageBox::RejectRole);
        QVERIFY(!window.close());
        QVERIFY(*cancelled);
        QVERIFY(window.engine()->isRelaying());
        const auto quit = answerQuitQuestion(QMessageBox::DestructiveRole);
        QVERIFY(window.close());
        QVERIFY(*quit);
        QVERIFY(!window.engine()->isRelaying());
    }

    void closingWhileStoppedAsksNothing()
    {
        StudioWindow window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        window.start(StudioCommandLine::parse({QStringLiteral("ondaro-studio"), tones.at(1)}));
        // Should a question come after all, it is answered so the test cannot hang; the flag tells.
        const auto asked = answerQuitQuestion(QMessageBox::DestructiveRole);
        QVERIFY(window.close());
        QVERIFY(!*asked);
    }

    void tenThousandRowsAreKeptWithoutHoldingUpTheWindow()
    {
        StudioWindow window;
        window.start(noItems());
        QList<Track> rows;
        for (int i = 0; i < 10000; ++i)
            rows << uitest::fileTrack(QStringLiteral("Artist %1").arg(i), QStringLiteral("Title %1").arg(i),
                                      tones.at(i % tones.size()), 180000 + i);
        QSignalSpy saved(window.session(), &PlaylistSession::saved);
        window.playlist()->appendTracks(rows);
        QTRY_VERIFY_WITH_TIMEOUT(!saved.isEmpty() && saved.last().at(0).toInt() == 10000, 10000);

        // One change to the long list, and the window's event loop watched until it is on disk:
        // the longest gap between two turns of a 2 ms timer is how long the window was held up.
        QElapsedTimer clock;
        qint64 lastTick = 0;
        qint64 longestGapNs = 0;
        QTimer ticker;
        ticker.setInterval(2);
        connect(&ticker, &QTimer::timeout, this, [&] {
            const qint64 now = clock.nsecsElapsed();
            longestGapNs = std::max(longestGapNs, now - lastTick);
            lastTick = now;
        });
        saved.clear();
        clock.start();
        ticker.start();
        window.playlist()->enqueue(9999);
        QTRY_VERIFY_WITH_TIMEOUT(!saved.isEmpty(), 10000);
        ticker.stop();
        const double gapMs = longestGapNs / 1e6;
        qInfo("10,000 rows: hand-over on the window's thread %.2f ms, write on the worker %.1f ms, longest "
              "pause of the window's event loop %.1f ms",
              window.session()->lastHandOverMs(), window.session()->lastWriteMs(), gapMs);
        QVERIFY2(window.session()->lastHandOverMs() < 50.0,
                 qPrintable(QString::number(window.session()->lastHandOverMs())));
        QVERIFY2(gapMs < 100.0, qPrintable(QString::number(gapMs)));

        const PlaylistFile::ReadResult read = PlaylistFile::read(sessionPlaylist());
        QVERIFY(read.ok);
        QCOMPARE(read.tracks.size(), 10000);
        QCOMPARE(read.tracks.last().title, QStringLiteral("Title 9999"));
        QVERIFY(fileBytes(sessionPosition()).contains("\"queue\":[9999]"));

        // And back at the next start.
        QElapsedTimer restoring;
        restoring.start();
        StudioWindow next;
        next.start(noItems());
        const qint64 restoreMs = restoring.elapsed();
        QCOMPARE(next.playlist()->rowCount(), 10000);
        QCOMPARE(next.playlist()->queue(), QList<int>{9999});
        qInfo("10,000 rows restored in %lld ms (window built and list read)", restoreMs);
    }
};

QTEST_MAIN(TestPlaylistSession)
#include "tst_playlistsession.moc"
