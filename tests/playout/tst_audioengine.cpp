#include "audioengine.h"
#include "playlistmodel.h"
#include "playouttestsupport.h"
#include "playouttracks.h"

#include <QAudioOutput>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cmath>

using namespace playouttest;

// Engine behaviour that needs no sound: settings, volume and ducking, fades on the decks, the
// current row following the playlist's rows, command rows.
class TestAudioEngine : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;

    // A row whose file does not exist: these tests never play it.
    static Track absentFile(const QString& artist, const QString& title)
    {
        return fileTrack(artist, title, QStringLiteral("/nonexistent/") + title + QStringLiteral(".wav"));
    }

    // One command row for each word.
    static void appendCommands(PlaylistModel& playlist, const QStringList& words)
    {
        for (const QString& word : words)
            playlist.appendTrack(commandTrack(word));
    }

    // A playlist of command rows that an engine plays from.
    struct CommandRows {
        PlaylistModel playlist;
        AudioEngine engine;

        explicit CommandRows(const QStringList& words)
        {
            appendCommands(playlist, words);
            engine.setPlaylist(&playlist);
        }
    };

    // prefix0, prefix1, ... prefix(count-1).
    static QStringList numbered(const QString& prefix, int count)
    {
        QStringList words;
        for (int i = 0; i < count; ++i)
            words << prefix + QString::number(i);
        return words;
    }

private slots:
    void initTestCase() { QVERIFY(dir.isValid()); }

    void init() { useTemporarySettings(dir.path(), QStringLiteral("tst_audioengine")); }

    void settingsDefaultsAreApplied()
    {
        AudioEngine engine;
        QCOMPARE(engine.volume(), 0.8);
        QCOMPARE(engine.crossfadeEnabled(), false);
        QCOMPARE(engine.fadeInMs(), 1500);
        QCOMPARE(engine.fadeOutMs(), 2500);
        QCOMPARE(engine.autoPlayNext(), true);
        QCOMPARE(engine.minCrossfadeMs(), 45000);
        QCOMPARE(engine.mixSettings().mixPointMs, 2500);
        QCOMPARE(engine.mixSettings().triggerMixDb, -14.0);
        QCOMPARE(engine.isShuffle(), false);
        QCOMPARE(engine.currentRow(), -1);
        QVERIFY(std::fabs(engine.deckOutputVolume(0) - 0.8) < 1e-6);
    }

    void reloadSettingsReadsEveryPlaybackKey()
    {
        setSetting(QStringLiteral("audio/defaultVolume"), 50);
        setSetting(QStringLiteral("playback/crossfadeEnabled"), true);
        setSetting(QStringLiteral("playback/fadeInMs"), 700);
        setSetting(QStringLiteral("playback/fadeOutMs"), 900);
        setSetting(QStringLiteral("playback/autoPlayNext"), false);
        setSetting(QStringLiteral("playback/minCrossfadeMs"), 5000);
        setSetting(QStringLiteral("playback/mixPointMs"), 3100);
        AudioEngine engine;
        QCOMPARE(engine.volume(), 0.5);
        QCOMPARE(engine.crossfadeEnabled(), true);
        QCOMPARE(engine.fadeInMs(), 700);
        QCOMPARE(engine.fadeOutMs(), 900);
        QCOMPARE(engine.autoPlayNext(), false);
        QCOMPARE(engine.minCrossfadeMs(), 5000);
        QCOMPARE(engine.mixSettings().mixPointMs, 3100);
        QCOMPARE(engine.mixSettings().fadeOutMs, 900);
        QVERIFY(std::fabs(engine.deckOutputVolume(1) - 0.5) < 1e-6);
    }

    void unknownOutputDeviceFallsBackToTheDefault()
    {
        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("No Such Device 42"));
        AudioEngine engine;
        QCOMPARE(engine.outputDeviceDescription(), QMediaDevices::defaultAudioOutput().description());
    }

    void volumeAbove100IsClampedToOne()
    {
        AudioEngine engine;
        engine.setVolume(150);
        QCOMPARE(engine.volume(), 1.0);
        QVERIFY(std::fabs(engine.deckOutputVolume(0) - 1.0) < 1e-6);
    }

    void negativeVolumeIsClampedToZero()
    {
        AudioEngine engine;
        engine.setVolume(-5);
        QCOMPARE(engine.volume(), 0.0);
        QCOMPARE(engine.deckOutputVolume(0), 0.0);
        QCOMPARE(engine.deckOutputVolume(1), 0.0);
    }

    void duckedDeckAtFullGainAndVolume80Outputs016()
    {
        AudioEngine engine;
        QCOMPARE(engine.deckGain(0), 1.0);
        engine.setDucked(true);
        QVERIFY(std::fabs(engine.deckOutputVolume(0) - 0.16) < 1e-6);
        QVERIFY(std::fabs(engine.deckOutputVolume(1) - 0.16) < 1e-6);
        engine.setDucked(false);
        QVERIFY(std::fabs(engine.deckOutputVolume(0) - 0.8) < 1e-6);
    }

    void setFadeOutMsChangesEngineAndMixButNotTheSettings()
    {
        AudioEngine engine;
        engine.setFadeOutMs(-40);
        QCOMPARE(engine.fadeOutMs(), 0);
        QCOMPARE(engine.mixSettings().fadeOutMs, 0);
        engine.setFadeOutMs(1800);
        QCOMPARE(engine.fadeOutMs(), 1800);
        QCOMPARE(engine.mixSettings().fadeOutMs, 1800);
        QVERIFY(!QSettings().contains(QStringLiteral("playback/fadeOutMs")));
    }

    void fadeInOver1500MsRunsOnTheDeckTimerAndEndsAtFullGain()
    {
        AudioEngine engine;
        engine.fadeTo(0, 0.0, 0, false);
        QCOMPARE(engine.deckGain(0), 0.0);
        QCOMPARE(engine.deckOutputVolume(0), 0.0);
        engine.fadeTo(0, 1.0, 1500, false);
        QVERIFY(engine.deckFading(0));
        QCOMPARE(engine.deckGain(0), 0.0); // the first step comes with the first tick
        QTRY_VERIFY_WITH_TIMEOUT(engine.deckGain(0) > 0.0 && engine.deckGain(0) < 1.0, 5000);
        QTRY_VERIFY_WITH_TIMEOUT(!engine.deckFading(0), 20000);
        QCOMPARE(engine.deckGain(0), 1.0);
        QVERIFY(std::fabs(engine.deckOutputVolume(0) - 0.8) < 1e-6);
    }

    void fadeInOver1500MsTakes37EqualStepsFortyMillisecondsApart()
    {
        AudioEngine engine;
        engine.fadeTo(0, 0.0, 0, false);
        // Every step hands a new volume to the deck's output; nothing else changes a volume here.
        QList<qint64> stepTimes;
        QList<double> stepGains;
        QElapsedTimer clock;
        const QList<QAudioOutput*> outputs = engine.findChildren<QAudioOutput*>();
        QVERIFY(!outputs.isEmpty());
        for (QAudioOutput* output : outputs) {
            connect(output, &QAudioOutput::volumeChanged, this, [&] {
                stepTimes << clock.elapsed();
                stepGains << engine.deckGain(0);
            });
        }
        clock.start();
        engine.fadeTo(0, 1.0, 1500, false);
        QVERIFY(stepTimes.isEmpty()); // the first step comes with the first tick
        QTRY_VERIFY_WITH_TIMEOUT(!engine.deckFading(0), 20000);
        QCOMPARE(stepGains.size(), 37);
        double previous = 0.0;
        for (double gain : std::as_const(stepGains)) {
            QVERIFY2(std::fabs(gain - previous - 1.0 / 37) < 1e-9, qPrintable(QString::number(gain)));
            previous = gain;
        }
        QCOMPARE(stepGains.last(), 1.0);
        // 37 ticks of a 40 ms timer: the last one 1480 ms after the start, never sooner.
        QVERIFY2(stepTimes.last() >= 36 * 40, qPrintable(QString::number(stepTimes.last())));
        QList<qint64> intervals;
        for (int i = 1; i < stepTimes.size(); ++i)
            intervals << stepTimes.at(i) - stepTimes.at(i - 1);
        std::sort(intervals.begin(), intervals.end());
        const qint64 median = intervals.at(intervals.size() / 2);
        QVERIFY2(median >= 35 && median <= 70, qPrintable(QString::number(median)));
    }

    void fadeOf50MsIsAppliedAtTheFirstTick()
    {
        AudioEngine engine;
        engine.fadeTo(1, 0.25, 50, false);
        QVERIFY(engine.deckFading(1));
        QCOMPARE(engine.deckGain(1), 1.0);
        QTRY_VERIFY_WITH_TIMEOUT(!engine.deckFading(1), 5000);
        QCOMPARE(engine.deckGain(1), 0.25);
        QVERIFY(std::fabs(engine.deckOutputVolume(1) - 0.2) < 1e-6);
    }

    void fadeToTheCurrentGainSetsItAtOnceWithoutTimer()
    {
        AudioEngine engine;
        engine.fadeTo(0, 1.0, 2000, false);
        QVERIFY(!engine.deckFading(0));
        QCOMPARE(engine.deckGain(0), 1.0);
    }

    void fadeTargetsOutsideZeroToOneAreClamped()
    {
        AudioEngine engine;
        engine.fadeTo(0, -0.5, 0, false);
        QCOMPARE(engine.deckGain(0), 0.0);
        engine.fadeTo(0, 1.7, 0, false);
        QCOMPARE(engine.deckGain(0), 1.0);
    }

    void insertingTwoRowsAboveTheCurrentRowMovesItDownByTwo()
    {
        CommandRows setup(numbered(QStringLiteral("marker"), 4));
        auto& [playlist, engine] = setup;
        engine.playRow(2);
        QCOMPARE(engine.currentRow(), 2);
        playlist.insertTrack(0, absentFile(QStringLiteral("A"), QStringLiteral("One")));
        playlist.insertTrack(1, absentFile(QStringLiteral("B"), QStringLiteral("Two")));
        QCOMPARE(engine.currentRow(), 4);
        playlist.appendTrack(absentFile(QStringLiteral("C"), QStringLiteral("Three")));
        QCOMPARE(engine.currentRow(), 4);
    }

    void removingRowsAboveTheCurrentRowMovesItUp()
    {
        CommandRows setup(numbered(QStringLiteral("marker"), 5));
        auto& [playlist, engine] = setup;
        engine.playRow(3);
        playlist.removeTrack(1);
        QCOMPARE(engine.currentRow(), 2);
        playlist.removeTrack(4 - 1); // below the current row: no change
        QCOMPARE(engine.currentRow(), 2);
    }

    void removingTheCurrentRowMakesTheRowAboveCurrent()
    {
        CommandRows setup(numbered(QStringLiteral("marker"), 4));
        auto& [playlist, engine] = setup;
        engine.playRow(2);
        playlist.removeTrack(2);
        QCOMPARE(engine.currentRow(), 1);
    }

    void removingTheFirstRowWhileCurrentNeverGoesBelowZero()
    {
        CommandRows setup({QStringLiteral("a"), QStringLiteral("b")});
        auto& [playlist, engine] = setup;
        engine.playRow(0);
        playlist.removeTrack(0);
        QCOMPARE(engine.currentRow(), 0);
    }

    void aReplacedPlaylistNoLongerMovesTheCurrentRow()
    {
        PlaylistModel first;
        PlaylistModel second;
        for (int i = 0; i < 3; ++i) {
            first.appendTrack(commandTrack(QStringLiteral("x")));
            second.appendTrack(commandTrack(QStringLiteral("y")));
        }
        AudioEngine engine;
        engine.setPlaylist(&first);
        engine.setPlaylist(&second);
        engine.playRow(1);
        first.insertTrack(0, commandTrack(QStringLiteral("z")));
        QCOMPARE(engine.currentRow(), 1);
        second.insertTrack(0, commandTrack(QStringLiteral("z")));
        QCOMPARE(engine.currentRow(), 2);
    }

    void unknownCommandLogsItsLowerCasedTextAndPlaysNothing()
    {
        CommandRows setup({QStringLiteral("Jingle")});
        auto& [playlist, engine] = setup;
        QSignalSpy log(&engine, &AudioEngine::logMessage);
        QSignalSpy rows(&engine, &AudioEngine::currentRowChanged);
        QSignalSpy now(&engine, &AudioEngine::nowPlaying);
        engine.playRow(0);
        QCOMPARE(log.count(), 1);
        QCOMPARE(log.at(0).at(0).toString(), QStringLiteral("Command: jingle"));
        QCOMPARE(rows.count(), 1);
        QCOMPARE(now.count(), 1);
        QCOMPARE(now.at(0).at(0).value<Track>().command, QStringLiteral("Jingle"));
        QCOMPARE(playlist.currentRow(), 0);
        QCOMPARE(engine.deckState(0), QMediaPlayer::StoppedState);
        QCOMPARE(engine.deckState(1), QMediaPlayer::StoppedState);
        QCOMPARE(engine.deckRow(0), -1);
    }

    void stopCommandRowLogsAndReportsNotPlaying()
    {
        CommandRows setup({QStringLiteral("STOP")});
        auto& [playlist, engine] = setup;
        QSignalSpy log(&engine, &AudioEngine::logMessage);
        QSignalSpy playing(&engine, &AudioEngine::playingChanged);
        engine.playRow(0);
        QCOMPARE(log.count(), 1);
        QCOMPARE(log.at(0).at(0).toString(),
                 QStringLiteral("STOP command - playback halted (press Play or Next to continue)"));
        QVERIFY(!playing.isEmpty());
        QCOMPARE(playing.last().at(0).toBool(), false);
    }

    void pauseCommandRowLogsPauseCommand()
    {
        CommandRows setup({QStringLiteral("Pause")});
        auto& [playlist, engine] = setup;
        QSignalSpy log(&engine, &AudioEngine::logMessage);
        engine.playRow(0);
        QCOMPARE(log.count(), 1);
        QCOMPARE(log.at(0).at(0).toString(), QStringLiteral("PAUSE command"));
    }

    void outOfRangeRowsAreIgnoredSilently()
    {
        PlaylistModel playlist;
        playlist.appendTrack(commandTrack(QStringLiteral("x")));
        AudioEngine engine;
        QSignalSpy log(&engine, &AudioEngine::logMessage);
        engine.playRow(0); // no playlist yet
        engine.setPlaylist(&playlist);
        engine.playRow(-1);
        engine.playRow(1);
        engine.previous();
        QCOMPARE(log.count(), 0);
        QCOMPARE(engine.currentRow(), -1);
    }

    void previousPlaysTheRowAbove()
    {
        CommandRows setup({QStringLiteral("first"), QStringLiteral("second")});
        auto& [playlist, engine] = setup;
        engine.playRow(1);
        QSignalSpy log(&engine, &AudioEngine::logMessage);
        engine.previous();
        QCOMPARE(engine.currentRow(), 0);
        QCOMPARE(log.at(0).at(0).toString(), QStringLiteral("Command: first"));
        engine.previous();
        QCOMPARE(engine.currentRow(), 0);
        QCOMPARE(log.count(), 1);
    }

    void queuedCommandRowIsLoggedInCapitalsBetweenMarks()
    {
        CommandRows setup({QStringLiteral("first"), QStringLiteral("second"), QStringLiteral("jingle")});
        auto& [playlist, engine] = setup;
        engine.playRow(0);
        playlist.enqueue(2);
        QSignalSpy log(&engine, &AudioEngine::logMessage);
        engine.next();
        QCOMPARE(log.count(), 2);
        QCOMPARE(log.at(0).at(0).toString(), QStringLiteral("Playback queue: playing >> JINGLE <<"));
        QCOMPARE(log.at(1).at(0).toString(), QStringLiteral("Command: jingle"));
        QCOMPARE(engine.currentRow(), 2);
        QVERIFY(playlist.queue().isEmpty());
    }

    void shuffleNeverPicksTheCurrentRowAgainWhenThereIsAChoice()
    {
        CommandRows setup(numbered(QStringLiteral("c"), 3));
        auto& [playlist, engine] = setup;
        engine.setShuffle(true);
        QVERIFY(engine.isShuffle());
        engine.playRow(0);
        QSet<int> seen;
        for (int i = 0; i < 60; ++i) {
            const int before = engine.currentRow();
            engine.next();
            // Eight equal draws in a row are possible in theory (1 in 3^8); allow that one case.
            if (engine.currentRow() == before)
                continue;
            seen.insert(engine.currentRow());
        }
        QVERIFY(seen.size() >= 2);
    }

    void displayTextPrefersArtistAndTitleThenTitleThenPath()
    {
        Track t;
        t.filePath = QStringLiteral("/music/x.mp3");
        QCOMPARE(AudioEngine::displayText(t), QStringLiteral("/music/x.mp3"));
        t.artist = QStringLiteral("Artist");
        QCOMPARE(AudioEngine::displayText(t), QStringLiteral("/music/x.mp3"));
        t.title = QStringLiteral("Title");
        QCOMPARE(AudioEngine::displayText(t), QStringLiteral("Artist - Title"));
        t.artist.clear();
        QCOMPARE(AudioEngine::displayText(t), QStringLiteral("Title"));
    }
};

QTEST_GUILESS_MAIN(TestAudioEngine)
#include "tst_audioengine.moc"
