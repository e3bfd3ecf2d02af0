// Searching and filtering a library: the plain listing, the full-text form, the LIKE form (forced through
// the store's test hook) and the in-memory form of a folder library, including hostile input.

#include "testsupport.h"

#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

using namespace testsupport;

namespace {

const QString kFixtures = QStringLiteral(ONDARO_FIXTURE_DIR);

struct Row {
    const char* artist;
    const char* title;
    const char* path;
    int year;
    qint64 durationMs;
};

// The library every test case searches; paths are fictitious, searches never open them.
const Row kRows[] = {
    {"Beatles", "Yesterday", "/music/Beatles - Yesterday.mp3", 1965, 125000},
    {"Heartbeat", "Pulse", "/music/pulse.mp3", 2019, 225000},
    {"ABBA", "Waterloo", "/music/waterloo.mp3", 1974, 166000},
    {"Abacus", "Xanadu", "/music/xanadu.flac", 1980, 0},
    {"AC/DC", "Thunderstruck", "/music/thunder.ogg", 1990, 292000},
    {"Love Affair", "Glove", "/music/glove.mp3", 1900, 60000},
    {"Fleetwood", "Don't Stop", "/music/dont.mp3", 1977, 193000},
    {"Ünïcödé Artist", "Ça va", "/music/cava.mp3", 2001, 1000},
    {"Miles", "Blue", "/music/Jazzfolder/x.mp3", 1959, 545000},
    {"cream", "Sunshine", "/music/sunshine.mp3", 1967, 250000},
};
const int kRowCount = int(sizeof(kRows) / sizeof(kRows[0]));

const QStringList kSortedArtists = {"Abacus",    "ABBA",      "AC/DC",       "Beatles", "cream",
                                    "Fleetwood", "Heartbeat", "Love Affair", "Miles",   "Ünïcödé Artist"};

} // namespace

class TestLibrarySearch : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void queryTravelsInAVariantUnderItsMetaTypeName();
    void blankSearchListsTheWholeLibrarySortedByArtistThenTitleIgnoringCase();
    void searchStaysInsideTheCurrentLibrary();
    void searchPrefixFindsBeatlesNotHeartbeat();
    void searchInLikeFormFindsBeatlesAndHeartbeat();
    void searchOfOnlySeparatorsListsTheWholeLibrary();
    void searchOfLoveInBracketsSearchesForTheTermLovePrefix();
    void searchWithAnApostropheInFullTextFormReturnsAnEmptyList();
    void searchWithAnApostropheInLikeFormFindsTheTitle();
    void searchJoinsTermsWithAndAndSplitsAcDc();
    void termBuilderSplitsAtSeparatorsStripsSyntaxAndAddsPrefixStars();
    void termBuilderPutsTheColumnInFrontOfEachTerm();
    void likeHelperAddsNothingForAnEmptyValueAndDoesNotEscapeWildcards();
    void queryWithEveryMemberEmptyListsTheWholeLibrary();
    void queryWithOnlySeparatorsListsTheWholeLibrary();
    void queryWithArtistAbAndTitleXFindsOnlyRowsMatchingBoth();
    void queryWithYear19FindsTheTwentiethCenturyInFullTextForm();
    void queryWithYear19InLikeFormAlsoFinds2019();
    void queryByDurationMatchesTheStoredText();
    void queryByFilenameMatchesTheFileNameNotTheFolder();
    void queryInLikeFormCombinesFreeTextAndColumnsWithAnd();
    void likeFormSearchMatchesTheFullPathWhileQueryTextMatchesTheFileNameOnly();
    void likeFormTreatsPercentAndUnderscoreAsWildcards();
    void nonAsciiTextIsFoundInFullTextAndLikeForms();
    void hostileInputNeverCrashesAndNeverChangesStoredData_data();
    void hostileInputNeverCrashesAndNeverChangesStoredData();
    void folderLibraryFiltersInMemoryKeepingTheStoredOrder();
    void folderLibraryQueryMembersMatchTheirOwnFieldsOnly();

private:
    QList<Track> searchBoth(const QString& text, QList<Track>* likeResult);

    MusicLibrary lib;
    QTemporaryDir home;
};

void TestLibrarySearch::initTestCase()
{
    QVERIFY(home.isValid());
    useTemporaryHome(home.path());
}

void TestLibrarySearch::init()
{
    MusicLibrary::setFullTextSearchDisabledForTesting(false);
    QVERIFY(freshStore());
    QVERIFY(MusicLibrary::ftsAvailable());
    lib.setLibrary(QStringLiteral("Main"));
    for (const Row& r : kRows) {
        lib.addTrack(makeTrack(QString::fromUtf8(r.artist), QString::fromUtf8(r.title),
                               QString::fromUtf8(r.path), r.year, r.durationMs));
    }
    MusicLibrary other;
    other.setLibrary(QStringLiteral("Other"));
    other.addTrack(
        makeTrack(QStringLiteral("Beatles"), QStringLiteral("Something"), QStringLiteral("/o/s.mp3")));
    QCOMPARE(lib.trackCount(), kRowCount);
}

void TestLibrarySearch::cleanup()
{
    MusicLibrary::setFullTextSearchDisabledForTesting(false);
}

void TestLibrarySearch::cleanupTestCase()
{
    closeStore();
}

void TestLibrarySearch::queryTravelsInAVariantUnderItsMetaTypeName()
{
    const QMetaType type = QMetaType::fromName("MusicLibrary::Query");
    QVERIFY(type.isValid());
    QCOMPARE(type, QMetaType::fromType<MusicLibrary::Query>());
    MusicLibrary::Query q;
    q.genre = QStringLiteral("Rock");
    q.duration = QStringLiteral("3:");
    const QVariant v = QVariant::fromValue(q);
    QCOMPARE(v.metaType(), type);
    const MusicLibrary::Query back = v.value<MusicLibrary::Query>();
    QCOMPARE(back.genre, QStringLiteral("Rock"));
    QCOMPARE(back.duration, QStringLiteral("3:"));
    QVERIFY(back.text.isEmpty());
}

void TestLibrarySearch::blankSearchListsTheWholeLibrarySortedByArtistThenTitleIgnoringCase()
{
    QCOMPARE(artistsOf(lib.search(QStringLiteral("   "))), kSortedArtists);
    QCOMPARE(artistsOf(lib.search(QString())), kSortedArtists);
    MusicLibrary::setFullTextSearchDisabledForTesting(true);
    QCOMPARE(artistsOf(lib.search(QStringLiteral(" \t "))), kSortedArtists);

    // Same artist: the title decides, ignoring case.
    lib.addTrack(
        makeTrack(QStringLiteral("abba"), QStringLiteral("arrival"), QStringLiteral("/music/arrival.mp3")));
    const QList<Track> all = lib.search(QString());
    QCOMPARE(all.at(1).title, QStringLiteral("arrival"));
    QCOMPARE(all.at(2).title, QStringLiteral("Waterloo"));
}

void TestLibrarySearch::searchStaysInsideTheCurrentLibrary()
{
    QCOMPARE(titlesOf(lib.search(QStringLiteral("Beatles"))), QStringList{QStringLiteral("Yesterday")});
    MusicLibrary::setFullTextSearchDisabledForTesting(true);
    QCOMPARE(titlesOf(lib.search(QStringLiteral("Beatles"))), QStringList{QStringLiteral("Yesterday")});
}

void TestLibrarySearch::searchPrefixFindsBeatlesNotHeartbeat()
{
    QCOMPARE(artistsOf(lib.search(QStringLiteral("beat"))), QStringList{QStringLiteral("Beatles")});
}

void TestLibrarySearch::searchInLikeFormFindsBeatlesAndHeartbeat()
{
    MusicLibrary::setFullTextSearchDisabledForTesting(true);
    QVERIFY(!MusicLibrary::ftsAvailable());
    QCOMPARE(artistsOf(lib.search(QStringLiteral("beat"))), QStringList({"Beatles", "Heartbeat"}));
}

void TestLibrarySearch::searchOfOnlySeparatorsListsTheWholeLibrary()
{
    for (const char* text : {"...", " - ", ":/\\._-,;", "***", "( ^ )", "\"\""})
        QCOMPARE(artistsOf(lib.search(QLatin1String(text))), kSortedArtists);
}

void TestLibrarySearch::searchOfLoveInBracketsSearchesForTheTermLovePrefix()
{
    QStringList terms;
    MusicLibrary::appendFtsTerms(terms, QString(), QStringLiteral("(love)"));
    QCOMPARE(terms, QStringList{QStringLiteral("love*")});
    lib.addTrack(
        makeTrack(QStringLiteral("Lovely"), QStringLiteral("Day"), QStringLiteral("/music/day.mp3")));
    // "Love Affair" and "Lovely" start with love; "Glove" does not.
    QCOMPARE(artistsOf(lib.search(QStringLiteral("(love)"))), QStringList({"Love Affair", "Lovely"}));
}

void TestLibrarySearch::searchWithAnApostropheInFullTextFormReturnsAnEmptyList()
{
    const QStringList before = dumpTracks();
    QVERIFY(lib.search(QStringLiteral("Don't")).isEmpty());
    MusicLibrary::Query q;
    q.title = QStringLiteral("Don't");
    QVERIFY(lib.query(q).isEmpty());
    QCOMPARE(dumpTracks(), before);
}

void TestLibrarySearch::searchWithAnApostropheInLikeFormFindsTheTitle()
{
    MusicLibrary::setFullTextSearchDisabledForTesting(true);
    QCOMPARE(titlesOf(lib.search(QStringLiteral("Don't"))), QStringList{QStringLiteral("Don't Stop")});
}

void TestLibrarySearch::searchJoinsTermsWithAndAndSplitsAcDc()
{
    QCOMPARE(titlesOf(lib.search(QStringLiteral("AC/DC"))), QStringList{QStringLiteral("Thunderstruck")});
    QCOMPARE(titlesOf(lib.search(QStringLiteral("beatles yester"))),
             QStringList{QStringLiteral("Yesterday")});
    QVERIFY(lib.search(QStringLiteral("beatles waterloo")).isEmpty());
    // The file name is indexed too.
    QCOMPARE(titlesOf(lib.search(QStringLiteral("thunder.ogg"))),
             QStringList{QStringLiteral("Thunderstruck")});
}

void TestLibrarySearch::termBuilderSplitsAtSeparatorsStripsSyntaxAndAddsPrefixStars()
{
    QStringList terms;
    MusicLibrary::appendFtsTerms(terms, QString(), QStringLiteral("AC/DC"));
    QCOMPARE(terms, QStringList({"AC*", "DC*"}));
    terms.clear();
    MusicLibrary::appendFtsTerms(terms, QString(), QStringLiteral(" a:b/c\\d.e_f-g,h;i\t\"j\"*(k)^ "));
    QCOMPARE(terms, QStringList({"a*", "b*", "c*", "d*", "e*", "f*", "g*", "h*", "i*", "jk*"}));
    terms = QStringList{QStringLiteral("kept")};
    MusicLibrary::appendFtsTerms(terms, QString(), QStringLiteral("Don't + &x"));
    QCOMPARE(terms, QStringList({"kept", "Don't*", "+*", "&x*"}));
    terms.clear();
    MusicLibrary::appendFtsTerms(terms, QString(), QStringLiteral("... ** ()"));
    QVERIFY(terms.isEmpty());
}

void TestLibrarySearch::termBuilderPutsTheColumnInFrontOfEachTerm()
{
    QStringList terms;
    MusicLibrary::appendFtsTerms(terms, QStringLiteral("artist"), QStringLiteral("ab"));
    MusicLibrary::appendFtsTerms(terms, QStringLiteral("title"), QStringLiteral("x"));
    QCOMPARE(terms.join(QLatin1Char(' ')), QStringLiteral("artist:ab* title:x*"));
    terms.clear();
    MusicLibrary::appendFtsTerms(terms, QStringLiteral("duration_str"), QStringLiteral("3:45"));
    QCOMPARE(terms, QStringList({"duration_str:3*", "duration_str:45*"}));
}

void TestLibrarySearch::likeHelperAddsNothingForAnEmptyValueAndDoesNotEscapeWildcards()
{
    QStringList conditions;
    QVariantList values;
    MusicLibrary::appendLikeCondition(conditions, values, QStringLiteral("artist"), QString());
    QVERIFY(conditions.isEmpty());
    QVERIFY(values.isEmpty());
    MusicLibrary::appendLikeCondition(conditions, values, QStringLiteral("CAST(year AS TEXT)"),
                                      QStringLiteral("1_%"));
    QCOMPARE(conditions, QStringList{QStringLiteral("CAST(year AS TEXT) LIKE ?")});
    QCOMPARE(values, QVariantList{QStringLiteral("%1_%%")});
}

void TestLibrarySearch::queryWithEveryMemberEmptyListsTheWholeLibrary()
{
    QCOMPARE(artistsOf(lib.query(MusicLibrary::Query())), kSortedArtists);
    MusicLibrary::setFullTextSearchDisabledForTesting(true);
    QCOMPARE(artistsOf(lib.query(MusicLibrary::Query())), kSortedArtists);
}

void TestLibrarySearch::queryWithOnlySeparatorsListsTheWholeLibrary()
{
    MusicLibrary::Query q;
    q.artist = QStringLiteral(" - ");
    q.year = QStringLiteral("**");
    QCOMPARE(artistsOf(lib.query(q)), kSortedArtists);
}

void TestLibrarySearch::queryWithArtistAbAndTitleXFindsOnlyRowsMatchingBoth()
{
    MusicLibrary::Query q;
    q.artist = QStringLiteral("ab");
    q.title = QStringLiteral("x");
    QCOMPARE(artistsOf(lib.query(q)), QStringList{QStringLiteral("Abacus")});
    q.title.clear();
    QCOMPARE(artistsOf(lib.query(q)), QStringList({"Abacus", "ABBA"}));
}

void TestLibrarySearch::queryWithYear19FindsTheTwentiethCenturyInFullTextForm()
{
    QStringList terms;
    MusicLibrary::appendFtsTerms(terms, QStringLiteral("year"), QStringLiteral("19"));
    QCOMPARE(terms, QStringList{QStringLiteral("year:19*")});
    MusicLibrary::Query q;
    q.year = QStringLiteral("19");
    const QList<Track> found = lib.query(q);
    QCOMPARE(found.size(), 8);
    for (const Track& t : found)
        QVERIFY2(t.year >= 1900 && t.year <= 1999, qPrintable(QString::number(t.year)));
}

void TestLibrarySearch::queryWithYear19InLikeFormAlsoFinds2019()
{
    MusicLibrary::setFullTextSearchDisabledForTesting(true);
    MusicLibrary::Query q;
    q.year = QStringLiteral("19");
    const QList<Track> found = lib.query(q);
    QCOMPARE(found.size(), 9);
    QVERIFY(artistsOf(found).contains(QStringLiteral("Heartbeat")));
}

void TestLibrarySearch::queryByDurationMatchesTheStoredText()
{
    MusicLibrary::Query q;
    q.duration = QStringLiteral("03:45");
    QCOMPARE(artistsOf(lib.query(q)), QStringList{QStringLiteral("Heartbeat")});
    MusicLibrary::setFullTextSearchDisabledForTesting(true);
    QCOMPARE(artistsOf(lib.query(q)), QStringList{QStringLiteral("Heartbeat")});
    // Unknown lengths are stored as '' and so never match a duration.
    q.duration = QStringLiteral("--");
    QVERIFY(lib.query(q).isEmpty());
}

void TestLibrarySearch::queryByFilenameMatchesTheFileNameNotTheFolder()
{
    MusicLibrary::Query q;
    q.filename = QStringLiteral("xanadu");
    QCOMPARE(artistsOf(lib.query(q)), QStringList{QStringLiteral("Abacus")});
    q.filename = QStringLiteral("Jazzfolder");
    QVERIFY(lib.query(q).isEmpty());
    MusicLibrary::setFullTextSearchDisabledForTesting(true);
    QVERIFY(lib.query(q).isEmpty());
    q.filename = QStringLiteral("x.mp3");
    QCOMPARE(artistsOf(lib.query(q)), QStringList{QStringLiteral("Miles")});
}

void TestLibrarySearch::queryInLikeFormCombinesFreeTextAndColumnsWithAnd()
{
    MusicLibrary::setFullTextSearchDisabledForTesting(true);
    MusicLibrary::Query q;
    q.text = QStringLiteral("o");
    q.year = QStringLiteral("197");
    QCOMPARE(artistsOf(lib.query(q)), QStringList({"ABBA", "Fleetwood"}));
    q.artist = QStringLiteral("fleet");
    QCOMPARE(artistsOf(lib.query(q)), QStringList{QStringLiteral("Fleetwood")});
    q.comment = QStringLiteral("anything");
    QVERIFY(lib.query(q).isEmpty());
}

void TestLibrarySearch::likeFormSearchMatchesTheFullPathWhileQueryTextMatchesTheFileNameOnly()
{
    MusicLibrary::setFullTextSearchDisabledForTesting(true);
    QCOMPARE(artistsOf(lib.search(QStringLiteral("Jazzfolder"))), QStringList{QStringLiteral("Miles")});
    MusicLibrary::Query q;
    q.text = QStringLiteral("Jazzfolder");
    QVERIFY(lib.query(q).isEmpty());
    q.text = QStringLiteral("x.mp3");
    QCOMPARE(artistsOf(lib.query(q)), QStringList{QStringLiteral("Miles")});
}

void TestLibrarySearch::likeFormTreatsPercentAndUnderscoreAsWildcards()
{
    MusicLibrary::setFullTextSearchDisabledForTesting(true);
    const QStringList before = dumpTracks();
    QCOMPARE(artistsOf(lib.search(QStringLiteral("%"))), kSortedArtists);
    QCOMPARE(artistsOf(lib.search(QStringLiteral("_"))), kSortedArtists);
    // "19_0" is the pattern %19_0%: 1900, 1980 and 1990.
    MusicLibrary::Query q;
    q.year = QStringLiteral("19_0");
    QCOMPARE(artistsOf(lib.query(q)), QStringList({"Abacus", "AC/DC", "Love Affair"}));
    q.year = QStringLiteral("%");
    QCOMPARE(lib.query(q).size(), kRowCount);
    QCOMPARE(dumpTracks(), before);
}

void TestLibrarySearch::nonAsciiTextIsFoundInFullTextAndLikeForms()
{
    QCOMPARE(titlesOf(lib.search(QStringLiteral("Ünïcödé"))), QStringList{QStringLiteral("Ça va")});
    QCOMPARE(titlesOf(lib.search(QStringLiteral("ça"))), QStringList{QStringLiteral("Ça va")});
    MusicLibrary::setFullTextSearchDisabledForTesting(true);
    QCOMPARE(titlesOf(lib.search(QStringLiteral("Ünïcödé"))), QStringList{QStringLiteral("Ça va")});
}

// Every row: the text, then what the full-text form and the LIKE form give (-1: whole library).
void TestLibrarySearch::hostileInputNeverCrashesAndNeverChangesStoredData_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("ftsCount");
    QTest::addColumn<int>("likeCount");
    const int all = -1;
    QTest::newRow("double quote") << "\"" << all << 0;
    QTest::newRow("unbalanced quotes") << "\"Beatles" << 1 << 0;
    QTest::newRow("apostrophe") << "'" << 0 << 1;
    QTest::newRow("sql injection") << "x'); DROP TABLE tracks; --" << 0 << 0;
    QTest::newRow("AND") << "AND" << 0 << 0;
    QTest::newRow("OR between words") << "Beatles OR ABBA" << 0 << 0;
    QTest::newRow("NEAR") << "NEAR(a b)" << 0 << 0;
    QTest::newRow("star") << "*" << all << 0;
    QTest::newRow("caret") << "^Beatles" << 1 << 0;
    QTest::newRow("minus") << "-Beatles" << 1 << 0;
    QTest::newRow("plus") << "+" << 0 << 0;
    QTest::newRow("column filter syntax") << "{artist}" << 0 << 0;
    QTest::newRow("non ascii") << "Ünï" << 1 << 1;
    QTest::newRow("emoji") << "🎵🎶" << 0 << 0;
    QTest::newRow("long text") << QString(2000, QLatin1Char('q')) << 0 << 0;
    QTest::newRow("long words") << QStringLiteral("beat ").repeated(400) << 1 << 0;
    QTest::newRow("percent") << "%" << 0 << all;
    QTest::newRow("underscore") << "_" << all << all;
}

void TestLibrarySearch::hostileInputNeverCrashesAndNeverChangesStoredData()
{
    QFETCH(QString, text);
    QFETCH(int, ftsCount);
    QFETCH(int, likeCount);
    const QStringList before = dumpTracks();
    const QStringList libraries = MusicLibrary::libraries();

    const QList<Track> fts = lib.search(text);
    MusicLibrary::Query q;
    q.text = text;
    q.artist = text;
    const QList<Track> ftsQuery = lib.query(q);
    MusicLibrary::setFullTextSearchDisabledForTesting(true);
    const QList<Track> like = lib.search(text);
    const QList<Track> likeQuery = lib.query(q);
    MusicLibrary::setFullTextSearchDisabledForTesting(false);

    QCOMPARE(fts.size(), ftsCount < 0 ? kRowCount : ftsCount);
    QCOMPARE(like.size(), likeCount < 0 ? kRowCount : likeCount);
    QVERIFY(ftsQuery.size() <= kRowCount);
    QVERIFY(likeQuery.size() <= like.size());
    QCOMPARE(dumpTracks(), before);
    QCOMPARE(MusicLibrary::libraries(), libraries);
    QCOMPARE(lib.trackCount(), kRowCount);
    if (onServer()) {
        // The server's index is a column the server computes: it must equal a fresh computation.
        QCOMPARE(
            scalar(QStringLiteral("SELECT count(*) FROM tracks WHERE search_words IS DISTINCT FROM "
                                  "ondaro_search_document(artist,title,album,genre,comment,filename,year,"
                                  "duration_str)"))
                .toInt(),
            0);
    } else {
        QVERIFY(run(QStringLiteral("INSERT INTO tracks_fts(tracks_fts) VALUES('integrity-check')")));
    }
}

void TestLibrarySearch::folderLibraryFiltersInMemoryKeepingTheStoredOrder()
{
    MusicLibrary folder;
    QCOMPARE(folder.loadFolder(kFixtures + QStringLiteral("/tagged")), 8);
    // Stored order is the folder listing's, not sorted by artist.
    QStringList expected;
    for (const Track& t : folder.tracks()) {
        if (t.artist.contains(QStringLiteral("artist"), Qt::CaseInsensitive) ||
            t.title.contains(QStringLiteral("artist"), Qt::CaseInsensitive))
            expected << t.title;
    }
    QCOMPARE(titlesOf(folder.search(QStringLiteral("ARTIST"))), expected);
    QCOMPARE(folder.search(QString()).size(), 8);
    QCOMPARE(titlesOf(folder.search(QStringLiteral("flac comment"))),
             QStringList{QStringLiteral("Flac Title")});
    // Year and duration texts are matched case-sensitively as text, the file name ignoring case.
    QCOMPARE(titlesOf(folder.search(QStringLiteral("2004"))), QStringList{QStringLiteral("Opus Title")});
    QCOMPARE(folder.search(QStringLiteral("00:02")).size(), 6);
    QCOMPARE(titlesOf(folder.search(QStringLiteral("TONE.WAV"))), QStringList{QStringLiteral("Wav Title")});
    QVERIFY(folder.search(QStringLiteral("nothing like this")).isEmpty());
    // Hostile text is plain text here.
    QVERIFY(folder.search(QStringLiteral("Don't")).isEmpty());
    QVERIFY(folder.search(QStringLiteral("%")).isEmpty());
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM tracks WHERE library<>'Main' AND library<>'Other'"))
                 .toInt(),
             0);
}

void TestLibrarySearch::folderLibraryQueryMembersMatchTheirOwnFieldsOnly()
{
    MusicLibrary folder;
    QCOMPARE(folder.loadFolder(kFixtures + QStringLiteral("/tagged")), 8);
    MusicLibrary::Query q;
    q.artist = QStringLiteral("tag artist");
    QCOMPARE(titlesOf(folder.query(q)), QStringList({"Name Song", "artist-only"}));
    q.filename = QStringLiteral("ONLY");
    QCOMPARE(titlesOf(folder.query(q)), QStringList{QStringLiteral("artist-only")});

    MusicLibrary::Query byTitle;
    byTitle.title = QStringLiteral("artist"); // in the artist field only, not the title
    QCOMPARE(titlesOf(folder.query(byTitle)), QStringList{QStringLiteral("artist-only")});

    MusicLibrary::Query byYear;
    byYear.year = QStringLiteral("200");
    QCOMPARE(folder.query(byYear).size(), 6);
    MusicLibrary::Query byDuration;
    byDuration.duration = QStringLiteral("00:01");
    QCOMPARE(titlesOf(folder.query(byDuration)), QStringList({"Name Song", "artist-only"}));
    MusicLibrary::Query combined;
    combined.genre = QStringLiteral("rock");
    combined.comment = QStringLiteral("MP3");
    combined.album = QStringLiteral("album");
    QCOMPARE(titlesOf(folder.query(combined)), QStringList{QStringLiteral("Mp3 Title")});
    combined.genre = QStringLiteral("jazz");
    QVERIFY(folder.query(combined).isEmpty());
}

QTEST_GUILESS_MAIN(TestLibrarySearch)
#include "tst_librarysearch.moc"
