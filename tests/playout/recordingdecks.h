#pragma once

#include "sequencerdecks.h"

#include <QString>
#include <QStringList>

// Decks that only write down what the sequencer asked of them, for the sequencer's tests. A taken row
// is not sounding here; decks that play at once on a take say so in their own takeRow.
class RecordingDecks : public SequencerDecks
{
public:
    QStringList calls;
    QStringList logs;
    bool sounding = false;
    bool output = true;
    int taken = -1;

    void takeRow(int row) override
    {
        taken = row;
        calls << QStringLiteral("take %1").arg(row);
    }
    void stopDecks() override
    {
        sounding = false;
        calls << QStringLiteral("stop");
    }
    void haltDecks() override
    {
        sounding = false;
        calls << QStringLiteral("halt");
    }
    void holdDeck() override
    {
        sounding = false;
        calls << QStringLiteral("hold");
    }
    void resumeDeck() override
    {
        sounding = true;
        calls << QStringLiteral("resume");
    }
    bool isSounding() const override { return sounding; }
    bool hasOutput() const override { return output; }
    void log(const QString& text) override { logs << text; }
};
