#pragma once

#include "soundbounds.h"

#include <QList>

// Cue points from a programme's levels, as pure functions (no files, no decoder), so that each rule
// can be checked on a hand-made list.
//
// Sound/silence: levels of short blocks (blockMs, about 10 ms), each the mean square of all samples
// of all channels in dBFS, gathered in a SoundBounds. A block is sound when its level reaches the
// silence threshold.
//
// Mix start: momentary loudness in LUFS (400 ms windows, one value every stepMs, the n-th window
// ending at (n + 1) * stepMs).
class CuePointFinder
{
public:
    // A block counts as sound from 40 dB below the programme's integrated loudness: a fade's tail
    // further down is inaudible on air beside the next item, while a quiet intro is kept. Never below
    // -60 dBFS, the level of tape hiss and noisy transfers, which must not count as sound in a quiet
    // recording. Digital silence (-infinity) leaves the floor.
    static constexpr double kRelativeThresholdDb = 40.0;
    static constexpr double kThresholdFloorDbfs = -60.0;
    // The next item may start once the ending stays this far below the programme's loudness ...
    static constexpr double kMixDropLu = 8.0;
    // ... but never earlier than this before cue-out, so that a long quiet coda is not cut short.
    static constexpr qint64 kMaxMixLeadMs = 15000;
    // The length of one momentary-loudness window.
    static constexpr qint64 kMomentaryWindowMs = 400;

    static double silenceThresholdDb(double integratedLufs);

    // Start of the first sound block, milliseconds; -1 when no block reaches the threshold.
    static qint64 cueInMs(const SoundBounds& levels, double blockMs, double thresholdDb);
    // End of the last sound block, milliseconds; -1 when no block reaches the threshold.
    static qint64 cueOutMs(const SoundBounds& levels, double blockMs, double thresholdDb);

    // The start of the final run of momentary windows that all stay kMixDropLu below the integrated
    // loudness up to cue-out, no earlier than kMaxMixLeadMs before cue-out nor before cue-in. A hard
    // ending gives cue-out itself; -1 without a cue-out or a measurable loudness.
    static qint64 mixStartMs(const QList<float>& momentaryLufs, double stepMs, qint64 cueInMs,
                             qint64 cueOutMs, double integratedLufs);
};
