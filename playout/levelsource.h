#pragma once

#include <QAudioBuffer>
#include <QObject>
#include <QUrl>
#include <QtGlobal>

#include <deque>

class MeterDecoder;
class QMediaPlayer;
class QThread;

// The decoded audio of one media player, buffer by buffer as it is heard, for the level meter.
// From Qt 6.8 the player hands its buffers out itself (QAudioBufferOutput). Before that our own
// decoder (MeterDecoder, on a worker thread of this source's own) decodes the same source ahead,
// and each buffer is released when the player's position passes the buffer's start; a seek
// backwards, or forwards past what was decoded, starts the decoding again from there. The decoder
// runs at most a few minutes ahead (about 5 MB of audio a minute): when it is that far ahead it
// waits, and goes on once the player comes near. A source it cannot decode gives no levels and
// one line in the log. (Qt's own decoder is not used: each of its runs kept a few kilobytes in
// the multimedia backend for good.)
class LevelSource : public QObject
{
    Q_OBJECT

public:
    explicit LevelSource(QMediaPlayer* player, QObject* parent = nullptr);
    ~LevelSource() override;

    // How far ahead of the player the decoder may run, and how close the player may come to the
    // end of the decoded audio before decoding goes on (milliseconds). No effect from Qt 6.8.
    void setDecodeAhead(qint64 limitMs, qint64 refillMs);
    // Decoded audio not yet reached by the player, in milliseconds (0 from Qt 6.8).
    qint64 decodedAheadMs() const;
    // Whether buffers are wanted at all: a player nobody meters decodes nothing. On by default;
    // switched on while playing, the decoding starts at once.
    void setEnabled(bool enabled);
    bool isEnabled() const { return enabled; }

signals:
    void bufferReady(const QAudioBuffer& buffer);

private:
    bool enabled = true;
#if QT_VERSION < QT_VERSION_CHECK(6, 8, 0)

    void restart(qint64 fromMs);
    void reset();
    void onDecoded(quint64 run, const QAudioBuffer& buffer);
    void onFailed(quint64 run, const QString& reason);
    void onPosition(qint64 ms);

    QMediaPlayer* player = nullptr;
    QThread* worker = nullptr;
    MeterDecoder* decoder = nullptr; // lives on `worker`
    std::deque<QAudioBuffer> pending; // decoded, not yet reached by the player
    quint64 run = 0;                  // the decoding run whose buffers are wanted; 0 for none
    quint64 runsStarted = 0;
    qint64 lastPositionMs = 0;
    bool decodingStarted = false; // for the current source, since the last restart
    bool decodingEnded = false;   // the run sent all there is
    qint64 aheadLimitUs = 300'000'000;
    qint64 refillUs = 60'000'000;
    qint64 decodedUntilUs = 0;   // end of the last buffer taken from the decoder
    qint64 requestedUntilUs = 0; // how far the decoder may go
    QUrl failedSource;           // logged once; not decoded again until the source changes
#endif
};
