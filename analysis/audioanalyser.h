#pragma once

#include "trackanalysis.h"

#include <QString>

#include <atomic>

// Measures one file: decodes it (AudioDecoder), meters it (LoudnessMeter) and finds its cue points
// (CuePointFinder). Safe to call from several threads at once, one file each.
class AudioAnalyser
{
public:
    // The analysis of the file, never stored. On failure `error` holds a short reason and the numbers
    // are left at their defaults. Digital silence is no failure: it has a duration, loudness and peak
    // at the floors below, gain 0 and no cue points (-1). `cancel`, when given and set, stops the work
    // and gives the error "cancelled".
    static TrackAnalysis analyseFile(const QString& path, double targetLufs = -18.0,
                                     const std::atomic_bool* cancel = nullptr);

    // What a programme that never rises above R 128's absolute gate reads as, instead of minus infinity.
    static constexpr double kSilentLufs = -70.0;
    // The true peak of digital silence, instead of minus infinity: below any real converter's noise.
    static constexpr double kSilentPeakDbtp = -144.0;

    // Time a file may take before it is given up: a fixed allowance plus half a second for every
    // second of audio decoded, so a slow machine finishes a three-hour show and a stuck decoder stops.
    static void setTimeAllowance(qint64 baseMs, double msPerAudioSecond);
    static constexpr qint64 kDefaultBaseAllowanceMs = 120000;
    static constexpr double kDefaultMsPerAudioSecond = 500.0;

    // Error texts, as the command-line tool and the store show them.
    static QString cancelledText();
    static QString timeLimitText();
};
