// The Track record: defaults, meta type, duration text, row conversion and tag reading on real files.

#include "testsupport.h"
#include "testtracks.h"
#include "track.h"

#include <QFile>
#include <QMetaType>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

#include <limits>

#include <unistd.h>

namespace {

const QString kFixtures = QStringLiteral(ONDARO_FIXTURE_DIR);
const QString kMemoryConnection = QStringLiteral("tst_track_rows");

const char* const kCreateTracks =
    "CREATE TABLE tracks( id INTEGER PRIMARY KEY AUTOINCREMENT, library TEXT NOT NULL, filepath TEXT, "
    "filename TEXT DEFAULT '', artist TEXT, title TEXT, album TEXT, genre TEXT, comment TEXT, year INTEGER "
    "DEFAULT 0, duration_ms INTEGER DEFAULT 0, duration_str TEXT DEFAULT '', play_count INTEGER DEFAULT 0, "
    "last_played TEXT DEFAULT '', date_added TEXT DEFAULT '', category TEXT DEFAULT 'Foreign', is_stream "
    "INTEGER DEFAULT 0, stream_limit_ms INTEGER DEFAULT 0)";

} // namespace

class TestTrack : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void defaultTrackHoldsTheDocumentedDefaults();
    void trackTravelsInAVariantUnderTheMetaTypeNameTrack();

    void formatDurationShowsDashesForZeroAndNegativeLengths();
    void formatDurationOfLessThanOneSecondIsZeroZero();
    void formatDurationPadsMinutesAndSecondsAndNeverCapsMinutes();
    void formatDurationAgreesWithTheArgFormulaOverEveryRange();

    void trackFromRecordReadsEveryStoredColumn();
    void trackFromRecordGivesInvalidLastPlayedForAnEmptyText();
    void trackFromRecordGivesInvalidDatesForMalformedTexts();
    void trackFromRecordGivesAnEmptyCategoryForNull();

    void readTagsReadsTitleArtistAlbumGenreCommentYearAndLength_data();
    void readTagsReadsTitleArtistAlbumGenreCommentYearAndLength();
    void readTagsReadsRiffInfoArtistAndTitleOfAWavFile();
    void readTagsTakesArtistAndTitleFromAnUntaggedArtistDashSongName();
    void readTagsTreatsADashAtPositionZeroAsPartOfTheTitle_data();
    void readTagsTreatsADashAtPositionZeroAsPartOfTheTitle();
    void readTagsSplitsAtTheFirstSeparatorOnly();
    void readTagsCutsOnlyTheLastSuffixAndKeepsALeadingDotName();
    void readTagsHonoursBackslashAsAPathSeparator();
    void readTagsKeepsTheTagArtistAndTakesTheTitleFromTheFileName();
    void readTagsOverwritesFieldsWithEmptyTagTexts();
    void readTagsLeavesMembersItDoesNotReadAlone();
    void readTagsOnAMissingFileReturnsTrueWithTitleFromNameAndNoLength();
    void readTagsOnAnUnreadableFileReturnsTrueWithTitleFromNameAndNoLength();
    void readTagsOnBadFilesGivesTitleFromNameAndNoLength_data();
    void readTagsOnBadFilesGivesTitleFromNameAndNoLength();
    void readTagsHandlesQuotesSpacesAndNonAsciiInPaths();

private:
    QTemporaryDir home;
    QTemporaryDir scratch;
};

void TestTrack::initTestCase()
{
    QVERIFY(home.isValid());
    QVERIFY(scratch.isValid());
    testsupport::useTemporaryHome(home.path());
    QVERIFY2(QFile::exists(kFixtures + QStringLiteral("/tagged/tone.mp3")), "fixtures were not generated");
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), kMemoryConnection);
    db.setDatabaseName(QStringLiteral(":memory:"));
    QVERIFY(db.open());
    QSqlQuery q(db);
    QVERIFY(q.exec(QLatin1String(kCreateTracks)));
}

void TestTrack::cleanupTestCase()
{
    {
        QSqlDatabase db = QSqlDatabase::database(kMemoryConnection, false);
        db.close();
    }
    QSqlDatabase::removeDatabase(kMemoryConnection);
}

void TestTrack::defaultTrackHoldsTheDocumentedDefaults()
{
    const Track t;
    QVERIFY(t.artist.isEmpty());
    QVERIFY(t.title.isEmpty());
    QVERIFY(t.album.isEmpty());
    QVERIFY(t.genre.isEmpty());
    QVERIFY(t.comment.isEmpty());
    QVERIFY(t.filePath.isEmpty());
    QCOMPARE(t.year, 0);
    QCOMPARE(t.durationMs, qint64(0));
    QCOMPARE(t.category, QStringLiteral("Foreign"));
    QVERIFY(t.playoutTags.isEmpty());
    QVERIFY(!t.startTime.isValid());
    QVERIFY(!t.isCommand);
    QVERIFY(t.command.isEmpty());
    QVERIFY(!t.isStream);
    QVERIFY(!t.italic);
    QCOMPARE(t.playCount, 0);
    QVERIFY(!t.lastPlayed.isValid());
    QVERIFY(!t.dateAdded.isValid());
    QCOMPARE(t.streamLimitMs, qint64(0));
}

void TestTrack::trackTravelsInAVariantUnderTheMetaTypeNameTrack()
{
    const QMetaType type = QMetaType::fromName("Track");
    QVERIFY(type.isValid());
    QCOMPARE(type, QMetaType::fromType<Track>());

    Track t;
    t.title = QStringLiteral("Song");
    t.playoutTags = {QStringLiteral("a")};
    t.italic = true;
    const QVariant v = QVariant::fromValue(t);
    QCOMPARE(v.metaType(), type);
    const Track back = v.value<Track>();
    QCOMPARE(back.title, QStringLiteral("Song"));
    QCOMPARE(back.playoutTags, QStringList{QStringLiteral("a")});
    QVERIFY(back.italic);
}

void TestTrack::formatDurationShowsDashesForZeroAndNegativeLengths()
{
    QCOMPARE(formatDuration(0), QStringLiteral("--:--"));
    QCOMPARE(formatDuration(-5), QStringLiteral("--:--"));
}

void TestTrack::formatDurationOfLessThanOneSecondIsZeroZero()
{
    QCOMPARE(formatDuration(1), QStringLiteral("00:00"));
    QCOMPARE(formatDuration(999), QStringLiteral("00:00"));
}

void TestTrack::formatDurationAgreesWithTheArgFormulaOverEveryRange()
{
    // The plain "%1:%2" formula, each part padded to two digits, as the reference.
    const auto reference = [](qint64 ms) {
        const qint64 s = ms / 1000;
        return QStringLiteral("%1:%2")
            .arg(s / 60, 2, 10, QLatin1Char('0'))
            .arg(s % 60, 2, 10, QLatin1Char('0'));
    };
    QList<qint64> lengths;
    for (qint64 ms = 1; ms < 4000000; ms += 997)
        lengths << ms;
    lengths << 599999 << 600000 << 5999999 << 6000000 << 59999999 << 60000000 << qint64(1)
            << qint64(1000) * 1000000000 << std::numeric_limits<qint64>::max();
    for (qint64 ms : lengths)
        QCOMPARE(formatDuration(ms), reference(ms));
}

void TestTrack::formatDurationPadsMinutesAndSecondsAndNeverCapsMinutes()
{
    QCOMPARE(formatDuration(225000), QStringLiteral("03:45"));
    QCOMPARE(formatDuration(59999), QStringLiteral("00:59"));
    QCOMPARE(formatDuration(6000000), QStringLiteral("100:00"));
    QCOMPARE(formatDuration(3600000 + 1000), QStringLiteral("60:01"));
}

void TestTrack::trackFromRecordReadsEveryStoredColumn()
{
    QSqlDatabase db = QSqlDatabase::database(kMemoryConnection);
    QSqlQuery insert(db);
    QVERIFY(insert.exec(QStringLiteral("DELETE FROM tracks")));
    QVERIFY(insert.prepare(QStringLiteral(
        "INSERT INTO tracks(library,filepath,filename,artist,title,album,genre,comment,year,duration_ms,"
        "duration_str,play_count,last_played,date_added,category,is_stream,stream_limit_ms) "
        "VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)")));
    const QVariantList values = {QStringLiteral("Lib"),
                                 QStringLiteral("http://radio.example/live"),
                                 QStringLiteral("ignored"),
                                 QStringLiteral("Artist"),
                                 QStringLiteral("Title"),
                                 QStringLiteral("Album"),
                                 QStringLiteral("Genre"),
                                 QStringLiteral("Comment"),
                                 1999,
                                 qint64(225000),
                                 QStringLiteral("03:45"),
                                 7,
                                 QStringLiteral("2024-05-06T07:08:09"),
                                 QStringLiteral("2023-01-02T03:04:05"),
                                 QStringLiteral("Jingle"),
                                 1,
                                 qint64(3600000)};
    for (const QVariant& v : values)
        insert.addBindValue(v);
    QVERIFY(insert.exec());

    QSqlQuery row(db);
    QVERIFY(row.exec(QStringLiteral("SELECT * FROM tracks")));
    QVERIFY(row.next());
    const Track t = trackFromRecord(row);
    Track stored =
        ondarotest::fileTrack(QStringLiteral("Artist"), QStringLiteral("Title"),
                              QStringLiteral("http://radio.example/live"), 225000, QStringLiteral("Jingle"));
    stored.album = QStringLiteral("Album");
    stored.genre = QStringLiteral("Genre");
    stored.comment = QStringLiteral("Comment");
    stored.year = 1999;
    stored.isStream = true;
    stored.streamLimitMs = 3600000;
    QCOMPARE(ondarotest::tagFields(t), ondarotest::tagFields(stored));
    QCOMPARE(t.playCount, 7);
    QCOMPARE(t.lastPlayed, QDateTime(QDate(2024, 5, 6), QTime(7, 8, 9)));
    QCOMPARE(t.dateAdded, QDateTime(QDate(2023, 1, 2), QTime(3, 4, 5)));
    // Fields the store never writes keep their defaults.
    QVERIFY(!t.isCommand);
    QVERIFY(!t.italic);
    QVERIFY(!t.startTime.isValid());
}

void TestTrack::trackFromRecordGivesInvalidLastPlayedForAnEmptyText()
{
    QSqlDatabase db = QSqlDatabase::database(kMemoryConnection);
    QSqlQuery q(db);
    QVERIFY(q.exec(QStringLiteral("DELETE FROM tracks")));
    QVERIFY(q.exec(QStringLiteral(
        "INSERT INTO tracks(library,filepath,title,last_played) VALUES('L','/a.mp3','A','')")));
    QVERIFY(q.exec(QStringLiteral("SELECT * FROM tracks")));
    QVERIFY(q.next());
    const Track t = trackFromRecord(q);
    QCOMPARE(t.title, QStringLiteral("A"));
    QVERIFY(!t.lastPlayed.isValid());
    QVERIFY(!t.dateAdded.isValid());
    QCOMPARE(t.category, QStringLiteral("Foreign")); // the column default
}

void TestTrack::trackFromRecordGivesInvalidDatesForMalformedTexts()
{
    QSqlDatabase db = QSqlDatabase::database(kMemoryConnection);
    QSqlQuery q(db);
    QVERIFY(q.exec(QStringLiteral("DELETE FROM tracks")));
    QVERIFY(q.exec(QStringLiteral("INSERT INTO tracks(library,filepath,last_played,date_added) "
                                  "VALUES('L','/a.mp3','yesterday','2024-13-45T99:00:00')")));
    QVERIFY(q.exec(QStringLiteral("SELECT * FROM tracks")));
    QVERIFY(q.next());
    const Track t = trackFromRecord(q);
    QVERIFY(!t.lastPlayed.isValid());
    QVERIFY(!t.dateAdded.isValid());
}

void TestTrack::trackFromRecordGivesAnEmptyCategoryForNull()
{
    QSqlDatabase db = QSqlDatabase::database(kMemoryConnection);
    QSqlQuery q(db);
    QVERIFY(q.exec(QStringLiteral("DELETE FROM tracks")));
    QVERIFY(q.exec(QStringLiteral("INSERT INTO tracks(library,filepath,category,year,duration_ms,is_stream) "
                                  "VALUES('L',NULL,NULL,NULL,NULL,NULL)")));
    QVERIFY(q.exec(QStringLiteral("SELECT * FROM tracks")));
    QVERIFY(q.next());
    const Track t = trackFromRecord(q);
    QVERIFY(t.category.isEmpty());
    QVERIFY(t.filePath.isEmpty());
    QCOMPARE(t.year, 0);
    QCOMPARE(t.durationMs, qint64(0));
    QVERIFY(!t.isStream);
}

void TestTrack::readTagsReadsTitleArtistAlbumGenreCommentYearAndLength_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("prefix");
    QTest::addColumn<QString>("genre");
    QTest::addColumn<int>("year");
    QTest::newRow("mp3") << "tone.mp3"
                         << "Mp3"
                         << "Rock" << 2001;
    QTest::newRow("flac") << "tone.flac"
                          << "Flac"
                          << "Jazz" << 2002;
    QTest::newRow("ogg") << "tone.ogg"
                         << "Ogg"
                         << "Pop" << 2003;
    QTest::newRow("opus") << "tone.opus"
                          << "Opus"
                          << "Blues" << 2004;
    QTest::newRow("m4a") << "tone.m4a"
                         << "M4a"
                         << "Soul" << 2005;
    QTest::newRow("wav") << "tone.wav"
                         << "Wav"
                         << "Folk" << 2006;
}

void TestTrack::readTagsReadsTitleArtistAlbumGenreCommentYearAndLength()
{
    QFETCH(QString, file);
    QFETCH(QString, prefix);
    QFETCH(QString, genre);
    QFETCH(int, year);
    const QString path = kFixtures + QStringLiteral("/tagged/") + file;
    Track t;
    QVERIFY(readTags(path, t));
    QCOMPARE(t.filePath, path);
    QCOMPARE(t.artist, prefix + QStringLiteral(" Artist"));
    QCOMPARE(t.title, prefix + QStringLiteral(" Title"));
    QCOMPARE(t.album, prefix + QStringLiteral(" Album"));
    QCOMPARE(t.genre, genre);
    QCOMPARE(t.comment, prefix.toLower() + QStringLiteral(" comment"));
    QCOMPARE(t.year, year);
    // 2.5 s of tone; encoders add a little padding, so allow some slack.
    QVERIFY2(t.durationMs >= 2400 && t.durationMs <= 2700, qPrintable(QString::number(t.durationMs)));
}

void TestTrack::readTagsReadsRiffInfoArtistAndTitleOfAWavFile()
{
    // The wav fixture carries only a RIFF INFO chunk, no ID3v2 tag.
    const Track t = MusicLibrary::trackFromFile(kFixtures + QStringLiteral("/tagged/tone.wav"));
    QCOMPARE(t.artist, QStringLiteral("Wav Artist"));
    QCOMPARE(t.title, QStringLiteral("Wav Title"));
    QCOMPARE(t.durationMs, qint64(2500));
}

void TestTrack::readTagsTakesArtistAndTitleFromAnUntaggedArtistDashSongName()
{
    Track t;
    QVERIFY(readTags(kFixtures + QStringLiteral("/untagged/Artist - Song.mp3"), t));
    QCOMPARE(t.artist, QStringLiteral("Artist"));
    QCOMPARE(t.title, QStringLiteral("Song"));
    QVERIFY(t.album.isEmpty());
    QCOMPARE(t.year, 0);
    QVERIFY2(t.durationMs >= 900 && t.durationMs <= 1200, qPrintable(QString::number(t.durationMs)));
}

void TestTrack::readTagsTreatsADashAtPositionZeroAsPartOfTheTitle_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("title");
    QTest::newRow("hyphen first") << "-Song.mp3"
                                  << "-Song";
    // The whole remainder, untrimmed.
    QTest::newRow("separator first") << " - Song.mp3"
                                     << " - Song";
}

void TestTrack::readTagsTreatsADashAtPositionZeroAsPartOfTheTitle()
{
    QFETCH(QString, file);
    QFETCH(QString, title);
    Track t;
    QVERIFY(readTags(kFixtures + QStringLiteral("/untagged/") + file, t));
    QCOMPARE(t.title, title);
    QVERIFY(t.artist.isEmpty());
}

void TestTrack::readTagsSplitsAtTheFirstSeparatorOnly()
{
    Track t;
    readTags(kFixtures + QStringLiteral("/untagged/Band - Live - Set.mp3"), t);
    QCOMPARE(t.artist, QStringLiteral("Band"));
    QCOMPARE(t.title, QStringLiteral("Live - Set"));

    Track none;
    readTags(kFixtures + QStringLiteral("/untagged/NoSeparator.mp3"), none);
    QCOMPARE(none.title, QStringLiteral("NoSeparator"));
    QVERIFY(none.artist.isEmpty());

    // Separator texts are trimmed around the split.
    Track spaced;
    readTags(QStringLiteral("/nowhere/  Spaced   -   Out  .mp3"), spaced);
    QCOMPARE(spaced.artist, QStringLiteral("Spaced"));
    QCOMPARE(spaced.title, QStringLiteral("Out"));
}

void TestTrack::readTagsCutsOnlyTheLastSuffixAndKeepsALeadingDotName()
{
    Track dotted;
    readTags(kFixtures + QStringLiteral("/untagged/a.b.mp3"), dotted);
    QCOMPARE(dotted.title, QStringLiteral("a.b"));

    Track hidden;
    readTags(QStringLiteral("/nowhere/.mp3"), hidden);
    QCOMPARE(hidden.title, QStringLiteral(".mp3"));

    Track noSuffix;
    readTags(QStringLiteral("/nowhere/Plain Name"), noSuffix);
    QCOMPARE(noSuffix.title, QStringLiteral("Plain Name"));
}

void TestTrack::readTagsHonoursBackslashAsAPathSeparator()
{
    Track t;
    QVERIFY(readTags(QStringLiteral("C:\\Music\\Old/Folder\\Some Band - Some Song.mp3"), t));
    QCOMPARE(t.artist, QStringLiteral("Some Band"));
    QCOMPARE(t.title, QStringLiteral("Some Song"));
    QCOMPARE(t.durationMs, qint64(0));
}

void TestTrack::readTagsKeepsTheTagArtistAndTakesTheTitleFromTheFileName()
{
    Track named;
    readTags(kFixtures + QStringLiteral("/tagged/Name Artist - Name Song.mp3"), named);
    QCOMPARE(named.artist, QStringLiteral("Tag Artist"));
    QCOMPARE(named.title, QStringLiteral("Name Song"));

    Track plain;
    readTags(kFixtures + QStringLiteral("/tagged/artist-only.mp3"), plain);
    QCOMPARE(plain.artist, QStringLiteral("Tag Artist"));
    QCOMPARE(plain.title, QStringLiteral("artist-only"));
}

void TestTrack::readTagsOverwritesFieldsWithEmptyTagTexts()
{
    Track t;
    t.album = QStringLiteral("stale album");
    t.genre = QStringLiteral("stale genre");
    t.year = 1970;
    readTags(kFixtures + QStringLiteral("/tagged/artist-only.mp3"), t);
    QVERIFY(t.album.isEmpty());
    QVERIFY(t.genre.isEmpty());
    QCOMPARE(t.year, 0);
}

void TestTrack::readTagsLeavesMembersItDoesNotReadAlone()
{
    Track t;
    t.category = QStringLiteral("Jingle");
    t.playCount = 4;
    t.streamLimitMs = 1234;
    t.isCommand = true;
    t.playoutTags = {QStringLiteral("x")};
    readTags(kFixtures + QStringLiteral("/tagged/tone.mp3"), t);
    QCOMPARE(t.title, QStringLiteral("Mp3 Title"));
    QCOMPARE(t.category, QStringLiteral("Jingle"));
    QCOMPARE(t.playCount, 4);
    QCOMPARE(t.streamLimitMs, qint64(1234));
    QVERIFY(t.isCommand);
    QCOMPARE(t.playoutTags, QStringList{QStringLiteral("x")});
}

void TestTrack::readTagsOnAMissingFileReturnsTrueWithTitleFromNameAndNoLength()
{
    Track t;
    QVERIFY(readTags(QStringLiteral("/no/such/folder/Gone Artist - Gone Song.flac"), t));
    QCOMPARE(t.filePath, QStringLiteral("/no/such/folder/Gone Artist - Gone Song.flac"));
    QCOMPARE(t.artist, QStringLiteral("Gone Artist"));
    QCOMPARE(t.title, QStringLiteral("Gone Song"));
    QCOMPARE(t.durationMs, qint64(0));
}

void TestTrack::readTagsOnAnUnreadableFileReturnsTrueWithTitleFromNameAndNoLength()
{
    // Root reads a mode-000 file anyway, so a dangling link and a folder named like a file are
    // the cases that stay unreadable for every user.
    const QString dir = scratch.path();
    const QString dangling = dir + QStringLiteral("/Link Artist - Link Song.mp3");
    QVERIFY(QFile::link(dir + QStringLiteral("/does-not-exist.mp3"), dangling));
    const QString folder = dir + QStringLiteral("/Folder Artist - Folder Song.mp3");
    QVERIFY(QDir().mkpath(folder));
    const QString locked = dir + QStringLiteral("/Locked Artist - Locked Song.mp3");
    QVERIFY(QFile::copy(kFixtures + QStringLiteral("/untagged/Artist - Song.mp3"), locked));
    QVERIFY(QFile::setPermissions(locked, QFileDevice::Permissions()));

    for (const QString& path : {dangling, folder}) {
        Track t;
        QVERIFY(readTags(path, t));
        QCOMPARE(t.filePath, path);
        QCOMPARE(t.durationMs, qint64(0));
    }
    Track link;
    readTags(dangling, link);
    QCOMPARE(link.artist, QStringLiteral("Link Artist"));
    QCOMPARE(link.title, QStringLiteral("Link Song"));
    Track dirTrack;
    readTags(folder, dirTrack);
    QCOMPARE(dirTrack.artist, QStringLiteral("Folder Artist"));
    QCOMPARE(dirTrack.title, QStringLiteral("Folder Song"));

    Track lockedTrack;
    QVERIFY(readTags(locked, lockedTrack));
    QCOMPARE(lockedTrack.artist, QStringLiteral("Locked Artist"));
    QCOMPARE(lockedTrack.title, QStringLiteral("Locked Song"));
    if (geteuid() != 0)
        QCOMPARE(lockedTrack.durationMs, qint64(0));
}

void TestTrack::readTagsOnBadFilesGivesTitleFromNameAndNoLength_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("title");
    QTest::newRow("empty") << "empty.mp3"
                           << "empty";
    QTest::newRow("truncated") << "truncated.mp3"
                               << "truncated";
    QTest::newRow("random mp3") << "random.mp3"
                                << "random";
    QTest::newRow("random flac") << "random.flac"
                                 << "random";
    QTest::newRow("text") << "notaudio.txt"
                          << "notaudio";
}

void TestTrack::readTagsOnBadFilesGivesTitleFromNameAndNoLength()
{
    QFETCH(QString, file);
    QFETCH(QString, title);
    Track t;
    QVERIFY(readTags(kFixtures + QStringLiteral("/bad/") + file, t));
    QCOMPARE(t.title, title);
    QVERIFY(t.artist.isEmpty());
    QCOMPARE(t.durationMs, qint64(0));
}

void TestTrack::readTagsHandlesQuotesSpacesAndNonAsciiInPaths()
{
    const QString folder = kFixtures + QStringLiteral("/odd name's \"folder\" ü/");
    Track unicode;
    QVERIFY(readTags(folder + QStringLiteral("Ünïcödé Artist - Ça va.mp3"), unicode));
    QCOMPARE(unicode.artist, QStringLiteral("Ünïcödé Artist"));
    QCOMPARE(unicode.title, QStringLiteral("Ça va"));
    QVERIFY2(unicode.durationMs >= 900, "the file was not opened through its UTF-8 path");

    Track quoted;
    QVERIFY(readTags(folder + QStringLiteral("it's \"quoted\".ogg"), quoted));
    QCOMPARE(quoted.title, QStringLiteral("it's \"quoted\""));
    QVERIFY2(quoted.durationMs >= 900, "the file was not opened through its UTF-8 path");
}

QTEST_GUILESS_MAIN(TestTrack)
#include "tst_track.moc"
