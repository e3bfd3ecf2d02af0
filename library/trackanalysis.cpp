#include "trackanalysis.h"

#include "librarylogging.h"
#include "musiclibrary.h"

#include <QFileInfo>
#include <QSet>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

#include <cmath>

namespace {

// BIGINT and DOUBLE PRECISION: 64-bit sizes and times and full doubles on every database the store
// runs on (SQLite maps them to INTEGER and REAL). file_modified is milliseconds since the epoch (UTC),
// so that the up-to-date test is an exact comparison that no time-zone or DST change can upset.
const QString kCreateTable = QStringLiteral(
    "CREATE TABLE IF NOT EXISTS track_analysis( filepath TEXT PRIMARY KEY, file_size BIGINT NOT NULL, "
    "file_modified BIGINT NOT NULL, analysed_at TEXT, duration_ms BIGINT, integrated_lufs DOUBLE PRECISION, "
    "loudness_range_lu DOUBLE PRECISION, true_peak_dbtp DOUBLE PRECISION, cue_in_ms BIGINT, cue_out_ms "
    "BIGINT, mix_start_ms BIGINT, gain_db DOUBLE PRECISION, error TEXT)");

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

// Begins a transaction on the shared connection and commits it when it goes out of scope.
class ScopedTransaction
{
public:
    explicit ScopedTransaction(QSqlDatabase db) : m_db(std::move(db))
    {
        if (!m_db.transaction())
            qCWarning(lcLibrary) << "track_analysis: cannot begin a transaction:" << m_db.lastError().text();
    }
    ~ScopedTransaction()
    {
        if (!m_db.commit())
            qCWarning(lcLibrary) << "track_analysis: cannot commit:" << m_db.lastError().text();
    }
    ScopedTransaction(const ScopedTransaction&) = delete;
    ScopedTransaction& operator=(const ScopedTransaction&) = delete;

private:
    QSqlDatabase m_db;
};

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
    QSqlQuery q(MusicLibrary::database());
    if (!q.exec(kCreateTable))
        qCWarning(lcLibrary) << "track_analysis: cannot create the table:" << q.lastError().text();
}

TrackAnalysis TrackAnalysis::load(const QString& filePath)
{
    TrackAnalysis a;
    QSqlQuery q(MusicLibrary::database());
    q.prepare(kSelect);
    q.addBindValue(filePath);
    if (!q.exec()) {
        qCWarning(lcLibrary) << "track_analysis: cannot read" << filePath << q.lastError().text();
        return a;
    }
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
    QSqlQuery q(MusicLibrary::database());
    q.setForwardOnly(true);
    // A few paths are looked up one by one; a whole library is read in one scan of the table.
    if (filePaths.size() <= kLookupsBeforeScan) {
        q.prepare(kSelectStamp);
        for (const QString& path : filePaths) {
            q.addBindValue(path);
            if (!q.exec()) {
                qCWarning(lcLibrary) << "track_analysis: cannot read" << path << q.lastError().text();
                continue;
            }
            if (q.next())
                stamps.insert(path, {q.value(0).toLongLong(), q.value(1).toLongLong()});
        }
        return stamps;
    }
    const QSet<QString> wanted(filePaths.cbegin(), filePaths.cend());
    if (!q.exec(kSelectAllStamps)) {
        qCWarning(lcLibrary) << "track_analysis: cannot read the stamps:" << q.lastError().text();
        return stamps;
    }
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
    QSqlDatabase db = MusicLibrary::database();
    bool allStored = true;
    ScopedTransaction transaction(db);
    QSqlQuery q(db);
    if (!q.prepare(kUpsert)) {
        qCWarning(lcLibrary) << "track_analysis: cannot prepare the insert:" << q.lastError().text();
        return false;
    }
    for (const TrackAnalysis& a : records) {
        if (a.filePath.isEmpty())
            continue;
        q.addBindValue(a.filePath);
        q.addBindValue(a.fileSize);
        q.addBindValue(a.fileModified.isValid() ? a.fileModified.toMSecsSinceEpoch() : qint64(0));
        q.addBindValue(
            (a.analysedAt.isValid() ? a.analysedAt : QDateTime::currentDateTime()).toString(Qt::ISODate));
        q.addBindValue(a.durationMs);
        q.addBindValue(finiteOrNull(a.integratedLufs));
        q.addBindValue(finiteOrNull(a.loudnessRangeLu));
        q.addBindValue(finiteOrNull(a.truePeakDbtp));
        q.addBindValue(a.cueInMs);
        q.addBindValue(a.cueOutMs);
        q.addBindValue(a.mixStartMs);
        q.addBindValue(finiteOrNull(a.gainDb));
        q.addBindValue(a.error.isNull() ? QStringLiteral("") : a.error);
        if (!q.exec()) {
            qCWarning(lcLibrary) << "track_analysis: cannot store" << a.filePath << q.lastError().text();
            allStored = false;
        }
    }
    return allStored;
}

bool TrackAnalysis::remove(const QString& filePath)
{
    QSqlQuery q(MusicLibrary::database());
    q.prepare(kDelete);
    q.addBindValue(filePath);
    if (!q.exec()) {
        qCWarning(lcLibrary) << "track_analysis: cannot remove" << filePath << q.lastError().text();
        return false;
    }
    return true;
}
