#pragma once

#include "rotationcandidate.h"
#include "track.h"
#include "trackparams.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVector>

// What the scheduler may choose from: the rotation candidates of a library, grouped by category
// (compared ignoring case), plus the whole listing for the length of fixed files. Artists, songs and
// files get small numbers here; PlayHistory keeps its times under those numbers.
//
// Whether a candidate's file exists is not asked here but when the generator picks it: a library of
// 100,000 tracks would otherwise cost 100,000 look-ups on disk for the few hundred an hour uses.
class RotationPool
{
public:
    // Builds the pool from a library listing and the stored parameters by path. Only entries of the
    // `categories` (all when empty) become candidates. Candidates are kept in one fixed order of their
    // paths (see pathHash), whatever the listing's order, and a path listed twice counts once.
    static RotationPool build(const QList<Track>& tracks, const QHash<QString, TrackParams>& params,
                              const QStringList& categories = {});

    // Whether a library entry can ever fill a category slot: a file with a length.
    static bool isRotationTrack(const Track& track);

    int candidateCount() const { return candidates.size(); }
    const RotationCandidate& candidate(int index) const { return candidates.at(index); }
    const RotationKeys& keys(int index) const { return keyTable.at(index); }
    // Indexes of the candidates of a category, in pool order; empty for an unknown category.
    QList<int> inCategory(const QString& category) const;
    // The first library entry of a path, or null when the library does not hold it. A linear search:
    // it serves the few fixed files of a format, each looked up once per run.
    const Track* libraryTrack(const QString& path) const;

    // The numbers of an artist, a song and a file; -1 when the pool has never seen them (such plays
    // cannot hold back any candidate) or when the artist is empty.
    int artistId(const QString& artist) const;
    int songId(const QString& artist, const QString& title, const QString& filePath) const;
    int fileId(const QString& path) const;
    int artistCount() const { return artistIds.size(); }
    int songCount() const { return songIds.size(); }
    int fileCount() const { return fileIds.size(); }

private:
    static QString artistKey(const QString& artist);
    static QString songKey(const QString& artistKey, const QString& title, const QString& filePath);
    static int intern(QHash<QString, int>& ids, const QString& key);
    static quint64 pathHash(const QString& path);

    QList<Track> listing; // the library as read, shared with the caller's copy
    QList<RotationCandidate> candidates;
    QVector<RotationKeys> keyTable;        // keys of candidate i at i
    QHash<QString, QList<int>> byCategory; // case-folded category -> candidate indexes
    QHash<QString, int> artistIds;
    QHash<QString, int> songIds;
    QHash<QString, int> fileIds;
};
