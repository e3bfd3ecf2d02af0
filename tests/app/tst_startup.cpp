// Start-up of the Library Manager: the real program, started twice on an empty configuration folder.

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const QString kProbe = QStringLiteral("startup_probe");

// Reads one value through a private connection of its own, never through the program's.
QVariant readValue(const QString& dbPath, const QString& sql)
{
    QVariant value;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), kProbe);
        db.setDatabaseName(dbPath);
        if (db.open()) {
            QSqlQuery q(db);
            if (q.exec(sql) && q.next())
                value = q.value(0);
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(kProbe);
    return value;
}

bool runStatements(const QString& dbPath, const QStringList& statements)
{
    bool ok = true;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), kProbe);
        db.setDatabaseName(dbPath);
        ok = db.open();
        for (const QString& sql : statements) {
            QSqlQuery q(db);
            ok = ok && q.exec(sql);
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(kProbe);
    return ok;
}

} // namespace

class TestStartup : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir config;
    QString dbPath;

    // Starts the program, waits until its window has listed the "Default" library (the window creates
    // it through the store), then ends it.
    bool startAndStop(QString* errors)
    {
        QProcess program;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        program.setProcessEnvironment(env);
        program.setProcessChannelMode(QProcess::MergedChannels);
        program.start(QStringLiteral(ONDARO_EXECUTABLE), {});
        if (!program.waitForStarted(30000))
            return false;
        bool ready = false;
        QDeadlineTimer deadline(60000);
        while (!deadline.hasExpired() && program.state() == QProcess::Running) {
            if (QFileInfo::exists(dbPath) &&
                readValue(dbPath, QStringLiteral("SELECT COUNT(*) FROM libraries WHERE name='Default'"))
                        .toInt() == 1) {
                ready = true;
                break;
            }
            QTest::qWait(100);
        }
        const bool stillRunning = program.state() == QProcess::Running;
        program.terminate();
        if (!program.waitForFinished(15000)) {
            program.kill();
            program.waitForFinished(15000);
        }
        *errors = QString::fromLocal8Bit(program.readAll());
        return ready && stillRunning;
    }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(config.isValid());
        // Organisation and application are both "Ondaro".
        dbPath = config.path() + QStringLiteral("/Ondaro/Ondaro/library.db");
    }

    void firstStartCreatesDatabaseAndDefaultLibrary()
    {
        QVERIFY(!QFileInfo::exists(config.path() + QStringLiteral("/Ondaro")));
        QString output;
        QVERIFY2(startAndStop(&output), qPrintable(output));
        QVERIFY(QFileInfo::exists(dbPath));
        QCOMPARE(readValue(dbPath, QStringLiteral("PRAGMA user_version")).toInt(), 3);
        QCOMPARE(readValue(dbPath, QStringLiteral("SELECT group_concat(name) FROM libraries")).toString(),
                 QStringLiteral("Default"));
        // The schema is complete: the full-text index and the track parameters table exist.
        QCOMPARE(readValue(dbPath, QStringLiteral("SELECT COUNT(*) FROM sqlite_master WHERE name IN "
                                                  "('tracks','libraries','tracks_fts','track_params')"))
                     .toInt(),
                 4);
    }

    void secondStartMigratesNothing()
    {
        QVERIFY(QFileInfo::exists(dbPath));
        // A row whose index entry is taken out by hand and whose date is old: a migration would rebuild
        // the index (finding the row again) or rewrite the date.
        QVERIFY(runStatements(
            dbPath,
            {QStringLiteral("INSERT INTO tracks(library,filepath,filename,artist,title,date_added) VALUES("
                            "'Default','/m/probe.mp3','probe.mp3','Zyxwv','Probe','2001-02-03T04:05:06')"),
             QStringLiteral(
                 "INSERT INTO tracks_fts(tracks_fts,rowid,artist,title,album,genre,comment,filename,"
                 "year,duration_str) SELECT 'delete',id,artist,title,album,genre,comment,filename,"
                 "year,duration_str FROM tracks WHERE filepath='/m/probe.mp3'")}));
        const QString findProbe =
            QStringLiteral("SELECT COUNT(*) FROM tracks_fts WHERE tracks_fts MATCH 'zyxwv*'");
        QCOMPARE(readValue(dbPath, findProbe).toInt(), 0);

        QString output;
        QVERIFY2(startAndStop(&output), qPrintable(output));
        QCOMPARE(readValue(dbPath, QStringLiteral("PRAGMA user_version")).toInt(), 3);
        QCOMPARE(readValue(dbPath, findProbe).toInt(), 0);
        QCOMPARE(
            readValue(dbPath, QStringLiteral("SELECT date_added FROM tracks WHERE filepath='/m/probe.mp3'"))
                .toString(),
            QStringLiteral("2001-02-03T04:05:06"));
        QCOMPARE(readValue(dbPath, QStringLiteral("SELECT COUNT(*) FROM libraries")).toInt(), 1);
    }
};

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
