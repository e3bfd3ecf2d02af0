#pragma once

#include <QAudioDevice>
#include <QList>
#include <QObject>
#include <QString>

class Deck;
class OutputRouter;
class Relay;

// Which output the playout is heard on, as the outputs come and go: the configured one
// (Settings::outputDevice) while it is listed, the system's default when it goes, nothing while
// no output is left. Decks, relay and voiceover follow it through the router.
class OutputFollower : public QObject
{
    Q_OBJECT

public:
    OutputFollower(OutputRouter* router, Relay* relay, QObject* parent = nullptr);

    // The decks that take the configured output again when outputs come back after there were none.
    void setDecks(const QList<Deck*>& decks) { m_decks = decks; }
    // Reads the configured output and routes everything there.
    void reload();
    bool hasOutput() const { return m_hasOutput; }
    QAudioDevice device() const { return m_device; }

signals:
    // A line for the presenter's log.
    void logLine(const QString& text);

private:
    void onOutputsChanged();

    OutputRouter* m_router;
    Relay* m_relay;
    QList<Deck*> m_decks;
    bool m_hasOutput = false;
    QAudioDevice m_device;
};
