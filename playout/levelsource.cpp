#include "levelsource.h"

#include <QMediaPlayer>

#if QT_VERSION >= QT_VERSION_CHECK(6, 8, 0)
#include <QAudioBufferOutput>

void LevelSource::setDecodeAhead(qint64, qint64) {}

void LevelSource::setEnabled(bool on)
{
    enabled = on;
}

qint64 LevelSource::decodedAheadMs() const
{
    return 0;
}

LevelSource::LevelSource(QMediaPlayer* player, QObject* parent) : QObject(parent)
{
    auto* output = new QAudioBufferOutput(this);
    player->setAudioBufferOutput(output);
    connect(output, &QAudioBufferOutput::audioBufferReceived, this, [this](const QAudioBuffer& buffer) {
        if (enabled)
            emit bufferReady(buffer);
    });
}

#else
#include <QAudioDecoder>
#include <QAudioFormat>

#include <algorithm>

namespace {
// A position that jumps back further than this is a seek, not jitter of the reports.
constexpr qint64 backwardSeekMs = 300;
// Buffers this far behind the player when released are skipped (after a forward seek).
constexpr qint64 staleMs = 250;
} // namespace

LevelSource::LevelSource(QMediaPlayer* player, QObject* parent) : QObject(parent), player(player)
{
    decoder = new QAudioDecoder(this);
    // Without an explicit format the MP3 path of the decoder fails with a stream error.
    QAudioFormat format;
    format.setSampleRate(44100);
    format.setChannelCount(2);
    format.setSampleFormat(QAudioFormat::Int16);
    decoder->setAudioFormat(format);
    connect(decoder, &QAudioDecoder::bufferReady, this, &LevelSource::onDecoded);
    connect(player, &QMediaPlayer::sourceChanged, this, [this](const QUrl&) { reset(); });
    connect(player, &QMediaPlayer::positionChanged, this, &LevelSource::onPosition);
    connect(player, &QMediaPlayer::playbackStateChanged, this, [this](QMediaPlayer::PlaybackState state) {
        if (state == QMediaPlayer::StoppedState)
            reset();
        else if (state == QMediaPlayer::PlayingState && !decodingStarted)
            restart();
    });
}

void LevelSource::setEnabled(bool on)
{
    if (on == enabled)
        return;
    enabled = on;
    if (!enabled)
        reset();
    else if (player->playbackState() == QMediaPlayer::PlayingState && !decodingStarted)
        restart();
}

void LevelSource::setDecodeAhead(qint64 limitMs, qint64 refillMs)
{
    aheadLimitUs = limitMs * 1000;
    refillUs = refillMs * 1000;
}

qint64 LevelSource::decodedAheadMs() const
{
    return pending.empty() ? 0 : std::max<qint64>(0, decodedUntilUs / 1000 - lastPositionMs);
}

void LevelSource::reset()
{
    decoder->stop();
    pending.clear();
    lastPositionMs = 0;
    decodingStarted = false;
    decodedUntilUs = 0;
    skipUntilUs = 0;
    capped = false;
}

void LevelSource::restart()
{
    reset();
    const QUrl source = player->source();
    if (source.isEmpty() || !enabled)
        return;
    decoder->setSource(source);
    decoder->start();
    decodingStarted = true;
}

void LevelSource::onDecoded()
{
    while (decoder->bufferAvailable()) {
        const QAudioBuffer buffer = decoder->read();
        // Skips what an earlier run delivered, and whatever still arrives after the cap.
        if (capped || buffer.startTime() < skipUntilUs)
            continue;
        pending.push_back(buffer);
        decodedUntilUs = buffer.startTime() + buffer.duration();
        if (decodedUntilUs - lastPositionMs * 1000 > aheadLimitUs) {
            capped = true;
            skipUntilUs = decodedUntilUs;
            // Not from inside the decoder's own signal, and not when a refill came first.
            QMetaObject::invokeMethod(
                this,
                [this] {
                    if (capped)
                        decoder->stop();
                },
                Qt::QueuedConnection);
        }
    }
}

void LevelSource::onPosition(qint64 ms)
{
    if (decodingStarted && ms + backwardSeekMs < lastPositionMs) {
        restart();
    }
    lastPositionMs = ms;
    const qint64 nowUs = ms * 1000;
    while (!pending.empty() && pending.front().startTime() <= nowUs) {
        const QAudioBuffer buffer = pending.front();
        pending.pop_front();
        if (buffer.startTime() >= nowUs - staleMs * 1000)
            emit bufferReady(buffer);
    }
    if (capped && decodedUntilUs - nowUs < refillUs) {
        // No seeking in the decoder: run it from the top again, skipping up to skipUntilUs.
        capped = false;
        decoder->stop();
        decoder->start();
    }
}
#endif
