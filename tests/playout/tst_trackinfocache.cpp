// The playout's read-ahead view of the store: files are read on a thread of their own, lookup answers
// from memory at once, a change is read again on request, what is kept stays bounded, and a server
// that hangs (stopped with SIGSTOP) never holds lookup up.

#include "libraryconnection.h"
#include "musiclibrary.h"
#include "pgtcpserver.h"
#include "playlistmodel.h"
#include "playouttestsupport.h"
#include "trackinfocache.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QSqlDatabase>
#include <QTemporaryDir>
#include <QTest>

using namespace playouttest;

namespace {

const QString kConnection = QStringLiteral("od_library");

void dropConnection()
{
    if (QSqlDatabase::contains(kConnection))
        QSqlDatabase::database(kConnection, false).close();
    QSqlDatabase::removeDatabase(kConnection);
}

TrackParams paramsWith(qint64 start, double level)
{
    TrackParams p;
    p.start = start;
    p.level = level;
    return p;
}

TrackAnalysis analysisOf(const QString& path, double lufs)
{
    TrackAnalysis a;
    a.filePath = path;
    a.fileSize = 1000;
    a.fileModified = QDateTime::currentDateTimeUtc();
    a.analysedAt = QDateTime::currentDateTime();
    a.durationMs = 180000;
    a.integratedLufs = lufs;
    a.cueInMs = 120;
    a.cueOutMs = 179000;
    return a;
}

Track fileRow(const QString& path)
{
    Track t;
    t.filePath = path;
    t.title = QFileInfo(path).completeBaseName();
    return t;
}

// Waits until the cache has answered for `path` (known or not).
bool readyFor(QSignalSpy& spy, const QString& path, int timeoutMs = 15000)
{
    QElapsedTimer clock;
    clock.start();
    for (;;) {
        for (const QList<QVariant>& args : std::as_const(spy))
            if (args.value(0).toString() == path)
                return true;
        if (clock.hasExpired(timeoutMs))
            return false;
        spy.wait(200);
    }
}

} // namespace

class TestTrackInfoCache : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;

    QString path(const QString& name) const { return dir.filePath(name); }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useTemporarySettings(dir.path(),
                             QStringLiteral("tst_trackinfocache-%1").arg(QCoreApplication::applicationPid()));
    }

    void init()
    {
        dropConnection();
        removeLibraryStore();
        QVERIFY(MusicLibrary::initialize());
    }

    void cleanupTestCase() { dropConnection(); }

    void prefetchReadsAheadAndLookupAnswersFromMemory()
    {
        const QString a = path(QStringLiteral("a.wav"));
        TrackParams::save(a, paramsWith(1234, 0.5));
        QVERIFY(TrackAnalysis::save({analysisOf(a, -14.5)}));

        TrackInfoCache cache;
        QSignalSpy ready(&cache, &TrackInfoCache::infoReady);
        cache.prefetch({a});
        QVERIFY(readyFor(ready, a));
        const TrackInfo info = cache.lookup(a);
        QVERIFY(info.known);
        QCOMPARE(info.params.start, qint64(1234));
        QCOMPARE(info.params.level, 0.5);
        QVERIFY(info.analysis.isValid());
        QCOMPARE(info.analysis.integratedLufs, -14.5);
        QCOMPARE(info.analysis.cueInMs, qint64(120));
        // Answered from memory: nothing more is read.
        QCOMPARE(cache.waitingCount(), 0);
        QCOMPARE(ready.count(), 1);
    }

    void lookupOfAFileNotReadYetIsUnknownAndReadsItFirst()
    {
        const QString b = path(QStringLiteral("b.wav"));
        TrackParams::save(b, paramsWith(500, 0.8));
        TrackInfoCache cache;
        QSignalSpy ready(&cache, &TrackInfoCache::infoReady);
        const TrackInfo before = cache.lookup(b);
        QVERIFY(!before.known);
        QVERIFY(TrackParams::isDefault(before.params));
        QVERIFY(readyFor(ready, b));
        const TrackInfo after = cache.lookup(b);
        QVERIFY(after.known);
        QCOMPARE(after.params.start, qint64(500));
        // An empty path is no file: unknown, and nothing is read.
        QVERIFY(!cache.lookup(QString()).known);
        QCOMPARE(cache.waitingCount(), 0);
    }

    void watchReadsEveryFileRowNowAndWhenRowsAreAddedOrTheListReplaced()
    {
        const QStringList files = {path(QStringLiteral("one.wav")), path(QStringLiteral("two.wav")),
                                   path(QStringLiteral("three.wav"))};
        for (int i = 0; i < files.size(); ++i)
            TrackParams::save(files.at(i), paramsWith(100 * (i + 1), 1.0));
        PlaylistModel playlist;
        playlist.appendTrack(fileRow(files.at(0)));
        Track command;
        command.isCommand = true;
        command.command = QStringLiteral("STOP");
        playlist.appendTrack(command);
        Track stream;
        stream.isStream = true;
        stream.filePath = QStringLiteral("http://127.0.0.1:1/live");
        playlist.appendTrack(stream);

        TrackInfoCache cache;
        QSignalSpy ready(&cache, &TrackInfoCache::infoReady);
        cache.watch(&playlist);
        QVERIFY(readyFor(ready, files.at(0)));
        QCOMPARE(cache.lookup(files.at(0)).params.start, qint64(100));
        // Command and stream rows are no files of the store.
        QTRY_COMPARE(cache.waitingCount(), 0);
        QCOMPARE(ready.count(), 1);

        playlist.appendTrack(fileRow(files.at(1)));
        QVERIFY(readyFor(ready, files.at(1)));
        QCOMPARE(cache.lookup(files.at(1)).params.start, qint64(200));

        playlist.clear();
        playlist.appendTracks({fileRow(files.at(2))});
        QVERIFY(readyFor(ready, files.at(2)));
        QCOMPARE(cache.lookup(files.at(2)).params.start, qint64(300));
        // Only the list's own file is kept now.
        QCOMPARE(cache.heldCount(), 1);

        cache.watch(nullptr);
        playlist.appendTrack(fileRow(files.at(0)));
        QTest::qWait(0);
        QCOMPARE(cache.waitingCount(), 0);
    }

    void invalidateReadsTheChangedValuesAndKeepsTheOldUntilThen()
    {
        const QString c = path(QStringLiteral("c.wav"));
        TrackParams::save(c, paramsWith(1000, 1.0));
        TrackInfoCache cache;
        QSignalSpy ready(&cache, &TrackInfoCache::infoReady);
        cache.prefetch({c});
        QVERIFY(readyFor(ready, c));
        QCOMPARE(cache.lookup(c).params.start, qint64(1000));

        TrackParams::save(c, paramsWith(2500, 0.25));
        ready.clear();
        cache.invalidate(c);
        const TrackInfo meanwhile = cache.lookup(c);
        QVERIFY(meanwhile.known);
        QVERIFY(meanwhile.params.start == 1000 || meanwhile.params.start == 2500);
        QVERIFY(readyFor(ready, c));
        QCOMPARE(cache.lookup(c).params.start, qint64(2500));
        QCOMPARE(cache.lookup(c).params.level, 0.25);
    }

    void aFileTheStoreHoldsNothingOfIsKnownWithDefaults()
    {
        // Neither on disk nor in the store.
        const QString never = path(QStringLiteral("never/there.wav"));
        // Stored once, then its file vanished and the store forgot it.
        const QString vanished = path(QStringLiteral("vanished.wav"));
        TrackParams::save(vanished, paramsWith(700, 0.7));
        QVERIFY(TrackAnalysis::save({analysisOf(vanished, -20.0)}));

        TrackInfoCache cache;
        QSignalSpy ready(&cache, &TrackInfoCache::infoReady);
        cache.prefetch({never, vanished});
        QVERIFY(readyFor(ready, never));
        QVERIFY(readyFor(ready, vanished));
        QVERIFY(cache.lookup(never).known);
        QVERIFY(TrackParams::isDefault(cache.lookup(never).params));
        QVERIFY(!cache.lookup(never).analysis.isValid());
        QCOMPARE(cache.lookup(vanished).params.start, qint64(700));

        TrackParams::remove(vanished);
        QVERIFY(TrackAnalysis::remove(vanished));
        ready.clear();
        cache.invalidate(vanished);
        QVERIFY(readyFor(ready, vanished));
        const TrackInfo gone = cache.lookup(vanished);
        QVERIFY(gone.known);
        QVERIFY(TrackParams::isDefault(gone.params));
        QVERIFY(!gone.analysis.isValid());
    }

    void pathsWithOddCharactersAreReadAsStored()
    {
        const QStringList odd = {path(QStringLiteral("it's \"quoted\", 100% ok.wav")),
                                 path(QStringLiteral("Ünïcödé – 日本語 ♪.flac")),
                                 path(QStringLiteral("back\\slash; DROP TABLE track_params;--.mp3")),
                                 path(QStringLiteral("  spaces  and\ttab .ogg"))};
        for (int i = 0; i < odd.size(); ++i)
            TrackParams::save(odd.at(i), paramsWith(10 + i, 1.0));
        TrackInfoCache cache;
        QSignalSpy ready(&cache, &TrackInfoCache::infoReady);
        cache.prefetch(odd);
        for (int i = 0; i < odd.size(); ++i) {
            QVERIFY2(readyFor(ready, odd.at(i)), qPrintable(odd.at(i)));
            QVERIFY(cache.lookup(odd.at(i)).known);
            QCOMPARE(cache.lookup(odd.at(i)).params.start, qint64(10 + i));
        }
    }

    void whatIsKeptIsTheWatchedListAndAFewOthers()
    {
        PlaylistModel playlist;
        QList<Track> rows;
        for (int i = 0; i < 10000; ++i)
            rows << fileRow(path(QStringLiteral("many/%1.wav").arg(i)));
        playlist.appendTracks(rows);
        TrackInfoCache cache;
        cache.watch(&playlist);
        QTRY_COMPARE_WITH_TIMEOUT(cache.heldCount(), 10000, 120000);

        // Files outside the list: only the last few stay.
        QStringList others;
        for (int i = 0; i < 500; ++i)
            others << path(QStringLiteral("other/%1.wav").arg(i));
        QSignalSpy ready(&cache, &TrackInfoCache::infoReady);
        cache.prefetch(others);
        QVERIFY(readyFor(ready, others.last(), 60000));
        QTRY_COMPARE(cache.waitingCount(), 0);
        QCOMPARE(cache.heldCount(), 10000 + TrackInfoCache::kSpareCount);
        QVERIFY(cache.lookup(others.last()).known);
        QVERIFY(!cache.lookup(others.first()).known);

        // A shorter list lets go of what it no longer has.
        playlist.removeTracksAfter(9);
        QCOMPARE(playlist.rowCount(), 10);
        QTRY_VERIFY(cache.heldCount() <= 10 + TrackInfoCache::kSpareCount);
        QVERIFY(cache.lookup(rows.at(5).filePath).known);
    }

    void aStoreThatCannotBeOpenedLeavesFilesUnknownAndLookupStillAnswers()
    {
        dropConnection();
        QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), kConnection)
            .setDatabaseName(dir.filePath(QStringLiteral("no/such/folder/library.db")));
        const QString d = path(QStringLiteral("d.wav"));
        TrackInfoCache cache;
        QSignalSpy ready(&cache, &TrackInfoCache::infoReady);
        QVERIFY(!cache.lookup(d).known);
        QTRY_COMPARE(cache.waitingCount(), 0);
        QTest::qWait(300);
        QVERIFY(!cache.lookup(d).known);
        QCOMPARE(ready.count(), 0);
        QCOMPARE(cache.heldCount(), 0);
    }

    // Last: it moves the store onto a private server.
    void lookupAnswersAtOnceWhileTheServerHangs()
    {
        if (!pgtest::TcpServer::available())
            QSKIP("no PostgreSQL server is installed (scripts/setup.sh installs it)");
        pgtest::TcpServer server;
        QVERIFY(
            server.start(QStringLiteral("/tmp/ondaro-infocache-%1").arg(QCoreApplication::applicationPid())));
        dropConnection();
        qputenv("ONDARO_DATABASE_URL", server.url().toUtf8());
        LibraryConnection::setReconnectInterval(200);
        QVERIFY2(MusicLibrary::initialize(), qPrintable(LibraryConnection::problem()));
        QVERIFY(LibraryConnection::isServer());

        const QString read = QStringLiteral("/music/read ahead.wav");
        const QString late = QStringLiteral("/music/asked late.wav");
        TrackParams::save(read, paramsWith(111, 0.9));
        TrackParams::save(late, paramsWith(222, 0.6));
        TrackInfoCache cache;
        QSignalSpy ready(&cache, &TrackInfoCache::infoReady);
        cache.prefetch({read});
        QVERIFY(readyFor(ready, read));

        QVERIFY(server.pause());
        QElapsedTimer clock;
        clock.start();
        const TrackInfo known = cache.lookup(read);
        const TrackInfo unknown = cache.lookup(late);
        cache.invalidate(read);
        const TrackInfo stillKnown = cache.lookup(read);
        const qint64 tookMs = clock.elapsed();
        qInfo("three lookups and an invalidate while the server hangs took %lld ms", tookMs);
        QVERIFY(known.known);
        QCOMPARE(known.params.start, qint64(111));
        QVERIFY(!unknown.known);
        QVERIFY(stillKnown.known);
        QVERIFY2(tookMs < 50, qPrintable(QString::number(tookMs)));
        // Nothing arrives while it hangs.
        QTest::qWait(1000);
        QVERIFY(!cache.lookup(late).known);

        QVERIFY(server.resume());
        QVERIFY(readyFor(ready, late, 30000));
        QCOMPARE(cache.lookup(late).params.start, qint64(222));

        dropConnection();
        qunsetenv("ONDARO_DATABASE_URL");
    }
};

QTEST_MAIN(TestTrackInfoCache)
#include "tst_trackinfocache.moc"
