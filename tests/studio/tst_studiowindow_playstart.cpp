#include "audioengine.h"
#include "logpane.h"
#include "playlistfile.h"
#include "playlistmodel.h"
#include "playlistview.h"
#include "sequencerrules.h"
#include "settingkeys.h"
#include "studiotestsupport.h"
#include "studiowindow.h"
#include "transportbar.h"

#include <QAudioOutput>
#include <QCheckBox>
#include <QItemSelectionModel>
#include <QPushButton>
#include <QSignalSpy>
#include <QSlider>
#include <QTest>

using namespace studiotest;

// Where Play starts, and that every way a row starts (Play, Next, double-click, Play now,
// automation) goes through the same rule for rows that cannot sound.
class TestStudioWindowPlayStart : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QString tone;
    QString other;
    QString corrupt;
    QString list; // tone, then the undecodable file last

    int linesWith(StudioWindow& window, const QString& text) const
    {
        return int(window.logPane()->lines().filter(text).size());
    }

    static QList<int> startedRows(const QSignalSpy& spy)
    {
        QList<int> rows;
        for (const QList<QVariant>& call : spy)
            rows << call.at(0).toInt();
        return rows;
    }

    static void select(StudioWindow& window, int row)
    {
        window.playlistView()->selectionModel()->select(
            window.playlist()->index(row, PlaylistModel::TitleColumn),
            QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useStudioLocations(dir.path(), "tst_studiowindow_playstart");
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), playouttest::noDeviceMessage());
        tone = playouttest::makeTone(dir.path(), QStringLiteral("Good - Tone.wav"), 440, 1.0);
        other = playouttest::makeTone(dir.path(), QStringLiteral("Other - Tone.wav"), 660, 1.0);
        QVERIFY(!tone.isEmpty() && !other.isEmpty());
        corrupt = QDir(dir.path()).filePath(QStringLiteral("Broken - Noise.wav"));
        QByteArray junk(64 * 1024, '\0');
        for (int i = 0; i < junk.size(); ++i)
            junk[i] = char((i * 7919) % 251);
        QVERIFY(uitest::writeFile(corrupt, junk));
        list = QDir(dir.path()).filePath(QStringLiteral("last row bad.m3u"));
        Track good;
        good.filePath = tone;
        good.artist = QStringLiteral("Good");
        good.title = QStringLiteral("Tone");
        good.durationMs = 1000;
        Track bad;
        bad.filePath = corrupt;
        bad.artist = QStringLiteral("Broken");
        bad.title = QStringLiteral("Noise");
        bad.durationMs = 122000;
        QVERIFY(PlaylistFile::write(list, {good, bad}));
        Settings::silentFileLimitMs.write(2000);
        Settings::silentStreamLimitMs.write(2000);
    }

    void cleanup() { uitest::stopWatchers(); }
    void cleanupTestCase() { removeStudioLocations(); }

    // The list's last row never sounds: it is skipped and the air stops. The same list opened
    // again and Play pressed starts at its first row, and the bad row is never reported as aired.
    void playAfterReopeningAListStartsAtItsFirstRow()
    {
        StudioWindow window;
        QVERIFY(window.openPlaylist(list));
        QSignalSpy started(window.engine(), &AudioEngine::trackStarted);
        window.transportBar()->playButton()->click();
        QTRY_VERIFY_WITH_TIMEOUT(linesWith(window, SequencerLog::fileSkipped(corrupt, 2)) == 1, 20000);
        QTRY_VERIFY_WITH_TIMEOUT(!window.engine()->isPlaying(), 10000);
        QCOMPARE(startedRows(started), QList<int>{0});

        QVERIFY(window.openPlaylist(list));
        started.clear();
        window.transportBar()->playButton()->click();
        QVERIFY(started.wait(15000));
        QCOMPARE(started.last().at(0).toInt(), 0);
        QCOMPARE(started.last().at(1).value<Track>().filePath, tone);
        QTRY_VERIFY_WITH_TIMEOUT(linesWith(window, SequencerLog::fileSkipped(corrupt, 2)) == 2, 20000);
        QCOMPARE(startedRows(started), QList<int>{0});
        window.engine()->stop();
    }

    void playAfterOpeningAListStartsAtTheSelectedRow()
    {
        StudioWindow window;
        window.appendItems({tone});
        QSignalSpy started(window.engine(), &AudioEngine::trackStarted);
        window.transportBar()->playButton()->click();
        QVERIFY(started.wait(15000));
        window.transportBar()->stopButton()->click();

        const QString path = QDir(dir.path()).filePath(QStringLiteral("two.m3u"));
        Track first;
        first.filePath = tone;
        Track second;
        second.filePath = other;
        QVERIFY(PlaylistFile::write(path, {first, second}));
        QVERIFY(window.openPlaylist(path));
        select(window, 1);
        started.clear();
        window.transportBar()->playButton()->click();
        QVERIFY(started.wait(15000));
        QCOMPARE(started.last().at(0).toInt(), 1);
        QCOMPARE(started.last().at(1).value<Track>().filePath, other);
        window.engine()->stop();
    }

    // Play on a selected bad row, a double-click or Play now on it: the row is skipped by the
    // same rule as in automation, and never reported as aired.
    void aBadRowStartedByHandIsSkippedByTheSameRule()
    {
        StudioWindow window;
        QVERIFY(window.openPlaylist(list));
        QSignalSpy started(window.engine(), &AudioEngine::trackStarted);
        select(window, 1);
        window.transportBar()->playButton()->click();
        QCOMPARE(window.engine()->currentRow(), 1);
        QVERIFY(window.engine()->isWaitingForSound());
        QTRY_VERIFY_WITH_TIMEOUT(linesWith(window, SequencerLog::fileSkipped(corrupt, 2)) == 1, 20000);

        emit window.playlistView()->playRowRequested(1);
        QVERIFY(window.engine()->isWaitingForSound());
        QTRY_VERIFY_WITH_TIMEOUT(linesWith(window, SequencerLog::fileSkipped(corrupt, 2)) == 2, 20000);
        QVERIFY2(started.isEmpty(), qPrintable(window.logPane()->lines().join(QLatin1Char('\n'))));
        QVERIFY(!window.engine()->isWaitingForSound());
    }

    // Held before it ever sounded, then Play: the wait for sound starts again.
    void playOnAHeldRowThatNeverSoundedWatchesItAgain()
    {
        StudioWindow window;
        QVERIFY(window.openPlaylist(list));
        window.engine()->playRow(1);
        QVERIFY(window.engine()->isWaitingForSound());
        window.transportBar()->pauseButton()->click();
        QVERIFY(!window.engine()->isWaitingForSound());
        window.transportBar()->playButton()->click();
        QVERIFY(window.engine()->isWaitingForSound());
        QTRY_VERIFY_WITH_TIMEOUT(linesWith(window, SequencerLog::fileSkipped(corrupt, 2)) == 1, 20000);
    }

    void theCrossfadeBoxChangesCrossfadeAloneWhileOnAir()
    {
        StudioWindow window;
        window.appendItems({tone});
        window.transportBar()->volumeSlider()->setValue(35);
        QSignalSpy started(window.engine(), &AudioEngine::trackStarted);
        window.transportBar()->playButton()->click();
        QVERIFY(started.wait(15000));
        const QString device = window.engine()->outputDeviceDescription();
        QList<QSignalSpy*> volumes;
        for (QAudioOutput* output : window.engine()->findChildren<QAudioOutput*>())
            volumes << new QSignalSpy(output, &QAudioOutput::volumeChanged);
        const bool was = window.transportBar()->crossfadeBox()->isChecked();

        window.transportBar()->crossfadeBox()->click();
        QCOMPARE(window.transportBar()->crossfadeBox()->isChecked(), !was);
        QCOMPARE(window.engine()->crossfadeEnabled(), !was);
        QCOMPARE(Settings::crossfadeEnabled.read(), !was);
        QCOMPARE(window.engine()->volume(), 0.35);
        QCOMPARE(window.engine()->outputDeviceDescription(), device);
        for (QSignalSpy* spy : volumes)
            QCOMPARE(spy->count(), 0);
        qDeleteAll(volumes);
        window.engine()->stop();
        Settings::crossfadeEnabled.write(false);
    }
};

QTEST_MAIN(TestStudioWindowPlayStart)
#include "tst_studiowindow_playstart.moc"
