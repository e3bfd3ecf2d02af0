// The studio's session on disk, without a window: a list and its position come back as written,
// rows that are not in the list are never written, and a side file that does not belong to the rows
// (another list, rows out of range, not JSON) brings back the rows only and says why.

#include "playlistfile.h"
#include "sessionfiles.h"
#include "studiotestsupport.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

namespace {

QByteArray fileBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

Track commandRow(const QString& word)
{
    Track track;
    track.isCommand = true;
    track.command = word;
    return track;
}

} // namespace

class TestSessionFiles : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QList<Track> rows;

    // A folder of its own for each case.
    QString freshFolder()
    {
        static int n = 0;
        return dir.filePath(QStringLiteral("session%1").arg(++n));
    }

    // The rows written with a side file of the given text, read back.
    SessionFiles::Saved readWithPosition(const QByteArray& position)
    {
        const SessionFiles files(freshFolder());
        QString error;
        if (!files.write(SessionFiles::Snapshot{rows, 1, {2}, {0}, {}}, &error))
            qWarning() << error;
        if (!uitest::writeFile(files.positionPath(), position))
            qWarning() << "side file not written";
        return files.read();
    }

    // The rows came back, and nothing of where the list stood.
    void checkRowsOnly(const SessionFiles::Saved& saved) const
    {
        QCOMPARE(saved.tracks.size(), rows.size());
        QVERIFY(!saved.positionKnown);
        QCOMPARE(saved.currentRow, -1);
        QVERIFY(saved.queue.isEmpty());
        QVERIFY(saved.played.isEmpty());
        QVERIFY(saved.mixOverrides.isEmpty());
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        studiotest::useStudioLocations(dir.path(), "tst_sessionfiles");
        for (const QString& name : {QStringLiteral("One"), QStringLiteral("Two"), QStringLiteral("Three")})
            rows << uitest::fileTrack(QStringLiteral("Artist"), name,
                                      dir.filePath(QStringLiteral("Artist - %1.wav").arg(name)), 180000);
        rows.insert(2, commandRow(QStringLiteral("stop")));
    }

    void cleanupTestCase() { studiotest::removeStudioLocations(); }

    void aListAndItsPositionComeBackAsWritten()
    {
        const SessionFiles files(freshFolder());
        QVERIFY(!QFile::exists(files.folder()));
        SessionFiles::Snapshot snapshot;
        snapshot.tracks = rows;
        snapshot.currentRow = 1;
        snapshot.queue = {3, 2};
        snapshot.played = {0};
        snapshot.mixOverrides = {{3, {4000, 1200}}, {1, {-1, 800}}};
        QString error;
        QVERIFY2(files.write(snapshot, &error), qPrintable(error));
        QVERIFY(fileBytes(files.playlistPath()).startsWith("#EXTM3U"));
        QVERIFY(fileBytes(files.playlistPath()).contains("#ONDARO-COMMAND:stop"));

        const SessionFiles::Saved saved = files.read();
        QVERIFY(saved.found);
        QVERIFY(saved.error.isEmpty());
        QCOMPARE(studiotest::titlesOf(saved.tracks), studiotest::titlesOf(rows));
        for (int row = 0; row < rows.size(); ++row)
            QCOMPARE(saved.tracks.at(row).filePath, rows.at(row).filePath);
        QCOMPARE(saved.missingFiles.size(), 3); // the rows name files that are not there; kept all the same
        QVERIFY(saved.positionKnown);
        QVERIFY(saved.positionProblem.isEmpty());
        QCOMPARE(saved.currentRow, 1);
        QCOMPARE(saved.queue, (QList<int>{3, 2}));
        QCOMPARE(saved.played, QList<int>{0});
        QCOMPARE(saved.mixOverrides, snapshot.mixOverrides);
    }

    void rowsThatAreNotInTheListAreNotWritten()
    {
        const SessionFiles files(freshFolder());
        SessionFiles::Snapshot snapshot;
        snapshot.tracks = rows;
        snapshot.currentRow = 9;
        snapshot.queue = {1, 7, 1, -1, 3};
        snapshot.played = {0, 4, 2};
        QString error;
        QVERIFY2(files.write(snapshot, &error), qPrintable(error));
        QCOMPARE(fileBytes(files.positionPath()),
                 QByteArray(
                     "{\"currentRow\":-1,\"mixOverrides\":[],\"played\":[0,2],\"queue\":[1,3],\"rows\":4}"));
        const SessionFiles::Saved saved = files.read();
        QVERIFY(saved.positionKnown);
        QCOMPARE(saved.currentRow, -1);
        QCOMPARE(saved.queue, (QList<int>{1, 3}));
        QCOMPARE(saved.played, (QList<int>{0, 2}));
    }

    void noSessionIsNotFoundAndAMissingSideFileIsNoProblem()
    {
        const SessionFiles none(freshFolder());
        const SessionFiles::Saved nothing = none.read();
        QVERIFY(!nothing.found);
        QVERIFY(nothing.tracks.isEmpty());

        const SessionFiles files(freshFolder());
        QString error;
        QVERIFY(files.write(SessionFiles::Snapshot{rows, 0, {}, {}, {}}, &error));
        QVERIFY(QFile::remove(files.positionPath()));
        const SessionFiles::Saved saved = files.read();
        QVERIFY(saved.found);
        QCOMPARE(saved.tracks.size(), rows.size());
        QVERIFY(!saved.positionKnown);
        QVERIFY(saved.positionProblem.isEmpty());
        QCOMPARE(saved.currentRow, -1);
    }

    void aSideFileOfAnotherListBringsBackTheRowsOnly()
    {
        // What a crash between the two writes leaves: the rows of the new list, the side file of the old.
        const SessionFiles::Saved saved = readWithPosition(
            "{\"rows\":7,\"currentRow\":5,\"queue\":[6],\"played\":[1],\"mixOverrides\":[]}");
        checkRowsOnly(saved);
        QCOMPARE(saved.positionProblem, QStringLiteral("it was written for another list"));
    }

    void aSideFileNamingRowsOutOfRangeBringsBackTheRowsOnly_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QJsonValue>("value"); // undefined: the entry is left out
        QTest::newRow("current row") << QStringLiteral("currentRow") << QJsonValue(4);
        QTest::newRow("queue") << QStringLiteral("queue") << QJsonValue(QJsonArray{2, 4});
        QTest::newRow("queue twice") << QStringLiteral("queue") << QJsonValue(QJsonArray{2, 2});
        QTest::newRow("played fraction") << QStringLiteral("played") << QJsonValue(QJsonArray{0.5});
        QTest::newRow("override row")
            << QStringLiteral("mixOverrides") << QJsonValue(QJsonArray{QJsonArray{4, 100, 100}});
        QTest::newRow("override pair")
            << QStringLiteral("mixOverrides") << QJsonValue(QJsonArray{QJsonArray{1, 100}});
        QTest::newRow("no queue") << QStringLiteral("queue") << QJsonValue(QJsonValue::Undefined);
    }

    void aSideFileNamingRowsOutOfRangeBringsBackTheRowsOnly()
    {
        QFETCH(QString, key);
        QFETCH(QJsonValue, value);
        // A side file right for the four rows but for that one entry.
        QJsonObject position{{QStringLiteral("rows"), 4},
                             {QStringLiteral("currentRow"), 1},
                             {QStringLiteral("queue"), QJsonArray()},
                             {QStringLiteral("played"), QJsonArray()},
                             {QStringLiteral("mixOverrides"), QJsonArray()}};
        if (value.isUndefined())
            position.remove(key);
        else
            position.insert(key, value);
        const SessionFiles::Saved saved = readWithPosition(QJsonDocument(position).toJson());
        checkRowsOnly(saved);
        QCOMPARE(saved.positionProblem, QStringLiteral("its rows are out of range"));
    }

    void aSideFileThatIsNotJsonBringsBackTheRowsOnly()
    {
        const SessionFiles::Saved saved = readWithPosition("not json");
        checkRowsOnly(saved);
        QVERIFY(!saved.positionProblem.isEmpty());
    }

    void anUnreadablePlaylistIsMovedAsideWithTheReason()
    {
        const SessionFiles files(freshFolder());
        QString error;
        QVERIFY(files.write(SessionFiles::Snapshot{rows, 1, {}, {}, {}}, &error));
        const QByteArray garbage("#EXTM3U\n\0\x01\x02garbage", 18);
        QVERIFY(uitest::writeFile(files.playlistPath(), garbage));
        const SessionFiles::Saved saved = files.read();
        QVERIFY(saved.found);
        QVERIFY(!saved.error.isEmpty());
        QVERIFY2(saved.error.contains(files.unreadablePath()), qPrintable(saved.error));
        QVERIFY(saved.tracks.isEmpty());
        QVERIFY(!saved.positionKnown);
        QVERIFY(!QFile::exists(files.playlistPath()));
        QCOMPARE(fileBytes(files.unreadablePath()), garbage);
        // Nothing left to read the next time: a fresh start, not the same complaint again.
        QVERIFY(!files.read().found);
    }

    void aFolderThatCannotBeMadeIsAFailureWithItsName()
    {
        const QString blocked = dir.filePath(QStringLiteral("blocked"));
        QVERIFY(uitest::writeFile(blocked, "not a folder"));
        const SessionFiles files(blocked + QStringLiteral("/inner"));
        QString error;
        QVERIFY(!files.write(SessionFiles::Snapshot{rows, 0, {}, {}, {}}, &error));
        QVERIFY2(error.startsWith(QStringLiteral("Cannot create ")), qPrintable(error));
        QVERIFY(error.contains(QStringLiteral("inner")));
    }
};

QTEST_MAIN(TestSessionFiles)
#include "tst_sessionfiles.moc"
