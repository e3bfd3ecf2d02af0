#include "audioengine.h"
#include "playlistmodel.h"
#include "playouttestsupport.h"
#include "playouttracks.h"

#include <QAudioOutput>
#include <QMediaPlayer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace playouttest;

// The engine on real playback as the sequencer drives it: one Next is one row even when the end
// of what played before is reported late, and crossfade on or off changes nothing else.
class TestAudioEngineSequencing : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QString toneA;
    QString toneB;
    QString toneC;

    // The deck player that holds this file.
    static QMediaPlayer* playerOf(AudioEngine& engine, const QString& path)
    {
        const QList<QMediaPlayer*> players = engine.findChildren<QMediaPlayer*>();
        for (QMediaPlayer* player : players) {
            if (player->source() == QUrl::fromLocalFile(path))
                return player;
        }
        return nullptr;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine_sequencing"));
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        removeLibraryStore();
        toneA = makeTone(dir.path(), QStringLiteral("a.wav"), 440, 4.0);
        toneB = makeTone(dir.path(), QStringLiteral("b.wav"), 550, 4.0);
        toneC = makeTone(dir.path(), QStringLiteral("c.wav"), 660, 4.0);
        QVERIFY(!toneA.isEmpty() && !toneB.isEmpty() && !toneC.isEmpty());
    }

    void init()
    {
        useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine_sequencing"));
        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
    }

    // Next pressed as a track ends: the end of media of the track that was playing reaches the
    // engine only after the next row was put on the same deck.
    void oneNextIsOneRowWhenTheEndOfThePreviousTrackArrivesLate()
    {
        PlaylistModel playlist;
        // Lengths as the library knows them.
        for (Track track : {fileTrack(QStringLiteral("A"), QStringLiteral("One"), toneA),
                            fileTrack(QStringLiteral("B"), QStringLiteral("Two"), toneB),
                            fileTrack(QStringLiteral("C"), QStringLiteral("Three"), toneC)}) {
            track.durationMs = 4000;
            playlist.appendTrack(track);
        }
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        QSignalSpy started(&engine, &AudioEngine::trackStarted);
        QSignalSpy ended(&engine, &AudioEngine::trackEnded);
        engine.playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(started.count() == 1 && engine.duration() > 0, 15000);

        engine.next();
        QCOMPARE(engine.currentRow(), 1);
        QMediaPlayer* player = playerOf(engine, toneB);
        QVERIFY(player);
        // The late report of the end of "One", as the player delivers it.
        emit player->mediaStatusChanged(QMediaPlayer::EndOfMedia);

        QCOMPARE(engine.currentRow(), 1);
        QCOMPARE(ended.count(), 1); // "One", skipped by Next; nothing for "Two"
        QCOMPARE(ended.at(0).at(0).toInt(), 0);
        QCOMPARE(ended.at(0).at(2).value<TrackEndReason>(), TrackEndReason::Skip);
        // "Two" goes on and is really heard.
        QTRY_VERIFY_WITH_TIMEOUT(engine.isPlaying() && engine.position() > 1000, 15000);
        QCOMPARE(engine.currentRow(), 1);
        QCOMPARE(started.last().at(0).toInt(), 1);
        QCOMPARE(ended.count(), 1);
        engine.stop();
        QCOMPARE(ended.count(), 2);
        QCOMPARE(ended.last().at(0).toInt(), 1);
        QVERIFY(ended.last().at(3).toLongLong() > 1000);
    }

    // The current row is matched by its identity, not by its number.
    void theCurrentRowFollowsItsTrackThroughAMove()
    {
        PlaylistModel playlist;
        appendRows(playlist, {commandTrack(QStringLiteral("a")), commandTrack(QStringLiteral("b")),
                              commandTrack(QStringLiteral("c")), commandTrack(QStringLiteral("d"))});
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        engine.playRow(1);
        playlist.moveTrack(1, 3);
        QCOMPARE(engine.currentRow(), 3);
        QCOMPARE(engine.currentRowId(), playlist.rowId(3));
        QCOMPARE(engine.nextRow(), -1);
        playlist.moveTracks({3}, 0);
        QCOMPARE(engine.currentRow(), 0);
        QCOMPARE(engine.nextRow(), 1);
    }

    // A real end still moves on at once, late in a track as early.
    void anEndAfterTheTrackPlayedMovesOnToTheNextRow()
    {
        PlaylistModel playlist;
        appendRows(playlist, {fileTrack(QStringLiteral("A"), QStringLiteral("One"), toneA),
                              fileTrack(QStringLiteral("B"), QStringLiteral("Two"), toneB)});
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        QSignalSpy started(&engine, &AudioEngine::trackStarted);
        engine.playRow(0);
        QTRY_COMPARE_WITH_TIMEOUT(started.count(), 2, 15000);
        QCOMPARE(started.last().at(0).toInt(), 1);
        engine.stop();
    }

    void crossfadeOnOrOffKeepsTheVolumeAndTheDevice()
    {
        PlaylistModel playlist;
        appendRows(playlist, {fileTrack(QStringLiteral("A"), QStringLiteral("One"), toneA)});
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        engine.setVolume(35);
        QSignalSpy started(&engine, &AudioEngine::trackStarted);
        engine.playRow(0);
        QVERIFY(started.wait(15000));
        const QString device = engine.outputDeviceDescription();
        // Stored meanwhile, to be taken only when the settings are applied as a whole.
        setSetting(QStringLiteral("audio/defaultVolume"), 90);
        QList<QSignalSpy*> volumes;
        for (QAudioOutput* output : engine.findChildren<QAudioOutput*>())
            volumes << new QSignalSpy(output, &QAudioOutput::volumeChanged);
        QVERIFY(!volumes.isEmpty());

        engine.setCrossfadeEnabled(true);
        QVERIFY(engine.crossfadeEnabled());
        QVERIFY(engine.mixSettings().crossfadeEnabled);
        engine.setCrossfadeEnabled(false);
        QVERIFY(!engine.crossfadeEnabled());

        QCOMPARE(engine.volume(), 0.35);
        QCOMPARE(engine.outputDeviceDescription(), device);
        for (QSignalSpy* spy : volumes)
            QCOMPARE(spy->count(), 0);
        QVERIFY(engine.isPlaying());
        qDeleteAll(volumes);
        engine.stop();
    }
};

QTEST_MAIN(TestAudioEngineSequencing)
#include "tst_audioengine_sequencing.moc"
