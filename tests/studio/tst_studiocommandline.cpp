#include "playlistloader.h"
#include "studiocommandline.h"
#include "studiotestsupport.h"

#include <QTest>

using namespace studiotest;

// ondaro-studio's arguments, and how what they name becomes playlist rows.
class TestStudioCommandLine : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QString tone;

    static StudioCommandLine::Options parse(const QStringList& arguments)
    {
        return StudioCommandLine::parse(QStringList{QStringLiteral("ondaro-studio")} + arguments);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useStudioLocations(dir.path(), "tst_studiocommandline");
        tone = playouttest::makeTone(dir.path(), QStringLiteral("Band - Song.wav"), 440, 1.0);
        QVERIFY(!tone.isEmpty());
    }

    void cleanupTestCase() { removeStudioLocations(); }

    void noArgumentsLoadNothingAndDoNotPlay()
    {
        const auto options = parse({});
        QVERIFY(options.error.isEmpty());
        QVERIFY(!options.play);
        QVERIFY(!options.showHelp);
        QVERIFY(options.items.isEmpty());
    }

    void playAndItemsAreTakenInOrder()
    {
        const auto options = parse({QStringLiteral("a.mp3"), QStringLiteral("--play"),
                                    QStringLiteral("http://radio.example/live"), QStringLiteral("list.m3u")});
        QVERIFY(options.error.isEmpty());
        QVERIFY(options.play);
        QCOMPARE(options.items,
                 (QStringList{QStringLiteral("a.mp3"), QStringLiteral("http://radio.example/live"),
                              QStringLiteral("list.m3u")}));
    }

    void helpIsRecognisedAndExplainsPlay()
    {
        QVERIFY(parse({QStringLiteral("--help")}).showHelp);
        QVERIFY(parse({QStringLiteral("-h")}).showHelp);
        const QString help = StudioCommandLine::helpText();
        QVERIFY2(help.startsWith(QStringLiteral("Usage: ondaro-studio [options] [FILE|URL|M3U...]")),
                 qPrintable(help));
        QVERIFY(help.contains(QStringLiteral("--play")));
        QVERIFY(help.contains(QStringLiteral("unattended")));
    }

    void anUnknownOptionIsAUsageError()
    {
        const auto options = parse({QStringLiteral("--loud")});
        QVERIFY(options.error.contains(QStringLiteral("loud")));
    }

    void aFileBecomesARowWithItsTags()
    {
        const PlaylistLoader::Result loaded = PlaylistLoader::load({tone});
        QCOMPARE(loaded.tracks.size(), 1);
        QCOMPARE(loaded.tracks.at(0).artist, QStringLiteral("Band"));
        QCOMPARE(loaded.tracks.at(0).title, QStringLiteral("Song"));
        QCOMPARE(loaded.tracks.at(0).filePath, tone);
        QVERIFY(loaded.tracks.at(0).durationMs >= 900);
        QVERIFY(loaded.problems.isEmpty());
    }

    void aStreamUrlBecomesAStreamRow()
    {
        const PlaylistLoader::Result loaded =
            PlaylistLoader::load({QStringLiteral("  RTMP://live.example/a ")});
        QCOMPARE(loaded.tracks.size(), 1);
        QVERIFY(loaded.tracks.at(0).isStream);
        QCOMPARE(loaded.tracks.at(0).filePath, QStringLiteral("RTMP://live.example/a"));
    }

    void aMissingFileStaysAsARowAndIsReported()
    {
        const PlaylistLoader::Result loaded =
            PlaylistLoader::load({QStringLiteral("/nonexistent/X - Y.mp3")});
        QCOMPARE(loaded.tracks.size(), 1);
        QCOMPARE(loaded.tracks.at(0).title, QStringLiteral("Y"));
        QCOMPARE(loaded.problems, QStringList{QStringLiteral("File not found: /nonexistent/X - Y.mp3")});
    }

    void otherSchemesAreIgnoredWithAMessage()
    {
        const PlaylistLoader::Result loaded =
            PlaylistLoader::load({QStringLiteral("ftp://files.example/a.mp3")});
        QVERIFY(loaded.tracks.isEmpty());
        QCOMPARE(loaded.problems.size(), 1);
        QVERIFY(loaded.problems.at(0).contains(QStringLiteral("ftp://files.example/a.mp3")));
    }

    void aPlaylistFileIsReadAndAnUnreadableOneIsReported()
    {
        const QString list = QDir(dir.path()).filePath(QStringLiteral("list.m3u8"));
        QVERIFY(uitest::writeFile(list,
                                  "#EXTM3U\n#EXTINF:1,Band - Song\nBand - Song.wav\n#ONDARO-COMMAND:stop\n"));
        const PlaylistLoader::Result loaded =
            PlaylistLoader::load({list, QDir(dir.path()).filePath(QStringLiteral("none.M3U"))});
        QCOMPARE(loaded.tracks.size(), 2);
        QCOMPARE(loaded.tracks.at(0).filePath, tone);
        QVERIFY(loaded.tracks.at(1).isCommand);
        QCOMPARE(loaded.failedPlaylists.size(), 1);
        QVERIFY(loaded.failedPlaylists.at(0).contains(QStringLiteral("none.M3U")));
    }

    void aFileUrlIsALocalFile()
    {
        const PlaylistLoader::Result loaded = PlaylistLoader::load({QUrl::fromLocalFile(tone).toString()});
        QCOMPARE(loaded.tracks.size(), 1);
        QCOMPARE(loaded.tracks.at(0).filePath, tone);
        QVERIFY(loaded.problems.isEmpty());
    }
};

QTEST_MAIN(TestStudioCommandLine)
#include "tst_studiocommandline.moc"
