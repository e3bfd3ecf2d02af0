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

    // Loads the source (an unchanged one is played again from the top) and plays it, at gain 0
    // and faded in over fadeInMs when fadeIn is set, else at full gain. An empty source plays
    // nothing: the player reports no media. With startAtMs > 0 it is heard from there (it begins to
    // sound only once it is there); with endAtMs > 0 cueOutReached() is emitted when the position gets there.
    void start(int row, const Track& track, const QUrl& source, bool fadeIn, int fadeInMs,
               qint64 startAtMs = 0, qint64 endAtMs = 0);
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
};
