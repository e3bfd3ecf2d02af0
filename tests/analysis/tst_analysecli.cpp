// ondaro-analyse as a user runs it: JSON lines, the table, exit statuses and --store, each run in a
// private home so that no real library database is touched.

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

namespace {

QString fixture(const QString& name)
{
    return QStringLiteral(ONDARO_ANALYSIS_FIXTURE_DIR "/") + name;
}

struct Run {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
    QList<QJsonObject> lines;
};

const QStringList kKeys = {
    QStringLiteral("cueInMs"),         QStringLiteral("cueOutMs"),   QStringLiteral("durationMs"),
    QStringLiteral("error"),           QStringLiteral("gainDb"),     QStringLiteral("integratedLufs"),
    QStringLiteral("loudnessRangeLu"), QStringLiteral("mixStartMs"), QStringLiteral("path"),
    QStringLiteral("truePeakDbtp")};

} // namespace

class TestAnalyseCli : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir home;

    QString databaseFile() const { return home.filePath(QStringLiteral("config/Ondaro/Ondaro/library.db")); }

    Run analyse(const QStringList& arguments)
    {
        Run run;
        QProcess tool;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), home.path());
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
        tool.setProcessEnvironment(env);
        tool.start(QStringLiteral(ONDARO_ANALYSE_EXECUTABLE), arguments);
        if (!tool.waitForFinished(120000) || tool.exitStatus() != QProcess::NormalExit)
            return run;
        run.exitCode = tool.exitCode();
        run.out = tool.readAllStandardOutput();
        run.err = tool.readAllStandardError();
        for (const QByteArray& line : run.out.split('\n')) {
            if (!line.isEmpty())
                run.lines << QJsonDocument::fromJson(line).object();
        }
        return run;
    }

private slots:
    void initTestCase() { QVERIFY(home.isValid()); }

    void helpExplainsTheOptionsAndExitsZero()
    {
        const Run run = analyse({QStringLiteral("--help")});
        QCOMPARE(run.exitCode, 0);
        for (const char* word : {"--json", "--jobs", "--store", "FILE|FOLDER", "Exit status"})
            QVERIFY2(run.out.contains(word), word);
    }

    void usageErrorsExitTwo_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("nothing to analyse") << QStringList();
        QTest::newRow("jobs zero") << QStringList{QStringLiteral("--jobs"), QStringLiteral("0"),
                                                  fixture("cue/gap.wav")};
        QTest::newRow("jobs not a number")
            << QStringList{QStringLiteral("--jobs=two"), fixture("cue/gap.wav")};
        QTest::newRow("unknown option") << QStringList{QStringLiteral("--loud"), fixture("cue/gap.wav")};
        QTest::newRow("jobs without a value") << QStringList{QStringLiteral("--jobs")};
    }
    void usageErrorsExitTwo()
    {
        QFETCH(QStringList, arguments);
        const Run run = analyse(arguments);
        QCOMPARE(run.exitCode, 2);
        QVERIFY(run.out.isEmpty());
        QVERIFY(run.err.contains("ondaro-analyse"));
    }

    void jsonGivesOneObjectPerFileWithExactlyTheKeys()
    {
        const Run run =
            analyse({QStringLiteral("--json"), fixture("cue/gap.wav"), fixture("silence/silence.wav")});
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.lines.size(), 2);
        const QJsonObject gap = run.lines.at(0);
        QStringList keys = gap.keys();
        keys.sort();
        QCOMPARE(keys, kKeys);
        QCOMPARE(gap.value(QStringLiteral("path")).toString(), fixture("cue/gap.wav"));
        QCOMPARE(gap.value(QStringLiteral("error")).toString(), QString());
        QCOMPARE(gap.value(QStringLiteral("durationMs")).toInteger(), 15000);
        QVERIFY(qAbs(gap.value(QStringLiteral("cueInMs")).toInteger() - 2000) <= 50);
        QVERIFY(qAbs(gap.value(QStringLiteral("cueOutMs")).toInteger() - 12000) <= 50);
        QCOMPARE(gap.value(QStringLiteral("mixStartMs")).toInteger(),
                 gap.value(QStringLiteral("cueOutMs")).toInteger());
        const double lufs = gap.value(QStringLiteral("integratedLufs")).toDouble();
        QVERIFY(lufs < -19.0 && lufs > -24.0);
        QVERIFY(qAbs(gap.value(QStringLiteral("gainDb")).toDouble() - (-18.0 - lufs)) < 0.011);
        QVERIFY(gap.value(QStringLiteral("truePeakDbtp")).toDouble() < -5.0);
        QVERIFY(gap.value(QStringLiteral("loudnessRangeLu")).toDouble() >= 0.0);

        const QJsonObject silence = run.lines.at(1);
        QCOMPARE(silence.value(QStringLiteral("error")).toString(), QString());
        QCOMPARE(silence.value(QStringLiteral("cueInMs")).toInteger(), -1);
        QCOMPARE(silence.value(QStringLiteral("gainDb")).toDouble(), 0.0);
        QVERIFY(!QFile::exists(databaseFile())); // no --store, no database
    }

    void aFailedFileGivesItsReasonAndExitOne()
    {
        const Run run = analyse({QStringLiteral("--json"), QStringLiteral("--jobs"), QStringLiteral("2"),
                                 fixture("bad/notaudio.mp3"), fixture("cue/gap.flac")});
        QCOMPARE(run.exitCode, 1);
        QCOMPARE(run.lines.size(), 2);
        // In the order given, whichever finished first.
        const QJsonObject failed = run.lines.at(0);
        QCOMPARE(failed.value(QStringLiteral("path")).toString(), fixture("bad/notaudio.mp3"));
        QVERIFY(
            failed.value(QStringLiteral("error")).toString().startsWith(QStringLiteral("not a recognised")));
        QVERIFY(!failed.contains(QStringLiteral("cueInMs")));
        QCOMPARE(run.lines.at(1).value(QStringLiteral("error")).toString(), QString());
    }

    void aFolderIsWalkedForAudioFilesLikeAddFolder()
    {
        QTemporaryDir folder;
        QVERIFY(QDir().mkpath(folder.filePath(QStringLiteral("sub"))));
        QVERIFY(QFile::copy(fixture("formats/mono.wav"), folder.filePath(QStringLiteral("b.wav"))));
        QVERIFY(QFile::copy(fixture("formats/8bit.wav"), folder.filePath(QStringLiteral("sub/a.wav"))));
        QVERIFY(QFile::copy(fixture("bad/notaudio.mp3"), folder.filePath(QStringLiteral("notes.txt"))));
        const Run run = analyse({QStringLiteral("--json"), folder.path()});
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.lines.size(), 2);
        QCOMPARE(run.lines.at(0).value(QStringLiteral("path")).toString(),
                 folder.filePath(QStringLiteral("b.wav")));
        QCOMPARE(run.lines.at(1).value(QStringLiteral("path")).toString(),
                 folder.filePath(QStringLiteral("sub/a.wav")));
    }

    void withoutJsonATableIsPrinted()
    {
        const Run run =
            analyse({fixture("cue/gap.wav"), fixture("silence/silence.wav"), fixture("bad/zero.wav")});
        QCOMPARE(run.exitCode, 1);
        const QList<QByteArray> rows = run.out.trimmed().split('\n');
        QCOMPARE(rows.size(), 4);
        QVERIFY(rows.at(0).contains("LUFS") && rows.at(0).contains("Mix start"));
        QVERIFY(rows.at(1).contains("2.000") && rows.at(1).contains("12.000"));
        QVERIFY(rows.at(2).contains("digital silence: no cue points"));
        QVERIFY(rows.at(3).contains("error: no audio samples"));
    }

    void storeWritesTheResultsIntoTheLibraryDatabase()
    {
        QTemporaryDir folder;
        const QString path = folder.filePath(QStringLiteral("stored.flac"));
        QVERIFY(QFile::copy(fixture("cue/gap.flac"), path));
        const Run first = analyse({QStringLiteral("--json"), QStringLiteral("--store"), path});
        QCOMPARE(first.exitCode, 0);
        QVERIFY(QFile::exists(databaseFile()));

        QString analysedAt;
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("check"));
            db.setDatabaseName(databaseFile());
            QVERIFY(db.open());
            QSqlQuery q(db);
            QVERIFY(
                q.exec(QStringLiteral("SELECT filepath, duration_ms, cue_in_ms, cue_out_ms, integrated_lufs, "
                                      "file_size, error, analysed_at FROM track_analysis")));
            QVERIFY(q.next());
            QCOMPARE(q.value(0).toString(), path);
            QCOMPARE(q.value(1).toLongLong(), 15000);
            QVERIFY(qAbs(q.value(2).toLongLong() - 2000) <= 50);
            QVERIFY(qAbs(q.value(3).toLongLong() - 12000) <= 50);
            QVERIFY(qAbs(q.value(4).toDouble() -
                         first.lines.at(0).value(QStringLiteral("integratedLufs")).toDouble()) < 0.01);
            QCOMPARE(q.value(5).toLongLong(), QFileInfo(path).size());
            QCOMPARE(q.value(6).toString(), QString());
            QVERIFY(!q.value(7).toString().isEmpty());
            QVERIFY(!q.next());
            // A mark that a second analysis would overwrite.
            analysedAt = QStringLiteral("2000-01-01T00:00:00");
            QVERIFY(q.exec(QStringLiteral("UPDATE track_analysis SET analysed_at='2000-01-01T00:00:00'")));
        }
        QSqlDatabase::removeDatabase(QStringLiteral("check"));

        // The unchanged file is printed from the store, not analysed again.
        const Run second = analyse({QStringLiteral("--json"), QStringLiteral("--store"), path});
        QCOMPARE(second.exitCode, 0);
        QCOMPARE(second.lines.size(), 1);
        QCOMPARE(second.lines.at(0), first.lines.at(0));
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("check"));
            db.setDatabaseName(databaseFile());
            QVERIFY(db.open());
            QSqlQuery q(db);
            QVERIFY(q.exec(QStringLiteral("SELECT COUNT(*), MAX(analysed_at) FROM track_analysis")));
            QVERIFY(q.next());
            QCOMPARE(q.value(0).toInt(), 1);
            QCOMPARE(q.value(1).toString(), analysedAt);
        }
        QSqlDatabase::removeDatabase(QStringLiteral("check"));
    }
};

QTEST_GUILESS_MAIN(TestAnalyseCli)
#include "tst_analysecli.moc"
