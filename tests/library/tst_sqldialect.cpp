// The statements that differ between the embedded database and a server, each run on a real store:
// an SQLite file here, and with ONDARO_DATABASE_URL the test PostgreSQL server. The embedded forms
// are the store's documented statements, character for character.

#include "libraryconnection.h"
#include "sqldialect.h"
#include "storequery.h"
#include "testsupport.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace testsupport;

namespace {

using Statement = SqlDialect::Statement;

// Inserts one track row through the dialect's insert; returns whether it was stored.
bool insertTrack(const SqlDialect& dialect, const QString& library, const QString& path,
                 const QString& artist, const QString& title, qint64 durationMs)
{
    StoreQuery q("Testing an insert");
    if (!q.prepare(dialect.insertTracks(1)))
        return false;
    q.bind(QVariantList{library, path, path.section(QLatin1Char('/'), -1), artist, title, QString(),
                        QString(), QString(), 0, durationMs, QString(), QStringLiteral("Foreign"), 0, 0,
                        QString()});
    return q.exec();
}

QStringList column(const QString& sql, const QVariantList& values, int field = 0)
{
    QStringList out;
    StoreQuery q("Testing a listing");
    if (!q.run(sql, values))
        return {QStringLiteral("<failed>")};
    while (q.next())
        out << q.value(field).toString();
    return out;
}

} // namespace

class TestSqlDialect : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void everyStatementHasAFormForBothEngines();
    void embeddedFormsAreTheDocumentedStatements();
    void serverFormsNeverUseTheEmbeddedWords();
    void theStoresEngineIsTheConnectionsEngine();
    void insertingALibraryTwiceKeepsOneRowAndIsNoError();
    void librariesAreListedIgnoringCase();
    void listingsOrderByArtistThenTitleIgnoringCase();
    void likeFormsIgnoreCaseAndLookInTheirColumns();
    void fullTextListingFindsPrefixesAndRefusesWhatTheIndexCannotRead();
    void filesWithoutDurationListOnlyFilesWithoutALength();
    void aBatchInsertStoresEveryRowInOrder();
    void columnsOfATableLeaveOutGeneratedOnes();
    void copiedIdsAreFollowedByNewOnes();

private:
    QTemporaryDir home;
};

void TestSqlDialect::initTestCase()
{
    QVERIFY(home.isValid());
    useTemporaryHome(home.path());
}

void TestSqlDialect::init()
{
    QVERIFY(freshStore());
}

void TestSqlDialect::cleanupTestCase()
{
    closeStore();
}

void TestSqlDialect::everyStatementHasAFormForBothEngines()
{
    for (const SqlDialect::Engine engine : {SqlDialect::Engine::Embedded, SqlDialect::Engine::Server}) {
        const SqlDialect dialect(engine);
        for (const Statement s : SqlDialect::kStatements)
            QVERIFY2(!dialect.statement(s).trimmed().isEmpty(), qPrintable(QString::number(int(s))));
    }
}

void TestSqlDialect::embeddedFormsAreTheDocumentedStatements()
{
    const SqlDialect embedded(SqlDialect::Engine::Embedded);
    const QString order = QStringLiteral(" ORDER BY artist COLLATE NOCASE, title COLLATE NOCASE");
    QCOMPARE(embedded.statement(Statement::InsertLibrary),
             QStringLiteral("INSERT OR IGNORE INTO libraries(name) VALUES(?)"));
    QCOMPARE(embedded.statement(Statement::ListLibraries),
             QStringLiteral("SELECT name FROM libraries ORDER BY name COLLATE NOCASE"));
    QCOMPARE(embedded.statement(Statement::PlainListing),
             QStringLiteral("SELECT * FROM tracks WHERE library=?") + order);
    QCOMPARE(
        embedded.statement(Statement::FullTextListing),
        QStringLiteral("SELECT t.* FROM tracks t WHERE t.library=? AND t.id IN (SELECT rowid FROM tracks_fts "
                       "WHERE tracks_fts MATCH ?) ORDER BY t.artist COLLATE NOCASE, t.title COLLATE NOCASE"));
    QCOMPARE(embedded.statement(Statement::LikeSearch),
             QStringLiteral(
                 "SELECT * FROM tracks WHERE library=? AND (artist LIKE ? OR title LIKE ? OR album LIKE ? "
                 "OR genre LIKE ? OR comment LIKE ? OR filepath LIKE ? OR CAST(year AS TEXT) LIKE ? OR "
                 "duration_str LIKE ?)") +
                 order);
    QCOMPARE(
        embedded.statement(Statement::LikeQueryText),
        QStringLiteral("(artist LIKE ? OR title LIKE ? OR album LIKE ? OR genre LIKE ? OR comment LIKE ? OR "
                       "filename LIKE ? OR CAST(year AS TEXT) LIKE ? OR duration_str LIKE ?)"));
    QCOMPARE(embedded.statement(Statement::FilesWithoutDuration),
             QStringLiteral("SELECT filepath, is_stream, duration_ms FROM tracks WHERE library=?") + order);
    QCOMPARE(
        embedded.insertTracks(1),
        QStringLiteral("INSERT INTO tracks(library,filepath,filename,artist,title,album,genre,comment,year,"
                       "duration_ms,duration_str,category,is_stream,stream_limit_ms,date_added) "
                       "VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)"));
    QCOMPARE(embedded.selectTracks(), QStringLiteral("SELECT * FROM tracks"));
    QCOMPARE(embedded.containsCondition(QStringLiteral("artist")), QStringLiteral("artist LIKE ?"));
    QCOMPARE(embedded.rowsPerTrackInsert(), 1);
}

void TestSqlDialect::serverFormsNeverUseTheEmbeddedWords()
{
    const SqlDialect server(SqlDialect::Engine::Server);
    QStringList texts;
    for (const Statement s : SqlDialect::kStatements)
        texts << server.statement(s);
    texts << server.selectTracks() << server.orderByArtistTitle()
          << server.containsCondition(QStringLiteral("x")) << server.insertTracks(3)
          << server.columnsOfTable(QStringLiteral("tracks"));
    for (const QString& text : texts) {
        QVERIFY2(!text.contains(QStringLiteral("NOCASE")), qPrintable(text));
        QVERIFY2(!text.contains(QStringLiteral(" LIKE ?")), qPrintable(text));
        QVERIFY2(!text.contains(QStringLiteral("OR IGNORE")), qPrintable(text));
        QVERIFY2(!text.contains(QStringLiteral("SELECT *")), qPrintable(text));
        QVERIFY2(!text.contains(QStringLiteral("PRAGMA")), qPrintable(text));
        QVERIFY2(!text.contains(QStringLiteral("tracks_fts")), qPrintable(text));
    }
    QVERIFY(server.rowsPerTrackInsert() > 1);
    QCOMPARE(server.insertTracks(3).count(QStringLiteral("(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)")), 3);
}

void TestSqlDialect::theStoresEngineIsTheConnectionsEngine()
{
    QCOMPARE(SqlDialect::current().isServer(), onServer());
    QCOMPARE(SqlDialect::of(MusicLibrary::database()).isServer(), onServer());
}

void TestSqlDialect::insertingALibraryTwiceKeepsOneRowAndIsNoError()
{
    const SqlDialect dialect = SqlDialect::current();
    for (int i = 0; i < 2; ++i) {
        StoreQuery q("Testing a library insert");
        QVERIFY(q.run(dialect.statement(Statement::InsertLibrary), {QStringLiteral("Jazz")}));
    }
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM libraries WHERE name=?"), {QStringLiteral("Jazz")})
                 .toInt(),
             1);
}

void TestSqlDialect::librariesAreListedIgnoringCase()
{
    const SqlDialect dialect = SqlDialect::current();
    for (const QString& name : {QStringLiteral("beta"), QStringLiteral("Gamma"), QStringLiteral("alpha"),
                                QStringLiteral("Beta2")}) {
        StoreQuery q("Testing a library insert");
        QVERIFY(q.run(dialect.statement(Statement::InsertLibrary), {name}));
    }
    QCOMPARE(column(dialect.statement(Statement::ListLibraries), {}),
             (QStringList{QStringLiteral("alpha"), QStringLiteral("beta"), QStringLiteral("Beta2"),
                          QStringLiteral("Gamma")}));
}

void TestSqlDialect::listingsOrderByArtistThenTitleIgnoringCase()
{
    const SqlDialect dialect = SqlDialect::current();
    const QString lib = QStringLiteral("Order");
    QVERIFY(insertTrack(dialect, lib, QStringLiteral("/m/1.mp3"), QStringLiteral("beatles"),
                        QStringLiteral("b"), 1000));
    QVERIFY(insertTrack(dialect, lib, QStringLiteral("/m/2.mp3"), QStringLiteral("ABBA"), QStringLiteral("Z"),
                        1000));
    QVERIFY(insertTrack(dialect, lib, QStringLiteral("/m/3.mp3"), QStringLiteral("Beatles"),
                        QStringLiteral("A"), 1000));
    QVERIFY(insertTrack(dialect, QStringLiteral("Other"), QStringLiteral("/m/4.mp3"), QStringLiteral("AAA"),
                        QStringLiteral("x"), 1000));
    const int titleField = 5; // id, library, filepath, filename, artist, title
    QCOMPARE(column(dialect.statement(Statement::PlainListing), {lib}, titleField),
             (QStringList{QStringLiteral("Z"), QStringLiteral("A"), QStringLiteral("b")}));
    QCOMPARE(
        column(dialect.selectTracks() + QStringLiteral(" WHERE library=?") + dialect.orderByArtistTitle(),
               {lib}, titleField),
        (QStringList{QStringLiteral("Z"), QStringLiteral("A"), QStringLiteral("b")}));
}

void TestSqlDialect::likeFormsIgnoreCaseAndLookInTheirColumns()
{
    const SqlDialect dialect = SqlDialect::current();
    const QString lib = QStringLiteral("Like");
    QVERIFY(insertTrack(dialect, lib, QStringLiteral("/music/LoveDir/one.mp3"), QStringLiteral("Queen"),
                        QStringLiteral("Radio"), 1000));
    QVERIFY(insertTrack(dialect, lib, QStringLiteral("/music/x/two.mp3"), QStringLiteral("Blur"),
                        QStringLiteral("Song 2"), 1000));
    const QString love = QStringLiteral("%love%");
    // A search looks in the whole path; a query's free text in the file name only.
    QCOMPARE(column(dialect.statement(Statement::LikeSearch),
                    {lib, love, love, love, love, love, love, love, love}, 4),
             QStringList{QStringLiteral("Queen")});
    const QString querySql = dialect.selectTracks() + QStringLiteral(" WHERE library=? AND ") +
                             dialect.statement(Statement::LikeQueryText) + dialect.orderByArtistTitle();
    QCOMPARE(column(querySql, {lib, love, love, love, love, love, love, love, love}, 4), QStringList());
    const QString song = QStringLiteral("%SONG%");
    QCOMPARE(column(querySql, {lib, song, song, song, song, song, song, song, song}, 4),
             QStringList{QStringLiteral("Blur")});
    QCOMPARE(column(dialect.selectTracks() + QStringLiteral(" WHERE library=? AND ") +
                        dialect.containsCondition(QStringLiteral("artist")),
                    {lib, QStringLiteral("%QUE%")}, 4),
             QStringList{QStringLiteral("Queen")});
}

void TestSqlDialect::fullTextListingFindsPrefixesAndRefusesWhatTheIndexCannotRead()
{
    QVERIFY(MusicLibrary::ftsAvailable());
    const SqlDialect dialect = SqlDialect::current();
    const QString lib = QStringLiteral("Words");
    QVERIFY(insertTrack(dialect, lib, QStringLiteral("/m/a.mp3"), QStringLiteral("Motörhead"),
                        QStringLiteral("Ace of Spades"), 1000));
    QVERIFY(insertTrack(dialect, lib, QStringLiteral("/m/b.mp3"), QStringLiteral("Heart"),
                        QStringLiteral("Barracuda"), 1000));
    bool ok = false;
    QString argument = dialect.fullTextArgument({QStringLiteral("spa*")}, &ok);
    QVERIFY(ok);
    QCOMPARE(column(dialect.statement(Statement::FullTextListing), {lib, argument}, 4),
             QStringList{QStringLiteral("Motörhead")});
    argument = dialect.fullTextArgument({QStringLiteral("artist:hea*")}, &ok);
    QVERIFY(ok);
    QCOMPARE(column(dialect.statement(Statement::FullTextListing), {lib, argument}, 4),
             QStringList{QStringLiteral("Heart")});
    // "AND" alone is syntax to the embedded index: no search finds anything with it, on either engine.
    argument = dialect.fullTextArgument({QStringLiteral("AND*")}, &ok);
    if (dialect.isServer()) {
        QVERIFY(!ok);
    } else {
        StoreQuery q("Testing a refused match");
        QVERIFY(!q.run(dialect.statement(Statement::FullTextListing), {lib, argument}) || !q.next());
    }
}

void TestSqlDialect::filesWithoutDurationListOnlyFilesWithoutALength()
{
    const SqlDialect dialect = SqlDialect::current();
    const QString lib = QStringLiteral("Durations");
    QVERIFY(
        insertTrack(dialect, lib, QStringLiteral("/m/b.mp3"), QStringLiteral("B"), QStringLiteral("x"), 0));
    QVERIFY(
        insertTrack(dialect, lib, QStringLiteral("/m/a.mp3"), QStringLiteral("a"), QStringLiteral("x"), 0));
    QVERIFY(insertTrack(dialect, lib, QStringLiteral("/m/c.mp3"), QStringLiteral("C"), QStringLiteral("x"),
                        5000));
    StoreQuery q("Testing the files without duration");
    QVERIFY(q.run(dialect.statement(Statement::FilesWithoutDuration), {lib}));
    QStringList paths;
    while (q.next()) {
        if (q.value(2).toLongLong() <= 0)
            paths << q.value(0).toString();
    }
    QCOMPARE(paths, (QStringList{QStringLiteral("/m/a.mp3"), QStringLiteral("/m/b.mp3")}));
}

void TestSqlDialect::aBatchInsertStoresEveryRowInOrder()
{
    const SqlDialect dialect = SqlDialect::current();
    StoreQuery q("Testing a batch insert");
    QVERIFY(q.prepare(dialect.insertTracks(3)));
    for (int i = 0; i < 3; ++i)
        q.bind(QVariantList{QStringLiteral("Batch"), QStringLiteral("/m/%1.mp3").arg(i), QString(), QString(),
                            QStringLiteral("T%1").arg(i), QString(), QString(), QString(), 0, 0, QString(),
                            QStringLiteral("Foreign"), 0, 0, QString()});
    QVERIFY(q.exec());
    QCOMPARE(column(QStringLiteral("SELECT title FROM tracks WHERE library=? ORDER BY id"),
                    {QStringLiteral("Batch")}),
             (QStringList{QStringLiteral("T0"), QStringLiteral("T1"), QStringLiteral("T2")}));
}

void TestSqlDialect::columnsOfATableLeaveOutGeneratedOnes()
{
    const SqlDialect dialect = SqlDialect::current();
    StoreQuery q("Testing the columns");
    QVERIFY(q.exec(dialect.columnsOfTable(QStringLiteral("tracks"))));
    QStringList names;
    while (q.next())
        names << q.value(dialect.columnNameField()).toString();
    QCOMPARE(names.size(), 18);
    QCOMPARE(names.first(), QStringLiteral("id"));
    QVERIFY(names.contains(QStringLiteral("filename")));
    QVERIFY(!names.contains(QStringLiteral("search_words")));
}

void TestSqlDialect::copiedIdsAreFollowedByNewOnes()
{
    const SqlDialect dialect = SqlDialect::current();
    QVERIFY(run(
        QStringLiteral("INSERT INTO tracks(id, library, filepath) VALUES(1000, 'Copy', '/m/copied.mp3')")));
    const QString follow = dialect.identityAfterCopy(QStringLiteral("tracks"));
    QCOMPARE(follow.isEmpty(), !dialect.isServer());
    if (!follow.isEmpty())
        QVERIFY(run(follow));
    QVERIFY(
        insertTrack(dialect, QStringLiteral("Copy"), QStringLiteral("/m/new.mp3"), QString(), QString(), 0));
    QVERIFY(scalar(QStringLiteral("SELECT id FROM tracks WHERE filepath=?"), {QStringLiteral("/m/new.mp3")})
                .toLongLong() > 1000);
}

QTEST_GUILESS_MAIN(TestSqlDialect)
#include "tst_sqldialect.moc"
