#include "mixrules.h"

#include <QAudioBuffer>

#include <algorithm>
#include <cmath>
#include <cstdlib>

double effectiveVolume(double gain, double masterVolume, bool ducked)
{
    const double v = gain * masterVolume * (ducked ? duckFactor : 1.0);
    if (v > 1.0)
        return 1.0;
    if (v <= 0.0)
        return 0.0;
    return v;
}

double toDb(double linear)
{
    if (linear <= 0.0)
        return -100.0;
    return std::max(-100.0, 20.0 * std::log10(linear));
}

namespace {

template <typename Sample, typename Scale> PeakLevels peaksOf(const QAudioBuffer& buffer, Scale scale)
{
    const Sample* data = buffer.constData<Sample>();
    const int channels = buffer.format().channelCount();
    const qsizetype frames = buffer.frameCount();
    double left = 0.0;
    double right = 0.0;
    for (qsizetype f = 0; f < frames; ++f) {
        const Sample* frame = data + f * channels;
        left = std::max(left, std::fabs(scale(frame[0])));
        if (channels > 1)
            right = std::max(right, std::fabs(scale(frame[1])));
    }
    if (channels < 2)
        right = left;
    return {std::min(left, 1.0), std::min(right, 1.0), true};
}

} // namespace

PeakLevels peakLevels(const QAudioBuffer& buffer)
{
    if (!buffer.isValid() || buffer.frameCount() < 1 || buffer.byteCount() < 1 ||
        buffer.format().channelCount() < 1 || buffer.constData<char>() == nullptr)
        return {};
    switch (buffer.format().sampleFormat()) {
    case QAudioFormat::UInt8:
        return peaksOf<quint8>(buffer, [](quint8 s) { return (int(s) - 128) * 0.0078125; });
    case QAudioFormat::Int16:
        return peaksOf<qint16>(buffer, [](qint16 s) { return s * 3.0517578125e-5; });
    case QAudioFormat::Int32:
        return peaksOf<qint32>(buffer, [](qint32 s) { return s * 4.656612873077393e-10; });
    case QAudioFormat::Float:
        return peaksOf<float>(buffer, [](float s) { return double(s); });
    default:
        return {};
    }
}

bool shouldMix(const MixSettings& settings, qint64 durationMs, qint64 remainingMs, double levelDb,
               bool levelValid)
{
    if (!settings.crossfadeEnabled || durationMs < 1)
        return false;
    if (settings.minCrossfadeMs > durationMs)
        return false;
    if (remainingMs < 0)
        return false;
    if (remainingMs <= settings.mixPointMs)
        return true;
    // No time window of its own: a quiet passage anywhere in the track triggers the mix.
    return settings.triggerMixEnabled && levelValid && settings.triggerMixDb >= levelDb;
}

MixSettings effectiveMixSettings(const MixSettings& base, int trackMixMs, int trackFadeOutMs, int rowMixMs,
                                 int rowFadeOutMs)
{
    MixSettings s = base;
    if (trackMixMs >= 0)
        s.mixPointMs = trackMixMs;
    if (trackFadeOutMs >= 0)
        s.fadeOutMs = trackFadeOutMs;
    if (rowMixMs >= 0)
        s.mixPointMs = rowMixMs;
    if (rowFadeOutMs >= 0)
        s.fadeOutMs = rowFadeOutMs;
    return s;
}
