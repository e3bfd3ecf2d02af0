#pragma once

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

// What the audio analysis measured of one file, kept in the store's "track_analysis" table keyed by
// file path together with the file's size and modification time, so that the playout can read it
// without linking the decoder. Written only by the analysis; a person's cue points stay in
// TrackParams. Times are milliseconds from the start of the file; -1 = not found.
struct TrackAnalysis {
    QString filePath;
    qint64 fileSize = -1;
    QDateTime fileModified; // the file's modification time when it was analysed
    QDateTime analysedAt;
    qint64 durationMs = 0;       // exact decoded duration
    double integratedLufs = 0.0; // EBU R 128 integrated loudness
    double loudnessRangeLu = 0.0;
    double truePeakDbtp = 0.0;
    qint64 cueInMs = -1;    // where sound starts
    qint64 cueOutMs = -1;   // where it ends
    qint64 mixStartMs = -1; // where the next track may start
    double gainDb = 0.0;    // towards the target loudness at analysis time
    QString error;          // empty when the file was analysed

    // A stored, successful analysis (a record from load() for an unknown file is not).
    bool isValid() const { return !filePath.isEmpty() && error.isEmpty() && durationMs > 0; }

    // The gain that brings integratedLufs to targetLufs, limited so that truePeakDbtp plus the gain
    // stays at or below -1 dBTP. Recomputed at play time so a changed target needs no new analysis.
    double gainTowards(double targetLufs) const;

    // --- the store ----------------------------------------------------------------------------
    static void ensureTable();
    // The stored analysis of the file, or a record with an empty filePath when there is none.
    static TrackAnalysis load(const QString& filePath);
    // Whether a stored analysis exists for the file as it is on disk now (same size, same time).
    static bool isUpToDate(const QString& filePath);
    // Stores the records (replacing older ones of the same paths) in one transaction.
    static bool save(const QList<TrackAnalysis>& records);
    static bool remove(const QString& filePath);

    // The stored stamps (file size, modification time in milliseconds since the epoch) of the given
    // paths, read in one pass; a path without a stored analysis is missing. Touches no file, so the
    // comparison with the disk can run on a worker thread (fileMatchesStamp, which touches no database).
    static QHash<QString, QPair<qint64, qint64>> storedStamps(const QStringList& filePaths);
    static bool fileMatchesStamp(const QString& filePath, const QPair<qint64, qint64>& stamp);
};
