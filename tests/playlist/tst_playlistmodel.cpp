// The playlist model: columns, roles, operations, the playing mark, the queue and per-row values.

#include "musiclibrary.h"
#include "playlistmodel.h"
#include "playlisttesting.h"
#include "trackparams.h"

#include <QAbstractItemModelTester>
#include <QBrush>
#include <QFont>
#include <QMimeData>
#include <QSignalSpy>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

#include <algorithm>
#include <functional>
#include <limits>
#include <memory>

using namespace playlisttesting;

namespace {

QColor brushColor(const QVariant& value)
{
    return value.value<QBrush>().color();
}

// `clear` on a model filled with `rows` rows announces nothing while there is nothing to clear, and the
// whole table once after `addSomething`.
void checkClearAnnouncesTheWholeTableOnlyWhenNeeded(PlaylistModel& model, int rows,
                                                    const std::function<void()>& addSomething,
                                                    const std::function<void()>& clear)
{
    fill(model, rows);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    clear();
    QCOMPARE(changed.count(), 0);
    addSomething();
    changed.clear();
    clear();
    QCOMPARE(changedRanges(changed), (QList<Range>{{0, 0, rows - 1, 6}}));
}

} // namespace

class TestPlaylistModel : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    // Columns, headers, flags
    void tableHasSevenColumnsAtTheRootAndNoneBelowAnItem();
    void headersNameTheSevenColumnsHorizontallyOnly();
    void rowsAreSelectableDraggableDroppableAndTheEmptyAreaTakesDropsOnly();

    // Display and tool tips
    void emptyPlaylistCountsNothingAndAnnouncesNothing();
    void emptiedPlaylistWithAKeptQueueAnnouncesNothingWhileTheQueueChanges();
    void titleFallsBackToTheFilePathUnlessATitleIsPresent();
    void secondQueuedRowShowsItsQueueNumberInTitleAndToolTip();
    void streamWithoutLimitShowsLiveAndWithLimitShowsTheLimit();
    void trackOfZeroMillisecondsShowsDashes();
    void durationsPastAnHourKeepCountingMinutes();
    void commandRowShowsItsWordUpperCasedBetweenArrows();
    void commandRowShowsNoStopButtonButStillHasItsToolTip();
    void buttonColumnsShowTheirSymbolsAndRowNumbersCountFromOne();
    void counterColumnIsEmptyUntilARowHasACounter();
    void toolTipsExplainTheButtonsAndNothingElse();
    void dataIsInvalidOutsideTheTableAndForUnlistedRoles();
    void alignmentCentresButtonsNumberAndDurationOnly();

    // Fonts and colours
    void currentAndCommandRowsAreBoldAndItalicFollowsTheFlag();
    void backgroundMarksCommandThenCurrentRow();
    void voiceoverBackgroundIsReadFromTheStoreOnEveryRequest();
    void voiceoverNeedsBothAnInsertPointAndASource();
    void streamsAndPathlessRowsNeverGetAVoiceoverBackground();
    void foregroundColoursButtonsPlayedStreamCommandAndJingleInThatOrder();
    void capitalisedJingleCategoryIsAJingleRow();
    void playedJingleRowIsGreyNotJingleGrey();

    // The playing mark
    void movingThePlayingMarkMarksThePreviousRowPlayed();
    void clearingThePlayingMarkLeavesTheLastRowUnplayed();
    void settingTheCurrentRowAnnouncesTheOldAndTheNewRow();
    void settingTheSameCurrentRowAgainDoesNotMarkItPlayed();
    void markPlayedAnnouncesARowOnceAndIgnoresBadRows();
    void clearPlayedAnnouncesTheWholeTableOnlyWhenSomethingWasPlayed();

    // Structure
    void appendAnnouncesOneRowAtTheEndThenTheStartTimeColumn();
    void insertClampsTheRowAndLeavesTheRowKeyedStateAlone();
    void insertingARowAboveTheCurrentRowKeepsItsIndex();
    void removingARowAboveTheCurrentRowDecreasesIt();
    void removingTheCurrentRowClearsItAndBadRowsAreIgnored();
    void removeTracksAfterKeepsEverythingUpToTheCurrentRow();
    void removeTracksAfterWithoutCurrentRowKeepsTheFirstRow();
    void removeTracksAfterTheLargestRowNumberKeepsEveryRow();
    void removeTracksBeforeRemovesRowZeroOneAtATimeAndEmptiesPlayed();
    void removeTracksBeforeDefaultsToTheCurrentRowAndIgnoresLessThanOne();
    void removeTracksBeforeStopsWhenThePlaylistRunsOut();
    void moveTrackResetsAndFollowsTheCurrentRowOnlyWhenItIsMoved();
    void moveTrackIgnoresABadSourceAndClampsTheTarget();
    void clearKeepsTheQueueAndMixOverridesButDropsTheRest();
    void shufflingEmptiesTheQueueButKeepsTheCurrentIndex();
    void shuffleKeepsEveryRowAndNeedsTwoRows();
    void shuffleAnnouncesAResetThenTheStartTimeColumn();
    void shufflePutsEveryOrderOfThreeRowsEquallyOften();
    void replaceTrackUpdatesOneRowWithoutRecomputingTheSchedule();
    void totalDurationAddsEveryRow();
    void refreshAnnouncesTheWholeTable();

    // The play queue
    void enqueueAppendsOnceAndAnnouncesTheRow();
    void takeNextQueuedSkipsEntriesThatAreNoLongerRows();
    void takeNextQueuedOfOnlyVanishedRowsGivesNoneAndAnnouncesNothing();
    void dequeueRemovesAnEntryAndAnnouncesTheTable();
    void moveQueuedReordersPositionsWithinTheQueue();
    void clearQueueAnnouncesOnlyWhenThereWasAQueue();

    // Per-row values
    void rowMixOverridesDefaultToNoneAndAcceptRowsOutsideTheTable();
    void rowMixOverridesNearTheLargestRowNumberNeverWrapToNegativeRows();
    void raisingACounterNeverLowersItAndIgnoresZero();

    // The item-model contract
    void modelPassesTheItemModelTesterThroughEveryStructuralOperation();

private:
    QTemporaryDir m_home;
};

void TestPlaylistModel::initTestCase()
{
    const QString problem = openTemporaryStore(m_home, QStringLiteral("tst_playlistmodel"));
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
}

// --- columns, headers, flags ----------------------------------------------------------------

void TestPlaylistModel::tableHasSevenColumnsAtTheRootAndNoneBelowAnItem()
{
    PlaylistModel model;
    QCOMPARE(model.columnCount(), 7);
    fill(model, 2);
    QCOMPARE(model.rowCount(), 2);
    QCOMPARE(model.columnCount(model.index(0, 0)), 0);
    QCOMPARE(model.rowCount(model.index(0, 0)), 0);
}

void TestPlaylistModel::headersNameTheSevenColumnsHorizontallyOnly()
{
    PlaylistModel model;
    const QStringList expected = {QString(),
                                  QStringLiteral("#"),
                                  QStringLiteral("Start time"),
                                  QStringLiteral("Track Title"),
                                  QStringLiteral("Duration"),
                                  QString(QChar(0x266B)),
                                  QString()};
    for (int section = 0; section < 7; ++section) {
        const QVariant header = model.headerData(section, Qt::Horizontal, Qt::DisplayRole);
        QVERIFY2(header.isValid(), qPrintable(QString::number(section)));
        QCOMPARE(header.toString(), expected.at(section));
    }
    QVERIFY(!model.headerData(7, Qt::Horizontal, Qt::DisplayRole).isValid());
    QVERIFY(!model.headerData(-1, Qt::Horizontal, Qt::DisplayRole).isValid());
    QVERIFY(!model.headerData(1, Qt::Vertical, Qt::DisplayRole).isValid());
    QVERIFY(!model.headerData(1, Qt::Horizontal, Qt::ToolTipRole).isValid());
}

void TestPlaylistModel::rowsAreSelectableDraggableDroppableAndTheEmptyAreaTakesDropsOnly()
{
    PlaylistModel model;
    fill(model, 1);
    const Qt::ItemFlags rowFlags =
        Qt::ItemIsSelectable | Qt::ItemIsDragEnabled | Qt::ItemIsDropEnabled | Qt::ItemIsEnabled;
    for (int column = 0; column < 7; ++column)
        QCOMPARE(model.flags(model.index(0, column)), rowFlags);
    QCOMPARE(model.flags(QModelIndex()), Qt::ItemFlags(Qt::ItemIsDropEnabled));
}

// --- display and tool tips ------------------------------------------------------------------

void TestPlaylistModel::emptyPlaylistCountsNothingAndAnnouncesNothing()
{
    PlaylistModel model;
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    QCOMPARE(model.rowCount(), 0);
    QCOMPARE(model.totalDuration(), qint64(0));
    QCOMPARE(model.takeNextQueued(), -1);
    model.clearPlayed();
    model.refresh();
    model.clearQueue();
    model.recalculateStartTimes();
    model.setHourMarkersVisible(true);
    model.shuffle();
    QCOMPARE(changed.count(), 0);
    QCOMPARE(reset.count(), 0);
    QCOMPARE(model.currentRow(), -1);
    QVERIFY(model.hourMarkersVisible());
}

void TestPlaylistModel::emptiedPlaylistWithAKeptQueueAnnouncesNothingWhileTheQueueChanges()
{
    PlaylistModel model;
    fill(model, 4);
    model.enqueue(3);
    model.enqueue(1);
    model.enqueue(2);
    model.clear(); // keeps the queue: three entries, no rows
    QCOMPARE(model.queue(), (QList<int>{3, 1, 2}));
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);

    model.moveQueued(0, 2);
    QCOMPARE(model.queue(), (QList<int>{1, 2, 3}));
    model.dequeue(2);
    QCOMPARE(model.queue(), (QList<int>{1, 3}));
    model.clearQueue();
    QVERIFY(model.queue().isEmpty());
    model.refresh();
    model.setHourMarkersVisible(true);
    model.recalculateStartTimes();
    model.clearPlayed();
    QCOMPARE(changed.count(), 0);
    QCOMPARE(reset.count(), 0);

    // Entries that outlived their rows are dropped on the way, and nothing is announced.
    fill(model, 1);
    model.enqueue(0);
    model.clear();
    changed.clear();
    QCOMPARE(model.takeNextQueued(), -1);
    QVERIFY(model.queue().isEmpty());
    QCOMPARE(changed.count(), 0);
}

void TestPlaylistModel::titleFallsBackToTheFilePathUnlessATitleIsPresent()
{
    PlaylistModel model;
    model.appendTrack(makeTrack(QString(), QString(), 1000, QStringLiteral("/music/untitled.mp3")));
    model.appendTrack(
        makeTrack(QString(), QStringLiteral("Only Title"), 1000, QStringLiteral("/music/b.mp3")));
    model.appendTrack(
        makeTrack(QStringLiteral("Only Artist"), QString(), 1000, QStringLiteral("/music/c.mp3")));
    model.appendTrack(makeTrack(QStringLiteral("Artist"), QStringLiteral("Title"), 1000));
    QCOMPARE(model.data(model.index(0, 3)).toString(), QStringLiteral("/music/untitled.mp3"));
    QCOMPARE(model.data(model.index(1, 3)).toString(), QStringLiteral("Only Title"));
    QCOMPARE(model.data(model.index(2, 3)).toString(), QStringLiteral("/music/c.mp3"));
    QCOMPARE(model.data(model.index(3, 3)).toString(), QStringLiteral("Artist - Title"));
}

void TestPlaylistModel::secondQueuedRowShowsItsQueueNumberInTitleAndToolTip()
{
    PlaylistModel model;
    fill(model, 3);
    model.replaceTrack(1, makeTrack(QStringLiteral("Artist"), QStringLiteral("Title")));
    model.enqueue(2);
    model.enqueue(1);
    QCOMPARE(model.data(model.index(1, 3)).toString(), QStringLiteral("[2]  Artist - Title"));
    QCOMPARE(model.data(model.index(1, 3), Qt::ToolTipRole).toString(),
             QStringLiteral("Playback queue position 2"));
    QCOMPARE(model.data(model.index(2, 3)).toString(), QStringLiteral("[1]  A2 - T2"));
    QCOMPARE(model.data(model.index(2, 3), Qt::ToolTipRole).toString(),
             QStringLiteral("Playback queue position 1"));
    QVERIFY(!model.data(model.index(0, 3), Qt::ToolTipRole).isValid());
    QCOMPARE(model.queuePosition(1), 2);
    QCOMPARE(model.queuePosition(2), 1);
    QCOMPARE(model.queuePosition(0), 0);
}

void TestPlaylistModel::streamWithoutLimitShowsLiveAndWithLimitShowsTheLimit()
{
    PlaylistModel model;
    Track stream = trackFromStreamUrl(QStringLiteral("http://radio.example/live"));
    stream.durationMs = 500000; // a stream's own length is not what the column shows
    model.appendTrack(stream);
    stream.streamLimitMs = 90000;
    model.appendTrack(stream);
    QCOMPARE(model.data(model.index(0, 4)).toString(), QStringLiteral("LIVE"));
    QCOMPARE(model.data(model.index(1, 4)).toString(), QStringLiteral("01:30"));
}

void TestPlaylistModel::trackOfZeroMillisecondsShowsDashes()
{
    PlaylistModel model;
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("B"), 0));
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("C"), 999));
    QCOMPARE(model.data(model.index(0, 4)).toString(), QStringLiteral("--:--"));
    QCOMPARE(model.data(model.index(1, 4)).toString(), QStringLiteral("00:00"));
}

void TestPlaylistModel::durationsPastAnHourKeepCountingMinutes()
{
    PlaylistModel model;
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("B"), 3723000));
    QCOMPARE(model.data(model.index(0, 4)).toString(), QStringLiteral("62:03"));
}

void TestPlaylistModel::commandRowShowsItsWordUpperCasedBetweenArrows()
{
    PlaylistModel model;
    model.appendTrack(makeCommand(QStringLiteral("stop")));
    QCOMPARE(model.data(model.index(0, 3)).toString(), QStringLiteral(">> STOP <<"));
    model.enqueue(0);
    QCOMPARE(model.data(model.index(0, 3)).toString(), QStringLiteral("[1]  >> STOP <<"));
}

void TestPlaylistModel::commandRowShowsNoStopButtonButStillHasItsToolTip()
{
    PlaylistModel model;
    fill(model, 1);
    model.appendTrack(makeCommand(QStringLiteral("stop")));
    QCOMPARE(model.data(model.index(0, 6)).toString(), QString(QChar(0x23F9)));
    const QVariant commandStop = model.data(model.index(1, 6));
    QVERIFY(commandStop.isValid());
    QCOMPARE(commandStop.toString(), QString());
    QCOMPARE(model.data(model.index(1, 6), Qt::ToolTipRole).toString(),
             QStringLiteral("Insert a STOP command after this track"));
}

void TestPlaylistModel::buttonColumnsShowTheirSymbolsAndRowNumbersCountFromOne()
{
    PlaylistModel model;
    fill(model, 3);
    for (int row = 0; row < 3; ++row) {
        QCOMPARE(model.data(model.index(row, 0)).toString(), QString(QChar(0x2715)));
        const QVariant number = model.data(model.index(row, 1));
        QCOMPARE(number.typeId(), QMetaType::Int);
        QCOMPARE(number.toInt(), row + 1);
        QCOMPARE(model.data(model.index(row, 6)).toString(), QString(QChar(0x23F9)));
    }
}

void TestPlaylistModel::counterColumnIsEmptyUntilARowHasACounter()
{
    PlaylistModel model;
    fill(model, 2);
    const QVariant empty = model.data(model.index(0, 5));
    QVERIFY(empty.isValid());
    QCOMPARE(empty.toString(), QString());
    model.raiseRowCounter(0, 4);
    QCOMPARE(model.data(model.index(0, 5)).toString(), QStringLiteral("4"));
    QCOMPARE(model.rowCounter(0), 4);
    QCOMPARE(model.rowCounter(1), 0);
}

void TestPlaylistModel::toolTipsExplainTheButtonsAndNothingElse()
{
    PlaylistModel model;
    fill(model, 1);
    QCOMPARE(model.data(model.index(0, 0), Qt::ToolTipRole).toString(), QStringLiteral("Remove this track"));
    QCOMPARE(model.data(model.index(0, 6), Qt::ToolTipRole).toString(),
             QStringLiteral("Insert a STOP command after this track"));
    for (int column : {1, 2, 3, 4, 5})
        QVERIFY2(!model.data(model.index(0, column), Qt::ToolTipRole).isValid(),
                 qPrintable(QString::number(column)));
}

void TestPlaylistModel::dataIsInvalidOutsideTheTableAndForUnlistedRoles()
{
    PlaylistModel model;
    fill(model, 2);
    QVERIFY(!model.data(QModelIndex()).isValid());
    QVERIFY(!model.data(model.index(2, 0)).isValid()); // index() itself refuses a row past the end
    QVERIFY(!model.data(model.index(0, 7)).isValid());
    // An index from another model with a row or column this one lacks.
    PlaylistModel larger;
    fill(larger, 5);
    QVERIFY(!model.data(larger.index(4, 3)).isValid());
    for (int role :
         {int(Qt::DecorationRole), int(Qt::EditRole), int(Qt::StatusTipRole), int(Qt::WhatsThisRole),
          int(Qt::SizeHintRole), int(Qt::CheckStateRole), int(Qt::UserRole), 10, -1}) {
        for (int column = 0; column < 7; ++column)
            QVERIFY2(!model.data(model.index(0, column), role).isValid(),
                     qPrintable(QStringLiteral("role %1 column %2").arg(role).arg(column)));
    }
}

void TestPlaylistModel::alignmentCentresButtonsNumberAndDurationOnly()
{
    PlaylistModel model;
    fill(model, 1);
    for (int column : {0, 1, 4, 6})
        QCOMPARE(model.data(model.index(0, column), Qt::TextAlignmentRole).toInt(), int(Qt::AlignCenter));
    QCOMPARE(model.data(model.index(0, 2), Qt::TextAlignmentRole).toInt(),
             int(Qt::AlignLeft | Qt::AlignVCenter));
    QVERIFY(!model.data(model.index(0, 3), Qt::TextAlignmentRole).isValid());
    QVERIFY(!model.data(model.index(0, 5), Qt::TextAlignmentRole).isValid());
}

// --- fonts and colours ----------------------------------------------------------------------

void TestPlaylistModel::currentAndCommandRowsAreBoldAndItalicFollowsTheFlag()
{
    PlaylistModel model;
    fill(model, 2);
    model.appendTrack(makeCommand(QStringLiteral("stop")));
    Track italicTrack = makeTrack(QStringLiteral("I"), QStringLiteral("Italic"));
    italicTrack.italic = true;
    model.appendTrack(italicTrack);
    model.appendTrack(italicTrack);
    model.setCurrentRow(4);

    QVERIFY(!model.data(model.index(1, 3), Qt::FontRole).isValid());

    const QFont command = model.data(model.index(2, 3), Qt::FontRole).value<QFont>();
    QCOMPARE(command.weight(), QFont::Bold);
    QVERIFY(!command.italic());

    const QFont italicOnly = model.data(model.index(3, 0), Qt::FontRole).value<QFont>();
    QCOMPARE(italicOnly.weight(), QFont::Normal);
    QVERIFY(italicOnly.italic());

    const QFont currentItalic = model.data(model.index(4, 5), Qt::FontRole).value<QFont>();
    QCOMPARE(currentItalic.weight(), QFont::Bold);
    QVERIFY(currentItalic.italic());

    model.setCurrentRow(0);
    const QFont current = model.data(model.index(0, 3), Qt::FontRole).value<QFont>();
    QCOMPARE(current.weight(), QFont::Bold);
    QVERIFY(!current.italic());
}

void TestPlaylistModel::backgroundMarksCommandThenCurrentRow()
{
    PlaylistModel model;
    fill(model, 3);
    model.insertTrack(1, makeCommand(QStringLiteral("stop")));
    model.setCurrentRow(1); // a command row that is current keeps the command colour
    QVERIFY(rowHasBackground(model, 1, QColor(255, 235, 200)));
    model.setCurrentRow(2);
    QVERIFY(rowHasBackground(model, 2, QColor(179, 215, 255)));
    QVERIFY(!model.data(model.index(0, 3), Qt::BackgroundRole).isValid());
}

void TestPlaylistModel::voiceoverBackgroundIsReadFromTheStoreOnEveryRequest()
{
    const QString path = QStringLiteral("/music/with voiceover.mp3");
    TrackParams::remove(path);
    PlaylistModel model;
    model.appendTrack(makeTrack(QStringLiteral("V"), QStringLiteral("Voice"), 60000, path));
    QVERIFY(!model.data(model.index(0, 3), Qt::BackgroundRole).isValid());

    TrackParams params;
    params.voiceoverIns = 1;
    params.voiceoverSource = QStringLiteral("/music/ids/station id.wav");
    TrackParams::save(path, params);
    // No refresh, no signal: the next request reads the store again.
    QVERIFY(rowHasBackground(model, 0, QColor(255, 214, 234)));

    TrackParams::remove(path);
    QVERIFY(!model.data(model.index(0, 3), Qt::BackgroundRole).isValid());
}

void TestPlaylistModel::voiceoverNeedsBothAnInsertPointAndASource()
{
    const QString noSource = QStringLiteral("/music/no source.mp3");
    const QString noInsert = QStringLiteral("/music/no insert.mp3");
    // The store never writes half a voiceover, but an older or hand-edited record may hold one.
    QSqlQuery insert(MusicLibrary::database());
    QVERIFY(
        insert.prepare(QStringLiteral("INSERT OR REPLACE INTO track_params(filepath, params) VALUES(?, ?)")));
    insert.addBindValue(noSource);
    insert.addBindValue(QStringLiteral("{\"voiceover\":{\"ins\":5000}}"));
    QVERIFY2(insert.exec(), qPrintable(insert.lastError().text()));
    insert.addBindValue(noInsert);
    insert.addBindValue(QStringLiteral("{\"voiceover\":{\"ins\":0,\"source\":\"/music/ids/id.wav\"}}"));
    QVERIFY2(insert.exec(), qPrintable(insert.lastError().text()));
    QCOMPARE(TrackParams::load(noSource).voiceoverIns, qint64(5000));
    QCOMPARE(TrackParams::load(noInsert).voiceoverSource, QStringLiteral("/music/ids/id.wav"));

    PlaylistModel model;
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("B"), 1000, noSource));
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("C"), 1000, noInsert));
    QVERIFY(!model.data(model.index(0, 3), Qt::BackgroundRole).isValid());
    QVERIFY(!model.data(model.index(1, 3), Qt::BackgroundRole).isValid());
}

void TestPlaylistModel::streamsAndPathlessRowsNeverGetAVoiceoverBackground()
{
    const QString url = QStringLiteral("http://radio.example/voiced");
    TrackParams params;
    params.voiceoverIns = 1;
    params.voiceoverSource = QStringLiteral("/music/ids/id.wav");
    TrackParams::save(url, params);
    QCOMPARE(TrackParams::load(url).voiceoverIns, qint64(1));

    PlaylistModel model;
    model.appendTrack(trackFromStreamUrl(url));
    Track pathless;
    pathless.title = QStringLiteral("Nowhere");
    model.appendTrack(pathless);
    QVERIFY(!model.data(model.index(0, 3), Qt::BackgroundRole).isValid());
    QVERIFY(!model.data(model.index(1, 3), Qt::BackgroundRole).isValid());
}

void TestPlaylistModel::foregroundColoursButtonsPlayedStreamCommandAndJingleInThatOrder()
{
    PlaylistModel model;
    fill(model, 2);                                                              // 0 played, 1 ordinary
    model.appendTrack(trackFromStreamUrl(QStringLiteral("http://x.example/s"))); // 2
    model.appendTrack(makeCommand(QStringLiteral("stop")));                      // 3
    Track jingle = makeTrack(QStringLiteral("Station"), QStringLiteral("Jingle"));
    jingle.category = QStringLiteral("Jingle");
    model.appendTrack(jingle); // 4
    model.setCurrentRow(0);
    model.setCurrentRow(1);

    for (int row = 0; row < 5; ++row) {
        QVERIFY(isSolidBrush(model.data(model.index(row, 0), Qt::ForegroundRole), QColor(200, 60, 60)));
        QVERIFY(isSolidBrush(model.data(model.index(row, 6), Qt::ForegroundRole), QColor(150, 110, 40)));
    }
    QVERIFY(isSolidBrush(model.data(model.index(0, 3), Qt::ForegroundRole), QColor(150, 150, 150)));
    QVERIFY(!model.data(model.index(1, 3), Qt::ForegroundRole).isValid()); // current, never played
    QVERIFY(isSolidBrush(model.data(model.index(2, 3), Qt::ForegroundRole), QColor(40, 130, 150)));
    QVERIFY(isSolidBrush(model.data(model.index(3, 3), Qt::ForegroundRole), QColor(160, 90, 0)));
    QVERIFY(isSolidBrush(model.data(model.index(4, 3), Qt::ForegroundRole), QColor(120, 120, 120)));

    // A played stream is grey: the played colour comes before the stream colour.
    model.markPlayed(2);
    QVERIFY(isSolidBrush(model.data(model.index(2, 4), Qt::ForegroundRole), QColor(150, 150, 150)));
    // A played row that is current again is not grey.
    model.setCurrentRow(0);
    QVERIFY(model.isPlayed(0));
    QVERIFY(!model.data(model.index(0, 3), Qt::ForegroundRole).isValid());
}

void TestPlaylistModel::capitalisedJingleCategoryIsAJingleRow()
{
    PlaylistModel model;
    Track jingle = makeTrack(QStringLiteral("Station"), QStringLiteral("ID"));
    jingle.category = QStringLiteral("JINGLE");
    model.appendTrack(jingle);
    Track notJingle = jingle;
    notJingle.category = QStringLiteral("Jingles");
    model.appendTrack(notJingle);
    QCOMPARE(brushColor(model.data(model.index(0, 3), Qt::ForegroundRole)), QColor(120, 120, 120));
    QVERIFY(!model.data(model.index(1, 3), Qt::ForegroundRole).isValid());
}

void TestPlaylistModel::playedJingleRowIsGreyNotJingleGrey()
{
    PlaylistModel model;
    Track jingle = makeTrack(QStringLiteral("Station"), QStringLiteral("ID"));
    jingle.category = QStringLiteral("JINGLE");
    model.appendTrack(jingle);
    model.appendTrack(jingle);
    model.markPlayed(0);
    QCOMPARE(brushColor(model.data(model.index(0, 3), Qt::ForegroundRole)), QColor(150, 150, 150));
    QCOMPARE(brushColor(model.data(model.index(1, 3), Qt::ForegroundRole)), QColor(120, 120, 120));
}

// --- the playing mark -----------------------------------------------------------------------

void TestPlaylistModel::movingThePlayingMarkMarksThePreviousRowPlayed()
{
    PlaylistModel model;
    fill(model, 6);
    model.setCurrentRow(3);
    QVERIFY(model.playedRows().isEmpty());
    model.setCurrentRow(4);
    QCOMPARE(model.currentRow(), 4);
    QCOMPARE(model.playedRows(), QSet<int>{3});
    QCOMPARE(brushColor(model.data(model.index(3, 3), Qt::ForegroundRole)), QColor(150, 150, 150));
    model.setCurrentRow(3); // current again: not grey although still played
    QVERIFY(model.isPlayed(3));
    QVERIFY(!model.data(model.index(3, 3), Qt::ForegroundRole).isValid());
}

void TestPlaylistModel::clearingThePlayingMarkLeavesTheLastRowUnplayed()
{
    PlaylistModel model;
    fill(model, 6);
    model.setCurrentRow(3);
    model.setCurrentRow(4);
    model.setCurrentRow(-1);
    QCOMPARE(model.currentRow(), -1);
    QVERIFY(!model.isPlayed(4));
    QCOMPARE(model.playedRows(), QSet<int>{3});
}

void TestPlaylistModel::settingTheCurrentRowAnnouncesTheOldAndTheNewRow()
{
    PlaylistModel model;
    fill(model, 5);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.setCurrentRow(1);
    QCOMPARE(changedRanges(changed), (QList<Range>{{1, 0, 1, 6}}));
    changed.clear();
    model.setCurrentRow(3);
    QCOMPARE(changedRanges(changed), (QList<Range>{{1, 0, 1, 6}, {3, 0, 3, 6}}));
    changed.clear();
    model.setCurrentRow(-1);
    QCOMPARE(changedRanges(changed), (QList<Range>{{3, 0, 3, 6}}));
    changed.clear();
    model.setCurrentRow(-1); // nothing was current: nothing to announce
    model.setCurrentRow(99); // a row that does not exist is stored but not announced
    QCOMPARE(changed.count(), 0);
    QCOMPARE(model.currentRow(), 99);
}

void TestPlaylistModel::settingTheSameCurrentRowAgainDoesNotMarkItPlayed()
{
    PlaylistModel model;
    fill(model, 3);
    model.setCurrentRow(2);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.setCurrentRow(2);
    QVERIFY(!model.isPlayed(2));
    QCOMPARE(changedRanges(changed), (QList<Range>{{2, 0, 2, 6}, {2, 0, 2, 6}}));
}

void TestPlaylistModel::markPlayedAnnouncesARowOnceAndIgnoresBadRows()
{
    PlaylistModel model;
    fill(model, 3);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.markPlayed(1);
    model.markPlayed(1);
    model.markPlayed(-1);
    model.markPlayed(3);
    QCOMPARE(changedRanges(changed), (QList<Range>{{1, 0, 1, 6}}));
    QCOMPARE(model.playedRows(), QSet<int>{1});
}

void TestPlaylistModel::clearPlayedAnnouncesTheWholeTableOnlyWhenSomethingWasPlayed()
{
    PlaylistModel model;
    checkClearAnnouncesTheWholeTableOnlyWhenNeeded(
        model, 4, [&model] { model.markPlayed(2); }, [&model] { model.clearPlayed(); });
    QVERIFY(model.playedRows().isEmpty());
}

// --- structure --------------------------------------------------------------------------------

void TestPlaylistModel::appendAnnouncesOneRowAtTheEndThenTheStartTimeColumn()
{
    PlaylistModel model;
    fill(model, 2);
    QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.appendTrack(makeTrack(QStringLiteral("X"), QStringLiteral("Y")));
    QCOMPARE(inserted.count(), 1);
    QCOMPARE(inserted.at(0).at(1).toInt(), 2);
    QCOMPARE(inserted.at(0).at(2).toInt(), 2);
    QCOMPARE(changedRanges(changed), (QList<Range>{{0, 2, 2, 2}}));
    QCOMPARE(order(model), QStringLiteral("T0 T1 Y"));
}

void TestPlaylistModel::insertClampsTheRowAndLeavesTheRowKeyedStateAlone()
{
    PlaylistModel model;
    fill(model, 3);
    model.setCurrentRow(0);
    model.setCurrentRow(1);
    model.enqueue(2);
    model.raiseRowCounter(2, 5);
    QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
    model.insertTrack(-4, makeTrack(QStringLiteral("F"), QStringLiteral("First")));
    model.insertTrack(99, makeTrack(QStringLiteral("L"), QStringLiteral("Last")));
    QCOMPARE(order(model), QStringLiteral("First T0 T1 T2 Last"));
    QCOMPARE(inserted.count(), 2);
    QCOMPARE(inserted.at(0).at(1).toInt(), 0);
    QCOMPARE(inserted.at(1).at(1).toInt(), 4);
    QCOMPARE(model.currentRow(), 1);
    QCOMPARE(model.queue(), QList<int>{2});
    QCOMPARE(model.playedRows(), QSet<int>{0});
    QCOMPARE(model.rowCounter(2), 5);
}

void TestPlaylistModel::insertingARowAboveTheCurrentRowKeepsItsIndex()
{
    PlaylistModel model;
    fill(model, 4);
    model.setCurrentRow(2);
    model.insertTrack(1, makeTrack(QStringLiteral("New"), QStringLiteral("Row")));
    QCOMPARE(model.currentRow(), 2);
    QCOMPARE(model.tracks().at(model.currentRow()).title, QStringLiteral("T1")); // a different track now
}

void TestPlaylistModel::removingARowAboveTheCurrentRowDecreasesIt()
{
    PlaylistModel model;
    fill(model, 4);
    model.setCurrentRow(2);
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
    model.removeTrack(0);
    QCOMPARE(model.currentRow(), 1);
    QCOMPARE(model.tracks().at(model.currentRow()).title, QStringLiteral("T2"));
    QCOMPARE(removed.count(), 1);
    QCOMPARE(removed.at(0).at(1).toInt(), 0);
    QCOMPARE(removed.at(0).at(2).toInt(), 0);
    model.removeTrack(2); // below the current row
    QCOMPARE(model.currentRow(), 1);
}

void TestPlaylistModel::removingTheCurrentRowClearsItAndBadRowsAreIgnored()
{
    PlaylistModel model;
    fill(model, 3);
    model.setCurrentRow(1);
    model.enqueue(2);
    model.markPlayed(0);
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.removeTrack(-1);
    model.removeTrack(3);
    QCOMPARE(removed.count(), 0);
    QCOMPARE(changed.count(), 0);
    model.removeTrack(1);
    QCOMPARE(model.currentRow(), -1);
    QCOMPARE(order(model), QStringLiteral("T0 T2"));
    QCOMPARE(changedRanges(changed), (QList<Range>{{0, 2, 1, 2}}));
    // The queue and the played set keep their indices: row 2 no longer exists.
    QCOMPARE(model.queue(), QList<int>{2});
    QCOMPARE(model.playedRows(), QSet<int>{0});
    QCOMPARE(model.takeNextQueued(), -1);
}

void TestPlaylistModel::removeTracksAfterKeepsEverythingUpToTheCurrentRow()
{
    PlaylistModel model;
    fill(model, 6);
    model.setCurrentRow(2);
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
    model.removeTracksAfter();
    QCOMPARE(order(model), QStringLiteral("T0 T1 T2"));
    QCOMPARE(removed.count(), 3);
    QCOMPARE(removed.at(0).at(1).toInt(), 5); // the last row first, one at a time
    QCOMPARE(removed.at(2).at(1).toInt(), 3);
    QCOMPARE(model.currentRow(), 2);
    model.removeTracksAfter(0);
    QCOMPARE(order(model), QStringLiteral("T0"));
    model.removeTracksAfter(5);
    QCOMPARE(order(model), QStringLiteral("T0"));
}

void TestPlaylistModel::removeTracksAfterWithoutCurrentRowKeepsTheFirstRow()
{
    PlaylistModel model;
    fill(model, 4);
    model.removeTracksAfter(-1);
    QCOMPARE(order(model), QStringLiteral("T0"));
}

void TestPlaylistModel::removeTracksAfterTheLargestRowNumberKeepsEveryRow()
{
    PlaylistModel model;
    fill(model, 4);
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
    model.removeTracksAfter(std::numeric_limits<int>::max());
    model.removeTracksAfter(std::numeric_limits<int>::max() - 1);
    QCOMPARE(removed.count(), 0);
    QCOMPARE(order(model), QStringLiteral("T0 T1 T2 T3"));
    model.setCurrentRow(std::numeric_limits<int>::max()); // a stored current row far past the end
    model.removeTracksAfter();
    QCOMPARE(removed.count(), 0);
    QCOMPARE(model.rowCount(), 4);
}

void TestPlaylistModel::removeTracksBeforeRemovesRowZeroOneAtATimeAndEmptiesPlayed()
{
    PlaylistModel model;
    fill(model, 6);
    model.setCurrentRow(1);
    model.setCurrentRow(3);
    model.enqueue(5);
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.removeTracksBefore(2);
    QCOMPARE(order(model), QStringLiteral("T2 T3 T4 T5"));
    QCOMPARE(removed.count(), 2);
    for (const QList<QVariant>& args : removed) {
        QCOMPARE(args.at(1).toInt(), 0);
        QCOMPARE(args.at(2).toInt(), 0);
    }
    // A recomputation after each single removal.
    QCOMPARE(changedRanges(changed), (QList<Range>{{0, 2, 4, 2}, {0, 2, 3, 2}}));
    QCOMPARE(model.currentRow(), 1);
    QVERIFY(model.playedRows().isEmpty());
    QCOMPARE(model.queue(), QList<int>{5}); // not renumbered
}

void TestPlaylistModel::removeTracksBeforeDefaultsToTheCurrentRowAndIgnoresLessThanOne()
{
    PlaylistModel model;
    fill(model, 5);
    model.markPlayed(4);
    model.removeTracksBefore(); // no current row: nothing happens, played rows stay
    model.removeTracksBefore(0);
    QCOMPARE(model.rowCount(), 5);
    QCOMPARE(model.playedRows(), QSet<int>{4});

    model.setCurrentRow(0);
    model.removeTracksBefore(); // current row 0: less than one
    QCOMPARE(model.rowCount(), 5);

    model.setCurrentRow(3);
    model.removeTracksBefore();
    QCOMPARE(order(model), QStringLiteral("T3 T4"));
    QCOMPARE(model.currentRow(), 0);
    QVERIFY(model.playedRows().isEmpty());
}

void TestPlaylistModel::removeTracksBeforeStopsWhenThePlaylistRunsOut()
{
    PlaylistModel model;
    fill(model, 3);
    model.setCurrentRow(1);
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
    model.removeTracksBefore(10);
    QCOMPARE(model.rowCount(), 0);
    QCOMPARE(removed.count(), 3);
    QCOMPARE(model.currentRow(), -1); // 1 -> 0 -> -1 as rows above and then itself went
}

void TestPlaylistModel::moveTrackResetsAndFollowsTheCurrentRowOnlyWhenItIsMoved()
{
    PlaylistModel model;
    fill(model, 5);
    model.setCurrentRow(1);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.moveTrack(1, 3);
    QCOMPARE(order(model), QStringLiteral("T0 T2 T3 T1 T4"));
    QCOMPARE(model.currentRow(), 3);
    QCOMPARE(reset.count(), 1);
    QCOMPARE(changedRanges(changed), (QList<Range>{{0, 2, 4, 2}}));

    model.moveTrack(4, 0); // the current row only shifts: not adjusted
    QCOMPARE(order(model), QStringLiteral("T4 T0 T2 T3 T1"));
    QCOMPARE(model.currentRow(), 3);
}

void TestPlaylistModel::moveTrackIgnoresABadSourceAndClampsTheTarget()
{
    PlaylistModel model;
    fill(model, 4);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    model.moveTrack(-1, 2);
    model.moveTrack(4, 0);
    model.moveTrack(2, 2);
    model.moveTrack(3, 50); // clamped to 3: the same row
    QCOMPARE(reset.count(), 0);
    model.moveTrack(0, 50);
    QCOMPARE(order(model), QStringLiteral("T1 T2 T3 T0"));
    model.moveTrack(3, -7);
    QCOMPARE(order(model), QStringLiteral("T0 T1 T2 T3"));
    QCOMPARE(reset.count(), 2);
}

void TestPlaylistModel::clearKeepsTheQueueAndMixOverridesButDropsTheRest()
{
    PlaylistModel model;
    const QTime anchor(8, 0, 0);
    model.setStartAnchor(anchor);
    fill(model, 4);
    model.setCurrentRow(1);
    model.setCurrentRow(2);
    model.enqueue(3);
    model.raiseRowCounter(0, 2);
    model.setRowMixOverrides(1, {{3000, 500}});
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.clear();
    QCOMPARE(reset.count(), 1);
    QCOMPARE(changed.count(), 0); // no recomputation of an empty table
    QCOMPARE(model.rowCount(), 0);
    QCOMPARE(model.currentRow(), -1);
    QVERIFY(model.playedRows().isEmpty());
    QCOMPARE(model.rowCounter(0), 0);
    QCOMPARE(model.queue(), QList<int>{3});
    QCOMPARE(model.rowMixOverride(1), PlaylistModel::MixOverride(3000, 500));
    QCOMPARE(model.startAnchor(), anchor);
}

void TestPlaylistModel::shufflingEmptiesTheQueueButKeepsTheCurrentIndex()
{
    PlaylistModel model;
    fill(model, 8);
    model.setCurrentRow(1);
    model.setCurrentRow(5);
    model.enqueue(2);
    model.enqueue(7);
    model.raiseRowCounter(4, 3);
    model.setRowMixOverrides(0, {{1000, 2000}});
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    model.shuffle();
    QCOMPARE(reset.count(), 1);
    QVERIFY(model.queue().isEmpty());
    QCOMPARE(model.takeNextQueued(), -1);
    QCOMPARE(model.currentRow(), 5);
    QCOMPARE(model.playedRows(), QSet<int>{1});
    QCOMPARE(model.rowCounter(4), 3);
    QCOMPARE(model.rowMixOverride(0), PlaylistModel::MixOverride(-1, -1));
}

void TestPlaylistModel::shuffleKeepsEveryRowAndNeedsTwoRows()
{
    PlaylistModel single;
    fill(single, 1);
    single.enqueue(0);
    QSignalSpy singleReset(&single, &QAbstractItemModel::modelReset);
    single.shuffle();
    QCOMPARE(singleReset.count(), 0);
    QCOMPARE(single.queue(), QList<int>{0}); // nothing happens at all with one row

    PlaylistModel model;
    model.setStartAnchor(QTime(6, 0, 0));
    fill(model, 40);
    const QString before = order(model);
    bool changedOrder = false;
    // 40! orders: five shuffles all giving the same order would be a broken generator.
    for (int attempt = 0; attempt < 5 && !changedOrder; ++attempt) {
        model.shuffle();
        changedOrder = order(model) != before;
    }
    QVERIFY(changedOrder);
    QStringList titles = order(model).split(QLatin1Char(' '));
    QStringList expected = before.split(QLatin1Char(' '));
    std::sort(titles.begin(), titles.end());
    std::sort(expected.begin(), expected.end());
    QCOMPARE(titles, expected);
    // Start times follow the new order.
    QCOMPARE(model.tracks().at(0).startTime, QTime(6, 0, 0));
    QCOMPARE(model.tracks().at(39).startTime, QTime(6, 39, 0));
}

void TestPlaylistModel::shuffleAnnouncesAResetThenTheStartTimeColumn()
{
    PlaylistModel model;
    fill(model, 3);
    model.enqueue(1);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
    model.shuffle();
    QCOMPARE(reset.count(), 1);
    QCOMPARE(inserted.count(), 0);
    QCOMPARE(removed.count(), 0);
    QCOMPARE(changedRanges(changed), (QList<Range>{{0, 2, 2, 2}}));
}

void TestPlaylistModel::shufflePutsEveryOrderOfThreeRowsEquallyOften()
{
    // Every draw starts from T0 T1 T2 (shuffling the previous result again would hide a bias: a walk of
    // biased steps still visits every order equally in the long run). 30,000 draws give 5,000 per order
    // with a spread of about 65; a swap with a row drawn from all three each time puts 6,667 or 3,333
    // on an order, and a swap that never leaves a row in place shows only two of the six orders.
    PlaylistModel model;
    QHash<QString, int> seen;
    const int draws = 30000;
    for (int i = 0; i < draws; ++i) {
        model.clear();
        fill(model, 3);
        model.shuffle();
        ++seen[order(model)];
    }
    QCOMPARE(seen.size(), 6);
    for (auto it = seen.cbegin(); it != seen.cend(); ++it)
        QVERIFY2(qAbs(it.value() - draws / 6) < 400,
                 qPrintable(QStringLiteral("%1 came %2 times").arg(it.key()).arg(it.value())));
}

void TestPlaylistModel::replaceTrackUpdatesOneRowWithoutRecomputingTheSchedule()
{
    PlaylistModel model;
    model.setStartAnchor(QTime(10, 0, 0));
    fill(model, 3);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    Track longer = model.tracks().at(1);
    longer.durationMs = 600000;
    model.replaceTrack(1, longer);
    model.replaceTrack(3, longer); // no such row
    QCOMPARE(changedRanges(changed), (QList<Range>{{1, 0, 1, 6}}));
    QCOMPARE(model.tracks().at(2).startTime, QTime(10, 2, 0));
    model.recalculateStartTimes();
    QCOMPARE(model.tracks().at(2).startTime, QTime(10, 11, 0));
}

void TestPlaylistModel::totalDurationAddsEveryRow()
{
    PlaylistModel model;
    model.appendTrack(makeTrack(QStringLiteral("A"), QStringLiteral("B"), 1500));
    Track stream = trackFromStreamUrl(QStringLiteral("http://s.example/"));
    stream.durationMs = 2000;
    stream.streamLimitMs = 99999; // the limit is not part of the total
    model.appendTrack(stream);
    Track command = makeCommand(QStringLiteral("stop"));
    command.durationMs = 7;
    model.appendTrack(command);
    QCOMPARE(model.totalDuration(), qint64(3507));
}

void TestPlaylistModel::refreshAnnouncesTheWholeTable()
{
    PlaylistModel model;
    fill(model, 3);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.refresh();
    QCOMPARE(changedRanges(changed), (QList<Range>{{0, 0, 2, 6}}));
}

// --- the play queue ---------------------------------------------------------------------------

void TestPlaylistModel::enqueueAppendsOnceAndAnnouncesTheRow()
{
    PlaylistModel model;
    fill(model, 4);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.enqueue(3);
    model.enqueue(1);
    model.enqueue(3);
    model.enqueue(-1);
    model.enqueue(4);
    QCOMPARE(model.queue(), (QList<int>{3, 1}));
    QCOMPARE(changedRanges(changed), (QList<Range>{{3, 0, 3, 6}, {1, 0, 1, 6}}));
}

void TestPlaylistModel::takeNextQueuedSkipsEntriesThatAreNoLongerRows()
{
    PlaylistModel model;
    fill(model, 5);
    model.enqueue(4);
    model.enqueue(1);
    model.enqueue(2);
    model.removeTrack(4);
    model.removeTrack(3);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    QCOMPARE(model.takeNextQueued(), 1); // 4 is gone and is dropped on the way
    QCOMPARE(changedRanges(changed), (QList<Range>{{0, 0, 2, 6}}));
    QCOMPARE(model.queue(), QList<int>{2});
    QCOMPARE(model.takeNextQueued(), 2);
    QCOMPARE(model.takeNextQueued(), -1);
}

void TestPlaylistModel::takeNextQueuedOfOnlyVanishedRowsGivesNoneAndAnnouncesNothing()
{
    PlaylistModel model;
    fill(model, 4);
    model.enqueue(3);
    model.enqueue(2);
    model.removeTracksAfter(1);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    QCOMPARE(model.takeNextQueued(), -1);
    QVERIFY(model.queue().isEmpty());
    QCOMPARE(changed.count(), 0);
}

void TestPlaylistModel::dequeueRemovesAnEntryAndAnnouncesTheTable()
{
    PlaylistModel model;
    fill(model, 3);
    model.enqueue(0);
    model.enqueue(2);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.dequeue(1);
    QCOMPARE(changed.count(), 0);
    model.dequeue(0);
    QCOMPARE(model.queue(), QList<int>{2});
    QCOMPARE(changedRanges(changed), (QList<Range>{{0, 0, 2, 6}}));
    QCOMPARE(model.data(model.index(2, 3)).toString(), QStringLiteral("[1]  A2 - T2"));
}

void TestPlaylistModel::moveQueuedReordersPositionsWithinTheQueue()
{
    PlaylistModel model;
    fill(model, 5);
    for (int row : {4, 0, 2, 3})
        model.enqueue(row);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.moveQueued(0, 2);
    QCOMPARE(model.queue(), (QList<int>{0, 2, 4, 3}));
    QCOMPARE(changedRanges(changed), (QList<Range>{{0, 0, 4, 6}}));
    model.moveQueued(3, 0);
    QCOMPARE(model.queue(), (QList<int>{3, 0, 2, 4}));
    changed.clear();
    model.moveQueued(-1, 0);
    model.moveQueued(0, 4);
    model.moveQueued(4, 1);
    QCOMPARE(changed.count(), 0);
    QCOMPARE(model.queue(), (QList<int>{3, 0, 2, 4}));
    QCOMPARE(model.queuePosition(4), 4);
}

void TestPlaylistModel::clearQueueAnnouncesOnlyWhenThereWasAQueue()
{
    PlaylistModel model;
    checkClearAnnouncesTheWholeTableOnlyWhenNeeded(
        model, 2, [&model] { model.enqueue(1); }, [&model] { model.clearQueue(); });
    QVERIFY(model.queue().isEmpty());
}

// --- per-row values ---------------------------------------------------------------------------

void TestPlaylistModel::rowMixOverridesDefaultToNoneAndAcceptRowsOutsideTheTable()
{
    PlaylistModel model;
    fill(model, 2);
    using Pair = PlaylistModel::MixOverride;
    QCOMPARE(model.rowMixOverride(0), Pair(-1, -1));
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.setRowMixOverrides(1, {{4000, -1}, {-1, 800}, {100, 200}});
    QCOMPARE(changed.count(), 0);
    QCOMPARE(model.rowMixOverride(1), Pair(4000, -1));
    QCOMPARE(model.rowMixOverride(2), Pair(-1, 800)); // past the end, stored anyway
    QCOMPARE(model.rowMixOverrides(0, 4), (QList<Pair>{{-1, -1}, {4000, -1}, {-1, 800}, {100, 200}}));
    QVERIFY(model.rowMixOverrides(0, 0).isEmpty());
    QVERIFY(model.rowMixOverrides(0, -3).isEmpty());

    model.setRowMixOverrides(2, {{-1, -5}}); // both halves negative: removed
    QCOMPARE(model.rowMixOverride(2), Pair(-1, -1));
    model.setRowMixOverrides(1, {});
    QCOMPARE(model.rowMixOverride(1), Pair(4000, -1));
    model.setRowMixOverrides(-2, {{10, 20}});
    QCOMPARE(model.rowMixOverride(-2), Pair(10, 20));
}

void TestPlaylistModel::rowMixOverridesNearTheLargestRowNumberNeverWrapToNegativeRows()
{
    PlaylistModel model;
    using Pair = PlaylistModel::MixOverride;
    const int last = std::numeric_limits<int>::max();
    const int first = std::numeric_limits<int>::min();
    model.setRowMixOverrides(last - 1, {{100, 200}, {300, 400}, {500, 600}, {700, 800}});
    QCOMPARE(model.rowMixOverride(last - 1), Pair(100, 200));
    QCOMPARE(model.rowMixOverride(last), Pair(300, 400));
    QCOMPARE(model.rowMixOverride(first), Pair(-1, -1));
    QCOMPARE(model.rowMixOverride(first + 1), Pair(-1, -1));
    model.setRowMixOverrides(first, {{9, 9}});
    QCOMPARE(model.rowMixOverrides(last, 2), (QList<Pair>{{300, 400}, {-1, -1}}));
}

void TestPlaylistModel::raisingACounterNeverLowersItAndIgnoresZero()
{
    PlaylistModel model;
    fill(model, 3);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.raiseRowCounter(2, 3);
    QCOMPARE(changedRanges(changed), (QList<Range>{{2, 5, 2, 5}}));
    changed.clear();
    model.raiseRowCounter(2, 2);
    model.raiseRowCounter(2, 3);
    model.raiseRowCounter(2, 0);
    model.raiseRowCounter(1, 0);
    model.raiseRowCounter(1, -4);
    model.raiseRowCounter(3, 9);
    QCOMPARE(changed.count(), 0);
    QCOMPARE(model.rowCounter(2), 3);
    QCOMPARE(model.data(model.index(2, 5)).toString(), QStringLiteral("3"));
    QCOMPARE(model.rowCounter(1), 0);
    model.raiseRowCounter(2, 4);
    QCOMPARE(model.rowCounter(2), 4);
}

// --- the item-model contract ------------------------------------------------------------------

void TestPlaylistModel::modelPassesTheItemModelTesterThroughEveryStructuralOperation()
{
    PlaylistModel model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    model.setHourMarkersVisible(true);
    fill(model, 12, 25 * 60 * 1000);
    model.insertTrack(3, makeCommand(QStringLiteral("stop")));
    model.insertTrack(0, trackFromStreamUrl(QStringLiteral("https://s.example/a")));
    model.setCurrentRow(2);
    model.setCurrentRow(5);
    model.enqueue(7);
    model.enqueue(1);
    model.raiseRowCounter(4, 2);
    model.moveTrack(0, 9);
    model.moveTracks({1, 4, 8}, 11);
    model.removeTrack(6);
    model.removeTracksAfter(11);
    model.removeTracksBefore(2);
    QCOMPARE(model.takeNextQueued(), 7);
    model.dequeue(1);
    model.markPlayed(0);
    model.clearPlayed();
    model.shuffle();

    QMimeData urls;
    urls.setUrls({QUrl::fromLocalFile(QStringLiteral("/music/x - y.mp3")),
                  QUrl(QStringLiteral("http://radio.example/live"))});
    QVERIFY(model.dropMimeData(&urls, Qt::CopyAction, 2, 0, QModelIndex()));
    std::unique_ptr<QMimeData> rows(model.mimeData({model.index(0, 0), model.index(3, 2)}));
    QVERIFY(!model.dropMimeData(rows.get(), Qt::MoveAction, -1, -1, model.index(5, 0)));

    model.setHourMarkersVisible(false);
    model.setStartAnchor(QTime(23, 30, 0));
    model.refresh();
    model.replaceTrack(1, makeTrack(QStringLiteral("R"), QStringLiteral("Replaced")));
    model.clear();
    model.appendTrack(makeTrack(QStringLiteral("After"), QStringLiteral("Clear")));
    model.removeTrack(0);
    QCOMPARE(model.rowCount(), 0);
}

QTEST_MAIN(TestPlaylistModel)
#include "tst_playlistmodel.moc"
