#include "trackanalysis.h"

#include "storequery.h"
#include "storeschema.h"
#include "storetransaction.h"

#include <QFileInfo>
#include <QSet>
#include <QVariant>

#include <cmath>

namespace {

const QString kSelect = QStringLiteral("SELECT filepath, file_size, file_modified, analysed_at, duration_ms, "
                                       "integrated_lufs, loudness_range_lu, "
                                       "true_peak_dbtp, cue_in_ms, cue_out_ms, mix_start_ms, gain_db, error "
                                       "FROM track_analysis WHERE filepath=?");

const QString kSelectStamp =
    QStringLiteral("SELECT file_size, file_modified FROM track_analysis WHERE filepath=?");

const QString kUpsert = QStringLiteral(
    "INSERT INTO track_analysis(filepath,file_size,file_modified,analysed_at,duration_ms,integrated_lufs,"
    "loudness_range_lu,true_peak_dbtp,cue_in_ms,cue_out_ms,mix_start_ms,gain_db,error) "
    "VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?) ON CONFLICT(filepath) DO UPDATE SET file_size=excluded.file_size, "
    "file_modified=excluded.file_modified, analysed_at=excluded.analysed_at, "
    "duration_ms=excluded.duration_ms, integrated_lufs=excluded.integrated_lufs, "
    "loudness_range_lu=excluded.loudness_range_lu, true_peak_dbtp=excluded.true_peak_dbtp, "
    "cue_in_ms=excluded.cue_in_ms, cue_out_ms=excluded.cue_out_ms, mix_start_ms=excluded.mix_start_ms, "
    "gain_db=excluded.gain_db, error=excluded.error");

const QString kSelectAllStamps =
    QStringLiteral("SELECT filepath, file_size, file_modified FROM track_analysis");
constexpr int kLookupsBeforeScan = 200;

const QString kDelete = QStringLiteral("DELETE FROM track_analysis WHERE filepath=?");

// The ceiling the gain may lift the true peak to, dBTP.
constexpr double kPeakCeilingDbtp = -1.0;
// Below R 128's absolute gate nothing was measurable; such a file gets no gain at all rather than a
// boost of 50 dB and more.
constexpr double kUnmeasurableLufs = -70.0;

// A non-finite value binds as NULL (and reads back as 0) instead of a text no other database takes.
QVariant finiteOrNull(double value)
{
    return std::isfinite(value) ? QVariant(value) : QVariant(QMetaType(QMetaType::Double));
}

} // namespace

double TrackAnalysis::gainTowards(double targetLufs) const
{
    if (!std::isfinite(integratedLufs) || integratedLufs <= kUnmeasurableLufs || !std::isfinite(targetLufs))
        return 0.0;
    double gain = targetLufs - integratedLufs;
    if (std::isfinite(truePeakDbtp) && truePeakDbtp + gain > kPeakCeilingDbtp)
        gain = kPeakCeilingDbtp - truePeakDbtp;
    return gain;
}

void TrackAnalysis::ensureTable()
{
    StoreSchema::run(QStringLiteral("track-analysis"), {}, true, "Creating the analysis table");
}

TrackAnalysis TrackAnalysis::load(const QString& filePath)
{
    TrackAnalysis a;
    StoreQuery q("Reading an analysis");
    if (!q.run(kSelect, {filePath}))
        return a;
    if (!q.next())
        return a;
    a.filePath = q.value(0).toString();
    a.fileSize = q.value(1).toLongLong();
    a.fileModified = QDateTime::fromMSecsSinceEpoch(q.value(2).toLongLong(), Qt::UTC);
    a.analysedAt = QDateTime::fromString(q.value(3).toString(), Qt::ISODate);
    a.durationMs = q.value(4).toLongLong();
    a.integratedLufs = q.value(5).toDouble();
    a.loudnessRangeLu = q.value(6).toDouble();
    a.truePeakDbtp = q.value(7).toDouble();
    a.cueInMs = q.value(8).isNull() ? -1 : q.value(8).toLongLong();
    a.cueOutMs = q.value(9).isNull() ? -1 : q.value(9).toLongLong();
    a.mixStartMs = q.value(10).isNull() ? -1 : q.value(10).toLongLong();
    a.gainDb = q.value(11).toDouble();
    a.error = q.value(12).toString();
    return a;
}

bool TrackAnalysis::isUpToDate(const QString& filePath)
{
    if (filePath.isEmpty())
        return false;
    const auto stamps = storedStamps({filePath});
    const auto it = stamps.constFind(filePath);
    return it != stamps.constEnd() && fileMatchesStamp(filePath, it.value());
}

bool TrackAnalysis::fileMatchesStamp(const QString& filePath, const QPair<qint64, qint64>& stamp)
{
    const QFileInfo info(filePath);
    return info.isFile() && info.size() == stamp.first &&
           info.lastModified().toMSecsSinceEpoch() == stamp.second;
}

QHash<QString, QPair<qint64, qint64>> TrackAnalysis::storedStamps(const QStringList& filePaths)
{
    QHash<QString, QPair<qint64, qint64>> stamps;
    if (filePaths.isEmpty())
        return stamps;
    StoreQuery q("Reading analysis stamps");
    q.setForwardOnly(true);
    // A few paths are looked up one by one; a whole library is read in one scan of the table.
    if (filePaths.size() <= kLookupsBeforeScan) {
        if (!q.prepare(kSelectStamp))
            return stamps;
        for (const QString& path : filePaths) {
            q.bind(path);
            if (!q.exec())
                continue;
            if (q.next())
                stamps.insert(path, {q.value(0).toLongLong(), q.value(1).toLongLong()});
        }
        return stamps;
    }
    const QSet<QString> wanted(filePaths.cbegin(), filePaths.cend());
    if (!q.exec(kSelectAllStamps))
        return stamps;
    while (q.next()) {
        const QString path = q.value(0).toString();
        if (wanted.contains(path))
            stamps.insert(path, {q.value(1).toLongLong(), q.value(2).toLongLong()});
    }
    return stamps;
}

bool TrackAnalysis::save(const QList<TrackAnalysis>& records)
{
    if (records.isEmpty())
        return true;
    // All records or none: a batch that fails part-way is rolled back, and analysed again later.
    // Made before the transaction, so that it ends after the rollback: a server cannot free a
    // statement inside a failed transaction.
    StoreQuery q("Storing an analysis");
    StoreTransaction batch("Storing analyses");
    if (!batch.isActive())
        return false;
    if (!q.prepare(kUpsert))
        return false;
    for (const TrackAnalysis& a : records) {
        if (a.filePath.isEmpty())
            continue;
        q.bind(a.filePath);
        q.bind(a.fileSize);
        q.bind(a.fileModified.isValid() ? a.fileModified.toMSecsSinceEpoch() : qint64(0));
        q.bind((a.analysedAt.isValid() ? a.analysedAt : QDateTime::currentDateTime()).toString(Qt::ISODate));
        q.bind(a.durationMs);
        q.bind(finiteOrNull(a.integratedLufs));
        q.bind(finiteOrNull(a.loudnessRangeLu));
        q.bind(finiteOrNull(a.truePeakDbtp));
        q.bind(a.cueInMs);
        q.bind(a.cueOutMs);
        q.bind(a.mixStartMs);
        q.bind(finiteOrNull(a.gainDb));
        q.bind(a.error);
        if (!q.exec())
            return false;
    }
    return batch.commit();
}

bool TrackAnalysis::remove(const QString& filePath)
{
    StoreQuery q("Removing an analysis");
    return q.run(kDelete, {filePath});
}
