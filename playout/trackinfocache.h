#pragma once

#include "trackinfo.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QStringList>

class PlaylistModel;
class QTimer;
class StoreThread;
class TrackInfoReader;

// The playout's view of the store, so that starting a row never waits on the database. Rows are
// read ahead of time on a thread of their own, with a database connection of its own, when they are
// loaded or queued; when a row starts, lookup() answers at once from what was read.
//
// What it keeps is bounded: the files of the watched playlist, and the last kSpareCount others asked
// for.
class TrackInfoCache : public QObject
{
    Q_OBJECT

public:
    explicit TrackInfoCache(QObject* parent = nullptr);
    ~TrackInfoCache() override;

    // Files outside the watched playlist whose information is kept, the most recently used.
    static constexpr int kSpareCount = 64;
    // Milliseconds between two attempts to read files the store could not answer for.
    static constexpr int kRetryMs = 2000;

    // Reads ahead every file row of the model, now and whenever rows are added, changed or the list is
    // replaced; a null model stops watching.
    void watch(PlaylistModel* model);
    // Reads the stored parameters and analysis of these files ahead of time.
    void prefetch(const QStringList& paths);
    // What is known of the file now, never waiting on a server. Unknown (known = false) when not read
    // yet; then it is read first of all, and infoReady follows.
    TrackInfo lookup(const QString& path) const;
    // What a row starting now plays with. An embedded store is a local file that answers at once:
    // it is read as the row starts, so the row plays with what an editor saved a moment ago. A
    // server, which may stop answering, is never asked here: the row gets what was read ahead.
    TrackInfo forStart(const QString& path) const;
    // Reads the file's stored values again (they changed); until they arrive, lookup gives the old.
    void invalidate(const QString& path);

    // How many files' information is held now, and how many wait to be read.
    int heldCount() const { return int(m_info.size()); }
    int waitingCount() const;

signals:
    // The information of the file was read (or read again).
    void infoReady(const QString& path);

private:
    void request(const QStringList& paths, bool urgent) const;
    void onInfoRead(const QString& path, const TrackInfo& info);
    void retryUnanswered();
    void addRows(int first, int last);
    void rereadWatchedPaths();
    void scheduleRereading();
    // Drops what is neither in the watched playlist nor among the spare files.
    void trim();
    void touchSpare(const QString& path) const;

    QPointer<PlaylistModel> m_watched;
    QList<QMetaObject::Connection> m_modelConnections;
    QSet<QString> m_watchedPaths;
    bool m_rereadingDue = false;
    QHash<QString, TrackInfo> m_info;
    mutable QStringList m_spare;             // most recently used last
    mutable QSet<QString> m_unanswered;      // the store could not answer; asked again by the timer
    mutable QSet<QString> m_pending;         // asked and not answered yet: not asked twice
    mutable StoreThread* m_thread = nullptr; // started by the first request
    mutable TrackInfoReader* m_reader = nullptr;
    QTimer* m_retry = nullptr;
};
