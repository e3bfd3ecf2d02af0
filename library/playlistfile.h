#pragma once

#include "track.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

// Playlists on disk as extended M3U, the one form the studio opens and saves and the scheduler
// writes. Each entry is an "#EXTINF:<whole seconds>,<artist - title>" line followed by its path or
// stream URL; command rows (STOP, PAUSE, ...) have no M3U form of their own and are kept in a
// comment line "#ONDARO-COMMAND:<word>" that other players skip.
class PlaylistFile
{
public:
    struct ReadResult {
        bool ok = false;      // false: the file could not be read or is not a playlist; see error
        QString error;        // why, for a message box; empty when ok
        QList<Track> tracks;  // in file order, command rows included
        QStringList missingFiles; // file entries whose file does not exist (kept in tracks)
        QStringList skipped;  // entries that are neither a file nor a playable stream URL
    };

    static QString commandPrefix(); // "#ONDARO-COMMAND:"

    // Reads a playlist; relative paths are resolved against the playlist's folder.
    static ReadResult read(const QString& path);
    static ReadResult parse(const QByteArray& content, const QString& baseFolder);

    static QByteArray toM3u(const QList<Track>& tracks);
    // Writes through a temporary file that replaces the target only when complete.
    static bool write(const QString& path, const QList<Track>& tracks, QString* error = nullptr);
};
