#pragma once

#include "trackanalysis.h"
#include "trackparams.h"

#include <QMetaType>

// What the playout knows of a file from the store: its parameters and its analysis.
struct TrackInfo {
    TrackParams params;
    TrackAnalysis analysis;
    bool known = false; // false: not read yet, or the store could not answer
};

Q_DECLARE_METATYPE(TrackInfo)
