// The as-run recorder writes off the playout's path: while the store is busy with another writer, the
// rows start on time, their as-run rows and play counts wait on the writer's thread, and they arrive in
// order, with the times they really had, once the store is free.

#include "asrunlog.h"
#include "asrunrecorder.h"
#include "audioengine.h"
#include "musiclibrary.h"
#include "playlistmodel.h"
#include "playouttestsupport.h"
#include "playouttracks.h"
#include "studiotestsupport.h"
#include "teststore.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

using namespace playouttest;

namespace {

const QString kBlocker = QStringLiteral("blocking_writer");
// Milliseconds the other writer holds the store: below the writer's wait for a lock (5 s).
constexpr int kBusyMs = 3000;

using ondarotest::playCount;

QList<AsRunEntry> allRows()
{
    return ondarotest::allAsRunRows();
}

} // namespace

class TestAsRunHoldBack : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QString toneA;
    QString toneB;

    QString databaseFile() const
    {
        return QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation) +
               QStringLiteral("/library.db");
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useTemporarySettings(dir.path(),
                             QStringLiteral("tst_asrunholdback-%1").arg(QCoreApplication::applicationPid()));
        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
        setSetting(QStringLiteral("playback/crossfadeEnabled"), false);
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        ondarotest::closeStore();
        removeLibraryStore();
        QVERIFY(MusicLibrary::initialize());
        toneA = makeTone(dir.path(), QStringLiteral("a.wav"), 440, 1.0);
        toneB = makeTone(dir.path(), QStringLiteral("b.wav"), 660, 1.0);
        QVERIFY(!toneA.isEmpty() && !toneB.isEmpty());
    }

    void cleanupTestCase()
    {
        ondarotest::closeConnection(kBlocker);
        ondarotest::closeStore();
        QDir(QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation)).removeRecursively();
    }

    void rowsStartWhileTheStoreIsBusyAndTheirAsRunRowsFollowInOrder()
    {
        MusicLibrary library;
        library.setLibrary(QStringLiteral("Music"));
        library.addFiles({toneA, toneB});
        QCOMPARE(playCount(toneA), 0);

        studiotest::RecordedPlayout rig({fileTrack(QStringLiteral("Ann"), QStringLiteral("First"), toneA),
                                         fileTrack(QStringLiteral("Bob"), QStringLiteral("Second"), toneB)});
        auto& [playlist, engine, recorder] = rig;
        QVERIFY(recorder.isEnabled());
        QList<QDateTime> startedAt;
        connect(&engine, &AudioEngine::trackStarted, this,
                [&](int, const Track&, const QDateTime& when) { startedAt << when; });

        // Another writer takes the store's write lock (readers go on: the store keeps a write-ahead log).
        QSqlDatabase blocker = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), kBlocker);
        blocker.setDatabaseName(databaseFile());
        QVERIFY(blocker.open());
        QSqlQuery lock(blocker);
        QVERIFY2(lock.exec(QStringLiteral("BEGIN IMMEDIATE")), qPrintable(lock.lastError().text()));
        QElapsedTimer busy;
        busy.start();

        engine.playRow(0);
        // Both rows start while the store is busy; what they write waits.
        QTRY_COMPARE_WITH_TIMEOUT(startedAt.size(), 2, kBusyMs - 200);
        QVERIFY(recorder.heldBackCount() > 0);
        QVERIFY(allRows().isEmpty());
        QCOMPARE(playCount(toneA), 0);

        QTest::qWait(int(qMax<qint64>(0, kBusyMs - busy.elapsed())));
        QVERIFY(lock.exec(QStringLiteral("COMMIT")));

        QTRY_VERIFY_WITH_TIMEOUT(!engine.isPlaying(), 15000);
        QTRY_COMPARE_WITH_TIMEOUT(recorder.heldBackCount(), 0, 15000);
        const QList<AsRunEntry> rows = allRows();
        QCOMPARE(rows.size(), 2);
        QCOMPARE(rows.at(0).title, QStringLiteral("First"));
        QCOMPARE(rows.at(1).title, QStringLiteral("Second"));
        QCOMPARE(rows.at(0).startedAt.toMSecsSinceEpoch(), startedAt.at(0).toMSecsSinceEpoch());
        QCOMPARE(rows.at(1).startedAt.toMSecsSinceEpoch(), startedAt.at(1).toMSecsSinceEpoch());
        QVERIFY(rows.at(0).id < rows.at(1).id);
        QCOMPARE(rows.at(0).endedBy, QStringLiteral("end"));
        QCOMPARE(rows.at(1).endedBy, QStringLiteral("end"));
        QCOMPARE(playCount(toneA), 1);
        QCOMPARE(playCount(toneB), 1);
    }

    void finishAllWaitsUntilTheRowsAreInTheStore()
    {
        studiotest::RecordedPlayout rig({fileTrack(QStringLiteral("Cy"), QStringLiteral("Third"), toneA)});
        auto& [playlist, engine, recorder] = rig;
        const int before = int(allRows().size());
        engine.playRow(0);
        QTRY_COMPARE_WITH_TIMEOUT(recorder.openEntryCount(), 1, 15000);
        recorder.finishAll(QStringLiteral("stop"));
        QCOMPARE(recorder.heldBackCount(), 0);
        QCOMPARE(int(allRows().size()), before + 1);
        QCOMPARE(allRows().last().endedBy, QStringLiteral("stop"));
        engine.stop();
    }
};

QTEST_MAIN(TestAsRunHoldBack)
#include "tst_asrunholdback.moc"
