#include "asrunlog.h"
#include "asrunrecorder.h"
#include "audioengine.h"
#include "levelmeter.h"
#include "logfile.h"
#include "logpane.h"
#include "onairdisplay.h"
#include "playlistmodel.h"
#include "studiocommandline.h"
#include "studiotestsupport.h"
#include "studiowindow.h"

#include <QFile>
#include <QMediaDevices>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <algorithm>

using namespace playouttest;

// The whole window on the air: three short tones from the command line with --play and crossfade
// on, against a temporary database and the null sink.
class TestStudioWindowPlayback : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QStringList tones;

    static QString fileText(const QString& path)
    {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            return QString();
        return QString::fromUtf8(file.readAll());
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        studiotest::useStudioLocations(dir.path(), "tst_studiowindow_playback");
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        // Three tones of 7 s; the file names give artist and title (no tags).
        const QStringList names = {QStringLiteral("Artist A - Tone A.wav"),
                                   QStringLiteral("Artist B - Tone B.wav"),
                                   QStringLiteral("Artist C - Tone C.wav")};
        const int frequencies[] = {440, 660, 880};
        for (int i = 0; i < 3; ++i) {
            const QString path = makeTone(dir.path(), names.at(i), frequencies[i], 7.0);
            QVERIFY(!path.isEmpty());
            tones << path;
        }
    }

    void cleanupTestCase() { studiotest::removeStudioLocations(); }

    void playsThreeTracksFromTheCommandLineWithCrossfades()
    {
        setSetting(QStringLiteral("playback/crossfadeEnabled"), true);
        setSetting(QStringLiteral("playback/mixPointMs"), 1500);
        setSetting(QStringLiteral("playback/minCrossfadeMs"), 0);
        setSetting(QStringLiteral("playback/fadeInMs"), 300);
        setSetting(QStringLiteral("playback/fadeOutMs"), 1000);

        const StudioCommandLine::Options options = StudioCommandLine::parse(
            QStringList{QStringLiteral("ondaro-studio"), QStringLiteral("--play")} + tones);
        QVERIFY(options.error.isEmpty());
        QVERIFY(options.play);

        StudioWindow window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QSignalSpy ended(window.engine(), &AudioEngine::trackEnded);
        window.start(options);
        QCOMPARE(window.playlist()->rowCount(), 3);
        QVERIFY(window.asRunRecorder()->isEnabled());

        // On air: the first track, a remaining time that falls, the second as next.
        OnAirDisplay* display = window.onAirDisplay();
        QTRY_COMPARE_WITH_TIMEOUT(display->nowText(), QStringLiteral("Artist A – Tone A"), 10000);
        QTRY_VERIFY_WITH_TIMEOUT(display->remainingMs() > 0, 10000);
        const qint64 firstRemaining = display->remainingMs();
        QVERIFY2(firstRemaining <= 7000, qPrintable(display->remainingText()));
        QTRY_VERIFY_WITH_TIMEOUT(display->remainingMs() > 0 && display->remainingMs() < firstRemaining - 500,
                                 10000);
        QVERIFY(display->remainingText().startsWith(QLatin1Char('-')));
        QCOMPARE(display->nextText(), QStringLiteral("Artist B – Tone B"));
        QVERIFY(display->progressPermille() > 0);
        QVERIFY(!display->clockText().isEmpty());
        QVERIFY(display->endsAtText() != QStringLiteral("--"));

        // The meters follow the tone (0.5 × master volume 0.8 is about -8 dBFS).
        QTRY_VERIFY_WITH_TIMEOUT(window.leftMeter()->levelDb() > -30.0, 10000);
        QTRY_VERIFY_WITH_TIMEOUT(window.rightMeter()->levelDb() > -30.0, 10000);
        QVERIFY(window.leftMeter()->peakDb() >= window.leftMeter()->levelDb() - 0.01);

        // The second and third follow by themselves; the third plays to its end.
        QTRY_COMPARE_WITH_TIMEOUT(display->nowText(), QStringLiteral("Artist B – Tone B"), 15000);
        QTRY_COMPARE_WITH_TIMEOUT(ended.count(), 3, 30000);
        QCOMPARE(ended.at(0).at(2).value<TrackEndReason>(), TrackEndReason::Mix);

        // The as-run log: one row per track, the first ended by the mix.
        QList<AsRunEntry> rows;
        QTRY_VERIFY_WITH_TIMEOUT((rows = AsRunLog::entriesOn(QDate::currentDate())).size() == 3 &&
                                     !rows.last().endedBy.isEmpty(),
                                 10000);
        QCOMPARE(rows.at(0).title, QStringLiteral("Tone A"));
        QCOMPARE(rows.at(1).title, QStringLiteral("Tone B"));
        QCOMPARE(rows.at(2).title, QStringLiteral("Tone C"));
        QCOMPARE(rows.at(0).endedBy, QStringLiteral("mix"));
        QCOMPARE(rows.at(1).endedBy, QStringLiteral("mix"));
        QCOMPARE(rows.at(2).endedBy, QStringLiteral("end"));

        // The engine's lines are in the pane and in today's file, each with its time.
        const QStringList lines = window.logPane()->lines();
        const auto paneHas = [&lines](const QString& text) {
            return std::any_of(lines.begin(), lines.end(), [&text](const QString& line) {
                return line.endsWith(QStringLiteral("  ") + text);
            });
        };
        QVERIFY2(paneHas(QStringLiteral("Artist A - Tone A")), qPrintable(lines.join(QLatin1Char('\n'))));
        QVERIFY(paneHas(QStringLiteral("Artist C - Tone C")));
        QVERIFY(paneHas(QStringLiteral("End of track: Artist C - Tone C")));
        const QString logPath = window.logFile()->pathFor(QDate::currentDate());
        QVERIFY(logPath.startsWith(studiotest::dataFolder() + QStringLiteral("/logs/")));
        const QString written = fileText(logPath);
        QVERIFY2(written.contains(QStringLiteral("  Artist A - Tone A\n")), qPrintable(written));
        QVERIFY(written.contains(QStringLiteral("  End of track: Artist C - Tone C\n")));
        QVERIFY(QRegularExpression(QStringLiteral("^\\d\\d:\\d\\d:\\d\\d  ")).match(written).hasMatch());
    }

    void aFileThatVanishedIsSkippedWithALogLine()
    {
        setSetting(QStringLiteral("playback/crossfadeEnabled"), false);
        const QString gone = QDir(dir.path()).filePath(QStringLiteral("Gone - Soon.wav"));
        QVERIFY(QFile::copy(tones.at(0), gone));
        StudioWindow window;
        window.appendItems({gone, tones.at(1)});
        QCOMPARE(window.playlist()->rowCount(), 2);
        QVERIFY(QFile::remove(gone));
        window.engine()->playRow(0);
        QTRY_COMPARE_WITH_TIMEOUT(window.engine()->currentRow(), 1, 10000);
        QTRY_VERIFY_WITH_TIMEOUT(window.engine()->isPlaying(), 10000);
        QVERIFY(window.logPane()->lines().filter(QStringLiteral("File not found, skipped: ") + gone).size() ==
                1);
        window.engine()->stop();
    }

    void aPlaylistOfMissingFilesStopsInsteadOfLooping()
    {
        setSetting(QStringLiteral("playback/crossfadeEnabled"), false);
        StudioWindow window;
        window.engine()->setShuffle(true);
        window.appendItems({QStringLiteral("/nonexistent/one.wav"), QStringLiteral("/nonexistent/two.wav")});
        QCOMPARE(window.playlist()->rowCount(), 2);
        QCOMPARE(window.logPane()->lines().filter(QStringLiteral("File not found: ")).size(), 2);
        window.engine()->playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(!window.logPane()
                                      ->lines()
                                      .filter(QStringLiteral("No playable file found in the playlist"))
                                      .isEmpty(),
                                 10000);
        QVERIFY(!window.engine()->isPlaying());
    }

    void withoutADatabaseTheStudioStillPlaysAndSaysTheAsRunLogIsOff()
    {
        setSetting(QStringLiteral("playback/crossfadeEnabled"), false);
        // A folder where the database file should be: the store cannot open it.
        uitest::removeTestLocations();
        QVERIFY(QDir().mkpath(uitest::configFolder() + QStringLiteral("/library.db")));
        QVERIFY(!MusicLibrary::initialize());

        StudioWindow window;
        QSignalSpy started(window.engine(), &AudioEngine::trackStarted);
        window.start(StudioCommandLine::parse(
            {QStringLiteral("ondaro-studio"), QStringLiteral("--play"), tones.at(0)}));
        QTRY_COMPARE_WITH_TIMEOUT(started.count(), 1, 10000);
        QVERIFY(!window.asRunRecorder()->isEnabled());
        const auto logged = [&window](const QString& text) {
            return !window.logPane()->lines().filter(text).isEmpty();
        };
        QVERIFY(logged(QStringLiteral("Library database cannot be opened")));
        QTRY_VERIFY_WITH_TIMEOUT(logged(QStringLiteral("As-run log is off: ")), 5000);
        window.engine()->stop();
        QDir(uitest::configFolder()).removeRecursively();
        uitest::freshDatabase();
    }

    void theBinaryExplainsItselfWithHelp()
    {
#ifdef ONDARO_STUDIO_EXECUTABLE
        QProcess studio;
        studio.start(QStringLiteral(ONDARO_STUDIO_EXECUTABLE), {QStringLiteral("--help")});
        QVERIFY(studio.waitForFinished(30000));
        QCOMPARE(studio.exitCode(), 0);
        const QString out = QString::fromLocal8Bit(studio.readAllStandardOutput());
        QVERIFY2(out.startsWith(QStringLiteral("Usage: ondaro-studio [options] [FILE|URL|M3U...]")),
                 qPrintable(out));
        QVERIFY(out.contains(QStringLiteral("--play")));

        QProcess wrong;
        wrong.start(QStringLiteral(ONDARO_STUDIO_EXECUTABLE), {QStringLiteral("--no-such-option")});
        QVERIFY(wrong.waitForFinished(30000));
        QCOMPARE(wrong.exitCode(), 2);
        QVERIFY(
            QString::fromLocal8Bit(wrong.readAllStandardError()).contains(QStringLiteral("no-such-option")));
#else
        QSKIP("ondaro-studio is not part of this build");
#endif
    }
};

QTEST_MAIN(TestStudioWindowPlayback)
#include "tst_studiowindow_playback.moc"
