#pragma once

#include <QAudioBuffer>
#include <QObject>
#include <QUrl>
#include <QtGlobal>

#include <deque>

class QAudioDecoder;
class QMediaPlayer;

// The decoded audio of one media player, buffer by buffer as it is heard, for the level meter.
// From Qt 6.8 the player hands its buffers out itself (QAudioBufferOutput). Before that a
// QAudioDecoder decodes the same source ahead and each buffer is released when the player's
// position passes the buffer's start; a backward seek restarts the decoding. The decoder runs
// at most a few minutes ahead (about 10 MB of audio a minute): when it is that far ahead it is
// stopped, and started again from the top once the player comes near, skipping what it had.
class LevelSource : public QObject
{
    Q_OBJECT

public:
    explicit LevelSource(QMediaPlayer* player, QObject* parent = nullptr);

    // How far ahead of the player the decoder may run, and how close the player may come to the
    // end of the decoded audio before decoding goes on (milliseconds). No effect from Qt 6.8.
    void setDecodeAhead(qint64 limitMs, qint64 refillMs);
    // Decoded audio not yet reached by the player, in milliseconds (0 from Qt 6.8).
    qint64 decodedAheadMs() const;
    // Whether buffers are wanted at all. Before Qt 6.8 every decoding run of a track costs a few
    // kilobytes that the multimedia backend never gives back, so a player nobody meters decodes
    // nothing. On by default; switched on while playing, the decoding starts at once.
    void setEnabled(bool enabled);
    bool isEnabled() const { return enabled; }

signals:
    void bufferReady(const QAudioBuffer& buffer);

private:
    bool enabled = true;
#if QT_VERSION < QT_VERSION_CHECK(6, 8, 0)

    void restart();
    void reset();
    void onDecoded();
    void onPosition(qint64 ms);

    QMediaPlayer* player = nullptr;
    QAudioDecoder* decoder = nullptr;
    std::deque<QAudioBuffer> pending; // decoded, not yet reached by the player
    qint64 lastPositionMs = 0;
    bool decodingStarted = false; // for the current source, since the last restart
    qint64 aheadLimitUs = 300'000'000;
    qint64 refillUs = 60'000'000;
    qint64 decodedUntilUs = 0; // end of the last buffer taken from the decoder
    qint64 skipUntilUs = 0;    // buffers before this were taken already (decoding resumed)
    bool capped = false;       // stopped for being far enough ahead
#endif
};
