#include "audioengine.h"
#include "logpane.h"
#include "relaypanel.h"
#include "streamserver.h"
#include "studiotestsupport.h"
#include "studiowindow.h"

#include <QLabel>
#include <QLineEdit>
#include <QMediaDevices>
#include <QPushButton>
#include <QTest>

using namespace playouttest;
using namespace studiotest;

// The relay panel of the window against a live MP3 stream served on 127.0.0.1: connecting, live,
// lost when the server dies, and stopped, each shown in words and colour.
class TestRelayPanel : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QByteArray liveMp3;

    struct Shown {
        RelayState state;
        QString text;
        QColor colour;
    };

    // What the panel showed at each state change, read right after it handled the change.
    static QList<Shown>* record(StudioWindow& window)
    {
        auto* shown = new QList<Shown>;
        RelayPanel* panel = window.relayPanel();
        QObject::connect(window.engine(), &AudioEngine::relayStatusChanged, panel,
                         [panel, shown](RelayState state, const QString&) {
                             shown->append({state, panel->stateLabel()->text(),
                                            panel->stateLabel()->palette().color(QPalette::Window)});
                         });
        return shown;
    }

    static bool sawState(const QList<Shown>& shown, RelayState state)
    {
        return std::any_of(shown.begin(), shown.end(), [state](const Shown& s) { return s.state == state; });
    }

    static void checkShows(RelayPanel* panel, RelayState state, const QString& words)
    {
        QCOMPARE(panel->shownState(), state);
        QCOMPARE(panel->stateLabel()->text(), words);
        QCOMPARE(panel->stateLabel()->palette().color(QPalette::Window), RelayPanel::stateColour(state));
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useStudioLocations(dir.path(), "tst_relaypanel");
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        liveMp3 = makeTaggedStreamMp3(dir.path());
        QVERIFY(liveMp3.size() > 10000);
    }

    void cleanupTestCase() { removeStudioLocations(); }

    void theFourStatesAreShownInWordsAndColour()
    {
        // Four states, four different colours, four different captions.
        const QList<RelayState> all = {RelayState::Off, RelayState::Connecting, RelayState::Live,
                                       RelayState::Lost};
        QSet<QRgb> colours;
        QSet<QString> captions;
        for (RelayState state : all) {
            colours.insert(RelayPanel::stateColour(state).rgb());
            captions.insert(RelayPanel::stateCaption(state));
        }
        QCOMPARE(colours.size(), 4);
        QCOMPARE(captions.size(), 4);
    }

    void aRelayGoesThroughConnectingLiveLostAndStopped()
    {
        StreamServer server(liveMp3, 16000);
        QVERIFY(server.start());
        StudioWindow window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        RelayPanel* panel = window.relayPanel();
        checkShows(panel, RelayState::Off, QStringLiteral("Relay off"));
        QVERIFY(!panel->stopButton()->isEnabled());
        std::unique_ptr<QList<Shown>> shown(record(window));

        panel->urlField()->setText(server.url());
        QTest::mouseClick(panel->startButton(), Qt::LeftButton);
        QVERIFY(sawState(*shown, RelayState::Connecting));
        QCOMPARE(shown->first().text, QStringLiteral("Relay connecting"));
        QCOMPARE(shown->first().colour, RelayPanel::stateColour(RelayState::Connecting));
        QTRY_COMPARE_WITH_TIMEOUT(panel->shownState(), RelayState::Live, 15000);
        checkShows(panel, RelayState::Live, QStringLiteral("Relay LIVE"));
        QVERIFY(panel->stopButton()->isEnabled());
        QVERIFY(panel->stateLabel()->toolTip().contains(server.url()));

        server.kill();
        QTRY_COMPARE_WITH_TIMEOUT(panel->shownState(), RelayState::Lost, 15000);
        checkShows(panel, RelayState::Lost, QStringLiteral("Relay lost"));
        QVERIFY(!window.logPane()->lines().filter(QStringLiteral("Relay: stream lost")).isEmpty());

        QTest::mouseClick(panel->stopButton(), Qt::LeftButton);
        QTRY_COMPARE_WITH_TIMEOUT(panel->shownState(), RelayState::Off, 5000);
        checkShows(panel, RelayState::Off, QStringLiteral("Relay off"));
        QVERIFY(!window.engine()->isRelaying());
        QVERIFY(!window.logPane()->lines().filter(QStringLiteral("Relay: stopped")).isEmpty());
    }

    void anEmptyAddressStartsNothing()
    {
        StudioWindow window;
        RelayPanel* panel = window.relayPanel();
        panel->urlField()->setText(QStringLiteral("   "));
        QTest::mouseClick(panel->startButton(), Qt::LeftButton);
        QVERIFY(!window.engine()->isRelaying());
        checkShows(panel, RelayState::Off, QStringLiteral("Relay off"));
    }
};

QTEST_MAIN(TestRelayPanel)
#include "tst_relaypanel.moc"
