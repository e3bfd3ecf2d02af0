#include "audioanalyser.h"

#include "analysislogging.h"
#include "audiodecoder.h"
#include "cuepointfinder.h"
#include "loudnessmeter.h"
#include "soundbounds.h"

#include <QElapsedTimer>
#include <QFileInfo>

#include <atomic>
#include <cmath>
#include <limits>
#include <vector>

namespace {

std::atomic<qint64> g_baseAllowanceMs{AudioAnalyser::kDefaultBaseAllowanceMs};
std::atomic<double> g_msPerAudioSecond{AudioAnalyser::kDefaultMsPerAudioSecond};

// Mean square of all samples of all channels, in dBFS; minus infinity for digital silence.
float blockLevel(const float* samples, qint64 count)
{
    float sum = 0.0f;
    for (qint64 i = 0; i < count; ++i)
        sum += samples[i] * samples[i];
    if (!(sum > 0.0f) || count <= 0)
        return -std::numeric_limits<float>::infinity();
    return 10.0f * std::log10(sum / static_cast<float>(count));
}

} // namespace

QString AudioAnalyser::cancelledText()
{
    return QStringLiteral("cancelled");
}

QString AudioAnalyser::timeLimitText()
{
    return QStringLiteral("took too long to decode");
}

void AudioAnalyser::setTimeAllowance(qint64 baseMs, double msPerAudioSecond)
{
    g_baseAllowanceMs = baseMs;
    g_msPerAudioSecond = msPerAudioSecond;
}

TrackAnalysis AudioAnalyser::analyseFile(const QString& path, double targetLufs,
                                         const std::atomic_bool* cancel)
{
    TrackAnalysis a;
    a.filePath = path;
    a.analysedAt = QDateTime::currentDateTime();
    // The file's stamp is taken before decoding: a file changed meanwhile is seen as changed next time.
    const QFileInfo info(path);
    if (info.exists()) {
        a.fileSize = info.size();
        a.fileModified = info.lastModified();
    }

    QElapsedTimer clock;
    clock.start();
    const qint64 baseMs = g_baseAllowanceMs;
    const double msPerAudioSecond = g_msPerAudioSecond;
    double audioSeconds = 0.0;
    bool cancelled = false;
    bool timedOut = false;
    auto shouldStop = [&] {
        if (cancel && cancel->load(std::memory_order_relaxed))
            cancelled = true;
        else if (static_cast<double>(clock.elapsed()) >
                 static_cast<double>(baseMs) + msPerAudioSecond * audioSeconds)
            timedOut = true;
        return cancelled || timedOut;
    };
    auto failure = [&](const QString& reason) {
        a.error = cancelled ? cancelledText() : timedOut ? timeLimitText() : reason;
        if (!cancelled)
            qCInfo(lcAnalysis).noquote() << "cannot analyse" << path << "-" << a.error;
        return a;
    };

    AudioDecoder decoder;
    decoder.setInterrupt(shouldStop);
    if (!decoder.open(path))
        return failure(decoder.errorString());
    const int rate = decoder.sampleRate();
    const int channels = decoder.channels();
    LoudnessMeter meter(channels, rate, decoder.channelKinds());
    if (!meter.isValid())
        return failure(QStringLiteral("unsupported channel layout"));

    // About 10 ms blocks for the cue points, and 10 of them (about 100 ms) per read, after which the
    // momentary loudness of the last 400 ms is taken for the mix start.
    const qint64 blockFrames = qMax<qint64>(1, std::llround(rate / 100.0));
    const qint64 stepFrames = blockFrames * 10;
    const double blockMs = static_cast<double>(blockFrames) * 1000.0 / rate;
    const double stepMs = static_cast<double>(stepFrames) * 1000.0 / rate;
    std::vector<float> buffer(static_cast<size_t>(stepFrames) * static_cast<size_t>(channels));
    SoundBounds sound;
    QList<float> momentary;
    qint64 frames = 0;
    for (;;) {
        const qint64 n = decoder.read(buffer.data(), stepFrames);
        if (n < 0)
            return failure(decoder.errorString());
        if (n == 0)
            break;
        if (!meter.addFrames(buffer.data(), n))
            return failure(QStringLiteral("cannot measure the loudness"));
        for (qint64 b = 0; b < n; b += blockFrames) {
            const qint64 len = qMin(blockFrames, n - b);
            sound.addLevel(blockLevel(buffer.data() + b * channels, len * channels));
        }
        momentary.append(static_cast<float>(meter.momentaryLufs()));
        frames += n;
        audioSeconds = static_cast<double>(frames) / rate;
        if (n < stepFrames)
            break;
    }
    if (shouldStop())
        return failure(QString());
    if (frames == 0)
        return failure(QStringLiteral("no audio samples"));
    if (decoder.skippedPackets() > 0)
        qCDebug(lcAnalysis) << path << "had" << decoder.skippedPackets() << "damaged packets, skipped";

    a.durationMs = std::llround(static_cast<double>(frames) * 1000.0 / rate);
    const double integrated = meter.integratedLufs();
    const double peak = meter.truePeakDbtp();
    a.loudnessRangeLu = meter.loudnessRangeLu();
    const double threshold = CuePointFinder::silenceThresholdDb(integrated);
    a.cueInMs = CuePointFinder::cueInMs(sound, blockMs, threshold);
    a.cueOutMs = CuePointFinder::cueOutMs(sound, blockMs, threshold);
    if (a.cueOutMs > a.durationMs)
        a.cueOutMs = a.durationMs; // the last block may be a short one
    a.mixStartMs = CuePointFinder::mixStartMs(momentary, stepMs, a.cueInMs, a.cueOutMs, integrated);
    a.integratedLufs = std::isfinite(integrated) ? std::max(integrated, kSilentLufs) : kSilentLufs;
    a.truePeakDbtp = std::isfinite(peak) ? std::max(peak, kSilentPeakDbtp) : kSilentPeakDbtp;
    a.gainDb = a.gainTowards(targetLufs);
    return a;
}
