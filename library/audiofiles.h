#pragma once

#include "track.h"

#include <QList>
#include <QString>
#include <QStringList>

// The audio files and streams the library takes, and reading them from disk. Touches no database.
class AudioFiles
{
public:
    static const QStringList& supportedExtensions();
    static bool isSupported(const QString& path);
    // The trimmed text begins, ignoring case, with "http://", "https://", "mms://", "rtsp://" or
    // "rtmp://".
    static bool isStreamUrl(const QString& text);
    static Track trackFromFile(const QString& path);
    // The supported files of a folder (files before subfolders, sorted by name).
    static QStringList filesIn(const QString& dir, bool recursive);
    // The supported files of one folder level, plain files only, sorted by name.
    static QStringList filesDirectlyIn(const QString& dir);
    static QStringList subfoldersOf(const QString& dir);
    // The supported files among `paths`, in order, with their tags read.
    static QList<Track> readTracks(const QStringList& paths);
};
