#include "trackinfocache.h"

#include "playlistmodel.h"

// Provisional: reads on demand, on the caller's thread.
TrackInfoCache::TrackInfoCache(QObject* parent) : QObject(parent) {}

void TrackInfoCache::watch(PlaylistModel* model)
{
    m_watched = model;
}

void TrackInfoCache::prefetch(const QStringList&) {}

TrackInfo TrackInfoCache::lookup(const QString& path) const
{
    TrackInfo info;
    info.params = TrackParams::load(path);
    info.analysis = TrackAnalysis::load(path);
    info.known = true;
    return info;
}

void TrackInfoCache::invalidate(const QString&) {}
