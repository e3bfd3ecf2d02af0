// The as-run recorder against a real engine on the null sink: one row per track with how it ended
// (mix, end, stop, skip), play counts, a relay's own rows with its metadata as title, a stream row's
// metadata, finishing on close, and a database that cannot be opened.

#include "asrunlog.h"
#include "asrunrecorder.h"
#include "asrunwindow.h"
#include "audioengine.h"
#include "musiclibrary.h"
#include "playlistmodel.h"
#include "playouttestsupport.h"
#include "playouttracks.h"
#include "streamserver.h"
#include "studiotestsupport.h"
#include "teststore.h"

#include <QApplication>
#include <QSignalSpy>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

using namespace playouttest;

namespace {

using ondarotest::playCount;

QList<AsRunEntry> allRows()
{
    return ondarotest::allAsRunRows();
}

QStringList endings(const QList<AsRunEntry>& rows)
{
    QStringList words;
    for (const AsRunEntry& e : rows)
        words << e.endedBy;
    return words;
}

// Every row has ended (ended_at set), and there are `count` of them.
bool allEnded(int count)
{
    const QList<AsRunEntry> rows = allRows();
    if (rows.size() != count)
        return false;
    for (const AsRunEntry& e : rows)
        if (!e.endedAt.isValid())
            return false;
    return true;
}

QList<AsRunEntry> rowsOf(const QString& filePath)
{
    QList<AsRunEntry> rows;
    for (const AsRunEntry& e : allRows())
        if (e.filePath == filePath)
            rows << e;
    return rows;
}

} // namespace

class TestAsRunRecorder : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QString shortA;
    QString shortB;
    QString shortC;
    QString longTone;
    QByteArray taggedLive;

    QString configFolder() const
    {
        return QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation);
    }

    void freshDatabase() { QVERIFY(ondarotest::freshStore()); }

    QByteArray taggedMp3(const QString& artist, const QString& title)
    {
        const QString wav = makeTone(dir.path(), QStringLiteral("live.wav"), 1000, 4);
        const QString path = QDir(dir.path()).filePath(QStringLiteral("live.mp3"));
        if (wav.isEmpty() ||
            !runTool(QStringLiteral("ffmpeg"),
                     {QStringLiteral("-y"), QStringLiteral("-loglevel"), QStringLiteral("error"),
                      QStringLiteral("-i"), wav, QStringLiteral("-b:a"), QStringLiteral("128k"),
                      QStringLiteral("-id3v2_version"), QStringLiteral("3"), QStringLiteral("-metadata"),
                      QStringLiteral("artist=") + artist, QStringLiteral("-metadata"),
                      QStringLiteral("title=") + title, path}))
            return {};
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    static void startAndWait(AudioEngine& engine, int row)
    {
        engine.playRow(row);
        QTRY_VERIFY_WITH_TIMEOUT(engine.isPlaying(), 30000);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useTemporarySettings(dir.path(),
                             QStringLiteral("tst_asrunrecorder-%1").arg(QCoreApplication::applicationPid()));
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        shortA = makeTone(dir.path(), QStringLiteral("a, \"first\".wav"), 440, 2.5);
        shortB = makeTone(dir.path(), QStringLiteral("b.wav"), 660, 2.5);
        shortC = makeTone(dir.path(), QStringLiteral("c.wav"), 880, 1.5);
        longTone = makeTone(dir.path(), QStringLiteral("long.wav"), 523, 30);
        QVERIFY(!shortA.isEmpty() && !shortB.isEmpty() && !shortC.isEmpty() && !longTone.isEmpty());
        taggedLive = taggedMp3(QStringLiteral("Night Owls"), QStringLiteral("Morning Song"));
        QVERIFY(!taggedLive.isEmpty());
    }

    void init()
    {
        useTemporarySettings(dir.path(),
                             QStringLiteral("tst_asrunrecorder-%1").arg(QCoreApplication::applicationPid()));
        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
        PLAYOUT_CHECKED(freshDatabase());
    }

    void cleanupTestCase()
    {
        const QString folder = configFolder();
        ondarotest::closeStore();
        QDir(folder).removeRecursively();
    }

    void threeMixedTracksGiveOneRowEachAndRaiseTheirPlayCounts()
    {
        setSetting(QStringLiteral("playback/crossfadeEnabled"), true);
        setSetting(QStringLiteral("playback/mixPointMs"), 800);
        setSetting(QStringLiteral("playback/minCrossfadeMs"), 0);
        setSetting(QStringLiteral("playback/fadeInMs"), 300);
        setSetting(QStringLiteral("playback/fadeOutMs"), 300);
        MusicLibrary library;
        library.setLibrary(QStringLiteral("Music"));
        library.addFiles({shortA, shortB, shortC});
        QCOMPARE(playCount(shortA), 0);

        studiotest::RecordedPlayout rig(
            {fileTrack(QStringLiteral("Ann"), QStringLiteral("One, \"1\""), shortA),
             fileTrack(QStringLiteral("Bob"), QStringLiteral("Two"), shortB),
             fileTrack(QStringLiteral("Cy"), QStringLiteral("Three"), shortC)});
        auto& [playlist, engine, recorder] = rig;
        QVERIFY(recorder.isEnabled());
        const QDateTime before = QDateTime::currentDateTime();
        engine.playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(allEnded(3), 30000);

        const QList<AsRunEntry> rows = allRows();
        QCOMPARE(rows[0].filePath, shortA);
        QCOMPARE(rows[1].filePath, shortB);
        QCOMPARE(rows[2].filePath, shortC);
        QCOMPARE(rows[0].artist, QStringLiteral("Ann"));
        QCOMPARE(rows[0].title, QStringLiteral("One, \"1\""));
        QCOMPARE(endings(rows),
                 (QStringList{QStringLiteral("mix"), QStringLiteral("mix"), QStringLiteral("end")}));
        for (const AsRunEntry& e : rows) {
            QVERIFY(!e.isStream);
            QVERIFY(e.startedAt >= before.addSecs(-1));
            QVERIFY(e.endedAt >= e.startedAt);
            QVERIFY2(e.playedMs > 0, qPrintable(e.filePath));
        }
        QVERIFY(rows[0].startedAt <= rows[1].startedAt);
        QVERIFY(rows[1].startedAt <= rows[2].startedAt);
        QCOMPARE(recorder.openEntryCount(), 0);
        QCOMPARE(playCount(shortA), 1);
        QCOMPARE(playCount(shortB), 1);
        QCOMPARE(playCount(shortC), 1);
    }

    void aRowOnAirIsClosedByItsIdentityAfterRowsMovedAboveIt()
    {
        setSetting(QStringLiteral("playback/crossfadeEnabled"), false);
        studiotest::RecordedPlayout rig({fileTrack(QStringLiteral("Ann"), QStringLiteral("First"), longTone),
                                         fileTrack(QStringLiteral("Ann"), QStringLiteral("Second"), longTone)});
        auto& [playlist, engine, recorder] = rig;
        PLAYOUT_CHECKED(startAndWait(engine, 0));
        QTRY_COMPARE_WITH_TIMEOUT(recorder.openEntryCount(), 1, 30000);
        // The same file stands in the next row; the row on air moves down by two.
        playlist.insertTrack(0, fileTrack(QStringLiteral("Cy"), QStringLiteral("Later"), shortC));
        playlist.insertTrack(0, fileTrack(QStringLiteral("Cy"), QStringLiteral("Later"), shortC));
        engine.next();
        QTRY_COMPARE_WITH_TIMEOUT(allRows().size(), 2, 30000);
        QTRY_COMPARE_WITH_TIMEOUT(allRows().first().endedBy, QStringLiteral("skip"), 30000);
        QCOMPARE(recorder.openEntryCount(), 1);
        engine.stop();
        QTRY_VERIFY_WITH_TIMEOUT(allEnded(2), 30000);
        const QList<AsRunEntry> rows = allRows();
        QCOMPARE(rows[0].title, QStringLiteral("First"));
        QCOMPARE(rows[1].title, QStringLiteral("Second"));
        QCOMPARE(endings(rows), (QStringList{QStringLiteral("skip"), QStringLiteral("stop")}));
    }

    void stoppingEndsTheRowWithStopAndAnOpenWindowFollows()
    {
        studiotest::RecordedPlayout rig(
            {fileTrack(QStringLiteral("Long"), QStringLiteral("Tone"), longTone)});
        auto& [playlist, engine, recorder] = rig;
        AsRunWindow window;
        window.setRecorder(&recorder);
        QCOMPARE(window.entries().size(), 0);
        PLAYOUT_CHECKED(startAndWait(engine, 0));
        QTRY_COMPARE_WITH_TIMEOUT(window.entries().size(), 1, 30000);
        QCOMPARE(recorder.openEntryCount(), 1);
        QVERIFY(!window.entries().first().endedAt.isValid());
        engine.stop();
        QTRY_VERIFY_WITH_TIMEOUT(allEnded(1), 30000);
        QCOMPARE(endings(allRows()), QStringList{QStringLiteral("stop")});
        QTRY_COMPARE_WITH_TIMEOUT(window.entries().first().endedBy, QStringLiteral("stop"), 30000);
    }

    void nextEndsTheRowWithSkipAndOpensTheNextOne()
    {
        setSetting(QStringLiteral("playback/crossfadeEnabled"), false);
        studiotest::RecordedPlayout rig(
            {fileTrack(QStringLiteral("Long"), QStringLiteral("Tone"), longTone),
             fileTrack(QStringLiteral("Also"), QStringLiteral("Long"), longTone)});
        auto& [playlist, engine, recorder] = rig;
        PLAYOUT_CHECKED(startAndWait(engine, 0));
        QTRY_COMPARE_WITH_TIMEOUT(allRows().size(), 1, 30000);
        engine.next();
        QTRY_COMPARE_WITH_TIMEOUT(allRows().size(), 2, 30000);
        QTRY_COMPARE_WITH_TIMEOUT(allRows().first().endedBy, QStringLiteral("skip"), 30000);
        QCOMPARE(allRows().last().artist, QStringLiteral("Also"));
        QVERIFY(!allRows().last().endedAt.isValid());
        engine.stop();
        QTRY_VERIFY_WITH_TIMEOUT(allEnded(2), 30000);
        QCOMPARE(endings(allRows()), (QStringList{QStringLiteral("skip"), QStringLiteral("stop")}));
    }

    void aRelayIsItsOwnRowWithTheUrlAndItsMetadataAsTitle()
    {
        StreamServer server(taggedLive, 16000);
        QVERIFY(server.start());
        studiotest::RecordedPlayout rig(
            {fileTrack(QStringLiteral("Long"), QStringLiteral("Tone"), longTone)});
        auto& [playlist, engine, recorder] = rig;
        PLAYOUT_CHECKED(startAndWait(engine, 0));
        QTRY_COMPARE_WITH_TIMEOUT(allRows().size(), 1, 30000);

        engine.startRelay(server.url());
        QTRY_COMPARE_WITH_TIMEOUT(allRows().size(), 2, 30000);
        QTRY_COMPARE_WITH_TIMEOUT(allRows().at(1).title, QStringLiteral("Night Owls - Morning Song"), 30000);
        const AsRunEntry relay = allRows().at(1);
        QCOMPARE(relay.filePath, server.url());
        QVERIFY(relay.isStream);
        QVERIFY(!relay.endedAt.isValid());
        // The playlist's track gave the air to the relay.
        QCOMPARE(allRows().at(0).endedBy, QStringLiteral("relay"));

        server.kill();
        QTRY_COMPARE_WITH_TIMEOUT(allRows().at(1).endedBy, AsRunRecorder::relayLostText(), 30000);
        QVERIFY(allRows().at(1).playedMs > 0);

        QVERIFY(server.start(server.port()));
        // Reconnected: the new stretch on air is a new row, open until the relay is stopped.
        QTRY_COMPARE_WITH_TIMEOUT(rowsOf(server.url()).size(), 2, 30000);
        QVERIFY(!rowsOf(server.url()).last().endedAt.isValid());
        engine.stopRelay();
        QTRY_COMPARE_WITH_TIMEOUT(rowsOf(server.url()).last().endedBy, AsRunRecorder::relayStoppedText(),
                                  30000);
        QCOMPARE(rowsOf(server.url()).size(), 2);
        engine.stop();
        QTRY_COMPARE_WITH_TIMEOUT(recorder.openEntryCount(), 0, 30000);
    }

    void aStreamRowTakesTheStreamsMetadataAsTitle()
    {
        StreamServer server(taggedLive, 16000);
        QVERIFY(server.start());
        studiotest::RecordedPlayout rig({streamTrack(server.url())});
        auto& [playlist, engine, recorder] = rig;
        engine.playRow(0);
        QTRY_COMPARE_WITH_TIMEOUT(allRows().size(), 1, 30000);
        QCOMPARE(allRows().first().filePath, server.url());
        QVERIFY(allRows().first().isStream);
        QTRY_COMPARE_WITH_TIMEOUT(allRows().first().title, QStringLiteral("Night Owls - Morning Song"),
                                  30000);
        engine.stop();
        QTRY_VERIFY_WITH_TIMEOUT(allEnded(1), 30000);
        QCOMPARE(allRows().first().endedBy, QStringLiteral("stop"));
    }

    void finishAllEndsWhatIsStillSoundingOnClose()
    {
        studiotest::RecordedPlayout rig(
            {fileTrack(QStringLiteral("Long"), QStringLiteral("Tone"), longTone)});
        auto& [playlist, engine, recorder] = rig;
        PLAYOUT_CHECKED(startAndWait(engine, 0));
        QTRY_COMPARE_WITH_TIMEOUT(recorder.openEntryCount(), 1, 30000);
        // Some time on air, so that the played time is above zero.
        QTRY_VERIFY_WITH_TIMEOUT(engine.position() > 300, 30000);
        recorder.finishAll(QStringLiteral("stop"));
        QCOMPARE(recorder.openEntryCount(), 0);
        QVERIFY(allEnded(1));
        QCOMPARE(allRows().first().endedBy, QStringLiteral("stop"));
        QVERIFY(allRows().first().playedMs > 0);
        // The engine's own end afterwards (reported as the stop happens) changes nothing.
        const QList<AsRunEntry> before = allRows();
        QSignalSpy ended(&engine, &AudioEngine::trackEnded);
        engine.stop();
        QCOMPARE(ended.count(), 1);
        QCOMPARE(allRows().size(), 1);
        QCOMPARE(allRows().first().endedAt, before.first().endedAt);
    }

    void aDatabaseThatCannotBeOpenedDisablesTheLogButNotPlayback()
    {
        ondarotest::closeStore();
        QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), ondarotest::storeConnection())
            .setDatabaseName(dir.filePath(QStringLiteral("no/such/folder/library.db")));
        studiotest::RecordedPlayout rig(
            {fileTrack(QStringLiteral("Short"), QStringLiteral("Tone"), shortC),
             fileTrack(QStringLiteral("Short"), QStringLiteral("Again"), shortC)});
        auto& [playlist, engine, recorder] = rig;
        QSignalSpy disabled(&recorder, &AsRunRecorder::disabled);
        QVERIFY(!recorder.isEnabled());
        QVERIFY(!recorder.disabledReason().isEmpty());
        QTRY_COMPARE_WITH_TIMEOUT(disabled.count(), 1, 15000);
        QCOMPARE(disabled.first().first().toString(), recorder.disabledReason());
        QSignalSpy rows(&engine, &AudioEngine::currentRowChanged);
        PLAYOUT_CHECKED(startAndWait(engine, 0));
        // Both rows play through to the end of the playlist.
        QTRY_COMPARE_WITH_TIMEOUT(rows.count(), 2, 30000);
        QTRY_VERIFY_WITH_TIMEOUT(!engine.isPlaying(), 30000);
        recorder.finishAll();
        QCOMPARE(disabled.count(), 1);
        QCOMPARE(recorder.openEntryCount(), 0);
        ondarotest::closeStore();
        QVERIFY(MusicLibrary::initialize());
        QVERIFY(allRows().isEmpty());
    }
};

QTEST_MAIN(TestAsRunRecorder)
#include "tst_asrunrecorder.moc"
// StreamServer lives in a header of the playout tests; its meta-object is generated here.
