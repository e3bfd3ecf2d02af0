// What the studio's command line and "add" name becomes: file rows named from the library when the
// file is in it, else from the file's tags, else (missing) from the file name.

#include "playlistloader.h"
#include "studiotestsupport.h"
#include "testmedia.h"
#include "testtracks.h"

#include <QTest>

using namespace studiotest;

class TestPlaylistLoader : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useStudioLocations(dir.path(), "tst_playlistloader");
    }

    void cleanupTestCase() { removeStudioLocations(); }

    void filesAreNamedFromTheLibraryThenFromTheirTags()
    {
        const QString flac = ondarotest::fixturePath(QStringLiteral("tagged/tone.flac"));
        const QString wav = ondarotest::fixturePath(QStringLiteral("tagged/tone.wav"));
        QVERIFY2(QFileInfo::exists(flac) && QFileInfo::exists(wav), "run the fixtures target first");
        MusicLibrary library;
        library.setLibrary(QStringLiteral("Music"));
        library.addTrack(ondarotest::fileTrack(QStringLiteral("Stored Artist"),
                                               QStringLiteral("Stored Title"), flac, 7000));
        const QString gone = dir.filePath(QStringLiteral("Gone - Song.mp3"));

        const PlaylistLoader::Result loaded = PlaylistLoader::load(
            {flac, QUrl::fromLocalFile(wav).toString(), gone, QStringLiteral("http://radio.example/")});
        QCOMPARE(loaded.tracks.size(), 4);
        QCOMPARE(loaded.tracks.at(0).artist, QStringLiteral("Stored Artist"));
        QCOMPARE(loaded.tracks.at(0).durationMs, qint64(7000));
        QCOMPARE(loaded.tracks.at(1).artist, QStringLiteral("Wav Artist"));
        QCOMPARE(loaded.tracks.at(1).filePath, wav);
        QVERIFY(loaded.tracks.at(1).durationMs > 2000);
        QCOMPARE(loaded.tracks.at(2).artist, QStringLiteral("Gone"));
        QCOMPARE(loaded.tracks.at(2).title, QStringLiteral("Song"));
        QCOMPARE(loaded.tracks.at(2).durationMs, qint64(0));
        QVERIFY(loaded.tracks.at(3).isStream);
        QCOMPARE(loaded.problems, QStringList{PlaylistLoader::missingFileText(gone)});
    }
};

QTEST_MAIN(TestPlaylistLoader)
#include "tst_playlistloader.moc"
