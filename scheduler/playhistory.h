#pragma once

#include <QDateTime>
#include <QString>
#include <QVector>

#include <limits>

class RotationPool;
struct AsRunEntry;
struct Track;

// When each artist, song and file of a pool last played or was scheduled, in milliseconds since the
// epoch. The library's last plays, the as-run log and the part already scheduled all go in here; the
// latest time of each wins.
class PlayHistory
{
public:
    static constexpr qint64 never = std::numeric_limits<qint64>::min();

    // Empty tables sized for the pool, then every candidate's last play from the library.
    explicit PlayHistory(const RotationPool& pool);

    void recordPlay(int artistId, int songId, int fileId, qint64 atMs);
    // The same by texts; plays of artists, songs and files the pool does not know are dropped.
    void recordPlay(const Track& track, const QDateTime& at);
    void recordAsRun(const AsRunEntry& entry);

    qint64 lastArtistPlay(int artistId) const { return lastOf(artists, artistId); }
    qint64 lastSongPlay(int songId) const { return lastOf(songs, songId); }
    qint64 lastFilePlay(int fileId) const { return lastOf(files, fileId); }

private:
    void recordPlay(const QString& artist, const QString& title, const QString& filePath,
                    const QDateTime& at);
    static qint64 lastOf(const QVector<qint64>& table, int id)
    {
        return id >= 0 && id < table.size() ? table.at(id) : never;
    }
    static void raise(QVector<qint64>& table, int id, qint64 atMs);

    const RotationPool* pool;
    QVector<qint64> artists;
    QVector<qint64> songs;
    QVector<qint64> files;
};
