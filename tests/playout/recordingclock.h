#pragma once

// Ties a recording of the sink's monitor (SinkRecorder) to the wall clock, so that a sound found in
// the recording can be compared with the time it was due.

#include "playouttestsupport.h"

#include <QDateTime>
#include <QFileInfo>
#include <QObject>
#include <QTimer>

#include <algorithm>
#include <utility>
#include <vector>

namespace playouttest {

// Every few milliseconds while the event loop runs, how many frames the recording holds against
// the wall clock. A frame is in the file only after it was captured, so each reading bounds the
// wall time of frame 0 from above; the tightest reading near a moment gives the mapping there
// (nearby only, so the sound card's clock drifting from the wall clock does not add up).
class RecordingClock : public QObject
{
public:
    explicit RecordingClock(const QString& recordingPath, QObject* parent = nullptr)
        : QObject(parent), m_path(recordingPath)
    {
        m_timer.setTimerType(Qt::PreciseTimer);
        m_timer.setInterval(2);
        QObject::connect(&m_timer, &QTimer::timeout, this, [this] { read(); });
        m_timer.start();
    }

    void read()
    {
        const qint64 frames = QFileInfo(m_path).size() / 4; // 16-bit stereo
        const qint64 wall = QDateTime::currentMSecsSinceEpoch();
        if (frames > 0 && (m_readings.empty() || m_readings.back().second != frames))
            m_readings.emplace_back(wall, frames);
    }

    // Wall-clock ms (since the epoch) of frame 0, from the readings within windowMs of aroundWallMs;
    // -1 when there were none.
    double frameZeroWallMs(qint64 aroundWallMs, qint64 windowMs = 3000) const
    {
        double best = -1.0;
        for (const auto& [wall, frames] : m_readings) {
            if (std::abs(wall - aroundWallMs) > windowMs)
                continue;
            const double zero = double(wall) - double(frames) * 1000.0 / recordRate;
            if (best < 0 || zero < best)
                best = zero;
        }
        return best;
    }

    // The frame captured at that wall-clock time; -1 when it cannot be told.
    qint64 frameAt(qint64 wallMs) const
    {
        const double zero = frameZeroWallMs(wallMs);
        if (zero < 0)
            return -1;
        return qint64((double(wallMs) - zero) * recordRate / 1000.0);
    }

    size_t readings() const { return m_readings.size(); }

private:
    QString m_path;
    QTimer m_timer;
    std::vector<std::pair<qint64, qint64>> m_readings; // wall ms, frames in the file
};

// The first frame from `fromFrame` on where the tone is above the threshold, in windows of
// windowMs, -1 when never.
inline qint64 toneOnsetFrame(const std::vector<float>& samples, qint64 fromFrame, int frequency,
                             double threshold, int windowMs = 5)
{
    if (fromFrame < 0 || fromFrame >= qint64(samples.size()))
        return -1;
    const std::vector<float> tail(samples.begin() + fromFrame, samples.end());
    const int window = recordRate * windowMs / 1000;
    const int first = firstAbove(toneTrack(tail, frequency, windowMs), threshold);
    return first < 0 ? -1 : fromFrame + qint64(first) * window;
}

} // namespace playouttest
