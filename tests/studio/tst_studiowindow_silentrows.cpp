#include "audioengine.h"
#include "logpane.h"
#include "playlistmodel.h"
#include "sequencerrules.h"
#include "streamserver.h"
#include "studiotestsupport.h"
#include "studiowindow.h"
#include "transportbar.h"

#include <QMediaDevices>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

using namespace playouttest;
using namespace studiotest;

// Rows that are taken but never sound: a stream whose server never answers and a file that cannot
// be decoded are skipped after their limit, in the window's log; the presenter's Stop cancels that.
class TestStudioWindowSilentRows : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QString tone;
    QString corrupt;

    static int linesWith(StudioWindow& window, const QString& text)
    {
        return int(window.logPane()->lines().filter(text).size());
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useStudioLocations(dir.path(), "tst_studiowindow_silentrows");
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        tone = makeTone(dir.path(), QStringLiteral("Good - Tone.wav"), 440, 4.0);
        QVERIFY(!tone.isEmpty());
        corrupt = QDir(dir.path()).filePath(QStringLiteral("Broken - Noise.wav"));
        QByteArray junk(64 * 1024, '\0');
        for (int i = 0; i < junk.size(); ++i)
            junk[i] = char((i * 7919) % 251);
        QVERIFY(uitest::writeFile(corrupt, junk));
    }

    void cleanupTestCase() { removeStudioLocations(); }

    void aSilentStreamAndAnUndecodableFileAreSkipped()
    {
        StreamServer server(QByteArray(4096, 'x'), 16000);
        server.setSilent(true);
        QVERIFY(server.start());
        StudioWindow window;
        window.engine()->setSilentRowLimits(3000, 3000);
        window.appendItems({server.url(), corrupt, tone});
        QCOMPARE(window.playlist()->rowCount(), 3);
        QSignalSpy started(window.engine(), &AudioEngine::trackStarted);
        window.engine()->playRow(0);
        QVERIFY(window.engine()->isWaitingForSound());
        QTRY_COMPARE_WITH_TIMEOUT(linesWith(window, SequencerLog::streamSkipped(server.url(), 3)), 1,
                                  15000);
        QTRY_COMPARE_WITH_TIMEOUT(window.engine()->currentRow(), 2, 20000);
        QCOMPARE(linesWith(window, SequencerLog::fileSkipped(corrupt, 3)), 1);
        QTRY_VERIFY_WITH_TIMEOUT(!started.isEmpty(), 10000);
        QCOMPARE(started.last().at(0).toInt(), 2);
        QVERIFY(!window.engine()->isWaitingForSound());
        window.engine()->stop();
    }

    void thePresentersStopCancelsTheWait()
    {
        StreamServer server(QByteArray(4096, 'x'), 16000);
        server.setSilent(true);
        QVERIFY(server.start());
        StudioWindow window;
        window.appendItems({server.url(), tone});
        window.engine()->playRow(0);
        QVERIFY(window.engine()->isWaitingForSound());
        QTest::mouseClick(window.transportBar()->stopButton(), Qt::LeftButton);
        QVERIFY(!window.engine()->isWaitingForSound());
        QCOMPARE(window.engine()->currentRow(), 0);
    }
};

QTEST_MAIN(TestStudioWindowSilentRows)
#include "moc_streamserver.cpp"
#include "tst_studiowindow_silentrows.moc"
