// Dragging rows within the playlist and dropping files and stream addresses onto it.

#include "musiclibrary.h"
#include "playlistmodel.h"
#include "playlisttesting.h"

#include <QAbstractItemModelTester>
#include <QApplication>
#include <QDragEnterEvent>
#include <QDragMoveEvent>
#include <QDropEvent>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QMimeData>
#include <QSignalSpy>
#include <QSqlDatabase>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

#include <memory>

using namespace playlisttesting;

namespace {

const QString kRows = QStringLiteral("application/x-ondaro-rows");

std::unique_ptr<QMimeData> rowsMime(const QByteArray& payload)
{
    auto mime = std::make_unique<QMimeData>();
    mime->setData(kRows, payload);
    return mime;
}

std::unique_ptr<QMimeData> urlMime(const QList<QUrl>& urls)
{
    auto mime = std::make_unique<QMimeData>();
    mime->setUrls(urls);
    return mime;
}

QModelIndexList wholeRows(const PlaylistModel& model, const QList<int>& rows)
{
    QModelIndexList indexes;
    for (int row : rows) {
        for (int column = 0; column < 7; ++column)
            indexes << model.index(row, column);
    }
    return indexes;
}

// Sends the enter, move and drop events that a drag over the view's viewport delivers at pos.
bool dropOnView(QTableView& view, QMimeData* mime, const QPoint& pos, Qt::DropAction action)
{
    QWidget* viewport = view.viewport();
    const Qt::DropActions actions = Qt::CopyAction | Qt::MoveAction;
    QDragEnterEvent enter(pos, actions, mime, Qt::LeftButton, Qt::NoModifier);
    enter.setDropAction(action);
    QApplication::sendEvent(viewport, &enter);
    QDragMoveEvent move(pos, actions, mime, Qt::LeftButton, Qt::NoModifier);
    move.setDropAction(action);
    QApplication::sendEvent(viewport, &move);
    if (!move.isAccepted())
        return false;
    QDropEvent drop(QPointF(pos), actions, mime, Qt::LeftButton, Qt::NoModifier);
    drop.setDropAction(action);
    QApplication::sendEvent(viewport, &drop);
    return true;
}

// Shows `view` over `model` with drag and drop on, as a playlist window would, and waits until it is
// on screen; false when the window never appeared.
bool showDropView(QTableView& view, PlaylistModel& model, const QSize& size)
{
    view.setModel(&model);
    view.setDragDropMode(QAbstractItemView::DragDrop);
    view.resize(size);
    view.show();
    return QTest::qWaitForWindowExposed(&view);
}

} // namespace

class TestPlaylistDragDrop : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    // Formats and the row payload
    void offersTheRowFormatThenUriList();
    void supportsCopyAndMoveDrops();
    void selectingRowsFiveAndTwoWritesTheirNumbersAscending();
    void emptySelectionStillWritesACountOfZero();
    void invalidIndexesAreSkipped();

    // Moving rows
    void draggingRowsOneAndTwoOntoRowFourPutsThemBeforeIt();
    void draggingRowThreeOntoRowZeroPutsItFirst();
    void droppingRowThreeBelowTheLastRowPutsItLast();
    void aDropOfRowsReturnsFalseEvenThoughTheRowsMoved();
    void moveTracksResetsOnceAndKeepsTheRowKeyedState();
    void moveTracksIgnoresDuplicateAndOutOfRangeRows();
    void ignoreActionIsAcceptedAndChangesNothing();
    void rowPayloadWinsOverUrlsInTheSameDrop();

    // Bad row payloads
    void truncatedRowPayloadReadsMissingNumbersAsRowZero();
    void payloadClaimingAMillionRowsWithoutAnyMovesNothingButRowZero();
    void emptyOrNegativeCountPayloadMovesNothing();
    void negativeRowsAndRowsPastTheEndAreIgnored();

    // Names of dropped files and streams
    void droppedWindowsPathSplitsArtistAndTitle();
    void droppedHiddenFileKeepsItsDotName();
    void droppedFileWithoutExtensionIsTitledByItsName();
    void separatorAtTheStartOfTheNameDoesNotSplit();
    void droppedFileNamesAreTrimmedAroundTheSeparatorOnly();
    void streamAddressBecomesALiveOnlineStreamRow();
    void streamTestAcceptsTheFiveSchemesInAnyCaseAfterTrimming();

    // Dropping URLs
    void droppingAnRtmpAddressInCapitalsAddsAStream();
    void droppingAnFtpAddressInsertsNothingAndReturnsFalse();
    void droppingEmptyAndFilelessUrlsInsertsNothing();
    void droppingDataWithoutUrlsReturnsFalse();
    void droppingThreeFilesOntoRowTwoReportsTheirPlace();
    void droppingThreeFilesBelowTenRowsAppendsThem();
    void tracksInsertedArrivesAfterTheNewRowsAreInAndScheduled();
    void droppedFilesNeedNotExistAndAreNotRead();
    void droppedRowsLeaveTheCurrentRowAndQueueIndicesAlone();
    void droppingPastTheEndIsClampedToTheEnd();

    // Through a real view
    void draggingSelectedRowsInATableViewReordersThem();
    void droppingLibraryUrlsOnTheViewInsertsFilesAndStreams();
    void droppingLibraryUrlsBelowTheRowsAppendsThem();

    void dropsKeepTheItemModelContract();

private:
    QTemporaryDir m_home;
};

void TestPlaylistDragDrop::initTestCase()
{
    const QString problem = openTemporaryStore(m_home, QStringLiteral("tst_playlistdragdrop"));
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
}

// --- formats and the row payload ------------------------------------------------------------

void TestPlaylistDragDrop::offersTheRowFormatThenUriList()
{
    PlaylistModel model;
    QCOMPARE(model.mimeTypes(),
             (QStringList{QStringLiteral("application/x-ondaro-rows"), QStringLiteral("text/uri-list")}));
    QCOMPARE(PlaylistModel::rowsMimeType(), kRows);
}

void TestPlaylistDragDrop::supportsCopyAndMoveDrops()
{
    PlaylistModel model;
    QCOMPARE(model.supportedDropActions(), Qt::DropActions(Qt::CopyAction | Qt::MoveAction));
    QCOMPARE(model.supportedDragActions(), Qt::DropActions(Qt::CopyAction | Qt::MoveAction));
}

void TestPlaylistDragDrop::selectingRowsFiveAndTwoWritesTheirNumbersAscending()
{
    PlaylistModel model;
    fill(model, 7);
    std::unique_ptr<QMimeData> mime(model.mimeData(wholeRows(model, {5, 2})));
    QVERIFY(mime);
    QCOMPARE(mime->formats(), QStringList{kRows});
    const QByteArray expected = QByteArray::fromHex("00000002"
                                                    "00000002"
                                                    "00000005");
    QCOMPARE(mime->data(kRows), expected);
}

void TestPlaylistDragDrop::emptySelectionStillWritesACountOfZero()
{
    PlaylistModel model;
    std::unique_ptr<QMimeData> mime(model.mimeData({}));
    QVERIFY(mime);
    QCOMPARE(mime->data(kRows), QByteArray::fromHex("00000000"));
}

void TestPlaylistDragDrop::invalidIndexesAreSkipped()
{
    PlaylistModel model;
    fill(model, 4);
    QModelIndexList indexes = {QModelIndex(), model.index(3, 1), model.index(9, 0), model.index(1, 6),
                               model.index(3, 0)};
    std::unique_ptr<QMimeData> mime(model.mimeData(indexes));
    QCOMPARE(mime->data(kRows), QByteArray::fromHex("00000002"
                                                    "00000001"
                                                    "00000003"));
}

// --- moving rows ----------------------------------------------------------------------------

void TestPlaylistDragDrop::draggingRowsOneAndTwoOntoRowFourPutsThemBeforeIt()
{
    PlaylistModel model;
    fill(model, 5);
    std::unique_ptr<QMimeData> mime(model.mimeData(wholeRows(model, {1, 2})));
    model.dropMimeData(mime.get(), Qt::MoveAction, -1, -1, model.index(4, 3));
    QCOMPARE(order(model), QStringLiteral("T0 T3 T1 T2 T4"));
}

void TestPlaylistDragDrop::draggingRowThreeOntoRowZeroPutsItFirst()
{
    PlaylistModel model;
    fill(model, 5);
    std::unique_ptr<QMimeData> mime(model.mimeData(wholeRows(model, {3})));
    model.dropMimeData(mime.get(), Qt::MoveAction, -1, -1, model.index(0, 0));
    QCOMPARE(order(model), QStringLiteral("T3 T0 T1 T2 T4"));
}

void TestPlaylistDragDrop::droppingRowThreeBelowTheLastRowPutsItLast()
{
    PlaylistModel model;
    fill(model, 5);
    std::unique_ptr<QMimeData> mime(model.mimeData(wholeRows(model, {3})));
    model.dropMimeData(mime.get(), Qt::MoveAction, -1, -1, QModelIndex()); // the empty area: destination 5
    QCOMPARE(order(model), QStringLiteral("T0 T1 T2 T4 T3"));
    model.moveTracks({3}, 5);
    QCOMPARE(order(model), QStringLiteral("T0 T1 T2 T3 T4"));
}

void TestPlaylistDragDrop::aDropOfRowsReturnsFalseEvenThoughTheRowsMoved()
{
    PlaylistModel model;
    fill(model, 5);
    std::unique_ptr<QMimeData> mime(model.mimeData(wholeRows(model, {0})));
    QVERIFY(!model.dropMimeData(mime.get(), Qt::MoveAction, 3, 0, QModelIndex()));
    QCOMPARE(order(model), QStringLiteral("T1 T2 T0 T3 T4"));
    std::unique_ptr<QMimeData> back(model.mimeData(wholeRows(model, {2})));
    QVERIFY(!model.dropMimeData(back.get(), Qt::CopyAction, 0, 0, QModelIndex()));
    QCOMPARE(order(model), QStringLiteral("T0 T1 T2 T3 T4"));
}

void TestPlaylistDragDrop::moveTracksResetsOnceAndKeepsTheRowKeyedState()
{
    PlaylistModel model;
    model.setStartAnchor(QTime(12, 0, 0));
    fill(model, 6);
    model.setCurrentRow(0);
    model.setCurrentRow(1);
    model.enqueue(4);
    model.raiseRowCounter(5, 2);
    model.setRowMixOverrides(1, {{2500, 300}});
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    model.moveTracks({4, 1}, 0);
    QCOMPARE(order(model), QStringLiteral("T1 T4 T0 T2 T3 T5"));
    QCOMPARE(reset.count(), 1);
    QCOMPARE(inserted.count(), 0);
    QCOMPARE(removed.count(), 0);
    QCOMPARE(changedRanges(changed), (QList<Range>{{0, 2, 5, 2}})); // the start-time column after the reset
    QCOMPARE(model.tracks().at(2).startTime, QTime(12, 2, 0));
    // Indices stay: row 1 is current although another track stands there now.
    QCOMPARE(model.currentRow(), 1);
    QCOMPARE(model.queue(), QList<int>{4});
    QCOMPARE(model.playedRows(), QSet<int>{0});
    QCOMPARE(model.rowCounter(5), 2);
    QCOMPARE(model.rowMixOverride(1), PlaylistModel::MixOverride(2500, 300));

    model.moveTracks({}, 3);
    QCOMPARE(reset.count(), 1);
}

void TestPlaylistDragDrop::moveTracksIgnoresDuplicateAndOutOfRangeRows()
{
    PlaylistModel model;
    fill(model, 5);
    model.moveTracks({2, 2, 9, -1, 2}, 0);
    QCOMPARE(order(model), QStringLiteral("T2 T0 T1 T3 T4"));
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    model.moveTracks({5, 77, -3}, 0);
    QCOMPARE(reset.count(), 0);
    QCOMPARE(order(model), QStringLiteral("T2 T0 T1 T3 T4"));
    model.moveTracks({0}, -10); // destination clamped to the top
    QCOMPARE(order(model), QStringLiteral("T2 T0 T1 T3 T4"));
    model.moveTracks({0}, 400); // and to the end
    QCOMPARE(order(model), QStringLiteral("T0 T1 T3 T4 T2"));
}

void TestPlaylistDragDrop::ignoreActionIsAcceptedAndChangesNothing()
{
    PlaylistModel model;
    fill(model, 3);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
    std::unique_ptr<QMimeData> rows(model.mimeData(wholeRows(model, {2})));
    auto files = urlMime({QUrl::fromLocalFile(QStringLiteral("/music/a - b.mp3"))});
    QVERIFY(model.dropMimeData(rows.get(), Qt::IgnoreAction, 0, 0, QModelIndex()));
    QVERIFY(model.dropMimeData(files.get(), Qt::IgnoreAction, 0, 0, QModelIndex()));
    QCOMPARE(reset.count(), 0);
    QCOMPARE(inserted.count(), 0);
    QCOMPARE(order(model), QStringLiteral("T0 T1 T2"));
}

void TestPlaylistDragDrop::rowPayloadWinsOverUrlsInTheSameDrop()
{
    PlaylistModel model;
    fill(model, 3);
    auto mime = urlMime({QUrl::fromLocalFile(QStringLiteral("/music/x - y.mp3"))});
    mime->setData(kRows, rowsPayload({2}));
    QSignalSpy inserted(&model, &PlaylistModel::tracksInserted);
    QVERIFY(!model.dropMimeData(mime.get(), Qt::CopyAction, 0, 0, QModelIndex()));
    QCOMPARE(order(model), QStringLiteral("T2 T0 T1"));
    QCOMPARE(inserted.count(), 0);
}

// --- bad row payloads -------------------------------------------------------------------------

void TestPlaylistDragDrop::truncatedRowPayloadReadsMissingNumbersAsRowZero()
{
    PlaylistModel model;
    fill(model, 5);
    // Count 3 but only row 4 and half of another number: the stream gives 4, then 0s.
    QByteArray payload = rowsPayload(3, {4});
    payload.append(char(0)).append(char(0));
    auto mime = rowsMime(payload);
    QVERIFY(!model.dropMimeData(mime.get(), Qt::MoveAction, 2, 0, QModelIndex()));
    QCOMPARE(order(model), QStringLiteral("T1 T0 T4 T2 T3"));

    // Cut inside the count itself: no number of rows at all.
    PlaylistModel other;
    fill(other, 3);
    QSignalSpy reset(&other, &QAbstractItemModel::modelReset);
    auto cut = rowsMime(QByteArray::fromHex("0000"));
    QVERIFY(!other.dropMimeData(cut.get(), Qt::MoveAction, 2, 0, QModelIndex()));
    QCOMPARE(reset.count(), 0);
    QCOMPARE(order(other), QStringLiteral("T0 T1 T2"));
}

void TestPlaylistDragDrop::payloadClaimingAMillionRowsWithoutAnyMovesNothingButRowZero()
{
    PlaylistModel model;
    fill(model, 4);
    auto mime = rowsMime(rowsPayload(1000000, {}));
    QVERIFY(!model.dropMimeData(mime.get(), Qt::MoveAction, 3, 0, QModelIndex()));
    // Every missing number reads as row 0; the duplicates collapse into one move of row 0.
    QCOMPARE(order(model), QStringLiteral("T1 T2 T0 T3"));
    QCOMPARE(model.rowCount(), 4);

    auto huge = rowsMime(rowsPayload(2147483647, {1}));
    QVERIFY(!model.dropMimeData(huge.get(), Qt::MoveAction, 4, 0, QModelIndex()));
    QCOMPARE(order(model), QStringLiteral("T0 T3 T1 T2"));
}

void TestPlaylistDragDrop::emptyOrNegativeCountPayloadMovesNothing()
{
    PlaylistModel model;
    fill(model, 3);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    for (const QByteArray& payload :
         {QByteArray(), rowsPayload(0, {}), rowsPayload(-5, {1, 2}), rowsPayload(0, {2, 1})}) {
        auto mime = rowsMime(payload);
        QVERIFY(!model.dropMimeData(mime.get(), Qt::MoveAction, 0, 0, QModelIndex()));
    }
    QCOMPARE(reset.count(), 0);
    QCOMPARE(order(model), QStringLiteral("T0 T1 T2"));
}

void TestPlaylistDragDrop::negativeRowsAndRowsPastTheEndAreIgnored()
{
    PlaylistModel model;
    fill(model, 4);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    auto outside = rowsMime(rowsPayload({-1, 4, 1000, -2147483647 - 1}));
    QVERIFY(!model.dropMimeData(outside.get(), Qt::MoveAction, 0, 0, QModelIndex()));
    QCOMPARE(reset.count(), 0);
    QCOMPARE(order(model), QStringLiteral("T0 T1 T2 T3"));

    auto mixed = rowsMime(rowsPayload({-3, 3, 3, 99}));
    QVERIFY(!model.dropMimeData(mixed.get(), Qt::MoveAction, 0, 0, QModelIndex()));
    QCOMPARE(order(model), QStringLiteral("T3 T0 T1 T2"));
}

// --- names of dropped files and streams -------------------------------------------------------

void TestPlaylistDragDrop::droppedWindowsPathSplitsArtistAndTitle()
{
    const Track track = trackFromDroppedFile(QStringLiteral("C:\\Music\\Artist Name - Song.mp3"));
    QCOMPARE(track.artist, QStringLiteral("Artist Name"));
    QCOMPARE(track.title, QStringLiteral("Song"));
    QCOMPARE(track.filePath, QStringLiteral("C:\\Music\\Artist Name - Song.mp3"));
    QCOMPARE(track.category, QStringLiteral("Foreign"));
    QCOMPARE(track.durationMs, qint64(0));
    QVERIFY(!track.isStream);
    QVERIFY(!track.startTime.isValid());
}

void TestPlaylistDragDrop::droppedHiddenFileKeepsItsDotName()
{
    const Track track = trackFromDroppedFile(QStringLiteral("/home/dj/.hidden"));
    QCOMPARE(track.title, QStringLiteral(".hidden"));
    QVERIFY(track.artist.isEmpty());
}

void TestPlaylistDragDrop::droppedFileWithoutExtensionIsTitledByItsName()
{
    QCOMPARE(trackFromDroppedFile(QStringLiteral("/music/Song")).title, QStringLiteral("Song"));
    QCOMPARE(trackFromDroppedFile(QStringLiteral("Song")).title, QStringLiteral("Song"));
    QCOMPARE(trackFromDroppedFile(QStringLiteral("/music/a.b.mp3")).title, QStringLiteral("a.b"));
    // The later of the two separators wins.
    QCOMPARE(trackFromDroppedFile(QStringLiteral("C:\\one/two\\Three.ogg")).title, QStringLiteral("Three"));
}

void TestPlaylistDragDrop::separatorAtTheStartOfTheNameDoesNotSplit()
{
    const Track track = trackFromDroppedFile(QStringLiteral("/music/ - Intro.wav"));
    QCOMPARE(track.title, QStringLiteral(" - Intro"));
    QVERIFY(track.artist.isEmpty());
}

void TestPlaylistDragDrop::droppedFileNamesAreTrimmedAroundTheSeparatorOnly()
{
    const Track split = trackFromDroppedFile(QStringLiteral("/music/  Band  -  Tune  .flac"));
    QCOMPARE(split.artist, QStringLiteral("Band"));
    QCOMPARE(split.title, QStringLiteral("Tune"));
    const Track whole = trackFromDroppedFile(QStringLiteral("/music/  Loose-Name  .flac"));
    QCOMPARE(whole.title, QStringLiteral("  Loose-Name  "));
    const Track twice = trackFromDroppedFile(QStringLiteral("/music/A - B - C.mp3"));
    QCOMPARE(twice.artist, QStringLiteral("A"));
    QCOMPARE(twice.title, QStringLiteral("B - C"));
}

void TestPlaylistDragDrop::streamAddressBecomesALiveOnlineStreamRow()
{
    const Track stream = trackFromStreamUrl(QStringLiteral("  https://radio.example/live.mp3 \n"));
    QCOMPARE(stream.artist, QStringLiteral("Online stream"));
    QCOMPARE(stream.title, QStringLiteral("https://radio.example/live.mp3"));
    QCOMPARE(stream.filePath, QStringLiteral("https://radio.example/live.mp3"));
    QVERIFY(stream.isStream);
    QCOMPARE(stream.streamLimitMs, qint64(0));
    QCOMPARE(stream.durationMs, qint64(0));
    QCOMPARE(stream.category, QStringLiteral("Foreign"));

    PlaylistModel model;
    model.appendTrack(stream);
    QCOMPARE(model.data(model.index(0, 3)).toString(),
             QStringLiteral("Online stream - https://radio.example/live.mp3"));
    QCOMPARE(model.data(model.index(0, 4)).toString(), QStringLiteral("LIVE"));
}

void TestPlaylistDragDrop::streamTestAcceptsTheFiveSchemesInAnyCaseAfterTrimming()
{
    for (const char* text : {"http://a", "https://a", "mms://a", "rtsp://a", "rtmp://a", "HTTP://A",
                             "Rtmp://live", "  https://padded  ", "\thttp://tab"})
        QVERIFY2(isStreamUrl(QString::fromLatin1(text)), text);
    for (const char* text : {"", "   ", "ftp://a", "file:///music/a.mp3", "/music/http://a", "http:/a",
                             "httpx://a", "rtmps://a", "mms:/a", "http"})
        QVERIFY2(!isStreamUrl(QString::fromLatin1(text)), text);
}

// --- dropping URLs ------------------------------------------------------------------------------

void TestPlaylistDragDrop::droppingAnRtmpAddressInCapitalsAddsAStream()
{
    PlaylistModel model;
    fill(model, 1);
    auto mime = urlMime({QUrl(QStringLiteral("RTMP://LIVE.EXAMPLE/STATION"))});
    QVERIFY(model.dropMimeData(mime.get(), Qt::CopyAction, -1, -1, QModelIndex()));
    QCOMPARE(model.rowCount(), 2);
    const Track& added = model.tracks().at(1);
    QVERIFY(added.isStream);
    QCOMPARE(added.artist, QStringLiteral("Online stream"));
    QVERIFY(added.filePath.startsWith(QStringLiteral("rtmp://live.example/"), Qt::CaseInsensitive));
    QCOMPARE(model.data(model.index(1, 4)).toString(), QStringLiteral("LIVE"));
}

void TestPlaylistDragDrop::droppingAnFtpAddressInsertsNothingAndReturnsFalse()
{
    PlaylistModel model;
    fill(model, 2);
    QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
    QSignalSpy tracksInserted(&model, &PlaylistModel::tracksInserted);
    auto mime = urlMime({QUrl(QStringLiteral("ftp://files.example/song.mp3"))});
    QVERIFY(!model.dropMimeData(mime.get(), Qt::CopyAction, 0, 0, QModelIndex()));
    QCOMPARE(model.rowCount(), 2);
    QCOMPARE(inserted.count(), 0);
    QCOMPARE(tracksInserted.count(), 0);
}

void TestPlaylistDragDrop::droppingEmptyAndFilelessUrlsInsertsNothing()
{
    PlaylistModel model;
    QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
    auto mime = urlMime({QUrl(), QUrl(QStringLiteral("file:")), QUrl(QStringLiteral("mailto:dj@example.org")),
                         QUrl(QStringLiteral("ftp://x.example/a.mp3"))});
    QVERIFY(!model.dropMimeData(mime.get(), Qt::CopyAction, -1, -1, QModelIndex()));
    QCOMPARE(model.rowCount(), 0);
    QCOMPARE(inserted.count(), 0);

    // One good URL among bad ones is enough.
    auto some = urlMime({QUrl(), QUrl(QStringLiteral("ftp://x.example/a.mp3")),
                         QUrl::fromLocalFile(QStringLiteral("/music/Good - One.mp3"))});
    QVERIFY(model.dropMimeData(some.get(), Qt::CopyAction, -1, -1, QModelIndex()));
    QCOMPARE(order(model), QStringLiteral("One"));
}

void TestPlaylistDragDrop::droppingDataWithoutUrlsReturnsFalse()
{
    PlaylistModel model;
    fill(model, 1);
    QMimeData text;
    text.setText(QStringLiteral("http://radio.example/"));
    QVERIFY(!model.dropMimeData(&text, Qt::CopyAction, 0, 0, QModelIndex()));
    QVERIFY(!model.dropMimeData(nullptr, Qt::CopyAction, 0, 0, QModelIndex()));
    QCOMPARE(model.rowCount(), 1);
}

void TestPlaylistDragDrop::droppingThreeFilesOntoRowTwoReportsTheirPlace()
{
    PlaylistModel model;
    fill(model, 4);
    QSignalSpy tracksInserted(&model, &PlaylistModel::tracksInserted);
    QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
    auto mime = urlMime({QUrl::fromLocalFile(QStringLiteral("/music/X - One.mp3")),
                         QUrl::fromLocalFile(QStringLiteral("/music/X - Two.flac")),
                         QUrl::fromLocalFile(QStringLiteral("/music/X - Three.ogg"))});
    QVERIFY(model.dropMimeData(mime.get(), Qt::CopyAction, -1, -1, model.index(2, 3)));
    QCOMPARE(tracksInserted.count(), 1);
    QCOMPARE(tracksInserted.at(0).at(0).toInt(), 2);
    QCOMPARE(tracksInserted.at(0).at(1).toInt(), 3);
    QCOMPARE(inserted.count(), 1); // one notification for all three rows
    QCOMPARE(inserted.at(0).at(1).toInt(), 2);
    QCOMPARE(inserted.at(0).at(2).toInt(), 4);
    QCOMPARE(order(model), QStringLiteral("T0 T1 One Two Three T2 T3"));
    QCOMPARE(model.data(model.index(2, 4)).toString(), QStringLiteral("--:--"));
    QCOMPARE(model.tracks().at(3).filePath, QStringLiteral("/music/X - Two.flac"));
}

void TestPlaylistDragDrop::droppingThreeFilesBelowTenRowsAppendsThem()
{
    PlaylistModel model;
    fill(model, 10);
    QSignalSpy tracksInserted(&model, &PlaylistModel::tracksInserted);
    auto mime = urlMime({QUrl::fromLocalFile(QStringLiteral("/music/a.mp3")),
                         QUrl::fromLocalFile(QStringLiteral("/music/b.mp3")),
                         QUrl::fromLocalFile(QStringLiteral("/music/c.mp3"))});
    QVERIFY(model.dropMimeData(mime.get(), Qt::CopyAction, -1, -1, QModelIndex()));
    QCOMPARE(tracksInserted.count(), 1);
    QCOMPARE(tracksInserted.at(0).at(0).toInt(), 10);
    QCOMPARE(tracksInserted.at(0).at(1).toInt(), 3);
    QCOMPARE(model.rowCount(), 13);
}

void TestPlaylistDragDrop::tracksInsertedArrivesAfterTheNewRowsAreInAndScheduled()
{
    PlaylistModel model;
    model.setStartAnchor(QTime(9, 0, 0));
    fill(model, 3); // 9:00, 9:01, 9:02
    QStringList events;
    connect(&model, &QAbstractItemModel::rowsInserted, &model,
            [&events](const QModelIndex&, int first, int last) {
                events << QStringLiteral("rowsInserted %1-%2").arg(first).arg(last);
            });
    connect(&model, &QAbstractItemModel::dataChanged, &model,
            [&events](const QModelIndex& topLeft, const QModelIndex& bottomRight) {
                events << QStringLiteral("dataChanged (%1,%2)-(%3,%4)")
                              .arg(topLeft.row())
                              .arg(topLeft.column())
                              .arg(bottomRight.row())
                              .arg(bottomRight.column());
            });
    QList<QTime> newStartsSeenBySignal;
    connect(&model, &PlaylistModel::tracksInserted, &model, [&](int first, int count) {
        events << QStringLiteral("tracksInserted %1 %2").arg(first).arg(count);
        for (int row = first; row < first + count; ++row)
            newStartsSeenBySignal << model.tracks().at(row).startTime;
    });
    auto mime = urlMime({QUrl::fromLocalFile(QStringLiteral("/music/a.mp3")),
                         QUrl(QStringLiteral("http://radio.example/b"))});
    QVERIFY(model.dropMimeData(mime.get(), Qt::CopyAction, 1, 0, QModelIndex()));
    QCOMPARE(events,
             (QStringList{QStringLiteral("rowsInserted 1-2"), QStringLiteral("dataChanged (0,2)-(4,2)"),
                          QStringLiteral("tracksInserted 1 2")}));
    // A dropped row arrives without a time; by the time the signal comes it has one. Both new rows
    // last 0 ms, so they start together and the old rows below keep their times.
    QCOMPARE(newStartsSeenBySignal, (QList<QTime>{QTime(9, 1, 0), QTime(9, 1, 0)}));
    QCOMPARE(model.tracks().at(3).startTime, QTime(9, 1, 0));
    QCOMPARE(model.tracks().at(4).startTime, QTime(9, 2, 0));
}

void TestPlaylistDragDrop::droppedFilesNeedNotExistAndAreNotRead()
{
    PlaylistModel model;
    model.setStartAnchor(QTime(20, 0, 0));
    fill(model, 1);
    const QString missing = m_home.filePath(QStringLiteral("gone/Ghost - Track.xyz"));
    auto mime = urlMime({QUrl::fromLocalFile(missing)});
    QVERIFY(model.dropMimeData(mime.get(), Qt::CopyAction, 0, 0, QModelIndex()));
    QCOMPARE(model.tracks().at(0).filePath, missing);
    QCOMPARE(model.tracks().at(0).artist, QStringLiteral("Ghost"));
    QCOMPARE(model.tracks().at(0).title, QStringLiteral("Track"));
    // Start times were recomputed with the new row first (0 ms).
    QCOMPARE(model.tracks().at(0).startTime, QTime(20, 0, 0));
    QCOMPARE(model.tracks().at(1).startTime, QTime(20, 0, 0));
}

void TestPlaylistDragDrop::droppedRowsLeaveTheCurrentRowAndQueueIndicesAlone()
{
    PlaylistModel model;
    fill(model, 4);
    model.setCurrentRow(2);
    model.enqueue(3);
    auto mime =
        urlMime({QUrl(QStringLiteral("http://radio.example/a")), QUrl(QStringLiteral("mms://b.example/"))});
    QVERIFY(model.dropMimeData(mime.get(), Qt::CopyAction, 0, 0, QModelIndex()));
    QCOMPARE(model.currentRow(), 2);
    QCOMPARE(model.queue(), QList<int>{3});
    QCOMPARE(model.tracks().at(0).title, QStringLiteral("http://radio.example/a"));
    QCOMPARE(model.tracks().at(1).title, QStringLiteral("mms://b.example/"));
}

void TestPlaylistDragDrop::droppingPastTheEndIsClampedToTheEnd()
{
    PlaylistModel model;
    fill(model, 2);
    QSignalSpy tracksInserted(&model, &PlaylistModel::tracksInserted);
    auto mime = urlMime({QUrl::fromLocalFile(QStringLiteral("/music/Z - End.mp3"))});
    QVERIFY(model.dropMimeData(mime.get(), Qt::CopyAction, 50, 0, QModelIndex()));
    QCOMPARE(tracksInserted.at(0).at(0).toInt(), 2);
    QCOMPARE(order(model), QStringLiteral("T0 T1 End"));
}

// --- through a real view ------------------------------------------------------------------------

void TestPlaylistDragDrop::draggingSelectedRowsInATableViewReordersThem()
{
    PlaylistModel model;
    fill(model, 5);
    QTableView view;
    view.setSelectionBehavior(QAbstractItemView::SelectRows);
    view.setSelectionMode(QAbstractItemView::ExtendedSelection);
    view.setDefaultDropAction(Qt::MoveAction);
    QVERIFY(showDropView(view, model, QSize(800, 400)));

    // Click row 1, ctrl-click row 2, as a user would.
    QTest::mouseClick(view.viewport(), Qt::LeftButton, Qt::NoModifier,
                      view.visualRect(model.index(1, 3)).center());
    QTest::mouseClick(view.viewport(), Qt::LeftButton, Qt::ControlModifier,
                      view.visualRect(model.index(2, 3)).center());
    QCOMPARE(view.selectionModel()->selectedRows().size(), 2);

    std::unique_ptr<QMimeData> mime(model.mimeData(view.selectionModel()->selectedIndexes()));
    QCOMPARE(mime->data(kRows), QByteArray::fromHex("00000002"
                                                    "00000001"
                                                    "00000002"));

    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    // The middle of row 4: a drop onto the row, so the rows go before it.
    QVERIFY(dropOnView(view, mime.get(), view.visualRect(model.index(4, 3)).center(), Qt::MoveAction));
    QCOMPARE(reset.count(), 1);
    QCOMPARE(order(model), QStringLiteral("T0 T3 T1 T2 T4"));
    // The model answered false, so the view removed nothing on its own.
    QCOMPARE(model.rowCount(), 5);
}

void TestPlaylistDragDrop::droppingLibraryUrlsOnTheViewInsertsFilesAndStreams()
{
    PlaylistModel model;
    fill(model, 3);
    QTableView view;
    QVERIFY(showDropView(view, model, QSize(800, 400)));

    // What the library window's table puts on a drag: a URL list only.
    QMimeData mime;
    mime.setUrls({QUrl::fromLocalFile(QStringLiteral("/srv/music/Nina - Blue Hour.mp3")),
                  QUrl(QStringLiteral("https://stream.example/jazz")),
                  QUrl(QStringLiteral("ftp://old.example/skip.mp3"))});
    QCOMPARE(mime.formats(), QStringList{QStringLiteral("text/uri-list")});

    QSignalSpy tracksInserted(&model, &PlaylistModel::tracksInserted);
    QVERIFY(dropOnView(view, &mime, view.visualRect(model.index(1, 3)).center(), Qt::CopyAction));
    QTRY_COMPARE_WITH_TIMEOUT(tracksInserted.count(), 1, 10000);
    QCOMPARE(tracksInserted.at(0).at(0).toInt(), 1);
    QCOMPARE(tracksInserted.at(0).at(1).toInt(), 2);
    QCOMPARE(model.rowCount(), 5);
    QCOMPARE(model.data(model.index(1, 3)).toString(), QStringLiteral("Nina - Blue Hour"));
    QCOMPARE(model.data(model.index(2, 3)).toString(),
             QStringLiteral("Online stream - https://stream.example/jazz"));
    QCOMPARE(model.data(model.index(2, 4)).toString(), QStringLiteral("LIVE"));
    QCOMPARE(order(model), QStringLiteral("T0 Blue Hour https://stream.example/jazz T1 T2"));
}

void TestPlaylistDragDrop::droppingLibraryUrlsBelowTheRowsAppendsThem()
{
    PlaylistModel model;
    fill(model, 2);
    QTableView view;
    QVERIFY(showDropView(view, model, QSize(800, 600)));

    QMimeData mime;
    mime.setUrls({QUrl::fromLocalFile(QStringLiteral("/srv/music/Last - Call.ogg"))});
    const QRect lastRow = view.visualRect(model.index(1, 3));
    const QPoint below(lastRow.center().x(), lastRow.bottom() + 60);
    QVERIFY(view.viewport()->rect().contains(below));
    QVERIFY(!view.indexAt(below).isValid());
    QSignalSpy tracksInserted(&model, &PlaylistModel::tracksInserted);
    QVERIFY(dropOnView(view, &mime, below, Qt::CopyAction));
    QTRY_COMPARE_WITH_TIMEOUT(tracksInserted.count(), 1, 10000);
    QCOMPARE(tracksInserted.at(0).at(0).toInt(), 2);
    QCOMPARE(order(model), QStringLiteral("T0 T1 Call"));
}

void TestPlaylistDragDrop::dropsKeepTheItemModelContract()
{
    PlaylistModel model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    auto files = urlMime({QUrl::fromLocalFile(QStringLiteral("/music/a - b.mp3")),
                          QUrl(QStringLiteral("rtsp://cam.example/audio"))});
    QVERIFY(model.dropMimeData(files.get(), Qt::CopyAction, -1, -1, QModelIndex()));
    QVERIFY(model.dropMimeData(files.get(), Qt::CopyAction, 1, 0, QModelIndex()));
    fill(model, 4);
    model.setHourMarkersVisible(true);
    for (const QList<qint32>& rows : {QList<qint32>{0, 7}, QList<qint32>{3}, QList<qint32>{-1, 2, 2, 40}}) {
        auto mime = rowsMime(rowsPayload(rows));
        model.dropMimeData(mime.get(), Qt::MoveAction, -1, -1, model.index(2, 0));
        model.dropMimeData(mime.get(), Qt::MoveAction, -1, -1, QModelIndex());
    }
    auto forged = rowsMime(rowsPayload(1000000, {}));
    model.dropMimeData(forged.get(), Qt::MoveAction, 1, 0, QModelIndex());
    QCOMPARE(model.rowCount(), 8);
}

QTEST_MAIN(TestPlaylistDragDrop)
#include "tst_playlistdragdrop.moc"
