// The one-time import of the JSON library files of older versions, run by the store's initialisation.

#include "testsupport.h"
#include "testtracks.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using namespace testsupport;

namespace {

QString librariesFolder()
{
    return configFolder() + QStringLiteral("/libraries");
}

void writeLegacyFile(const QString& fileName, const QByteArray& content)
{
    QVERIFY(QDir().mkpath(librariesFolder()));
    QFile f(librariesFolder() + QLatin1Char('/') + fileName);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(f.write(content), qint64(content.size()));
}

QList<Track> tracksOf(const QString& library)
{
    MusicLibrary lib;
    lib.setLibrary(library);
    return lib.search(QString());
}

} // namespace

class TestLegacyImport : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void everyTrackFieldIsReadFromItsKey();
    void aStoreWithOneLibraryEvenEmptyImportsNothing();
    void aFileWithoutNameIsNamedAfterItsCompleteBaseName();
    void aNameThatIsNotAStringFallsBackToTheFileName();
    void anEmptyNameCreatesNoLibraryAndFilesItsTracksUnderAnEmptyName();
    void aTrackWithoutCategoryGetsForeign();
    void fractionalNumbersAreTruncatedTowardZero();
    void wronglyTypedKeysGiveTheDefaults();
    void anInvalidJsonFileStillCreatesAnEmptyLibraryNamedAfterTheFile();
    void aDocumentThatIsNotAnObjectCountsAsAnEmptyObject();
    void trackElementsThatAreNotObjectsBecomeDefaultTracks();
    void twoFilesWithTheSameNameShareOneLibrary();
    void theImportRunsOnceAndLeavesTheFilesInPlace();
    void aMissingFolderImportsNothing();
    void aDanglingLinkAndOtherFilesAreSkippedWithoutHarm();
    void initializeCallsTheImportAfterSettingUpTheSchemaAndTheParameterTable();

private:
    QTemporaryDir home;
};

void TestLegacyImport::initTestCase()
{
    QVERIFY(home.isValid());
    useTemporaryHome(home.path());
}

void TestLegacyImport::init()
{
    discardStore();
}

void TestLegacyImport::cleanupTestCase()
{
    closeStore();
}

void TestLegacyImport::everyTrackFieldIsReadFromItsKey()
{
    writeLegacyFile(QStringLiteral("full.json"), R"({"name": "Full", "tracks": [
        {"artist": "A", "title": "T", "album": "Al", "genre": "G", "comment": "C",
         "filePath": "/m/full.mp3", "year": 1999, "durationMs": 225000, "category": "Gold",
         "isStream": false, "streamLimitMs": 0},
        {"title": "Radio", "filePath": "http://radio.example/live", "isStream": true, "streamLimitMs": 3600000}
    ]})");
    QVERIFY(MusicLibrary::initialize());
    QCOMPARE(MusicLibrary::libraries(), QStringList{QStringLiteral("Full")});
    const QList<Track> tracks = tracksOf(QStringLiteral("Full"));
    QCOMPARE(tracks.size(), 2);
    const Track& file = tracks.at(1); // "A" sorts after the empty artist of the stream
    Track imported = ondarotest::fileTrack(QStringLiteral("A"), QStringLiteral("T"),
                                           QStringLiteral("/m/full.mp3"), 225000, QStringLiteral("Gold"));
    imported.album = QStringLiteral("Al");
    imported.genre = QStringLiteral("G");
    imported.comment = QStringLiteral("C");
    imported.year = 1999;
    QCOMPARE(ondarotest::tagFields(file), ondarotest::tagFields(imported));
    QCOMPARE(
        scalar(QStringLiteral("SELECT duration_str FROM tracks WHERE filepath='/m/full.mp3'")).toString(),
        QStringLiteral("03:45"));
    QCOMPARE(scalar(QStringLiteral("SELECT filename FROM tracks WHERE filepath='/m/full.mp3'")).toString(),
             QStringLiteral("full.mp3"));
    const Track& stream = tracks.at(0);
    QVERIFY(stream.isStream);
    QCOMPARE(stream.streamLimitMs, qint64(3600000));
    QCOMPARE(stream.title, QStringLiteral("Radio"));
    QVERIFY(stream.dateAdded.isValid());
    // The imported rows are in the full-text index.
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Full"));
    QCOMPARE(titlesOf(lib.search(QStringLiteral("Gold"))), QStringList()); // category is not indexed
    QCOMPARE(titlesOf(lib.search(QStringLiteral("Al"))), QStringList{QStringLiteral("T")});
}

void TestLegacyImport::aStoreWithOneLibraryEvenEmptyImportsNothing()
{
    QVERIFY(MusicLibrary::initialize());
    QVERIFY(MusicLibrary::createLibrary(QStringLiteral("Existing")));
    writeLegacyFile(QStringLiteral("Rock.json"), R"({"tracks": [{"title": "x", "filePath": "/x.mp3"}]})");
    MusicLibrary::importLegacyLibraries();
    QCOMPARE(MusicLibrary::libraries(), QStringList{QStringLiteral("Existing")});
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM tracks")).toInt(), 0);
    closeStore();
    QVERIFY(MusicLibrary::initialize());
    QCOMPARE(MusicLibrary::libraries(), QStringList{QStringLiteral("Existing")});
}

void TestLegacyImport::aFileWithoutNameIsNamedAfterItsCompleteBaseName()
{
    writeLegacyFile(QStringLiteral("Rock.json"), R"({"tracks": [{"title": "Song", "filePath": "/r.mp3"}]})");
    writeLegacyFile(QStringLiteral("old.rock.json"), R"({"tracks": []})");
    QVERIFY(MusicLibrary::initialize());
    QCOMPARE(MusicLibrary::libraries(), QStringList({"old.rock", "Rock"}));
    QCOMPARE(titlesOf(tracksOf(QStringLiteral("Rock"))), QStringList{QStringLiteral("Song")});
    QVERIFY(tracksOf(QStringLiteral("old.rock")).isEmpty());
}

void TestLegacyImport::aNameThatIsNotAStringFallsBackToTheFileName()
{
    writeLegacyFile(QStringLiteral("Numbered.json"), R"({"name": 5, "tracks": []})");
    writeLegacyFile(QStringLiteral("Spaced.json"), R"({"name": "  Evening Show  "})");
    QVERIFY(MusicLibrary::initialize());
    QCOMPARE(MusicLibrary::libraries(), QStringList({"Evening Show", "Numbered"}));
}

void TestLegacyImport::anEmptyNameCreatesNoLibraryAndFilesItsTracksUnderAnEmptyName()
{
    writeLegacyFile(QStringLiteral("Blank.json"), R"({"name": "  ", "tracks": [{"title": "Stray"}]})");
    QVERIFY(MusicLibrary::initialize());
    QVERIFY(MusicLibrary::libraries().isEmpty());
    QCOMPARE(scalar(QStringLiteral("SELECT title FROM tracks WHERE library=''")).toString(),
             QStringLiteral("Stray"));
}

void TestLegacyImport::aTrackWithoutCategoryGetsForeign()
{
    writeLegacyFile(QStringLiteral("c.json"), R"({"name": "C", "tracks": [{"title": "No category"}]})");
    QVERIFY(MusicLibrary::initialize());
    QCOMPARE(tracksOf(QStringLiteral("C")).value(0).category, QStringLiteral("Foreign"));
}

void TestLegacyImport::fractionalNumbersAreTruncatedTowardZero()
{
    writeLegacyFile(QStringLiteral("n.json"), R"({"name": "N", "tracks": [
        {"title": "a", "durationMs": 1234.9, "streamLimitMs": 99.99},
        {"title": "b", "durationMs": -5.5},
        {"title": "c", "durationMs": 1e300, "streamLimitMs": -1e300}
    ]})");
    QVERIFY(MusicLibrary::initialize());
    const QList<Track> tracks = tracksOf(QStringLiteral("N"));
    QCOMPARE(titlesOf(tracks), QStringList({"a", "b", "c"}));
    QCOMPARE(tracks.at(0).durationMs, qint64(1234));
    QCOMPARE(tracks.at(0).streamLimitMs, qint64(99));
    QCOMPARE(tracks.at(1).durationMs, qint64(-5));
    // Out of range: saturated, not wrapped.
    QVERIFY(tracks.at(2).durationMs > 0);
    QVERIFY(tracks.at(2).streamLimitMs < 0);
}

void TestLegacyImport::wronglyTypedKeysGiveTheDefaults()
{
    writeLegacyFile(QStringLiteral("w.json"), R"({"name": "W", "tracks": [
        {"artist": 7, "title": ["x"], "year": "1999", "durationMs": "100", "category": 3,
         "isStream": "yes", "streamLimitMs": true, "filePath": null}
    ]})");
    QVERIFY(MusicLibrary::initialize());
    const QList<Track> tracks = tracksOf(QStringLiteral("W"));
    QCOMPARE(tracks.size(), 1);
    const Track& t = tracks.first();
    QVERIFY(t.artist.isEmpty());
    QVERIFY(t.title.isEmpty());
    QVERIFY(t.filePath.isEmpty());
    QCOMPARE(t.year, 0);
    QCOMPARE(t.durationMs, qint64(0));
    QCOMPARE(t.category, QStringLiteral("Foreign"));
    QVERIFY(!t.isStream);
    QCOMPARE(t.streamLimitMs, qint64(0));
}

void TestLegacyImport::anInvalidJsonFileStillCreatesAnEmptyLibraryNamedAfterTheFile()
{
    writeLegacyFile(QStringLiteral("Broken.json"), R"({"name": "Not used", "tracks": [{"title": )");
    writeLegacyFile(QStringLiteral("Empty.json"), QByteArray());
    writeLegacyFile(QStringLiteral("Binary.json"), QByteArray("\x00\xff\xfe{\x01", 5));
    QVERIFY(MusicLibrary::initialize());
    QCOMPARE(MusicLibrary::libraries(), QStringList({"Binary", "Broken", "Empty"}));
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM tracks")).toInt(), 0);
}

void TestLegacyImport::aDocumentThatIsNotAnObjectCountsAsAnEmptyObject()
{
    writeLegacyFile(QStringLiteral("List.json"), R"([{"name": "Hidden", "tracks": [{"title": "x"}]}])");
    writeLegacyFile(QStringLiteral("Scalar.json"), "42");
    QVERIFY(MusicLibrary::initialize());
    QCOMPARE(MusicLibrary::libraries(), QStringList({"List", "Scalar"}));
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM tracks")).toInt(), 0);
}

void TestLegacyImport::trackElementsThatAreNotObjectsBecomeDefaultTracks()
{
    writeLegacyFile(
        QStringLiteral("m.json"),
        R"({"name": "Mixed", "tracks": [1, "text", null, {"title": "Real", "filePath": "/r.mp3"}]})");
    writeLegacyFile(QStringLiteral("t.json"), R"({"name": "NotAList", "tracks": {"title": "x"}})");
    QVERIFY(MusicLibrary::initialize());
    const QList<Track> tracks = tracksOf(QStringLiteral("Mixed"));
    QCOMPARE(tracks.size(), 4);
    QCOMPARE(titlesOf(tracks).count(QString()), 3);
    QVERIFY(titlesOf(tracks).contains(QStringLiteral("Real")));
    QVERIFY(tracksOf(QStringLiteral("NotAList")).isEmpty());
}

void TestLegacyImport::twoFilesWithTheSameNameShareOneLibrary()
{
    writeLegacyFile(QStringLiteral("one.json"), R"({"name": "Same", "tracks": [{"title": "1"}]})");
    writeLegacyFile(QStringLiteral("two.json"), R"({"name": "Same", "tracks": [{"title": "2"}]})");
    QVERIFY(MusicLibrary::initialize());
    QCOMPARE(MusicLibrary::libraries(), QStringList{QStringLiteral("Same")});
    QCOMPARE(titlesOf(tracksOf(QStringLiteral("Same"))), QStringList({"1", "2"}));
}

void TestLegacyImport::theImportRunsOnceAndLeavesTheFilesInPlace()
{
    writeLegacyFile(QStringLiteral("Once.json"), R"({"tracks": [{"title": "Only once"}]})");
    QVERIFY(MusicLibrary::initialize());
    QCOMPARE(tracksOf(QStringLiteral("Once")).size(), 1);
    QVERIFY(QFile::exists(librariesFolder() + QStringLiteral("/Once.json")));
    closeStore();
    QVERIFY(MusicLibrary::initialize());
    MusicLibrary::importLegacyLibraries();
    QCOMPARE(tracksOf(QStringLiteral("Once")).size(), 1);
    QVERIFY(QFile::exists(librariesFolder() + QStringLiteral("/Once.json")));
}

void TestLegacyImport::aMissingFolderImportsNothing()
{
    QVERIFY(!QDir(librariesFolder()).exists());
    QVERIFY(MusicLibrary::initialize());
    QVERIFY(MusicLibrary::libraries().isEmpty());
}

void TestLegacyImport::aDanglingLinkAndOtherFilesAreSkippedWithoutHarm()
{
    writeLegacyFile(QStringLiteral("Good.json"), R"({"tracks": [{"title": "ok"}]})");
    writeLegacyFile(QStringLiteral("notes.txt"), R"({"name": "Text"})");
    QVERIFY(QFile::link(librariesFolder() + QStringLiteral("/nowhere.json"),
                        librariesFolder() + QStringLiteral("/Dangling.json")));
    QVERIFY(QDir().mkpath(librariesFolder() + QStringLiteral("/Folder.json")));
    QVERIFY(MusicLibrary::initialize());
    QCOMPARE(MusicLibrary::libraries(), QStringList{QStringLiteral("Good")});
}

void TestLegacyImport::initializeCallsTheImportAfterSettingUpTheSchemaAndTheParameterTable()
{
    writeLegacyFile(QStringLiteral("Rock.json"), R"({"tracks": [{"artist": "Searchable", "title": "x"}]})");
    QVERIFY(MusicLibrary::initialize());
    QCOMPARE(scalar(QStringLiteral("PRAGMA user_version")).toInt(), 3);
    QVERIFY(run(QStringLiteral("SELECT filepath, params FROM track_params")));
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Rock"));
    QCOMPARE(titlesOf(lib.search(QStringLiteral("searchable"))), QStringList{QStringLiteral("x")});
}

QTEST_GUILESS_MAIN(TestLegacyImport)
#include "tst_legacyimport.moc"
