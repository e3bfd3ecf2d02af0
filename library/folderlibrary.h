#pragma once

#include "libraryquery.h"
#include "track.h"

#include <QList>
#include <QString>
#include <QStringList>

// A folder read into memory instead of a stored library: its tracks live in this object only, and
// nothing of it reaches the store.
class FolderLibrary
{
public:
    const QList<Track>& tracks() const { return m_tracks; }
    void clear() { m_tracks.clear(); }
    // Replaces the tracks by those of `path` and its subfolders; the number read.
    int load(const QString& path);
    void add(const Track& t) { m_tracks.append(t); }
    void add(const QList<Track>& tracks) { m_tracks.append(tracks); }
    qint64 totalDurationMs() const;
    // Sets the length of every file entry of `filePath`; the number changed.
    int updateDuration(const QString& filePath, qint64 ms);
    // Drops the file entries whose files are gone; the number of entries found missing.
    int removeMissingFiles();
    // The tracks that match `q`, in list order; texts ignore case, year and length do not.
    QList<Track> filter(const LibraryQuery& q) const;

private:
    QList<Track> m_tracks;
};
