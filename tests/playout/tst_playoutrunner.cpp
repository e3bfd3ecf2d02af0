#include "playouttestsupport.h"

#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using namespace playouttest;

// The headless runner as a station engineer calls it: a child process with its own home folder,
// so it never touches a real user's settings or library database.
class TestPlayoutRunner : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QString toneA;
    QString toneB;

    struct Result {
        int exitCode = -1;
        QStringList out;
        QString err;
    };

    QProcessEnvironment environment(bool withSoundServer) const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), dir.path());
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), dir.filePath(QStringLiteral("config")));
        env.insert(QStringLiteral("XDG_DATA_HOME"), dir.filePath(QStringLiteral("data")));
        env.insert(QStringLiteral("QT_MEDIA_BACKEND"), QStringLiteral("gstreamer"));
        if (!withSoundServer) {
            env.insert(QStringLiteral("PULSE_SERVER"), QStringLiteral("unix:/nonexistent/ondaro-no-server"));
            env.insert(QStringLiteral("XDG_RUNTIME_DIR"), QStringLiteral("/nonexistent/ondaro-no-runtime"));
        }
        return env;
    }

    Result run(const QStringList& arguments, bool withSoundServer = true)
    {
        QProcess process;
        process.setProcessEnvironment(environment(withSoundServer));
        process.setWorkingDirectory(dir.path());
        process.start(QStringLiteral(ONDARO_PLAYOUT_RUNNER), arguments);
        Result result;
        if (!process.waitForStarted(10000) || !process.waitForFinished(60000)) {
            process.kill();
            process.waitForFinished(5000);
            return result;
        }
        result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -2;
        result.out =
            QString::fromUtf8(process.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        result.err = QString::fromUtf8(process.readAllStandardError());
        return result;
    }

    // The log text of each output line, without its time stamp.
    static QStringList texts(const QStringList& lines)
    {
        static const QRegularExpression stamp(QStringLiteral("^\\d\\d:\\d\\d:\\d\\d\\.\\d\\d\\d  "));
        QStringList result;
        for (const QString& line : lines) {
            if (!stamp.match(line).hasMatch())
                return {}; // every line must carry a time stamp
            result << line.mid(14);
        }
        return result;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        toneA = makeTone(dir.path(), QStringLiteral("Alpha - First.wav"), 440, 1.5);
        toneB = makeTone(dir.path(), QStringLiteral("Beta - Second.wav"), 660, 1.0);
        QVERIFY(!toneA.isEmpty() && !toneB.isEmpty());
    }

    void playsTheGivenFilesPrintsEveryLogLineAndExitsWithZero()
    {
        const Result r = run({toneA, toneB});
        QCOMPARE(r.exitCode, 0);
        const QStringList expected{QStringLiteral("Alpha - First"),
                                   QStringLiteral("End of track: Alpha - First"),
                                   QStringLiteral("Beta - Second"),
                                   QStringLiteral("End of track: Beta - Second"), QStringLiteral("Stop")};
        QCOMPARE(texts(r.out), expected);
    }

    void readsAnM3uPlaylistWithCommentsAndRelativePaths()
    {
        QFile m3u(dir.filePath(QStringLiteral("show.m3u")));
        QVERIFY(m3u.open(QIODevice::WriteOnly | QIODevice::Text));
        m3u.write("#EXTM3U\n#EXTINF:2,Beta - Second\nBeta - Second.wav\n\n");
        m3u.write(toneA.toUtf8() + "\n");
        m3u.close();
        const Result r = run({m3u.fileName()});
        QCOMPARE(r.exitCode, 0);
        const QStringList out = texts(r.out);
        QCOMPARE(out.first(), QStringLiteral("Beta - Second"));
        QVERIFY(out.contains(QStringLiteral("Alpha - First")));
        QCOMPARE(out.last(), QStringLiteral("Stop"));
    }

    void missingFilesAreSkippedWithAMessage()
    {
        const Result r = run({dir.filePath(QStringLiteral("gone.wav")), toneB});
        QCOMPARE(r.exitCode, 0);
        QVERIFY(r.err.contains(QStringLiteral("Skipping missing file: ")));
        QCOMPARE(texts(r.out).first(), QStringLiteral("Beta - Second"));
    }

    void nothingPlayableGivesAnErrorStatusAndAClearMessage()
    {
        const Result r =
            run({dir.filePath(QStringLiteral("gone.wav")), dir.filePath(QStringLiteral("also-gone.mp3"))});
        QCOMPARE(r.exitCode, 1);
        QVERIFY2(r.err.contains(QStringLiteral("Nothing to play")), qPrintable(r.err));
    }

    void corruptFileIsReportedAndTheListGoesOn()
    {
        QFile bad(dir.filePath(QStringLiteral("Bad - Noise.mp3")));
        QVERIFY(bad.open(QIODevice::WriteOnly));
        bad.write(QByteArray(30000, '\x33'));
        bad.close();
        const Result r = run({bad.fileName(), toneB});
        QCOMPARE(r.exitCode, 0);
        const QStringList out = texts(r.out);
        QVERIFY(!out.filter(QStringLiteral("Playback error: ")).isEmpty());
        QVERIFY(out.contains(QStringLiteral("End of track: Beta - Second")));
    }

    void withoutOutputDeviceItSaysSoAndFails()
    {
        const Result r = run({toneA}, false);
        QCOMPARE(r.exitCode, 3);
        QVERIFY(texts(r.out).contains(QStringLiteral("No audio output device available - cannot play")));
    }

    void noArgumentsIsAUsageError()
    {
        const Result r = run({});
        QCOMPARE(r.exitCode, 2);
    }

    void listsTheOutputDevices()
    {
        const Result r = run({QStringLiteral("--list-devices")});
        QCOMPARE(r.exitCode, 0);
        QVERIFY(r.out.join(QLatin1Char('\n')).contains(QStringLiteral("NullOut")));
    }
};

QTEST_GUILESS_MAIN(TestPlayoutRunner)
#include "tst_playoutrunner.moc"
