#pragma once

#include "mixsettings.h"

#include <QtGlobal>

// What the engine does about the current track's end at one position report, as a plain function
// over plain values: crossfade into the next row, hand over to it without a crossfade (started
// the start lead before the end, so one follows the other without a gap), or wait.

// Positions come about every 100 ms; a point closer than this is reached by a precise timer.
constexpr qint64 positionReportMs = 150;

struct MixSituation {
    bool autoPlayNext = true;
    bool alreadyMoved = false; // a mix or handover was done for this row
    MixSettings settings;      // with the track's and the row's own values applied
    bool playing = false;      // the current deck is playing
    qint64 positionMs = 0;
    qint64 fileDurationMs = 0; // as the player reports it; < 1 when not known yet
    qint64 endMs = 0;          // where the track ends as played (cue-out or file end)
    // Crossfade: the current deck's level as heard, in dB.
    double levelDb = -100.0;
    bool levelValid = false;
    // Handover: whether the current and the following row allow one (a file row that is there,
    // no command, no stream, no shuffle), and how long a start takes to be heard.
    bool handoverPossible = false;
    qint64 startLeadMs = 0;
};

struct MixStep {
    enum class Action {
        Wait,      // nothing yet
        WaitUntil, // nothing yet; check again in timerMs, between two position reports
        Mix,       // crossfade into the mix row now (when there is one)
        HandOver,  // start the following row on the other deck now
    };
    Action action = Action::Wait;
    int timerMs = 0;
};

MixStep decideMixStep(const MixSituation& now);
