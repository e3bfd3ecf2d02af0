// Library and track operations of the store, in database mode and in folder mode, on real files.

#include "testsupport.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

using namespace testsupport;

namespace {

const QString kFixtures = QStringLiteral(ONDARO_FIXTURE_DIR);

QStringList pathsInInsertionOrder()
{
    QStringList paths;
    QSqlQuery q(MusicLibrary::database());
    q.exec(QStringLiteral("SELECT filepath FROM tracks ORDER BY id"));
    while (q.next())
        paths << q.value(0).toString();
    return paths;
}

void copyFixture(const QString& from, const QString& to)
{
    QDir().mkpath(QFileInfo(to).absolutePath());
    QFile::remove(to);
    QVERIFY2(QFile::copy(kFixtures + from, to), qPrintable(to));
}

} // namespace

class TestMusicLibrary : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void newObjectIsInDatabaseModeWithNoNameAndNoTracks();
    void anObjectWithAnEmptyNameAddressesTheRowsOfLibraryEmptyText();
    void createLibraryRejectsABlankNameAndInsertsNothing();
    void createLibraryTrimsTheNameAndASecondCallReturnsTrueWithoutADuplicate();
    void librariesAreListedIgnoringCase();
    void deleteLibraryRemovesTheLibraryRowAndAllItsTracksOnly();
    void deletingALibraryThatDoesNotExistReturnsTrue();
    void deleteLibraryUsesTheNameAsGivenWithoutTrimming();
    void setLibraryTrimsTheNameCreatesTheRowAndLeavesFolderMode();
    void recordPlayRaisesTheCountOfThePathInEveryLibrary();
    void recordPlayWithAnEmptyPathDoesNothing();
    void insertedRowStartsWithTheInsertionTimeCountZeroAndNoLastPlayed();
    void insertedRowStoresTheFileNameAndThePaddedDurationText();
    void insertingATrackWithoutLengthStoresAnEmptyDurationTextAndUpdatingWithZeroStoresDashes();
    void updateDurationChangesEveryCopyOfAFileAndReturnsTheRowCount();
    void updateDurationOnAStreamUrlChangesNothingAndReturnsZero();
    void trackCountAndTotalDurationCoverTheCurrentLibraryOnly();
    void clearEmptiesTheLibraryButKeepsItsRow();
    void addStreamWithoutANameStoresTheTrimmedUrlAsPathAndTitle();
    void addStreamWithANameUsesTheTrimmedName();
    void aStreamIsStoredWithEmptyFilenameAndDurationTextsNotNull();
    void updateStreamChangesUrlAndTitleOfStreamEntriesOnly();
    void removeMissingFilesNeverRemovesAStreamAndCountsEveryMissingCopy();
    void isSupportedAudioFileComparesTheLastSuffixIgnoringCase();
    void isStreamUrlAcceptsTheFiveSchemesIgnoringCaseAfterTrimming();
    void addFilesCountsOnlySupportedFiles();
    void addFilesStoresTheTagsOfEveryFixtureFormat();
    void addFilesAddsBadFilesWithTitlesFromTheirNamesAndNoLength();
    void addFilesAddsUnreadablePathsWithTitlesFromTheirNames();
    void audioFilesInListsFilesBeforeSubfoldersSortedByName();
    void addFolderAddsFilesBeforeSubfoldersAndSkipsNonAudio();
    void addFolderHandlesQuotesSpacesAndNonAsciiInFolderNames();
    void addFolderOfAVanishedFolderAddsNothing();
    void loadFolderReadsTheFolderIntoMemoryAndWritesNothing();
    void folderModeOperationsActOnTheInMemoryList();
    void removeMissingFilesInFolderModeDropsTheEntriesWhoseFilesAreGone();
    void filesWithoutDurationListsFileEntriesWithoutLengthInListingOrder();
    void filesWithoutDurationInFolderModeKeepsTheStoredOrder();

private:
    QTemporaryDir home;
};

void TestMusicLibrary::initTestCase()
{
    QVERIFY(home.isValid());
    useTemporaryHome(home.path());
    QVERIFY2(QFile::exists(kFixtures + QStringLiteral("/tagged/tone.mp3")), "fixtures were not generated");
}

void TestMusicLibrary::init()
{
    QVERIFY(freshStore());
}

void TestMusicLibrary::cleanupTestCase()
{
    closeStore();
}

void TestMusicLibrary::newObjectIsInDatabaseModeWithNoNameAndNoTracks()
{
    const MusicLibrary lib;
    QVERIFY(!lib.folderMode());
    QVERIFY(lib.name().isEmpty());
    QVERIFY(lib.tracks().isEmpty());
    QCOMPARE(lib.trackCount(), 0);
}

void TestMusicLibrary::anObjectWithAnEmptyNameAddressesTheRowsOfLibraryEmptyText()
{
    MusicLibrary unnamed;
    unnamed.addTrack(makeTrack(QStringLiteral("A"), QStringLiteral("First"), QStringLiteral("/m/a.mp3")));
    MusicLibrary blank;
    QVERIFY(blank.setLibrary(QStringLiteral("   ")));
    QVERIFY(blank.name().isEmpty());
    blank.addStream(QStringLiteral("Radio"), QStringLiteral("http://radio.example/"));
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM tracks WHERE library=''")).toInt(), 2);
    QVERIFY(MusicLibrary::libraries().isEmpty());

    QCOMPARE(unnamed.trackCount(), 2);
    QCOMPARE(blank.totalDurationMs(), qint64(0));
    QCOMPARE(titlesOf(unnamed.search(QString())), QStringList({"First", "Radio"}));
    QCOMPARE(titlesOf(unnamed.search(QStringLiteral("first"))), QStringList{QStringLiteral("First")});
    QCOMPARE(unnamed.updateDuration(QStringLiteral("/m/a.mp3"), 1000), 1);
    QCOMPARE(blank.filesWithoutDuration(), QStringList());
    blank.updateStream(QStringLiteral("http://radio.example/"), QStringLiteral("Renamed"),
                       QStringLiteral("http://radio.example/2"));
    MusicLibrary::setFullTextSearchDisabledForTesting(true);
    QCOMPARE(titlesOf(blank.search(QStringLiteral("renamed"))), QStringList{QStringLiteral("Renamed")});
    MusicLibrary::Query q;
    q.title = QStringLiteral("Renamed");
    QCOMPARE(blank.query(q).size(), 1);
    MusicLibrary::setFullTextSearchDisabledForTesting(false);
    QCOMPARE(unnamed.removeMissingFiles(), 1);
    QCOMPARE(blank.trackCount(), 1);
    blank.clear();
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM tracks")).toInt(), 0);
}

void TestMusicLibrary::createLibraryRejectsABlankNameAndInsertsNothing()
{
    QVERIFY(!MusicLibrary::createLibrary(QStringLiteral("  ")));
    QVERIFY(!MusicLibrary::createLibrary(QString()));
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM libraries")).toInt(), 0);
}

void TestMusicLibrary::createLibraryTrimsTheNameAndASecondCallReturnsTrueWithoutADuplicate()
{
    QVERIFY(MusicLibrary::createLibrary(QStringLiteral(" Rock ")));
    QCOMPARE(MusicLibrary::libraries(), QStringList{QStringLiteral("Rock")});
    QVERIFY(MusicLibrary::createLibrary(QStringLiteral("Rock")));
    QVERIFY(MusicLibrary::createLibrary(QStringLiteral("\tRock\n")));
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM libraries")).toInt(), 1);
}

void TestMusicLibrary::librariesAreListedIgnoringCase()
{
    for (const char* name : {"cream", "Beatles", "abba"})
        QVERIFY(MusicLibrary::createLibrary(QLatin1String(name)));
    QCOMPARE(MusicLibrary::libraries(), QStringList({"abba", "Beatles", "cream"}));
}

void TestMusicLibrary::deleteLibraryRemovesTheLibraryRowAndAllItsTracksOnly()
{
    MusicLibrary rock;
    rock.setLibrary(QStringLiteral("Rock"));
    rock.addTrack(makeTrack(QStringLiteral("A"), QStringLiteral("1")));
    rock.addTrack(makeTrack(QStringLiteral("B"), QStringLiteral("2")));
    MusicLibrary jazz;
    jazz.setLibrary(QStringLiteral("Jazz"));
    jazz.addTrack(makeTrack(QStringLiteral("C"), QStringLiteral("3")));

    QVERIFY(MusicLibrary::deleteLibrary(QStringLiteral("Rock")));
    QCOMPARE(MusicLibrary::libraries(), QStringList{QStringLiteral("Jazz")});
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM tracks WHERE library='Rock'")).toInt(), 0);
    QCOMPARE(jazz.trackCount(), 1);
    QCOMPARE(jazz.search(QStringLiteral("C")).size(), 1);
}

void TestMusicLibrary::deletingALibraryThatDoesNotExistReturnsTrue()
{
    QVERIFY(MusicLibrary::createLibrary(QStringLiteral("Kept")));
    QVERIFY(MusicLibrary::deleteLibrary(QStringLiteral("Nothing Here")));
    QCOMPARE(MusicLibrary::libraries(), QStringList{QStringLiteral("Kept")});
}

void TestMusicLibrary::deleteLibraryUsesTheNameAsGivenWithoutTrimming()
{
    MusicLibrary rock;
    rock.setLibrary(QStringLiteral("Rock"));
    rock.addTrack(makeTrack(QStringLiteral("A"), QStringLiteral("1")));
    QVERIFY(MusicLibrary::deleteLibrary(QStringLiteral(" Rock ")));
    QCOMPARE(MusicLibrary::libraries(), QStringList{QStringLiteral("Rock")});
    QCOMPARE(rock.trackCount(), 1);
}

void TestMusicLibrary::setLibraryTrimsTheNameCreatesTheRowAndLeavesFolderMode()
{
    MusicLibrary lib;
    QCOMPARE(lib.loadFolder(kFixtures + QStringLiteral("/untagged")), 6);
    QVERIFY(lib.folderMode());
    QVERIFY(lib.setLibrary(QStringLiteral("  Evening  ")));
    QVERIFY(!lib.folderMode());
    QVERIFY(lib.tracks().isEmpty());
    QCOMPARE(lib.name(), QStringLiteral("Evening"));
    QCOMPARE(MusicLibrary::libraries(), QStringList{QStringLiteral("Evening")});
    QVERIFY(lib.setLibrary(QStringLiteral("   "))); // always true, even when nothing can be created
    QCOMPARE(MusicLibrary::libraries(), QStringList{QStringLiteral("Evening")});
}

void TestMusicLibrary::recordPlayRaisesTheCountOfThePathInEveryLibrary()
{
    const QString path = QStringLiteral("/music/shared.mp3");
    MusicLibrary a;
    a.setLibrary(QStringLiteral("A"));
    a.addTrack(makeTrack(QStringLiteral("X"), QStringLiteral("Shared"), path));
    a.addTrack(makeTrack(QStringLiteral("Y"), QStringLiteral("Other"), QStringLiteral("/music/other.mp3")));
    MusicLibrary b;
    b.setLibrary(QStringLiteral("B"));
    b.addTrack(makeTrack(QStringLiteral("X"), QStringLiteral("Shared"), path));

    const QDateTime when(QDate(2024, 3, 9), QTime(21, 15, 30));
    MusicLibrary::recordPlay(path, when);
    MusicLibrary::recordPlay(path, when.addSecs(60));
    for (const MusicLibrary* lib : {&a, &b}) {
        const QList<Track> found = lib->search(QStringLiteral("Shared"));
        QCOMPARE(found.size(), 1);
        QCOMPARE(found.first().playCount, 2);
        QCOMPARE(found.first().lastPlayed, when.addSecs(60));
    }
    QCOMPARE(a.search(QStringLiteral("Other")).first().playCount, 0);
}

void TestMusicLibrary::recordPlayWithAnEmptyPathDoesNothing()
{
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("A"));
    Track noPath = makeTrack(QStringLiteral("X"), QStringLiteral("Y"));
    noPath.filePath.clear();
    lib.addTrack(noPath);
    const QStringList before = dumpTracks();
    MusicLibrary::recordPlay(QString(), QDateTime::currentDateTime());
    QCOMPARE(dumpTracks(), before);
}

void TestMusicLibrary::insertedRowStartsWithTheInsertionTimeCountZeroAndNoLastPlayed()
{
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("A"));
    Track t = makeTrack(QStringLiteral("X"), QStringLiteral("Y"));
    t.playCount = 9;
    t.lastPlayed = QDateTime(QDate(2001, 1, 1), QTime(1, 1));
    t.dateAdded = QDateTime(QDate(2000, 1, 1), QTime(1, 1));
    const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
    lib.addTrack(t);
    const QDateTime after = QDateTime::currentDateTime().addSecs(1);
    const Track stored = lib.search(QString()).value(0);
    QCOMPARE(stored.playCount, 0);
    QVERIFY(!stored.lastPlayed.isValid());
    QVERIFY(stored.dateAdded >= before && stored.dateAdded <= after);
    QCOMPARE(scalar(QStringLiteral("SELECT last_played FROM tracks")).toString(), QString());
}

void TestMusicLibrary::insertedRowStoresTheFileNameAndThePaddedDurationText()
{
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("A"));
    Track t = makeTrack(QStringLiteral("Art"), QStringLiteral("Tit"),
                        QStringLiteral("/some/where/File Name.flac"), 1999, 225000);
    t.album = QStringLiteral("Alb");
    t.genre = QStringLiteral("Gen");
    t.comment = QStringLiteral("Com");
    t.category = QStringLiteral("Gold");
    t.streamLimitMs = 5;
    t.italic = true; // never stored
    lib.addTrack(t);
    QSqlQuery q(MusicLibrary::database());
    QVERIFY(
        q.exec(QStringLiteral("SELECT library, filename, duration_str, category, is_stream FROM tracks")));
    QVERIFY(q.next());
    QCOMPARE(q.value(0).toString(), QStringLiteral("A"));
    QCOMPARE(q.value(1).toString(), QStringLiteral("File Name.flac"));
    QCOMPARE(q.value(2).toString(), QStringLiteral("03:45"));
    QCOMPARE(q.value(3).toString(), QStringLiteral("Gold"));
    QCOMPARE(q.value(4).toInt(), 0);
    const Track stored = lib.search(QString()).value(0);
    QCOMPARE(stored.artist, t.artist);
    QCOMPARE(stored.title, t.title);
    QCOMPARE(stored.album, t.album);
    QCOMPARE(stored.genre, t.genre);
    QCOMPARE(stored.comment, t.comment);
    QCOMPARE(stored.filePath, t.filePath);
    QCOMPARE(stored.year, 1999);
    QCOMPARE(stored.durationMs, qint64(225000));
    QCOMPARE(stored.category, QStringLiteral("Gold"));
    QCOMPARE(stored.streamLimitMs, qint64(5));
    QVERIFY(!stored.italic);
}

void TestMusicLibrary::insertingATrackWithoutLengthStoresAnEmptyDurationTextAndUpdatingWithZeroStoresDashes()
{
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("A"));
    lib.addTrack(makeTrack(QStringLiteral("X"), QStringLiteral("Y"), QStringLiteral("/m/y.mp3")));
    QCOMPARE(scalar(QStringLiteral("SELECT duration_str FROM tracks")).toString(), QString());
    QCOMPARE(lib.updateDuration(QStringLiteral("/m/y.mp3"), 0), 1);
    QCOMPARE(scalar(QStringLiteral("SELECT duration_str FROM tracks")).toString(), QStringLiteral("--:--"));
}

void TestMusicLibrary::updateDurationChangesEveryCopyOfAFileAndReturnsTheRowCount()
{
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("A"));
    lib.addTrack(makeTrack(QStringLiteral("X"), QStringLiteral("Y"), QStringLiteral("/m/twice.mp3")));
    lib.addTrack(makeTrack(QStringLiteral("X"), QStringLiteral("Y"), QStringLiteral("/m/twice.mp3")));
    MusicLibrary other;
    other.setLibrary(QStringLiteral("B"));
    other.addTrack(makeTrack(QStringLiteral("X"), QStringLiteral("Y"), QStringLiteral("/m/twice.mp3")));

    QCOMPARE(lib.updateDuration(QStringLiteral("/m/twice.mp3"), 61000), 2);
    for (const Track& t : lib.search(QString()))
        QCOMPARE(t.durationMs, qint64(61000));
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM tracks WHERE duration_str='01:01'")).toInt(), 2);
    QCOMPARE(other.search(QString()).value(0).durationMs, qint64(0));
    QCOMPARE(lib.updateDuration(QStringLiteral("/m/absent.mp3"), 1000), 0);
}

void TestMusicLibrary::updateDurationOnAStreamUrlChangesNothingAndReturnsZero()
{
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("A"));
    lib.addStream(QStringLiteral("Radio"), QStringLiteral("http://radio.example/live"));
    const QStringList before = dumpTracks();
    QCOMPARE(lib.updateDuration(QStringLiteral("http://radio.example/live"), 5000), 0);
    QCOMPARE(dumpTracks(), before);
}

void TestMusicLibrary::trackCountAndTotalDurationCoverTheCurrentLibraryOnly()
{
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("A"));
    QCOMPARE(lib.trackCount(), 0);
    QCOMPARE(lib.totalDurationMs(), qint64(0));
    lib.addTrack(makeTrack(QStringLiteral("X"), QStringLiteral("1"), QString(), 0, 1000));
    lib.addTrack(makeTrack(QStringLiteral("X"), QStringLiteral("2"), QString(), 0, 3000000000LL));
    MusicLibrary other;
    other.setLibrary(QStringLiteral("B"));
    other.addTrack(makeTrack(QStringLiteral("X"), QStringLiteral("3"), QString(), 0, 7));
    QCOMPARE(lib.trackCount(), 2);
    QCOMPARE(lib.totalDurationMs(), qint64(3000001000LL));
    QCOMPARE(other.trackCount(), 1);
    QCOMPARE(other.totalDurationMs(), qint64(7));
}

void TestMusicLibrary::clearEmptiesTheLibraryButKeepsItsRow()
{
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("A"));
    lib.addTrack(makeTrack(QStringLiteral("X"), QStringLiteral("1")));
    MusicLibrary other;
    other.setLibrary(QStringLiteral("B"));
    other.addTrack(makeTrack(QStringLiteral("X"), QStringLiteral("2")));
    lib.clear();
    QCOMPARE(lib.trackCount(), 0);
    QCOMPARE(other.trackCount(), 1);
    QCOMPARE(MusicLibrary::libraries(), QStringList({"A", "B"}));
}

void TestMusicLibrary::addStreamWithoutANameStoresTheTrimmedUrlAsPathAndTitle()
{
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("A"));
    lib.addStream(QString(), QStringLiteral("  http://radio.example/stream  "));
    const QList<Track> all = lib.search(QString());
    QCOMPARE(all.size(), 1);
    const Track& t = all.first();
    QCOMPARE(t.filePath, QStringLiteral("http://radio.example/stream"));
    QCOMPARE(t.title, QStringLiteral("http://radio.example/stream"));
    QCOMPARE(t.artist, QStringLiteral("Online stream"));
    QVERIFY(t.isStream);
    QCOMPARE(t.category, QStringLiteral("Foreign"));
    QCOMPARE(scalar(QStringLiteral("SELECT filename FROM tracks")).toString(), QString());
    QCOMPARE(scalar(QStringLiteral("SELECT duration_str FROM tracks")).toString(), QString());
}

void TestMusicLibrary::aStreamIsStoredWithEmptyFilenameAndDurationTextsNotNull()
{
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("A"));
    lib.addStream(QStringLiteral("Radio"), QStringLiteral("http://radio.example/live.mp3"));
    // Empty texts, as the column defaults would give, so "WHERE filename=''" finds the row.
    // A server's columns are typed: there the question is only whether the value is NULL.
    const QString storedTypes =
        onServer() ? QStringLiteral("SELECT CASE WHEN filename IS NULL THEN 'null' ELSE 'text' END || ',' || "
                                    "CASE WHEN duration_str IS NULL THEN 'null' ELSE 'text' END FROM tracks")
                   : QStringLiteral("SELECT typeof(filename) || ',' || typeof(duration_str) FROM tracks");
    QCOMPARE(scalar(storedTypes).toString(), QStringLiteral("text,text"));
    QCOMPARE(
        scalar(QStringLiteral("SELECT COUNT(*) FROM tracks WHERE filename='' AND duration_str=''")).toInt(),
        1);
}

void TestMusicLibrary::addStreamWithANameUsesTheTrimmedName()
{
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("A"));
    lib.addStream(QStringLiteral("  Night Radio "), QStringLiteral("https://radio.example/night"));
    const Track t = lib.search(QString()).value(0);
    QCOMPARE(t.title, QStringLiteral("Night Radio"));
    QCOMPARE(t.filePath, QStringLiteral("https://radio.example/night"));
}

void TestMusicLibrary::updateStreamChangesUrlAndTitleOfStreamEntriesOnly()
{
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("A"));
    lib.addStream(QStringLiteral("Old"), QStringLiteral("http://old.example/"));
    // A file entry that happens to hold the same text must stay as it is.
    lib.addTrack(
        makeTrack(QStringLiteral("F"), QStringLiteral("File"), QStringLiteral("http://old.example/")));
    lib.updateStream(QStringLiteral("http://old.example/"), QStringLiteral("  New  "),
                     QStringLiteral(" http://new.example/ "));
    const QList<Track> all = lib.search(QString());
    QCOMPARE(all.size(), 2);
    for (const Track& t : all) {
        if (t.isStream) {
            QCOMPARE(t.filePath, QStringLiteral("http://new.example/"));
            QCOMPARE(t.title, QStringLiteral("New"));
        } else {
            QCOMPARE(t.filePath, QStringLiteral("http://old.example/"));
            QCOMPARE(t.title, QStringLiteral("File"));
        }
    }
    lib.updateStream(QStringLiteral("http://new.example/"), QStringLiteral("   "),
                     QStringLiteral("http://n2/"));
    QCOMPARE(scalar(QStringLiteral("SELECT title FROM tracks WHERE is_stream=1")).toString(),
             QStringLiteral("http://n2/"));
}

void TestMusicLibrary::removeMissingFilesNeverRemovesAStreamAndCountsEveryMissingCopy()
{
    QTemporaryDir dir;
    const QString present = dir.path() + QStringLiteral("/present.mp3");
    copyFixture(QStringLiteral("/untagged/Artist - Song.mp3"), present);
    const QString gone = dir.path() + QStringLiteral("/gone.mp3");
    copyFixture(QStringLiteral("/untagged/Artist - Song.mp3"), gone);

    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("A"));
    QCOMPARE(lib.addFiles({present, gone, gone}), 3);
    lib.addStream(QStringLiteral("Radio"), QStringLiteral("http://radio.example/gone.mp3"));
    Track noPath = makeTrack(QStringLiteral("N"), QStringLiteral("No path"));
    noPath.filePath.clear();
    lib.addTrack(noPath);
    MusicLibrary other;
    other.setLibrary(QStringLiteral("B"));
    QCOMPARE(other.addFiles({gone}), 1);

    QVERIFY(QFile::remove(gone));
    QCOMPARE(lib.removeMissingFiles(), 2);
    const QList<Track> left = lib.search(QString());
    QStringList paths;
    for (const Track& t : left)
        paths << t.filePath;
    QCOMPARE(left.size(), 3);
    QVERIFY(paths.contains(present));
    QVERIFY(paths.contains(QStringLiteral("http://radio.example/gone.mp3")));
    QVERIFY(paths.contains(QString()));
    QCOMPARE(other.trackCount(), 1); // other libraries are not touched
    QCOMPARE(lib.removeMissingFiles(), 0);
}

void TestMusicLibrary::isSupportedAudioFileComparesTheLastSuffixIgnoringCase()
{
    QCOMPARE(MusicLibrary::supportedExtensions(),
             QStringList({"mp3", "wav", "ogg", "flac", "m4a", "aac", "opus", "wma", "aiff", "alac"}));
    for (const char* path : {"Song.MP3", "/a/b.wav", "x.Ogg", "y.FLAC", "z.m4a", "q.aac", "r.opus", "s.wma",
                             "t.aiff", "u.alac", "a.b.mp3"})
        QVERIFY2(MusicLibrary::isSupportedAudioFile(QLatin1String(path)), path);
    for (const char* path : {"song.mp3.bak", "song", "song.txt", "mp3", "/dir.mp3/file", "song.mp4", ""})
        QVERIFY2(!MusicLibrary::isSupportedAudioFile(QLatin1String(path)), path);
}

void TestMusicLibrary::isStreamUrlAcceptsTheFiveSchemesIgnoringCaseAfterTrimming()
{
    for (const char* text :
         {"http://radio.example/live", "https://radio.example/", "mms://media.example/x",
          "rtsp://cam.example/1", "rtmp://live.example/app", "  HTTP://Shouting.example  ", "\tRtMp://x"})
        QVERIFY2(MusicLibrary::isStreamUrl(QLatin1String(text)), text);
    for (const char* text : {"", "   ", "/music/http://x.mp3", "ftp://files.example/a.mp3", "http:/one-slash",
                             "file:///music/a.mp3", "radio http://x", "httpx://y"})
        QVERIFY2(!MusicLibrary::isStreamUrl(QLatin1String(text)), text);
}

void TestMusicLibrary::addFilesCountsOnlySupportedFiles()
{
    QTemporaryDir dir;
    const QString one = dir.path() + QStringLiteral("/One - First.MP3");
    const QString two = dir.path() + QStringLiteral("/Two - Second.MP3");
    const QString text = dir.path() + QStringLiteral("/notes.txt");
    copyFixture(QStringLiteral("/untagged/Artist - Song.mp3"), one);
    copyFixture(QStringLiteral("/untagged/Artist - Song.mp3"), two);
    copyFixture(QStringLiteral("/bad/notaudio.txt"), text);
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("A"));
    QCOMPARE(lib.addFiles({text, one, two}), 2);
    QCOMPARE(lib.trackCount(), 2);
    QCOMPARE(pathsInInsertionOrder(), QStringList({one, two}));
    QCOMPARE(titlesOf(lib.search(QString())), QStringList({"First", "Second"}));
    QCOMPARE(lib.addFiles({}), 0);
}

void TestMusicLibrary::addFilesStoresTheTagsOfEveryFixtureFormat()
{
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Tagged"));
    QStringList paths;
    for (const char* f : {"tone.mp3", "tone.flac", "tone.ogg", "tone.opus", "tone.m4a", "tone.wav"})
        paths << kFixtures + QStringLiteral("/tagged/") + QLatin1String(f);
    QCOMPARE(lib.addFiles(paths), 6);
    const QList<Track> all = lib.search(QString());
    QCOMPARE(artistsOf(all), QStringList({"Flac Artist", "M4a Artist", "Mp3 Artist", "Ogg Artist",
                                          "Opus Artist", "Wav Artist"}));
    for (const Track& t : all) {
        QVERIFY2(t.durationMs >= 2400 && t.durationMs <= 2700, qPrintable(t.filePath));
        QVERIFY(t.year >= 2001 && t.year <= 2006);
        QVERIFY(!t.album.isEmpty());
    }
    QCOMPARE(titlesOf(lib.search(QStringLiteral("flac comment"))), QStringList{QStringLiteral("Flac Title")});
}

void TestMusicLibrary::addFilesAddsBadFilesWithTitlesFromTheirNamesAndNoLength()
{
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Bad"));
    QStringList paths;
    for (const char* f : {"empty.mp3", "truncated.mp3", "random.mp3", "random.flac", "notaudio.txt"})
        paths << kFixtures + QStringLiteral("/bad/") + QLatin1String(f);
    QCOMPARE(lib.addFiles(paths), 4);
    const QList<Track> all = lib.search(QString());
    QCOMPARE(titlesOf(all), QStringList({"empty", "random", "random", "truncated"}));
    for (const Track& t : all) {
        QCOMPARE(t.durationMs, qint64(0));
        QVERIFY(t.artist.isEmpty());
    }
    QCOMPARE(lib.filesWithoutDuration().size(), 4);
}

void TestMusicLibrary::addFilesAddsUnreadablePathsWithTitlesFromTheirNames()
{
    // Root can read a mode-000 file, so a dangling link and a folder named like a file are included
    // to keep the case meaningful for every user.
    QTemporaryDir dir;
    const QString dangling = dir.path() + QStringLiteral("/Link - Dangling.mp3");
    QVERIFY(QFile::link(dir.path() + QStringLiteral("/nothing.mp3"), dangling));
    const QString folder = dir.path() + QStringLiteral("/Dir - Folder.mp3");
    QVERIFY(QDir().mkpath(folder));
    const QString locked = dir.path() + QStringLiteral("/Lock - Locked.mp3");
    copyFixture(QStringLiteral("/untagged/Artist - Song.mp3"), locked);
    QVERIFY(QFile::setPermissions(locked, QFileDevice::Permissions()));
    const QString vanished = dir.path() + QStringLiteral("/Never - There.ogg");

    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Odd"));
    QCOMPARE(lib.addFiles({dangling, folder, locked, vanished}), 4);
    QCOMPARE(titlesOf(lib.search(QString())), QStringList({"Folder", "Dangling", "Locked", "There"}));
    QCOMPARE(artistsOf(lib.search(QString())), QStringList({"Dir", "Link", "Lock", "Never"}));
    QCOMPARE(lib.search(QStringLiteral("Dangling")).value(0).durationMs, qint64(0));
    QCOMPARE(lib.search(QStringLiteral("Folder")).value(0).durationMs, qint64(0));
    QFile::setPermissions(locked, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
}

void TestMusicLibrary::audioFilesInListsFilesBeforeSubfoldersSortedByName()
{
    QTemporaryDir dir;
    const QString root = dir.path();
    copyFixture(QStringLiteral("/untagged/Artist - Song.mp3"), root + QStringLiteral("/b.mp3"));
    copyFixture(QStringLiteral("/untagged/Artist - Song.mp3"), root + QStringLiteral("/A.MP3"));
    copyFixture(QStringLiteral("/bad/notaudio.txt"), root + QStringLiteral("/c.txt"));
    copyFixture(QStringLiteral("/tagged/tone.ogg"), root + QStringLiteral("/sub2/z.ogg"));
    copyFixture(QStringLiteral("/tagged/tone.flac"), root + QStringLiteral("/sub1/y.flac"));
    copyFixture(QStringLiteral("/tagged/tone.flac"), root + QStringLiteral("/sub1/deeper/x.flac"));
    QVERIFY(QDir().mkpath(root + QStringLiteral("/folder.mp3"))); // a folder, not a file
    QVERIFY(QFile::link(root + QStringLiteral("/none.mp3"), root + QStringLiteral("/dangling.mp3")));

    QCOMPARE(MusicLibrary::audioFilesIn(root, false), QStringList({root + "/A.MP3", root + "/b.mp3"}));
    QCOMPARE(MusicLibrary::audioFilesIn(root, true),
             QStringList({root + "/A.MP3", root + "/b.mp3", root + "/sub1/y.flac",
                          root + "/sub1/deeper/x.flac", root + "/sub2/z.ogg"}));
    QVERIFY(MusicLibrary::audioFilesIn(root + QStringLiteral("/no such folder"), true).isEmpty());
    // Listing touches no database.
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM tracks")).toInt(), 0);
}

void TestMusicLibrary::addFolderAddsFilesBeforeSubfoldersAndSkipsNonAudio()
{
    QTemporaryDir dir;
    const QString root = dir.path();
    copyFixture(QStringLiteral("/tagged/tone.ogg"), root + QStringLiteral("/sub/z.ogg"));
    copyFixture(QStringLiteral("/untagged/Artist - Song.mp3"), root + QStringLiteral("/b.mp3"));
    copyFixture(QStringLiteral("/untagged/Artist - Song.mp3"), root + QStringLiteral("/a.mp3"));
    copyFixture(QStringLiteral("/bad/notaudio.txt"), root + QStringLiteral("/c.txt"));

    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Folder"));
    QCOMPARE(lib.addFolder(root, false), 2);
    QCOMPARE(lib.addFolder(root, true), 3);
    QCOMPARE(pathsInInsertionOrder(), QStringList({root + "/a.mp3", root + "/b.mp3", root + "/a.mp3",
                                                   root + "/b.mp3", root + "/sub/z.ogg"}));
}

void TestMusicLibrary::addFolderHandlesQuotesSpacesAndNonAsciiInFolderNames()
{
    const QString odd = kFixtures + QStringLiteral("/odd name's \"folder\" ü");
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Odd \"name\" 'ü'"));
    QCOMPARE(lib.addFolder(odd, true), 2);
    const QList<Track> all = lib.search(QString());
    QCOMPARE(titlesOf(all), QStringList({"it's \"quoted\"", "Ça va"}));
    QCOMPARE(all.at(1).artist, QStringLiteral("Ünïcödé Artist"));
    for (const Track& t : all) {
        QVERIFY(t.filePath.startsWith(odd + QLatin1Char('/')));
        QVERIFY(t.durationMs > 0);
    }
    QCOMPARE(MusicLibrary::libraries(), QStringList{QStringLiteral("Odd \"name\" 'ü'")});
    QCOMPARE(lib.search(QStringLiteral("Ça")).size(), 1);
}

void TestMusicLibrary::addFolderOfAVanishedFolderAddsNothing()
{
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("A"));
    QCOMPARE(lib.addFolder(QStringLiteral("/no/such/folder/anywhere"), true), 0);
    QCOMPARE(lib.trackCount(), 0);
    MusicLibrary folder;
    QCOMPARE(folder.loadFolder(QStringLiteral("/no/such/folder/anywhere")), 0);
    QVERIFY(folder.folderMode());
}

void TestMusicLibrary::loadFolderReadsTheFolderIntoMemoryAndWritesNothing()
{
    MusicLibrary lib;
    const QString path = kFixtures + QStringLiteral("/tagged");
    QCOMPARE(lib.loadFolder(path), 8);
    QVERIFY(lib.folderMode());
    QCOMPARE(lib.name(), path);
    QCOMPARE(lib.tracks().size(), 8);
    QCOMPARE(lib.trackCount(), 8);
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM tracks")).toInt(), 0);
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM libraries")).toInt(), 0);
    // Sorted by name as listed: "Name Artist - ..." sorts before the lower-case names.
    QCOMPARE(lib.tracks().first().title, QStringLiteral("Name Song"));
    qint64 sum = 0;
    for (const Track& t : lib.tracks())
        sum += t.durationMs;
    QCOMPARE(lib.totalDurationMs(), sum);
    QVERIFY(sum > 6 * 2400);
    // Loading again starts from an empty list.
    QCOMPARE(lib.loadFolder(kFixtures + QStringLiteral("/scan")), 4);
    QCOMPARE(lib.tracks().size(), 4);
}

void TestMusicLibrary::folderModeOperationsActOnTheInMemoryList()
{
    MusicLibrary lib;
    QCOMPARE(lib.loadFolder(kFixtures + QStringLiteral("/untagged")), 6);
    lib.addStream(QString(), QStringLiteral(" http://radio.example/x "));
    QCOMPARE(lib.tracks().size(), 7);
    QCOMPARE(lib.tracks().last().filePath, QStringLiteral("http://radio.example/x"));
    QVERIFY(lib.tracks().last().isStream);
    lib.updateStream(QStringLiteral("http://radio.example/x"), QStringLiteral("T"),
                     QStringLiteral("http://y/"));
    QCOMPARE(lib.tracks().last().filePath, QStringLiteral("http://radio.example/x")); // does nothing here
    QCOMPARE(lib.updateDuration(QStringLiteral("http://radio.example/x"), 5), 0);

    const QString song = kFixtures + QStringLiteral("/untagged/Artist - Song.mp3");
    QCOMPARE(lib.updateDuration(song, 123456), 1);
    for (const Track& t : lib.tracks())
        QCOMPARE(t.durationMs == 123456, t.filePath == song);
    lib.addTrack(makeTrack(QStringLiteral("Z"), QStringLiteral("Added"), song));
    QCOMPARE(lib.updateDuration(song, 1000), 2);
    QCOMPARE(lib.trackCount(), 8);
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM tracks")).toInt(), 0);
    lib.clear();
    QCOMPARE(lib.trackCount(), 0);
    QVERIFY(lib.folderMode());
}

void TestMusicLibrary::removeMissingFilesInFolderModeDropsTheEntriesWhoseFilesAreGone()
{
    QTemporaryDir dir;
    copyFixture(QStringLiteral("/untagged/Artist - Song.mp3"), dir.path() + QStringLiteral("/keep.mp3"));
    copyFixture(QStringLiteral("/untagged/Artist - Song.mp3"), dir.path() + QStringLiteral("/lose.mp3"));
    MusicLibrary lib;
    QCOMPARE(lib.loadFolder(dir.path()), 2);
    lib.addStream(QStringLiteral("R"), QStringLiteral("http://r/"));
    QVERIFY(QFile::remove(dir.path() + QStringLiteral("/lose.mp3")));
    QCOMPARE(lib.removeMissingFiles(), 1);
    QCOMPARE(lib.tracks().size(), 2);
    QCOMPARE(lib.tracks().first().filePath, dir.path() + QStringLiteral("/keep.mp3"));
    QVERIFY(lib.tracks().last().isStream);
}

void TestMusicLibrary::filesWithoutDurationListsFileEntriesWithoutLengthInListingOrder()
{
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("A"));
    lib.addTrack(makeTrack(QStringLiteral("b"), QStringLiteral("2"), QStringLiteral("/m/b2.mp3")));
    lib.addTrack(makeTrack(QStringLiteral("B"), QStringLiteral("1"), QStringLiteral("/m/b1.mp3")));
    lib.addTrack(
        makeTrack(QStringLiteral("a"), QStringLiteral("known"), QStringLiteral("/m/a.mp3"), 0, 1000));
    lib.addTrack(makeTrack(QStringLiteral("c"), QStringLiteral("x"), QStringLiteral("/m/tie1.mp3")));
    lib.addTrack(makeTrack(QStringLiteral("c"), QStringLiteral("x"), QStringLiteral("/m/tie2.mp3")));
    lib.addTrack(makeTrack(QStringLiteral("A"), QStringLiteral("first"), QStringLiteral("/m/first.mp3")));
    lib.addStream(QStringLiteral("Radio"), QStringLiteral("http://radio.example/"));
    Track noPath = makeTrack(QStringLiteral("0"), QStringLiteral("no path"));
    noPath.filePath.clear();
    lib.addTrack(noPath);
    MusicLibrary other;
    other.setLibrary(QStringLiteral("B"));
    other.addTrack(
        makeTrack(QStringLiteral("a"), QStringLiteral("elsewhere"), QStringLiteral("/m/other.mp3")));

    QStringList expected;
    for (const Track& t : lib.search(QString())) {
        if (!t.isStream && t.durationMs <= 0 && !t.filePath.isEmpty())
            expected << t.filePath;
    }
    const QStringList found = lib.filesWithoutDuration();
    QCOMPARE(found, expected);
    QCOMPARE(found.size(), 5);
    QCOMPARE(found.first(), QStringLiteral("/m/first.mp3"));
    QVERIFY(!found.contains(QStringLiteral("/m/other.mp3")));

    QCOMPARE(lib.updateDuration(QStringLiteral("/m/first.mp3"), 2000), 1);
    QVERIFY(!lib.filesWithoutDuration().contains(QStringLiteral("/m/first.mp3")));
}

void TestMusicLibrary::filesWithoutDurationInFolderModeKeepsTheStoredOrder()
{
    MusicLibrary lib;
    QCOMPARE(lib.loadFolder(kFixtures + QStringLiteral("/bad")), 4);
    lib.addStream(QStringLiteral("R"), QStringLiteral("http://r/"));
    QStringList expected;
    for (const Track& t : lib.tracks()) {
        if (!t.isStream)
            expected << t.filePath;
    }
    QCOMPARE(lib.filesWithoutDuration(), expected);
    QCOMPARE(lib.updateDuration(expected.first(), 10), 1);
    QCOMPARE(lib.filesWithoutDuration(), expected.mid(1));
}

QTEST_GUILESS_MAIN(TestMusicLibrary)
#include "tst_musiclibrary.moc"
