// The store's schema step: the SQL files it reads, and that running it on a store that is already
// set up (twice, or made by the previous release) changes nothing and loses no row. Runs on the
// embedded database and, with ONDARO_DATABASE_URL, on a server.

#include "asrunlog.h"
#include "libraryconnection.h"
#include "sqldialect.h"
#include "storeschema.h"
#include "testsupport.h"
#include "trackparams.h"

#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

using namespace testsupport;

namespace {

const QString kHandmade = QStringLiteral("tst_storeschema_handmade");
const QStringList kTables = {QStringLiteral("libraries"), QStringLiteral("tracks"),
                             QStringLiteral("track_params"), QStringLiteral("as_run"),
                             QStringLiteral("track_analysis")};

// Every row of every store table, each as one line, in a stable order.
QStringList dumpAllTables()
{
    QStringList lines;
    for (const QString& table : kTables) {
        QSqlQuery q(MusicLibrary::database());
        const QString order = table == QLatin1String("libraries")        ? QStringLiteral("name")
                              : table == QLatin1String("track_params")   ? QStringLiteral("filepath")
                              : table == QLatin1String("track_analysis") ? QStringLiteral("filepath")
                                                                         : QStringLiteral("id");
        const QString columns =
            table == QLatin1String("tracks") ? SqlDialect::current().trackColumns() : QStringLiteral("*");
        if (!q.exec(QStringLiteral("SELECT %1 FROM %2 ORDER BY %3").arg(columns, table, order)))
            return {QStringLiteral("<%1 unreadable>").arg(table)};
        while (q.next()) {
            QStringList values;
            for (int i = 0; i < q.record().count(); ++i)
                values << q.value(i).toString();
            lines << table + QLatin1Char(':') + values.join(QLatin1Char('|'));
        }
    }
    return lines;
}

// The schema objects as the engine describes them.
QStringList schemaCatalogue()
{
    QStringList objects;
    QSqlQuery q(MusicLibrary::database());
    const bool ok =
        SqlDialect::current().isServer()
            ? q.exec(QStringLiteral(
                  "SELECT 'column ' || table_name || '.' || column_name || ' ' || data_type || ' ' || "
                  "coalesce(column_default, '') FROM information_schema.columns WHERE table_schema = "
                  "current_schema() UNION ALL SELECT 'index ' || indexdef FROM pg_indexes WHERE schemaname = "
                  "current_schema() UNION ALL SELECT 'trigger ' || tgname FROM pg_trigger WHERE NOT "
                  "tgisinternal UNION ALL SELECT 'function ' || proname || ' ' || md5(prosrc) FROM pg_proc "
                  "WHERE "
                  "proname LIKE 'ondaro%' ORDER BY 1"))
            : q.exec(
                  QStringLiteral("SELECT type || ' ' || name || ' ' || coalesce(sql, '') FROM sqlite_master "
                                 "ORDER BY type, name"));
    if (!ok)
        return {QStringLiteral("<catalogue unreadable>")};
    while (q.next())
        objects << q.value(0).toString();
    return objects;
}

// Rows in every table, added through the store's own operations.
void fillEveryTable()
{
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Morning"));
    lib.addTrack(makeTrack(QStringLiteral("Kestrel"), QStringLiteral("Dawn"), QStringLiteral("/m/dawn.mp3"),
                           1999, 225000));
    lib.addTrack(makeTrack(QStringLiteral("Motörhead"), QStringLiteral("Ace"), QStringLiteral("/m/ace.mp3"),
                           1980, 169000));
    lib.addStream(QStringLiteral("Radio"), QStringLiteral("http://radio.example/live"));
    TrackParams params;
    params.rating = 4;
    params.level = 0.5;
    TrackParams::save(QStringLiteral("/m/dawn.mp3"), params);
    AsRunEntry entry;
    entry.startedAt = QDateTime(QDate(2024, 3, 5), QTime(7, 0));
    entry.filePath = QStringLiteral("/m/dawn.mp3");
    entry.artist = QStringLiteral("Kestrel");
    entry.title = QStringLiteral("Dawn");
    AsRunLog::recordStart(entry);
}

} // namespace

class TestStoreSchema : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void aSchemaTextSplitsIntoSectionsOfWholeStatements();
    void bothEnginesHaveEverySectionTheStepRuns();
    void theEmbeddedTablesAreTheDocumentedStatements();
    void anUnknownSectionIsAnErrorAndRunsNothing();
    void runningTheStepAgainChangesNeitherSchemaNorRows();
    void aDatabaseOfThePreviousReleaseKeepsEveryRow();
    void aServerWhoseVersionWasNotRecordedIsCompletedWithoutLosingRows();

private:
    QTemporaryDir home;
};

void TestStoreSchema::initTestCase()
{
    QVERIFY(home.isValid());
    useTemporaryHome(home.path());
}

void TestStoreSchema::init()
{
    QVERIFY(freshStore());
}

void TestStoreSchema::cleanupTestCase()
{
    closeStore();
}

void TestStoreSchema::aSchemaTextSplitsIntoSectionsOfWholeStatements()
{
    const auto sections = StoreSchema::parse(QStringLiteral("-- head comment\n"
                                                            "-- @first\n"
                                                            "CREATE TABLE a(x TEXT);\n"
                                                            "\n"
                                                            "-- a comment inside\n"
                                                            "CREATE TRIGGER t AFTER INSERT ON a BEGIN\n"
                                                            "    SELECT 1; END;\n"
                                                            "-- @second\n"
                                                            "   UPDATE a SET x=?   \n"
                                                            "\n\n"));
    QCOMPARE(sections.size(), 2);
    QCOMPARE(sections.at(0).first, QStringLiteral("first"));
    QCOMPARE(sections.at(0).second,
             (QStringList{QStringLiteral("CREATE TABLE a(x TEXT)"),
                          QStringLiteral("CREATE TRIGGER t AFTER INSERT ON a BEGIN SELECT 1; END")}));
    QCOMPARE(sections.at(1).first, QStringLiteral("second"));
    QCOMPARE(sections.at(1).second, QStringList{QStringLiteral("UPDATE a SET x=?")});
}

void TestStoreSchema::bothEnginesHaveEverySectionTheStepRuns()
{
    const QStringList common = {QStringLiteral("tables"), QStringLiteral("track-params"),
                                QStringLiteral("track-analysis"), QStringLiteral("as-run"),
                                QStringLiteral("version")};
    const QStringList embedded = StoreSchema::sections(SqlDialect::Engine::Embedded);
    const QStringList server = StoreSchema::sections(SqlDialect::Engine::Server);
    for (const QString& name : common) {
        QVERIFY2(embedded.contains(name), qPrintable(name));
        QVERIFY2(server.contains(name), qPrintable(name));
    }
    for (const QString& name :
         {QStringLiteral("journal"), QStringLiteral("track-columns"), QStringLiteral("add-duration-str"),
          QStringLiteral("add-play-counts"), QStringLiteral("add-filename"), QStringLiteral("fill-filenames"),
          QStringLiteral("read-version"), QStringLiteral("drop-old-index"), QStringLiteral("fts-index"),
          QStringLiteral("fts-triggers"), QStringLiteral("fts-rebuild")})
        QVERIFY2(embedded.contains(name), qPrintable(name));
    for (const QString& name :
         {QStringLiteral("lock"), QStringLiteral("unlock"), QStringLiteral("version-table"),
          QStringLiteral("search"), QStringLiteral("notify")})
        QVERIFY2(server.contains(name), qPrintable(name));
    QCOMPARE(StoreSchema::statements(SqlDialect::Engine::Embedded, QStringLiteral("version")),
             QStringList{QStringLiteral("PRAGMA user_version=%1").arg(StoreSchema::kEmbeddedVersion)});
    QCOMPARE(
        StoreSchema::statements(SqlDialect::Engine::Server, QStringLiteral("version")).last(),
        QStringLiteral("INSERT INTO ondaro_schema(version) VALUES(%1)").arg(StoreSchema::kServerVersion));
    // The server's statements are its own: none of the embedded words.
    for (const QString& name : server) {
        for (const QString& sql : StoreSchema::statements(SqlDialect::Engine::Server, name)) {
            QVERIFY2(!sql.contains(QStringLiteral("AUTOINCREMENT")), qPrintable(sql));
            QVERIFY2(!sql.contains(QStringLiteral("PRAGMA")), qPrintable(sql));
            QVERIFY2(!sql.contains(QStringLiteral("fts5")), qPrintable(sql));
        }
    }
}

void TestStoreSchema::theEmbeddedTablesAreTheDocumentedStatements()
{
    QCOMPARE(
        StoreSchema::statements(SqlDialect::Engine::Embedded, QStringLiteral("tables")),
        (QStringList{
            QStringLiteral("CREATE TABLE IF NOT EXISTS libraries(name TEXT PRIMARY KEY)"),
            QStringLiteral(
                "CREATE TABLE IF NOT EXISTS tracks( id INTEGER PRIMARY KEY AUTOINCREMENT, library TEXT NOT "
                "NULL, "
                "filepath TEXT, filename TEXT DEFAULT '', artist TEXT, title TEXT, album TEXT, genre TEXT, "
                "comment "
                "TEXT, year INTEGER DEFAULT 0, duration_ms INTEGER DEFAULT 0, duration_str TEXT DEFAULT '', "
                "play_count INTEGER DEFAULT 0, last_played TEXT DEFAULT '', date_added TEXT DEFAULT '', "
                "category "
                "TEXT DEFAULT 'Foreign', is_stream INTEGER DEFAULT 0, stream_limit_ms INTEGER DEFAULT 0)"),
            QStringLiteral("CREATE INDEX IF NOT EXISTS idx_tracks_lib ON tracks(library)"),
            QStringLiteral("CREATE INDEX IF NOT EXISTS idx_tracks_artist ON tracks(library, artist)"),
            QStringLiteral("CREATE INDEX IF NOT EXISTS idx_tracks_title ON tracks(library, title)")}));
    QCOMPARE(StoreSchema::statements(SqlDialect::Engine::Embedded, QStringLiteral("add-duration-str")).last(),
             QStringLiteral("UPDATE tracks SET duration_str = printf('%d:%02d', duration_ms/60000, "
                            "(duration_ms/1000)%60)"));
    QCOMPARE(StoreSchema::statements(SqlDialect::Engine::Embedded, QStringLiteral("fts-rebuild")),
             QStringList{QStringLiteral("INSERT INTO tracks_fts(tracks_fts) VALUES('rebuild')")});
}

void TestStoreSchema::anUnknownSectionIsAnErrorAndRunsNothing()
{
    QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(QStringLiteral("no section.*no-such-section")));
    QVERIFY(!StoreSchema::run(QStringLiteral("no-such-section")));
}

void TestStoreSchema::runningTheStepAgainChangesNeitherSchemaNorRows()
{
    fillEveryTable();
    const QStringList rows = dumpAllTables();
    const QStringList catalogue = schemaCatalogue();
    QCOMPARE(rows.filter(QStringLiteral("tracks:")).size(), 3);
    QCOMPARE(rows.filter(QStringLiteral("track_params:")).size(), 1);
    QCOMPARE(rows.filter(QStringLiteral("as_run:")).size(), 1);
    QVERIFY(StoreSchema::apply());
    QVERIFY(MusicLibrary::initialize());
    QCOMPARE(dumpAllTables(), rows);
    QCOMPARE(schemaCatalogue(), catalogue);
    QVERIFY(MusicLibrary::ftsAvailable());
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Morning"));
    QCOMPARE(titlesOf(lib.search(QStringLiteral("motor"))), QStringList{QStringLiteral("Ace")});
}

// The previous release set the embedded database up with these statements, one by one (the store's
// documented statements, the three other tables and version 3); rows were then added.
void TestStoreSchema::aDatabaseOfThePreviousReleaseKeepsEveryRow()
{
    if (onServer())
        QSKIP("The previous release's embedded statements; the server is covered by the other cases");
    closeStore();
    removeStoreFiles();
    const QString cols = QStringLiteral("artist,title,album,genre,comment,filename,year,duration_str");
    const QString newValues = QStringLiteral(
        "new.artist,new.title,new.album,new.genre,new.comment,new.filename,new.year,new.duration_str");
    const QString oldValues = QStringLiteral(
        "old.artist,old.title,old.album,old.genre,old.comment,old.filename,old.year,old.duration_str");
    const QStringList previous = {
        QStringLiteral("PRAGMA journal_mode=WAL"),
        QStringLiteral("CREATE TABLE IF NOT EXISTS libraries(name TEXT PRIMARY KEY)"),
        QStringLiteral(
            "CREATE TABLE IF NOT EXISTS tracks( id INTEGER PRIMARY KEY AUTOINCREMENT, library TEXT NOT NULL, "
            "filepath TEXT, filename TEXT DEFAULT '', artist TEXT, title TEXT, album TEXT, genre TEXT, "
            "comment "
            "TEXT, year INTEGER DEFAULT 0, duration_ms INTEGER DEFAULT 0, duration_str TEXT DEFAULT '', "
            "play_count INTEGER DEFAULT 0, last_played TEXT DEFAULT '', date_added TEXT DEFAULT '', category "
            "TEXT DEFAULT 'Foreign', is_stream INTEGER DEFAULT 0, stream_limit_ms INTEGER DEFAULT 0)"),
        QStringLiteral("CREATE INDEX IF NOT EXISTS idx_tracks_lib ON tracks(library)"),
        QStringLiteral("CREATE INDEX IF NOT EXISTS idx_tracks_artist ON tracks(library, artist)"),
        QStringLiteral("CREATE INDEX IF NOT EXISTS idx_tracks_title ON tracks(library, title)"),
        QStringLiteral(
            "CREATE VIRTUAL TABLE IF NOT EXISTS tracks_fts USING fts5( artist, title, album, genre, "
            "comment, filename, year, duration_str, content='tracks', content_rowid='id')"),
        QStringLiteral("CREATE TRIGGER IF NOT EXISTS tracks_ai AFTER INSERT ON tracks BEGIN INSERT INTO "
                       "tracks_fts(rowid,%1) VALUES(new.id,%2); END")
            .arg(cols, newValues),
        QStringLiteral("CREATE TRIGGER IF NOT EXISTS tracks_ad AFTER DELETE ON tracks BEGIN INSERT INTO "
                       "tracks_fts(tracks_fts,rowid,%1) VALUES('delete',old.id,%2); END")
            .arg(cols, oldValues),
        QStringLiteral("CREATE TRIGGER IF NOT EXISTS tracks_au AFTER UPDATE ON tracks BEGIN INSERT INTO "
                       "tracks_fts(tracks_fts,rowid,%1) VALUES('delete',old.id,%2); INSERT INTO "
                       "tracks_fts(rowid,%1) VALUES(new.id,%3); END")
            .arg(cols, oldValues, newValues),
        QStringLiteral("INSERT INTO tracks_fts(tracks_fts) VALUES('rebuild')"),
        QStringLiteral("PRAGMA user_version=3"),
        QStringLiteral("CREATE TABLE IF NOT EXISTS track_params( filepath TEXT PRIMARY KEY, params TEXT)"),
        QStringLiteral(
            "CREATE TABLE IF NOT EXISTS track_analysis( filepath TEXT PRIMARY KEY, file_size BIGINT NOT "
            "NULL, "
            "file_modified BIGINT NOT NULL, analysed_at TEXT, duration_ms BIGINT, integrated_lufs DOUBLE "
            "PRECISION, loudness_range_lu DOUBLE PRECISION, true_peak_dbtp DOUBLE PRECISION, cue_in_ms "
            "BIGINT, "
            "cue_out_ms BIGINT, mix_start_ms BIGINT, gain_db DOUBLE PRECISION, error TEXT)"),
        QStringLiteral(
            "CREATE TABLE IF NOT EXISTS as_run( id INTEGER PRIMARY KEY AUTOINCREMENT, started_at TEXT NOT "
            "NULL, "
            "ended_at TEXT DEFAULT '', played_ms INTEGER DEFAULT 0, filepath TEXT, artist TEXT, title TEXT, "
            "is_stream INTEGER DEFAULT 0, ended_by TEXT DEFAULT '')"),
        QStringLiteral("CREATE INDEX IF NOT EXISTS idx_as_run_started ON as_run(started_at)"),
        QStringLiteral("INSERT INTO libraries(name) VALUES('Morning'), ('Evening')"),
        QStringLiteral(
            "INSERT INTO tracks(library,filepath,filename,artist,title,album,genre,comment,year,"
            "duration_ms,duration_str,play_count,last_played,date_added,category,is_stream,"
            "stream_limit_ms) VALUES('Morning','/m/dawn.mp3','dawn.mp3','Kestrel','Dawn','First',"
            "'Folk','kept',1999,225000,'03:45',7,'2024-03-04T08:00:00','2023-01-01T00:00:00','Power',"
            "0,0), ('Evening','http://radio.example/live','','Online','Radio','','','',0,0,'',0,'',"
            "'2023-01-02T00:00:00','Foreign',1,3600000)"),
        QStringLiteral("INSERT INTO track_params(filepath,params) VALUES('/m/dawn.mp3','{\"rating\":4}')"),
        QStringLiteral(
            "INSERT INTO track_analysis VALUES('/m/dawn.mp3',1234,1700000000000,'2024-03-01T00:00:00',"
            "225000,-14.5,6.2,-1.1,120,224000,220000,-2.5,'')"),
        QStringLiteral(
            "INSERT INTO as_run(started_at,ended_at,played_ms,filepath,artist,title,is_stream,ended_by) "
            "VALUES('2024-03-05T07:00:00.000','2024-03-05T07:03:45.000',225000,'/m/dawn.mp3','Kestrel',"
            "'Dawn',0,'end')")};
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), kHandmade);
        db.setDatabaseName(databaseFile());
        QVERIFY(db.open());
        QSqlQuery q(db);
        for (const QString& sql : previous)
            QVERIFY2(q.exec(sql), qPrintable(sql));
        db.close();
    }
    QSqlDatabase::removeDatabase(kHandmade);

    // What the previous release left, read before this release's step touches the file.
    QVERIFY(MusicLibrary::database().isOpen());
    const QStringList rows = dumpAllTables();
    const QStringList catalogue = schemaCatalogue();
    QCOMPARE(rows.size(), 7);
    QVERIFY(MusicLibrary::initialize());
    QVERIFY(MusicLibrary::initialize());
    QCOMPARE(dumpAllTables(), rows);
    QCOMPARE(schemaCatalogue(), catalogue);
    QCOMPARE(scalar(QStringLiteral("PRAGMA user_version")).toInt(), StoreSchema::kEmbeddedVersion);
    QVERIFY(run(QStringLiteral("INSERT INTO tracks_fts(tracks_fts) VALUES('integrity-check')")));
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Morning"));
    QCOMPARE(titlesOf(lib.search(QStringLiteral("kestrel"))), QStringList{QStringLiteral("Dawn")});
    QCOMPARE(TrackParams::load(QStringLiteral("/m/dawn.mp3")).rating, 4);
    QCOMPARE(AsRunLog::entriesOn(QDate(2024, 3, 5)).size(), 1);
}

// A server whose set-up stopped before the version was recorded (the previous release records it
// last): the next step finishes it and keeps what is stored.
void TestStoreSchema::aServerWhoseVersionWasNotRecordedIsCompletedWithoutLosingRows()
{
    if (!onServer())
        QSKIP("The version of a server");
    fillEveryTable();
    const QStringList rows = dumpAllTables();
    const QStringList catalogue = schemaCatalogue();
    QCOMPARE(StoreSchema::serverVersion(MusicLibrary::database()), StoreSchema::kServerVersion);
    QVERIFY(run(QStringLiteral("DELETE FROM ondaro_schema")));
    QCOMPARE(StoreSchema::serverVersion(MusicLibrary::database()), 0);
    QVERIFY(MusicLibrary::initialize());
    QCOMPARE(StoreSchema::serverVersion(MusicLibrary::database()), StoreSchema::kServerVersion);
    QCOMPARE(dumpAllTables(), rows);
    QCOMPARE(schemaCatalogue(), catalogue);
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Morning"));
    QCOMPARE(titlesOf(lib.search(QStringLiteral("motor"))), QStringList{QStringLiteral("Ace")});
}

QTEST_GUILESS_MAIN(TestStoreSchema)
#include "tst_storeschema.moc"
