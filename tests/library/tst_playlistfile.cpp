// Extended M3U playlists: what is written, what is read back, and what a broken file gives.

#include "playlistfile.h"
#include "testtracks.h"
#include "track.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

namespace {

using ondarotest::fileTrack;

Track streamTrack(const QString& url)
{
    return trackFromStreamUrl(url);
}

void touch(const QString& path)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("x");
}

void writeBytes(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

} // namespace

class TestPlaylistFile : public QObject
{
    Q_OBJECT

private slots:
    void writesExtinfWithWholeSecondsAndArtistTitle()
    {
        const QByteArray m3u = PlaylistFile::toM3u(
            {fileTrack(QStringLiteral("Abba"), QStringLiteral("Waterloo"), QStringLiteral("/music/w.mp3"), 167499),
             commandTrack(QStringLiteral("stop")), streamTrack(QStringLiteral("http://radio.example/live"))});
        const QList<QByteArray> lines = m3u.split('\n');
        QCOMPARE(lines.value(0), QByteArray("#EXTM3U"));
        QCOMPARE(lines.value(1), QByteArray("#EXTINF:167,Abba - Waterloo"));
        QCOMPARE(lines.value(2), QByteArray("/music/w.mp3"));
        QCOMPARE(lines.value(3), QByteArray("#ONDARO-COMMAND:stop"));
        QCOMPARE(lines.value(4), QByteArray("#EXTINF:-1,Online stream - http://radio.example/live"));
        QCOMPARE(lines.value(5), QByteArray("http://radio.example/live"));
    }

    void roundTripKeepsStreamsCommandsAndNonAsciiPaths()
    {
        QTemporaryDir dir;
        const QString song = dir.filePath(QStringLiteral("Ünïcödé – ça va/Björk - Jóga.flac"));
        touch(song);
        const QList<Track> rows = {
            fileTrack(QStringLiteral("Björk"), QStringLiteral("Jóga"), song, 305000),
            commandTrack(QStringLiteral("pause")),
            streamTrack(QStringLiteral("https://stream.example/ü.mp3")),
            commandTrack(QStringLiteral("stop")),
        };
        const QString path = dir.filePath(QStringLiteral("list.m3u"));
        QString error;
        QVERIFY2(PlaylistFile::write(path, rows, &error), qPrintable(error));

        const PlaylistFile::ReadResult read = PlaylistFile::read(path);
        QVERIFY2(read.ok, qPrintable(read.error));
        QCOMPARE(read.tracks.size(), 4);
        QCOMPARE(read.tracks[0].filePath, song);
        QCOMPARE(read.tracks[0].artist, QStringLiteral("Björk"));
        QCOMPARE(read.tracks[0].title, QStringLiteral("Jóga"));
        QCOMPARE(read.tracks[0].durationMs, qint64(305000));
        QVERIFY(read.tracks[1].isCommand);
        QCOMPARE(read.tracks[1].command, QStringLiteral("pause"));
        QVERIFY(read.tracks[2].isStream);
        QCOMPARE(read.tracks[2].filePath, QStringLiteral("https://stream.example/ü.mp3"));
        QCOMPARE(read.tracks[2].artist, QStringLiteral("Online stream"));
        QVERIFY(read.tracks[3].isCommand);
        QCOMPARE(read.tracks[3].command, QStringLiteral("stop"));
        QVERIFY(read.missingFiles.isEmpty());
    }

    void relativePathsResolveAgainstThePlaylistsFolder()
    {
        QTemporaryDir dir;
        touch(dir.filePath(QStringLiteral("lists/sub/a.mp3")));
        touch(dir.filePath(QStringLiteral("music/b.mp3")));
        const QString path = dir.filePath(QStringLiteral("lists/show.m3u"));
        writeBytes(path, "#EXTM3U\r\n#EXTINF:12,Some One - A\r\nsub/a.mp3\r\n../music/b.mp3\r\n");
        const PlaylistFile::ReadResult read = PlaylistFile::read(path);
        QVERIFY2(read.ok, qPrintable(read.error));
        QCOMPARE(read.tracks.size(), 2);
        QCOMPARE(read.tracks[0].filePath, dir.filePath(QStringLiteral("lists/sub/a.mp3")));
        QCOMPARE(read.tracks[0].durationMs, qint64(12000));
        QCOMPARE(read.tracks[1].filePath, dir.filePath(QStringLiteral("music/b.mp3")));
        // Without #EXTINF the name comes from the file name, the length stays unknown.
        QCOMPARE(read.tracks[1].title, QStringLiteral("b"));
        QCOMPARE(read.tracks[1].durationMs, qint64(0));
    }

    void fileUrlsAndLatin1TextAreRead()
    {
        QTemporaryDir dir;
        touch(dir.filePath(QStringLiteral("Café.mp3")));
        QByteArray latin1 = "#EXTINF:3,Caf\xe9 Band - Song\n";
        latin1 += QUrl::fromLocalFile(dir.filePath(QStringLiteral("Café.mp3"))).toEncoded() + "\n";
        const PlaylistFile::ReadResult read = PlaylistFile::parse(latin1, dir.path());
        QVERIFY2(read.ok, qPrintable(read.error));
        QCOMPARE(read.tracks.size(), 1);
        QCOMPARE(read.tracks[0].artist, QStringLiteral("Café Band"));
        QCOMPARE(read.tracks[0].filePath, dir.filePath(QStringLiteral("Café.mp3")));
    }

    void missingFilesAreKeptAndListed()
    {
        const PlaylistFile::ReadResult read =
            PlaylistFile::parse("#EXTM3U\n/nonexistent/ondaro/gone.mp3\n", QString());
        QVERIFY(read.ok);
        QCOMPARE(read.tracks.size(), 1);
        QCOMPARE(read.missingFiles, QStringList{QStringLiteral("/nonexistent/ondaro/gone.mp3")});
    }

    void otherUrlSchemesAreSkipped()
    {
        const PlaylistFile::ReadResult read =
            PlaylistFile::parse("ftp://files.example/a.mp3\nhttp://radio.example/live\n", QString());
        QVERIFY(read.ok);
        QCOMPARE(read.tracks.size(), 1);
        QVERIFY(read.tracks[0].isStream);
        QCOMPARE(read.skipped, QStringList{QStringLiteral("ftp://files.example/a.mp3")});
    }

    void missingFileIsAnError()
    {
        const PlaylistFile::ReadResult read = PlaylistFile::read(QStringLiteral("/nonexistent/ondaro/list.m3u"));
        QVERIFY(!read.ok);
        QVERIFY(read.error.contains(QStringLiteral("Cannot read")));
        QVERIFY(read.tracks.isEmpty());
    }

    void malformedFilesAreErrorsNamingTheLine_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("errorPart");
        QTest::newRow("binary") << QByteArray("#EXTM3U\n\0\x01\x02", 9) << QStringLiteral("binary");
        QTest::newRow("length not a number") << QByteArray("#EXTINF:abc,A - B\n/a.mp3\n") << QStringLiteral("Line 1");
        QTest::newRow("extinf without entry") << QByteArray("#EXTM3U\n/a.mp3\n#EXTINF:3,A - B\n")
                                               << QStringLiteral("Line 3");
        QTest::newRow("two extinf in a row") << QByteArray("#EXTINF:3,A\n#EXTINF:4,B\n/b.mp3\n")
                                              << QStringLiteral("Line 1");
        QTest::newRow("command without word") << QByteArray("#ONDARO-COMMAND:\n") << QStringLiteral("Line 1");
    }

    void malformedFilesAreErrorsNamingTheLine()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, errorPart);
        const PlaylistFile::ReadResult read = PlaylistFile::parse(content, QString());
        QVERIFY(!read.ok);
        QVERIFY2(read.error.contains(errorPart), qPrintable(read.error));
    }

    void titlesWithLineBreaksStayOnOneLine()
    {
        const QByteArray m3u = PlaylistFile::toM3u(
            {fileTrack(QStringLiteral("A"), QStringLiteral("Two\nLines"), QStringLiteral("/x.mp3"), 1000)});
        QCOMPARE(m3u, QByteArray("#EXTM3U\n#EXTINF:1,A - Two Lines\n/x.mp3\n"));
        QVERIFY(PlaylistFile::parse(m3u, QString()).ok);
    }

    void unwritableTargetReportsTheReason()
    {
        QString error;
        QVERIFY(!PlaylistFile::write(QStringLiteral("/nonexistent/ondaro/out.m3u"), {}, &error));
        QVERIFY(error.contains(QStringLiteral("Cannot write")));
    }
};

QTEST_GUILESS_MAIN(TestPlaylistFile)
#include "tst_playlistfile.moc"
