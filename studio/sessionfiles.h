#pragma once

#include "playlistmodel.h"
#include "track.h"

#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

// The on-disk form of the studio's running order, in one folder: the rows in "session.m3u" and where
// the list stood (current row, queue, played rows, mix overrides) in "session.json" beside it. Both
// files are written whole through a temporary file, rows first, so what is on disk is always complete
// and a side file never names rows that are not written yet. Plain values in, files out: safe on any
// thread, knows nothing of when it is asked to write.
class SessionFiles
{
public:
    // Where the list stands, as it is written.
    struct Snapshot {
        QList<Track> tracks; // the rows, command rows included
        int currentRow = -1;
        QList<int> queue;
        QList<int> played;
        QList<QPair<int, PlaylistModel::MixOverride>> mixOverrides;
    };

    // What the last session left behind.
    struct Saved {
        bool found = false;  // a session playlist was there
        QString error;       // it could not be read (tracks then empty); empty when it was fine
        QList<Track> tracks; // the rows, command rows included
        QStringList missingFiles;
        QStringList skipped;
        bool positionKnown = false; // the side file was readable and belongs to these rows
        QString positionProblem;    // why a side file that was there is not used; empty otherwise
        int currentRow = -1;
        QList<int> queue;
        QList<int> played;
        QList<QPair<int, PlaylistModel::MixOverride>> mixOverrides;
    };

    explicit SessionFiles(const QString& folder);

    QString folder() const { return m_folder; }
    QString playlistPath() const;
    QString positionPath() const;
    // Where an unreadable playlist is moved, for a look by hand.
    QString unreadablePath() const;

    // Writes both files, creating the folder. Rows outside the list are left out of the queue, the
    // played rows and the current row. False with the reason in `error` when anything failed.
    bool write(const Snapshot& snapshot, QString* error) const;

    // Reads both files. A playlist that cannot be read is moved aside (unreadablePath()) so the next
    // write does not replace it, and `error` says why. A side file that is missing leaves the position
    // unknown without a problem; one that is unreadable, written for another list or naming rows out of
    // range leaves it unknown with `positionProblem` set.
    Saved read() const;

private:
    QString m_folder;
};
