#include "playlistmodel.h"
#include "track.h"

#include <QAbstractItemModelTester>
#include <QMimeData>
#include <QTest>

// Row identities: given on insert, kept through every reordering, never given twice; and the
// row-keyed state that is deliberately not renumbered stays as it was.
class TestPlaylistRowIds : public QObject
{
    Q_OBJECT

private:
    static Track named(const QString& title)
    {
        Track track;
        track.title = title;
        track.filePath = QStringLiteral("/music/") + title + QStringLiteral(".mp3");
        return track;
    }

    static PlaylistModel* filled(QObject* parent, int count)
    {
        auto* model = new PlaylistModel(parent);
        QList<Track> tracks;
        for (int i = 0; i < count; ++i)
            tracks << named(QString::number(i));
        model->appendTracks(tracks);
        return model;
    }

    static QStringList titles(const PlaylistModel& model)
    {
        QStringList list;
        for (const Track& track : model.tracks())
            list << track.title;
        return list;
    }

private slots:
    void insertedRowsGetDistinctIdsAndInvalidRowsNone()
    {
        QObject owner;
        PlaylistModel* model = filled(&owner, 3);
        QAbstractItemModelTester tester(model);
        QSet<qint64> ids;
        for (int row = 0; row < 3; ++row) {
            QVERIFY(model->rowId(row) > 0);
            ids.insert(model->rowId(row));
            QCOMPARE(model->rowOfId(model->rowId(row)), row);
        }
        QCOMPARE(ids.size(), 3);
        QCOMPARE(model->rowId(-1), 0);
        QCOMPARE(model->rowId(3), 0);
        QCOMPARE(model->rowOfId(0), -1);
        QCOMPARE(model->rowOfId(-5), -1);
        QCOMPARE(model->rowOfId(9999), -1);
    }

    void anIdFollowsItsRowThroughInsertMoveAndRemove()
    {
        QObject owner;
        PlaylistModel* model = filled(&owner, 4);
        const qint64 two = model->rowId(2);
        model->insertTrack(0, named(QStringLiteral("new")));
        QCOMPARE(model->rowOfId(two), 3);
        model->moveTrack(3, 0);
        QCOMPARE(model->rowOfId(two), 0);
        QCOMPARE(model->tracks().at(0).title, QStringLiteral("2"));
        model->moveTracks({0}, 5);
        QCOMPARE(model->rowOfId(two), 4);
        QCOMPARE(model->tracks().at(4).title, QStringLiteral("2"));
        model->removeTrack(0);
        QCOMPARE(model->rowOfId(two), 3);
        model->replaceTrack(3, named(QStringLiteral("replaced")));
        QCOMPARE(model->rowOfId(two), 3);
        model->removeTrack(3);
        QCOMPARE(model->rowOfId(two), -1);
    }

    void aDraggedBlockKeepsItsIds()
    {
        QObject owner;
        PlaylistModel* model = filled(&owner, 6);
        QList<qint64> before;
        for (int row = 0; row < 6; ++row)
            before << model->rowId(row);
        model->moveTracks({1, 3}, 6);
        QCOMPARE(titles(*model), (QStringList{"0", "2", "4", "5", "1", "3"}));
        for (int row = 0; row < 6; ++row)
            QCOMPARE(model->rowId(row), before.at(model->tracks().at(row).title.toInt()));
    }

    void shuffleKeepsEachTracksIdWithIt()
    {
        QObject owner;
        PlaylistModel* model = filled(&owner, 40);
        QHash<QString, qint64> idOf;
        for (int row = 0; row < 40; ++row)
            idOf.insert(model->tracks().at(row).title, model->rowId(row));
        model->shuffle();
        QVERIFY(titles(*model) != titles(*filled(&owner, 40)));
        for (int row = 0; row < 40; ++row)
            QCOMPARE(model->rowId(row), idOf.value(model->tracks().at(row).title));
    }

    void idsAreNeverGivenAgainAfterClear()
    {
        QObject owner;
        PlaylistModel* model = filled(&owner, 2);
        const qint64 old = model->rowId(1);
        model->clear();
        QCOMPARE(model->rowOfId(old), -1);
        model->appendTracks({named("a"), named("b"), named("c")});
        for (int row = 0; row < 3; ++row)
            QVERIFY(model->rowId(row) > old);
        QCOMPARE(model->rowOfId(old), -1);
    }

    void rowKeyedStateIsStillNotRenumbered()
    {
        QObject owner;
        PlaylistModel* model = filled(&owner, 4);
        model->enqueue(2);
        model->markPlayed(1);
        model->setRowMixOverrides(3, {{1000, 500}});
        model->moveTrack(3, 0);
        model->insertTrack(0, named("new"));
        QCOMPARE(model->queue(), QList<int>{2});
        QVERIFY(model->isPlayed(1));
        QCOMPARE(model->rowMixOverride(3), PlaylistModel::MixOverride(1000, 500));
    }
};

QTEST_MAIN(TestPlaylistRowIds)
#include "tst_playlistrowids.moc"
