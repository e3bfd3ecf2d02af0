#pragma once

#include "track.h"

#include <QList>
#include <QString>
#include <QStringList>

// Turns what a presenter or the command line names (audio files, stream URLs, M3U playlists) into
// playlist rows. Missing files stay as rows, so a playlist keeps its shape, and are reported.
class PlaylistLoader
{
public:
    struct Result {
        QList<Track> tracks;
        // One line per problem, for the log: missing files, unreadable playlists, unknown entries.
        QStringList problems;
        // Playlist files that could not be read at all, with why.
        QStringList failedPlaylists;
    };

    // ".m3u" or ".m3u8", any letter case.
    static bool isPlaylistPath(const QString& path);
    // A stream row for a stream URL, a row with the file's tags for a local file (a missing file
    // gets its name as title and is still returned).
    static Track trackFor(const QString& entry);
    // Files are named from the library when they are in it, else from their tags (TrackDetails).
    static Result load(const QStringList& entries);
    // Fills in the tags and length of file rows that arrived bare (dropped from the desktop).
    static Track withTags(const Track& bare);

    static QString missingFileText(const QString& path);
    // A fixed start time of a playlist file that could not be used; `problem` is the file's own
    // "Line <n>: why" (PlaylistFile::ReadResult::timingProblems).
    static QString timingProblemText(const QString& playlistPath, const QString& problem);
    // Those lines for every timing problem of a read file.
    static QStringList timingProblemTexts(const QString& playlistPath, const QStringList& problems);
};
