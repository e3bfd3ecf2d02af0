// Names and lengths of playlist rows that came without them: from the library when the file is in
// it, from the file's tags otherwise, and never instead of what an #EXTINF line says.

#include "playlistfile.h"
#include "testsupport.h"
#include "trackdetails.h"
#include "tracktext.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace testsupport;

namespace {

const QString kFixtures = QStringLiteral(ONDARO_FIXTURE_DIR);

} // namespace

class TestTrackDetails : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir home;
    QString flac;     // tags "Flac Artist" / "Flac Title", 2.5 s; stored in the library under other names
    QString wav;      // tags "Wav Artist" / "Wav Title", 2.5 s; not in the library
    QString untagged; // "Artist - Song.mp3" without tags

    QString writeList(const QByteArray& content)
    {
        const QString path = home.filePath(QStringLiteral("list.m3u"));
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return QString();
        file.write(content);
        return path;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(home.isValid());
        useTemporaryHome(home.path());
        flac = kFixtures + QStringLiteral("/tagged/tone.flac");
        wav = kFixtures + QStringLiteral("/tagged/tone.wav");
        untagged = kFixtures + QStringLiteral("/untagged/Artist - Song.mp3");
        QVERIFY2(QFileInfo::exists(flac) && QFileInfo::exists(wav) && QFileInfo::exists(untagged),
                 "run the fixtures target first");
    }

    void init()
    {
        QVERIFY(freshStore());
        MusicLibrary library;
        library.setLibrary(QStringLiteral("Music"));
        Track stored =
            makeTrack(QStringLiteral("Stored Artist"), QStringLiteral("Stored Title"), flac, 1999, 12345);
        stored.category = QStringLiteral("Jingle");
        library.addTrack(stored);
    }

    void cleanupTestCase() { discardStore(); }

    void aPlainListTakesNamesFromTheLibraryThenFromTheFile()
    {
        const QString gone = home.filePath(QStringLiteral("Gone Band - Gone Song.mp3"));
        const QString list = writeList((flac + '\n' + wav + '\n' + untagged + '\n' + gone + '\n').toUtf8());
        const PlaylistFile::ReadResult read = PlaylistFile::read(list);
        QVERIFY2(read.ok, qPrintable(read.error));
        QCOMPARE(read.rowsWithoutInfo, (QList<int>{0, 1, 2, 3}));
        QCOMPARE(read.tracks.size(), 4);

        const Track& inLibrary = read.tracks.at(0);
        QCOMPARE(inLibrary.artist, QStringLiteral("Stored Artist"));
        QCOMPARE(inLibrary.title, QStringLiteral("Stored Title"));
        QCOMPARE(inLibrary.durationMs, qint64(12345));
        QCOMPARE(inLibrary.category, QStringLiteral("Jingle"));
        QCOMPARE(inLibrary.filePath, flac);

        const Track& tagged = read.tracks.at(1);
        QCOMPARE(tagged.artist, QStringLiteral("Wav Artist"));
        QCOMPARE(tagged.title, QStringLiteral("Wav Title"));
        QVERIFY2(qAbs(tagged.durationMs - 2500) < 100, qPrintable(QString::number(tagged.durationMs)));

        const Track& named = read.tracks.at(2);
        QCOMPARE(named.artist, QStringLiteral("Artist"));
        QCOMPARE(named.title, QStringLiteral("Song"));
        QVERIFY(named.durationMs > 0);

        const Track& missing = read.tracks.at(3);
        QCOMPARE(missing.artist, QStringLiteral("Gone Band"));
        QCOMPARE(missing.title, QStringLiteral("Gone Song"));
        QCOMPARE(missing.durationMs, qint64(0));
        QCOMPARE(read.missingFiles, QStringList{gone});
    }

    void anExtinfLineKeepsItsOwnNamesAndLength()
    {
        const QString list =
            writeList(("#EXTM3U\n#EXTINF:5,Given - Name\n" + flac + "\n#ONDARO-COMMAND:stop\n" +
                       "http://radio.example/live\n" + wav + '\n')
                          .toUtf8());
        const PlaylistFile::ReadResult read = PlaylistFile::read(list);
        QVERIFY(read.ok);
        QCOMPARE(read.rowsWithoutInfo, QList<int>{3});
        QCOMPARE(read.tracks.at(0).artist, QStringLiteral("Given"));
        QCOMPARE(read.tracks.at(0).durationMs, qint64(5000));
        QVERIFY(read.tracks.at(1).isCommand);
        QCOMPARE(read.tracks.at(2).artist, onlineStreamArtist());
        QCOMPARE(read.tracks.at(3).artist, QStringLiteral("Wav Artist"));
    }

    void aLibraryRowWithoutALengthGetsTheFilesLength()
    {
        QVERIFY(run(QStringLiteral("UPDATE tracks SET duration_ms=0")));
        QList<Track> rows{trackFromFileName(flac)};
        TrackDetails::fill(rows, {0});
        QCOMPARE(rows.at(0).artist, QStringLiteral("Stored Artist"));
        QVERIFY2(qAbs(rows.at(0).durationMs - 2500) < 100,
                 qPrintable(QString::number(rows.at(0).durationMs)));
    }

    void withoutAnOpenStoreTheFilesTagsAreUsed()
    {
        discardStore(); // a database without the store's tables answers nothing
        QVERIFY(TrackDetails::fromLibrary({flac}).isEmpty());
        QList<Track> rows{trackFromFileName(flac)};
        TrackDetails::fill(rows, {0});
        QCOMPARE(rows.at(0).artist, QStringLiteral("Flac Artist"));
        QCOMPARE(rows.at(0).title, QStringLiteral("Flac Title"));
    }

    void onlyTheNamedFileRowsChangeAndTheirPlaceIsKept()
    {
        Track first = trackFromFileName(wav);
        first.startTime = QTime(10, 0);
        QList<Track> rows{first, trackFromFileName(wav), commandTrack(QStringLiteral("stop")),
                          trackFromStreamUrl(QStringLiteral("http://radio.example/x"))};
        TrackDetails::fill(rows, {0, 2, 3, 7, -1});
        QCOMPARE(rows.at(0).artist, QStringLiteral("Wav Artist"));
        QCOMPARE(rows.at(0).startTime, QTime(10, 0));
        QCOMPARE(rows.at(1).artist, QString()); // not asked for
        QCOMPARE(rows.at(1).title, QStringLiteral("tone"));
        QVERIFY(rows.at(2).isCommand);
        QCOMPARE(rows.at(2).command, QStringLiteral("stop"));
        QCOMPARE(rows.at(3).title, QStringLiteral("http://radio.example/x"));
    }

    void aListOfThousandsOfFilesReadsTheStoreInFewPasses()
    {
        // 1,200 rows of the same two files and 1,000 distinct missing paths: one answer each.
        QList<Track> rows;
        QList<int> all;
        for (int i = 0; i < 1200; ++i) {
            all << int(rows.size());
            rows << trackFromFileName(i % 2 ? flac : wav);
        }
        for (int i = 0; i < 1000; ++i) {
            all << int(rows.size());
            rows << trackFromFileName(home.filePath(QStringLiteral("none %1.mp3").arg(i)));
        }
        QElapsedTimer timer;
        timer.start();
        TrackDetails::fill(rows, all);
        QVERIFY2(timer.elapsed() < 5000, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(rows.at(1).artist, QStringLiteral("Stored Artist"));
        QCOMPARE(rows.at(1198).artist, QStringLiteral("Wav Artist"));
        QCOMPARE(rows.last().title, QStringLiteral("none 999"));
    }
};

QTEST_GUILESS_MAIN(TestTrackDetails)
#include "tst_trackdetails.moc"
