#include "audioengine.h"
#include "playlistmodel.h"
#include "playouttestsupport.h"
#include "playouttracks.h"
#include "streamserver.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace playouttest;

// The now-playing text of stream entries, from an MP3 with ID3 tags served over HTTP.
class TestStreamMetadata : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QString wav;

    QByteArray taggedMp3(const QString& name, const QString& artist, const QString& title)
    {
        const QString path = dir.filePath(name);
        if (!runTool(QStringLiteral("ffmpeg"),
                     {QStringLiteral("-y"), QStringLiteral("-loglevel"), QStringLiteral("error"),
                      QStringLiteral("-i"), wav, QStringLiteral("-b:a"), QStringLiteral("128k"),
                      QStringLiteral("-id3v2_version"), QStringLiteral("3"), QStringLiteral("-metadata"),
                      QStringLiteral("artist=") + artist, QStringLiteral("-metadata"),
                      QStringLiteral("title=") + title, path}))
            return {};
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    // The server started and its stream the playlist's one row, which the engine plays from.
    static void tuneIn(StreamServer& server, AudioEngine& engine, PlaylistModel& playlist)
    {
        QVERIFY(server.start());
        playlist.appendTrack(streamTrack(server.url()));
        engine.setPlaylist(&playlist);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useTemporarySettings(dir.path(), QStringLiteral("tst_streammetadata"));
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        wav = makeTone(dir.path(), QStringLiteral("tone.wav"), 523, 3);
        QVERIFY(!wav.isEmpty());
    }

    void init()
    {
        useTemporarySettings(dir.path(), QStringLiteral("tst_streammetadata"));
        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
    }

    void artistAndTitleAreReportedOnceForTheSameText()
    {
        const QByteArray mp3 =
            taggedMp3(QStringLiteral("a.mp3"), QStringLiteral("Night Owls"), QStringLiteral("Morning Song"));
        QVERIFY(!mp3.isEmpty());
        StreamServer server(mp3, 16000);
        PlaylistModel playlist;
        AudioEngine engine;
        PLAYOUT_CHECKED(tuneIn(server, engine, playlist));
        QSignalSpy titles(&engine, &AudioEngine::streamMetadata);
        QStringList logs;
        connect(&engine, &AudioEngine::logMessage, this, [&](const QString& text) { logs << text; });
        engine.playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(titles.count() >= 1, 15000);
        QCOMPARE(titles.at(0).at(0).toString(), QStringLiteral("Night Owls - Morning Song"));
        QVERIFY(logs.contains(QStringLiteral("Stream metadata: Night Owls - Morning Song")));
        // The stream loops over the same tagged file: no second report.
        QTest::qWait(4000);
        QCOMPARE(titles.count(), 1);
        QCOMPARE(logs.count(QStringLiteral("Stream metadata: Night Owls - Morning Song")), 1);
        engine.stop();
    }

    void titleThatAlreadyHoldsTheArtistIsNotDoubled()
    {
        const QByteArray mp3 = taggedMp3(QStringLiteral("b.mp3"), QStringLiteral("Night Owls"),
                                         QStringLiteral("Night Owls - Evening Mix"));
        StreamServer server(mp3, 16000);
        PlaylistModel playlist;
        AudioEngine engine;
        PLAYOUT_CHECKED(tuneIn(server, engine, playlist));
        QSignalSpy titles(&engine, &AudioEngine::streamMetadata);
        engine.playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(titles.count() >= 1, 15000);
        QCOMPARE(titles.at(0).at(0).toString(), QStringLiteral("Night Owls - Evening Mix"));
        engine.stop();
    }

    void fileTracksGiveNoStreamMetadata()
    {
        const QByteArray mp3 =
            taggedMp3(QStringLiteral("c.mp3"), QStringLiteral("Night Owls"), QStringLiteral("Local"));
        PlaylistModel playlist;
        Track t;
        t.title = QStringLiteral("Local");
        t.filePath = dir.filePath(QStringLiteral("c.mp3"));
        playlist.appendTrack(t);
        AudioEngine engine;
        engine.setPlaylist(&playlist);
        QSignalSpy titles(&engine, &AudioEngine::streamMetadata);
        engine.playRow(0);
        QTRY_VERIFY_WITH_TIMEOUT(engine.position() > 1000, 10000);
        QCOMPARE(titles.count(), 0);
        engine.stop();
    }
};

QTEST_MAIN(TestStreamMetadata)
#include "tst_streammetadata.moc"
