#pragma once

#include <QtGlobal>

#include <array>

// The time a deck takes from being started to being heard, kept over its last few starts. The
// median is taken so that one start delayed by a busy machine does not move the estimate.
class StartLead
{
public:
    // Until a start was measured: what a local file takes with the sound server here.
    static constexpr qint64 typicalMs = 150;
    // Measurements outside 0..maxMs are not starts of a local file (a stream, a stalled server).
    static constexpr qint64 maxMs = 1000;

    void add(qint64 ms);
    // Milliseconds; typicalMs when nothing was measured.
    qint64 estimateMs() const;
    int count() const { return m_count; }

private:
    static constexpr int kept = 5;
    std::array<qint64, kept> m_leads{};
    int m_count = 0; // measurements kept, up to `kept`
    int m_next = 0;  // where the next one goes
};
