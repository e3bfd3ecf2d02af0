// Crash safety of a folder import: a child process imports a few hundred files in batches of 50 and is
// killed with SIGKILL midway; the database must then be intact, hold every committed batch in full,
// and its full-text index must agree with the table.

#include "testsupport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSet>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <sys/types.h>

using namespace testsupport;

namespace {

const QString kFixtures = QStringLiteral(ONDARO_FIXTURE_DIR);
const QString kImporter = QStringLiteral(ONDARO_BATCH_IMPORTER);
const QString kCheck = QStringLiteral("tst_crash_check");
const int kFileCount = 1500; // 30 batches: the child cannot finish in the moment between report and kill
const int kBatchSize = 50;

struct ChildRun {
    QStringList lines;
    QProcess::ExitStatus exitStatus = QProcess::NormalExit;
    int lastCommittedBatch = -1;
    bool finished = false;
};

} // namespace

class TestLibraryCrashSafety : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void anImportLeftToRunStoresEveryFileInBatches();
    void killingAnImportMidwayKeepsEveryCommittedBatchAndAConsistentDatabase_data();
    void killingAnImportMidwayKeepsEveryCommittedBatchAndAConsistentDatabase();

private:
    ChildRun runImporter(int killAfterBatch);
    QStringList storedPaths(QSqlDatabase& db);

    QTemporaryDir home;
    QTemporaryDir music;
    QStringList listing;
};

void TestLibraryCrashSafety::initTestCase()
{
    QVERIFY(home.isValid());
    QVERIFY(music.isValid());
    // The child uses the same names and the same HOME, so both reach the same database.
    QCoreApplication::setOrganizationName(QStringLiteral("Ondaro"));
    QCoreApplication::setApplicationName(QStringLiteral("CrashSafety"));
    useTemporaryHome(home.path());
    QVERIFY2(QFile::exists(kImporter), qPrintable(kImporter));

    const QStringList sources = {kFixtures + QStringLiteral("/tagged/tone.mp3"),
                                 kFixtures + QStringLiteral("/untagged/Artist - Song.mp3"),
                                 kFixtures + QStringLiteral("/tagged/tone.ogg")};
    for (int i = 0; i < kFileCount; ++i) {
        const QString& source = sources.at(i % sources.size());
        const QString sub = music.path() + QStringLiteral("/part%1").arg(i / 200);
        QVERIFY(QDir().mkpath(sub));
        const QString target = sub + QStringLiteral("/%1 - Track %1.%2")
                                         .arg(i, 4, 10, QLatin1Char('0'))
                                         .arg(QFileInfo(source).suffix());
        QVERIFY(QFile::copy(source, target));
    }
    listing = MusicLibrary::audioFilesIn(music.path(), true);
    QCOMPARE(listing.size(), kFileCount);
}

void TestLibraryCrashSafety::init()
{
    discardStore();
}

void TestLibraryCrashSafety::cleanupTestCase()
{
    closeStore();
}

// Starts the importer; with killAfterBatch >= 0 it is killed once that batch has been reported.
ChildRun TestLibraryCrashSafety::runImporter(int killAfterBatch)
{
    ChildRun result;
    QProcess child;
    child.setProcessChannelMode(QProcess::SeparateChannels);
    child.start(kImporter, {music.path()});
    if (!child.waitForStarted(30000))
        return result;
    QByteArray pending;
    bool killed = false;
    auto readLines = [&] {
        pending += child.readAllStandardOutput();
        int newline;
        while ((newline = pending.indexOf('\n')) >= 0) {
            const QString line = QString::fromUtf8(pending.left(newline));
            pending.remove(0, newline + 1);
            result.lines << line;
            const QStringList parts = line.split(QLatin1Char(' '));
            if (parts.value(0) == QLatin1String("committed"))
                result.lastCommittedBatch = qMax(result.lastCommittedBatch, parts.value(1).toInt());
            else if (line == QLatin1String("done"))
                result.finished = true;
        }
    };
    // Generous limits: the machine may be slow and busy.
    QDeadlineTimer deadline(120000);
    while (child.state() != QProcess::NotRunning && !deadline.hasExpired()) {
        child.waitForReadyRead(200);
        readLines();
        if (!killed && killAfterBatch >= 0 && result.lastCommittedBatch >= killAfterBatch) {
            ::kill(static_cast<pid_t>(child.processId()), SIGKILL);
            killed = true;
        }
    }
    if (child.state() != QProcess::NotRunning) {
        child.kill();
        child.waitForFinished(30000);
    }
    child.waitForFinished(30000);
    readLines(); // everything written before the kill
    result.exitStatus = child.exitStatus();
    return result;
}

QStringList TestLibraryCrashSafety::storedPaths(QSqlDatabase& db)
{
    QStringList paths;
    QSqlQuery q(db);
    q.exec(QStringLiteral("SELECT filepath FROM tracks WHERE library='Crash'"));
    while (q.next())
        paths << q.value(0).toString();
    return paths;
}

void TestLibraryCrashSafety::anImportLeftToRunStoresEveryFileInBatches()
{
    const ChildRun importer = runImporter(-1);
    QVERIFY2(importer.finished, qPrintable(importer.lines.join(QLatin1Char('\n'))));
    QCOMPARE(importer.exitStatus, QProcess::NormalExit);
    QCOMPARE(importer.lastCommittedBatch, kFileCount / kBatchSize - 1);
    QVERIFY(MusicLibrary::initialize());
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Crash"));
    QCOMPARE(lib.trackCount(), kFileCount);
    QCOMPARE(lib.search(QStringLiteral("Mp3 Title")).size(), (kFileCount + 2) / 3);
}

void TestLibraryCrashSafety::killingAnImportMidwayKeepsEveryCommittedBatchAndAConsistentDatabase_data()
{
    QTest::addColumn<int>("killAfterBatch");
    QTest::newRow("after the first batch") << 0;
    QTest::newRow("after the fourth batch") << 3;
}

void TestLibraryCrashSafety::killingAnImportMidwayKeepsEveryCommittedBatchAndAConsistentDatabase()
{
    QFETCH(int, killAfterBatch);
    const ChildRun importer = runImporter(killAfterBatch);
    QVERIFY2(!importer.finished, "the importer finished before it could be killed");
    QCOMPARE(importer.exitStatus, QProcess::CrashExit);
    QVERIFY(importer.lastCommittedBatch >= killAfterBatch);

    // Inspect the file through a private connection first, exactly as the crash left it.
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), kCheck);
        db.setDatabaseName(databaseFile());
        QVERIFY(db.open());
        QSqlQuery q(db);
        QVERIFY(q.exec(QStringLiteral("PRAGMA integrity_check")));
        QVERIFY(q.next());
        QCOMPARE(q.value(0).toString(), QStringLiteral("ok"));
        QVERIFY2(q.exec(QStringLiteral("INSERT INTO tracks_fts(tracks_fts) VALUES('integrity-check')")),
                 qPrintable(q.lastError().text()));

        const QStringList stored = storedPaths(db);
        const QSet<QString> storedSet(stored.cbegin(), stored.cend());
        const int committedFiles = (importer.lastCommittedBatch + 1) * kBatchSize;
        qInfo("killed after %d reported batches; %lld rows stored", importer.lastCommittedBatch + 1,
              static_cast<long long>(stored.size()));
        for (int i = 0; i < committedFiles; ++i)
            QVERIFY2(storedSet.contains(listing.at(i)), qPrintable(listing.at(i)));
        // A batch is all or nothing: the one cut short left no rows behind.
        QCOMPARE(stored.size() % kBatchSize, 0);
        QVERIFY(stored.size() >= committedFiles);
        QVERIFY(stored.size() < kFileCount);
        QCOMPARE(stored.size(), storedSet.size());
        QVERIFY(q.exec(QStringLiteral("SELECT COUNT(*) FROM tracks_fts WHERE tracks_fts MATCH 'Track*'")));
        QVERIFY(q.next());
        QCOMPARE(q.value(0).toInt(), stored.size());
        db.close();
    }
    QSqlDatabase::removeDatabase(kCheck);

    // The store opens it normally and goes on working.
    QVERIFY(MusicLibrary::initialize());
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Crash"));
    const int before = lib.trackCount();
    QCOMPARE(lib.addFiles(listing.mid(before, kBatchSize)), kBatchSize);
    QCOMPARE(lib.trackCount(), before + kBatchSize);
    QCOMPARE(scalar(QStringLiteral("PRAGMA integrity_check")).toString(), QStringLiteral("ok"));
    QVERIFY(run(QStringLiteral("INSERT INTO tracks_fts(tracks_fts) VALUES('integrity-check')")));
}

QTEST_GUILESS_MAIN(TestLibraryCrashSafety)
#include "tst_librarycrashsafety.moc"
