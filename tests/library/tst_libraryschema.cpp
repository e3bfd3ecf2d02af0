// The library database: its location, the schema set-up on a fresh file and the in-place migrations of
// older databases built here by hand.

#include "testsupport.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

using namespace testsupport;

namespace {

const QString kHandmade = QStringLiteral("tst_schema_handmade");

// The tracks table as it was before duration_str, filename, play_count, last_played and date_added.
const char* const kOldestTracks =
    "CREATE TABLE tracks( id INTEGER PRIMARY KEY AUTOINCREMENT, library TEXT NOT NULL, filepath TEXT, "
    "artist TEXT, title TEXT, album TEXT, genre TEXT, comment TEXT, year INTEGER DEFAULT 0, duration_ms "
    "INTEGER DEFAULT 0, category TEXT DEFAULT 'Foreign', is_stream INTEGER DEFAULT 0, stream_limit_ms "
    "INTEGER DEFAULT 0)";

QStringList columnsOf(const QString& table)
{
    QStringList names;
    QSqlQuery q(MusicLibrary::database());
    q.exec(QStringLiteral("PRAGMA table_info(%1)").arg(table));
    while (q.next())
        names << q.value(1).toString();
    return names;
}

QStringList schemaObjects()
{
    QStringList objects;
    QSqlQuery q(MusicLibrary::database());
    q.exec(QStringLiteral("SELECT type, name, sql FROM sqlite_master ORDER BY type, name"));
    while (q.next())
        objects << q.value(0).toString() + QLatin1Char(' ') + q.value(1).toString() + QLatin1Char(' ') +
                       q.value(2).toString();
    return objects;
}

int userVersion()
{
    return scalar(QStringLiteral("PRAGMA user_version")).toInt();
}

bool ftsIntegrityHolds()
{
    return run(QStringLiteral("INSERT INTO tracks_fts(tracks_fts) VALUES('integrity-check')"));
}

} // namespace

class TestLibrarySchema : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void databaseFileLivesInTheConfigurationLocationUnderItsConnectionName();
    void databaseFolderIsDotOndaroUnderHomeWhenTheConfigurationLocationIsEmpty();
    void freshFileGetsTablesIndexesFullTextIndexTriggersAndVersionThree();
    void freshFileRunsInWalModeAndHasTheTrackParameterTable();
    void everySchemaObjectIsCreatedFromItsExactStatement();
    void insertsUpdatesAndDeletesKeepTheFullTextIndexInStep();
    void databaseWithoutDurationStrGetsUnpaddedTextsAndBecomesFindable();
    void databaseWithoutFilenameGetsTheLastPathComponentOfEveryRow();
    void databaseWithoutPlayCountGetsTheThreeColumnsAndTheMigrationTimeAsDateAdded();
    void databaseWithPlayCountButWithoutLastPlayedIsNotRepaired();
    void aColumnMigrationThatFailsPartWayIsRolledBackAndRunsAgainAtTheNextStart();
    void versionTwoDatabaseWithAnOlderIndexGetsItRebuiltWithEveryColumn();
    void versionThreeDatabaseWhoseIndexWasDroppedGetsAnEmptyIndexWithoutRebuild();
    void oldestDatabaseGetsEveryColumnMigrationInOneStart();
    void aFailedFullTextIndexStillMovesAnOldDatabaseToVersionThreeAndSearchesUseLike();
    void aFailedFullTextIndexLeavesAVersionThreeDatabaseAsItIs();
    void fullTextIndexThatAppearsOnALaterStartIsNotRebuiltForOlderRows();
    void runningTheSetUpTwiceChangesNothing();
    void databaseThatCannotBeOpenedMakesInitializationFailAndEveryOperationNeutral();

private:
    void buildDatabase(const QStringList& statements);
    void changeDatabase(const QStringList& statements);

    QTemporaryDir home;
};

void TestLibrarySchema::initTestCase()
{
    QVERIFY(home.isValid());
    useTemporaryHome(home.path());
}

void TestLibrarySchema::init()
{
    discardStore();
}

void TestLibrarySchema::cleanupTestCase()
{
    closeStore();
}

// Writes an older database at the store's location through a private connection.
void TestLibrarySchema::buildDatabase(const QStringList& statements)
{
    closeStore();
    removeStoreFiles();
    QVERIFY(QDir().mkpath(configFolder()));
    changeDatabase(statements);
}

// Runs statements on the store's file through a private connection, with the store closed.
void TestLibrarySchema::changeDatabase(const QStringList& statements)
{
    closeStore();
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), kHandmade);
        db.setDatabaseName(databaseFile());
        QVERIFY(db.open());
        QSqlQuery q(db);
        for (const QString& sql : statements)
            QVERIFY2(q.exec(sql), qPrintable(sql));
        db.close();
    }
    QSqlDatabase::removeDatabase(kHandmade);
}

void TestLibrarySchema::databaseFileLivesInTheConfigurationLocationUnderItsConnectionName()
{
    // Missing folders on the way are created.
    QVERIFY(QDir(configFolder()).removeRecursively());
    QVERIFY(!QDir(configFolder()).exists());
    QVERIFY(MusicLibrary::initialize());
    QVERIFY(QSqlDatabase::contains(QStringLiteral("od_library")));
    const QSqlDatabase db = MusicLibrary::database();
    QCOMPARE(db.connectionName(), QStringLiteral("od_library"));
    QCOMPARE(db.driverName(), QStringLiteral("QSQLITE"));
    QCOMPARE(db.databaseName(), configFolder() + QStringLiteral("/library.db"));
    QVERIFY(QFile::exists(databaseFile()));
    QVERIFY(databaseFile().startsWith(home.path()));
}

void TestLibrarySchema::databaseFolderIsDotOndaroUnderHomeWhenTheConfigurationLocationIsEmpty()
{
    QCOMPARE(MusicLibrary::databaseFolder(QString()), QDir::homePath() + QStringLiteral("/.ondaro"));
    QCOMPARE(MusicLibrary::databaseFolder(QStringLiteral("/some/config")), QStringLiteral("/some/config"));
    QCOMPARE(MusicLibrary::databaseFolder(configFolder()), configFolder());
}

void TestLibrarySchema::freshFileGetsTablesIndexesFullTextIndexTriggersAndVersionThree()
{
    QVERIFY(!QFile::exists(databaseFile()));
    QVERIFY(MusicLibrary::initialize());
    QVERIFY(MusicLibrary::ftsAvailable());
    QCOMPARE(userVersion(), 3);
    const QString objects = schemaObjects().join(QLatin1Char('\n'));
    for (const char* name : {"table libraries", "table tracks", "index idx_tracks_lib",
                             "index idx_tracks_artist", "index idx_tracks_title", "table tracks_fts",
                             "trigger tracks_ai", "trigger tracks_ad", "trigger tracks_au"}) {
        QVERIFY2(objects.contains(QLatin1String(name) + QLatin1Char(' ')), name);
    }
    QCOMPARE(columnsOf(QStringLiteral("tracks")),
             QStringList({"id", "library", "filepath", "filename", "artist", "title", "album", "genre",
                          "comment", "year", "duration_ms", "duration_str", "play_count", "last_played",
                          "date_added", "category", "is_stream", "stream_limit_ms"}));
    QCOMPARE(
        columnsOf(QStringLiteral("tracks_fts")),
        QStringList({"artist", "title", "album", "genre", "comment", "filename", "year", "duration_str"}));
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM tracks")).toInt(), 0);
    QVERIFY(ftsIntegrityHolds());
}

void TestLibrarySchema::freshFileRunsInWalModeAndHasTheTrackParameterTable()
{
    QVERIFY(MusicLibrary::initialize());
    QCOMPARE(scalar(QStringLiteral("PRAGMA journal_mode")).toString(), QStringLiteral("wal"));
    QCOMPARE(columnsOf(QStringLiteral("track_params")), QStringList({"filepath", "params"}));
}

void TestLibrarySchema::insertsUpdatesAndDeletesKeepTheFullTextIndexInStep()
{
    QVERIFY(MusicLibrary::initialize());
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Main"));
    lib.addTrack(
        makeTrack(QStringLiteral("Zebra"), QStringLiteral("Crossing"), QStringLiteral("/music/x1.mp3")));
    QCOMPARE(lib.search(QStringLiteral("zebra")).size(), 1);
    QVERIFY(run(QStringLiteral("UPDATE tracks SET artist='Yak'")));
    QCOMPARE(lib.search(QStringLiteral("zebra")).size(), 0);
    QCOMPARE(lib.search(QStringLiteral("yak")).size(), 1);
    QVERIFY(run(QStringLiteral("DELETE FROM tracks")));
    QCOMPARE(lib.search(QStringLiteral("yak")).size(), 0);
    QVERIFY(ftsIntegrityHolds());
}

void TestLibrarySchema::databaseWithoutDurationStrGetsUnpaddedTextsAndBecomesFindable()
{
    buildDatabase({QLatin1String(kOldestTracks),
                   QStringLiteral("CREATE TABLE libraries(name TEXT PRIMARY KEY)"),
                   QStringLiteral("INSERT INTO libraries VALUES('Old')"),
                   QStringLiteral("INSERT INTO tracks(library,filepath,artist,title,duration_ms) "
                                  "VALUES('Old','/m/long.mp3','Walrus','Long One',225000)"),
                   QStringLiteral("INSERT INTO tracks(library,filepath,artist,title,duration_ms) "
                                  "VALUES('Old','/m/none.mp3','Otter','Unknown Length',0)"),
                   QStringLiteral("INSERT INTO tracks(library,filepath,artist,title,duration_ms) "
                                  "VALUES('Old','/m/epic.mp3','Heron','Epic',4000000)")});
    QVERIFY(MusicLibrary::initialize());
    QCOMPARE(
        scalar(QStringLiteral("SELECT duration_str FROM tracks WHERE filepath='/m/long.mp3'")).toString(),
        QStringLiteral("3:45"));
    QCOMPARE(
        scalar(QStringLiteral("SELECT duration_str FROM tracks WHERE filepath='/m/none.mp3'")).toString(),
        QStringLiteral("0:00"));
    QCOMPARE(
        scalar(QStringLiteral("SELECT duration_str FROM tracks WHERE filepath='/m/epic.mp3'")).toString(),
        QStringLiteral("66:40"));
    QCOMPARE(userVersion(), 3);

    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Old"));
    QCOMPARE(titlesOf(lib.search(QStringLiteral("walrus"))), QStringList{QStringLiteral("Long One")});
    MusicLibrary::Query byDuration;
    byDuration.duration = QStringLiteral("3:45");
    QCOMPARE(titlesOf(lib.query(byDuration)), QStringList{QStringLiteral("Long One")});
    QVERIFY(ftsIntegrityHolds());
}

void TestLibrarySchema::databaseWithoutFilenameGetsTheLastPathComponentOfEveryRow()
{
    buildDatabase(
        {QLatin1String(kOldestTracks),
         QStringLiteral("ALTER TABLE tracks ADD COLUMN duration_str TEXT DEFAULT ''"),
         QStringLiteral(
             "INSERT INTO tracks(library,filepath,title) VALUES('L','/music/a b/Song One.mp3','1')"),
         QStringLiteral("INSERT INTO tracks(library,filepath,title,is_stream) "
                        "VALUES('L','http://radio.example/live/stream.ogg','2',1)"),
         QStringLiteral("INSERT INTO tracks(library,filepath,title,is_stream) "
                        "VALUES('L','http://radio.example/',"
                        "'3',1)"),
         QStringLiteral("INSERT INTO tracks(library,filepath,title) VALUES('L',NULL,'4')")});
    QVERIFY(MusicLibrary::initialize());
    QVERIFY(columnsOf(QStringLiteral("tracks")).contains(QStringLiteral("filename")));
    auto filenameOf = [](const char* title) {
        return scalar(QStringLiteral("SELECT filename FROM tracks WHERE title=?"),
                      {QString::fromLatin1(title)})
            .toString();
    };
    QCOMPARE(filenameOf("1"), QStringLiteral("Song One.mp3"));
    QCOMPARE(filenameOf("2"), QStringLiteral("stream.ogg"));
    QCOMPARE(filenameOf("3"), QString());
    QCOMPARE(filenameOf("4"), QString());

    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("L"));
    MusicLibrary::Query byName;
    byName.filename = QStringLiteral("Song One");
    QCOMPARE(titlesOf(lib.query(byName)), QStringList{QStringLiteral("1")});
}

void TestLibrarySchema::databaseWithoutPlayCountGetsTheThreeColumnsAndTheMigrationTimeAsDateAdded()
{
    buildDatabase({QLatin1String(kOldestTracks),
                   QStringLiteral("ALTER TABLE tracks ADD COLUMN duration_str TEXT DEFAULT ''"),
                   QStringLiteral("ALTER TABLE tracks ADD COLUMN filename TEXT DEFAULT ''"),
                   QStringLiteral("INSERT INTO tracks(library,filepath,title) VALUES('L','/a.mp3','A')"),
                   QStringLiteral("INSERT INTO tracks(library,filepath,title) VALUES('L','/b.mp3','B')")});
    const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
    QVERIFY(MusicLibrary::initialize());
    const QDateTime after = QDateTime::currentDateTime().addSecs(1);
    const QStringList columns = columnsOf(QStringLiteral("tracks"));
    for (const char* c : {"play_count", "last_played", "date_added"})
        QVERIFY2(columns.contains(QLatin1String(c)), c);

    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("L"));
    const QList<Track> tracks = lib.search(QString());
    QCOMPARE(tracks.size(), 2);
    for (const Track& t : tracks) {
        QCOMPARE(t.playCount, 0);
        QVERIFY(!t.lastPlayed.isValid());
        QVERIFY(t.dateAdded.isValid());
        QVERIFY(t.dateAdded >= before && t.dateAdded <= after);
    }
}

void TestLibrarySchema::databaseWithPlayCountButWithoutLastPlayedIsNotRepaired()
{
    // The presence of play_count alone decides the step.
    buildDatabase({QLatin1String(kOldestTracks),
                   QStringLiteral("ALTER TABLE tracks ADD COLUMN duration_str TEXT DEFAULT ''"),
                   QStringLiteral("ALTER TABLE tracks ADD COLUMN filename TEXT DEFAULT ''"),
                   QStringLiteral("ALTER TABLE tracks ADD COLUMN play_count INTEGER DEFAULT 0")});
    QVERIFY(MusicLibrary::initialize());
    const QStringList columns = columnsOf(QStringLiteral("tracks"));
    QVERIFY(columns.contains(QStringLiteral("play_count")));
    QVERIFY(!columns.contains(QStringLiteral("last_played")));
    QVERIFY(!columns.contains(QStringLiteral("date_added")));
    QCOMPARE(userVersion(), 3);
}

void TestLibrarySchema::aColumnMigrationThatFailsPartWayIsRolledBackAndRunsAgainAtTheNextStart()
{
    const QString refuse =
        QStringLiteral("CREATE TRIGGER refuse_boom BEFORE UPDATE ON tracks WHEN new.filepath "
                       "LIKE '%boom%' BEGIN SELECT RAISE(ABORT, 'refused by the test'); END");
    buildDatabase(
        {QLatin1String(kOldestTracks),
         QStringLiteral("ALTER TABLE tracks ADD COLUMN duration_str TEXT DEFAULT ''"),
         QStringLiteral("ALTER TABLE tracks ADD COLUMN play_count INTEGER DEFAULT 0"),
         QStringLiteral("ALTER TABLE tracks ADD COLUMN last_played TEXT DEFAULT ''"),
         QStringLiteral("ALTER TABLE tracks ADD COLUMN date_added TEXT DEFAULT ''"),
         QStringLiteral("INSERT INTO tracks(library,filepath,title) VALUES('L','/m/Song One.mp3','1')"),
         QStringLiteral("INSERT INTO tracks(library,filepath,title) VALUES('L','/m/boom.mp3','2')"),
         QStringLiteral("INSERT INTO tracks(library,filepath,title) VALUES('L','/m/Song Three.mp3','3')"),
         QStringLiteral("PRAGMA user_version=2"), refuse});
    QVERIFY(MusicLibrary::initialize());
    // The filename step failed on its second row: no column of half-filled names, and the version
    // stays, so that the next start runs the step and the index rebuild again.
    QVERIFY(!columnsOf(QStringLiteral("tracks")).contains(QStringLiteral("filename")));
    QCOMPARE(userVersion(), 2);
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM tracks")).toInt(), 3);

    changeDatabase({QStringLiteral("DROP TRIGGER refuse_boom")});
    QVERIFY(MusicLibrary::initialize());
    QCOMPARE(userVersion(), 3);
    QCOMPARE(scalar(QStringLiteral("SELECT filename FROM tracks WHERE title='3'")).toString(),
             QStringLiteral("Song Three.mp3"));
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("L"));
    MusicLibrary::Query byName;
    byName.filename = QStringLiteral("Song");
    QCOMPARE(titlesOf(lib.query(byName)), (QStringList{QStringLiteral("1"), QStringLiteral("3")}));
    QVERIFY(ftsIntegrityHolds());
}

void TestLibrarySchema::versionTwoDatabaseWithAnOlderIndexGetsItRebuiltWithEveryColumn()
{
    QVERIFY(MusicLibrary::initialize());
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("V2"));
    lib.addTrack(makeTrack(QStringLiteral("Pelican"), QStringLiteral("Brief"), QString(), 1984));

    // Turn it into a version 2 database whose index knew only artist and title.
    changeDatabase(
        {QStringLiteral("DROP TRIGGER tracks_ai"), QStringLiteral("DROP TRIGGER tracks_ad"),
         QStringLiteral("DROP TRIGGER tracks_au"), QStringLiteral("DROP TABLE tracks_fts"),
         QStringLiteral("CREATE VIRTUAL TABLE tracks_fts USING fts5(artist, title, content='tracks', "
                        "content_rowid='id')"),
         QStringLiteral("CREATE TRIGGER tracks_ai AFTER INSERT ON tracks BEGIN INSERT INTO "
                        "tracks_fts(rowid,artist,title) VALUES(new.id,new.artist,new.title); END"),
         QStringLiteral("INSERT INTO tracks_fts(tracks_fts) VALUES('rebuild')"),
         QStringLiteral("PRAGMA user_version=2")});

    QVERIFY(MusicLibrary::initialize());
    QCOMPARE(userVersion(), 3);
    QCOMPARE(columnsOf(QStringLiteral("tracks_fts")).size(), 8);
    MusicLibrary::Query byYear;
    byYear.year = QStringLiteral("1984");
    QCOMPARE(titlesOf(lib.query(byYear)), QStringList{QStringLiteral("Brief")});
    QCOMPARE(lib.search(QStringLiteral("pelican")).size(), 1);
    QVERIFY(ftsIntegrityHolds());
}

void TestLibrarySchema::versionThreeDatabaseWhoseIndexWasDroppedGetsAnEmptyIndexWithoutRebuild()
{
    QVERIFY(MusicLibrary::initialize());
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("V3"));
    lib.addTrack(makeTrack(QStringLiteral("Albatross"), QStringLiteral("Before")));
    QVERIFY(run(QStringLiteral("DROP TABLE tracks_fts")));
    closeStore();

    QVERIFY(MusicLibrary::initialize());
    QCOMPARE(userVersion(), 3);
    QVERIFY(schemaObjects().join(QLatin1Char('\n')).contains(QStringLiteral("table tracks_fts ")));
    // Not rebuilt: the old row is in the table but not in the index.
    QCOMPARE(lib.trackCount(), 1);
    QCOMPARE(lib.search(QStringLiteral("albatross")).size(), 0);
    // The triggers are there again, so new rows are indexed.
    lib.addTrack(makeTrack(QStringLiteral("Albatross"), QStringLiteral("After")));
    QCOMPARE(titlesOf(lib.search(QStringLiteral("albatross"))), QStringList{QStringLiteral("After")});
}

void TestLibrarySchema::everySchemaObjectIsCreatedFromItsExactStatement()
{
    QVERIFY(MusicLibrary::initialize());
    // SQLite keeps each CREATE text as it was run, minus "IF NOT EXISTS".
    const QString columns = QStringLiteral("artist,title,album,genre,comment,filename,year,duration_str");
    const QString newValues = QStringLiteral(
        "new.artist,new.title,new.album,new.genre,new.comment,new.filename,new.year,new.duration_str");
    const QString oldValues = QStringLiteral(
        "old.artist,old.title,old.album,old.genre,old.comment,old.filename,old.year,old.duration_str");
    const QList<QPair<QString, QString>> expected = {
        {QStringLiteral("libraries"),
         QStringLiteral("CREATE TABLE IF NOT EXISTS libraries(name TEXT PRIMARY KEY)")},
        {QStringLiteral("tracks"),
         QStringLiteral(
             "CREATE TABLE IF NOT EXISTS tracks( id INTEGER PRIMARY KEY AUTOINCREMENT, library TEXT NOT "
             "NULL, filepath TEXT, filename TEXT DEFAULT '', artist TEXT, title TEXT, album TEXT, genre "
             "TEXT, comment TEXT, year INTEGER DEFAULT 0, duration_ms INTEGER DEFAULT 0, duration_str "
             "TEXT DEFAULT '', play_count INTEGER DEFAULT 0, last_played TEXT DEFAULT '', date_added "
             "TEXT DEFAULT '', category TEXT DEFAULT 'Foreign', is_stream INTEGER DEFAULT 0, "
             "stream_limit_ms INTEGER DEFAULT 0)")},
        {QStringLiteral("idx_tracks_lib"),
         QStringLiteral("CREATE INDEX IF NOT EXISTS idx_tracks_lib ON tracks(library)")},
        {QStringLiteral("idx_tracks_artist"),
         QStringLiteral("CREATE INDEX IF NOT EXISTS idx_tracks_artist ON tracks(library, artist)")},
        {QStringLiteral("idx_tracks_title"),
         QStringLiteral("CREATE INDEX IF NOT EXISTS idx_tracks_title ON tracks(library, title)")},
        {QStringLiteral("tracks_fts"),
         QStringLiteral(
             "CREATE VIRTUAL TABLE IF NOT EXISTS tracks_fts USING fts5( artist, title, album, genre, "
             "comment, filename, year, duration_str, content='tracks', content_rowid='id')")},
        {QStringLiteral("tracks_ai"),
         QStringLiteral("CREATE TRIGGER IF NOT EXISTS tracks_ai AFTER INSERT ON tracks BEGIN INSERT INTO "
                        "tracks_fts(rowid,%1) VALUES(new.id,%2); END")
             .arg(columns, newValues)},
        {QStringLiteral("tracks_ad"),
         QStringLiteral("CREATE TRIGGER IF NOT EXISTS tracks_ad AFTER DELETE ON tracks BEGIN INSERT INTO "
                        "tracks_fts(tracks_fts,rowid,%1) VALUES('delete',old.id,%2); END")
             .arg(columns, oldValues)},
        {QStringLiteral("tracks_au"),
         QStringLiteral("CREATE TRIGGER IF NOT EXISTS tracks_au AFTER UPDATE ON tracks BEGIN INSERT INTO "
                        "tracks_fts(tracks_fts,rowid,%1) VALUES('delete',old.id,%2); INSERT INTO "
                        "tracks_fts(rowid,%1) VALUES(new.id,%3); END")
             .arg(columns, oldValues, newValues)},
        {QStringLiteral("track_params"),
         QStringLiteral("CREATE TABLE IF NOT EXISTS track_params( filepath TEXT PRIMARY KEY, params TEXT)")},
    };
    for (const auto& [name, statement] : expected) {
        const QString stored =
            scalar(QStringLiteral("SELECT sql FROM sqlite_master WHERE name=?"), {name}).toString();
        QCOMPARE(stored, QString(statement).remove(QStringLiteral("IF NOT EXISTS ")));
    }
}

void TestLibrarySchema::oldestDatabaseGetsEveryColumnMigrationInOneStart()
{
    buildDatabase({QLatin1String(kOldestTracks),
                   QStringLiteral("CREATE TABLE libraries(name TEXT PRIMARY KEY)"),
                   QStringLiteral("INSERT INTO libraries VALUES('Old')"),
                   QStringLiteral("INSERT INTO tracks(library,filepath,artist,title,duration_ms) "
                                  "VALUES('Old','/m/Gannet - Dive.mp3','Gannet','Dive',225000)")});
    QVERIFY(MusicLibrary::initialize());
    QCOMPARE(columnsOf(QStringLiteral("tracks")),
             QStringList({"id", "library", "filepath", "artist", "title", "album", "genre", "comment", "year",
                          "duration_ms", "category", "is_stream", "stream_limit_ms", "duration_str",
                          "play_count", "last_played", "date_added", "filename"}));
    QCOMPARE(scalar(QStringLiteral("SELECT duration_str FROM tracks")).toString(), QStringLiteral("3:45"));
    QCOMPARE(scalar(QStringLiteral("SELECT filename FROM tracks")).toString(),
             QStringLiteral("Gannet - Dive.mp3"));
    QVERIFY(!scalar(QStringLiteral("SELECT date_added FROM tracks")).toString().isEmpty());
    QCOMPARE(userVersion(), 3);

    // The rebuilt index holds every migrated column.
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Old"));
    MusicLibrary::Query q;
    q.filename = QStringLiteral("Dive.mp3");
    q.duration = QStringLiteral("3:45");
    QCOMPARE(titlesOf(lib.query(q)), QStringList{QStringLiteral("Dive")});
    QVERIFY(ftsIntegrityHolds());
}

// An index named tracks_fts keeps CREATE VIRTUAL TABLE from succeeding, as an SQLite without FTS5 would.
void TestLibrarySchema::aFailedFullTextIndexStillMovesAnOldDatabaseToVersionThreeAndSearchesUseLike()
{
    buildDatabase({QLatin1String(kOldestTracks), QStringLiteral("CREATE INDEX tracks_fts ON tracks(title)"),
                   QStringLiteral("INSERT INTO tracks(library,filepath,artist,title) "
                                  "VALUES('L','/m/a.mp3','Heartbeat','Pulse')"),
                   QStringLiteral("PRAGMA user_version=2")});
    QVERIFY(MusicLibrary::initialize());
    QVERIFY(!MusicLibrary::ftsAvailable());
    QCOMPARE(userVersion(), 3);
    const QString objects = schemaObjects().join(QLatin1Char('\n'));
    QVERIFY(!objects.contains(QStringLiteral("trigger tracks_a")));
    QVERIFY(!objects.contains(QStringLiteral("table tracks_fts ")));
    // The column migrations ran all the same.
    QCOMPARE(scalar(QStringLiteral("SELECT duration_str FROM tracks")).toString(), QStringLiteral("0:00"));
    QCOMPARE(scalar(QStringLiteral("SELECT filename FROM tracks")).toString(), QStringLiteral("a.mp3"));

    // Searches take their LIKE forms: "beat" is found inside "Heartbeat".
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("L"));
    QCOMPARE(titlesOf(lib.search(QStringLiteral("beat"))), QStringList{QStringLiteral("Pulse")});
    MusicLibrary::Query q;
    q.artist = QStringLiteral("art");
    QCOMPARE(titlesOf(lib.query(q)), QStringList{QStringLiteral("Pulse")});
}

void TestLibrarySchema::aFailedFullTextIndexLeavesAVersionThreeDatabaseAsItIs()
{
    QVERIFY(MusicLibrary::initialize());
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("L"));
    lib.addTrack(makeTrack(QStringLiteral("Heartbeat"), QStringLiteral("Pulse")));
    changeDatabase({QStringLiteral("DROP TRIGGER tracks_ai"), QStringLiteral("DROP TRIGGER tracks_ad"),
                    QStringLiteral("DROP TRIGGER tracks_au"), QStringLiteral("DROP TABLE tracks_fts"),
                    QStringLiteral("CREATE INDEX tracks_fts ON tracks(title)")});
    QVERIFY(MusicLibrary::initialize());
    QVERIFY(!MusicLibrary::ftsAvailable());
    QCOMPARE(userVersion(), 3);
    QVERIFY(!schemaObjects().join(QLatin1Char('\n')).contains(QStringLiteral("trigger tracks_a")));
    QCOMPARE(titlesOf(lib.search(QStringLiteral("beat"))), QStringList{QStringLiteral("Pulse")});
}

void TestLibrarySchema::fullTextIndexThatAppearsOnALaterStartIsNotRebuiltForOlderRows()
{
    buildDatabase({QLatin1String(kOldestTracks), QStringLiteral("CREATE INDEX tracks_fts ON tracks(title)"),
                   QStringLiteral("INSERT INTO tracks(library,filepath,artist,title) "
                                  "VALUES('L','/m/a.mp3','Puffin','Before')")});
    QVERIFY(MusicLibrary::initialize());
    QVERIFY(!MusicLibrary::ftsAvailable());
    QCOMPARE(userVersion(), 3);

    // Full-text search becomes possible on the next start: an empty index, triggers, no 'rebuild'.
    changeDatabase({QStringLiteral("DROP INDEX tracks_fts")});
    QVERIFY(MusicLibrary::initialize());
    QVERIFY(MusicLibrary::ftsAvailable());
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("L"));
    QVERIFY(lib.search(QStringLiteral("puffin")).isEmpty());
    lib.addTrack(makeTrack(QStringLiteral("Puffin"), QStringLiteral("After")));
    QCOMPARE(titlesOf(lib.search(QStringLiteral("puffin"))), QStringList{QStringLiteral("After")});
    QCOMPARE(lib.trackCount(), 2);
}

void TestLibrarySchema::runningTheSetUpTwiceChangesNothing()
{
    buildDatabase({QLatin1String(kOldestTracks),
                   QStringLiteral("INSERT INTO tracks(library,filepath,artist,title,duration_ms) "
                                  "VALUES('L','/m/x.mp3','Kestrel','Old',225000)")});
    QVERIFY(MusicLibrary::initialize());
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("L"));
    lib.addTrack(makeTrack(QStringLiteral("Kestrel"), QStringLiteral("New"), QStringLiteral("/m/y.mp3"), 2000,
                           225000));
    const QStringList schema = schemaObjects();
    const QStringList rows = dumpTracks();
    const QString padded =
        scalar(QStringLiteral("SELECT duration_str FROM tracks WHERE filepath='/m/y.mp3'")).toString();
    QCOMPARE(padded, QStringLiteral("03:45"));

    MusicLibrary::ensureSchema();
    MusicLibrary::ensureSchema();
    QVERIFY(MusicLibrary::initialize());
    QCOMPARE(schemaObjects(), schema);
    QCOMPARE(dumpTracks(), rows);
    QCOMPARE(userVersion(), 3);
    QCOMPARE(lib.search(QStringLiteral("kestrel")).size(), 2);
    QVERIFY(ftsIntegrityHolds());
}

void TestLibrarySchema::databaseThatCannotBeOpenedMakesInitializationFailAndEveryOperationNeutral()
{
    // A plain file where the configuration folder should be: the database cannot be created.
    QDir(configFolder()).removeRecursively();
    QFile blocker(configFolder());
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();

    QVERIFY(!MusicLibrary::initialize());
    QVERIFY(!MusicLibrary::database().isOpen());
    QVERIFY(!MusicLibrary::createLibrary(QStringLiteral("Any")));
    QVERIFY(MusicLibrary::libraries().isEmpty());
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Any"));
    lib.addTrack(makeTrack(QStringLiteral("A"), QStringLiteral("B")));
    QCOMPARE(lib.trackCount(), 0);
    QCOMPARE(lib.totalDurationMs(), qint64(0));
    QVERIFY(lib.search(QString()).isEmpty());
    QVERIFY(lib.search(QStringLiteral("a")).isEmpty());
    QCOMPARE(lib.updateDuration(QStringLiteral("/x.mp3"), 5), 0);
    QVERIFY(lib.filesWithoutDuration().isEmpty());

    closeStore();
    QVERIFY(QFile::remove(configFolder()));
}

QTEST_GUILESS_MAIN(TestLibrarySchema)
#include "tst_libraryschema.moc"
