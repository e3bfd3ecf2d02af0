#pragma once

#include "track.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>

// Playlists on disk as extended M3U, the one form the studio opens and saves and the scheduler
// writes. Each entry is an "#EXTINF:<whole seconds>,<artist - title>" line followed by its path or
// stream URL; command rows (STOP, PAUSE, ...) have no M3U form of their own and are kept in a
// comment line "#ONDARO-COMMAND:<word>" that other players skip. A row's fixed start time is the
// comment line "#ONDARO-TIME:hard 2026-11-23T12:00:00" (or "soft"; local time to the second, or a
// bare "12:00:00" for the next such time after the list is loaded) before the entry it applies to.
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
        // "Line <n>: ..." for each #ONDARO-TIME line that could not be used; the entry after it
        // (if any) is kept, untimed.
        QStringList timingProblems;
    };

    static QString commandPrefix(); // "#ONDARO-COMMAND:"
    static QString timePrefix();    // "#ONDARO-TIME:"
    // True for a path ending in ".m3u" or ".m3u8", in any letter case.
    static bool isPlaylistPath(const QString& path);

    // Reads a playlist; relative paths are resolved against the playlist's folder. Existing files
    // listed without #EXTINF get their names and lengths from the library, else from their tags.
    static ReadResult read(const QString& path);
    // A bare time of day is the next such time at or after loadedAt (invalid: now).
    static ReadResult parse(const QByteArray& content, const QString& baseFolder,
                            const QDateTime& loadedAt = QDateTime());
    // The text after "#ONDARO-TIME:" for a timed row ("hard 2026-11-23T12:00:00"), empty for none.
    static QString timingText(const TimedStart& timed);
    // Reads that text; false (and why, in error) when it is malformed.
    static bool parseTiming(const QString& text, const QDateTime& loadedAt, TimedStart& timed,
                            QString* error = nullptr);

    static QByteArray toM3u(const QList<Track>& tracks);
    // Writes through a temporary file that replaces the target only when complete.
    static bool write(const QString& path, const QList<Track>& tracks, QString* error = nullptr);
};
