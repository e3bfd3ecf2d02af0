#pragma once

#include "relaystate.h"

#include <QAudioDevice>
#include <QElapsedTimer>
#include <QObject>
#include <QString>

class AudioPlayer;
class OutputRouter;
class QAudioBuffer;
class QTimer;

// The relay of a live stream: its player, output and meter, and the connection's state. A
// stream that goes away, stalls or never answers is retried every five seconds until it is live
// again or the relay is stopped. What the rest of the station does about it is the engine's.
class Relay : public QObject
{
    Q_OBJECT

public:
    // With a router, each attempt's player is routed there, so later device changes reach it.
    explicit Relay(QObject* parent = nullptr, OutputRouter* router = nullptr);

    // Connects to source (trimmed, not empty) on device at the given volume: state Connecting.
    void start(const QString& source, const QAudioDevice& device, double volume);
    // Releases the player: state Off.
    void stop();

    RelayState state() const { return m_state; }
    bool isActive() const { return m_state != RelayState::Off; }
    bool isLive() const { return m_state == RelayState::Live; }
    QString source() const { return m_source; }
    void setVolume(double volume);
    // Moves a running relay to another output; later attempts keep it.
    void setDevice(const QAudioDevice& device);
    // Empty when no player exists.
    QString outputDeviceDescription() const;

signals:
    // Every change of state() (a lost stream reported twice changes it once).
    void stateChanged(RelayState state);
    void wentLive();
    // Each report of a lost stream, also a second one of the same attempt.
    void lost();
    // A new connection attempt is about to be made (after a lost one).
    void reconnecting();
    void errorOccurred(const QString& text);
    void bufferReady(const QAudioBuffer& buffer);
    // The relay's player stopped sounding (stopped, lost or released): its level is silence.
    void levelFell();
    // The now-playing text of the stream's metadata, when it changes.
    void metadataChanged(const QString& title);

private:
    void setState(RelayState state);
    void createPlayer();
    void releasePlayer();
    void onMediaStatus();
    void goLive();
    void lose();
    void reconnect();
    void checkStall();
    void onMetaData();

    RelayState m_state = RelayState::Off;
    QString m_source;
    QAudioDevice m_device; // chosen when the relay starts; every reconnection attempt keeps it
    double m_volume = 0.8;
    OutputRouter* m_router = nullptr;
    AudioPlayer* m_player = nullptr;
    QTimer* m_reconnectTimer = nullptr;
    // A live relay whose position stops moving is a stalled server: treated as a lost stream.
    QTimer* m_stallTimer = nullptr;
    qint64 m_lastPosition = -1;
    QElapsedTimer m_sincePositionMoved;
    QString m_lastTitle;
};
