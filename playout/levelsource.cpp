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

LevelSource::~LevelSource() = default;

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
#include "meterdecoder.h"
#include "playoutlogging.h"

#include <QThread>

#include <algorithm>
#include <limits>

namespace {
// A position that jumps back further than this is a seek, not jitter of the reports.
constexpr qint64 backwardSeekMs = 300;
// A position that jumps forward further than this, past what was decoded, is a seek too.
constexpr qint64 forwardSeekMs = 1000;
// Buffers this far behind the player when released are skipped (after a forward seek).
constexpr qint64 staleMs = 250;
} // namespace

LevelSource::LevelSource(QMediaPlayer* player, QObject* parent) : QObject(parent), player(player)
{
    worker = new QThread(this);
    worker->setObjectName(QStringLiteral("meter decoder"));
    decoder = new MeterDecoder;
    decoder->moveToThread(worker);
    connect(worker, &QThread::finished, decoder, &QObject::deleteLater);
    connect(decoder, &MeterDecoder::decoded, this, &LevelSource::onDecoded);
    connect(decoder, &MeterDecoder::failed, this, &LevelSource::onFailed);
    connect(decoder, &MeterDecoder::ended, this, [this](quint64 r) {
        if (r == run)
            decodingEnded = true;
    });
    worker->start();
    connect(player, &QMediaPlayer::sourceChanged, this, [this](const QUrl&) {
        failedSource.clear();
        reset();
    });
    connect(player, &QMediaPlayer::positionChanged, this, &LevelSource::onPosition);
    connect(player, &QMediaPlayer::playbackStateChanged, this, [this](QMediaPlayer::PlaybackState state) {
        if (state == QMediaPlayer::StoppedState)
            reset();
        else if (state == QMediaPlayer::PlayingState && !decodingStarted)
            restart(this->player->position());
    });
}

LevelSource::~LevelSource()
{
    // A read of a stream that hangs is cut short, so that the thread ends now.
    decoder->abandonBefore(std::numeric_limits<quint64>::max());
    worker->quit();
    worker->wait();
}

void LevelSource::setEnabled(bool on)
{
    if (on == enabled)
        return;
    enabled = on;
    if (!enabled)
        reset();
    else if (player->playbackState() == QMediaPlayer::PlayingState && !decodingStarted)
        restart(player->position());
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
    if (run != 0) {
        decoder->abandonBefore(run + 1);
        const quint64 stopped = run;
        MeterDecoder* d = decoder;
        QMetaObject::invokeMethod(decoder, [d, stopped] { d->stop(stopped); }, Qt::QueuedConnection);
    }
    run = 0;
    pending.clear();
    lastPositionMs = 0;
    decodingStarted = false;
    decodingEnded = false;
    decodedUntilUs = 0;
    requestedUntilUs = 0;
}

void LevelSource::restart(qint64 fromMs)
{
    reset();
    const QUrl source = player->source();
    if (source.isEmpty() || !enabled)
        return;
    decodingStarted = true;
    if (source == failedSource)
        return;
    run = ++runsStarted;
    lastPositionMs = std::max<qint64>(0, fromMs);
    const qint64 fromUs = lastPositionMs * 1000;
    decodedUntilUs = fromUs;
    requestedUntilUs = fromUs + aheadLimitUs;
    MeterDecoder* d = decoder;
    const quint64 started = run;
    const qint64 until = requestedUntilUs;
    QMetaObject::invokeMethod(
        decoder, [d, started, source, fromUs, until] { d->start(started, source, fromUs, until); },
        Qt::QueuedConnection);
}

void LevelSource::onDecoded(quint64 from, const QAudioBuffer& buffer)
{
    if (from != run || run == 0)
        return;
    pending.push_back(buffer);
    decodedUntilUs = buffer.startTime() + buffer.duration();
}

void LevelSource::onFailed(quint64 from, const QString& reason)
{
    if (from != run || run == 0)
        return;
    run = 0;
    pending.clear();
    if (failedSource != player->source()) {
        failedSource = player->source();
        qCWarning(lcPlayout).noquote() << "no levels for" << failedSource.toDisplayString() << "-" << reason;
    }
}

void LevelSource::onPosition(qint64 ms)
{
    if (decodingStarted && run != 0) {
        const bool backwards = ms + backwardSeekMs < lastPositionMs;
        const bool pastDecoded =
            !decodingEnded && ms > lastPositionMs + forwardSeekMs && ms * 1000 > decodedUntilUs;
        if (backwards || pastDecoded)
            restart(ms);
    }
    lastPositionMs = ms;
    const qint64 nowUs = ms * 1000;
    while (!pending.empty() && pending.front().startTime() <= nowUs) {
        const QAudioBuffer buffer = pending.front();
        pending.pop_front();
        if (buffer.startTime() >= nowUs - staleMs * 1000)
            emit bufferReady(buffer);
    }
    if (run != 0 && !decodingEnded && requestedUntilUs - nowUs < refillUs) {
        requestedUntilUs = nowUs + aheadLimitUs;
        MeterDecoder* d = decoder;
        const quint64 current = run;
        const qint64 until = requestedUntilUs;
        QMetaObject::invokeMethod(decoder, [d, current, until] { d->extend(current, until); },
                                  Qt::QueuedConnection);
    }
}
#endif
