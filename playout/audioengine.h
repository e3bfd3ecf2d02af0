#pragma once

#include "deckfade.h"
#include "mixsettings.h"
#include "track.h"

#include <QAudioBuffer>
#include <QAudioDevice>
#include <QElapsedTimer>
#include <QMediaPlayer>
#include <QMetaObject>
#include <QObject>
#include <QPointer>
#include <QString>

#include <array>

class LevelSource;
class PlaylistModel;
class QAudioOutput;
class QTimer;

// Plays the rows of one playlist through two media-player decks so that one track can fade out
// on one deck while the next starts on the other. Runs on the GUI thread; every event goes to
// the user as a logMessage line, never as a dialog.
class AudioEngine : public QObject
{
    Q_OBJECT

public:
    explicit AudioEngine(QObject* parent = nullptr);

    // Not owned; a new model replaces the old one and its connections.
    void setPlaylist(PlaylistModel* model);
    bool isPlaying() const;
    qint64 position() const;
    qint64 duration() const;
    void reloadSettings();

    // Mixing primitives (deck 0 or 1).
    void fadeTo(int deck, double target, int ms, bool stopAtEnd);
    void applyDeckVolume(int deck);

    // Read access for controllers and tests.
    int currentRow() const { return m_currentRow; }
    int currentDeck() const { return m_currentDeck; }
    double volume() const { return m_volume; }
    bool isDucked() const { return m_ducked; }
    bool hasOutputDevice() const { return m_hasOutputDevice; }
    bool crossfadeEnabled() const { return m_crossfadeEnabled; }
    int fadeInMs() const { return m_fadeInMs; }
    int fadeOutMs() const { return m_fadeOutMs; }
    bool autoPlayNext() const { return m_autoPlayNext; }
    int minCrossfadeMs() const { return m_minCrossfadeMs; }
    const MixSettings& mixSettings() const { return m_mix; }
    double deckGain(int deck) const;
    // The volume last handed to the deck's audio output (linear 0..1).
    double deckOutputVolume(int deck) const;
    bool deckFading(int deck) const;
    QMediaPlayer::PlaybackState deckState(int deck) const;
    int deckRow(int deck) const;
    QString outputDeviceDescription() const;
    // The device the relay plays on; empty when no relay player exists.
    QString relayOutputDeviceDescription() const;
    // Milliseconds until a stream entry's time limit ends it, -1 when none is running.
    int streamTimeLeftMs() const;
    bool voiceoverArmed() const { return m_voiceoverArmed; }
    qint64 voiceoverInsertAt() const { return m_voiceoverInsertAt; }
    QString voiceoverFile() const { return m_voiceoverFile; }
    bool voiceoversEnabled() const { return m_voiceoversEnabled; }
    bool isRelayLive() const { return m_relayLive; }

    // The text a track is shown with in log lines.
    static QString displayText(const Track& track);

public slots:
    void playRow(int row);
    void play();
    void pause();
    void togglePause();
    void stop();
    void next();
    void previous();
    void setVolume(int percent);
    void setPosition(qint64 ms);
    void setDucked(bool ducked);
    void setFadeOutMs(int ms);
    void setShuffle(bool on);
    void setVoiceoverEnabled(bool enabled);
    bool voiceoverPlaying() const;
    bool isShuffle() const { return m_shuffle; }
    void startRelay(const QString& source);
    void stopRelay();
    bool isRelaying() const { return m_relayActive; }
    QString relaySource() const { return m_relaySource; }

signals:
    void positionChanged(qint64 position);
    void durationChanged(qint64 duration);
    void playingChanged(bool playing);
    void currentRowChanged(int row);
    void nowPlaying(const Track& track);
    void logMessage(const QString& text);
    void relayStateChanged(bool active, const QString& source, bool live);
    void levels(double left, double right);
    void audioBufferReady(const QAudioBuffer& buffer);
    void streamMetadata(const QString& title);

private:
    struct Deck {
        QMediaPlayer* player = nullptr;
        QAudioOutput* output = nullptr;
        LevelSource* bufferOutput = nullptr;
        QTimer* fadeTimer = nullptr;
        DeckFade fade;
        int row = -1;
        double levelLeft = 0.0; // linear, after gain, volume and duck
        double levelRight = 0.0;
        bool levelValid = false; // never cleared once set
    };

    void setupDeck(int index);
    void startOnDeck(int deck, int row, bool fadeIn);
    void stopDeck(int deck);
    void stopBothDecks();
    void applyBothDecks();
    void onFadeTick(int deck);
    void onDeckBuffer(int deck, const QAudioBuffer& buffer);
    void onDeckPosition(int deck, qint64 position);
    void onMediaStatus(int deck, QMediaPlayer::MediaStatus status);
    void onPlayerError(QMediaPlayer::Error error, const QString& errorString);
    void onMetaData(int deck);
    void checkMix(qint64 position);
    bool isCommandRow(int row) const;
    bool isValidRow(int row) const;
    void onRowsInserted(int first, int last);
    void onRowsRemoved(int first, int last);

    // Hooks for the voiceover of a track: armed on every playRow, fired from the position check.
    void armVoiceover();
    void checkVoiceover(qint64 position);
    void stopVoiceover();
    void onVoiceoverDuration(qint64 durationMs);

    // The relay of a live stream.
    void onRelayStatus(QMediaPlayer::MediaStatus status);
    void onRelayBuffer(const QAudioBuffer& buffer);
    void relayGoesLive();
    void relayStreamLost();
    void reconnectRelay();
    void checkRelayStall();
    void createRelayPlayer(const QString& source);
    void releaseRelayPlayer();

    QPointer<PlaylistModel> m_playlist;
    QList<QMetaObject::Connection> m_playlistConnections;
    std::array<Deck, 2> m_decks;
    int m_currentDeck = 0;
    int m_currentRow = -1;
    Track m_current;
    bool m_hasOutputDevice = false;
    double m_volume = 0.8; // master volume, linear 0..1
    bool m_crossfadeEnabled = false;
    int m_fadeInMs = 1500;
    int m_fadeOutMs = 2500;
    bool m_autoPlayNext = true;
    int m_minCrossfadeMs = 45000;
    bool m_mixTriggered = false;
    int m_lastEndedRow = -1;
    bool m_shuffle = false;
    QString m_lastStreamTitle;
    bool m_ducked = false;
    MixSettings m_mix;
    QTimer* m_streamLimitTimer = nullptr;
    QAudioDevice m_outputDevice; // chosen by reloadSettings from "audio/outputDevice"

    QMediaPlayer* m_voiceoverPlayer = nullptr; // created on first use
    QAudioOutput* m_voiceoverOutput = nullptr;
    bool m_voiceoversEnabled = true;
    bool m_voiceoverArmed = false;
    qint64 m_voiceoverInsertAt = 0; // ms into the current track
    QString m_voiceoverFile;
    double m_voiceoverLevel = 1.0;

    QMediaPlayer* m_relayPlayer = nullptr;
    QAudioOutput* m_relayOutput = nullptr;
    LevelSource* m_relayLevels = nullptr;
    QTimer* m_reconnectTimer = nullptr;
    bool m_relayActive = false;
    bool m_relayLive = false;
    bool m_resumeAfterRelay = false;
    QString m_relaySource;
    QAudioDevice m_relayDevice; // chosen from "audio/outputDevice" when the relay starts
    // The current connection attempt has been reported as a lost stream; one that is not live at
    // the next reconnection and has reported nothing is reported then.
    bool m_relayAttemptLost = false;
    // A live relay whose position stops moving is a stalled server: treated as a lost stream.
    QTimer* m_relayStallTimer = nullptr;
    qint64 m_relayLastPosition = -1;
    QElapsedTimer m_relaySincePositionMoved;

    // Positions arrive only about every 100 ms; when the mix point falls between two reports this
    // single-shot timer runs the mix check at the point itself instead of up to 100 ms late.
    QTimer* m_mixPointTimer = nullptr;
};
