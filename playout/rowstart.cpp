#include "rowstart.h"

#include "settingkeys.h"
#include "trackinfocache.h"

RowStart readRowStart(const Track& track, TrackInfoCache& info)
{
    RowStart start;
    start.useCuePoints = Settings::useCuePoints.read();
    start.normalizeLoudness = Settings::normalizeLoudness.read();
    if (!track.isCommand && !track.filePath.isEmpty()) {
        const TrackInfo known = info.forStart(track.filePath);
        start.paramsUnknown = !known.known;
        if (known.known) {
            start.params = known.params;
            if ((start.useCuePoints || start.normalizeLoudness) && !track.isStream)
                start.analysis = known.analysis;
        }
    }
    start.plan = planTrack(start.params, start.analysis, start.useCuePoints, start.normalizeLoudness,
                           Settings::targetLufs.read());
    return start;
}
