#pragma once

#include "cueplan.h"
#include "mixsettings.h"
#include "mixstep.h"
#include "relaystate.h"
#include "sequencerdecks.h"
#include "track.h"
#include "trackanalysis.h"
#include "trackendreason.h"
#include "trackparams.h"

#include <QAudioBuffer>
#include <QAudioDevice>
#include <QDateTime>
#include <QMediaPlayer>
#include <QMetaObject>
#include <QObject>
#include <QPointer>
#include <QString>

#include <array>

class Deck;
class DeckPair;
class OutputFollower;
class OutputRouter;
class PlaylistModel;
class PlayoutSequencer;
class QTimer;
class Relay;
class TrackInfoCache;
class VoiceoverPlayer;

// Plays the rows of one playlist through two media-player decks so that one track can fade out
// on one deck while the next starts on the other. Runs on the GUI thread; every event goes to
// the user as a logMessage line, never as a dialog. What plays next is the sequencer's to decide;
// the engine loads, plays, fades and applies gain.
class AudioEngine : public QObject, private SequencerDecks
{
    Q_OBJECT

public:
    explicit AudioEngine(QObject* parent = nullptr);

    // Not owned; a new model replaces the old one and its connections.
    void setPlaylist(PlaylistModel* model);
    PlaylistModel* playlist() const;
    bool isPlaying() const;
    qint64 position() const;
    qint64 duration() const;
    // Where the current track ends as played: its cue-out when the engine uses one (never past the
    // file's end), otherwise the file's duration; ms, <= 0 when not known yet.
    qint64 effectiveDuration() const;
    void reloadSettings();
    // Crossfade on or off, and nothing else: the device and the presenter's volume stay as they are.
    void setCrossfadeEnabled(bool on);
    // Unattended playout skips a file row whose file is gone and a row that does not sound within
    // its limit (Settings::silentFileLimitMs / silentStreamLimitMs); off by default.
    void setSkipUnplayableRows(bool on);
    bool skipsUnplayableRows() const;
    void setSilentRowLimits(int fileMs, int streamMs);
    // A taken row is being watched for sound.
    bool isWaitingForSound() const;
    PlayoutSequencer* sequencer() const { return m_sequencer; }
    // What the engine has read ahead of the store for its rows; never waits on a server.
    TrackInfoCache* trackInfo() const { return m_info; }

    // Mixing primitives (deck 0 or 1).
    void fadeTo(int deck, double target, int ms, bool stopAtEnd);
    void applyDeckVolume(int deck);

    // Read access for controllers and tests.
    int currentRow() const;
    // The identity (PlaylistModel::rowId) of the current row; 0 before any row was taken.
    qint64 currentRowId() const;
    int currentDeck() const;
    double volume() const { return m_volume; }
    bool isDucked() const { return m_ducked; }
    bool hasOutputDevice() const;
    bool crossfadeEnabled() const { return m_mix.crossfadeEnabled; }
    int fadeInMs() const { return m_fadeInMs; }
    int fadeOutMs() const { return m_mix.fadeOutMs; }
    bool autoPlayNext() const { return m_autoPlayNext; }
    int minCrossfadeMs() const { return m_mix.minCrossfadeMs; }
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
    bool voiceoverArmed() const;
    qint64 voiceoverInsertAt() const;
    QString voiceoverFile() const;
    bool voiceoversEnabled() const;
    bool isRelayLive() const;

    // The row that will play after the current one: the first queued row, else the following
    // row; -1 when there is none or shuffle will draw it at random.
    int nextRow() const;
    // The track of the current row, and its parameters as read when it started.
    const Track& currentTrack() const { return m_current; }
    const TrackParams& currentParams() const { return m_currentParams; }
    RelayState relayState() const;
    // The stored analysis of the current file as read when it started (empty when neither cue
    // points nor loudness normalisation are on), and how the track is being played.
    const TrackAnalysis& currentAnalysis() const { return m_currentAnalysis; }
    const CuePlan& currentPlan() const { return m_plan; }
    bool useCuePoints() const { return m_useCuePoints; }
    bool normalizeLoudness() const { return m_normalizeLoudness; }

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
    bool isShuffle() const;
    void startRelay(const QString& source);
    void stopRelay();
    bool isRelaying() const;
    QString relaySource() const;

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
    // A file or stream row began to sound (command rows never do).
    void trackStarted(int row, const Track& track, const QDateTime& startedAt);
    // That row stopped sounding; playedMs is how long it was heard.
    void trackEnded(int row, const Track& track, TrackEndReason reason, qint64 playedMs);
    void relayStatusChanged(RelayState state, const QString& source);

private:
    // SequencerDecks
    void takeRow(int row) override;
    void stopDecks() override;
    void haltDecks() override;
    void holdDeck() override;
    void resumeDeck() override;
    bool isSounding() const override;
    bool hasOutput() const override;
    void log(const QString& text) override;
    void cutToRow(int row, int fadeMs) override;
    qint64 startLeadMs() const override;
    // Stops what sounds without telling the sequencer the presenter stopped.
    void stopAir();

    void setupDeck(int index);
    void startOnDeck(int deck, int row, bool fadeIn);
    void onDeckLevel(int deck, const QAudioBuffer& buffer);
    // The decks' levels as they are now (after one fell silent).
    void emitDeckLevels();
    void onDeckPosition(int deck, qint64 position);
    void onMediaStatus(int deck, QMediaPlayer::MediaStatus status);
    // End of media or a reached cue-out on a deck.
    void onTrackEnd(int deck);
    void onPlayerError(QMediaPlayer::Error error, const QString& errorString);
    void onMetaData(int deck);
    // What decideMixStep needs to know at this position.
    MixSituation mixSituation(qint64 position) const;
    void checkMix(qint64 position);
    void mixIntoNext(const MixSettings& settings);
    // Crossfade off: starts the next row on the other deck the start lead before the end.
    void handOver();
    bool isCommandRow(int row) const;
    bool isValidRow(int row) const;
    void onRowsInserted(int first, int last);
    void onRowsRemoved(int first, int last);

    // Armed on every playRow from the parameters read then, fired from the position check.
    void armVoiceover();
    void checkVoiceover(qint64 position);

    // What the playlist does when the relay changes state.
    void onRelayLive();
    void onRelayLost();
    void onRelayBuffer(const QAudioBuffer& buffer);

    QPointer<PlaylistModel> m_playlist;
    QList<QMetaObject::Connection> m_playlistConnections;
    // Decks, relay and voiceover play on its device; a device change goes through it.
    OutputRouter* m_router = nullptr;
    DeckPair* m_decks = nullptr;
    PlayoutSequencer* m_sequencer = nullptr;
    TrackInfoCache* m_info = nullptr;
    Track m_current;
    TrackParams m_currentParams;     // read once when the row is taken
    TrackAnalysis m_currentAnalysis; // read with them, when a setting needs it
    CuePlan m_plan;
    // How the current row is played, as the settings were when it was taken.
    bool m_useCuePoints = false;
    bool m_normalizeLoudness = false;
    double m_volume = 0.8; // master volume, linear 0..1
    int m_fadeInMs = 1500;
    bool m_autoPlayNext = true;
    int m_loadLimitMs = 0; // a file row's load is given up after this long (ms)
    bool m_mixTriggered = false;
    QString m_lastStreamTitle;
    bool m_ducked = false;
    MixSettings m_mix;
    QTimer* m_streamLimitTimer = nullptr;
    OutputFollower* m_output = nullptr;

    VoiceoverPlayer* m_voiceover = nullptr;
    Relay* m_relay = nullptr;

    // Positions arrive only about every 100 ms; when the mix point falls between two reports this
    // single-shot timer runs the mix check at the point itself instead of up to 100 ms late.
    QTimer* m_mixPointTimer = nullptr;
    // Set while checkHandover starts the next row: the outgoing deck is left to play to its end.
    bool m_handingOver = false;
    // While a hard timed row is being taken: the fade of what it cuts (ms), else -1.
    int m_cutFadeMs = -1;
};
