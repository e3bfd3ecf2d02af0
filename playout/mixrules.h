#pragma once

#include "mixsettings.h"

#include <QtGlobal>

class QAudioBuffer;

// The engine's decisions as plain functions, so they can be checked without a sound device.

// Peak of one buffer per channel, linear 0..1.
struct PeakLevels {
    double left = 0.0;
    double right = 0.0;
    bool valid = false;
};

// Master volume and duck factor applied on top of a deck's fade gain, clamped to 0..1.
constexpr double duckFactor = 0.2;
double effectiveVolume(double gain, double masterVolume, bool ducked);

// 20·log10(x) with -100 dB as the floor.
double toDb(double linear);

// One pass over the frames, no allocation. Unknown sample formats give an invalid result.
PeakLevels peakLevels(const QAudioBuffer& buffer);

// Whether the next track should start now. remainingMs = duration - position.
bool shouldMix(const MixSettings& settings, qint64 durationMs, qint64 remainingMs, double levelDb,
               bool levelValid);

// The settings a mix of one track uses: the track's own mix/fade-out (-1 = none) and then the
// playlist row's override pair (-1 = none) replace the engine's values, later ones winning.
MixSettings effectiveMixSettings(const MixSettings& base, int trackMixMs, int trackFadeOutMs, int rowMixMs,
                                 int rowFadeOutMs);
