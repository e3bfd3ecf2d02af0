#include "audioengine.h"
#include "fixedstartdialog.h"
#include "logpane.h"
#include "onairdisplay.h"
#include "playlistmodel.h"
#include "playlistview.h"
#include "studiotestsupport.h"
#include "studiowindow.h"

#include <QAction>
#include <QContextMenuEvent>
#include <QDateTimeEdit>
#include <QFile>
#include <QFont>
#include <QMenu>
#include <QRadioButton>
#include <QRegularExpression>
#include <QTest>

using namespace studiotest;

// Running to time in the studio, offscreen: the on-air display's next timed row with its countdown
// and over/under, the row menu that gives a row a fixed time, and a file's unusable time lines.
class TestStudioWindowTimed : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QStringList tones;
    // The display's clock in the tests that set it: 11:50 on a fixed day unless moved.
    std::shared_ptr<QDateTime> fakeNow = std::make_shared<QDateTime>(QDate(2026, 11, 23), QTime(11, 50));

    QString pathOf(const QString& name) const { return QDir(dir.path()).filePath(name); }

    static Track song(const QString& title, qint64 durationMs)
    {
        Track track;
        track.artist = QStringLiteral("A");
        track.title = title;
        track.durationMs = durationMs;
        track.filePath = QStringLiteral("/nonexistent/%1.mp3").arg(title);
        return track;
    }

    static Track timedSong(const QString& title, qint64 durationMs, TimedStart::Mode mode, const QDateTime& at)
    {
        Track track = song(title, durationMs);
        track.timed.mode = mode;
        track.timed.at = at;
        return track;
    }

    QDateTime at(int minutesAfter) const { return fakeNow->addSecs(minutesAfter * 60); }

    void useFakeClock(StudioWindow& window)
    {
        const auto now = fakeNow;
        window.onAirDisplay()->setClock([now] { return *now; });
    }

    static QPoint centreOf(PlaylistView* view, int row)
    {
        return view->visualRect(view->model()->index(row, PlaylistModel::TitleColumn)).center();
    }

    // Opens the context menu of a row; `choose` sees the menu (and may trigger an entry) before it
    // closes.
    static void withMenu(PlaylistView* view, int row, std::function<void(QMenu*)> choose)
    {
        const auto seen = uitest::whenPopup<QMenu>([choose](QMenu* menu) {
            menu->close();
            choose(menu);
        });
        const QPoint point = centreOf(view, row);
        QContextMenuEvent event(QContextMenuEvent::Mouse, point, view->viewport()->mapToGlobal(point));
        QApplication::sendEvent(view->viewport(), &event);
        QTRY_VERIFY_WITH_TIMEOUT(*seen, 10000);
    }

    static QAction* entry(QMenu* menu, const QString& text)
    {
        for (QAction* action : menu->actions())
            if (action->text() == text)
                return action;
        return nullptr;
    }

    // Seconds in a "+m:ss over" / "-m:ss under" text, signed; 9999 when it is neither.
    static int overUnderSeconds(const QString& text)
    {
        const QRegularExpressionMatch match =
            QRegularExpression(QStringLiteral("^([+-])(\\d+):(\\d\\d) (over|under)$")).match(text);
        if (!match.hasMatch())
            return 9999;
        const int seconds = match.captured(2).toInt() * 60 + match.captured(3).toInt();
        return match.captured(1) == QLatin1String("-") ? -seconds : seconds;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useStudioLocations(dir.path(), "tst_studiowindow_timed");
        for (const QString& name : {QStringLiteral("One - First.wav"), QStringLiteral("Two - Second.wav")}) {
            const QString path = playouttest::makeTone(dir.path(), name, 440, 4.0);
            QVERIFY(!path.isEmpty());
            tones << path;
        }
    }

    void cleanup() { uitest::stopWatchers(); }
    void cleanupTestCase() { removeStudioLocations(); }

    void displayShowsNoTimedRowForAnUntimedList()
    {
        StudioWindow window;
        useFakeClock(window);
        window.playlist()->appendTrack(song(QStringLiteral("S0"), 240000));
        window.onAirDisplay()->refresh();
        QCOMPARE(window.onAirDisplay()->timedEventText(), QStringLiteral("—"));
        QVERIFY(window.onAirDisplay()->timedCountdownText().isEmpty());
        QVERIFY(window.onAirDisplay()->timedOverUnderText().isEmpty());
    }

    void displayCountsDownToTheNextTimedRowAndShowsOverOrUnder()
    {
        StudioWindow window;
        useFakeClock(window);
        PlaylistModel* playlist = window.playlist();
        for (int i = 0; i < 3; ++i)
            playlist->appendTrack(song(QStringLiteral("S%1").arg(i), 240000));
        playlist->appendTrack(timedSong(QStringLiteral("News"), 300000, TimedStart::Mode::Hard, at(10)));
        OnAirDisplay* display = window.onAirDisplay();
        // Nothing on air: the rows would run from now, twelve minutes against ten.
        QTRY_COMPARE_WITH_TIMEOUT(display->timedEventText(), QStringLiteral("12:00:00 hard – A – News"), 5000);
        QCOMPARE(display->timedCountdownText(), QStringLiteral("in 10:00"));
        QCOMPARE(display->timedOverUnderText(), QStringLiteral("+2:00 over"));

        // Each second the countdown moves on.
        *fakeNow = fakeNow->addSecs(61);
        QTRY_COMPARE_WITH_TIMEOUT(display->timedCountdownText(), QStringLiteral("in 8:59"), 5000);

        // The list changes: one row fewer runs a minute short of the time.
        playlist->removeTrack(0);
        QTRY_COMPARE_WITH_TIMEOUT(display->timedOverUnderText(), QStringLiteral("-0:59 under"), 5000);

        // Exactly on time.
        playlist->insertTrack(0, song(QStringLiteral("Fill"), 59000));
        QTRY_COMPARE_WITH_TIMEOUT(display->timedOverUnderText(), QStringLiteral("on time"), 5000);

        // Its time has come (and not long ago): due now.
        *fakeNow = fakeNow->addSecs(9 * 60 + 30);
        QTRY_COMPARE_WITH_TIMEOUT(display->timedCountdownText(), QStringLiteral("due now"), 5000);

        // Long gone: the row is stale and no timed row is coming.
        *fakeNow = fakeNow->addSecs(3600);
        QTRY_COMPARE_WITH_TIMEOUT(display->timedEventText(), QStringLiteral("—"), 5000);
        QVERIFY(display->timedCountdownText().isEmpty());
        *fakeNow = QDateTime(QDate(2026, 11, 23), QTime(11, 50));
    }

    void displaySaysWhenASoftRowWaitsForPlayOrTheLengthIsUnknown()
    {
        StudioWindow window;
        useFakeClock(window);
        PlaylistModel* playlist = window.playlist();
        playlist->appendTrack(song(QStringLiteral("S0"), 60000));
        playlist->appendTrack(PlaylistView::stopRow());
        playlist->appendTrack(timedSong(QStringLiteral("Promo"), 30000, TimedStart::Mode::Soft, at(5)));
        OnAirDisplay* display = window.onAirDisplay();
        QTRY_COMPARE_WITH_TIMEOUT(display->timedEventText(),
                                  QStringLiteral("11:55:00 soft – A – Promo (waits for Play after a STOP)"), 5000);
        QCOMPARE(display->timedOverUnderText(), QStringLiteral("-4:00 under"));

        Track stream;
        stream.isStream = true;
        stream.filePath = QStringLiteral("http://radio.example/live");
        playlist->insertTrack(0, stream);
        QTRY_COMPARE_WITH_TIMEOUT(display->timedOverUnderText(), QStringLiteral("length unknown"), 5000);
    }

    void displayFollowsTheTrackOnAir()
    {
        StudioWindow window;
        window.appendItems(tones);
        QCOMPARE(window.playlist()->rowCount(), 2);
        QTRY_VERIFY_WITH_TIMEOUT(window.playlist()->tracks().at(1).durationMs >= 3900, 10000);
        const QDateTime due = QDateTime::currentDateTime().addSecs(60);
        Track news = window.playlist()->tracks().at(1);
        news.timed.mode = TimedStart::Mode::Hard;
        news.timed.at = due;
        window.playlist()->appendTrack(news);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));

        window.engine()->playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(window.engine()->isPlaying() && window.engine()->position() > 500, 15000);
        // Two 4 s tones from when the first started: some 52 s short of the minute. Read while the
        // first tone plays, so the plan counts its position, not a fresh start.
        OnAirDisplay* display = window.onAirDisplay();
        QTRY_VERIFY_WITH_TIMEOUT(display->timedPlan().next() != nullptr, 5000);
        QCOMPARE(display->timedPlan().rows.at(0).fate, BackTiming::Fate::Plays);
        const int seconds = overUnderSeconds(display->timedOverUnderText());
        QVERIFY2(seconds >= -56 && seconds <= -44, qPrintable(display->timedOverUnderText()));
        const qint64 firstStart = display->timedPlan().rows.at(0).startMs;
        const qint64 startedAgo = QDateTime::currentMSecsSinceEpoch() - firstStart;
        QVERIFY2(startedAgo >= 0 && startedAgo < 5000, qPrintable(QString::number(startedAgo)));
        window.engine()->stop();
    }

    void displayShowsATimedRowAboveTheOneOnAirAsAJumpBack()
    {
        StudioWindow window;
        window.appendItems(tones);
        Track promo = window.playlist()->tracks().at(0);
        promo.timed.mode = TimedStart::Mode::Soft;
        promo.timed.at = QDateTime::currentDateTime().addSecs(120);
        window.playlist()->insertTrack(0, promo);
        window.engine()->playRow(2);
        QTRY_VERIFY_WITH_TIMEOUT(window.engine()->isPlaying() && window.engine()->currentRow() == 2, 15000);
        OnAirDisplay* display = window.onAirDisplay();
        QTRY_COMPARE_WITH_TIMEOUT(display->timedOverUnderText(), QStringLiteral("jumps back to row 1"), 5000);
        QVERIFY2(display->timedEventText().contains(QStringLiteral(" soft – ")), qPrintable(display->timedEventText()));
        QVERIFY2(display->timedCountdownText().startsWith(QStringLiteral("in 1:")) ||
                     display->timedCountdownText() == QStringLiteral("in 2:00"),
                 qPrintable(display->timedCountdownText()));
        window.engine()->stop();
    }

    void rowMenuGivesARowAFixedStartTimeAndClearsIt()
    {
        StudioWindow window;
        PlaylistModel* playlist = window.playlist();
        playlist->appendTrack(song(QStringLiteral("S0"), 60000));
        playlist->appendTrack(song(QStringLiteral("S1"), 60000));
        playlist->appendTrack(PlaylistView::stopRow());
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        PlaylistView* view = window.playlistView();
        QMenu* offered = view->createRowMenu(0);
        QStringList texts;
        for (QAction* action : offered->actions())
            if (!action->isSeparator())
                texts << action->text();
        QCOMPARE(texts.mid(texts.size() - 2),
                 (QStringList{QStringLiteral("Fixed start time…"), QStringLiteral("Clear fixed start time")}));
        QCOMPARE(texts.size(), 7);
        offered->deleteLater();

        // An untimed row: clearing is not offered; the dialog suggests its planned start, hard.
        const QDateTime chosen = QDateTime::currentDateTime().addSecs(3600);
        const QDateTime wanted = chosen.addMSecs(-chosen.time().msec());
        const auto answered = uitest::whenModal<FixedStartDialog>([wanted](FixedStartDialog* dialog) {
            QVERIFY(dialog->hardButton()->isChecked());
            QVERIFY(dialog->timeEdit()->dateTime().isValid());
            dialog->softButton()->setChecked(true);
            dialog->timeEdit()->setDateTime(wanted);
            dialog->accept();
        });
        withMenu(view, 1, [](QMenu* menu) {
            QVERIFY(entry(menu, QStringLiteral("Fixed start time…")) != nullptr);
            QVERIFY(entry(menu, QStringLiteral("Fixed start time…"))->isEnabled());
            QVERIFY(entry(menu, QStringLiteral("Clear fixed start time")) != nullptr);
            QVERIFY(!entry(menu, QStringLiteral("Clear fixed start time"))->isEnabled());
            entry(menu, QStringLiteral("Fixed start time…"))->trigger();
        });
        QTRY_VERIFY_WITH_TIMEOUT(*answered, 10000);
        const TimedStart timed = playlist->tracks().at(1).timed;
        QVERIFY(timed.isSoft());
        QCOMPARE(timed.at, wanted);
        QCOMPARE(playlist->data(playlist->index(1, PlaylistModel::StartTimeColumn)).toString(),
                 QLocale::c().toString(wanted.time(), QStringLiteral("h:mm:ss AP")));
        QVERIFY(playlist->data(playlist->index(1, PlaylistModel::StartTimeColumn), Qt::FontRole)
                    .value<QFont>()
                    .bold());

        // Opened again it shows what the row has; Cancel keeps it.
        const auto cancelled = uitest::whenModal<FixedStartDialog>([wanted](FixedStartDialog* dialog) {
            QVERIFY(dialog->softButton()->isChecked());
            QCOMPARE(dialog->timeEdit()->dateTime(), wanted);
            dialog->hardButton()->setChecked(true);
            dialog->reject();
        });
        withMenu(view, 1, [](QMenu* menu) { entry(menu, QStringLiteral("Fixed start time…"))->trigger(); });
        QTRY_VERIFY_WITH_TIMEOUT(*cancelled, 10000);
        QVERIFY(playlist->tracks().at(1).timed.isSoft());

        // "Off" in the dialog clears it too.
        playlist->setRowTimed(0, timed);
        const auto off = uitest::whenModal<FixedStartDialog>([](FixedStartDialog* dialog) {
            dialog->offButton()->setChecked(true);
            QVERIFY(!dialog->timeEdit()->isEnabled());
            dialog->accept();
        });
        withMenu(view, 0, [](QMenu* menu) { entry(menu, QStringLiteral("Fixed start time…"))->trigger(); });
        QTRY_VERIFY_WITH_TIMEOUT(*off, 10000);
        QVERIFY(!playlist->tracks().at(0).timed.isTimed());

        // The menu's clear entry.
        withMenu(view, 1, [](QMenu* menu) {
            QVERIFY(entry(menu, QStringLiteral("Clear fixed start time"))->isEnabled());
            entry(menu, QStringLiteral("Clear fixed start time"))->trigger();
        });
        QVERIFY(!playlist->tracks().at(1).timed.isTimed());
        QVERIFY(playlist->timedPlan().rows.isEmpty());

        // A STOP row has no fixed time of its own.
        withMenu(view, 2, [](QMenu* menu) {
            QVERIFY(!entry(menu, QStringLiteral("Fixed start time…"))->isEnabled());
            QVERIFY(!entry(menu, QStringLiteral("Clear fixed start time"))->isEnabled());
        });
    }

    void openingAListLogsItsUnusableTimeLinesAndKeepsTheRowsUntimed()
    {
        const QString path = pathOf(QStringLiteral("timed.m3u"));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(QStringLiteral("#EXTM3U\n"
                                  "#ONDARO-TIME:hrd 2026-11-23T12:00:00\n"
                                  "%1\n"
                                  "#ONDARO-TIME:hard 2026-11-23T12:30:00\n"
                                  "%2\n")
                       .arg(tones.at(0), tones.at(1))
                       .toUtf8());
        file.close();

        StudioWindow window;
        QVERIFY(window.openPlaylist(path));
        QCOMPARE(window.playlist()->rowCount(), 2);
        QVERIFY(!window.playlist()->tracks().at(0).timed.isTimed());
        QVERIFY(window.playlist()->tracks().at(1).timed.isHard());
        const QStringList lines =
            window.logPane()->lines().filter(QStringLiteral("Fixed start time not used: "));
        QCOMPARE(lines.size(), 1);
        QVERIFY2(lines.first().contains(QDir::toNativeSeparators(path) + QStringLiteral(", Line 2: ")),
                 qPrintable(lines.first()));
        QVERIFY2(lines.first().contains(QStringLiteral("\"hrd\"")), qPrintable(lines.first()));
        QCOMPARE(window.playlist()->data(window.playlist()->index(1, PlaylistModel::StartTimeColumn)).toString(),
                 QStringLiteral("12:30:00 PM"));

        // The same file named on the command line (or dropped as an item) says the same.
        StudioWindow other;
        other.appendItems({path});
        QCOMPARE(other.logPane()->lines().filter(QStringLiteral("Fixed start time not used: ")).size(), 1);

        // A clean file logs nothing of the kind.
        const QString clean = pathOf(QStringLiteral("clean.m3u"));
        QFile cleanFile(clean);
        QVERIFY(cleanFile.open(QIODevice::WriteOnly));
        cleanFile.write(QStringLiteral("#ONDARO-TIME:soft 12:00:00\n%1\n").arg(tones.at(0)).toUtf8());
        cleanFile.close();
        StudioWindow third;
        QVERIFY(third.openPlaylist(clean));
        QVERIFY(third.playlist()->tracks().at(0).timed.isSoft());
        QVERIFY(third.logPane()->lines().filter(QStringLiteral("Fixed start time not used: ")).isEmpty());
    }
};

QTEST_MAIN(TestStudioWindowTimed)
#include "tst_studiowindow_timed.moc"
