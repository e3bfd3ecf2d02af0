// Reading through SQLite's own interface must give exactly what Qt's driver gives: every listing and
// search is run both ways (the second through DirectQuery's test hook) over stored values of every
// odd kind, and the Tracks are compared field by field, null texts included.

#include "directquery.h"
#include "testsupport.h"
#include "trackrowreader.h"

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

using namespace testsupport;

namespace {

const QString kOdd = QStringLiteral("Odd");

QString describeText(const QString& s)
{
    return s.isNull() ? QStringLiteral("<null>") : QLatin1Char('"') + s + QLatin1Char('"');
}

QString describeDate(const QDateTime& d)
{
    if (!d.isValid())
        return d.isNull() ? QStringLiteral("<null date>") : QStringLiteral("<invalid date>");
    return d.toString(Qt::ISODateWithMs) + QLatin1Char('/') + QString::number(int(d.timeSpec())) +
           QLatin1Char('/') + QString::number(d.offsetFromUtc());
}

// Every stored field of every Track, so that two lists compare completely.
QStringList describe(const QList<Track>& tracks)
{
    QStringList lines;
    for (const Track& t : tracks) {
        lines << QStringList{describeText(t.filePath),
                             describeText(t.artist),
                             describeText(t.title),
                             describeText(t.album),
                             describeText(t.genre),
                             describeText(t.comment),
                             QString::number(t.year),
                             QString::number(t.durationMs),
                             describeText(t.category),
                             QString::number(int(t.isStream)),
                             QString::number(t.streamLimitMs),
                             QString::number(t.playCount),
                             describeDate(t.lastPlayed),
                             describeDate(t.dateAdded)}
                     .join(QLatin1String(" | "));
    }
    return lines;
}

// Runs `work` through DirectQuery and again through Qt's driver.
template <typename Result, typename Work> QPair<Result, Result> bothWays(Work work)
{
    DirectQuery::setDisabledForTesting(false);
    Result direct = work();
    DirectQuery::setDisabledForTesting(true);
    Result viaQt = work();
    DirectQuery::setDisabledForTesting(false);
    return {direct, viaQt};
}

bool insertRaw(const QString& valuesSql, const QVariantList& bound = {})
{
    QSqlQuery q(MusicLibrary::database());
    if (!q.prepare(QStringLiteral("INSERT INTO tracks(library,filepath,artist,title,album,genre,comment,year,"
                                  "duration_ms,category,is_stream,stream_limit_ms,play_count,last_played,"
                                  "date_added) VALUES(") +
                   valuesSql + QLatin1Char(')')))
        return false;
    for (const QVariant& v : bound)
        q.addBindValue(v);
    return q.exec();
}

} // namespace

class TestDirectQuery : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void usableOnTheStoreConnectionHere();
    void unusableWhenTheConnectionIsNotOpenOrTheHookIsSet();
    void listingOfOddStoredValuesMatchesQtDriver();
    void everySearchFormMatchesQtDriver_data();
    void everySearchFormMatchesQtDriver();
    void everyQueryFormMatchesQtDriver_data();
    void everyQueryFormMatchesQtDriver();
    void filesWithoutDurationMatchesQtDriver();
    void valuesComeOutAsQtDriverGivesThem();
    void nullStringBindsNullAndEmptyStringBindsEmptyText();
    void statementThatCannotBePreparedFailsWithNoRows();
    void matchSyntaxErrorFailsAtExec();
    void parameterCountMismatchIsRefused();
    void emptyResultIsNotAnError();
    void missingColumnsReadAsDefaults();
    void neighbouringEqualTextsShareOneString();
    void searchChangesNothingStored();

private:
    void fillOddLibrary();
    QTemporaryDir home;
};

void TestDirectQuery::initTestCase()
{
    QVERIFY(home.isValid());
    useTemporaryHome(home.path());
}

void TestDirectQuery::init()
{
    QVERIFY(freshStore());
    fillOddLibrary();
}

void TestDirectQuery::cleanup()
{
    DirectQuery::setDisabledForTesting(false);
    MusicLibrary::setFullTextSearchDisabledForTesting(false);
}

void TestDirectQuery::fillOddLibrary()
{
    MusicLibrary lib;
    lib.setLibrary(kOdd);
    // Ordinary rows, added as the program adds them.
    lib.addTrack(makeTrack(QStringLiteral("Beatles"), QStringLiteral("Yesterday"), QString(), 1965, 125000));
    lib.addTrack(makeTrack(QStringLiteral("beatles"), QStringLiteral("Help"), QString(), 1965, 0));
    lib.addTrack(
        makeTrack(QStringLiteral("Beatles"), QStringLiteral("Yesterday"), QStringLiteral("/music/copy.mp3")));
    lib.addTrack(
        makeTrack(QStringLiteral("Ünïcödé Artist"), QStringLiteral("Ça va 😀"), QString(), 2001, 1000));
    lib.addTrack(makeTrack(QStringLiteral("Heartbeat"), QStringLiteral(""), QStringLiteral(""), 0, 0));
    lib.addStream(QStringLiteral("Radio"), QStringLiteral("http://radio.example/stream"));
    // Rows no version of the program writes, but an older one or another tool might have.
    QVERIFY(insertRaw(
        QStringLiteral("'Odd',NULL,NULL,NULL,NULL,NULL,NULL,NULL,NULL,NULL,NULL,NULL,NULL,NULL,NULL")));
    QVERIFY(
        insertRaw(QStringLiteral("'Odd','/o/text-numbers.mp3','Numbers','As text','','','','1999','250000',"
                                 "'Foreign','1','12','7','',''")));
    QVERIFY(insertRaw(QStringLiteral("'Odd','/o/not-numbers.mp3','Numbers','Not numbers','','','','12abc',"
                                     "123.7,'Foreign','yes',1e12,' 9 ','2024-02-30T10:00:00','garbage'")));
    QVERIFY(insertRaw(QStringLiteral("'Odd','/o/huge.mp3','Numbers','Huge',NULL,NULL,NULL,1099511627776,"
                                     "9223372036854775807,'x',-1,-5,4294967297,'2024-05-01T10:00:00Z',"
                                     "'2024-05-01T10:00:00+02:00'")));
    QVERIFY(insertRaw(QStringLiteral("'Odd','/o/blob.mp3',X'414243',X'',NULL,NULL,NULL,0,0,X'466F',0,0,0,'',"
                                     "'2023-01-02T03:04:05'")));
    QVERIFY(insertRaw(QStringLiteral("'Odd','/o/bad-utf8.mp3',CAST(X'48FF49' AS TEXT),CAST(X'C3' AS TEXT),"
                                     "CAST(X'EFBFBD' AS TEXT),NULL,NULL,0,0,'Foreign',0,0,0,'',''")));
    // A lone surrogate, as a QString can hold one and Qt's driver stores it.
    QVERIFY(
        insertRaw(QStringLiteral("'Odd','/o/surrogate.mp3',?,?,'','','',0,0,'Foreign',0,0,0,'',''"),
                  {QString(QChar(0xD800)) + QStringLiteral("lone"), QStringLiteral("tail") + QChar(0xDC00)}));
    QVERIFY(insertRaw(QStringLiteral("'Odd','/o/empty.mp3','','','','','',0,0,'',0,0,0,'',''")));
    QVERIFY(insertRaw(QStringLiteral("'Odd','/o/real-year.mp3','Numbers','Real year','','','',1999.6,60000.4,"
                                     "'Foreign',0.4,0,2.5,'',''")));
}

void TestDirectQuery::usableOnTheStoreConnectionHere()
{
#ifndef Q_OS_LINUX
    QSKIP("the direct path is checked on Linux, where Qt's driver uses the shared SQLite library");
#endif
    DirectQuery direct(MusicLibrary::database());
    QVERIFY(direct.isUsable());
}

void TestDirectQuery::unusableWhenTheConnectionIsNotOpenOrTheHookIsSet()
{
    {
        QSqlDatabase closed =
            QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("never_opened"));
        closed.setDatabaseName(home.path() + QStringLiteral("/never.db"));
        DirectQuery direct(closed);
        QVERIFY(!direct.isUsable());
        QVERIFY(!direct.exec(QStringLiteral("SELECT 1"), {}));
        QVERIFY(!direct.next());
    }
    QSqlDatabase::removeDatabase(QStringLiteral("never_opened"));

    DirectQuery::setDisabledForTesting(true);
    DirectQuery hooked(MusicLibrary::database());
    QVERIFY(!hooked.isUsable());
}

void TestDirectQuery::listingOfOddStoredValuesMatchesQtDriver()
{
    MusicLibrary lib;
    lib.setLibrary(kOdd);
    const auto lists = bothWays<QList<Track>>([&] { return lib.search(QString()); });
    QCOMPARE(lists.first.size(), 15);
    QCOMPARE(describe(lists.first), describe(lists.second));
}

void TestDirectQuery::everySearchFormMatchesQtDriver_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("fullText");
    const QStringList texts = {
        QStringLiteral("beat"),    QStringLiteral("AC/DC"),    QStringLiteral("Don't"),
        QStringLiteral("(love)"),  QStringLiteral("Ünï"),      QStringLiteral("..."),
        QStringLiteral("%"),       QStringLiteral("_"),        QStringLiteral("radio"),
        QStringLiteral("numbers"), QStringLiteral("\"a\" OR"), QString(2000, QLatin1Char('x'))};
    for (const QString& text : texts) {
        QTest::addRow("FTS %s", qPrintable(text.left(20))) << text << true;
        QTest::addRow("LIKE %s", qPrintable(text.left(20))) << text << false;
    }
}

void TestDirectQuery::everySearchFormMatchesQtDriver()
{
    QFETCH(QString, text);
    QFETCH(bool, fullText);
    MusicLibrary::setFullTextSearchDisabledForTesting(!fullText);
    MusicLibrary lib;
    lib.setLibrary(kOdd);
    const auto lists = bothWays<QList<Track>>([&] { return lib.search(text); });
    QCOMPARE(describe(lists.first), describe(lists.second));
}

void TestDirectQuery::everyQueryFormMatchesQtDriver_data()
{
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("value");
    QTest::addColumn<bool>("fullText");
    const QList<QPair<QString, QString>> cases = {{QStringLiteral("artist"), QStringLiteral("bea")},
                                                  {QStringLiteral("title"), QStringLiteral("yes")},
                                                  {QStringLiteral("year"), QStringLiteral("19")},
                                                  {QStringLiteral("duration"), QStringLiteral("02")},
                                                  {QStringLiteral("filename"), QStringLiteral("copy")},
                                                  {QStringLiteral("text"), QStringLiteral("he")},
                                                  {QStringLiteral("artist"), QStringLiteral("Don't")}};
    for (const auto& c : cases) {
        QTest::addRow("FTS %s=%s", qPrintable(c.first), qPrintable(c.second)) << c.first << c.second << true;
        QTest::addRow("LIKE %s=%s", qPrintable(c.first), qPrintable(c.second))
            << c.first << c.second << false;
    }
}

void TestDirectQuery::everyQueryFormMatchesQtDriver()
{
    QFETCH(QString, field);
    QFETCH(QString, value);
    QFETCH(bool, fullText);
    MusicLibrary::setFullTextSearchDisabledForTesting(!fullText);
    MusicLibrary::Query q;
    if (field == QLatin1String("artist"))
        q.artist = value;
    else if (field == QLatin1String("title"))
        q.title = value;
    else if (field == QLatin1String("year"))
        q.year = value;
    else if (field == QLatin1String("duration"))
        q.duration = value;
    else if (field == QLatin1String("filename"))
        q.filename = value;
    else
        q.text = value;
    MusicLibrary lib;
    lib.setLibrary(kOdd);
    const auto lists = bothWays<QList<Track>>([&] { return lib.query(q); });
    QCOMPARE(describe(lists.first), describe(lists.second));
}

void TestDirectQuery::filesWithoutDurationMatchesQtDriver()
{
    MusicLibrary lib;
    lib.setLibrary(kOdd);
    const auto paths = bothWays<QStringList>([&] { return lib.filesWithoutDuration(); });
    QVERIFY(paths.first.contains(QStringLiteral("/music/beatles - Help.mp3")));
    QVERIFY(!paths.first.contains(QStringLiteral("http://radio.example/stream")));
    QCOMPARE(paths.first, paths.second);
}

void TestDirectQuery::valuesComeOutAsQtDriverGivesThem()
{
    const QString sql = QStringLiteral("SELECT 1, -9223372036854775807, 2.5, 1e300, 'text', '', X'0102', "
                                       "X'', NULL, CAST(X'48FF49' AS TEXT), "
                                       "'4x', ' 12 ', 3.99");
    QSqlQuery viaQt(MusicLibrary::database());
    QVERIFY(viaQt.exec(sql));
    QVERIFY(viaQt.next());
    DirectQuery direct(MusicLibrary::database());
    QVERIFY(direct.exec(sql, {}));
    QVERIFY(direct.next());
    for (int column = 0; column < 13; ++column) {
        const QVariant expected = viaQt.value(column);
        const QVariant actual = direct.value(column);
        QCOMPARE(actual.typeId(), expected.typeId());
        QCOMPARE(actual.isNull(), expected.isNull());
        QCOMPARE(actual, expected);
        QCOMPARE(direct.text(column), expected.toString());
        QCOMPARE(direct.text(column).isNull(), expected.toString().isNull());
        QCOMPARE(direct.integer(column), expected.toLongLong());
        QCOMPARE(direct.toInt(column), expected.toInt());
    }
    QVERIFY(!direct.next());
}

void TestDirectQuery::nullStringBindsNullAndEmptyStringBindsEmptyText()
{
    DirectQuery direct(MusicLibrary::database());
    QVERIFY(direct.exec(QStringLiteral("SELECT ? IS NULL, ? IS NULL, ? = '', ?, ?"),
                        {QString(), QStringLiteral(""), QStringLiteral(""), 42, QStringLiteral("Ünï 😀")}));
    QVERIFY(direct.next());
    QCOMPARE(direct.integer(0), 1);
    QCOMPARE(direct.integer(1), 0);
    QCOMPARE(direct.integer(2), 1);
    QCOMPARE(direct.integer(3), 42);
    QCOMPARE(direct.text(4), QStringLiteral("Ünï 😀"));
}

void TestDirectQuery::statementThatCannotBePreparedFailsWithNoRows()
{
    DirectQuery direct(MusicLibrary::database());
    QVERIFY(!direct.exec(QStringLiteral("SELEC nothing FROM nowhere"), {}));
    QVERIFY(!direct.next());
    QVERIFY(direct.columnNames().isEmpty());
    QVERIFY(!direct.exec(QStringLiteral("SELECT * FROM no_such_table"), {}));
    // The object stays usable for the next statement.
    QVERIFY(direct.exec(QStringLiteral("SELECT 7"), {}));
    QVERIFY(direct.next());
    QCOMPARE(direct.integer(0), 7);
}

void TestDirectQuery::matchSyntaxErrorFailsAtExec()
{
    DirectQuery direct(MusicLibrary::database());
    QVERIFY(!direct.exec(QStringLiteral("SELECT rowid FROM tracks_fts WHERE tracks_fts MATCH ?"),
                         {QStringLiteral("Don't*")}));
    QVERIFY(!direct.next());
}

void TestDirectQuery::parameterCountMismatchIsRefused()
{
    DirectQuery direct(MusicLibrary::database());
    QVERIFY(!direct.exec(QStringLiteral("SELECT ?, ?"), {1}));
    QVERIFY(!direct.exec(QStringLiteral("SELECT ?"), {1, 2}));
    QVERIFY(!direct.next());
}

void TestDirectQuery::emptyResultIsNotAnError()
{
    DirectQuery direct(MusicLibrary::database());
    QVERIFY(direct.exec(QStringLiteral("SELECT * FROM tracks WHERE library=?"), {QStringLiteral("Nobody")}));
    QVERIFY(!direct.next());
    QVERIFY(!direct.next());
    QVERIFY(direct.columnNames().contains(QStringLiteral("artist")));
}

void TestDirectQuery::missingColumnsReadAsDefaults()
{
    const QString sql =
        QStringLiteral("SELECT artist, title AS TITLE FROM tracks WHERE library=? ORDER BY id");
    DirectQuery direct(MusicLibrary::database());
    QVERIFY(direct.exec(sql, {kOdd}));
    QCOMPARE(direct.columnNames(), (QStringList{QStringLiteral("artist"), QStringLiteral("TITLE")}));
    QVERIFY(direct.next());
    const Track fromDirect = TrackRowReader(direct.columnNames()).read(direct);

    QSqlQuery viaQt(MusicLibrary::database());
    viaQt.prepare(sql);
    viaQt.addBindValue(kOdd);
    QVERIFY(viaQt.exec());
    QVERIFY(viaQt.next());
    const Track fromQt = trackFromRecord(viaQt);

    QCOMPARE(describe({fromDirect}), describe({fromQt}));
    QCOMPARE(fromDirect.title, QStringLiteral("Yesterday")); // the name matches ignoring case
    QVERIFY(fromDirect.filePath.isNull());
    QCOMPARE(fromDirect.category, QString());
}

void TestDirectQuery::neighbouringEqualTextsShareOneString()
{
    MusicLibrary lib;
    lib.setLibrary(kOdd);
    const QList<Track> tracks = lib.search(QStringLiteral("numbers"));
    QCOMPARE(tracks.size(), 4);
    for (const Track& t : tracks) {
        QCOMPARE(t.artist, QStringLiteral("Numbers"));
        QCOMPARE(t.artist.constData(), tracks.first().artist.constData());
    }
}

void TestDirectQuery::searchChangesNothingStored()
{
    const QStringList before = dumpTracks();
    MusicLibrary lib;
    lib.setLibrary(kOdd);
    lib.search(QString());
    lib.search(QStringLiteral("Don't"));
    lib.filesWithoutDuration();
    QCOMPARE(dumpTracks(), before);
}

QTEST_GUILESS_MAIN(TestDirectQuery)
#include "tst_directquery.moc"
