// ondaro-playout running a list as the studio does: command rows, missing files, a stream that never
// answers, the as-run log (and a dry run that leaves it alone), names of a plain M3U, exit codes.
// The runner is a child process with its own home folder; this test shares that folder's library
// database to prepare it and to read the as-run table afterwards.

#include "sequencerrules.h"
#include "musiclibrary.h"
#include "playoutlog.h"
#include "playoutrunner.h"
#include "playouttestsupport.h"
#include "streamserver.h"
#include "tracktext.h"

#include <QProcess>
#include <QProcessEnvironment>
#include <QSignalSpy>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

using namespace playouttest;

namespace {

struct AsRunRow {
    QString artist;
    QString title;
    QString filePath;
    qint64 playedMs = 0;
    QString endedBy;
};

} // namespace

class TestPlayoutRunnerList : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir home;
    QString toneA;       // "Alpha - First", 1.0 s, not in the library, no tags
    QString toneB;       // "Beta - Second", 1.0 s
    QString libraryTone; // in the library as "Library Artist - Library Title"
    QString taggedTone;  // tags "Wav Artist" / "Wav Title", not in the library

    using Result = RunnerResult;

    QString configHome() const { return home.filePath(QStringLiteral("config")); }
    QString settingsFile() const { return configHome() + QStringLiteral("/Ondaro/Ondaro.conf"); }

    void setRunnerSetting(const QString& key, const QVariant& value)
    {
        QSettings settings(settingsFile(), QSettings::IniFormat);
        settings.setValue(key, value);
        settings.sync();
    }

    Result run(const QStringList& arguments)
    {
        return runPlayoutProgram(QStringLiteral(ONDARO_PLAYOUT_RUNNER), home.path(), arguments);
    }

    QString writeList(const QString& name, const QByteArray& content)
    {
        return writeListFile(home.path(), name, content);
    }

    static QByteArray entry(const QString& path) { return listEntry(path); }
    static QByteArray command(const char* word) { return QByteArray("#ONDARO-COMMAND:") + word + '\n'; }

    static QList<AsRunRow> asRunRows()
    {
        QList<AsRunRow> rows;
        QSqlQuery query(MusicLibrary::database());
        if (!query.exec(QStringLiteral(
                "SELECT artist, title, filepath, played_ms, ended_by FROM as_run ORDER BY id")))
            return rows;
        while (query.next())
            rows.append({query.value(0).toString(), query.value(1).toString(), query.value(2).toString(),
                         query.value(3).toLongLong(), query.value(4).toString()});
        return rows;
    }

    static int playCount(const QString& path)
    {
        QSqlQuery query(MusicLibrary::database());
        query.prepare(QStringLiteral("SELECT play_count FROM tracks WHERE filepath=?"));
        query.addBindValue(path);
        return query.exec() && query.next() ? query.value(0).toInt() : -1;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(home.isValid());
        // This process finds the runner's library database where the runner will: same identity,
        // same configuration folder.
        qputenv("XDG_CONFIG_HOME", configHome().toUtf8());
        QCoreApplication::setOrganizationName(QStringLiteral("Ondaro"));
        QCoreApplication::setApplicationName(QStringLiteral("Ondaro"));
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        toneA = makeTone(home.path(), QStringLiteral("Alpha - First.wav"), 440, 1.0);
        toneB = makeTone(home.path(), QStringLiteral("Beta - Second.wav"), 660, 1.0);
        libraryTone = makeTone(home.path(), QStringLiteral("lib.wav"), 550, 1.0);
        QVERIFY(!toneA.isEmpty() && !toneB.isEmpty() && !libraryTone.isEmpty());
        taggedTone = QStringLiteral(ONDARO_FIXTURE_DIR) + QStringLiteral("/tagged/tone.wav");
        QVERIFY2(QFileInfo::exists(taggedTone), "run the fixtures target first");

        QVERIFY(MusicLibrary::initialize());
        QVERIFY(MusicLibrary::database().databaseName().startsWith(configHome()));
        MusicLibrary library;
        library.setLibrary(QStringLiteral("Music"));
        Track known;
        known.filePath = libraryTone;
        known.artist = QStringLiteral("Library Artist");
        known.title = QStringLiteral("Library Title");
        known.durationMs = 1000;
        library.addTrack(known);
        setRunnerSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
    }

    void init()
    {
        QSqlQuery(MusicLibrary::database()).exec(QStringLiteral("DELETE FROM as_run"));
        QSqlQuery(MusicLibrary::database()).exec(QStringLiteral("UPDATE tracks SET play_count=0"));
    }

    void onlyAStopRowHaltsAnUnattendedRun()
    {
        QCOMPARE(PlayoutRunner::commandAction(QStringLiteral("stop")), PlayoutRunner::CommandAction::Halt);
        QCOMPARE(PlayoutRunner::commandAction(QStringLiteral(" STOP ")), PlayoutRunner::CommandAction::Halt);
        for (const char* word : {"pause", "jingle", "", "stopp", "next"})
            QCOMPARE(PlayoutRunner::commandAction(QString::fromLatin1(word)),
                     PlayoutRunner::CommandAction::StepOver);
    }

    void aRunStartsAtTheFirstRowThatIsNotAMissingFile()
    {
        const Track gone = trackFromFileName(home.filePath(QStringLiteral("gone.wav")));
        const Track here = trackFromFileName(toneA);
        QCOMPARE(PlayoutRunner::firstRowToPlay({}), -1);
        QCOMPARE(PlayoutRunner::firstRowToPlay({gone, gone}), -1);
        QCOMPARE(PlayoutRunner::firstRowToPlay({gone, here, gone}), 1);
        QCOMPARE(PlayoutRunner::firstRowToPlay({gone, commandTrack(QStringLiteral("stop")), here}), 1);
        QCOMPARE(
            PlayoutRunner::firstRowToPlay({trackFromStreamUrl(QStringLiteral("http://x.example/")), here}),
            0);
    }

    void aStopRowEndsTheRunWithZeroAndTheRowsAfterItNeverStart()
    {
        const QString list = writeList(QStringLiteral("stop.m3u"),
                                       "#EXTM3U\n" + entry(toneA) + command("stop") + entry(toneB));
        const Result r = run({list});
        QCOMPARE(r.exitCode, 0);
        const QStringList expected{QStringLiteral("Alpha - First"),
                                   QStringLiteral("End of track: Alpha - First"), PlayoutLog::stopCommand};
        QCOMPARE(r.out, expected);
        const QList<AsRunRow> rows = asRunRows();
        QCOMPARE(rows.size(), 1);
        QCOMPARE(rows.at(0).filePath, toneA);
        QCOMPARE(rows.at(0).endedBy, QStringLiteral("end"));
    }

    void otherCommandRowsAreLoggedAndSteppedOverAlsoAtTheEnd()
    {
        const QString list =
            writeList(QStringLiteral("commands.m3u"), "#EXTM3U\n" + entry(toneA) + command("jingle") +
                                                          command("pause") + entry(toneB) + command("news"));
        const Result r = run({list});
        QCOMPARE(r.exitCode, 0);
        const QStringList expected{QStringLiteral("Alpha - First"),
                                   QStringLiteral("End of track: Alpha - First"),
                                   QStringLiteral("Command: jingle"),
                                   PlayoutRunner::steppedOverText(QStringLiteral("jingle")),
                                   PlayoutLog::pauseCommand,
                                   PlayoutRunner::steppedOverText(QStringLiteral("pause")),
                                   QStringLiteral("Beta - Second"),
                                   QStringLiteral("End of track: Beta - Second"),
                                   QStringLiteral("Command: news"),
                                   PlayoutRunner::steppedOverText(QStringLiteral("news")),
                                   PlayoutLog::stop};
        QCOMPARE(r.out, expected);
        QCOMPARE(asRunRows().size(), 2);
    }

    void aMissingFileIsSkippedWithTheStudiosText()
    {
        const QString gone = home.filePath(QStringLiteral("Gone - Away.wav"));
        const QString list =
            writeList(QStringLiteral("missing.m3u"), "#EXTM3U\n" + entry(toneA) + entry(gone) + entry(toneB));
        const Result r = run({list});
        QCOMPARE(r.exitCode, 0);
        QVERIFY2(r.err.contains(PlayoutRunner::missingFileText(gone)), qPrintable(r.err));
        QVERIFY2(r.out.contains(SequencerLog::missingSkipped(gone)), qPrintable(r.out.join('\n')));
        QVERIFY(r.out.contains(QStringLiteral("End of track: Beta - Second")));
        const QList<AsRunRow> rows = asRunRows();
        QCOMPARE(rows.size(), 2); // the missing row never aired
        QCOMPARE(rows.at(0).filePath, toneA);
        QCOMPARE(rows.at(1).filePath, toneB);
    }

    void onlyMissingFilesIsNothingToPlay()
    {
        const QString list =
            writeList(QStringLiteral("allgone.m3u"),
                      "#EXTM3U\n" + entry(home.filePath(QStringLiteral("a.wav"))) + command("stop"));
        const Result r = run({list});
        QCOMPARE(r.exitCode, 1);
        QVERIFY2(r.err.contains(PlayoutRunner::nothingToPlayText()), qPrintable(r.err));
        QVERIFY(r.out.isEmpty());
    }

    void aStreamThatNeverAnswersIsSkippedAfterTheSettingsLimit()
    {
        StreamServer server(QByteArray(4000, '\0'), 16000);
        server.setSilent(true);
        QVERIFY(server.start());
        setRunnerSetting(QStringLiteral("playback/silentStreamLimitMs"), 2000);
        const QString list =
            writeList(QStringLiteral("stream.m3u"), "#EXTM3U\n#EXTINF:-1,Dead Air FM - Live\n" +
                                                        server.url().toUtf8() + "\n" + entry(toneB));
        const Result r = run({list});
        setRunnerSetting(QStringLiteral("playback/silentStreamLimitMs"), QVariant());
        QCOMPARE(r.exitCode, 0);
        QVERIFY2(r.out.contains(SequencerLog::streamSkipped(server.url(), 2)),
                 qPrintable(r.out.join('\n')));
        QVERIFY(r.out.contains(QStringLiteral("End of track: Beta - Second")));
        const QList<AsRunRow> rows = asRunRows();
        QCOMPARE(rows.size(), 1); // the stream never sounded
        QCOMPARE(rows.at(0).filePath, toneB);
    }

    void asRunRowsOfAPlainListCarryNamesFromTheLibraryOrTheFile()
    {
        const QString list = writeList(QStringLiteral("plain.m3u"), entry(libraryTone) + entry(taggedTone));
        const Result r = run({list});
        QCOMPARE(r.exitCode, 0);
        QVERIFY2(r.out.contains(QStringLiteral("Library Artist - Library Title")),
                 qPrintable(r.out.join('\n')));
        QVERIFY(r.out.contains(QStringLiteral("Wav Artist - Wav Title")));
        const QList<AsRunRow> rows = asRunRows();
        QCOMPARE(rows.size(), 2);
        QCOMPARE(rows.at(0).artist, QStringLiteral("Library Artist"));
        QCOMPARE(rows.at(0).title, QStringLiteral("Library Title"));
        QCOMPARE(rows.at(1).artist, QStringLiteral("Wav Artist"));
        QCOMPARE(rows.at(1).title, QStringLiteral("Wav Title"));
        for (const AsRunRow& row : rows) {
            QCOMPARE(row.endedBy, QStringLiteral("end"));
            QVERIFY2(row.playedMs > 500 && row.playedMs < 5000, qPrintable(QString::number(row.playedMs)));
        }
        QCOMPARE(playCount(libraryTone), 1);
    }

    void aDryRunWritesNoAsRunRowsAndCountsNoPlays()
    {
        const QString list = writeList(QStringLiteral("dry.m3u"), entry(libraryTone) + entry(toneA));
        const Result r = run({QStringLiteral("--no-as-run"), list});
        QCOMPARE(r.exitCode, 0);
        QVERIFY(r.out.contains(QStringLiteral("End of track: Alpha - First")));
        QVERIFY(asRunRows().isEmpty());
        QCOMPARE(playCount(libraryTone), 0);
    }

    void aMalformedPlaylistPlaysNothingAndExitsWithFour()
    {
        const QString broken =
            writeList(QStringLiteral("broken.m3u"), "#EXTM3U\n#EXTINF:abc,A - B\n" + entry(toneA));
        Result r = run({broken, toneB});
        QCOMPARE(r.exitCode, 4);
        QVERIFY2(r.err.contains(QStringLiteral("Playlist not loaded: ")), qPrintable(r.err));
        QVERIFY(r.out.isEmpty());

        const QString binary = writeList(QStringLiteral("binary.m3u"), QByteArray("\x00\x01\x02 abc", 7));
        r = run({binary});
        QCOMPARE(r.exitCode, 4);
        QVERIFY(r.err.contains(QStringLiteral("binary data")));

        r = run({home.filePath(QStringLiteral("no such list.m3u"))});
        QCOMPARE(r.exitCode, 4);
        QVERIFY(r.err.contains(QStringLiteral("Cannot read")));
        QVERIFY(asRunRows().isEmpty());
    }

    void aStopSignalEndsTheRunAndClosesTheRowOnAir()
    {
        const QString longTone = makeTone(home.path(), QStringLiteral("Long - Tone.wav"), 330, 20.0);
        QVERIFY(!longTone.isEmpty());
        QProcess process;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), home.path());
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), configHome());
        env.insert(QStringLiteral("QT_MEDIA_BACKEND"), QStringLiteral("gstreamer"));
        process.setProcessEnvironment(env);
        QByteArray out;
        connect(&process, &QProcess::readyReadStandardOutput, this,
                [&] { out += process.readAllStandardOutput(); });
        QSignalSpy finished(&process, &QProcess::finished);
        process.start(QStringLiteral(ONDARO_PLAYOUT_RUNNER), {longTone, toneA});
        QVERIFY(process.waitForStarted(10000));
        // On air once its as-run row is written.
        QTRY_VERIFY_WITH_TIMEOUT(asRunRows().size() == 1, 30000);
        // The as-run row is written on the runner's store thread; its log line may reach the pipe later.
        QTRY_VERIFY_WITH_TIMEOUT(out.contains("Long - Tone"), 10000);
        process.terminate(); // SIGTERM, as a service manager stops it
        QVERIFY(finished.wait(30000));
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(process.exitCode(), 0);
        QVERIFY(process.readAllStandardError().contains("Stopped by a signal"));
        QVERIFY(!out.contains("Alpha - First"));
        const QList<AsRunRow> rows = asRunRows();
        QCOMPARE(rows.size(), 1);
        QCOMPARE(rows.at(0).filePath, longTone);
        QCOMPARE(rows.at(0).endedBy, QStringLiteral("stop"));
        QVERIFY2(rows.at(0).playedMs > 0 && rows.at(0).playedMs < 20000,
                 qPrintable(QString::number(rows.at(0).playedMs)));
    }

    void usageErrorsExitWithTwo()
    {
        QCOMPARE(run({QStringLiteral("--stream-limit"), QStringLiteral("0"), toneA}).exitCode, 2);
        QCOMPARE(run({QStringLiteral("--stream-limit"), QStringLiteral("soon"), toneA}).exitCode, 2);
        QCOMPARE(run({QStringLiteral("--no-such-option"), toneA}).exitCode, 2);
        QCOMPARE(run({QStringLiteral("--no-as-run")}).exitCode, 2);
    }
};

QTEST_GUILESS_MAIN(TestPlayoutRunnerList)
#include "tst_playoutrunner_list.moc"
