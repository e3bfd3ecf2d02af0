#include "deck.h"
#include "outputrouter.h"
#include "playouttestsupport.h"
#include "streamserver.h"

#include <QAudioOutput>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QElapsedTimer>
#include <QTest>
#include <QThread>

#include <cmath>

using namespace playouttest;

// One deck on its own: when its track begins to sound, how long it is heard, and its volume.
class TestDeck : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QString tone;      // 10 s
    QString shortTone; // 0.4 s

    static Track trackOf(const QString& path)
    {
        Track t;
        t.title = QStringLiteral("Tone");
        t.filePath = path;
        return t;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useTemporarySettings(dir.path(), QStringLiteral("tst_deck"));
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        tone = makeTone(dir.path(), QStringLiteral("tone.wav"), 440, 10);
        shortTone = makeTone(dir.path(), QStringLiteral("short.wav"), 440, 0.4);
        QVERIFY(!tone.isEmpty() && !shortTone.isEmpty());
    }

    void aStartedTrackIsAnnouncedOnceWhenItSounds()
    {
        Deck deck;
        QSignalSpy began(&deck, &Deck::beganToSound);
        deck.start(7, trackOf(tone), QUrl::fromLocalFile(tone), false, 0);
        QVERIFY(!deck.isAiring()); // not heard yet
        QTRY_COMPARE_WITH_TIMEOUT(began.count(), 1, 10000);
        QCOMPARE(began.first().at(0).toInt(), 7);
        QCOMPARE(began.first().at(1).value<Track>().filePath, tone);
        QVERIFY(deck.isAiring());
        QCOMPARE(deck.airingRow(), 7);
        QTRY_VERIFY_WITH_TIMEOUT(deck.position() > 600, 10000);
        QCOMPARE(began.count(), 1);
        const qint64 played = deck.endAiring();
        QVERIFY2(played >= 400 && played < 5000, qPrintable(QString::number(played)));
        QVERIFY(!deck.isAiring());
        QCOMPARE(deck.endAiring(), 0); // a second end reports nothing heard
        deck.stop();
    }

    void resumingAfterTheEndIsANewAiring()
    {
        Deck deck;
        QSignalSpy began(&deck, &Deck::beganToSound);
        deck.start(0, trackOf(tone), QUrl::fromLocalFile(tone), false, 0);
        QTRY_COMPARE_WITH_TIMEOUT(began.count(), 1, 10000);
        deck.pause();
        QTRY_VERIFY_WITH_TIMEOUT(!deck.isPlaying(), 5000);
        deck.endAiring();
        deck.resume();
        QTRY_COMPARE_WITH_TIMEOUT(began.count(), 2, 10000);
        QVERIFY(deck.isAiring());
        deck.stop();
    }

    void pausedTimeIsNotCounted()
    {
        Deck deck;
        QSignalSpy began(&deck, &Deck::beganToSound);
        deck.start(0, trackOf(tone), QUrl::fromLocalFile(tone), false, 0);
        QTRY_COMPARE_WITH_TIMEOUT(began.count(), 1, 10000);
        deck.pause();
        QTRY_VERIFY_WITH_TIMEOUT(!deck.isPlaying(), 5000);
        const qint64 atPause = deck.playedMs();
        QTest::qWait(1000); // the pause being measured
        QCOMPARE(deck.playedMs(), atPause);
        deck.resume();
        QTRY_VERIFY_WITH_TIMEOUT(deck.playedMs() > atPause, 5000);
        deck.stop();
    }

    void anEmptySourceNeverSounds()
    {
        Deck deck;
        QSignalSpy began(&deck, &Deck::beganToSound);
        deck.start(0, trackOf(QStringLiteral("/nonexistent/gone.wav")), QUrl(), false, 0);
        QVERIFY(!began.wait(1500));
        QVERIFY(!deck.isAiring());
    }

    void aShortFileIsAnnouncedBeforeItsEndIsHandled()
    {
        Deck deck;
        QList<QString> order;
        connect(&deck, &Deck::beganToSound, this, [&] { order << QStringLiteral("began"); });
        // Connected after the deck's own handling, as the engine is.
        connect(&deck, &Deck::mediaStatusChanged, this, [&](QMediaPlayer::MediaStatus s) {
            if (s == QMediaPlayer::EndOfMedia)
                order << QStringLiteral("end");
        });
        deck.start(0, trackOf(shortTone), QUrl::fromLocalFile(shortTone), false, 0);
        QTRY_VERIFY_WITH_TIMEOUT(order.contains(QStringLiteral("end")), 10000);
        QCOMPARE(order, (QList<QString>{QStringLiteral("began"), QStringLiteral("end")}));
    }

    void volumeIsGainTimesMasterTimesDuckAndTrackGain()
    {
        Deck deck;
        deck.setMix(0.8, false);
        QCOMPARE(deck.outputVolume(), 0.8f);
        deck.setMix(0.8, true);
        QVERIFY(std::fabs(deck.outputVolume() - 0.16) < 1e-6);
        deck.setMix(0.5, false);
        deck.setTrackGain(0.5);
        QVERIFY(std::fabs(deck.outputVolume() - 0.25) < 1e-6);
        deck.setTrackGain(4.0); // clamped at full scale
        QCOMPARE(deck.outputVolume(), 1.0f);
        deck.setTrackGain(1.0);
        deck.fadeTo(0.0, 0, false);
        QCOMPARE(deck.outputVolume(), 0.0f);
        QCOMPARE(deck.gain(), 0.0);
    }

    void theLevelIsWhatIsHeardAndFallsWhenTheDeckStops()
    {
        Deck deck;
        deck.setMix(0.8, false);
        deck.setTrackGain(4.0); // asks for 12 dB more than the output can give
        QCOMPARE(deck.effectiveTrackGain(), 1.25);
        QSignalSpy fell(&deck, &Deck::levelFell);
        deck.start(0, trackOf(tone), QUrl::fromLocalFile(tone), false, 0);
        QTRY_VERIFY_WITH_TIMEOUT(deck.levelValid() && deck.levelLeft() > 0.1, 10000);
        // The tone's 0.5 at full output volume, not 0.5 x 4 x 0.8.
        QVERIFY2(deck.levelLeft() > 0.45 && deck.levelLeft() < 0.51, qPrintable(QString::number(deck.levelLeft())));
        deck.stop();
        QVERIFY(fell.count() >= 1);
        QCOMPARE(deck.levelLeft(), 0.0);
        QCOMPARE(deck.levelRight(), 0.0);
        QVERIFY(!deck.levelValid());
    }

    void aDeckThatIsNotMeteredMeasuresNothingUntilItIs()
    {
        Deck deck;
        deck.setMetering(false);
        QVERIFY(!deck.isMetering());
        QSignalSpy measured(&deck, &Deck::levelMeasured);
        deck.start(0, trackOf(tone), QUrl::fromLocalFile(tone), false, 0);
        QTRY_VERIFY_WITH_TIMEOUT(deck.position() > 1000, 10000);
        QCOMPARE(measured.count(), 0);
        QVERIFY(!deck.levelValid());
        deck.setMetering(true);
        QTRY_VERIFY_WITH_TIMEOUT(measured.count() > 0, 10000);
        QVERIFY(deck.levelValid());
        deck.stop();
    }

    void theEndOfTheEarlierSourceDoesNotReachTheNextLoad()
    {
        Deck deck;
        QSignalSpy began(&deck, &Deck::beganToSound);
        QSignalSpy status(&deck, &Deck::mediaStatusChanged);
        bool switched = false;
        // Next pressed as the short tone ends: its last position report comes just before the
        // player delivers its end, which then arrives after the next source was loaded. The thread
        // is held a moment first, as a busy GUI thread would be, so that the end is surely posted.
        connect(&deck, &Deck::positionChanged, this, [&](qint64 position) {
            if (switched || position < 400)
                return;
            switched = true;
            QThread::msleep(600);
            status.clear();
            deck.start(1, trackOf(tone), QUrl::fromLocalFile(tone), false, 0);
        });
        deck.start(0, trackOf(shortTone), QUrl::fromLocalFile(shortTone), false, 0);
        QTRY_VERIFY_WITH_TIMEOUT(switched, 10000);
        QTRY_COMPARE_WITH_TIMEOUT(began.count(), 2, 10000);
        QCOMPARE(began.at(1).at(0).toInt(), 1);
        QStringList seen;
        for (const QList<QVariant>& report : std::as_const(status))
            seen << QString::number(int(report.at(0).value<QMediaPlayer::MediaStatus>()));
        QTRY_VERIFY2_WITH_TIMEOUT(deck.position() > 1000, qPrintable(seen.join(u' ')), 10000);
        QVERIFY(deck.isPlaying());
        QCOMPARE(deck.airingRow(), 1);
        for (const QList<QVariant>& report : std::as_const(status))
            QVERIFY(report.at(0).value<QMediaPlayer::MediaStatus>() != QMediaPlayer::EndOfMedia);
        qInfo("late ends dropped: %d", deck.droppedReports());
        QCOMPARE(deck.droppedReports(), 1);
        deck.stop();
    }

    void theEndOfTheCurrentSourceIsReportedAfterANewLoad()
    {
        Deck deck;
        QSignalSpy began(&deck, &Deck::beganToSound);
        deck.start(0, trackOf(tone), QUrl::fromLocalFile(tone), false, 0);
        QTRY_COMPARE_WITH_TIMEOUT(began.count(), 1, 10000);
        QSignalSpy status(&deck, &Deck::mediaStatusChanged);
        deck.start(1, trackOf(shortTone), QUrl::fromLocalFile(shortTone), false, 0);
        QTRY_VERIFY_WITH_TIMEOUT(status.contains(QList<QVariant>{QVariant::fromValue(QMediaPlayer::EndOfMedia)}),
                                 10000);
        QCOMPARE(began.count(), 2);
        QCOMPARE(deck.droppedReports(), 0);
    }

    void aLoadThatNeverFinishesIsGivenUpAndTheDeckPlaysAgain()
    {
        // Accepts the connection and never answers: the player stays loading.
        StreamServer server(QByteArray(1024, 'x'), 16000);
        server.setSilent(true);
        QVERIFY(server.start());
        OutputRouter router;
        Deck deck(nullptr, &router);
        QCOMPARE(router.playerCount(), 1);
        deck.setLoadLimitMs(400);
        QSignalSpy timedOut(&deck, &Deck::loadTimedOut);
        QSignalSpy began(&deck, &Deck::beganToSound);
        QElapsedTimer clock;
        clock.start();
        deck.start(0, trackOf(server.url()), QUrl(server.url()), false, 0);
        QVERIFY(timedOut.wait(10000));
        const qint64 after = clock.elapsed();
        qInfo("load given up after %lld ms (limit 400 ms, coarse timer)", after);
        QVERIFY2(after >= 360 && after < 3000, qPrintable(QString::number(after)));
        QCOMPARE(timedOut.first().at(0).toUrl(), QUrl(server.url()));
        QCOMPARE(began.count(), 0);
        QVERIFY(!deck.isAiring());
        QVERIFY(deck.source().isEmpty());
        // The set-aside player left the router; the fresh one took its place.
        QCOMPARE(router.playerCount(), 1);
        // The fresh player plays the next file.
        deck.start(1, trackOf(tone), QUrl::fromLocalFile(tone), false, 0);
        QTRY_COMPARE_WITH_TIMEOUT(began.count(), 1, 10000);
        QCOMPARE(began.first().at(0).toInt(), 1);
        QCOMPARE(timedOut.count(), 1);
        deck.stop();
    }

    void aLoadThatFinishesInTimeIsNotGivenUp()
    {
        Deck deck;
        deck.setLoadLimitMs(400);
        QSignalSpy timedOut(&deck, &Deck::loadTimedOut);
        QSignalSpy began(&deck, &Deck::beganToSound);
        deck.start(0, trackOf(tone), QUrl::fromLocalFile(tone), false, 0);
        QTRY_COMPARE_WITH_TIMEOUT(began.count(), 1, 10000);
        QTRY_VERIFY_WITH_TIMEOUT(deck.position() > 800, 10000);
        QCOMPARE(timedOut.count(), 0);
        deck.stop();
    }
};

QTEST_MAIN(TestDeck)
#include "tst_deck.moc"
