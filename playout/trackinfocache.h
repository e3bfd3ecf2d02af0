#pragma once

#include "trackanalysis.h"
#include "trackparams.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

class PlaylistModel;

// What the playout knows of a file from the store: its parameters and its analysis.
struct TrackInfo {
    TrackParams params;
    TrackAnalysis analysis;
    bool known = false; // false: not read yet, or the store could not answer
};

// The playout's view of the store, so that starting a row never waits on the database. Rows are
// read ahead of time, when they are loaded or queued; when a row starts, lookup() answers at once
// from what was read.
class TrackInfoCache : public QObject
{
    Q_OBJECT

public:
    explicit TrackInfoCache(QObject* parent = nullptr);

    // Reads ahead every file row of the model, now and whenever rows are added or the list is
    // replaced; a null model stops watching.
    void watch(PlaylistModel* model);
    // Reads the stored parameters and analysis of these files ahead of time.
    void prefetch(const QStringList& paths);
    // What is known of the file now, never waiting on a server.
    TrackInfo lookup(const QString& path) const;
    // Forgets what was read of the file (its stored values changed).
    void invalidate(const QString& path);

signals:
    // The information of the file was read (or read again).
    void infoReady(const QString& path);

private:
    QPointer<PlaylistModel> m_watched;
};
