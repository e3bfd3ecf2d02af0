#include "testtracks.h"

namespace ondarotest {

Track fileTrack(const QString& artist, const QString& title, const QString& path, qint64 durationMs,
                const QString& category)
{
    Track track;
    track.artist = artist;
    track.title = title;
    track.filePath = path;
    track.durationMs = durationMs;
    if (!category.isEmpty())
        track.category = category;
    return track;
}

} // namespace ondarotest
