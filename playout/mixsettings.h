#pragma once

// The rules the engine mixes by, read from the "playback" settings group.
struct MixSettings {
    bool crossfadeEnabled = false;
    int mixPointMs = 2500; // start the next track this long before the end
    int fadeOutMs = 2500;  // fade-out of the outgoing track
    bool triggerMixEnabled = false;
    double triggerMixDb = -14.0; // level (dB) at or below which the next track starts
    bool fadeOutOnMix = true;
    int minCrossfadeMs = 45000; // shorter tracks are never mixed automatically

    // Reads every key through its declaration in settingkeys.h.
    static MixSettings fromSettings();
};
