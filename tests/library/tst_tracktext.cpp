// The texts a track is shown and named with, and the rows built from a bare text.

#include "tracktext.h"

#include <QtTest>

class TestTrackText : public QObject
{
    Q_OBJECT

private slots:
    void displayTextIsArtistDashTitleThenTitleThenPath()
    {
        Track t;
        t.filePath = QStringLiteral("/music/x.mp3");
        QCOMPARE(trackDisplayText(t), QStringLiteral("/music/x.mp3"));
        t.artist = QStringLiteral("Artist");
        QCOMPARE(trackDisplayText(t), QStringLiteral("/music/x.mp3")); // an artist alone names nothing
        t.title = QStringLiteral("Title");
        QCOMPARE(trackDisplayText(t), QStringLiteral("Artist - Title"));
        t.artist.clear();
        QCOMPARE(trackDisplayText(t), QStringLiteral("Title"));
    }

    void displayTextOfAnEmptyTrackIsEmpty() { QCOMPARE(trackDisplayText(Track()), QString()); }

    void displayTextKeepsOddCharactersAsTheyAre()
    {
        Track t;
        t.artist = QStringLiteral("Björk & Ça\tVa");
        t.title = QStringLiteral("Jóga \"live\" – 100%");
        QCOMPARE(trackDisplayText(t), QStringLiteral("Björk & Ça\tVa - Jóga \"live\" – 100%"));
    }

    void commandRowsReadAsTheirWordInCapitals()
    {
        const Track stop = commandTrack(QStringLiteral("stop"));
        QVERIFY(stop.isCommand);
        QCOMPARE(stop.command, QStringLiteral("stop")); // kept as given
        QCOMPARE(commandRowText(stop), QStringLiteral(">> STOP <<"));
        QCOMPARE(playlistRowText(stop), QStringLiteral(">> STOP <<"));
        QCOMPARE(playlistRowText(commandTrack(QStringLiteral("Jingle"))), QStringLiteral(">> JINGLE <<"));
        QCOMPARE(commandRowText(commandTrack(QString())), QStringLiteral(">>  <<"));
        Track song;
        song.artist = QStringLiteral("A");
        song.title = QStringLiteral("B");
        QCOMPARE(playlistRowText(song), QStringLiteral("A - B"));
    }

    void splitsAtTheFirstSeparatorAndTrimsBothHalves_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("artist");
        QTest::addColumn<QString>("title");
        QTest::newRow("plain") << "Artist - Title"
                               << "Artist"
                               << "Title";
        QTest::newRow("several separators") << "A - B - C"
                                            << "A"
                                            << "B - C";
        QTest::newRow("spaces around") << "  Band  -  Tune  "
                                       << "Band"
                                       << "Tune";
        QTest::newRow("no separator") << "  Loose-Name  "
                                      << ""
                                      << "  Loose-Name  ";
        QTest::newRow("hyphen without spaces") << "Jay-Z"
                                               << ""
                                               << "Jay-Z";
        QTest::newRow("separator first") << " - Intro"
                                         << ""
                                         << " - Intro";
        QTest::newRow("separator last") << "Artist - "
                                        << "Artist"
                                        << "";
        QTest::newRow("empty") << ""
                               << ""
                               << "";
        QTest::newRow("odd characters") << "Ünïcödé – x - Ça va?!*"
                                        << "Ünïcödé – x"
                                        << "Ça va?!*";
    }

    void splitsAtTheFirstSeparatorAndTrimsBothHalves()
    {
        QFETCH(QString, text);
        QFETCH(QString, artist);
        QFETCH(QString, title);
        const ArtistTitle split = splitArtistTitle(text);
        QCOMPARE(split.artist, artist);
        QCOMPARE(split.title, title);
    }

    void fileBaseNameDropsFolderAndLastExtension_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("name");
        QTest::newRow("unix") << "/music/A - B.mp3"
                              << "A - B";
        QTest::newRow("windows") << "C:\\Music\\A - B.flac"
                                 << "A - B";
        QTest::newRow("mixed, later separator wins") << "C:\\one/two\\Three.ogg"
                                                     << "Three";
        QTest::newRow("two dots") << "/m/a.b.mp3"
                                  << "a.b";
        QTest::newRow("no extension") << "/m/Song"
                                      << "Song";
        QTest::newRow("hidden file") << "/home/dj/.hidden"
                                     << ".hidden";
        QTest::newRow("bare name") << "Song"
                                   << "Song";
        QTest::newRow("folder only") << "/music/"
                                     << "";
        QTest::newRow("empty") << ""
                               << "";
    }

    void fileBaseNameDropsFolderAndLastExtension()
    {
        QFETCH(QString, path);
        QFETCH(QString, name);
        QCOMPARE(fileBaseName(path), name);
    }

    void fileNameRowsAreNamedFromTheFileAndKnowNoLength()
    {
        const Track t = trackFromFileName(QStringLiteral("/music/Some Band - Some Song - Live.mp3"));
        QCOMPARE(t.artist, QStringLiteral("Some Band"));
        QCOMPARE(t.title, QStringLiteral("Some Song - Live"));
        QCOMPARE(t.filePath, QStringLiteral("/music/Some Band - Some Song - Live.mp3"));
        QCOMPARE(t.durationMs, qint64(0));
        QVERIFY(!t.isStream && !t.isCommand);

        const Track loose = trackFromFileName(QStringLiteral("/music/Untitled.wav"));
        QVERIFY(loose.artist.isEmpty());
        QCOMPARE(loose.title, QStringLiteral("Untitled"));

        const Track nothing = trackFromFileName(QString());
        QVERIFY(nothing.artist.isEmpty() && nothing.title.isEmpty() && nothing.filePath.isEmpty());
    }

    void streamRowsCarryTheTrimmedAddressAndNoLimit()
    {
        const Track s = trackFromStreamUrl(QStringLiteral("  http://radio.example/a b?x=1&y=ü \n"));
        QVERIFY(s.isStream);
        QCOMPARE(s.artist, onlineStreamArtist());
        QCOMPARE(s.artist, QStringLiteral("Online stream"));
        QCOMPARE(s.title, QStringLiteral("http://radio.example/a b?x=1&y=ü"));
        QCOMPARE(s.filePath, s.title);
        QCOMPARE(s.streamLimitMs, qint64(0));
        QCOMPARE(s.durationMs, qint64(0));
        QCOMPARE(trackFromStreamUrl(QString()).filePath, QString());
    }
};

QTEST_GUILESS_MAIN(TestTrackText)
#include "tst_tracktext.moc"
