#include "mixsettings.h"

#include "settingkeys.h"

MixSettings MixSettings::fromSettings()
{
    MixSettings s;
    s.crossfadeEnabled = Settings::crossfadeEnabled.read();
    s.mixPointMs = Settings::mixPointMs.read();
    s.fadeOutMs = Settings::fadeOutMs.read();
    s.triggerMixEnabled = Settings::triggerMixEnabled.read();
    s.triggerMixDb = Settings::triggerMixDb.read();
    s.fadeOutOnMix = Settings::fadeOutOnMix.read();
    s.minCrossfadeMs = Settings::minCrossfadeMs.read();
    return s;
}
