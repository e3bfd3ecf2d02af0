// The playlist's voiceover background comes from a cache per file: a repaint reads nothing, the files a
// repaint asked for are read once just after it, and a change of a file's stored parameters shows up in
// the colour at once.

#include "musiclibrary.h"
#include "playlistmodel.h"
#include "playlisttesting.h"
#include "trackparams.h"

#include <QAbstractItemModelTester>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

using namespace playlisttesting;

namespace {

const QColor kVoiceover(255, 214, 234);

TrackParams withVoiceover()
{
    TrackParams params;
    params.voiceoverIns = 2000;
    params.voiceoverSource = QStringLiteral("/music/ids/station id.wav");
    return params;
}

QString fileNumber(int i)
{
    return QStringLiteral("/music/colours/file %1.mp3").arg(i);
}

// Asks for the background of every cell, as a full repaint of the list does.
void paintAll(const PlaylistModel& model)
{
    for (int row = 0; row < model.rowCount(); ++row)
        for (int column = 0; column < PlaylistModel::ColumnCount; ++column)
            model.data(model.index(row, column), Qt::BackgroundRole);
}

bool isVoiced(const PlaylistModel& model, int row)
{
    return isSolidBrush(model.data(model.index(row, PlaylistModel::TitleColumn), Qt::BackgroundRole),
                        kVoiceover);
}

} // namespace

class TestPlaylistColours : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void repaintsReadNothingOnceTheColoursAreKnown();
    void withoutASourceARepaintDoesNotAskTheStore();
    void aParameterChangeShowsUpInTheColourAtOnce();
    void aChangeOfAFileNotInTheListReadsNothing();

private:
    // 200 rows over 50 files, every fifth file with a voiceover; reads counted through the source.
    void fillCounted(PlaylistModel& model);

    QTemporaryDir m_home;
    int m_reads = 0;
};

void TestPlaylistColours::initTestCase()
{
    const QString problem = openTemporaryStore(m_home, QStringLiteral("tst_playlistcolours"));
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
}

void TestPlaylistColours::init()
{
    m_reads = 0;
    for (int i = 0; i < 50; ++i) {
        if (i % 5 == 0)
            TrackParams::save(fileNumber(i), withVoiceover());
        else
            TrackParams::remove(fileNumber(i));
    }
}

void TestPlaylistColours::fillCounted(PlaylistModel& model)
{
    model.setParamsSource([this](const QString& path) {
        ++m_reads;
        return TrackParams::load(path);
    });
    QList<Track> tracks;
    for (int row = 0; row < 200; ++row)
        tracks << makeTrack(QStringLiteral("A"), QStringLiteral("T%1").arg(row), 60000, fileNumber(row % 50));
    model.appendTracks(tracks);
}

void TestPlaylistColours::repaintsReadNothingOnceTheColoursAreKnown()
{
    PlaylistModel model;
    QAbstractItemModelTester tester(&model);
    fillCounted(model);
    QCOMPARE(m_reads, 0);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);

    // The first repaint reads nothing itself; the files it asked for are read once, just after.
    paintAll(model);
    QCOMPARE(m_reads, 0);
    QVERIFY(!isVoiced(model, 0));
    QTRY_COMPARE(m_reads, 50);
    QVERIFY(!changed.isEmpty());
    QCOMPARE(changed.last().at(2).value<QList<int>>(), QList<int>{Qt::BackgroundRole});
    for (int row = 0; row < model.rowCount(); ++row)
        QCOMPARE(isVoiced(model, row), (row % 50) % 5 == 0);

    QElapsedTimer clock;
    clock.start();
    for (int repaint = 0; repaint < 100; ++repaint)
        paintAll(model);
    qInfo("100 repaints of 200 rows: %lld ms", clock.elapsed());
    QTest::qWait(50); // a read it asked for would have run by now
    QCOMPARE(m_reads, 50);
}

void TestPlaylistColours::withoutASourceARepaintDoesNotAskTheStore()
{
    const QString path = fileNumber(0);
    PlaylistModel model;
    model.appendTrack(makeTrack(QStringLiteral("V"), QStringLiteral("Voiced"), 60000, path));
    paintAll(model);
    QTRY_VERIFY(isVoiced(model, 0));

    // Taken out of the store behind the model's back (no signal): a repaint that read the store
    // would lose the colour.
    QSqlQuery remove(MusicLibrary::database());
    QVERIFY(remove.prepare(QStringLiteral("DELETE FROM track_params WHERE filepath = ?")));
    remove.addBindValue(path);
    QVERIFY2(remove.exec(), qPrintable(remove.lastError().text()));
    QCOMPARE(TrackParams::load(path).voiceoverIns, qint64(0));
    for (int repaint = 0; repaint < 1000; ++repaint)
        paintAll(model);
    QTest::qWait(50);
    QVERIFY(isVoiced(model, 0));

    // Asked to, it reads again.
    model.refresh();
    QTRY_VERIFY(!isVoiced(model, 0));
}

void TestPlaylistColours::aParameterChangeShowsUpInTheColourAtOnce()
{
    PlaylistModel model;
    QAbstractItemModelTester tester(&model);
    fillCounted(model);
    paintAll(model);
    QTRY_COMPARE(m_reads, 50);
    QVERIFY(!isVoiced(model, 1));
    QVERIFY(!isVoiced(model, 51));

    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    TrackParams::save(fileNumber(1), withVoiceover());
    // One read of that file, and its rows (1, 51, 101, 151) repainted.
    QCOMPARE(m_reads, 51);
    QVERIFY(isVoiced(model, 1));
    QVERIFY(isVoiced(model, 151));
    QCOMPARE(changed.size(), 1);
    QCOMPARE(changed.first().at(0).value<QModelIndex>().row(), 1);
    QCOMPARE(changed.first().at(1).value<QModelIndex>().row(), 151);

    TrackParams::remove(fileNumber(1));
    QCOMPARE(m_reads, 52);
    QVERIFY(!isVoiced(model, 1));
    // A rating changes nothing the colour shows: read, but nothing repainted.
    changed.clear();
    TrackParams::setTrackRating(fileNumber(0), 7);
    QCOMPARE(m_reads, 53);
    QVERIFY(isVoiced(model, 0));
    QVERIFY(changed.isEmpty());
}

void TestPlaylistColours::aChangeOfAFileNotInTheListReadsNothing()
{
    PlaylistModel model;
    fillCounted(model);
    paintAll(model);
    QTRY_COMPARE(m_reads, 50);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    TrackParams::save(QStringLiteral("/music/elsewhere.mp3"), withVoiceover());
    TrackParams::remove(QStringLiteral("/music/elsewhere.mp3"));
    QCOMPARE(m_reads, 50);
    QVERIFY(changed.isEmpty());
}

QTEST_MAIN(TestPlaylistColours)
#include "tst_playlistcolours.moc"
