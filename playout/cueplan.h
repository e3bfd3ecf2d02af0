#pragma once

#include <QtGlobal>

struct TrackAnalysis;
struct TrackParams;

// How one track is played when it starts: where it starts and ends, where the next one may start
// and how loud it is, decided from its hand-set parameters and its stored analysis. Plain values
// and pure functions, so the choices are checked without a sound device.
struct CuePlan {
    qint64 startMs = 0;     // position the deck starts at; 0 = the beginning
    qint64 endMs = 0;       // reached = the track's end; 0 = its real end
    qint64 mixStartMs = -1; // position at which the next track starts; -1 = the engine's rule
    double gain = 1.0;      // linear, on top of fade, master volume and duck
};

// Cue-in: the hand-set `start` (> 0) wins over the analysed cue-in; 0 when cue points are off or
// neither is known.
qint64 chooseCueIn(const TrackParams& params, const TrackAnalysis& analysis, bool useCuePoints);

// Cue-out: the hand-set `end` (> 0) wins over the analysed cue-out; 0 (the real end) when cue points
// are off, neither is known, or it would not lie after the cue-in.
qint64 chooseCueOut(const TrackParams& params, const TrackAnalysis& analysis, bool useCuePoints,
                    qint64 cueInMs);

// Mix start: the hand-set `mixStart` (>= 0) wins over the analysed one; -1 when cue points are off or
// neither is known. A point before the cue-in is taken as the cue-in.
qint64 chooseMixStart(const TrackParams& params, const TrackAnalysis& analysis, bool useCuePoints,
                      qint64 cueInMs);

// Linear gain: 10^(gainDb/20) of the analysis towards targetLufs (1.0 without an analysis) times the
// track's own `level` (negative taken as 0); exactly 1.0 when normalising is off.
double chooseGain(const TrackParams& params, const TrackAnalysis& analysis, bool normalize,
                  double targetLufs);

CuePlan planTrack(const TrackParams& params, const TrackAnalysis& analysis, bool useCuePoints, bool normalize,
                  double targetLufs);

// The mix point (ms before endMs) of the track's own: a hand-set mix start, else a hand-set `mix`
// length, else an analysed mix start; -1 when none (the engine's setting applies).
int trackMixPointMs(const TrackParams& params, const CuePlan& plan, qint64 endMs);

// The mix point (ms before the end) a mix start gives on a track that ends at endMs; -1 when there is
// no mix start.
qint64 mixPointFromStart(qint64 mixStartMs, qint64 endMs);
