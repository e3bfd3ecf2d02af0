#pragma once

#include "cueplan.h"
#include "track.h"
#include "trackanalysis.h"
#include "trackparams.h"

class TrackInfoCache;

// How a row is played, read once as it starts: its parameters and analysis from what the engine
// read ahead of the store, the cue and loudness settings as they are now (so a row queued before
// they changed follows them when it starts), and the plan made of them.
struct RowStart {
    TrackParams params;
    TrackAnalysis analysis; // empty unless cue points or normalisation are on, and never for streams
    CuePlan plan;
    bool useCuePoints = false;
    bool normalizeLoudness = false;
    bool paramsUnknown = false; // the store gave nothing in time: the row plays with the defaults
};

RowStart readRowStart(const Track& track, TrackInfoCache& info);
