#include "deckpair.h"

#include "deck.h"

#include <algorithm>

DeckPair::DeckPair(OutputRouter* router, QObject* parent) : QObject(parent)
{
    m_decks[0] = new Deck(this, router);
    m_decks[1] = new Deck(this, router);
}

void DeckPair::endAiring(int index, TrackEndReason reason)
{
    Deck* deck = at(index);
    if (!deck->isAiring())
        return;
    const qint64 played = deck->endAiring();
    emit airingEnded(deck->airingRow(), deck->airingTrack(), reason, played);
}

void DeckPair::endAllAirings(TrackEndReason reason)
{
    endAiring(m_current, reason);
    endAiring(1 - m_current, reason);
}

void DeckPair::stopBoth()
{
    m_decks[0]->stop();
    m_decks[1]->stop();
}

void DeckPair::setMix(double masterVolume, bool ducked)
{
    for (Deck* deck : m_decks)
        deck->setMix(masterVolume, ducked);
}

void DeckPair::rowsInserted(int first, int last)
{
    for (Deck* deck : m_decks) {
        if (deck->airingRow() >= std::max(first, 0))
            deck->setAiringRow(deck->airingRow() + last - first + 1);
    }
}

void DeckPair::rowsRemoved(int first, int last)
{
    for (Deck* deck : m_decks) {
        const int row = deck->airingRow();
        if (row > last)
            deck->setAiringRow(row - (last - first + 1));
        else if (row >= first)
            deck->setAiringRow(-1); // its row is gone; the track itself is still reported
    }
}

double DeckPair::heardLeft() const
{
    return std::max(m_decks[0]->levelLeft(), m_decks[1]->levelLeft());
}

double DeckPair::heardRight() const
{
    return std::max(m_decks[0]->levelRight(), m_decks[1]->levelRight());
}
