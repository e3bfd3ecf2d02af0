// ondaro-playout running a list with timed rows: a hard row after a STOP starts the air again at its
// time (the run waits for it instead of ending), the rows between are skipped and never reach the
// as-run, and a start time that cannot be read is reported while its entry plays untimed.

#include "musiclibrary.h"
#include "playoutlog.h"
#include "playouttestsupport.h"

#include <QDateTime>
#include <QProcess>
#include <QProcessEnvironment>
#include <QSignalSpy>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

using namespace playouttest;

class TestPlayoutRunnerTimed : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir home;
    QString toneA; // "Alpha - First", 1.0 s
    QString toneB; // "Beta - Second", 1.0 s
    QString toneC; // "Gamma - Third", 1.0 s

    using Result = RunnerResult;

    QString configHome() const { return home.filePath(QStringLiteral("config")); }

    Result run(const QStringList& arguments)
    {
        return runPlayoutProgram(QStringLiteral(ONDARO_PLAYOUT_RUNNER), home.path(), arguments);
    }

    QString writeList(const QString& name, const QByteArray& content)
    {
        return writeListFile(home.path(), name, content);
    }

    static QByteArray entry(const QString& path) { return listEntry(path); }

    static QStringList asRunRows()
    {
        QStringList rows;
        QSqlQuery query(MusicLibrary::database());
        if (!query.exec(QStringLiteral("SELECT filepath, ended_by FROM as_run ORDER BY id")))
            return rows;
        while (query.next())
            rows << query.value(0).toString() + QStringLiteral(" ") + query.value(1).toString();
        return rows;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(home.isValid());
        qputenv("XDG_CONFIG_HOME", configHome().toUtf8());
        QCoreApplication::setOrganizationName(QStringLiteral("Ondaro"));
        QCoreApplication::setApplicationName(QStringLiteral("Ondaro"));
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        toneA = makeTone(home.path(), QStringLiteral("Alpha - First.wav"), 440, 1.0);
        toneB = makeTone(home.path(), QStringLiteral("Beta - Second.wav"), 660, 1.0);
        toneC = makeTone(home.path(), QStringLiteral("Gamma - Third.wav"), 880, 1.0);
        QVERIFY(!toneA.isEmpty() && !toneB.isEmpty() && !toneC.isEmpty());
        QVERIFY(MusicLibrary::initialize());
        QSettings settings(configHome() + QStringLiteral("/Ondaro/Ondaro.conf"), QSettings::IniFormat);
        settings.setValue(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
        settings.sync();
    }

    void init() { QSqlQuery(MusicLibrary::database()).exec(QStringLiteral("DELETE FROM as_run")); }

    void aHardRowAfterAStopStartsTheAirAgainAtItsTime()
    {
        QDateTime at = QDateTime::currentDateTime().addSecs(6);
        at.setTime(QTime(at.time().hour(), at.time().minute(), at.time().second()));
        const QByteArray time = at.toString(Qt::ISODate).toUtf8();
        const QString list = writeList(QStringLiteral("timed.m3u"),
                                       "#EXTM3U\n" + entry(toneA) + "#ONDARO-COMMAND:stop\n" + entry(toneB) +
                                           "#ONDARO-TIME:hard " + time + "\n" + entry(toneC));
        const Result r = run({list});
        QCOMPARE(r.exitCode, 0);
        const QString clock = at.time().toString(QStringLiteral("HH:mm:ss"));
        const QStringList expected{QStringLiteral("Alpha - First"),
                                   QStringLiteral("End of track: Alpha - First"),
                                   PlayoutLog::stopCommand,
                                   QStringLiteral("Waiting for timed row: hard %1 Gamma - Third").arg(clock),
                                   QStringLiteral("Timed: skipped for hard %1: Beta - Second").arg(clock),
                                   QStringLiteral("Timed: hard %1 Gamma - Third").arg(clock),
                                   QStringLiteral("Gamma - Third"),
                                   QStringLiteral("End of track: Gamma - Third"),
                                   PlayoutLog::stop};
        QCOMPARE(r.out, expected);
        QCOMPARE(asRunRows(), (QStringList{toneA + QStringLiteral(" end"), toneC + QStringLiteral(" end")}));
    }

    void aStartTimeThatCannotBeReadIsReportedAndItsEntryPlaysUntimed()
    {
        const QString list = writeList(QStringLiteral("badtime.m3u"),
                                       "#EXTM3U\n#ONDARO-TIME:hard not-a-time\n" + entry(toneA));
        const Result r = run({list});
        QCOMPARE(r.exitCode, 0);
        QVERIFY2(r.err.contains(QStringLiteral("Start time ignored in %1: Line 2").arg(list)), qPrintable(r.err));
        QCOMPARE(r.out, (QStringList{QStringLiteral("Alpha - First"), QStringLiteral("End of track: Alpha - First"),
                                     PlayoutLog::stop}));
    }
};

QTEST_MAIN(TestPlayoutRunnerTimed)
#include "tst_playoutrunner_timed.moc"
