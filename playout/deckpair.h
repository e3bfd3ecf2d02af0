#pragma once

#include "trackendreason.h"
#include "track.h"

#include <QObject>

#include <array>

class Deck;
class OutputRouter;

// The engine's two decks and which of them is on air: one track fades out on one while the next
// starts on the other. What is reported of them together lives here: the airings they end, the
// rows they report as the list changes, and the level heard from both.
class DeckPair : public QObject
{
    Q_OBJECT

public:
    explicit DeckPair(OutputRouter* router, QObject* parent = nullptr);

    Deck* at(int index) const { return m_decks[index & 1]; }
    Deck* current() const { return m_decks[m_current]; }
    Deck* other() const { return m_decks[1 - m_current]; }
    int currentIndex() const { return m_current; }
    // The other deck becomes the one on air.
    void switchCurrent() { m_current = 1 - m_current; }
    auto begin() const { return m_decks.begin(); }
    auto end() const { return m_decks.end(); }

    // Reports the end of what a deck has on air (once; nothing when it is not on air).
    void endAiring(int index, TrackEndReason reason);
    void endAllAirings(TrackEndReason reason);
    void stopBoth();
    // Master volume (linear 0..1) and ducking on both.
    void setMix(double masterVolume, bool ducked);
    // Rows were inserted or removed: the rows the decks report follow their tracks.
    void rowsInserted(int first, int last);
    void rowsRemoved(int first, int last);
    // The louder of the two decks per channel as heard, linear 0..1.
    double heardLeft() const;
    double heardRight() const;

signals:
    void airingEnded(int row, const Track& track, TrackEndReason reason, qint64 playedMs);

private:
    std::array<Deck*, 2> m_decks{};
    int m_current = 0;
};
