#pragma once

#include <QAudioDevice>
#include <QMediaMetaData>
#include <QMediaPlayer>
#include <QObject>
#include <QUrl>

class LevelSource;
class QAudioBuffer;
class QAudioOutput;

// One media player with its audio output and, when metered, its level source: what a deck, the
// relay and the voiceover each play through. The volume is linear 0..1, the most the sound server
// takes. The level is what is heard: each buffer's peaks times the volume handed to the output, and
// silence as soon as the player stops playing, so a meter never shows more than reaches the air
// nor stays up after the sound has gone.
class AudioPlayer : public QObject
{
    Q_OBJECT

public:
    enum class Metering { Off, On };

    explicit AudioPlayer(Metering metering, QObject* parent = nullptr);

    void setSource(const QUrl& source);
    QUrl source() const;
    void play();
    void pause();
    void stop();
    void setPosition(qint64 ms);
    qint64 position() const;
    qint64 duration() const;
    QMediaPlayer::PlaybackState playbackState() const;
    bool isPlaying() const { return playbackState() == QMediaPlayer::PlayingState; }
    QMediaPlayer::MediaStatus mediaStatus() const;
    QMediaPlayer::Error error() const;
    QMediaMetaData metaData() const;

    // Linear; clamped to 0..1.
    void setVolume(double volume);
    double volume() const;
    void setMuted(bool muted);
    bool isMuted() const;
    void setDevice(const QAudioDevice& device);
    QAudioDevice device() const;

    // Last heard peaks, linear 0..1; 0 when not playing. Valid from a measured buffer until the
    // player stops playing.
    double levelLeft() const { return m_levelLeft; }
    double levelRight() const { return m_levelRight; }
    bool levelValid() const { return m_levelValid; }
    // Null when not metered.
    LevelSource* levelSource() const { return m_levels; }
    // A metered player measures only while this is on (on by default).
    void setMetering(bool on);
    bool isMetering() const;

signals:
    void positionChanged(qint64 position);
    void durationChanged(qint64 duration);
    void playbackStateChanged(QMediaPlayer::PlaybackState state);
    void mediaStatusChanged(QMediaPlayer::MediaStatus status);
    void errorOccurred(QMediaPlayer::Error error, const QString& errorString);
    void metaDataChanged();
    // A decoded buffer as it is heard (metered players only), after levelLeft/levelRight took it.
    void bufferReady(const QAudioBuffer& buffer);
    // levelLeft/levelRight changed: a buffer was measured, or the player fell silent.
    void levelChanged();

private:
    void onBuffer(const QAudioBuffer& buffer);
    void fallSilent();

    QMediaPlayer* m_player = nullptr;
    QAudioOutput* m_output = nullptr;
    LevelSource* m_levels = nullptr;
    double m_levelLeft = 0.0;
    double m_levelRight = 0.0;
    bool m_levelValid = false;
};
