// Names of plain playlist rows with the library on a shared server that stops answering: the lookup
// gives up within its wait and the files' own tags are used, so opening a list never hangs.

#include "libraryconnection.h"
#include "testmedia.h"
#include "testsupport.h"
#include "trackdetails.h"
#include "tracktext.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <sys/types.h>

using namespace testsupport;

class TestTrackDetailsServer : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir home;
    QString serverDir;
    QString flac;
    pid_t serverPid = 0;

    // The postmaster's pid, the first line of its pid file.
    pid_t postmasterPid() const
    {
        QFile file(serverDir + QStringLiteral("/data/postmaster.pid"));
        if (!file.open(QIODevice::ReadOnly))
            return 0;
        return pid_t(file.readLine().trimmed().toLongLong());
    }

private slots:
    void initTestCase()
    {
        QVERIFY(home.isValid());
        useTemporaryHome(home.path());
        flac = ondarotest::fixturePath(QStringLiteral("tagged/tone.flac"));
        QVERIFY2(QFileInfo::exists(flac), "run the fixtures target first");
        // A server of this test's own: stopping it must not hold up the other tests' server.
        serverDir = QStringLiteral("/tmp/ondaro-td-%1").arg(QCoreApplication::applicationPid());
        QVERIFY(runTestServer(QStringLiteral("start"), serverDir, QStringLiteral("--fresh")));
        qputenv("ONDARO_DATABASE_URL",
                (QStringLiteral("postgresql://ondaro@/ondaro?host=") + serverDir).toUtf8());
        QVERIFY(MusicLibrary::initialize());
        QVERIFY(LibraryConnection::isServer());
        serverPid = postmasterPid();
        QVERIFY(serverPid > 0);
        MusicLibrary library;
        library.setLibrary(QStringLiteral("Music"));
        library.addTrack(
            makeTrack(QStringLiteral("Stored Artist"), QStringLiteral("Stored Title"), flac, 0, 4000));
    }

    void cleanupTestCase()
    {
        if (serverPid > 0)
            ::kill(serverPid, SIGCONT);
        closeStore();
        if (!serverDir.isEmpty())
            runTestServer(QStringLiteral("stop"), serverDir, QStringLiteral("--remove"));
    }

    void aServerThatAnswersNamesTheRowsFromTheLibrary()
    {
        QList<Track> rows{trackFromFileName(flac)};
        TrackDetails::fill(rows, {0}, 10000);
        QCOMPARE(rows.at(0).artist, QStringLiteral("Stored Artist"));
        QCOMPARE(rows.at(0).durationMs, qint64(4000));
    }

    void aServerThatStopsAnsweringIsLeftBehindAndTheFilesTagsAreUsed()
    {
        QCOMPARE(::kill(serverPid, SIGSTOP), 0);
        QList<Track> rows{trackFromFileName(flac)};
        QElapsedTimer waited;
        waited.start();
        TrackDetails::fill(rows, {0}, 1000);
        const qint64 ms = waited.elapsed();
        QCOMPARE(::kill(serverPid, SIGCONT), 0);
        QVERIFY2(ms >= 900 && ms < 3000, qPrintable(QString::number(ms)));
        QCOMPARE(rows.at(0).artist, QStringLiteral("Flac Artist"));
        QCOMPARE(rows.at(0).title, QStringLiteral("Flac Title"));
        QVERIFY(rows.at(0).durationMs > 2000);

        // Once it answers again, so does the lookup.
        QList<Track> again{trackFromFileName(flac)};
        TrackDetails::fill(again, {0}, 10000);
        QCOMPARE(again.at(0).artist, QStringLiteral("Stored Artist"));
    }
};

QTEST_GUILESS_MAIN(TestTrackDetailsServer)
#include "tst_trackdetailsserver.moc"
