#pragma once

#include "deckfade.h"
#include "startlead.h"
#include "track.h"

#include <QAudioDevice>
#include <QDateTime>
#include <QElapsedTimer>
#include <QMediaMetaData>
#include <QMediaPlayer>
#include <QObject>
#include <QUrl>

class AudioPlayer;
class OutputRouter;
class QAudioBuffer;
class QTimer;

// One of the engine's two players: its player, output, level meter and fade, and the airing of the
// track loaded on it (when it began to sound, how long it has been heard, pauses excluded). The
// player stays inside: the engine reaches it only through what a deck does.
class Deck : public QObject
{
    Q_OBJECT

public:
    // With a router, the deck plays on the router's device and follows its changes.
    explicit Deck(QObject* parent = nullptr, OutputRouter* router = nullptr);

    // Loads the source (the one it holds already afresh, unless stopped midway) and plays it, at gain 0
    // and faded in over fadeInMs when fadeIn is set, else at full gain. An empty source plays
    // nothing: the player reports no media. With startAtMs > 0 it is heard from there (it begins to
    // sound only once it is there); with endAtMs > 0 cueOutReached() is emitted when the position gets there.
    void start(int row, const Track& track, const QUrl& source, bool fadeIn, int fadeInMs,
               qint64 startAtMs = 0, qint64 endAtMs = 0);
    // A load of a new source that has not finished (loaded, buffered, failed or played) within
    // this many milliseconds is given up: the deck takes a fresh player and emits loadTimedOut().
    // 0, the default, waits for ever.
    void setLoadLimitMs(int ms);
    int loadLimitMs() const { return m_loadLimitMs; }
    // Replaces any running fade; stopAtEnd stops the player once the gain reaches silence.
    void fadeTo(double target, int ms, bool stopAtEnd);
    // Fade timer, then player.
    void stop();
    // Pauses and resumes the loaded track where it is.
    void pause();
    void resume();
    // Seeks the loaded track (ms).
    void setPosition(qint64 ms);

    // Whether the deck measures its level (on by default). Off, levelMeasured is never emitted
    // and no level is valid; a mix triggered by level then never fires.
    void setMetering(bool on);
    bool isMetering() const;

    // Master volume (linear 0..1) and ducking, applied on top of the fade gain.
    void setMix(double masterVolume, bool ducked);
    // Extra linear gain of the loaded track (loudness and its own level); 1.0 leaves it as is.
    void setTrackGain(double gain);
    double trackGain() const { return m_trackGain; }
    void applyVolume();
    void setDevice(const QAudioDevice& device);
    QAudioDevice device() const;

    int row() const { return m_row; }
    double gain() const { return m_fade.gain; }
    void setGain(double gain) { m_fade.gain = gain; }
    double outputVolume() const;
    bool fading() const;
    QMediaPlayer::PlaybackState state() const;
    bool isPlaying() const { return state() == QMediaPlayer::PlayingState; }
    QMediaPlayer::MediaStatus mediaStatus() const;
    // The loaded source; empty when none.
    QUrl source() const;
    // The player failed on what it holds; unload() drops it, so the next start loads it afresh.
    bool hasPlayerError() const;
    void unload();
    qint64 position() const;
    qint64 duration() const;
    QMediaMetaData metaData() const;

    // The gain of the loaded track as the output can give it: the requested track gain, but no
    // more than what takes the output to full volume at the master volume (the sound server goes
    // no higher than 1.0). Equal to trackGain() unless the track asked for more.
    double effectiveTrackGain() const;
    // The same cap for a gain not set yet.
    double cappedTrackGain(double requested) const;

    // How long a start on this deck takes to be heard: from start() to the moment its first sound
    // reaches the output, in milliseconds (the median of the last few starts from the top; a
    // typical figure until one was measured). The playout starts the next row this much before
    // the current one ends, so that one follows the other without a gap.
    qint64 startLeadMs() const { return m_leads.estimateMs(); }

    // Last measured level as heard, linear 0..1: the peaks times the volume the output was given;
    // 0 when the deck is not playing. Valid while playing, once a buffer was measured.
    double levelLeft() const;
    double levelRight() const;
    bool levelValid() const;

    // The loaded track has begun to sound and has not been ended since.
    bool isAiring() const { return m_airing == Airing::OnAir; }
    int airingRow() const { return m_airingRow; }
    void setAiringRow(int row) { m_airingRow = row; }
    const Track& airingTrack() const { return m_airingTrack; }
    // Milliseconds heard so far (playing state only).
    qint64 playedMs() const;
    // Ends the airing and returns how long it was heard; a later resume is a new airing.
    qint64 endAiring();

    // Counts the sources loaded (start() and unload() each begin a load).
    quint64 loadGeneration() const { return m_generation; }
    // Reports of an earlier load dropped since the deck was made (end of media that came after a
    // new source was loaded); they never reach whoever listens to the deck.
    int droppedReports() const { return m_droppedReports; }

signals:
    void beganToSound(int row, const Track& track, const QDateTime& startedAt);
    // The position reached the cue-out given to start() (once per start).
    void cueOutReached();
    // A buffer was measured; levelLeft/levelRight hold its result.
    void levelMeasured(const QAudioBuffer& buffer);
    // The deck stopped playing: levelLeft/levelRight fell to silence.
    void levelFell();
    void positionChanged(qint64 position);
    void durationChanged(qint64 duration);
    void playbackStateChanged(QMediaPlayer::PlaybackState state);
    void mediaStatusChanged(QMediaPlayer::MediaStatus status);
    void errorOccurred(QMediaPlayer::Error error, const QString& errorString);
    void metaDataChanged();
    // The load of source did not finish within the load limit; the deck holds nothing now.
    void loadTimedOut(const QUrl& source);

private:
    enum class Airing {
        None,    // nothing loaded
        Pending, // loaded and started, not heard yet
        OnAir,
        Ended, // ended by the engine; playing again makes it pending
    };

    void onFadeTick();
    void onPlaybackState(QMediaPlayer::PlaybackState state);
    void onMediaStatus(QMediaPlayer::MediaStatus status);
    void checkSounding();
    void measureStartLead(qint64 position);
    void checkCueOut(qint64 position);
    void checkSeek(qint64 position);
    void clearSeek();
    void announce();
    // Whether a status belongs to the load before the current one; a status that shows the
    // current source playing confirms the load.
    bool isEarlierLoadsReport(QMediaPlayer::MediaStatus status);
    void dropEarlierEnd();
    void resumeAfterDroppedEnd();
    void attachPlayer(AudioPlayer* player);
    void onLoadTimeout();

    OutputRouter* m_router = nullptr;
    AudioPlayer* m_player = nullptr;
    QTimer* m_fadeTimer = nullptr;
    DeckFade m_fade;
    int m_row = -1;
    double m_masterVolume = 0.8;
    bool m_ducked = false;
    double m_trackGain = 1.0;

    qint64 m_seekToMs = -1; // the cue-in not reached yet; the output is muted meanwhile
    qint64 m_cueOutMs = 0;
    bool m_cueOutReported = false;
    QTimer* m_cueOutTimer = nullptr; // fires at the cue-out when it falls between position reports

    Airing m_airing = Airing::None;
    int m_airingRow = -1;
    Track m_airingTrack;
    bool m_hasSource = false;
    qint64 m_playedBeforeMs = 0; // heard before the current stretch of playing
    QElapsedTimer m_playingFor;  // runs while playing and on air
    QElapsedTimer m_sinceStart;  // from start() until the first position report; invalid after
    StartLead m_leads;

    quint64 m_generation = 0;
    bool m_loadConfirmed = false; // the player has reported the current load as its own
    bool m_loading = false;       // inside start(): what the player says now is about the new load
    bool m_playRequested = false; // started or resumed, and not paused or stopped since
    bool m_resumeWhenLoaded = false; // a dropped end stopped the player before the load was done
    int m_droppedReports = 0;
    QTimer* m_loadTimer = nullptr;
    int m_loadLimitMs = 0;
};
