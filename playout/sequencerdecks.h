#pragma once

#include <QString>
#include <QtGlobal>

// What the sequencer needs of the decks: the engine implements it with real players, the
// sequencer's tests with fakes that only record what they were asked.
class SequencerDecks
{
public:
    virtual ~SequencerDecks() = default;

    // Makes the row current and, for a file or stream row, puts it on air: reads its parameters,
    // chooses the deck and fades as set up. A command row is only made current.
    virtual void takeRow(int row) = 0;
    // Ends what sounds and stops both decks, as the presenter's Stop does (and says so).
    virtual void stopDecks() = 0;
    // A STOP row: ends what sounds and stops both decks; the sequencer says why.
    virtual void haltDecks() = 0;
    // A PAUSE row: holds the current deck where it is.
    virtual void holdDeck() = 0;
    // Plays the current deck on from where it was held.
    virtual void resumeDeck() = 0;
    // The current deck is playing.
    virtual bool isSounding() const = 0;
    // There is an output to play on at all.
    virtual bool hasOutput() const = 0;
    // A line for the presenter's log.
    virtual void log(const QString& text) = 0;
    // A hard timed row: what is on air fades out over fadeMs, its airing ended as cut by the time,
    // and the row starts at full level at once. Decks that cannot cut simply take the row.
    virtual void cutToRow(int row, int fadeMs)
    {
        Q_UNUSED(fadeMs);
        takeRow(row);
    }
    // How long a row started now takes to be heard (ms): a hard row is started this much early.
    virtual qint64 startLeadMs() const { return 0; }
};
