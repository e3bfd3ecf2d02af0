#include "audioengine.h"
#include "musiclibrary.h"
#include "playlistmodel.h"
#include "playouttestsupport.h"
#include "playouttracks.h"
#include "sequencerrules.h"
#include "settingkeys.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace playouttest;

// A file whose load never finishes is skipped after the load limit, as a broken file is, and the
// next row plays; nothing of it is reported as aired.
class TestAudioEngineLoadLimit : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QString tone;  // 3 s
    QString never; // a FIFO with a writer that never writes: the player stays loading
    int neverWriter = -1;
    QStringList logs;

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine_loadlimit"));
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        removeLibraryStore();
        QVERIFY(MusicLibrary::initialize());
        tone = makeTone(dir.path(), QStringLiteral("tone.wav"), 440, 3);
        QVERIFY(!tone.isEmpty());
        never = dir.filePath(QStringLiteral("never.wav"));
        QCOMPARE(::mkfifo(QFile::encodeName(never).constData(), 0600), 0);
        // Opened for reading and writing, the FIFO opens at once for the player too, and its
        // reads then wait for data that never comes.
        neverWriter = ::open(QFile::encodeName(never).constData(), O_RDWR);
        QVERIFY(neverWriter >= 0);
    }

    void cleanupTestCase()
    {
        // The set-aside player's read ends, and it goes.
        if (neverWriter >= 0)
            ::close(neverWriter);
        QTest::qWait(0);
    }

    void init()
    {
        useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine_loadlimit"));
        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
        logs.clear();
    }

    void theLimitIsFiveSecondsByDefault()
    {
        QCOMPARE(Settings::loadLimitMs.read(), 5000);
    }

    void aFileThatNeverLoadsIsSkippedAndTheNextRowPlays()
    {
        Settings::loadLimitMs.write(600);
        PlaylistModel playlist;
        appendRows(playlist, {fileTrack(QStringLiteral("Never"), QStringLiteral("Loads"), never),
                              fileTrack(QStringLiteral("B"), QStringLiteral("Tone"), tone)});
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        collectLog(engine, this, logs);
        QSignalSpy started(&engine, &AudioEngine::trackStarted);
        QSignalSpy ended(&engine, &AudioEngine::trackEnded);
        QElapsedTimer clock;
        clock.start();
        engine.playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(logs.contains(SequencerLog::loadTimedOut(never)), 10000);
        const qint64 skippedAfter = clock.elapsed();
        qInfo("row skipped %lld ms after it was taken (limit 600 ms)", skippedAfter);
        QVERIFY2(skippedAfter >= 550 && skippedAfter < 5000, qPrintable(QString::number(skippedAfter)));
        QTRY_COMPARE_WITH_TIMEOUT(started.count(), 1, 10000);
        QCOMPARE(started.first().at(0).toInt(), 1);
        QCOMPARE(engine.currentRow(), 1);
        QTRY_VERIFY_WITH_TIMEOUT(engine.position() > 500, 10000);
        QVERIFY(engine.isPlaying());
        // The row that never sounded is not reported as aired.
        QCOMPARE(ended.count(), 0);
        engine.stop();
        QCOMPARE(ended.count(), 1);
        QCOMPARE(ended.first().at(0).toInt(), 1);
    }

    void aFileThatLoadsInTimeIsNotSkipped()
    {
        Settings::loadLimitMs.write(600);
        PlaylistModel playlist;
        appendRows(playlist, {fileTrack(QStringLiteral("A"), QStringLiteral("Tone"), tone),
                              fileTrack(QStringLiteral("B"), QStringLiteral("Tone"), tone)});
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        collectLog(engine, this, logs);
        engine.playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(engine.position() > 1500, 10000);
        QCOMPARE(engine.currentRow(), 0);
        QVERIFY(!logs.contains(SequencerLog::loadTimedOut(tone)));
        engine.stop();
    }
};

QTEST_MAIN(TestAudioEngineLoadLimit)
#include "tst_audioengine_loadlimit.moc"
