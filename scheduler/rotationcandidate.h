#pragma once

#include "track.h"
#include "trackparams.h"

// What the rotation rules look at for each candidate, kept small and side by side in the pool so that
// a pass over thousands of candidates stays in the processor's cache.
struct RotationKeys {
    int artistId = -1; // -1: no artist, so never held back by artist separation
    int songId = -1;
    int fileId = -1;
    int rating = 0;
    qint64 lengthMs = 0;  // for the choice by length before a timed slot
    bool limited = false; // its parameters limit when it may play (disabled, date range, hours)
};

// A library file that may fill a category slot: a file (not a stream) with a stored length. The ids
// are the pool's numbers for its artist, its song (artist and title) and its file, so that the
// separation checks compare numbers rather than texts.
struct RotationCandidate {
    Track track;
    TrackParams params;
    RotationKeys keys;
};
