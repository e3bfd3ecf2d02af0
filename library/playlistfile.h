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
        // Rows of file entries without an #EXTINF line. parse() names them from the file name;
        // read() has filled them in from the library or the file's tags (see TrackDetails).
        QList<int> rowsWithoutInfo;
    };

    static QString commandPrefix(); // "#ONDARO-COMMAND:"
    // True for a path ending in ".m3u" or ".m3u8", in any letter case.
    static bool isPlaylistPath(const QString& path);

    // Reads a playlist; relative paths are resolved against the playlist's folder. Existing files
    // listed without #EXTINF get their names and lengths from the library, else from their tags.
    static ReadResult read(const QString& path);
    static ReadResult parse(const QByteArray& content, const QString& baseFolder);

    static QByteArray toM3u(const QList<Track>& tracks);
    // Writes through a temporary file that replaces the target only when complete.
    static bool write(const QString& path, const QList<Track>& tracks, QString* error = nullptr);
};
