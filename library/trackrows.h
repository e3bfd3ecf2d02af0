#pragma once

#include "track.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>

class StoreQuery;

// The track rows of one named library in the store: adding, changing and removing them, and the
// counts over them. Each operation gives its neutral result when the store fails (logged).
class TrackRows
{
public:
    explicit TrackRows(const QString& library);

    // One row; false when it was not stored.
    bool add(const Track& t) const;
    // All of the rows or none of them: a batch that fails part-way is rolled back and counts 0.
    int addBatch(const QList<Track>& rows) const;
    void clear() const;
    int count() const;
    qint64 totalDurationMs() const;
    void updateStream(const QString& oldUrl, const QString& title, const QString& newUrl) const;
    // The rows of the file changed (0 when none, or when the store failed).
    int updateDuration(const QString& filePath, qint64 ms) const;
    // Removes every row of each path, all or none; the number of paths removed.
    int removeFiles(const QStringList& paths) const;
    // Paths of the file rows without a duration, in the order of the plain listing.
    QStringList filesWithoutDuration() const;

    // Raises the play count of every row of the file, in any library, and sets its last play.
    static bool recordPlay(const QString& filePath, const QDateTime& when);
    // A file entry the duration scanner should measure.
    static bool lacksDuration(const QString& path, bool isStream, qint64 durationMs);

private:
    bool insert(StoreQuery& insert, const QList<Track>& rows) const;
    // Binds the 15 values of a new row, in the order of the insert statement.
    void bindRow(StoreQuery& insert, const Track& t) const;

    QString m_library;
};
