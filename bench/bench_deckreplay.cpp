#include "deck.h"
#include "playouttestsupport.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <algorithm>

using namespace playouttest;

// The same file started again on the deck that last played it: a jingle twice in a row, a timed
// row that cuts to the file the deck just had. Every start should be heard from the top; each path
// prints how many of its starts were not, and fails when more than its bound were missed. Run it on
// the null sink: bash scripts/with-sound.sh build/bench/bench_deckreplay
class TestDeckReplay : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QString jingle; // 0.8 s
    QUrl source;
    static constexpr int rounds = 20;

    static Track trackOf(const QString& path)
    {
        Track t;
        t.title = QStringLiteral("Jingle");
        t.filePath = path;
        return t;
    }

    // The positions reported since the last start: a start heard from the top reports one near
    // the top and then moves on.
    struct Positions
    {
        qint64 lowest = -1;
        qint64 latest = -1;
        void reset() { lowest = latest = -1; }
        void add(qint64 position)
        {
            lowest = lowest < 0 ? position : std::min(lowest, position);
            latest = position;
        }
    };

    // Waits for the start to be heard: announced, playing, a position near the top reported and
    // then one past 150 ms, and a measured level well above silence. Returns what was wrong,
    // empty when it was heard.
    static QString heardFromTheTop(Deck& deck, const Positions& positions, const QSignalSpy& began,
                                   int beganBefore)
    {
        QElapsedTimer clock;
        clock.start();
        bool loud = false;
        while (clock.elapsed() < 4000) {
            if (deck.isPlaying() && deck.levelValid() && deck.levelLeft() > 0.05)
                loud = true;
            if (loud && positions.lowest >= 0 && positions.lowest < 400 && positions.latest > 150 &&
                began.count() > beganBefore)
                return QString();
            QTest::qWait(10);
        }
        return QStringLiteral("state %1 status %2 positions %3..%4 level %5 announced %6")
            .arg(int(deck.state()))
            .arg(int(deck.mediaStatus()))
            .arg(positions.lowest)
            .arg(positions.latest)
            .arg(deck.levelValid() ? deck.levelLeft() : -1.0)
            .arg(began.count() > beganBefore ? QStringLiteral("yes") : QStringLiteral("no"));
    }

    static QString report(const QStringList& silent)
    {
        return QStringLiteral("%1 of %2 starts not heard: %3")
            .arg(silent.size())
            .arg(rounds)
            .arg(silent.join(QStringLiteral("; ")));
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        useTemporarySettings(dir.path(), QStringLiteral("tst_deck_replay"));
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
        jingle = makeTone(dir.path(), QStringLiteral("jingle.wav"), 660, 0.8);
        QVERIFY(!jingle.isEmpty());
        source = QUrl::fromLocalFile(jingle);
    }

    void theSameFilePlayedToItsEndAndStartedAgainIsHeardEachTime()
    {
        Deck deck;
        QSignalSpy began(&deck, &Deck::beganToSound);
        Positions positions;
        connect(&deck, &Deck::positionChanged, this, [&](qint64 position) { positions.add(position); });
        QStringList silent;
        for (int round = 0; round < rounds; ++round) {
            const int before = began.count();
            positions.reset();
            deck.start(round, trackOf(jingle), source, false, 0);
            const QString problem = heardFromTheTop(deck, positions, began, before);
            if (!problem.isEmpty())
                silent << QStringLiteral("round %1: %2").arg(round).arg(problem);
            // Played to its end; a start that never got going is stopped to begin the next round.
            if (!QTest::qWaitFor([&] { return deck.mediaStatus() == QMediaPlayer::EndOfMedia; }, 5000)) {
                silent << QStringLiteral("round %1: no end, positions %2..%3")
                              .arg(round)
                              .arg(positions.lowest)
                              .arg(positions.latest);
                deck.stop();
            }
        }
        QVERIFY2(silent.isEmpty(), qPrintable(report(silent)));
    }

    void theSameFileStoppedMidwayAndStartedAgainIsHeardEachTime()
    {
        Deck deck;
        QSignalSpy began(&deck, &Deck::beganToSound);
        Positions positions;
        connect(&deck, &Deck::positionChanged, this, [&](qint64 position) { positions.add(position); });
        QStringList silent;
        for (int round = 0; round < rounds; ++round) {
            const int before = began.count();
            positions.reset();
            deck.start(round, trackOf(jingle), source, false, 0);
            const QString problem = heardFromTheTop(deck, positions, began, before);
            if (!problem.isEmpty())
                silent << QStringLiteral("round %1: %2").arg(round).arg(problem);
            deck.stop();
            QTRY_VERIFY_WITH_TIMEOUT(!deck.isPlaying(), 5000);
        }
        QVERIFY2(silent.isEmpty(), qPrintable(report(silent)));
    }

    void theSameFileStartedAgainAsItEndsIsHeardEachTime()
    {
        // Started again just as it ends: its end is posted while the GUI thread is busy and
        // arrives after the new start, as a hard cut or a jingle fired at that moment sees it.
        Deck deck;
        QSignalSpy began(&deck, &Deck::beganToSound);
        Positions positions;
        QStringList silent;
        for (int round = 0; round < rounds; ++round) {
            bool restarted = false;
            int before = 0;
            QMetaObject::Connection atTheEnd =
                connect(&deck, &Deck::positionChanged, this, [&](qint64 position) {
                    positions.add(position);
                    if (restarted)
                        return;
                    if (position < 650)
                        return;
                    restarted = true;
                    QThread::msleep(400);
                    before = began.count();
                    positions.reset();
                    deck.start(100 + round, trackOf(jingle), source, false, 0);
                });
            positions.reset();
            deck.start(round, trackOf(jingle), source, false, 0);
            if (!QTest::qWaitFor([&] { return restarted; }, 5000)) {
                disconnect(atTheEnd);
                silent << QStringLiteral("round %1: first start never got near its end, state %2 status %3")
                              .arg(round)
                              .arg(int(deck.state()))
                              .arg(int(deck.mediaStatus()));
                deck.stop();
                continue;
            }
            const QString problem = heardFromTheTop(deck, positions, began, before);
            disconnect(atTheEnd);
            if (!problem.isEmpty())
                silent << QStringLiteral("round %1: %2").arg(round).arg(problem);
            else if (began.last().at(0).toInt() != 100 + round)
                silent << QStringLiteral("round %1: the restart was never announced").arg(round);
            deck.stop();
            QTRY_VERIFY_WITH_TIMEOUT(!deck.isPlaying(), 5000);
        }
        // Known gap: a status of the earlier playback delivered after the new load can still make
        // its late end count as the new one's (seen in 1 of 20 here; sought back, 19 of 20 were
        // silent). The bound keeps that from growing back.
        qInfo("%s", qPrintable(report(silent)));
        QVERIFY2(silent.size() <= 2, qPrintable(report(silent)));
    }
};

QTEST_MAIN(TestDeckReplay)
#include "bench_deckreplay.moc"
