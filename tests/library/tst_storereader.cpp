// A window's reads of the store through StoreReader: on the embedded database a read answers at once
// where it is asked; on a server it runs on a thread of its own, its answers come back on the asking
// thread in the order asked, and a slow one makes the reader say it is waiting until it answers. Run
// on SQLite and again on the test server (tst_storereader_on_postgres).

#include "musiclibrary.h"
#include "storereader.h"
#include "testsupport.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

using namespace testsupport;

class TestStoreReader : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void onTheEmbeddedDatabaseAReadAnswersAtOnce();
    void onAServerReadsRunOffTheAskingThreadAndAnswerInOrder();
    void aSlowReadSaysItIsWaitingUntilItAnswers();

private:
    QTemporaryDir home;
};

void TestStoreReader::initTestCase()
{
    QVERIFY(home.isValid());
    useTemporaryHome(home.path());
    QVERIFY(freshStore());
    QVERIFY(MusicLibrary::createLibrary(QStringLiteral("Reader")));
}

void TestStoreReader::onTheEmbeddedDatabaseAReadAnswersAtOnce()
{
    if (onServer())
        QSKIP("the embedded database only");
    StoreReader reader;
    QStringList found;
    QThread* readOn = nullptr;
    reader.read([&] {
        readOn = QThread::currentThread();
        const QStringList names = MusicLibrary::libraries();
        return StoreReader::Answer([&found, names] { found = names; });
    });
    QCOMPARE(found, QStringList{QStringLiteral("Reader")});
    QCOMPARE(readOn, QThread::currentThread());
    QVERIFY(!reader.isBusy());
    QVERIFY(reader.problem().isEmpty());
}

void TestStoreReader::onAServerReadsRunOffTheAskingThreadAndAnswerInOrder()
{
    if (!onServer())
        QSKIP("a server only");
    StoreReader reader;
    QList<int> answered;
    QList<QThread*> readOn;
    QList<QThread*> answeredOn;
    QList<QStringList> found;
    for (int i = 0; i < 3; ++i) {
        reader.read([&, i] {
            readOn << QThread::currentThread();
            const QStringList names = MusicLibrary::libraries();
            return StoreReader::Answer([&, i, names] {
                answered << i;
                answeredOn << QThread::currentThread();
                found << names;
            });
        });
    }
    // Nothing has answered yet: the reads are on their way.
    QVERIFY(answered.isEmpty());
    QVERIFY(reader.isBusy());
    QTRY_COMPARE(answered, (QList<int>{0, 1, 2}));
    QVERIFY(!reader.isBusy());
    for (int i = 0; i < 3; ++i) {
        QVERIFY(readOn.at(i) != QThread::currentThread());
        QCOMPARE(answeredOn.at(i), QThread::currentThread());
        QCOMPARE(found.at(i), QStringList{QStringLiteral("Reader")});
    }
    QVERIFY(reader.problem().isEmpty());
}

void TestStoreReader::aSlowReadSaysItIsWaitingUntilItAnswers()
{
    if (!onServer())
        QSKIP("a server only");
    StoreReader reader;
    QSignalSpy waiting(&reader, &StoreReader::waitingChanged);
    bool done = false;
    reader.read([&] {
        QThread::msleep(StoreReader::kSlowMs * 3);
        return StoreReader::Answer([&] { done = true; });
    });
    QVERIFY(waiting.wait(StoreReader::kSlowMs * 2));
    QCOMPARE(waiting.last().first().toBool(), true);
    QVERIFY(reader.isWaiting());
    QVERIFY(!done);
    QTRY_VERIFY(done);
    QCOMPARE(waiting.size(), 2);
    QCOMPARE(waiting.last().first().toBool(), false);
    QVERIFY(!reader.isWaiting());

    // A quick read says nothing.
    waiting.clear();
    done = false;
    reader.read([&] { return StoreReader::Answer([&] { done = true; }); });
    QTRY_VERIFY(done);
    QVERIFY(waiting.isEmpty());
}

QTEST_MAIN(TestStoreReader)
#include "tst_storereader.moc"
