// ondaro-schedule as a station engineer runs it: the real program on a database in a temporary
// configuration folder, its exit statuses, --out and --report, and byte-identical output per seed.

#include "schedulertestsupport.h"

#include <QTemporaryDir>
#include <QtTest>

namespace {

struct Run {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

} // namespace

class TestScheduleCli : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir home;
    QString formatPath;
    QString badFormatPath;

    Run run(const QStringList& arguments)
    {
        QProcess program;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), home.path());
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
        program.setProcessEnvironment(env);
        program.start(QStringLiteral(ONDARO_SCHEDULE_EXECUTABLE), arguments);
        Run result;
        if (!program.waitForStarted(30000) || !program.waitForFinished(120000))
            return result;
        result.exitCode = program.exitStatus() == QProcess::NormalExit ? program.exitCode() : -2;
        result.out = program.readAllStandardOutput();
        result.err = program.readAllStandardError();
        return result;
    }

    QStringList standardArguments(const QString& seed) const
    {
        return {QStringLiteral("--library"), QStringLiteral("Music"),
                QStringLiteral("--format"),  formatPath,
                QStringLiteral("--from"),    QStringLiteral("2024-05-06T06:00"),
                QStringLiteral("--hours"),   QStringLiteral("2"),
                QStringLiteral("--seed"),    seed};
    }

    static QByteArray readFile(const QString& path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    static bool writeFile(const QString& path, const QByteArray& bytes)
    {
        QFile file(path);
        return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
    }

private slots:
    void initTestCase()
    {
        QVERIFY(home.isValid());
        schedtest::useConfigFolder(home.path());
        QVERIFY(schedtest::freshStore());
        // Few songs and a long title separation, so that the report has relaxations to tell.
        const schedtest::GeneratedLibrary generated =
            schedtest::generateLibrary(home.filePath(QStringLiteral("audio")), QStringLiteral("Music"), 6, 4);
        QCOMPARE(generated.tracks.size(), 28);
        const QByteArray format = R"({
            "rules": {"artistSeparationMinutes": 60, "titleSeparationMinutes": 240},
            "clocks": {"Standard": [{"category": "Jingle"}, {"category": "A"}, {"category": "Gold"},
                                    {"command": "stop"}]},
            "grid": [{"clock": "Standard"}]})";
        formatPath = home.filePath(QStringLiteral("format.json"));
        QVERIFY(writeFile(formatPath, format));
        badFormatPath = home.filePath(QStringLiteral("bad.json"));
        QVERIFY(writeFile(badFormatPath, R"({"clocks": {"Standard": []}, "grid": [{"clock": "Standard"}]})"));
    }

    void helpExplainsTheOptionsAndExitsWithZero()
    {
        const Run r = run({QStringLiteral("--help")});
        QCOMPARE(r.exitCode, 0);
        for (const char* word :
             {"--library", "--format", "--from", "--hours", "--seed", "--out", "--report", "Exit status"})
            QVERIFY2(r.out.contains(word), word);
    }

    void aPlaylistGoesToStandardOutputAndTheReportToStandardError()
    {
        const Run r = run(standardArguments(QStringLiteral("1")));
        QCOMPARE(r.exitCode, 0);
        QVERIFY(r.out.startsWith("#EXTM3U"));
        QVERIFY(r.out.count("#EXTINF") > 10);
        QVERIFY(r.out.contains("#ONDARO-COMMAND:stop"));
        QVERIFY2(r.err.contains("2024-05-06 0") && r.err.contains("separation relaxed"), r.err.constData());
    }

    void outAndReportWriteFilesAndTheSameSeedGivesTheSameBytes()
    {
        const QString out1 = home.filePath(QStringLiteral("one.m3u"));
        const QString out2 = home.filePath(QStringLiteral("two.m3u"));
        const QString out3 = home.filePath(QStringLiteral("three.m3u"));
        const QString report = home.filePath(QStringLiteral("report.txt"));
        Run r = run(standardArguments(QStringLiteral("5")) +
                    QStringList{QStringLiteral("--out"), out1, QStringLiteral("--report"), report});
        QCOMPARE(r.exitCode, 0);
        QVERIFY(r.out.isEmpty());
        QVERIFY(r.err.isEmpty());
        const QByteArray playlist = readFile(out1);
        QVERIFY(playlist.count("#EXTINF") > 10);
        const QByteArray reportText = readFile(report);
        QVERIFY(reportText.contains("relaxed"));
        for (const QByteArray& line : reportText.split('\n')) {
            if (!line.isEmpty())
                QVERIFY2(line.startsWith("2024-05-06 0"), line.constData()); // every line has its time
        }
        QCOMPARE(
            run(standardArguments(QStringLiteral("5")) + QStringList{QStringLiteral("--out"), out2}).exitCode,
            0);
        QCOMPARE(readFile(out2), playlist);
        QCOMPARE(run(standardArguments(QStringLiteral("5"))).out, playlist);
        QCOMPARE(
            run(standardArguments(QStringLiteral("6")) + QStringList{QStringLiteral("--out"), out3}).exitCode,
            0);
        QVERIFY(readFile(out3) != playlist);
    }

    void aTimedFormatWritesTheTimesIntoThePlaylistAndEachHoursOverUnderIntoTheReport()
    {
        const QString format = home.filePath(QStringLiteral("timed.json"));
        QVERIFY(writeFile(format, R"({
            "rules": {"fillToleranceSeconds": 45},
            "clocks": {"Timed": [{"category": "Jingle", "at": "00:00", "timing": "hard"}, {"category": "A"},
                                 {"category": "Gold"}, {"category": "Jingle", "at": "30:00", "timing": "soft"},
                                 {"category": "B"}, {"category": "C"}]},
            "grid": [{"clock": "Timed"}]})"));
        QStringList arguments = standardArguments(QStringLiteral("3"));
        arguments[3] = format;
        const QString report = home.filePath(QStringLiteral("timed.txt"));
        const Run r = run(arguments + QStringList{QStringLiteral("--report"), report});
        QCOMPARE(r.exitCode, 0);
        for (const char* line :
             {"#ONDARO-TIME:hard 2024-05-06T06:00:00\n", "#ONDARO-TIME:soft 2024-05-06T06:30:00\n",
              "#ONDARO-TIME:hard 2024-05-06T07:00:00\n", "#ONDARO-TIME:soft 2024-05-06T07:30:00\n"})
            QVERIFY2(r.out.contains(line), r.out.constData());
        QCOMPARE(r.out.count("#ONDARO-TIME:"), 4);
        const QByteArray text = readFile(report);
        QVERIFY2(text.contains("2024-05-06 06:00:00  clock \"Timed\": planned "), text.constData());
        QVERIFY2(text.contains("2024-05-06 07:00:00  clock \"Timed\": planned "), text.constData());
        QVERIFY2(text.contains("(soft 06:30:00 "), text.constData());
        QVERIFY2(text.contains(", hard 08:00:00 "), text.constData());
        // The same seed, the same bytes.
        QCOMPARE(run(arguments).out, r.out);
    }

    void nothingToScheduleExitsWithOneAndWritesNoPlaylist()
    {
        const QString format = home.filePath(QStringLiteral("polka.json"));
        QVERIFY(writeFile(format, R"({"clocks": {"P": [{"category": "Polka"}, {"command": "stop"}]},
                                      "grid": [{"clock": "P"}]})"));
        const QString out = home.filePath(QStringLiteral("none.m3u"));
        const QString report = home.filePath(QStringLiteral("polka.txt"));
        const Run r =
            run({QStringLiteral("--library"), QStringLiteral("Music"), QStringLiteral("--format"), format,
                 QStringLiteral("--from"), QStringLiteral("2024-05-06T06:00"), QStringLiteral("--hours"),
                 QStringLiteral("1"), QStringLiteral("--out"), out, QStringLiteral("--report"), report});
        QCOMPARE(r.exitCode, 1);
        QVERIFY(!QFile::exists(out));
        QVERIFY(readFile(report).contains("category \"Polka\"): skipped"));
        QVERIFY(r.err.contains("nothing could be scheduled"));
    }

    void usageAndFormatErrorsExitWithTwo_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("message");
        const QString from = QStringLiteral("2024-05-06T06:00");
        QTest::newRow("no arguments") << QStringList() << QStringLiteral("--library is required");
        QTest::newRow("unknown option")
            << QStringList{QStringLiteral("--colour")} << QStringLiteral("colour");
        QTest::newRow("stray argument")
            << QStringList{QStringLiteral("extra")} << QStringLiteral("\"extra\"");
        QTest::newRow("bad start") << QStringList{QStringLiteral("--library"), QStringLiteral("Music"),
                                                  QStringLiteral("--format"),  QStringLiteral("f"),
                                                  QStringLiteral("--from"),    QStringLiteral("tomorrow"),
                                                  QStringLiteral("--hours"),   QStringLiteral("1")}
                                   << QStringLiteral("--from \"tomorrow\"");
        QTest::newRow("bad hours") << QStringList{QStringLiteral("--library"), QStringLiteral("Music"),
                                                  QStringLiteral("--format"),  QStringLiteral("f"),
                                                  QStringLiteral("--from"),    from,
                                                  QStringLiteral("--hours"),   QStringLiteral("0")}
                                   << QStringLiteral("--hours \"0\"");
        QTest::newRow("bad seed") << QStringList{QStringLiteral("--library"), QStringLiteral("Music"),
                                                 QStringLiteral("--format"),  QStringLiteral("f"),
                                                 QStringLiteral("--from"),    from,
                                                 QStringLiteral("--hours"),   QStringLiteral("1"),
                                                 QStringLiteral("--seed"),    QStringLiteral("-1")}
                                  << QStringLiteral("--seed \"-1\"");
        QTest::newRow("missing format file")
            << QStringList{QStringLiteral("--library"), QStringLiteral("Music"),
                           QStringLiteral("--format"),  QStringLiteral("/nowhere/f.json"),
                           QStringLiteral("--from"),    from,
                           QStringLiteral("--hours"),   QStringLiteral("1")}
            << QStringLiteral("cannot read");
    }

    void usageAndFormatErrorsExitWithTwo()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, message);
        const Run r = run(arguments);
        QCOMPARE(r.exitCode, 2);
        QVERIFY(r.out.isEmpty());
        QVERIFY2(QString::fromUtf8(r.err).contains(message), r.err.constData());
    }

    void aMalformedFormatNamesTheKey()
    {
        const Run r = run({QStringLiteral("--library"), QStringLiteral("Music"), QStringLiteral("--format"),
                           badFormatPath, QStringLiteral("--from"), QStringLiteral("2024-05-06T06:00"),
                           QStringLiteral("--hours"), QStringLiteral("1")});
        QCOMPARE(r.exitCode, 2);
        QVERIFY2(r.err.contains("\"clocks.Standard\": empty clock"), r.err.constData());
    }

    void aLibraryThatDoesNotExistExitsWithTwoAndIsNotCreated()
    {
        const Run r = run({QStringLiteral("--library"), QStringLiteral("Nowhere"), QStringLiteral("--format"),
                           formatPath, QStringLiteral("--from"), QStringLiteral("2024-05-06T06:00"),
                           QStringLiteral("--hours"), QStringLiteral("1")});
        QCOMPARE(r.exitCode, 2);
        QVERIFY2(r.err.contains("no library named \"Nowhere\""), r.err.constData());
        QVERIFY(!MusicLibrary::libraries().contains(QStringLiteral("Nowhere")));
    }

    void anUnwritableOutputExitsWithTwo()
    {
        const Run r =
            run(standardArguments(QStringLiteral("1")) +
                QStringList{QStringLiteral("--out"), home.filePath(QStringLiteral("no/such/folder/x.m3u"))});
        QCOMPARE(r.exitCode, 2);
        QVERIFY(r.err.contains("cannot write the playlist"));
    }
};

QTEST_GUILESS_MAIN(TestScheduleCli)
#include "tst_schedulecli.moc"
