#pragma once

#include "trackanalysis.h"

#include <QByteArray>
#include <QString>

// How analyses are written out by the command-line tool: one compact JSON object per line, or a
// table for people.
class AnalysisReport
{
public:
    // Keys "path", "durationMs", "integratedLufs", "loudnessRangeLu", "truePeakDbtp", "cueInMs",
    // "cueOutMs", "mixStartMs", "gainDb" and "error" ("" when analysed). A failed analysis carries
    // only "path" and "error". Loudness figures are rounded to hundredths. No line break at the end.
    static QByteArray jsonLine(const TrackAnalysis& analysis);

    static QString tableHeader();
    // Times in seconds with milliseconds, "-" for a point that was not found; a note for digital
    // silence and the reason of a failure.
    static QString tableRow(const TrackAnalysis& analysis);

    // Digital silence: analysed, but no sound and so no cue points.
    static bool isSilent(const TrackAnalysis& analysis);
};
