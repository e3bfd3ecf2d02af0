#include "loudnessmeter.h"

#include "analysislogging.h"

#include <ebur128.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr double kMinusInfinity = -std::numeric_limits<double>::infinity();
// libebur128 keeps the last 3 s of audio (for the loudness range); a longer call is measured over
// its last 3 s only, which the analyser's 100 ms calls never reach.
constexpr qint64 kMaxBlockMs = 3000;

int channelRole(AudioDecoder::ChannelKind kind)
{
    switch (kind) {
    case AudioDecoder::ChannelKind::LowFrequency:
        return EBUR128_UNUSED;
    case AudioDecoder::ChannelKind::Surround:
        return EBUR128_LEFT_SURROUND; // weighted 1.41
    case AudioDecoder::ChannelKind::Front:
        break;
    }
    return EBUR128_LEFT; // weighted 1.0, as every front channel
}

} // namespace

struct LoudnessMeter::State {
    ebur128_state* meter = nullptr;
    ~State()
    {
        if (meter)
            ebur128_destroy(&meter);
    }
};

LoudnessMeter::LoudnessMeter(int channels, int sampleRate, const QList<AudioDecoder::ChannelKind>& kinds)
    : m_state(std::make_unique<State>()), m_channels(channels), m_sampleRate(sampleRate)
{
    if (channels <= 0 || sampleRate <= 0)
        return;
    m_state->meter = ebur128_init(static_cast<unsigned>(channels), static_cast<unsigned long>(sampleRate),
                                  EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK | EBUR128_MODE_HISTOGRAM);
    if (!m_state->meter) {
        qCWarning(lcAnalysis) << "libebur128 refused" << channels << "channels at" << sampleRate << "Hz";
        return;
    }
    for (int i = 0; i < channels && i < kinds.size(); ++i)
        ebur128_set_channel(m_state->meter, static_cast<unsigned>(i), channelRole(kinds.at(i)));
}

LoudnessMeter::~LoudnessMeter() = default;

bool LoudnessMeter::isValid() const
{
    return m_state->meter != nullptr;
}

bool LoudnessMeter::addFrames(const float* frames, qint64 count)
{
    if (!m_state->meter || count <= 0)
        return m_state->meter != nullptr;
    if (ebur128_add_frames_float(m_state->meter, frames, static_cast<size_t>(count)) != EBUR128_SUCCESS)
        return false;
    // The loudness of just these frames, turned back into their mean energy (L = -0.691 + 10 log10 E).
    const auto windowMs = static_cast<unsigned long>(
        qBound<qint64>(1, std::llround(static_cast<double>(count) * 1000.0 / m_sampleRate), kMaxBlockMs));
    double lufs = kMinusInfinity;
    if (ebur128_loudness_window(m_state->meter, windowMs, &lufs) != EBUR128_SUCCESS)
        lufs = kMinusInfinity;
    std::rotate(m_energies.begin(), m_energies.begin() + 1, m_energies.end());
    std::rotate(m_frames.begin(), m_frames.begin() + 1, m_frames.end());
    m_energies.back() = std::isfinite(lufs) ? std::pow(10.0, (lufs + 0.691) / 10.0) : 0.0;
    m_frames.back() = count;
    return true;
}

double LoudnessMeter::momentaryLufs() const
{
    double energy = 0.0;
    qint64 frames = 0;
    for (size_t i = 0; i < m_energies.size(); ++i) {
        energy += m_energies[i] * static_cast<double>(m_frames[i]);
        frames += m_frames[i];
    }
    if (frames <= 0 || !(energy > 0.0))
        return kMinusInfinity;
    return -0.691 + 10.0 * std::log10(energy / static_cast<double>(frames));
}

double LoudnessMeter::integratedLufs() const
{
    double value = kMinusInfinity;
    if (!m_state->meter || ebur128_loudness_global(m_state->meter, &value) != EBUR128_SUCCESS)
        return kMinusInfinity;
    return value;
}

double LoudnessMeter::loudnessRangeLu() const
{
    double value = 0.0;
    if (!m_state->meter || ebur128_loudness_range(m_state->meter, &value) != EBUR128_SUCCESS ||
        !std::isfinite(value))
        return 0.0;
    return value;
}

double LoudnessMeter::truePeakDbtp() const
{
    double peak = 0.0;
    for (int channel = 0; m_state->meter && channel < m_channels; ++channel) {
        double value = 0.0;
        if (ebur128_true_peak(m_state->meter, static_cast<unsigned>(channel), &value) == EBUR128_SUCCESS)
            peak = std::max(peak, value);
    }
    return peak > 0.0 ? 20.0 * std::log10(peak) : kMinusInfinity;
}
