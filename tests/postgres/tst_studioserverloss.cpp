// The studio on a shared server that goes away while it plays: what is loaded keeps playing, the log
// pane says the server is lost and when it is back, and then the as-run log is written again, with
// the row written before the stop still on the server. The test runs a server of its own
// (scripts/pg-test-server.sh), since it stops it.

#include "asrunlog.h"
#include "asrunrecorder.h"
#include "audioengine.h"
#include "levelmeter.h"
#include "libraryconnection.h"
#include "logpane.h"
#include "onairdisplay.h"
#include "playlistmodel.h"
#include "studiotestsupport.h"
#include "studiowindow.h"
#include "testsupport.h"

#include <QMediaDevices>
#include <QProcess>
#include <QSignalSpy>
#include <QSqlError>
#include <QSqlQuery>
#include <QTest>

using namespace playouttest;

class TestStudioServerLoss : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void playbackGoesOnWhileTheServerIsAwayAndWhatAiredIsLoggedWhenItIsBack();

private:
    bool server(const QString& command, const QString& option = QString());
    // The as-run titles as the server holds them, oldest first, read over a connection of its own;
    // empty when the server cannot be read.
    QStringList titlesOnServer();
    bool logged(const StudioWindow& window, const QString& text) const
    {
        return !window.logPane()->lines().filter(text).isEmpty();
    }

    QTemporaryDir dir;
    QString serverDir;
    QString url;
    QStringList tones;
};

bool TestStudioServerLoss::server(const QString& command, const QString& option)
{
    return testsupport::runTestServer(command, serverDir, option);
}

QStringList TestStudioServerLoss::titlesOnServer()
{
    const QString name = QStringLiteral("studio_loss_check");
    QStringList titles;
    {
        QSqlDatabase db = LibraryConnection::openServer(DatabaseUrl::parse(url), name);
        if (db.isOpen()) {
            QSqlQuery q(db);
            if (q.exec(QStringLiteral("SELECT title FROM as_run ORDER BY id")))
                while (q.next())
                    titles << q.value(0).toString();
            else
                qWarning() << "as_run not readable:" << q.lastError().text();
            db.close();
        }
    }
    QSqlDatabase::removeDatabase(name);
    return titles;
}

void TestStudioServerLoss::initTestCase()
{
    QVERIFY(dir.isValid());
    QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
    // A socket path must stay short.
    serverDir = QStringLiteral("/tmp/ondaro-studioloss-%1").arg(QCoreApplication::applicationPid());
    QVERIFY(server(QStringLiteral("start"), QStringLiteral("--fresh")));
    url = QStringLiteral("postgresql://ondaro@/ondaro?host=") + serverDir;
    QVERIFY(DatabaseUrl::parse(url).isValid());
    qputenv("ONDARO_DATABASE_URL", url.toUtf8());
    LibraryConnection::setReconnectInterval(200);
    // Sets the store up (on the server named above) with private settings and the null sink.
    studiotest::useStudioLocations(dir.path(), "tst_studioserverloss");
    QVERIFY(LibraryConnection::isServer());
    QVERIFY2(LibraryConnection::problem().isEmpty(), qPrintable(LibraryConnection::problem()));
    playouttest::setSetting(QStringLiteral("playback/crossfadeEnabled"), false);

    const QStringList names = {QStringLiteral("Artist A - Tone A.wav"),
                               QStringLiteral("Artist B - Tone B.wav"),
                               QStringLiteral("Artist C - Tone C.wav")};
    const int frequencies[] = {440, 660, 880};
    for (int i = 0; i < 3; ++i) {
        const QString path = makeTone(dir.path(), names.at(i), frequencies[i], 4.0);
        QVERIFY(!path.isEmpty());
        tones << path;
    }
}

void TestStudioServerLoss::cleanupTestCase()
{
    studiotest::removeStudioLocations();
    if (!serverDir.isEmpty())
        server(QStringLiteral("stop"), QStringLiteral("--remove"));
}

void TestStudioServerLoss::playbackGoesOnWhileTheServerIsAwayAndWhatAiredIsLoggedWhenItIsBack()
{
    StudioWindow window;
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    AudioEngine* engine = window.engine();
    QSignalSpy started(engine, &AudioEngine::trackStarted);
    window.appendItems(tones);
    QCOMPARE(window.playlist()->rowCount(), 3);
    QVERIFY(window.asRunRecorder()->isEnabled());

    engine->playRow(0);
    QTRY_COMPARE_WITH_TIMEOUT(started.count(), 1, 15000);
    QTRY_COMPARE_WITH_TIMEOUT(titlesOnServer(), QStringList{QStringLiteral("Tone A")}, 10000);

    QVERIFY(server(QStringLiteral("stop")));
    QVERIFY(titlesOnServer().isEmpty());

    // The second track starts by itself and sounds while the server is away.
    QTRY_COMPARE_WITH_TIMEOUT(started.count(), 2, 20000);
    QCOMPARE(started.at(1).at(1).value<Track>().title, QStringLiteral("Tone B"));
    QVERIFY(engine->isPlaying());
    QTRY_COMPARE_WITH_TIMEOUT(window.onAirDisplay()->nowText(), QStringLiteral("Artist B – Tone B"), 10000);
    QTRY_VERIFY_WITH_TIMEOUT(window.leftMeter()->levelDb() > -30.0, 10000);

    // The presenter reads why: a line in the log pane, and the as-run log is still on.
    QTRY_VERIFY2_WITH_TIMEOUT(logged(window, QStringLiteral("Lost the connection to the database server")),
                              qPrintable(window.logPane()->lines().join(QLatin1Char('\n'))), 15000);
    QVERIFY(!LibraryConnection::problem().isEmpty());
    QVERIFY(!logged(window, QStringLiteral("As-run log is off")));
    QVERIFY(window.asRunRecorder()->isEnabled());

    QVERIFY(server(QStringLiteral("start")));
    const QString back = QStringLiteral("Connected to the database server %1 again")
                             .arg(DatabaseUrl::parse(url).displayText());
    QTRY_VERIFY2_WITH_TIMEOUT(logged(window, back) && LibraryConnection::problem().isEmpty(),
                              qPrintable(window.logPane()->lines().join(QLatin1Char('\n'))), 30000);

    // What aired while the server was away is written now that it is back: Tone B's row (and Tone A's
    // end) are in the log, with the times they really had.
    QTRY_VERIFY_WITH_TIMEOUT(titlesOnServer().mid(0, 2) ==
                                 (QStringList{QStringLiteral("Tone A"), QStringLiteral("Tone B")}),
                             15000);
    QVERIFY(window.asRunRecorder()->isEnabled());
    const QDateTime toneBStarted = started.at(1).at(2).toDateTime();

    // A track that starts from now on gets its row at once. Should the last one have started while
    // the server was still away, the presenter adds one more.
    const int before = started.count();
    if (before >= 3) {
        window.appendItems({tones.at(0)});
        if (!engine->isPlaying())
            engine->playRow(window.playlist()->rowCount() - 1);
    }
    QTRY_VERIFY_WITH_TIMEOUT(started.count() > before, 20000);
    QTRY_COMPARE_WITH_TIMEOUT(titlesOnServer().size(), before + 1, 15000);
    engine->stop();
    QTRY_COMPARE_WITH_TIMEOUT(window.asRunRecorder()->heldBackCount(), 0, 10000);

    // The row written before the stop is still there, ended by the handover to Tone B; the studio's
    // own connection reads them all.
    const QList<AsRunEntry> rows = AsRunLog::entriesOn(QDate::currentDate());
    QCOMPARE(rows.size(), before + 1);
    QCOMPARE(rows.at(0).title, QStringLiteral("Tone A"));
    QCOMPARE(rows.at(0).filePath, tones.at(0));
    QCOMPARE(rows.at(0).endedBy, QStringLiteral("end"));
    QVERIFY(rows.at(0).playedMs > 2000);
    QCOMPARE(rows.at(1).title, QStringLiteral("Tone B"));
    QCOMPARE(rows.at(1).startedAt.toMSecsSinceEpoch(), toneBStarted.toMSecsSinceEpoch());
    QVERIFY(!rows.at(1).endedBy.isEmpty());
}

QTEST_MAIN(TestStudioServerLoss)
#include "tst_studioserverloss.moc"
