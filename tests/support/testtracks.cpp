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

QStringList tagFields(const Track& track)
{
    return {QStringLiteral("filePath: ") + track.filePath,
            QStringLiteral("artist: ") + track.artist,
            QStringLiteral("title: ") + track.title,
            QStringLiteral("album: ") + track.album,
            QStringLiteral("genre: ") + track.genre,
            QStringLiteral("comment: ") + track.comment,
            QStringLiteral("year: %1").arg(track.year),
            QStringLiteral("durationMs: %1").arg(track.durationMs),
            QStringLiteral("category: ") + track.category,
            QStringLiteral("isStream: %1").arg(track.isStream),
            QStringLiteral("streamLimitMs: %1").arg(track.streamLimitMs)};
}

} // namespace ondarotest
