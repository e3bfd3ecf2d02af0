// ondaro-library --copy-to and --copy-from, run as a user would run them: a library moved to the
// server and back arrives with every row of every table identical.

#include "asrunlog.h"
#include "databaseurl.h"
#include "libraryconnection.h"
#include "musiclibrary.h"
#include "testsupport.h"
#include "trackanalysis.h"
#include "trackparams.h"

#include <QProcess>
#include <QSqlRecord>
#include <QTemporaryDir>
#include <QtTest>

using namespace testsupport;

namespace {

struct ToolRun {
    int exitCode = -1;
    QString out;
    QString err;
};

// Every row of every store table, with each value's type, in a stable order.
QStringList dumpStore()
{
    QStringList rows;
    for (const QString& table :
         {QStringLiteral("libraries"), QStringLiteral("tracks"), QStringLiteral("track_params"),
          QStringLiteral("as_run"), QStringLiteral("track_analysis")}) {
        QSqlQuery q(MusicLibrary::database());
        if (!q.exec(QStringLiteral("SELECT * FROM %1 ORDER BY 1").arg(table))) {
            rows << table + QStringLiteral(": ") + q.lastError().text();
            continue;
        }
        while (q.next()) {
            QStringList fields{table};
            const QSqlRecord record = q.record();
            for (int i = 0; i < record.count(); ++i) {
                const QVariant v = q.value(i);
                QString text = v.isNull() ? QStringLiteral("NULL") : v.toString();
                if (v.typeId() == QMetaType::Double)
                    text = QString::number(v.toDouble(), 'g', 17);
                fields << record.fieldName(i) + QLatin1Char('=') + QLatin1String(v.typeName()) +
                              QLatin1Char(':') + text;
            }
            rows << fields.join(QLatin1Char('|'));
        }
    }
    return rows;
}

} // namespace

class TestDatabaseCopy : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void copyToTheServerAndBackKeepsEveryRowOfEveryTable();
    void aTargetThatHoldsRowsIsRefusedAndKeepsThem();
    void aMalformedUrlIsRefusedWithAClearMessage();

private:
    ToolRun runTool(const QStringList& arguments);
    void useEmbedded();
    void useServer();
    void fillEmbeddedLibrary();

    QTemporaryDir home;
    DatabaseUrl serverUrl;
};

void TestDatabaseCopy::initTestCase()
{
    QVERIFY(home.isValid());
    if (!onServer())
        QSKIP("needs ONDARO_DATABASE_URL (run through ctest -L postgres)");
    useTemporaryHome(home.path());
    serverUrl = DatabaseUrl::configured();
    // The tool runs without Qt's test locations and under the suite's names: both look for the
    // embedded database here.
    QStandardPaths::setTestModeEnabled(false);
    QCoreApplication::setApplicationName(QStringLiteral("Ondaro"));
    QCoreApplication::setOrganizationName(QStringLiteral("Ondaro"));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.path() + QStringLiteral("/config")));
}

void TestDatabaseCopy::cleanupTestCase()
{
    closeStore();
}

ToolRun TestDatabaseCopy::runTool(const QStringList& arguments)
{
    QProcess tool;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove(QStringLiteral("ONDARO_DATABASE_URL"));
    tool.setProcessEnvironment(env);
    tool.start(QStringLiteral(ONDARO_LIBRARY_TOOL), arguments);
    ToolRun run;
    if (!tool.waitForFinished(120000))
        return run;
    run.exitCode = tool.exitStatus() == QProcess::NormalExit ? tool.exitCode() : -1;
    run.out = QString::fromUtf8(tool.readAllStandardOutput());
    run.err = QString::fromUtf8(tool.readAllStandardError());
    return run;
}

void TestDatabaseCopy::useEmbedded()
{
    closeStore();
    LibraryConnection::setUrl(DatabaseUrl());
}

void TestDatabaseCopy::useServer()
{
    closeStore();
    LibraryConnection::setUrl(serverUrl);
}

void TestDatabaseCopy::fillEmbeddedLibrary()
{
    QVERIFY(MusicLibrary::initialize());
    MusicLibrary rock;
    rock.setLibrary(QStringLiteral("Rock"));
    rock.addTrack(
        makeTrack(QStringLiteral("Motörhead"), QStringLiteral("Ace of Spades"), QString(), 1980, 169000));
    rock.addTrack(makeTrack(QStringLiteral("AC/DC"), QStringLiteral("It's a \"Long\" Way"), QString(), 1975));
    Track noArtist = makeTrack(QString(), QStringLiteral("Untitled 🎵"), QStringLiteral("/music/a;b'c.flac"));
    rock.addTrack(noArtist);
    rock.addStream(QStringLiteral("Radio"), QStringLiteral("http://radio.example/live.mp3"));
    MusicLibrary jazz;
    jazz.setLibrary(QStringLiteral("Jazz"));
    for (int i = 0; i < 40; ++i)
        jazz.addTrack(makeTrack(QStringLiteral("Band %1").arg(i), QStringLiteral("Take %1").arg(i), QString(),
                                1950 + i, 1000 * i));
    MusicLibrary::recordPlay(QStringLiteral("/music/Band 3 - Take 3.mp3"),
                             QDateTime(QDate(2024, 5, 1), QTime(8, 0)));
    MusicLibrary::createLibrary(QStringLiteral("Empty"));

    TrackParams params;
    params.start = 1200;
    params.level = 0.7071067811865476;
    params.tags = QStringList{QStringLiteral("night"), QStringLiteral("ü")};
    TrackParams::save(QStringLiteral("/music/Band 1 - Take 1.mp3"), params);
    TrackParams::setTrackRating(QStringLiteral("/music/Band 2 - Take 2.mp3"), 7);

    AsRunEntry entry;
    entry.startedAt = QDateTime(QDate(2024, 5, 1), QTime(8, 0, 0, 250));
    entry.filePath = QStringLiteral("/music/Band 3 - Take 3.mp3");
    entry.artist = QStringLiteral("Band 3");
    entry.title = QStringLiteral("Take 3");
    const qint64 id = AsRunLog::recordStart(entry);
    QVERIFY(id > 0);
    QVERIFY(AsRunLog::recordEnd(id, entry.startedAt.addSecs(180), 180000, QStringLiteral("mix")));

    TrackAnalysis analysis;
    analysis.filePath = QStringLiteral("/music/Band 4 - Take 4.mp3");
    analysis.fileSize = 123456789012;
    analysis.fileModified = QDateTime::fromMSecsSinceEpoch(1700000000123);
    analysis.analysedAt = QDateTime(QDate(2024, 5, 2), QTime(9, 30));
    analysis.durationMs = 201234;
    analysis.integratedLufs = -14.123456789012345;
    analysis.loudnessRangeLu = 6.1;
    analysis.truePeakDbtp = -0.30000000000000004;
    analysis.cueInMs = 15;
    analysis.cueOutMs = 200000;
    analysis.mixStartMs = 195000;
    analysis.gainDb = 1.0 / 3.0;
    QVERIFY(TrackAnalysis::save({analysis}));
}

void TestDatabaseCopy::copyToTheServerAndBackKeepsEveryRowOfEveryTable()
{
    useEmbedded();
    fillEmbeddedLibrary();
    const QStringList original = dumpStore();
    QCOMPARE(original.filter(QRegularExpression(QStringLiteral("^tracks\\|"))).size(), 44);
    QVERIFY(original.filter(QRegularExpression(QStringLiteral("^as_run\\|"))).size() == 1);
    QVERIFY(original.filter(QRegularExpression(QStringLiteral("^track_analysis\\|"))).size() == 1);
    closeStore();

    const ToolRun to = runTool({QStringLiteral("--copy-to"), serverUrl.text});
    QVERIFY2(to.exitCode == 0, qPrintable(to.err));
    QVERIFY2(to.out.contains(QStringLiteral("tracks 44")), qPrintable(to.out));
    QVERIFY2(to.err.contains(QStringLiteral("Copying tracks: 44 of 44 rows")), qPrintable(to.err));

    // On the server the copied rows are searchable, and new rows get ids after the copied ones.
    useServer();
    QVERIFY(MusicLibrary::initialize());
    MusicLibrary rock;
    rock.setLibrary(QStringLiteral("Rock"));
    QCOMPARE(titlesOf(rock.search(QStringLiteral("motor"))), QStringList{QStringLiteral("Ace of Spades")});
    QCOMPARE(MusicLibrary::libraries(),
             (QStringList{QStringLiteral("Empty"), QStringLiteral("Jazz"), QStringLiteral("Rock")}));
    const QVariant lastId = scalar(QStringLiteral("SELECT MAX(id) FROM tracks"));
    rock.addTrack(makeTrack(QStringLiteral("New"), QStringLiteral("Row")));
    QVERIFY(scalar(QStringLiteral("SELECT MAX(id) FROM tracks")).toLongLong() > lastId.toLongLong());
    QVERIFY(run(QStringLiteral("DELETE FROM tracks WHERE artist='New'")));
    closeStore();

    QFile::remove(home.path() + QStringLiteral("/config/Ondaro/Ondaro/library.db"));
    const ToolRun back = runTool({QStringLiteral("--copy-from"), serverUrl.text});
    QVERIFY2(back.exitCode == 0, qPrintable(back.err));
    QVERIFY2(back.out.contains(
                 QStringLiteral("libraries 3, tracks 44, track_params 2, as_run 1, track_analysis 1")),
             qPrintable(back.out));

    useEmbedded();
    QVERIFY(MusicLibrary::database().isOpen());
    QCOMPARE(dumpStore(), original);
}

void TestDatabaseCopy::aTargetThatHoldsRowsIsRefusedAndKeepsThem()
{
    // After the round trip both databases hold the library.
    useServer();
    const qint64 before = scalar(QStringLiteral("SELECT COUNT(*) FROM tracks")).toLongLong();
    QVERIFY(before > 0);
    closeStore();

    const ToolRun to = runTool({QStringLiteral("--copy-to"), serverUrl.text});
    QCOMPARE(to.exitCode, 1);
    QVERIFY2(to.err.contains(QStringLiteral("is not empty")), qPrintable(to.err));
    const ToolRun from = runTool({QStringLiteral("--copy-from"), serverUrl.text});
    QCOMPARE(from.exitCode, 1);
    QVERIFY2(from.err.contains(QStringLiteral("is not empty")), qPrintable(from.err));

    useServer();
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM tracks")).toLongLong(), before);
}

void TestDatabaseCopy::aMalformedUrlIsRefusedWithAClearMessage()
{
    const ToolRun run = runTool({QStringLiteral("--copy-to"), QStringLiteral("postgresql://host:99999/db")});
    QCOMPARE(run.exitCode, 2);
    QVERIFY2(run.err.contains(QStringLiteral("is not usable")), qPrintable(run.err));
    const ToolRun help = runTool({QStringLiteral("--help")});
    QCOMPARE(help.exitCode, 0);
    QVERIFY(help.out.contains(QStringLiteral("--copy-to <url>")));
    QVERIFY(help.out.contains(QStringLiteral("--copy-from <url>")));
}

QTEST_GUILESS_MAIN(TestDatabaseCopy)
#include "tst_databasecopy.moc"
