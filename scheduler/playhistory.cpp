#include "playhistory.h"

#include "asrunentry.h"
#include "rotationpool.h"
#include "track.h"

PlayHistory::PlayHistory(const RotationPool& rotationPool)
    : pool(&rotationPool), artists(rotationPool.artistCount(), never), songs(rotationPool.songCount(), never),
      files(rotationPool.fileCount(), never)
{
    for (int i = 0; i < rotationPool.candidateCount(); ++i) {
        const RotationCandidate& c = rotationPool.candidate(i);
        if (c.track.lastPlayed.isValid())
            recordPlay(c.keys.artistId, c.keys.songId, c.keys.fileId, c.track.lastPlayed.toMSecsSinceEpoch());
    }
}

void PlayHistory::raise(QVector<qint64>& table, int id, qint64 atMs)
{
    if (id >= 0 && id < table.size() && table.at(id) < atMs)
        table[id] = atMs;
}

void PlayHistory::recordPlay(int artistId, int songId, int fileId, qint64 atMs)
{
    raise(artists, artistId, atMs);
    raise(songs, songId, atMs);
    raise(files, fileId, atMs);
}

void PlayHistory::recordPlay(const QString& artist, const QString& title, const QString& filePath,
                             const QDateTime& at)
{
    if (!at.isValid())
        return;
    recordPlay(pool->artistId(artist), pool->songId(artist, title, filePath), pool->fileId(filePath),
               at.toMSecsSinceEpoch());
}

void PlayHistory::recordPlay(const Track& track, const QDateTime& at)
{
    if (track.isCommand)
        return;
    recordPlay(track.artist, track.title, track.filePath, at);
}

void PlayHistory::recordAsRun(const AsRunEntry& entry)
{
    recordPlay(entry.artist, entry.title, entry.filePath, entry.startedAt);
}
