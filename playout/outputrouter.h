#pragma once

#include <QAudioDevice>
#include <QList>
#include <QObject>
#include <QPointer>

class AudioPlayer;

// The output device the playout is heard on, and every player that plays there (decks, relay,
// voiceover): a change of device is applied to all of them at once, and a player added later
// starts on the current device. Players are not owned; one that is destroyed drops out.
class OutputRouter : public QObject
{
    Q_OBJECT

public:
    explicit OutputRouter(QObject* parent = nullptr);

    void add(AudioPlayer* player);
    // The player is no longer routed (a deck set it aside): a wedged player is told nothing more.
    void remove(AudioPlayer* player);
    void setDevice(const QAudioDevice& device);
    QAudioDevice device() const { return m_device; }
    // Players now routed (for checks).
    int playerCount() const;

private:
    QAudioDevice m_device;
    QList<QPointer<AudioPlayer>> m_players;
};
