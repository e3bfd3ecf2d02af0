#pragma once

// Playlist rows for the engine tests.

#include "track.h"

#include <QString>

namespace playouttest {

inline Track fileTrack(const QString& artist, const QString& title, const QString& path)
{
    Track t;
    t.artist = artist;
    t.title = title;
    t.filePath = path;
    return t;
}

inline Track commandTrack(const QString& word)
{
    Track t;
    t.isCommand = true;
    t.command = word;
    return t;
}

// A stream entry as the library shows one: the URL is both its path and its title.
inline Track streamTrack(const QString& url, qint64 limitMs = 0)
{
    Track t;
    t.artist = QStringLiteral("Online stream");
    t.title = url;
    t.filePath = url;
    t.isStream = true;
    t.streamLimitMs = limitMs;
    return t;
}

} // namespace playouttest
