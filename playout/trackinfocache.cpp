#include "trackinfocache.h"

#include "libraryconnection.h"
#include "playlistmodel.h"
#include "playoutlogging.h"
#include "storethread.h"
#include "trackinforeader.h"

#include <QTimer>

namespace {

// Milliseconds to wait for the reader when the cache goes: a read blocked on a server is abandoned.
constexpr int kStopWaitMs = 500;

bool isFileRow(const Track& track)
{
    return !track.isCommand && !track.isStream && !track.filePath.isEmpty();
}

} // namespace

TrackInfoCache::TrackInfoCache(QObject* parent) : QObject(parent)
{
    qRegisterMetaType<TrackInfo>();
    m_retry = new QTimer(this);
    m_retry->setSingleShot(true);
    m_retry->setInterval(kRetryMs);
    connect(m_retry, &QTimer::timeout, this, &TrackInfoCache::retryUnanswered);
}

TrackInfoCache::~TrackInfoCache()
{
    if (m_reader)
        m_reader->cancel();
    StoreThread::stop(m_thread, kStopWaitMs);
}

void TrackInfoCache::watch(PlaylistModel* model)
{
    for (const QMetaObject::Connection& c : std::as_const(m_modelConnections))
        disconnect(c);
    m_modelConnections.clear();
    m_watched = model;
    if (model) {
        m_modelConnections
            << connect(model, &QAbstractItemModel::rowsInserted, this,
                       [this](const QModelIndex&, int first, int last) { addRows(first, last); })
            << connect(
                   model, &QAbstractItemModel::dataChanged, this,
                   [this](const QModelIndex& from, const QModelIndex& to) {
                       // Every insert recomputes the start times of all rows; no file changed there.
                       if (from.column() == PlaylistModel::StartTimeColumn &&
                           to.column() == PlaylistModel::StartTimeColumn)
                           return;
                       addRows(from.row(), to.row());
                   })
            << connect(model, &QAbstractItemModel::modelReset, this, &TrackInfoCache::rereadWatchedPaths)
            << connect(model, &QAbstractItemModel::rowsRemoved, this, &TrackInfoCache::scheduleRereading)
            << connect(model, &QObject::destroyed, this, [this] {
                   m_watchedPaths.clear();
                   trim();
               });
    }
    rereadWatchedPaths();
}

void TrackInfoCache::rereadWatchedPaths()
{
    m_watchedPaths.clear();
    QStringList missing;
    if (m_watched) {
        for (const Track& track : m_watched->tracks()) {
            if (!isFileRow(track) || m_watchedPaths.contains(track.filePath))
                continue;
            m_watchedPaths.insert(track.filePath);
            if (!m_info.contains(track.filePath))
                missing << track.filePath;
        }
    }
    trim();
    request(missing, false);
}

void TrackInfoCache::scheduleRereading()
{
    // Rows often go one at a time (a list cut after the current row): one pass for them all.
    if (m_rereadingDue)
        return;
    m_rereadingDue = true;
    QTimer::singleShot(0, this, [this] {
        m_rereadingDue = false;
        rereadWatchedPaths();
    });
}

void TrackInfoCache::addRows(int first, int last)
{
    if (!m_watched)
        return;
    const QList<Track>& tracks = m_watched->tracks();
    QStringList missing;
    for (int row = qMax(first, 0); row <= last && row < tracks.size(); ++row) {
        const Track& track = tracks.at(row);
        if (!isFileRow(track))
            continue;
        m_watchedPaths.insert(track.filePath);
        if (!m_info.contains(track.filePath))
            missing << track.filePath;
    }
    request(missing, false);
}

void TrackInfoCache::prefetch(const QStringList& paths)
{
    QStringList missing;
    for (const QString& path : paths)
        if (!path.isEmpty() && !m_info.contains(path))
            missing << path;
    request(missing, false);
}

TrackInfo TrackInfoCache::forStart(const QString& path) const
{
    if (LibraryConnection::isServer())
        return lookup(path);
    TrackInfo info;
    info.params = TrackParams::load(path);
    info.analysis = TrackAnalysis::load(path);
    info.known = true;
    return info;
}

TrackInfo TrackInfoCache::lookup(const QString& path) const
{
    const auto found = m_info.constFind(path);
    if (found != m_info.constEnd()) {
        touchSpare(path);
        return found.value();
    }
    if (!path.isEmpty())
        request({path}, true);
    return TrackInfo();
}

void TrackInfoCache::invalidate(const QString& path)
{
    if (!path.isEmpty())
        request({path}, true);
}

int TrackInfoCache::waitingCount() const
{
    return m_reader ? m_reader->waitingCount() : 0;
}

void TrackInfoCache::request(const QStringList& asked, bool urgent) const
{
    // A row's data changing while its read is under way would otherwise ask again, and the late second
    // answer would be kept for a file that has left the list. Urgent asks (a start, changed values) go
    // through: they want what the store holds now.
    QStringList paths;
    for (const QString& path : asked)
        if (urgent || !m_pending.contains(path))
            paths << path;
    if (paths.isEmpty())
        return;
    for (const QString& path : std::as_const(paths))
        m_pending.insert(path);
    if (!m_thread) {
        // The connection leads where the shared one does; read now, on the thread that owns it.
        m_reader = new TrackInfoReader;
        m_thread = new StoreThread(LibraryConnection::target(), m_reader);
        auto* self = const_cast<TrackInfoCache*>(this);
        connect(m_reader, &TrackInfoReader::infoRead, self, &TrackInfoCache::onInfoRead,
                Qt::QueuedConnection);
        m_thread->start();
    }
    m_reader->request(paths, urgent);
}

void TrackInfoCache::onInfoRead(const QString& path, const TrackInfo& info)
{
    m_pending.remove(path);
    if (!info.known) {
        // Kept as it was (an older answer stays good); asked again while it is still wanted.
        m_unanswered.insert(path);
        if (!m_retry->isActive())
            m_retry->start();
        return;
    }
    m_unanswered.remove(path);
    m_info.insert(path, info);
    if (!m_watchedPaths.contains(path)) {
        touchSpare(path);
        trim();
    }
    emit infoReady(path);
}

void TrackInfoCache::retryUnanswered()
{
    QStringList wanted;
    for (const QString& path : std::as_const(m_unanswered))
        if (m_watchedPaths.contains(path) || m_spare.contains(path) || !m_info.contains(path))
            wanted << path;
    m_unanswered.clear();
    if (!wanted.isEmpty())
        qCDebug(lcPlayout) << "asking the store again for" << wanted.size() << "files";
    request(wanted, false);
}

void TrackInfoCache::touchSpare(const QString& path) const
{
    if (m_watchedPaths.contains(path))
        return;
    m_spare.removeOne(path);
    m_spare << path;
}

void TrackInfoCache::trim()
{
    while (m_spare.size() > kSpareCount)
        m_spare.removeFirst();
    for (auto it = m_info.begin(); it != m_info.end();) {
        if (m_watchedPaths.contains(it.key()) || m_spare.contains(it.key()))
            ++it;
        else
            it = m_info.erase(it);
    }
}
